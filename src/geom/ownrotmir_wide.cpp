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

int reversePixels3Wide(const std::uint8_t* s, std::uint8_t* d, int w, bool stream) {
  // Sixteen pixels a step: the 48 bytes as three loads a, b, c; each stored
  // sixteen bytes gathers from two of them (a window across b and c, and one
  // across a and b, for the middle sixteen).
  const __m128i c0 = _mm_setr_epi8(13, 14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3, -1);
  const __m128i b0 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 14);
  const __m128i x1 = _mm_setr_epi8(14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3, -1, -1);
  const __m128i y1 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 1);
  const __m128i a2 = _mm_setr_epi8(-1, 12, 13, 14, 9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2);
  const __m128i b2 = _mm_setr_epi8(1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
  int i = 0;
  for (; i + 16 <= w; i += 16) {
    const std::uint8_t* p = s + 3 * std::ptrdiff_t(i);
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32));
    std::uint8_t* q = d + 3 * std::ptrdiff_t(w - 16 - i);
    const __m128i bc = _mm_alignr_epi8(c, b, 1), ab = _mm_alignr_epi8(b, a, 15);
    const __m128i r0 = _mm_or_si128(_mm_shuffle_epi8(c, c0), _mm_shuffle_epi8(b, b0));
    const __m128i r1 = _mm_or_si128(_mm_shuffle_epi8(bc, x1), _mm_shuffle_epi8(ab, y1));
    const __m128i r2 = _mm_or_si128(_mm_shuffle_epi8(a, a2), _mm_shuffle_epi8(b, b2));
    __m128i* to = reinterpret_cast<__m128i*>(q);
    if (stream) {
      _mm_stream_si128(to, r0), _mm_stream_si128(to + 1, r1), _mm_stream_si128(to + 2, r2);
    } else {
      _mm_storeu_si128(to, r0), _mm_storeu_si128(to + 1, r1), _mm_storeu_si128(to + 2, r2);
    }
  }
  if (stream) return i;
  // The rest five pixels a step: sixteen bytes loaded from the five's first byte
  // (one byte of the pixel after them too), stored as one byte that the next
  // step overwrites followed by the five in reverse order (the loop stops
  // while a pixel is still to come).
  const __m128i order = _mm_setr_epi8(0, 12, 13, 14, 9, 10, 11, 6, 7, 8, 3, 4, 5, 0, 1, 2);
  for (; i + 6 <= w; i += 5) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * (w - 5 - i) - 1),
                     _mm_shuffle_epi8(v, order));
  }
  return i;
}

int reverseBytesWide(const std::uint8_t* s, std::uint8_t* d, int w, bool stream) {
  // Thirty-two bytes a step: reversed within each half, then the halves
  // exchanged.
  const __m256i order = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15,
                                         14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  int i = 0;
  for (; i + 32 <= w; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
    const __m256i r = _mm256_shuffle_epi8(v, order);
    __m256i* to = reinterpret_cast<__m256i*>(d + w - i - 32);
    if (stream)
      _mm256_stream_si256(to, _mm256_permute2x128_si256(r, r, 1));
    else
      _mm256_storeu_si256(to, _mm256_permute2x128_si256(r, r, 1));
  }
  return i;
}

namespace {

// The 64 bytes loaded from s with their pixels reversed (`order` reverses
// them within each 128-bit half), stored at d.
struct Reversed64 {
  __m256i lo, hi;
  Reversed64(const std::uint8_t* s, __m256i order)
      : lo(_mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), order)),
        hi(_mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32)), order)) {}
  void store(std::uint8_t* d) const {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_permute2x128_si256(hi, hi, 1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32), _mm256_permute2x128_si256(lo, lo, 1));
  }
};

inline void copy64(const std::uint8_t* s, std::uint8_t* d) {
  const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
  const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), a);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32), b);
}

// For Reversed64 on pixels of P bytes: within each 128-bit half, the byte
// taking byte j comes from the pixel mirrored about the half's centre (its
// bytes kept in order).
template <int P>
struct Order {
  alignas(32) std::uint8_t pick[32] = {};
  constexpr Order() {
    for (int j = 0; j < 32; ++j) pick[j] = static_cast<std::uint8_t>(16 - P * ((j % 16) / P + 1) + j % P);
  }
};
template <int P>
constexpr Order<P> kOrder;

// The order of Reversed64 for pixels of 1, 2 or 4 bytes.
inline __m256i reversalOrder(int pixelBytes) {
  const std::uint8_t* pick = pixelBytes == 1 ? kOrder<1>.pick : pixelBytes == 2 ? kOrder<2>.pick : kOrder<4>.pick;
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(pick));
}

// Walks `rows` rows of `bytes` bytes (at least 64), calling step(from, to,
// i) for the 64 bytes from byte i of the source row `from` (destination row
// `to`), the last step moved back to end with the row (its bytes done
// twice, with the same values), and fetching the next source row a line a
// step, so that row is in the first-level cache when the walk turns to it.
template <class Step>
inline void walkRows64(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds,
                       int rows, std::ptrdiff_t bytes, Step step) {
  for (int r = 0; r < rows; ++r) {
    const std::uint8_t* from = s + r * ss;
    std::uint8_t* to = d + r * ds;
    const bool next = r + 1 < rows;
    std::ptrdiff_t i = 0;
    for (; i + 64 <= bytes; i += 64) {
      if (next) _mm_prefetch(reinterpret_cast<const char*>(from + ss + i), _MM_HINT_T0);
      step(from, to, i);
    }
    if (i < bytes) step(from, to, bytes - 64);
  }
}

// For the permutes of three- and six-byte pixels, 96 bytes a step:
// destination byte o of a step takes source byte P * (96 / P - 1 - o / P)
// + o % P; each stored 32 bytes picks from a 64-byte window of the source:
// bytes 32 to 95 for the first, 30 to 93 for the middle, 0 to 63 for the
// last.
template <int P>
struct Pick {
  alignas(32) std::uint8_t pick[3][32] = {};
  constexpr Pick() {
    constexpr int kWindow[3] = {32, 30, 0};
    for (int k = 0; k < 3; ++k)
      for (int o = 0; o < 32; ++o) {
        const int at = 32 * k + o;
        pick[k][o] = static_cast<std::uint8_t>(P * (96 / P - 1 - at / P) + at % P - kWindow[k]);
      }
  }
};
template <int P>
constexpr Pick<P> kPick;

#define MOX_GEOM_TABLES __attribute__((target("avx2,avx512f,avx512vl,avx512bw,avx512vbmi")))

// Destination bytes 0 to 95 from the 96 source bytes at s, their pixels
// reversed.
MOX_GEOM_TABLES inline void reverse96(const std::uint8_t* s, std::uint8_t* d, __m256i p0, __m256i p1,
                                      __m256i p2) {
  const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
  const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 32));
  const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 64));
  const __m256i m0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 30));
  const __m256i m1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 62));
  __m256i* q = reinterpret_cast<__m256i*>(d);
  _mm256_storeu_si256(q, _mm256_permutex2var_epi8(b, p0, c));
  _mm256_storeu_si256(q + 1, _mm256_permutex2var_epi8(m0, p1, m1));
  _mm256_storeu_si256(q + 2, _mm256_permutex2var_epi8(a, p2, b));
}

// The row walk of reverseRowsWide for three- and six-byte pixels (rows of
// at least 96 bytes): walkRows64's, 96 bytes a step, written out here
// because the permutes cannot be inlined into code built without them.
template <int P>
MOX_GEOM_TABLES void reverseRowsTable(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d,
                                      std::ptrdiff_t ds, int rows, int w) {
  const __m256i p0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kPick<P>.pick[0]));
  const __m256i p1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kPick<P>.pick[1]));
  const __m256i p2 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kPick<P>.pick[2]));
  const std::ptrdiff_t bytes = P * std::ptrdiff_t(w);
  for (int r = 0; r < rows; ++r) {
    const std::uint8_t* from = s + r * ss;
    std::uint8_t* to = d + r * ds;
    const bool next = r + 1 < rows;
    std::ptrdiff_t i = 0;
    for (; i + 96 <= bytes; i += 96) {
      if (next) {
        _mm_prefetch(reinterpret_cast<const char*>(from + ss + i), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char*>(from + ss + i + 64), _MM_HINT_T0);
      }
      reverse96(from + i, to + bytes - 96 - i, p0, p1, p2);
    }
    // The row's first pixels again with the last step's: the same values.
    if (i < bytes) reverse96(from + bytes - 96, to, p0, p1, p2);
  }
}

}  // namespace

bool byteTables() {
  static const bool have = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512bw");
  }();
  return have;
}

void copyRowsWide(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds,
                  int rows, std::ptrdiff_t n) {
  // Two unaligned vectors a step, one call for all rows: on rows of a few
  // thousand bytes this keeps up with a copy of the whole block, where a
  // library copy per row (its setup, its aligned head) does not.
  if (n < 64) {
    for (int r = 0; r < rows; ++r) std::memcpy(d + r * ds, s + r * ss, static_cast<std::size_t>(n));
    return;
  }
  walkRows64(s, ss, d, ds, rows, n, [](const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t i) {
    copy64(from + i, to + i);
  });
}

namespace {

// The n bytes of pixels of p bytes at `from` reversed into `to` (apart).
void reverseFew(const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t n, int p) {
  for (std::ptrdiff_t j = 0; j < n; j += p) std::memcpy(to + n - p - j, from + j, static_cast<std::size_t>(p));
}

}  // namespace

bool reverseRowPairWide(std::uint8_t* a, std::uint8_t* b, int w, int pixelBytes) {
  const std::ptrdiff_t bytes = std::ptrdiff_t(w) * pixelBytes;
  if ((pixelBytes != 1 && pixelBytes != 2 && pixelBytes != 4) || bytes < 128) return false;
  const __m256i order = reversalOrder(pixelBytes);
  // 64 bytes from the start of one row and the end of the other, both
  // loaded before either is stored.
  auto swap = [&](std::ptrdiff_t i) {
    const Reversed64 x(a + i, order), y(b + bytes - 64 - i, order);
    y.store(a + i);
    x.store(b + bytes - 64 - i);
  };
  std::ptrdiff_t i = 0;
  if (a != b) {
    for (; i + 64 <= bytes; i += 64) swap(i);
    // Left: the end of a and the start of b, under 64 bytes each.
    const std::ptrdiff_t n = bytes - i;
    std::uint8_t x[64], y[64];
    std::memcpy(x, a + i, static_cast<std::size_t>(n));
    std::memcpy(y, b, static_cast<std::size_t>(n));
    reverseFew(y, a + i, n, pixelBytes);
    reverseFew(x, b, n, pixelBytes);
    return true;
  }
  for (; 2 * i + 128 <= bytes; i += 64) swap(i);
  // Left: the middle of the row, under 128 bytes.
  const std::ptrdiff_t n = bytes - 2 * i;
  std::uint8_t middle[128];
  std::memcpy(middle, a + i, static_cast<std::size_t>(n));
  reverseFew(middle, a + i, n, pixelBytes);
  return true;
}

bool reverseRowsWide(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds,
                     int rows, int w, int pixelBytes) {
  if (pixelBytes == 3 || pixelBytes == 6) {
    if (std::ptrdiff_t(w) * pixelBytes < 96 || !byteTables()) return false;
    if (pixelBytes == 3)
      reverseRowsTable<3>(s, ss, d, ds, rows, w);
    else
      reverseRowsTable<6>(s, ss, d, ds, rows, w);
    return true;
  }
  if ((pixelBytes != 1 && pixelBytes != 2 && pixelBytes != 4) || std::ptrdiff_t(w) * pixelBytes < 64)
    return false;
  const __m256i order = reversalOrder(pixelBytes);
  const std::ptrdiff_t bytes = std::ptrdiff_t(w) * pixelBytes;
  walkRows64(s, ss, d, ds, rows, bytes, [&](const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t i) {
    Reversed64(from + i, order).store(to + bytes - 64 - i);
  });
  return true;
}

namespace {

// The result plus the tolerance, clamped to 0..255 and truncated, for two
// halves of four doubles; the eight results as bytes in the low half.
inline __m128i bytesOf(__m256d lo, __m256d hi) {
  auto whole = [](__m256d v) {
    const __m256d w = _mm256_add_pd(v, _mm256_set1_pd(1e-7));
    return _mm256_cvttpd_epi32(
        _mm256_min_pd(_mm256_max_pd(w, _mm256_setzero_pd()), _mm256_set1_pd(255.0)));
  };
  const __m128i words = _mm_packs_epi32(whole(lo), whole(hi));
  return _mm_packus_epi16(words, words);
}

// One value per lane: the same operations as the single-pixel code, the
// samples as floats, along x and then y in single precision, the result
// plus the tolerance in double precision, clamped to 0..255 and truncated;
// the eight results as bytes in the low half.
//
// For a single-precision v the tolerance decides nothing but at one value:
// below 2 the floats lie 2^-23 or closer, but the only float within 1e-7
// under an integer is 1 - 2^-24, which becomes 1; below every larger integer
// the floats lie at least 2^-23 apart, and around 0 and 255 truncation and
// the packs' saturation give the clamped value. So v is truncated in single
// precision and that one value mended, without going through doubles.
inline __m128i linear8(__m256i a32, __m256i b32, __m256i e32, __m256i f32, __m256 tx, __m256 ty) {
  const __m256 a = _mm256_cvtepi32_ps(a32), b = _mm256_cvtepi32_ps(b32);
  const __m256 e = _mm256_cvtepi32_ps(e32), f = _mm256_cvtepi32_ps(f32);
  const __m256 r0 = _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), tx));
  const __m256 r1 = _mm256_add_ps(e, _mm256_mul_ps(_mm256_sub_ps(f, e), tx));
  const __m256 v = _mm256_add_ps(r0, _mm256_mul_ps(_mm256_sub_ps(r1, r0), ty));
  const __m256 justUnderOne = _mm256_set1_ps(0x1.fffffep-1f);
  const __m256i whole = _mm256_sub_epi32(
      _mm256_cvttps_epi32(v), _mm256_castps_si256(_mm256_cmp_ps(v, justUnderOne, _CMP_EQ_OQ)));
  const __m128i words =
      _mm_packs_epi32(_mm256_castsi256_si128(whole), _mm256_extracti128_si256(whole, 1));
  return _mm_packus_epi16(words, words);
}

// Channel c's samples (a: the pixel's, b: the next pixel's) of eight
// three-byte pixels, each pixel's eight bytes from its first in one 64-bit
// lane (pixels 0 to 3 in p03, 4 to 7 in p47), in 32-bit lanes.
inline void channel3(__m256i p03, __m256i p47, int c, __m256i* a, __m256i* b) {
  // Within each 128-bit half (two pixels): a of both, then b of both.
  const char z = -1;
  const auto k = static_cast<char>(c);
  const __m256i pick = _mm256_setr_epi8(k, z, z, z, char(8 + k), z, z, z, char(3 + k), z, z, z,
                                        char(11 + k), z, z, z, k, z, z, z, char(8 + k), z, z, z,
                                        char(3 + k), z, z, z, char(11 + k), z, z, z);
  const __m256i x = _mm256_shuffle_epi8(p03, pick), y = _mm256_shuffle_epi8(p47, pick);
  // x: a0 a1 b0 b1 | a2 a3 b2 b3, y: a4 a5 b4 b5 | a6 a7 b6 b7.
  *a = _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(x, y), 0xD8);
  *b = _mm256_permute4x64_epi64(_mm256_unpackhi_epi64(x, y), 0xD8);
}

// The positions j to j + 7 when all their samples lie inside the view:
// `before` pixels before the first index and `after` after it on each axis
// (x, y), and for them the indices and the first samples' column and row in
// the view. False for any other group.
struct Group {
  __m256i ix, iy;
  alignas(32) int at[8], down[8];
};

inline bool inside(const ByteSamples& s, int j, const int (&before)[2], const int (&after)[2],
                   Group* g) {
  const int roomX = s.width - before[0] - after[0] - 1;
  const int roomY = s.height - before[1] - after[1] - 1;
  if (roomX < 0 || roomY < 0) return false;
  g->ix = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.ix + j));
  g->iy = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s.iy + j));
  const __m256i cx = _mm256_sub_epi32(g->ix, _mm256_set1_epi32(s.x0 + before[0]));
  const __m256i cy = _mm256_sub_epi32(g->iy, _mm256_set1_epi32(s.y0 + before[1]));
  // Unsigned: 0 <= cx <= roomX and 0 <= cy <= roomY.
  const __m256i okX = _mm256_cmpeq_epi32(_mm256_min_epu32(cx, _mm256_set1_epi32(roomX)), cx);
  const __m256i okY = _mm256_cmpeq_epi32(_mm256_min_epu32(cy, _mm256_set1_epi32(roomY)), cy);
  if (_mm256_movemask_epi8(_mm256_and_si256(okX, okY)) != -1) return false;
  _mm256_store_si256(reinterpret_cast<__m256i*>(g->at), cx);
  _mm256_store_si256(reinterpret_cast<__m256i*>(g->down), cy);
  return true;
}

// Eight floats or four doubles: the operations Newton's form needs, and
// a constant given in both precisions.
template <bool Double>
struct Lanes;
template <>
struct Lanes<false> {
  using V = __m256;
  static __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
  static __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
  static __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
  static __m256 of(float f, double) { return _mm256_set1_ps(f); }
};
template <>
struct Lanes<true> {
  using V = __m256d;
  static __m256d add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
  static __m256d sub(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
  static __m256d mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
  static __m256d of(float, double d) { return _mm256_set1_pd(d); }
};

// The cubic through p0..p3 at the lanes' t, Newton's form as the
// single-pixel code has it, in single or double precision.
template <bool Double>
struct NewtonLanes {
  using L = Lanes<Double>;
  using V = typename L::V;
  V c1, c2, c3;
  explicit NewtonLanes(V t) {
    const V one = L::of(1.0f, 1.0);
    c1 = L::add(one, t);
    c2 = L::mul(L::mul(t, L::add(one, t)), L::of(0.5f, 0.5));
    c3 = L::mul(L::mul(L::sub(t, one), c2), L::of(1.0f / 3.0f, 1.0 / 3.0));
  }
  V operator()(V p0, V p1, V p2, V p3) const {
    const V d1 = L::sub(p1, p0);
    const V d2 = L::sub(L::sub(p2, p1), d1);
    const V d3 = L::sub(L::sub(L::add(p1, p3), L::mul(L::of(2.0f, 2.0), p2)), d2);
    return L::add(L::add(L::add(p0, L::mul(d1, c1)), L::mul(d2, c2)), L::mul(d3, c3));
  }
};
using Newton8 = NewtonLanes<false>;
using Newton4 = NewtonLanes<true>;

}  // namespace

namespace {

// Indices of eight positions: -1 at or below -1e-7, else the position plus
// 1e-7 truncated, at most size. In single precision that is the position
// truncated (clamped to size first), except that -1e-7 becomes the
// largest float not above it and 1 - 2^-24, the only float within 1e-7
// under an integer, goes up to 1 (checked for every float from -5 to twice
// the size, for sizes up to 2^24, which float holds exactly).
inline __m256i indices8(__m256 p, int size) {
  const __m256 negative = _mm256_cmp_ps(p, _mm256_set1_ps(-0x1.ad7f2ap-24f), _CMP_LE_OQ);
  const __m256 under = _mm256_cmp_ps(p, _mm256_set1_ps(0x1.fffffep-1f), _CMP_EQ_OQ);
  __m256i i = _mm256_cvttps_epi32(_mm256_min_ps(p, _mm256_set1_ps(static_cast<float>(size))));
  i = _mm256_min_epi32(_mm256_sub_epi32(i, _mm256_castps_si256(under)), _mm256_set1_epi32(size));
  return _mm256_blendv_epi8(i, _mm256_set1_epi32(-1), _mm256_castps_si256(negative));
}

}  // namespace

int positionsWide(const RowMap& m, int n, float* xs, float* ys, int* ix, int* iy) {
  const __m256 c = _mm256_set1_ps(m.c), s = _mm256_set1_ps(m.s), a = _mm256_set1_ps(m.a);
  const __m256 b = _mm256_set1_ps(m.b), xShift = _mm256_set1_ps(m.xShift);
  const __m256 yShift = _mm256_set1_ps(m.yShift);
  __m256i x = _mm256_add_epi32(_mm256_set1_epi32(m.x0), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  int j = 0;
  for (; j + 8 <= n; j += 8, x = _mm256_add_epi32(x, _mm256_set1_epi32(8))) {
    const __m256 fx = _mm256_cvtepi32_ps(x);
    const __m256 u = _mm256_add_ps(_mm256_sub_ps(_mm256_mul_ps(c, fx), a), xShift);
    const __m256 v = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(s, fx), b), yShift);
    _mm256_storeu_ps(xs + j, u);
    _mm256_storeu_ps(ys + j, v);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(ix + j), indices8(u, m.width));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(iy + j), indices8(v, m.height));
  }
  return j;
}

int nearestBytesWide(const RowMap& m, const ByteSamples& s, int n, std::uint8_t* out) {
  const __m256 c = _mm256_set1_ps(m.c), sn = _mm256_set1_ps(m.s), a = _mm256_set1_ps(m.a);
  const __m256 b = _mm256_set1_ps(m.b), xShift = _mm256_set1_ps(m.xShift);
  const __m256 yShift = _mm256_set1_ps(m.yShift);
  const __m256i left = _mm256_set1_epi32(s.x0), top = _mm256_set1_epi32(s.y0);
  const __m256i lastX = _mm256_set1_epi32(s.width - 1), lastY = _mm256_set1_epi32(s.height - 1);
  const __m256i step = _mm256_set1_epi32(static_cast<int>(s.step));
  // The low byte of each 32-bit lane, packed into the low eight bytes.
  const __m256i low = _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                       0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
  __m256i x = _mm256_add_epi32(_mm256_set1_epi32(m.x0), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  const auto* data = reinterpret_cast<const std::uint8_t*>(s.data);
  int j = 0;
  for (; j + 8 <= n; j += 8, x = _mm256_add_epi32(x, _mm256_set1_epi32(8))) {
    // The positions and indices exactly as positionsWide has them.
    const __m256 fx = _mm256_cvtepi32_ps(x);
    const __m256 u = _mm256_add_ps(_mm256_sub_ps(_mm256_mul_ps(c, fx), a), xShift);
    const __m256 v = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(sn, fx), b), yShift);
    const __m256i cx = _mm256_sub_epi32(indices8(u, m.width), left);
    const __m256i cy = _mm256_sub_epi32(indices8(v, m.height), top);
    // Unsigned: 0 <= cx < width and 0 <= cy < height of the view.
    const __m256i in = _mm256_and_si256(
        _mm256_cmpeq_epi32(_mm256_min_epu32(cx, lastX), cx),
        _mm256_cmpeq_epi32(_mm256_min_epu32(cy, lastY), cy));
    // Pixels outside read the view's first sample and are then cleared.
    // Offsets fit 32 bits: they lie in the view's block.
    const __m256i offset =
        _mm256_and_si256(in, _mm256_add_epi32(_mm256_mullo_epi32(cy, step), cx));
    alignas(32) std::uint32_t at[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), offset);
    const __m256i keep = _mm256_shuffle_epi8(in, low);
    const std::uint64_t mask = static_cast<std::uint32_t>(_mm256_extract_epi32(keep, 0)) |
                               std::uint64_t(static_cast<std::uint32_t>(_mm256_extract_epi32(keep, 4))) << 32;
    std::uint64_t bytes = 0;
    for (int l = 0; l < 8; ++l) bytes |= std::uint64_t(data[at[l]]) << (8 * l);
    bytes &= mask;
    std::memcpy(out + j, &bytes, 8);
  }
  return j;
}

namespace {

// Along y: the four rows' values at the lanes' positions ys (indices iy),
// in double precision; the eight results as bytes.
inline __m128i cubicDown(const __m256* v, __m256 ys, __m256i iy) {
  auto half = [&](int h) {
    auto part = [h](__m256 x) {
      return _mm256_cvtps_pd(h ? _mm256_extractf128_ps(x, 1) : _mm256_castps256_ps128(x));
    };
    const __m128i i = h ? _mm256_extracti128_si256(iy, 1) : _mm256_castsi256_si128(iy);
    const Newton4 down(_mm256_sub_pd(part(ys), _mm256_cvtepi32_pd(i)));
    return down(part(v[0]), part(v[1]), part(v[2]), part(v[3]));
  };
  return bytesOf(half(0), half(1));
}

// Channel c of the four samples of eight three-byte pixels, each pixel's
// samples in the sixteen bytes from its first (pixels 2k and 2k + 1 in
// the halves of part[k]): sample m of every pixel in out[m], in the lane
// order 0, 2, 4, 6, 1, 3, 5, 7.
inline void taps3(const __m256i* part, int c, __m256i* out) {
  const char z = -1;
  const auto k = static_cast<char>(c);
  const __m128i pick =
      _mm_setr_epi8(k, z, z, z, char(3 + k), z, z, z, char(6 + k), z, z, z, char(9 + k), z, z, z);
  const __m256i both = _mm256_broadcastsi128_si256(pick);
  __m256i t[4];
  for (int i = 0; i < 4; ++i) t[i] = _mm256_shuffle_epi8(part[i], both);
  const __m256i u0 = _mm256_unpacklo_epi32(t[0], t[1]), u1 = _mm256_unpackhi_epi32(t[0], t[1]);
  const __m256i u2 = _mm256_unpacklo_epi32(t[2], t[3]), u3 = _mm256_unpackhi_epi32(t[2], t[3]);
  out[0] = _mm256_unpacklo_epi64(u0, u2);
  out[1] = _mm256_unpackhi_epi64(u0, u2);
  out[2] = _mm256_unpacklo_epi64(u1, u3);
  out[3] = _mm256_unpackhi_epi64(u1, u3);
}

// Stores the three channels' eight results (bytes in the low halves) as
// eight three-byte pixels.
inline void storePixels3(const __m128i* value, std::uint8_t* out) {
  const char z = -1;
  const __m128i first = _mm_unpacklo_epi64(value[0], value[1]);  // c0 of 0..7, c1 of 0..7
  const __m128i lo = _mm_or_si128(
      _mm_shuffle_epi8(first, _mm_setr_epi8(0, 8, z, 1, 9, z, 2, 10, z, 3, 11, z, 4, 12, z, 5)),
      _mm_shuffle_epi8(value[2], _mm_setr_epi8(z, z, 0, z, z, 1, z, z, 2, z, z, 3, z, z, 4, z)));
  const __m128i hi = _mm_or_si128(
      _mm_shuffle_epi8(first, _mm_setr_epi8(13, z, 6, 14, z, 7, 15, z, z, z, z, z, z, z, z, z)),
      _mm_shuffle_epi8(value[2], _mm_setr_epi8(z, 5, z, z, 6, z, z, 7, z, z, z, z, z, z, z, z)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), lo);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), hi);
}

}  // namespace

template <int K>
void cubicBytesWide(const ByteSamples& s, int n, std::uint8_t* out, bool* done) {
  const __m256i low = _mm256_set1_epi32(0xFF);
  // Lanes in the order the three-byte samples come in, and back.
  const __m256i order = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  const __m128i back = _mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  for (int j = 0, g = 0; j + 8 <= n; j += 8, ++g) {
    Group q;
    // Three-byte pixels read sixteen bytes from the first sample on.
    done[g] = inside(s, j, {1, 1}, {K == 1 ? 2 : 4, 2}, &q);
    if (!done[g]) continue;
    __m256 tx = _mm256_sub_ps(_mm256_loadu_ps(s.xs + j), _mm256_cvtepi32_ps(q.ix));
    __m256 ys = _mm256_loadu_ps(s.ys + j);
    if constexpr (K == 1) {
      // Four samples of each of the four rows, from one column before the
      // index, as one 32-bit load per row.
      alignas(32) int rows[4][8];
      for (int l = 0; l < 8; ++l) {
        const char* p = s.data + std::ptrdiff_t(q.down[l]) * s.step + q.at[l];
        for (int m = 0; m < 4; ++m) std::memcpy(&rows[m][l], p + m * s.step, 4);
      }
      const Newton8 across(tx);
      __m256 v[4];
      for (int m = 0; m < 4; ++m) {
        const __m256i r = _mm256_load_si256(reinterpret_cast<const __m256i*>(rows[m]));
        v[m] = across(_mm256_cvtepi32_ps(_mm256_and_si256(r, low)),
                      _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(r, 8), low)),
                      _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(r, 16), low)),
                      _mm256_cvtepi32_ps(_mm256_srli_epi32(r, 24)));
      }
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + j), cubicDown(v, ys, q.iy));
    } else {
      tx = _mm256_permutevar8x32_ps(tx, order);
      ys = _mm256_permutevar8x32_ps(ys, order);
      const __m256i iy = _mm256_permutevar8x32_epi32(q.iy, order);
      const Newton8 across(tx);
      __m256 v[3][4];
      for (int m = 0; m < 4; ++m) {
        __m256i part[4];
        for (int k = 0; k < 4; ++k) {
          const char* p0 = s.data + std::ptrdiff_t(q.down[2 * k] + m) * s.step + 3 * std::ptrdiff_t(q.at[2 * k]);
          const char* p1 =
              s.data + std::ptrdiff_t(q.down[2 * k + 1] + m) * s.step + 3 * std::ptrdiff_t(q.at[2 * k + 1]);
          part[k] = _mm256_setr_m128i(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p0)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(p1)));
        }
        for (int c = 0; c < 3; ++c) {
          __m256i t[4];
          taps3(part, c, t);
          v[c][m] = across(_mm256_cvtepi32_ps(t[0]), _mm256_cvtepi32_ps(t[1]),
                           _mm256_cvtepi32_ps(t[2]), _mm256_cvtepi32_ps(t[3]));
        }
      }
      __m128i value[3];
      for (int c = 0; c < 3; ++c) value[c] = _mm_shuffle_epi8(cubicDown(v[c], ys, iy), back);
      storePixels3(value, out + 3 * j);
    }
  }
}

template void cubicBytesWide<1>(const ByteSamples& s, int n, std::uint8_t* out, bool* done);
template void cubicBytesWide<3>(const ByteSamples& s, int n, std::uint8_t* out, bool* done);

// The samples are loaded one pixel at a time (gathers are slow on some of
// these processors); the arithmetic is what the vectors save.
template <int K>
void linearBytesWide(const ByteSamples& s, int n, std::uint8_t* out, bool* done) {
  // A pixel's samples on a row are read as two bytes (one-byte pixels) or
  // eight (three-byte ones: one pixel more to spare).
  constexpr int kAfter = K == 1 ? 1 : 2;
  for (int j = 0, g = 0; j + 8 <= n; j += 8, ++g) {
    Group q;
    done[g] = inside(s, j, {0, 0}, {kAfter, 1}, &q);
    if (!done[g]) continue;
    const int* at = q.at;
    const int* down = q.down;
    const __m256i ix = q.ix, iy = q.iy;
    const __m256 tx = _mm256_sub_ps(_mm256_loadu_ps(s.xs + j), _mm256_cvtepi32_ps(ix));
    const __m256 ty = _mm256_sub_ps(_mm256_loadu_ps(s.ys + j), _mm256_cvtepi32_ps(iy));
    if constexpr (K == 1) {
      alignas(32) int row[8], next[8];
      for (int l = 0; l < 8; ++l) {
        const char* p = s.data + std::ptrdiff_t(down[l]) * s.step + at[l];
        std::uint16_t u, v;
        std::memcpy(&u, p, 2);
        std::memcpy(&v, p + s.step, 2);
        row[l] = u, next[l] = v;
      }
      const __m256i low = _mm256_set1_epi32(0xFF);
      const __m256i g0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(row));
      const __m256i g1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(next));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out + j),
                       linear8(_mm256_and_si256(g0, low), _mm256_srli_epi32(g0, 8),
                               _mm256_and_si256(g1, low), _mm256_srli_epi32(g1, 8), tx, ty));
    } else {
      alignas(32) std::uint64_t row[8], next[8];
      for (int l = 0; l < 8; ++l) {
        const char* p = s.data + std::ptrdiff_t(down[l]) * s.step + 3 * std::ptrdiff_t(at[l]);
        std::memcpy(&row[l], p, 8);
        std::memcpy(&next[l], p + s.step, 8);
      }
      const __m256i r03 = _mm256_load_si256(reinterpret_cast<const __m256i*>(row));
      const __m256i r47 = _mm256_load_si256(reinterpret_cast<const __m256i*>(row + 4));
      const __m256i n03 = _mm256_load_si256(reinterpret_cast<const __m256i*>(next));
      const __m256i n47 = _mm256_load_si256(reinterpret_cast<const __m256i*>(next + 4));
      __m128i value[3];
      for (int c = 0; c < 3; ++c) {
        __m256i a, b, e, f;
        channel3(r03, r47, c, &a, &b);
        channel3(n03, n47, c, &e, &f);
        value[c] = linear8(a, b, e, f, tx, ty);
      }
      storePixels3(value, out + 3 * j);
    }
  }
}

void nearestBytes3Wide(const ByteSamples& s, int n, std::uint8_t* out, bool* done) {
  // Each pixel's three bytes are gathered as one 32-bit word from its first
  // byte, so the word's fourth byte (the next pixel's first) must lie in
  // the row too: groups at the row's end go pixel by pixel.
  const __m256i step = _mm256_set1_epi32(static_cast<int>(s.step));
  const char z = -1;
  // The low three bytes of each word, packed at the start of each 128-bit half.
  const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, z, z, z, z, 0, 1, 2,
                                        4, 5, 6, 8, 9, 10, 12, 13, 14, z, z, z, z);
  for (int j = 0, g = 0; j + 8 <= n; j += 8, ++g) {
    Group q;
    done[g] = inside(s, j, {0, 0}, {1, 0}, &q);
    if (!done[g]) continue;
    // Offsets fit 32 bits: they lie in the view's block.
    const __m256i cx = _mm256_load_si256(reinterpret_cast<const __m256i*>(q.at));
    const __m256i cy = _mm256_load_si256(reinterpret_cast<const __m256i*>(q.down));
    const __m256i offset =
        _mm256_add_epi32(_mm256_mullo_epi32(cy, step), _mm256_add_epi32(_mm256_add_epi32(cx, cx), cx));
    const __m256i words =
        _mm256_shuffle_epi8(_mm256_i32gather_epi32(reinterpret_cast<const int*>(s.data), offset, 1), pack);
    const __m128i lo = _mm256_castsi256_si128(words), hi = _mm256_extracti128_si256(words, 1);
    std::uint8_t* o = out + 3 * j;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o), lo);
    const int loTail = _mm_extract_epi32(lo, 2), hiTail = _mm_extract_epi32(hi, 2);
    std::memcpy(o + 8, &loTail, 4);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o + 12), hi);
    std::memcpy(o + 20, &hiTail, 4);
  }
}

template void linearBytesWide<1>(const ByteSamples& s, int n, std::uint8_t* out, bool* done);
template void linearBytesWide<3>(const ByteSamples& s, int n, std::uint8_t* out, bool* done);

}  // namespace mox::geom
#endif
