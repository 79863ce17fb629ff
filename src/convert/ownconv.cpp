// The depth conversion kernels, one per pair of depths, the rows as numbers
// and the quantiser with its dithers.
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "convert/convert.h"

namespace mox::convert {
namespace {

// The value of source depth S as a value of destination depth D: kept when
// every source value fits, else clamped.
template <class S, class D>
inline typename D::T convertValue(typename S::T v) {
  if constexpr (D::bits == 1) {
    return v != 0;
  } else if constexpr (S::lo >= D::lo && S::hi <= D::hi) {
    return static_cast<typename D::T>(v);
  } else {
    using W = std::conditional_t<(S::bits >= 32 || D::bits >= 32), long long, int>;
    return D::sat(static_cast<W>(v));
  }
}

// One channel run of a row: n values from s (stride ss) to d (stride ds).
template <class S, class D>
inline void convertRun(const typename S::T* s, std::ptrdiff_t ss, typename D::T* d,
                       std::ptrdiff_t ds, int n) {
  if (ss == 1 && ds == 1) {
    for (int j = 0; j < n; ++j) d[j] = convertValue<S, D>(s[j]);
    return;
  }
  for (int j = 0; j < n; ++j) d[j * ds] = convertValue<S, D>(s[j * ss]);
}

// Rows of 1-bit views go through packed chunks of this many pixels.
constexpr int kChunk = kBitChunk * 8;

// Row y of a 1-bit view, pixel by pixel: put(x, bit).
template <class F>
void readBitRow(const View& v, int y, F put) {
  unsigned char packed[kBitChunk];
  for (int x0 = 0; x0 < v.width; x0 += kChunk) {
    const int w = v.width - x0 < kChunk ? v.width - x0 : kChunk;
    readBits(v, y, x0, w, packed);
    for (int j = 0; j < w; ++j) put(x0 + j, (packed[j >> 3] >> (7 - (j & 7))) & 1);
  }
}

// Row y of a 1-bit view from a test per pixel: the bit of x is set(x).
template <class F>
void writeBitRow(const View& v, int y, F set) {
  unsigned char packed[kBitChunk];
  for (int x0 = 0; x0 < v.width; x0 += kChunk) {
    const int w = v.width - x0 < kChunk ? v.width - x0 : kChunk;
    std::memset(packed, 0, sizeof packed);
    for (int j = 0; j < w; ++j)
      if (set(x0 + j)) packed[j >> 3] |= static_cast<unsigned char>(0x80 >> (j & 7));
    writeBits(v, y, x0, w, packed);
  }
}

template <class S, class D>
void convertKernel(const View* v, const void* arg) {
  const BitValues& b = *static_cast<const BitValues*>(arg);
  const View& s = v[0];
  const View& d = v[1];
  using ST = typename S::T;
  using DT = typename D::T;
  if constexpr (S::bits == 1 && D::bits == 1) {
    const bool keep = b.one != 0, set = b.zero != 0;
    unsigned char packed[kBitChunk];
    for (int y = 0; y < d.height; ++y)
      for (int x0 = 0; x0 < d.width; x0 += kChunk) {
        const int w = d.width - x0 < kChunk ? d.width - x0 : kChunk;
        readBits(s, y, x0, w, packed);
        for (int j = 0; j < (w + 7) / 8; ++j)
          packed[j] = static_cast<unsigned char>((keep ? packed[j] : 0) | (set ? ~packed[j] : 0));
        writeBits(d, y, x0, w, packed);
      }
  } else if constexpr (S::bits == 1) {
    const DT zero = D::sat(b.zero), one = D::sat(b.one);
    for (int y = 0; y < d.height; ++y) {
      const Run r = channelRun(d, y, 0, sizeof(DT));
      DT* out = reinterpret_cast<DT*>(r.p);
      readBitRow(s, y, [&](int x, unsigned bit) { out[x * r.stride] = bit ? one : zero; });
    }
  } else if constexpr (D::bits == 1) {
    for (int y = 0; y < d.height; ++y) {
      const Run r = channelRun(s, y, 0, sizeof(ST));
      const ST* in = reinterpret_cast<const ST*>(r.p);
      writeBitRow(d, y, [&](int x) { return in[x * r.stride] != 0; });
    }
  } else {
    // Pixel order on both sides with all channels: a row is one run.
    const bool whole = s.dataOrder == 0 && d.dataOrder == 0 && !s.coi && !d.coi;
    const int runs = whole ? 1 : viewChannels(d);
    const int n = whole ? d.width * d.nChannels : d.width;
    for (int y = 0; y < d.height; ++y)
      for (int c = 0; c < runs; ++c) {
        const Run rs = channelRun(s, y, c, sizeof(ST)), rd = channelRun(d, y, c, sizeof(DT));
        convertRun<S, D>(reinterpret_cast<const ST*>(rs.p), whole ? 1 : rs.stride,
                         reinterpret_cast<DT*>(rd.p), whole ? 1 : rd.stride, n);
      }
  }
}

Kernel pickConvert(unsigned from, unsigned to) {
  return withDepth(from, [to](auto s) {
    return withDepth(to, [](auto d) -> Kernel {
      return &convertKernel<decltype(s), decltype(d)>;
    });
  });
}

}  // namespace

BitValues plainBits(unsigned dstDepth) {
  return {0, dstDepth == MOX_DEPTH_1U ? 1 : (1LL << (depthBits(dstDepth) - (isSigned(dstDepth) ? 1 : 0))) - 1};
}

bool convertImage(const WalkPlan& plan, const MoxImage* src, const char* srcName, MoxImage* dst,
                  const char* dstName, const BitValues& bits) {
  const WalkImage images[2] = {{src, srcName, false}, {dst, dstName, true}};
  return walk(plan, images, 2, nullptr, pickConvert(src->depth, dst->depth), &bits);
}

// ---------------------------------------------------------------- rows

namespace {

template <class D>
void loadRowOf(const View& v, int y, int c, double* out) {
  using T = typename D::T;
  if constexpr (D::bits == 1) {
    (void)c;
    readBitRow(v, y, [&](int x, unsigned bit) { out[x] = bit; });
  } else {
    const Run r = channelRun(v, y, c, sizeof(T));
    const T* p = reinterpret_cast<const T*>(r.p);
    for (int x = 0; x < v.width; ++x) out[x] = p[x * r.stride];
  }
}

template <class D>
void storeRowOf(const View& v, int y, int c, const long long* in) {
  using T = typename D::T;
  if constexpr (D::bits == 1) {
    (void)c;
    writeBitRow(v, y, [&](int x) { return in[x] != 0; });
  } else {
    const Run r = channelRun(v, y, c, sizeof(T));
    T* p = reinterpret_cast<T*>(r.p);
    for (int x = 0; x < v.width; ++x) p[x * r.stride] = D::sat(in[x]);
  }
}

}  // namespace

void loadRow(const View& v, int y, int c, double* out) {
  withDepth(v.depth, [&](auto d) { loadRowOf<decltype(d)>(v, y, c, out); });
}

void storeRow(const View& v, int y, int c, const long long* in) {
  withDepth(v.depth, [&](auto d) { storeRowOf<decltype(d)>(v, y, c, in); });
}

// ---------------------------------------------------------------- quantiser

namespace {

// The ordered 4 x 4 threshold pattern.
constexpr int kOrdered[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};

// Error weights: offsets (dx, dy) and weight, over a common divisor.
struct Weight {
  int dx, dy, w;
};
constexpr Weight kFs[] = {{1, 0, 7}, {-1, 1, 3}, {0, 1, 5}, {1, 1, 1}};
constexpr Weight kJjn[] = {{1, 0, 7},  {2, 0, 5},  {-2, 1, 3}, {-1, 1, 5}, {0, 1, 7}, {1, 1, 5},
                              {2, 1, 3},  {-2, 2, 1}, {-1, 2, 3}, {0, 2, 5},  {1, 2, 3}, {2, 2, 1}};
constexpr Weight kStuckey[] = {{1, 0, 8},  {2, 0, 4},  {-2, 1, 2}, {-1, 1, 4}, {0, 1, 8}, {1, 1, 4},
                              {2, 1, 2},  {-2, 2, 1}, {-1, 2, 2}, {0, 2, 4},  {1, 2, 2}, {2, 2, 1}};

// The jitter's generator starts from the same seed in every call.
constexpr std::uint32_t kSeed = 0x9E3779B9u;

}  // namespace

Ditherer::Ditherer(int kind, int noise, int width, int channels, const double* step)
    : kind_(kind), noise_(noise), width_(width), channels_(channels), random_(kSeed) {
  for (int c = 0; c < channels; ++c) step_[c] = step[c];
  const std::size_t n = std::size_t(3) * (std::size_t(width) + 4) * std::size_t(channels);
  err_ = static_cast<double*>(std::calloc(n, sizeof(double)));
}

Ditherer::~Ditherer() { std::free(err_); }

void Ditherer::offset(double* adj, int x, int y) {
  for (int c = 0; c < channels_; ++c) adj[c] = 0.0;
  if (kind_ == MOX_DITHER_BAYER) {
    const double t = (kOrdered[y & 3][x & 3] + 0.5) / 16.0 - 0.5;
    for (int c = 0; c < channels_; ++c) adj[c] = t * step_[c];
  }
  if (noise_ > 0) {
    for (int c = 0; c < channels_; ++c) {
      random_ ^= random_ << 13;
      random_ ^= random_ >> 17;
      random_ ^= random_ << 5;
      const double u = double(random_ >> 8) / 16777216.0 - 0.5;
      adj[c] += u * noise_ / 100.0 * step_[c];
    }
  }
}

void Ditherer::spread(const double* e, int x) {
  const Weight* w = nullptr;
  int count = 0;
  double sum = 1.0;
  if (kind_ == MOX_DITHER_FS) w = kFs, count = 4, sum = 16.0;
  if (kind_ == MOX_DITHER_JJN) w = kJjn, count = 12, sum = 48.0;
  if (kind_ == MOX_DITHER_STUCKEY) w = kStuckey, count = 12, sum = 42.0;
  const std::ptrdiff_t rowLength = std::ptrdiff_t(width_ + 4) * channels_;
  for (int k = 0; k < count; ++k) {
    double* to = err_ + w[k].dy * rowLength + std::ptrdiff_t(x + 2 + w[k].dx) * channels_;
    for (int c = 0; c < channels_; ++c) to[c] += e[c] * w[k].w / sum;
  }
}

void Ditherer::nextRow() {
  const std::size_t rowLength = (std::size_t(width_) + 4) * std::size_t(channels_);
  std::memmove(err_, err_ + rowLength, 2 * rowLength * sizeof(double));
  std::memset(err_ + 2 * rowLength, 0, rowLength * sizeof(double));
}

}  // namespace mox::convert
