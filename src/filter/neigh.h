// Neighbourhood operations: the driver that filters and morphology share.
//
// The destination drives the walk; for every destination piece the driver
// asks the shared source reader for the piece grown by the operation's
// window (pixels outside the image come from the source's border modes) and
// hands the operation's block function compact rows of one lane of
// channels:
//
//   src rows: h + top + bottom rows of (w + left + right) * cn values,
//   dst rows: h rows of w * cn values,
//
// where cn channels are interleaved (all channels of a pixel-order image, or
// one channel). Rows that lie in the images as compact runs are handed
// straight; others (a channel of interest, 1-bit rows, which arrive as one
// byte per value) are gathered into scratch rows and scattered back.
//
// A piece is cut where its windows leave the source pixels held in one
// block (a plain image, or the source tile under the piece): the middle is
// read where it lies, the margins through the reader's copies. The side
// margins of operations whose windows may turn (minimum and maximum) are
// handed turned on their side, a few long rows instead of many short ones.
//
// A source that shares its pixels with the destination (in-place calls) is
// first copied, so every result reads the original pixels.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "image/pointop.h"
#include "image/source.h"

namespace mox::filt {

// The source rectangle of one destination pixel (x, y): columns x - left to
// x + right, rows y - top to y + bottom.
struct Window {
  int left, top, right, bottom;
};

class Scratch;

// Beyond each edge of an image of n columns (rows) the border modes repeat
// every 2n columns (rows): reflection has that period, wrapping and
// replication repeat within it, a constant trivially.
constexpr long long borderPeriod(int n) { return 2 * static_cast<long long>(n); }

// One axis of a source block, folded or not. As the border modes repeat, a
// window that reaches more than that period past an edge sees there only
// values it also sees within the first period. A folded block holds the
// image and one period beyond each edge that a window overreaches; every
// position of the unfolded block (0 to w + left + right - 1 for columns,
// its rows likewise) lands on the held position `at` it repeats, and a
// window counts each held position as often as `weight` says.
struct Fold {
  long long shift;  // the held index of unfolded position 0
  int size;         // positions held
  int period;       // 0: not folded
  bool near, far;   // folded before, after the image

  // The held index of unfolded position u.
  int at(long long u) const {
    long long f = u + shift;
    if (f < 0)
      f += (-f + period - 1) / period * period;
    else if (f >= size)
      f -= ((f - size) / period + 1) * period;
    return static_cast<int>(f);
  }
  // How many positions of the unfolded range [lo, hi] land on held index f.
  long long weight(long long lo, long long hi, int f) const {
    const long long u = f - shift;
    if (near && f < period) return repeats(u - hi, u - lo);
    if (far && f >= size - period) return repeats(lo - u, hi - u);
    return lo <= u && u <= hi;
  }

 private:
  // The number of k >= 0 with a <= k * period <= b.
  long long repeats(long long a, long long b) const {
    if (b < 0) return 0;
    const long long first = a <= 0 ? 0 : (a + period - 1) / period;
    return std::max(0LL, b / period - first + 1);
  }
};

struct Block {
  const void* const* src;  // fy.size rows (h + top + bottom unless folded)
  void* const* dst;        // h rows
  int w, h, cn;
  Window win;
  Scratch* work;  // the block function's own working memory
  Fold fx, fy;    // columns, rows; a block function that does not fold sees none
};

// Returns false when its working memory cannot be had.
using BlockFn = bool (*)(const Block& block, const void* arg);

// The report lines of one neighbourhood operation beyond its image table:
// the source reader's (get, release, border mode, memory).
struct SourceLines {
  int get, release, border, memory;
};

// A block of memory that grows and reports nothing; false when it cannot.
class Scratch {
 public:
  Scratch() = default;
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  bool reserve(std::size_t bytes);
  template <class T>
  T* as() const {
    return static_cast<T*>(p_);
  }

 private:
  void* p_ = nullptr;
  std::size_t size_ = 0;
};

// A plain copy of an image (same header fields, border modes and ROI
// pointer; no tiles), owned by the holder.
class PlainCopy {
 public:
  PlainCopy() = default;
  ~PlainCopy();
  PlainCopy(const PlainCopy&) = delete;
  PlainCopy& operator=(const PlainCopy&) = delete;
  // The layout of `like`, pixels not set; false when it cannot be had.
  bool make(const MoxImage* like);
  MoxImage* get() { return &image_; }

 private:
  MoxImage image_{};
  std::size_t held_ = 0;  // the size of the block under imageData
};

// Runs fn (the block function of the destination's depth; for 1-bit images
// the 8-bit one, on values 0 and 1) over the common rectangle of the images'
// ROIs. The images have passed their checks. With `fold`, fn takes folded
// blocks (see Fold) where a window reaches more than a period past an edge.
// With `turns`, fn gives the same values on a block turned on its side
// (columns as rows, the window turned with it), which the driver uses for
// the narrow margins of a piece. Returns false after a report.
bool run(const OpTable& t, const SourceLines& lines, const MoxImage* src, MoxImage* dst,
         const Window& win, BlockFn fn, const void* arg, bool fold = false, bool turns = false);

// Reports "Out of memory" at the line.
void outOfMemory(const OpTable& t, int line);

// True when the images may share pixels (the same header, overlapping
// blocks, or tiles of the same record, or of one call-back under the same
// image and tile ids).
bool mayAlias(const MoxImage* a, const MoxImage* b);

// Copies the whole of src (all channels) into a plain copy, through the
// source reader of the operation. False after a report.
bool copyWhole(const OpTable& t, const SourceLines& lines, const MoxImage* src, PlainCopy* into);

}  // namespace mox::filt
