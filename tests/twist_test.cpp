// The colour twist: the matrix in doubles against plainly written formulas
// over the processed rectangle, plain and tiled, the offset bands at their
// edges, and every check.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>

#include "image_helpers.h"

using namespace testimg;

namespace {

using Matrix = std::array<int, 16>;

struct TwistPtr {
  explicit TwistPtr(const Matrix& m, int scale) : t(moxCreateColorTwist(m.data(), scale)) {}
  ~TwistPtr() { moxDeleteColorTwist(t); }
  MoxColorTwist* t;
};

// Output channel i of the values c at a depth, written from the band rules.
ll twisted(const Matrix& m, int scale, int offset, unsigned depth, const ll* c, int i) {
  const ll M = depth == MOX_DEPTH_8U ? 255 : 65535;
  const double s = std::ldexp(1.0, -scale);
  double v = 0;
  for (int k = 0; k < 3; ++k) v += double(m[4 * i + k]) * s * double(c[k]);
  v += double(m[4 * i + 3]) * s;
  const ll lo = std::max<ll>(offset, 0), hi = std::min<ll>(M, M + offset);
  if (offset >= M) return M;
  if (offset < -(M - 1)) return 0;
  if (v < std::max(0.0, -double(offset))) return offset >= 0 ? offset : 0;
  if (v >= (offset >= 0 ? double(M + 1 - offset) : double(M + 1))) return hi;
  const ll r = offset + ll(v);
  EXPECT_TRUE(r >= lo && r <= hi);
  return r;
}

// Random matrices on every depth and layout against the formula, plain and
// tiled: the source's ROI (its channel of interest not consulted), at the
// same place in the destination and cut to its size, is written; the
// destination's ROI is not consulted and nothing else changes (the channels
// past the third, row padding, the rest of the image).
TEST(ColorTwist, MatchesTheMatrixOverTheSourceRoiOnEveryDepthAndLayout) {
  Capture capture;
  std::mt19937 rng(3);
  const unsigned depths[] = {MOX_DEPTH_8U, MOX_DEPTH_16U};
  const int offsets[] = {0, 17, -40, 254, -254, -255, 255, 70000, -70000};
  const struct { int order, channels, alpha; } layouts[] = {{0, 3, 0}, {0, 4, 4}, {1, 3, 0}, {1, 4, 4}, {0, 5, 5}};
  for (unsigned depth : depths)
    for (const auto& l : layouts)
      for (const int& offset : offsets) {
        SCOPED_TRACE(::testing::Message() << "depth " << depth << " order " << l.order << " channels "
                                          << l.channels << " offset " << offset);
        const int scale = int(rng() % 32);
        Matrix m;
        // Entries around 2^scale so that results spread over the range and past it.
        for (int& e : m) e = int(ll(rng() % 4001) - 2000) * (ll(1) << scale) / 1000;
        m[3] = int(ll(rng() % 2001) - 1000) * (depth == MOX_DEPTH_8U ? 1 : 256) * ((ll(1) << scale) >> 8);
        TwistPtr t(m, scale);
        const Shape ds{depth, l.channels, l.order, 15, 20};
        Image s({depth, l.channels, l.order, 17, 23}, 5), d(ds, 6), want(ds, 6);
        s->alphaChannel = d->alphaChannel = l.alpha;
        s.roi(2, 3, 2, 30, 15);
        d.roi(0, 1, 1, 2, 2);
        moxApplyColorTwist(s, d, t.t, offset, nullptr);
        ASSERT_EQ(moxGetErrStatus(), MOX_StsNoError);
        for (int y = 2; y < 15; ++y)
          for (int x = 3; x < 18; ++x) {
            const ll c[3] = {get(s, x, y, 0), get(s, x, y, 1), get(s, x, y, 2)};
            for (int i = 0; i < 3; ++i) set(want, x, y, i, twisted(m, scale, offset, depth, c, i));
          }
        EXPECT_EQ(d.bytes(), want.bytes()) << "scale " << scale;
        // Through tiled copies: both tiled a tile per call, the source plain,
        // or both tiled in one call; the destination's tile is asked for first.
        const int how = int(&offset - offsets) % 3;
        Image gathered(ds, 6);
        gathered.roi(0, 1, 1, 2, 2);
        Tiled ts(s, 16, 8), td(gathered, 8, 16);
        ts->alphaChannel = td->alphaChannel = l.alpha;
        if (how) moxApplyColorTwist(how == 1 ? +s : +ts, td, t.t, offset, nullptr);
        for (int tx = 0; how == 0 && tx < 3; ++tx) {
          const int tile[2] = {tx, 0};
          moxApplyColorTwist(ts, td, t.t, offset, tile);
        }
        td.gather(gathered);
        EXPECT_EQ(gathered.bytes(), want.bytes()) << "tiled, scale " << scale;
        EXPECT_TRUE(how != 0 || td.calls.front().mode == MOX_GET_TILE_TO_WRITE);
        EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
      }
}

// Long rows with matrices of 16-bit entries (whose rows run many pixels a
// step): every pixel against the formula, with rows that do not end on a
// whole step, on both depths and the usual layouts.
TEST(ColorTwist, LongRowsOfSmallEntriesMatchTheMatrix) {
  Capture capture;
  std::mt19937 rng(11);
  const int offsets[] = {0, 9, -3, 200, -250, 255, -255, 65535, -65535, 40000, -40000};
  const struct { int order, channels; } layouts[] = {{0, 3}, {0, 4}, {1, 3}};
  // Entries as large as the sums allow, or small ones whose sums leave room
  // for the offset, with any translation or with multiples of 32768.
  enum { kLarge, kSmall, kRound };
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U})
    for (const auto& l : layouts)
      for (int offset : offsets)
        for (int kind : {kLarge, kSmall, kRound}) {
        const int scale = kind == kLarge ? int(rng() % 16) : kind == kSmall ? int(rng() % 12) : 9 + int(rng() % 3);
        const ll M = depth == MOX_DEPTH_8U ? 255 : 65535;
        // The largest entries that keep every sum within 32 bits.
        const ll top = kind == kLarge ? std::min<ll>(32767, 0x7ffffffe / (4 * M)) : ll(2) << scale;
        Matrix m{};
        for (int i = 0; i < 12; ++i) m[i] = int(ll(rng() % (2 * top + 1)) - top);
        for (int i : {0, 5, 10}) m[i] = int(std::min<ll>(top, ll(1) << scale));  // near the identity
        m[3] = int(ll(rng() % 2001) - 1000) << std::min(scale, 8);
        for (int i : {3, 7, 11})
          if (kind == kRound) m[i] = int(ll(rng() % 9) - 4) * 32768;
          else if (kind == kSmall) m[i] = int(ll(rng() % 2001) - 1000) << std::min(scale, 8);
        TwistPtr t(m, scale);
        const Shape sh{depth, l.channels, l.order, 3, 307};
        Image s(sh, 7), d(sh, 8), want(sh, 8);
        moxApplyColorTwist(s, d, t.t, offset, nullptr);
        ASSERT_EQ(moxGetErrStatus(), MOX_StsNoError);
        for (int y = 0; y < 3; ++y)
          for (int x = 0; x < 307; ++x) {
            const ll c[3] = {get(s, x, y, 0), get(s, x, y, 1), get(s, x, y, 2)};
            for (int i = 0; i < 3; ++i) set(want, x, y, i, twisted(m, scale, offset, depth, c, i));
          }
        EXPECT_EQ(d.bytes(), want.bytes()) << "depth " << depth << " order " << l.order << " channels "
                                           << l.channels << " offset " << offset << " scale " << scale
                                           << " kind " << kind;
      }
}

// One colour value of 0 and a translation of t / 2^scale: the result of the
// band rules at their edges.
TEST(ColorTwist, OffsetBandsAndTheirEdges) {
  Capture capture;
  const unsigned u8 = MOX_DEPTH_8U, u16 = MOX_DEPTH_16U;
  const int lo = -0x7fffffff - 1, hi = 0x7fffffff;
  const struct { unsigned depth; int offset, t, scale; ll want; } cases[] = {
      {u8, 10, -7, 1, 10},          // -3.5 is below the band
      {u8, 10, 250, 0, 255},        // 250 reaches 256 - 10
      {u8, 10, 245, 0, 255},        // 255 exactly
      {u8, 10, 491, 1, 255},        // 245.5 stays inside: 10 + 245
      {u8, -20, 103322, 10, 80},    // 100.9
      {u8, -20, 20, 0, 0},          // the lower threshold itself is inside
      {u8, -20, 511, 1, 235},       // 255.5
      {u8, -254, 300, 0, 1},        // still an ordinary negative offset
      {u8, -255, 300, 0, 0},        // every result 0
      {u8, 255, -100, 0, 255},      // every result 255
      {u8, 0, hi, 31, 0},           // 1 - 2^-31 truncates to 0
      {u8, -20, 15, 0, 0},          {u8, -20, 256, 0, 235},     {u8, -254, 254, 0, 0},
      {u8, 254, 0, 0, 254},         {u8, 254, -1, 0, 254},      {u8, 254, 2, 1, 255},
      {u8, 0, lo, 31, 0},           {u16, 100, 65435, 0, 65535}, {u16, 100, 65434, 0, 65534},
      {u16, -65534, 65535, 0, 1},   {u16, -65535, 65535, 0, 0}, {u16, 65535, -5, 0, 65535},
      // Offsets at the ends of int: the sum plus the offset leaves int.
      {u16, lo, -4, 0, 0},          {u16, hi, 7, 0, 65535},     {u8, lo, -300, 0, 0},
  };
  for (const auto& c : cases) {
    Matrix m{};
    m[3] = m[7] = m[11] = c.t;
    TwistPtr t(m, c.scale);
    Image s({c.depth, 3, 0, 1, 1}), d({c.depth, 3, 0, 1, 1});
    for (int k = 0; k < 3; ++k) set(s, 0, 0, k, 0);
    moxApplyColorTwist(s, d, t.t, c.offset, nullptr);
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(get(d, 0, 0, k), c.want) << "offset " << c.offset << " t " << c.t << " scale " << c.scale;
  }
  EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
}

// The matrix's rows are the outputs and its entries are scaled: a cycle of
// 2 / 2^1 moves each channel to the one before.
TEST(ColorTwist, RowsAreOutputs) {
  Capture capture;
  Image s({MOX_DEPTH_8U, 3, 0, 9, 9}, 1), d({MOX_DEPTH_8U, 3, 0, 9, 9}, 2);
  TwistPtr cycle({0, 2, 0, 0, 0, 0, 2, 0, 2, 0, 0, 0, 0, 0, 0, 0}, 1);
  moxApplyColorTwist(s, d, cycle.t, 0, nullptr);
  for (int i = 0; i < 81 * 3; ++i) EXPECT_EQ(get(d, i / 3 % 9, i / 27, i % 3), get(s, i / 3 % 9, i / 27, (i + 1) % 3)) << i;
}

TEST(ColorTwistChecks, EveryCheckReportsItsTextAndLineAndWritesNothing) {
  const struct { std::function<void(Image& s, Image& d)> spoil; const char* message; int line; } cases[] = {
      {SPOIL(s->align = 2), "Image align is invalid", 241},
      {SPOIL(d->nChannels = 0), "Image channel's number is less one", 242},
      {SPOIL(s->nChannels = 2), "(srcImage->nChannels < 3)", 245},
      {SPOIL(s->nChannels = 3; s->alphaChannel = 3), "((srcImage->alphaChannel != 0) && (srcImage->nChannels < 4))", 247},
      {SPOIL(s->alphaChannel = 1), "((srcImage->alphaChannel != 0) && (srcImage->alphaChannel < srcImage->nChannels))", 249},
      {SPOIL(d->nChannels = 2), "(dstImage->nChannels < 3)", 252},
      {SPOIL(d->nChannels = 3; d->alphaChannel = 2), "((dstImage->alphaChannel != 0) && (dstImage->nChannels < 4))", 254},
      {SPOIL(d->alphaChannel = 3), "((dstImage->alphaChannel != 0) && (dstImage->alphaChannel < dstImage->nChannels))", 256},
      {SPOIL(d->depth = MOX_DEPTH_16U), "(srcImage->depth != dstImage->depth)", 259},
      {SPOIL(s->depth = d->depth = MOX_DEPTH_8S), "((srcImage->depth != 8) && (srcImage->depth != 16))", 261},
      {SPOIL(d->dataOrder = 1), "(srcImage->dataOrder != dstImage->dataOrder)", 264},
      {SPOIL(d->origin = 1), "(srcImage->origin != dstImage->origin)", 266},
      {SPOIL(s->widthStep = 8), "(srcImage->widthStep < the bytes of srcImage->width pixels)", 241},
      {SPOIL(d->imageSize = 64), "(dstImage->imageSize < the bytes of dstImage->height rows)", 242},
  };
  TwistPtr t({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, 0);
  for (const auto& c : cases) {
    Capture capture;
    Image s({MOX_DEPTH_8U, 4, 0, 8, 8}, 1), d({MOX_DEPTH_8U, 4, 0, 8, 8}, 2);
    c.spoil(s, d);
    const std::vector<char> before = d.bytes();
    moxApplyColorTwist(s, d, t.t, 0, nullptr);
    expectReport("moxApplyColorTwist", c.message, c.line, "moxtwist");
    EXPECT_TRUE(reports().empty());
    EXPECT_EQ(d.bytes(), before) << c.message;
  }
  Capture capture;
  Image s({MOX_DEPTH_8U, 3, 0, 16, 16}), d({MOX_DEPTH_8U, 3, 0, 16, 16});
  moxApplyColorTwist(s, d, nullptr, 0, nullptr);
  expectReport("moxApplyColorTwist", "cTwist==0", 243, "moxtwist");
  // Tiles: the request's column and row, and a call-back that hands out no
  // tile (the get with the number given), in the first walk (one tile) and
  // the second (all of them).
  const int right[2] = {3, 0}, below[2] = {0, 3}, left[2] = {-2, 0}, first[2] = {1, 1};
  const struct { int dstNull, srcNull; const int* m; const char* message; int line; } tiles[] = {
      {-1, -1, right, "(dTile.begX > dRoi.endX)", 603},
      {-1, -1, below, "(dTile.begY > dRoi.endY)", 598},
      {-1, -1, left, "(dTile.endX < dRoi.begX)", 603},
      {0, -1, first, "(dstImage->tileInfo->tileData == NULL)", 630},
      {-1, 0, first, "(srcImage->tileInfo->tileData == NULL)", 658},
      {0, -1, nullptr, "(dstImage->tileInfo->tileData == NULL)", 694},
      {-1, 1, nullptr, "(srcImage->tileInfo->tileData == NULL)", 707},
  };
  for (const auto& c : tiles) {
    Tiled a(s, 8, 8), b(d, 8, 8);
    b.nullOnGet = c.dstNull, a.nullOnGet = c.srcNull;
    moxApplyColorTwist(a, b, t.t, 0, c.m);
    expectReport("moxApplyColorTwist", c.message, c.line, "moxtwist");
  }
  EXPECT_TRUE(reports().empty());
}

TEST(ColorTwistChecks, CreateAndSet) {
  Capture capture;
  const Matrix m{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, n{};
  const std::pair<const int*, int> bad[] = {{m.data(), 32}, {m.data(), -1}, {nullptr, 3}};
  for (const auto& [data, scale] : bad) {
    EXPECT_EQ(moxCreateColorTwist(data, scale), nullptr);
    expectReport("moxCreateColorTwist", "bad_argument", 98, "moxtwist");
  }
  MoxColorTwist* t = moxCreateColorTwist(m.data(), 31);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(std::vector<int>(t->data, t->data + 16), std::vector<int>(m.begin(), m.end()));
  EXPECT_EQ(t->scalingValue, 31);
  const struct { MoxColorTwist* twist; const int* data; int scale; const char* text; int line; } sets[] = {
      {nullptr, n.data(), 1, "cTwist==0", 133}, {t, nullptr, 1, "(data == 0)", 134},
      {t, n.data(), -1, "(scalingValue < 0)", 135}, {t, n.data(), 32, "(scalingValue > 31)", 136}};
  for (const auto& c : sets) {
    moxSetColorTwist(c.twist, c.data, c.scale);
    expectReport("moxSetColorTwist", c.text, c.line, "moxtwist");
  }
  EXPECT_EQ(t->data[15], 16);  // unchanged after the failures
  moxSetColorTwist(t, n.data(), 0);
  EXPECT_EQ(t->data[0], 0);
  EXPECT_EQ(t->scalingValue, 0);
  EXPECT_TRUE(reports().empty());
  moxDeleteColorTwist(t);
  moxDeleteColorTwist(nullptr);
}

}  // namespace
