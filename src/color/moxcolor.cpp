// The colour-model conversions: argument checks, then one run over the whole
// images (ROIs are not consulted) or a walk of the destination's tiles.
#include <cstring>

#include "color/color.h"

namespace mox::color {
namespace {

// The lines of one conversion. Header faults report at `header` under the
// name the family shares; the compatibility test at `compatible`.
struct Front {
  const char* func;
  Model model;
  int header[2];
  int compatible;
  WalkLines walk;
};

constexpr Front front(const char* func, Model model, int header, int compatible) {
  const int t = compatible + 10;
  return Front{func,
               model,
               {header, header + 1},
               compatible,
               {{compatible + 5, compatible + 6, compatible + 7, compatible + 8},
                {t, t + 1, t + 2, t + 3, t + 4, t + 5, t + 6, t + 7}}};
}

bool startsWith(const char (&field)[4], const char* model) {
  return std::strncmp(field, model, 3) == 0;
}

bool compatible(Model m, const MoxImage* s, const MoxImage* d) {
  if (s->origin != d->origin) return false;
  switch (m) {
    case Model::toGray:
      return startsWith(s->colorModel, "RGB") && (d->dataOrder != 0 || d->nChannels == 1);
    case Model::fromGray:
      return startsWith(d->colorModel, "RGB") &&
             (s->depth == d->depth || (s->depth == MOX_DEPTH_1U && d->depth == MOX_DEPTH_8U)) &&
             (s->dataOrder != 0 || s->nChannels == 1);
    default:
      break;
  }
  const char* model = m == Model::fromHSV ? "HSV" : m == Model::fromHLS ? "HLS" : "RGB";
  return startsWith(s->colorModel, model) && workChannels(s) == workChannels(d) &&
         s->depth == d->depth && s->dataOrder == d->dataOrder;
}

// Checks, then runs the conversion; false after a report.
bool convert(const Front& f, const MoxImage* src, MoxImage* dst, const int* mapping,
             ConvArgs& args) {
  if (badHeader(src, Site{"moxReduceBits", "moxcolor", f.header[0]}) ||
      badHeader(dst, Site{"moxReduceBits", "moxcolor", f.header[1]}))
    return false;
  // The two data checks below never fire: the header checks above have
  // already refused a null image (its own fault) and an image with neither
  // pixels nor tiles (the fault of data and tiles both null). They stay
  // as the data check's own word on these cases.
  if (!src || !dst) {
    report(Site{f.func, "owncolor", 1107}, "null_image_pointer");
    return false;
  }
  if ((!src->imageData && !src->tileInfo) || (!dst->imageData && !dst->tileInfo)) {
    report(Site{f.func, "owncolor", 1112}, "null_data_pointer");
    return false;
  }
  if (!compatible(f.model, src, dst)) {
    report(Site{f.func, "moxcolor", f.compatible}, "incomatibleimages");
    return false;
  }
  if (badLayout(src, "srcImage", Site{f.func, "moxcolor", f.header[0]}) ||
      badLayout(dst, "dstImage", Site{f.func, "moxcolor", f.header[1]}))
    return false;
  // The colour side needs three channels (a grey side one).
  const bool grayIn = f.model == Model::fromGray, grayOut = f.model == Model::toGray;
  if (!grayIn && src->nChannels < 3) {
    report(Site{f.func, "moxcolor", f.compatible + 2}, "(srcImage->nChannels < 3)");
    return false;
  }
  if (!grayOut && dst->nChannels < 3) {
    report(Site{f.func, "moxcolor", f.compatible + 3}, "(dstImage->nChannels < 3)");
    return false;
  }
  const Kernel kernel = pickConversion(f.model, src->depth, dst->depth);
  if (!kernel) return false;
  // The RGB image of a conversion into RGB is the destination; the order of
  // its channels follows the source's sequence all the same.
  const MoxImage* rgb = grayIn || f.model == Model::fromHSV || f.model == Model::fromHLS ? dst : src;
  args.swap = rgb->dataOrder == 0 && src->channelSeq[0] != 'R';
  const WalkImage images[2] = {{src, "srcImage", false}, {dst, "dstImage", true}};
  WalkPlan plan{f.func, "moxcolor", &f.walk, false};
  plan.area = Area::whole;
  plan.destinationFirst = true;
  return walk(plan, images, 2, mapping, kernel, &args);
}

void convertModel(const Front& f, const MoxImage* src, MoxImage* dst, const int* mapping,
                  const char* written) {
  ConvArgs args{};
  if (!convert(f, src, dst, mapping, args) || !written) return;
  std::memcpy(dst->colorModel, written, 3);
  std::memcpy(dst->channelSeq, written, 3);
}

constexpr Front kToGray = front("moxColorToGray", Model::toGray, 155, 159);
constexpr Front kToHSV = front("moxRGB2HSV", Model::toHSV, 222, 226);
constexpr Front kFromHSV = front("moxHSV2RGB", Model::fromHSV, 285, 289);
constexpr Front kToHLS = front("moxRGB2HLS", Model::toHLS, 347, 351);
constexpr Front kFromHLS = front("moxHLS2RGB", Model::fromHLS, 408, 412);
constexpr Front kFromGray = front("moxGrayToColor", Model::fromGray, 468, 472);

}  // namespace
}  // namespace mox::color

using namespace mox::color;

extern "C" MOX_API void MOX_CALL moxColorToGray(const MoxImage* srcImage, MoxImage* dstImage,
                                                const int* mapping) {
  convertModel(kToGray, srcImage, dstImage, mapping, nullptr);
}

extern "C" MOX_API void MOX_CALL moxGrayToColor(const MoxImage* srcImage, MoxImage* dstImage,
                                                float fractR, float fractG, float fractB,
                                                const int* mapping) {
  ConvArgs args{};
  if (dstImage) grayMultipliers(dstImage->depth, fractR, fractG, fractB, args);
  convert(kFromGray, srcImage, dstImage, mapping, args);
}

extern "C" MOX_API void MOX_CALL moxRGB2HSV(const MoxImage* srcImage, MoxImage* dstImage,
                                            const int* mapping) {
  convertModel(kToHSV, srcImage, dstImage, mapping, "HSV");
}

extern "C" MOX_API void MOX_CALL moxHSV2RGB(const MoxImage* srcImage, MoxImage* dstImage,
                                            const int* mapping) {
  convertModel(kFromHSV, srcImage, dstImage, mapping, "RGB");
}

extern "C" MOX_API void MOX_CALL moxRGB2HLS(const MoxImage* srcImage, MoxImage* dstImage,
                                            const int* mapping) {
  convertModel(kToHLS, srcImage, dstImage, mapping, "HLS");
}

extern "C" MOX_API void MOX_CALL moxHLS2RGB(const MoxImage* srcImage, MoxImage* dstImage,
                                            const int* mapping) {
  convertModel(kFromHLS, srcImage, dstImage, mapping, "RGB");
}
