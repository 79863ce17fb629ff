// The kernels of moxDecimate, in fixed point with 8 fractional bits.
//
// Destination index d along an axis samples the source at
// s0 * 256 + d * step, step = L * 256 / U (truncated), plus 128 for nearest
// neighbour on an axis that is not integral (L a multiple of U); the
// position's integer part is the sample, its low 8 bits the fraction.
// Linear weighs its 2 x 2 samples by the fractions and rounds the sum
// (in 1/65536) half up; cubic runs the cubic through 4 samples along x on
// four rows, then along y, with t, t * t >> 8 and t * t * t >> 16, keeps
// the sums exact (in 1/1536 per axis) and rounds the result half up,
// clamped to the depth. An integral axis reads one sample (its fraction is
// always 0). Stencils are clamped to the source rectangle (its edge pixels
// repeat). The 16-bit kernels are the 8-bit ones in wider sums.
#include <algorithm>

#include "geom/decim.h"
#include "geom/rowloops.h"
#include "image/pointop.h"

namespace mox::geom {
namespace {

using i64 = long long;

constexpr Site at(int line) { return Site{"moxDecimate", "owndecim", line}; }

struct Axis {
  i64 s0, last, step, half;
  int taps;       // samples: 1 (nearest), 2 (linear), 4 (cubic)
  bool integral;  // the fraction is always 0: every sample is the first

  // The samples of destination index d (clamped to the rectangle) and the
  // fraction.
  void stencil(i64 d, i64* index, int* f) const {
    const i64 pos = (s0 << 8) + d * step + half;
    const i64 i = std::min(pos >> 8, last);
    *f = static_cast<int>(pos & 255);
    if (taps == 1 || integral) {
      for (int m = 0; m < taps; ++m) index[m] = i;
    } else if (taps == 2) {
      index[0] = i;
      index[1] = std::min(i + 1, last);
    } else {
      for (int m = 0; m < 4; ++m) index[m] = std::clamp(i - 1 + m, s0, last);
    }
  }
  i64 first(i64 d) const {
    i64 index[4] = {};
    int f;
    stencil(d, index, &f);
    return index[0];
  }
  i64 end(i64 d) const {
    i64 index[4] = {};
    int f;
    stencil(d, index, &f);
    return index[taps - 1] + 1;
  }
};

template <class D>
class Decim final : public Resampler {
 public:
  using T = typename D::T;
  Decim(const Job& job, const Axis& x, const Axis& y, int interpolate, Scratch& s)
      : job_(job), x_(x), y_(y), interpolate_(interpolate), s_(s) {}

  Box need(const Piece& p) const override {
    return Box{x_.first(p.dx0), y_.first(p.dy0), x_.end(p.dx1 - 1), y_.end(p.dy1 - 1)};
  }

  void run(const Piece& p, const Source& s) const override {
    auto row = [&](int r) { return y_.first(r); };
    auto column = [&](int j) { return x_.first(p.dx0 + j); };
    if constexpr (D::bits == 1) {
      copyNearestBits(p, s, column, row);
    } else {
      const int layers = layerCount(job_.src, job_.dst);
      for (int l = 0; l < layers; ++l) {
        const Layer layer = layerAt(job_.src, job_.dst, l);
        if (interpolate_ == MOX_INTER_NN) {
          fillOffsets(p.dx1 - p.dx0, s, layer, s_.offsets(), column);
          copyNearest<T>(p, s, layer, s_.offsets(), row, s_.weights<int>());
        } else {
          interpolate(p, s, layer);
        }
      }
    }
  }

 private:
  void interpolate(const Piece& p, const Source& s, const Layer& layer) const;

  const Job& job_;
  Axis x_, y_;
  int interpolate_;
  Scratch& s_;
};

template <class D>
void Decim<D>::interpolate(const Piece& p, const Source& s, const Layer& layer) const {
  if constexpr (D::bits == 8 || D::bits == 16) {
    const auto& loops = rowLoops().decim<T>();
    const int k = layer.k, width = p.dx1 - p.dx0, n = width * k;
    const int sps = pixelStride(s.view), dps = pixelStride(p.dst);
    const int taps = x_.taps;
    // The source pixels [first, end) of a row are read as 32-bit values, k
    // each; per value: the offsets of its x samples there (one run of n per
    // sample) and its x fraction.
    const i64 first = x_.first(p.dx0), end = x_.end(p.dx1 - 1);
    const int span = static_cast<int>(end - first);
    int* wide = s_.sourceRow<int>();
    int* offset = s_.offsets();
    int* fx = s_.weights<int>();
    for (int j = 0; j < width; ++j) {
      i64 index[4] = {};
      int f;
      x_.stencil(p.dx0 + j, index, &f);
      for (int c = 0; c < k; ++c) {
        const int e = j * k + c;
        for (int m = 0; m < taps; ++m) offset[m * n + e] = static_cast<int>((index[m] - first) * k + c);
        fx[e] = f;
      }
    }
    // Linear on 8-bit pixels whose values lie together reads the source
    // row in place through byte shuffles where the processor has them; the
    // plans of the two samples follow the fractions.
    const ByteLoops& bytes = rowLoops().bytes;
    const bool shuffled = sizeof(T) == 1 && taps == 2 && sps == k && bytes.decimLinearX;
    const int groups = n / 16;
    const BytePlan plan0{fx + n, reinterpret_cast<std::uint8_t*>(fx + n + 2 * groups)};
    const BytePlan plan1{fx + n + groups, plan0.masks + 32 * groups};
    if (shuffled) {
      planBytes(offset, n, span * k, plan0);
      planBytes(offset + n, n, span * k, plan1);
    }
    // Rows weighed along x, by source row: slot = row mod 4.
    int* rows = s_.rows<int>();
    i64 held[4] = {-1, -1, -1, -1};
    auto weighed = [&](i64 row) -> const int* {
      int* buf = rows + std::ptrdiff_t(row & 3) * n;
      if (held[row & 3] == row) return buf;
      held[row & 3] = row;
      const T* src = rowOf<T>(s.view, static_cast<int>(row - s.y0), layer.srcChannel);
      if (shuffled) {
        bytes.decimLinearX(reinterpret_cast<const std::uint8_t*>(src + (first - s.x0) * sps),
                           offset, fx, plan0, plan1, buf, n);
        return buf;
      }
      loops.widen(src + (first - s.x0) * sps, sps, k, wide, span);
      (taps == 2 ? loops.linearX : loops.cubicX)(wide, offset, fx, buf, n, k);
      return buf;
    };
    // Values of a pixel lie together in the destination when it takes all
    // of them; else they go through a line.
    T* line = dps == k ? nullptr : s_.line<T>();
    for (int r = p.dy0; r < p.dy1; ++r) {
      i64 index[4] = {};
      int fy;
      y_.stencil(r, index, &fy);
      const int* q[4];
      for (int m = 0; m < taps; ++m) q[m] = weighed(index[m]);
      T* out = rowOf<T>(p.dst, r - p.dy0, layer.dstChannel);
      T* target = line ? line : out;
      if (taps == 2)
        loops.linearY(q[0], q[1], fy, target, n);
      else
        loops.cubicY(q, fy, target, n, double(D::hi));
      if (line)
        for (int e = 0; e < n; ++e) out[std::ptrdiff_t(e) * dps] = line[e];
    }
  } else {
    (void)p, (void)s, (void)layer;
  }
}

Axis axisOf(i64 s0, i64 length, int u, int l, int interpolate) {
  const bool integral = l % u == 0;
  Axis a;
  a.s0 = s0;
  a.last = s0 + length - 1;
  a.step = (i64(l) * 256) / u;
  a.half = interpolate == MOX_INTER_NN && !integral ? 128 : 0;
  a.taps = interpolate == MOX_INTER_NN ? 1 : interpolate == MOX_INTER_LINEAR ? 2 : 4;
  a.integral = integral;
  return a;
}

template <class D>
void decimateAt(const Job& job, const Axis& x, const Axis& y, int interpolate, Scratch& s) {
  const Decim<D> kernel(job, x, y, interpolate, s);
  resample(job, kernel);
}

}  // namespace

void ownDecimate(const Job& job, int xU, int xL, int yU, int yL, int interpolate) {
  const MoxImage* src = job.src;
  if (src->width < 4 || src->height < 4 || (xL % xU == 0 && yL % yU == 0))
    interpolate = MOX_INTER_NN;
  const unsigned depth = src->depth;
  if (depth == MOX_DEPTH_1U) interpolate = MOX_INTER_NN;
  if (depth != MOX_DEPTH_1U && depth != MOX_DEPTH_8U && depth != MOX_DEPTH_16U)
    return report(at(375), "srcImage->depth is wrong");
  if (interpolate < MOX_INTER_NN || interpolate > MOX_INTER_CUBIC)
    return report(at(380), "interpolate is wrong");
  const Box sb = roiBox(src);
  const Axis x = axisOf(sb.x0, sb.x1 - sb.x0, xU, xL, interpolate);
  const Axis y = axisOf(sb.y0, sb.y1 - sb.y0, yU, yL, interpolate);
  Scratch scratch;
  if (!scratch.allocate(job))
    return report(at(395), "Out of memory", MOX_StsOutOfMemory);
  if (depth == MOX_DEPTH_1U)
    decimateAt<Bit>(job, x, y, interpolate, scratch);
  else if (depth == MOX_DEPTH_8U)
    decimateAt<U8>(job, x, y, interpolate, scratch);
  else
    decimateAt<U16>(job, x, y, interpolate, scratch);
}

}  // namespace mox::geom
