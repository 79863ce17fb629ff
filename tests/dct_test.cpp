#include <gtest/gtest.h>

#include <cmath>

#include "moxpx.h"
#include "transform_support.h"

namespace {

using transform_test::Image;
using transform_test::Recorder;

constexpr double kPi = 3.14159265358979323846;

// The orthonormal DCT-II matrix of length n: row k, column x.
std::vector<double> dctMatrix(int n) {
  std::vector<double> c(static_cast<std::size_t>(n) * n);
  for (int k = 0; k < n; ++k)
    for (int x = 0; x < n; ++x)
      c[k * n + x] = std::sqrt((k ? 2.0 : 1.0) / n) * std::cos(kPi * (2 * x + 1) * k / (2.0 * n));
  return c;
}

// Direct 2-D transform: C_h f C_w^T, or its inverse C_h^T F C_w.
std::vector<double> directDct(const std::vector<double>& f, int h, int w, bool inverse) {
  const std::vector<double> ch = dctMatrix(h), cw = dctMatrix(w);
  const auto H = [&](int a, int b) { return inverse ? ch[b * h + a] : ch[a * h + b]; };
  const auto W = [&](int a, int b) { return inverse ? cw[b * w + a] : cw[a * w + b]; };
  std::vector<double> rows(f.size()), out(f.size());
  for (int y = 0; y < h; ++y)
    for (int u = 0; u < w; ++u) {
      double s = 0;
      for (int x = 0; x < w; ++x) s += W(u, x) * f[y * w + x];
      rows[y * w + u] = s;
    }
  for (int v = 0; v < h; ++v)
    for (int u = 0; u < w; ++u) {
      double s = 0;
      for (int y = 0; y < h; ++y) s += H(v, y) * rows[y * w + u];
      out[v * w + u] = s;
    }
  return out;
}

struct Size {
  int h, w;
};

TEST(DCT2D, MatchesTheDirectTransformBothWays) {
  std::mt19937 rng(21);
  for (const Size s : {Size{1, 8}, Size{8, 1}, Size{1, 7}, Size{2, 2}, Size{8, 8}, Size{5, 9},
                       Size{16, 12}, Size{3, 67}, Size{31, 20}}) {
    for (const bool inverse : {false, true}) {
      Image src(s.h, s.w, MOX_DEPTH_16S), dst(s.h, s.w, MOX_DEPTH_32S);
      src.fill(rng, -20000, 20000);
      moxDCT2D(src.get(), dst.get(), inverse ? MOX_DCT_INVERSE : MOX_DCT_FORWARD);
      const std::vector<double> want = directDct(src.plane(), s.h, s.w, inverse);
      const std::vector<double> got = dst.plane();
      for (std::size_t i = 0; i < want.size(); ++i)
        ASSERT_LE(std::abs(got[i] - std::round(want[i])), 1.0)
            << s.h << "x" << s.w << (inverse ? " inverse" : " forward") << " at " << i;
    }
  }
}

TEST(DCT2D, RoundTripAndSaturation) {
  std::mt19937 rng(22);
  Image img(24, 40, MOX_DEPTH_8U), coef(24, 40, MOX_DEPTH_32S), back(24, 40, MOX_DEPTH_8U),
      narrow(24, 40, MOX_DEPTH_8S);
  img.fill(rng, 0, 255);
  moxDCT2D(img.get(), coef.get(), MOX_DCT_FORWARD | MOX_DCT_SAVE);
  moxDCT2D(coef.get(), back.get(), MOX_DCT_INVERSE | MOX_DCT_SAVE);
  const std::vector<double> a = img.plane(), b = back.plane();
  for (std::size_t i = 0; i < a.size(); ++i) ASSERT_LE(std::abs(a[i] - b[i]), 1.0) << i;
  // The DC term of a bright image is far beyond 8S: saturated.
  moxDCT2D(img.get(), narrow.get(), MOX_DCT_FORWARD);
  EXPECT_EQ(narrow.at(0, 0), 127);
  moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
}

TEST(DCT2D, ChannelOfInterestAndRoi) {
  std::mt19937 rng(23);
  Image src(10, 12, MOX_DEPTH_8U, 3, 0, MOX_DATA_ORDER_PLANE), dst(10, 12, MOX_DEPTH_16S, 3);
  for (int c = 0; c < 3; ++c) src.fill(rng, 0, 255, c);
  src.setRoi(2, 2, 1, 8, 10);
  dst.setRoi(2, 0, 0, 9, 12);
  moxDCT2D(src.get(), dst.get(), MOX_DCT_FORWARD);
  // Common rectangle x 2..11, y 1..8 of channel 2.
  std::vector<double> part;
  for (int y = 1; y < 9; ++y)
    for (int x = 2; x < 12; ++x) part.push_back(static_cast<double>(src.at(y, x, 1)));
  const std::vector<double> want = directDct(part, 8, 10, false);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 12; ++x) {
      EXPECT_EQ(dst.at(y, x, 0), 0);
      EXPECT_EQ(dst.at(y, x, 2), 0);
      if (y >= 1 && y < 9 && x >= 2)
        EXPECT_NEAR(static_cast<double>(dst.at(y, x, 1)), want[(y - 1) * 10 + x - 2], 1.0);
      else
        EXPECT_EQ(dst.at(y, x, 1), 0);
    }
}

TEST(DCT2D, ChecksReportTheirConditionAndWriteNothing) {
  struct Case {
    const char* name;
    int flags;
    void (*spoil)(Image& src, Image& dst);
    std::string message;
    int line;
  };
  const auto none = [](Image&, Image&) {};
  const Case cases[] = {
      {"no direction", MOX_DCT_SAVE, none,
       "((flags & (MOX_DCT_FORWARD | MOX_DCT_INVERSE)) == 0 || (flags & (MOX_DCT_FORWARD | "
       "MOX_DCT_INVERSE)) == (MOX_DCT_FORWARD | MOX_DCT_INVERSE))",
       70},
      {"bad source header", 1, [](Image& s, Image&) { s->align = 2; },
       std::string("Image align is invalid") + std::string(48, ' ') + "\n", 60},
      {"1U destination", 1, [](Image&, Image& d) { d->depth = MOX_DEPTH_1U; },
       "(dstImage->depth == MOX_DEPTH_1U)", 74},
      {"channels", 1, [](Image& s, Image&) { s->nChannels = 2, s->imageSize *= 2; },
       "(srcImage->nChannels != dstImage->nChannels)", 75},
      {"COIs", 1, [](Image&, Image& d) { d.setRoi(1, 0, 0, 6, 6); },
       "(srcImage->roi->coi != dstImage->roi->coi)", 76},
      {"short block", 1, [](Image& s, Image&) { s->imageSize = 10; },
       "(srcImage->widthStep * srcImage->height > srcImage->imageSize)", 77},
      {"ROI outside", 2, [](Image&, Image& d) { d.setRoi(0, 5, 5, 3, 3); },
       "(dstImage->roi is outside dstImage)", 80},
      {"ROIs apart", 2,
       [](Image& s, Image& d) { s.setRoi(0, 0, 0, 2, 2), d.setRoi(0, 3, 3, 2, 2); },
       "(the ROIs of srcImage and dstImage do not meet)", 82},
  };
  for (const Case& c : cases) {
    Image src(6, 6, MOX_DEPTH_8U), dst(6, 6, MOX_DEPTH_32S);
    src.set(0, 0, 9);
    c.spoil(src, dst);
    Recorder rec;
    moxDCT2D(src.get(), dst.get(), c.flags);
    ASSERT_EQ(rec.reports().size(), 1u) << c.name;
    const auto& r = rec.reports()[0];
    EXPECT_EQ(r.message, c.message) << c.name;
    EXPECT_EQ(r.line, c.line) << c.name;
    EXPECT_EQ(r.func, "moxDCT2D");
    EXPECT_EQ(r.file, "moxdct");
    EXPECT_EQ(r.status, MOX_StsBadArgument);
    EXPECT_EQ(dst.at(0, 0), 0) << c.name;
  }
  Recorder rec;
  moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
  EXPECT_TRUE(rec.reports().empty());
  moxDCT2D(nullptr, nullptr, MOX_DCT_FORWARD);
  ASSERT_EQ(rec.reports().size(), 1u);
  EXPECT_EQ(rec.reports()[0].line, 60);
}

}  // namespace
