// The transform kernels: self-sorting mixed-radix passes over batches of
// sequences, the chirp convolution, and the real-input and cosine transforms
// built on them. Included once per instruction set, each time with
// MOX_FFT_KERNELS naming the table it defines.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

// MOX_FFT_WIDE_BODY marks the copy compiled for 256-bit vectors (a target
// pragma does not announce itself to the preprocessor in C++). Its
// intrinsics are used on x86-64 only: 32-bit builds keep x87 arithmetic by
// default, and the intrinsics would not inline into the SSE code.
#if defined(MOX_FFT_WIDE_BODY) && defined(__x86_64__)
#define MOX_FFT_WIDE_INTRINSICS 1
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "fftengine.h"
#include "fftplan.h"

namespace mox::fft {
namespace {

// ------------------------------------------------------------------ passes
// Data of a pass: element e of lane j at [e * B + j], separate real and
// imaginary arrays. Inputs x, outputs y (different blocks).

template <int B, bool Tw>
void pass2(const Stage& s, const double* tr, const double* ti, const double* __restrict xr,
           const double* __restrict xi, double* __restrict yr, double* __restrict yi) {
  const std::size_t run = static_cast<std::size_t>(s.m) * B, L = s.L;
  for (std::size_t q = 0; q < L; ++q) {
    const double wr = Tw ? tr[q] : 1.0, wi = Tw ? ti[q] : 0.0;
    const double *a0r = xr + 2 * q * run, *a0i = xi + 2 * q * run;
    const double *a1r = a0r + run, *a1i = a0i + run;
    double *y0r = yr + q * run, *y0i = yi + q * run;
    double *y1r = y0r + L * run, *y1i = y0i + L * run;
    #pragma GCC ivdep
    for (std::size_t i = 0; i < run; ++i) {
      double br = a1r[i], bi = a1i[i];
      if (Tw) {
        const double t = br * wr - bi * wi;
        bi = br * wi + bi * wr;
        br = t;
      }
      y0r[i] = a0r[i] + br;
      y0i[i] = a0i[i] + bi;
      y1r[i] = a0r[i] - br;
      y1i[i] = a0i[i] - bi;
    }
  }
}

// The 4-point transform in the exponent's sign S of the points
// p[off + k * st], k < 4, into c[0..3].
template <int S>
inline void dft4(const double* pr, const double* pi, int off, int st, double* cr, double* ci) {
  const double s02r = pr[off] + pr[off + 2 * st], s02i = pi[off] + pi[off + 2 * st];
  const double d02r = pr[off] - pr[off + 2 * st], d02i = pi[off] - pi[off + 2 * st];
  const double s13r = pr[off + st] + pr[off + 3 * st], s13i = pi[off + st] + pi[off + 3 * st];
  const double d13r = pr[off + st] - pr[off + 3 * st], d13i = pi[off + st] - pi[off + 3 * st];
  cr[0] = s02r + s13r, ci[0] = s02i + s13i;
  cr[2] = s02r - s13r, ci[2] = s02i - s13i;
  cr[1] = d02r - S * d13i, ci[1] = d02i + S * d13r;
  cr[3] = d02r + S * d13i, ci[3] = d02i - S * d13r;
}

// Radix R = 4 or 8 (the latter as two 4-point transforms of the even and
// odd points joined by the eighth roots of unity). Unit: the last pass (one
// sequence apart), whose runs are exactly B long.
template <int B, int R, int S, bool Tw, bool Unit = false>
void passPow2(const Stage& s, const double* tr, const double* ti, const double* __restrict xr,
              const double* __restrict xi, double* __restrict yr, double* __restrict yi) {
  const std::size_t run = Unit ? B : static_cast<std::size_t>(s.m) * B, L = s.L;
  const std::size_t out = L * run;
  constexpr double h = 0.70710678118654752440;  // sqrt(1/2)
  for (std::size_t q = 0; q < L; ++q) {
    double wr[R], wi[R];
    for (int a = 1; a < R; ++a)
      wr[a] = Tw ? tr[(R - 1) * q + a - 1] : 1.0, wi[a] = Tw ? ti[(R - 1) * q + a - 1] : 0.0;
    const double* a0r = xr + R * q * run;
    const double* a0i = xi + R * q * run;
    double* y0r = yr + q * run;
    double* y0i = yi + q * run;
    #pragma GCC ivdep
    for (std::size_t i = 0; i < run; ++i) {
      double br[R], bi[R];
      for (int a = 0; a < R; ++a) {
        br[a] = a0r[a * run + i], bi[a] = a0i[a * run + i];
        if (Tw && a) {
          const double t = br[a] * wr[a] - bi[a] * wi[a];
          bi[a] = br[a] * wi[a] + bi[a] * wr[a];
          br[a] = t;
        }
      }
      if constexpr (R == 4) {
        double cr[4], ci[4];
        dft4<S>(br, bi, 0, 1, cr, ci);
        for (int k = 0; k < 4; ++k) y0r[k * out + i] = cr[k], y0i[k * out + i] = ci[k];
      } else {
        double er[4], ei[4], orr[4], oi[4];
        dft4<S>(br, bi, 0, 2, er, ei);
        dft4<S>(br, bi, 1, 2, orr, oi);
        // o[k] times exp(S 2 pi i k / 8).
        double t = h * (orr[1] - S * oi[1]);
        oi[1] = h * (oi[1] + S * orr[1]);
        orr[1] = t;
        t = -S * oi[2];
        oi[2] = S * orr[2];
        orr[2] = t;
        t = h * (-orr[3] - S * oi[3]);
        oi[3] = h * (-oi[3] + S * orr[3]);
        orr[3] = t;
        for (int k = 0; k < 4; ++k) {
          y0r[k * out + i] = er[k] + orr[k];
          y0i[k * out + i] = ei[k] + oi[k];
          y0r[(k + 4) * out + i] = er[k] - orr[k];
          y0i[(k + 4) * out + i] = ei[k] - oi[k];
        }
      }
    }
  }
}

template <int B>
void pass3(const Stage& s, int sign, const double* tr, const double* ti,
           const double* __restrict xr, const double* __restrict xi, double* __restrict yr,
           double* __restrict yi) {
  const std::size_t run = static_cast<std::size_t>(s.m) * B, L = s.L;
  const double h = sign * 0.86602540378443864676;  // sin(2 pi / 3)
  for (std::size_t q = 0; q < L; ++q) {
    const double w1r = tr[2 * q], w1i = ti[2 * q], w2r = tr[2 * q + 1], w2i = ti[2 * q + 1];
    const double *a0r = xr + 3 * q * run, *a0i = xi + 3 * q * run;
    const double *a1r = a0r + run, *a1i = a0i + run, *a2r = a1r + run, *a2i = a1i + run;
    double *y0r = yr + q * run, *y0i = yi + q * run;
    double *y1r = y0r + L * run, *y1i = y0i + L * run, *y2r = y1r + L * run, *y2i = y1i + L * run;
    #pragma GCC ivdep
    for (std::size_t i = 0; i < run; ++i) {
      const double b1r = a1r[i] * w1r - a1i[i] * w1i, b1i = a1r[i] * w1i + a1i[i] * w1r;
      const double b2r = a2r[i] * w2r - a2i[i] * w2i, b2i = a2r[i] * w2i + a2i[i] * w2r;
      const double tr_ = b1r + b2r, ti_ = b1i + b2i, dr = b1r - b2r, di = b1i - b2i;
      const double mr = a0r[i] - 0.5 * tr_, mi = a0i[i] - 0.5 * ti_;
      y0r[i] = a0r[i] + tr_;
      y0i[i] = a0i[i] + ti_;
      y1r[i] = mr - h * di;
      y1i[i] = mi + h * dr;
      y2r[i] = mr + h * di;
      y2i[i] = mi - h * dr;
    }
  }
}

template <int B>
void pass5(const Stage& s, int sign, const double* tr, const double* ti,
           const double* __restrict xr, const double* __restrict xi, double* __restrict yr,
           double* __restrict yi) {
  const std::size_t run = static_cast<std::size_t>(s.m) * B, L = s.L;
  const double c1 = 0.30901699437494742410, c2 = -0.80901699437494742410;
  const double s1 = sign * 0.95105651629515357212, s2 = sign * 0.58778525229247312917;
  for (std::size_t q = 0; q < L; ++q) {
    double wr[4], wi[4];
    for (int a = 0; a < 4; ++a) wr[a] = tr[4 * q + a], wi[a] = ti[4 * q + a];
    const double* ar[5];
    const double* ai[5];
    double* yr_[5];
    double* yi_[5];
    for (int a = 0; a < 5; ++a) {
      ar[a] = xr + (5 * q + a) * run;
      ai[a] = xi + (5 * q + a) * run;
      yr_[a] = yr + (q + a * L) * run;
      yi_[a] = yi + (q + a * L) * run;
    }
    #pragma GCC ivdep
    for (std::size_t i = 0; i < run; ++i) {
      double br[5], bi[5];
      br[0] = ar[0][i], bi[0] = ai[0][i];
      for (int a = 1; a < 5; ++a) {
        br[a] = ar[a][i] * wr[a - 1] - ai[a][i] * wi[a - 1];
        bi[a] = ar[a][i] * wi[a - 1] + ai[a][i] * wr[a - 1];
      }
      const double t1r = br[1] + br[4], t1i = bi[1] + bi[4], d1r = br[1] - br[4], d1i = bi[1] - bi[4];
      const double t2r = br[2] + br[3], t2i = bi[2] + bi[3], d2r = br[2] - br[3], d2i = bi[2] - bi[3];
      const double p1r = br[0] + c1 * t1r + c2 * t2r, p1i = bi[0] + c1 * t1i + c2 * t2i;
      const double p2r = br[0] + c2 * t1r + c1 * t2r, p2i = bi[0] + c2 * t1i + c1 * t2i;
      const double e1r = s1 * d1r + s2 * d2r, e1i = s1 * d1i + s2 * d2i;
      const double e2r = s2 * d1r - s1 * d2r, e2i = s2 * d1i - s1 * d2i;
      yr_[0][i] = br[0] + t1r + t2r;
      yi_[0][i] = bi[0] + t1i + t2i;
      yr_[1][i] = p1r - e1i;
      yi_[1][i] = p1i + e1r;
      yr_[4][i] = p1r + e1i;
      yi_[4][i] = p1i - e1r;
      yr_[2][i] = p2r - e2i;
      yi_[2][i] = p2i + e2r;
      yr_[3][i] = p2r + e2i;
      yi_[3][i] = p2i - e2r;
    }
  }
}

// Any odd prime up to kLargestRadix: the p-point DFT from its table, pairing
// the points a and p - a.
template <int B>
void passGeneric(const Stage& s, const double* gc, const double* gs, const double* tr,
                 const double* ti, const double* xr, const double* xi, double* yr, double* yi) {
  const int p = s.p, half = (p - 1) / 2;
  const std::size_t run = static_cast<std::size_t>(s.m) * B, L = s.L;
  double br[kLargestRadix], bi[kLargestRadix], tsr[kLargestRadix], tsi[kLargestRadix],
      tdr[kLargestRadix], tdi[kLargestRadix];
  for (std::size_t q = 0; q < L; ++q) {
    const double* w_r = tr + q * (p - 1);
    const double* w_i = ti + q * (p - 1);
    const double* a0r = xr + p * q * run;
    const double* a0i = xi + p * q * run;
    double* y0r = yr + q * run;
    double* y0i = yi + q * run;
    #pragma GCC ivdep
    for (std::size_t i = 0; i < run; ++i) {
      br[0] = a0r[i], bi[0] = a0i[i];
      for (int a = 1; a < p; ++a) {
        const double xr_ = a0r[a * run + i], xi_ = a0i[a * run + i];
        br[a] = xr_ * w_r[a - 1] - xi_ * w_i[a - 1];
        bi[a] = xr_ * w_i[a - 1] + xi_ * w_r[a - 1];
      }
      double sumr = br[0], sumi = bi[0];
      for (int a = 1; a <= half; ++a) {
        tsr[a] = br[a] + br[p - a], tsi[a] = bi[a] + bi[p - a];
        tdr[a] = br[a] - br[p - a], tdi[a] = bi[a] - bi[p - a];
        sumr += tsr[a];
        sumi += tsi[a];
      }
      y0r[i] = sumr;
      y0i[i] = sumi;
      for (int b = 1; b <= half; ++b) {
        double cr = br[0], ci = bi[0], er = 0, ei = 0;
        int ab = 0;
        for (int a = 1; a <= half; ++a) {
          ab += b;
          if (ab >= p) ab -= p;
          cr += gc[ab] * tsr[a];
          ci += gc[ab] * tsi[a];
          er += gs[ab] * tdr[a];
          ei += gs[ab] * tdi[a];
        }
        y0r[b * L * run + i] = cr - ei;
        y0i[b * L * run + i] = ci + er;
        y0r[(p - b) * L * run + i] = cr + ei;
        y0i[(p - b) * L * run + i] = ci - er;
      }
    }
  }
}

// Radix 4 or 8 in the exponent's sign, without twiddles on the first pass
// and with fixed runs on the last.
template <int B, int R, int S>
void powerPassSigned(const Stage& s, const double* tr, const double* ti, const double* xr,
                     const double* xi, double* yr, double* yi) {
  if (s.L == 1) passPow2<B, R, S, false>(s, tr, ti, xr, xi, yr, yi);
  else if (s.m == 1) passPow2<B, R, S, true, true>(s, tr, ti, xr, xi, yr, yi);
  else passPow2<B, R, S, true>(s, tr, ti, xr, xi, yr, yi);
}

template <int B, int R>
void powerPass(const Plan& P, const Stage& s, const double* tr, const double* ti,
               const double* xr, const double* xi, double* yr, double* yi) {
  if (P.sign > 0) powerPassSigned<B, R, 1>(s, tr, ti, xr, xi, yr, yi);
  else powerPassSigned<B, R, -1>(s, tr, ti, xr, xi, yr, yi);
}

template <int B>
void runStage(const Plan& P, const Stage& s, const double* xr, const double* xi, double* yr,
              double* yi) {
  const double* tr = P.twRe.data() + s.tw;
  const double* ti = P.twIm.data() + s.tw;
  switch (s.p) {
    case 2:
      if (s.L == 1) pass2<B, false>(s, tr, ti, xr, xi, yr, yi);
      else pass2<B, true>(s, tr, ti, xr, xi, yr, yi);
      break;
    case 4: powerPass<B, 4>(P, s, tr, ti, xr, xi, yr, yi); break;
    case 8: powerPass<B, 8>(P, s, tr, ti, xr, xi, yr, yi); break;
    case 3: pass3<B>(s, P.sign, tr, ti, xr, xi, yr, yi); break;
    case 5: pass5<B>(s, P.sign, tr, ti, xr, xi, yr, yi); break;
    default:
      passGeneric<B>(s, P.genCos.data() + s.gen, P.genSin.data() + s.gen, tr, ti, xr, xi, yr,
                     yi);
  }
}

// Runs the passes ping-ponging between (r, i) and (wr, wi); the result ends
// in (r, i) as returned.
template <int B>
void runPasses(const Plan& P, double*& r, double*& i, double*& wr, double*& wi) {
  for (const Stage& s : P.stages) {
    runStage<B>(P, s, r, i, wr, wi);
    std::swap(r, wr);
    std::swap(i, wi);
  }
}

// (yr, yi)[e][j] = (xr, xi)[e][j] * (wr, wi)[e] for n elements (in place allowed).
template <int B>
void multiplyLanes(const double* xr, const double* xi, const double* wr, const double* wi,
                   double* yr, double* yi, std::size_t n) {
  for (std::size_t e = 0; e < n; ++e)
    for (int j = 0; j < B; ++j) {
      const double a = xr[e * B + j], b = xi[e * B + j];
      yr[e * B + j] = a * wr[e] - b * wi[e];
      yi[e * B + j] = a * wi[e] + b * wr[e];
    }
}

// The transform of B lanes held in (r, i) [n][B]; work holds P.work() * B
// values in each of wr and wi. The result is left in (r, i) or in the work
// block: the returned pair says where.
template <int B>
std::pair<double*, double*> run(const Plan& P, double* r, double* i, double* wr, double* wi) {
  if (!P.m) {
    runPasses<B>(P, r, i, wr, wi);
    return {r, i};
  }
  // Chirp convolution: X[q] = w[q] sum_t (x[t] w[t]) conj(w[q - t]).
  const std::size_t n = P.n, M = P.m;
  double *ur = wr, *ui = wi, *vr = wr + M * B, *vi = wi + M * B;
  multiplyLanes<B>(r, i, P.chirpRe.data(), P.chirpIm.data(), ur, ui, n);
  std::fill(ur + n * B, ur + M * B, 0.0);
  std::fill(ui + n * B, ui + M * B, 0.0);
  runPasses<B>(*P.up, ur, ui, vr, vi);
  multiplyLanes<B>(ur, ui, P.kernRe.data(), P.kernIm.data(), ur, ui, M);
  runPasses<B>(*P.down, ur, ui, vr, vi);
  multiplyLanes<B>(ur, ui, P.chirpRe.data(), P.chirpIm.data(), r, i, n);
  return {r, i};
}

// ------------------------------------------------------------------ lanes
#if defined(MOX_FFT_WIDE_INTRINSICS)
// Four rows of four doubles turned into four columns (in place).
inline void transpose4(__m256d& a0, __m256d& a1, __m256d& a2, __m256d& a3) {
  const __m256d t0 = _mm256_unpacklo_pd(a0, a1), t1 = _mm256_unpackhi_pd(a0, a1);
  const __m256d t2 = _mm256_unpacklo_pd(a2, a3), t3 = _mm256_unpackhi_pd(a2, a3);
  a0 = _mm256_permute2f128_pd(t0, t2, 0x20);
  a1 = _mm256_permute2f128_pd(t1, t3, 0x20);
  a2 = _mm256_permute2f128_pd(t0, t2, 0x31);
  a3 = _mm256_permute2f128_pd(t1, t3, 0x31);
}
#endif

// The moves below are the hot cases of gather and scatter with four lanes,
// done with 256-bit shuffles where the kernels have them. Each returns how
// many elements it moved (0 without the shuffles); the caller moves the rest.

// Four rows (row j at s + j * ls) of (re, im) pairs: pair e of row j into
// zr[e * 4 + j] and zi[e * 4 + j].
inline std::size_t rowsToLanes4(const double* s, std::ptrdiff_t ls, std::size_t n, double* zr,
                                double* zi) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  std::size_t e = 0;
  for (; e + 2 <= n; e += 2) {  // two pairs of each row
    __m256d a0 = _mm256_loadu_pd(s + 2 * e), a1 = _mm256_loadu_pd(s + ls + 2 * e);
    __m256d a2 = _mm256_loadu_pd(s + 2 * ls + 2 * e), a3 = _mm256_loadu_pd(s + 3 * ls + 2 * e);
    transpose4(a0, a1, a2, a3);
    _mm256_storeu_pd(zr + 4 * e, a0);
    _mm256_storeu_pd(zi + 4 * e, a1);
    _mm256_storeu_pd(zr + 4 * e + 4, a2);
    _mm256_storeu_pd(zi + 4 * e + 4, a3);
  }
  return e;
#else
  (void)s, (void)ls, (void)n, (void)zr, (void)zi;
  return 0;
#endif
}

// z[e * 4 + j] into element e of row j (at d + j * ls).
inline std::size_t lanesToRows4(const double* z, double* d, std::ptrdiff_t ls, std::size_t n) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  std::size_t e = 0;
  for (; e + 4 <= n; e += 4) {
    __m256d a0 = _mm256_loadu_pd(z + 4 * e), a1 = _mm256_loadu_pd(z + 4 * e + 4);
    __m256d a2 = _mm256_loadu_pd(z + 4 * e + 8), a3 = _mm256_loadu_pd(z + 4 * e + 12);
    transpose4(a0, a1, a2, a3);
    _mm256_storeu_pd(d + e, a0);
    _mm256_storeu_pd(d + ls + e, a1);
    _mm256_storeu_pd(d + 2 * ls + e, a2);
    _mm256_storeu_pd(d + 3 * ls + e, a3);
  }
  return e;
#else
  (void)z, (void)d, (void)ls, (void)n;
  return 0;
#endif
}

// Four neighbouring (re, im) pairs per element (at s + e * es) split into
// zr[e * 4 + j] and zi[e * 4 + j], or joined back.
inline std::size_t pairsToLanes4(const double* s, std::ptrdiff_t es, std::size_t n, double* zr,
                                 double* zi) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  for (std::size_t e = 0; e < n; ++e) {
    const double* se = s + static_cast<std::ptrdiff_t>(e) * es;
    const __m256d v0 = _mm256_loadu_pd(se), v1 = _mm256_loadu_pd(se + 4);
    _mm256_storeu_pd(zr + 4 * e, _mm256_permute4x64_pd(_mm256_unpacklo_pd(v0, v1), 0xD8));
    _mm256_storeu_pd(zi + 4 * e, _mm256_permute4x64_pd(_mm256_unpackhi_pd(v0, v1), 0xD8));
  }
  return n;
#else
  (void)s, (void)es, (void)n, (void)zr, (void)zi;
  return 0;
#endif
}

inline std::size_t lanesToPairs4(const double* zr, const double* zi, double* d, std::ptrdiff_t es,
                                 std::size_t n) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  for (std::size_t e = 0; e < n; ++e) {
    double* de = d + static_cast<std::ptrdiff_t>(e) * es;
    const __m256d r = _mm256_permute4x64_pd(_mm256_loadu_pd(zr + 4 * e), 0xD8);
    const __m256d i = _mm256_permute4x64_pd(_mm256_loadu_pd(zi + 4 * e), 0xD8);
    _mm256_storeu_pd(de, _mm256_unpacklo_pd(r, i));
    _mm256_storeu_pd(de + 4, _mm256_unpackhi_pd(r, i));
  }
  return n;
#else
  (void)zr, (void)zi, (void)d, (void)es, (void)n;
  return 0;
#endif
}

// Gathers n elements of nl sequences (element e of lane j at s[e*es + j*ls])
// into z[(e*os) * B + j]; lanes from nl on are zero.
template <int B>
void gather(const double* s, std::ptrdiff_t es, std::ptrdiff_t ls, int nl, std::size_t n,
            double* z, std::ptrdiff_t os = 1) {
  const std::ptrdiff_t aes = es < 0 ? -es : es, als = ls < 0 ? -ls : ls;
  if (B == 1 && aes <= als) {
    for (int j = 0; j < nl; ++j) {
      const double* sj = s + j * ls;
      for (std::size_t e = 0; e < n; ++e) z[static_cast<std::ptrdiff_t>(e) * os * B + j] = sj[e * es];
    }
  } else {
    for (std::size_t e = 0; e < n; ++e) {
      const double* se = s + static_cast<std::ptrdiff_t>(e) * es;
      double* ze = z + static_cast<std::ptrdiff_t>(e) * os * B;
      if (nl == B)
        for (int j = 0; j < B; ++j) ze[j] = se[j * ls];
      else
        for (int j = 0; j < nl; ++j) ze[j] = se[j * ls];
    }
  }
  if (nl < B)
    for (std::size_t e = 0; e < n; ++e)
      for (int j = nl; j < B; ++j) z[static_cast<std::ptrdiff_t>(e) * os * B + j] = 0.0;
}

// The reverse of gather for the first nl lanes.
template <int B>
void scatter(const double* z, double* d, std::ptrdiff_t es, std::ptrdiff_t ls, int nl,
             std::size_t n, std::ptrdiff_t os = 1) {
  const std::ptrdiff_t aes = es < 0 ? -es : es, als = ls < 0 ? -ls : ls;
  if (B == 1 && aes <= als) {
    for (int j = 0; j < nl; ++j) {
      double* dj = d + j * ls;
      for (std::size_t e = 0; e < n; ++e) dj[e * es] = z[static_cast<std::ptrdiff_t>(e) * os * B + j];
    }
  } else if (nl == B) {
    std::size_t e = 0;
    if constexpr (B == 4)
      if (es == 1 && os == 1) e = lanesToRows4(z, d, ls, n);
    for (; e < n; ++e) {
      double* de = d + static_cast<std::ptrdiff_t>(e) * es;
      const double* ze = z + static_cast<std::ptrdiff_t>(e) * os * B;
      for (int j = 0; j < B; ++j) de[j * ls] = ze[j];
    }
  } else {
    for (std::size_t e = 0; e < n; ++e) {
      double* de = d + static_cast<std::ptrdiff_t>(e) * es;
      const double* ze = z + static_cast<std::ptrdiff_t>(e) * os * B;
      for (int j = 0; j < nl; ++j) de[j * ls] = ze[j];
    }
  }
}

// Where the blocks of one lane batch live in the scratch area.
struct Blocks {
  double *zr, *zi, *wr, *wi, *pk;
};

Blocks carve(double* base, std::size_t points, const Plan& P, int B) {
  constexpr std::size_t pad = kBlockPad;
  Blocks b;
  b.zr = base;
  b.zi = b.zr + points * B + pad;
  b.wr = b.zi + points * B + pad;
  b.wi = b.wr + P.work() * B + pad;
  b.pk = b.wi + P.work() * B + pad;
  return b;
}


// A sequence: its start, element step and lane step.
struct Seq {
  double* at;
  std::ptrdiff_t es, ls;
};

// Gathers even elements into zr and odd ones into zi, n of each.
template <int B>
void gatherPairs(const Seq& s, int nl, std::size_t n, double* zr, double* zi) {
  if (nl == B && s.es == 1) {  // whole batch of rows: fixed-width inner loops
    std::size_t e = 0;
    if constexpr (B == 4) e = rowsToLanes4(s.at, s.ls, n, zr, zi);
    for (; e < n; ++e) {
      const double* se = s.at + 2 * e;
      for (int j = 0; j < B; ++j) {
        zr[e * B + j] = se[j * s.ls];
        zi[e * B + j] = se[j * s.ls + 1];
      }
    }
    return;
  }
  for (std::size_t e = 0; e < n; ++e) {
    const double* se = s.at + static_cast<std::ptrdiff_t>(2 * e) * s.es;
    for (int j = 0; j < nl; ++j) {
      zr[e * B + j] = se[j * s.ls];
      zi[e * B + j] = se[j * s.ls + s.es];
    }
    for (int j = nl; j < B; ++j) zr[e * B + j] = zi[e * B + j] = 0.0;
  }
}


// The packed spectrum values 1 .. n - 2 of real sequences of even length
// n = 2h from the h-point transform Z of their (even, odd) pairs.
template <int B>
void splitHalves(const double* __restrict Zr, const double* __restrict Zi,
                 const double* __restrict wRe, const double* __restrict wIm, std::size_t h,
                 double* __restrict pk) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  if constexpr (B == 4) {  // the same arithmetic, four lanes at once
    const __m256d half = _mm256_set1_pd(0.5);
    for (std::size_t k = 1; k < h; ++k) {
      const __m256d wr = _mm256_set1_pd(wRe[k]), wi = _mm256_set1_pd(wIm[k]);
      const __m256d ar = _mm256_loadu_pd(Zr + k * B), ai = _mm256_loadu_pd(Zi + k * B);
      const __m256d cr = _mm256_loadu_pd(Zr + (h - k) * B), ci = _mm256_loadu_pd(Zi + (h - k) * B);
      const __m256d er = _mm256_mul_pd(half, _mm256_add_pd(ar, cr));
      const __m256d ei = _mm256_mul_pd(half, _mm256_sub_pd(ai, ci));
      const __m256d orr = _mm256_mul_pd(half, _mm256_add_pd(ai, ci));
      const __m256d oi = _mm256_mul_pd(half, _mm256_sub_pd(cr, ar));
      const __m256d xr = _mm256_add_pd(er, _mm256_sub_pd(_mm256_mul_pd(wr, orr), _mm256_mul_pd(wi, oi)));
      const __m256d xi = _mm256_add_pd(ei, _mm256_add_pd(_mm256_mul_pd(wr, oi), _mm256_mul_pd(wi, orr)));
      _mm256_storeu_pd(pk + (2 * k - 1) * B, xr);
      _mm256_storeu_pd(pk + 2 * k * B, xi);
    }
    return;
  }
#endif
  for (std::size_t k = 1; k < h; ++k) {
    const double wr = wRe[k], wi = wIm[k];
    const double *ar = Zr + k * B, *ai = Zi + k * B, *cr = Zr + (h - k) * B, *ci = Zi + (h - k) * B;
    double *xr = pk + (2 * k - 1) * B, *xi = pk + 2 * k * B;
    for (int j = 0; j < B; ++j) {
      const double er = 0.5 * (ar[j] + cr[j]), ei = 0.5 * (ai[j] - ci[j]);
      const double orr = 0.5 * (ai[j] + ci[j]), oi = 0.5 * (cr[j] - ar[j]);
      xr[j] = er + (wr * orr - wi * oi);
      xi[j] = ei + (wr * oi + wi * orr);
    }
  }
}

// Real sequences of length n into their packed spectra (in place allowed).
template <int B>
void realForward(const RealPlan& R, Seq s, int nl, double* scratch) {
  const int n = R.n;
  const Plan& P = *R.fft;
  const Blocks b = carve(scratch, P.n, P, B);
  if (n % 2 == 0) {
    const std::size_t h = n / 2;
    gatherPairs<B>(s, nl, h, b.zr, b.zi);
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    double* pk = b.pk;
    for (int j = 0; j < B; ++j) {
      pk[j] = Zr[j] + Zi[j];
      pk[(n - 1) * B + j] = Zr[j] - Zi[j];
    }
    splitHalves<B>(Zr, Zi, R.wRe.data(), R.wIm.data(), h, pk);
    scatter<B>(pk, s.at, s.es, s.ls, nl, n);
  } else {
    gather<B>(s.at, s.es, s.ls, nl, n, b.zr);
    std::fill(b.zi, b.zi + static_cast<std::size_t>(n) * B, 0.0);
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    double* pk = b.pk;
    for (int j = 0; j < B; ++j) pk[j] = Zr[j];
    for (int k = 1; 2 * k < n; ++k)
      for (int j = 0; j < B; ++j) {
        pk[(2 * k - 1) * B + j] = Zr[k * B + j];
        pk[2 * k * B + j] = Zi[k * B + j];
      }
    scatter<B>(pk, s.at, s.es, s.ls, nl, n);
  }
}

// The reverse of splitHalves: values 1 .. h - 1 of the h-point transform Z
// whose inverse gives the (even, odd) pairs, from the packed spectrum pk.
template <int B>
void joinHalves(const double* __restrict pk, const double* __restrict wRe,
                const double* __restrict wIm, std::size_t h, double* __restrict Zr,
                double* __restrict Zi) {
#if defined(MOX_FFT_WIDE_INTRINSICS)
  if constexpr (B == 4) {  // the same arithmetic, four lanes at once
    for (std::size_t k = 1; k < h; ++k) {
      const __m256d wr = _mm256_set1_pd(wRe[k]), wi = _mm256_set1_pd(wIm[k]);
      const __m256d ar = _mm256_loadu_pd(pk + (2 * k - 1) * B), ai = _mm256_loadu_pd(pk + 2 * k * B);
      const __m256d cr = _mm256_loadu_pd(pk + (2 * (h - k) - 1) * B);
      const __m256d ci = _mm256_loadu_pd(pk + 2 * (h - k) * B);
      const __m256d sr = _mm256_add_pd(ar, cr), si = _mm256_sub_pd(ai, ci);
      const __m256d dr = _mm256_sub_pd(ar, cr), di = _mm256_add_pd(ai, ci);
      _mm256_storeu_pd(Zr + k * B, _mm256_sub_pd(sr, _mm256_add_pd(_mm256_mul_pd(wr, di),
                                                                   _mm256_mul_pd(wi, dr))));
      _mm256_storeu_pd(Zi + k * B, _mm256_add_pd(si, _mm256_sub_pd(_mm256_mul_pd(wr, dr),
                                                                   _mm256_mul_pd(wi, di))));
    }
    return;
  }
#endif
  for (std::size_t k = 1; k < h; ++k) {
    const double wr = wRe[k], wi = wIm[k];
    const double *ar = pk + (2 * k - 1) * B, *ai = pk + 2 * k * B;
    const double *cr = pk + (2 * (h - k) - 1) * B, *ci = pk + 2 * (h - k) * B;
    double *zr = Zr + k * B, *zi = Zi + k * B;
    for (int j = 0; j < B; ++j) {
      const double sr = ar[j] + cr[j], si = ai[j] - ci[j];
      const double dr = ar[j] - cr[j], di = ai[j] + ci[j];
      zr[j] = sr - (wr * di + wi * dr);
      zi[j] = si + (wr * dr - wi * di);
    }
  }
}

// Packed spectra of length n into real sequences (in place allowed).
template <int B>
void realInverse(const RealPlan& R, Seq s, int nl, double* scratch) {
  const int n = R.n;
  const Plan& P = *R.fft;
  const Blocks b = carve(scratch, P.n, P, B);
  double* pk = b.pk;
  gather<B>(s.at, s.es, s.ls, nl, n, pk);
  if (n % 2 == 0) {
    const std::size_t h = n / 2;
    for (int j = 0; j < B; ++j) {
      const double x0 = pk[j], xh = pk[(n - 1) * B + j];
      b.zr[j] = x0 + xh;
      b.zi[j] = x0 - xh;
    }
    joinHalves<B>(pk, R.wRe.data(), R.wIm.data(), h, b.zr, b.zi);
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    scatter<B>(Zr, s.at, 2 * s.es, s.ls, nl, h);
    scatter<B>(Zi, s.at + s.es, 2 * s.es, s.ls, nl, h);
  } else {
    for (int j = 0; j < B; ++j) b.zr[j] = pk[j], b.zi[j] = 0.0;
    for (int k = 1; 2 * k < n; ++k)
      for (int j = 0; j < B; ++j) {
        const double re = pk[(2 * k - 1) * B + j], im = pk[2 * k * B + j];
        b.zr[k * B + j] = re;
        b.zi[k * B + j] = im;
        b.zr[(n - k) * B + j] = re;
        b.zi[(n - k) * B + j] = -im;
      }
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    (void)Zi;
    scatter<B>(Zr, s.at, s.es, s.ls, nl, n);
  }
}

// Complex sequences (real parts at re, imaginary at im) transformed in place.
template <int B>
void complexLanes(const Plan& P, Seq re, double* im, int nl, double* scratch) {
  const Blocks b = carve(scratch, P.n, P, B);
  // Neighbouring pairs (the column pairs of a spectrum) move together.
  const bool pairs = B == 4 && nl == B && re.ls == 2 && im == re.at + 1;
  if (!pairs || !pairsToLanes4(re.at, re.es, P.n, b.zr, b.zi)) {
    gather<B>(re.at, re.es, re.ls, nl, P.n, b.zr);
    gather<B>(im, re.es, re.ls, nl, P.n, b.zi);
  }
  auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
  if (!pairs || !lanesToPairs4(Zr, Zi, re.at, re.es, P.n)) {
    scatter<B>(Zr, re.at, re.es, re.ls, nl, P.n);
    scatter<B>(Zi, im, re.es, re.ls, nl, P.n);
  }
}

// Orthonormal DCT-II of real sequences, or its inverse, in place.
template <int B>
void cosineLanes(const CosinePlan& C, Seq s, int nl, bool inverse, double* scratch) {
  const int n = C.n;
  const std::size_t even = (n + 1) / 2, odd = n / 2;
  const Plan& P = inverse ? *C.inv : *C.fwd;
  const Blocks b = carve(scratch, n, P, B);
  if (!inverse) {
    // v[k] = x[2k], v[n-1-k] = x[2k+1]; X[k] = c(k) Re(exp(-i pi k / 2n) V[k]).
    gather<B>(s.at, 2 * s.es, s.ls, nl, even, b.zr);
    gather<B>(s.at + s.es, 2 * s.es, s.ls, nl, odd, b.zr + (n - 1) * B, -1);
    std::fill(b.zi, b.zi + static_cast<std::size_t>(n) * B, 0.0);
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    for (int k = 0; k < n; ++k) {
      const double c = C.c[k], sn = C.s[k], f = C.fwdScale[k];
      for (int j = 0; j < B; ++j) b.pk[k * B + j] = f * (c * Zr[k * B + j] + sn * Zi[k * B + j]);
    }
    scatter<B>(b.pk, s.at, s.es, s.ls, nl, n);
  } else {
    gather<B>(s.at, s.es, s.ls, nl, n, b.pk);
    for (int k = 0; k < n; ++k) {
      const double c = C.c[k], sn = C.s[k], g = C.invScale[k];
      const double gm = k ? C.invScale[n - k] : 0.0;
      const double* xm = b.pk + (k ? n - k : 0) * B;
      for (int j = 0; j < B; ++j) {
        const double qr = g * b.pk[k * B + j], qi = -(gm * xm[j]);
        b.zr[k * B + j] = c * qr - sn * qi;
        b.zi[k * B + j] = sn * qr + c * qi;
      }
    }
    auto [Zr, Zi] = run<B>(P, b.zr, b.zi, b.wr, b.wi);
    (void)Zi;
    scatter<B>(Zr, s.at, 2 * s.es, s.ls, nl, even);
    scatter<B>(Zr + (n - 1) * B, s.at + s.es, 2 * s.es, s.ls, nl, odd, -1);
  }
}

// The batches below hold `per` sequences each: several in the general
// schedule (kLanes, kColumnLanes or kRowLanes), one in the narrow one. Both run the same code on every lane, so
// their results are identical bit for bit.

// Column 0 and, for an even width, the last column: the real columns of a
// packed spectrum.
void realColumnsK(const RealPlan& R, double* m, int cols, std::ptrdiff_t step, bool inverse,
                  bool narrow, double* scratch) {
  const bool two = cols % 2 == 0;
  const Seq both{m, step, cols - 1};
  const int nl = two ? 2 : 1;
  for (int c = 0; c < nl; c += narrow ? 1 : nl) {
    const Seq s = narrow ? Seq{m + (c ? cols - 1 : 0), step, 0} : both;
    const int lanes = narrow ? 1 : nl;
    if (inverse) realInverse<kLanes>(R, s, lanes, scratch);
    else realForward<kLanes>(R, s, lanes, scratch);
  }
}

// The column pairs (2k - 1, 2k), k >= 1, as complex sequences.
void complexColumnsK(const Plan& P, double* m, int cols, std::ptrdiff_t step, bool narrow,
                     double* scratch) {
  const int pairs = (cols - 1) / 2, per = narrow ? 1 : kColumnLanes;
  for (int k = 1; k <= pairs; k += per)
    complexLanes<kColumnLanes>(P, {m + 2 * k - 1, step, 2}, m + 2 * k,
                               std::min(per, pairs - k + 1), scratch);
}

// Rows run in batches of four: a batch of a long row then still fits the
// first-level cache.
constexpr int kRowLanes = kLanes < 4 ? kLanes : 4;

void realRowsK(const RealPlan& R, double* m, int rows, std::ptrdiff_t step, bool inverse,
               bool narrow, double* scratch) {
  const int per = narrow ? 1 : kRowLanes;
  for (int r = 0; r < rows; r += per) {
    const Seq s{m + r * step, 1, step};
    if (inverse) realInverse<kRowLanes>(R, s, std::min(per, rows - r), scratch);
    else realForward<kRowLanes>(R, s, std::min(per, rows - r), scratch);
  }
}

void cosineLinesK(const CosinePlan& C, double* m, int count, std::ptrdiff_t es, std::ptrdiff_t ls,
                  bool inverse, double* scratch) {
  for (int j = 0; j < count; j += kLanes)
    cosineLanes<kLanes>(C, {m + j * ls, es, ls}, std::min(kLanes, count - j), inverse, scratch);
}

// Clamping first is exact, since rounding commutes with clamping to integer
// bounds; rounding truncates and looks at the exact remainder. Every width
// gives the same results.
void roundRunK(const double* s, int n, double scale, double lo, double hi, std::int32_t* out) {
  int x = 0;
#if defined(MOX_FFT_WIDE_INTRINSICS)
  const __m256d vs = _mm256_set1_pd(scale), vlo = _mm256_set1_pd(lo), vhi = _mm256_set1_pd(hi);
  const __m256d half = _mm256_set1_pd(0.5), mhalf = _mm256_set1_pd(-0.5);
  const __m256d one = _mm256_set1_pd(1.0);
  for (; x + 4 <= n; x += 4) {
    __m256d v = _mm256_mul_pd(_mm256_loadu_pd(s + x), vs);
    v = _mm256_min_pd(_mm256_max_pd(v, vlo), vhi);
    const __m256d t = _mm256_round_pd(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m256d f = _mm256_sub_pd(v, t);
    const __m256d up = _mm256_and_pd(_mm256_cmp_pd(f, half, _CMP_GE_OQ), one);
    const __m256d down = _mm256_and_pd(_mm256_cmp_pd(f, mhalf, _CMP_LE_OQ), one);
    const __m128i r = _mm256_cvttpd_epi32(_mm256_sub_pd(_mm256_add_pd(t, up), down));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), r);
  }
#elif defined(__SSE2__)
  const __m128d vs = _mm_set1_pd(scale), vlo = _mm_set1_pd(lo), vhi = _mm_set1_pd(hi);
  const __m128d half = _mm_set1_pd(0.5), mhalf = _mm_set1_pd(-0.5), one = _mm_set1_pd(1.0);
  for (; x + 2 <= n; x += 2) {
    __m128d v = _mm_mul_pd(_mm_loadu_pd(s + x), vs);
    v = _mm_min_pd(_mm_max_pd(v, vlo), vhi);
    const __m128d t = _mm_cvtepi32_pd(_mm_cvttpd_epi32(v));
    const __m128d f = _mm_sub_pd(v, t);
    const __m128d up = _mm_and_pd(_mm_cmpge_pd(f, half), one);
    const __m128d down = _mm_and_pd(_mm_cmple_pd(f, mhalf), one);
    const __m128i r = _mm_cvttpd_epi32(_mm_sub_pd(_mm_add_pd(t, up), down));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x), r);
  }
#endif
  for (; x < n; ++x) {
    double v = s[x] * scale;
    v = v < lo ? lo : v;
    v = v > hi ? hi : v;
    const std::int32_t t = static_cast<std::int32_t>(v);
    const double f = v - static_cast<double>(t);
    out[x] = t + (f >= 0.5) - (f <= -0.5);
  }
}

void runOneK(const Plan& P, double* r, double* i, double* wr, double* wi, double** outR,
             double** outI) {
  const auto out = run<1>(P, r, i, wr, wi);
  *outR = out.first;
  *outI = out.second;
}

}  // namespace

extern const Kernels MOX_FFT_KERNELS = {realRowsK, realColumnsK, complexColumnsK, cosineLinesK,
                                        roundRunK, runOneK};

}  // namespace mox::fft
