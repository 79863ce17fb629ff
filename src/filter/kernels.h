// The block functions of the filters and of morphology, one per depth.
// Each returns null for a depth it does not handle; 1-bit images use the
// 8-bit functions (the driver hands them values 0 and 1).
#pragma once

#include <cstddef>
#include <cstdint>

#include "filter/neigh.h"

namespace mox::filt {

// The working memory of a block function: `bytes` counted in 64 bits,
// refused when more than an address reaches.
inline bool reserveWork(const Block& b, unsigned long long bytes) {
  return bytes <= static_cast<unsigned long long>(PTRDIFF_MAX) && b.work->reserve(static_cast<std::size_t>(bytes));
}

// One non-zero weight of a kernel at its place in the operation's window.
struct Tap {
  int dx, dy;
  int value;
};

// The accumulator width a set of weights needs at a depth.
enum class Acc { k16, k32, k64 };

// Convolution with several kernels: the taps of kernel k are
// taps[first[k]] to taps[first[k + 1]] - 1.
struct ConvArgs {
  const Tap* taps;
  const int* first;
  const int* shift;
  int nKernels;
  int combine;  // MOX_SUM .. MOX_MIN
  Acc acc;      // the single-kernel path's accumulator
};

// A row kernel then a column kernel; a null side passes values on.
struct SepArgs {
  const Tap* xTaps;
  int nx, xShift;
  const Tap* yTaps;
  int ny, yShift;
  Acc acc;  // k64, or 32 bits when every sum fits
};

// The box mean of a plain block: how its sums are divided.
struct MeanArgs {
  unsigned m;   // 16-bit sums: the multiplier,
  int k;        // and the shift (from 16) of the quotient
};

BlockFn convBlock(unsigned depth);
BlockFn sepBlock(unsigned depth);
// Mean of the window, rounded half up.
BlockFn blurBlock(unsigned depth);
// The box mean of plain blocks (arg: MeanArgs) whose window sums take
// sumBytes bytes and column sums colBytes (2 only for unsigned 8-bit
// values), with the widest vectors this processor runs; null for a
// combination it does not serve.
BlockFn boxMeans(unsigned depth, int sumBytes, int colBytes);
// Separable convolution of 8-bit values (signed or not) whose sums fit 16
// bits (SepArgs::acc Acc::k16), for rows of at least kShortRow values and
// at most kShortTaps taps each way (arg: the SepArgs).
constexpr int kShortRow = 16, kShortTaps = 64;
BlockFn sepShort(bool isSigned);
// Minimum (max false) or maximum of the window.
BlockFn rankBlock(unsigned depth, bool max);
// Median of the window; the lower middle value of an even count.
BlockFn medianBlock(unsigned depth);
// The median of small windows by comparison networks on whole vectors, with
// the widest vectors this processor runs; null for windows it does not serve.
BlockFn medianNet(unsigned depth, int nCols, int nRows);
// The median of 8-bit windows of `count` values by histograms (arg: none),
// folded blocks or not, with the widest vectors this processor runs; null
// for other depths.
BlockFn medianHistograms(unsigned depth, long long count, bool folded);

// The minimum (max false) or maximum of boxes of up to 6 x 6 for two
// destination rows: d0 from source rows src[0 .. nRows - 1], d1 (unless
// null) from src[1 .. nRows]; n values of cn interleaved channels, value j
// over columns j, j + cn, ... j + (nCols - 1) cn. Values of `bytes` bytes,
// signed or not (4 bytes: signed); the function serves the box size given.
// With the widest vectors this processor runs.
using BoxRowsFn = void (*)(const void* const* src, void* d0, void* d1, int n, int cn, int nCols,
                           int nRows);
BoxRowsFn boxRows(bool max, int bytes, bool isSigned, int nCols, int nRows);
// Boxes up to this size in both directions take boxRows.
constexpr int kSmallBox = 6;
// The block function of the minimum (max false) or maximum of larger
// boxes, for values as boxRows takes them.
BlockFn largeBoxes(bool max, int bytes, bool isSigned);

}  // namespace mox::filt
