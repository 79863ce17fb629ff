// Internals of the colour family: the conversion of doubles to integers,
// the channel rows the kernels walk, and the depth dispatchers of the
// colour-model conversions.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "image/walk.h"

namespace mox::color {

// Truncates toward zero. Values outside the signed 32-bit range (and NaN)
// give 0x80000000, as the processor's own conversion does; a C++ cast of such
// a value would be undefined. No rounding mode is involved.
inline std::int32_t chop(double v) {
  return v > -2147483649.0 && v < 2147483648.0 ? static_cast<std::int32_t>(v) : INT32_MIN;
}

// The first three channels of one row of a view: in pixel order three
// interleaved runs `step` values apart, in plane order the first three
// planes. `swap` exchanges the first and third (a "BGR" row).
template <class T>
struct Row3 {
  T* c[3];
  std::ptrdiff_t step;
};

template <class T>
Row3<T> row3(const View& v, int y, bool swap) {
  char* base = v.data + std::ptrdiff_t(y) * v.widthStep;
  Row3<T> r;
  if (v.dataOrder == 0) {
    for (int k = 0; k < 3; ++k) r.c[k] = reinterpret_cast<T*>(base) + k;
    r.step = v.nChannels;
  } else {
    for (int k = 0; k < 3; ++k) r.c[k] = reinterpret_cast<T*>(base + k * v.planeStep);
    r.step = 1;
  }
  if (swap) {
    T* t = r.c[0];
    r.c[0] = r.c[2];
    r.c[2] = t;
  }
  return r;
}

// The first channel (plane) of one row of a view, `step` values apart.
template <class T>
Row3<T> row1(const View& v, int y) {
  Row3<T> r;
  r.c[0] = r.c[1] = r.c[2] = reinterpret_cast<T*>(v.data + std::ptrdiff_t(y) * v.widthStep);
  r.step = v.dataOrder == 0 ? v.nChannels : 1;
  return r;
}

// a when c holds, else b, without a branch: chains of these stay in vector
// code where chains of ?: would not.
inline int pick(bool c, int a, int b) {
  const int m = -int(c);
  return (a & m) | (b & ~m);
}

// Calls f with the step as a compile-time constant for the usual steps (one
// plane, three or four interleaved channels), so that loops over them
// become vector code; other steps are passed as they are.
template <class F>
inline void byStep(std::ptrdiff_t step, F&& f) {
  switch (step) {
    case 1: f(std::integral_constant<std::ptrdiff_t, 1>{}); break;
    case 3: f(std::integral_constant<std::ptrdiff_t, 3>{}); break;
    case 4: f(std::integral_constant<std::ptrdiff_t, 4>{}); break;
    default: f(step); break;
  }
}

// Calls f(at), where at(k, j) is channel k of pixel j of the row. For
// interleaved rows of three or four channels (in either colour order) the
// step and the channels' places are constants, so that the compiler reads
// or writes the three channels of a pixel as one group of vector code.
template <class T, class F>
inline void byLayout(const Row3<T>& r, F&& f) {
  if ((r.step == 3 || r.step == 4) && r.c[1] == std::min(r.c[0], r.c[2]) + 1 &&
      std::max(r.c[0], r.c[2]) == r.c[1] + 1) {
    T* const base = r.c[1] - 1;
    const auto with = [&](auto step, auto first) {
      f([=](int k, std::ptrdiff_t j) -> T& {
        return base[j * step + (k == 1 ? 1 : (k == 0) == (first == 0) ? 0 : 2)];
      });
    };
    using S3 = std::integral_constant<std::ptrdiff_t, 3>;
    using S4 = std::integral_constant<std::ptrdiff_t, 4>;
    using F0 = std::integral_constant<int, 0>;
    using F2 = std::integral_constant<int, 2>;
    const bool swapped = r.c[0] > r.c[2];
    if (r.step == 3)
      swapped ? with(S3{}, F2{}) : with(S3{}, F0{});
    else
      swapped ? with(S4{}, F2{}) : with(S4{}, F0{});
    return;
  }
  const std::ptrdiff_t step = r.step;
  f([&](int k, std::ptrdiff_t j) -> T& { return r.c[k][j * step]; });
}

// Kernels that gather values into blocks work on this many pixels at once.
constexpr int kBlock = 256;

// The conversions the dispatchers run.
enum class Model { toGray, fromGray, toHSV, fromHSV, toHLS, fromHLS };

// What a conversion kernel needs besides its views.
struct ConvArgs {
  bool swap;  // the RGB side is stored B, G, R
  // Colour from grey: multipliers and shift of the integer depths, factors
  // of the 32-bit depth.
  unsigned mult[3];
  int shift;
  float factor[3];
};

// The kernel of a conversion for a source and destination depth, or null
// after reporting the pair as not supported.
Kernel pickConversion(Model model, unsigned srcDepth, unsigned dstDepth);

// The multipliers of colour from grey for the destination's depth.
void grayMultipliers(unsigned dstDepth, float fractR, float fractG, float fractB, ConvArgs& a);

}  // namespace mox::color
