// The 2-D DCT: against a direct DCT both ways, round trip, saturation,
// channel of interest and ROIs, checks.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "image_helpers.h"

using namespace testimg;

namespace {

// Direct orthonormal DCT-II (C_h f C_w^T), or its inverse (C_h^T F C_w).
std::vector<double> directDct(const std::vector<double>& f, int h, int w, bool inverse) {
  return separable(f, h, w, [inverse](int k, int x, int n) {
    if (inverse) std::swap(k, x);
    const double pi = 3.14159265358979323846;
    return std::sqrt((k ? 2.0 : 1.0) / n) * std::cos(pi * (2 * x + 1) * k / (2.0 * n));
  });
}

struct Size { int h, w; };

TEST(DCT2D, MatchesTheDirectTransformBothWays) {
  for (const Size s : {Size{1, 8}, Size{8, 1}, Size{1, 7}, Size{2, 2}, Size{8, 8}, Size{5, 9},
                       Size{16, 12}, Size{3, 67}, Size{31, 20}})
    for (const bool inverse : {false, true}) {
      Image src({MOX_DEPTH_16S, 1, 0, s.h, s.w}, s.w), dst({MOX_DEPTH_32S, 1, 0, s.h, s.w});
      moxDCT2D(src, dst, inverse ? MOX_DCT_INVERSE : MOX_DCT_FORWARD);
      const std::vector<double> want = directDct(src.plane(), s.h, s.w, inverse), got = dst.plane();
      for (std::size_t i = 0; i < want.size(); ++i)
        ASSERT_LE(std::abs(got[i] - std::round(want[i])), 1.0)
            << s.h << "x" << s.w << (inverse ? " inverse" : " forward") << " at " << i;
    }
}

TEST(DCT2D, RoundTripAndSaturation) {
  Image img({MOX_DEPTH_8U, 1, 0, 24, 40}), coef({MOX_DEPTH_32S, 1, 0, 24, 40}),
      back({MOX_DEPTH_8U, 1, 0, 24, 40}), narrow({MOX_DEPTH_8S, 1, 0, 24, 40});
  moxDCT2D(img, coef, MOX_DCT_FORWARD | MOX_DCT_SAVE);
  moxDCT2D(coef, back, MOX_DCT_INVERSE | MOX_DCT_SAVE);
  const std::vector<double> a = img.plane(), b = back.plane();
  for (std::size_t i = 0; i < a.size(); ++i) ASSERT_LE(std::abs(a[i] - b[i]), 1.0) << i;
  // The DC term of a bright image is far beyond 8S: saturated.
  moxDCT2D(img, narrow, MOX_DCT_FORWARD);
  EXPECT_EQ(get(narrow, 0, 0), 127);
  moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
}

TEST(DCT2D, ChannelOfInterestAndRoi) {
  const int srcRoi[5] = {2, 2, 1, 8, 10}, dstRoi[5] = {2, 0, 0, 9, 12};
  Image src({MOX_DEPTH_8U, 3, MOX_DATA_ORDER_PLANE, 10, 12}, 1, srcRoi),
      dst({MOX_DEPTH_16S, 3, 0, 10, 12}, 2, dstRoi);
  moxDCT2D(src, dst, MOX_DCT_FORWARD);
  // Common rectangle x 2..11, y 1..8 of channel 2.
  std::vector<double> part;
  for (int y = 1; y < 9; ++y)
    for (int x = 2; x < 12; ++x) part.push_back(double(get(src, x, y, 1)));
  const std::vector<double> want = directDct(part, 8, 10, false);
  Image untouched({MOX_DEPTH_16S, 3, 0, 10, 12}, 2);  // dst as it was
  for (int y = 1; y < 9; ++y)
    for (int x = 2; x < 12; ++x) {
      EXPECT_NEAR(double(get(dst, x, y, 1)), want[(y - 1) * 10 + x - 2], 1.0);
      set(dst, x, y, 1, 0);
      set(untouched, x, y, 1, 0);
    }
  EXPECT_EQ(dst.bytes(), untouched.bytes());  // nothing else changed
}

TEST(DCT2D, ChecksReportTheirConditionAndWriteNothing) {
  const std::string dir = "(flags & (MOX_DCT_FORWARD | MOX_DCT_INVERSE))";
  const struct {
    const char* name; int flags; void (*spoil)(Image& s, Image& d); std::string message; int line;
  } cases[] = {
      {"no direction", MOX_DCT_SAVE, SPOIL(),
       "(" + dir + " == 0 || " + dir + " == (MOX_DCT_FORWARD | MOX_DCT_INVERSE))", 70},
      {"bad source header", 1, SPOIL(s->align = 2),
       std::string("Image align is invalid") + std::string(48, ' ') + "\n", 60},
      {"1U destination", 1, SPOIL(d->depth = MOX_DEPTH_1U),
       "(dstImage->depth == MOX_DEPTH_1U)", 74},
      {"channels", 1, SPOIL(s->nChannels = 2, s->imageSize *= 2),
       "(srcImage->nChannels != dstImage->nChannels)", 75},
      {"COIs", 1, SPOIL(d.roi(1, 0, 0, 6, 6)), "(srcImage->roi->coi != dstImage->roi->coi)", 76},
      {"short block", 1, SPOIL(s->imageSize = 10),
       "(srcImage->widthStep * srcImage->height > srcImage->imageSize)", 77},
      {"ROI outside", 2, SPOIL(d.roi(0, 5, 5, 3, 3)), "(dstImage->roi is outside dstImage)", 80},
      {"ROIs apart", 2, SPOIL(s.roi(0, 0, 0, 2, 2), d.roi(0, 3, 3, 2, 2)),
       "(the ROIs of srcImage and dstImage do not meet)", 82},
      {"null images", 1, nullptr,
       std::string("Image header is null") + std::string(50, ' ') + "\n", 60},
  };
  for (const auto& c : cases) {
    Image src({MOX_DEPTH_8U, 1, 0, 6, 6}), dst({MOX_DEPTH_32S, 1, 0, 6, 6});
    if (c.spoil) c.spoil(src, dst);
    const auto before = dst.bytes();
    Capture capture;
    moxDCT2D(c.spoil ? +src : nullptr, c.spoil ? +dst : nullptr, c.flags);
    expectReport("moxDCT2D", c.message, c.line, "moxdct");
    EXPECT_TRUE(reports().empty()) << c.name;
    EXPECT_EQ(dst.bytes(), before) << c.name;
  }
  Capture capture;
  moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
  EXPECT_TRUE(reports().empty());
}

}  // namespace
