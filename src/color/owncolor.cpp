// The depth dispatchers of the colour-model conversions, the multipliers of
// colour from grey, and the kernel table of the build's own vectors.
#include "color/kernels.h"
#include "frame/frame.h"

namespace mox::color {

constinit const KernelTable kBaseKernels = makeTable();

const KernelTable& baseKernels() { return kBaseKernels; }

const KernelTable& kernels() {
#if defined(MOX_COLOR_HAVE_WIDE)
  if (wideVectors()) return kWideKernels;
#endif
  return kBaseKernels;
}

namespace {

struct DepthError {
  const char* func;
  int line;
};

}  // namespace

void grayMultipliers(unsigned dstDepth, float fractR, float fractG, float fractB, ConvArgs& a) {
  const float fract[3] = {fractR, fractG, fractB};
  const bool wide = dstDepth == MOX_DEPTH_16U || dstDepth == MOX_DEPTH_32S;
  const double scale = wide ? 32768.0 : 256.0;
  bool zero = true;
  for (int k = 0; k < 3; ++k) {
    a.mult[k] = static_cast<std::uint16_t>(chop(double(fract[k]) * scale));
    a.factor[k] = fract[k];
    zero = zero && (dstDepth == MOX_DEPTH_32S ? chop(double(fract[k]) * scale) == 0 : a.mult[k] == 0);
  }
  a.shift = wide ? 15 : 8;
  if (!zero) return;
  static const unsigned kNarrow[3] = {54, 183, 18}, kWide[3] = {109, 366, 37};
  static const float kFactors[3] = {0.212671f, 0.715160f, 0.072169f};
  for (int k = 0; k < 3; ++k) {
    a.mult[k] = wide ? kWide[k] : kNarrow[k];
    a.factor[k] = kFactors[k];
  }
  a.shift = wide ? 9 : 8;
}

// 0, 1, 2 for 8U, 16U, 32S; -1 for the other depths.
int colourIndex(unsigned depth) {
  return depth == MOX_DEPTH_8U ? 0 : depth == MOX_DEPTH_16U ? 1 : depth == MOX_DEPTH_32S ? 2 : -1;
}

Kernel pickConversion(Model model, unsigned src, unsigned dst) {
  const KernelTable& t = kernels();
  const int s = colourIndex(src), d = colourIndex(dst);
  Kernel k = nullptr;
  DepthError error{};
  switch (model) {
    case Model::toGray: {
      error = {"ownColorToGray", 486};
      const int g = dst == MOX_DEPTH_1U ? 0 : d == 0 ? 1 : d == 1 ? 2 : -1;
      if (s >= 0 && g >= 0) k = t.toGray[s][g];
      break;
    }
    case Model::fromGray:
      error = {"ownGrayToColor", 530};
      if (src == MOX_DEPTH_1U && d == 0) k = t.fromGray[0];
      if (src == dst && d >= 0) k = t.fromGray[d + 1];
      break;
    default: {
      const bool hsv = model == Model::toHSV || model == Model::fromHSV;
      error = hsv ? DepthError{"ownRGB2HSV", 560} : DepthError{"ownRGB2HLS", 590};
      const int m = model == Model::toHSV ? 0 : model == Model::fromHSV ? 1 : model == Model::toHLS ? 2 : 3;
      if (src == dst && d >= 0) k = t.three[m][d];
    }
  }
  if (!k) report(Site{error.func, "owncolor", error.line}, "errInOutDepth");
  return k;
}

}  // namespace mox::color
