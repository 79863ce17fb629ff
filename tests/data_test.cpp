// Exchange on plain and tiled images, and the checks of copy, set and
// exchange (their pixels run with the other operations' cases).
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

TEST(Data, ExchangeOnEveryDepthAndLayoutPlainAndTiled) {
  Capture capture;
  const auto first = [](const ll* v) { return v[0]; };
  for (unsigned depth : kDepths)
    for (const Layout& l : layouts(depth))
      for (bool tiled : {false, true}) {
        Image a = l.make(depth, 0), b = l.make(depth, 2);
        const auto wantB = expected({a, b}, first), wantA = expected({b, a}, first);
        if (tiled) {
          Tiled ta(a, 8, 16), tb(b, 16, 8);
          moxExchange(ta, tb, nullptr);
          ta.gather(a);
          tb.gather(b);
          for (const auto& call : ta.calls) EXPECT_NE(call.mode, MOX_GET_TILE_TO_READ);
          EXPECT_FALSE(ta.badIndex || tb.badIndex);  // not even for empty rectangles
        } else {
          moxExchange(a, b, nullptr);
        }
        EXPECT_EQ(pixels(a), wantA) << l.name << " tiled " << tiled << " " << std::hex << depth;
        EXPECT_EQ(pixels(b), wantB) << l.name << " tiled " << tiled << " " << std::hex << depth;
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Data, ChecksReportAndWriteNothing) {
  Capture capture;
  Image a({MOX_DEPTH_8U, 2, 0, 4, 5}, 1), b({MOX_DEPTH_8U, 2, 0, 4, 5}, 2);
  const auto beforeA = a.bytes(), beforeB = b.bytes();
  moxCopy(nullptr, b, nullptr);
  expectReport("moxCopy", "Image header is null", 60);
  b->depth = MOX_DEPTH_8S;
  moxCopy(a, b, nullptr);
  expectReport("moxCopy", "(srcImage->depth != dstImage->depth)", 63);
  b->depth = MOX_DEPTH_8U;
  a.roi(2, 0, 0, 2, 2);
  moxCopy(a, b, nullptr);
  expectReport("moxCopy", "(nChSrc != nChDst)", 70);
  moxExchange(a, b, nullptr);
  expectReport("moxExchange", "(nChA != nChB)", 70);
  moxExchange(a, nullptr, nullptr);
  expectReport("moxExchange", "Image header is null", 61);
  b->align = 2;
  moxSet(b, 1, nullptr);
  expectReport("moxSet", "Image align is invalid", 52);
  EXPECT_EQ(a.bytes(), beforeA);
  EXPECT_EQ(b.bytes(), beforeB);
}
