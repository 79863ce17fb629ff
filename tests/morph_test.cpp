// Erosion, dilation, opening and closing against the 3x3 step repeated on
// whole images read through the border routines; the checks.
#include <gtest/gtest.h>

#include "image/border.h"
#include "image_helpers.h"

namespace {

using namespace testimg;

// One rule on every side (0..3), or mixed sides (4, 5).
void setModes(MoxImage* im, int modes) {
  if (modes < 4) return void(moxSetBorderMode(im, modes, MOX_SIDE_ALL, 0x5A5A5A5A));
  moxSetBorderMode(im, modes == 4 ? MOX_BORDER_WRAP : MOX_BORDER_REFLECT, MOX_SIDE_TOP, 0);
  moxSetBorderMode(im, MOX_BORDER_CONSTANT, MOX_SIDE_BOTTOM, modes == 4 ? 0 : -1);
  moxSetBorderMode(im, MOX_BORDER_REPLICATE, MOX_SIDE_LEFT, 0);
  moxSetBorderMode(im, MOX_BORDER_CONSTANT, MOX_SIDE_RIGHT, 7);
}

// One 3x3 step over the whole image: each value the extreme of its window.
void step(const MoxImage* from, MoxImage* to, bool max) {
  for (int y = 0; y < from->height; ++y)
    for (int x = 0; x < from->width; ++x)
      for (int c = 0; c < valueChannels(from); ++c) {
        ll m = max ? lowest(from->depth) : highest(from->depth);
        for (int i = 0; i < 9; ++i) {
          unsigned v = 0;
          EXPECT_EQ(mox::ownGetBorderPixel(from, x + i % 3 - 1, y + i / 3 - 1, c + 1, &v), mox::kBorderOk);
          m = max ? std::max(m, wrap(from->depth, v)) : std::min(m, wrap(from->depth, v));
        }
        set(to, x, y, c, m);
      }
}

using Call = void(MOX_CALL*)(const MoxImage*, MoxImage*, int);
const struct Op { const char* name; Call call; bool first; int halves; } kOps[] = {
    {"moxErode", moxErode, false, 1}, {"moxDilate", moxDilate, true, 1},
    {"moxOpen", moxOpen, false, 2},   {"moxClose", moxClose, true, 2},
};

// Counts 1 and 2 end on the first and second step image, 40 goes past the
// image's size (where more steps change nothing).
TEST(Morph, EveryOperationIsTheStepRepeated) {
  Capture capture;
  for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_32S, MOX_DEPTH_8S})
    for (int modes = 0; modes < 6; ++modes)
      for (int n : {1, 2, 40})
        for (const Op& op : kOps) {
          // one seed: the same bytes, padding included
          const Shape shape{depth, depth == MOX_DEPTH_1U ? 1 : 2, 0, 9, 12};
          const unsigned seed = depth + modes + n;
          Image src(shape, seed), a(shape, seed), b(shape, seed), dst(shape, seed);
          setModes(src, modes), setModes(a, modes);
          bool max = op.first;
          for (int h = 0; h < op.halves; ++h, max = !max)
            for (int k = 0; k < n; ++k) {
              step(a, b, max);
              std::copy(b->imageData, b->imageData + b->imageSize, a->imageData);
            }
          op.call(src, dst, n);
          ASSERT_EQ(dst.bytes(), a.bytes()) << op.name << " depth " << depth << " modes " << modes << " n " << n;
        }
  EXPECT_TRUE(reports().empty());
}

// A ROI reads the eroded pixels around it, not a border at its own edge.
TEST(Morph, RoiSeesTheWholeImage) {
  Capture capture;
  const Shape shape{MOX_DEPTH_8U, 1, 0, 10, 10};
  Image src(shape, 4), whole(shape, 5), part(shape, 5);
  auto want = part.plane();
  moxSetBorderMode(src, MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
  moxSetBorderMode(src, MOX_BORDER_WRAP, MOX_SIDE_LEFT, 0);
  moxOpen(src, whole, 2);
  src.roi(0, 3, 2, 4, 5), part.roi(0, 3, 2, 4, 5);
  moxOpen(src, part, 2);
  for (int y = 2; y < 6; ++y)
    for (int x = 3; x < 8; ++x) want[y * 10 + x] = get(whole, x, y);
  EXPECT_EQ(part.plane(), want);
  EXPECT_TRUE(reports().empty());
}

TEST(Morph, ChecksReportTheirTextAndLine) {
  const struct { void (*spoil)(MoxImage* s, MoxImage*& d); int n, line; const char* text; } cases[] = {
#define S(...) []([[maybe_unused]] MoxImage* s, [[maybe_unused]] MoxImage*& d) { __VA_ARGS__; }
      {S(), 0, 20, "(nIterations < 1)"},
      {S(d = nullptr), 1, 1, "Image header is null"},
      {S(d->dataOrder = 1), 1, 3, "(srcImage->dataOrder != dstImage->dataOrder)"},
      {S(moxSetBorderMode(s, 8, MOX_SIDE_ALL, 0)), 1, 15,
       "(srcImage->borderMode[0] < MOX_BORDER_CONSTANT || srcImage->borderMode[0] > MOX_BORDER_WRAP)"},
#undef S
  };
  Capture capture;
  for (int i = 0; i < 4; ++i)
    for (const auto& k : cases) {
      Image s({MOX_DEPTH_8U, 1, 0, 5, 5}, 1), d({MOX_DEPTH_8U, 1, 0, 5, 5}, 2);
      const auto before = d.bytes();
      MoxImage* dst = d;
      k.spoil(s, dst);
      kOps[i].call(s, dst, k.n);
      expectReport(kOps[i].name, k.text, 100 * (i + 1) + k.line, "moxmorph");
      d->dataOrder = 0;
      EXPECT_EQ(d.bytes(), before) << kOps[i].name;
    }
  EXPECT_TRUE(reports().empty());
}

}  // namespace
