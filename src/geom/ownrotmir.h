// What mirroring and rotation share: the clipped rectangle of an image, plain
// views of its rectangles, and the copy of one row of samples, forward or
// reversed, that both the mirror and the half turn are made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "arith/arith.h"
#include "frame/frame.h"
#include "image/pointop.h"
#include "image/walk.h"

namespace mox::geom {

// A rectangle in image coordinates.
struct Rect {
  int x, y, w, h;
};

// The image's ROI clipped to the image (the whole image without one); an
// empty rectangle has w or h 0.
inline Rect clippedRect(const MoxImage* im) {
  if (const MoxROI* r = im->roi) {
    const long long w = im->width - static_cast<long long>(r->xOffset);
    const long long h = im->height - static_cast<long long>(r->yOffset);
    return {r->xOffset, r->yOffset, static_cast<int>(w < r->width ? (w > 0 ? w : 0) : r->width),
            static_cast<int>(h < r->height ? (h > 0 ? h : 0) : r->height)};
  }
  return {0, 0, im->width, im->height};
}

inline int coiOf(const MoxImage* im) { return im->roi ? im->roi->coi : 0; }

// The view of rectangle r of an untiled image.
inline View viewOf(const MoxImage* im, const Rect& r) {
  return blockView(im, im->imageData, im->widthStep, static_cast<long long>(im->widthStep) * im->height,
                   0, 0, r.x, r.y, r.w, r.h);
}

// The bytes a view's rows touch, from its first to one past its last; used
// to tell whether two views share memory.
inline void spanOf(const View& v, std::uintptr_t* begin, std::uintptr_t* end) {
  const unsigned bits = depthBits(v.depth);
  const std::ptrdiff_t planes = v.dataOrder == 1 ? v.nChannels - 1 : 0;
  const std::ptrdiff_t rowBytes =
      bits == 1 ? (v.bitOffset + v.width + 7) / 8
                : std::ptrdiff_t(v.width) * (bits / 8) * (v.dataOrder == 0 ? v.nChannels : 1);
  *begin = reinterpret_cast<std::uintptr_t>(v.data);
  *end = *begin + std::uintptr_t(planes * v.planeStep) +
         std::uintptr_t(std::ptrdiff_t(v.height - 1) * v.widthStep + rowBytes);
}

inline bool overlap(const View& a, const View& b) {
  std::uintptr_t a0, a1, b0, b1;
  spanOf(a, &a0, &a1);
  spanOf(b, &b0, &b1);
  return a0 < b1 && b0 < a1;
}

// A block from moxMalloc, released with moxFree.
struct Freer {
  void operator()(void* p) const { moxFree(p); }
};
using Buffer = std::unique_ptr<char, Freer>;

// A zeroed block of `bytes` (null when it does not fit in 32 bits or cannot
// be had). Zeroed, because 1-bit rows copied into it leave the spare bits of
// their last byte unwritten, and the bit reversal looks whole bytes up.
inline Buffer allocate(long long bytes) {
  if (bytes <= 0 || bytes > 0x7fffffff) return nullptr;
  Buffer block(static_cast<char*>(moxMalloc(static_cast<int>(bytes))));
  if (block) std::memset(block.get(), 0, static_cast<std::size_t>(bytes));
  return block;
}

// Bytes of one row of the view's rectangle (all planes in plane order).
inline long long rowBytes(const View& v) {
  const unsigned bits = depthBits(v.depth);
  if (bits == 1) return (v.bitOffset + static_cast<long long>(v.width) + 7) / 8;
  return static_cast<long long>(v.width) * (bits / 8) * v.nChannels;
}

// A view laid out like v over `rows` rows of rowBytes(v) bytes at data.
inline View packedLike(const View& v, char* data, int rows) {
  View t = v;
  const long long bytes = rowBytes(v);
  const long long planeBytes = v.dataOrder == 1 ? bytes / v.nChannels : bytes;
  t.data = data;
  t.widthStep = static_cast<int>(v.dataOrder == 1 ? planeBytes : bytes);
  t.height = rows;
  t.planeStep = static_cast<std::ptrdiff_t>(planeBytes * rows);
  return t;
}

// ---------------------------------------------------------------- rows

// One row of samples a copy works on: `lanes` runs (planes) `laneStep` bytes
// apart; in each run, pixels `stride` samples apart of `count` samples each.
struct RowShape {
  std::ptrdiff_t offset;  // bytes from the view's data to the first sample
  std::ptrdiff_t laneStep;
  int lanes;
  int stride;
  int count;
};

// How a view's row is walked: all channels of a pixel together, or only the
// channel of interest.
inline RowShape rowShape(const View& v) {
  const int bytes = static_cast<int>(depthBits(v.depth) / 8);
  if (v.dataOrder == 0) {
    if (v.coi == 0) return {0, 0, 1, v.nChannels, v.nChannels};
    return {std::ptrdiff_t(v.coi - 1) * bytes, 0, 1, v.nChannels, 1};
  }
  if (v.coi == 0) return {0, v.planeStep, v.nChannels, 1, 1};
  return {std::ptrdiff_t(v.coi - 1) * v.planeStep, 0, 1, 1, 1};
}

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_GEOM_HAVE_WIDE 1
// Reverses a run of w three-byte pixels (d[j] takes s[w - 1 - j]) with byte
// shuffles, from the source's first pixel on: returns how many source
// pixels it did (the same number of the destination's last pixels). Only on
// processors with 256-bit vectors. With `stream` the vectors are stored
// past the caches, and the end of d must lie on a 16-byte boundary.
int reversePixels3Wide(const std::uint8_t* s, std::uint8_t* d, int w, bool stream = false);
// The same for one-byte pixels (streamed: the end of d on a 32-byte boundary).
int reverseBytesWide(const std::uint8_t* s, std::uint8_t* d, int w, bool stream = false);
// Copies `rows` rows of n bytes, the next source row ss bytes on and the
// next destination row ds bytes on (either may be negative), fetching the
// next source row into the first-level cache as it goes; the two share no
// memory. Only on processors with 256-bit vectors.
void copyRowsWide(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds,
                  int rows, std::ptrdiff_t n);
// True when the processor has the byte permutes across two 256-bit vectors
// (and the system keeps their registers); asked once.
bool byteTables();
// Reverses rows as copyRowsWide copies them, each of w packed pixels of
// pixelBytes bytes, fetching the next source row as it goes. False, with
// nothing written, where it cannot: pixels other than 1, 2 or 4 bytes (or
// 3 or 6 with byteTables()), rows under 64 bytes (3 or 6: 96).
bool reverseRowsWide(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds,
                     int rows, int w, int pixelBytes);
// In place: row a takes row b reversed and b takes a reversed (a and b the
// same row, or rows that share no memory), for w pixels of 1, 2 or 4 bytes
// in rows of at least 128 bytes; false, with nothing written, otherwise.
bool reverseRowPairWide(std::uint8_t* a, std::uint8_t* b, int w, int pixelBytes);
#endif

#if defined(MOX_GEOM_HAVE_WIDE)
// The linear samples of 8-bit pixels for a run of rotated positions: the
// source view (`data` its first pixel, rows `step` bytes apart, at image
// column x0 and row y0, width x height pixels), and per position its
// coordinates and indices.
struct ByteSamples {
  const char* data;
  std::ptrdiff_t step;
  int x0, y0, width, height;
  const float* xs;
  const float* ys;
  const int* ix;
  const int* iy;
};
// Eight positions at a time whose 2 x 2 samples all lie inside the view
// (away from the image's last columns and row, where the stencil moves
// back, and from its outside, which gives 0): the K values (1 or 3, all
// channels of pixels packed together) of out's pixels j for the positions
// of such a group, done[g] set for group g (positions 8g to 8g + 7) and
// cleared for the others. Only on processors with 256-bit vectors.
template <int K>
void linearBytesWide(const ByteSamples& s, int n, std::uint8_t* out, bool* done);
// The same for nearest neighbour on three-byte pixels: each pixel's sample
// inside the view, with the next pixel of its row (its 32-bit word).
void nearestBytes3Wide(const ByteSamples& s, int n, std::uint8_t* out, bool* done);
// Rotated positions of a run of a destination row, eight at a time:
// xs = c * x - a + xShift and ys = s * x + b + yShift in single precision for
// x = x0 + j, and their indices (-1 at or below -1e-7, the size from the
// end of the image on, else trunc(position + 1e-7)); returns how many it
// did (a multiple of eight). Sizes up to 2^24.
struct RowMap {
  float c, s, a, b, xShift, yShift;
  int x0, width, height;
};
int positionsWide(const RowMap& m, int n, float* xs, float* ys, int* ix, int* iy);
// Nearest neighbour on one-byte pixels straight from the row's map: for
// each position its sample where its indices lie in the view (s's data,
// step and extent; its positions and indices unused), else 0. Returns how
// many it did (a multiple of eight). Sizes up to 2^24.
int nearestBytesWide(const RowMap& m, const ByteSamples& s, int n, std::uint8_t* out);
// The same for cubic interpolation (the 4 x 4 samples inside the view,
// away from the image's first and last columns and rows).
template <int K>
void cubicBytesWide(const ByteSamples& s, int n, std::uint8_t* out, bool* done);
#endif

#if defined(__SSE2__)
// The sixteen bytes of v in reverse order.
inline __m128i reversedLanes(__m128i v, std::uint8_t) {
  v = _mm_shuffle_epi32(v, 0x1B);
  v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xB1), 0xB1);
  return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}
inline __m128i reversedLanes(__m128i v, std::uint16_t) {
  v = _mm_shuffle_epi32(v, 0x1B);
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xB1), 0xB1);
}
inline __m128i reversedLanes(__m128i v, std::uint32_t) { return _mm_shuffle_epi32(v, 0x1B); }
#endif

// d[j] = s[w - 1 - j] for j below w. The source is read forwards (where
// the processor's prefetching expects it) and the destination written
// backwards.
template <class T>
inline void reverseRun(const T* s, T* d, int w) {
  int i = 0;
#if defined(MOX_GEOM_HAVE_WIDE)
  if constexpr (sizeof(T) == 1) {
    if (wideVectors()) i = reverseBytesWide(s, d, w);
  }
#endif
#if defined(__SSE2__)
  constexpr int kLanes = 16 / sizeof(T);
  for (; i + kLanes <= w; i += kLanes) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + w - i - kLanes), reversedLanes(v, T{}));
  }
#endif
  for (; i < w; ++i) d[w - 1 - i] = s[i];
}


// Reverses w packed pixels of K values of T (pixel j of d takes pixel
// w - 1 - j of s) with vectors stored on their own boundaries, and past the
// caches when streamed (the caller fences the stores). One vector's pixels
// from each end of s go plainly to the ends of d, where they may straddle
// the boundaries; the aligned vectors between them start from the last
// boundary in d. False, with nothing written, where no vectors can do it
// (other pixel sizes, short runs, or d off its values' boundary).
template <class T, int K, bool Stream>
inline bool reverseAligned(const T* s, T* d, int w) {
  constexpr int kPixel = int(sizeof(T)) * K;
  int boundary = 0;
#if defined(MOX_GEOM_HAVE_WIDE)
  if constexpr (kPixel == 3) {
    if (wideVectors()) boundary = 16;
  }
  if constexpr (kPixel == 1) {
    if (wideVectors()) boundary = 32;
  }
#endif
#if defined(__SSE2__)
  if constexpr (K == 1) {
    if (!boundary) boundary = 16;
  }
#endif
  // Pixels of one vector step.
  const int step = kPixel == 3 ? 16 : boundary / kPixel;
  const auto end = reinterpret_cast<std::uintptr_t>(d + std::ptrdiff_t(w) * K);
  if (!boundary || end % sizeof(T) || w < 4 * step) return false;
  auto plain = [&]([[maybe_unused]] const T* from, [[maybe_unused]] T* to) {
#if defined(MOX_GEOM_HAVE_WIDE)
    if constexpr (kPixel == 3) reversePixels3Wide(from, to, step);
#endif
    if constexpr (K == 1) reverseRun(from, to, step);
  };
  const int off = static_cast<int>(end % unsigned(boundary));
  // Three-byte steps: 11 * 3 = 1 modulo 16.
  const int head = kPixel == 3 ? (11 * off) % 16 : off / kPixel;
  const int n = w - head;
  if (head) plain(s, d + std::ptrdiff_t(w - step) * K);
  [[maybe_unused]] const T* rest = s + std::ptrdiff_t(head) * K;
  int i = 0;
#if defined(MOX_GEOM_HAVE_WIDE)
  if constexpr (kPixel == 3) i = reversePixels3Wide(rest, d, n, Stream);
  if constexpr (kPixel == 1) {
    if (boundary == 32) i = reverseBytesWide(rest, d, n, Stream);
  }
#endif
#if defined(__SSE2__)
  if constexpr (K == 1) {
    constexpr int kLanes = 16 / sizeof(T);
    for (; i + kLanes <= n; i += kLanes) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rest + i));
      __m128i* to = reinterpret_cast<__m128i*>(d + n - i - kLanes);
      if constexpr (Stream)
        _mm_stream_si128(to, reversedLanes(v, T{}));
      else
        _mm_store_si128(to, reversedLanes(v, T{}));
    }
  }
#endif
  if (i < n) plain(s + std::ptrdiff_t(w - step) * K, d);
  return true;
}

// Copies w pixels of `count` samples, pixels `ss` and `ds` samples apart;
// reversed, pixel j of d takes pixel w - 1 - j of s.
template <class T, int K>
inline void copyPixels(const T* s, int ss, T* d, int ds, int w, int count, bool reverse) {
  const int k = K ? K : count;
  if constexpr (K == 1 || K == 3) {
    if (reverse && ss == K && ds == K && reverseAligned<T, K, false>(s, d, w)) return;
  }
  if (reverse && k == 1 && ss == 1 && ds == 1) return reverseRun(s, d, w);
  if (!reverse) {
    if (ss == k && ds == k) {
      std::memcpy(d, s, std::size_t(w) * k * sizeof(T));
      return;
    }
    for (int j = 0; j < w; ++j)
      for (int c = 0; c < k; ++c) d[std::ptrdiff_t(j) * ds + c] = s[std::ptrdiff_t(j) * ss + c];
    return;
  }
  // As reverseRun: source pixels in order, destination pixels backwards.
  int i = 0;
#if defined(MOX_GEOM_HAVE_WIDE)
  if constexpr (sizeof(T) == 1 && K == 3)
    if (ss == 3 && ds == 3 && wideVectors()) i = reversePixels3Wide(s, d, w);
#endif
  T* last = d + std::ptrdiff_t(w - 1) * ds;
  for (; i < w; ++i)
    for (int c = 0; c < k; ++c) last[-std::ptrdiff_t(i) * ds + c] = s[std::ptrdiff_t(i) * ss + c];
}

// Reverses w packed bits: bit j of out is bit w - 1 - j of in (both from
// the most significant bit of their first byte).
void reverseBits(const unsigned char* in, int w, unsigned char* out);

// Where channel c of a view's row starts (bytes from the row's start) and
// how many samples apart its pixels are.
inline void channelRun(const View& v, int c, std::ptrdiff_t* offset, int* stride) {
  const int bytes = static_cast<int>(depthBits(v.depth) / 8);
  if (v.dataOrder == 0) {
    *offset = std::ptrdiff_t(c) * bytes, *stride = v.nChannels;
  } else {
    *offset = std::ptrdiff_t(c) * v.planeStep, *stride = 1;
  }
}

// Calls f(sOffset, sStride, dOffset, dStride, count) for each run of
// samples that a copy from s to d moves per pixel: offsets in bytes from the
// start of a row, strides in samples. Both views work on the same number of
// channels (their channels of interest, else all); their data orders may
// differ, and then every channel is a run of its own.
template <class F>
inline void forEachRun(const View& s, const View& d, F&& f) {
  const RowShape a = rowShape(s), b = rowShape(d);
  if (a.lanes == b.lanes && a.count == b.count) {
    for (int l = 0; l < b.lanes; ++l)
      f(a.offset + l * a.laneStep, a.stride, b.offset + l * b.laneStep, b.stride, b.count);
    return;
  }
  const int channels = d.coi ? 1 : d.nChannels;
  for (int k = 0; k < channels; ++k) {
    std::ptrdiff_t so, dof;
    int ss, ds;
    channelRun(s, s.coi ? s.coi - 1 : k, &so, &ss);
    channelRun(d, d.coi ? d.coi - 1 : k, &dof, &ds);
    f(so, ss, dof, ds, 1);
  }
}

// Copies n values past the caches (the caller fences the stores).
template <class T>
inline void streamCopy(const T* s, T* d, std::size_t n) {
  using D = std::conditional_t<sizeof(T) == 1, U8, std::conditional_t<sizeof(T) == 2, U16, U32>>;
  OpArgs args;
  args.stream = true;
  const std::size_t done =
      arith::runBlock<D>(arith::blocksFor(n * sizeof(T), args), arith::kCopy, s, nullptr, d, n, args);
  std::memcpy(d + done, s + done, (n - done) * sizeof(T));
}

// Copies row sy of s (w pixels from the view's first column) to row dy of d,
// reversed when asked; the two rows must not share memory.
template <class T>
void copyRow(const View& s, int sy, const View& d, int dy, int w, bool reverse) {
  const char* sRow = s.data + std::ptrdiff_t(sy) * s.widthStep;
  char* dRow = d.data + std::ptrdiff_t(dy) * d.widthStep;
  forEachRun(s, d, [&](std::ptrdiff_t so, int ss, std::ptrdiff_t dof, int ds, int count) {
    const T* sp = reinterpret_cast<const T*>(sRow + so);
    T* dp = reinterpret_cast<T*>(dRow + dof);
    if (d.large && ss == count && ds == count) {
      // Rows of a large destination are stored past the caches, as a copy
      // of the whole block would be (reversed rows through a small buffer
      // first); the caller fences the stores.
      if (!reverse) return streamCopy(sp, dp, std::size_t(w) * count);
      if (count == 1 && reverseAligned<T, 1, true>(sp, dp, w)) return;
      if (count == 3 && reverseAligned<T, 3, true>(sp, dp, w)) return;
      alignas(16) T buffer[4096 / sizeof(T)];
      const int per = static_cast<int>(sizeof buffer / sizeof(T)) / count;
      // Source pieces in order, each to its place from the row's end.
      for (int i0 = 0, m = 0; i0 < w; i0 += m) {
        m = w - i0 < per ? w - i0 : per;
        const T* from = sp + std::ptrdiff_t(i0) * ss;
        const int j0 = w - i0 - m;
        switch (count) {
          case 1: copyPixels<T, 1>(from, ss, buffer, count, m, 1, true); break;
          case 3: copyPixels<T, 3>(from, ss, buffer, count, m, 3, true); break;
          default: copyPixels<T, 0>(from, ss, buffer, count, m, count, true); break;
        }
        streamCopy(buffer, dp + std::ptrdiff_t(j0) * ds, std::size_t(m) * count);
      }
      return;
    }
    switch (count) {
      case 1: copyPixels<T, 1>(sp, ss, dp, ds, w, 1, reverse); break;
      case 3: copyPixels<T, 3>(sp, ss, dp, ds, w, 3, reverse); break;
      case 4: copyPixels<T, 4>(sp, ss, dp, ds, w, 4, reverse); break;
      default: copyPixels<T, 0>(sp, ss, dp, ds, w, count, reverse); break;
    }
  });
}

// The view moved to start at column x, row y of v.
inline View shifted(const View& v, int x, int y) {
  View r = v;
  const unsigned bits = depthBits(v.depth);
  std::ptrdiff_t byte;
  if (bits == 1) {
    const std::ptrdiff_t bit = std::ptrdiff_t(v.bitOffset) + x;
    byte = bit >> 3;
    r.bitOffset = static_cast<int>(bit & 7);
  } else {
    byte = std::ptrdiff_t(x) * (bits / 8) * (v.dataOrder == 0 ? v.nChannels : 1);
  }
  r.data = v.data + std::ptrdiff_t(y) * v.widthStep + byte;
  r.width = v.width - x;
  r.height = v.height - y;
  return r;
}

// The same for packed 1-bit rows.
void copyBitRow(const View& s, int sy, const View& d, int dy, int w, bool reverse);

// The copy of a row for a depth code.
using RowCopy = void (*)(const View& s, int sy, const View& d, int dy, int w, bool reverse);
RowCopy rowCopyFor(unsigned depth);

// Keeps round-to-nearest for the call's floating-point work and gives the
// caller back its own rounding mode afterwards.
class NearestRounding {
 public:
  NearestRounding();
  ~NearestRounding();
  NearestRounding(const NearestRounding&) = delete;
  NearestRounding& operator=(const NearestRounding&) = delete;

 private:
  int mode_;
};

}  // namespace mox::geom
