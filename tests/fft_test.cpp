#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <thread>

#include "moxpx.h"
#include "transform_support.h"

namespace {

using transform_test::Image;
using transform_test::Recorder;
using Cx = std::complex<double>;

constexpr double kPi = 3.14159265358979323846;

// Direct two-dimensional DFT of a real or complex h x w matrix with the
// exponent sign `sign`.
std::vector<Cx> directDft(const std::vector<Cx>& f, int h, int w, int sign) {
  const auto root = [sign](long long k, long long n) {
    const double a = 2 * kPi * static_cast<double>(k % n) / static_cast<double>(n);
    return Cx(std::cos(a), sign * std::sin(a));
  };
  std::vector<Cx> rows(f.size()), out(f.size());
  for (int y = 0; y < h; ++y)
    for (int u = 0; u < w; ++u) {
      Cx s = 0;
      for (int x = 0; x < w; ++x) s += f[y * w + x] * root(1LL * u * x, w);
      rows[y * w + u] = s;
    }
  for (int v = 0; v < h; ++v)
    for (int u = 0; u < w; ++u) {
      Cx s = 0;
      for (int y = 0; y < h; ++y) s += rows[y * w + u] * root(1LL * v * y, h);
      out[v * w + u] = s;
    }
  return out;
}

// The packed layout of a full conjugate-symmetric spectrum.
std::vector<double> pack(const std::vector<Cx>& F, int h, int w) {
  std::vector<double> p(F.size());
  const auto column = [&](int u, int col) {  // a real column packed along y
    p[col] = F[u].real();
    for (int v = 1; 2 * v < h; ++v) {
      p[(2 * v - 1) * w + col] = F[v * w + u].real();
      p[2 * v * w + col] = F[v * w + u].imag();
    }
    if (h % 2 == 0 && h > 1) p[(h - 1) * w + col] = F[(h / 2) * w + u].real();
  };
  column(0, 0);
  if (w % 2 == 0 && w > 1) column(w / 2, w - 1);
  for (int k = 1; 2 * k < w; ++k)
    for (int v = 0; v < h; ++v) {
      p[v * w + 2 * k - 1] = F[v * w + k].real();
      p[v * w + 2 * k] = F[v * w + k].imag();
    }
  return p;
}

// The full spectrum a packed matrix stands for.
std::vector<Cx> unpack(const std::vector<double>& p, int h, int w) {
  std::vector<Cx> F(p.size());
  const auto column = [&](int u, int col) {
    F[u] = p[col];
    for (int v = 1; 2 * v < h; ++v) {
      F[v * w + u] = Cx(p[(2 * v - 1) * w + col], p[2 * v * w + col]);
      F[(h - v) * w + u] = std::conj(F[v * w + u]);
    }
    if (h % 2 == 0 && h > 1) F[(h / 2) * w + u] = p[(h - 1) * w + col];
  };
  column(0, 0);
  if (w % 2 == 0 && w > 1) column(w / 2, w - 1);
  for (int k = 1; 2 * k < w; ++k)
    for (int v = 0; v < h; ++v) {
      F[v * w + k] = Cx(p[v * w + 2 * k - 1], p[v * w + 2 * k]);
      F[((h - v) % h) * w + w - k] = std::conj(F[v * w + k]);
    }
  return F;
}

std::vector<Cx> complexOf(const std::vector<double>& f) { return {f.begin(), f.end()}; }

// Expects every sample of the image within 1 of the exactly rounded,
// saturated value of `exact`.
void expectNear(const Image& img, const std::vector<double>& exact, double lo, double hi,
                const std::string& what) {
  int bad = 0;
  for (int y = 0; y < img->height; ++y)
    for (int x = 0; x < img->width; ++x) {
      const double want = std::min(hi, std::max(lo, std::round(exact[y * img->width + x])));
      const long long got = img.at(y, x);
      if (std::abs(static_cast<double>(got) - want) > 1 && bad++ < 5)
        ADD_FAILURE() << what << " at (" << y << ", " << x << "): " << got << " vs " << want;
    }
}

struct Size {
  int h, w;
};
// Even, odd, powers of two, mixed radices, a generic prime (17, 19) and
// large primes (67, 127) handled by the chirp convolution; single rows and
// single columns.
const Size kSizes[] = {{1, 8},  {8, 1},  {1, 7},  {7, 1},   {1, 2},  {2, 1},   {2, 2},
                       {3, 5},  {4, 4},  {6, 10}, {16, 12}, {9, 15}, {32, 32}, {17, 64},
                       {19, 6}, {5, 67}, {2, 134}, {12, 127}, {45, 36}, {1, 1000}};

TEST(RealFft2D, MatchesTheDirectTransform) {
  std::mt19937 rng(7);
  for (const Size s : kSizes)
    for (const int flags : {MOX_FFT_FORWARD, MOX_FFT_INVERSE, MOX_FFT_INVERSE | MOX_FFT_NOSCALE}) {
      Image src(s.h, s.w, MOX_DEPTH_16S), dst(s.h, s.w, MOX_DEPTH_32S);
      src.fill(rng, -30000, 30000);
      ASSERT_EQ(moxRealFft2D(src.get(), dst.get(), flags, nullptr), 0);
      const int sign = flags & MOX_FFT_FORWARD ? 1 : -1;
      std::vector<double> want = pack(directDft(complexOf(src.plane()), s.h, s.w, sign), s.h, s.w);
      if (flags == MOX_FFT_INVERSE)
        for (double& v : want) v /= static_cast<double>(s.h) * s.w;
      expectNear(dst, want, -2147483648.0, 2147483647.0,
                 std::to_string(s.h) + "x" + std::to_string(s.w) + " flags " +
                     std::to_string(flags));
    }
}

TEST(CcsFft2D, MatchesTheDirectTransform) {
  std::mt19937 rng(8);
  for (const Size s : kSizes)
    for (const int flags : {MOX_FFT_INVERSE, MOX_FFT_FORWARD}) {
      // A packed spectrum of a real image, rounded to integers.
      Image src(s.h, s.w, MOX_DEPTH_32S), dst(s.h, s.w, MOX_DEPTH_32S);
      std::vector<double> image(static_cast<std::size_t>(s.h) * s.w);
      std::uniform_real_distribution<double> d(0, 255);
      for (double& v : image) v = d(rng);
      const std::vector<double> packed = pack(directDft(complexOf(image), s.h, s.w, 1), s.h, s.w);
      for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x) src.set(y, x, std::llround(packed[y * s.w + x]));
      ASSERT_EQ(moxCcsFft2D(src.get(), dst.get(), flags, nullptr), 0);
      const int sign = flags & MOX_FFT_FORWARD ? 1 : -1;
      std::vector<Cx> f = directDft(unpack(src.plane(), s.h, s.w), s.h, s.w, sign);
      std::vector<double> want;
      for (const Cx& v : f)
        want.push_back(flags == MOX_FFT_INVERSE ? v.real() / (static_cast<double>(s.h) * s.w)
                                                : v.real());
      expectNear(dst, want, -2147483648.0, 2147483647.0,
                 std::to_string(s.h) + "x" + std::to_string(s.w) + " flags " +
                     std::to_string(flags));
    }
}

TEST(RealFft2D, RoundTripThroughAnIntegerSpectrumIsExact) {
  std::mt19937 rng(9);
  for (const Size s : {Size{64, 48}, Size{100, 75}, Size{3, 3}, Size{256, 256}, Size{1, 97},
                       Size{210, 1}, Size{127, 130}}) {
    Image img(s.h, s.w, MOX_DEPTH_8U), spectrum(s.h, s.w, MOX_DEPTH_32S), back(s.h, s.w, MOX_DEPTH_8U);
    img.fill(rng, 0, 255);
    ASSERT_EQ(moxRealFft2D(img.get(), spectrum.get(), MOX_FFT_FORWARD, nullptr), 0);
    ASSERT_EQ(moxCcsFft2D(spectrum.get(), back.get(), MOX_FFT_INVERSE, nullptr), 0);
    EXPECT_EQ(img.bytes(), back.bytes()) << s.h << "x" << s.w;
  }
}

TEST(RealFft2D, RowOfOnes) {
  Image ones(1, 8, MOX_DEPTH_8U), spectrum(1, 8, MOX_DEPTH_32S), back(1, 8, MOX_DEPTH_8U);
  for (int x = 0; x < 8; ++x) ones.set(0, x, 1);
  ASSERT_EQ(moxRealFft2D(ones.get(), spectrum.get(), MOX_FFT_FORWARD, nullptr), 0);
  EXPECT_EQ(spectrum.plane(), (std::vector<double>{8, 0, 0, 0, 0, 0, 0, 0}));
  ASSERT_EQ(moxCcsFft2D(spectrum.get(), back.get(), MOX_FFT_INVERSE, nullptr), 0);
  EXPECT_EQ(back.plane(), std::vector<double>(8, 1.0));
}

TEST(RealFft2D, ResultsAreRoundedAndSaturated) {
  // A 2x2 image: every output is a sum or difference of the four samples.
  Image src(2, 2, MOX_DEPTH_8U), dst(2, 2, MOX_DEPTH_8U), wide(2, 2, MOX_DEPTH_16S);
  const int v[4] = {0, 100, 50, 200};
  for (int i = 0; i < 4; ++i) src.set(i / 2, i % 2, v[i]);
  ASSERT_EQ(moxRealFft2D(src.get(), dst.get(), MOX_FFT_FORWARD, nullptr), 0);
  EXPECT_EQ(dst.plane(), (std::vector<double>{255, 0, 0, 50}));  // 350, -250, -150, 50
  ASSERT_EQ(moxRealFft2D(src.get(), wide.get(), MOX_FFT_INVERSE, nullptr), 0);
  // Quarters of those: every one a tie, rounded away from zero.
  EXPECT_EQ(wide.plane(), (std::vector<double>{88, -63, -38, 13}));
}

TEST(RealFft2D, BothImplementationsGiveIdenticalResults) {
  std::mt19937 rng(10);
  for (const Size s : {Size{8, 16}, Size{11, 11}, Size{1, 128}, Size{60, 90}, Size{5, 134}}) {
    Image src(s.h, s.w, MOX_DEPTH_16U), small(s.h, s.w, MOX_DEPTH_32S),
        general(s.h, s.w, MOX_DEPTH_32S), byDefault(s.h, s.w, MOX_DEPTH_32S);
    src.fill(rng, 0, 65535);
    for (const int dir : {MOX_FFT_FORWARD, MOX_FFT_INVERSE | MOX_FFT_NOSCALE}) {
      ASSERT_EQ(moxRealFft2D(src.get(), small.get(), dir | MOX_FFT_SMALL, nullptr), 0);
      ASSERT_EQ(moxRealFft2D(src.get(), general.get(), dir | MOX_FFT_GENERAL, nullptr), 0);
      ASSERT_EQ(moxRealFft2D(src.get(), byDefault.get(), dir, nullptr), 0);
      EXPECT_EQ(small.bytes(), general.bytes()) << s.h << "x" << s.w;
      EXPECT_EQ(small.bytes(), byDefault.bytes()) << s.h << "x" << s.w;
      Image a(s.h, s.w, MOX_DEPTH_32S), b(s.h, s.w, MOX_DEPTH_32S);
      ASSERT_EQ(moxCcsFft2D(small.get(), a.get(), dir | MOX_FFT_SMALL, nullptr), 0);
      ASSERT_EQ(moxCcsFft2D(small.get(), b.get(), dir | MOX_FFT_GENERAL, nullptr), 0);
      EXPECT_EQ(a.bytes(), b.bytes()) << s.h << "x" << s.w;
    }
  }
}

// Channels: pixel and plane order, channel of interest, alpha skipping.
TEST(RealFft2D, ChannelsAlphaAndChannelOfInterest) {
  struct Case {
    int order, alpha, coi, flags;
    std::vector<bool> transformed;  // per channel
  };
  const Case cases[] = {
      {MOX_DATA_ORDER_PIXEL, 3, 0, MOX_FFT_FORWARD, {true, true, false}},
      {MOX_DATA_ORDER_PLANE, 3, 0, MOX_FFT_FORWARD, {true, true, false}},
      {MOX_DATA_ORDER_PIXEL, 3, 0, MOX_FFT_FORWARD | MOX_FFT_USEALPHA, {true, true, true}},
      {MOX_DATA_ORDER_PLANE, 0, 2, MOX_FFT_FORWARD, {false, true, false}},
      {MOX_DATA_ORDER_PIXEL, 1, 3, MOX_FFT_FORWARD, {false, false, true}},
  };
  std::mt19937 rng(11);
  for (const Case& c : cases) {
    Image src(6, 10, MOX_DEPTH_8U, 3, c.alpha, c.order), dst(6, 10, MOX_DEPTH_32S, 3, c.alpha);
    for (int ch = 0; ch < 3; ++ch) src.fill(rng, 0, 255, ch), dst.fill(rng, -5, -1, ch);
    if (c.coi) src.setRoi(c.coi, 0, 0, 6, 10), dst.setRoi(c.coi, 0, 0, 6, 10);
    const std::vector<double> before = dst.plane(0);
    ASSERT_EQ(moxRealFft2D(src.get(), dst.get(), c.flags, nullptr), 0);
    for (int ch = 0; ch < 3; ++ch) {
      Image single(6, 10, MOX_DEPTH_8U), want(6, 10, MOX_DEPTH_32S);
      for (int i = 0; i < 60; ++i) single.set(i / 10, i % 10, src.at(i / 10, i % 10, ch));
      moxRealFft2D(single.get(), want.get(), MOX_FFT_FORWARD, nullptr);
      const bool same = want.plane() == dst.plane(ch);
      EXPECT_EQ(same, c.transformed[ch]) << "order " << c.order << " coi " << c.coi << " ch " << ch;
    }
  }
}

TEST(RealFft2D, WorksOnTheIntersectionOfTheRois) {
  std::mt19937 rng(12);
  Image src(20, 30, MOX_DEPTH_8U), dst(16, 24, MOX_DEPTH_32S);
  src.fill(rng, 0, 255);
  dst.fill(rng, 7, 7);
  src.setRoi(0, 4, 2, 12, 20);   // x 4..23, y 2..13
  dst.setRoi(0, 6, 5, 10, 18);   // x 6..23, y 5..14
  ASSERT_EQ(moxRealFft2D(src.get(), dst.get(), MOX_FFT_FORWARD, nullptr), 0);
  // Common rectangle: x 6..23 (18 wide), y 5..13 (9 high), same place in both.
  std::vector<double> part;
  for (int y = 5; y < 14; ++y)
    for (int x = 6; x < 24; ++x) part.push_back(static_cast<double>(src.at(y, x)));
  const std::vector<double> want = pack(directDft(complexOf(part), 9, 18, 1), 9, 18);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 24; ++x) {
      const bool inside = y >= 5 && y < 14 && x >= 6;
      if (!inside) {
        EXPECT_EQ(dst.at(y, x), 7) << y << "," << x;
        continue;
      }
      EXPECT_NEAR(static_cast<double>(dst.at(y, x)), want[(y - 5) * 18 + (x - 6)], 1.0);
    }
}

// Every check: its message and line, in both operations; nothing written.
TEST(RealFft2D, ChecksReportTheirMessageAndLine) {
  using Op = int (*)(const MoxImage*, MoxImage*, int, const int*);
  struct Case {
    const char* name;
    int flags;
    void (*spoil)(Image& src, Image& dst);
    std::vector<std::string> messages;
    int realLine;
  };
  const auto none = [](Image&, Image&) {};
  const std::string bad = "Error in input data", nothing = "No calculations! Looking input data!";
  const Case cases[] = {
      {"both directions", 3, none, {bad}, 319},
      {"no direction", MOX_FFT_SAVE, none, {bad}, 319},
      {"both implementations", 1 | MOX_FFT_SMALL | MOX_FFT_GENERAL, none, {bad}, 319},
      {"1U depth", 1, [](Image& s, Image&) { s->depth = MOX_DEPTH_1U; }, {bad}, 319},
      {"channel counts", 1, [](Image& s, Image&) { s->nChannels = 2, s->widthStep *= 2; }, {bad}, 319},
      {"alpha channels", 1, [](Image&, Image& d) { d->alphaChannel = 1; }, {bad}, 319},
      {"bad header", 1, [](Image& s, Image&) { s->align = 3; }, {bad}, 319},
      {"short block", 1, [](Image& s, Image&) { s->imageSize -= 1; }, {bad}, 319},
      {"ROI outside", 1, [](Image& s, Image&) { s.setRoi(0, 4, 0, 8, 8); }, {bad}, 319},
      {"COIs differ", 1, [](Image& s, Image&) { s.setRoi(1, 0, 0, 8, 8); }, {bad}, 319},
      {"ROIs apart", 1,
       [](Image& s, Image& d) { s.setRoi(0, 0, 0, 2, 2), d.setRoi(0, 4, 4, 2, 2); }, {nothing}, 322},
      {"one sample", 1, [](Image& s, Image&) { s.setRoi(0, 3, 3, 1, 1); }, {nothing}, 322},
      {"only the alpha channel", 1,
       [](Image& s, Image& d) { s->alphaChannel = d->alphaChannel = 1; }, {nothing}, 322},
      {"reuse without a set-up", MOX_FFT_REUSE, none, {bad}, 319},
      {"source data", 1, [](Image& s, Image&) { s->imageData = nullptr; },
       {"srcImage->imageData==0"}, 309},
      {"both data", 1, [](Image& s, Image& d) { s->imageData = d->imageData = nullptr; },
       {"srcImage->imageData==0", "dstImage->imageData==0"}, 309},
  };
  for (const Op op : {Op(moxRealFft2D), Op(moxCcsFft2D)})
    for (const Case& c : cases) {
      Image src(8, 8, MOX_DEPTH_8U), dst(8, 8, MOX_DEPTH_32S);
      char* srcData = src->imageData;
      char* dstData = dst->imageData;
      dst.set(0, 0, 12345);
      c.spoil(src, dst);
      Recorder rec;
      {  // A failed set-up leaves nothing to reuse.
        Image g(2, 2, MOX_DEPTH_8U);
        moxRealFft2D(g.get(), g.get(), 3, nullptr);
        rec.reports().clear();
      }
      const int result = op(src.get(), dst.get(), c.flags, nullptr);
      EXPECT_EQ(result, MOX_StsBadArgument) << c.name;
      const bool real = op == Op(moxRealFft2D);
      ASSERT_EQ(rec.reports().size(), c.messages.size()) << c.name;
      for (std::size_t i = 0; i < c.messages.size(); ++i) {
        const auto& r = rec.reports()[i];
        EXPECT_EQ(r.message, c.messages[i]) << c.name;
        EXPECT_EQ(r.line, c.realLine + (real ? 0 : 102)) << c.name;
        EXPECT_EQ(r.func, real ? "moxRealFft2D" : "moxCcsFft2D");
        EXPECT_EQ(r.file, "moxfft2d");
        EXPECT_EQ(r.status, MOX_StsBadArgument);
      }
      src->imageData = srcData;
      dst->imageData = dstData;
      EXPECT_EQ(dst.at(0, 0), 12345) << c.name;
    }
}

TEST(RealFft2D, NullImagesAndMapsAreReportedFirst) {
  Image img(4, 4, MOX_DEPTH_8U);
  const int point[2] = {0, 0};
  Recorder rec;
  EXPECT_EQ(moxRealFft2D(nullptr, nullptr, 3, point), MOX_StsBadArgument);
  ASSERT_EQ(rec.reports().size(), 2u);
  EXPECT_EQ(rec.reports()[0].message, "srcImage==0");
  EXPECT_EQ(rec.reports()[1].message, "dstImage==0");
  EXPECT_EQ(rec.reports()[1].line, 308);
  rec.reports().clear();
  EXPECT_EQ(moxCcsFft2D(img.get(), nullptr, 1, nullptr), MOX_StsBadArgument);
  ASSERT_EQ(rec.reports().size(), 1u);
  EXPECT_EQ(rec.reports()[0].message, "dstImage==0");
  EXPECT_EQ(rec.reports()[0].line, 410);
  rec.reports().clear();
  EXPECT_EQ(moxCcsFft2D(img.get(), img.get(), 3, point), MOX_StsBadArgument);
  ASSERT_EQ(rec.reports().size(), 1u);
  EXPECT_EQ(rec.reports()[0].message, "(map!=((void*)(0)))");
  EXPECT_EQ(rec.reports()[0].line, 412);
  // Releasing the tables makes no checks at all.
  rec.reports().clear();
  EXPECT_EQ(moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, point), 0);
  EXPECT_EQ(moxCcsFft2D(nullptr, nullptr, MOX_FFT_FREE | 3, nullptr), 0);
  EXPECT_TRUE(rec.reports().empty());
}

TEST(RealFft2D, ReuseKeepsTheDirectionAndScaling) {
  std::mt19937 rng(13);
  Image a(12, 10, MOX_DEPTH_8U), b(12, 10, MOX_DEPTH_8U), want(12, 10, MOX_DEPTH_32S),
      got(12, 10, MOX_DEPTH_32S);
  a.fill(rng, 0, 255);
  b.fill(rng, 0, 255);
  ASSERT_EQ(moxRealFft2D(a.get(), got.get(), MOX_FFT_INVERSE | MOX_FFT_SAVE, nullptr), 0);
  // Flags of the reusing call other than saving are not read again.
  ASSERT_EQ(moxRealFft2D(b.get(), got.get(), MOX_FFT_REUSE | MOX_FFT_FORWARD | MOX_FFT_INVERSE,
                         nullptr),
            0);
  ASSERT_EQ(moxRealFft2D(b.get(), want.get(), MOX_FFT_INVERSE, nullptr), 0);
  EXPECT_EQ(got.bytes(), want.bytes());
  // The reused set-up still checks the images it meets.
  Image odd(12, 10, MOX_DEPTH_1U);
  Recorder rec;
  EXPECT_EQ(moxRealFft2D(odd.get(), got.get(), MOX_FFT_REUSE, nullptr), MOX_StsBadArgument);
  EXPECT_EQ(moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr), 0);
}

TEST(RealFft2D, ThreadsTransformAtOnce) {
  std::mt19937 rng(14);
  Image a(96, 100, MOX_DEPTH_8U), b(81, 128, MOX_DEPTH_16S);
  a.fill(rng, 0, 255);
  b.fill(rng, -1000, 1000);
  Image wantA(96, 100, MOX_DEPTH_32S), wantB(81, 128, MOX_DEPTH_32S);
  ASSERT_EQ(moxRealFft2D(a.get(), wantA.get(), MOX_FFT_FORWARD, nullptr), 0);
  ASSERT_EQ(moxRealFft2D(b.get(), wantB.get(), MOX_FFT_INVERSE, nullptr), 0);
  const auto work = [](const Image* src, const Image* want, int flags, bool* ok) {
    Image spectrum((*src)->height, (*src)->width, MOX_DEPTH_32S);
    *ok = true;
    for (int i = 0; i < 20; ++i) {
      *ok &= moxRealFft2D(src->get(), spectrum.get(), flags | MOX_FFT_SAVE, nullptr) == 0;
      *ok &= spectrum.bytes() == want->bytes();
    }
    moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr);
  };
  bool okA = false, okB = false;
  std::thread ta(work, &a, &wantA, MOX_FFT_FORWARD, &okA);
  std::thread tb(work, &b, &wantB, MOX_FFT_INVERSE, &okB);
  ta.join();
  tb.join();
  EXPECT_TRUE(okA);
  EXPECT_TRUE(okB);
}

}  // namespace
