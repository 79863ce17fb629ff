// moxThreshold: values below the threshold to the depth's minimum, the
// others to its maximum.
#include <algorithm>

#include "image/pointop.h"

namespace {

using namespace mox;

constexpr const char* kFunc = "moxThreshold";
constexpr const char* kFile = "moxthres";

// Compared as signed 32-bit numbers, so a threshold outside the depth's
// range sends every value to one side.
struct Threshold : Rule {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using T = typename D::T;
    return static_cast<long long>(a) < s.value ? T(D::lo) : T(D::hi);
  }
  template <class D, class T>
  static std::size_t block(const T* s, T* d, std::size_t n, const OpArgs& args) {
    const long long t = args.value;
    if (t <= D::lo || t > D::hi) {
      std::fill(d, d + n, t <= D::lo ? T(D::hi) : T(D::lo));
      return n;
    }
    const T level = static_cast<T>(t);
    for (std::size_t j = 0; j < n; ++j) d[j] = s[j] < level ? T(D::lo) : T(D::hi);
    return n;
  }
};

constexpr WalkLines kLines{{234, 235, 236, 237}, {279, 298, 319, 325, 340, 346, 363, 368}};

// A check of this function at a line.
bool fails(bool bad, int line, const char* text) { return failsAt(bad, {kFunc, kFile, line}, text); }

// A ROI that starts outside its image leaves nothing to resolve.
bool roiOutside(const MoxImage* im) {
  const MoxROI* r = im->roi;
  return r && (r->xOffset >= im->width || r->yOffset >= im->height);
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxThreshold(const MoxImage* srcImage, MoxImage* dstImage,
                                              int threshold) {
  const MoxImage *s = srcImage, *d = dstImage;
  const Site src{kFunc, kFile, 199}, dst{kFunc, kFile, 200};
  if (badHeader(s, src) || badLayout(s, "srcImage", src) || badHeader(d, dst) ||
      badLayout(d, "dstImage", dst) ||
      fails(s->depth != d->depth, 201, "(srcImage->depth!=dstImage->depth)") ||
      fails(s->dataOrder != d->dataOrder, 202, "(srcImage->dataOrder!=dstImage->dataOrder)") ||
      fails(s->depth == MOX_DEPTH_1U, 203, "(srcImage->depth==1)") ||
      fails(roiOutside(s) || roiOutside(d), 125, "The fields of ROI has error") ||
      fails(workChannels(s) != workChannels(d), 129, "The mismath of number channels"))
    return;
  OpArgs args;
  args.value = threshold;
  const WalkImage images[2] = {{s, "srcImage", false}, {d, "dstImage", true}};
  const WalkPlan plan{kFunc, kFile, &kLines, true};
  walk(plan, images, 2, nullptr, pickKernel<Threshold, 2>(d->depth), &args);
}
