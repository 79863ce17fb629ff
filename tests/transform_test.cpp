// The real and packed-spectrum FFT and the 2-D DCT against direct transforms,
// with their round trips, rounding, channels, ROIs, flags, checks and threads.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <thread>
#include <tuple>

#include "image_helpers.h"
#include "transform/fftengine.h"
#include "transform/fftplan.h"

using namespace testimg;

namespace {

using Cx = std::complex<double>;
using Fft = int(MOX_CALL*)(const MoxImage*, MoxImage*, int, const int*);
const double kPi = 3.14159265358979323846;

std::vector<Cx> directDft(const std::vector<Cx>& f, int h, int w, int sign) {
  return separable(f, h, w, [sign](int k, int x, int n) { return std::polar(1.0, sign * 2 * kPi * double(ll(k) * x % n) / n); });
}

// Direct orthonormal DCT-II (C_h f C_w^T), or its inverse (C_h^T F C_w).
std::vector<double> directDct(const std::vector<double>& f, int h, int w, bool inverse) {
  return separable(f, h, w, [inverse](int k, int x, int n) {
    if (inverse) std::swap(k, x);
    return std::sqrt((k ? 2.0 : 1.0) / n) * std::cos(kPi * (2 * x + 1) * k / (2.0 * n));
  });
}

// The full conjugate-symmetric spectrum a packed h x w matrix stands for.
std::vector<Cx> unpack(const std::vector<double>& p, int h, int w) {
  std::vector<Cx> F(p.size());
  const auto at = [&](int y, int x) { return p[y * w + x]; };
  const auto put = [&](int v, int u, Cx z) {
    F[v * w + u] = z;
    F[(h - v) % h * w + (w - u) % w] = std::conj(z);
  };
  for (const int col : {0, w - 1}) {  // real columns (Re(0), Re(w/2)) packed along y
    const int u = col ? w / 2 : 0;
    if (col && w % 2) continue;
    put(0, u, at(0, col));
    for (int v = 1; 2 * v < h; ++v) put(v, u, Cx(at(2 * v - 1, col), at(2 * v, col)));
    if (h % 2 == 0) put(h / 2, u, at(h - 1, col));
  }
  for (int k = 1; 2 * k < w; ++k)
    for (int v = 0; v < h; ++v) put(v, k, Cx(at(v, 2 * k - 1), at(v, 2 * k)));
  return F;
}

std::vector<Cx> complexOf(const std::vector<double>& f) { return {f.begin(), f.end()}; }

// Every part of `got` within 1 of the rounded part of `want`.
void expectNear(const std::vector<Cx>& got, const std::vector<Cx>& want, const std::string& what) {
  const auto off = [](double g, double w) { return std::abs(g - std::round(w)) > 1; };
  for (std::size_t i = 0, bad = 0; i < want.size(); ++i)
    if ((off(got[i].real(), want[i].real()) || off(got[i].imag(), want[i].imag())) && bad++ < 5)
      ADD_FAILURE() << what << " at " << i << ": " << got[i] << " vs " << want[i];
}

struct Size { int h, w; };

// Even, odd, powers of two, mixed radices, a generic prime (11, 17, 19) and
// large primes (67, 127) handled by the chirp convolution; single rows and
// single columns. Both implementations, forced, give the very same results.
// The DCT, both ways, on the same sizes and 8 x 8 against the direct DCT.
TEST(Transforms, MatchTheDirectTransformsInBothImplementations) {
  const Size sizes[] = {{1, 8},   {8, 1},   {1, 7},  {7, 1},  {1, 2},   {2, 1},    {2, 2},   {3, 5},    {6, 10},  {16, 12},
                        {9, 15}, {32, 32}, {17, 64}, {19, 6}, {5, 67}, {2, 134}, {12, 127}, {45, 36}, {1, 1000}, {11, 11}, {8, 8}};
  const int directions[] = {MOX_FFT_FORWARD, MOX_FFT_INVERSE, MOX_FFT_INVERSE | MOX_FFT_NOSCALE};
  for (const Size s : sizes)
    for (const bool inverse : {false, true}) {
      Image src({MOX_DEPTH_16S, 1, 0, s.h, s.w}, s.w), dst({MOX_DEPTH_32S, 1, 0, s.h, s.w});
      moxDCT2D(src, dst, inverse ? MOX_DCT_INVERSE : MOX_DCT_FORWARD);
      expectNear(complexOf(dst.plane()), complexOf(directDct(src.plane(), s.h, s.w, inverse)),
                 "DCT " + std::to_string(s.h) + "x" + std::to_string(s.w) + (inverse ? " inverse" : " forward"));
    }
  for (const Size s : sizes)
    for (const bool ccs : {false, true})
      for (const int flags : directions) {
        const std::string what = (ccs ? "ccs " : "real ") + std::to_string(s.h) + "x" + std::to_string(s.w) + " flags " +
                                 std::to_string(flags);
        // A real 16S image, or a packed spectrum of 32S values within 2^17.
        Image src({ccs ? MOX_DEPTH_32S : MOX_DEPTH_16S, 1, 0, s.h, s.w}, s.h * 1000 + s.w),
            dst({MOX_DEPTH_32S, 1, 0, s.h, s.w}), forced({MOX_DEPTH_32S, 1, 0, s.h, s.w});
        for (int i = 0; ccs && i < s.h * s.w; ++i)
          set(src, i % s.w, i / s.w, 0, get(src, i % s.w, i / s.w) >> 14);
        const Fft op = ccs ? moxCcsFft2D : moxRealFft2D;
        ASSERT_EQ(op(src, dst, flags, nullptr), 0);
        const auto f = ccs ? unpack(src.plane(), s.h, s.w) : complexOf(src.plane());
        std::vector<Cx> want = directDft(f, s.h, s.w, flags & MOX_FFT_FORWARD ? 1 : -1);
        const double n = flags == MOX_FFT_INVERSE ? s.h * s.w : 1;  // scaled
        for (Cx& v : want) v = (ccs ? Cx(v.real()) : v) / n;
        expectNear(ccs ? complexOf(dst.plane()) : unpack(dst.plane(), s.h, s.w), want, what);
        for (const int implementation : {MOX_FFT_SMALL, MOX_FFT_GENERAL}) {
          ASSERT_EQ(op(src, forced, flags | implementation, nullptr), 0);
          EXPECT_EQ(forced.bytes(), dst.bytes()) << what << " implementation " << implementation;
        }
      }
}

// Through an integer spectrum and back exactly; through DCT coefficients
// within one, and the DC term of a bright image saturated in 8S. A 2x2 FFT:
// every output a sum or difference of the four samples, rounded and
// saturated.
TEST(Transforms, RoundTripsRoundingAndSaturation) {
  for (const Size s : {Size{100, 75}, Size{3, 3}, Size{256, 256}, Size{1, 97}, Size{210, 1}, Size{127, 130}}) {
    Image img({MOX_DEPTH_8U, 1, 0, s.h, s.w}, s.w), spectrum({MOX_DEPTH_32S, 1, 0, s.h, s.w}),
        back({MOX_DEPTH_8U, 1, 0, s.h, s.w});
    ASSERT_EQ(moxRealFft2D(img, spectrum, MOX_FFT_FORWARD, nullptr), 0);
    ASSERT_EQ(moxCcsFft2D(spectrum, back, MOX_FFT_INVERSE, nullptr), 0);
    EXPECT_EQ(img.plane(), back.plane()) << s.h << "x" << s.w;
  }
  Image img({MOX_DEPTH_8U, 1, 0, 24, 40}), coef({MOX_DEPTH_32S, 1, 0, 24, 40}), back({MOX_DEPTH_8U, 1, 0, 24, 40}),
      narrow({MOX_DEPTH_8S, 1, 0, 24, 40});
  moxDCT2D(img, coef, MOX_DCT_FORWARD | MOX_DCT_SAVE);
  moxDCT2D(coef, back, MOX_DCT_INVERSE | MOX_DCT_SAVE);
  expectNear(complexOf(back.plane()), complexOf(img.plane()), "DCT round trip");
  moxDCT2D(img, narrow, MOX_DCT_FORWARD);
  EXPECT_EQ(get(narrow, 0, 0), 127);
  moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
  Image src({MOX_DEPTH_8U, 1, 0, 2, 2}), dst({MOX_DEPTH_8U, 1, 0, 2, 2}), wide({MOX_DEPTH_16S, 1, 0, 2, 2});
  const int v[4] = {0, 100, 50, 200};
  for (int i = 0; i < 4; ++i) set(src, i % 2, i / 2, 0, v[i]);
  ASSERT_EQ(moxRealFft2D(src, dst, MOX_FFT_FORWARD, nullptr), 0);
  EXPECT_EQ(dst.plane(), (std::vector<double>{255, 0, 0, 50}));  // 350, -250, -150, 50
  ASSERT_EQ(moxRealFft2D(src, wide, MOX_FFT_INVERSE, nullptr), 0);
  // Quarters of those: every one a tie, rounded away from zero.
  EXPECT_EQ(wide.plane(), (std::vector<double>{88, -63, -38, 13}));
}

// Each transform works on the common rectangle (x, y, w, h) of the ROIs, in
// the channel of interest or in every channel but the alpha one unless asked:
// each such plane comes out as the transform of its part alone, and every
// other value is left as it was.
TEST(Transforms, WorkOnTheRoisChannelsAndAlpha) {
  const int kPixel = MOX_DATA_ORDER_PIXEL, kPlane = MOX_DATA_ORDER_PLANE, kFwd = MOX_FFT_FORWARD;
  const struct {
    bool dct; Shape src, dst; int srcRoi[5], dstRoi[5], x, y, w, h, alpha, flags; std::vector<bool> transformed;
  } cases[] = {
      {false, {MOX_DEPTH_8U, 3, kPixel, 6, 10}, {MOX_DEPTH_32S, 3, 0, 6, 10}, {}, {}, 0, 0, 10, 6, 3, kFwd, {1, 1, 0}},
      {false, {MOX_DEPTH_8U, 3, kPlane, 6, 10}, {MOX_DEPTH_32S, 3, 0, 6, 10}, {}, {}, 0, 0, 10, 6, 3, kFwd, {1, 1, 0}},
      {false, {MOX_DEPTH_8U, 3, kPixel, 6, 10}, {MOX_DEPTH_32S, 3, 0, 6, 10}, {}, {}, 0, 0, 10, 6, 3,
       kFwd | MOX_FFT_USEALPHA, {1, 1, 1}},
      {false, {MOX_DEPTH_8U, 3, kPlane, 6, 10}, {MOX_DEPTH_32S, 3, 0, 6, 10}, {2, 0, 0, 6, 10}, {2, 0, 0, 6, 10}, 0, 0,
       10, 6, 0, kFwd, {0, 1, 0}},
      {false, {MOX_DEPTH_8U, 3, kPixel, 6, 10}, {MOX_DEPTH_32S, 3, 0, 6, 10}, {3, 0, 0, 6, 10}, {3, 0, 0, 6, 10}, 0, 0,
       10, 6, 1, kFwd, {0, 0, 1}},
      {false, {MOX_DEPTH_8U, 1, 0, 20, 30}, {MOX_DEPTH_32S, 1, 0, 16, 24}, {0, 4, 2, 12, 20}, {0, 6, 5, 10, 18}, 6, 5,
       18, 9, 0, kFwd, {1}},
      {true, {MOX_DEPTH_8U, 3, kPlane, 10, 12}, {MOX_DEPTH_16S, 3, 0, 10, 12}, {2, 2, 1, 8, 10}, {2, 0, 0, 9, 12}, 2, 1,
       10, 8, 0, MOX_DCT_FORWARD, {0, 1, 0}},
  };
  for (const auto& c : cases) {
    Image src(c.src, 1, c.srcRoi[3] ? c.srcRoi : nullptr), dst(c.dst, 2, c.dstRoi[3] ? c.dstRoi : nullptr),
        untouched(c.dst, 2);
    src->alphaChannel = dst->alphaChannel = c.alpha;
    auto run = [&](const MoxImage* s, MoxImage* d, int flags) {
      return c.dct ? moxDCT2D(s, d, flags) : void(moxRealFft2D(s, d, flags, nullptr));
    };
    Capture capture;
    run(src, dst, c.flags);
    ASSERT_TRUE(reports().empty());
    for (int ch = 0; ch < c.src.nChannels; ++ch) {
      Image part({c.src.depth, 1, 0, c.h, c.w}), want({c.dst.depth, 1, 0, c.h, c.w});
      for (int i = 0; i < c.w * c.h; ++i) set(part, i % c.w, i / c.w, 0, get(src, c.x + i % c.w, c.y + i / c.w, ch));
      run(part, want, c.dct ? MOX_DCT_FORWARD : kFwd);
      for (int i = 0; i < c.w * c.h && c.transformed[ch]; ++i) {
        const int x = c.x + i % c.w, y = c.y + i / c.w;
        ASSERT_EQ(get(dst, x, y, ch), get(want, i % c.w, i / c.w)) << "case " << &c - cases << " channel " << ch;
        set(dst, x, y, ch, 0), set(untouched, x, y, ch, 0);
      }
    }
    EXPECT_EQ(dst.bytes(), untouched.bytes()) << "case " << &c - cases << ": outside the transformed planes";
  }
}

// A check: the flags, the change to the images, the messages (none: the
// call succeeds) with the first one's line, and the arguments left null (1:
// srcImage, 2: dstImage) or given (4: a map).
struct Check {
  const char* name; int flags; void (*spoil)(Image& s, Image& d);
  std::vector<std::string> messages; int line, nulls = 0;
};

// Calls call(src, dst, flags, map) on spoilt 8 x 8 images and expects exactly
// the reports of the check from func at its lines moved by `shift`; nothing
// is written.
template <class Call>
void expectCheck(const Check& c, const char* func, const char* file, int shift, Call call) {
  Image src({MOX_DEPTH_8U, 1, 0, 8, 8}), dst({MOX_DEPTH_32S, 1, 0, 8, 8});
  char* data[2] = {src->imageData, dst->imageData};
  const auto before = dst.bytes();
  c.spoil(src, dst);
  Capture capture;
  const int map[2] = {0, 0};
  call(c.nulls & 1 ? nullptr : +src, c.nulls & 2 ? nullptr : +dst, c.flags, c.nulls & 4 ? map : nullptr);
  for (const std::string& m : c.messages) expectReport(func, m, c.line + shift, file);
  EXPECT_TRUE(reports().empty()) << c.name;
  src->imageData = data[0], dst->imageData = data[1];
  EXPECT_EQ(dst.bytes(), before) << c.name;
}

// Every check, in both operations (moxCcsFft2D's lines are 102 further).
TEST(Fft2D, ChecksReportTheirMessageAndLine) {
  const auto none = SPOIL();
  const std::string bad = "Error in input data", nothing = "No calculations! Looking input data!";
  const Check cases[] = {
      {"both directions", 3, none, {bad}, 319}, {"no direction", MOX_FFT_SAVE, none, {bad}, 319},
      {"both implementations", 1 | MOX_FFT_SMALL | MOX_FFT_GENERAL, none, {bad}, 319},
      {"1U depth", 1, SPOIL(s->depth = MOX_DEPTH_1U), {bad}, 319},
      {"channel counts", 1, SPOIL(s->nChannels = 2, s->widthStep *= 2), {bad}, 319},
      {"alpha channels", 1, SPOIL(d->alphaChannel = 1), {bad}, 319},
      {"bad header", 1, SPOIL(s->align = 3), {bad}, 319}, {"short block", 1, SPOIL(s->imageSize -= 1), {bad}, 319},
      {"ROI outside", 1, SPOIL(s.roi(0, 4, 0, 8, 8)), {bad}, 319},
      {"COIs differ", 1, SPOIL(s.roi(1, 0, 0, 8, 8)), {bad}, 319},
      {"ROIs apart", 1, SPOIL(s.roi(0, 0, 0, 2, 2), d.roi(0, 4, 4, 2, 2)), {nothing}, 322},
      {"one sample", 1, SPOIL(s.roi(0, 3, 3, 1, 1)), {nothing}, 322},
      {"only the alpha channel", 1, SPOIL(s->alphaChannel = d->alphaChannel = 1), {nothing}, 322},
      {"reuse without a set-up", MOX_FFT_REUSE, none, {bad}, 319},
      {"source data", 1, SPOIL(s->imageData = nullptr), {"srcImage->imageData==0"}, 309},
      {"both data", 1, SPOIL(s->imageData = d->imageData = nullptr), {"srcImage->imageData==0", "dstImage->imageData==0"}, 309},
      // Null images come first; a map next; releasing the tables checks nothing.
      {"null images", 3, none, {"srcImage==0", "dstImage==0"}, 308, 1 | 2 | 4},
      {"null destination", 1, none, {"dstImage==0"}, 308, 2}, {"a map", 3, none, {"(map!=((void*)(0)))"}, 310, 4},
      {"release", MOX_FFT_FREE | 3, none, {}, 0, 1 | 2 | 4}};
  for (const Fft op : {Fft(moxRealFft2D), Fft(moxCcsFft2D)})
    for (const Check& c : cases) {
      const bool real = op == Fft(moxRealFft2D);
      expectCheck(c, real ? "moxRealFft2D" : "moxCcsFft2D", "moxfft2d", real ? 0 : 102,
                  [&](MoxImage* s, MoxImage* d, int flags, const int* map) {
                    Image g({MOX_DEPTH_8U, 1, 0, 2, 2});  // a failed set-up: nothing to reuse
                    moxRealFft2D(g, g, 3, nullptr);
                    reports().clear();
                    EXPECT_EQ(op(s, d, flags, map), c.messages.empty() ? 0 : MOX_StsBadArgument) << c.name;
                  });
    }
}

TEST(Fft2D, ReuseKeepsTheDirectionAndScaling) {
  Image a({MOX_DEPTH_8U, 1, 0, 12, 10}, 1), b({MOX_DEPTH_8U, 1, 0, 12, 10}, 2),
      want({MOX_DEPTH_32S, 1, 0, 12, 10}), got({MOX_DEPTH_32S, 1, 0, 12, 10});
  ASSERT_EQ(moxRealFft2D(a, got, MOX_FFT_INVERSE | MOX_FFT_SAVE, nullptr), 0);
  // Flags of the reusing call other than saving are not read again.
  ASSERT_EQ(moxRealFft2D(b, got, MOX_FFT_REUSE | MOX_FFT_FORWARD | MOX_FFT_INVERSE, nullptr), 0);
  ASSERT_EQ(moxRealFft2D(b, want, MOX_FFT_INVERSE, nullptr), 0);
  EXPECT_EQ(got.bytes(), want.bytes());
  // The reused set-up still checks the images it meets.
  Image odd({MOX_DEPTH_1U, 1, 0, 12, 10});
  Capture capture;
  EXPECT_EQ(moxRealFft2D(odd, got, MOX_FFT_REUSE, nullptr), MOX_StsBadArgument);
  EXPECT_EQ(moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr), 0);
}

TEST(Fft2D, ThreadsTransformAtOnce) {
  Image a({MOX_DEPTH_8U, 1, 0, 96, 100}, 1), b({MOX_DEPTH_16S, 1, 0, 81, 128}, 2),
      wantA({MOX_DEPTH_32S, 1, 0, 96, 100}), wantB({MOX_DEPTH_32S, 1, 0, 81, 128});
  ASSERT_EQ(moxRealFft2D(a, wantA, MOX_FFT_FORWARD, nullptr) | moxRealFft2D(b, wantB, MOX_FFT_INVERSE, nullptr), 0);
  const auto work = [](const Image* src, const Image* want, int flags, bool* ok) {
    Image spectrum({MOX_DEPTH_32S, 1, 0, (*src)->height, (*src)->width});
    for (int i = 0; i < 20; ++i)
      *ok &= moxRealFft2D(*src, spectrum, flags | MOX_FFT_SAVE, nullptr) == 0 && spectrum.bytes() == want->bytes();
    moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr);
    moxDCT2D(*src, spectrum, MOX_DCT_FORWARD | MOX_DCT_SAVE);  // the cosine engine, left unfreed
  };
  const int engines = mox::fft::liveEngines();
  bool okA = true, okB = true;
  std::thread ta(work, &a, &wantA, MOX_FFT_FORWARD, &okA), tb(work, &b, &wantB, MOX_FFT_INVERSE, &okB);
  ta.join(), tb.join();
  EXPECT_TRUE(okA && okB);
  // An ended thread leaves no engine behind.
  EXPECT_EQ(mox::fft::liveEngines(), engines);
}

// Round half away from zero, then saturate: the rule every kernel table
// must follow, written the slow way (not with std::round, which some C
// runtimes get wrong just below one half).
std::int32_t roundedAndSaturated(double v, double scale, double lo, double hi) {
  const double x = std::clamp(v * scale, lo, hi), whole = std::floor(std::abs(x));
  return static_cast<std::int32_t>(std::copysign(whole + (std::abs(x) - whole >= 0.5), x));
}

TEST(FftRounding, EveryKernelTableRoundsAndSaturatesAlike) {
  const double below = std::nextafter(0.5, 0.0);
  const std::vector<double> values = {
      0.0, -0.0, 0.5, -0.5, 1.5, -1.5, 2.5, -2.5, below, -below, 0.49, 0.51, 254.5, 255.5, -128.5, -129.5, 1e12, -1e12,
      3e9, -3e9, 2147483646.5, -2147483647.5, 7.25, -7.75, 1e-300, 65535.5, 32767.5, -32768.5, 100.0};
  const struct { double lo, hi; } ranges[] = {{0, 255}, {-128, 127}, {0, 65535}, {-32768, 32767}, {INT32_MIN, INT32_MAX}};
  for (const auto* k : {&mox::fft::kBaselineKernels, &mox::fft::kernels()})
    for (const auto& r : ranges)
      for (double scale : {1.0, 0.25, -3.0}) {
        // Every length up to the full list, so that the vector bodies and
        // the scalar tails both see every value.
        for (std::size_t n = 1; n <= values.size(); ++n) {
          std::vector<std::int32_t> out(n + 1, 12345);
          k->roundRun(values.data(), static_cast<int>(n), scale, r.lo, r.hi, out.data());
          for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(out[i], roundedAndSaturated(values[i], scale, r.lo, r.hi))
                << values[i] << " scale " << scale << " range " << r.lo << ".." << r.hi << " n " << n;
          EXPECT_EQ(out[n], 12345) << "wrote past the run";
        }
      }
}

TEST(DCT2D, ChecksReportTheirConditionAndWriteNothing) {
  const std::string dir = "(flags & (MOX_DCT_FORWARD | MOX_DCT_INVERSE))";
  const auto line = [](std::string text) { return text.resize(70, ' '), text + "\n"; };  // a header fault
  const Check cases[] = {
      {"no direction", MOX_DCT_SAVE, SPOIL(), {"(" + dir + " == 0 || " + dir + " == (MOX_DCT_FORWARD | MOX_DCT_INVERSE))"}, 70},
      {"bad source header", 1, SPOIL(s->align = 2), {line("Image align is invalid")}, 60},
      {"1U destination", 1, SPOIL(d->depth = MOX_DEPTH_1U), {"(dstImage->depth == MOX_DEPTH_1U)"}, 74},
      {"channels", 1, SPOIL(s->nChannels = 2, s->imageSize *= 2), {"(srcImage->nChannels != dstImage->nChannels)"}, 75},
      {"COIs", 1, SPOIL(d.roi(1, 0, 0, 6, 6)), {"(srcImage->roi->coi != dstImage->roi->coi)"}, 76},
      {"short block", 1, SPOIL(s->imageSize = 10), {"(srcImage->widthStep * srcImage->height > srcImage->imageSize)"}, 77},
      {"ROI outside", 2, SPOIL(d.roi(0, 7, 7, 3, 3)), {"(dstImage->roi is outside dstImage)"}, 80},
      {"ROIs apart", 2, SPOIL(s.roi(0, 0, 0, 2, 2), d.roi(0, 3, 3, 2, 2)),
       {"(the ROIs of srcImage and dstImage do not meet)"}, 82},
      {"null images", 1, SPOIL(), {line("Image header is null")}, 60, 1 | 2},
      {"release", MOX_DCT_FREE, SPOIL(), {}, 0, 1 | 2}};
  for (const Check& c : cases)
    expectCheck(c, "moxDCT2D", "moxdct", 0, [](MoxImage* s, MoxImage* d, int flags, const int*) { moxDCT2D(s, d, flags); });
}

}  // namespace
