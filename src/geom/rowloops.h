// The table of the row loops of zoom and decimation, one per vector width.
#pragma once

#include <cstdint>
#include <type_traits>

namespace mox::geom {

// The passes of zoom for values of type T: a source row's pixels (k values
// each, `stride` values apart) as floats; along x from such a row into
// single-precision row buffers (linear: w holds t per value; cubic: the
// three Newton weights as three runs of n values); and along y from
// buffered rows into values truncated after the tolerance and clamped to
// [lo, hi].
template <class T>
struct ZoomLoops {
  void (*widen)(const T* src, int stride, int k, float* out, int pixels);
  void (*linearX)(const float* src, const int* off, int next, const float* w, float* out, int n);
  void (*cubicX)(const float* src, const int* off, int next, const float* w, float* out, int n);
  void (*linearY)(const float* r0, const float* r1, double t, T* out, int n, double lo,
                  double hi);
  // Two destination rows between the same buffered rows, at t0 and t1.
  void (*linearY2)(const float* r0, const float* r1, double t0, double t1, T* out0, T* out1, int n,
                   double lo, double hi);
  void (*cubicY)(const float* const* rows, const double* c, T* out, int n, double lo, double hi);
};

// The passes of decimation: a source row's pixels as 32-bit values (as
// zoom's); along x from such a row (`next` values per pixel) into 32-bit
// sums (linear: in 1/256, offsets of the two samples as two runs of n;
// cubic: in 1/1536, four runs), f the fraction per value; along y into
// rounded, clamped values.
template <class T>
struct DecimLoops {
  void (*widen)(const T* src, int stride, int k, int* out, int pixels);
  void (*linearX)(const int* src, const int* off, const int* f, int* out, int n, int next);
  void (*cubicX)(const int* src, const int* off, const int* f, int* out, int n, int next);
  void (*linearY)(const int* h0, const int* h1, int f, T* out, int n);
  void (*cubicY)(const int* const* rows, int f, T* out, int n, double hi);
};

// Gathers of bytes along a row by offsets that repeat from row to row (the
// samples of nearest neighbour, the two of linear decimation): planned once
// per piece, in groups of 16 values. A group whose offsets fit a window of
// 32 bytes inside the row (from its lowest offset, or moved back so that
// it ends with the row) keeps the window's start in base and, per value,
// the place of its byte in the first 16 bytes (mask lo) or the next 16
// (mask hi), 0x80 in the other; any other group has base -1 and is
// gathered value by value.
struct BytePlan {
  int* base;            // one per group
  std::uint8_t* masks;  // 32 per group: lo, then hi
};

// Plans the groups of n values (a last partial group is always gathered
// value by value); `limit` is the number of bytes of the row that may be
// read from its start.
inline void planBytes(const int* off, int n, int limit, const BytePlan& plan) {
  for (int g = 0; g < n / 16; ++g) {
    const int* o = off + 16 * g;
    int lo = o[0], hi = o[0];
    for (int i = 1; i < 16; ++i) {
      lo = o[i] < lo ? o[i] : lo;
      hi = o[i] > hi ? o[i] : hi;
    }
    const int base = lo < limit - 32 ? lo : limit - 32;
    if (base < 0 || hi - base >= 32) {
      plan.base[g] = -1;
      continue;
    }
    plan.base[g] = base;
    std::uint8_t* m = plan.masks + 32 * g;
    for (int i = 0; i < 16; ++i) {
      const int at = o[i] - base;
      m[i] = static_cast<std::uint8_t>(at < 16 ? at : 0x80);
      m[16 + i] = static_cast<std::uint8_t>(at >= 16 ? at - 16 : 0x80);
    }
  }
}

// The byte loops, present only where the processor has byte shuffles
// (null otherwise): out[e] = src[off[e]]; the linear weighing of
// decimation along x on 8-bit samples, out[e] = (256 - f[e]) * src[off[e]]
// + f[e] * src[off[n + e]], with a plan for each of the two runs of
// offsets; and zoom's linear pass along x on 8-bit samples, the same
// single-precision a + (b - a) * w[e] as ZoomLoops::linearX with a the
// sample at off[e] and b the one at off[n + e].
struct ByteLoops {
  void (*gather)(const std::uint8_t* src, const int* off, const BytePlan& plan, std::uint8_t* out,
                 int n);
  void (*decimLinearX)(const std::uint8_t* src, const int* off, const int* f, const BytePlan& p0,
                       const BytePlan& p1, int* out, int n);
  void (*zoomLinearX)(const std::uint8_t* src, const int* off, const float* w, const BytePlan& p0,
                      const BytePlan& p1, float* out, int n);
};

struct RowLoops {
  ZoomLoops<std::uint8_t> u8;
  ZoomLoops<std::int8_t> s8;
  ZoomLoops<std::uint16_t> u16;
  ZoomLoops<std::int16_t> s16;
  ZoomLoops<std::int32_t> s32;
  DecimLoops<std::uint8_t> decimU8;
  DecimLoops<std::uint16_t> decimU16;
  ByteLoops bytes;

  template <class T>
  const DecimLoops<T>& decim() const {
    if constexpr (std::is_same_v<T, std::uint8_t>)
      return decimU8;
    else
      return decimU16;
  }
  template <class T>
  const ZoomLoops<T>& of() const {
    if constexpr (std::is_same_v<T, std::uint8_t>) {
      return u8;
    } else if constexpr (std::is_same_v<T, std::int8_t>) {
      return s8;
    } else if constexpr (std::is_same_v<T, std::uint16_t>) {
      return u16;
    } else if constexpr (std::is_same_v<T, std::int16_t>) {
      return s16;
    } else {
      return s32;
    }
  }
};

// The build's own vectors, and 256-bit vectors on x86-64.
extern const RowLoops kBaseLoops;
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_GEOM_HAVE_WIDE 1
extern const RowLoops kWideLoops;
#endif

// The table for this processor.
const RowLoops& rowLoops();

}  // namespace mox::geom
