// The row loops of zoom and decimation: one pass of a separable resampling
// over the values of one row, written so that the compiler vectorises them.
// Included once per vector width (rows.cpp with the build's own vectors,
// rows_wide.cpp for 256-bit vectors, chosen at run time); everything here
// has internal linkage so that no copy compiled for one width stands in for
// the other. The results do not depend on the width: every value is the
// same sequence of correctly rounded operations.
#include <cstdint>

#include "geom/rowloops.h"

namespace mox::geom {
namespace {

// Truncates after the tolerance and clamps to [lo, hi] (clamping first keeps
// the conversion in range and gives the same value).
template <class T>
inline T toValue(double v, double lo, double hi) {
  v += 1e-7;
  v = v < lo ? lo : v;
  v = v > hi ? hi : v;
  return static_cast<T>(static_cast<std::int32_t>(v));
}

template <class T>
void linearY(const float* __restrict r0, const float* __restrict r1, double t, T* __restrict out,
             int n, double lo, double hi) {
  for (int e = 0; e < n; ++e) {
    const double a = r0[e], b = r1[e];
    out[e] = toValue<T>(a + (b - a) * t, lo, hi);
  }
}

template <class T>
void cubicY(const float* const* q, const double* c, T* __restrict out, int n, double lo,
            double hi) {
  const float* __restrict q0 = q[0];
  const float* __restrict q1 = q[1];
  const float* __restrict q2 = q[2];
  const float* __restrict q3 = q[3];
  const double c1 = c[0], c2 = c[1], c3 = c[2];
  for (int e = 0; e < n; ++e) {
    const double p0 = q0[e], p1 = q1[e], p2 = q2[e], p3 = q3[e];
    const double d1 = p1 - p0;
    const double d2 = (p2 - p1) - d1;
    const double d3 = (p1 + p3 - 2 * p2) - d2;
    out[e] = toValue<T>(p0 + d1 * c1 + d2 * c2 + d3 * c3, lo, hi);
  }
}

template <class T>
void widen(const T* __restrict src, int stride, int k, float* __restrict out, int pixels) {
  if (stride == k) {
    for (int i = 0; i < pixels * k; ++i) out[i] = static_cast<float>(src[i]);
    return;
  }
  for (int i = 0; i < pixels; ++i)
    for (int c = 0; c < k; ++c) out[i * k + c] = static_cast<float>(src[i * stride + c]);
}

void linearX(const float* __restrict src, const int* __restrict off, int next,
             const float* __restrict w, float* __restrict out, int n) {
  for (int e = 0; e < n; ++e) {
    const float a = src[off[e]], b = src[off[e] + next];
    out[e] = a + (b - a) * w[e];
  }
}

void cubicX(const float* __restrict src, const int* __restrict off, int next,
            const float* __restrict w, float* __restrict out, int n) {
  for (int e = 0; e < n; ++e) {
    const float* p = src + off[e];
    const float p0 = p[0], p1 = p[next], p2 = p[2 * next], p3 = p[3 * next];
    const float d1 = p1 - p0;
    const float d2 = (p2 - p1) - d1;
    const float d3 = (p1 + p3 - 2 * p2) - d2;
    out[e] = p0 + d1 * w[e] + d2 * w[n + e] + d3 * w[2 * n + e];
  }
}

template <class T>
constexpr ZoomLoops<T> zoomLoops() {
  return ZoomLoops<T>{&widen<T>, &linearX, &cubicX, &linearY<T>, &cubicY<T>};
}

}  // namespace

extern const RowLoops MOX_GEOM_LOOPS = {zoomLoops<std::uint8_t>(), zoomLoops<std::int8_t>(),
                                        zoomLoops<std::uint16_t>(), zoomLoops<std::int16_t>(),
                                        zoomLoops<std::int32_t>()};

}  // namespace mox::geom
