// Colour-model conversions: every depth and layout against the formulas
// written out plainly in doubles, the known values, round trips, every
// kernel table, whole-image and tiled runs, and every check.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>

#include "color/color.h"
#include "image_helpers.h"

using namespace testimg;

namespace {

enum Op { kToGray, kFromGray, kToHSV, kFromHSV, kToHLS, kFromHLS };
const char* const kNames[] = {"moxColorToGray", "moxGrayToColor", "moxRGB2HSV",
                              "moxHSV2RGB",     "moxRGB2HLS",     "moxHLS2RGB"};
// The model of each one's source (op ^ 1: the model it writes).
const char* const kModels[] = {"RGBA", "GRAY", "RGB", "HSV", "RGB", "HLS"};

struct Fract { float r, g, b; };

void run(Op op, MoxImage* s, MoxImage* d, const int* m = nullptr, Fract f = {0, 0, 0}) {
  switch (op) {
    case kToGray: moxColorToGray(s, d, m); break;
    case kFromGray: moxGrayToColor(s, d, f.r, f.g, f.b, m); break;
    case kToHSV: moxRGB2HSV(s, d, m); break;
    case kFromHSV: moxHSV2RGB(s, d, m); break;
    case kToHLS: moxRGB2HLS(s, d, m); break;
    case kFromHLS: moxHLS2RGB(s, d, m); break;
  }
}

void model(MoxImage* im, const char* colorModel, const char* seq) {
  std::memcpy(im->colorModel, colorModel, 4);
  std::memcpy(im->channelSeq, seq, 4);
}

ll maxOf(unsigned d) { return d == MOX_DEPTH_8U ? 255 : d == MOX_DEPTH_16U ? 65535 : 2147483647; }

// Truncation toward zero as the conversions do it.
ll trunc32(double v) { return std::isfinite(v) && std::fabs(v) < 2147483648.0 ? ll(v) : INT_MIN; }

ll hue(ll r, ll g, ll b, ll mx, ll delta) {
  double h = r == mx   ? double(60 * (g - b)) / double(delta)
             : g == mx ? double(60 * (b - r)) / double(delta) + 120
                       : double(60 * (r - g)) / double(delta) + 240;
  if (h < 0) h += 360;
  return trunc32(h);
}

using Px = std::array<ll, 3>;

Px rgbToHsv(unsigned d, ll r, ll g, ll b) {
  const ll mx = std::max({r, g, b}), delta = mx - std::min({r, g, b}), M = maxOf(d);
  ll s = 0;
  if (mx != 0) s = d == MOX_DEPTH_8U ? delta * 255 / mx : trunc32(double(delta) * double(M) / double(mx));
  ll h = s == 0 ? 0 : hue(r, g, b, mx, delta);
  return {d == MOX_DEPTH_8U ? h >> 1 : h, s, mx};
}

Px rgbToHls(unsigned d, ll r, ll g, ll b) {
  const ll mx = std::max({r, g, b}), mn = std::min({r, g, b}), sum = mx + mn, M = maxOf(d);
  if (mx == mn) return {0, sum >> 1, 0};
  const double s = sum <= M ? double(M) * double(mx - mn) / double(sum)
                            : double(M) * double(mx - mn) / (double(2 * M) - double(sum));
  const ll h = hue(r, g, b, mx, mx - mn);
  return {d == MOX_DEPTH_8U ? h >> 1 : h, sum >> 1, trunc32(s)};
}

Px hsvToRgb(unsigned d, ll h, ll s, ll v) {
  if (s == 0) return {v, v, v};
  ll p, q, t;
  int sec;
  if (d == MOX_DEPTH_8U) {
    const ll deg = 2 * h;
    sec = int(deg / 60);
    const ll f = deg - 60 * sec, sv = (s * v) >> 8;
    p = v - sv, q = v - ((f * sv * 34) >> 11), t = v - (((60 - f) * sv * 34) >> 11);
  } else {
    const double M = double(maxOf(d));
    const double k = d == MOX_DEPTH_16U ? 1.5259021896696422e-05 : 4.656612875245797e-10;
    double f = 0;
    sec = 0;
    if (h != 360) {
      const double x = double(h) * 0.016666666666666666;
      sec = int(x), f = x - sec;
    }
    p = trunc32((M - double(s)) * double(v) * k);
    q = trunc32((M - f * double(s)) * double(v) * k);
    t = trunc32((M - (1 - f) * double(s)) * double(v) * k);
  }
  const Px table[6] = {{v, t, p}, {q, v, p}, {p, v, t}, {p, q, v}, {t, p, v}, {v, p, q}};
  return table[sec >= 0 && sec < 5 ? sec : 5];
}

Px hlsToRgb(unsigned d, ll h, ll l, ll s) {
  if (s == 0) return {l, l, l};
  if (d == MOX_DEPTH_8U) {
    const ll deg = 2 * h, ls = (l * s * 258) >> 16;
    const ll m2 = l <= 127 ? l + ls : l + s - ls, m1 = 2 * l - m2;
    auto ramp = [&](ll x) {
      return x < 60 ? m1 + (((m2 - m1) * 137 * x) >> 13)
             : x < 180 ? m2
             : x < 240 ? m1 + (((m2 - m1) * 137 * (240 - x)) >> 13)
                       : m1;
    };
    return {ramp(deg < 241 ? deg + 120 : deg - 240), ramp(deg), ramp(deg < 120 ? deg + 240 : deg - 120)};
  }
  const double M = double(maxOf(d)), L = double(l), S = double(s);
  const double m2 = l < (maxOf(d) + 1) / 2 ? L + L * S / M : L + S - L * S / M, m1 = 2 * L - m2;
  auto ramp = [&](double x) {
    if (x < 0) x += 360;
    else if (x > 360) x -= 360;
    const double v = x < 60    ? m1 + (m2 - m1) * x * 0.0166666667
                     : x < 180 ? m2
                     : x < 240 ? m1 + (m2 - m1) * (240 - x) * 0.0166666667
                               : m1;
    return trunc32(v);
  };
  return {ramp(double(h) + 120), ramp(double(h)), ramp(double(h) - 120)};
}

ll toGray(unsigned sd, unsigned dd, ll r, ll g, ll b) {
  if (sd == MOX_DEPTH_32S) {
    if (dd == MOX_DEPTH_1U) return 109 * (r >> 10) + 366 * (g >> 10) + 37 * (b >> 10) > 0x1FFFFFFF;
    return (109 * (r >> 11) + 366 * (g >> 11) + 37 * (b >> 11)) >> (dd == MOX_DEPTH_8U ? 21 : 13);
  }
  const ll sum = 54 * r + 183 * g + 18 * b;
  if (dd == MOX_DEPTH_1U) return (sum >> 8) > (sd == MOX_DEPTH_8U ? 127 : 32767);
  if (sd == MOX_DEPTH_8U) return dd == MOX_DEPTH_8U ? sum >> 8 : sum;
  return sum >> (dd == MOX_DEPTH_8U ? 16 : 8);
}

// Colour from grey: the fractions in fixed point, or the default weights
// when they all come to nothing.
Px grayToColor(unsigned sd, unsigned dd, Fract f, ll g) {
  const float fr[3] = {f.r, f.g, f.b}, factors[3] = {0.212671f, 0.715160f, 0.072169f};
  const bool wide = dd != MOX_DEPTH_8U;
  ll mult[3];
  for (int k = 0; k < 3; ++k) mult[k] = ll(double(fr[k]) * (wide ? 32768.0 : 256.0)) & 0xFFFF;
  const bool zero = (mult[0] | mult[1] | mult[2]) == 0;
  const ll defaults[2][3] = {{54, 183, 18}, {109, 366, 37}};
  const int shift = zero ? (wide ? 9 : 8) : (wide ? 15 : 8);
  Px out;
  for (int k = 0; k < 3; ++k) {
    const ll m = zero ? defaults[wide][k] : mult[k];
    out[k] = sd == MOX_DEPTH_32S  ? trunc32(float(g) * (zero ? factors[k] : fr[k]))
             : sd == MOX_DEPTH_1U ? (g ? (255 * m) >> shift : 0)
                                  : (g * m) >> shift;
  }
  return out;
}

// The values op makes of the source values `in` (colour in R, G, B order).
Px reference(Op op, unsigned sd, unsigned dd, Fract f, const Px& in) {
  if (op == kToGray) return {toGray(sd, dd, in[0], in[1], in[2]), 0, 0};
  if (op == kFromGray) return grayToColor(sd, dd, f, in[0]);
  Px (*const three[])(unsigned, ll, ll, ll) = {rgbToHsv, hsvToRgb, rgbToHls, hlsToRgb};
  return three[op - kToHSV](sd, in[0], in[1], in[2]);
}

// An image of the shape with values drawn for its model: colour values over
// the depth's range (some at its extremes), or hue, saturation and
// value/lightness in their units (some grey; for 16 bits, the hue 360).
std::unique_ptr<Image> filled(const Shape& sh, Op op, unsigned seed) {
  auto im = std::make_unique<Image>(sh, seed);
  std::mt19937 rng(seed);
  const bool hues = op == kFromHSV || op == kFromHLS;
  const ll M = maxOf(sh.depth), H = sh.depth == MOX_DEPTH_8U ? 179 : sh.depth == MOX_DEPTH_16U ? 360 : 359;
  for (int i = 0; i < sh.height * sh.width; ++i) {
    const unsigned kind = rng() % 8;
    for (int c = 0; c < sh.nChannels; ++c) {
      ll v = ll(rng() % (unsigned long long)(M + 1));
      if (hues && c == 0) v = ll(rng() % (H + 1));
      if (kind == 0 && hues && c == 1) v = 0;
      if (kind == 1 && !hues && c < 3) v = ll(rng() % 4) * M / 3;
      set(*im, i % sh.width, i / sh.width, c, v);
    }
  }
  return im;
}

struct Layout { int order, channels; const char* seq; };
const Layout kLayouts[] = {{0, 3, "RGB"}, {0, 3, "BGR"}, {0, 4, "RGBA"}, {1, 3, "BGR"}};
const unsigned kColourDepths[] = {MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_32S};

// Channel k of the RGB side in stored order.
int stored(const Layout& l, int k) { return l.order == 0 && l.seq[0] != 'R' ? 2 - k : k; }

// Every conversion on each pair of depths it has and every layout of its
// colour side (the layout's sequence on the source): each value of the
// top-left area common to both images, whatever their ROIs say, against its
// formula; every other byte of the destination (a fourth channel, row
// padding, the bits past a packed row, rows and columns past the source) as
// it was; and the model written. The same through tiled copies (tiles of
// other shapes on the two sides), by layout: both tiled a tile per call, the
// source plain, the destination plain, both tiled in one call; the
// destination's tile is asked for before the source's.
TEST(ColorModels, EveryConversionMatchesItsFormula) {
  Capture capture;
  struct Case { Op op; unsigned sd, dd; Fract f; };
  std::vector<Case> cases;
  for (unsigned d : kColourDepths) {
    for (Op op : {kToHSV, kFromHSV, kToHLS, kFromHLS}) cases.push_back({op, d, d, {}});
    for (unsigned g : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U}) cases.push_back({kToGray, d, g, {}});
  }
  for (unsigned g : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U, MOX_DEPTH_32S})
    for (Fract f : {Fract{0, 0, 0}, Fract{0.299f, 0.587f, 0.114f}, Fract{1.0f, 0.5f, 0.001f}, Fract{0.00001f, 0, 0}})
      cases.push_back({kFromGray, g, g == MOX_DEPTH_1U ? MOX_DEPTH_8U : g, f});
  for (const Case& c : cases)
    for (const Layout& l : kLayouts) {
      SCOPED_TRACE(::testing::Message() << kNames[c.op] << " " << bitsOf(c.sd) << "->" << bitsOf(c.dd) << " "
                                        << l.seq << " order " << l.order << " fraction " << c.f.r);
      const bool rgbIn = c.op == kToGray || c.op == kToHSV || c.op == kToHLS;
      const bool grayIn = c.op == kFromGray, grayOut = c.op == kToGray;
      const Shape ss{c.sd, grayIn ? 1 : l.channels, grayIn ? 0 : l.order, 13, 29};
      const Shape ds{c.dd, grayOut ? 1 : l.channels, grayOut ? 0 : l.order, 15, 27};
      // Grey sources take every value of their depth, negative ones too.
      auto s = grayIn ? std::make_unique<Image>(ss, 9) : filled(ss, c.op, 5);
      Image d(ds, 6), want(ds, 6);
      model(*s, kModels[c.op], l.seq);
      s->roi(0, 5, 5, 3, 3);
      d.roi(0, 1, 1, 2, 2);
      run(c.op, *s, d, nullptr, c.f);
      ASSERT_EQ(moxGetErrStatus(), MOX_StsNoError);
      for (int y = 0; y < 13; ++y)
        for (int x = 0; x < 27; ++x) {
          Px in{};
          for (int k = 0; k < (grayIn ? 1 : 3); ++k) in[k] = get(*s, x, y, rgbIn ? stored(l, k) : k);
          const Px v = reference(c.op, c.sd, c.dd, c.f, in);
          for (int k = 0; k < (grayOut ? 1 : 3); ++k) set(want, x, y, rgbIn ? k : stored(l, k), v[k]);
        }
      EXPECT_EQ(d.bytes(), want.bytes());
      const int how = int(&l - kLayouts);
      Image gathered(ds, 6);
      gathered.roi(0, 1, 1, 2, 2);
      Tiled ts(*s, 16, 8), td(gathered, 8, 8);
      model(ts, kModels[c.op], l.seq);
      MoxImage* src = how == 1 ? +*s : +ts;
      MoxImage* dst = how == 2 ? +gathered : +td;
      if (how >= 2) run(c.op, src, dst, nullptr, c.f);
      for (int t = 0; how < 2 && t < 8; ++t) {  // every tile that meets the common area
        const int m[2] = {t % 4, t / 4};
        run(c.op, src, dst, m, c.f);
      }
      if (how != 2) td.gather(gathered);
      EXPECT_EQ(gathered.bytes(), want.bytes());
      EXPECT_FALSE(ts.badIndex || td.badIndex);
      for (const Report& r : reports()) ADD_FAILURE() << r.message << " " << r.line;
      EXPECT_TRUE(how != 0 || td.calls.front().mode == MOX_GET_TILE_TO_WRITE);
      if (c.op >= kToHSV) {
        EXPECT_EQ(std::string(d->colorModel, 3), std::string(kModels[c.op ^ 1], 3));
        EXPECT_EQ(std::string(d->channelSeq, 3), std::string(kModels[c.op ^ 1], 3));
      }
    }
}

// Every 8-bit colour once: the kernels' quotients equal the formulas' ones.
TEST(ColorModels, EveryEightBitColourToHsvAndHls) {
  Capture capture;
  Image s({MOX_DEPTH_8U, 3, 0, 4096, 4096}), d({MOX_DEPTH_8U, 3, 0, 4096, 4096});
  for (int i = 0; i < 1 << 24; ++i)
    for (int k = 0; k < 3; ++k) s->imageData[3 * i + k] = static_cast<char>(i >> (8 * k));
  for (Op op : {kToHSV, kToHLS}) {
    run(op, s, d);
    int bad = 0;
    for (int i = 0; i < 1 << 24 && bad < 5; ++i) {
      const Px want = reference(op, MOX_DEPTH_8U, MOX_DEPTH_8U, {}, {i & 255, (i >> 8) & 255, i >> 16});
      const auto* got = reinterpret_cast<const unsigned char*>(d->imageData) + 3 * i;
      if (got[0] != want[0] || got[1] != want[1] || got[2] != want[2])
        ADD_FAILURE() << kNames[op] << " of colour " << std::hex << i << ++bad;
    }
  }
}

TEST(ColorModels, KnownValues) {
  Capture capture;
  Image rgb({MOX_DEPTH_8U, 3, 0, 1, 4}), out({MOX_DEPTH_8U, 3, 0, 1, 4}), grey({MOX_DEPTH_8U, 1, 0, 1, 4});
  const int px[4][3] = {{255, 255, 255}, {255, 0, 0}, {0, 0, 255}, {90, 90, 90}};
  for (int i = 0; i < 12; ++i) set(rgb, i / 3, 0, i % 3, px[i / 3][i % 3]);
  auto at = [](MoxImage* im, int x) { return Px{get(im, x, 0, 0), get(im, x, 0, 1), get(im, x, 0, 2)}; };
  moxColorToGray(rgb, grey, nullptr);
  EXPECT_EQ(get(grey, 0, 0), 254);
  moxRGB2HSV(rgb, out, nullptr);
  EXPECT_EQ(at(out, 1), (Px{0, 255, 255}));
  EXPECT_EQ(get(out, 2, 0, 0), 120);
  moxRGB2HLS(rgb, out, nullptr);
  EXPECT_EQ(at(out, 3), (Px{0, 90, 0}));
  set(grey, 0, 0, 0, 255);
  moxGrayToColor(grey, rgb, 0, 0, 0, nullptr);
  EXPECT_EQ(at(rgb, 0), (Px{53, 182, 17}));
  EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
}

// RGB to HSV or HLS and back lands within the rounding of the stored hue:
// whole degrees (two at 8 bits) move a channel by up to a sixtieth of the
// range per degree. (The 32-bit HLS ramp's decimal sixtieth can step past
// the top of the range, so that pair is left to the formula test.) The
// colour order follows the source's sequence both ways.
TEST(ColorModels, RoundTrips) {
  Capture capture;
  for (unsigned depth : kColourDepths)
    for (bool hls : {false, true}) {
      if (hls && depth == MOX_DEPTH_32S) continue;
      const Shape sh{depth, 3, 0, 32, 32};
      auto s = filled(sh, kToHSV, 21);
      model(*s, "RGB", "BGR");
      Image mid(sh), back(sh);
      run(hls ? kToHLS : kToHSV, *s, mid);
      run(hls ? kFromHLS : kFromHSV, mid, back);
      const ll limit = depth == MOX_DEPTH_8U ? 10 : maxOf(depth) / 60 + 2;
      for (int i = 0; i < 32 * 32 * 3; ++i)
        ASSERT_LE(std::llabs(get(*s, i / 3 % 32, i / 96, i % 3) - get(back, i / 3 % 32, i / 96, i % 3)), limit) << hls;
    }
  EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
}

// The kernels for this processor's widest vectors give the bits of the
// build's own, slot by slot, on both data orders.
TEST(ColorModels, EveryKernelTableGivesTheSameBits) {
  const mox::color::KernelTable &wide = mox::color::kernels(), &base = mox::color::baseKernels();
  auto view = [](MoxImage* im) {
    return mox::View{im->imageData, im->widthStep, im->width, im->height, im->nChannels, 0,
                     im->dataOrder, im->depth, 0, std::ptrdiff_t(im->widthStep) * im->height};
  };
  auto same = [&](mox::Kernel a, mox::Kernel b, Shape ss, Shape ds, const void* arg, const char* what) {
    Image s(ss, 31), d1(ds, 32), d2(ds, 32);
    const mox::View v1[2] = {view(s), view(d1)}, v2[2] = {view(s), view(d2)};
    a(v1, arg);
    b(v2, arg);
    EXPECT_EQ(d1.bytes(), d2.bytes()) << what << " depth " << bitsOf(ss.depth) << " order " << ss.dataOrder;
  };
  const unsigned greys[3] = {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U};
  for (int order = 0; order < 2; ++order) {
    mox::color::ConvArgs conv{};
    conv.swap = order == 0;
    for (int s = 0; s < 3; ++s) {
      const unsigned sd = kColourDepths[s];
      for (int g = 0; g < 3; ++g)
        same(wide.toGray[s][g], base.toGray[s][g], {sd, 3, order, 9, 301}, {greys[g], 1, 0, 9, 301}, &conv, "grey");
      for (int m = 0; m < 4; ++m)
        same(wide.three[m][s], base.three[m][s], {sd, 4, order, 9, 301}, {sd, 4, order, 9, 301}, &conv, "three");
    }
    for (int k = 0; k < 4; ++k) {
      const unsigned sd = k == 0 ? MOX_DEPTH_1U : kColourDepths[k - 1], dd = k == 0 ? MOX_DEPTH_8U : sd;
      mox::color::grayMultipliers(dd, 0.3f, 0.6f, 0.1f, conv);
      same(wide.fromGray[k], base.fromGray[k], {sd, 1, 0, 9, 301}, {dd, 3, order, 9, 301}, &conv, "colour");
    }
    mox::color::TwistArgs twist{{150, -40, 20, 300, -7, 260, 3, -9, 30, 30, 200, 0}, 8, 5 << 8, 200 << 8, 0, 250, -5};
    for (int k = 0; k < 2; ++k)
      for (int a = 0; a < 3; ++a) {
        const Shape sh{kColourDepths[k], 3, order, 9, 301};
        same(wide.twist[k][a], base.twist[k][a], sh, sh, &twist, "twist");
      }
  }
}

struct CheckCase {
  Op op;
  std::function<void(Image& s, Image& d)> spoil;
  const char *func, *message;
  int line;
  const char* file = "moxcolor";
  unsigned srcDepth = MOX_DEPTH_8U, dstDepth = MOX_DEPTH_8U;
};

TEST(ColorModelChecks, EveryCheckReportsItsTextAndLineAndWritesNothing) {
  const char *inc = "incomatibleimages", *depthText = "errInOutDepth";
  const auto none = SPOIL();
  std::vector<CheckCase> cases = {
      // Models and channel rules of the compatibility test.
      {kToGray, SPOIL(memcpy(s->colorModel, "RGx", 3)), "moxColorToGray", inc, 159},
      {kToGray, SPOIL(d->nChannels = 3), "moxColorToGray", inc, 159},
      {kFromGray, SPOIL(memcpy(d->colorModel, "HSV", 3)), "moxGrayToColor", inc, 472},
      {kFromGray, SPOIL(s->nChannels = 3), "moxGrayToColor", inc, 472},
      {kFromGray, SPOIL(s->depth = MOX_DEPTH_16U), "moxGrayToColor", inc, 472},
      {kToHSV, SPOIL(memcpy(s->colorModel, "HSV", 3)), "moxRGB2HSV", inc, 226},
      {kFromHSV, SPOIL(memcpy(s->colorModel, "RGB", 3)), "moxHSV2RGB", inc, 289},
      {kToHLS, SPOIL(s.roi(2, 0, 0, 4, 4)), "moxRGB2HLS", inc, 351},
      {kFromHLS, SPOIL(d->depth = MOX_DEPTH_16U), "moxHLS2RGB", inc, 412},
      {kToHSV, SPOIL(d->dataOrder = 1), "moxRGB2HSV", inc, 226},
      // A colour side without three channels.
      {kToHSV, SPOIL(s->nChannels = d->nChannels = 2), "moxRGB2HSV", "(srcImage->nChannels < 3)", 228},
      {kToGray, SPOIL(s->nChannels = 2), "moxColorToGray", "(srcImage->nChannels < 3)", 161},
      {kFromGray, SPOIL(d->nChannels = 2), "moxGrayToColor", "(dstImage->nChannels < 3)", 475},
      // Depths the kernels do not have.
      {kToGray, none, "ownColorToGray", depthText, 486, "owncolor", MOX_DEPTH_32S, MOX_DEPTH_32S},
      {kToGray, none, "ownColorToGray", depthText, 486, "owncolor", MOX_DEPTH_8S},
      {kToGray, none, "ownColorToGray", depthText, 486, "owncolor", MOX_DEPTH_8U, MOX_DEPTH_16S},
      {kFromGray, none, "ownGrayToColor", depthText, 530, "owncolor", MOX_DEPTH_16S, MOX_DEPTH_16S},
      {kToHSV, none, "ownRGB2HSV", depthText, 560, "owncolor", MOX_DEPTH_8S, MOX_DEPTH_8S},
      {kFromHSV, none, "ownRGB2HSV", depthText, 560, "owncolor", MOX_DEPTH_16S, MOX_DEPTH_16S},
      {kToHLS, none, "ownRGB2HLS", depthText, 590, "owncolor", MOX_DEPTH_8S, MOX_DEPTH_8S},
      {kFromHLS, none, "ownRGB2HLS", depthText, 590, "owncolor", MOX_DEPTH_16S, MOX_DEPTH_16S},
  };
  // The header checks of source and destination (the lines of the
  // compatibility test are four on).
  const int header[6] = {155, 468, 222, 285, 347, 408};
  for (int op = 0; op < 6; ++op) {
    const Op o = Op(op);
    const int l = header[op];
    cases.push_back({o, SPOIL(s->depth = 3), "moxReduceBits", "Image depth is invalid", l});
    cases.push_back({o, SPOIL(d->dataOrder = 5), "moxReduceBits", "Image data order is invalid", l + 1});
    cases.push_back({o, SPOIL(s->origin = 1), kNames[op], inc, l + 4});
    cases.push_back({o, SPOIL(s->widthStep = 3), kNames[op], "(srcImage->widthStep < the bytes of srcImage->width pixels)", l});
    cases.push_back({o, SPOIL(d->imageSize = 20), kNames[op], "(dstImage->imageSize < the bytes of dstImage->height rows)", l + 1});
  }
  for (const CheckCase& c : cases) {
    Capture capture;
    Image s({c.srcDepth, c.op == kFromGray ? 1 : 3, 0, 8, 8}, 1), d({c.dstDepth, c.op == kToGray ? 1 : 3, 0, 8, 8}, 2);
    model(s, kModels[c.op], "RGB");
    c.spoil(s, d);
    const std::vector<char> before = d.bytes();
    const std::string seq(d->channelSeq, 4);
    run(c.op, s, d);
    expectReport(c.func, c.message, c.line, c.file);
    EXPECT_TRUE(reports().empty()) << c.message;
    EXPECT_EQ(d.bytes(), before) << c.message;
    EXPECT_EQ(std::string(d->channelSeq, 4), seq);
  }
  // A null image; a tiled destination asked for a tile past the common
  // area, and one whose call-back hands out no tile.
  Capture capture;
  moxRGB2HSV(nullptr, Image({MOX_DEPTH_8U, 3, 0, 8, 8}), nullptr);
  expectReport("moxReduceBits", "Image header is null", 222, "moxcolor");
  const int far[2] = {3, 0};
  for (int op = 0; op < 6; ++op) {
    Image s({MOX_DEPTH_8U, op == kFromGray ? 1 : 3, 0, 8, 8}), d({MOX_DEPTH_8U, op == kToGray ? 1 : 3, 0, 16, 16});
    model(s, kModels[op], "RGB");
    Tiled t(d, 8, 8);
    run(Op(op), s, t, far);
    expectReport(kNames[op], "(dTile.begX > dRoi.endX)", header[op] + 9, "moxcolor");
    t.nullOnGet = 0;
    run(Op(op), s, t);
    expectReport(kNames[op], "(dstImage->tileInfo->tileData == ((void*)(0)))", header[op] + 19, "moxcolor");
  }
  EXPECT_TRUE(reports().empty());
}

}  // namespace
