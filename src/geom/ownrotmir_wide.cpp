// Reversal of one- and three-byte pixels with byte shuffles, and the linear
// samples of rotated one-byte pixels eight at a time, chosen at run time on
// x86-64 processors that have 256-bit vectors (and so the shuffles).
// Everything shared is included before the target switch, so only this
// file's own code is compiled for the wider instructions.
#include "geom/ownrotmir.h"

#include <cstring>

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

// The same operations as the single-pixel code, lane by lane: the samples
// as floats, along x and then y in single precision, the result plus the
// tolerance in double precision, clamped to 0..255 and truncated. The
// samples are loaded one pair at a time (gathers are slow on some of these
// processors); the arithmetic is what the vectors save.
void linearBytesWide(const ByteSamples& s, int n, std::uint8_t* out, bool* done) {
  const bool use = s.width > 1 && s.height > 1;
  const __m256i low = _mm256_set1_epi32(0xFF);
  const __m256i x0 = _mm256_set1_epi32(s.x0), y0 = _mm256_set1_epi32(s.y0);
  // Unsigned: ix - x0 <= width - 2 and iy - y0 <= height - 2.
  const __m256i xMax = _mm256_set1_epi32(s.width - 2), yMax = _mm256_set1_epi32(s.height - 2);
  const __m256d tolerance = _mm256_set1_pd(1e-7), zero = _mm256_setzero_pd();
  const __m256d top = _mm256_set1_pd(255.0);
  for (int j = 0, g = 0; j + 8 <= n; j += 8, ++g) {
    done[g] = false;
    if (!use) continue;
    const __m256i ix = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.ix + j));
    const __m256i iy = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.iy + j));
    const __m256i cx = _mm256_sub_epi32(ix, x0), cy = _mm256_sub_epi32(iy, y0);
    const __m256i ok = _mm256_and_si256(_mm256_cmpeq_epi32(_mm256_min_epu32(cx, xMax), cx),
                                        _mm256_cmpeq_epi32(_mm256_min_epu32(cy, yMax), cy));
    if (_mm256_movemask_epi8(ok) != -1) continue;
    done[g] = true;
    alignas(32) int at[8], row[8], next[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), cx);
    alignas(32) int down[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(down), cy);
    for (int l = 0; l < 8; ++l) {
      const char* p = s.data + std::ptrdiff_t(down[l]) * s.step + at[l];
      std::uint16_t u, v;
      std::memcpy(&u, p, 2);
      std::memcpy(&v, p + s.step, 2);
      row[l] = u, next[l] = v;
    }
    const __m256i g0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(row));
    const __m256i g1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(next));
    const __m256 a = _mm256_cvtepi32_ps(_mm256_and_si256(g0, low));
    const __m256 b = _mm256_cvtepi32_ps(_mm256_srli_epi32(g0, 8));
    const __m256 e = _mm256_cvtepi32_ps(_mm256_and_si256(g1, low));
    const __m256 f = _mm256_cvtepi32_ps(_mm256_srli_epi32(g1, 8));
    const __m256 tx = _mm256_sub_ps(_mm256_loadu_ps(s.xs + j), _mm256_cvtepi32_ps(ix));
    const __m256 ty = _mm256_sub_ps(_mm256_loadu_ps(s.ys + j), _mm256_cvtepi32_ps(iy));
    const __m256 r0 = _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), tx));
    const __m256 r1 = _mm256_add_ps(e, _mm256_mul_ps(_mm256_sub_ps(f, e), tx));
    const __m256 v = _mm256_add_ps(r0, _mm256_mul_ps(_mm256_sub_ps(r1, r0), ty));
    auto whole = [&](__m128 half) {
      const __m256d w = _mm256_add_pd(_mm256_cvtps_pd(half), tolerance);
      return _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(w, zero), top));
    };
    const __m128i words = _mm_packs_epi32(whole(_mm256_castps256_ps128(v)),
                                          whole(_mm256_extractf128_ps(v, 1)));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + j), _mm_packus_epi16(words, words));
  }
}

}  // namespace mox::geom
#endif
