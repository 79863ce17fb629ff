// Internal interface of the conversion family: the depth conversion that
// moxConvert, moxBitonalToGray and the bitmap code share, the quantiser with
// its dithers, and the reading and writing of packed bitmaps.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/pointop.h"

namespace mox::convert {

// ---------------------------------------------------------------- channels

// Channel c (0-based, among the channels the view works on) of row y: its
// first value and the distance between values, in values.
struct Run {
  char* p;
  std::ptrdiff_t stride;
};

inline Run channelRun(const View& v, int y, int c, int valueBytes) {
  const int chan = v.coi ? v.coi - 1 : c;
  char* row = v.data + std::ptrdiff_t(y) * v.widthStep;
  if (v.dataOrder == 0) return {row + std::ptrdiff_t(chan) * valueBytes, v.nChannels};
  return {row + std::ptrdiff_t(chan) * v.planeStep, 1};
}

inline int viewChannels(const View& v) { return v.coi ? 1 : v.nChannels; }

// ---------------------------------------------------------------- conversion

// What a conversion writes for the source bits 0 and 1 (1-bit sources), as
// values of the destination's range.
struct BitValues {
  long long zero, one;
};

// Runs the depth conversion of src into dst over their common rectangle (the
// walk, plain or tiled), reporting tile trouble at the lines given under the
// images' argument names. Both
// images must have passed their checks and have the same working channel
// count. Returns false after a report.
bool convertImage(const WalkPlan& plan, const MoxImage* src, const char* srcName, MoxImage* dst,
                  const char* dstName, const BitValues& bits);

// The bit values moxConvert uses for a destination depth: 0 and the maximum.
BitValues plainBits(unsigned dstDepth);

// ---------------------------------------------------------------- quantiser

// Error diffusion, ordered dither and jitter over rows of `channels` values
// (doubles, interleaved). The caller hands in one row at a time, top to
// bottom; `quantise` replaces the values of a pixel with the nearest
// representable ones.
class Ditherer {
 public:
  // kind: MOX_DITHER_*; noise: percent of `step` for the jitter; step: the
  // distance of neighbouring levels per channel (for the ordered dither and
  // the jitter).
  Ditherer(int kind, int noise, int width, int channels, const double* step);
  ~Ditherer();
  Ditherer(const Ditherer&) = delete;
  Ditherer& operator=(const Ditherer&) = delete;

  bool ok() const { return err_ != nullptr; }

  // Quantises row y in place; q(pixel values, out values) picks the level.
  template <class Q>
  void row(double* values, int y, Q&& q);

 private:
  void offset(double* adj, int x, int y);
  void spread(const double* e, int x);
  void nextRow();

  int kind_, noise_, width_, channels_;
  double step_[4];
  double* err_;  // three rows of (width + 4) pixels of errors
  std::uint32_t random_;
};

template <class Q>
void Ditherer::row(double* values, int y, Q&& q) {
  const int n = channels_;
  for (int x = 0; x < width_; ++x) {
    double* v = values + std::ptrdiff_t(x) * n;
    double want[4], adj[4], got[4] = {};
    const double* carried = err_ + std::ptrdiff_t(x + 2) * n;
    for (int c = 0; c < n; ++c) want[c] = v[c] + carried[c];
    offset(adj, x, y);
    for (int c = 0; c < n; ++c) adj[c] += want[c];
    q(adj, got);
    double e[4];
    for (int c = 0; c < n; ++c) {
      e[c] = want[c] - got[c];
      v[c] = got[c];
    }
    spread(e, x);
  }
  nextRow();
}

// ---------------------------------------------------------------- rows

// Row y, channel c of a view (any depth) as doubles, and back from integers
// (saturated to the view's depth).
void loadRow(const View& v, int y, int c, double* out);
void storeRow(const View& v, int y, int c, const long long* in);

}  // namespace mox::convert
