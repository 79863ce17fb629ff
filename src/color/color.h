// Internals of the colour family: the arguments of the kernels, their
// tables and the depth dispatchers of the colour-model conversions.
#pragma once

#include <cstddef>

#include "image/walk.h"

namespace mox::color {

// The conversions the dispatchers run.
enum class Model { toGray, fromGray, toHSV, fromHSV, toHLS, fromHLS };

// What a conversion kernel needs besides its views.
struct ConvArgs {
  bool swap;  // the RGB side is stored B, G, R
  // Colour from grey: multipliers and shift of the integer depths, factors
  // of the 32-bit depth.
  unsigned mult[3];
  int shift;
  float factor[3];
};

// The kernel of a conversion for a source and destination depth, or null
// after reporting the pair as not supported.
Kernel pickConversion(Model model, unsigned srcDepth, unsigned dstDepth);

// The arguments of the twist kernels. Results are defined in doubles:
// v_i = m[4i]·c0 + m[4i+1]·c1 + m[4i+2]·c2 + m[4i+3] with every entry
// divided by 2^scalingValue. Dividing by a power of two is exact, and so is
// every product and sum here (a channel value has at most 16 bits and an
// entry 32, so the integer sum stays below 2^50). So v_i is exactly S_i / 2^scalingValue for the integer
// sum S_i of the unscaled entries, and the kernels compute S_i in integers:
// the band tests compare S_i with the thresholds times 2^scalingValue, and
// trunc(v_i), taken only where v_i >= 0, is S_i shifted right.
struct TwistArgs {
  int d[12];
  int shift;
  long long lowS, highS;  // the thresholds times 2^shift
  int lowOut, highOut, offset;
};

// The kernels of one compilation. toGray by source (8U, 16U, 32S) and
// destination (1U, 8U, 16U); fromGray for 1U to 8U, 8U, 16U, 32S; three by
// conversion (to HSV, from HSV, to HLS, from HLS) and depth (8U, 16U, 32S);
// twist by depth (8U, 16U) and arithmetic (16-bit products, 32-bit sums,
// 64-bit sums).
struct KernelTable {
  Kernel toGray[3][3];
  Kernel fromGray[4];
  Kernel three[4][3];
  Kernel twist[2][3];
};

// The table for this processor: the build's own vectors, or 256-bit ones
// on x86-64 processors that have them; and the first alone.
const KernelTable& kernels();
const KernelTable& baseKernels();
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_COLOR_HAVE_WIDE 1
extern const KernelTable kWideKernels;
#endif

// The multipliers of colour from grey for the destination's depth.
void grayMultipliers(unsigned dstDepth, float fractR, float fractG, float fractB, ConvArgs& a);

}  // namespace mox::color
