// moxComputeHisto, moxContrastStretch, moxHistoEqualize: per-channel
// histograms over the bins of a lookup table, and maps through such tables.
//
// A table's `key` holds num + 1 increasing bin boundaries: bin i holds the
// values v with key[i] <= v < key[i + 1]. Values outside every bin are not
// counted and are copied unchanged by the maps.
#include <algorithm>
#include <bit>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "stats/stats.h"

namespace mox::stats {
namespace {

constexpr const char* kFile = "moxhisto";

using u64 = std::uint64_t;

// ---------------------------------------------------------------- checks

bool failsLut(bool bad, const Site& at, const char* pattern, long long a = 0, long long b = 0) {
  if (!bad) return false;
  char text[200];
  std::snprintf(text, sizeof text, pattern, a, b, a, b);
  report(at, text);
  return true;
}

// The tables of `channels` channels: present, with keys (and values, and
// for interpolating maps factors), a bin count the depth's values can fill,
// and increasing keys.
bool badLuts(MoxLUT* const* lut, int channels, unsigned depth, bool map, const Site& at) {
  if (failsLut(!lut, at, "(lut==0)")) return true;
  const long long range = depthBits(depth) >= 32 ? 1LL << 32 : 1LL << depthBits(depth);
  for (int c = 0; c < channels; ++c) {
    const MoxLUT* t = lut[c];
    if (failsLut(!t, at, "(lut[%lld]==0)", c)) return true;
    if (failsLut(t->num <= 0, at, "(lut[%lld]->num <= 0)", c) ||
        failsLut(t->num > range, at, "(lut[%lld]->num > %lld)", c, range) ||
        failsLut(!t->key, at, "(lut[%lld]->key==0)", c) ||
        failsLut(!t->value, at, "(lut[%lld]->value==0)", c))
      return true;
    if (map && failsLut(t->interpolateType != MOX_LUT_LOOKUP && t->interpolateType != MOX_LUT_INTER,
                        at,
                        "(lut[%lld]->interpolateType != MOX_LUT_LOOKUP && lut[%lld]->"
                        "interpolateType != MOX_LUT_INTER)",
                        c, c))
      return true;
    if (map && t->interpolateType == MOX_LUT_INTER &&
        failsLut(!t->factor, at, "(lut[%lld]->factor==0)", c))
      return true;
    for (int i = 0; i < t->num; ++i) {
      char text[120];
      if (t->key[i] < t->key[i + 1]) continue;
      std::snprintf(text, sizeof text, "(lut[%d]->key[%d] >= lut[%d]->key[%d])", c, i, c, i + 1);
      report(at, text);
      return true;
    }
  }
  return false;
}

// The values of one channel an image's ROI holds.
long long values(const MoxImage* im) {
  long long w = im->width, h = im->height;
  if (const MoxROI* r = im->roi) w = std::min<long long>(r->width, w), h = std::min<long long>(r->height, h);
  return w * h;
}

// They must be countable in an int (only tiled images can hold more).
bool tooManyValues(const MoxImage* im, const Site& at) {
  return failsLut(values(im) > INT_MAX, at, "(srcImage ROI width * height > INT_MAX)");
}

// Entries of `channels` tables of `range` values of `bytes` each. Past 2^31
// bytes (which many channels of 16-bit values reach) they are refused as
// out of memory on every build alike, before a size_t of 32 bits could wrap.
std::size_t tableEntries(long long channels, long long range, long long bytes) {
  if (channels * range * bytes > INT_MAX) throw std::bad_alloc();
  return static_cast<std::size_t>(channels * range);
}

// ---------------------------------------------------------------- counting

// Calls f(channels, x) for the first value x of every pixel of a run of
// `count` interleaved values; 3 and 4 channels come as constants, so the
// loop over the channels unrolls.
template <class F>
inline void eachPixel(int cycle, int count, F f) {
  auto run = [&](auto channels) {
    for (int x = 0; x < count; x += int(channels)) f(channels, x);
  };
  if (cycle == 4)
    run(std::integral_constant<int, 4>{});
  else if (cycle == 3)
    run(std::integral_constant<int, 3>{});
  else
    run(cycle);
}

// The bin of v in a table, or -1.
inline int binOf(const MoxLUT* t, long long v) {
  if (v < t->key[0] || v >= t->key[t->num]) return -1;
  return int(std::upper_bound(t->key, t->key + t->num + 1, v) - t->key) - 1;
}

// Counts of one walk: below 32 bits a table of every value per channel
// (`sub` tables each, so that runs of one channel spread their stores),
// else the bins themselves.
struct Counts {
  MoxLUT* const* lut;
  int channels;
  long long range;  // values of the depth (below 32 bits)
  int sub;
  std::vector<std::uint32_t> table;
  std::vector<std::vector<u64>> bins;  // 32 bits
};

struct CountRun {
  Counts* counts;
};

template <class D>
void countKernel(const View* v, const void* arg) {
  using T = typename D::T;
  Counts& k = *static_cast<const CountRun*>(arg)->counts;
  if constexpr (D::bits == 32) {
    forEachChannelRun<T, 1>(v, [&](T** p, int* stride, int count, int base, int cycle) {
      for (int j = 0; j < count; ++j) {
        const int c = base + (cycle > 1 ? j % cycle : 0);
        const int b = binOf(k.lut[c], p[0][std::ptrdiff_t(j) * stride[0]]);
        if (b >= 0) ++k.bins[c][b];
      }
    });
  } else {
    const long long lo = D::lo;
    forEachChannelRun<T, 1>(v, [&](T** p, int* stride, int count, int base, int cycle) {
      const T* s = p[0];
      const std::ptrdiff_t step = std::ptrdiff_t(k.sub) * std::ptrdiff_t(k.range);
      if (cycle == 1) {
        std::uint32_t* t = k.table.data() + base * step - lo;
        const std::ptrdiff_t r = std::ptrdiff_t(k.range), ss = stride[0];
        int j = 0;
        if (k.sub == 4 && ss == 1)
          for (; j + 4 <= count; j += 4) {
            ++t[s[j]], ++t[r + s[j + 1]], ++t[2 * r + s[j + 2]], ++t[3 * r + s[j + 3]];
          }
        for (; j < count; ++j) ++t[s[j * ss]];
        return;
      }
      // interleaved channels (pixel order, stride 1): one table each
      std::uint32_t* t = k.table.data() - lo;
      eachPixel(cycle, count, [&](auto channels, int x) {
        for (int c = 0; c < int(channels); ++c) ++t[c * step + s[x + c]];
      });
    });
  }
}

// Counts every processed channel of the image into `bins` (one vector of
// num counts per channel). Returns false after a report.
bool countBins(const MoxImage* im, MoxLUT* const* lut, const WalkPlan& plan,
               std::vector<std::vector<u64>>& bins) {
  const int channels = workChannels(im);
  Counts k{lut, channels, 0, 1, {}, {}};
  const bool wide = depthBits(im->depth) >= 32;
  if (wide) {
    for (int c = 0; c < channels; ++c) k.bins.emplace_back(std::size_t(lut[c]->num), 0);
  } else {
    k.range = 1LL << depthBits(im->depth);
    k.sub = depthBits(im->depth) == 8 ? 4 : 1;
    // every channel's counts: at most 4 x 256 or 65536 per channel
    k.table.assign(tableEntries(channels, k.sub * k.range, sizeof(std::uint32_t)), 0);
  }
  const WalkImage images[1] = {{im, "srcImage", false}};
  const CountRun run{&k};
  if (!walk(plan, images, 1, nullptr, byDepth(im->depth, [](auto d) -> Kernel {
                                         return &countKernel<decltype(d)>;
                                       }),
            &run))
    return false;
  if (wide) {
    bins = std::move(k.bins);
    return true;
  }
  const long long lo = isSigned(im->depth) ? -(k.range / 2) : 0, hi = lo + k.range - 1;
  bins.assign(std::size_t(channels), {});
  std::vector<u64> prefix(std::size_t(k.range) + 1);
  for (int c = 0; c < channels; ++c) {
    const std::uint32_t* t = k.table.data() + std::size_t(c) * k.sub * std::size_t(k.range);
    for (long long v = 0; v < k.range; ++v) {
      u64 n = 0;
      for (int s = 0; s < k.sub; ++s) n += t[std::size_t(s) * std::size_t(k.range) + std::size_t(v)];
      prefix[std::size_t(v) + 1] = prefix[std::size_t(v)] + n;
    }
    const MoxLUT* l = lut[c];
    auto below = [&](long long v) { return prefix[std::size_t(std::clamp(v, lo, hi + 1) - lo)]; };
    for (int i = 0; i < l->num; ++i)
      bins[std::size_t(c)].push_back(below(l->key[i + 1]) - below(l->key[i]));
  }
  return true;
}

// ---------------------------------------------------------------- maps

// One channel's map: the bins of a table and, per bin, the value it maps
// to (plus, when interpolating, a slope with 16 fraction bits).
struct ChannelMap {
  const MoxLUT* lut;
  const int* out;
  const int* factor;  // null: a step per bin
};

inline long long mapValue(const ChannelMap& m, long long v) {
  const int b = binOf(m.lut, v);
  if (b < 0) return v;
  const long long base = m.out[b];
  if (!m.factor) return base;
  return base + (((v - m.lut->key[b]) * m.factor[b] + 0x8000) >> 16);
}

struct MapRun {
  const ChannelMap* maps;
  const void* tables;  // below 32 bits: every value's result, per channel
  long long range;
  // Every channel maps alike: runs of interleaved channels go through the
  // first channel's table as one.
  bool alike;
  // Bytes of a large image that go through one table: the results of every
  // two bytes as they lie in memory, so that one look-up does two.
  const std::uint16_t* pairs;
};

// Maps of fewer values look up one byte at a time: filling the table of
// pairs costs what some hundred thousand values save.
constexpr long long kPairedValues = 1 << 20;

// Every two bytes b0 b1 (b0 first in memory) to their results, from the
// results `t` of every value indexed from the depth's lowest.
template <class T>
void fillPairs(const T* t, std::uint16_t* pairs) {
  using U = std::make_unsigned_t<T>;
  std::uint16_t byByte[256];
  for (unsigned b = 0; b < 256; ++b) byByte[b] = U(t[U(T(b) - std::numeric_limits<T>::min())]);
  for (unsigned b1 = 0; b1 < 256; ++b1)
    for (unsigned b0 = 0; b0 < 256; ++b0)
      pairs[b1 << 8 | b0] = std::uint16_t(byByte[b0] | byByte[b1] << 8);
}

// A contiguous run through its table, one value at a time. Left to itself
// the compiler builds vectors of looked-up bytes one byte at a time, which
// ran at half the speed of plain loads and stores. The loop starts a cache
// line of code: where it happened to straddle two, it also ran at half speed.
#if defined(__GNUC__) && !defined(__clang__)
#define MOX_SCALAR_LOOP __attribute__((optimize("no-tree-vectorize", "align-loops=64")))
#else
#define MOX_SCALAR_LOOP
#endif
template <class T, class U>
MOX_SCALAR_LOOP void lookUp(const T* s, T* d, int count, const T* t, U lo) {
  for (int j = 0; j < count; ++j) d[j] = t[U(s[j] - lo)];
}

// The same through the table of pairs, eight pairs gathered into a vector
// and stored at once (one store a byte held the loop to a byte a cycle). A
// destination of kLargeBytes or more is stored past the caches, from its
// first 16-byte boundary on.
template <class T, class U>
MOX_SCALAR_LOOP void lookUpPairs(const T* s, T* d, int count, const std::uint16_t* pairs,
                                 const T* t, U lo, bool stream) {
  int j = 0;
#if defined(__SSE2__)
  auto eight = [&](int at) {
    std::uint32_t w[4];
    std::memcpy(w, s + at, 16);
    __m128i v = _mm_cvtsi32_si128(pairs[w[0] & 0xFFFF]);
    v = _mm_insert_epi16(v, pairs[w[0] >> 16], 1);
    v = _mm_insert_epi16(v, pairs[w[1] & 0xFFFF], 2);
    v = _mm_insert_epi16(v, pairs[w[1] >> 16], 3);
    v = _mm_insert_epi16(v, pairs[w[2] & 0xFFFF], 4);
    v = _mm_insert_epi16(v, pairs[w[2] >> 16], 5);
    v = _mm_insert_epi16(v, pairs[w[3] & 0xFFFF], 6);
    return _mm_insert_epi16(v, pairs[w[3] >> 16], 7);
  };
  if (stream) {
    for (; j < count && reinterpret_cast<std::uintptr_t>(d + j) % 16; ++j) d[j] = t[U(s[j] - lo)];
    for (; j + 16 <= count; j += 16) _mm_stream_si128(reinterpret_cast<__m128i*>(d + j), eight(j));
  }
  for (; j + 16 <= count; j += 16) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), eight(j));
#else
  (void)stream;
#endif
  for (; j + 2 <= count; j += 2) {
    std::uint16_t v;
    std::memcpy(&v, s + j, 2);
    v = pairs[v];
    std::memcpy(d + j, &v, 2);
  }
  for (; j < count; ++j) d[j] = t[U(s[j] - lo)];
}

template <class D>
void mapKernel(const View* v, const void* arg) {
  using T = typename D::T;
  const auto& m = *static_cast<const MapRun*>(arg);
  forEachChannelRun<T, 2>(v, [&](T** p, int* stride, int count, int base, int cycle) {
    const T* s = p[0];
    T* d = p[1];
    const std::ptrdiff_t ss = stride[0], ds = stride[1];
    if constexpr (D::bits == 32) {
      for (int j = 0; j < count; ++j)
        d[j * ds] = D::sat(mapValue(m.maps[base + (cycle > 1 ? j % cycle : 0)], s[j * ss]));
    } else {
      using U = std::make_unsigned_t<T>;
      const T* tables = static_cast<const T*>(m.tables);
      const std::size_t r = std::size_t(m.range);
      if (cycle == 1 || (m.alike && ss == 1 && ds == 1)) {
        const T* t = tables + (cycle == 1 ? std::size_t(base) * r : 0);
        if constexpr (D::bits == 8)
          if (m.pairs && ss == 1 && ds == 1)
            return lookUpPairs(s, d, count, m.pairs, t, U(D::lo), v[1].large);
        if (ss == 1 && ds == 1)
          lookUp(s, d, count, t, U(D::lo));
        else
          for (int j = 0; j < count; ++j) d[j * ds] = t[U(s[j * ss] - T(D::lo))];
        return;
      }
      eachPixel(cycle, count, [&](auto channels, int x) {
        for (int c = 0; c < int(channels); ++c)
          d[x + c] = tables[std::size_t(c) * r + U(s[x + c] - T(D::lo))];
      });
    }
  });
}

// Maps the processed channels of src into dst.
void runMaps(const OpTable& t, const MoxImage* src, MoxImage* dst,
             const std::vector<ChannelMap>& maps) {
  const int channels = int(maps.size());
  MapRun run{maps.data(), nullptr, 0, false, nullptr};
  const unsigned depth = dst->depth;
  std::vector<unsigned char> tables;
  std::unique_ptr<std::uint16_t[]> pairs;
  byDepth(depth, [&](auto dd) {
    using D = decltype(dd);
    using T = typename D::T;
    if constexpr (D::bits < 32) {
      run.range = 1LL << D::bits;
      tables.resize(tableEntries(channels, run.range, sizeof(T)) * sizeof(T));
      T* out = reinterpret_cast<T*>(tables.data());
      for (int c = 0; c < channels; ++c)
        for (long long v = 0; v < run.range; ++v)
          out[std::size_t(c) * std::size_t(run.range) + std::size_t(v)] =
              D::sat(mapValue(maps[std::size_t(c)], v + D::lo));
      run.tables = out;
      const std::size_t bytes = std::size_t(run.range) * sizeof(T);
      run.alike = channels > 1;
      for (int c = 1; c < channels && run.alike; ++c)
        run.alike = std::memcmp(out, out + std::size_t(c) * std::size_t(run.range), bytes) == 0;
      if constexpr (D::bits == 8 && std::endian::native == std::endian::little)
        if ((channels == 1 || run.alike) && values(dst) * channels >= kPairedValues) {
          pairs.reset(new std::uint16_t[1 << 16]);
          fillPairs(out, pairs.get());
          run.pairs = pairs.get();
        }
    }
    return 0;
  });
  const WalkImage images[2] = {{src, "srcImage", false}, {dst, "dstImage", true}};
  const WalkPlan plan{t.func, t.file, &t.walk, false};  // the flat path forgets channels
  walk(plan, images, 2, nullptr,
       byDepth(depth, [](auto d) -> Kernel { return &mapKernel<decltype(d)>; }), &run);
#if defined(__SSE2__)
  _mm_sfence();  // the stores past the caches are seen before the call returns
#endif
}

constexpr WalkLines kHistoLines{{80, 81, 82, 83}, {91, 98, 100, 106}};
constexpr WalkLines kEqualizeCountLines{{280, 281, 282, 283}, {291, 298, 300, 306}};
constexpr int kStretchTiles[8] = {196, 203, 210, 212, 219, 221, 228, 232};
constexpr int kEqualizeTiles[8] = {316, 323, 330, 332, 339, 341, 348, 352};
constexpr OpTable kStretch =
    unaryTable("moxContrastStretch", kFile, 141, 143, 145, 190, kStretchTiles);
constexpr OpTable kEqualize =
    unaryTable("moxHistoEqualize", kFile, 241, 243, 245, 310, kEqualizeTiles);

bool badImage(const MoxImage* im, const Site& at) {
  return badHeader(im, at) || badLayout(im, "srcImage", at);
}

}  // namespace
}  // namespace mox::stats

using namespace mox;
using namespace mox::stats;

namespace {

// After the header checks: the depth, the tables and the size at `line`,
// `line + 2` and `line + 4`; then the counts of the source go into the
// tables' values. Returns false after a report.
bool countChecked(const char* f, const MoxImage* s, MoxLUT** lut, int line,
                  const WalkLines& lines, std::vector<std::vector<u64>>& bins) {
  if (failsAt(s->depth == MOX_DEPTH_1U, {f, kFile, line}, "(srcImage->depth==1)") ||
      badLuts(lut, workChannels(s), s->depth, false, {f, kFile, line + 2}) ||
      tooManyValues(s, {f, kFile, line + 4}) ||
      !countBins(s, lut, WalkPlan{f, kFile, &lines, false}, bins))
    return false;
  for (std::size_t c = 0; c < bins.size(); ++c)
    for (std::size_t i = 0; i < bins[c].size(); ++i) lut[c]->value[i] = int(bins[c][i]);
  return true;
}

void computeHisto(const MoxImage* srcImage, MoxLUT** lut) {
  constexpr const char* f = "moxComputeHisto";
  std::vector<std::vector<u64>> bins;
  if (!badImage(srcImage, {f, kFile, 60})) countChecked(f, srcImage, lut, 62, kHistoLines, bins);
}

void contrastStretch(const MoxImage* srcImage, MoxImage* dstImage, MoxLUT** lut) {
  const MoxImage* images[2] = {srcImage, dstImage};
  const Site at{kStretch.func, kFile, 147};
  if (!checkImages(kStretch, images) ||
      failsAt(srcImage->depth == MOX_DEPTH_1U, at, "(srcImage->depth==1)") ||
      badLuts(lut, workChannels(dstImage), dstImage->depth, true, {kStretch.func, kFile, 149}))
    return;
  std::vector<ChannelMap> maps;
  for (int c = 0; c < workChannels(dstImage); ++c)
    maps.push_back({lut[c], lut[c]->value,
                    lut[c]->interpolateType == MOX_LUT_INTER ? lut[c]->factor : nullptr});
  runMaps(kStretch, srcImage, dstImage, maps);
}

// Bin i of n values maps to key[0] + span * (values in bins 0..i) / n,
// rounded, with span the distance from the first key to the last value
// of the last bin.
void histoEqualize(const MoxImage* srcImage, MoxImage* dstImage, MoxLUT** lut) {
  const MoxImage* images[2] = {srcImage, dstImage};
  std::vector<std::vector<u64>> bins;
  if (!checkImages(kEqualize, images) ||
      !countChecked(kEqualize.func, srcImage, lut, 247, kEqualizeCountLines, bins))
    return;
  const int channels = workChannels(dstImage);
  std::vector<std::vector<int>> outs(static_cast<std::size_t>(channels));
  std::vector<ChannelMap> maps;
  for (int c = 0; c < channels; ++c) {
    const MoxLUT* l = lut[c];
    const std::vector<u64>& n = bins[std::size_t(c)];
    u64 total = 0;
    for (u64 k : n) total += k;
    const u64 span = u64(std::int64_t(l->key[l->num]) - 1 - l->key[0]);
    u64 below = 0;
    for (int i = 0; i < l->num; ++i) {
      below += n[std::size_t(i)];
      const u64 step = total ? (span * below + total / 2) / total : 0;
      outs[std::size_t(c)].push_back(int(std::int64_t(l->key[0]) + std::int64_t(step)));
    }
    maps.push_back({l, outs[std::size_t(c)].data(), nullptr});
  }
  runMaps(kEqualize, srcImage, dstImage, maps);
}

// The tables of many channels of 16-bit values may not fit in memory.
template <class F>
void guarded(const char* func, int line, F run) {
  try {
    run();
  } catch (const std::bad_alloc&) {
    report(Site{func, kFile, line}, "Out of memory", MOX_StsOutOfMemory);
  } catch (const std::length_error&) {  // beyond what a vector may hold (32-bit builds)
    report(Site{func, kFile, line}, "Out of memory", MOX_StsOutOfMemory);
  }
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxComputeHisto(const MoxImage* srcImage, MoxLUT** lut) {
  guarded("moxComputeHisto", 68, [&] { computeHisto(srcImage, lut); });
}

extern "C" MOX_API void MOX_CALL moxContrastStretch(const MoxImage* srcImage, MoxImage* dstImage,
                                                    MoxLUT** lut) {
  guarded("moxContrastStretch", 151, [&] { contrastStretch(srcImage, dstImage, lut); });
}

extern "C" MOX_API void MOX_CALL moxHistoEqualize(const MoxImage* srcImage, MoxImage* dstImage,
                                                  MoxLUT** lut) {
  guarded("moxHistoEqualize", 252, [&] { histoEqualize(srcImage, dstImage, lut); });
}
