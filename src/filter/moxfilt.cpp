// Convolution kernels, convolution, separable convolution, box mean and the
// minimum, maximum and median filters.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "filter/filter.h"
#include "filter/kernels.h"

namespace {

using namespace mox::filt;
using i64 = long long;

constexpr const char* kFile = "moxfilt";
constexpr int kMaxKernels = 100;
constexpr i64 kWeightBound = i64(1) << 62;

// The largest magnitude of a value of the depth.
i64 largestValue(unsigned depth) {
  switch (depth) {
    case MOX_DEPTH_8U:
      return 255;
    case MOX_DEPTH_8S:
      return 128;
    case MOX_DEPTH_16U:
      return 65535;
    case MOX_DEPTH_16S:
      return 32768;
    default:
      return i64(1) << 31;
  }
}

void reportAt(const mox::Site& at, const char* pattern, const char* name) {
  char message[160];
  std::snprintf(message, sizeof message, pattern, name, name);
  mox::report(at, message);
}

// The checks of one kernel record, reported with its argument name at
// lines first .. first + 4.
bool ownBadKernel(const MoxConvKernel* k, const char* name, const char* func, int first) {
  const mox::Site at{func, kFile, first};
  if (k->nCols <= 0 || k->nRows <= 0) {
    reportAt(at, "(%s->nCols <= 0 || %s->nRows <= 0)", name);
  } else if (k->anchorX < 0 || k->anchorX >= k->nCols) {
    reportAt({func, kFile, first + 1}, "(%s->anchorX < 0 || %s->anchorX >= nCols)", name);
  } else if (k->anchorY < 0 || k->anchorY >= k->nRows) {
    reportAt({func, kFile, first + 2}, "(%s->anchorY < 0 || %s->anchorY >= nRows)", name);
  } else if (!k->values) {
    reportAt({func, kFile, first + 3}, "(%s->values == NULL)", name);
  } else if (k->nShiftR < 0 || k->nShiftR > 31) {
    reportAt({func, kFile, first + 4}, "(%s->nShiftR < 0 || %s->nShiftR > 31)", name);
  } else {
    return false;
  }
  return true;
}

// The sum of the magnitudes of a kernel's weights, or a number above the
// bound once it passes it.
i64 weightSum(const MoxConvKernel* k, i64 bound) {
  i64 sum = 0;
  const i64 count = i64(k->nCols) * k->nRows;
  for (i64 i = 0; i < count && sum <= bound; ++i) {
    const i64 v = k->values[i];
    sum += v < 0 ? -v : v;
  }
  return sum;
}

// Appends the non-zero weights of a kernel as taps of a window whose
// anchor lies `left` columns and `top` rows from its corner.
Tap* appendTaps(const MoxConvKernel* k, int left, int top, Tap* out) {
  for (int r = 0; r < k->nRows; ++r)
    for (int c = 0; c < k->nCols; ++c)
      if (const int v = k->values[i64(r) * k->nCols + c])
        *out++ = Tap{c - k->anchorX + left, r - k->anchorY + top, v};
  return out;
}

// ------------------------------------------------------------ convolution

constexpr mox::OpTable kConv = neighTable("moxConvolve2D", kFile, 100);
constexpr SourceLines kConvSource = sourceLines(100);

void convolve(const MoxImage* src, MoxImage* dst, MoxConvKernel* const* kernel, int nKernels,
              int combine) {
  const mox::OpTable& t = kConv;
  const int own = 100 + kOwnLines;
  auto fail = [&](int line, const char* text) { mox::report({t.func, kFile, own + line}, text); };
  if (imagesFail(t, src, dst)) return;
  if (!kernel) return fail(0, "(kernel == NULL)");
  if (nKernels < 1 || nKernels > kMaxKernels) return fail(1, "(nKernels < 1 || nKernels > 100)");
  if (combine < MOX_SUM || combine > MOX_MIN)
    return fail(2, "(combineMethod < MOX_SUM || combineMethod > MOX_MIN)");
  const BlockFn fn = convBlock(dst->depth);
  if (!fn) return fail(3, "(dstImage->depth == MOX_DEPTH_1U)");
  const i64 largest = largestValue(dst->depth);
  Window win{0, 0, 0, 0};
  i64 taps = 0, widest = 0;
  for (int i = 0; i < nKernels; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "kernel[%d]", i);
    const MoxConvKernel* k = kernel[i];
    if (!k) {
      char message[48];
      std::snprintf(message, sizeof message, "(%s == NULL)", name);
      return fail(4, message);
    }
    if (ownBadKernel(k, name, t.func, own + 5)) return;
    const i64 sum = weightSum(k, kWeightBound / largest);
    if (sum > kWeightBound / largest) {
      char message[96];
      std::snprintf(message, sizeof message, "(sum of |%s->values| * largest pixel > 2^62)", name);
      return fail(10, message);
    }
    widest = std::max(widest, sum * largest);
    win.left = std::max(win.left, k->anchorX);
    win.top = std::max(win.top, k->anchorY);
    win.right = std::max(win.right, k->nCols - 1 - k->anchorX);
    win.bottom = std::max(win.bottom, k->nRows - 1 - k->anchorY);
    taps += i64(k->nCols) * k->nRows;
  }
  Scratch tapBlock;
  int first[kMaxKernels + 1], shift[kMaxKernels];
  if (taps > (i64(1) << 28) || !tapBlock.reserve(sizeof(Tap) * static_cast<std::size_t>(taps + 1)))
    return outOfMemory(t, own + 11);
  Tap* end = tapBlock.as<Tap>();
  for (int i = 0; i < nKernels; ++i) {
    first[i] = static_cast<int>(end - tapBlock.as<Tap>());
    shift[i] = kernel[i]->nShiftR;
    end = appendTaps(kernel[i], win.left, win.top, end);
  }
  first[nKernels] = static_cast<int>(end - tapBlock.as<Tap>());
  const Acc acc = widest <= 0x7FFF ? Acc::k16 : widest <= 0x7FFFFFFF ? Acc::k32 : Acc::k64;
  const ConvArgs args{tapBlock.as<Tap>(), first, shift, nKernels, combine, acc};
  run(t, kConvSource, src, dst, win, fn, &args);
}

// ------------------------------------------------------------ separable

constexpr mox::OpTable kSep = neighTable("moxConvolveSep2D", kFile, 200);
constexpr SourceLines kSepSource = sourceLines(200);

void convolveSeparable(const MoxImage* src, MoxImage* dst, const MoxConvKernel* xKernel,
                       const MoxConvKernel* yKernel) {
  const mox::OpTable& t = kSep;
  const int own = 200 + kOwnLines;
  auto fail = [&](int line, const char* text) { mox::report({t.func, kFile, own + line}, text); };
  if (imagesFail(t, src, dst)) return;
  if (xKernel && ownBadKernel(xKernel, "xKernel", t.func, own)) return;
  if (xKernel && xKernel->nRows != 1) return fail(5, "(xKernel->nRows != 1)");
  if (yKernel && ownBadKernel(yKernel, "yKernel", t.func, own + 10)) return;
  if (yKernel && yKernel->nCols != 1) return fail(15, "(yKernel->nCols != 1)");
  const BlockFn fn = sepBlock(dst->depth);
  if (!fn) return fail(16, "(dstImage->depth == MOX_DEPTH_1U)");
  const i64 largest = largestValue(dst->depth), bound = kWeightBound / largest;
  const i64 xs = xKernel ? weightSum(xKernel, bound) : 1;
  const i64 ys = yKernel ? weightSum(yKernel, bound) : 1;
  if (xs > bound || ys > bound || (xs > 0 && ys > bound / xs))
    return fail(17, "(sum of |xKernel->values| * sum of |yKernel->values| * largest pixel > 2^62)");
  const i64 nx = xKernel ? xKernel->nCols : 1, ny = yKernel ? yKernel->nRows : 1;
  Scratch tapBlock;
  if (nx + ny > (i64(1) << 28) || !tapBlock.reserve(sizeof(Tap) * static_cast<std::size_t>(nx + ny)))
    return outOfMemory(t, own + 18);
  const Tap pass{0, 0, 1};
  Tap* xTaps = tapBlock.as<Tap>();
  Tap* yTaps = xKernel ? appendTaps(xKernel, xKernel->anchorX, 0, xTaps) : (*xTaps = pass, xTaps + 1);
  Tap* end = yKernel ? appendTaps(yKernel, 0, yKernel->anchorY, yTaps) : (*yTaps = pass, yTaps + 1);
  const Window win{xKernel ? xKernel->anchorX : 0, yKernel ? yKernel->anchorY : 0,
                   xKernel ? xKernel->nCols - 1 - xKernel->anchorX : 0,
                   yKernel ? yKernel->nRows - 1 - yKernel->anchorY : 0};
  // 16 bits hold every sum across (largest times the row weights) and down
  // (the largest row value after its shift, rounded down, times the column
  // weights), and every product on the way.
  const int xShift = xKernel ? xKernel->nShiftR : 0, yShift = yKernel ? yKernel->nShiftR : 0;
  const i64 wx = std::max<i64>(xs, 1), wy = std::max<i64>(ys, 1);
  const i64 across = wx * largest, down = (across >> xShift) + 1;
  const Acc acc = across <= 0x7FFF && wy * down <= 0x7FFF ? Acc::k16
                  : wx * wy * largest <= 0x7FFFFFFF       ? Acc::k32
                                                          : Acc::k64;
  const SepArgs args{xTaps, static_cast<int>(yTaps - xTaps), xShift, yTaps, static_cast<int>(end - yTaps), yShift, acc};
  run(t, kSepSource, src, dst, win, fn, &args);
}

// ------------------------------------------------------------ box filters

struct BoxOp {
  mox::OpTable table;
  SourceLines source;
  BlockFn (*pick)(unsigned depth);
  bool extreme;  // the result depends only on the set of values the window covers
  bool fold;     // the block function takes folded blocks
  bool turns;    // the result is the same whichever way the window runs
};

// A window side that reaches a period and n - 1 past its pixel covers a
// whole period beyond the edge for every pixel of an image n long, and
// reaching further adds no value the window has not seen. Minimum and
// maximum take their window cut there, so their work stays bounded by the
// image, however large the window.
Window cutToPeriods(Window w, int width, int height) {
  const int across = static_cast<int>(std::min<i64>(borderPeriod(width) + width - 1, INT_MAX));
  const int down = static_cast<int>(std::min<i64>(borderPeriod(height) + height - 1, INT_MAX));
  return Window{std::min(w.left, across), std::min(w.top, down), std::min(w.right, across),
                std::min(w.bottom, down)};
}

BlockFn pickMin(unsigned depth) { return rankBlock(depth, false); }
BlockFn pickMax(unsigned depth) { return rankBlock(depth, true); }

constexpr BoxOp kBlur{neighTable("moxBlur", kFile, 300), sourceLines(300), &blurBlock, false, true, true};
constexpr BoxOp kMin{neighTable("moxMinFilter", kFile, 400), sourceLines(400), &pickMin, true, false, true};
constexpr BoxOp kMax{neighTable("moxMaxFilter", kFile, 500), sourceLines(500), &pickMax, true, false, true};
constexpr BoxOp kMedian{neighTable("moxMedianFilter", kFile, 600), sourceLines(600), &medianBlock, false, true, true};

void boxFilter(const BoxOp& op, const MoxImage* src, MoxImage* dst, int nCols, int nRows,
               int anchorX, int anchorY) {
  const mox::OpTable& t = op.table;
  const int own = t.header[0] + kOwnLines;
  auto fail = [&](int line, const char* text) { mox::report({t.func, kFile, own + line}, text); };
  if (imagesFail(t, src, dst)) return;
  if (nCols <= 0) return fail(0, "(nCols <= 0)");
  if (nRows <= 0) return fail(1, "(nRows <= 0)");
  if (anchorX < 0 || anchorX >= nCols) return fail(2, "(anchorX < 0 || anchorX >= nCols)");
  if (anchorY < 0 || anchorY >= nRows) return fail(3, "(anchorY < 0 || anchorY >= nRows)");
  Window win{anchorX, anchorY, nCols - 1 - anchorX, nRows - 1 - anchorY};
  if (op.extreme) win = cutToPeriods(win, src->width, src->height);
  run(t, op.source, src, dst, win, op.pick(dst->depth), nullptr, op.fold, op.turns);
}

}  // namespace

extern "C" {

MOX_API MoxConvKernel* MOX_CALL moxCreateConvKernel(int nCols, int nRows, int anchorX, int anchorY,
                                                     const int* values, int nShiftR) {
  if (nCols <= 0 || nRows <= 0 || anchorX < 0 || anchorX >= nCols || anchorY < 0 ||
      anchorY >= nRows || !values || nShiftR < 0 || nShiftR > 31)
    return nullptr;
  const i64 count = i64(nCols) * nRows;
  if (count > (i64(1) << 28)) return nullptr;
  // The record and its weights in one block, released together.
  const std::size_t bytes = sizeof(MoxConvKernel) + sizeof(int) * static_cast<std::size_t>(count);
  auto* k = static_cast<MoxConvKernel*>(std::malloc(bytes));
  if (!k) return nullptr;
  int* copy = reinterpret_cast<int*>(k + 1);
  std::memcpy(copy, values, sizeof(int) * static_cast<std::size_t>(count));
  *k = MoxConvKernel{nCols, nRows, anchorX, anchorY, copy, nShiftR};
  return k;
}

MOX_API void MOX_CALL moxGetConvKernel(const MoxConvKernel* kernel, int* nCols, int* nRows,
                                       int* anchorX, int* anchorY, int** values, int* nShiftR) {
  if (!kernel) {
    mox::report({"moxGetConvKernel", kFile, 60}, "(kernel == NULL)");
    return;
  }
  if (nCols) *nCols = kernel->nCols;
  if (nRows) *nRows = kernel->nRows;
  if (anchorX) *anchorX = kernel->anchorX;
  if (anchorY) *anchorY = kernel->anchorY;
  if (values) *values = kernel->values;
  if (nShiftR) *nShiftR = kernel->nShiftR;
}

MOX_API void MOX_CALL moxDeleteConvKernel(MoxConvKernel* kernel) { std::free(kernel); }

MOX_API void MOX_CALL moxConvolve2D(const MoxImage* srcImage, MoxImage* dstImage,
                                    MoxConvKernel* const* kernel, int nKernels, int combineMethod) {
  convolve(srcImage, dstImage, kernel, nKernels, combineMethod);
}

MOX_API void MOX_CALL moxConvolveSep2D(const MoxImage* srcImage, MoxImage* dstImage,
                                       const MoxConvKernel* xKernel,
                                       const MoxConvKernel* yKernel) {
  convolveSeparable(srcImage, dstImage, xKernel, yKernel);
}

MOX_API void MOX_CALL moxBlur(const MoxImage* srcImage, MoxImage* dstImage, int nCols, int nRows,
                              int anchorX, int anchorY) {
  boxFilter(kBlur, srcImage, dstImage, nCols, nRows, anchorX, anchorY);
}

MOX_API void MOX_CALL moxMinFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                   int nRows, int anchorX, int anchorY) {
  boxFilter(kMin, srcImage, dstImage, nCols, nRows, anchorX, anchorY);
}

MOX_API void MOX_CALL moxMaxFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                   int nRows, int anchorX, int anchorY) {
  boxFilter(kMax, srcImage, dstImage, nCols, nRows, anchorX, anchorY);
}

MOX_API void MOX_CALL moxMedianFilter(const MoxImage* srcImage, MoxImage* dstImage, int nCols,
                                      int nRows, int anchorX, int anchorY) {
  boxFilter(kMedian, srcImage, dstImage, nCols, nRows, anchorX, anchorY);
}

}  // extern "C"
