// The row loops compiled for 256-bit vectors, chosen at run time on x86-64
// processors that have them. What the other files share is included before
// the target switch, so only this file's own loops use the wider
// instructions.
#include <cstdint>

#include "geom/rowloops.h"

#if defined(MOX_GEOM_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2")
#define MOX_GEOM_WIDE_BODY 1
#define MOX_GEOM_LOOPS kWideLoops
#include "geom/rows.h"
#endif
