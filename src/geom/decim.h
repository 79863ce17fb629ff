// The kernels of moxDecimate (owndecim) as the argument checks (moxdecim)
// call them.
#pragma once

#include "geom/resample.h"

namespace mox::geom {

// Chooses the interpolation and the kernel for the images of the job and
// runs it. Reports a depth without kernels.
void ownDecimate(const Job& job, int xU, int xL, int yU, int yL, int interpolate);

}  // namespace mox::geom
