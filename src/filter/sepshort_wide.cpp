// The short separable sums with 256-bit vectors, chosen at run time on
// x86-64 processors that have them. What the other files share is included
// before the target switch, so only this file's own code uses the wider
// instructions.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "filter/kernels.h"
#include "filter/wide.h"

#if defined(MOX_FILTER_HAVE_WIDE)
#pragma GCC target("avx2")
#define MOX_FILTER_SEP_SHORT wideSepShort
#define MOX_FILTER_SEP_BYTES 32
#include "filter/sepshort.h"
#endif
