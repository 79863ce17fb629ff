// moxMultiplySScale, moxMultiplyScale, moxPreMultiplyAlpha,
// moxAlphaComposite, moxAlphaCompositeC: products and compositions of values
// read as fractions of the depth's maximum, every product through the
// scaled multiply.
#include <algorithm>
#include <array>
#include <cstdio>

#include "alpha/alpha.h"

namespace mox::alpha {
namespace {

constexpr const char* kFile = "moxalpha";
constexpr const char* kTilingText = "ERROR in Tiling callBack";

// The walk of an alpha operation: every tile call-back failure has one text.
WalkPlan tilingPlan(const char* func, const WalkLines* lines, bool wholeImage) {
  WalkPlan plan{func, kFile, lines, wholeImage};
  plan.nullText = plan.releaseText = kTilingText;
  return plan;
}

// The full chain on one image, then its layout, both at one line.
bool failsImage(const MoxImage* image, const char* name, const Site& at) {
  return failsFullChain(image, name, at) || badLayout(image, name, at);
}

// "name->depth != other->depth" and the like, with the images' names (the
// second may stand twice).
bool failsPair(bool bad, const Site& at, const char* pattern, const char* a, const char* b) {
  if (!bad) return false;
  char text[160];
  std::snprintf(text, sizeof text, pattern, a, b, b);
  report(at, text);
  return true;
}

bool hasCoi(const MoxImage* im) { return im->roi && im->roi->coi > 0; }

// The channel-of-interest pairings of a source s and the destination d.
bool srcCoiWithoutDstRoi(const MoxImage* s, const char* sn, const MoxImage* d, const Site& at) {
  return failsPair(hasCoi(s) && !d->roi, at, "%s->roi->coi > 0 && %s->roi == 0", sn, "dstImage");
}
bool dstCoiWithoutSrcCoi(const MoxImage* s, const char* sn, const MoxImage* d, const Site& at) {
  return failsPair(hasCoi(d) && !s->roi, at, "dstImage->roi->coi > 0 && %s->roi == 0", sn, "") ||
         failsPair(hasCoi(d) && !hasCoi(s), at, "dstImage->roi->coi > 0 && %s->roi->coi == 0", sn,
                   "");
}
bool differ(const MoxImage* s, const char* sn, const MoxImage* d, const Site& at) {
  return failsPair(s->depth != d->depth, at, "%s->depth != %s->depth", sn, "dstImage");
}
bool differInOrder(const MoxImage* s, const char* sn, const MoxImage* d, const Site& at) {
  return failsPair(s->dataOrder != d->dataOrder, at, "%s->dataOrder != %s->dataOrder", sn,
                   "dstImage");
}
bool differInChannels(const MoxImage* s, const char* sn, const MoxImage* d, const Site& at) {
  return failsPair(s->nChannels != d->nChannels, at, "%s->nChannels != %s->nChannels", sn,
                   "dstImage");
}
bool badDepth(const MoxImage* d, const Site& at) {
  return failsAt(d->depth != MOX_DEPTH_8U && d->depth != MOX_DEPTH_16U, at,
               "dstImage->depth != 8 && dstImage->depth != 16");
}

// ---------------------------------------------------------------- products

struct ScaleS : Rule {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return scaledMul<D>(a, static_cast<std::uint32_t>(s.value));
  }
};

struct Scale : Rule {
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return scaledMul<D>(a, b);
  }
};

// Without a channel of interest on the destination every channel is
// processed, whatever channel the sources name.
template <class Op, class D, int N>
void productKernel(const View* views, const void* arg) {
  View v[N];
  for (int i = 0; i < N; ++i) v[i] = views[i];
  if (v[N - 1].coi == 0)
    for (int i = 0; i < N; ++i) v[i].coi = 0;
  pointKernel<Op, D, N>(v, arg);
}

template <class Op, int N>
Kernel productFor(unsigned depth) {
  return depth == MOX_DEPTH_8U ? &productKernel<Op, U8, N> : &productKernel<Op, U16, N>;
}

void walkProduct(const WalkPlan& plan, const WalkImage* images, int n, const int* mapping,
                 Kernel kernel, const OpArgs& args) {
  walk(plan, images, n, mapping, kernel, &args);
#if defined(__SSE2__)
  _mm_sfence();
#endif
}

constexpr WalkLines kScaleSLines{{640, 641, 642, 643}, {655, 668, 681, 683, 694, 696, 708, 713}};
constexpr WalkLines kScaleLines{{770, 771, 772, 773},
                                {785, 792, 799, 806, 808, 815, 817, 824, 826, 833, 836, 839}};
constexpr WalkLines kPremulLines{{880, 881, 882, 883}, {895, 902, 904, 910}};

// ---------------------------------------------------------------- premultiply

struct PremulArgs {
  int alpha;   // the alpha channel, from 0
  int value;   // the new alpha, or -1: each pixel's own
};

// Four-channel 8-bit pixels with the alpha last, four at a time: the
// products in 16-bit lanes, the alpha bytes put back (or set to the
// constant). Returns the pixels done.
inline int premulQuads(std::uint8_t* p, int width, int value) {
  int x = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi16(1), k257 = _mm_set1_epi16(257);
  const __m128i alphaBytes = _mm_set1_epi32(static_cast<int>(0xFF000000u));
  const __m128i constant = _mm_set1_epi16(static_cast<short>(value < 0 ? 0 : value));
  const __m128i constantAlpha = _mm_set1_epi32(static_cast<int>(std::uint32_t(value < 0 ? 0 : value) << 24));
  // (q + 1 + (q >> 8)) >> 8 equals ((q + 1) * 257) >> 16 for every q up to
  // 255 * 255: the high half of one 16-bit product.
  auto scale = [&](__m128i v, __m128i al) {
    return _mm_mulhi_epu16(_mm_add_epi16(_mm_mullo_epi16(v, al), one), k257);
  };
  for (; x + 4 <= width; x += 4) {
    __m128i* at = reinterpret_cast<__m128i*>(p + 4 * x);
    const __m128i v = _mm_loadu_si128(at);
    const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
    __m128i alo = constant, ahi = constant, keep = constantAlpha;
    if (value < 0) {
      alo = _mm_shufflehi_epi16(_mm_shufflelo_epi16(lo, 0xFF), 0xFF);
      ahi = _mm_shufflehi_epi16(_mm_shufflelo_epi16(hi, 0xFF), 0xFF);
      keep = _mm_and_si128(v, alphaBytes);
    }
    const __m128i r = _mm_packus_epi16(scale(lo, alo), scale(hi, ahi));
    _mm_storeu_si128(at, _mm_or_si128(_mm_andnot_si128(alphaBytes, r), keep));
  }
#else
  (void)p, (void)width, (void)value;
#endif
  return x;
}

template <class D>
void premulKernel(const View* views, const void* arg) {
  using T = typename D::T;
  const auto& a = *static_cast<const PremulArgs*>(arg);
  const View& v = views[0];
  const int n = v.nChannels;
  if (v.dataOrder == 0) {
    for (int y = 0; y < v.height; ++y) {
      T* p = reinterpret_cast<T*>(v.data + std::ptrdiff_t(y) * v.widthStep);
      int x = 0;
      if constexpr (D::bits == 8)
        if (n == 4 && a.alpha == 3) x = premulQuads(p, v.width, a.value), p += 4 * x;
      for (; x < v.width; ++x, p += n) {
        const std::uint32_t al = a.value < 0 ? p[a.alpha] : std::uint32_t(a.value);
        for (int c = 0; c < n; ++c) p[c] = c == a.alpha ? T(al) : scaledMul<D>(p[c], al);
      }
    }
    return;
  }
  const char* alphaPlane = v.data + std::ptrdiff_t(a.alpha) * v.planeStep;
  for (int c = 0; c < n; ++c) {
    if (c == a.alpha) continue;
    for (int y = 0; y < v.height; ++y) {
      T* p = reinterpret_cast<T*>(v.data + std::ptrdiff_t(c) * v.planeStep +
                                  std::ptrdiff_t(y) * v.widthStep);
      const T* al = reinterpret_cast<const T*>(alphaPlane + std::ptrdiff_t(y) * v.widthStep);
      if (a.value < 0)
        for (int x = 0; x < v.width; ++x) p[x] = scaledMul<D>(p[x], al[x]);
      else
        for (int x = 0; x < v.width; ++x) p[x] = scaledMul<D>(p[x], std::uint32_t(a.value));
    }
  }
  if (a.value < 0) return;
  for (int y = 0; y < v.height; ++y) {
    T* p = reinterpret_cast<T*>(const_cast<char*>(alphaPlane) + std::ptrdiff_t(y) * v.widthStep);
    for (int x = 0; x < v.width; ++x) p[x] = T(a.value);
  }
}


// ---------------------------------------------------------------- composition

// Where one image's values of a piece are: its view, its alpha channel
// (from 0, or -1) and the channel an alpha image gives.
struct Plane {
  const View* v;
  int alpha;
};

template <class T>
inline T& at(const View& v, int x, int y, int c) {
  const std::ptrdiff_t col = v.dataOrder == 0 ? std::ptrdiff_t(x) * v.nChannels + c : x;
  char* row = v.data + std::ptrdiff_t(y) * v.widthStep +
              (v.dataOrder == 0 ? 0 : std::ptrdiff_t(c) * v.planeStep);
  return reinterpret_cast<T*>(row)[col];
}

// The channel an alpha image lends: its channel of interest, else its first.
inline int lentChannel(const View& v) { return v.coi > 0 ? v.coi - 1 : 0; }

struct CompositeArgs {
  int type;
  bool premultiplied, divide;
  int constant[2];  // alphas of A and B, or -1
  int alphaImage[3];  // views of the alpha images of A, B and the result, or -1
  int alpha[3];     // alpha channels of A, B and the destination (from 0), or -1
  int colours;      // colour channels of each image
};

// x and y are premultiplied colours (or the alphas themselves).
template <class D>
inline std::uint32_t combine(int type, std::uint32_t x, std::uint32_t y, std::uint32_t aa,
                             std::uint32_t ab) {
  constexpr std::uint32_t M = D::hi;
  auto m = [](std::uint32_t a, std::uint32_t b) -> std::uint32_t { return scaledMul<D>(a, b); };
  auto sat = [](std::uint32_t v) { return v > M ? M : v; };
  switch (type) {
    case MOX_COMPOSITE_OVER:
      return sat(x + m(y, M - aa));
    case MOX_COMPOSITE_IN:
      return m(x, ab);
    case MOX_COMPOSITE_OUT:
      return m(x, M - ab);
    case MOX_COMPOSITE_ATOP:
      return sat(m(x, ab) + m(y, M - aa));
    case MOX_COMPOSITE_XOR:
      return sat(m(x, M - ab) + m(y, M - aa));
    default:
      return sat(x + y);
  }
}

// The k-th colour channel of an image whose alpha channel is `alpha`.
inline int colourChannel(int k, int alpha) { return alpha >= 0 && k >= alpha ? k + 1 : k; }

// One pixel of any composition. Views: A, B, then the alpha images present
// (A's, B's, the result's), then the destination at views[n].
template <class D>
void compositePixel(const View* views, const CompositeArgs& a, int n, int x, int y) {
  using T = typename D::T;
  constexpr std::uint32_t M = D::hi;
  const View& d = views[n];
  std::uint32_t alpha[2];
  for (int s = 0; s < 2; ++s) {
    const int img = a.alphaImage[s];
    alpha[s] = a.constant[s] >= 0 ? std::uint32_t(a.constant[s])
               : img >= 0         ? at<T>(views[img], x, y, lentChannel(views[img]))
               : a.alpha[s] >= 0  ? at<T>(views[s], x, y, a.alpha[s])
                                  : M;
  }
  const std::uint32_t out = combine<D>(a.type, alpha[0], alpha[1], alpha[0], alpha[1]);
  for (int k = 0; k < a.colours; ++k) {
    std::uint32_t c[2];
    for (int s = 0; s < 2; ++s) {
      c[s] = at<T>(views[s], x, y, colourChannel(k, a.alpha[s]));
      if (!a.premultiplied) c[s] = scaledMul<D>(c[s], alpha[s]);
    }
    std::uint32_t r = combine<D>(a.type, c[0], c[1], alpha[0], alpha[1]);
    if (a.divide) r = out ? std::min<std::uint32_t>(M, (r * M + out / 2) / out) : 0;
    at<T>(d, x, y, colourChannel(k, a.alpha[2])) = T(r);
  }
  if (a.alpha[2] >= 0) at<T>(d, x, y, a.alpha[2]) = T(out);
  if (const int img = a.alphaImage[2]; img >= 0)
    at<T>(views[img], x, y, lentChannel(views[img])) = T(out);
}

// 65536 / alpha in 16 bits (alpha 0 as 1): the first guess of a quotient.
constexpr auto kReciprocals = [] {
  std::array<std::uint16_t, 256> r{};
  for (unsigned v = 0; v < 256; ++v) r[v] = std::uint16_t(std::min(65535u, 65536u / (v ? v : 1)));
  return r;
}();

// OVER of four-channel 8-bit pixels whose alpha is the last channel of A, B
// and the destination, four pixels at a time in 16-bit lanes. Straight
// colours are premultiplied first (the alpha lanes times 255, which keeps
// them); every lane is then x + y * (255 - alpha of A), the alpha lanes
// giving the result's alpha. The division by that alpha, (r * 255 + out / 2)
// / out with r first cut to out (which leaves 255 where the quotient would
// pass it), is a product with the reciprocal's high half and one correction
// step: exact for every colour and alpha. Returns the pixels done.
inline int overQuads(const std::uint8_t* pa, const std::uint8_t* pb, std::uint8_t* pd, int width,
                     bool premultiplied, bool divide) {
  int x = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128(), one = _mm_set1_epi16(1), k257 = _mm_set1_epi16(257);
  const __m128i k255 = _mm_set1_epi16(255), alphaLanes = _mm_set_epi16(-1, 0, 0, 0, -1, 0, 0, 0);
  const __m128i alpha255 = _mm_and_si128(alphaLanes, k255);
  auto scale = [&](__m128i v, __m128i w) {
    return _mm_mulhi_epu16(_mm_add_epi16(_mm_mullo_epi16(v, w), one), k257);
  };
  auto alphas = [](__m128i v) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xFF), 0xFF); };
  auto colours = [&](__m128i v, __m128i rest) {
    return _mm_or_si128(_mm_andnot_si128(alphaLanes, v), _mm_and_si128(alphaLanes, rest));
  };
  // two pixels of A and B
  auto pair = [&](__m128i va, __m128i vb) {
    const __m128i inv = _mm_sub_epi16(k255, alphas(va));
    if (!premultiplied) {
      va = scale(va, colours(alphas(va), alpha255));
      vb = scale(vb, colours(alphas(vb), alpha255));
    }
    const __m128i r = _mm_add_epi16(va, scale(vb, inv));
    if (!divide) return r;
    const __m128i out = alphas(r), dv = _mm_max_epi16(out, one);
    const __m128i n = _mm_add_epi16(_mm_mullo_epi16(_mm_min_epi16(r, out), k255),
                                    _mm_srli_epi16(out, 1));
    const short m0 = short(kReciprocals[_mm_extract_epi16(r, 3)]);
    const short m1 = short(kReciprocals[_mm_extract_epi16(r, 7)]);
    __m128i q = _mm_mulhi_epu16(n, _mm_set_epi16(m1, m1, m1, m1, m0, m0, m0, m0));
    const __m128i rest = _mm_sub_epi16(n, _mm_mullo_epi16(q, dv));
    q = _mm_sub_epi16(q, _mm_cmpgt_epi16(rest, _mm_sub_epi16(dv, one)));
    return colours(q, r);
  };
  for (; x + 4 <= width; x += 4) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pa + 4 * x));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pb + 4 * x));
    const __m128i lo = pair(_mm_unpacklo_epi8(va, zero), _mm_unpacklo_epi8(vb, zero));
    const __m128i hi = pair(_mm_unpackhi_epi8(va, zero), _mm_unpackhi_epi8(vb, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pd + 4 * x), _mm_packus_epi16(lo, hi));
  }
#else
  (void)pa, (void)pb, (void)pd, (void)width, (void)premultiplied, (void)divide;
#endif
  return x;
}

// Whether a piece is OVER of 8-bit pixels that overQuads takes.
template <class D>
bool takesQuads(const View* views, const CompositeArgs& a, int n) {
  if (D::bits != 8 || a.type != MOX_COMPOSITE_OVER || n != 2 || a.constant[0] >= 0 ||
      a.constant[1] >= 0)
    return false;
  for (int i = 0; i < 3; ++i)
    if (a.alpha[i] != 3 || views[i].nChannels != 4 || views[i].dataOrder != 0) return false;
  return true;
}

template <class D>
void compositeKernel(const View* views, const void* arg) {
  const auto& a = *static_cast<const CompositeArgs*>(arg);
  int n = 2;
  for (int i = 0; i < 3; ++i) n += a.alphaImage[i] >= 0;
  const View& d = views[n];
  const bool quads = takesQuads<D>(views, a, n);
  for (int y = 0; y < d.height; ++y) {
    int x = 0;
    if (quads) {
      auto row = [y](const View& v) {
        return reinterpret_cast<std::uint8_t*>(v.data + std::ptrdiff_t(y) * v.widthStep);
      };
      x = overQuads(row(views[0]), row(views[1]), row(d), d.width, a.premultiplied, a.divide);
    }
    for (; x < d.width; ++x) compositePixel<D>(views, a, n, x, y);
  }
}

int colourCount(const MoxImage* im) { return im->nChannels - (im->alphaChannel > 0 ? 1 : 0); }

constexpr WalkLines kCompositeCLines{
    {1040, 1041, 1042, 1043}, {1051, 1053, 1055, 1060, 1062, 1064, 1066, 1068, 1070, 1075, 1077, 1079}};
constexpr WalkLines kCompositeLines{
    {1140, 1141, 1142, 1143},
    {1151, 1152, 1153, 1154, 1155, 1156, 1160, 1161, 1162, 1163, 1164, 1165,
     1166, 1167, 1168, 1169, 1170, 1171, 1175, 1176, 1177, 1178, 1179, 1180}};

// The checks both forms share after the images' own chains: depth, data
// order, colour channels and the composite type, at lines from `line` on.
bool failsComposite(const char* f, const MoxImage* a, const MoxImage* b, const MoxImage* d,
                    int type, int line) {
  const Site depth{f, kFile, line}, order{f, kFile, line + 1}, colours{f, kFile, line + 2};
  return badDepth(d, {f, kFile, line - 1}) || differ(a, "srcImageA", d, depth) ||
         differ(b, "srcImageB", d, depth) || differInOrder(a, "srcImageA", d, order) ||
         differInOrder(b, "srcImageB", d, order) ||
         failsAt(colourCount(a) != colourCount(d), colours, "(nColorA != nColorDst)") ||
         failsAt(colourCount(b) != colourCount(d), colours, "(nColorB != nColorDst)") ||
         failsAt(type < MOX_COMPOSITE_OVER || type > MOX_COMPOSITE_PLUS, {f, kFile, line + 3},
               "compositeType < MOX_COMPOSITE_OVER || compositeType > MOX_COMPOSITE_PLUS");
}

// An alpha image: the destination's depth and one channel to lend.
bool failsAlphaImage(const MoxImage* im, const char* name, const MoxImage* d, const Site& at) {
  return failsPair(im->depth != d->depth, at, "%s->depth != %s->depth", name, "dstImage") ||
         failsPair(im->nChannels != 1 && !hasCoi(im), at,
                   "%s->nChannels != 1 && (%s->roi == 0 || %s->roi->coi == 0)", name, name);
}

void runComposite(const char* f, const WalkLines& lines, const MoxImage* a, const MoxImage* b,
                  MoxImage* d, const MoxImage* const* alphas, int type, const int* constant,
                  int premulAlpha, int divideMode) {
  CompositeArgs args{type, premulAlpha != 0, divideMode != 0, {constant[0], constant[1]},
                     {-1, -1, -1}, {a->alphaChannel - 1, b->alphaChannel - 1, d->alphaChannel - 1},
                     colourCount(d)};
  WalkImage images[kMaxWalkImages] = {{a, "srcImageA", false}, {b, "srcImageB", false}};
  static const char* const kNames[3] = {"alphaImageA", "alphaImageB", "alphaImageDst"};
  int n = 2;
  for (int i = 0; i < 3; ++i) {
    if (!alphas[i]) continue;
    args.alphaImage[i] = n;
    images[n++] = {alphas[i], kNames[i], i == 2};
  }
  images[n++] = {d, "dstImage", true};
  const WalkPlan plan = tilingPlan(f, &lines, false);
  walk(plan, images, n, nullptr,
       d->depth == MOX_DEPTH_8U ? &compositeKernel<U8> : &compositeKernel<U16>, &args);
}

}  // namespace
}  // namespace mox::alpha

using namespace mox;
using namespace mox::alpha;

extern "C" MOX_API void MOX_CALL moxMultiplySScale(const MoxImage* srcImage, MoxImage* dstImage,
                                                   int value, const int* mapping) {
  constexpr const char* f = "moxMultiplySScale";
  const MoxImage *s = srcImage, *d = dstImage;
  if (failsImage(d, "dstImage", {f, kFile, 601}) || failsImage(s, "srcImage", {f, kFile, 602}) ||
      badDepth(d, {f, kFile, 603}) || differ(s, "srcImage", d, {f, kFile, 604}) ||
      dstCoiWithoutSrcCoi(s, "srcImage", d, {f, kFile, 605}) ||
      srcCoiWithoutDstRoi(s, "srcImage", d, {f, kFile, 605}) ||
      differInOrder(s, "srcImage", d, {f, kFile, 606}) ||
      differInChannels(s, "srcImage", d, {f, kFile, 607}))
    return;
  OpArgs args;
  args.value = static_cast<int>(clampUnsigned(value, d->depth));
  const WalkImage images[2] = {{s, "srcImage", false}, {d, "dstImage", true}};
  const WalkPlan plan = tilingPlan(f, &kScaleSLines, true);
  walkProduct(plan, images, 2, mapping, productFor<ScaleS, 2>(d->depth), args);
}

extern "C" MOX_API void MOX_CALL moxMultiplyScale(const MoxImage* srcImageA,
                                                  const MoxImage* srcImageB, MoxImage* dstImage,
                                                  const int* mapping) {
  constexpr const char* f = "moxMultiplyScale";
  const MoxImage *a = srcImageA, *b = srcImageB, *d = dstImage;
  const Site at{f, kFile, 730};
  if (failsImage(d, "dstImage", {f, kFile, 726}) || failsImage(a, "srcImageA", {f, kFile, 727}) ||
      failsImage(b, "srcImageB", {f, kFile, 728}) || badDepth(d, {f, kFile, 729}) ||
      differ(a, "srcImageA", d, at) || differ(b, "srcImageB", d, at) ||
      srcCoiWithoutDstRoi(a, "srcImageA", d, at) || srcCoiWithoutDstRoi(b, "srcImageB", d, at) ||
      dstCoiWithoutSrcCoi(b, "srcImageB", d, at) || dstCoiWithoutSrcCoi(a, "srcImageA", d, at) ||
      differInOrder(a, "srcImageA", d, at) || differInOrder(b, "srcImageB", d, at) ||
      differInChannels(a, "srcImageA", d, at) || differInChannels(b, "srcImageB", d, at))
    return;
  const WalkImage images[3] = {{a, "srcImageA", false}, {b, "srcImageB", false}, {d, "dstImage", true}};
  const WalkPlan plan = tilingPlan(f, &kScaleLines, true);
  walkProduct(plan, images, 3, mapping, productFor<Scale, 3>(d->depth), OpArgs{});
}

extern "C" MOX_API void MOX_CALL moxPreMultiplyAlpha(MoxImage* image, int alphaValue,
                                                     const int* mapping) {
  constexpr const char* f = "moxPreMultiplyAlpha";
  const MoxImage* im = image;
  const Site at{f, kFile, 859};
  if (failsImage(im, "image", {f, kFile, 856}) ||
      failsAt(im->depth != MOX_DEPTH_8U && im->depth != MOX_DEPTH_16U, {f, kFile, 857},
            "image->depth != 8 && image->depth != 16") ||
      failsAt(im->alphaChannel > 0 && im->alphaChannel != im->nChannels, {f, kFile, 858},
            "image->alphaChannel > 0 && image->alphaChannel != image->nChannels") ||
      failsAt(im->alphaChannel < 1, at, "image->alphaChannel < 1") ||
      failsAt(im->alphaChannel > im->nChannels, at, "image->alphaChannel > image->nChannels"))
    return;
  const int max = im->depth == MOX_DEPTH_8U ? 0xFF : 0xFFFF;
  const PremulArgs args{im->alphaChannel - 1, alphaValue < 0 ? -1 : alphaValue > max ? max : alphaValue};
  const WalkImage images[1] = {{im, "image", true}};
  const WalkPlan plan = tilingPlan(f, &kPremulLines, false);
  walk(plan, images, 1, mapping,
       im->depth == MOX_DEPTH_8U ? &premulKernel<U8> : &premulKernel<U16>, &args);
}

extern "C" MOX_API void MOX_CALL moxAlphaCompositeC(const MoxImage* srcImageA,
                                                    const MoxImage* srcImageB, MoxImage* dstImage,
                                                    int compositeType, int aA, int aB,
                                                    int premulAlpha, int divideMode) {
  constexpr const char* f = "moxAlphaCompositeC";
  const MoxImage *a = srcImageA, *b = srcImageB, *d = dstImage;
  if (failsImage(d, "dstImage", {f, kFile, 1001}) || failsImage(a, "srcImageA", {f, kFile, 1002}) ||
      failsImage(b, "srcImageB", {f, kFile, 1003}) ||
      failsComposite(f, a, b, d, compositeType, 1005))
    return;
  const int max = d->depth == MOX_DEPTH_8U ? 0xFF : 0xFFFF;
  const int constant[2] = {std::clamp(aA, 0, max), std::clamp(aB, 0, max)};
  const MoxImage* alphas[3] = {nullptr, nullptr, nullptr};
  runComposite(f, kCompositeCLines, a, b, dstImage, alphas, compositeType, constant, premulAlpha,
               divideMode);
}

extern "C" MOX_API void MOX_CALL moxAlphaComposite(const MoxImage* srcImageA,
                                                   const MoxImage* srcImageB, MoxImage* dstImage,
                                                   int compositeType, const MoxImage* alphaImageA,
                                                   const MoxImage* alphaImageB,
                                                   MoxImage* alphaImageDst, int premulAlpha,
                                                   int divideMode) {
  constexpr const char* f = "moxAlphaComposite";
  const MoxImage *a = srcImageA, *b = srcImageB, *d = dstImage;
  const MoxImage* alphas[3] = {alphaImageA, alphaImageB, alphaImageDst};
  static const char* const kNames[3] = {"alphaImageA", "alphaImageB", "alphaImageDst"};
  // destinations first: the result, its alpha image, then the sources
  if (failsImage(d, "dstImage", {f, kFile, 1101}) ||
      (alphaImageDst && failsImage(alphaImageDst, "alphaImageDst", {f, kFile, 1102})) ||
      failsImage(a, "srcImageA", {f, kFile, 1103}) || failsImage(b, "srcImageB", {f, kFile, 1104}) ||
      (alphaImageA && failsImage(alphaImageA, "alphaImageA", {f, kFile, 1105})) ||
      (alphaImageB && failsImage(alphaImageB, "alphaImageB", {f, kFile, 1106})) ||
      failsComposite(f, a, b, d, compositeType, 1108))
    return;
  for (int i = 0; i < 3; ++i)
    if (alphas[i] && failsAlphaImage(alphas[i], kNames[i], d, {f, kFile, 1112})) return;
  const int constant[2] = {-1, -1};
  runComposite(f, kCompositeLines, a, b, dstImage, alphas, compositeType, constant, premulAlpha,
               divideMode);
}
