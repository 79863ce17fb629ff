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

struct RowLoops {
  ZoomLoops<std::uint8_t> u8;
  ZoomLoops<std::int8_t> s8;
  ZoomLoops<std::uint16_t> u16;
  ZoomLoops<std::int16_t> s16;
  ZoomLoops<std::int32_t> s32;
  DecimLoops<std::uint8_t> decimU8;
  DecimLoops<std::uint16_t> decimU16;

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
