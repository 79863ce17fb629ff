// Minimum and maximum of small boxes (up to 6 x 6) in one pass: for two
// destination rows at a time, each run of values takes the extreme down
// the rows the two windows share, then with each window's own edge row,
// then across the window's columns, all on whole vectors of values without
// writing anything between the steps.
//
// Included once per vector width (extreme.cpp with the build's own
// vectors, extreme_wide.cpp for 256-bit vectors chosen at run time);
// everything here but the table has internal linkage. Minimum and maximum
// are exact, so every width gives the same values.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filter/kernels.h"

#if !defined(MOX_FILTER_BOXES)
#error "define MOX_FILTER_BOXES to the name of the table"
#endif
#if !defined(MOX_FILTER_BOX_BYTES)
#define MOX_FILTER_BOX_BYTES 16
#endif

namespace mox::filt {
namespace {

template <bool Max, class T>
inline T extremeOf(T a, T b) {
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
  const T* const* rows = reinterpret_cast<const T* const*>(src);
  T* d0 = static_cast<T*>(dst0);
  T* d1 = static_cast<T*>(dst1);
  // Without a second destination row there is no row nRows to read.
  const T* last = d1 ? rows[nRows] : rows[nRows - 1];
  // Values j .. j + K - 1 of both rows.
  auto vectorAt = [&](int j) {
    V a0{}, a1{};
    if (nRows > 1) {
      // Rows 1 .. nRows - 1 are both windows' own.
      for (int c = 0; c < nCols; ++c) {
        const std::ptrdiff_t off = j + std::ptrdiff_t(c) * cn;
        V common = loadVec(rows[1] + off);
        for (int r = 2; r < nRows; ++r) common = extremeOf<Max>(common, loadVec(rows[r] + off));
        const V e0 = extremeOf<Max>(common, loadVec(rows[0] + off));
        const V e1 = extremeOf<Max>(common, loadVec(last + off));
        a0 = c ? extremeOf<Max>(a0, e0) : e0;
        a1 = c ? extremeOf<Max>(a1, e1) : e1;
      }
    } else {
      a0 = loadVec(rows[0] + j), a1 = loadVec(last + j);
      for (int c = 1; c < nCols; ++c) {
        const std::ptrdiff_t off = j + std::ptrdiff_t(c) * cn;
        a0 = extremeOf<Max>(a0, loadVec(rows[0] + off));
        a1 = extremeOf<Max>(a1, loadVec(last + off));
      }
    }
    storeVec(d0 + j, a0);
    if (d1) storeVec(d1 + j, a1);
  };
  // Whole vectors, the last one overlapping the one before it; rows
  // shorter than a vector value by value.
  int j0 = 0;
  if (n >= K) {
    for (;; j0 = std::min(j0 + K, n - K)) {
      vectorAt(j0);
      if (j0 + K >= n) break;
    }
    j0 = n;
  }
  for (; j0 < n; ++j0) {
    T m0 = rows[0][j0], m1 = last[j0];
    for (int c = 0; c < nCols; ++c) {
      const std::ptrdiff_t at = j0 + std::ptrdiff_t(c) * cn;
      for (int r = 0; r < nRows; ++r) m0 = extremeOf<Max>(m0, rows[r][at]);
      if (d1)
        for (int r = 1; r <= nRows; ++r) m1 = extremeOf<Max>(m1, rows[r][at]);
    }
    d0[j0] = m0;
    if (d1) d1[j0] = m1;
  }
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

}  // namespace

BoxRowsFn MOX_FILTER_BOXES(bool max, int bytes, bool isSigned, int nCols, int nRows) {
  if (nCols == 3 && nRows == 3)
    return max ? boxRowsOf<true, 3, 3>(bytes, isSigned) : boxRowsOf<false, 3, 3>(bytes, isSigned);
  return max ? boxRowsOf<true, 0, 0>(bytes, isSigned) : boxRowsOf<false, 0, 0>(bytes, isSigned);
}

}  // namespace mox::filt
