// Copy, set and exchange on plain and tiled images.
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

namespace {

struct Geometry {
  const char* name;
  Shape a, b;
  int roi[2][5];  // coi, x, y, h, w; h 0 = no ROI
};

std::vector<Geometry> geometries(unsigned depth) {
  const bool bit = depth == MOX_DEPTH_1U;
  const int ch = bit ? 1 : 3;
  std::vector<Geometry> v = {
      {"whole", {depth, ch, 0, 7, 21}, {depth, ch, 0, 7, 21}, {}},
      {"rois",
       {depth, ch, 0, 12, 41},
       {depth, ch, 0, 15, 50},
       {{0, 3, 2, 9, 30}, {0, 7, 1, 13, 37}}},
      {"plane",
       {depth, ch, 1, 12, 41},
       {depth, ch, 1, 15, 50},
       {{0, 5, 2, 9, 30}, {0, 1, 4, 13, 37}}},
  };
  if (!bit)
    v.push_back({"coi",
                 {depth, 3, 0, 10, 20},
                 {depth, 4, 0, 10, 20},
                 {{2, 1, 1, 6, 15}, {4, 3, 2, 8, 16}}});
  return v;
}

void applyRoi(Image& im, const int* r) {
  if (r[3]) im.roi(r[0], r[1], r[2], r[3], r[4]);
}

}  // namespace

TEST(Data, CopySetAndExchangeOnEveryDepth) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (const Geometry& g : geometries(depth)) {
      SCOPED_TRACE(g.name);
      {
        Image a(g.a, 1), b(g.b, 2);
        applyRoi(a, g.roi[0]);
        applyRoi(b, g.roi[1]);
        const auto want = expected({a, b}, [](const ll* v) { return v[0]; });
        moxCopy(a, b, nullptr);
        EXPECT_EQ(pixels(b), want) << "copy " << std::hex << depth;
      }
      for (int value : {0, 1, -1, 0x12345, -200}) {
        Image b(g.b, 3);
        applyRoi(b, g.roi[1]);
        const auto want = expected({b}, [&](const ll*) { return wrap(depth, value); });
        moxSet(b, value, nullptr);
        EXPECT_EQ(pixels(b), want) << "set " << value << " depth " << std::hex << depth;
      }
      {
        Image a(g.a, 4), b(g.b, 5);
        applyRoi(a, g.roi[0]);
        applyRoi(b, g.roi[1]);
        const auto wantB = expected({a, b}, [](const ll* v) { return v[0]; });
        const auto wantA = expected({b, a}, [](const ll* v) { return v[0]; });
        moxExchange(a, b, nullptr);
        EXPECT_EQ(pixels(a), wantA) << "exchange " << std::hex << depth;
        EXPECT_EQ(pixels(b), wantB) << "exchange " << std::hex << depth;
      }
    }
  EXPECT_TRUE(reports().empty());
}

TEST(Data, TiledEqualsPlain) {
  Capture capture;
  for (unsigned depth : kDepths) {
    const int ch = depth == MOX_DEPTH_1U ? 1 : 2;
    Image a({depth, ch, 0, 30, 40}, 6), b({depth, ch, 0, 33, 45}, 7);
    a.roi(0, 3, 5, 20, 30);
    b.roi(0, 11, 2, 25, 31);
    const auto copied = expected({a, b}, [](const ll* v) { return v[0]; });
    const auto swappedA = expected({b, a}, [](const ll* v) { return v[0]; });
    {
      Tiled ta(a, 8, 16), tb(b, 16, 8);
      moxCopy(ta, tb, nullptr);
      Image out({depth, ch, 0, 33, 45}, 7);
      tb.gather(out);
      EXPECT_EQ(pixels(out), copied) << std::hex << depth;
    }
    {
      Tiled ta(a, 8, 16), tb(b, 16, 8);
      moxExchange(ta, tb, nullptr);
      Image outA({depth, ch, 0, 30, 40}, 6), outB({depth, ch, 0, 33, 45}, 7);
      ta.gather(outA);
      tb.gather(outB);
      EXPECT_EQ(pixels(outA), swappedA) << std::hex << depth;
      EXPECT_EQ(pixels(outB), copied) << std::hex << depth;
      for (const auto& call : ta.calls) EXPECT_NE(call.mode, MOX_GET_TILE_TO_READ);
    }
    {
      Tiled tb(b, 16, 8);
      const int mapping[2] = {1, 1};
      const auto want = expected(
          {b}, [](const ll*) { return 1; }, Rect{16, 8, 16, 8});
      moxSet(tb, 1, mapping);
      Image out({depth, ch, 0, 33, 45}, 7);
      tb.gather(out);
      EXPECT_EQ(pixels(out), want) << std::hex << depth;
    }
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
