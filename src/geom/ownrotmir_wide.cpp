// Reversal of one- and three-byte pixels with byte shuffles, chosen at run time on
// x86-64 processors that have 256-bit vectors (and so the shuffles).
// Everything shared is included before the target switch, so only this
// file's own code is compiled for the wider instructions.
#include "geom/ownrotmir.h"

#if defined(MOX_GEOM_HAVE_WIDE)
#include <immintrin.h>
#pragma GCC target("avx2")

namespace mox::geom {

int reversePixels3Wide(const std::uint8_t* s, std::uint8_t* d, int w) {
  // Five pixels a step: sixteen bytes loaded from the five's first byte
  // (one byte of the pixel after them too), stored as one byte that the next
  // step overwrites followed by the five in reverse order (the loop stops
  // while a pixel is still to come).
  const __m128i order = _mm_setr_epi8(0, 12, 13, 14, 9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2);
  int i = 0;
  for (; i + 6 <= w; i += 5) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * (w - 5 - i) - 1),
                     _mm_shuffle_epi8(v, order));
  }
  return i;
}

int reverseBytesWide(const std::uint8_t* s, std::uint8_t* d, int w) {
  // Thirty-two bytes a step: reversed within each half, then the halves
  // exchanged.
  const __m256i order = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15,
                                         14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  int i = 0;
  for (; i + 32 <= w; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
    const __m256i r = _mm256_shuffle_epi8(v, order);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + w - i - 32),
                        _mm256_permute2x128_si256(r, r, 1));
  }
  return i;
}

}  // namespace mox::geom
#endif
