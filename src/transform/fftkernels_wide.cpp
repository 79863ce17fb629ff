// The transform kernels with 256-bit vectors, chosen at run time on
// processors that have them.
#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "fftplan.h"

#if defined(MOX_FFT_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2,fpmath=sse")
#define MOX_FFT_WIDE_BODY 1
#define MOX_FFT_KERNELS kWideKernels
#include "fftkernels.h"
#endif
