// Minimum and maximum. Small boxes (up to 6 x 6) go in one pass: for two
// destination rows at a time, each run of values takes the extreme down
// the rows the two windows share, then with each window's own edge row,
// then across the window's columns, all on whole vectors of values without
// writing anything between the steps. Larger boxes go across the rows,
// then down the columns, in passes over the block.
//
// Included once per vector width (extreme.cpp with the build's own
// vectors, extreme_wide.cpp for 256-bit vectors chosen at run time);
// everything here but the table has internal linkage. Minimum and maximum
// are exact, so every width gives the same values.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "filter/kernels.h"

#if !defined(MOX_FILTER_BOXES)
#error "define MOX_FILTER_BOXES to the name of the table"
#endif
#if !defined(MOX_FILTER_LARGE)
#error "define MOX_FILTER_LARGE to the name of the large-box table"
#endif
#if !defined(MOX_FILTER_BOX_BYTES)
#define MOX_FILTER_BOX_BYTES 16
#endif

namespace mox::filt {
namespace {

template <bool Max, class T>
inline T pick(T a, T b) {
  if constexpr (Max)
    return a < b ? b : a;
  else
    return b < a ? b : a;
}

// One vector of values, and its unaligned load and store.
template <class T>
using Vec [[gnu::vector_size(MOX_FILTER_BOX_BYTES)]] = T;
template <class T>
inline Vec<T> loadVec(const T* p) {
  Vec<T> v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T, class V>
inline void storeVec(T* p, V v) {
  static_assert(sizeof(V) == sizeof(Vec<T>));
  std::memcpy(p, &v, sizeof v);
}

// d0 (and d1 when not null) from rows[0 .. nRows]: d0 takes rows 0 to
// nRows - 1, d1 rows 1 to nRows; value j of a row's window is the extreme
// of values j, j + cn, ..., j + (nCols - 1) cn of its rows.
// C and R (when not 0) fix the box's size at compile time: the 3 x 3
// boxes of erosion and dilation then run without loop control.
template <bool Max, class T, int C = 0, int R = 0>
void boxRows(const void* const* src, void* dst0, void* dst1, int n, int cn, int nCols, int nRows) {
  if constexpr (C > 0) nCols = C;
  if constexpr (R > 0) nRows = R;
  using V = Vec<T>;
  constexpr int K = int(sizeof(V) / sizeof(T));
  // The rows in locals, so that the loops keep them in registers rather
  // than read them again after every store.
  const T* rows[kSmallBox + 1];
  T* d0 = static_cast<T*>(dst0);
  T* d1 = static_cast<T*>(dst1);
  // Without a second destination row there is no row nRows to read.
  for (int r = 0; r < nRows + (d1 ? 1 : 0); ++r) rows[r] = static_cast<const T*>(src[r]);
  const T* last = rows[d1 ? nRows : nRows - 1];
  // Values j .. j + K - 1 of both rows (of the first only without `two`).
  auto vectorAt = [&](int j, bool two) {
    V a0{}, a1{};
    if (nRows > 1) {
      // Rows 1 .. nRows - 1 are both windows' own.
      for (int c = 0; c < nCols; ++c) {
        const std::ptrdiff_t off = j + std::ptrdiff_t(c) * cn;
        V common = loadVec(rows[1] + off);
        for (int r = 2; r < nRows; ++r) common = pick<Max>(common, loadVec(rows[r] + off));
        const V e0 = pick<Max>(common, loadVec(rows[0] + off));
        a0 = c ? pick<Max>(a0, e0) : e0;
        if (two) {
          const V e1 = pick<Max>(common, loadVec(last + off));
          a1 = c ? pick<Max>(a1, e1) : e1;
        }
      }
    } else {
      a0 = loadVec(rows[0] + j), a1 = loadVec(last + j);
      for (int c = 1; c < nCols; ++c) {
        const std::ptrdiff_t off = j + std::ptrdiff_t(c) * cn;
        a0 = pick<Max>(a0, loadVec(rows[0] + off));
        if (two) a1 = pick<Max>(a1, loadVec(last + off));
      }
    }
    storeVec(d0 + j, a0);
    if (two) storeVec(d1 + j, a1);
  };
  // Whole vectors, the last one overlapping the one before it; rows
  // shorter than a vector value by value.
  int j0 = 0;
  if (n >= K) {
    // One loop for each case, so that neither tests it per vector.
    const auto each = [&](bool two) {
      for (int j = 0;; j = std::min(j + K, n - K)) {
        vectorAt(j, two);
        if (j + K >= n) break;
      }
    };
    if (d1)
      each(true);
    else
      each(false);
    j0 = n;
  }
  for (; j0 < n; ++j0) {
    T m0 = rows[0][j0], m1 = last[j0];
    for (int c = 0; c < nCols; ++c) {
      const std::ptrdiff_t at = j0 + std::ptrdiff_t(c) * cn;
      for (int r = 0; r < nRows; ++r) m0 = pick<Max>(m0, rows[r][at]);
      if (d1)
        for (int r = 1; r <= nRows; ++r) m1 = pick<Max>(m1, rows[r][at]);
    }
    d0[j0] = m0;
    if (d1) d1[j0] = m1;
  }
}

// o[j] = extreme of o[j] and t[j].
template <bool Max, class T>
void pickInto(T* __restrict o, const T* __restrict t, int n) {
  for (int j = 0; j < n; ++j) o[j] = pick<Max>(o[j], t[j]);
}

// o[j] = extreme of a[j] and b[j].
template <bool Max, class T>
void pickOf(const T* __restrict a, const T* __restrict b, T* __restrict o, int n) {
  for (int j = 0; j < n; ++j) o[j] = pick<Max>(a[j], b[j]);
}

// d[j] = extreme of rows[0][j], ..., rows[C - 1][j]: one pass.
template <bool Max, int C, class T>
void downFixed(const T* const* rows, T* d, int n) {
  constexpr int K = int(sizeof(Vec<T>) / sizeof(T));
  int j = 0;
  for (; j + K <= n; j += K) {
    Vec<T> m = loadVec(rows[0] + j);
    for (int i = 1; i < C; ++i) m = pick<Max>(m, loadVec(rows[i] + j));
    storeVec(d + j, m);
  }
  for (; j < n; ++j) {
    T m = rows[0][j];
    for (int i = 1; i < C; ++i) m = pick<Max>(m, rows[i][j]);
    d[j] = m;
  }
}

// The same for c (1 to 6) rows.
template <bool Max, class T, std::size_t... C>
void downRows(const T* const* rows, T* d, int n, int c, std::index_sequence<C...>) {
  using Fn = void (*)(const T* const*, T*, int);
  static constexpr Fn kByCount[] = {&downFixed<Max, int(C) + 1, T>...};
  kByCount[c - 1](rows, d, n);
}

// d[j] = extreme of s[j], s[j + k], ..., s[j + (C - 1) k]: one pass.
template <bool Max, int C, class T>
void acrossFixed(const T* __restrict s, T* __restrict d, int n, int k) {
  for (int j = 0; j < n; ++j) {
    T m = s[j];
    for (int i = 1; i < C; ++i) m = pick<Max>(m, s[j + i * k]);
    d[j] = m;
  }
}

// The same for c (1 to 6) values k apart.
template <bool Max, class T, std::size_t... C>
void acrossRow(const T* s, T* d, int n, int k, int c, std::index_sequence<C...>) {
  using Fn = void (*)(const T*, T*, int, int);
  static constexpr Fn kByCount[] = {&acrossFixed<Max, int(C) + 1, T>...};
  kByCount[c - 1](s, d, n, k);
}

template <bool Max, class T>
void acrossRow(const T* s, T* d, int n, int k, int c) {
  acrossRow<Max>(s, d, n, k, c, std::make_index_sequence<6>{});
}

// o[j] (j < n) = the extreme of s[j], s[j + cn], ..., s[j + (nCols - 1) cn]
// through runs of doubling length in a and b (wsn values each): one
// whole-vector pass over the row per doubling, then the extreme of the two
// runs that cover the window. Each pass runs within the first-level cache,
// and the passes cost less than the running extrema of blocks of nCols
// values at every width tried: on 2048² 8-bit images, 4101 x 1 windows
// took 15 ms (1 channel) and 19 ms (3 channels) with the blocks taken one
// value at a time, against 3.1 and 10 ms by doubling; blocks on rows
// turned on their side (to run them on whole vectors) took 3.4 against
// 2.5 ms at 3001 columns and 12 against 5.6 ms at 8001, 1 channel:
// the two turns cost more than the passes they save.
template <bool Max, class T>
void doubledRuns(const T* s, T* a, T* b, T* __restrict o, int n, int wsn, int nCols, int cn) {
  const T* cur = s;
  int run = 1;
  for (; 2 * run <= nCols; run *= 2) {
    T* next = cur == a ? b : a;
    // Runs of 2 run columns start where a run of `run` columns ends in reach.
    pickOf<Max>(cur, cur + std::ptrdiff_t(run) * cn, next, wsn - (2 * run - 1) * cn);
    cur = next;
  }
  pickOf<Max>(cur, cur + std::ptrdiff_t(nCols - run) * cn, o, n);
}

// The extreme across source row r of a block into o (n values): directly
// for narrow windows, else by runs of doubling length (a and b hold wsn
// values each).
template <bool Max, class T>
void acrossOf(const Block& b, int r, T* o, T* runs) {
  const int cn = b.cn, n = b.w * cn, nCols = b.win.left + b.win.right + 1;
  const int wsn = (b.w + nCols - 1) * cn;
  const T* s = static_cast<const T*>(b.src[r]);
  if (nCols <= kSmallBox) return acrossRow<Max>(s, o, n, cn, nCols);
  doubledRuns<Max>(s, runs, runs + wsn, o, n, wsn, nCols, cn);
}

// Larger boxes: the extreme across each source row, then down the columns,
// holding nRows rows of extremes across at a time, however tall the block.
// Windows of a few rows take their rows directly. Taller ones go in blocks
// of nRows source rows (block k from row k nRows): a destination row's
// window is the tail of one block and the head of the next, so its extreme
// is that of the backward run of the one (held in place of its rows) and
// the forward run of the other, which goes on as the next block's rows come
// in, each into the place of the run it no longer needs.
template <bool Max, class T>
bool largeBox(const Block& b, const void*) {
  const int cn = b.cn, n = b.w * cn;
  const int nRows = b.win.top + b.win.bottom + 1;
  const int hs = b.h + nRows - 1;
  // Held rows and two rows of runs; false (out of memory) when their size
  // cannot be had.
  const unsigned long long values = (static_cast<unsigned long long>(nRows) + 1) * unsigned(n) +
                                    2ULL * (static_cast<unsigned long long>(b.w) + b.win.left + b.win.right) * unsigned(cn);
  if (values > static_cast<unsigned long long>(PTRDIFF_MAX) / sizeof(T) ||
      !b.work->reserve(static_cast<std::size_t>(values * sizeof(T))))
    return false;
  T* held = b.work->as<T>();
  T* run = held + std::ptrdiff_t(nRows) * n;
  const auto across = [&](int r, T* o) { acrossOf<Max>(b, r, o, run + n); };
  auto row = [&](int i) { return held + std::ptrdiff_t(i) * n; };
  auto dst = [&](int r) { return static_cast<T*>(b.dst[r]); };
  if (nRows <= kSmallBox) {
    for (int r = 0; r < hs; ++r) {
      if (nRows == 1) {
        across(r, dst(r));
        continue;
      }
      across(r, row(r % nRows));
      if (r < nRows - 1) continue;
      const T* rows[kSmallBox];
      for (int i = 0; i < nRows; ++i) rows[i] = row(i);
      downRows<Max>(rows, dst(r - nRows + 1), n, nRows, std::make_index_sequence<kSmallBox>{});
    }
    return true;
  }
  auto backward = [&] {
    for (int i = nRows - 2; i >= 0; --i) pickInto<Max>(row(i), row(i + 1), n);
  };
  for (int i = 0; i < nRows; ++i) across(i, row(i));
  backward();
  std::copy(row(0), row(1), dst(0));
  for (int k0 = nRows; k0 < hs; k0 += nRows) {
    const int m = std::min(nRows, hs - k0);
    for (int i = 0; i < m; ++i) {
      // Row i of the block before is spent: its place takes row i of this one.
      across(k0 + i, row(i));
      if (i == 0)
        std::copy(row(0), row(1), run);
      else
        pickInto<Max>(run, row(i), n);
      const int r = k0 - nRows + i + 1;
      if (r >= b.h) continue;
      if (i + 1 < nRows)
        pickOf<Max>(row(i + 1), run, dst(r), n);
      else
        std::copy(run, run + n, dst(r));
    }
    if (m == nRows) backward();
  }
  return true;
}

template <bool Max, int C, int R>
BoxRowsFn boxRowsOf(int bytes, bool isSigned) {
  switch (bytes) {
    case 1:
      return isSigned ? &boxRows<Max, std::int8_t, C, R> : &boxRows<Max, std::uint8_t, C, R>;
    case 2:
      return isSigned ? &boxRows<Max, std::int16_t, C, R> : &boxRows<Max, std::uint16_t, C, R>;
    default:
      return &boxRows<Max, std::int32_t, C, R>;
  }
}

template <bool Max>
BlockFn largeOf(int bytes, bool isSigned) {
  switch (bytes) {
    case 1:
      return isSigned ? &largeBox<Max, std::int8_t> : &largeBox<Max, std::uint8_t>;
    case 2:
      return isSigned ? &largeBox<Max, std::int16_t> : &largeBox<Max, std::uint16_t>;
    default:
      return &largeBox<Max, std::int32_t>;
  }
}

}  // namespace

BoxRowsFn MOX_FILTER_BOXES(bool max, int bytes, bool isSigned, int nCols, int nRows) {
  if (nCols == 3 && nRows == 3)
    return max ? boxRowsOf<true, 3, 3>(bytes, isSigned) : boxRowsOf<false, 3, 3>(bytes, isSigned);
  return max ? boxRowsOf<true, 0, 0>(bytes, isSigned) : boxRowsOf<false, 0, 0>(bytes, isSigned);
}

BlockFn MOX_FILTER_LARGE(bool max, int bytes, bool isSigned) {
  return max ? largeOf<true>(bytes, isSigned) : largeOf<false>(bytes, isSigned);
}

}  // namespace mox::filt
