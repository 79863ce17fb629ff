// Block functions of convolution, box mean, minimum, maximum and median.
#include "filter/kernels.h"
#include "filter/wide.h"
#include "frame/frame.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mox::filt {
namespace {

using i64 = long long;
using u64 = unsigned long long;

template <class D>
const typename D::T* srcRow(const Block& b, int r) {
  return static_cast<const typename D::T*>(b.src[r]);
}
template <class D>
typename D::T* dstRow(const Block& b, int r) {
  return static_cast<typename D::T*>(b.dst[r]);
}

// The block function of an operation F for a depth.
template <class F>
BlockFn byDepth(unsigned depth) {
  switch (depth) {
    case MOX_DEPTH_1U:
    case MOX_DEPTH_8U:
      return &F::template run<U8>;
    case MOX_DEPTH_8S:
      return &F::template run<S8>;
    case MOX_DEPTH_16U:
      return &F::template run<U16>;
    case MOX_DEPTH_16S:
      return &F::template run<S16>;
    case MOX_DEPTH_32S:
      return &F::template run<S32>;
    default:
      return nullptr;
  }
}

// The depth code of D.
template <class D>
constexpr unsigned depthOf() {
  return D::bits == 8 ? (D::isSigned ? MOX_DEPTH_8S : MOX_DEPTH_8U)
                      : D::bits == 16 ? (D::isSigned ? MOX_DEPTH_16S : MOX_DEPTH_16U) : MOX_DEPTH_32S;
}

// Adds value * row to acc over n values.
template <class T, class A>
void addTap(A* __restrict acc, const T* __restrict row, A value, int n) {
  for (int j = 0; j < n; ++j) acc[j] = static_cast<A>(acc[j] + value * static_cast<A>(row[j]));
}

// Adds value * row to acc where every product fits in 16 bits, which
// vector units multiply in one step.
template <class T, class A>
void addShortTap(A* __restrict acc, const T* __restrict row, std::int16_t value, int n) {
  for (int j = 0; j < n; ++j)
    acc[j] = static_cast<A>(acc[j] + static_cast<std::int16_t>(value * static_cast<std::int16_t>(row[j])));
}

// ---------------------------------------------------------------- convolution

// floor(sqrt(x)) for x < 2^63: the rounded square root, then exact steps.
u64 isqrt(u64 x) {
  u64 r = static_cast<u64>(std::sqrt(static_cast<double>(x)));
  while (r > 0 && r * r > x) --r;
  while ((r + 1) * (r + 1) <= x) ++r;
  return r;
}

#if defined(__SSE2__)
// 8-bit values widened to 16-bit lanes: the low and the high eight.
template <class T>
inline void widen8(__m128i x, __m128i* lo, __m128i* hi) {
  if constexpr (std::is_signed_v<T>) {
    *lo = _mm_srai_epi16(_mm_unpacklo_epi8(x, x), 8);
    *hi = _mm_srai_epi16(_mm_unpackhi_epi8(x, x), 8);
  } else {
    const __m128i zero = _mm_setzero_si128();
    *lo = _mm_unpacklo_epi8(x, zero);
    *hi = _mm_unpackhi_epi8(x, zero);
  }
}

// One row of an 8-bit convolution whose products fit 16 bits, 16 values at
// a time: the rows of two taps interleaved, each pair of products summed
// into 32 bits by one multiply-add, the sums kept in registers. `rows` are
// the taps' rows at the row's first value, `pairs` the two weights of each
// pair of taps (the second 0 for an odd last tap). Starts at value `from`
// of the row (d and n count from there); returns the number of values done,
// a multiple of 16.
template <class T>
int pairedTaps(const T* const* rows, const std::int32_t* pairs, int nTaps, T* d, int n, int shift,
               int from) {
  const __m128i by = _mm_cvtsi32_si128(shift);
  d -= from;
  n += from;
  int j = from;
  for (; j + 16 <= n; j += 16) {
    __m128i s0 = _mm_setzero_si128(), s1 = s0, s2 = s0, s3 = s0;
    for (int k = 0; k < nTaps; k += 2) {
      const __m128i w = _mm_set1_epi32(pairs[k / 2]);
      __m128i xl, xh, yl = _mm_setzero_si128(), yh = yl;
      widen8<T>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + j)), &xl, &xh);
      if (k + 1 < nTaps) widen8<T>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 1] + j)), &yl, &yh);
      s0 = _mm_add_epi32(s0, _mm_madd_epi16(_mm_unpacklo_epi16(xl, yl), w));
      s1 = _mm_add_epi32(s1, _mm_madd_epi16(_mm_unpackhi_epi16(xl, yl), w));
      s2 = _mm_add_epi32(s2, _mm_madd_epi16(_mm_unpacklo_epi16(xh, yh), w));
      s3 = _mm_add_epi32(s3, _mm_madd_epi16(_mm_unpackhi_epi16(xh, yh), w));
    }
    // Shifted, then saturated to 16 bits and to the depth's range.
    const __m128i lo = _mm_packs_epi32(_mm_sra_epi32(s0, by), _mm_sra_epi32(s1, by));
    const __m128i hi = _mm_packs_epi32(_mm_sra_epi32(s2, by), _mm_sra_epi32(s3, by));
    const __m128i out = std::is_signed_v<T> ? _mm_packs_epi16(lo, hi) : _mm_packus_epi16(lo, hi);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), out);
  }
  return j - from;
}
#endif

struct Conv {
  // One kernel whose sums fit the accumulator A.
  template <class D, class A>
  static bool single(const Block& b, const ConvArgs& a) {
    using T = typename D::T;
    const int n = b.w * b.cn, nTaps = a.first[1] - a.first[0];
    // The taps' rows and weight pairs, then the sums on an 8-byte boundary.
    const std::size_t lists = ((sizeof(const T*) + sizeof(std::int32_t)) * std::size_t(nTaps) + 7) & ~std::size_t(7);
    if (!b.work->reserve(lists + sizeof(A) * std::size_t(n))) return false;
    const T** rows = b.work->as<const T*>();
    auto* pairs = reinterpret_cast<std::int32_t*>(rows + nTaps);
    A* acc = reinterpret_cast<A*>(b.work->as<char>() + lists);
    const Tap* taps = a.taps + a.first[0];
    const int shift = a.shift[0];
    // Products of 16 bits: weights of at most 0x7FFF over the largest value.
    bool shortProducts = D::bits <= 8;
    for (int k = 0; k < nTaps; ++k) {
      const i64 v = taps[k].value;
      shortProducts = shortProducts && (v < 0 ? -v : v) * std::max(-D::lo, D::hi) <= 0x7FFF;
    }
    for (int k = 0; k < nTaps; k += 2) {
      const unsigned second = k + 1 < nTaps ? static_cast<unsigned>(taps[k + 1].value) : 0u;
      pairs[k / 2] = static_cast<std::int32_t>((second << 16) | (static_cast<unsigned>(taps[k].value) & 0xFFFFu));
    }
#if defined(MOX_FILTER_HAVE_WIDE)
    const bool wide = wideVectors();
#endif
    for (int r = 0; r < b.h; ++r) {
      for (int k = 0; k < nTaps; ++k)
        rows[k] = srcRow<D>(b, r + taps[k].dy) + std::ptrdiff_t(taps[k].dx) * b.cn;
      T* d = dstRow<D>(b, r);
      int done = 0;
      if constexpr (D::bits == 8) {
#if defined(MOX_FILTER_HAVE_WIDE)
        if (shortProducts && wide) done = widePairedTaps(rows, pairs, nTaps, d, n, shift);
#endif
#if defined(__SSE2__)
        if (shortProducts) done += pairedTaps<T>(rows, pairs, nTaps, d + done, n - done, shift, done);
#endif
      }
      const int rest = n - done;
      std::fill(acc, acc + rest, A(0));
      for (int k = 0; k < nTaps; ++k) {
        if (shortProducts)
          addShortTap<T, A>(acc, rows[k] + done, static_cast<std::int16_t>(taps[k].value), rest);
        else
          addTap<T, A>(acc, rows[k] + done, A(taps[k].value), rest);
      }
      for (int j = 0; j < rest; ++j) d[done + j] = D::sat(acc[j] >> shift);
    }
    return true;
  }

  // Several kernels, or the squares: 64-bit sums, combined per value.
  template <class D>
  static bool combined(const Block& b, const ConvArgs& a) {
    using T = typename D::T;
    const int n = b.w * b.cn;
    if (!b.work->reserve(2 * sizeof(i64) * std::size_t(n))) return false;
    i64* acc = b.work->as<i64>();
    i64* comb = acc + n;
    constexpr i64 kFar = i64(1) << 40;    // beyond every depth, so sums of 100 stay exact
    constexpr i64 kRoot = i64(1) << 31;   // a square from here on saturates every depth
    constexpr i64 kSquares = i64(1) << 62;
    for (int r = 0; r < b.h; ++r) {
      for (int k = 0; k < a.nKernels; ++k) {
        std::fill(acc, acc + n, i64(0));
        for (int t = a.first[k]; t < a.first[k + 1]; ++t) {
          const Tap& tap = a.taps[t];
          addTap<T, i64>(acc, srcRow<D>(b, r + tap.dy) + std::ptrdiff_t(tap.dx) * b.cn, tap.value, n);
        }
        const int shift = a.shift[k];
        for (int j = 0; j < n; ++j) {
          const i64 v = acc[j] >> shift;
          switch (a.combine) {
            case MOX_SUM:
              comb[j] = (k ? comb[j] : 0) + std::clamp(v, -kFar, kFar);
              break;
            case MOX_SUMSQ:
            case MOX_SUMSQROOT: {
              const i64 q = std::min(v < 0 ? -v : v, kRoot), sum = k ? comb[j] : 0;
              comb[j] = sum > kSquares - q * q ? kSquares : sum + q * q;
              break;
            }
            case MOX_MAX:
              comb[j] = k ? std::max(comb[j], v) : v;
              break;
            default:
              comb[j] = k ? std::min(comb[j], v) : v;
          }
        }
      }
      T* d = dstRow<D>(b, r);
      if (a.combine == MOX_SUMSQROOT)
        for (int j = 0; j < n; ++j) d[j] = D::sat(static_cast<i64>(isqrt(static_cast<u64>(comb[j]))));
      else
        for (int j = 0; j < n; ++j) d[j] = D::sat(comb[j]);
    }
    return true;
  }

  template <class D>
  static bool run(const Block& b, const void* arg) {
    const ConvArgs& a = *static_cast<const ConvArgs*>(arg);
    if (a.nKernels > 1 || a.combine == MOX_SUMSQ || a.combine == MOX_SUMSQROOT)
      return combined<D>(b, a);
    switch (a.acc) {
      case Acc::k16:
        return single<D, std::int16_t>(b, a);
      case Acc::k32:
        return single<D, std::int32_t>(b, a);
      default:
        return single<D, i64>(b, a);
    }
  }
};

// ---------------------------------------------------------------- separable

struct Sep {
  // A holds the row sums and the column sums.
  template <class D, class A>
  static bool passes(const Block& b, const SepArgs& a) {
    using T = typename D::T;
    const int n = b.w * b.cn, hs = b.h + b.win.top + b.win.bottom;
    if (!b.work->reserve(sizeof(A) * std::size_t(n) * (std::size_t(hs) + 1))) return false;
    A* rows = b.work->as<A>();
    A* acc = rows + std::ptrdiff_t(n) * hs;
    for (int r = 0; r < hs; ++r) {
      A* q = rows + std::ptrdiff_t(n) * r;
      std::fill(q, q + n, A(0));
      for (int k = 0; k < a.nx; ++k)
        addTap<T, A>(q, srcRow<D>(b, r) + std::ptrdiff_t(a.xTaps[k].dx) * b.cn, A(a.xTaps[k].value), n);
      for (int j = 0; j < n; ++j) q[j] = static_cast<A>(q[j] >> a.xShift);
    }
    for (int r = 0; r < b.h; ++r) {
      std::fill(acc, acc + n, A(0));
      for (int k = 0; k < a.ny; ++k)
        addTap<A, A>(acc, rows + std::ptrdiff_t(n) * (r + a.yTaps[k].dy), A(a.yTaps[k].value), n);
      T* d = dstRow<D>(b, r);
      for (int j = 0; j < n; ++j) d[j] = D::sat(acc[j] >> a.yShift);
    }
    return true;
  }

  template <class D>
  static bool run(const Block& b, const void* arg) {
    const SepArgs& a = *static_cast<const SepArgs*>(arg);
    if constexpr (D::bits == 8) {
      // Whole vectors of 16-bit sums (see sepshort.h).
      if (a.acc == Acc::k16 && b.w * b.cn >= kShortRow && a.nx <= kShortTaps && a.ny <= kShortTaps)
        return sepShort(D::isSigned)(b, &a);
    }
    return a.acc == Acc::k64 ? passes<D, i64>(b, a) : passes<D, std::int32_t>(b, a);
  }
};

// ---------------------------------------------------------------- box mean

// Sums of 8-bit values below 2^16 divide by a 16-bit multiplier: floor(x /
// n) = (x * m) >> k for every x <= largest when m = ceil(2^k / n) and
// largest * (m * n - 2^k) < 2^k (the error x * e / 2^k then stays below
// 1/n). Finds the smallest such k with m below 2^16; false when none.
bool shortDivider(i64 n, i64 largest, unsigned* m, int* k) {
  for (int shift = 16; shift < 32; ++shift) {
    const i64 two = i64(1) << shift, mult = (two + n - 1) / n;
    if (mult >= (i64(1) << 16)) return false;
    if (largest * (mult * n - two) < two) {
      *m = static_cast<unsigned>(mult);
      *k = shift;
      return true;
    }
  }
  return false;
}

struct Blur {
  // A folded block: the weighted sum across of every held row for every
  // destination column (of the values above the depth's lowest, so every
  // sum is positive), split by the window's width into a quotient and a
  // remainder, so that their weighted sums down the window stay within 64
  // bits however many values it holds. With S = nCols * Q + M the rounded
  // mean is floor((S + half) / (nCols * nRows)) = floor((Q + floor((M +
  // half) / nCols)) / nRows).
  template <class D>
  static bool folded(const Block& b) {
    using T = typename D::T;
    const int cn = b.cn, n = b.w * cn, xs = b.fx.size, ys = b.fy.size;
    const i64 nCols = i64(b.win.left) + b.win.right + 1, nRows = i64(b.win.top) + b.win.bottom + 1;
    const u64 rows = u64(ys) * u64(n);
    if (!reserveWork(b, sizeof(i64) * (2 * rows + 2 * u64(n) + u64(xs)))) return false;
    i64* whole = b.work->as<i64>();  // per held row and destination value
    i64* part = whole + rows;
    i64* q = part + rows;  // the window's sums of both
    i64* m = q + n;
    i64* wx = m + n;
    for (int f = 0; f < xs; ++f) wx[f] = b.fx.weight(0, nCols - 1, f);
    for (int g = 0; g < ys; ++g) {
      const T* s = srcRow<D>(b, g);
      for (int ch = 0; ch < cn; ++ch) {
        i64 sum = 0;
        for (int f = 0; f < xs; ++f) sum += wx[f] * (i64(s[std::ptrdiff_t(f) * cn + ch]) - D::lo);
        for (int x = 0; x < b.w; ++x) {
          if (x > 0)
            sum += i64(s[std::ptrdiff_t(b.fx.at(x - 1 + nCols)) * cn + ch]) - s[std::ptrdiff_t(b.fx.at(x - 1)) * cn + ch];
          const std::ptrdiff_t at = std::ptrdiff_t(g) * n + std::ptrdiff_t(x) * cn + ch;
          whole[at] = sum / nCols;
          part[at] = sum % nCols;
        }
      }
    }
    const i64 half = nCols * nRows / 2;
    for (int r = 0; r < b.h; ++r) {
      std::fill(q, q + n, i64(0));
      std::fill(m, m + n, half);
      for (int g = 0; g < ys; ++g) {
        const i64 k = b.fy.weight(r, r + nRows - 1, g);
        if (!k) continue;
        addTap<i64, i64>(q, whole + std::ptrdiff_t(g) * n, k, n);
        addTap<i64, i64>(m, part + std::ptrdiff_t(g) * n, k, n);
      }
      T* d = dstRow<D>(b, r);
      for (int j = 0; j < n; ++j) d[j] = static_cast<T>((q[j] + m[j] / nCols) / nRows + D::lo);
    }
    return true;
  }

  template <class D>
  static bool run(const Block& b, const void*) {
    if (b.fx.period || b.fy.period) return folded<D>(b);
    constexpr unsigned depth = depthOf<D>();
    const i64 count = i64(b.win.left + b.win.right + 1) * (b.win.top + b.win.bottom + 1);
    MeanArgs a{0, 0};
    if constexpr (D::bits == 8 && !D::isSigned) {
      if (255 * count + count / 2 < (i64(1) << 16) && shortDivider(count, 255 * count + count / 2, &a.m, &a.k))
        return boxMeans(depth, 2, 2)(b, &a);
    }
    // Sums with their offset below 2^31 (then the window's sums too).
    const bool narrow = (D::hi - D::lo) * count + count / 2 < (i64(1) << 31);
    if constexpr (D::bits == 8 && !D::isSigned) {
      // Columns short enough keep their sums in 16 bits: half the traffic.
      if (narrow && 255 * (b.win.top + b.win.bottom + 1) < (1 << 16)) return boxMeans(depth, 4, 2)(b, &a);
    }
    if (narrow) return boxMeans(depth, 4, 4)(b, &a);
    return boxMeans(depth, 8, 8)(b, &a);
  }
};

// ---------------------------------------------------------------- min, max

template <bool Max>
struct Extreme {
  template <class D>
  static bool run(const Block& b, const void*) {
    using T = typename D::T;
    const int nCols = b.win.left + b.win.right + 1, nRows = b.win.top + b.win.bottom + 1;
    // Small boxes: two rows at a time in one pass (see extreme.h); for
    // one channel the passes across and down cost less from 4 x 4 on.
    if (nCols <= kSmallBox && nRows <= kSmallBox && (b.cn > 1 || (nCols <= 3 && nRows <= 3))) {
      const BoxRowsFn rows = boxRows(Max, int(sizeof(T)), D::isSigned, nCols, nRows);
      for (int r = 0; r < b.h; r += 2)
        rows(b.src + r, dstRow<D>(b, r), r + 1 < b.h ? dstRow<D>(b, r + 1) : nullptr, b.w * b.cn,
             b.cn, nCols, nRows);
      return true;
    }
    return largeBoxes(Max, int(sizeof(T)), D::isSigned)(b, nullptr);
  }
};

// ---------------------------------------------------------------- median

// Windows of up to this many values take the sorting network.
constexpr int kNetwork = 32;

// A value and how many times the window holds it.
template <class T>
struct Weighted {
  T value;
  u64 weight;
};

// The value at place k (from 0) of the values e[0 .. n - 1] taken each as
// often as its weight says (k below their total): the part that holds place
// k is split around a value picked in it until that value holds it.
template <class T>
T weightedSelect(Weighted<T>* e, int n, u64 k) {
  std::uint32_t seed = 0x2545F491u;  // a fixed sequence of picks: the same work on every build
  int lo = 0, hi = n;
  while (hi - lo > 1) {
    seed = seed * 1664525u + 1013904223u;
    const T pivot = e[lo + static_cast<int>((u64(seed) * u64(hi - lo)) >> 32)].value;
    // [lo, less) below the pivot, [less, i) equal, [more, hi) above.
    int less = lo, i = lo, more = hi;
    u64 below = 0, equal = 0;
    while (i < more) {
      if (e[i].value < pivot) {
        below += e[i].weight;
        std::swap(e[i++], e[less++]);
      } else if (pivot < e[i].value) {
        std::swap(e[i], e[--more]);
      } else {
        equal += e[i++].weight;
      }
    }
    if (k < below) {
      hi = less;
    } else if (k < below + equal) {
      return pivot;
    } else {
      k -= below + equal;
      lo = more;
    }
  }
  return e[lo].value;
}

struct Median {
  // Wider values: the window's values, partly ordered around the middle.
  template <class D>
  static bool select(const Block& b) {
    using T = typename D::T;
    const int cn = b.cn;
    const int nCols = b.win.left + b.win.right + 1, nRows = b.win.top + b.win.bottom + 1;
    const u64 count = u64(nCols) * u64(nRows);
    if (!reserveWork(b, sizeof(T) * count)) return false;
    T* values = b.work->as<T>();
    T* middle = values + std::ptrdiff_t((count - 1) / 2);
    for (int r = 0; r < b.h; ++r) {
      T* d = dstRow<D>(b, r);
      for (int i = 0; i < b.w; ++i)
        for (int ch = 0; ch < cn; ++ch) {
          T* v = values;
          for (int c = 0; c < nRows; ++c) {
            const T* s = srcRow<D>(b, r + c) + std::ptrdiff_t(i) * cn + ch;
            for (int k = 0; k < nCols; ++k) *v++ = s[std::ptrdiff_t(k) * cn];
          }
          std::nth_element(values, middle, values + std::ptrdiff_t(count));
          d[std::ptrdiff_t(i) * cn + ch] = *middle;
        }
    }
    return true;
  }

  // Wider values of a folded block whose windows weigh few of its values:
  // each value of the window with its weight, the middle place found among
  // them.
  template <class D>
  static bool gathered(const Block& b) {
    using T = typename D::T;
    const int cn = b.cn, xs = b.fx.size, ys = b.fy.size;
    const i64 nCols = i64(b.win.left) + b.win.right + 1, nRows = i64(b.win.top) + b.win.bottom + 1;
    const u64 middle = (u64(nCols) * u64(nRows) - 1) / 2;
    // The columns a window weighs: all of a folded row, else its own.
    const int span = b.fx.period ? xs : static_cast<int>(nCols);
    const u64 entries = sizeof(Weighted<T>) * u64(span) * u64(std::min<i64>(nRows, ys));
    if (!reserveWork(b, entries + sizeof(u64) * (u64(xs) + u64(ys)))) return false;
    auto* values = b.work->as<Weighted<T>>();
    u64* wx = reinterpret_cast<u64*>(b.work->as<char>() + std::ptrdiff_t(entries));
    u64* wy = wx + xs;
    for (int f = 0; f < xs; ++f) wx[f] = static_cast<u64>(b.fx.weight(0, nCols - 1, f));
    for (int r = 0; r < b.h; ++r) {
      for (int g = 0; g < ys; ++g) wy[g] = static_cast<u64>(b.fy.weight(r, r + nRows - 1, g));
      T* d = dstRow<D>(b, r);
      for (int x = 0; x < b.w; ++x) {
        if (x > 0) --wx[b.fx.at(x - 1)], ++wx[b.fx.at(x - 1 + nCols)];
        const int first = b.fx.period ? 0 : x;
        for (int ch = 0; ch < cn; ++ch) {
          Weighted<T>* v = values;
          for (int g = 0; g < ys; ++g) {
            if (!wy[g]) continue;
            const T* s = srcRow<D>(b, g) + ch;
            for (int f = first; f < first + span; ++f)
              if (wx[f]) *v++ = Weighted<T>{s[std::ptrdiff_t(f) * cn], wx[f] * wy[g]};
          }
          d[std::ptrdiff_t(x) * cn + ch] = weightedSelect(values, static_cast<int>(v - values), middle);
        }
      }
      // Back to the first window's column weights.
      for (int x = b.w - 1; x > 0; --x) ++wx[b.fx.at(x - 1)], --wx[b.fx.at(x - 1 + nCols)];
    }
    return true;
  }

  // Wider values of a folded block: the block's values ranked once; along
  // a row the window's weight on each rank takes one held column out and
  // one in per step, and the middle place is found through the totals of
  // runs of 64 ranks.
  template <class D>
  static bool weighted(const Block& b) {
    using T = typename D::T;
    constexpr int kRun = 64;
    const int cn = b.cn, xs = b.fx.size, ys = b.fy.size;
    const i64 nCols = i64(b.win.left) + b.win.right + 1, nRows = i64(b.win.top) + b.win.bottom + 1;
    const u64 middle = (u64(nCols) * u64(nRows) - 1) / 2;
    // Ranks are counted in 32 bits.
    const u64 held64 = u64(xs) * u64(ys);
    if (held64 > 0xFFFFFFFFull || !reserveWork(b, held64 * (2 * sizeof(u64) + sizeof(std::uint32_t) + sizeof(T)) +
                                                      sizeof(u64) * (u64(xs) + 2 * u64(ys) + 2)))
      return false;
    const std::size_t held = static_cast<std::size_t>(held64), runs = held / kRun + 1;
    // Weights first, then ranks, then the values, each on its own boundary.
    const std::size_t wide = sizeof(u64) * (held + runs + std::size_t(xs) + std::size_t(ys));
    const std::size_t ranked = wide + sizeof(std::uint32_t) * held + sizeof(int) * std::size_t(ys);
    u64* hist = b.work->as<u64>();  // the window's weight on each rank
    u64* totals = hist + held;     // and on each run of ranks
    u64* wx = totals + runs;        // the weights of the held columns in a row's first window
    u64* wy = wx + xs;              // and of the held rows in the row's windows
    auto* rank = reinterpret_cast<std::uint32_t*>(b.work->as<char>() + wide);
    int* live = reinterpret_cast<int*>(rank + held);  // the rows of weight
    T* levels = reinterpret_cast<T*>(b.work->as<char>() + ((ranked + sizeof(u64) - 1) & ~(sizeof(u64) - 1)));
    for (int f = 0; f < xs; ++f) wx[f] = static_cast<u64>(b.fx.weight(0, nCols - 1, f));
    for (int ch = 0; ch < cn; ++ch) {
      for (int g = 0; g < ys; ++g)
        for (int f = 0; f < xs; ++f) levels[std::size_t(g) * xs + f] = srcRow<D>(b, g)[std::ptrdiff_t(f) * cn + ch];
      std::sort(levels, levels + held);
      const std::size_t nLevels = std::size_t(std::unique(levels, levels + held) - levels);
      for (int g = 0; g < ys; ++g)
        for (int f = 0; f < xs; ++f)
          rank[std::size_t(g) * xs + f] = static_cast<std::uint32_t>(
              std::lower_bound(levels, levels + nLevels, srcRow<D>(b, g)[std::ptrdiff_t(f) * cn + ch]) - levels);
      auto add = [&](std::size_t k, u64 w) {
        hist[k] += w;
        totals[k / kRun] += w;
      };
      for (int r = 0; r < b.h; ++r) {
        int nLive = 0;
        for (int g = 0; g < ys; ++g)
          if ((wy[g] = static_cast<u64>(b.fy.weight(r, r + nRows - 1, g)))) live[nLive++] = g;
        std::fill(hist, hist + nLevels, u64(0));
        std::fill(totals, totals + nLevels / kRun + 1, u64(0));
        for (int l = 0; l < nLive; ++l) {
          const std::uint32_t* k = rank + std::size_t(live[l]) * xs;
          for (int f = 0; f < xs; ++f)
            if (wx[f]) add(k[f], wx[f] * wy[live[l]]);
        }
        T* d = dstRow<D>(b, r) + ch;
        for (int x = 0; x < b.w; ++x) {
          if (x > 0) {
            const int out = b.fx.at(x - 1), in = b.fx.at(x - 1 + nCols);
            for (int l = 0; in != out && l < nLive; ++l) {
              const std::uint32_t* k = rank + std::size_t(live[l]) * xs;
              add(k[out], u64(0) - wy[live[l]]);
              add(k[in], wy[live[l]]);
            }
          }
          u64 below = 0;
          std::size_t c = 0;
          while (below + totals[c] <= middle) below += totals[c++];
          std::size_t k = c * kRun;
          while (below + hist[k] <= middle) below += hist[k++];
          d[std::ptrdiff_t(x) * cn] = levels[k];
        }
      }
    }
    return true;
  }

  // Small windows: a sorting network (odd-even merge sort of the window
  // padded to a power of two with the largest value), cut down to the
  // comparisons the middle value depends on, on 64 values of a row at once.
  template <class D>
  static bool network(const Block& b, int count) {
    using T = typename D::T;
    constexpr int kRun = 64;
    const int nCols = b.win.left + b.win.right + 1;
    int size = 1;
    while (size < count) size *= 2;
    const int middle = (count - 1) / 2;
    // At most 63 * 64 / 2 comparisons for 64 values, then the values.
    const std::size_t pairBytes = sizeof(short) * 2 * 2016;
    if (!b.work->reserve(pairBytes + sizeof(T) * std::size_t(size) * kRun)) return false;
    short* pairs = b.work->as<short>();
    int n = 0;
    for (int p = 1; p < size; p *= 2)
      for (int k = p; k >= 1; k /= 2)
        for (int j = k % p; j + k < size; j += 2 * k)
          for (int i = 0; i < std::min(k, size - j - k); ++i)
            if ((i + j) / (2 * p) == (i + j + k) / (2 * p)) {
              pairs[2 * n] = static_cast<short>(i + j);
              pairs[2 * n + 1] = static_cast<short>(i + j + k);
              ++n;
            }
    bool needed[64] = {};
    needed[middle] = true;
    int kept = 0;
    for (int c = n - 1; c >= 0; --c) {
      const int x = pairs[2 * c], y = pairs[2 * c + 1];
      if (!needed[x] && !needed[y]) continue;
      needed[x] = needed[y] = true;
      pairs[2 * (n - 1 - kept)] = static_cast<short>(x);
      pairs[2 * (n - 1 - kept) + 1] = static_cast<short>(y);
      ++kept;
    }
    const short* net = pairs + 2 * (n - kept);
    T* values = reinterpret_cast<T*>(b.work->as<char>() + pairBytes);
    const int width = b.w * b.cn;
    for (int r = 0; r < b.h; ++r) {
      T* d = dstRow<D>(b, r);
      for (int j0 = 0; j0 < width; j0 += kRun) {
        const int len = std::min(kRun, width - j0);
        for (int e = 0; e < count; ++e) {
          const T* s = srcRow<D>(b, r + e / nCols) + std::ptrdiff_t(e % nCols) * b.cn + j0;
          std::copy(s, s + len, values + std::ptrdiff_t(e) * kRun);
        }
        std::fill(values + std::ptrdiff_t(count) * kRun, values + std::ptrdiff_t(size) * kRun,
                  static_cast<T>(D::hi));
        for (int c = 0; c < kept; ++c) {
          T* __restrict x = values + std::ptrdiff_t(net[2 * c]) * kRun;
          T* __restrict y = values + std::ptrdiff_t(net[2 * c + 1]) * kRun;
          for (int i = 0; i < kRun; ++i) {
            const T lo = y[i] < x[i] ? y[i] : x[i], hi = y[i] < x[i] ? x[i] : y[i];
            x[i] = lo;
            y[i] = hi;
          }
        }
        std::copy(values + std::ptrdiff_t(middle) * kRun, values + std::ptrdiff_t(middle) * kRun + len,
                  d + j0);
      }
    }
    return true;
  }

  template <class D>
  static bool run(const Block& b, const void* arg) {
    constexpr unsigned code = depthOf<D>();
    const i64 count = i64(b.win.left + b.win.right + 1) * (b.win.top + b.win.bottom + 1);
    if (b.fx.period || b.fy.period) {
      if constexpr (D::bits == 8) {
        return medianHistograms(code, count, true)(b, nullptr);
      } else {
        // Ranking the block pays when a window weighs many of its values.
        const i64 weighs = std::min<i64>(b.fx.size, b.win.left + i64(b.win.right) + 1) *
                           std::min<i64>(b.fy.size, b.win.top + i64(b.win.bottom) + 1);
        return i64(b.fx.size) * b.fy.size <= 16 * weighs ? weighted<D>(b) : gathered<D>(b);
      }
    }
    if (const BlockFn net = medianNet(code, b.win.left + b.win.right + 1, b.win.top + b.win.bottom + 1))
      return net(b, arg);
    if (count <= kNetwork) return network<D>(b, static_cast<int>(count));
    if constexpr (D::bits == 8)
      return medianHistograms(code, count, false)(b, nullptr);
    else
      return select<D>(b);
  }
};

}  // namespace

BlockFn convBlock(unsigned depth) { return depth == MOX_DEPTH_1U ? nullptr : byDepth<Conv>(depth); }
BlockFn sepBlock(unsigned depth) { return depth == MOX_DEPTH_1U ? nullptr : byDepth<Sep>(depth); }
BlockFn blurBlock(unsigned depth) { return byDepth<Blur>(depth); }
BlockFn rankBlock(unsigned depth, bool max) {
  return max ? byDepth<Extreme<true>>(depth) : byDepth<Extreme<false>>(depth);
}
BlockFn medianBlock(unsigned depth) { return byDepth<Median>(depth); }

}  // namespace mox::filt
