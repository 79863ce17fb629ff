// What zoom and decimation share: the rectangles they work on, the channel
// layers a kernel runs over, the floating-point scope, and the driver that
// lets the destination walk hand out pieces (destination tiles, or the
// whole rectangle), cuts them into bands, has the source reader hand each
// band the source pixels its positions need as a plain view, and runs the
// kernel on it.
//
// A kernel never sees a tile: it gets a view of the destination piece and a
// view of a source rectangle together with where that rectangle starts in
// image coordinates, so plain and tiled images give the same bits.
#pragma once

#include <cfenv>
#include <cstddef>
#include <cstring>

#include "geom/rowloops.h"
#include "image/source.h"
#include "image/walk.h"

namespace mox::geom {

// A rectangle in image coordinates, end exclusive.
struct Box {
  long long x0, y0, x1, y1;
};

// The ROI clipped to the image (the whole image without one).
Box roiBox(const MoxImage* image);

// One argument check: the failed condition, its line and its text.
struct Check {
  bool fails;
  int line;
  const char* text;
};

// The checks both operations make after their own, each reporting at its
// line and returning true: a ROI that starts outside its image (source at
// `roiLine`, destination at roiLine + 1), channel counts that differ
// (roiLine + 2), and layouts that do not hold their rows (at the header
// lines).
bool failsPlacement(const MoxImage* s, const MoxImage* d, const char* func, const char* file,
                    int roiLine, int srcHeaderLine, int dstHeaderLine);

// Runs the body rounding to nearest and gives the caller's rounding mode back
// after. Only the rounding mode is switched: restoring a whole saved
// environment does not give the mode back on every system's runtime.
class FpScope {
 public:
  FpScope() : mode_(std::fegetround()) {
    if (mode_ != FE_TONEAREST) std::fesetround(FE_TONEAREST);
  }
  ~FpScope() {
    if (mode_ != FE_TONEAREST) std::fesetround(mode_);
  }
  FpScope(const FpScope&) = delete;
  FpScope& operator=(const FpScope&) = delete;

 private:
  int mode_;
};

// One run of channels a kernel resamples together: `k` channels that lie next
// to each other in every pixel (all channels of a pixel-order image, else 1),
// starting at channel `srcChannel` of the source and `dstChannel` of the
// destination (0-based).
struct Layer {
  int k;
  int srcChannel, dstChannel;
};

// The layers of a call: all channels in one layer (pixel order), one layer
// per channel (plane order), or the one channel of interest.
int layerCount(const MoxImage* src, const MoxImage* dst);
Layer layerAt(const MoxImage* src, const MoxImage* dst, int i);

// The first value of row y (relative to the view) of one channel of a view,
// and the distance in values from one pixel to the next.
template <class T>
inline T* rowOf(const View& v, int y, int channel) {
  char* row = v.data + std::ptrdiff_t(y) * v.widthStep;
  if (v.dataOrder == 1) return reinterpret_cast<T*>(row + std::ptrdiff_t(channel) * v.planeStep);
  return reinterpret_cast<T*>(row) + channel;
}
inline int pixelStride(const View& v) { return v.dataOrder == 1 ? 1 : v.nChannels; }

// Source pixels: a view of a rectangle that starts at image pixel (x0, y0).
struct Source {
  View view;
  long long x0, y0;
};

// One piece of destination work: the destination indices [dx0, dx1) x
// [dy0, dy1) counted from the destination rectangle's first pixel, and the
// view of those pixels.
struct Piece {
  int dx0, dy0, dx1, dy1;
  View dst;
};

// The value offsets, from the first value of a source row of the layer, of
// the samples at source columns column(j) (image coordinates) for the
// destination pixels j = 0 .. width - 1 of a piece: value e = j * k + c
// reads channel c of that pixel.
template <class Column>
void fillOffsets(int width, const Source& s, const Layer& layer, int* offset, Column column) {
  const int sps = pixelStride(s.view);
  for (int j = 0; j < width; ++j) {
    const long long base = (column(j) - s.x0) * sps;
    for (int c = 0; c < layer.k; ++c) offset[j * layer.k + c] = static_cast<int>(base + c);
  }
}

// The whole-pixel step of offsets that advance by the same number of
// values from pixel to pixel (an integral axis), else 0.
inline int evenStep(const int* offset, int pixels, int k) {
  if (pixels < 2) return 0;
  const int step = offset[k] - offset[0];
  for (int e = 0; e < pixels * k; ++e)
    if (offset[e] != offset[e % k] + (e / k) * step) return 0;
  return step;
}

// Copies pixels of k values from src, `step` values apart, to contiguous
// out; the common steps of halving get loops of their own.
template <class T>
void copyEven(const T* __restrict src, T* __restrict out, int pixels, int k, int step) {
  if (k == 1 && step == 2) {
    for (int j = 0; j < pixels; ++j) out[j] = src[2 * j];
  } else if (k == 3 && step == 6) {
    for (int j = 0; j < pixels; ++j)
      for (int c = 0; c < 3; ++c) out[3 * j + c] = src[6 * j + c];
  } else {
    for (int j = 0; j < pixels; ++j)
      for (int c = 0; c < k; ++c) out[j * k + c] = src[std::ptrdiff_t(j) * step + c];
  }
}

// Copies whole pixels of K values: pixel j from the offset of its first value.
template <class T, int K>
void copyPixels(const T* __restrict src, const int* __restrict offset, T* __restrict out,
                int pixels) {
  for (int j = 0; j < pixels; ++j) std::memcpy(out + j * K, src + offset[j * K], K * sizeof(T));
}

// Nearest neighbour: destination row r of the piece (indices dy0..dy1-1)
// takes source row row(r) at the offsets; a row that takes the same source
// row as the one before is copied from it. `spare` has room for 16 bytes
// per value (the plan of byte gathers).
template <class T, class Row>
void copyNearest(const Piece& p, const Source& s, const Layer& layer, const int* offset, Row row,
                 void* spare) {
  const int pixels = p.dx1 - p.dx0, n = pixels * layer.k;
  const int dps = pixelStride(p.dst);
  const bool together = dps == layer.k;
  const int even = together ? evenStep(offset, pixels, layer.k) : 0;
  // Bytes with offsets that are not evenly spaced go through byte shuffles
  // where the processor has them.
  const ByteLoops& bytes = rowLoops().bytes;
  BytePlan plan{static_cast<int*>(spare), static_cast<std::uint8_t*>(spare) + 4 * n};
  const bool shuffled = sizeof(T) == 1 && together && !even && bytes.gather;
  if (shuffled)
    planBytes(offset, n, s.view.width * pixelStride(s.view) - layer.srcChannel, plan);
  long long before = -1;
  const T* last = nullptr;
  for (int r = p.dy0; r < p.dy1; ++r) {
    const long long sr = row(r);
    T* out = rowOf<T>(p.dst, r - p.dy0, layer.dstChannel);
    if (together && sr == before) {
      std::memcpy(out, last, std::size_t(n) * sizeof(T));
      continue;
    }
    const T* src = rowOf<T>(s.view, static_cast<int>(sr - s.y0), layer.srcChannel);
    if (even)
      copyEven(src + offset[0], out, pixels, layer.k, even);
    else if (shuffled)
      bytes.gather(reinterpret_cast<const std::uint8_t*>(src), offset, plan,
                   reinterpret_cast<std::uint8_t*>(out), n);
    else if (together && layer.k == 3)
      copyPixels<T, 3>(src, offset, out, pixels);
    else if (together && layer.k == 4)
      copyPixels<T, 4>(src, offset, out, pixels);
    else if (together)
      for (int e = 0; e < n; ++e) out[e] = src[offset[e]];
    else
      for (int e = 0; e < n; ++e) out[std::ptrdiff_t(e) * dps] = src[offset[e]];
    before = sr, last = out;
  }
}

// Nearest neighbour on packed bits, pixel by pixel.
template <class Column, class Row>
void copyNearestBits(const Piece& p, const Source& s, Column column, Row row) {
  for (int r = p.dy0; r < p.dy1; ++r) {
    const auto* src = reinterpret_cast<const unsigned char*>(s.view.data) +
                      std::ptrdiff_t(row(r) - s.y0) * s.view.widthStep;
    auto* out = reinterpret_cast<unsigned char*>(p.dst.data) +
                std::ptrdiff_t(r - p.dy0) * p.dst.widthStep;
    for (int j = 0; j < p.dx1 - p.dx0; ++j) {
      const long long sx = column(j) - s.x0 + s.view.bitOffset;
      const int bit = (src[sx >> 3] >> (7 - (sx & 7))) & 1;
      const int dx = p.dst.bitOffset + j;
      const int mask = 0x80 >> (dx & 7);
      out[dx >> 3] = static_cast<unsigned char>(bit ? out[dx >> 3] | mask : out[dx >> 3] & ~mask);
    }
  }
}

// An operation's resampling: the source rectangle a piece needs (image
// coordinates; inside the source image), and the kernel.
class Resampler {
 public:
  virtual Box need(const Piece& piece) const = 0;
  virtual void run(const Piece& piece, const Source& source) const = 0;

 protected:
  ~Resampler() = default;
};

// One call: the images, the destination rectangle (its first pixel in image
// coordinates and the number of pixels processed), the optional point.
struct Job {
  const MoxImage* src;
  MoxImage* dst;
  long long dx, dy;
  int width, height;
  const int* point;
  const WalkPlan* walk;         // the destination walk, with a point mapping
  const SourceSites* source;    // the source reader's report sites
  // Pieces are at most this many destination pixels wide, so that a
  // kernel's row buffers stay bounded, and the source rows they read hold
  // at most this many values.
  int maxPieceWidth;
  long long sourceValues;
};

// Buffers of a call, from the library allocator, for pieces of up to
// `values` values per row: four source offsets, four 32-bit weights and
// four 32-bit row-buffer entries per value, one row of up to 32-bit values,
// and one source row as 32-bit values.
class Scratch {
 public:
  Scratch() = default;
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch();
  // False when the buffers for the pieces of the job cannot be had.
  bool allocate(const struct Job& job);
  template <class T>
  T* weights() const {
    return static_cast<T*>(weights_);
  }
  template <class T>
  T* rows() const {
    return static_cast<T*>(rows_);
  }
  int* offsets() const { return offsets_; }
  template <class T>
  T* line() const {
    return reinterpret_cast<T*>(static_cast<char*>(rows_) + values_ * 16);
  }
  template <class T>
  T* sourceRow() const {
    return reinterpret_cast<T*>(static_cast<char*>(rows_) + values_ * 20);
  }

 private:
  long long values_ = 0;
  int* offsets_ = nullptr;
  void* weights_ = nullptr;
  void* rows_ = nullptr;
};

// The job of a call: the destination ROI cut to the pixels whose positions
// fall inside the source ROI (indices d with d * L < length * U per axis),
// with pieces whose rows and source rows hold about 8192 values at most.
Job jobOf(const MoxImage* src, MoxImage* dst, int xU, int xL, int yU, int yL, const int* point,
          const WalkPlan* walk, const SourceSites* source);

// Walks the destination (its tiles, or the one point), cuts every piece to
// the pixels worked on and into bands, reads the source rectangle each band
// needs and runs the resampler on it. Returns false after a report.
bool resample(const Job& job, const Resampler& r);

}  // namespace mox::geom
