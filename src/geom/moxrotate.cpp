// moxRotate: the source rotated about (xCenter, yCenter) by angle/100
// degrees into the destination's rectangle.
//
// Destination pixel (row i, column j of the rectangle) stands for the source
// coordinates x = source rectangle's column + j, y = its row + i, and takes
// the source sample at the rotation of (x, y) about the centre:
//   xs = cosA * x - sinA * y + xShift,  ys = sinA * x + cosA * y + yShift,
// evaluated in single precision (cosA, sinA and the shifts are computed in
// double and rounded to float once per call; nearest neighbour adds 0.5 to
// the shifts). A position at or below -1e-7 has index -1, any other
// trunc(position + 1e-7); a pixel whose indices leave the source image is 0.
// Linear interpolation runs along x and then y in single precision; cubic
// runs the Newton form along x in single and along y in double precision;
// results are trunc(value + 1e-7), clamped to the depth.
//
// Whole turns are copies (moxCopy, with the caller's mapping); quarter and
// half turns map indices exactly and write only the pixels the rotated
// source covers.
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "frame/frame.h"
#include "frame/trig.h"
#include "geom/ownrotmir.h"
#include "image/source.h"
#include "image/turn.h"

namespace {

using mox::View;
using mox::geom::Rect;

constexpr const char* kFunc = "moxRotate";
constexpr const char* kFile = "moxRotat";
constexpr mox::Site at(int line) { return {kFunc, kFile, line}; }

constexpr int kLineSrcHeader = 73, kLineDstHeader = 74, kLineMatch = 75, kLineOrigin = 76,
              kLineSigned = 77, kLineInterpolate = 78, kLineChannels = 79, kLineCopy = 87,
              kLineMemory = 97;

// The destination walk: tile requests (mapping), then gets, releases and the
// final release of the destination's tiles; a get that leaves no tile is
// "Error get tile to write".
constexpr mox::WalkLines kWalkLines{{100, 101, 102, 103}, {104, 105, 106, 107}};
constexpr mox::WalkPlan kWalkPlan{kFunc, kFile, &kWalkLines, false, false,
                                  "Error get tile to write", MOX_StsUnknownError};
// The source reader: get, release, border (never used: positions are clamped
// to the image first) and scratch memory.
const mox::SourceSites kSourceSites{kFunc, kFile, "srcImage", 110, 111, 112, 113};

constexpr int kFullTurn = 36000;
constexpr double kTolerance = 1e-7;

// ---------------------------------------------------------------- sin, cos

// sin and cos of x in [0, 2 pi) in plain double arithmetic (the C library's
// differ between systems): x is reduced by the nearest multiple of pi/2,
// whose three parts have short enough mantissas for exact products, and the
// rest goes through the series of sinCosSmall.
void sinCos(double x, double* sn, double* cs) {
  constexpr double kTwoOverPi = 0.63661977236758134308;
  constexpr double kPiHalf1 = 1.57079632673412561417e+00;
  constexpr double kPiHalf2 = 6.07710050630396597660e-11;
  constexpr double kPiHalf3 = 2.02226624871116645580e-21;
  const int q = static_cast<int>(x * kTwoOverPi + 0.5);
  const double r = ((x - q * kPiHalf1) - q * kPiHalf2) - q * kPiHalf3;
  double s, c;
  mox::sinCosSmall(r, &s, &c);
  switch (q & 3) {
    case 0: *sn = s, *cs = c; break;
    case 1: *sn = c, *cs = -s; break;
    case 2: *sn = -s, *cs = -c; break;
    default: *sn = -c, *cs = s; break;
  }
}

// ---------------------------------------------------------------- the plan

struct Plan {
  int angle;  // 1..35999
  long long cx, cy;
  int interpolate;
  Rect src, dst;  // the rectangles; both have the common size
  int srcWidth, srcHeight;
  float cosA, sinA, xShift, yShift;
};

// Index of a source position: -1 at or below -1e-7, `size` from the end of
// the image on, else trunc(position + 1e-7).
inline int indexOf(float p, int size) {
  const double q = static_cast<double>(p);
  if (q <= -kTolerance) return -1;
  const double r = q + kTolerance;
  if (r >= static_cast<double>(size)) return size;
  return static_cast<int>(r);
}

template <class T>
inline T saturated(double v, double top) {
  const double w = v + kTolerance;
  if (!(w > 0.0)) return 0;
  if (w >= top) return static_cast<T>(top);
  return static_cast<T>(static_cast<int>(w));
}

// The cubic through p0..p3 (at -1, 0, 1, 2) at t, in Newton's
// forward-difference form, in the precision of F; the weights depend on t
// alone and are worked out once per position.
template <class F>
struct Newton {
  F c1, c2, c3;
  explicit Newton(F t)
      : c1(F(1) + t), c2(t * (F(1) + t) * F(0.5)), c3((t - F(1)) * c2 * (F(1) / F(3))) {}
  F operator()(F p0, F p1, F p2, F p3) const {
    const F d1 = p1 - p0;
    const F d2 = (p2 - p1) - d1;
    const F d3 = (p1 + p3 - F(2) * p2) - d2;
    return p0 + d1 * c1 + d2 * c2 + d3 * c3;
  }
};

// A source view and the image coordinates of its first pixel.
struct Source {
  View view;
  int x0, y0;
};

// Positions and indices of up to kChunk pixels of one destination row.
constexpr int kChunk = 256;

struct RowPositions {
  float xs[kChunk], ys[kChunk];
  int ix[kChunk], iy[kChunk];
};

#if defined(__SSE2__)
// indexOf on four positions: the same double operations, lane by lane.
inline __m128i indices4(__m128 p, __m128d size) {
  const __m128d tolerance = _mm_set1_pd(kTolerance), below = _mm_set1_pd(-kTolerance);
  const __m128d minusOne = _mm_set1_pd(-1.0);
  auto half = [&](__m128d q) {
    const __m128d negative = _mm_cmple_pd(q, below);
    const __m128d r = _mm_min_pd(_mm_add_pd(q, tolerance), size);
    return _mm_cvttpd_epi32(_mm_or_pd(_mm_and_pd(negative, minusOne), _mm_andnot_pd(negative, r)));
  };
  const __m128i lo = half(_mm_cvtps_pd(p)), hi = half(_mm_cvtps_pd(_mm_movehl_ps(p, p)));
  return _mm_unpacklo_epi64(lo, hi);
}
#endif

#if defined(MOX_GEOM_HAVE_WIDE)
// The map of row i's pixels from column j0 on, for the wide kernels; false
// when the source's sizes are more than float holds exactly.
bool rowMap(const Plan& p, int i, int j0, mox::geom::RowMap* m) {
  if (!mox::wideVectors() || p.srcWidth > (1 << 24) || p.srcHeight > (1 << 24)) return false;
  const float fy = static_cast<float>(static_cast<long long>(p.src.y) + i);
  *m = {p.cosA,  p.sinA,   p.sinA * fy, p.cosA * fy, p.xShift, p.yShift, p.src.x + j0,
        p.srcWidth, p.srcHeight};
  return true;
}
#endif

void positions(const Plan& p, int i, int j0, int n, RowPositions& r) {
  const float fy = static_cast<float>(static_cast<long long>(p.src.y) + i);
  const float a = p.sinA * fy, b = p.cosA * fy;
  const long long x0 = static_cast<long long>(p.src.x) + j0;
  int j = 0;
#if defined(MOX_GEOM_HAVE_WIDE)
  if (mox::geom::RowMap m; rowMap(p, i, j0, &m))
    j = mox::geom::positionsWide(m, n, r.xs, r.ys, r.ix, r.iy);
#endif
#if defined(__SSE2__)
  // x0 + j stays below 2^31: the rectangle lies in the image.
  const __m128 c = _mm_set1_ps(p.cosA), s = _mm_set1_ps(p.sinA), va = _mm_set1_ps(a);
  const __m128 vb = _mm_set1_ps(b), xShift = _mm_set1_ps(p.xShift), yShift = _mm_set1_ps(p.yShift);
  const __m128d width = _mm_set1_pd(p.srcWidth), height = _mm_set1_pd(p.srcHeight);
  const __m128i four = _mm_set1_epi32(4);
  __m128i x = _mm_add_epi32(_mm_set1_epi32(static_cast<int>(x0 + j)), _mm_setr_epi32(0, 1, 2, 3));
  for (; j + 4 <= n; j += 4, x = _mm_add_epi32(x, four)) {
    const __m128 fx = _mm_cvtepi32_ps(x);
    const __m128 xs = _mm_add_ps(_mm_sub_ps(_mm_mul_ps(c, fx), va), xShift);
    const __m128 ys = _mm_add_ps(_mm_add_ps(_mm_mul_ps(s, fx), vb), yShift);
    _mm_storeu_ps(r.xs + j, xs);
    _mm_storeu_ps(r.ys + j, ys);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r.ix + j), indices4(xs, width));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r.iy + j), indices4(ys, height));
  }
#endif
  for (; j < n; ++j) {
    const float fx = static_cast<float>(x0 + j);
    r.xs[j] = p.cosA * fx - a + p.xShift;
    r.ys[j] = p.sinA * fx + b + p.yShift;
    r.ix[j] = indexOf(r.xs[j], p.srcWidth);
    r.iy[j] = indexOf(r.ys[j], p.srcHeight);
  }
}

inline bool inside(const Plan& p, int ix, int iy) {
  return static_cast<unsigned>(ix) < static_cast<unsigned>(p.srcWidth) &&
         static_cast<unsigned>(iy) < static_cast<unsigned>(p.srcHeight);
}

// The first sample of run `so` at (ix, iy), image coordinates.
template <class T>
inline const T* sampleAddress(const Source& s, std::ptrdiff_t so, int ss, int ix, int iy) {
  return reinterpret_cast<const T*>(s.view.data + so + std::ptrdiff_t(iy - s.y0) * s.view.widthStep) +
         std::ptrdiff_t(ix - s.x0) * ss;
}

// Groups of eight pixels of 8-bit samples that the wide kernel did (none
// without it); the per-pixel loop skips them.
struct WideDone {
  bool done[kChunk / 8];
  int groups = 0;
  bool operator()(int j) const { return j / 8 < groups && done[j / 8]; }
};

template <class T, int K>
WideDone runWide([[maybe_unused]] int interpolate, [[maybe_unused]] const Source& s,
                 [[maybe_unused]] std::ptrdiff_t so, [[maybe_unused]] int ss,
                 [[maybe_unused]] T* out, [[maybe_unused]] int ds, [[maybe_unused]] int n,
                 [[maybe_unused]] const RowPositions& r) {
  WideDone w;
#if defined(MOX_GEOM_HAVE_WIDE)
  if constexpr (sizeof(T) == 1 && (K == 1 || K == 3)) {
    if (ss == K && ds == K && mox::wideVectors()) {
      const mox::geom::ByteSamples b{s.view.data + so, s.view.widthStep, s.x0, s.y0,
                                     s.view.width, s.view.height, r.xs, r.ys, r.ix, r.iy};
      auto* bytes = reinterpret_cast<std::uint8_t*>(out);
      if (interpolate == MOX_INTER_NN) {
        // Single bytes gathered in vectors are no faster than one by one.
        if constexpr (K == 3)
          mox::geom::nearestBytes3Wide(b, n, bytes, w.done);
        else
          return w;
      } else if (interpolate == MOX_INTER_LINEAR)
        mox::geom::linearBytesWide<K>(b, n, bytes, w.done);
      else
        mox::geom::cubicBytesWide<K>(b, n, bytes, w.done);
      w.groups = n / 8;
    }
  }
#endif
  return w;
}

// Nearest neighbour: k samples per pixel (K of them when K is not 0).
template <class T, int K>
void nearestRun(const Plan& p, const Source& s, std::ptrdiff_t so, int ss, T* out, int ds, int n,
                int count, const RowPositions& r) {
  const int k = K ? K : count;
  // An offset, not an address: a piece that samples nothing has no pixels.
  const std::ptrdiff_t base = so - std::ptrdiff_t(s.y0) * s.view.widthStep;
  const std::ptrdiff_t step = s.view.widthStep;
  const unsigned w = static_cast<unsigned>(p.srcWidth), h = static_cast<unsigned>(p.srcHeight);
  const WideDone wide = runWide<T, K>(MOX_INTER_NN, s, so, ss, out, ds, n, r);
  for (int j = 0; j < n; ++j, out += ds) {
    if (wide(j)) {  // the whole group of eight
      j += 7, out += 7 * ds;
      continue;
    }
    const int ix = r.ix[j], iy = r.iy[j];
    if (static_cast<unsigned>(ix) < w && static_cast<unsigned>(iy) < h) {
      const T* at = reinterpret_cast<const T*>(s.view.data + base + iy * step) +
                    std::ptrdiff_t(ix - s.x0) * ss;
      for (int c = 0; c < k; ++c) out[c] = at[c];
    } else {
      for (int c = 0; c < k; ++c) out[c] = 0;
    }
  }
}

// Linear: along x and then y in single precision, k samples per pixel.
template <class T, int K>
void linearRun(const Plan& p, const Source& s, std::ptrdiff_t so, int ss, T* out, int ds, int n,
               int count, const RowPositions& r) {
  const int k = K ? K : count;
  const double top = static_cast<double>(static_cast<T>(~T(0)));
  const std::ptrdiff_t down = s.view.widthStep / std::ptrdiff_t(sizeof(T));
  const WideDone wide = runWide<T, K>(MOX_INTER_LINEAR, s, so, ss, out, ds, n, r);
  for (int j = 0; j < n; ++j, out += ds) {
    if (wide(j)) {  // the whole group of eight
      j += 7, out += 7 * ds;
      continue;
    }
    int ix = r.ix[j], iy = r.iy[j];
    if (!inside(p, ix, iy)) {
      for (int c = 0; c < k; ++c) out[c] = 0;
      continue;
    }
    if (ix == p.srcWidth - 1) --ix;
    if (iy == p.srcHeight - 1) --iy;
    const float tx = r.xs[j] - static_cast<float>(ix), ty = r.ys[j] - static_cast<float>(iy);
    const T* q = sampleAddress<T>(s, so, ss, ix, iy);
    for (int c = 0; c < k; ++c) {
      const float a = q[c], b = q[ss + c], e = q[down + c], f = q[down + ss + c];
      const float r0 = a + (b - a) * tx, r1 = e + (f - e) * tx;
      out[c] = saturated<T>(static_cast<double>(r0 + (r1 - r0) * ty), top);
    }
  }
}

// Cubic: the Newton form along x in single precision over four rows, then
// along y in double precision, k samples per pixel.
template <class T, int K>
void cubicRun(const Plan& p, const Source& s, std::ptrdiff_t so, int ss, T* out, int ds, int n,
              int count, const RowPositions& r) {
  const int k = K ? K : count;
  const double top = static_cast<double>(static_cast<T>(~T(0)));
  const std::ptrdiff_t down = s.view.widthStep / std::ptrdiff_t(sizeof(T));
  auto centre = [](int i, int size) {
    return i == 0 ? 1 : i == size - 1 ? i - 2 : i == size - 2 ? i - 1 : i;
  };
  const WideDone wide = runWide<T, K>(MOX_INTER_CUBIC, s, so, ss, out, ds, n, r);
  for (int j = 0; j < n; ++j, out += ds) {
    if (wide(j)) {  // the whole group of eight
      j += 7, out += 7 * ds;
      continue;
    }
    int ix = r.ix[j], iy = r.iy[j];
    if (!inside(p, ix, iy)) {
      for (int c = 0; c < k; ++c) out[c] = 0;
      continue;
    }
    ix = centre(ix, p.srcWidth);
    iy = centre(iy, p.srcHeight);
    const Newton<float> across(r.xs[j] - static_cast<float>(ix));
    const Newton<double> down4(static_cast<double>(r.ys[j]) - iy);
    const T* q = sampleAddress<T>(s, so, ss, ix - 1, iy - 1);
    for (int c = 0; c < k; ++c) {
      double v[4];
      for (int m = 0; m < 4; ++m) {
        const T* row = q + m * down + c;
        v[m] = across(row[0], row[ss], row[2 * ss], row[3 * ss]);
      }
      out[c] = saturated<T>(down4(v[0], v[1], v[2], v[3]), top);
    }
  }
}

// One chunk of a destination row for depth T: every run of samples.
template <class T>
void rotateChunk(const Plan& p, const Source& s, const View& d, int row, int j0, int n,
                 const RowPositions& r) {
  char* dRow = d.data + std::ptrdiff_t(row) * d.widthStep;
  mox::geom::forEachRun(s.view, d, [&](std::ptrdiff_t so, int ss, std::ptrdiff_t dof, int ds,
                                       int count) {
    T* out = reinterpret_cast<T*>(dRow + dof) + std::ptrdiff_t(j0) * ds;
    using Run = void (*)(const Plan&, const Source&, std::ptrdiff_t, int, T*, int, int, int,
                         const RowPositions&);
    static constexpr Run kRuns[3][3] = {
        {&nearestRun<T, 1>, &nearestRun<T, 3>, &nearestRun<T, 0>},
        {&linearRun<T, 1>, &linearRun<T, 3>, &linearRun<T, 0>},
        {&cubicRun<T, 1>, &cubicRun<T, 3>, &cubicRun<T, 0>},
    };
    kRuns[p.interpolate][count == 1 ? 0 : count == 3 ? 1 : 2](p, s, so, ss, out, ds, n, count, r);
  });
}

// 1-bit images: nearest neighbour only.
void rotateBitChunk(const Plan& p, const Source& s, const View& d, int row, int j0, int n,
                    const RowPositions& r) {
  unsigned char bits[kChunk / 8] = {};
  for (int j = 0; j < n; ++j) {
    if (!inside(p, r.ix[j], r.iy[j])) continue;
    const auto* src = reinterpret_cast<const unsigned char*>(
        s.view.data + std::ptrdiff_t(r.iy[j] - s.y0) * s.view.widthStep);
    const std::ptrdiff_t bit = std::ptrdiff_t(s.view.bitOffset) + (r.ix[j] - s.x0);
    if ((src[bit >> 3] >> (7 - (bit & 7))) & 1) bits[j >> 3] |= static_cast<unsigned char>(0x80 >> (j & 7));
  }
  mox::writeBits(d, row, j0, n, bits);
}

using ChunkKernel = void (*)(const Plan&, const Source&, const View&, int, int, int,
                             const RowPositions&);

// Nearest neighbour on one-byte samples, one per pixel, goes from the
// row's map straight to the samples, without the positions a chunk keeps
// for the other kernels: n pixels of rectangle row i from its column j on,
// to row y of d from column x on. Returns how many it did.
int nearestBytes([[maybe_unused]] const Plan& p, [[maybe_unused]] const Source& s,
                 [[maybe_unused]] const View& d, [[maybe_unused]] int i, [[maybe_unused]] int j,
                 [[maybe_unused]] int y, [[maybe_unused]] int x, [[maybe_unused]] int n) {
#if defined(MOX_GEOM_HAVE_WIDE)
  // (A piece that samples nothing has no view to read.)
  if (p.interpolate != MOX_INTER_NN || mox::depthBits(d.depth) != 8 || s.view.width < 1 ||
      s.view.height < 1)
    return 0;
  const mox::geom::RowShape a = mox::geom::rowShape(s.view), b = mox::geom::rowShape(d);
  if (a.lanes != 1 || b.lanes != 1 || a.count != 1 || b.count != 1 || a.stride != 1 ||
      b.stride != 1)
    return 0;
  mox::geom::RowMap m;
  if (!rowMap(p, i, j, &m)) return 0;
  const mox::geom::ByteSamples samples{s.view.data + a.offset, s.view.widthStep, s.x0, s.y0,
                                       s.view.width, s.view.height, nullptr, nullptr, nullptr,
                                       nullptr};
  auto* out = reinterpret_cast<std::uint8_t*>(d.data + std::ptrdiff_t(y) * d.widthStep + b.offset) + x;
  return mox::geom::nearestBytesWide(m, samples, n, out);
#else
  return 0;
#endif
}

// Any angle but the quarter turns, on the destination piece d whose first
// pixel is (px, py) in destination image coordinates.
void rotatePiece(const Plan& p, const Source& s, const View& d, int px, int py) {
  const ChunkKernel kernel = mox::depthBits(d.depth) == 1 ? &rotateBitChunk
                             : mox::depthBits(d.depth) == 8 ? &rotateChunk<std::uint8_t>
                                                              : &rotateChunk<std::uint16_t>;
  RowPositions r;
  for (int y = 0; y < d.height; ++y) {
    const int i = py + y - p.dst.y;
    for (int x0 = 0, n = 0; x0 < d.width; x0 += n) {
      n = d.width - x0 < kChunk ? d.width - x0 : kChunk;
      const int done = nearestBytes(p, s, d, i, px + x0 - p.dst.x, y, x0, n);
      if (done == n) continue;
      positions(p, i, px + x0 + done - p.dst.x, n - done, r);
      kernel(p, s, d, y, x0 + done, n - done, r);
    }
  }
}

// ---------------------------------------------------------------- quarter turns

// Source column and row of the rectangle's pixel (i, j) after a quarter or
// half turn, as exact integers: x = sx + j, y = sy + i.
struct Exact {
  long long xi, xj, x0;  // xs = x0 + xi * i + xj * j
  long long yi, yj, y0;  // ys = y0 + yi * i + yj * j
};

Exact exactMap(const Plan& p) {
  const long long x = p.src.x, y = p.src.y, cx = p.cx, cy = p.cy;
  switch (p.angle) {
    case 9000: return {-1, 0, cx + cy - y, 0, 1, x - cx + cy};
    case 18000: return {0, -1, 2 * cx - x, -1, 0, 2 * cy - y};
    default: return {1, 0, cx - cy + y, 0, -1, cx + cy - x};
  }
}

// The range of j in [0, w) for which a + b * j lies in [0, size); empty
// when lo > hi.
void validRange(long long a, long long b, int size, int w, long long* lo, long long* hi) {
  *lo = 0, *hi = w - 1;
  if (b == 0) {
    if (a < 0 || a >= size) *lo = 1, *hi = 0;
    return;
  }
  // b is 1 or -1.
  const long long first = b > 0 ? -a : a - (size - 1), last = b > 0 ? size - 1 - a : a;
  if (first > *lo) *lo = first;
  if (last < *hi) *hi = last;
}

// Copies n pixels from a source column (rows `rowStep` bytes apart) into a
// destination row.
template <class T, int K>
void columnToRow(const char* s, std::ptrdiff_t rowStep, T* d, int ds, int n, int count) {
  const int k = K ? K : count;
  for (int j = 0; j < n; ++j, s += rowStep, d += ds)
    for (int c = 0; c < k; ++c) d[c] = reinterpret_cast<const T*>(s)[c];
}

// Destination row y of the piece, columns lo..hi (cut to the pixels the
// turned source covers).
template <class T>
void quarterSpan(const Plan& p, const Source& s, const View& d, int px, int py, const Exact& e,
                 int y, long long lo, long long hi) {
  const long long i = py + y - p.dst.y, jBase = px - p.dst.x;
  const long long xs = e.x0 + e.xi * i, ys0 = e.y0 + e.yi * i + e.yj * jBase;
  if (xs < 0 || xs >= p.srcWidth) return;
  long long first, last;
  validRange(ys0, e.yj, p.srcHeight, d.width, &first, &last);
  if (lo < first) lo = first;
  if (hi > last) hi = last;
  if (lo > hi) return;
  const long long ys = ys0 + e.yj * lo;
  const std::ptrdiff_t rowStep = e.yj * std::ptrdiff_t(s.view.widthStep);
  char* dRow = d.data + std::ptrdiff_t(y) * d.widthStep;
  const char* sAt = s.view.data + std::ptrdiff_t(ys - s.y0) * s.view.widthStep;
  mox::geom::forEachRun(s.view, d, [&](std::ptrdiff_t so, int ss, std::ptrdiff_t dof, int ds,
                                       int count) {
    const char* from = sAt + so + std::ptrdiff_t(xs - s.x0) * ss * std::ptrdiff_t(sizeof(T));
    T* to = reinterpret_cast<T*>(dRow + dof) + lo * ds;
    const int n = static_cast<int>(hi - lo + 1);
    if (count == 1)
      columnToRow<T, 1>(from, rowStep, to, ds, n, 1);
    else
      columnToRow<T, 0>(from, rowStep, to, ds, n, count);
  });
}

// Pixels whose samples lie together in both images (all channels of pixel
// order, or a single channel): the covered part (rows ya..yb, columns
// ja..jb of the piece) is a turned rectangle of the source. Its rows are
// the source rows of the destination columns, from column ja's on (going
// up the source when the turn reverses them); its columns are the source
// columns from the leftmost on, and they fill the destination rows from
// the first on, or from the last up when the turn runs the columns the
// other way.
void quarterTurned(const Plan& p, const Source& s, const View& d, int px, int py, const Exact& e,
                   int pix, long long ya, long long yb, long long ja, long long jb) {
  const long long xa = e.x0 + e.xi * (py + ya - p.dst.y), xb = e.x0 + e.xi * (py + yb - p.dst.y);
  const long long ys = e.y0 + e.yj * (px + ja - p.dst.x);
  const char* from = s.view.data + mox::geom::rowShape(s.view).offset +
                     std::ptrdiff_t(ys - s.y0) * s.view.widthStep +
                     std::ptrdiff_t((xa < xb ? xa : xb) - s.x0) * pix;
  char* to = d.data + mox::geom::rowShape(d).offset + std::ptrdiff_t(e.xi > 0 ? ya : yb) * d.widthStep +
             std::ptrdiff_t(ja) * pix;
  mox::turnPixels(from, e.yj * std::ptrdiff_t(s.view.widthStep), static_cast<int>(yb - ya + 1),
                  static_cast<int>(jb - ja + 1), pix, to, e.xi * std::ptrdiff_t(d.widthStep));
}

template <class T>
void quarterRows(const Plan& p, const Source& s, const View& d, int px, int py, const Exact& e) {
  const mox::geom::RowShape a = mox::geom::rowShape(s.view), b = mox::geom::rowShape(d);
  // The covered part is a rectangle: rows whose source column lies in the
  // image, columns whose source row does.
  long long ya, yb, ja, jb;
  validRange(e.x0 + e.xi * (py - p.dst.y), e.xi, p.srcWidth, d.height, &ya, &yb);
  validRange(e.y0 + e.yj * (px - p.dst.x), e.yj, p.srcHeight, d.width, &ja, &jb);
  if (ya > yb || ja > jb) return;
  if (a.lanes == 1 && b.lanes == 1 && a.count == b.count && a.stride == a.count && b.stride == b.count)
    return quarterTurned(p, s, d, px, py, e, a.count * int(sizeof(T)), ya, yb, ja, jb);
  // Rows in bands and columns in blocks, so that a band's source columns
  // stay in the cache while it is written.
  constexpr int kBand = 16, kBlock = 64;
  for (int y0 = 0; y0 < d.height; y0 += kBand) {
    const int y1 = d.height - y0 < kBand ? d.height : y0 + kBand;
    for (int x0 = 0; x0 < d.width; x0 += kBlock) {
      const int x1 = d.width - x0 < kBlock ? d.width : x0 + kBlock;
      for (int y = y0; y < y1; ++y) quarterSpan<T>(p, s, d, px, py, e, y, x0, x1 - 1);
    }
  }
}

void quarterBits(const Plan& p, const Source& s, const View& d, int px, int py, const Exact& e) {
  for (int y = 0; y < d.height; ++y) {
    const long long i = py + y - p.dst.y, jBase = px - p.dst.x;
    for (int x = 0; x < d.width; ++x) {
      const long long xs = e.x0 + e.xi * i + e.xj * (jBase + x);
      const long long ys = e.y0 + e.yi * i + e.yj * (jBase + x);
      if (xs < 0 || xs >= p.srcWidth || ys < 0 || ys >= p.srcHeight) continue;
      const auto* src = reinterpret_cast<const unsigned char*>(
          s.view.data + std::ptrdiff_t(ys - s.y0) * s.view.widthStep);
      const std::ptrdiff_t bit = std::ptrdiff_t(s.view.bitOffset) + (xs - s.x0);
      const unsigned char value = static_cast<unsigned char>(((src[bit >> 3] >> (7 - (bit & 7))) & 1) << 7);
      mox::writeBits(d, y, x, 1, &value);
    }
  }
}

void halfTurn(const Plan& p, const Source& s, const View& d, int px, int py, const Exact& e) {
  const mox::geom::RowCopy copy = mox::geom::rowCopyFor(d.depth);
  for (int y = 0; y < d.height; ++y) {
    const long long i = py + y - p.dst.y, jBase = px - p.dst.x;
    const long long ys = e.y0 + e.yi * i;
    if (ys < 0 || ys >= p.srcHeight) continue;
    long long lo, hi;
    validRange(e.x0 - jBase, -1, p.srcWidth, d.width, &lo, &hi);
    if (lo > hi) continue;
    // Destination columns lo..hi take source columns from xs(hi) up to
    // xs(lo), backwards.
    const long long xFirst = e.x0 - (jBase + hi);
    const View from = mox::geom::shifted(s.view, static_cast<int>(xFirst - s.x0),
                                         static_cast<int>(ys - s.y0));
    const View to = mox::geom::shifted(d, static_cast<int>(lo), y);
    copy(from, 0, to, 0, static_cast<int>(hi - lo + 1), true);
  }
}

void exactPiece(const Plan& p, const Source& s, const View& d, int px, int py) {
  const Exact e = exactMap(p);
  if (p.angle == 18000) return halfTurn(p, s, d, px, py, e);
  switch (mox::depthBits(d.depth)) {
    case 1: return quarterBits(p, s, d, px, py, e);
    case 8: return quarterRows<std::uint8_t>(p, s, d, px, py, e);
    default: return quarterRows<std::uint16_t>(p, s, d, px, py, e);
  }
}

bool exactTurn(int angle) { return angle == 9000 || angle == 18000 || angle == 27000; }

// What the walk's pieces need: the plan and where source pixels come from
// (the reader of a tiled source, else a plain view of the whole source).
struct Job {
  const Plan* plan;
  mox::SourceReader* reader;
  Source whole;
};

// The source rectangle that destination block (x, y, w, h) samples, with
// the interpolation's neighbours, cut to the source image; false when the
// block samples no source pixel.
bool sourceBox(const Plan& p, int x, int y, int w, int h, Rect* box) {
  const long long i0 = y - p.dst.y, i1 = i0 + h - 1, j0 = x - p.dst.x, j1 = j0 + w - 1;
  double lo[2] = {1e300, 1e300}, hi[2] = {-1e300, -1e300};
  for (long long i : {i0, i1})
    for (long long j : {j0, j1}) {
      double at[2];
      if (exactTurn(p.angle)) {
        const Exact e = exactMap(p);
        at[0] = static_cast<double>(e.x0 + e.xi * i + e.xj * j);
        at[1] = static_cast<double>(e.y0 + e.yi * i + e.yj * j);
      } else {
        // The same float operations as the kernel: positions are monotonic
        // in each coordinate, so the corners hold the extremes.
        const float fy = static_cast<float>(p.src.y + i), fx = static_cast<float>(p.src.x + j);
        at[0] = p.cosA * fx - p.sinA * fy + p.xShift;
        at[1] = p.sinA * fx + p.cosA * fy + p.yShift;
      }
      for (int k = 0; k < 2; ++k) {
        lo[k] = at[k] < lo[k] ? at[k] : lo[k];
        hi[k] = at[k] > hi[k] ? at[k] : hi[k];
      }
    }
  const double size[2] = {static_cast<double>(p.srcWidth), static_cast<double>(p.srcHeight)};
  int first[2], last[2];
  for (int k = 0; k < 2; ++k) {
    const double a = std::floor(lo[k]) - 3, b = std::floor(hi[k]) + 3;
    if (b < 0 || a > size[k] - 1) return false;
    first[k] = a < 0 ? 0 : static_cast<int>(a);
    last[k] = b > size[k] - 1 ? static_cast<int>(size[k]) - 1 : static_cast<int>(b);
  }
  *box = {first[0], first[1], last[0] - first[0] + 1, last[1] - first[1] + 1};
  return true;
}

// One destination piece: its part inside the rectangle, in blocks (the
// reader fetches each block's source rectangle; the exact turns of a plain
// source take the piece whole).
bool rotateDestination(const View& dst, int x, int y, void* arg) {
  const Job& job = *static_cast<const Job*>(arg);
  const Plan& p = *job.plan;
  const int x0 = x > p.dst.x ? x : p.dst.x, y0 = y > p.dst.y ? y : p.dst.y;
  const long long xe = static_cast<long long>(x) + dst.width;
  const long long ye = static_cast<long long>(y) + dst.height;
  const int x1 = static_cast<int>(xe < p.dst.x + p.dst.w ? xe : p.dst.x + p.dst.w);
  const int y1 = static_cast<int>(ye < p.dst.y + p.dst.h ? ye : p.dst.y + p.dst.h);
  // Blocks of a plain source are as wide as a chunk of positions: a whole
  // destination row would sample a diagonal across as many source rows as
  // the image has, and leave the caches before the next row comes back to
  // its pixels.
  const int wide = job.reader ? 128 : exactTurn(p.angle) ? INT_MAX : kChunk;
  const int high = job.reader ? 128 : exactTurn(p.angle) ? INT_MAX : 64;
  for (int by = y0; by < y1; by += y1 - by < high ? y1 - by : high)
    for (int bx = x0; bx < x1; bx += x1 - bx < wide ? x1 - bx : wide) {
      View d = mox::geom::shifted(dst, bx - x, by - y);
      d.width = x1 - bx < wide ? x1 - bx : wide;
      d.height = y1 - by < high ? y1 - by : high;
      Source s = job.whole;
      if (job.reader) {
        Rect box;
        if (sourceBox(p, bx, by, d.width, d.height, &box)) {
          if (!job.reader->read(box.x, box.y, box.w, box.h, &s.view)) return false;
          s.x0 = box.x, s.y0 = box.y;
        } else {
          s.view.width = s.view.height = 0;  // nothing is sampled
        }
      }
      if (exactTurn(p.angle))
        exactPiece(p, s, d, bx, by);
      else
        rotatePiece(p, s, d, bx, by);
    }
  return true;
}

// A plain copy of the whole source, for a source that shares its pixels
// (or its tiles) with the destination. False after a report.
bool copySource(const MoxImage* src, mox::SourceReader& reader, mox::geom::Buffer* copy,
                Source* out) {
  View v;
  if (!reader.read(0, 0, src->width, src->height, &v)) return false;
  *copy = mox::geom::allocate(mox::geom::rowBytes(v) * src->height);
  if (!*copy) {
    mox::report(at(kLineMemory), "Out of memory", MOX_StsOutOfMemory);
    return false;
  }
  const View t = mox::geom::packedLike(v, copy->get(), src->height);
  const mox::geom::RowCopy rows = mox::geom::rowCopyFor(src->depth);
  for (int y = 0; y < src->height; ++y) rows(v, y, t, y, src->width, false);
  *out = {t, 0, 0};
  return true;
}

// The rest of a call whose checks passed and whose angle is not a whole
// number of turns.
void rotate(const MoxImage* src, MoxImage* dst, int angle, int xCenter, int yCenter,
            int interpolate, const int* mapping) {
  Plan p{};
  p.angle = angle;
  p.cx = xCenter;
  p.cy = yCenter;
  p.srcWidth = src->width;
  p.srcHeight = src->height;
  if (src->depth == MOX_DEPTH_1U || src->width == 1 || src->height == 1)
    interpolate = MOX_INTER_NN;
  else if (interpolate == MOX_INTER_CUBIC && (src->width < 4 || src->height < 4))
    interpolate = MOX_INTER_LINEAR;
  p.interpolate = interpolate;
  if (src->origin == MOX_ORIGIN_BL) {
    p.cy = static_cast<long long>(src->height) - 1 - yCenter;
    p.angle = kFullTurn - angle;
  }
  p.src = mox::geom::clippedRect(src);
  p.dst = mox::geom::clippedRect(dst);
  const int w = p.src.w < p.dst.w ? p.src.w : p.dst.w, h = p.src.h < p.dst.h ? p.src.h : p.dst.h;
  if (w < 1 || h < 1) return;
  p.src.w = p.dst.w = w;
  p.src.h = p.dst.h = h;

  const mox::geom::NearestRounding nearest;
  if (!exactTurn(p.angle)) {
    const double radians = p.angle * 0.01 * (1.0 / 180.0) * 3.14159265358979323846;
    double s, c;
    sinCos(radians, &s, &c);
    const double cx = static_cast<double>(p.cx), cy = static_cast<double>(p.cy);
    double xShift = cx - c * cx + s * cy, yShift = cy - s * cx - c * cy;
    if (p.interpolate == MOX_INTER_NN) xShift += 0.5, yShift += 0.5;
    p.cosA = static_cast<float>(c);
    p.sinA = static_cast<float>(s);
    p.xShift = static_cast<float>(xShift);
    p.yShift = static_cast<float>(yShift);
  }
  mox::SourceReader reader(src, mox::Edge::kClamp, kSourceSites);
  Job job{&p, nullptr, {mox::geom::viewOf(src, {0, 0, src->width, src->height}), 0, 0}};
  // A source that shares pixels or tiles with the destination is read from
  // a copy, so that no sample is read after it was written.
  mox::geom::Buffer copy;
  const bool shared =
      src->tileInfo ? src->tileInfo == dst->tileInfo
                    : !dst->tileInfo &&
                          mox::geom::overlap(job.whole.view, mox::geom::viewOf(dst, p.dst));
  if (shared) {
    if (!copySource(src, reader, &copy, &job.whole)) return;
  } else if (src->tileInfo) {
    job.reader = &reader;
  }
  mox::walkDestination(kWalkPlan, {dst, "dstImage", true}, mapping, &rotateDestination, &job);
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxRotate(const MoxImage* srcImage, MoxImage* dstImage, int angle,
                                           int xCenter, int yCenter, int interpolate,
                                           const int* mapping) {
  if (mox::badHeader(srcImage, at(kLineSrcHeader)) ||
      mox::badLayout(srcImage, "srcImage", at(kLineSrcHeader)) ||
      mox::badHeader(dstImage, at(kLineDstHeader)) ||
      mox::badLayout(dstImage, "dstImage", at(kLineDstHeader)))
    return;
  // These report and let the later checks run; the work is skipped after
  // any of them.
  bool failed = false;
  auto check = [&failed](bool fails, int line, const char* message) {
    if (!fails) return;
    mox::report(at(line), message);
    failed = true;
  };
  check(srcImage->depth != dstImage->depth, kLineMatch, "srcImage->depth != dstImage->depth");
  check(srcImage->dataOrder != dstImage->dataOrder, kLineMatch,
        "srcImage->dataOrder != dstImage->dataOrder");
  check(srcImage->origin != dstImage->origin, kLineMatch, "srcImage->origin != dstImage->origin");
  if (srcImage->origin != dstImage->origin)
    return mox::report(at(kLineOrigin), "srcImage->origin != dstImage->origin");
  check((srcImage->depth & MOX_DEPTH_SIGN) != 0, kLineSigned, "srcImage->depth & MOX_DEPTH_SIGN");
  check(interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR &&
            interpolate != MOX_INTER_CUBIC,
        kLineInterpolate,
        "interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR && "
        "interpolate != MOX_INTER_CUBIC");
  check(mox::workChannels(srcImage) != mox::workChannels(dstImage), kLineChannels,
        "nChSrc != nChDst");
  if (failed) return;

  angle %= kFullTurn;
  if (angle < 0) angle += kFullTurn;
  if (angle == 0) {
    // A status left by an earlier call must not pass for the copy's.
    const int before = moxGetErrStatus();
    moxSetErrStatus(MOX_StsNoError);
    moxCopy(srcImage, dstImage, mapping);
    if (moxGetErrStatus() < 0) return mox::report(at(kLineCopy), "", MOX_StsBacktrace);
    moxSetErrStatus(before);
    return;
  }
  rotate(srcImage, dstImage, angle, xCenter, yCenter, interpolate, mapping);
}
