// Point operations: depth traits, the one lane iteration every point kernel
// runs, the packed 1-bit rows, and the check chain and walk around them.
//
// A rule is a struct with
//   static constexpr bool bitwise;   // one kernel per storage size for both signs
//   static constexpr bool reversible; // (two sources) `reverse` swaps them
//   template <class D> static typename D::T apply(sources..., const OpArgs&);
// with as many sources as the operation has (0, 1 or 2), and optionally
//   template <class D> static std::size_t block(sources..., T* dst, std::size_t n, const OpArgs&);
// that handles a leading part of a contiguous lane faster and returns how
// many elements it did. The 1-bit kernel derives a truth table from apply on
// the values 0 and 1, so every rule works on packed bits too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "image/walk.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mox {

// Arguments of a rule: the scalar, the reverse flag and the shift count.
struct OpArgs {
  int value = 0;
  int reverse = 0;
  unsigned shift = 0;
  // The destination may be written past the caches; the operation fences
  // those stores once the walk is done.
  bool stream = false;
};

// A depth: the stored type, its bit count and its range.
template <class T_, int Bits>
struct Depth {
  using T = T_;
  static constexpr int bits = Bits;
  static constexpr bool isSigned = std::is_signed_v<T_>;
  static constexpr long long lo = Bits == 1 ? 0 : std::numeric_limits<T_>::min();
  static constexpr long long hi = Bits == 1 ? 1 : std::numeric_limits<T_>::max();
  // A type wide enough for a sum or difference of two values.
  using Sum = std::conditional_t<(Bits >= 32), long long, int>;
  // A type wide enough for a product of two values.
  using Product = std::conditional_t<(Bits >= 16), long long, int>;
  // Clamps to the range.
  template <class W>
  static T sat(W v) {
    return static_cast<T>(v < W(lo) ? W(lo) : v > W(hi) ? W(hi) : v);
  }
  // Keeps the stored bits.
  template <class W>
  static T cut(W v) {
    return static_cast<T>(Bits == 1 ? (v & 1) : v);
  }
};

using Bit = Depth<std::uint8_t, 1>;
using U8 = Depth<std::uint8_t, 8>;
using S8 = Depth<std::int8_t, 8>;
using U16 = Depth<std::uint16_t, 16>;
using S16 = Depth<std::int16_t, 16>;
using S32 = Depth<std::int32_t, 32>;
using U32 = Depth<std::uint32_t, 32>;

// Rules without a faster block.
struct Rule {
  static constexpr bool bitwise = false;
  static constexpr bool reversible = false;
  template <class D, class... P>
  static std::size_t block(P...) {
    return 0;
  }
};

// ---------------------------------------------------------------- lanes

// One row of a view as runs of values: `lanes` runs of `count` values,
// `stride` values apart, runs `laneStep` bytes apart.
struct Lane {
  char* base;
  std::ptrdiff_t laneStep;
  int lanes;
  int count;
  int stride;
};

inline Lane laneOf(const View& v, int elementBytes) {
  const int coi = v.coi;
  if (v.dataOrder == 0) {
    if (coi == 0) return {v.data, 0, 1, v.width * v.nChannels, 1};
    return {v.data + std::ptrdiff_t(coi - 1) * elementBytes, 0, 1, v.width, v.nChannels};
  }
  if (coi == 0) return {v.data, v.planeStep, v.nChannels, v.width, 1};
  return {v.data + std::ptrdiff_t(coi - 1) * v.planeStep, 0, 1, v.width, 1};
}

// Calls f(pointers, strides, count, k) for every run of every row of the
// views, k the run's number within its row (the plane, in plane order); the
// runs of all views line up value for value.
template <class T, int N, class F>
inline void forEachLaneAt(const View* v, F&& f) {
  Lane l[N];
  for (int i = 0; i < N; ++i) l[i] = laneOf(v[i], sizeof(T));
  const Lane& d = l[N - 1];
  for (int y = 0; y < v[N - 1].height; ++y) {
    for (int k = 0; k < d.lanes; ++k) {
      T* p[N];
      int stride[N];
      for (int i = 0; i < N; ++i) {
        p[i] = reinterpret_cast<T*>(l[i].base + std::ptrdiff_t(y) * v[i].widthStep +
                                    std::ptrdiff_t(k) * l[i].laneStep);
        stride[i] = l[i].stride;
      }
      f(p, stride, d.count, k);
    }
  }
}

// The same without the run's number.
template <class T, int N, class F>
inline void forEachLane(const View* v, F&& f) {
  forEachLaneAt<T, N>(v, [&f](T** p, int* stride, int count, int) { f(p, stride, count); });
}

// ---------------------------------------------------------------- 1-bit rows

// Values of 1-bit rows are handled in chunks of this many bytes.
constexpr int kBitChunk = 256;

// Eight bits of p starting at bit `bit` (from the most significant bit of
// p[0]); bytes outside p[0..n) read as 0.
inline unsigned bits8(const unsigned char* p, std::ptrdiff_t bit, std::ptrdiff_t n) {
  const std::ptrdiff_t k = bit >= 0 ? bit / 8 : -((7 - bit) / 8);
  const int s = static_cast<int>(bit - k * 8);
  const unsigned hi = k >= 0 && k < n ? p[k] : 0;
  const unsigned lo = k + 1 >= 0 && k + 1 < n ? p[k + 1] : 0;
  return (((hi << 8) | lo) << s >> 8) & 0xFF;
}

// Reads w pixels of row y of a 1-bit view from column x0 into out, packed
// from bit 7 of out[0].
inline void readBits(const View& v, int y, int x0, int w, unsigned char* out) {
  const auto* row =
      reinterpret_cast<const unsigned char*>(v.data + std::ptrdiff_t(y) * v.widthStep);
  const std::ptrdiff_t bit = std::ptrdiff_t(v.bitOffset) + x0;
  const std::ptrdiff_t rowBytes = (bit + w + 7) / 8;
  for (int j = 0; j < (w + 7) / 8; ++j)
    out[j] = static_cast<unsigned char>(bits8(row, bit + 8 * j, rowBytes));
}

// Writes w packed pixels of in to row y of a 1-bit view from column x0; the
// bits around them stay as they were.
inline void writeBits(const View& v, int y, int x0, int w, const unsigned char* in) {
  auto* row = reinterpret_cast<unsigned char*>(v.data + std::ptrdiff_t(y) * v.widthStep);
  const std::ptrdiff_t begin = std::ptrdiff_t(v.bitOffset) + x0, end = begin + w;
  const std::ptrdiff_t inBytes = (w + 7) / 8;
  for (std::ptrdiff_t b = begin / 8; b < (end + 7) / 8; ++b) {
    const std::ptrdiff_t first = begin > 8 * b ? begin - 8 * b : 0;
    const std::ptrdiff_t last = end < 8 * b + 8 ? end - 8 * b : 8;
    const unsigned mask = (0xFFu >> first) & (0xFFu << (8 - last)) & 0xFFu;
    const unsigned value = bits8(in, 8 * b - begin, inBytes);
    row[b] = static_cast<unsigned char>((row[b] & ~mask) | (value & mask));
  }
}

// ---------------------------------------------------------------- kernels

template <class Op, class D, int N>
inline typename D::T applyRule(typename D::T* const* p, std::ptrdiff_t j, const int* stride,
                               const OpArgs& a) {
  if constexpr (N == 1) {
    (void)p, (void)j, (void)stride;
    return Op::template apply<D>(a);
  } else if constexpr (N == 2) {
    return Op::template apply<D>(p[0][j * stride[0]], a);
  } else {
    return Op::template apply<D>(p[0][j * stride[0]], p[1][j * stride[1]], a);
  }
}

// Contiguous runs: a loop the compiler can vectorise, after the rule's own
// block if it has one.
// The arguments come by value: stores through a uint8_t pointer may alias
// any object, so arguments behind a reference would be reloaded per value.
template <class Op, class D, int N>
inline void runContiguous(typename D::T* const* p, int count, const OpArgs a) {
  using T = typename D::T;
  std::size_t j = 0;
  const std::size_t n = static_cast<std::size_t>(count);
  T* d = p[N - 1];
  if constexpr (N == 1) {
    j = Op::template block<D>(d, n, a);
    for (; j < n; ++j) d[j] = Op::template apply<D>(a);
  } else if constexpr (N == 2) {
    const T* s = p[0];
    j = Op::template block<D>(s, d, n, a);
    for (; j < n; ++j) d[j] = Op::template apply<D>(s[j], a);
  } else {
    const T* s = p[0];
    const T* t = p[1];
    j = Op::template block<D>(s, t, d, n, a);
    for (; j < n; ++j) d[j] = Op::template apply<D>(s[j], t[j], a);
  }
}

// The truth table of a rule on bits: entry c holds the result for source
// bits (c & 1, c >> 1), as 0x00 or 0xFF.
template <class Op, int S>
inline unsigned bitTable(int c, const OpArgs& a) {
  unsigned r;
  if constexpr (S == 0)
    r = Op::template apply<Bit>(a);
  else if constexpr (S == 1)
    r = Op::template apply<Bit>(static_cast<std::uint8_t>(c & 1), a);
  else
    r = Op::template apply<Bit>(static_cast<std::uint8_t>(c & 1),
                                static_cast<std::uint8_t>((c >> 1) & 1), a);
  return (r & 1) ? 0xFFu : 0u;
}

template <class Op, int N>
void bitKernel(const View* v, const OpArgs& a) {
  constexpr int S = N - 1;
  unsigned t[4] = {};
  for (int c = 0; c < (1 << S); ++c) t[c] = bitTable<Op, S>(c, a);
  if constexpr (S == 2) {
    if (Op::reversible && a.reverse) std::swap(t[1], t[2]);
  }
  unsigned char in[S > 0 ? S : 1][kBitChunk];
  unsigned char out[kBitChunk];
  const View& d = v[N - 1];
  for (int y = 0; y < d.height; ++y) {
    for (int x0 = 0, w = 0; x0 < d.width; x0 += w) {
      w = d.width - x0 < kBitChunk * 8 ? d.width - x0 : kBitChunk * 8;
      for (int s = 0; s < S; ++s) readBits(v[s], y, x0, w, in[s]);
      for (int j = 0; j < (w + 7) / 8; ++j) {
        unsigned r = t[0];
        if constexpr (S == 1) {
          const unsigned x = in[0][j];
          r = (t[0] & ~x) | (t[1] & x);
        } else if constexpr (S == 2) {
          const unsigned x = in[0][j], z = in[1][j];
          r = (t[0] & ~x & ~z) | (t[1] & x & ~z) | (t[2] & ~x & z) | (t[3] & x & z);
        }
        out[j] = static_cast<unsigned char>(r);
      }
      writeBits(d, y, x0, w, out);
    }
  }
}

// The kernel of a rule on one depth for N views (sources, then destination).
template <class Op, class D, int N>
void pointKernel(const View* v, const void* arg) {
  OpArgs a = *static_cast<const OpArgs*>(arg);
  a.stream = v[N - 1].large;
  if constexpr (D::bits == 1) {
    bitKernel<Op, N>(v, a);
  } else {
    using T = typename D::T;
    forEachLane<T, N>(v, [a](T** p, int* stride, int count) {
      if constexpr (N == 3) {
        if (Op::reversible && a.reverse) std::swap(p[0], p[1]), std::swap(stride[0], stride[1]);
      }
      bool contiguous = true;
      for (int i = 0; i < N; ++i) contiguous = contiguous && stride[i] == 1;
      if (contiguous) {
        runContiguous<Op, D, N>(p, count, a);
        return;
      }
      T* d = p[N - 1];
      const std::ptrdiff_t ds = stride[N - 1];
      for (std::ptrdiff_t j = 0; j < count; ++j) d[j * ds] = applyRule<Op, D, N>(p, j, stride, a);
    });
  }
}

// Calls f with the depth type of a valid depth code. Without packed bits
// (WithBits false) the operation never sees depth 1, and the default is 32S.
template <bool WithBits = true, class F>
auto withDepth(unsigned depth, F f) {
  switch (depth) {
    case MOX_DEPTH_8U:
      return f(U8{});
    case MOX_DEPTH_8S:
      return f(S8{});
    case MOX_DEPTH_16U:
      return f(U16{});
    case MOX_DEPTH_16S:
      return f(S16{});
    case MOX_DEPTH_1U:
      if constexpr (WithBits) return f(Bit{});
      [[fallthrough]];
    default:
      return f(S32{});
  }
}

// The kernel of a rule for a depth code (a valid one; 0 otherwise). Bitwise
// rules use the unsigned kernel of each storage size for both signs.
template <class Op, int N>
Kernel pickKernel(unsigned depth) {
  auto of = [](auto signedDepth, auto unsignedDepth) -> Kernel {
    using D = std::conditional_t<Op::bitwise, decltype(unsignedDepth), decltype(signedDepth)>;
    return &pointKernel<Op, D, N>;
  };
  switch (depth) {
    case MOX_DEPTH_1U:
      return of(Bit{}, Bit{});
    case MOX_DEPTH_8U:
      return of(U8{}, U8{});
    case MOX_DEPTH_16U:
      return of(U16{}, U16{});
    case MOX_DEPTH_8S:
      return of(S8{}, U8{});
    case MOX_DEPTH_16S:
      return of(S16{}, U16{});
    case MOX_DEPTH_32S:
      return of(S32{}, U32{});
    default:
      return nullptr;
  }
}

// ---------------------------------------------------------------- checks

// The report table of one point operation with n images (sources first, the
// destination last). Checks run in this order: each image's header (and
// layout) at `header[i]`; then for each source i against the destination:
// depth at `depth[i]`, data order at `order[i]`; then channel counts at
// `channels[i]`; then the walk with its own lines.
struct OpTable {
  const char* func;
  const char* file;
  int n;
  const char* names[3];    // argument names: "srcImageA", "srcImageB", "dstImage"
  const char* chNames[3];  // channel-count names: "nChSrcA", "nChSrcB", "nChDst"
  int header[3];
  int depth[2];
  int order[2];
  int channels[2];
  WalkLines walk;
};

// Runs the checks of the table on the images; reports the first failure and
// returns false.
bool checkImages(const OpTable& t, const MoxImage* const* images);

// Checks, picks the kernel by the destination's depth and walks. `writeAll`
// asks every image's tiles for writing (an exchange); otherwise only the
// destination's.
void runPointOp(const OpTable& t, const MoxImage* const* images, const int* mapping,
                Kernel (*pick)(unsigned depth), const OpArgs& args, bool writeAll = false);

// The three shapes of operation.
template <class Op>
void runBinary(const OpTable& t, const MoxImage* a, const MoxImage* b, MoxImage* d,
               const int* mapping, const OpArgs& args = {}) {
  const MoxImage* images[3] = {a, b, d};
  runPointOp(t, images, mapping, &pickKernel<Op, 3>, args);
}

template <class Op>
void runUnary(const OpTable& t, const MoxImage* s, MoxImage* d, const int* mapping,
              const OpArgs& args = {}) {
  const MoxImage* images[2] = {s, d};
  runPointOp(t, images, mapping, &pickKernel<Op, 2>, args);
}

// A two-source table whose lines follow the usual layout: the destination's
// header line follows srcImageB's, srcImageA's precedes it; depth, data
// order and channel lines come in pairs; the four tile request lines are
// consecutive.
constexpr OpTable binaryTable(const char* func, const char* file, int headerB, int depthA,
                              int channelsA, int request, const int (&tile)[12]) {
  OpTable t{func,
            file,
            3,
            {"srcImageA", "srcImageB", "dstImage"},
            {"nChSrcA", "nChSrcB", "nChDst"},
            {headerB - 1, headerB, headerB + 1},
            {depthA, depthA + 1},
            {depthA + 2, depthA + 3},
            {channelsA, channelsA + 1},
            {{request, request + 1, request + 2, request + 3}, {}}};
  for (int i = 0; i < 12; ++i) t.walk.tileData[i] = tile[i];
  return t;
}

// A one-source table: srcImage's header line precedes the destination's;
// the data order line follows the depth line.
constexpr OpTable unaryTable(const char* func, const char* file, int headerDst, int depth,
                             int channels, int request, const int (&tile)[8]) {
  OpTable t{func,
            file,
            2,
            {"srcImage", "dstImage", nullptr},
            {"nChSrc", "nChDst", nullptr},
            {headerDst - 1, headerDst, 0},
            {depth, 0},
            {depth + 1, 0},
            {channels, 0},
            {{request, request + 1, request + 2, request + 3}, {}}};
  for (int i = 0; i < 8; ++i) t.walk.tileData[i] = tile[i];
  return t;
}

}  // namespace mox
