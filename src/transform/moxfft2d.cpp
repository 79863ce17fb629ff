// Two-dimensional real FFT into a packed spectrum (moxRealFft2D) and back
// from one (moxCcsFft2D). Both run either direction; the work set-up and the
// tables belong to the calling thread.
#include <new>
#include <stdexcept>

#include "fftengine.h"
#include "planes.h"

namespace {

using mox::fft::Engine;
using mox::transform::Rect;

constexpr const char* kFile = "moxfft2d";

// The report lines of one of the two operations.
struct Sites {
  const char* func;
  int nullImage, noData, map, input, nothing, tables;
};
constexpr Sites kReal{"moxRealFft2D", 308, 309, 310, 319, 322, 326};
constexpr Sites kCcs{"moxCcsFft2D", 410, 411, 412, 421, 424, 428};

constexpr const char* kBadInput = "Error in input data";
constexpr const char* kNothing = "No calculations! Looking input data!";

// What a call fixes for the calls that reuse it.
struct Setup {
  bool valid = false;
  int sign = 1;
  bool scale = false;
  bool withAlpha = false;
  int implementation = 0;  // 0: by size, else MOX_FFT_SMALL or MOX_FFT_GENERAL
};

Setup& threadSetup() {
  thread_local Setup setup;
  return setup;
}

int fail(const Sites& at, const char* message, int line) {
  return moxError(MOX_StsBadArgument, at.func, message, kFile, line);
}

// The image checks of the set-up, made again on every call (the reused
// set-up must still match the images it is applied to).
bool imagesFit(const MoxImage* src, const MoxImage* dst) {
  using namespace mox::transform;
  if (moxBadImageHeader(src) || moxBadImageHeader(dst)) return false;
  if (src->nChannels != dst->nChannels || src->nChannels <= 0) return false;
  if (src->alphaChannel != dst->alphaChannel || src->alphaChannel > src->nChannels) return false;
  if (!transformDepth(src->depth) || !transformDepth(dst->depth)) return false;
  if ((src->dataOrder != 0 && src->dataOrder != 1) || (dst->dataOrder != 0 && dst->dataOrder != 1))
    return false;
  return layoutHolds(src) && layoutHolds(dst);
}

bool flagsFit(int flags) {
  const bool forward = flags & MOX_FFT_FORWARD, inverse = flags & MOX_FFT_INVERSE;
  if (forward == inverse) return false;
  return !((flags & MOX_FFT_SMALL) && (flags & MOX_FFT_GENERAL));
}

// The small-size schedule suits rectangles of fewer than 129 samples (whose
// sides are then at most 128, powers of two or not).
bool smallSize(const Rect& r) { return static_cast<long long>(r.width) * r.height < 129; }

// One channel of the two images seen through the work matrix.
class ChannelStream final : public mox::fft::Stream {
 public:
  ChannelStream(const MoxImage* src, MoxImage* dst, int channel, const Rect& r, double* m,
                std::ptrdiff_t step, double scale)
      : src_(src), dst_(dst), channel_(channel), r_(r), m_(m), step_(step), scale_(scale) {}

  void load(int x, int y, int w, int h) override {
    mox::transform::load(src_, channel_, part(x, y, w, h), at(x, y), step_);
  }
  void store(int x, int y, int w, int h) override {
    mox::transform::store(at(x, y), step_, scale_, dst_, channel_, part(x, y, w, h));
  }

 private:
  Rect part(int x, int y, int w, int h) const { return {r_.x + x, r_.y + y, w, h}; }
  double* at(int x, int y) const { return m_ + y * step_ + x; }

  const MoxImage* src_;
  MoxImage* dst_;
  int channel_;
  Rect r_;
  double* m_;
  std::ptrdiff_t step_;
  double scale_;
};

// Transforms every processed channel; false when the tables could not be had.
bool runChannels(Engine& engine, const Setup& su, bool fromPacked, const MoxImage* src,
                 MoxImage* dst, const Rect& r, int first, int last, int skip, bool narrow) {
  try {
    const std::ptrdiff_t step = mox::transform::matrixStep(r.width);
    double* m = engine.matrix(r.height, step);
    const double scale = su.scale ? 1.0 / (static_cast<double>(r.width) * r.height) : 1.0;
    for (int c = first; c <= last; ++c) {
      if (c == skip) continue;
      ChannelStream io(src, dst, c - 1, r, m, step, scale);
      if (fromPacked) engine.packedToReal(m, r.height, r.width, step, su.sign, narrow, io);
      else engine.realToPacked(m, r.height, r.width, step, su.sign, narrow, io);
    }
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {  // past what a vector holds (32-bit builds)
    return false;
  }
}

int transform(const Sites& at, bool fromPacked, const MoxImage* src, MoxImage* dst, int flags,
              const int* map) {
  Engine& engine = mox::fft::fourierEngine();
  if (flags & MOX_FFT_FREE) {
    engine.release();
    return MOX_StsNoError;
  }
  int result = MOX_StsNoError;
  bool bad = false;
  if (!src) result = fail(at, "srcImage==0", at.nullImage), bad = true;
  if (!dst) result = fail(at, "dstImage==0", at.nullImage), bad = true;
  if (bad) return result;
  if (!src->imageData) result = fail(at, "srcImage->imageData==0", at.noData), bad = true;
  if (!dst->imageData) result = fail(at, "dstImage->imageData==0", at.noData), bad = true;
  if (bad) return result;
  if (map) return fail(at, "(map!=((void*)(0)))", at.map);

  Setup& su = threadSetup();
  if (!(flags & MOX_FFT_REUSE)) {
    su.valid = false;
    if (!flagsFit(flags) || !imagesFit(src, dst)) return fail(at, kBadInput, at.input);
    su.sign = (flags & MOX_FFT_FORWARD) ? 1 : -1;
    su.scale = (flags & MOX_FFT_INVERSE) && !(flags & MOX_FFT_NOSCALE);
    su.withAlpha = (flags & MOX_FFT_USEALPHA) != 0;
    su.implementation = flags & (MOX_FFT_SMALL | MOX_FFT_GENERAL);
    su.valid = true;
  } else if (!su.valid || !imagesFit(src, dst)) {
    return fail(at, kBadInput, at.input);
  }

  // The region: both ROIs inside their images with the same channel of
  // interest; the work is their intersection.
  using namespace mox::transform;
  if (!roiInside(src) || !roiInside(dst) || roiCoi(src) != roiCoi(dst))
    return fail(at, kBadInput, at.input);
  const Rect r = commonRect(src, dst);
  const int coi = roiCoi(src);
  const int first = coi ? coi : 1, last = coi ? coi : src->nChannels;
  const int skip = su.withAlpha ? 0 : src->alphaChannel;
  if (r.width <= 0 || r.height <= 0 || (first == last && first == skip) ||
      (r.width == 1 && r.height == 1))
    return fail(at, kNothing, at.nothing);

  const bool narrow = su.implementation ? su.implementation == MOX_FFT_SMALL : smallSize(r);
  if (!runChannels(engine, su, fromPacked, src, dst, r, first, last, skip, narrow)) {
    engine.release();
    if (!runChannels(engine, su, fromPacked, src, dst, r, first, last, skip, narrow)) {
      engine.release();
      return fail(at, kBadInput, at.tables);
    }
  }
  if (!(flags & MOX_FFT_SAVE)) engine.release();
  return MOX_StsNoError;
}

}  // namespace

extern "C" MOX_API int MOX_CALL moxRealFft2D(const MoxImage* srcImage, MoxImage* dstImage,
                                             int flags, const int* map) {
  return transform(kReal, false, srcImage, dstImage, flags, map);
}

extern "C" MOX_API int MOX_CALL moxCcsFft2D(const MoxImage* srcImage, MoxImage* dstImage,
                                            int flags, const int* map) {
  return transform(kCcs, true, srcImage, dstImage, flags, map);
}
