// The arithmetic blocks with 256-bit vectors, chosen at run time on x86-64
// processors that have them. Everything the other files share is included
// before the target switch, so only this file's own (internal) code is
// compiled for the wider instructions.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/arith.h"

#if defined(MOX_ARITH_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2")
#define MOX_ARITH_WIDE_BODY 1
#define MOX_ARITH_BLOCKS kWideBlocks
#include "arith/lanes.h"
#endif
