// moxThreshold: every depth at the edges of its range and around the
// threshold, the layouts of the point operations, in place, tiled runs,
// and every check.
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

namespace {

const unsigned kThresholdDepths[] = {MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U, MOX_DEPTH_16S, MOX_DEPTH_32S};

ll thresholded(unsigned depth, ll v, ll t) { return v < t ? lowest(depth) : highest(depth); }

}  // namespace

// Edge values in rows long enough for the vector loop and its tail.
TEST(Threshold, EdgesOfEveryDepth) {
  Capture capture;
  for (unsigned depth : kThresholdDepths) {
    const ll lo = lowest(depth), hi = highest(depth);
    const ll values[] = {lo, lo + 1, -2, -1, 0, 1, 2, 100, 127, 128, 255, 256, hi - 1, hi};
    for (ll t : {ll(INT_MIN), lo, lo + 1, -1LL, 0LL, 1LL, 128LL, 255LL, 256LL, hi, hi + 1, ll(INT_MAX)}) {
      if (t > INT_MAX) continue;
      Image s({depth, 1, 0, 1, 42}), d({depth, 1, 0, 1, 42});
      for (int x = 0; x < 42; ++x) set(s, x, 0, 0, clampTo(depth, values[x % 14]));
      const auto want = expected({s, d}, [&](const ll* v) { return thresholded(depth, v[0], t); });
      moxThreshold(s, d, int(t));
      EXPECT_EQ(pixels(d), want) << std::hex << depth << std::dec << " " << t;
    }
  }
  EXPECT_TRUE(reports().empty());
}

// ROIs of different sizes (the common top-left part), channels of interest,
// plane order, tiled images, in place, and a destination of more than 32 MB
// in one run (whole rows without padding), written past the caches.
TEST(Threshold, LayoutsTilesAndInPlace) {
  Capture capture;
  for (unsigned depth : kThresholdDepths)
    for (const Layout& l : layouts(depth))
      for (int t : {0, 7, -300, 40000}) {
        Image s = l.make(depth, 0), d = l.make(depth, 2), out = l.make(depth, 2);
        if (std::string(l.name) == "coi") s.roi(2, 1, 1, 6, 15);  // one channel each
        if (std::string(l.name) == "coiPlane") d.roi(1, 3, 2, 8, 16), out.roi(1, 3, 2, 8, 16);
        if (std::string(l.name) == "outside") continue;  // a bad ROI, see the checks
        const auto f = [&](const ll* v) { return thresholded(depth, v[0], t); };
        auto want = expected({s, d}, f);
        Tiled ts(s, 8, 16);
        for (MoxImage* src : {+s, +ts}) {
          Tiled td(d, 16, 8);
          moxThreshold(src, td, t);
          td.gather(out);
          EXPECT_EQ(pixels(out), want) << l.name << " " << t << " " << std::hex << depth << " tiled";
        }
        moxThreshold(s, d, t);
        EXPECT_EQ(pixels(d), want) << l.name << " " << t << " " << std::hex << depth;
        want = expected({s, s}, f);
        moxThreshold(s, s, t);
        EXPECT_EQ(pixels(s), want) << l.name << " in place";
      }
  const int roi[5] = {0, 0, 1, 5999, 6000};  // the source's row y goes to row y + 1
  Image s({MOX_DEPTH_8U, 1, 0, 6000, 6000}, 5), d({MOX_DEPTH_8U, 1, 0, 6000, 6000}, 6, roi);
  std::vector<char> large = d.bytes();
  for (size_t i = 6000; i < large.size(); ++i)
    large[i] = static_cast<unsigned char>(s->imageData[i - 6000]) < 17 ? 0 : char(255);
  moxThreshold(s, d, 17);
  EXPECT_TRUE(d.bytes() == large);
  EXPECT_TRUE(reports().empty());
}

// Destinations of 8 MB of values and more are written past the caches,
// in every value size, with rows padded beyond their pixels. Through a ROI
// (which also starts the rows off a 16-byte boundary) the padding stays as
// it was; without one the block is one run, padding included.
TEST(Threshold, LargePaddedDestinations) {
  Capture capture;
  const struct { unsigned depth; int channels, height, width, pad, threshold; int roi[5]; } cases[] = {
      {MOX_DEPTH_8U, 1, 3000, 2999, 13, 100, {0, 1, 0, 3000, 2998}},
      {MOX_DEPTH_8U, 1, 3000, 2999, 13, 100, {}},
      {MOX_DEPTH_8S, 3, 3000, 1001, 7, -3, {0, 1, 0, 2999, 997}},
      {MOX_DEPTH_16U, 1, 2000, 2101, 3, 40000, {0, 1, 1, 1999, 2100}},
      {MOX_DEPTH_16U, 1, 2000, 2101, 3, 40000, {}},
      {MOX_DEPTH_16S, 2, 1500, 1501, 5, 0, {0, 3, 1, 1490, 1490}},
      {MOX_DEPTH_32S, 1, 1500, 1499, 1, -5, {0, 1, 1, 1499, 1497}},
  };
  for (const auto& k : cases) {
    // Images allocated wider, then narrowed: their rows keep the wider step.
    const Shape wide{k.depth, k.channels, 0, k.height, k.width + k.pad};
    const bool flat = !k.roi[3];
    Image s(wide, 8, flat ? nullptr : k.roi), d(wide, 9, flat ? nullptr : k.roi);
    s->width = d->width = flat ? k.width + k.pad : k.width;
    ASSERT_GE(d->imageSize, 8 << 20);
    const auto want = expectedBytes(s, d, [&](ll v) { return thresholded(k.depth, v, k.threshold); });
    s->width = d->width = k.width;
    moxThreshold(s, d, k.threshold);
    EXPECT_TRUE(d.bytes() == want) << std::hex << k.depth << (flat ? " flat" : "");
    s->width = d->width = k.width + k.pad;  // (as allocated, for the release)
  }
  EXPECT_TRUE(reports().empty());
}

TEST(ThresholdChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  const struct { void (*spoil)(Image& s, Image& d); const char* text; int line; } cases[] = {
      {SPOIL(s->align = 5), "Image align is invalid", 199},
      {SPOIL(s->widthStep = 3), "(srcImage->widthStep < the bytes of srcImage->width pixels)", 199},
      {SPOIL(d->nChannels = 0), "Image channel's number is less one", 200},
      {SPOIL(d->imageSize = 40), "(dstImage->imageSize < the bytes of dstImage->height rows)", 200},
      {SPOIL(s->depth = MOX_DEPTH_8S), "(srcImage->depth!=dstImage->depth)", 201},
      {SPOIL(s->dataOrder = 1; s->imageSize *= 3), "(srcImage->dataOrder!=dstImage->dataOrder)", 202},
      {SPOIL(s->depth = d->depth = MOX_DEPTH_1U; s->nChannels = d->nChannels = 1), "(srcImage->depth==1)", 203},
      {SPOIL(s.roi(0, 9, 0, 2, 2)), "The fields of ROI has error", 125},
      {SPOIL(d.roi(0, 0, 4, 2, 2)), "The fields of ROI has error", 125},
      {SPOIL(s.roi(1, 0, 0, 2, 2)), "The mismath of number channels", 129},
      {SPOIL(d.roi(3, 0, 0, 2, 2)), "The mismath of number channels", 129},
  };
  for (const auto& k : cases) {
    Image s({MOX_DEPTH_8U, 3, 0, 4, 6}, 1), d({MOX_DEPTH_8U, 3, 0, 4, 6}, 2);
    const auto before = d.bytes();
    const int size = d->imageSize;
    k.spoil(s, d);
    moxThreshold(s, d, 100);
    expectReport("moxThreshold", k.text, k.line, "moxthres");
    d->imageSize = size;
    EXPECT_EQ(d.bytes(), before) << k.text;
  }
  moxThreshold(nullptr, nullptr, 0);
  expectReport("moxThreshold", "Image header is null", 199, "moxthres");
  // Call-backs of the source (0) or destination that fail: a null first
  // tile; a tile kept on release before the next (two across) or at the end.
  const struct { int image, nullGet, keep, width, line; } tiles[] = {
      {0, 0, -1, 16, 325}, {1, 0, -1, 16, 346}, {0, -1, 0, 16, 319},
      {1, -1, 0, 16, 340}, {0, -1, 0, 8, 363},  {1, -1, 0, 8, 368},
  };
  for (const auto& k : tiles) {
    Image s({MOX_DEPTH_8U, 1, 0, 8, k.width}, 1), d({MOX_DEPTH_8U, 1, 0, 8, k.width}, 2);
    Tiled ts(s, 8, 8), td(d, 8, 8);
    Tiled& t = k.image ? td : ts;
    t.nullOnGet = k.nullGet, t.keepOnRelease = k.keep;
    moxThreshold(ts, td, 5);
    expectReport("moxThreshold", std::string(k.image ? "(dst" : "(src") + "Image->tileInfo->tileData " +
                                     (k.nullGet ? "!=" : "==") + " ((void*)(0)))", k.line, "moxthres");
  }
  EXPECT_TRUE(reports().empty());
}
