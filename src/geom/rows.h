// The row loops of zoom and decimation: one pass of a separable resampling
// over the values of one row, written so that the compiler vectorises them.
// Included once per vector width (rows.cpp with the build's own vectors,
// rows_wide.cpp for 256-bit vectors, chosen at run time, with
// MOX_GEOM_WIDE_BODY set: a target pragma does not announce itself to the
// preprocessor); everything here
// has internal linkage so that no copy compiled for one width stands in for
// the other. The results do not depend on the width: every value is the
// same sequence of correctly rounded operations.
#include <cstdint>
#include <type_traits>

#include "geom/rowloops.h"

#if defined(MOX_GEOM_WIDE_BODY)
#include <immintrin.h>
#endif

namespace mox::geom {
namespace {

// Truncates after the tolerance and clamps to [lo, hi] (clamping first keeps
// the conversion in range and gives the same value).
template <class T>
inline T toValue(double v, double lo, double hi) {
  v += 1e-7;
  v = v < lo ? lo : v;
  v = v > hi ? hi : v;
  return static_cast<T>(static_cast<std::int32_t>(v));
}

#if defined(MOX_GEOM_WIDE_BODY)
// Four buffered values widened to double precision.
inline __m256d widened(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }

// Four values after the tolerance, truncated. Buffered rows hold
// interpolations of bytes a pixel or two from their samples, so every value
// lies far inside the 32-bit range: truncated and then saturated by the
// packs to [0, 255], it is the value clamped and then truncated.
inline __m128i truncated(__m256d v) { return _mm256_cvttpd_epi32(_mm256_add_pd(v, _mm256_set1_pd(1e-7))); }

// Sixteen truncated values, saturated to bytes and stored.
inline void storeBytes(std::uint8_t* out, const __m128i* w) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm_packus_epi16(_mm_packs_epi32(w[0], w[1]), _mm_packs_epi32(w[2], w[3])));
}

// linearY on bytes for one row (out1 null) or two, sixteen values a step,
// each lane the same double operations as the loop below; the values of
// the buffered rows and their differences are loaded and widened once for
// both rows. The first row often lies on r0 (t0 = 0, every other row of a
// zoom by two): its values are r0's, a + (b - a) * 0 being a for the finite
// values of a row buffer. Returns the values done.
inline int linearYBytes(const float* r0, const float* r1, double t0, double t1, std::uint8_t* out0,
                        std::uint8_t* out1, int n) {
  const __m256d vt0 = _mm256_set1_pd(t0), vt1 = _mm256_set1_pd(t1);
  const bool flat = t0 == 0;
  int e = 0;
  for (; e + 16 <= n; e += 16) {
    __m128i w0[4], w1[4];
    for (int q = 0; q < 4; ++q) {
      const __m256d a = widened(r0 + e + 4 * q);
      if (flat && !out1) {
        w0[q] = truncated(a);
        continue;
      }
      const __m256d d = _mm256_sub_pd(widened(r1 + e + 4 * q), a);
      w0[q] = truncated(flat ? a : _mm256_add_pd(a, _mm256_mul_pd(d, vt0)));
      if (out1) w1[q] = truncated(_mm256_add_pd(a, _mm256_mul_pd(d, vt1)));
    }
    storeBytes(out0 + e, w0);
    if (out1) storeBytes(out1 + e, w1);
  }
  return e;
}
#endif

template <class T>
void linearY(const float* __restrict r0, const float* __restrict r1, double t, T* __restrict out,
             int n, double lo, double hi) {
  int e = 0;
#if defined(MOX_GEOM_WIDE_BODY)
  if constexpr (std::is_same_v<T, std::uint8_t>) e = linearYBytes(r0, r1, t, t, out, nullptr, n);
#endif
  for (; e < n; ++e) {
    const double a = r0[e], b = r1[e];
    out[e] = toValue<T>(a + (b - a) * t, lo, hi);
  }
}

template <class T>
void linearY2(const float* __restrict r0, const float* __restrict r1, double t0, double t1,
              T* __restrict out0, T* __restrict out1, int n, double lo, double hi) {
  int e = 0;
#if defined(MOX_GEOM_WIDE_BODY)
  // (At t = 0 a + (b - a) * t is a: finite row values need no flat case.)
  if constexpr (std::is_same_v<T, std::uint8_t>) e = linearYBytes(r0, r1, t0, t1, out0, out1, n);
#endif
  linearY<T>(r0 + e, r1 + e, t0, out0 + e, n - e, lo, hi);
  linearY<T>(r0 + e, r1 + e, t1, out1 + e, n - e, lo, hi);
}

template <class T>
void cubicY(const float* const* q, const double* c, T* __restrict out, int n, double lo,
            double hi) {
  const float* __restrict q0 = q[0];
  const float* __restrict q1 = q[1];
  const float* __restrict q2 = q[2];
  const float* __restrict q3 = q[3];
  const double c1 = c[0], c2 = c[1], c3 = c[2];
  for (int e = 0; e < n; ++e) {
    const double p0 = q0[e], p1 = q1[e], p2 = q2[e], p3 = q3[e];
    const double d1 = p1 - p0;
    const double d2 = (p2 - p1) - d1;
    const double d3 = (p1 + p3 - 2 * p2) - d2;
    out[e] = toValue<T>(p0 + d1 * c1 + d2 * c2 + d3 * c3, lo, hi);
  }
}

template <class T, class W>
void widen(const T* __restrict src, int stride, int k, W* __restrict out, int pixels) {
  if (stride == k) {
    for (int i = 0; i < pixels * k; ++i) out[i] = static_cast<W>(src[i]);
    return;
  }
  for (int i = 0; i < pixels; ++i)
    for (int c = 0; c < k; ++c) out[i * k + c] = static_cast<W>(src[i * stride + c]);
}

#if defined(MOX_GEOM_WIDE_BODY)
// The source row holds `next` values per pixel and the values of a
// destination pixel come together, so value e's pixel starts at
// off[e] - e % next. Eight values whose first samples lie within W floats
// of that start (always so for W = 8 with one value per pixel, for W = 16
// with up to four, when the source is not shrunk) take one or two loads and
// permutes per sample instead of a gather. The loads reach up to
// 3 * next + W - 1 floats past the last sample; the source row has room for
// them. The functions return the values done.
template <int W>
inline __m256 sample(const float* src, int at, __m256i idx) {
  const __m256 lo = _mm256_permutevar8x32_ps(_mm256_loadu_ps(src + at), idx);
  if constexpr (W == 8) {
    return lo;
  } else {
    const __m256 hi = _mm256_permutevar8x32_ps(_mm256_loadu_ps(src + at + 8), idx);
    const __m256 high = _mm256_castsi256_ps(_mm256_cmpgt_epi32(idx, _mm256_set1_epi32(7)));
    return _mm256_blendv_ps(lo, hi, high);
  }
}

// e % next for e = 0, 8, 16, ... without a division per step.
struct Phase {
  int next, step, at = 0;
  explicit Phase(int n) : next(n), step(8 % n) {}
  int operator()() const { return at; }
  void advance() {
    at += step;
    if (at >= next) at -= next;
  }
};

inline __m256i within(const int* off, int base) {
  return _mm256_sub_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(off)),
                          _mm256_set1_epi32(base));
}

template <int W>
int linearXPermuted(const float* src, const int* off, int next, const float* w, float* out,
                    int n) {
  int e = 0;
  for (Phase phase(next); e + 8 <= n; e += 8, phase.advance()) {
    const int base = off[e] - phase();
    if (off[e + 7] + next - 1 - base >= W) break;
    const __m256i idx = within(off + e, base);
    const __m256 a = sample<W>(src, base, idx), b = sample<W>(src, base + next, idx);
    _mm256_storeu_ps(out + e, _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a),
                                                             _mm256_loadu_ps(w + e))));
  }
  return e;
}

template <int W>
int cubicXPermuted(const float* src, const int* off, int next, const float* w, float* out,
                   int n) {
  int e = 0;
  const __m256 two = _mm256_set1_ps(2);
  for (Phase phase(next); e + 8 <= n; e += 8, phase.advance()) {
    const int base = off[e] - phase();
    if (off[e + 7] + next - 1 - base >= W) break;
    const __m256i idx = within(off + e, base);
    const __m256 p0 = sample<W>(src, base, idx), p1 = sample<W>(src, base + next, idx);
    const __m256 p2 = sample<W>(src, base + 2 * next, idx);
    const __m256 p3 = sample<W>(src, base + 3 * next, idx);
    const __m256 d1 = _mm256_sub_ps(p1, p0);
    const __m256 d2 = _mm256_sub_ps(_mm256_sub_ps(p2, p1), d1);
    const __m256 d3 =
        _mm256_sub_ps(_mm256_sub_ps(_mm256_add_ps(p1, p3), _mm256_mul_ps(two, p2)), d2);
    __m256 v = _mm256_add_ps(p0, _mm256_mul_ps(d1, _mm256_loadu_ps(w + e)));
    v = _mm256_add_ps(v, _mm256_mul_ps(d2, _mm256_loadu_ps(w + n + e)));
    v = _mm256_add_ps(v, _mm256_mul_ps(d3, _mm256_loadu_ps(w + 2 * n + e)));
    _mm256_storeu_ps(out + e, v);
  }
  return e;
}
#endif

void linearX(const float* __restrict src, const int* __restrict off, int next,
             const float* __restrict w, float* __restrict out, int n) {
  int e = 0;
#if defined(MOX_GEOM_WIDE_BODY)
  if (next == 1) e = linearXPermuted<8>(src, off, next, w, out, n);
  if (next > 1 && next <= 4) e = linearXPermuted<16>(src, off, next, w, out, n);
#endif
  for (; e < n; ++e) {
    const float a = src[off[e]], b = src[off[e] + next];
    out[e] = a + (b - a) * w[e];
  }
}

void cubicX(const float* __restrict src, const int* __restrict off, int next,
            const float* __restrict w, float* __restrict out, int n) {
  int e = 0;
#if defined(MOX_GEOM_WIDE_BODY)
  if (next == 1) e = cubicXPermuted<8>(src, off, next, w, out, n);
  if (next > 1 && next <= 4) e = cubicXPermuted<16>(src, off, next, w, out, n);
#endif
  for (; e < n; ++e) {
    const float* p = src + off[e];
    const float p0 = p[0], p1 = p[next], p2 = p[2 * next], p3 = p[3 * next];
    const float d1 = p1 - p0;
    const float d2 = (p2 - p1) - d1;
    const float d3 = (p1 + p3 - 2 * p2) - d2;
    out[e] = p0 + d1 * w[e] + d2 * w[n + e] + d3 * w[2 * n + e];
  }
}

// Decimation in 8-bit fixed point: exact integer sums, rounded once.
// Value e of a row weighed along x: linear in 1/256, cubic in 1/1536.
template <int Taps>
inline int decimXScalar(const int* __restrict src, const int* __restrict off,
                        const int* __restrict f, int e, int n) {
  if constexpr (Taps == 2) {
    return (256 - f[e]) * src[off[e]] + f[e] * src[off[n + e]];
  } else {
    const int t = f[e], t2 = (t * t) >> 8, t3 = (t * t * t) >> 16;
    const int q0 = src[off[e]], q1 = src[off[n + e]], q2 = src[off[2 * n + e]];
    const int q3 = src[off[3 * n + e]];
    return 1536 * q1 + (-2 * q0 - 3 * q1 + 6 * q2 - q3) * t + (3 * q0 - 6 * q1 + 3 * q2) * t2 +
           (3 * q1 - q0 - 3 * q2 + q3) * t3;
  }
}

#if defined(MOX_GEOM_WIDE_BODY)
// As for zoom: eight values whose samples (the last tap's at most) lie
// within W values (16 or 24) of the first one's pixel take W / 8 loads and
// as many permutes per tap instead of gathers; a group of eight that
// reaches further is left to the scalar loop, and the loop goes on after it.
// The loads reach W - 1 values past the window's start; the source row has
// room for them.
template <int W>
inline __m256i pick(const __m256i* part, __m256i idx) {
  const __m256i a = _mm256_permutevar8x32_epi32(part[0], idx);
  const __m256i b = _mm256_permutevar8x32_epi32(part[1], idx);
  __m256i v = _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi32(idx, _mm256_set1_epi32(7)));
  if constexpr (W == 24) {
    const __m256i c = _mm256_permutevar8x32_epi32(part[2], idx);
    v = _mm256_blendv_epi8(v, c, _mm256_cmpgt_epi32(idx, _mm256_set1_epi32(15)));
  }
  return v;
}

inline __m256i times(__m256i a, int k) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(k)); }

template <int Taps, int W>
void decimXPermuted(const int* src, const int* off, const int* f, int* out, int n, int next) {
  int e = 0;
  for (Phase phase(next); e + 8 <= n; e += 8, phase.advance()) {
    const int base = off[e] - phase();
    if (off[(Taps - 1) * n + e + 7] + next - 1 - base >= W) {
      for (int g = e; g < e + 8; ++g) out[g] = decimXScalar<Taps>(src, off, f, g, n);
      continue;
    }
    __m256i part[W / 8];
    for (int h = 0; h < W / 8; ++h)
      part[h] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + base + 8 * h));
    __m256i q[Taps];
    for (int m = 0; m < Taps; ++m) q[m] = pick<W>(part, within(off + m * n + e, base));
    const __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f + e));
    __m256i v;
    if constexpr (Taps == 2) {
      v = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_sub_epi32(_mm256_set1_epi32(256), t), q[0]),
                           _mm256_mullo_epi32(t, q[1]));
    } else {
      const __m256i tt = _mm256_mullo_epi32(t, t);
      const __m256i t2 = _mm256_srai_epi32(tt, 8);
      const __m256i t3 = _mm256_srai_epi32(_mm256_mullo_epi32(tt, t), 16);
      // -2 q0 - 3 q1 + 6 q2 - q3, 3 q0 - 6 q1 + 3 q2, 3 q1 - q0 - 3 q2 + q3
      const __m256i a1 = _mm256_sub_epi32(
          _mm256_add_epi32(times(q[0], -2), _mm256_add_epi32(times(q[1], -3), times(q[2], 6))),
          q[3]);
      const __m256i a2 =
          _mm256_add_epi32(_mm256_add_epi32(times(q[0], 3), times(q[1], -6)), times(q[2], 3));
      const __m256i a3 = _mm256_add_epi32(
          _mm256_sub_epi32(_mm256_sub_epi32(times(q[1], 3), q[0]), times(q[2], 3)), q[3]);
      v = _mm256_add_epi32(times(q[1], 1536), _mm256_mullo_epi32(a1, t));
      v = _mm256_add_epi32(v, _mm256_mullo_epi32(a2, t2));
      v = _mm256_add_epi32(v, _mm256_mullo_epi32(a3, t3));
    }
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + e), v);
  }
  for (; e < n; ++e) out[e] = decimXScalar<Taps>(src, off, f, e, n);
}
#endif

template <int Taps>
void decimX(const int* __restrict src, const int* __restrict off, const int* __restrict f,
            int* __restrict out, int n, int next) {
#if defined(MOX_GEOM_WIDE_BODY)
  if (next == 1)
    return decimXPermuted<Taps, 16>(src, off, f, out, n, next);
  return decimXPermuted<Taps, 24>(src, off, f, out, n, next);
#else
  (void)next;
  for (int e = 0; e < n; ++e) out[e] = decimXScalar<Taps>(src, off, f, e, n);
#endif
}

// The weighted sum of two rows fits 32 bits unsigned (16-bit values: at
// most 65535 * 65536).
template <class T>
void decimLinearY(const int* __restrict h0, const int* __restrict h1, int f, T* __restrict out,
                  int n) {
  using Sum = std::conditional_t<sizeof(T) == 1, int, unsigned>;
  const Sum a = static_cast<Sum>(256 - f), b = static_cast<Sum>(f);
  for (int e = 0; e < n; ++e) {
    const Sum sum = a * static_cast<Sum>(h0[e]) + b * static_cast<Sum>(h1[e]);
    out[e] = static_cast<T>(((sum >> 15) + 1) >> 1);
  }
}

// The sums reach 2^43 at most, whole numbers that doubles hold exactly; the
// quotient by 1536 * 1536 then truncates exactly like the integer division
// (it lies at least 1 / 2359296 from the next whole number unless it is
// one). Values below 0 clamp to 0, so truncation is the floor.
template <class T>
void decimCubicY(const int* const* q, int f, T* __restrict out, int n, double hi) {
  const int* __restrict q0 = q[0];
  const int* __restrict q1 = q[1];
  const int* __restrict q2 = q[2];
  const int* __restrict q3 = q[3];
  const double t = f, t2 = (f * f) >> 8, t3 = (f * f * f) >> 16;
  constexpr double whole = 1536.0 * 1536.0;
  for (int e = 0; e < n; ++e) {
    const double p0 = q0[e], p1 = q1[e], p2 = q2[e], p3 = q3[e];
    const double sum = 1536 * p1 + (-2 * p0 - 3 * p1 + 6 * p2 - p3) * t +
                       (3 * p0 - 6 * p1 + 3 * p2) * t2 + (3 * p1 - p0 - 3 * p2 + p3) * t3;
    double v = (sum + whole / 2) / whole;
    v = v < 0 ? 0 : v;
    v = v > hi ? hi : v;
    out[e] = static_cast<T>(static_cast<std::int32_t>(v));
  }
}

#if defined(MOX_GEOM_WIDE_BODY)
// Sixteen bytes of group g of a plan.
inline __m128i gathered(const std::uint8_t* src, const BytePlan& plan, int g) {
  const std::uint8_t* from = src + plan.base[g];
  const __m128i* m = reinterpret_cast<const __m128i*>(plan.masks + 32 * g);
  const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 16));
  return _mm_or_si128(_mm_shuffle_epi8(lo, _mm_loadu_si128(m)),
                      _mm_shuffle_epi8(hi, _mm_loadu_si128(m + 1)));
}

void gatherBytes(const std::uint8_t* __restrict src, const int* __restrict off,
                 const BytePlan& plan, std::uint8_t* __restrict out, int n) {
  int e = 0;
  for (int g = 0; e + 16 <= n; ++g, e += 16) {
    if (plan.base[g] < 0) {
      for (int i = e; i < e + 16; ++i) out[i] = src[off[i]];
      continue;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + e), gathered(src, plan, g));
  }
  for (; e < n; ++e) out[e] = src[off[e]];
}

// The sums fit 16 bits unsigned (at most 256 * 255), so they are formed in
// 16-bit lanes and widened to 32 bits for the row buffer.
void decimLinearXBytes(const std::uint8_t* __restrict src, const int* __restrict off,
                       const int* __restrict f, const BytePlan& p0, const BytePlan& p1,
                       int* __restrict out, int n) {
  const __m256i full = _mm256_set1_epi16(256);
  int e = 0;
  for (int g = 0; e + 16 <= n; ++g, e += 16) {
    if (p0.base[g] < 0 || p1.base[g] < 0) {
      for (int i = e; i < e + 16; ++i) out[i] = (256 - f[i]) * src[off[i]] + f[i] * src[off[n + i]];
      continue;
    }
    const __m256i q0 = _mm256_cvtepu8_epi16(gathered(src, p0, g));
    const __m256i q1 = _mm256_cvtepu8_epi16(gathered(src, p1, g));
    const __m256i fa = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f + e));
    const __m256i fb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(f + e + 8));
    const __m256i t = _mm256_permute4x64_epi64(_mm256_packus_epi32(fa, fb), 0xD8);
    const __m256i sum = _mm256_add_epi16(_mm256_mullo_epi16(_mm256_sub_epi16(full, t), q0),
                                         _mm256_mullo_epi16(t, q1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + e),
                        _mm256_cvtepu16_epi32(_mm256_castsi256_si128(sum)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + e + 8),
                        _mm256_cvtepu16_epi32(_mm256_extracti128_si256(sum, 1)));
  }
  for (; e < n; ++e) out[e] = (256 - f[e]) * src[off[e]] + f[e] * src[off[n + e]];
}

// The low eight bytes as floats (exactly).
inline __m256 floatsOf(__m128i bytes) { return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes)); }

// The samples as floats, sixteen values at a time.
void zoomLinearXBytes(const std::uint8_t* __restrict src, const int* __restrict off,
                      const float* __restrict w, const BytePlan& p0, const BytePlan& p1,
                      float* __restrict out, int n) {
  auto one = [&](int e) {
    const float a = src[off[e]], b = src[off[n + e]];
    out[e] = a + (b - a) * w[e];
  };
  int e = 0;
  for (int g = 0; e + 16 <= n; ++g, e += 16) {
    if (p0.base[g] < 0 || p1.base[g] < 0) {
      for (int i = e; i < e + 16; ++i) one(i);
      continue;
    }
    const __m128i q0 = gathered(src, p0, g), q1 = gathered(src, p1, g);
    for (int h = 0; h < 2; ++h) {
      const __m256 a = floatsOf(h ? _mm_srli_si128(q0, 8) : q0);
      const __m256 b = floatsOf(h ? _mm_srli_si128(q1, 8) : q1);
      const __m256 t = _mm256_loadu_ps(w + e + 8 * h);
      _mm256_storeu_ps(out + e + 8 * h, _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), t)));
    }
  }
  for (; e < n; ++e) one(e);
}

constexpr ByteLoops byteLoops() {
  return ByteLoops{&gatherBytes, &decimLinearXBytes, &zoomLinearXBytes};
}
#else
constexpr ByteLoops byteLoops() { return ByteLoops{nullptr, nullptr, nullptr}; }
#endif

template <class T>
constexpr DecimLoops<T> decimLoops() {
  return DecimLoops<T>{&widen<T, int>, &decimX<2>, &decimX<4>, &decimLinearY<T>,
                       &decimCubicY<T>};
}

template <class T>
constexpr ZoomLoops<T> zoomLoops() {
  return ZoomLoops<T>{&widen<T, float>, &linearX, &cubicX, &linearY<T>, &linearY2<T>, &cubicY<T>};
}

}  // namespace

extern const RowLoops MOX_GEOM_LOOPS = {
    zoomLoops<std::uint8_t>(), zoomLoops<std::int8_t>(),   zoomLoops<std::uint16_t>(),
    zoomLoops<std::int16_t>(), zoomLoops<std::int32_t>(), decimLoops<std::uint8_t>(),
    decimLoops<std::uint16_t>(), byteLoops()};

}  // namespace mox::geom
