// Convolution rows with 256-bit vectors, chosen at run time on x86-64
// processors that have them. What the other files share is included before
// the target switch, so only this file's own code uses the wider
// instructions.
#include <cstdint>
#include <type_traits>

#include "filter/wide.h"

#if defined(MOX_FILTER_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2")

namespace mox::filt {
namespace {

template <class T>
inline __m256i widen16(const T* p) {
  const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  if constexpr (std::is_signed_v<T>)
    return _mm256_cvtepi8_epi16(x);
  else
    return _mm256_cvtepu8_epi16(x);
}

// The shifted sums of 16 values, in order, saturated to 16 bits: the rows of
// two taps interleaved (within each 128-bit half) through one multiply-add.
template <class T>
inline __m256i sixteen(const T* const* rows, const std::int32_t* pairs, int nTaps, int j, __m128i by) {
  __m256i lo = _mm256_setzero_si256(), hi = lo;
  for (int k = 0; k < nTaps; k += 2) {
    const __m256i w = _mm256_set1_epi32(pairs[k / 2]);
    const __m256i x = widen16(rows[k] + j);
    const __m256i y = k + 1 < nTaps ? widen16(rows[k + 1] + j) : _mm256_setzero_si256();
    lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(x, y), w));
    hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(x, y), w));
  }
  // Each half holds four values from the low and four from the high unpack:
  // packing the halves side by side puts the 16 values back in order.
  return _mm256_packs_epi32(_mm256_sra_epi32(lo, by), _mm256_sra_epi32(hi, by));
}

template <class T>
int paired(const T* const* rows, const std::int32_t* pairs, int nTaps, T* d, int n, int shift) {
  const __m128i by = _mm_cvtsi32_si128(shift);
  int j = 0;
  for (; j + 32 <= n; j += 32) {
    const __m256i a = sixteen(rows, pairs, nTaps, j, by), b = sixteen(rows, pairs, nTaps, j + 16, by);
    const __m256i packed = std::is_signed_v<T> ? _mm256_packs_epi16(a, b) : _mm256_packus_epi16(a, b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + j), _mm256_permute4x64_epi64(packed, 0xD8));
  }
  return j;
}

}  // namespace

int widePairedTaps(const std::uint8_t* const* rows, const std::int32_t* pairs, int nTaps,
                   std::uint8_t* d, int n, int shift) {
  return paired(rows, pairs, nTaps, d, n, shift);
}

int widePairedTaps(const std::int8_t* const* rows, const std::int32_t* pairs, int nTaps,
                   std::int8_t* d, int n, int shift) {
  return paired(rows, pairs, nTaps, d, n, shift);
}

}  // namespace mox::filt
#endif
