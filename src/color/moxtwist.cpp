// The colour twist: a 4 x 4 integer matrix over a power of two that maps the
// three colour channels of each pixel, plus an offset, into a band of the
// depth's range.
#include <cstdint>
#include <new>

#include "color/color.h"

namespace mox::color {
namespace {

constexpr const char* kFile = "moxtwist";

// The scaled matrix rows 0..2 and the band of the offset.
struct TwistArgs {
  double m[12];
  double lowT, highT;
  int lowOut, highOut, offset;
};

TwistArgs twistArgs(const MoxColorTwist& t, int offset, int M) {
  TwistArgs a;
  const double scale =
      t.scalingValue < 31 ? 1.0 / double(1u << t.scalingValue) : 4.656612873077393e-10;
  for (int i = 0; i < 12; ++i) a.m[i] = double(t.data[i]) * scale;
  const double F = M + 1.0;
  a.offset = offset;
  if (offset >= M)
    a.lowT = 0.0, a.highT = 0.0, a.lowOut = M, a.highOut = M;
  else if (offset >= 0)
    a.lowT = 0.0, a.highT = F - offset, a.lowOut = offset, a.highOut = M;
  else if (offset >= -(M - 1))
    a.lowT = -double(offset), a.highT = F, a.lowOut = 0, a.highOut = offset + M;
  else
    a.lowT = 0.0, a.highT = 0.0, a.lowOut = 0, a.highOut = 0;
  return a;
}

template <class T>
void twistKernel(const View* v, const void* arg) {
  const TwistArgs a = *static_cast<const TwistArgs*>(arg);
  for (int y = 0; y < v[1].height; ++y) {
    const Row3<const T> s = row3<const T>(v[0], y, false);
    const Row3<T> d = row3<T>(v[1], y, false);
    const std::ptrdiff_t ss = s.step, ds = d.step;
    for (int x = 0; x < v[1].width; ++x) {
      const double c0 = s.c[0][x * ss], c1 = s.c[1][x * ss], c2 = s.c[2][x * ss];
      for (int i = 0; i < 3; ++i) {
        const double r = a.m[4 * i] * c0 + a.m[4 * i + 1] * c1 + a.m[4 * i + 2] * c2 + a.m[4 * i + 3];
        const int out = r < a.lowT ? a.lowOut : r >= a.highT ? a.highOut : a.offset + chop(r);
        d.c[i][x * ds] = static_cast<T>(out);
      }
    }
  }
}

// A failed test reports at its line and stops the call.
bool fails(bool failed, const char* func, int line, const char* message) {
  if (failed) report(Site{func, kFile, line}, message);
  return failed;
}

// Argument checks of the application, in order; true after a report.
bool refused(const MoxImage* s, const MoxImage* d, const MoxColorTwist* t) {
  const char* f = "moxApplyColorTwist";
  if (badHeader(s, Site{f, kFile, 241}) || badHeader(d, Site{f, kFile, 242})) return true;
  return fails(!t, f, 243, "cTwist==0") ||
         fails(s->nChannels < 3, f, 245, "(srcImage->nChannels < 3)") ||
         fails(s->alphaChannel != 0 && s->nChannels < 4, f, 247,
               "((srcImage->alphaChannel != 0) && (srcImage->nChannels < 4))") ||
         fails(s->alphaChannel != 0 && s->alphaChannel < s->nChannels, f, 249,
               "((srcImage->alphaChannel != 0) && (srcImage->alphaChannel < "
               "srcImage->nChannels))") ||
         fails(d->nChannels < 3, f, 252, "(dstImage->nChannels < 3)") ||
         fails(d->alphaChannel != 0 && d->nChannels < 4, f, 254,
               "((dstImage->alphaChannel != 0) && (dstImage->nChannels < 4))") ||
         fails(d->alphaChannel != 0 && d->alphaChannel < d->nChannels, f, 256,
               "((dstImage->alphaChannel != 0) && (dstImage->alphaChannel < "
               "dstImage->nChannels))") ||
         fails(s->depth != d->depth, f, 259, "(srcImage->depth != dstImage->depth)") ||
         fails(s->depth != 8 && s->depth != 16, f, 261,
               "((srcImage->depth != 8) && (srcImage->depth != 16))") ||
         fails(s->dataOrder != d->dataOrder, f, 264,
               "(srcImage->dataOrder != dstImage->dataOrder)") ||
         fails(s->origin != d->origin, f, 266, "(srcImage->origin != dstImage->origin)") ||
         badLayout(s, "srcImage", Site{f, kFile, 241}) ||
         badLayout(d, "dstImage", Site{f, kFile, 242});
}

// The tile requests check the mapping's column (603) and row (598); the
// destination's tile is asked first. Releases are not checked.
constexpr WalkLines kWalkLines{{603, 598, 603, 598}, {658, 630, 0, 707, 0, 694, 0, 0}};

}  // namespace
}  // namespace mox::color

using namespace mox::color;

extern "C" MOX_API MoxColorTwist* MOX_CALL moxCreateColorTwist(const int* data, int scalingValue) {
  if (fails(scalingValue >= 32 || scalingValue < 0 || !data, "moxCreateColorTwist", 98,
            "bad_argument"))
    return nullptr;
  auto* t = new (std::nothrow) MoxColorTwist;
  if (!t) {
    mox::report(mox::Site{"moxCreateColorTwist", kFile, 102}, "out_of_memory",
                MOX_StsOutOfMemory);
    return nullptr;
  }
  for (int i = 0; i < 16; ++i) t->data[i] = data[i];
  t->scalingValue = scalingValue;
  return t;
}

extern "C" MOX_API void MOX_CALL moxSetColorTwist(MoxColorTwist* cTwist, const int* data,
                                                  int scalingValue) {
  const char* f = "moxSetColorTwist";
  if (fails(!cTwist, f, 133, "cTwist==0") || fails(!data, f, 134, "(data == 0)") ||
      fails(scalingValue < 0, f, 135, "(scalingValue < 0)") ||
      fails(scalingValue > 31, f, 136, "(scalingValue > 31)"))
    return;
  for (int i = 0; i < 16; ++i) cTwist->data[i] = data[i];
  cTwist->scalingValue = scalingValue;
}

extern "C" MOX_API void MOX_CALL moxDeleteColorTwist(MoxColorTwist* cTwist) { delete cTwist; }

extern "C" MOX_API void MOX_CALL moxApplyColorTwist(const MoxImage* srcImage, MoxImage* dstImage,
                                                    const MoxColorTwist* cTwist, int offset,
                                                    const int* mapping) {
  if (refused(srcImage, dstImage, cTwist)) return;
  const bool wide = srcImage->depth == MOX_DEPTH_16U;
  const TwistArgs args = twistArgs(*cTwist, offset, wide ? 65535 : 255);
  const mox::WalkImage images[2] = {{srcImage, "srcImage", false}, {dstImage, "dstImage", true}};
  mox::WalkPlan plan{"moxApplyColorTwist", kFile, &kWalkLines, false};
  plan.area = mox::Area::firstRoi;
  plan.destinationFirst = true;
  plan.null = "NULL";
  mox::walk(plan, images, 2, mapping,
            wide ? &twistKernel<std::uint16_t> : &twistKernel<std::uint8_t>, &args);
}
