// moxConvert: any depth and data order into any other, values kept where
// they fit and clamped where not (1-bit: set means the maximum, any non-zero
// value sets the bit). moxBitonalToGray: a 1-bit image into two chosen
// values. moxReduceBits: equally spaced levels with error diffusion, the
// ordered dither and jitter.
#include <cmath>
#include <vector>

#include "convert/convert.h"

namespace {

using namespace mox;
using mox::convert::BitValues;

constexpr const char* kFile = "moxconv";

// The checks both conversions share: headers (and layouts), then channels.
bool badPair(const char* func, const MoxImage* src, const MoxImage* dst, int headerLine,
             int channelLine) {
  const Site s{func, kFile, headerLine}, d{func, kFile, headerLine + 1};
  if (badHeader(src, s) || badLayout(src, "srcImage", s) || badHeader(dst, d) ||
      badLayout(dst, "dstImage", d))
    return true;
  if (workChannels(src) == workChannels(dst)) return false;
  report(Site{func, kFile, channelLine}, "(nChSrc != nChDst)");
  return true;
}

constexpr WalkLines kConvertLines{{60, 61, 62, 63}, {70, 71, 72, 73, 74, 75, 76, 77}};
constexpr WalkLines kBitonalLines{{120, 121, 122, 123}, {130, 131, 132, 133, 134, 135, 136, 137}};

}  // namespace

extern "C" MOX_API void MOX_CALL moxConvert(const MoxImage* srcImage, MoxImage* dstImage) {
  if (badPair("moxConvert", srcImage, dstImage, 50, 52)) return;
  const WalkPlan plan{"moxConvert", kFile, &kConvertLines, false};
  convert::convertImage(plan, srcImage, "srcImage", dstImage, "dstImage", convert::plainBits(dstImage->depth));
}

extern "C" MOX_API void MOX_CALL moxBitonalToGray(const MoxImage* srcImage, MoxImage* dstImage,
                                                  int ZeroScale, int OneScale) {
  if (badPair("moxBitonalToGray", srcImage, dstImage, 110, 113)) return;
  if (srcImage->depth != MOX_DEPTH_1U) {
    report(Site{"moxBitonalToGray", kFile, 112}, "(srcImage->depth != MOX_DEPTH_1U)");
    return;
  }
  const WalkPlan plan{"moxBitonalToGray", kFile, &kBitonalLines, false};
  convert::convertImage(plan, srcImage, "srcImage", dstImage, "dstImage", BitValues{ZeroScale, OneScale});
}

// ---------------------------------------------------------------- moxReduceBits

namespace {

constexpr const char* kReduce = "moxReduceBits";

double lowOf(unsigned depth) {
  return isSigned(depth) ? -std::ldexp(1.0, int(depthBits(depth)) - 1) : 0.0;
}
double highOf(unsigned depth) {
  return depth == MOX_DEPTH_1U ? 1.0
                               : std::ldexp(1.0, int(depthBits(depth)) - (isSigned(depth) ? 1 : 0)) - 1.0;
}

// The first failing argument check, reported; true when one failed.
bool badReduce(const MoxImage* src, const MoxImage* dst, int noise, int ditherType, int levels) {
  if (badPair(kReduce, src, dst, 160, 168)) return true;
  const unsigned dstBits = depthBits(dst->depth);
  const long long most = dstBits >= 31 ? 0x7fffffffLL : 1LL << dstBits;
  const struct {
    bool failed;
    const char* text;
    int line;
  } checks[] = {
      {src->tileInfo != nullptr, "(srcImage->tileInfo != ((void*)(0)))", 162},
      {dst->tileInfo != nullptr, "(dstImage->tileInfo != ((void*)(0)))", 163},
      {dstBits > depthBits(src->depth),
       "(dstImage->depth & ~MOX_DEPTH_SIGN) > (srcImage->depth & ~MOX_DEPTH_SIGN)", 164},
      {ditherType < MOX_DITHER_NONE || ditherType > MOX_DITHER_BAYER,
       "(ditherType < MOX_DITHER_NONE || ditherType > MOX_DITHER_BAYER)", 165},
      {noise < 0 || noise > 100, "(noise < 0 || noise > 100)", 166},
      {levels < 2 || levels > most, "(levels < 2 || levels > 1 << dstBits)", 167},
  };
  for (const auto& c : checks)
    if (c.failed) {
      report(Site{kReduce, kFile, c.line}, c.text);
      return true;
    }
  return false;
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxReduceBits(const MoxImage* srcImage, MoxImage* dstImage,
                                               int noise, int ditherType, int levels) {
  if (badReduce(srcImage, dstImage, noise, ditherType, levels)) return;
  const MoxImage* images[2] = {srcImage, dstImage};
  View v[2];
  if (!plainViews(images, 2, v)) return;
  const double sLo = lowOf(srcImage->depth), sHi = highOf(srcImage->depth);
  const double dLo = lowOf(dstImage->depth), dHi = highOf(dstImage->depth);
  const double top = levels - 1;
  const double step = (sHi - sLo) / top;
  const int width = v[1].width;
  std::vector<double> row;
  std::vector<long long> out;
  try {
    row.resize(std::size_t(width));
    out.resize(std::size_t(width));
  } catch (const std::bad_alloc&) {
    report(Site{kReduce, kFile, 170}, "Out of memory", MOX_StsOutOfMemory);
    return;
  }
  for (int c = 0; c < convert::viewChannels(v[1]); ++c) {
    convert::Ditherer dither(ditherType, noise, width, 1, &step);
    if (!dither.ok()) {
      report(Site{kReduce, kFile, 170}, "Out of memory", MOX_StsOutOfMemory);
      return;
    }
    for (int y = 0; y < v[1].height; ++y) {
      convert::loadRow(v[0], y, c, row.data());
      dither.row(row.data(), y, [&](const double* want, double* got) {
        double k = std::floor((want[0] - sLo) / step + 0.5);
        k = k < 0 ? 0 : k > top ? top : k;
        got[0] = sLo + k * step;
      });
      for (int x = 0; x < width; ++x) {
        const double k = std::floor((row[x] - sLo) / step + 0.5);
        out[x] = static_cast<long long>(dLo + std::floor(k * (dHi - dLo) / top + 0.5));
      }
      convert::storeRow(v[1], y, c, out.data());
    }
  }
}
