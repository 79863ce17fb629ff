// moxZoom: enlarges the source ROI into the destination ROI by xU/xL and
// yU/yL with nearest-neighbour, linear or cubic interpolation.
//
// Destination index d along an axis samples the source at p = s0 + d * L/U
// (s0: the first column or row of the source rectangle; no half-pixel
// centring). Nearest neighbour walks p in fixed point with 14 fractional
// bits. Linear and cubic first resample each source row they need along x
// into single-precision row buffers (computed in single precision), then
// combine the buffered rows along y in double precision; every result is
// truncated toward zero after adding 1e-7 and clamped to the depth's range.
// Linear keeps its two samples inside the source rectangle; cubic keeps its
// four inside the source image (moving the stencil back at the edges, so the
// cubic extrapolates there). Every depth has the same kernels.
//
// The destination pixels worked on are those of the destination rectangle
// whose positions fall inside the source rectangle.
#include <algorithm>
#include <cstdint>
#include <new>
#include <type_traits>

#include "geom/resample.h"
#include "geom/rowloops.h"
#include "image/pointop.h"

namespace {

using mox::Site;
using mox::View;
using mox::geom::Box;
using mox::geom::Piece;
using mox::geom::Source;
using i64 = long long;

constexpr const char* kFunc = "moxZoom";
constexpr const char* kFile = "moxZoom";
constexpr Site at(int line) { return Site{kFunc, kFile, line}; }

constexpr double kTolerance = 1e-7;
constexpr int kFixedBits = 14;

// Where one axis of the source is read from.
struct Axis {
  i64 s0, last;  // first and last index of the source rectangle
  i64 size;      // pixels of the whole source image along the axis
  double step;   // source pixels per destination pixel
  i64 fixedStep; // the step in 14-bit fixed point
  int interpolate;

  // The first sample of the stencil for destination index d, and the
  // fraction of the way to the next sample.
  i64 index(i64 d, double* t) const {
    if (interpolate == MOX_INTER_NN) {
      *t = 0;
      return std::min(((s0 << kFixedBits) + d * fixedStep) >> kFixedBits, last);
    }
    const double p = double(s0) + double(d) * step;
    i64 i = static_cast<i64>(p + kTolerance);
    if (interpolate == MOX_INTER_LINEAR) {
      i = std::min(i, last);
      if (i == last) i = std::max<i64>(i - 1, 0);
      *t = p - double(i);
      return i;
    }
    i = std::min(i, size - 1);
    if (i == 0)
      i = 1;
    else if (i == size - 1)
      i -= 2;
    else if (i == size - 2)
      i -= 1;
    *t = p - double(i);
    return i - 1;
  }
  // Samples of a stencil.
  int taps() const { return interpolate == MOX_INTER_NN ? 1 : interpolate == MOX_INTER_LINEAR ? 2 : 4; }
};

// Newton's forward-difference weights of the cubic through samples at -1,
// 0, 1, 2 evaluated at t.
template <class F>
struct Cubic {
  F c1, c2, c3;
};

template <class F>
inline Cubic<F> cubicAt(F t) {
  const F c2 = t * (1 + t) * F(0.5);
  return Cubic<F>{1 + t, c2, (t - 1) * c2 * (F(1) / F(3))};
}

class ZoomBase : public mox::geom::Resampler {
 public:
  ZoomBase(const MoxImage* src, MoxImage* dst, const Axis& x, const Axis& y, mox::geom::Scratch& s)
      : src_(src), dst_(dst), x_(x), y_(y), s_(s) {}

  Box need(const Piece& p) const override {
    double t;
    const i64 x0 = x_.index(p.dx0, &t), x1 = x_.index(p.dx1 - 1, &t) + x_.taps();
    const i64 y0 = y_.index(p.dy0, &t), y1 = y_.index(p.dy1 - 1, &t) + y_.taps();
    return Box{x0, y0, x1, y1};
  }

 protected:
  ~ZoomBase() = default;
  const MoxImage* src_;
  MoxImage* dst_;
  Axis x_, y_;
  mox::geom::Scratch& s_;
};

template <class D>
class Zoom final : public ZoomBase {
 public:
  using ZoomBase::ZoomBase;
  using T = typename D::T;

  void run(const Piece& p, const Source& s) const override {
    const int layers = mox::geom::layerCount(src_, dst_);
    for (int l = 0; l < layers; ++l) runLayer(p, s, mox::geom::layerAt(src_, dst_, l));
  }

 private:
  void runLayer(const Piece& p, const Source& s, const mox::geom::Layer& layer) const;
  void interpolate(const Piece& p, const Source& s, const mox::geom::Layer& layer) const;
};

template <class D>
void Zoom<D>::runLayer(const Piece& p, const Source& s, const mox::geom::Layer& layer) const {
  double t;
  auto row = [&](int r) { return y_.index(r, &t); };
  if constexpr (D::bits == 1) {
    (void)layer;
    mox::geom::copyNearestBits(p, s, [&](int j) { return x_.index(p.dx0 + j, &t); }, row);
  } else if (x_.taps() == 1) {
    mox::geom::fillOffsets(p.dx1 - p.dx0, s, layer, s_.offsets(),
                           [&](int j) { return x_.index(p.dx0 + j, &t); });
    mox::geom::copyNearest<T>(p, s, layer, s_.offsets(), row, s_.weights<int>());
  } else {
    interpolate(p, s, layer);
  }
}

// Source rows a piece must take for the byte shuffles' plans to pay.
constexpr i64 kPlannedRows = 128;

// Linear and cubic: source rows resampled along x into row buffers (kept
// by source row, slot = row mod taps), then combined along y.
template <class D>
void Zoom<D>::interpolate(const Piece& p, const Source& s, const mox::geom::Layer& layer) const {
  const auto& loops = mox::geom::rowLoops().of<T>();
  const int k = layer.k, width = p.dx1 - p.dx0, n = width * k;
  const int sps = mox::geom::pixelStride(s.view), dps = mox::geom::pixelStride(p.dst);
  const int taps = x_.taps();
  int* offset = s_.offsets();
  float* weight = s_.weights<float>();
  float* rows = s_.rows<float>();
  // The source pixels [first, end) of a row are read as floats, k values
  // each.
  double t;
  const i64 first = x_.index(p.dx0, &t), end = x_.index(p.dx1 - 1, &t) + taps;
  const int span = static_cast<int>(end - first);
  float* wide = s_.sourceRow<float>();
  for (int j = 0; j < width; ++j) {
    const int at = static_cast<int>(x_.index(p.dx0 + j, &t) - first) * k;
    const float tf = static_cast<float>(t);
    const Cubic<float> c = cubicAt(tf);
    for (int e = j * k; e < j * k + k; ++e) {
      offset[e] = at + e - j * k;
      weight[e] = taps == 4 ? c.c1 : tf;
      weight[n + e] = c.c2;
      weight[2 * n + e] = c.c3;
    }
  }
  // Linear on 8-bit pixels whose values lie together reads the source row
  // in place through byte shuffles where the processor has them: the
  // second samples' offsets follow the first ones', and the plans of both
  // follow the weights. Planning costs about as much as a row's pass, so
  // pieces of few source rows (small tiles) widen their rows instead.
  const mox::geom::ByteLoops& bytes = mox::geom::rowLoops().bytes;
  double unused;
  const i64 sourceRows = y_.index(p.dy1 - 1, &unused) - y_.index(p.dy0, &unused) + 2;
  const bool shuffled = std::is_same_v<T, std::uint8_t> && taps == 2 && sps == k &&
                        bytes.zoomLinearX && sourceRows >= kPlannedRows;
  const int groups = n / 16;
  auto* planned = reinterpret_cast<int*>(weight + n);
  const mox::geom::BytePlan plan0{planned, reinterpret_cast<std::uint8_t*>(planned + 2 * groups)};
  const mox::geom::BytePlan plan1{planned + groups, plan0.masks + 32 * groups};
  if (shuffled) {
    for (int e = 0; e < n; ++e) offset[n + e] = offset[e] + k;
    mox::geom::planBytes(offset, n, span * k, plan0);
    mox::geom::planBytes(offset + n, n, span * k, plan1);
  }
  i64 held[4] = {-1, -1, -1, -1};
  auto buffered = [&](i64 row) -> const float* {
    float* buf = rows + std::ptrdiff_t(row % taps) * n;
    if (held[row % taps] == row) return buf;
    held[row % taps] = row;
    const T* src = mox::geom::rowOf<T>(s.view, int(row - s.y0), layer.srcChannel);
    if (shuffled) {
      bytes.zoomLinearX(reinterpret_cast<const std::uint8_t*>(src + (first - s.x0) * sps), offset,
                        weight, plan0, plan1, buf, n);
      return buf;
    }
    loops.widen(src + (first - s.x0) * sps, sps, k, wide, span);
    (taps == 2 ? loops.linearX : loops.cubicX)(wide, offset, k, weight, buf, n);
    return buf;
  };
  // Values of a pixel lie together in the destination when it takes all
  // of them; else they go through a line.
  T* line = dps == k ? nullptr : s_.line<T>();
  const double lo = double(D::lo), hi = double(D::hi);
  for (int r = p.dy0; r < p.dy1; ++r) {
    double ty;
    const i64 sy = y_.index(r, &ty);
    T* out = mox::geom::rowOf<T>(p.dst, r - p.dy0, layer.dstChannel);
    T* target = line ? line : out;
    double ty1;
    if (taps == 2 && !line && r + 1 < p.dy1 && y_.index(r + 1, &ty1) == sy) {
      // The next row lies between the same source rows: both in one pass.
      loops.linearY2(buffered(sy), buffered(sy + 1), ty, ty1, out,
                     mox::geom::rowOf<T>(p.dst, r + 1 - p.dy0, layer.dstChannel), n, lo, hi);
      ++r;
      continue;
    }
    if (taps == 2) {
      loops.linearY(buffered(sy), buffered(sy + 1), ty, target, n, lo, hi);
    } else {
      const float* q[4];
      for (int m = 0; m < 4; ++m) q[m] = buffered(sy + m);
      const Cubic<double> c = cubicAt(ty);
      const double weights[3] = {c.c1, c.c2, c.c3};
      loops.cubicY(q, weights, target, n, lo, hi);
    }
    if (line)
      for (int e = 0; e < n; ++e) out[std::ptrdiff_t(e) * dps] = line[e];
  }
}

// Runs the zoom for one depth.
template <class D>
bool zoomAt(const mox::geom::Job& job, const Axis& x, const Axis& y, mox::geom::Scratch& s) {
  const Zoom<D> zoom(job.src, job.dst, x, y, s);
  return mox::geom::resample(job, zoom);
}

Axis axisOf(i64 s0, i64 length, i64 size, int u, int l, int interpolate) {
  Axis a;
  a.s0 = s0;
  a.last = s0 + length - 1;
  a.size = size;
  a.step = double(l) / double(u);
  a.fixedStep = static_cast<i64>(a.step * double(1 << kFixedBits));
  a.interpolate = interpolate;
  return a;
}

// Tile reports: a destination tile to write without data is the zoom's own
// report; the walk and the source reader report the rest at these lines.
constexpr mox::WalkLines kBothTiledLines{{}, {658, 661, 658, 661}};
constexpr mox::WalkLines kDstTiledLines{{}, {1031, 1034, 1031, 1034}};
const mox::WalkPlan kBothTiled{kFunc, kFile, &kBothTiledLines, false, true,
                               "Error get tile to write", MOX_StsUnknownError};
const mox::WalkPlan kDstTiled{kFunc, kFile, &kDstTiledLines, false, true,
                              "Error get tile to write", MOX_StsUnknownError};
const mox::SourceSites kBothTiledSource{kFunc, kFile, "srcImage", 657, 660, 657, 510};
const mox::SourceSites kSrcTiledSource{kFunc, kFile, "srcImage", 709, 712, 709, 510};

}  // namespace

extern "C" MOX_API void MOX_CALL moxZoom(const MoxImage* srcImage, MoxImage* dstImage, int xU,
                                         int xL, int yU, int yL, int interpolate,
                                         const int* point) {
  using mox::report;
  if (mox::badHeader(srcImage, at(494)) || mox::badHeader(dstImage, at(495))) return;
  bool failed = false;
  if (!srcImage) report(at(496), "srcImage==0"), failed = true;
  if (!dstImage) report(at(496), "dstImage==0"), failed = true;
  if (failed) return;
  const MoxImage* s = srcImage;
  const MoxImage* d = dstImage;
  const mox::geom::Check checks[] = {
      {!s->imageData && !s->tileInfo, 497,
       "srcImage->imageData == ((void*)(0)) && srcImage->tileInfo == ((void*)(0))"},
      {s->imageData && s->tileInfo, 498,
       "srcImage->imageData != ((void*)(0)) && srcImage->tileInfo != ((void*)(0))"},
      {!d->imageData && !d->tileInfo, 499,
       "dstImage->imageData == ((void*)(0)) && dstImage->tileInfo == ((void*)(0))"},
      {d->imageData && d->tileInfo, 500,
       "dstImage->imageData != ((void*)(0)) && dstImage->tileInfo != ((void*)(0))"},
      {interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR &&
           interpolate != MOX_INTER_CUBIC,
       501,
       "interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR && interpolate != "
       "MOX_INTER_CUBIC"},
      {s->depth != d->depth, 502, "srcImage->depth != dstImage->depth"},
      {s->dataOrder != d->dataOrder, 503, "srcImage->dataOrder != dstImage->dataOrder"},
      {xU <= 0 || xL <= 0, 504, "xU <= 0 || xL <= 0"},
      {yU <= 0 || yL <= 0, 505, "yU <= 0 || yL <= 0"},
      {xU < xL || yU < yL, 506, "xU < xL || yU < yL"},
  };
  for (const mox::geom::Check& c : checks)
    if (c.fails) return report(at(c.line), c.text);
  if (mox::geom::failsPlacement(s, d, kFunc, kFile, 507, 494, 495)) return;
  const MoxTileInfo *st = s->tileInfo, *dt = d->tileInfo;
  if (st && !st->callBack)
    return report(at(dt ? 526 : 710), "srcImage->tileInfo->callBack == ((void*)(0))");
  if (dt && !dt->callBack)
    return report(at(st ? 527 : 899), "dstImage->tileInfo->callBack == ((void*)(0))");

  // Positions and results are computed in the default rounding, whatever
  // the caller's.
  const mox::geom::FpScope fp;
  if (s->depth == MOX_DEPTH_1U || s->width < 2 || s->height < 2)
    interpolate = MOX_INTER_NN;
  else if ((s->width < 4 || s->height < 4) && interpolate == MOX_INTER_CUBIC)
    interpolate = MOX_INTER_LINEAR;

  const Box sb = mox::geom::roiBox(s);
  const Axis x = axisOf(sb.x0, sb.x1 - sb.x0, s->width, xU, xL, interpolate);
  const Axis y = axisOf(sb.y0, sb.y1 - sb.y0, s->height, yU, yL, interpolate);
  const mox::geom::Job job =
      mox::geom::jobOf(s, dstImage, xU, xL, yU, yL, point, st && dt ? &kBothTiled : &kDstTiled,
                       st && dt ? &kBothTiledSource : &kSrcTiledSource);

  mox::geom::Scratch scratch;
  if (!scratch.allocate(job))
    return report(at(510), "Out of memory", MOX_StsOutOfMemory);

  switch (s->depth) {
    case MOX_DEPTH_1U: zoomAt<mox::Bit>(job, x, y, scratch); break;
    case MOX_DEPTH_8U: zoomAt<mox::U8>(job, x, y, scratch); break;
    case MOX_DEPTH_8S: zoomAt<mox::S8>(job, x, y, scratch); break;
    case MOX_DEPTH_16U: zoomAt<mox::U16>(job, x, y, scratch); break;
    case MOX_DEPTH_16S: zoomAt<mox::S16>(job, x, y, scratch); break;
    default: zoomAt<mox::S32>(job, x, y, scratch); break;
  }
}
