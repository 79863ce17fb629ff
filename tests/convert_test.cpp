// Depth conversion, bitonal expansion and bit reduction: every pair of
// depths on every layout against a reference, tiled runs equal to plain
// ones, the levels and dithers of the reduction, and every check's text and
// line with nothing written.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "op_cases.h"

using namespace testimg;

namespace {

// What moxConvert makes of a source value.
ll converted(unsigned from, unsigned to, ll v) {
  if (to == MOX_DEPTH_1U) return v != 0;
  if (from == MOX_DEPTH_1U) return v ? highest(to) : 0;
  return clampTo(to, v);
}

// Source and destination layouts: order, channels, height, width, ROI.
struct Pair { const char* name; int order[2], channels[2], roi[2][5]; };

std::vector<Pair> pairs(bool bits) {
  const int c = bits ? 1 : 3;
  std::vector<Pair> v = {
      {"whole", {0, 0}, {c, c}, {}},
      {"rois", {0, 0}, {c, c}, {{0, 3, 1, 8, 30}, {0, 5, 2, 7, 29}}},
  };
  if (!bits) {
    v.push_back({"pixelToPlane", {0, 1}, {3, 3}, {{0, 3, 1, 8, 30}, {0, 1, 2, 7, 29}}});
    v.push_back({"planeToPixel", {1, 0}, {3, 3}, {{0, 0, 0, 12, 31}, {0, 2, 2, 7, 29}}});
    v.push_back({"coiToGray", {0, 0}, {4, 1}, {{3, 3, 1, 8, 30}, {0, 5, 2, 7, 29}}});
    v.push_back({"grayToCoiPlane", {0, 1}, {1, 3}, {{0, 3, 1, 8, 30}, {2, 5, 2, 7, 29}}});
  }
  return v;
}

Image makeImage(unsigned depth, const Pair& p, int i, unsigned seed) {
  return Image({depth, p.channels[i], p.order[i], 14, 41}, seed, p.roi[i][3] ? p.roi[i] : nullptr);
}

// Plain images, and tiled copies of both with tiles of other shapes, give
// the reference over the common rectangle of the ROIs.
TEST(Convert, EveryPairOfDepthsOnEveryLayout) {
  Capture capture;
  for (unsigned from : kDepths)
    for (unsigned to : kDepths)
      for (const Pair& p : pairs(from == MOX_DEPTH_1U || to == MOX_DEPTH_1U)) {
        SCOPED_TRACE(std::string(p.name) + " " + std::to_string(from) + " to " + std::to_string(to));
        Image s = makeImage(from, p, 0, 3), d = makeImage(to, p, 1, 4), gathered = makeImage(to, p, 1, 4);
        const auto want = expected({s, d}, [&](const ll* v) { return converted(from, to, v[0]); });
        moxConvert(s, d);
        EXPECT_EQ(pixels(d), want);
        Tiled ts(s, 8, 16), td(gathered, 16, 8);
        moxConvert(ts, td);
        td.gather(gathered);
        EXPECT_EQ(pixels(gathered), want);
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Convert, BitonalToGrayTakesTheTwoValuesSaturated) {
  Capture capture;
  const struct { unsigned to; int zero, one; ll want0, want1; } cases[] = {
      {MOX_DEPTH_8U, 10, 200, 10, 200},       {MOX_DEPTH_8U, -5, 300, 0, 255},
      {MOX_DEPTH_16S, -40000, 7, -32768, 7},  {MOX_DEPTH_32S, INT_MIN, INT_MAX, INT_MIN, INT_MAX},
      {MOX_DEPTH_1U, 1, 0, 1, 0},             {MOX_DEPTH_8S, 0, -1, 0, -1},
  };
  const Pair p = pairs(true)[1];
  for (const auto& c : cases) {
    Image s = makeImage(MOX_DEPTH_1U, p, 0, 7), d = makeImage(c.to, p, 1, 8);
    const auto want = expected({s, d}, [&](const ll* v) { return v[0] ? c.want1 : c.want0; });
    moxBitonalToGray(s, d, c.zero, c.one);
    EXPECT_EQ(pixels(d), want) << c.to << " " << c.zero << " " << c.one;
  }
  EXPECT_TRUE(reports().empty());
}

TEST(ReduceBits, LevelsWithoutDither) {
  Capture capture;
  const unsigned u8 = MOX_DEPTH_8U, s8 = MOX_DEPTH_8S, u16 = MOX_DEPTH_16U, s16 = MOX_DEPTH_16S;
  const struct { unsigned from, to; int levels; ll in, want; } cases[] = {
      {u8, u8, 4, 42, 0},     {u8, u8, 4, 43, 85},      {u8, u8, 4, 255, 255},  {u8, u8, 2, 127, 0},
      {u8, u8, 2, 128, 255},  {u8, MOX_DEPTH_1U, 2, 200, 1},
      // 256 levels of 16 bits are 257 apart: 18.5 steps is 4754.5.
      {u16, u8, 256, 4755, 19},  {u16, u8, 256, 4754, 18},
      {s16, s8, 3, -32768, -128},  {s16, s8, 3, 0, 0},  {s16, s8, 3, 32767, 127},
      {MOX_DEPTH_32S, u16, 65536, INT_MAX, 65535},
  };
  for (const auto& c : cases) {
    Image s({c.from, 1, 0, 1, 1}), d({c.to, 1, 0, 1, 1});
    set(s, 0, 0, 0, c.in);
    moxReduceBits(s, d, 0, MOX_DITHER_NONE, c.levels);
    EXPECT_EQ(get(d, 0, 0), c.want) << c.in << " levels " << c.levels;
  }
  EXPECT_TRUE(reports().empty());
}

// Without dither each value goes to its nearest level, over the common
// rectangle of the ROIs, from pixel to plane order and by channel of interest.
TEST(ReduceBits, NearestLevelsOverTheRois) {
  Capture capture;
  for (const Pair& p : pairs(false)) {
    SCOPED_TRACE(p.name);
    Image s = makeImage(MOX_DEPTH_8U, p, 0, 9), d = makeImage(MOX_DEPTH_8U, p, 1, 10);
    const auto want = expected({s, d}, [](const ll* v) {
      const ll k = (v[0] * 5 * 2 + 255) / (2 * 255);  // nearest of 6 levels
      return (k * 255 * 2 + 5) / (2 * 5);
    });
    moxReduceBits(s, d, 0, MOX_DITHER_NONE, 6);
    EXPECT_EQ(pixels(d), want);
  }
  EXPECT_TRUE(reports().empty());
}

// Every dither keeps a flat gray on average and gives the same bits twice;
// jitter changes them, reproducibly.
TEST(ReduceBits, DithersKeepTheMeanAndRepeat) {
  Capture capture;
  for (int kind = MOX_DITHER_FS; kind <= MOX_DITHER_BAYER; ++kind) {
    std::vector<char> calm;
    for (int noise : {0, 40}) {
      SCOPED_TRACE(std::to_string(kind) + " noise " + std::to_string(noise));
      Image s({MOX_DEPTH_8U, 3, 1, 32, 48}), d({MOX_DEPTH_1U, 1, 0, 32, 48}), again({MOX_DEPTH_1U, 1, 0, 32, 48});
      moxSet(s, 64, nullptr);
      s.roi(2, 0, 0, 32, 48);
      moxReduceBits(s, d, noise, kind, 2);
      moxReduceBits(s, again, noise, kind, 2);
      EXPECT_EQ(d.bytes(), again.bytes());
      double ones = 0;
      for (ll v : pixels(d)) ones += double(v);
      EXPECT_NEAR(ones / (32 * 48), 64.0 / 255, 0.03);
      EXPECT_TRUE(!noise || d.bytes() != calm);
      calm = d.bytes();
    }
  }
  EXPECT_TRUE(reports().empty());
}

// The checks of the three functions: text and line, nothing written.
TEST(ConvertChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  Image gray({MOX_DEPTH_8U, 1, 0, 8, 8}), out({MOX_DEPTH_8U, 1, 0, 8, 8}), colour({MOX_DEPTH_8U, 3, 0, 8, 8}),
      bits({MOX_DEPTH_1U, 1, 0, 8, 8}), wide({MOX_DEPTH_16U, 1, 0, 8, 8}), narrow({MOX_DEPTH_8U, 3, 0, 8, 8});
  narrow->widthStep = 2;
  Tiled tiled(gray, 8, 8);
  const std::vector<char> before[2] = {out.bytes(), colour.bytes()};
  const char *null = "Image header is null", *channels = "(nChSrc != nChDst)";
  const char *dither = "(ditherType < MOX_DITHER_NONE || ditherType > MOX_DITHER_BAYER)",
             *noise = "(noise < 0 || noise > 100)", *levels = "(levels < 2 || levels > 1 << dstBits)";
  const struct { const char* func; const MoxImage *src, *dst; int noise, kind, levels, line; const char* text; } cases[] = {
      {"moxConvert", nullptr, colour, 0, 0, 0, 50, null},
      {"moxConvert", gray, nullptr, 0, 0, 0, 51, null},
      {"moxConvert", gray, colour, 0, 0, 0, 52, channels},
      {"moxConvert", narrow, colour, 0, 0, 0, 50, "(srcImage->widthStep < the bytes of srcImage->width pixels)"},
      {"moxBitonalToGray", nullptr, out, 0, 0, 0, 110, null},
      {"moxBitonalToGray", bits, nullptr, 0, 0, 0, 111, null},
      {"moxBitonalToGray", gray, out, 0, 0, 0, 112, "(srcImage->depth != MOX_DEPTH_1U)"},
      {"moxBitonalToGray", bits, colour, 0, 0, 0, 113, channels},
      {"moxReduceBits", nullptr, out, 0, 0, 2, 160, null},
      {"moxReduceBits", gray, nullptr, 0, 0, 2, 161, null},
      {"moxReduceBits", gray, colour, 0, 0, 2, 168, channels},
      {"moxReduceBits", tiled, out, 0, 0, 2, 162, "(srcImage->tileInfo != ((void*)(0)))"},
      {"moxReduceBits", gray, tiled, 0, 0, 2, 163, "(dstImage->tileInfo != ((void*)(0)))"},
      {"moxReduceBits", gray, wide, 0, 0, 2, 164, "(dstImage->depth & ~MOX_DEPTH_SIGN) > (srcImage->depth & ~MOX_DEPTH_SIGN)"},
      {"moxReduceBits", gray, out, 0, 5, 2, 165, dither},   {"moxReduceBits", gray, out, 0, -1, 2, 165, dither},
      {"moxReduceBits", gray, out, 101, 0, 2, 166, noise},  {"moxReduceBits", gray, out, -1, 0, 2, 166, noise},
      {"moxReduceBits", gray, out, 0, 0, 1, 167, levels},   {"moxReduceBits", gray, out, 0, 0, 257, 167, levels},
  };
  for (const auto& c : cases) {
    MoxImage* d = const_cast<MoxImage*>(c.dst);
    if (c.func[3] == 'C') moxConvert(c.src, d);
    if (c.func[3] == 'B') moxBitonalToGray(c.src, d, 0, 1);
    if (c.func[3] == 'R') moxReduceBits(c.src, d, c.noise, c.kind, c.levels);
    expectReport(c.func, c.text, c.line, "moxconv");
  }
  // Tiled images whose call-back hands out no tile.
  const char *srcTile = "(srcImage->tileInfo->tileData == ((void*)(0)))",
             *dstTile = "(dstImage->tileInfo->tileData == ((void*)(0)))";
  for (int side = 0; side < 2; ++side) {
    Tiled a(gray, 8, 8), b(out, 8, 8), c(bits, 8, 8), d(out, 8, 8);
    (side ? a : b).nullOnGet = (side ? c : d).nullOnGet = 0;
    moxConvert(a, b);
    expectReport("moxConvert", side ? srcTile : dstTile, side ? 73 : 75, "moxconv");
    moxBitonalToGray(c, d, 0, 1);
    expectReport("moxBitonalToGray", side ? srcTile : dstTile, side ? 133 : 135, "moxconv");
  }
  EXPECT_EQ(out.bytes(), before[0]);
  EXPECT_EQ(colour.bytes(), before[1]);
  EXPECT_TRUE(reports().empty());
}

}  // namespace
