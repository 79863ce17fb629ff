// Separable convolution of 8-bit values whose sums fit 16 bits: each value
// takes all its taps at once in whole vectors of 16-bit sums, across each
// source row into a block of 16-bit rows, then down them. Every sum and
// product stays within 16 bits (the caller checks the weights), so every
// width gives the same values.
//
// Included once per vector width (sepshort.cpp with the build's own
// vectors, sepshort_wide.cpp for 256-bit vectors chosen at run time);
// everything here but the table has internal linkage.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "filter/kernels.h"

#if !defined(MOX_FILTER_SEP_SHORT)
#error "define MOX_FILTER_SEP_SHORT to the name of the table"
#endif
#if !defined(MOX_FILTER_SEP_BYTES)
#define MOX_FILTER_SEP_BYTES 16
#endif

namespace mox::filt {
namespace {

constexpr int kLanes = MOX_FILTER_SEP_BYTES / 2;
static_assert(kLanes <= kShortRow);
using Short [[gnu::vector_size(MOX_FILTER_SEP_BYTES)]] = std::int16_t;
template <class T>
using Bytes [[gnu::vector_size(MOX_FILTER_SEP_BYTES / 2)]] = T;

template <class T>
inline Short widened(const T* p) {
  Bytes<T> v;
  std::memcpy(&v, p, sizeof v);
  return __builtin_convertvector(v, Short);
}

// out[j] = (sum of value * at(j + offset) over the taps) >> shift for j
// below n, a vector at a time, the last overlapping the one before.
template <class Load, class Store>
inline void shortSums(int n, int nTaps, const std::ptrdiff_t* offsets, const std::int16_t* values, int shift,
                      Load at, Store put) {
  for (int j0 = 0;; j0 = std::min(j0 + kLanes, n - kLanes)) {
    Short acc = values[0] * at(j0 + offsets[0]);
    for (int k = 1; k < nTaps; ++k) acc += values[k] * at(j0 + offsets[k]);
    put(j0, acc >> shift);
    if (j0 + kLanes >= n) break;
  }
}

template <class T>
bool shortPasses(const Block& b, const void* arg) {
  const SepArgs& a = *static_cast<const SepArgs*>(arg);
  const int n = b.w * b.cn, hs = b.h + b.win.top + b.win.bottom;
  if (!b.work->reserve(sizeof(std::int16_t) * std::size_t(n) * std::size_t(hs))) return false;
  std::int16_t* rows = b.work->as<std::int16_t>();
  std::ptrdiff_t xOff[kShortTaps], yOff[kShortTaps];
  std::int16_t xVal[kShortTaps], yVal[kShortTaps];
  for (int k = 0; k < a.nx; ++k)
    xOff[k] = std::ptrdiff_t(a.xTaps[k].dx) * b.cn, xVal[k] = std::int16_t(a.xTaps[k].value);
  for (int k = 0; k < a.ny; ++k)
    yOff[k] = std::ptrdiff_t(a.yTaps[k].dy) * n, yVal[k] = std::int16_t(a.yTaps[k].value);
  for (int r = 0; r < hs; ++r) {
    const T* s = static_cast<const T*>(b.src[r]);
    std::int16_t* q = rows + std::ptrdiff_t(n) * r;
    shortSums(n, a.nx, xOff, xVal, a.xShift, [&](std::ptrdiff_t j) { return widened(s + j); },
              [&](std::ptrdiff_t j, Short v) { std::memcpy(q + j, &v, sizeof v); });
  }
  const Short lo = Short{} + std::int16_t(std::numeric_limits<T>::min());
  const Short hi = Short{} + std::int16_t(std::numeric_limits<T>::max());
  for (int r = 0; r < b.h; ++r) {
    const std::int16_t* q = rows + std::ptrdiff_t(n) * r;
    T* d = static_cast<T*>(b.dst[r]);
    shortSums(
        n, a.ny, yOff, yVal, a.yShift,
        [&](std::ptrdiff_t j) {
          Short v;
          std::memcpy(&v, q + j, sizeof v);
          return v;
        },
        [&](std::ptrdiff_t j, Short v) {
          v = v < lo ? lo : v;
          v = v > hi ? hi : v;
          const Bytes<T> o = __builtin_convertvector(v, Bytes<T>);
          std::memcpy(d + j, &o, sizeof o);
        });
  }
  return true;
}

}  // namespace

BlockFn MOX_FILTER_SEP_SHORT(bool isSigned) { return isSigned ? &shortPasses<std::int8_t> : &shortPasses<std::uint8_t>; }

}  // namespace mox::filt
