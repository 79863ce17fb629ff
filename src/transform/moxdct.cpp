// Orthonormal two-dimensional DCT-II (forward) and its inverse on the common
// ROI of two images, channel by channel, rounded and saturated to the
// destination's depth. Tables belong to the calling thread.
#include <new>
#include <stdexcept>

#include "fftengine.h"
#include "planes.h"

namespace {

using mox::transform::Rect;

constexpr const char* kFunc = "moxDCT2D";
constexpr const char* kFile = "moxdct";

constexpr mox::Site at(int line) { return {kFunc, kFile, line}; }

// The first failing argument check, reported; true when one failed.
bool badArguments(const MoxImage* src, const MoxImage* dst, int flags) {
  using namespace mox::transform;
  if (mox::badHeader(src, at(60)) || mox::badHeader(dst, at(61))) return true;
  const int direction = flags & (MOX_DCT_FORWARD | MOX_DCT_INVERSE);
  const struct {
    bool failed;
    const char* text;
    int line;
  } checks[] = {
      {direction == 0 || direction == (MOX_DCT_FORWARD | MOX_DCT_INVERSE),
       "((flags & (MOX_DCT_FORWARD | MOX_DCT_INVERSE)) == 0 || (flags & (MOX_DCT_FORWARD | "
       "MOX_DCT_INVERSE)) == (MOX_DCT_FORWARD | MOX_DCT_INVERSE))",
       70},
      {src->imageData == nullptr, "(srcImage->imageData == 0)", 71},
      {dst->imageData == nullptr, "(dstImage->imageData == 0)", 72},
      {!transformDepth(src->depth), "(srcImage->depth == MOX_DEPTH_1U)", 73},
      {!transformDepth(dst->depth), "(dstImage->depth == MOX_DEPTH_1U)", 74},
      {src->nChannels != dst->nChannels, "(srcImage->nChannels != dstImage->nChannels)", 75},
      {roiCoi(src) != roiCoi(dst), "(srcImage->roi->coi != dstImage->roi->coi)", 76},
      {!layoutHolds(src), "(srcImage->widthStep * srcImage->height > srcImage->imageSize)", 77},
      {!layoutHolds(dst), "(dstImage->widthStep * dstImage->height > dstImage->imageSize)", 78},
      {!roiInside(src), "(srcImage->roi is outside srcImage)", 79},
      {!roiInside(dst), "(dstImage->roi is outside dstImage)", 80},
  };
  for (const auto& c : checks)
    if (c.failed) {
      mox::report(at(c.line), c.text);
      return true;
    }
  const Rect r = commonRect(src, dst);
  if (r.width <= 0 || r.height <= 0) {
    mox::report(at(82), "(the ROIs of srcImage and dstImage do not meet)");
    return true;
  }
  return false;
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxDCT2D(const MoxImage* srcImage, MoxImage* dstImage, int flags) {
  using namespace mox::transform;
  mox::fft::Engine& engine = mox::fft::cosineEngine();
  if (flags & MOX_DCT_FREE) {
    engine.release();
    return;
  }
  if (badArguments(srcImage, dstImage, flags)) return;
  const Rect r = commonRect(srcImage, dstImage);
  const int coi = roiCoi(srcImage);
  const int first = coi ? coi : 1, last = coi ? coi : srcImage->nChannels;
  const bool inverse = flags & MOX_DCT_INVERSE;
  bool done = false;
  try {
    const std::ptrdiff_t step = matrixStep(r.width);
    double* m = engine.matrix(r.height, step);
    for (int c = first; c <= last; ++c) {
      load(srcImage, c - 1, r, m, step);
      engine.cosine2D(m, r.height, r.width, step, inverse);
      store(m, step, 1.0, dstImage, c - 1, r);
    }
    done = true;
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {  // past what a vector holds (32-bit builds)
  }
  if (!done || !(flags & MOX_DCT_SAVE)) engine.release();
  if (!done) mox::report(at(90), "Out of memory", MOX_StsOutOfMemory);
}
