// The histogram median with 256-bit vectors, chosen at run time on x86-64
// processors that have them. What the other files share is included before
// the target switch, so only this file's own code uses the wider
// instructions.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/kernels.h"
#include "filter/wide.h"
#include "frame/frame.h"

#if defined(MOX_FILTER_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2")
#define MOX_FILTER_HISTS wideMedianHistograms
#include "filter/histmedian.h"
#endif
