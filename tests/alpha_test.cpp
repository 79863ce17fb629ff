// Scaled products, premultiplication and composition against the exact
// quotients and formulas, on ROIs, channels of interest, plane order, in
// place; tiled runs against plain runs; every check's text and line.
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

namespace {

// a * b / max, the quotient's integer part: what the shift form computes.
ll scaled(ll a, ll b, ll max) { return a * b / max; }
ll maxOf(unsigned depth) { return depth == MOX_DEPTH_8U ? 255 : 65535; }

const int kRoiA[5] = {0, 3, 1, 8, 30}, kRoiB[5] = {0, 5, 2, 7, 29}, kRoiD[5] = {0, 11, 4, 9, 33};

// One pixel's composition: x, y premultiplied colours (or the alphas), aa, ab
// the alphas.
ll combine(int type, ll x, ll y, ll aa, ll ab, ll M) {
  auto m = [M](ll a, ll b) { return a * b / M; };
  switch (type) {
    case MOX_COMPOSITE_OVER: return std::min(M, x + m(y, M - aa));
    case MOX_COMPOSITE_IN: return m(x, ab);
    case MOX_COMPOSITE_OUT: return m(x, M - ab);
    case MOX_COMPOSITE_ATOP: return std::min(M, m(x, ab) + m(y, M - aa));
    case MOX_COMPOSITE_XOR: return std::min(M, m(x, M - ab) + m(y, M - aa));
    default: return std::min(M, x + y);
  }
}

}  // namespace

// Every pair of 8-bit values; every pair of the 16-bit edges; the scalar
// form with values in and beyond each range.
TEST(Alpha, ScaledMultiplyAgainstTheQuotient) {
  Capture capture;
  const ll edges[] = {0, 1, 2, 255, 256, 32767, 32768, 65534, 65535};
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U}) {
    const Shape shape{depth, 1, 0, 256, 256};
    Image a(shape, 5), b(shape, 6), d(shape);
    const ll m = maxOf(depth);
    for (int i = 0; i < 65536; ++i) {
      if (depth == MOX_DEPTH_8U) set(a, i % 256, i / 256, 0, i % 256), set(b, i % 256, i / 256, 0, i / 256);
      if (depth == MOX_DEPTH_16U && i < 81) set(a, i, 0, 0, edges[i / 9]), set(b, i, 0, 0, edges[i % 9]);
    }
    moxMultiplyScale(a, b, d, nullptr);
    EXPECT_EQ(pixels(d), expected({a, b, d}, [&](const ll* v) { return scaled(v[0], v[1], m); })) << depth;
    for (int v : {0, 1, 3, 254, 255, 256, 65535, 65536, -1, INT_MIN}) {
      const ll by = unsigned(v) > unsigned(m) ? m : v;
      moxMultiplySScale(a, d, v, nullptr);
      EXPECT_EQ(pixels(d), expected({a, d}, [&](const ll* p) { return scaled(p[0], by, m); })) << depth << " " << v;
    }
    const auto inPlace = expected({a, b, a}, [&](const ll* v) { return scaled(v[0], v[1], m); });
    moxMultiplyScale(a, b, a, nullptr);
    EXPECT_EQ(pixels(a), inPlace) << depth << " in place";
  }
  // A source's channel of interest does not narrow a destination without
  // one; value -1 multiplies by 255, a copy.
  Image a({MOX_DEPTH_8U, 3, 0, 4, 4}, 1), d({MOX_DEPTH_8U, 3, 0, 4, 4}, 2);
  a.roi(2, 0, 0, 4, 4), d.roi(0, 0, 0, 4, 4);
  moxMultiplySScale(a, d, -1, nullptr);
  EXPECT_EQ(d.bytes(), a.bytes());
  EXPECT_TRUE(reports().empty());
}

TEST(Alpha, PreMultiplyByOwnAlphaOrByAConstant) {
  Capture capture;
  const int roi[5] = {1, 3, 2, 5, 9};  // the channel of interest does not narrow it
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U})
    for (int order : {0, 1})
      for (int channels : {1, 2, 4})
        for (int value : {-1, -70, 0, 100, 255, 300, 70000}) {
          Image im({depth, channels, order, 9, 14}, 7, roi);
          im->alphaChannel = channels;
          const ll m = maxOf(depth), alpha = value < 0 ? -1 : std::min<ll>(value, m);
          auto want = pixels(im);
          for (int y = 2; y < 7; ++y)
            for (int x = 3; x < 12; ++x) {
              const ll by = alpha < 0 ? get(im, x, y, channels - 1) : alpha;
              for (int c = 0; c < channels; ++c)
                want[(size_t(y) * 14 + x) * channels + c] = c == channels - 1 ? by : scaled(get(im, x, y, c), by, m);
            }
          moxPreMultiplyAlpha(im, value, nullptr);
          EXPECT_EQ(pixels(im), want) << depth << " " << order << " " << channels << " " << value;
        }
  EXPECT_TRUE(reports().empty());
}

// Every type with constant alphas, alpha images, the images' own alpha
// channels and opaque defaults; premultiplied inputs and the divide mode.
TEST(Composite, EveryTypeAgainstTheFormulas) {
  Capture capture;
  enum Source { kConstant, kImage, kOwn, kOpaque };
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U})
    for (int order : {0, 1})
      for (int type = MOX_COMPOSITE_OVER; type <= MOX_COMPOSITE_PLUS; ++type)
        for (Source src : {kConstant, kImage, kOwn, kOpaque})
          for (int premul : {0, 1})
            for (int divide : {0, 1}) {
              const ll M = maxOf(depth);
              // A: colour, alpha; B: alpha first, colour; D: colour, alpha
              Image a({depth, 2, order, 6, 9}, 1), b({depth, 2, order, 6, 9}, 2), d({depth, 2, order, 6, 9}, 3),
                  aa({depth, 1, order, 6, 9}, 4), ab({depth, 3, order, 6, 9}, 5), ad({depth, 1, order, 6, 9}, 6);
              ab.roi(2, 0, 0, 6, 9);
              if (src == kOwn) a->alphaChannel = 2, b->alphaChannel = 1;
              else a->nChannels = b->nChannels = 1;  // (the layouts stay large enough)
              d->alphaChannel = 2;
              const int kA = int(M / 3), kB = int(M - 5);
              std::vector<ll> want = pixels(d), wantAlpha = pixels(ad);
              for (int i = 0; i < 54; ++i) {
                const int x = i % 9, y = i / 9;
                const ll alA = src == kConstant ? kA : src == kImage ? get(aa, x, y) : src == kOwn ? get(a, x, y, 1) : M;
                const ll alB = src == kConstant ? kB : src == kImage ? get(ab, x, y, 1) : src == kOwn ? get(b, x, y) : M;
                ll ca = get(a, x, y), cb = get(b, x, y, src == kOwn ? 1 : 0);
                if (!premul) ca = ca * alA / M, cb = cb * alB / M;
                const ll out = combine(type, alA, alB, alA, alB, M);
                ll c = combine(type, ca, cb, alA, alB, M);
                if (divide) c = out ? std::min(M, (c * M + out / 2) / out) : 0;
                want[size_t(i) * 2] = c, want[size_t(i) * 2 + 1] = out;
                if (src == kImage) wantAlpha[size_t(i)] = out;
              }
              MoxImage* alphas[3] = {aa, ab, ad};
              if (src != kImage) alphas[0] = alphas[1] = alphas[2] = nullptr;
              if (src == kConstant) moxAlphaCompositeC(a, b, d, type, kA, kB, premul, divide);
              else moxAlphaComposite(a, b, d, type, alphas[0], alphas[1], alphas[2], premul, divide);
              EXPECT_EQ(pixels(d), want) << type << " " << src << premul << divide << " " << order << " " << depth;
              EXPECT_EQ(pixels(ad), wantAlpha) << type << " " << src;
            }
  EXPECT_TRUE(reports().empty());
}

// OVER of four-channel 8-bit pixels with the alpha last runs four pixels at
// a time, the rest of a row one by one: rows of every length around that
// against the formulas, with every pair of edge alphas, straight and
// premultiplied colours (also brighter than their alpha), with and without
// the division.
TEST(Composite, OverFourPixelsAtATime) {
  Capture capture;
  const ll alphas[] = {0, 1, 2, 127, 128, 254, 255};
  constexpr int kPairs = 7 * 7;
  for (int width : {1, 3, 4, 5, 7, 9, 17})
    for (int premul : {0, 1})
      for (int divide : {0, 1}) {
        const int height = (kPairs + width - 1) / width + 1;
        Image a({MOX_DEPTH_8U, 4, 0, height, width}, 11), b({MOX_DEPTH_8U, 4, 0, height, width}, 12),
            d({MOX_DEPTH_8U, 4, 0, height, width}, 13);
        a->alphaChannel = b->alphaChannel = d->alphaChannel = 4;
        std::vector<ll> want(size_t(width) * height * 4);
        for (int i = 0; i < width * height; ++i) {
          const int x = i % width, y = i / width;
          const ll alA = alphas[i % 7], alB = alphas[i / 7 % 7];
          set(a, x, y, 3, alA), set(b, x, y, 3, alB);
          const ll out = combine(MOX_COMPOSITE_OVER, alA, alB, alA, alB, 255);
          for (int c = 0; c < 3; ++c) {
            ll ca = get(a, x, y, c), cb = get(b, x, y, c);
            if (!premul) ca = ca * alA / 255, cb = cb * alB / 255;
            ll v = combine(MOX_COMPOSITE_OVER, ca, cb, alA, alB, 255);
            if (divide) v = out ? std::min(255LL, (v * 255 + out / 2) / out) : 0;
            want[size_t(i) * 4 + c] = v;
          }
          want[size_t(i) * 4 + 3] = out;
        }
        moxAlphaComposite(a, b, d, MOX_COMPOSITE_OVER, nullptr, nullptr, nullptr, premul, divide);
        EXPECT_EQ(pixels(d), want) << width << " " << premul << divide;
      }
  EXPECT_TRUE(reports().empty());
}

// Products over the common rectangle of ROIs of different sizes, where a
// channel of interest on the destination takes each source's own, in both
// orders; every operation through tiles gives the plain run's bits; a
// requested destination tile only; failing call-backs.
TEST(Alpha, RoisChannelsPlanesAndTiles) {
  Capture capture;
  const int cois[][3] = {{0, 0, 0}, {3, 1, 2}, {2, 4, 1}};
  for (unsigned depth : {MOX_DEPTH_8U, MOX_DEPTH_16U})
    for (int order : {0, 1})
      for (int op = 0; op < 4; ++op)
        for (const auto& coi : cois) {
          if (op >= 2 && coi[0]) continue;
          Image a({depth, 4, order, 12, 40}, 1, kRoiA), b({depth, 4, order, 9, 35}, 2, kRoiB),
              d({depth, 4, order, 14, 50}, 3, kRoiD), out({depth, 4, order, 14, 50}, 3, kRoiD),
              al({depth, 1, order, 20, 50}, 4), alOut({depth, 1, order, 20, 50}, 4);
          a->roi->coi = coi[0], b->roi->coi = coi[1], d->roi->coi = out->roi->coi = coi[2];
          const ll m = maxOf(depth);
          const auto want = op ? expected({a, d}, [&](const ll* v) { return scaled(v[0], 99, m); })
                               : expected({a, b, d}, [&](const ll* v) { return scaled(v[0], v[1], m); });
          Tiled ta(a, 8, 16), tb(b, 16, 8), td(d, 24, 8), tl(al, 8, 8);
          for (MoxImage* im : {+a, +b, +d, +ta, +tb, +td}) im->alphaChannel = 4;
          const auto run = [op](MoxImage* x, MoxImage* y, MoxImage* z, MoxImage* w) {
            if (op == 0) moxMultiplyScale(x, y, z, nullptr);
            if (op == 1) moxMultiplySScale(x, z, 99, nullptr);
            if (op == 2) moxPreMultiplyAlpha(z, -1, nullptr);
            if (op == 3) moxAlphaComposite(x, y, z, MOX_COMPOSITE_ATOP, nullptr, nullptr, w, 0, 1);
          };
          run(a, b, d, al), run(ta, tb, td, tl);
          td.gather(out), tl.gather(alOut);
          if (op < 2) { EXPECT_EQ(pixels(d), want) << op << " " << order << " " << depth << " " << coi[0]; }
          EXPECT_EQ(pixels(out), pixels(d)) << op << " " << order << " " << depth;
          EXPECT_EQ(pixels(alOut), pixels(al)) << op << " " << order << " " << depth;
        }
  // One destination tile: rows 8..15, columns 24..47 of the destination.
  Image a({MOX_DEPTH_8U, 1, 0, 12, 40}, 1, kRoiA), d({MOX_DEPTH_8U, 1, 0, 14, 50}, 3, kRoiD),
      out({MOX_DEPTH_8U, 1, 0, 14, 50}, 3);
  const auto want = expected({a, d}, [](const ll* v) { return scaled(v[0], 9, 255); }, Rect{24, 8, 24, 8});
  Tiled td(d, 24, 8), ta(a, 8, 8), failing(a, 8, 8), tn(d, 8, 8);
  const int mapping[2] = {1, 1}, outside[2] = {5, 0};
  moxMultiplySScale(a, td, 9, mapping);
  td.gather(out);
  EXPECT_EQ(pixels(out), want);
  moxMultiplySScale(a, td, 9, outside);
  expectReport("moxMultiplySScale", "(dTile.begX > dRoi.endX)", 640, "moxalpha");
  failing.nullOnGet = 0;
  moxAlphaCompositeC(ta, failing, td, MOX_COMPOSITE_OVER, 1, 2, 0, 0);
  expectReport("moxAlphaCompositeC", "ERROR in Tiling callBack", 1066, "moxalpha");
  tn.nullOnGet = 0;
  tn->alphaChannel = 1;
  moxPreMultiplyAlpha(tn, 5, nullptr);
  expectReport("moxPreMultiplyAlpha", "ERROR in Tiling callBack", 904, "moxalpha");
  tn.keepOnRelease = 0;
  moxMultiplyScale(a, a, tn, nullptr);
  expectReport("moxMultiplyScale", "ERROR in Tiling callBack", 824, "moxalpha");
  EXPECT_TRUE(reports().empty());
}

// Every check: its text and line, and nothing written.
TEST(AlphaChecks, EveryCheckReportsItsTextAndLine) {
  Capture capture;
  // The call's images (a 16-bit one to spoil with) and composite type.
  struct Set { MoxImage *a, *b, *d, *alB, *alD, *x; int type; };
#define C(...) [](Set& s) { (void)s; __VA_ARGS__; }
  enum { kScaleS, kScale, kPremul, kCompositeC, kComposite };
  const struct { int op; void (*spoil)(Set& s); const char* text; int line; } cases[] = {
      {kScaleS, C(s.d = nullptr), "dstImage==0", 601},
      {kScaleS, C(s.d->align = 3), "moxBadImageHeader(dstImage) != 0", 601},
      {kScaleS, C(s.a->roi = moxCreateROI(0, 99, 0, 1, 1)), "srcImage->roi->xOffset >= srcImage->width", 602},
      {kScaleS, C(s.a->roi = moxCreateROI(0, 0, 9, 1, 1)), "srcImage->roi->yOffset >= srcImage->height", 602},
      {kScaleS, C(s.a->widthStep = 2), "(srcImage->widthStep < the bytes of srcImage->width pixels)", 602},
      {kScaleS, C(s.d->depth = MOX_DEPTH_8S), "dstImage->depth != 8 && dstImage->depth != 16", 603},
      {kScaleS, C(s.a = s.x), "srcImage->depth != dstImage->depth", 604},
      {kScaleS, C(s.d->roi = moxCreateROI(1, 0, 0, 2, 2)), "dstImage->roi->coi > 0 && srcImage->roi == 0", 605},
      {kScaleS, C(s.d->roi = moxCreateROI(1, 0, 0, 2, 2), s.a->roi = moxCreateROI(0, 0, 0, 2, 2)),
       "dstImage->roi->coi > 0 && srcImage->roi->coi == 0", 605},
      {kScaleS, C(s.a->roi = moxCreateROI(1, 0, 0, 2, 2)), "srcImage->roi->coi > 0 && dstImage->roi == 0", 605},
      {kScaleS, C(s.a->dataOrder = 1, s.a->imageSize *= 2), "srcImage->dataOrder != dstImage->dataOrder", 606},
      {kScaleS, C(s.a->nChannels = 1), "srcImage->nChannels != dstImage->nChannels", 607},
      {kScale, C(s.d->tileInfo = moxCreateTileInfo(nullptr, 0, 8, 8)), "moxBadImageHeader(dstImage) != 0", 726},
      {kScale, C(s.a->height = 0), "moxBadImageHeader(srcImageA) != 0", 727},
      {kScale, C(s.b->roi = moxCreateROI(4, 0, 0, 2, 2)), "moxBadImageHeader(srcImageB) != 0", 728},
      {kScale, C(s.d->depth = MOX_DEPTH_8S), "dstImage->depth != 8 && dstImage->depth != 16", 729},
      {kScale, C(s.b->depth = MOX_DEPTH_8S), "srcImageB->depth != dstImage->depth", 730},
      {kScale, C(s.b->roi = moxCreateROI(2, 0, 0, 2, 2)), "srcImageB->roi->coi > 0 && dstImage->roi == 0", 730},
      {kScale, C(s.d->roi = moxCreateROI(2, 0, 0, 2, 2)), "dstImage->roi->coi > 0 && srcImageB->roi == 0", 730},
      {kScale, C(s.d->roi = moxCreateROI(2, 0, 0, 2, 2), s.b->roi = moxCreateROI(1, 0, 0, 2, 2)),
       "dstImage->roi->coi > 0 && srcImageA->roi == 0", 730},
      {kScale, C(s.b->dataOrder = 1, s.b->imageSize *= 2), "srcImageB->dataOrder != dstImage->dataOrder", 730},
      {kScale, C(s.a->nChannels = 1), "srcImageA->nChannels != dstImage->nChannels", 730},
      {kPremul, C(s.d = nullptr), "image==0", 856},
      {kPremul, C(s.d->imageSize = 0), "moxBadImageHeader(image) != 0", 856},
      {kPremul, C(s.d->depth = MOX_DEPTH_8S), "image->depth != 8 && image->depth != 16", 857},
      {kPremul, C(s.d->alphaChannel = 1), "image->alphaChannel > 0 && image->alphaChannel != image->nChannels", 858},
      {kPremul, C(s.d->alphaChannel = 0), "image->alphaChannel < 1", 859},
      {kCompositeC, C(s.b = nullptr), "srcImageB==0", 1003},
      {kCompositeC, C(s.b->alphaChannel = 0), "(nColorB != nColorDst)", 1007},
      {kCompositeC, C(s.type = -1), "compositeType < MOX_COMPOSITE_OVER || compositeType > MOX_COMPOSITE_PLUS", 1008},
      {kCompositeC, C(s.type = 6), "compositeType < MOX_COMPOSITE_OVER || compositeType > MOX_COMPOSITE_PLUS", 1008},
      {kComposite, C(s.d->depth = MOX_DEPTH_8S), "dstImage->depth != 8 && dstImage->depth != 16", 1107},
      {kComposite, C(s.type = 6), "compositeType < MOX_COMPOSITE_OVER || compositeType > MOX_COMPOSITE_PLUS", 1111},
      {kComposite, C(s.alD = s.a),
       "alphaImageDst->nChannels != 1 && (alphaImageDst->roi == 0 || alphaImageDst->roi->coi == 0)", 1112},
      {kComposite, C(s.alB = s.x), "alphaImageB->depth != dstImage->depth", 1112},
  };
#undef C
  const char* funcs[] = {"moxMultiplySScale", "moxMultiplyScale", "moxPreMultiplyAlpha", "moxAlphaCompositeC",
                         "moxAlphaComposite"};
  for (const auto& k : cases) {
    Image a({MOX_DEPTH_8U, 2, 0, 4, 6}, 1), b({MOX_DEPTH_8U, 2, 0, 4, 6}, 2), d({MOX_DEPTH_8U, 2, 0, 4, 6}, 3),
        x({MOX_DEPTH_16U, 2, 0, 4, 6}, 4);
    d->alphaChannel = 2;
    if (k.op >= kCompositeC) a->alphaChannel = b->alphaChannel = 2;
    const auto before = d.bytes();
    Set s{a, b, d, nullptr, nullptr, x, MOX_COMPOSITE_OVER};
    k.spoil(s);
    if (k.op == kScaleS) moxMultiplySScale(s.a, s.d, 3, nullptr);
    if (k.op == kScale) moxMultiplyScale(s.a, s.b, s.d, nullptr);
    if (k.op == kPremul) moxPreMultiplyAlpha(s.d, 3, nullptr);
    if (k.op == kCompositeC) moxAlphaCompositeC(s.a, s.b, s.d, s.type, 1, 2, 0, 0);
    if (k.op == kComposite) moxAlphaComposite(s.a, s.b, s.d, s.type, nullptr, s.alB, s.alD, 0, 0);
    expectReport(funcs[k.op], k.text, k.line, "moxalpha");
    EXPECT_TRUE(reports().empty());
    d->imageSize = int(before.size());
    EXPECT_EQ(d.bytes(), before) << k.text;
    if (d->tileInfo) moxDeleteTileInfo(d->tileInfo), d->tileInfo = nullptr;
  }
}
