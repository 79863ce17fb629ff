// Border modes: coordinate mapping, single pixels, row and column gathers,
// runs, the fallback of unknown modes, on plain and tiled images.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "image/border.h"
#include "image_helpers.h"

namespace {

using namespace testimg;

// The mappings as repeated steps of one period.
int slowReflect(long long c, int n) {
  while (c < -n || c >= n) c += c < 0 ? 2 * n : -2 * n;
  return static_cast<int>(c < 0 ? ~c : c);
}
int slowWrap(long long c, int n) {
  while (c < 0 || c >= n) c += c < 0 ? n : -n;
  return static_cast<int>(c);
}

void setModes(MoxImage* im, const int (&mode)[4], const int (&constant)[4]) {
  for (int s = 0; s < 4; ++s) moxSetBorderMode(im, mode[s], 1 << s, constant[s]);
}

// The raw value of (x, y, channel c from 1) of a plain image.
unsigned raw(const MoxImage* im, int x, int y, int c) {
  const unsigned bits = bitsOf(im->depth);
  return static_cast<unsigned>(get(im, x, y, c - 1)) & (bits == 32 ? ~0u : (1u << bits) - 1);
}

// What a pixel reads: the governing side (top and bottom govern corners),
// its mode applied by the slow steps.
unsigned expected(const MoxImage* im, int x, int y, int c) {
  const int code = (y < 0 ? 1 : y >= im->height ? 2 : 0) + (x < 0 ? 4 : x >= im->width ? 8 : 0);
  if (code == 0) return raw(im, x, y, c);
  const int side = code & 1 ? 0 : code & 2 ? 1 : code & 4 ? 2 : 3, mode = im->borderMode[side];
  if (mode == MOX_BORDER_CONSTANT) return static_cast<unsigned>(im->borderConst[side]);
  auto map = [mode](int v, int n) {
    return mode == MOX_BORDER_REPLICATE ? std::clamp(v, 0, n - 1)
           : mode == MOX_BORDER_REFLECT ? slowReflect(v, n) : slowWrap(v, n);
  };
  return raw(im, map(x, im->width), map(y, im->height), c);
}

TEST(Border, CoordinatesMapAsRepeatedStepsInConstantTime) {
  for (int n = 1; n <= 7; ++n)
    for (long long c = -60; c <= 60; ++c) {
      EXPECT_EQ(mox::reflectCoord(c, n), slowReflect(c, n)) << c << " " << n;
      EXPECT_EQ(mox::wrapCoord(c, n), slowWrap(c, n)) << c << " " << n;
    }
  // Many periods away: the same answer as stepping back by whole periods.
  for (long long c : {(long long)INT_MIN, (long long)INT_MAX, -1000000007LL, 999999937LL}) {
    const int n = 13;
    EXPECT_EQ(mox::reflectCoord(c, n), slowReflect(c % (2 * n), n)) << c;
    EXPECT_EQ(mox::wrapCoord(c, n), slowWrap(c % n, n)) << c;
  }
}

TEST(Border, PixelsOfEveryModeAndDepthPlainAndTiled) {
  const int modes[][4] = {{0, 1, 2, 3}, {1, 2, 3, 0}, {2, 3, 0, 1}, {3, 0, 1, 2}, {2, 2, 2, 2}};
  const int consts[4] = {0x12345678, -2, 7, 0x100};
  for (unsigned depth : kDepths) {
    const int ch = depth == MOX_DEPTH_1U ? 1 : 3;
    for (int order : {0, 1}) {
      if (depth == MOX_DEPTH_1U && order == 1) continue;
      Image im({depth, ch, order, 11, 13}, depth + order);
      Tiled tiled(im, 8, 8);
      for (const auto& m : modes) {
        setModes(im, m, consts);
        setModes(tiled, m, consts);
        for (int y = -25; y < 36; y += 3)
          for (int x = -29; x < 42; x += 2)
            for (int c = 1; c <= ch; ++c) {
              unsigned a = 0xDEAD, b = 0xBEEF;
              ASSERT_EQ(mox::ownGetBorderPixel(im, x, y, c, &a), mox::kBorderOk);
              ASSERT_EQ(mox::ownGetBorderPixel(tiled, x, y, c, &b), mox::kBorderOk);
              ASSERT_EQ(a, expected(im, x, y, c)) << depth << " " << x << "," << y << " " << c;
              ASSERT_EQ(b, a);
            }
      }
      EXPECT_FALSE(tiled.badIndex);
    }
  }
}

TEST(Border, RawValuesFillsAndRuns) {
  Image im({MOX_DEPTH_8S, 1, 0, 2, 2}, 1);
  set(im, 0, 0, 0, -1);
  unsigned v = 0;
  mox::ownGetBorderPixel(im, 0, 0, 1, &v);
  EXPECT_EQ(v, 255u);
  // Runs of a value's low bits; packed bits fill whole bytes.
  unsigned char bytes[3] = {0x5A, 0x5A, 0x5A};
  std::uint16_t words[3] = {9, 9, 9};
  mox::ownFillRun(3, MOX_DEPTH_1U, bytes, 10);
  EXPECT_EQ(std::vector<int>(bytes, bytes + 3), (std::vector<int>{255, 255, 0x5A}));
  mox::ownFillRun(2, MOX_DEPTH_1U, bytes, 10), mox::ownFillRun(0x12345, MOX_DEPTH_16S, words, 2);
  EXPECT_EQ(std::vector<int>(bytes, bytes + 3), (std::vector<int>{0, 0, 0x5A}));
  EXPECT_EQ(std::vector<int>(words, words + 3), (std::vector<int>{0x2345, 0x2345, 9}));
  // Runs stay inside the image; mirrored runs read backwards.
  Image run({MOX_DEPTH_8U, 1, 0, 3, 5}, 2);
  unsigned char out[8] = {};
  EXPECT_EQ(mox::ownReadRowRun(run, 4, 1, 1, out, 5, 0), mox::kBorderOk);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(out[i], raw(run, 4 - i, 1, 1));
  EXPECT_EQ(mox::ownReadRowRun(run, 1, 1, 1, out, 5, 1), mox::kBorderBadMode);
  EXPECT_EQ(mox::ownReadRowRun(run, 1, 3, 1, out, 1, 1), mox::kBorderBadMode);
}

// Rows cut at the image's left and right edges and columns, value for value
// like single pixels, plain and tiled, forward and mirrored.
TEST(Border, RowAndColumnGathersMatchPixels) {
  for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_16S}) {
    const int ch = depth == MOX_DEPTH_1U ? 1 : 2;
    Image im({depth, ch, 0, 9, 21}, 5);
    Tiled tiled(im, 8, 8);
    for (int mode = 0; mode < 4; ++mode)
      for (MoxImage* target : {+im, +tiled}) {
        setModes(target, {mode, (mode + 1) % 4, mode, (mode + 3) % 4}, {5, 6, 7, 8});
        const int w = target->width;
        // Value i of a gathered run against the pixel at (x, y).
        auto same = [&](const std::vector<unsigned char>& b, int i, int x, int y, int c) {
          unsigned v;
          mox::ownGetBorderPixel(target, x, y, c, &v);
          const unsigned got = depth == MOX_DEPTH_1U ? (b[i / 8] >> (7 - i % 8)) & 1 : b[2 * i] | b[2 * i + 1] << 8;
          return got == (v & (depth == MOX_DEPTH_1U ? 1 : 0xFFFF));
        };
        for (int y = -12; y < 22; ++y) {
          // Pieces left of, over and right of the image, and one far away.
          const int pieces[][2] = {{-30, 30}, {-7, 7}, {0, w}, {3, 11}, {w, 8}, {w + 40, 25}};
          for (const auto& p : pieces)
            for (int c = 1; c <= ch; ++c) {
              std::vector<unsigned char> buf(64 * 4, 0xCC);
              ASSERT_EQ(mox::ownGetBorderRow(target, p[0], y, c, buf.data(), p[1]), mox::kBorderOk);
              for (int i = 0; i < p[1]; ++i)
                ASSERT_TRUE(same(buf, i, p[0] + i, y, c)) << mode << " " << p[0] + i << "," << y;
            }
        }
        std::vector<unsigned char> col(64);
        ASSERT_EQ(mox::ownGetBorderColumn(target, -2, -11, 1, col.data(), 30), mox::kBorderOk);
        for (int i = 0; i < 30; ++i) ASSERT_TRUE(same(col, i, -2, -11 + i, 1)) << mode << " " << i;
      }
  }
}

// Unknown modes pass the position on (left, right, bottom); a position they
// leave outside the image is never read.
TEST(Border, UnknownModesFallBackOrRefuse) {
  Image im({MOX_DEPTH_8U, 1, 0, 4, 6}, 9);
  // readX -1: the constant 40 + side
  const struct { int mode[4], x, y, status, readX, readY; } cases[] = {
      {{9, 0, 0, 0}, 2, -1, mox::kBorderOk, -1, 2},       // top -> left's constant
      {{9, 0, 1, 0}, 2, -1, mox::kBorderBadMode, 0, 0},   // left replicate keeps y < 0
      {{9, 2, 7, 7}, 2, -1, mox::kBorderOk, 2, 0},        // bottom reflects both
      {{9, 2, 7, 7}, -1, -2, mox::kBorderOk, 0, 1},       // corner too
      {{0, 0, -1, 3}, -1, 2, mox::kBorderOk, 5, 2},       // left -> right's wrap
      {{0, 1, 0, 5}, 6, 1, mox::kBorderOk, 5, 1},         // right -> bottom's replicate
      {{0, 9, 0, 0}, 1, 4, mox::kBorderBadMode, 0, 0},    // bottom has no fallback
      {{8, 8, 8, 8}, -1, -1, mox::kBorderBadMode, 0, 0},  // no valid side
  };
  for (const auto& k : cases) {
    for (int s = 0; s < 4; ++s) moxSetBorderMode(im, k.mode[s], 1 << s, 40 + s);
    unsigned v = 12345;
    EXPECT_EQ(mox::ownGetBorderPixel(im, k.x, k.y, 1, &v), k.status) << k.x << "," << k.y;
    if (k.status != mox::kBorderOk) continue;
    EXPECT_EQ(v, k.readX < 0 ? 40u + k.readY : raw(im, k.readX, k.readY, 1)) << k.x << "," << k.y;
  }
  moxSetBorderMode(im, 9, MOX_SIDE_ALL, 0);
  unsigned char row[8];
  EXPECT_EQ(mox::ownGetBorderRow(im, 0, -1, 1, row, 6), mox::kBorderBadMode);
}

// A tiled read gets its tile and gives it back; a tile not handed out or
// not taken back stops it.
TEST(Border, TiledReadsGetAndReleaseTheirTile) {
  Image im({MOX_DEPTH_8U, 1, 0, 16, 24}, 4);
  Tiled tiled(im, 8, 8);
  unsigned v;
  ASSERT_EQ(mox::ownGetPixel(tiled, 8, 9, 1, &v), mox::kBorderOk);
  EXPECT_EQ(v, raw(im, 8, 9, 1));
  ASSERT_EQ(tiled.calls.size(), 2u);
  EXPECT_EQ(tiled.calls[0].image, +tiled);
  const auto& k = tiled.calls;
  EXPECT_EQ(std::vector<int>({k[0].x, k[0].y, k[0].mode, k[1].x, k[1].y, k[1].mode}),
            (std::vector<int>{1, 1, MOX_GET_TILE_TO_READ, 1, 1, MOX_RELEASE_TILE}));
  tiled.nullOnGet = 1;
  unsigned char row[24];
  EXPECT_EQ(mox::ownReadRowRun(tiled, 2, 3, 1, row, 20, 1), mox::kBorderNoTile);
  tiled.keepOnRelease = 2;
  EXPECT_EQ(mox::ownGetPixel(tiled, 0, 0, 1, &v), mox::kBorderOk);
  EXPECT_EQ(mox::ownGetPixel(tiled, 0, 0, 1, &v), mox::kBorderKept);
}

}  // namespace
