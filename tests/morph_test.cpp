// Erosion, dilation, opening and closing against the 3x3 step repeated on
// whole images read through the border routines, on every depth and with
// one or mixed border rules; the checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "image/border.h"
#include "image_helpers.h"

namespace {

using namespace testimg;

void copyModes(const MoxImage* from, MoxImage* to) {
  std::copy(from->borderMode, from->borderMode + 4, to->borderMode);
  std::copy(from->borderConst, from->borderConst + 4, to->borderConst);
}

// One 3x3 step over the whole image: each value the extreme of its window.
void step(const MoxImage* from, MoxImage* to, bool max) {
  for (int y = 0; y < from->height; ++y)
    for (int x = 0; x < from->width; ++x)
      for (int c = 0; c < valueChannels(from); ++c) {
        ll m = max ? lowest(from->depth) : highest(from->depth);
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) {
            unsigned v = 0;
            EXPECT_EQ(mox::ownGetBorderPixel(from, x + dx, y + dy, c + 1, &v), mox::kBorderOk);
            const ll w = wrap(from->depth, v);
            m = max ? std::max(m, w) : std::min(m, w);
          }
        set(to, x, y, c, m);
      }
}

using Call = void(MOX_CALL*)(const MoxImage*, MoxImage*, int);

TEST(Morph, EveryOperationIsTheStepRepeated) {
  const struct Op { const char* name; Call call; bool first; int halves; } ops[] = {
      {"erode", moxErode, false, 1},
      {"dilate", moxDilate, true, 1},
      {"open", moxOpen, false, 2},
      {"close", moxClose, true, 2},
  };
  Capture capture;
  for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_32S, MOX_DEPTH_8S})
    for (int modes = 0; modes < 6; ++modes)
      for (int n : {1, 2, 3, 40}) {
        const int ch = depth == MOX_DEPTH_1U ? 1 : 2;
        const Shape shape{depth, ch, 0, 9, 12};
        Image src(shape, depth + modes + n);
        if (modes < 4) {
          moxSetBorderMode(src, modes, MOX_SIDE_ALL, 0x5A5A5A5A);
        } else {
          moxSetBorderMode(src, modes == 4 ? MOX_BORDER_WRAP : MOX_BORDER_REFLECT, MOX_SIDE_TOP, 0);
          moxSetBorderMode(src, MOX_BORDER_CONSTANT, MOX_SIDE_BOTTOM, modes == 4 ? 0 : -1);
          moxSetBorderMode(src, MOX_BORDER_REPLICATE, MOX_SIDE_LEFT, 0);
          moxSetBorderMode(src, MOX_BORDER_CONSTANT, MOX_SIDE_RIGHT, 7);
        }
        for (const Op& op : ops) {
          // Same seed as the source: the same bytes, padding included.
          Image a(shape, depth + modes + n), b(shape, depth + modes + n);
          copyModes(src, a);
          copyModes(src, b);
          bool max = op.first;
          for (int h = 0; h < op.halves; ++h, max = !max)
            for (int k = 0; k < n; ++k) {
              step(a, b, max);
              std::copy(b->imageData, b->imageData + b->imageSize, a->imageData);
            }
          Image dst(shape, depth + modes + n);
          op.call(src, dst, n);
          ASSERT_EQ(dst.bytes(), a.bytes())
              << op.name << " depth " << depth << " modes " << modes << " n " << n;
        }
      }
  EXPECT_TRUE(reports().empty());
}

// A ROI reads the eroded pixels around it, not a border at its own edge.
TEST(Morph, RoiSeesTheWholeImage) {
  Capture capture;
  Image src({MOX_DEPTH_8U, 1, 0, 10, 10}, 4), whole({MOX_DEPTH_8U, 1, 0, 10, 10}, 5);
  moxSetBorderMode(src, MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
  moxSetBorderMode(src, MOX_BORDER_WRAP, MOX_SIDE_LEFT, 0);
  moxOpen(src, whole, 2);
  src.roi(0, 3, 2, 4, 5);
  Image part({MOX_DEPTH_8U, 1, 0, 10, 10}, 5);
  part.roi(0, 3, 2, 4, 5);
  moxOpen(src, part, 2);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x) {
      Image fresh({MOX_DEPTH_8U, 1, 0, 10, 10}, 5);
      const bool in = x >= 3 && x < 8 && y >= 2 && y < 6;
      ASSERT_EQ(get(part, x, y), in ? get(whole, x, y) : get(fresh, x, y)) << x << "," << y;
    }
  EXPECT_TRUE(reports().empty());
}

TEST(Morph, ChecksReportTheirTextAndLine) {
  const struct Case { const char* func; Call call; int base; } ops[] = {
      {"moxErode", moxErode, 100},
      {"moxDilate", moxDilate, 200},
      {"moxOpen", moxOpen, 300},
      {"moxClose", moxClose, 400},
  };
  Capture capture;
  for (const Case& c : ops) {
    Image s({MOX_DEPTH_8U, 1, 0, 5, 5}, 1), d({MOX_DEPTH_8U, 1, 0, 5, 5}, 2);
    const auto before = d.bytes();
    c.call(s, d, 0);
    expectReport(c.func, "(nIterations < 1)", c.base + 20, "moxmorph");
    c.call(s, nullptr, 1);
    expectReport(c.func, "Image header is null", c.base + 1, "moxmorph");
    d->dataOrder = 1;
    c.call(s, d, 1);
    expectReport(c.func, "(srcImage->dataOrder != dstImage->dataOrder)", c.base + 3, "moxmorph");
    d->dataOrder = 0;
    moxSetBorderMode(s, 8, MOX_SIDE_ALL, 0);
    c.call(s, d, 1);
    expectReport(c.func,
                 "(srcImage->borderMode[0] < MOX_BORDER_CONSTANT || srcImage->borderMode[0] > "
                 "MOX_BORDER_WRAP)",
                 c.base + 15, "moxmorph");
    EXPECT_TRUE(reports().empty());
    EXPECT_EQ(d.bytes(), before) << c.func;
  }
}

}  // namespace
