// Histograms, lookup maps, equalization and norms against a direct count, a
// per-value map and double precision, on every depth they take and the
// layouts; tiled runs against plain runs; every check.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

#include "op_cases.h"

using namespace testimg;

namespace {

const unsigned kStatDepths[] = {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U, MOX_DEPTH_16S, MOX_DEPTH_32S};

// A table that owns its arrays.
struct Table {
  std::vector<int> key, value, factor;
  MoxLUT lut{};
  Table(std::vector<int> k, int type = MOX_LUT_LOOKUP, std::vector<int> v = {}, std::vector<int> f = {})
      : key(std::move(k)), value(std::move(v)), factor(std::move(f)) {
    value.resize(key.size() - 1, -7);
    factor.resize(key.size() - 1, 0);
    lut = {int(key.size()) - 1, key.data(), value.data(), factor.data(), type};
  }
  int bin(ll v) const {
    for (size_t i = 0; i + 1 < key.size(); ++i)
      if (key[i] <= v && v < key[i + 1]) return int(i);
    return -1;
  }
  std::vector<ll> counts() const { return {value.begin(), value.end()}; }
};

// Bins that cover part of each depth's range, unevenly.
std::vector<int> keysFor(unsigned depth, int c) {
  const ll lo = lowest(depth), hi = highest(depth);
  if (depth == MOX_DEPTH_32S) return {INT_MIN, -1000000000 + c, -5, 0, 3, 1 << 20, INT_MAX};
  const ll span = hi - lo + 1;
  return {int(lo + 1 + c), int(lo + span / 7), int(lo + span / 3), int(lo + span / 2),
          int(lo + span / 2 + 1), int(hi - 3), int(hi + 1)};
}

// Images of one depth: the source and the destination of each layout.
struct Pair { const char* name; int order, shapes[2][3], rois[2][5]; };
const Pair kPairs[] = {
    {"whole", 0, {{3, 9, 13}, {3, 9, 13}}, {}},
    {"four", 0, {{4, 9, 21}, {4, 9, 21}}, {}},
    {"rois", 0, {{2, 12, 40}, {2, 14, 50}}, {{0, 3, 1, 8, 30}, {0, 11, 4, 9, 33}}},
    {"planes", 1, {{3, 12, 40}, {3, 14, 50}}, {{0, 1, 1, 8, 30}, {0, 7, 3, 20, 26}}},
    {"coi", 0, {{3, 10, 20}, {1, 10, 20}}, {{2, 1, 1, 6, 15}, {0, 3, 2, 8, 16}}},
    {"coiPlanes", 1, {{3, 10, 20}, {2, 10, 20}}, {{3, 1, 1, 6, 15}, {2, 3, 2, 8, 16}}},
};

Image make(unsigned depth, const Pair& p, int i) {
  const int* s = p.shapes[i];
  return Image({depth, s[0], p.order, s[1], s[2]}, 31 + i, p.rois[i][3] ? p.rois[i] : nullptr);
}

int channelsOf(const MoxImage* im) { return im->roi && im->roi->coi ? 1 : im->nChannels; }

// One table per channel of im (the bins of keysFor), and the list of them.
struct Tables {
  std::vector<Table> t;
  std::vector<MoxLUT*> luts;
  Tables(const MoxImage* im, int type = MOX_LUT_LOOKUP, bool mapping = false) {
    for (int c = 0; c < channelsOf(im); ++c) {
      const auto keys = keysFor(im->depth, c);
      std::vector<int> values, factors;
      for (size_t i = 0; mapping && i + 1 < keys.size(); ++i) {
        values.push_back(int(i * 37) - 50 + c);
        factors.push_back(int(i % 3 == 0 ? 1 << 16 : i % 3 == 1 ? -40000 : 300000));
      }
      t.emplace_back(keys, type, values, factors);
    }
    for (Table& x : t) luts.push_back(&x.lut);
  }
};

// Counts of channel k of the image's clipped ROI.
std::vector<ll> directCount(const MoxImage* im, const Table& t, int k) {
  std::vector<ll> n(t.key.size() - 1);
  const Rect r = clippedRoi(im);
  for (int y = r.y; y < r.y + r.h; ++y)
    for (int x = r.x; x < r.x + r.w; ++x)
      if (int b = t.bin(get(im, x, y, channelOf(im, k))); b >= 0) ++n[size_t(b)];
  return n;
}

ll floorDiv(ll a, ll b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

ll mapped(const Table& t, ll v) {
  const int b = t.bin(v);
  if (b < 0 || t.lut.interpolateType == MOX_LUT_LOOKUP) return b < 0 ? v : t.value[size_t(b)];
  return t.value[size_t(b)] + floorDiv((v - t.key[size_t(b)]) * t.factor[size_t(b)] + 32768, 65536);
}

// What equalization maps each bin of t to, from the bins' counts n.
std::vector<ll> equalizedBins(const Table& t, const std::vector<ll>& n) {
  const ll total = std::accumulate(n.begin(), n.end(), 0LL), span = ll(t.key.back()) - 1 - t.key[0];
  std::vector<ll> out;
  ll below = 0;
  for (ll k : n)  // (span * below + total / 2) / total without overflow in the test
    below += k, out.push_back(t.key[0] + ll(total ? std::floor(((long double)span * below + total / 2) / total) : 0));
  return out;
}

}  // namespace

// Counts against a direct count; equalization against the formula, plain
// and tiled; maps against a per-value map; known values; every value of the
// 8-bit range in a bin of its own.
TEST(Histo, CountsEqualizationAndMaps) {
  Capture capture;
  for (unsigned depth : kStatDepths)
    for (const Pair& p : kPairs) {
      Image a = make(depth, p, 0), b = make(depth, p, 1), out = make(depth, p, 1);
      Tiled ta(a, 8, 16), tb(b, 16, 8);
      Tables h(a), t(a), tiled(a);
      moxComputeHisto(a, h.luts.data());
      std::vector<std::vector<ll>> outs(h.t.size());  // each bin's value after equalization
      for (size_t c = 0; c < h.t.size(); ++c) {
        const Table& tc = h.t[c];
        const auto n = directCount(a, tc, int(c));
        EXPECT_EQ(tc.counts(), n) << p.name << " " << std::hex << depth;
        outs[c] = equalizedBins(tc, n);
      }
      int k = 0;
      const auto want = expected({a, b}, [&](const ll* v) {
        const int c = k++ % channelsOf(a), bin = h.t[size_t(c)].bin(v[0]);
        return bin < 0 ? v[0] : clampTo(depth, outs[size_t(c)][size_t(bin)]);
      });
      moxHistoEqualize(a, b, t.luts.data());
      moxHistoEqualize(ta, tb, tiled.luts.data());
      tb.gather(out);
      EXPECT_EQ(pixels(b), want) << p.name << " " << std::hex << depth;
      EXPECT_EQ(pixels(out), want) << p.name << " tiled";
      for (size_t c = 0; c < h.t.size(); ++c)
        EXPECT_EQ(std::tie(t.t[c].value, tiled.t[c].value), std::tie(h.t[c].value, h.t[c].value)) << p.name;
      // Lookup and interpolated maps, in place too.
      for (int type : {MOX_LUT_LOOKUP, MOX_LUT_INTER})
        for (MoxImage* dst : {+b, +a}) {
          Tables m(a, type, true);
          k = 0;
          const auto mappedWant = expected({a, dst}, [&](const ll* v) {
            return clampTo(depth, mapped(m.t[size_t(k++ % channelsOf(a))], v[0]));
          });
          moxContrastStretch(a, dst, m.luts.data());
          EXPECT_EQ(pixels(dst), mappedWant) << p.name << " " << type << " " << std::hex << depth;
        }
    }
  // Counts 2, 1, 1 over bins [0,1) [1,2) [2,3): span 2.
  Image s({MOX_DEPTH_8U, 1, 0, 1, 5}), d({MOX_DEPTH_8U, 1, 0, 1, 5});
  const ll in[5] = {0, 0, 1, 2, 200};
  for (int x = 0; x < 5; ++x) set(s, x, 0, 0, in[x]);
  Table t({0, 1, 2, 3});
  MoxLUT* l = &t.lut;
  moxHistoEqualize(s, d, &l);
  EXPECT_EQ(pixels(d), (std::vector<ll>{1, 1, 2, 2, 200}));
  EXPECT_EQ(t.value, (std::vector<int>{2, 1, 1}));
  Image r({MOX_DEPTH_8U, 1, 0, 3, 700}, 4);
  std::vector<int> keys(257);
  std::iota(keys.begin(), keys.end(), 0);
  Table all(keys);
  l = &all.lut;
  moxComputeHisto(r, &l);
  EXPECT_EQ(all.counts(), directCount(r, all, 0));
  EXPECT_TRUE(reports().empty());
}

// 8-bit maps of a million values and more look up two bytes at a time (and
// from 8 MB on store past the caches): against a per-value reference on a
// whole image, ROIs off every alignment, three channels mapped alike, and
// tiled images, which give the plain result.
TEST(Histo, ByteMapsOfMillionsOfValues) {
  Capture capture;
  enum { kLookup, kInter, kEqualize };
  const struct { const char* name; int channels, height, width; int roi[5]; } cases[] = {
      {"whole", 1, 1024, 1024, {}},
      {"roi", 1, 1030, 1037, {0, 3, 1, 1025, 1031}},
      {"alike", 3, 600, 601, {0, 1, 2, 590, 593}},
      {"large", 1, 3000, 3001, {0, 1, 2, 2990, 2999}},
  };
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_8S})
    for (const auto& k : cases)
      for (int op : {kLookup, kInter, kEqualize}) {
        if (op == kEqualize && k.channels > 1) continue;  // its tables differ by channel
        if (k.height > 2000 && op != kLookup) continue;
        SCOPED_TRACE(std::string(k.name) + " " + std::to_string(op) + " " + std::to_string(depth));
        const Shape shape{depth, k.channels, 0, k.height, k.width};
        const int* roi = k.roi[3] ? k.roi : nullptr;
        Image s(shape, 3, roi), d(shape, 4, roi), out(shape, 4, roi);
        std::vector<int> values, factors;
        for (int i = 0; i < 6; ++i) values.push_back(i * 37 - 50), factors.push_back(i % 2 ? -40000 : 300000);
        const auto keys = keysFor(depth, 0);
        Table plain(keys, op == kInter ? MOX_LUT_INTER : MOX_LUT_LOOKUP, values, factors), tiled = plain;
        tiled.lut = {plain.lut.num, tiled.key.data(), tiled.value.data(), tiled.factor.data(), plain.lut.interpolateType};
        std::vector<ll> bins;
        if (op == kEqualize) bins = equalizedBins(plain, directCount(s, plain, 0));
        const auto want = expectedBytes(s, d, [&](ll v) {
          const int b = plain.bin(v);
          return op == kEqualize ? (b < 0 ? v : clampTo(depth, bins[size_t(b)])) : clampTo(depth, mapped(plain, v));
        });
        Tiled ts(s, 64, 32), td(d, 64, 32);
        MoxLUT *a[3] = {&plain.lut, &plain.lut, &plain.lut}, *b[3] = {&tiled.lut, &tiled.lut, &tiled.lut};
        if (op == kEqualize) moxHistoEqualize(s, d, a), moxHistoEqualize(ts, td, b);
        else moxContrastStretch(s, d, a), moxContrastStretch(ts, td, b);
        td.gather(out);
        EXPECT_TRUE(d.bytes() == want);
        EXPECT_TRUE(out.bytes() == want);
        if (op == kEqualize) { EXPECT_EQ(tiled.value, plain.value); }
      }
  EXPECT_TRUE(reports().empty());
}

// Against double precision; tiled images give the same bits; extreme values.
TEST(Norm, AgainstDoublePrecisionPlainTiledAndExtreme) {
  Capture capture;
  for (unsigned depth : kStatDepths)
    for (const Pair& p : kPairs)
      for (int type : {MOX_NORM_C, MOX_NORM_L1, MOX_NORM_L2})
        for (int withB = 0; withB < 2; ++withB)
          for (int relative = 0; relative <= withB; ++relative) {
            Image a = make(depth, p, 0), b = make(depth, p, 1);
            if (p.rois[0][0]) b.roi(1, 3, 2, 8, 16);  // one channel each
            Tiled ta(a, 8, 16), tb(b, 16, 8);
            double diff = 0, norm = 0;
            std::vector<MoxImage*> images = {a};
            if (withB) images.push_back(b);
            images.push_back(images.back());  // a destination that takes no part
            expected(images, [&](const ll* v) {
              const double x = double(v[0]) - (withB ? double(v[1]) : 0), y = double(v[1]);
              if (type == MOX_NORM_C) diff = std::max(diff, std::fabs(x)), norm = std::max(norm, std::fabs(y));
              if (type == MOX_NORM_L1) diff += std::fabs(x), norm += std::fabs(y);
              if (type == MOX_NORM_L2) diff += x * x, norm += y * y;
              return v[withB];
            });
            if (type == MOX_NORM_L2) diff = std::sqrt(diff), norm = std::sqrt(norm);
            const double want = relative ? diff / norm : diff;
            const int code = type | (relative ? MOX_NORM_RELATIVE : 0);
            const double got = moxNorm(a, withB ? +b : nullptr, code);
            EXPECT_NEAR(got, want, std::fabs(want) * 1e-12)
                << p.name << " " << type << " " << withB << relative << " " << std::hex << depth;
            EXPECT_EQ(moxNorm(ta, withB ? +tb : nullptr, code), got) << p.name << " tiled";
          }
  // Sums far beyond 64 bits stay exact until the last conversion.
  Image a({MOX_DEPTH_32S, 1, 0, 64, 64}), b({MOX_DEPTH_32S, 1, 0, 64, 64});
  for (int i = 0; i < 64 * 64; ++i) set(a, i % 64, i / 64, 0, INT_MAX), set(b, i % 64, i / 64, 0, INT_MIN);
  const double d = 4294967295.0;
  EXPECT_EQ(std::make_tuple(moxNorm(a, b, MOX_NORM_C), moxNorm(a, b, MOX_NORM_L1)), std::make_tuple(d, 4096 * d));
  EXPECT_DOUBLE_EQ(moxNorm(a, b, MOX_NORM_L2), 64 * d);
  EXPECT_DOUBLE_EQ(moxNorm(b, nullptr, MOX_NORM_L2), 64 * 2147483648.0);
  Image e({MOX_DEPTH_8U, 1, 0, 2, 2}), z({MOX_DEPTH_8U, 1, 0, 2, 2});
  std::memset(z->imageData, 0, size_t(z->imageSize));
  EXPECT_EQ(moxNorm(e, z, MOX_NORM_L1 | MOX_NORM_RELATIVE), 0.0);
  expectReport("moxNorm", "(norm of srcImageB == 0)", 120, "moxnorm");
  EXPECT_TRUE(reports().empty());
}

TEST(HistoChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  enum { kHisto, kStretch, kEqualize, kNorm };
  const char* funcs[] = {"moxComputeHisto", "moxContrastStretch", "moxHistoEqualize", "moxNorm"};
  const struct { int op; void (*spoil)(Image& s, Image& d, Table& t, MoxLUT** luts); const char* text; int line; } cases[] = {
#define S(...) [](Image& s, Image& d, Table& t, MoxLUT** luts) { (void)s, (void)d, (void)t, (void)luts; __VA_ARGS__; }
      {kHisto, S(s->align = 2), "Image align is invalid", 60},
      {kHisto, S(s->depth = MOX_DEPTH_1U, s->nChannels = 1), "(srcImage->depth==1)", 62},
      {kHisto, S(luts[1] = nullptr), "(lut[1]==0)", 64},
      {kHisto, S(t.lut.num = 0), "(lut[0]->num <= 0)", 64},
      {kHisto, S(t.lut.num = 257), "(lut[0]->num > 256)", 64},
      {kHisto, S(t.lut.key = nullptr), "(lut[0]->key==0)", 64},
      {kHisto, S(t.lut.value = nullptr), "(lut[0]->value==0)", 64},
      {kHisto, S(t.key[2] = t.key[1]), "(lut[0]->key[1] >= lut[0]->key[2])", 64},
      {kStretch, S(d->depth = MOX_DEPTH_8S), "(srcImage->depth != dstImage->depth)", 143},
      {kStretch, S(d->dataOrder = 1, d->imageSize *= 3), "(srcImage->dataOrder != dstImage->dataOrder)", 144},
      {kStretch, S(d.roi(1, 0, 0, 2, 2)), "(nChSrc != nChDst)", 145},
      {kStretch, S(d->imageData = nullptr), "Image data and tileinfo is either null or not null", 141},
      {kStretch, S(t.lut.interpolateType = 2),
       "(lut[0]->interpolateType != MOX_LUT_LOOKUP && lut[0]->interpolateType != MOX_LUT_INTER)", 149},
      {kStretch, S(t.lut.interpolateType = MOX_LUT_INTER, t.lut.factor = nullptr), "(lut[0]->factor==0)", 149},
      {kEqualize, S(s->widthStep = 1), "(srcImage->widthStep < the bytes of srcImage->width pixels)", 240},
      {kEqualize, S(t.key[3] = -1), "(lut[0]->key[2] >= lut[0]->key[3])", 249},
      {kNorm, S(d->depth = MOX_DEPTH_16U, d->widthStep *= 2, d->imageSize *= 2), "(srcImageA->depth != srcImageB->depth)", 63},
      {kNorm, S(d.roi(2, 0, 0, 2, 2)), "(nChSrcA != nChSrcB)", 70},
      {kNorm, S(t.lut.num = 6), "((normType & ~MOX_NORM_RELATIVE) != MOX_NORM_C && (normType & ~MOX_NORM_RELATIVE) != MOX_NORM_L1 && (normType & ~MOX_NORM_RELATIVE) != MOX_NORM_L2)", 74},
      {kNorm, S(t.lut.num = 10), "((normType & MOX_NORM_RELATIVE) && srcImageB == 0)", 76},
#undef S
  };
  for (const auto& k : cases) {
    Image s({MOX_DEPTH_8U, 3, 0, 4, 6}, 1), d({MOX_DEPTH_8U, 3, 0, 4, 6}, 2);
    Table t({0, 10, 20, 30}), u({0, 256});
    MoxLUT* luts[3] = {&t.lut, &u.lut, &u.lut};
    const auto before = d.bytes();
    char* data = d->imageData;
    const int size = d->imageSize;
    k.spoil(s, d, t, luts);
    if (k.op == kHisto) moxComputeHisto(s, luts);
    if (k.op == kStretch) moxContrastStretch(s, d, luts);
    if (k.op == kEqualize) moxHistoEqualize(s, d, luts);
    // (normType rides in the table's bin count)
    const int type = t.lut.num == 3 ? MOX_NORM_L1 : t.lut.num;
    if (k.op == kNorm) { EXPECT_EQ(moxNorm(s, type == 10 ? nullptr : +d, type), 0.0); }
    expectReport(funcs[k.op], k.text, k.line, k.op == kNorm ? "moxnorm" : "moxhisto");
    d->imageData = data, d->imageSize = size;
    EXPECT_EQ(d.bytes(), before) << k.text;
    EXPECT_EQ(t.value, std::vector<int>(3, -7)) << k.text;
  }
  // A tile not handed out: nothing counted.
  Image s({MOX_DEPTH_8U, 1, 0, 8, 16}, 1);
  Tiled ts(s, 8, 8);
  ts.nullOnGet = 1;
  Table t({0, 256});
  MoxLUT* l = &t.lut;
  moxComputeHisto(ts, &l);
  expectReport("moxComputeHisto", "(srcImage->tileInfo->tileData == ((void*)(0)))", 100, "moxhisto");
  EXPECT_EQ(t.value[0], -7);
  EXPECT_TRUE(reports().empty());
}
