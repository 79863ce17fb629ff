// moxSet: a value, cut to the depth, into the ROI (its channel of interest
// only, when one is set).
#include <cstring>

#include "image/pointop.h"

namespace {

struct Set : mox::Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(const mox::OpArgs& s) {
    return D::cut(s.value);
  }
  // Byte values, and wider values whose bytes are all equal, are a
  // memset; other wide values are written in 16-byte groups.
  template <class D, class T>
  static std::size_t block(T* d, std::size_t n, const mox::OpArgs& s) {
    const T v = D::cut(s.value);
    const auto byte = static_cast<unsigned char>(v);
    T same;
    std::memset(&same, byte, sizeof same);
    if (same == v) {
      std::memset(d, byte, n * sizeof(T));
      return n;
    }
#if defined(__SSE2__)
    if constexpr (sizeof(T) > 1) {
      const __m128i all = sizeof(T) == 2 ? _mm_set1_epi16(static_cast<short>(v))
                                         : _mm_set1_epi32(static_cast<int>(v));
      constexpr std::size_t step = 16 / sizeof(T);
      std::size_t j = 0;
      for (; j + step <= n; j += step) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), all);
      return j;
    }
#endif
    return 0;
  }
};

constexpr mox::OpTable kTable{"moxSet",
                              "moxset",
                              1,
                              {"image", nullptr, nullptr},
                              {"nChImage", nullptr, nullptr},
                              {52, 0, 0},
                              {},
                              {},
                              {},
                              {{80, 81, 82, 83}, {101, 106, 108, 112}}};

}  // namespace

extern "C" MOX_API void MOX_CALL moxSet(MoxImage* image, int fillValue, const int* mapping) {
  mox::OpArgs args;
  args.value = fillValue;
  const MoxImage* images[1] = {image};
  mox::runPointOp(kTable, images, mapping, &mox::pickKernel<Set, 1>, args);
}
