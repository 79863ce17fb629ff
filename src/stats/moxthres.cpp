// moxThreshold: values below the threshold to the depth's minimum, the
// others to its maximum.
#include <algorithm>
#include <cstdint>

#include "image/pointop.h"

namespace {

using namespace mox;

constexpr const char* kFunc = "moxThreshold";
constexpr const char* kFile = "moxthres";

// Compared as signed 32-bit numbers, so a threshold outside the depth's
// range sends every value to one side.
struct Threshold : Rule {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using T = typename D::T;
    return static_cast<long long>(a) < s.value ? T(D::lo) : T(D::hi);
  }
  template <class D, class T>
  static std::size_t block(const T* s, T* d, std::size_t n, const OpArgs& args) {
    const long long t = args.value;
    if (t <= D::lo || t > D::hi) {
      std::fill(d, d + n, t <= D::lo ? T(D::hi) : T(D::lo));
      return n;
    }
    const T level = static_cast<T>(t);
    std::size_t j = vectors<D>(s, d, n, level, args.stream);
    for (; j < n; ++j) d[j] = s[j] < level ? T(D::lo) : T(D::hi);
    return n;
  }

  // 16 bytes at a time, two vectors to a step: a signed comparison
  // (unsigned values with their sign bit flipped) gives all ones below the
  // threshold; that mask with the maximum's bits flipped is the result.
  // A destination of kLargeBytes or more is stored past the caches from
  // each run's first 16-byte boundary on: kept in the caches, a 16 MB
  // destination ran a third slower than its source and destination read and
  // written once.
  template <class D, class T>
  static std::size_t vectors(const T* s, T* d, std::size_t n, T level, bool stream) {
#if defined(__SSE2__)
    auto all = [](long long v) {
      if constexpr (sizeof(T) == 1) return _mm_set1_epi8(static_cast<char>(v));
      if constexpr (sizeof(T) == 2) return _mm_set1_epi16(static_cast<short>(v));
      if constexpr (sizeof(T) == 4) return _mm_set1_epi32(static_cast<int>(v));
    };
    auto below = [](__m128i a, __m128i b) {
      if constexpr (sizeof(T) == 1) return _mm_cmplt_epi8(a, b);
      if constexpr (sizeof(T) == 2) return _mm_cmplt_epi16(a, b);
      if constexpr (sizeof(T) == 4) return _mm_cmplt_epi32(a, b);
    };
    const __m128i flip = all(D::isSigned ? 0 : D::lo - (1LL << (8 * sizeof(T) - 1)));
    const __m128i bound = _mm_xor_si128(all(level), flip), top = all(D::hi);
    auto levels = [&](std::size_t j) {
      const __m128i x = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + j)), flip);
      return _mm_xor_si128(below(x, bound), top);
    };
    constexpr std::size_t step = 16 / sizeof(T);
    std::size_t j = 0;
    const auto at = reinterpret_cast<std::uintptr_t>(d);
    if (stream && at % sizeof(T) == 0) {
      for (; j < n && (at + j * sizeof(T)) % 16; ++j) d[j] = s[j] < level ? T(D::lo) : T(D::hi);
      for (; j + 2 * step <= n; j += 2 * step) {
        const __m128i x = levels(j), y = levels(j + step);
        _mm_stream_si128(reinterpret_cast<__m128i*>(d + j), x);
        _mm_stream_si128(reinterpret_cast<__m128i*>(d + j + step), y);
      }
    }
    for (; j + 2 * step <= n; j += 2 * step) {
      const __m128i x = levels(j), y = levels(j + step);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), x);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j + step), y);
    }
    for (; j + step <= n; j += step) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), levels(j));
    return j;
#else
    (void)s, (void)d, (void)n, (void)level, (void)stream;
    return 0;
#endif
  }
};

constexpr WalkLines kLines{{234, 235, 236, 237}, {279, 298, 319, 325, 340, 346, 363, 368}};

// A check of this function at a line.
bool fails(bool bad, int line, const char* text) { return failsAt(bad, {kFunc, kFile, line}, text); }

// A ROI that starts outside its image leaves nothing to resolve.
bool roiOutside(const MoxImage* im) {
  const MoxROI* r = im->roi;
  return r && (r->xOffset >= im->width || r->yOffset >= im->height);
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxThreshold(const MoxImage* srcImage, MoxImage* dstImage,
                                              int threshold) {
  const MoxImage *s = srcImage, *d = dstImage;
  const Site src{kFunc, kFile, 199}, dst{kFunc, kFile, 200};
  if (badHeader(s, src) || badLayout(s, "srcImage", src) || badHeader(d, dst) ||
      badLayout(d, "dstImage", dst) ||
      fails(s->depth != d->depth, 201, "(srcImage->depth!=dstImage->depth)") ||
      fails(s->dataOrder != d->dataOrder, 202, "(srcImage->dataOrder!=dstImage->dataOrder)") ||
      fails(s->depth == MOX_DEPTH_1U, 203, "(srcImage->depth==1)") ||
      fails(roiOutside(s) || roiOutside(d), 125, "The fields of ROI has error") ||
      fails(workChannels(s) != workChannels(d), 129, "The mismath of number channels"))
    return;
  OpArgs args;
  args.value = threshold;
  const WalkImage images[2] = {{s, "srcImage", false}, {d, "dstImage", true}};
  const WalkPlan plan{kFunc, kFile, &kLines, true};
  walk(plan, images, 2, nullptr, pickKernel<Threshold, 2>(d->depth), &args);
#if defined(__SSE2__)
  _mm_sfence();  // the stores past the caches are seen before the call returns
#endif
}
