// The transform kernels for the baseline instruction set.
#define MOX_FFT_KERNELS kBaselineKernels
#include "fftkernels.h"
