// Mirroring and rotation against slow references written from the formulas
// (float positions, indices by the 1e-7 rule, linear and Newton-form cubic),
// in place and tiled, with every check's text and line.
#include <cfenv>
#include <climits>
#include <cmath>
#include <tuple>
#include <utility>

#include "op_cases.h"

using namespace testimg;

namespace {

// Channel pairs (source, destination) that an operation moves.
std::vector<std::pair<int, int>> channelPairs(const MoxImage* s, const MoxImage* d) {
  std::vector<std::pair<int, int>> v;
  const int work = d->roi && d->roi->coi ? 1 : valueChannels(d);
  for (int k = 0; k < work; ++k) v.push_back({channelOf(s, k), channelOf(d, k)});
  return v;
}

std::vector<ll> referenceMirror(MoxImage* s, MoxImage* d, int axis) {
  std::vector<ll> out = pixels(d);
  const Rect a = clippedRoi(s), b = clippedRoi(d);
  const int w = std::min(a.w, b.w), h = std::min(a.h, b.h);
  for (int i = 0; i < h; ++i)
    for (int j = 0; j < w; ++j) {
      const int si = axis == 1 ? i : h - 1 - i, sj = axis == 0 ? j : w - 1 - j;
      for (auto [sc, dc] : channelPairs(s, d))
        out[(size_t(b.y + i) * d->width + b.x + j) * valueChannels(d) + dc] = get(s, a.x + sj, a.y + si, sc);
    }
  return out;
}

// The rotation as its formulas read, one pixel at a time.
std::vector<ll> referenceRotate(MoxImage* s, MoxImage* d, int angle, int cx, int cy, int inter) {
  std::vector<ll> out = pixels(d);
  angle %= 36000;
  if (angle < 0) angle += 36000;
  const int W = s->width, H = s->height;
  if (s->depth == MOX_DEPTH_1U || W == 1 || H == 1) inter = MOX_INTER_NN;
  if (inter == MOX_INTER_CUBIC && (W < 4 || H < 4)) inter = MOX_INTER_LINEAR;
  long long cyl = cy;
  if (s->origin == 1) cyl = H - 1 - ll(cy), angle = 36000 - angle;
  const Rect a = clippedRoi(s), b = clippedRoi(d);
  const int w = std::min(a.w, b.w), h = std::min(a.h, b.h);
  const double rad = angle * 0.01 * (1.0 / 180.0) * 3.14159265358979323846;
  const double c = std::cos(rad), sn = std::sin(rad);
  double xShift = cx - c * cx + sn * double(cyl), yShift = double(cyl) - sn * cx - c * double(cyl);
  if (inter == MOX_INTER_NN) xShift += 0.5, yShift += 0.5;
  const float fc = float(c), fs = float(sn), fxs = float(xShift), fys = float(yShift);
  const ll top = highest(d->depth);
  auto at = [&](ll x, ll y, int ch) { return float(get(s, int(x), int(y), ch)); };
  auto index = [](float p) { return double(p) <= -1e-7 ? -1LL : ll(double(p) + 1e-7); };
  auto finish = [&](double v) { return std::clamp<ll>(ll(v + 1e-7), 0, top); };
  auto newton = [](auto p0, auto p1, auto p2, auto p3, decltype(p0) t) {
    using F = decltype(p0);
    const F c1 = 1 + t, c2 = t * (1 + t) * F(0.5), c3 = (t - 1) * c2 * (F(1) / F(3));
    const F d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = (p1 + p3 - 2 * p2) - d2;
    return p0 + d1 * c1 + d2 * c2 + d3 * c3;
  };
  for (int i = 0; i < h; ++i)
    for (int j = 0; j < w; ++j) {
      const ll x = a.x + j, y = a.y + i;
      const size_t o = (size_t(b.y + i) * d->width + b.x + j) * valueChannels(d);
      if (angle == 9000 || angle == 18000 || angle == 27000) {
        ll xs = 2 * ll(cx) - x, ys = 2 * cyl - y;
        if (angle == 9000) xs = cx + cyl - y, ys = x - cx + cyl;
        if (angle == 27000) xs = cx - cyl + y, ys = cx + cyl - x;
        if (xs < 0 || ys < 0 || xs >= W || ys >= H) continue;
        for (auto [sc, dc] : channelPairs(s, d)) out[o + dc] = get(s, int(xs), int(ys), sc);
        continue;
      }
      const float xs = fc * float(x) - fs * float(y) + fxs, ys = fs * float(x) + fc * float(y) + fys;
      ll ix = index(xs), iy = index(ys);
      for (auto [sc, dc] : channelPairs(s, d)) {
        if (ix < 0 || iy < 0 || ix >= W || iy >= H) {
          out[o + dc] = 0;
          continue;
        }
        if (inter == MOX_INTER_NN) {
          out[o + dc] = get(s, int(ix), int(iy), sc);
        } else if (inter == MOX_INTER_LINEAR) {
          const ll x0 = ix == W - 1 ? ix - 1 : ix, y0 = iy == H - 1 ? iy - 1 : iy;
          const float tx = xs - float(x0), ty = ys - float(y0);
          auto row = [&, c = sc](ll y) { return at(x0, y, c) + (at(x0 + 1, y, c) - at(x0, y, c)) * tx; };
          out[o + dc] = finish(double(row(y0) + (row(y0 + 1) - row(y0)) * ty));
        } else {
          auto centre = [](ll i, int n) { return i == 0 ? 1 : i == n - 1 ? i - 2 : i == n - 2 ? i - 1 : i; };
          const ll x0 = centre(ix, W), y0 = centre(iy, H);
          double r[4];
          for (int m = 0; m < 4; ++m)
            r[m] = newton(at(x0 - 1, y0 - 1 + m, sc), at(x0, y0 - 1 + m, sc), at(x0 + 1, y0 - 1 + m, sc),
                          at(x0 + 2, y0 - 1 + m, sc), xs - float(x0));
          out[o + dc] = finish(newton(r[0], r[1], r[2], r[3], double(ys) - double(y0)));
        }
      }
    }
  return out;
}

// Source and destination shapes of one depth: channels, order, sizes and
// ROIs (coi, x, y, h, w; h 0: none).
struct Case { const char* name; int channels, order, sh, sw, dh, dw, sroi[5], droi[5]; };

std::vector<Case> cases(unsigned depth) {
  const int c = depth == MOX_DEPTH_1U ? 1 : 3;
  std::vector<Case> v = {
      {"1x1", c, 0, 1, 1, 1, 1, {}, {}},         {"2x3", c, 0, 2, 3, 2, 3, {}, {}},
      {"3x3", c, 0, 3, 3, 3, 3, {}, {}},         {"17x13", c, 0, 17, 13, 17, 13, {}, {}},
      {"17x13 planes", c, 1, 17, 13, 17, 13, {}, {}},
      {"rois", c, 0, 19, 23, 15, 21, {0, 3, 2, 14, 17}, {0, 2, 4, 11, 18}},
      {"rois clipped", c, 1, 12, 15, 13, 16, {0, 4, 5, 99, 99}, {0, 1, 0, 6, 99}},
      {"roi outside", c, 0, 5, 7, 5, 7, {0, 9, 1, 3, 3}, {}},
      {"one wide channel", 1, 0, 5, 53, 6, 50, {0, 1, 0, 5, 51}, {}},
      {"wide rows", c, 0, 6, 300, 7, 290, {}, {}},
  };
  if (c == 1) v.push_back({"bits at odd offsets", 1, 0, 9, 70, 9, 70, {0, 3, 1, 7, 37}, {0, 13, 0, 8, 41}});
  else
    v.insert(v.end(), {Case{"coi", 3, 0, 11, 14, 11, 14, {2, 1, 1, 9, 12}, {2, 2, 0, 10, 11}},
                       Case{"coi planes", 4, 1, 11, 14, 11, 14, {3, 1, 1, 9, 12}, {3, 0, 2, 8, 13}},
                       Case{"first plane", 3, 1, 11, 14, 11, 14, {1, 1, 1, 9, 12}, {1, 0, 2, 8, 13}},
                       Case{"coi into one channel", 3, 0, 9, 9, 9, 9, {3, 0, 0, 9, 9}, {}}});
  return v;
}

struct Pair {
  Image s, d;
  Pair(unsigned depth, const Case& c, int origin = 0)
      : s({depth, c.channels, c.order, c.sh, c.sw}, 21, c.sroi[3] ? c.sroi : nullptr),
        d({depth, c.name == std::string("coi into one channel") ? 1 : c.channels, c.order, c.dh, c.dw},
          22, c.droi[3] ? c.droi : nullptr) {
    s->origin = d->origin = origin;
  }
};

const unsigned kRotateDepths[] = {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U};

// Runs f on plain images and on tiled twins (source, destination, both, or
// one image in place) and expects the same pixels; ROIs cross tile edges.
template <class F>
void expectTiledEqualsPlain(unsigned depth, int order, int tile, const F& f, const char* what, int channels = 3) {
  const int c = depth == MOX_DEPTH_1U ? 1 : channels;
  const int sroi[5] = {0, 5, 3, 33, 30}, droi[5] = {0, 7, 2, 36, 31};
  Image s({depth, c, order, 41, 37}, 31, sroi), want({depth, c, order, 39, 43}, 32, droi);
  f(+s, +want);
  ASSERT_EQ(moxGetErrStatus(), 0) << what;
  for (int mode = 1; mode < 4; ++mode) {
    Image d({depth, c, order, 39, 43}, 32, droi);
    Tiled ts(s, tile, tile), td(d, tile, tile);
    f(mode & 1 ? +ts : +s, mode & 2 ? +td : +d);
    EXPECT_EQ(moxGetErrStatus(), 0) << what;
    if (mode & 2) td.gather(d);
    EXPECT_EQ(pixels(d), pixels(want)) << what << " tile " << tile << " tiled (1 source, 2 destination) "
                                       << mode << " depth " << depth;
    EXPECT_FALSE(ts.badIndex || td.badIndex) << what;
  }
  Image self({depth, c, order, 41, 37}, 31, sroi), plain({depth, c, order, 41, 37}, 31, sroi);
  Tiled tiled(self, tile, tile == 8 ? 16 : 8);  // tiles not square
  f(+plain, +plain);
  f(+tiled, +tiled);
  tiled.gather(self);
  EXPECT_EQ(pixels(self), pixels(plain)) << what << " in place, tile " << tile << " depth " << depth;
}

}  // namespace

// Apart and in place; in place twice gives the source back.
TEST(Mirror, EveryAxisDepthAndLayoutMatchesTheReference) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (const Case& c : cases(depth))
      for (int axis : {0, 1, -1}) {
        if (c.name == std::string("coi into one channel")) continue;  // coi must match
        Pair p(depth, c);
        const auto want = referenceMirror(p.s, p.d, axis);
        moxMirror(p.s, p.d, axis);
        EXPECT_EQ(pixels(p.d), want) << c.name << " axis " << axis << " depth " << std::hex << depth;
        const auto original = pixels(p.s), inPlace = referenceMirror(p.s, p.s, axis);
        moxMirror(p.s, p.s, axis);
        EXPECT_EQ(pixels(p.s), inPlace) << c.name << " in place, axis " << axis;
        moxMirror(p.s, p.s, axis);
        EXPECT_EQ(pixels(p.s), original) << c.name << " twice, axis " << axis;
      }
  EXPECT_TRUE(reports().empty());
}

// Two headers over the same pixels whose rectangles overlap: the source is
// read before it is overwritten. Then mixed data orders, and destinations of
// 8 MiB that store their rows past the caches.
TEST(Mirror, OverlappingViewsMixedOrdersAndLargeImages) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (int axis : {0, 1, -1}) {
      Image a({depth, depth == MOX_DEPTH_1U ? 1 : 2, 0, 12, 30}, 5);
      a.roi(0, 3, 2, 8, 20);
      MoxImage view = *static_cast<MoxImage*>(a);
      MoxROI other{0, 5, 3, 8, 20};
      view.roi = &other;
      const auto want = referenceMirror(a, &view, axis);
      moxMirror(a, &view, axis);
      EXPECT_EQ(pixels(a), want) << "axis " << axis << " depth " << std::hex << depth;
    }
  const int n = 1700, sroi[5] = {0, 3, 0, n, n - 3}, droi[5] = {0, 0, 0, n, n - 5};
  for (bool large : {false, true})
    for (int axis : {0, 1, -1}) {
      Image s({MOX_DEPTH_8U, 3, 0, large ? n : 6, large ? n : 9}, 1, large ? sroi : nullptr),
          d({MOX_DEPTH_8U, 3, !large, large ? n : 7, large ? n : 8}, 2, large ? droi : nullptr);
      const auto want = referenceMirror(s, d, axis);
      moxMirror(s, d, axis);
      EXPECT_TRUE(pixels(d) == want) << large << " " << axis;  // no dump of millions of values
    }
  // Long rows reversed by vectors, in the caches and (large) past them: the
  // ROIs put the rows' ends off the vectors' boundaries.
  struct Wide {
    unsigned depth;
    int channels, rows, width, axis;
  };
  for (const Wide& c : {Wide{MOX_DEPTH_8U, 1, 1030, 8200, 1}, Wide{MOX_DEPTH_16U, 1, 1030, 4100, -1},
                        Wide{MOX_DEPTH_32S, 1, 1030, 2050, 1}, Wide{MOX_DEPTH_8U, 3, 9, 301, 1},
                        Wide{MOX_DEPTH_8U, 1, 5, 700, -1}}) {
    const int rows = c.rows, sr[5] = {0, 1, 0, rows, c.width - 1}, dr[5] = {0, 5, 0, rows, c.width - 5};
    Image s({c.depth, c.channels, 0, rows, c.width}, 3, sr), d({c.depth, c.channels, 0, rows, c.width}, 4, dr);
    const auto want = referenceMirror(s, d, c.axis);
    moxMirror(s, d, c.axis);
    EXPECT_TRUE(pixels(d) == want) << std::hex << c.depth;
  }
  // Whole images whose rows follow each other without a gap turned half
  // round, in the caches and (large) past them.
  for (const Wide& c : {Wide{MOX_DEPTH_8U, 3, 7, 40, -1}, Wide{MOX_DEPTH_16U, 1, 10, 50, -1},
                        Wide{MOX_DEPTH_32S, 1, 9, 8, -1}, Wide{MOX_DEPTH_8U, 3, 1700, 1700, -1}}) {
    Image s({c.depth, c.channels, 0, c.rows, c.width}, 5), d({c.depth, c.channels, 0, c.rows, c.width}, 6);
    const auto want = referenceMirror(s, d, c.axis);
    moxMirror(s, d, c.axis);
    EXPECT_TRUE(pixels(d) == want) << std::hex << c.depth << " " << c.width;
  }
  EXPECT_TRUE(reports().empty());
}

// Packed rows of one- to six-byte pixels reversed thirty-two, sixteen,
// five and one pixel at a time (and 64, 32 or 16 bytes at a time), and
// copied 64 bytes at a time: every width around those steps, each row ending
// where the vector loops hand over to the rest.
TEST(Mirror, PackedRowsOfEveryWidthAroundTheVectorSteps) {
  Capture capture;
  const std::pair<unsigned, int> kinds[] = {
      {MOX_DEPTH_8U, 1},  {MOX_DEPTH_8U, 3},  {MOX_DEPTH_8U, 4},
      {MOX_DEPTH_16U, 1}, {MOX_DEPTH_16U, 2}, {MOX_DEPTH_16U, 3}};
  for (const auto& [depth, channels] : kinds)
    for (int w = 1; w <= 140; ++w)
      for (int axis : {0, 1, -1}) {
        Image s({depth, channels, 0, 3, w}, w), d({depth, channels, 0, 3, w}, 7);
        const auto want = referenceMirror(s, d, axis);
        moxMirror(s, d, axis);
        EXPECT_EQ(pixels(d), want) << std::hex << depth << std::dec << " channels " << channels
                                   << " width " << w << " axis " << axis;
        moxMirror(s, s, axis);
        EXPECT_EQ(pixels(s), want) << "in place";
      }
  EXPECT_TRUE(reports().empty());
}

// Pins the references: a 3x2 image mirrored, a quarter turn about the
// centre of a 3x3 image, and a 45-degree turn about the centre of a square
// that leaves its corners 0.
TEST(RotMir, KnownValues) {
  Capture capture;
  Image s({MOX_DEPTH_8U, 1, 0, 3, 2}), d({MOX_DEPTH_8U, 1, 0, 3, 2});
  for (int i = 0; i < 6; ++i) set(s, i % 2, i / 2, 0, i + 1);  // rows 1 2 / 3 4 / 5 6
  const std::vector<ll> known[] = {{5, 6, 3, 4, 1, 2}, {2, 1, 4, 3, 6, 5}, {6, 5, 4, 3, 2, 1}};
  for (int axis : {0, 1, -1}) {
    moxMirror(s, d, axis);
    EXPECT_EQ(pixels(d), known[axis < 0 ? 2 : axis]) << axis;
  }
  Image t({MOX_DEPTH_8U, 1, 0, 3, 3}), e({MOX_DEPTH_8U, 1, 0, 3, 3});
  for (int i = 0; i < 9; ++i) set(t, i % 3, i / 3, 0, i + 1);
  moxRotate(t, e, 9000, 1, 1, MOX_INTER_NN, nullptr);
  EXPECT_EQ(pixels(e), (std::vector<ll>{3, 6, 9, 2, 5, 8, 1, 4, 7}));
  Image q({MOX_DEPTH_8U, 1, 0, 9, 9}, 3), r({MOX_DEPTH_8U, 1, 0, 9, 9}, 4);
  moxRotate(q, r, 4500, 4, 4, MOX_INTER_LINEAR, nullptr);
  for (auto [x, y] : {std::pair{0, 0}, {8, 0}, {0, 8}, {8, 8}}) EXPECT_EQ(get(r, x, y), 0);
  EXPECT_EQ(get(r, 4, 4), get(q, 4, 4));
  EXPECT_TRUE(reports().empty());
}

// Apart and in place (the source read before it is overwritten), with a
// top-left or bottom-left origin (which turns the other way about the
// mirrored centre); whole turns copy. The in-place runs go under the upward
// rounding mode, which neither changes the result nor is lost.
TEST(Rotate, EveryAngleDepthInterpolationAndLayoutMatchesTheReference) {
  Capture capture;
  const int angles[] = {3000, 4500, 9000, 18000, 27000, -9000, 12345, 33333, 35999, 1, 0, -72000, INT_MIN / 36000 * 36000};
  int origin = 0;
  for (unsigned depth : kRotateDepths)
    for (const Case& c : cases(depth))
      for (int angle : angles)
        for (int inter : {MOX_INTER_NN, MOX_INTER_LINEAR, MOX_INTER_CUBIC})
          for (auto [cx, cy] : {std::pair{c.sw / 2, c.sh / 2}, std::pair{1, c.sh - 2}, std::pair{-3, 40}}) {
            Pair p(depth, c, origin ^= 1);
            const auto want = referenceRotate(p.s, p.d, angle, cx, cy, inter);
            moxRotate(p.s, p.d, angle, cx, cy, inter, nullptr);
            ASSERT_EQ(pixels(p.d), want) << c.name << " angle " << angle << " inter " << inter << " centre " << cx
                                         << "," << cy << " depth " << depth << " origin " << origin;
            const auto inPlace = referenceRotate(p.s, p.s, angle, cx, cy, inter);
            std::fesetround(FE_UPWARD);
            moxRotate(p.s, p.s, angle, cx, cy, inter, nullptr);
            EXPECT_EQ(std::fegetround(), FE_UPWARD);
            std::fesetround(FE_TONEAREST);
            ASSERT_EQ(pixels(p.s), inPlace) << c.name << " in place, angle " << angle << " inter " << inter;
          }
  EXPECT_TRUE(reports().empty());
}

// Quarter turns of images larger than the blocks the turn is cut into,
// with partial blocks at every side, centres that leave part of the
// destination uncovered, and a ROI that starts off the block grid.
TEST(Rotate, QuarterTurnsOfLargeImagesMatchTheReference) {
  Capture capture;
  const Case large[] = {{"large", 3, 0, 150, 133, 141, 147, {}, {}},
                        {"large rois", 3, 0, 150, 133, 141, 147, {0, 3, 5, 129, 140}, {0, 7, 2, 131, 130}},
                        {"large one channel", 1, 0, 150, 133, 141, 147, {}, {}}};
  int origin = 0;
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U})
    for (const Case& c : large)
      for (int angle : {9000, 27000})
        for (auto [cx, cy] : {std::pair{66, 75}, std::pair{3, 140}, std::pair{120, -10}}) {
          Pair p(depth, c, origin ^= 1);
          const auto want = referenceRotate(p.s, p.d, angle, cx, cy, MOX_INTER_NN);
          moxRotate(p.s, p.d, angle, cx, cy, MOX_INTER_NN, nullptr);
          ASSERT_EQ(pixels(p.d), want) << c.name << " angle " << angle << " centre " << cx << "," << cy
                                       << " depth " << depth << " origin " << origin;
        }
  EXPECT_TRUE(reports().empty());
}

// Far angles and centres, one-pixel images: nothing outside the blocks is
// touched (the sanitizer build watches), pixels off the source are 0.
TEST(Rotate, FarAnglesCentresAndTinyImages) {
  Capture capture;
  for (unsigned depth : kRotateDepths)
    for (int inter : {MOX_INTER_NN, MOX_INTER_LINEAR, MOX_INTER_CUBIC})
      for (int angle : {INT_MIN, INT_MAX, 9000, 18000, 27000, 4500})
        for (int cx : {INT_MIN, INT_MAX, -2000000000, 0x7FFFFF00})
          for (int sh : {1, 4}) {
            Image s({depth, 1, 0, sh, 1}, 1), d({depth, 1, 0, 4, 5}, 2);
            const auto want = referenceRotate(s, d, angle, cx, ~cx, inter);
            moxRotate(s, d, angle, cx, ~cx, inter, nullptr);
            EXPECT_EQ(pixels(d), want) << angle << " " << cx;
          }
  EXPECT_TRUE(reports().empty());
}

TEST(RotMirChecks, EachCheckReportsItsTextAndLineAndWritesNothing) {
  const char* const kInter =
      "interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR && interpolate != MOX_INTER_CUBIC";
  const char* const kSteps = "(srcImage->widthStep < the bytes of srcImage->width pixels)";
  // The argument is the mirror's axis or the rotation's angle; nulls: 1 the
  // source, 2 the destination.
  const struct {
    bool mirror; void (*spoil)(Image& s, Image& d); std::vector<std::pair<const char*, int>> want;
    int arg = 3000, inter = MOX_INTER_NN, nulls = 0;
  } checks[] = {
      {true, SPOIL(), {{"Image header is null", 2098}}, 0, 0, 1},
      {true, SPOIL(s->align = 3), {{"Image align is invalid", 2098}}, 0},
      {true, SPOIL(d->depth = 7), {{"Image depth is invalid", 2099}}, 0},
      {true, SPOIL(s->widthStep = 4), {{kSteps, 2098}}, 0},
      {true, SPOIL(d->depth = MOX_DEPTH_8S), {{"(srcImage->depth!=dstImage->depth)", 2101}}, 0},
      {true, SPOIL(d->nChannels = 1), {{"(srcImage->nChannels!=dstImage->nChannels)", 2102}}, 0},
      {true, SPOIL(), {{"((flipAxis>1)||(flipAxis<-1))", 2103}}, 2},
      {true, SPOIL(), {{"((flipAxis>1)||(flipAxis<-1))", 2103}}, INT_MIN},
      {true, SPOIL(s.roi(2, 0, 0, 4, 4)), {{"(coiSrc!=coiDst)", 2113}}, 0},
      {true, SPOIL(s.roi(2, 0, 0, 4, 4); d.roi(1, 0, 0, 4, 4)), {{"(coiSrc!=coiDst)", 2113}}, 0},
      {false, SPOIL(), {{"Image header is null", 74}}, 3000, 0, 2},
      {false, SPOIL(s->nChannels = 0), {{"Image channel's number is less one", 73}}},
      {false, SPOIL(s->widthStep = 20), {{kSteps, 73}}},
      {false, SPOIL(d->depth = MOX_DEPTH_8S), {{"srcImage->depth != dstImage->depth", 75}}},
      {false, SPOIL(s->nChannels = d->nChannels = 1; d->dataOrder = 1), {{"srcImage->dataOrder != dstImage->dataOrder", 75}}},
      // Depth, order and sign run on; the origin is checked twice, then the
      // checks stop.
      {false, SPOIL(s->depth = MOX_DEPTH_8S; s->nChannels = d->nChannels = 1; d->dataOrder = 1),
       {{"srcImage->depth != dstImage->depth", 75}, {"srcImage->dataOrder != dstImage->dataOrder", 75},
        {"srcImage->depth & MOX_DEPTH_SIGN", 77}}},
      {false, SPOIL(s->origin = 1; s->depth = MOX_DEPTH_8S),
       {{"srcImage->depth != dstImage->depth", 75}, {"srcImage->origin != dstImage->origin", 75},
        {"srcImage->origin != dstImage->origin", 76}}},
      {false, SPOIL(s->depth = d->depth = MOX_DEPTH_8S), {{"srcImage->depth & MOX_DEPTH_SIGN", 77}}},
      {false, SPOIL(s->depth = d->depth = MOX_DEPTH_8S), {{"srcImage->depth & MOX_DEPTH_SIGN", 77}}, 36000},
      {false, SPOIL(), {{kInter, 78}}, 3000, 3},
      {false, SPOIL(), {{kInter, 78}}, 9000, -1},  // a quarter turn too
      {false, SPOIL(d->nChannels = 1), {{"nChSrc != nChDst", 79}}},
      {false, SPOIL(s.roi(1, 0, 0, 6, 8)), {{"nChSrc != nChDst", 79}}},  // a channel of interest against all
  };
  for (const auto& k : checks) {
    Capture capture;
    Image s({MOX_DEPTH_8U, 3, 0, 6, 8}, 1), d({MOX_DEPTH_8U, 3, 0, 6, 8}, 2);
    k.spoil(s, d);
    const auto before = d.bytes();
    MoxImage *src = k.nulls & 1 ? nullptr : +s, *dst = k.nulls & 2 ? nullptr : +d;
    if (k.mirror) moxMirror(src, dst, k.arg);
    else moxRotate(src, dst, k.arg, 3, 3, k.inter, nullptr);
    for (auto [text, line] : k.want)
      expectReport(k.mirror ? "moxMirror" : "moxRotate", text, line, k.mirror ? "moxmirr" : "moxRotat");
    EXPECT_TRUE(reports().empty()) << k.want[0].first;
    EXPECT_EQ(d.bytes(), before) << k.want[0].first;
  }
}

// A whole turn whose copy fails passes the failure on: the copy's own
// report, then a trace from line 87; the status is the copy's.
TEST(RotateChecks, AFailedCopyIsTracedAndAnEarlierStatusDoesNotCount) {
  Capture capture;
  Image s({MOX_DEPTH_8U, 1, 0, 16, 16}, 1), plain({MOX_DEPTH_8U, 1, 0, 16, 16}, 2);
  Tiled d(plain, 8, 8);
  const int far[2] = {5, 0};
  moxRotate(s, d, 36000, 0, 0, MOX_INTER_NN, far);
  expectReport("moxCopy", "(dTile.begX > dRoi.endX)", 120);
  ASSERT_FALSE(reports().empty());
  const Report& r = reports().front();
  EXPECT_EQ(std::tie(r.status, r.line, r.func), std::make_tuple(int(MOX_StsBacktrace), 87, std::string("moxRotate")));
  EXPECT_EQ(moxGetErrStatus(), MOX_StsBadArgument);
  reports().clear();

  moxSetErrStatus(MOX_StsOutOfMemory);
  const int tile[2] = {1, 1};
  moxRotate(s, d, -72000, 0, 0, MOX_INTER_NN, tile);
  EXPECT_TRUE(reports().empty());
  EXPECT_EQ(moxGetErrStatus(), MOX_StsOutOfMemory);
}

TEST(RotMirTiles, TiledRunsEqualPlainRuns) {
  Capture capture;
  for (int tile : {8, 24, 64})
    for (unsigned depth : kDepths)
      for (int order : {0, 1}) {
        if (depth == MOX_DEPTH_1U && order == 1) continue;
        for (int axis : {0, 1, -1})
          expectTiledEqualsPlain(depth, order, tile, [&](MoxImage* s, MoxImage* d) {
            moxMirror(s, d, axis);
          }, "mirror");
        if (depth & MOX_DEPTH_SIGN) continue;
        // The last angle about a far centre: the destination pieces of a
        // tiled source fetch no pixels at all and come out as zeros.
        for (auto [angle, cx, cy] : {std::tuple{3000, 20, 17}, {9000, 20, 17}, {18000, 20, 17},
                                     {27000, 20, 17}, {12345, 20, 17}, {4500, 2000, -2000}})
          for (int inter : {MOX_INTER_NN, MOX_INTER_LINEAR, MOX_INTER_CUBIC})
            for (int channels : {1, 3})
              expectTiledEqualsPlain(depth, order, tile, [&, angle = angle, cx = cx, cy = cy](MoxImage* s, MoxImage* d) {
                moxRotate(s, d, angle, cx, cy, inter, nullptr);
              }, "rotate", channels);
      }
  EXPECT_TRUE(reports().empty());
}

// A tile request writes that destination tile only; a whole turn with one
// takes the copy's walk.
TEST(RotMirTiles, RotationWritesOnlyTheRequestedTile) {
  Capture capture;
  for (int angle : {3000, 9000, 0}) {
    Image s({MOX_DEPTH_8U, 1, 0, 40, 40}, 3), want({MOX_DEPTH_8U, 1, 0, 40, 40}, 4),
        d({MOX_DEPTH_8U, 1, 0, 40, 40}, 4), got({MOX_DEPTH_8U, 1, 0, 40, 40}, 4);
    moxRotate(s, want, angle, 19, 21, MOX_INTER_LINEAR, nullptr);
    Tiled ts(s, 16, 16), td(d, 16, 16);
    const int tile[2] = {1, 2};
    moxRotate(ts, td, angle, 19, 21, MOX_INTER_LINEAR, tile);
    td.gather(got);
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 40; ++x) {
        const bool inTile = x >= 16 && x < 32 && y >= 32;
        ASSERT_EQ(get(got, x, y), get(inTile ? +want : +d, x, y)) << angle << " " << x << "," << y;
      }
  }
  EXPECT_TRUE(reports().empty());
}

// Call-backs that hand out no tile or keep one, and a tile request below
// the image: each stops the work with its report.
TEST(RotMirTiles, CallBacksThatMisbehaveAreReported) {
  Capture capture;
  const char* const kNoSource = "(srcImage->tileInfo->tileData == ((void*)(0)))";
  const struct {
    bool tiledSource, mirror, far; int nullOnGet, keepOnRelease, status; const char *func, *text, *file; int line;
  } cases[] = {
      {false, false, false, 2, -1, MOX_StsUnknownError, "moxRotate", "Error get tile to write", "moxRotat", 106},
      {true, false, false, 0, -1, MOX_StsBadArgument, "moxRotate", kNoSource, "moxRotat", 110},
      {false, true, false, -1, 0, MOX_StsBadArgument, "moxMirror", "(dstImage->tileInfo->tileData != ((void*)(0)))",
       "moxmirr", 2135},
      {true, true, false, 1, -1, MOX_StsBadArgument, "moxMirror", kNoSource, "moxmirr", 2140},
      {false, false, true, -1, -1, MOX_StsBadArgument, "moxRotate", "(dTile.begY > dRoi.endY)", "moxRotat", 101},
  };
  for (const auto& k : cases) {
    Image s({MOX_DEPTH_8U, 1, 0, 20, 20}, 3), d({MOX_DEPTH_8U, 1, 0, 20, 20}, 4);
    Tiled ts(s, 8, 8), td(d, 8, 8);
    (k.tiledSource ? ts : td).nullOnGet = k.nullOnGet;
    (k.tiledSource ? ts : td).keepOnRelease = k.keepOnRelease;
    const auto before = d.bytes();
    const int far[2] = {0, 9};
    MoxImage *src = k.tiledSource ? +ts : +s, *dst = k.tiledSource ? +d : +td;
    if (k.mirror) moxMirror(src, dst, k.tiledSource ? 0 : 1);
    else moxRotate(src, dst, 3000, 9, 9, MOX_INTER_NN, k.far ? far : nullptr);
    ASSERT_FALSE(reports().empty()) << k.text;
    const Report r = reports().front();
    EXPECT_EQ(std::tie(r.status, r.func, r.message, r.file, r.line),
              std::make_tuple(k.status, std::string(k.func), std::string(k.text), std::string(k.file), k.line));
    EXPECT_TRUE(!k.tiledSource || d.bytes() == before) << k.text;
    reports().clear();
  }
}
