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
struct Pair {
  const char* name;
  int order[2], channels[2], roi[2][5];
};

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

TEST(Convert, EveryPairOfDepthsOnEveryLayout) {
  Capture capture;
  for (unsigned from : kDepths)
    for (unsigned to : kDepths)
      for (const Pair& p : pairs(from == MOX_DEPTH_1U || to == MOX_DEPTH_1U)) {
        SCOPED_TRACE(std::string(p.name) + " " + std::to_string(from) + " to " + std::to_string(to));
        Image s = makeImage(from, p, 0, 3), d = makeImage(to, p, 1, 4);
        const auto want = expected({s, d}, [&](const ll* v) { return converted(from, to, v[0]); });
        moxConvert(s, d);
        EXPECT_EQ(pixels(d), want);
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Convert, TiledImagesGiveThePlainResult) {
  Capture capture;
  for (const auto& [from, to] : {std::pair{MOX_DEPTH_8U, MOX_DEPTH_16S},
                                 std::pair{MOX_DEPTH_32S, MOX_DEPTH_1U},
                                 std::pair{MOX_DEPTH_1U, MOX_DEPTH_16U}}) {
    const Pair p = pairs(true)[1];
    Image s = makeImage(from, p, 0, 5), d = makeImage(to, p, 1, 6), plain = makeImage(to, p, 1, 6);
    Tiled ts(s, 8, 16), td(d, 16, 8);
    moxConvert(s, plain);
    moxConvert(ts, td);
    td.gather(d);
    EXPECT_EQ(pixels(d), pixels(plain)) << from << " " << to;
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

// The checks of the conversions: text and line, nothing written.
TEST(ConvertChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  Image gray({MOX_DEPTH_8U, 1, 0, 4, 4}), colour({MOX_DEPTH_8U, 3, 0, 4, 4}),
      bits({MOX_DEPTH_1U, 1, 0, 4, 4});
  const auto before = colour.bytes();
  moxConvert(nullptr, colour);
  expectReport("moxConvert", "Image header is null", 50, "moxconv");
  moxConvert(gray, nullptr);
  expectReport("moxConvert", "Image header is null", 51, "moxconv");
  moxConvert(gray, colour);
  expectReport("moxConvert", "(nChSrc != nChDst)", 52, "moxconv");
  colour->widthStep = 2;
  moxConvert(colour, colour);
  expectReport("moxConvert", "(srcImage->widthStep < the bytes of srcImage->width pixels)", 50,
               "moxconv");
  colour->widthStep = 12;
  moxBitonalToGray(nullptr, gray, 0, 1);
  expectReport("moxBitonalToGray", "Image header is null", 110, "moxconv");
  moxBitonalToGray(bits, nullptr, 0, 1);
  expectReport("moxBitonalToGray", "Image header is null", 111, "moxconv");
  moxBitonalToGray(gray, gray, 0, 1);
  expectReport("moxBitonalToGray", "(srcImage->depth != MOX_DEPTH_1U)", 112, "moxconv");
  moxBitonalToGray(bits, colour, 0, 1);
  expectReport("moxBitonalToGray", "(nChSrc != nChDst)", 113, "moxconv");
  EXPECT_EQ(colour.bytes(), before);
  EXPECT_TRUE(reports().empty());
}

// ---------------------------------------------------------------- reduction

TEST(ReduceBits, LevelsWithoutDither) {
  Capture capture;
  const struct { unsigned from, to; int levels; ll in, want; } cases[] = {
      {MOX_DEPTH_8U, MOX_DEPTH_8U, 4, 42, 0},        {MOX_DEPTH_8U, MOX_DEPTH_8U, 4, 43, 85},
      {MOX_DEPTH_8U, MOX_DEPTH_8U, 4, 255, 255},     {MOX_DEPTH_8U, MOX_DEPTH_8U, 2, 127, 0},
      {MOX_DEPTH_8U, MOX_DEPTH_8U, 2, 128, 255},     // 256 levels of 16 bits are 257 apart: 18.5 steps is 4754.5.
      {MOX_DEPTH_16U, MOX_DEPTH_8U, 256, 4755, 19},
      {MOX_DEPTH_16U, MOX_DEPTH_8U, 256, 4754, 18},
      {MOX_DEPTH_8U, MOX_DEPTH_1U, 2, 200, 1},       {MOX_DEPTH_16S, MOX_DEPTH_8S, 3, -32768, -128},
      {MOX_DEPTH_16S, MOX_DEPTH_8S, 3, 0, 0},        {MOX_DEPTH_16S, MOX_DEPTH_8S, 3, 32767, 127},
      {MOX_DEPTH_32S, MOX_DEPTH_16U, 65536, INT_MAX, 65535},
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
  for (int kind = MOX_DITHER_FS; kind <= MOX_DITHER_BAYER; ++kind)
    for (int noise : {0, 40}) {
      SCOPED_TRACE(std::to_string(kind) + " noise " + std::to_string(noise));
      Image s({MOX_DEPTH_8U, 3, 1, 32, 48}), d({MOX_DEPTH_1U, 1, 0, 32, 48}),
          again({MOX_DEPTH_1U, 1, 0, 32, 48});
      moxSet(s, 64, nullptr);
      s.roi(2, 0, 0, 32, 48);
      moxReduceBits(s, d, noise, kind, 2);
      moxReduceBits(s, again, noise, kind, 2);
      EXPECT_EQ(d.bytes(), again.bytes());
      double ones = 0;
      for (ll v : pixels(d)) ones += double(v);
      EXPECT_NEAR(ones / (32 * 48), 64.0 / 255, 0.03);
    }
  Image s({MOX_DEPTH_8U, 1, 0, 16, 16}), a({MOX_DEPTH_8U, 1, 0, 16, 16}), b({MOX_DEPTH_8U, 1, 0, 16, 16});
  moxReduceBits(s, a, 0, MOX_DITHER_FS, 4);
  moxReduceBits(s, b, 60, MOX_DITHER_FS, 4);
  EXPECT_NE(a.bytes(), b.bytes());
  EXPECT_TRUE(reports().empty());
}

TEST(ReduceBitsChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  Image s({MOX_DEPTH_8U, 1, 0, 8, 8}), d({MOX_DEPTH_8U, 1, 0, 8, 8}), wide({MOX_DEPTH_16U, 1, 0, 8, 8}),
      colour({MOX_DEPTH_8U, 3, 0, 8, 8});
  Tiled tiled(s, 8, 8);
  const struct {
    const MoxImage *src, *dst;
    int noise, kind, levels, line;
    const char* text;
  } cases[] = {
      {nullptr, d, 0, 0, 2, 160, "Image header is null"},
      {s, nullptr, 0, 0, 2, 161, "Image header is null"},
      {s, colour, 0, 0, 2, 168, "(nChSrc != nChDst)"},
      {tiled, d, 0, 0, 2, 162, "(srcImage->tileInfo != ((void*)(0)))"},
      {s, tiled, 0, 0, 2, 163, "(dstImage->tileInfo != ((void*)(0)))"},
      {s, wide, 0, 0, 2, 164,
       "(dstImage->depth & ~MOX_DEPTH_SIGN) > (srcImage->depth & ~MOX_DEPTH_SIGN)"},
      {s, d, 0, 5, 2, 165, "(ditherType < MOX_DITHER_NONE || ditherType > MOX_DITHER_BAYER)"},
      {s, d, 0, -1, 2, 165, "(ditherType < MOX_DITHER_NONE || ditherType > MOX_DITHER_BAYER)"},
      {s, d, 101, 0, 2, 166, "(noise < 0 || noise > 100)"},
      {s, d, -1, 0, 2, 166, "(noise < 0 || noise > 100)"},
      {s, d, 0, 0, 1, 167, "(levels < 2 || levels > 1 << dstBits)"},
      {s, d, 0, 0, 257, 167, "(levels < 2 || levels > 1 << dstBits)"},
  };
  const auto before = d.bytes();
  for (const auto& c : cases) {
    moxReduceBits(c.src, const_cast<MoxImage*>(c.dst), c.noise, c.kind, c.levels);
    expectReport("moxReduceBits", c.text, c.line, "moxconv");
  }
  EXPECT_EQ(d.bytes(), before);
  EXPECT_TRUE(reports().empty());
}

}  // namespace
