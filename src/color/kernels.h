// The kernels of the colour family, compiled once for the build's own
// vectors (owncolor.cpp) and, on x86-64, once more for 256-bit vectors
// (owncolor_wide.cpp). Everything here has internal linkage, so the two
// compilations never share a function; each fills its own table.
//
// The 8- and 16-bit kernels give the integer results of their formulas;
// quotients are taken in floats or doubles only where that gives the same
// whole number (see below), and the ways back to RGB at 8 bits are integer
// only. The 32-bit kernels, and the 16-bit ways back, compute in doubles,
// operation by operation as defined, so that every build and both tables
// round the same way. Truncation is a C++ conversion: no rounding mode is
// involved.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "color/color.h"

// MOX_COLOR_WIDE_BODY marks the copy compiled for 256-bit vectors (a target
// pragma does not announce itself to the preprocessor in C++); otherwise the
// vectors are SSE2's 128 bits, or there are none and the loops are left to
// the compiler.
#if defined(MOX_COLOR_WIDE_BODY)
#include <immintrin.h>
#define MOX_COLOR_LANES 1
#define MOX_COLOR_V(op) _mm256_##op
#define MOX_COLOR_SI(op) _mm256_##op##_si256
#elif defined(__SSE2__)
#include <emmintrin.h>
#define MOX_COLOR_LANES 1
#define MOX_COLOR_V(op) _mm_##op
#define MOX_COLOR_SI(op) _mm_##op##_si128
#endif

namespace mox::color {
namespace {

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

// The same for doubles, through their bits: a ?: between two doubles stays
// a branch (the compiler will not compute a floating-point value that a
// branch would have skipped), which keeps its loop out of vector code.
inline double choose(bool c, double a, double b) {
  const std::uint64_t m = std::uint64_t(0) - std::uint64_t(c);
  return std::bit_cast<double>((std::bit_cast<std::uint64_t>(a) & m) | (std::bit_cast<std::uint64_t>(b) & ~m));
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


using i64 = long long;

struct D8 {
  using T = std::uint8_t;
  static constexpr int M = 255;
};
struct D16 {
  using T = std::uint16_t;
  static constexpr int M = 65535;
};
struct D32 {
  using T = std::int32_t;
  static constexpr int M = 2147483647;
};

// Double form (32 bits).
inline std::int32_t hueDouble(i64 r, i64 g, i64 b, i64 mx, i64 delta) {
  double h;
  if (r == mx)
    h = double(60 * (g - b)) / double(delta);
  else if (g == mx)
    h = double(60 * (b - r)) / double(delta) + 120.0;
  else
    h = double(60 * (r - g)) / double(delta) + 240.0;
  if (h < 0) h += 360.0;
  return chop(h);
}

template <class V>
inline V max3(V a, V b, V c) {
  const V m = a > b ? a : b;
  return m > c ? m : c;
}
template <class V>
inline V min3(V a, V b, V c) {
  const V m = a < b ? a : b;
  return m < c ? m : c;
}

// ---------------------------------------------------------------- pixels

// A conversion turns three values of a pixel into three; `rgbIn` says on
// which side the RGB image (whose order may be B, G, R) is.
//
// The 8- and 16-bit quotients below are taken in floats where numerator
// plus divisor stays below 2^24, else in doubles: then a correctly rounded
// quotient that is not a whole number never reaches one, and truncating it
// gives the integer quotient, in loops the compiler turns into vector code.

// q = n / d rounded down, d > 0, |n| + d < 2^24.
inline int floorQuotient(int n, int d) {
  const float x = float(n) / float(d);
  const int q = static_cast<int>(x);
  return q - (float(q) > x ? 1 : 0);
}

// Hue in whole degrees of a pixel with delta = max - min > 0 (any value
// for delta 0, where it is not used).
inline int hueOf(int r, int g, int b, int mx, int delta) {
  const int n = pick(r == mx, g - b, pick(g == mx, b - r, r - g));
  const int base = pick(r == mx, 0, pick(g == mx, 120, 240));
  const int h = base + floorQuotient(60 * n, delta > 0 ? delta : 1);
  return pick(h < 0, h + 360, h);
}

// delta * M / over, truncated, over > 0.
template <class D>
inline int scaledQuotient(int delta, int over) {
  if constexpr (D::M == D8::M)
    return static_cast<int>(float(delta * D::M) / float(over));
  else
    return static_cast<int>(double(unsigned(delta) * unsigned(D::M)) / double(over));
}

template <class D>
struct ToHSV {
  static constexpr bool rgbIn = true;
  using T = typename D::T;
  static void pixel(int r, int g, int b, int& h, int& s, int& v) {
    const int mx = max3(r, g, b), delta = mx - min3(r, g, b);
    const int sat = scaledQuotient<D>(delta, mx > 0 ? mx : 1);
    const int hue = hueOf(r, g, b, mx, delta);
    h = pick(sat == 0, 0, D::M == D8::M ? hue >> 1 : hue);
    s = sat;
    v = mx;
  }
};

template <>
struct ToHSV<D32> {
  static constexpr bool rgbIn = true;
  using T = std::int32_t;
  static void pixel(i64 r, i64 g, i64 b, int& h, int& s, int& v) {
    const i64 mx = max3(r, g, b), delta = mx - min3(r, g, b);
    const std::int32_t sat = mx == 0 ? 0 : chop(double(delta) * 2147483647.0 / double(mx));
    h = sat == 0 ? 0 : hueDouble(r, g, b, mx, delta);
    s = sat;
    v = static_cast<int>(mx);
  }
};

template <class D>
struct ToHLS {
  static constexpr bool rgbIn = true;
  using T = typename D::T;
  static void pixel(int r, int g, int b, int& h, int& l, int& s) {
    const int mx = max3(r, g, b), mn = min3(r, g, b), sum = mx + mn, delta = mx - mn;
    const int over = pick(sum <= D::M, sum, 2 * D::M - sum);
    const int hue = hueOf(r, g, b, mx, delta);
    h = pick(delta == 0, 0, D::M == D8::M ? hue >> 1 : hue);
    l = sum >> 1;
    s = scaledQuotient<D>(delta, over > 0 ? over : 1);
  }
};

template <>
struct ToHLS<D32> {
  static constexpr bool rgbIn = true;
  using T = std::int32_t;
  static void pixel(i64 r, i64 g, i64 b, int& h, int& l, int& s) {
    const i64 mx = max3(r, g, b), mn = min3(r, g, b), sum = mx + mn, delta = mx - mn;
    l = static_cast<int>(sum >> 1);
    if (delta == 0) {
      h = s = 0;
      return;
    }
    const double over = sum <= 2147483647 ? double(sum) : 4294967294.0 - double(sum);
    s = chop(2147483647.0 * double(delta) / over);
    h = hueDouble(r, g, b, mx, delta);
  }
};

// Without saturation every channel is the grey value.
inline void grey(int s, int v, int& r, int& g, int& b) {
  r = pick(s == 0, v, r);
  g = pick(s == 0, v, g);
  b = pick(s == 0, v, b);
}

// The sector table of HSV to RGB, as selections.
inline void sector(int s, int v, int p, int q, int t, int& r, int& g, int& b) {
  r = pick(s == 1, q, pick((s == 2) | (s == 3), p, pick(s == 4, t, v)));
  g = pick(s == 0, t, pick((s == 1) | (s == 2), v, pick(s == 3, q, p)));
  b = pick((s == 0) | (s == 1), p, pick(s == 2, t, pick((s == 3) | (s == 4), v, q)));
}

template <class D>
struct FromHSV {
  static constexpr bool rgbIn = false;
  using T = typename D::T;
  static void pixel(int h, int s, int v, int& r, int& g, int& b) {
    if constexpr (D::M == D8::M) {
      // d / 60 for d up to 510, as a product.
      const int d = 2 * h, sec = (d * 1093) >> 16, f = d - 60 * sec, sv = (s * v) >> 8;
      const int p = v - sv, q = v - ((f * sv * 34) >> 11), t = v - (((60 - f) * sv * 34) >> 11);
      sector(sec, v, p, q, t, r, g, b);
    } else if constexpr (D::M == D16::M) {
      doubles16(h, s, v, r, g, b);
    } else {
      doubles(h, s, v, r, g, b);
    }
    grey(s, v, r, g, b);
  }
  // The doubles below at 16 bits, where every value stays well inside int
  // (hues up to 65535 give sectors up to 1092, results 0..65535): plain
  // conversions truncate as chop does, and selections take the place of
  // the branches, so that a block's loop becomes vector code.
  static void doubles16(int h, int s, int v, int& r, int& g, int& b) {
    constexpr double M = D::M, k = 1.5259021896696422e-05;
    const double x = double(h) * 0.016666666666666666;
    const int whole = static_cast<int>(x);
    const bool full = h == 360;
    const int sec = pick(full, 0, whole);
    const double fraction = x - double(whole);
    const double f = choose(full, 0.0, fraction);
    const double S = s, V = v;
    const int p = static_cast<T>(static_cast<int>((M - S) * V * k));
    const int q = static_cast<T>(static_cast<int>((M - f * S) * V * k));
    const int t = static_cast<T>(static_cast<int>((M - (1 - f) * S) * V * k));
    sector(sec, v, p, q, t, r, g, b);
  }
  static void doubles(int h, int s, int v, int& r, int& g, int& b) {
    constexpr double M = D::M;
    constexpr double k = D::M == D16::M ? 1.5259021896696422e-05 : 4.656612875245797e-10;
    int sec = 0;
    double f = 0;
    if (h != 360) {
      const double x = double(h) * 0.016666666666666666;
      sec = chop(x);
      f = x - sec;
    }
    const double S = s, V = v;
    const int p = cut((M - S) * V * k), q = cut((M - f * S) * V * k);
    const int t = cut((M - (1 - f) * S) * V * k);
    sector(sec, v, p, q, t, r, g, b);
  }
  // The stored value of a result: truncated, then cut to the channel.
  static int cut(double x) { return static_cast<T>(chop(x)); }
};

// One channel of HLS to RGB at hue h (degrees).
inline double rampDouble(double h, double m1, double m2) {
  if (h < 0)
    h += 360.0;
  else if (h > 360)
    h -= 360.0;
  if (h < 60) return m1 + (m2 - m1) * h * 0.0166666667;
  if (h < 180) return m2;
  if (h < 240) return m1 + (m2 - m1) * (240 - h) * 0.0166666667;
  return m1;
}

// The same without branches, for hues whose results stay inside int.
inline double rampSelect(double h, double m1, double m2) {
  const double above = h + 360.0, below = h - 360.0;
  h = choose(h < 0, above, choose(h > 360, below, h));
  const double up = m1 + (m2 - m1) * h * 0.0166666667;
  const double down = m1 + (m2 - m1) * (240 - h) * 0.0166666667;
  return choose(h < 60, up, choose(h < 180, m2, choose(h < 240, down, m1)));
}

inline int rampInt(int x, int m1, int m2) {
  const int up = m1 + (((m2 - m1) * 137 * x) >> 13);
  const int down = m1 + (((m2 - m1) * 137 * (240 - x)) >> 13);
  return pick(x < 60, up, pick(x < 180, m2, pick(x < 240, down, m1)));
}

template <class D>
struct FromHLS {
  static constexpr bool rgbIn = false;
  using T = typename D::T;
  static void pixel(int h, int l, int s, int& r, int& g, int& b) {
    if constexpr (D::M == D8::M) {
      const int d = 2 * h, ls = (l * s * 258) >> 16;
      const int m2 = pick(l <= 127, l + ls, l + s - ls), m1 = 2 * l - m2;
      r = rampInt(pick(d < 241, d + 120, d - 240), m1, m2);
      g = rampInt(d, m1, m2);
      b = rampInt(pick(d < 120, d + 240, d - 120), m1, m2);
    } else if constexpr (D::M == D16::M) {
      // Every value lies in 0..65535 (m1 >= 0, m2 <= M), so plain
      // conversions truncate as chop does.
      constexpr double M = D::M;
      const double L = l, S = s, H = h, ls = L * S / M;
      const double low = L + ls, high = L + S - ls;
      const double m2 = choose(l < 32768, low, high), m1 = 2 * L - m2;
      r = static_cast<T>(static_cast<int>(rampSelect(H + 120, m1, m2)));
      g = static_cast<T>(static_cast<int>(rampSelect(H, m1, m2)));
      b = static_cast<T>(static_cast<int>(rampSelect(H - 120, m1, m2)));
    } else {
      constexpr double M = D::M;
      constexpr i64 half = (i64(D::M) + 1) / 2;
      const double L = l, S = s, H = h;
      const double m2 = l < half ? L + L * S / M : L + S - L * S / M, m1 = 2 * L - m2;
      r = static_cast<T>(chop(rampDouble(H + 120, m1, m2)));
      g = static_cast<T>(chop(rampDouble(H, m1, m2)));
      b = static_cast<T>(chop(rampDouble(H - 120, m1, m2)));
    }
    grey(s, l, r, g, b);
  }
};

// Gathers a block of each row's three channels into ints, converts and
// stores the results back.
template <class Px>
void threeToThree(const View* v, const void* arg) {
  using T = typename Px::T;
  const bool swap = static_cast<const ConvArgs*>(arg)->swap;
  int in[3][kBlock], out[3][kBlock];
  for (int y = 0; y < v[1].height; ++y) {
    const Row3<const T> s = row3<const T>(v[0], y, Px::rgbIn && swap);
    const Row3<T> d = row3<T>(v[1], y, !Px::rgbIn && swap);
    for (int x0 = 0; x0 < v[1].width; x0 += kBlock) {
      const int n = std::min(kBlock, v[1].width - x0);
      byLayout(s, [&](auto at) {
        for (int j = 0; j < n; ++j)
          in[0][j] = at(0, x0 + j), in[1][j] = at(1, x0 + j), in[2][j] = at(2, x0 + j);
      });
      for (int j = 0; j < n; ++j)
        Px::pixel(in[0][j], in[1][j], in[2][j], out[0][j], out[1][j], out[2][j]);
      byLayout(d, [&](auto at) {
        for (int j = 0; j < n; ++j) {
          at(0, x0 + j) = static_cast<T>(out[0][j]);
          at(1, x0 + j) = static_cast<T>(out[1][j]);
          at(2, x0 + j) = static_cast<T>(out[2][j]);
        }
      });
    }
  }
}

// ---------------------------------------------------------------- grey

// Grey from colour by source depth; the destination keeps its low bits.
template <class S>
struct Gray {
  using T = S;
  static int weigh(T r, T g, T b) {
    if constexpr (sizeof(T) == 4)
      return 109 * (r >> 11) + 366 * (g >> 11) + 37 * (b >> 11);
    else
      return 54 * r + 183 * g + 18 * b;
  }
  // The bit of a 1-bit destination.
  static bool bit(T r, T g, T b) {
    if constexpr (sizeof(T) == 4)
      return 109 * (r >> 10) + 366 * (g >> 10) + 37 * (b >> 10) > 0x1FFFFFFF;
    else
      return (weigh(r, g, b) >> 8) > (sizeof(T) == 1 ? 127 : 32767);
  }
};

// Shift of the weighted sum for a source of SB and a destination of DB bits.
constexpr int grayShift(int sb, int db) {
  return sb == 32 ? (db == 8 ? 21 : 13) : sb == 8 ? (db == 8 ? 8 : 0) : (db == 8 ? 16 : 8);
}

template <class S, class D>
void toGray(const View* v, const void* arg) {
  const bool swap = static_cast<const ConvArgs*>(arg)->swap;
  const View& dv = v[1];
  // Stores through byte pointers may change any memory: the loops keep
  // their bounds in locals so that they stay countable (and vector code).
  const int width = dv.width;
  for (int y = 0; y < dv.height; ++y) {
    const Row3<const S> s = row3<const S>(v[0], y, swap);
    const std::ptrdiff_t ss = s.step;
    if constexpr (std::is_same_v<D, bool>) {
      auto* row = reinterpret_cast<unsigned char*>(dv.data + std::ptrdiff_t(y) * dv.widthStep);
      for (int x = 0; x < width; ++x) {
        const int at = dv.bitOffset + x;
        const unsigned mask = 128u >> (at & 7);
        if (Gray<S>::bit(s.c[0][x * ss], s.c[1][x * ss], s.c[2][x * ss]))
          row[at >> 3] = static_cast<unsigned char>(row[at >> 3] | mask);
        else
          row[at >> 3] = static_cast<unsigned char>(row[at >> 3] & ~mask);
      }
    } else {
      constexpr int shift = grayShift(8 * sizeof(S), 8 * sizeof(D));
      const Row3<D> d = row1<D>(dv, y);
      byLayout(s, [&](auto at) {
        byStep(d.step, [&](auto dstep) {
          D* to = d.c[0];
          for (int x = 0; x < width; ++x)
            to[x * dstep] = static_cast<D>(Gray<S>::weigh(at(0, x), at(1, x), at(2, x)) >> shift);
        });
      });
    }
  }
}

// Colour from grey: T is the depth of both images, or bool for a 1-bit
// source with an 8-bit destination.
template <class T>
void fromGray(const View* v, const void* arg) {
  const ConvArgs& a = *static_cast<const ConvArgs*>(arg);
  using D = std::conditional_t<std::is_same_v<T, bool>, std::uint8_t, T>;
  const View& sv = v[0];
  const int width = v[1].width;
  D on[3] = {};
  if constexpr (std::is_same_v<T, bool>)
    for (int k = 0; k < 3; ++k) on[k] = static_cast<D>((255 * a.mult[k]) >> a.shift);
  for (int y = 0; y < v[1].height; ++y) {
    const Row3<D> d = row3<D>(v[1], y, a.swap);
    const std::ptrdiff_t ds = d.step;
    if constexpr (std::is_same_v<T, bool>) {
      const auto* row =
          reinterpret_cast<const unsigned char*>(sv.data + std::ptrdiff_t(y) * sv.widthStep);
      for (int x = 0; x < width; ++x) {
        const int at = sv.bitOffset + x;
        const bool set = (row[at >> 3] >> (7 - (at & 7))) & 1;
        for (int k = 0; k < 3; ++k) d.c[k][x * ds] = set ? on[k] : D{0};
      }
    } else {
      const Row3<const T> s = row1<const T>(sv, y);
      byStep(s.step, [&](auto sstep) {
        byLayout(d, [&](auto at) {
          const T* from = s.c[0];
          if constexpr (sizeof(T) == 4) {
            const float f0 = a.factor[0], f1 = a.factor[1], f2 = a.factor[2];
            for (int x = 0; x < width; ++x) {
              const float g = static_cast<float>(from[x * sstep]);
              at(0, x) = chop(g * f0), at(1, x) = chop(g * f1), at(2, x) = chop(g * f2);
            }
          } else {
            // Products of 16-bit numbers; at 8 bits (shift 8) only the
            // product's low 16 bits reach the result.
            using P = std::conditional_t<sizeof(T) == 1, std::uint16_t, unsigned>;
            const std::uint16_t m0 = static_cast<std::uint16_t>(a.mult[0]);
            const std::uint16_t m1 = static_cast<std::uint16_t>(a.mult[1]);
            const std::uint16_t m2 = static_cast<std::uint16_t>(a.mult[2]);
            const int shift = a.shift;
            for (int x = 0; x < width; ++x) {
              const std::uint16_t g = from[x * sstep];
              at(0, x) = static_cast<T>(P(P(g) * P(m0)) >> shift);
              at(1, x) = static_cast<T>(P(P(g) * P(m1)) >> shift);
              at(2, x) = static_cast<T>(P(P(g) * P(m2)) >> shift);
            }
          }
        });
      });
    }
  }
}

// ---------------------------------------------------------------- twist

// Values are handled in blocks: gathered from their channels, twisted in
// loops over whole blocks (which the compiler turns into vector code), and
// stored back.
// C holds channel values and matrix entries: 16 bits where both fit (the
// products are then the cheap 16-bit ones), else the sum's own type.
template <class T, class Acc, class C = Acc>
void twistKernel(const View* v, const void* arg) {
  const TwistArgs& a = *static_cast<const TwistArgs*>(arg);
  const int shift = a.shift, lowOut = a.lowOut, highOut = a.highOut, offset = a.offset;
  const Acc lowS = static_cast<Acc>(a.lowS), highS = static_cast<Acc>(a.highS);
  C c[3][kBlock];
  T out[3][kBlock];
  for (int y = 0; y < v[1].height; ++y) {
    const Row3<const T> s = row3<const T>(v[0], y, false);
    const Row3<T> d = row3<T>(v[1], y, false);
    for (int x0 = 0; x0 < v[1].width; x0 += kBlock) {
      const int n = std::min(kBlock, v[1].width - x0);
      byLayout(s, [&](auto at) {
        for (int j = 0; j < n; ++j)
          c[0][j] = at(0, x0 + j), c[1][j] = at(1, x0 + j), c[2][j] = at(2, x0 + j);
      });
      for (int i = 0; i < 3; ++i) {
        const C m0 = static_cast<C>(a.d[4 * i]), m1 = static_cast<C>(a.d[4 * i + 1]);
        const C m2 = static_cast<C>(a.d[4 * i + 2]);
        const Acc m3 = a.d[4 * i + 3];
        for (int j = 0; j < n; ++j) {
          const Acc sum = Acc(m0 * c[0][j]) + Acc(m1 * c[1][j]) + Acc(m2 * c[2][j]) + m3;
          // Wraps only where the bands below choose the saturated ends (an
          // offset near the ends of int).
          const Acc inside = static_cast<Acc>(static_cast<std::make_unsigned_t<Acc>>(offset) +
                                              static_cast<std::make_unsigned_t<Acc>>(sum >> shift));
          out[i][j] = static_cast<T>(sum < lowS ? lowOut : sum >= highS ? highOut : inside);
        }
      }
      byLayout(d, [&](auto at) {
        for (int j = 0; j < n; ++j)
          at(0, x0 + j) = out[0][j], at(1, x0 + j) = out[1][j], at(2, x0 + j) = out[2][j];
      });
    }
  }
}

#if defined(MOX_COLOR_LANES)
// The twist of matrices whose first three columns fit in 16 bits and whose
// sums fit in 32, in vectors of 16-bit values: each pair of channels meets
// its pair of entries in one multiply-and-add of 32-bit lanes (products of
// 16-bit numbers are exact, and the sums are exact modulo 2^32, where the
// true sum lies in int). 16-bit channels are biased by -32768 to fit, and
// the bias times the entries joins the translation.
//
// The bands come out as one clamp: with t = sum >> shift (floor of the
// sum over 2^shift, which is trunc(v) wherever v >= 0), the result is
// off + min(max(t, lo), hi). For 0 <= offset < M: lo 0 and hi M - offset
// (t < 0 gives the offset, t > M - offset gives M); for -(M-1) <= offset < 0:
// lo -offset and hi M; beyond, off 0 and lo = hi = the one value painted.
namespace lanes {
using V = decltype(MOX_COLOR_SI(setzero)());
inline V load(const void* p) { return MOX_COLOR_SI(loadu)(static_cast<const V*>(p)); }
inline void store(void* p, V x) { MOX_COLOR_SI(storeu)(static_cast<V*>(p), x); }
inline V splat32(int x) { return MOX_COLOR_V(set1_epi32)(x); }
inline V splat16(int x) { return MOX_COLOR_V(set1_epi16)(static_cast<short>(x)); }
inline V zero() { return MOX_COLOR_SI(setzero)(); }
inline V low16(V a, V b) { return MOX_COLOR_V(unpacklo_epi16)(a, b); }
inline V high16(V a, V b) { return MOX_COLOR_V(unpackhi_epi16)(a, b); }
inline V madd(V a, V b) { return MOX_COLOR_V(madd_epi16)(a, b); }
inline V add32(V a, V b) { return MOX_COLOR_V(add_epi32)(a, b); }
inline V sra32(V a, int n) { return MOX_COLOR_V(sra_epi32)(a, _mm_cvtsi32_si128(n)); }
inline V pack32(V a, V b) { return MOX_COLOR_V(packs_epi32)(a, b); }
inline V add16(V a, V b) { return MOX_COLOR_V(add_epi16)(a, b); }
inline V max16(V a, V b) { return MOX_COLOR_V(max_epi16)(a, b); }
inline V min16(V a, V b) { return MOX_COLOR_V(min_epi16)(a, b); }
// 32-bit values to 16 bits, cut to 0..65535 and, with Band, to lo..hi
// inside that (given by bound16).
#if defined(MOX_COLOR_WIDE_BODY)
inline V bound16(int x) { return splat16(x); }
template <bool Band>
inline V packUnsigned32(V a, V b, V lo, V hi) {
  const V r = _mm256_packus_epi32(a, b);
  return Band ? _mm256_min_epu16(_mm256_max_epu16(r, lo), hi) : r;
}
#else
// Through the signed pack, on values biased by -32768 until the end.
inline V bound16(int x) { return splat16(x ^ 0x8000); }
template <bool Band>
inline V packUnsigned32(V a, V b, V lo, V hi) {
  const V bias = _mm_set1_epi32(32768);
  V r = _mm_packs_epi32(_mm_sub_epi32(a, bias), _mm_sub_epi32(b, bias));
  if (Band) r = _mm_min_epi16(_mm_max_epi16(r, lo), hi);
  return _mm_xor_si128(r, _mm_set1_epi16(-32768));
}
#endif
constexpr int kWidth = int(sizeof(V) / 2);  // 16-bit values a vector
}  // namespace lanes

#if defined(MOX_COLOR_WIDE_BODY)
// The twist of a row of 8-bit pixels of three channels, 16 pixels a step,
// without gathering them: each 128-bit lane takes eight pixels (24 bytes),
// through two loads 8 bytes apart, and the byte shuffles place each pixel's
// channels as 16-bit numbers straight into the pairs the multiplies want;
// the results go back into three-byte pixels the same way. Returns the
// pixels done (the rest is left to the blocks).
// 16 bytes at p and 16 at p + gap.
inline __m256i twoPieces(const void* p, int gap = 24) {
  const auto* b = static_cast<const char*>(p);
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(b))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + gap)), 1);
}

// A byte shuffle, the same in both 128-bit lanes: byte i of the result is
// byte m(i) of the source's lane, or 0 where m(i) is negative.
template <class F>
inline __m256i shuffleOf(F m) {
  alignas(16) std::int8_t b[16];
  for (int i = 0; i < 16; ++i) b[i] = static_cast<std::int8_t>(m(i) < 0 ? -128 : m(i));
  return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(b)));
}

// The same for 16-bit pixels of three channels, 16 a step, four to a lane
// and a load: the lanes take pixels 0-3 and 8-11, then 4-7 and 12-15, so
// that the results' lanes hold pixels 0-7 and 8-15, 48 bytes each. The
// first and second loads of a lane (its bytes 0..15 and 8..23) give the
// pairs (c0, c1) and (c2, -) of a pixel as whole 32-bit pieces.
template <class F>
inline int twistPixels3(const std::uint16_t* s, std::uint16_t* d, int width, const F& twist) {
  const __m256i take01[2] = {shuffleOf([](int i) { return 6 * (i / 4) + i % 4; }),
                             shuffleOf([](int i) { return 6 * (i / 4) + i % 4 - 8; })};
  const __m256i take2[2] = {shuffleOf([](int i) { return i % 4 < 2 ? 6 * (i / 4) + 4 + i % 4 : -1; }),
                            shuffleOf([](int i) { return i % 4 < 2 ? 6 * (i / 4) + i % 4 - 4 : -1; })};
  const __m256i bias = _mm256_set1_epi16(-32768);
  // Output piece q (16 bytes) holds values 8q .. 8q + 7 of the lane's 24,
  // value v being channel v % 3 of pixel v / 3. One shuffle a channel puts
  // each pixel in the slot it takes in its piece (slot v % 8), so that the
  // pieces are blends of the three shuffled channels: channel k fills the
  // slots s of piece q with (8q + s) % 3 == k, and those slots are not
  // shared between the pixels that land in the same one.
  __m256i put[3];
  for (int k = 0; k < 3; ++k)
    put[k] = shuffleOf([k](int i) {
      const int slot = i / 2;
      for (int q = 0; q < 3; ++q)
        if ((8 * q + slot) % 3 == k) return 2 * ((8 * q + slot) / 3) + i % 2;
      return -1;
    });
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    const std::uint16_t* from = s + 3 * x;
    __m256i p01[2], p2[2];
    for (int g = 0; g < 2; ++g) {
      const __m256i a = twoPieces(from + 12 * g, 48), b = twoPieces(from + 12 * g + 4, 48);
      p01[g] = _mm256_xor_si256(
          _mm256_blend_epi32(_mm256_shuffle_epi8(a, take01[0]), _mm256_shuffle_epi8(b, take01[1]), 0x88), bias);
      p2[g] = _mm256_xor_si256(
          _mm256_blend_epi32(_mm256_shuffle_epi8(a, take2[0]), _mm256_shuffle_epi8(b, take2[1]), 0xcc), bias);
    }
    __m256i r[3];
    twist(p01, p2, r);
    std::uint16_t* to = d + 3 * x;
    const __m256i c0 = _mm256_shuffle_epi8(r[0], put[0]), c1 = _mm256_shuffle_epi8(r[1], put[1]),
                  c2 = _mm256_shuffle_epi8(r[2], put[2]);
    // Slot s of piece q is channel (8q + s) % 3: masks by s, bit s set
    // where the later operand is taken.
    const __m256i piece[3] = {_mm256_blend_epi16(_mm256_blend_epi16(c0, c1, 0x92), c2, 0x24),
                              _mm256_blend_epi16(_mm256_blend_epi16(c0, c1, 0x24), c2, 0x49),
                              _mm256_blend_epi16(_mm256_blend_epi16(c0, c1, 0x49), c2, 0x92)};
    for (int q = 0; q < 3; ++q) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8 * q), _mm256_castsi256_si128(piece[q]));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 24 + 8 * q), _mm256_extracti128_si256(piece[q], 1));
    }
  }
  return x;
}

template <class F>
inline int twistPixels3(const std::uint8_t* s, std::uint8_t* d, int width, const F& twist) {
  constexpr char z = char(0x80);
  const __m256i take01a = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, z, 1, z, 3, z, 4, z, 6, z, 7, z, 9, z, 10, z));
  const __m256i take2a = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(2, z, z, z, 5, z, z, z, 8, z, z, z, 11, z, z, z));
  const __m256i take01b = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(4, z, 5, z, 7, z, 8, z, 10, z, 11, z, 13, z, 14, z));
  const __m256i take2b = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(6, z, z, z, 9, z, z, z, 12, z, z, z, 15, z, z, z));
  // From (c0 of the eight pixels, c1 of them) and (c2, c2): output bytes
  // 0..15, then 16..23.
  const __m256i put01a = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 8, z, 1, 9, z, 2, 10, z, 3, 11, z, 4, 12, z, 5));
  const __m256i put2a = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(z, z, 0, z, z, 1, z, z, 2, z, z, 3, z, z, 4, z));
  const __m256i put01b = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(13, z, 6, 14, z, 7, 15, z, z, z, z, z, z, z, z, z));
  const __m256i put2b = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(z, 5, z, z, 6, z, z, 7, z, z, z, z, z, z, z, z));
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    const std::uint8_t* from = s + 3 * x;
    const __m256i a = twoPieces(from), b = twoPieces(from + 8);
    const __m256i p01[2] = {_mm256_shuffle_epi8(a, take01a), _mm256_shuffle_epi8(b, take01b)};
    const __m256i p2[2] = {_mm256_shuffle_epi8(a, take2a), _mm256_shuffle_epi8(b, take2b)};
    __m256i r[3];
    twist(p01, p2, r);
    const __m256i c01 = _mm256_packus_epi16(r[0], r[1]), c2 = _mm256_packus_epi16(r[2], r[2]);
    const __m256i head = _mm256_or_si256(_mm256_shuffle_epi8(c01, put01a), _mm256_shuffle_epi8(c2, put2a));
    const __m256i tail = _mm256_or_si256(_mm256_shuffle_epi8(c01, put01b), _mm256_shuffle_epi8(c2, put2b));
    std::uint8_t* to = d + 3 * x;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(head));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_castsi256_si128(tail));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 24), _mm256_extracti128_si256(head, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 40), _mm256_extracti128_si256(tail, 1));
  }
  return x;
}
#endif

// The vectors of one call: entries, translations and the band.
struct LaneTwist {
  lanes::V pair[3], third[3], constant[3];
  lanes::V lo, hi, off;
  int shift;
};

// How the sums of a 16-bit twist become results. Folded: the offset is
// part of the translation, since (S + offset 2^shift) >> shift is
// t + offset exactly, so the results come straight out of the sums; the
// unsigned pack's cut to 0..65535 is then the whole band of offset 0, and
// other offsets add one more clamp to lowOut..highOut (a negative offset
// lowers the top, a positive one raises the bottom). Carried: the
// translation is a multiple of 32768 small enough to ride in the multiply
// of (c2, -32768), and no addition is left. Without Folded the result is
// off + clamp(t, lo, hi) as above.
enum : int { kFolded = 1, kBand = 2, kCarried = 4 };

template <class T, int Form>
void twistRows(const View* v, const LaneTwist& k) {
  using namespace lanes;
  constexpr bool wide = sizeof(T) == 2;
  constexpr unsigned bias = wide ? 32768u : 0u;
  // The three results of kWidth pixels, 16 bits each, from their channel
  // pairs (c0, c1) and (c2, x) in 32-bit lanes, x being -32768 at 16 bits
  // and 0 at 8: the first and second halves of the pixels (of each 128-bit
  // lane) apart.
  const auto twist = [&k](const V (&p01)[2], const V (&p2)[2], V (&r)[3]) {
    for (int i = 0; i < 3; ++i) {
      V t[2];
      for (int h = 0; h < 2; ++h) {
        V sum = add32(madd(p01[h], k.pair[i]), madd(p2[h], k.third[i]));
        if constexpr (!(Form & kCarried)) sum = add32(sum, k.constant[i]);
        t[h] = sra32(sum, k.shift);
      }
      if constexpr (!wide)
        r[i] = add16(min16(max16(pack32(t[0], t[1]), k.lo), k.hi), k.off);
      else if constexpr ((Form & kFolded) != 0)
        r[i] = packUnsigned32<(Form & kBand) != 0>(t[0], t[1], k.lo, k.hi);
      else
        r[i] = add16(packUnsigned32<true>(t[0], t[1], k.lo, k.hi), k.off);
    }
  };
  const V x = wide ? splat16(-32768) : zero();
  // Lanes past a block's last pixel compute on what the arrays hold.
  alignas(32) std::int16_t c[3][kBlock] = {};
  alignas(32) std::int16_t out[3][kBlock];
  for (int y = 0; y < v[1].height; ++y) {
    const Row3<const T> s = row3<const T>(v[0], y, false);
    const Row3<T> d = row3<T>(v[1], y, false);
    int done = 0;
#if defined(MOX_COLOR_WIDE_BODY)
    if (s.step == 3 && d.step == 3 && s.c[1] == s.c[0] + 1 && s.c[2] == s.c[0] + 2 &&
        d.c[1] == d.c[0] + 1 && d.c[2] == d.c[0] + 2)
      done = twistPixels3(s.c[0], d.c[0], v[1].width, twist);
#endif
    for (int x0 = done; x0 < v[1].width; x0 += kBlock) {
      const int n = std::min(kBlock, v[1].width - x0);
      byLayout(s, [&](auto at) {
        for (int j = 0; j < n; ++j)
          for (int q = 0; q < 3; ++q) c[q][j] = static_cast<std::int16_t>(at(q, x0 + j) - bias);
      });
      for (int j = 0; j < n; j += kWidth) {
        const V c0 = load(c[0] + j), c1 = load(c[1] + j), c2 = load(c[2] + j);
        const V p01[2] = {low16(c0, c1), high16(c0, c1)}, p2[2] = {low16(c2, x), high16(c2, x)};
        V r[3];
        twist(p01, p2, r);
        for (int i = 0; i < 3; ++i) store(out[i] + j, r[i]);
      }
      byLayout(d, [&](auto at) {
        for (int j = 0; j < n; ++j)
          for (int q = 0; q < 3; ++q) at(q, x0 + j) = static_cast<T>(out[q][j]);
      });
    }
  }
}

template <class T>
void twistLanes(const View* v, const void* arg) {
  using namespace lanes;
  const TwistArgs& a = *static_cast<const TwistArgs*>(arg);
  constexpr bool wide = sizeof(T) == 2;
  constexpr int M = wide ? 65535 : 255;
  constexpr long long bias = wide ? 32768 : 0;
  const int offset = a.offset, shift = a.shift;
  const bool ordinary = offset > -M && offset < M;
  // The offset joins the translations when every sum with it stays in int.
  bool folded = wide && ordinary;
  long long constant[3];
  for (int i = 0; i < 3; ++i) {
    long long bound = std::llabs(a.d[4 * i + 3]), entries = 0;
    for (int q = 0; q < 3; ++q) bound += std::llabs(a.d[4 * i + q]) * M, entries += a.d[4 * i + q];
    if (folded) folded = bound + std::llabs(offset) * (1ll << shift) <= 0x7ffffffe;
    constant[i] = a.d[4 * i + 3] + bias * entries;
  }
  // Each translation as a 32-bit number (sums are exact modulo 2^32), and
  // whether all three are -32768 times a 16-bit one.
  bool carried = folded;
  LaneTwist k;
  std::int32_t carry[3];
  for (int i = 0; i < 3; ++i) {
    const long long full = constant[i] + (folded ? offset * (1ll << shift) : 0);
    const std::int32_t low = static_cast<std::int32_t>(static_cast<std::uint32_t>(full));
    carry[i] = -(low / 32768);
    carried = carried && low % 32768 == 0 && carry[i] >= -32768 && carry[i] <= 32767;
    k.constant[i] = splat32(low);
  }
  for (int i = 0; i < 3; ++i) {
    const unsigned m0 = unsigned(a.d[4 * i]), m1 = unsigned(a.d[4 * i + 1]), m2 = unsigned(a.d[4 * i + 2]);
    k.pair[i] = splat32(int((m0 & 0xffffu) | (m1 << 16)));
    const unsigned high = carried ? unsigned(carry[i]) << 16 : 0u;
    k.third[i] = splat32(int((m2 & 0xffffu) | high));
  }
  k.shift = shift;
  int off = offset, lo, hi;
  if (folded)
    off = 0, lo = a.lowOut, hi = a.highOut;
  else if (!ordinary)
    off = 0, lo = hi = offset >= M ? M : 0;
  else
    lo = offset < 0 ? -offset : 0, hi = offset < 0 ? M : M - offset;
  k.off = splat16(off);
  k.lo = wide ? bound16(lo) : splat16(lo);
  k.hi = wide ? bound16(hi) : splat16(hi);
  if (!folded)
    twistRows<T, 0>(v, k);
  else if (offset == 0)
    carried ? twistRows<T, kFolded | kCarried>(v, k) : twistRows<T, kFolded>(v, k);
  else
    carried ? twistRows<T, kFolded | kBand | kCarried>(v, k) : twistRows<T, kFolded | kBand>(v, k);
}
#endif

// ---------------------------------------------------------------- table

constexpr KernelTable makeTable() {
  KernelTable t{};
  using U8 = std::uint8_t;
  using U16 = std::uint16_t;
  using S32 = std::int32_t;
  t.toGray[0][0] = &toGray<U8, bool>, t.toGray[0][1] = &toGray<U8, U8>;
  t.toGray[0][2] = &toGray<U8, U16>;
  t.toGray[1][0] = &toGray<U16, bool>, t.toGray[1][1] = &toGray<U16, U8>;
  t.toGray[1][2] = &toGray<U16, U16>;
  t.toGray[2][0] = &toGray<S32, bool>, t.toGray[2][1] = &toGray<S32, U8>;
  t.toGray[2][2] = &toGray<S32, U16>;
  t.fromGray[0] = &fromGray<bool>, t.fromGray[1] = &fromGray<U8>;
  t.fromGray[2] = &fromGray<U16>, t.fromGray[3] = &fromGray<S32>;
  t.three[0][0] = &threeToThree<ToHSV<D8>>, t.three[0][1] = &threeToThree<ToHSV<D16>>;
  t.three[0][2] = &threeToThree<ToHSV<D32>>;
  t.three[1][0] = &threeToThree<FromHSV<D8>>, t.three[1][1] = &threeToThree<FromHSV<D16>>;
  t.three[1][2] = &threeToThree<FromHSV<D32>>;
  t.three[2][0] = &threeToThree<ToHLS<D8>>, t.three[2][1] = &threeToThree<ToHLS<D16>>;
  t.three[2][2] = &threeToThree<ToHLS<D32>>;
  t.three[3][0] = &threeToThree<FromHLS<D8>>, t.three[3][1] = &threeToThree<FromHLS<D16>>;
  t.three[3][2] = &threeToThree<FromHLS<D32>>;
#if defined(MOX_COLOR_LANES)
  t.twist[0][0] = &twistLanes<U8>, t.twist[1][0] = &twistLanes<U16>;
#else
  t.twist[0][0] = &twistKernel<U8, int, std::int16_t>, t.twist[1][0] = &twistKernel<U16, int>;
#endif
  t.twist[0][1] = &twistKernel<U8, int>;
  t.twist[0][2] = &twistKernel<U8, long long>;
  t.twist[1][1] = &twistKernel<U16, int>;
  t.twist[1][2] = &twistKernel<U16, long long>;
  return t;
}

}  // namespace
}  // namespace mox::color

#undef MOX_COLOR_V
#undef MOX_COLOR_SI
