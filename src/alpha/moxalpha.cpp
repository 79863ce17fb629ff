// moxMultiplySScale, moxMultiplyScale, moxPreMultiplyAlpha: products of
// values read as fractions of the depth's maximum, through the scaled
// multiply.
#include <cstdio>

#include "alpha/alpha.h"

namespace mox::alpha {
namespace {

constexpr const char* kFile = "moxalpha";
constexpr const char* kTilingText = "ERROR in Tiling callBack";

// The full chain on one image, then its layout, both at one line.
bool failsImage(const MoxImage* image, const char* name, const Site& at) {
  return failsFullChain(image, name, at) || badLayout(image, name, at);
}

bool fails(bool bad, const Site& at, const char* text) {
  if (bad) report(at, text);
  return bad;
}

// "name->depth != other->depth" and the like, with the images' names.
bool failsPair(bool bad, const Site& at, const char* pattern, const char* a, const char* b) {
  if (!bad) return false;
  char text[160];
  std::snprintf(text, sizeof text, pattern, a, b);
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
  return fails(d->depth != MOX_DEPTH_8U && d->depth != MOX_DEPTH_16U, at,
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

template <class D>
void premulKernel(const View* views, const void* arg) {
  using T = typename D::T;
  const auto& a = *static_cast<const PremulArgs*>(arg);
  const View& v = views[0];
  const int n = v.nChannels;
  if (v.dataOrder == 0) {
    for (int y = 0; y < v.height; ++y) {
      T* p = reinterpret_cast<T*>(v.data + std::ptrdiff_t(y) * v.widthStep);
      for (int x = 0; x < v.width; ++x, p += n) {
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
  const WalkPlan plan{f, kFile, &kScaleSLines, true, kTilingText};
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
  const WalkPlan plan{f, kFile, &kScaleLines, true, kTilingText};
  walkProduct(plan, images, 3, mapping, productFor<Scale, 3>(d->depth), OpArgs{});
}

extern "C" MOX_API void MOX_CALL moxPreMultiplyAlpha(MoxImage* image, int alphaValue,
                                                     const int* mapping) {
  constexpr const char* f = "moxPreMultiplyAlpha";
  const MoxImage* im = image;
  const Site at{f, kFile, 859};
  if (failsImage(im, "image", {f, kFile, 856}) ||
      fails(im->depth != MOX_DEPTH_8U && im->depth != MOX_DEPTH_16U, {f, kFile, 857},
            "image->depth != 8 && image->depth != 16") ||
      fails(im->alphaChannel > 0 && im->alphaChannel != im->nChannels, {f, kFile, 858},
            "image->alphaChannel > 0 && image->alphaChannel != image->nChannels") ||
      fails(im->alphaChannel < 1, at, "image->alphaChannel < 1") ||
      fails(im->alphaChannel > im->nChannels, at, "image->alphaChannel > image->nChannels"))
    return;
  const int max = im->depth == MOX_DEPTH_8U ? 0xFF : 0xFFFF;
  const PremulArgs args{im->alphaChannel - 1, alphaValue < 0 ? -1 : alphaValue > max ? max : alphaValue};
  const WalkImage images[1] = {{im, "image", true}};
  const WalkPlan plan{f, kFile, &kPremulLines, false, kTilingText};
  walk(plan, images, 1, mapping,
       im->depth == MOX_DEPTH_8U ? &premulKernel<U8> : &premulKernel<U16>, &args);
}
