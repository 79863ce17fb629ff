// Zoom and decimation: results against per-pixel readings of their formulas
// on every depth and layout, hand-worked values, single points, tiled
// destinations, the floating-point state, and every check's report.
#include <cfenv>
#include <functional>
#include <utility>

#include "op_cases.h"

using namespace testimg;

namespace {

struct Call { int xU, xL, yU, yL, interpolate; };

struct Span { ll x, y, w, h; };  // an image's clipped ROI in wide integers
Span roiOf(const MoxImage* im) { const Rect r = clippedRoi(im); return {r.x, r.y, r.w, r.h}; }

// (source channel, destination channel) of every value worked on.
std::vector<std::pair<int, int>> channelPairs(const MoxImage* s, const MoxImage* d) {
  const int cs = s->roi ? s->roi->coi : 0, cd = d->roi ? d->roi->coi : 0;
  if (cs || cd) return {{cs ? cs - 1 : 0, cd ? cd - 1 : 0}};
  std::vector<std::pair<int, int>> v;
  for (int c = 0; c < valueChannels(s); ++c) v.push_back({c, c});
  return v;
}

// The destination after a resampling whose value at destination index
// (j, i) of the rectangle is f(j, i, source channel); nothing else changes.
std::vector<ll> resampled(const MoxImage* s, MoxImage* d, const Call& c, const std::function<ll(ll, ll, int)>& f) {
  std::vector<ll> out = pixels(d);
  const Span sr = roiOf(s), dr = roiOf(d);
  const ll w = std::min(dr.w, (sr.w * c.xU + c.xL - 1) / c.xL);
  const ll h = std::min(dr.h, (sr.h * c.yU + c.yL - 1) / c.yL);
  for (ll i = 0; i < h; ++i)
    for (ll j = 0; j < w; ++j)
      for (auto [cs, cd] : channelPairs(s, d))
        out[size_t(((dr.y + i) * d->width + dr.x + j) * valueChannels(d) + cd)] = f(j, i, cs);
  return out;
}

// The cubic through f(-1), f(0), f(1), f(2) at t, in Newton's
// forward-difference form, in F precision.
template <class F>
F newton(F p0, F p1, F p2, F p3, F t) {
  const F c1 = 1 + t, c2 = t * (1 + t) * F(0.5), c3 = (t - 1) * c2 * (F(1) / F(3));
  const F d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = (p1 + p3 - 2 * p2) - d2;
  return p0 + d1 * c1 + d2 * c2 + d3 * c3;
}

std::vector<ll> zoomReference(const MoxImage* s, MoxImage* d, Call c) {
  int in = c.interpolate;
  if (s->depth == MOX_DEPTH_1U || s->width < 2 || s->height < 2) in = MOX_INTER_NN;
  if ((s->width < 4 || s->height < 4) && in == MOX_INTER_CUBIC) in = MOX_INTER_LINEAR;
  const Span r = roiOf(s);
  const double stepX = double(c.xL) / c.xU, stepY = double(c.yL) / c.yU;
  return resampled(s, d, c, [&](ll j, ll i, int ch) -> ll {
    if (in == MOX_INTER_NN) {
      return get(s, int(((r.x << 14) + j * ll(stepX * 16384)) >> 14), int(((r.y << 14) + i * ll(stepY * 16384)) >> 14), ch);
    }
    const double px = double(r.x) + double(j) * stepX, py = double(r.y) + double(i) * stepY;
    ll ix = ll(px + 1e-7), iy = ll(py + 1e-7);
    double v;
    if (in == MOX_INTER_LINEAR) {
      ix = std::min(ix, r.x + r.w - 1), iy = std::min(iy, r.y + r.h - 1);
      if (ix == r.x + r.w - 1) ix = std::max(ix - 1, 0LL);
      if (iy == r.y + r.h - 1) iy = std::max(iy - 1, 0LL);
      const float tx = float(px - double(ix));
      auto row = [&](ll y) {
        const float a = float(get(s, int(ix), int(y), ch)), b = float(get(s, int(ix + 1), int(y), ch));
        return a + (b - a) * tx;
      };
      const double r0 = row(iy), r1 = row(iy + 1), ty = py - double(iy);
      v = r0 + (r1 - r0) * ty;
    } else {
      auto centre = [](ll i, ll n) { i = std::min(i, n - 1); return i == 0 ? 1 : i == n - 1 ? i - 2 : i == n - 2 ? i - 1 : i; };
      ix = centre(ix, s->width), iy = centre(iy, s->height);
      const float tx = float(px - double(ix));
      auto row = [&](ll y) {
        float p[4];
        for (int m = 0; m < 4; ++m) p[m] = float(get(s, int(ix - 1 + m), int(y), ch));
        return newton(p[0], p[1], p[2], p[3], tx);
      };
      v = newton<double>(row(iy - 1), row(iy), row(iy + 1), row(iy + 2), py - double(iy));
    }
    return clampTo(s->depth, ll(std::clamp(v + 1e-7, -3e9, 3e9)));
  });
}

std::vector<ll> decimateReference(const MoxImage* s, MoxImage* d, Call c) {
  int in = c.interpolate;
  const bool ix = c.xL % c.xU == 0, iy = c.yL % c.yU == 0;
  if (s->width < 4 || s->height < 4 || (ix && iy) || s->depth == MOX_DEPTH_1U) in = MOX_INTER_NN;
  const Span r = roiOf(s);
  const ll half = in == MOX_INTER_NN ? 128 : 0;
  return resampled(s, d, c, [&](ll j, ll i, int ch) -> ll {
    const ll px = r.x * 256 + j * (ll(c.xL) * 256 / c.xU) + (ix ? 0 : half);
    const ll py = r.y * 256 + i * (ll(c.yL) * 256 / c.yU) + (iy ? 0 : half);
    const ll x = std::min(px >> 8, r.x + r.w - 1), y = std::min(py >> 8, r.y + r.h - 1);
    const ll fx = px & 255, fy = py & 255;
    auto at = [&](ll dx, ll dy) {
      return get(s, int(std::clamp(x + dx, r.x, r.x + r.w - 1)), int(std::clamp(y + dy, r.y, r.y + r.h - 1)), ch);
    };
    if (in == MOX_INTER_NN) return at(0, 0);
    if (in == MOX_INTER_LINEAR)
      return (((((256 - fy) * at(0, 0) + fy * at(0, 1)) * (256 - fx) +
                ((256 - fy) * at(1, 0) + fy * at(1, 1)) * fx) >>
               15) +
              1) >>
             1;
    // Lagrange cubic through q(-1) .. q(2), times 6 * 256.
    auto cubic = [](const ll* q, ll t) {
      const ll t2 = t * t >> 8, t3 = t * t * t >> 16;
      return 1536 * q[1] + (-2 * q[0] - 3 * q[1] + 6 * q[2] - q[3]) * t +
             (3 * q[0] - 6 * q[1] + 3 * q[2]) * t2 + (3 * q[1] - q[0] - 3 * q[2] + q[3]) * t3;
    };
    ll rows[4];
    for (int m = 0; m < 4; ++m) {
      ll q[4];
      for (int k = 0; k < 4; ++k) q[k] = at(k - 1, m - 1);
      rows[m] = cubic(q, fx);
    }
    const ll whole = 1536 * 1536, v = cubic(rows, fy) + whole / 2;
    return clampTo(s->depth, v >= 0 ? v / whole : -((whole - 1 - v) / whole));
  });
}

struct Op {
  const char* name;
  void(MOX_CALL* run)(const MoxImage*, MoxImage*, int, int, int, int, int, const int*);
  std::vector<ll> (*reference)(const MoxImage*, MoxImage*, Call);
  bool enlarges;
};

const Op kZoom{"moxZoom", &moxZoom, &zoomReference, true};
const Op kDecimate{"moxDecimate", &moxDecimate, &decimateReference, false};

void run(const Op& op, const MoxImage* s, MoxImage* d, const Call& c, const int* point = nullptr) {
  op.run(s, d, c.xU, c.xL, c.yU, c.yL, c.interpolate, point);
}

// Data order and channels of source and destination, whether they have
// ROIs, and their channels of interest (1-bit images: one channel, no coi).
struct Shape { const char* name; int order, srcChannels, dstChannels; bool rois; int srcCoi, dstCoi; };

const Shape kShapes[] = {
    {"pixel", 0, 3, 3, false, 0, 0}, {"pixel4", 0, 4, 4, true, 0, 0},
    {"plane", 1, 3, 3, false, 0, 0}, {"rois", 0, 3, 3, true, 0, 0},
    {"coi", 0, 3, 1, true, 2, 0},    {"coiPlane", 1, 2, 3, true, 1, 3},
};

const int kSizes[][2] = {{1, 1}, {2, 3}, {3, 3}, {5, 7}, {17, 13}};  // width x height

struct Pair { Image src, dst; };

Pair makePair(const Op& op, unsigned depth, const Shape& l, int w, int h, const Call& c, unsigned seed) {
  const bool bits = depth == MOX_DEPTH_1U;
  const int cs = bits ? 1 : l.srcChannels, cd = bits ? 1 : l.dstChannels;
  // Room for the whole result and a margin that must stay untouched.
  const int dw = int(ll(w) * c.xU / c.xL) + 3, dh = int(ll(h) * c.yU / c.yL) + 3;
  int sr[5] = {bits ? 0 : l.srcCoi, w > 2 ? 1 : 0, h > 2 ? 1 : 0, h > 2 ? h - 2 : h, w > 2 ? w - 1 : w};
  int dr[5] = {bits ? 0 : l.dstCoi, 2, 1, op.enlarges ? dh - 1 : dh / 2, dw - 2};
  const bool rois = l.rois || (!bits && (l.srcCoi || l.dstCoi));
  return Pair{Image({depth, cs, l.order, h, w}, seed, rois ? sr : nullptr),
              Image({depth, cd, l.order, dh, dw}, seed + 1, rois ? dr : nullptr)};
}

// Every factor with every interpolation.
TEST(ZoomAndDecimate, MatchTheFormulasOnEveryDepthAndLayout) {
  Capture capture;
  const struct { const Op* op; std::vector<unsigned> depths; std::vector<Call> factors; } ops[] = {
      {&kZoom, {std::begin(kDepths), std::end(kDepths)}, {{1, 1, 1, 1, 0}, {2, 1, 3, 1, 0}, {3, 2, 5, 3, 0}, {7, 3, 1, 1, 0}}},
      {&kDecimate, {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16U},
       {{1, 1, 1, 1, 0}, {1, 2, 1, 3, 0}, {2, 3, 2, 3, 0}, {3, 5, 1, 2, 0}, {5, 7, 1, 1, 0}}},
  };
  unsigned seed = 1;
  for (const auto& [op, depths, factors] : ops)
    for (unsigned depth : depths)
      for (const Shape& l : kShapes)
        for (const auto& size : kSizes)
          for (Call c : factors)
            for (c.interpolate = 0; c.interpolate < 3; ++c.interpolate) {
              if (depth == MOX_DEPTH_1U && l.order == 1) continue;
              Pair p = makePair(*op, depth, l, size[0], size[1], c, seed += 2);
              const std::vector<ll> want = op->reference(p.src, p.dst, c);
              run(*op, p.src, p.dst, c);
              ASSERT_TRUE(reports().empty()) << reports()[0].message;
              ASSERT_EQ(pixels(p.dst), want) << op->name << " depth " << std::hex << depth << std::dec << " " << l.name
                                             << " " << size[0] << "x" << size[1] << " x" << c.xU << "/" << c.xL
                                             << " y" << c.yU << "/" << c.yL << " inter " << c.interpolate;
            }
}

// Linear zoom of 8-bit sources tall enough for the byte shuffles' plans
// to be made, on every layout.
TEST(ZoomAndDecimate, TallLinearBytesMatchTheFormulas) {
  Capture capture;
  unsigned seed = 7;
  for (const Shape& l : kShapes)
    for (Call c : {Call{2, 1, 2, 1, MOX_INTER_LINEAR}, Call{3, 2, 3, 2, MOX_INTER_LINEAR},
                   Call{7, 3, 5, 4, MOX_INTER_LINEAR}}) {
      Pair p = makePair(kZoom, MOX_DEPTH_8U, l, 45, 150, c, seed += 2);
      const std::vector<ll> want = kZoom.reference(p.src, p.dst, c);
      run(kZoom, p.src, p.dst, c);
      ASSERT_TRUE(reports().empty()) << reports()[0].message;
      ASSERT_EQ(pixels(p.dst), want) << l.name << " x" << c.xU << "/" << c.xL;
    }
}

// Hand-worked values: zoom on rows of 0 100 200 40, decimation on rows of
// 0 10 20 .. 150; the values from column `first` of row 0.
TEST(ZoomAndDecimate, KnownValues) {
  Capture capture;
  const struct { const Op* op; Call c; int first; std::vector<ll> want; } cases[] = {
      // Linear x2: halfway values; the last two columns are 40 and the
      // extrapolated 40 - 80 clamped to 0 (t = 1 and 1.5 past column 2).
      {&kZoom, {2, 1, 1, 1, MOX_INTER_LINEAR}, 0, {0, 50, 100, 150, 200, 120, 40, 0}},
      // Nearest x3/2 in 14-bit steps of 10922 (short of 2/3): columns 0, 0, 1, 1, 2, 3.
      {&kZoom, {3, 2, 1, 1, MOX_INTER_NN}, 0, {0, 0, 100, 100, 200, 40}},
      // Cubic at t = 1/2 between 100 and 200: (-0 + 9 * 100 + 9 * 200 - 40) / 16 = 166.25.
      {&kZoom, {2, 1, 1, 1, MOX_INTER_CUBIC}, 3, {166}},
      // 2:3 nearest: positions d * 384 + 128 take columns 0, 2, 3, 5, 6.
      {&kDecimate, {2, 3, 1, 1, MOX_INTER_NN}, 0, {0, 20, 30, 50, 60}},
      // 1:2 is integral on both axes: nearest, columns 0, 2, 4 whatever asked.
      {&kDecimate, {1, 2, 1, 2, MOX_INTER_CUBIC}, 0, {0, 20, 40, 60, 80, 100, 120, 140}},
      // 2:3 linear: column 1 sits at 1.5 (fraction 128): 15 exactly.
      {&kDecimate, {2, 3, 1, 1, MOX_INTER_LINEAR}, 1, {15}},
  };
  const ll zoomRow[] = {0, 100, 200, 40};
  for (const auto& k : cases) {
    const bool zoom = k.op->enlarges;
    Image s({MOX_DEPTH_8U, 1, 0, zoom ? 4 : 8, zoom ? 4 : 16}), d({MOX_DEPTH_8U, 1, 0, 8, 16});
    for (int i = 0; i < s->width * s->height; ++i) set(s, i % s->width, i / s->width, 0, zoom ? zoomRow[i % 4] : i % 16 * 10);
    run(*k.op, s, d, k.c);
    for (size_t i = 0; i < k.want.size(); ++i)
      EXPECT_EQ(get(d, k.first + int(i), 0), k.want[i]) << k.op->name << " " << k.c.xU << "/" << k.c.xL << " " << i;
  }
  EXPECT_TRUE(reports().empty());
}

// A point computes the pixel the whole run gives there and nothing else, in
// a plain or a tiled destination; outside the destination rectangle it does
// nothing.
TEST(ZoomAndDecimate, PointComputesOnePixel) {
  Capture capture;
  for (const Op* op : {&kZoom, &kDecimate})
    for (int in = 0; in < 3; ++in) {
      const Call c = op->enlarges ? Call{5, 3, 7, 2, in} : Call{2, 3, 3, 5, in};
      const int dr[5] = {0, 3, 2, 30, 30};
      Image s({MOX_DEPTH_8U, 3, 0, 17, 19}, 3), whole({MOX_DEPTH_8U, 3, 0, 40, 40}, 4, dr);
      run(*op, s, whole, c);
      for (auto [x, y] : {std::pair{3, 2}, {10, 7}, {14, 11}, {2, 2}, {3, 1}, {40, 5}, {-1, -1}}) {
        Image one({MOX_DEPTH_8U, 3, 0, 40, 40}, 4, dr);
        const int point[2] = {x, y};
        Tiled tiled(one, 16, 8);
        run(*op, s, tiled, c, point);
        run(*op, s, one, c, point);
        Image back({MOX_DEPTH_8U, 3, 0, 40, 40}, 4, dr), want({MOX_DEPTH_8U, 3, 0, 40, 40}, 4, dr);
        tiled.gather(back);
        ASSERT_EQ(back.bytes(), one.bytes()) << op->name << " tiled point " << x << "," << y;
        // The whole run leaves pixels outside its rectangle as they were.
        for (int ch = 0; ch < 3 && x >= 0 && x < 40 && y >= 0 && y < 40; ++ch)
          set(want, x, y, ch, get(whole, x, y, ch));
        ASSERT_EQ(one.bytes(), want.bytes()) << op->name << " point " << x << "," << y;
      }
    }
  EXPECT_TRUE(reports().empty());
}

// A point request whose source comes from tiles (alone, and with a tiled
// destination too) computes that pixel as the plain whole run does, also
// at the rectangle's edges and where the stencil reaches into the next
// source tile, and leaves every other pixel as it was.
TEST(ZoomAndDecimate, PointWithTiledSourceEqualsThePlainPixel) {
  Capture capture;
  const struct { unsigned depth; int channels, order; } shapes[] = {{MOX_DEPTH_8U, 3, 0}, {MOX_DEPTH_16U, 2, 1}, {MOX_DEPTH_1U, 1, 0}};
  for (const Op* op : {&kZoom, &kDecimate})
    for (const auto& sh : shapes)
      for (int in = 0; in < 3; ++in) {
        const Call c = op->enlarges ? Call{5, 3, 7, 2, in} : Call{2, 3, 3, 5, in};
        const int sr[5] = {0, 2, 1, 30, 27}, dr[5] = {0, 3, 2, 33, 34};
        Image s({sh.depth, sh.channels, sh.order, 31, 33}, 5, sr), whole({sh.depth, sh.channels, sh.order, 40, 40}, 6, dr);
        run(*op, s, whole, c);
        for (auto [x, y] : {std::pair{3, 2}, {4, 3}, {11, 9}, {20, 13}, {35, 34}, {29, 17}, {36, 38}})
          for (int both : {0, 1}) {
            Image one({sh.depth, sh.channels, sh.order, 40, 40}, 6, dr), want({sh.depth, sh.channels, sh.order, 40, 40}, 6, dr);
            Tiled ts(s, 8, 8), td(one, 16, 8);
            const int point[2] = {x, y};
            run(*op, ts, both ? +td : +one, c, point);
            if (both) td.gather(one);
            for (int ch = 0; ch < sh.channels; ++ch) set(want, x, y, ch, get(whole, x, y, ch));
            ASSERT_EQ(one.bytes(), want.bytes()) << op->name << " depth " << sh.depth << " inter " << in
                                                 << " point " << x << "," << y << " both tiled " << both;
            EXPECT_FALSE(ts.badIndex || td.badIndex);
          }
      }
  EXPECT_TRUE(reports().empty());
}

// Tiled sources, destinations and both, with tiles of 8, 24 and 64 pixels
// and ROIs that cross tile edges, give the plain result; the tiled runs go
// under the upward rounding mode, which neither changes the result nor is
// lost.
TEST(ZoomAndDecimate, TiledRunsEqualPlainRuns) {
  Capture capture;
  const struct { unsigned depth; int channels, order; } shapes[] = {{MOX_DEPTH_16U, 3, 1}, {MOX_DEPTH_8U, 3, 0}, {MOX_DEPTH_1U, 1, 0}};
  for (const Op* op : {&kZoom, &kDecimate})
    for (const auto& sh : shapes)
      for (int tile : {8, 24, 64})
        for (int tiled : {1, 2, 3})  // source, destination, both
          for (int in = 0; in < 3; ++in) {
            const Call c = op->enlarges ? Call{7, 3, 5, 2, in} : Call{2, 3, 5, 7, in};
            const int sr[5] = {0, 5, 3, 40, 50}, dr[5] = {0, 6, 9, 100, 110};
            Image s({sh.depth, sh.channels, sh.order, 50, 60}, 7, sr), plain({sh.depth, sh.channels, sh.order, 120, 130}, 8, dr),
                back({sh.depth, sh.channels, sh.order, 120, 130}, 8, dr);
            Tiled ts(s, tile, tile), td(plain, tile, tile);
            run(*op, s, plain, c);
            ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
            run(*op, tiled & 1 ? +ts : +s, tiled & 2 ? +td : +back, c);
            EXPECT_EQ(std::fegetround(), FE_UPWARD);
            std::fesetround(FE_TONEAREST);
            if (tiled & 2) td.gather(back);
            ASSERT_EQ(back.bytes(), plain.bytes())
                << op->name << " depth " << sh.depth << " tile " << tile << " tiled " << tiled
                << " inter " << in;
            EXPECT_FALSE(ts.badIndex || td.badIndex);
          }
  EXPECT_TRUE(reports().empty());
}

const char kSrcRoiOutside[] = "srcImage->roi->xOffset >= srcImage->width || srcImage->roi->yOffset >= srcImage->height";
const char kDstRoiOutside[] = "dstImage->roi->xOffset >= dstImage->width || dstImage->roi->yOffset >= dstImage->height";
const char kDecimateInter[] = "interpolate != MOX_INTER_NN, MOX_INTER_LINEAR or MOX_INTER_CUBIC";
const char kHeaderNull[] = "Image header is null";

TEST(ZoomAndDecimateChecks, EachCheckReportsItsTextAndLineAndWritesNothing) {
  const Call zoom{2, 1, 2, 1, MOX_INTER_LINEAR}, dec{2, 3, 2, 3, MOX_INTER_LINEAR};
  const struct {
    const Op* op; void (*spoil)(Image& s, Image& d); Call call;
    std::vector<std::pair<std::string, int>> reports;  // text and line, in order
    const char* file = nullptr; unsigned depth = MOX_DEPTH_8U;
  } cases[] = {
      {&kZoom, SPOIL(s->headerSize = 0), zoom, {{kHeaderNull, 494}}},
      {&kZoom, SPOIL(d->headerSize = 0), zoom, {{kHeaderNull, 495}}},
      {&kZoom, SPOIL(s->align = 3), zoom, {{"Image align is invalid", 494}}},
      {&kZoom, SPOIL(), {2, 1, 2, 1, 3},
       {{"interpolate != MOX_INTER_NN && interpolate != MOX_INTER_LINEAR && interpolate != MOX_INTER_CUBIC", 501}}},
      {&kZoom, SPOIL(d->depth = MOX_DEPTH_8S), zoom, {{"srcImage->depth != dstImage->depth", 502}}},
      {&kZoom, SPOIL(d->dataOrder = 1), zoom, {{"srcImage->dataOrder != dstImage->dataOrder", 503}}},
      {&kZoom, SPOIL(), {0, 1, 2, 1, 0}, {{"xU <= 0 || xL <= 0", 504}}},
      {&kZoom, SPOIL(), {1, -1, 2, 1, 0}, {{"xU <= 0 || xL <= 0", 504}}},
      {&kZoom, SPOIL(), {2, 1, 2, 0, 0}, {{"yU <= 0 || yL <= 0", 505}}},
      {&kZoom, SPOIL(), {1, 2, 1, 1, 0}, {{"xU < xL || yU < yL", 506}}},
      {&kZoom, SPOIL(), {3, 3, 2, 3, 0}, {{"xU < xL || yU < yL", 506}}},
      {&kZoom, SPOIL(s.roi(0, 10, 0, 3, 3)), zoom, {{kSrcRoiOutside, 507}}},
      {&kZoom, SPOIL(d.roi(0, 0, 30, 3, 3)), zoom, {{kDstRoiOutside, 508}}},
      {&kZoom, SPOIL(d.roi(2, 0, 0, 3, 3); s.roi(0, 0, 0, 3, 3)), zoom, {{"nChSrc != nChDst", 509}}},
      {&kZoom, SPOIL(s->widthStep = 8), zoom, {{"(srcImage->widthStep < the bytes of srcImage->width pixels)", 494}}},
      {&kDecimate, SPOIL(s->headerSize = 0), dec, {{kHeaderNull, 91}}},
      {&kDecimate, SPOIL(d->headerSize = 0), dec, {{kHeaderNull, 92}}},
      {&kDecimate, SPOIL(d->depth = MOX_DEPTH_16U), dec, {{"srcImage->depth != dstImage->depth", 93}}},
      {&kDecimate, SPOIL(d->origin = 1), dec, {{"srcImage->origin != dstImage->origin", 94}}},
      {&kDecimate, SPOIL(d->dataOrder = 1), dec, {{"srcImage->dataOrder != dstImage->dataOrder", 95}}},
      {&kDecimate, SPOIL(), {2, 3, 2, 3, -1}, {{kDecimateInter, 101}}},
      // Every failing check from the depths on reports.
      {&kDecimate, SPOIL(d->origin = 1), {0, 0, 0, 0, 7},
       {{"srcImage->origin != dstImage->origin", 94}, {kDecimateInter, 101}, {"xU <= 0", 106}, {"xL <= 0", 107},
        {"yU <= 0", 108}, {"yL <= 0", 109}}},
      {&kDecimate, SPOIL(), {3, 2, 5, 4, 0}, {{"xU > xL", 111}, {"yU > yL", 112}}},
      {&kDecimate, SPOIL(), dec, {{"srcImage->depth is wrong", 375}}, "owndecim", MOX_DEPTH_16S},
      {&kDecimate, SPOIL(), dec, {{"srcImage->depth is wrong", 375}}, "owndecim", MOX_DEPTH_8S},
      {&kDecimate, SPOIL(), dec, {{"srcImage->depth is wrong", 375}}, "owndecim", MOX_DEPTH_32S},
      {&kDecimate, SPOIL(s.roi(0, 0, 12, 3, 3)), dec, {{kSrcRoiOutside, 113}}},
      {&kDecimate, SPOIL(d.roi(0, 30, 0, 3, 3)), dec, {{kDstRoiOutside, 114}}},
      {&kDecimate, SPOIL(s.roi(1, 0, 0, 3, 3)), dec, {{"nChSrc != nChDst", 115}}},
  };
  Capture capture;
  for (const auto& k : cases) {
    Image s({k.depth, 3, 0, 12, 10}, 1), d({k.depth, 3, 0, 30, 30}, 2);
    k.spoil(s, d);
    const std::vector<char> before = d.bytes();
    run(*k.op, s->headerSize ? +s : nullptr, d->headerSize ? +d : nullptr, k.call);
    s->headerSize = d->headerSize = int(sizeof(MoxImage));
    for (const auto& [text, line] : k.reports) expectReport(k.op->name, text, line, k.file);
    EXPECT_TRUE(reports().empty()) << k.reports[0].first;
    reports().clear();
    EXPECT_EQ(d.bytes(), before) << k.reports[0].first;
  }
}

// A call-back that hands out no tile stops the work with the operation's
// own report.
TEST(ZoomAndDecimateChecks, TilesWithoutData) {
  Capture capture;
  const char* const kNoTile = "Error get tile to write";
  const struct { const Op* op; Call call; bool source, both; int status, line; const char *text, *file; } cases[] = {
      {&kZoom, {2, 1, 2, 1, 1}, false, false, MOX_StsUnknownError, 1031, kNoTile, "moxZoom"},
      {&kZoom, {2, 1, 2, 1, 1}, false, true, MOX_StsUnknownError, 658, kNoTile, "moxZoom"},
      {&kZoom, {2, 1, 2, 1, 1}, true, false, MOX_StsBadArgument, 709, "(srcImage->tileInfo->tileData == ((void*)(0)))",
       "moxZoom"},
      {&kDecimate, {1, 2, 2, 3, 1}, false, false, MOX_StsInternalError, 390, "dstImage->tileInfo->callBack crash", "owndecim"},
      {&kDecimate, {1, 2, 2, 3, 1}, true, true, MOX_StsInternalError, 385, "srcImage->tileInfo->callBack crash", "owndecim"},
  };
  for (const auto& k : cases) {
    Image s({MOX_DEPTH_8U, 1, 0, 40, 40}, 1), plain({MOX_DEPTH_8U, 1, 0, 40, 40}, 2);
    Tiled ts(s, 16, 16), td(plain, 16, 16);
    (k.source ? ts : td).nullOnGet = 1;
    run(*k.op, k.source || k.both ? +ts : +s, k.source && !k.both ? +plain : +td, k.call);
    ASSERT_EQ(reports().size(), 1u) << k.text;
    const Report r = reports()[0];
    EXPECT_EQ(std::tie(r.status, r.func, r.message, r.file, r.line),
              std::make_tuple(k.status, std::string(k.op->name), std::string(k.text), std::string(k.file), k.line));
    reports().clear();
  }
}

}  // namespace
