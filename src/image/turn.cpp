// Turning rectangles on their side. Pixels of 1, 2, 4 or 8 bytes go in
// squares of 16 bytes a side, turned in vectors by rounds of zips, a tile
// of squares at a time so that the destination's cache lines are written
// whole; three- and six-byte pixels go block by block through a packed
// buffer; other sizes, rectangles too narrow for the blocks to pay, and
// what the squares leave at the right and bottom edges, pixel by pixel in
// squares small enough for the caches.
//
// Every address is a row's start plus its index times the step, so steps
// of either sign work alike.
#include "image/turn.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace mox {
namespace {

template <class T>
using Lane [[gnu::vector_size(16)]] = T;
template <class T>
constexpr int kLanes = int(16 / sizeof(T));

template <class T, std::size_t... I>
inline Lane<T> zipLow(Lane<T> a, Lane<T> b, std::index_sequence<I...>) {
  return __builtin_shufflevector(a, b, (I % 2 ? kLanes<T> + int(I / 2) : int(I / 2))...);
}
template <class T, std::size_t... I>
inline Lane<T> zipHigh(Lane<T> a, Lane<T> b, std::index_sequence<I...>) {
  return __builtin_shufflevector(a, b, (I % 2 ? kLanes<T> * 3 / 2 + int(I / 2) : kLanes<T> / 2 + int(I / 2))...);
}

// Turns a square of kLanes rows of kLanes values: value k of row i becomes
// value i of row k. Each round zips row i with row i + half into rows 2i
// and 2i + 1; as many rounds as the lane count has bits.
template <class T>
inline void turnSquare(Lane<T>* r) {
  constexpr int L = kLanes<T>, half = L / 2;
  constexpr auto lanes = std::make_index_sequence<std::size_t(L)>{};
  for (int round = 1; round < L; round *= 2) {
    Lane<T> o[L];
    for (int i = 0; i < half; ++i) {
      o[2 * i] = zipLow<T>(r[i], r[i + half], lanes);
      o[2 * i + 1] = zipHigh<T>(r[i], r[i + half], lanes);
    }
    for (int i = 0; i < L; ++i) r[i] = o[i];
  }
}

// Pixels of P bytes (pix when P is 0) one at a time, in squares of kSide.
template <int P>
void turnEach(const char* from, std::ptrdiff_t fromStep, int cols, int rows, int pix, char* to,
              std::ptrdiff_t toStep) {
  if constexpr (P > 0) pix = P;
  constexpr int kSide = 32;
  for (int r0 = 0; r0 < rows; r0 += kSide)
    for (int i0 = 0; i0 < cols; i0 += kSide) {
      const int r1 = std::min(rows, r0 + kSide), i1 = std::min(cols, i0 + kSide);
      for (int r = r0; r < r1; ++r) {
        const char* s = from + std::ptrdiff_t(r) * fromStep;
        for (int i = i0; i < i1; ++i)
          std::memcpy(to + std::ptrdiff_t(i) * toStep + std::ptrdiff_t(r) * pix, s + std::ptrdiff_t(i) * pix,
                      static_cast<std::size_t>(pix));
      }
    }
}

// Values of T in squares of kLanes, kTile values a side at a time, the
// edges one at a time.
template <class T>
void turnSquares(const char* from, std::ptrdiff_t fromStep, int cols, int rows, char* to, std::ptrdiff_t toStep) {
  constexpr int L = kLanes<T>, P = int(sizeof(T)), kTile = 64 / P;
  const int rs = rows / L * L, cs = cols / L * L;
  for (int r0 = 0; r0 < rs; r0 += kTile)
    for (int i0 = 0; i0 < cs; i0 += kTile) {
      const int r1 = std::min(rs, r0 + kTile), i1 = std::min(cs, i0 + kTile);
      for (int i = i0; i < i1; i += L)
        for (int r = r0; r < r1; r += L) {
          Lane<T> v[L];
          for (int k = 0; k < L; ++k)
            std::memcpy(&v[k], from + std::ptrdiff_t(r + k) * fromStep + std::ptrdiff_t(i) * P, sizeof v[k]);
          turnSquare<T>(v);
          for (int k = 0; k < L; ++k)
            std::memcpy(to + std::ptrdiff_t(i + k) * toStep + std::ptrdiff_t(r) * P, &v[k], sizeof v[k]);
        }
    }
  // The columns right of the squares, then the rows below them.
  turnEach<P>(from + std::ptrdiff_t(cs) * P, fromStep, cols - cs, rs, P, to + std::ptrdiff_t(cs) * toStep, toStep);
  turnEach<P>(from + std::ptrdiff_t(rs) * fromStep, fromStep, cols, rows - rs, P, to + std::ptrdiff_t(rs) * P, toStep);
}

// Where block k of the `count` blocks of `side` (the last one short) that
// cut `size` rows or columns starts, counted from the end when `up`;
// returns its length.
inline int blockAt(int k, int count, bool up, int side, int size, int* first) {
  *first = (up ? count - 1 - k : k) * side;
  return std::min(side, size - *first);
}

// Pixels of P bytes, each moved as M bytes (the bytes past a pixel are
// overwritten by the next one; the last of a row is moved as P), in blocks
// of kSide. A block's source rows are first copied into a packed buffer:
// the rows of an image whose row length is near a power of two fall into
// few cache sets, and a column read straight from them would evict itself.
// The block's destination rows are then filled from the buffer's columns.
// Blocks, and the rows within them, go the way the rows lie in memory,
// whatever the steps' signs. A rectangle less than half a block wide or
// high is turned pixel by pixel: its few rows or columns stay in the
// caches anyway.
template <int P, int M>
void turnBuffered(const char* from, std::ptrdiff_t fromStep, int cols, int rows, char* to, std::ptrdiff_t toStep) {
  constexpr int kSide = 64, kRowBytes = kSide * P;
  if (cols < kSide / 2 || rows < kSide / 2) return turnEach<P>(from, fromStep, cols, rows, P, to, toStep);
  alignas(64) char buffer[kSide * kRowBytes];
  const bool upFrom = fromStep < 0, upTo = toStep < 0;
  const int nr = (rows + kSide - 1) / kSide, nc = (cols + kSide - 1) / kSide;
  for (int kr = 0; kr < nr; ++kr)
    for (int kc = 0; kc < nc; ++kc) {
      int r0, i0;
      const int n = blockAt(kr, nr, upFrom, kSide, rows, &r0), m = blockAt(kc, nc, upTo, kSide, cols, &i0);
      const char* s = from + std::ptrdiff_t(r0) * fromStep + std::ptrdiff_t(i0) * P;
      // A whole row of a block is copied with a constant length (a few
      // vector moves rather than a string copy that is slow to start).
      for (int k = 0; k < n; ++k) {
        const int r = upFrom ? n - 1 - k : k;
        if (m == kSide)
          std::memcpy(buffer + r * kRowBytes, s + std::ptrdiff_t(r) * fromStep, kRowBytes);
        else
          std::memcpy(buffer + r * kRowBytes, s + std::ptrdiff_t(r) * fromStep, std::size_t(m) * P);
      }
      for (int k = 0; k < m; ++k) {
        const int c = upTo ? m - 1 - k : k;
        const char* b = buffer + c * P;
        char* d = to + std::ptrdiff_t(i0 + c) * toStep + std::ptrdiff_t(r0) * P;
        for (int r = 1; r < n; ++r, b += kRowBytes, d += P) {
          char v[M];
          std::memcpy(v, b, M);
          std::memcpy(d, v, M);
        }
        std::memcpy(d, b, P);
      }
    }
}

}  // namespace

void turnPixels(const char* from, std::ptrdiff_t fromStep, int cols, int rows, int pix, char* to,
                std::ptrdiff_t toStep) {
  switch (pix) {
    case 1:
      return turnSquares<std::uint8_t>(from, fromStep, cols, rows, to, toStep);
    case 2:
      return turnSquares<std::uint16_t>(from, fromStep, cols, rows, to, toStep);
    case 3:
      return turnBuffered<3, 4>(from, fromStep, cols, rows, to, toStep);
    case 4:
      return turnSquares<std::uint32_t>(from, fromStep, cols, rows, to, toStep);
    case 6:
      return turnBuffered<6, 8>(from, fromStep, cols, rows, to, toStep);
    case 8:
      return turnSquares<std::uint64_t>(from, fromStep, cols, rows, to, toStep);
    default:
      return turnEach<0>(from, fromStep, cols, rows, pix, to, toStep);
  }
}

}  // namespace mox
