// Erosion, dilation, opening and closing by the 3x3 square.
//
// n erosions are the minimum over the (2n + 1)-square when the source's four
// sides share one border rule (reflect and wrap extend the image
// symmetrically or periodically, replicate and one constant add no new
// values), so such sources take one pass of the running extrema. Sources
// with mixed sides are eroded step by step over the whole image, each step's
// image carrying the source's border modes, until the count is done or a
// step changes nothing. Opening and closing keep the first half's image.
#include <algorithm>
#include <cstring>

#include "filter/filter.h"
#include "filter/kernels.h"

namespace {

using namespace mox::filt;

constexpr const char* kFile = "moxmorph";

struct MorphOp {
  mox::OpTable table;
  SourceLines source;
  bool firstMax;  // the first half is a dilation
  int halves;
};

constexpr MorphOp kErode{neighTable("moxErode", kFile, 100), sourceLines(100), false, 1};
constexpr MorphOp kDilate{neighTable("moxDilate", kFile, 200), sourceLines(200), true, 1};
constexpr MorphOp kOpen{neighTable("moxOpen", kFile, 300), sourceLines(300), false, 2};
constexpr MorphOp kClose{neighTable("moxClose", kFile, 400), sourceLines(400), true, 2};

// All four sides follow one valid rule (constants equal).
bool oneRule(const MoxImage* im) {
  const int mode = im->borderMode[0];
  if (mode < MOX_BORDER_CONSTANT || mode > MOX_BORDER_WRAP) return false;
  for (int s = 1; s < 4; ++s)
    if (im->borderMode[s] != mode ||
        (mode == MOX_BORDER_CONSTANT && im->borderConst[s] != im->borderConst[0]))
      return false;
  return true;
}

// Beyond the image's larger side every window holds the whole image and
// some of its border: more iterations change nothing.
int radiusOf(const MoxImage* im, int n) { return std::min(n, std::max(im->width, im->height)); }

void morph(const MorphOp& op, const MoxImage* src, MoxImage* dst, int nIterations) {
  const mox::OpTable& t = op.table;
  const int own = t.header[0] + kOwnLines;
  if (imagesFail(t, src, dst)) return;
  if (nIterations < 1) {
    mox::report({t.func, kFile, own}, "(nIterations < 1)");
    return;
  }
  const bool uniform = oneRule(src);
  if (op.halves == 1 && uniform) {
    const int r = radiusOf(src, nIterations);
    run(t, op.source, src, dst, Window{r, r, r, r}, rankBlock(dst->depth, op.firstMax), nullptr, false, true);
    return;
  }
  // Step images: whole images of the source's channel of interest. A plain
  // source is read where it lies; a tiled one is copied first. The images
  // of the steps are made when first needed.
  const int coi = src->roi ? src->roi->coi : 0;
  MoxROI whole{coi, 0, 0, src->height, src->width};
  MoxROI rect = src->roi ? *src->roi : whole;
  PlainCopy a, b;
  MoxImage inPlace = *src;
  MoxImage* cur = &inPlace;
  if (src->tileInfo) {
    if (!copyWhole(t, op.source, src, &a)) return;
    cur = a.get();
  }
  cur->roi = &whole;
  for (int half = 0; half < op.halves; ++half) {
    const bool max = half == 0 ? op.firstMax : !op.firstMax;
    const BlockFn fn = rankBlock(dst->depth, max);
    const int steps = uniform ? 1 : nIterations;
    const int r = uniform ? radiusOf(src, nIterations) : 1;
    bool settled = false;
    for (int s = 0; s < steps; ++s) {
      if (half == op.halves - 1 && s == steps - 1) {
        cur->roi = &rect;
        run(t, op.source, cur, dst, Window{r, r, r, r}, fn, nullptr, false, true);
        return;
      }
      if (settled) continue;
      PlainCopy& spare = cur == a.get() ? b : a;
      if (!spare.get()->imageData && !spare.make(src)) return outOfMemory(t, op.source.memory);
      MoxImage* next = spare.get();
      next->roi = &whole;
      if (!run(t, op.source, cur, next, Window{r, r, r, r}, fn, nullptr, false, true)) return;
      // Two step images of one layout: a step that changed nothing ends the half.
      settled = !uniform && cur != &inPlace &&
                std::memcmp(cur->imageData, next->imageData, static_cast<std::size_t>(cur->imageSize)) == 0;
      cur = next;
    }
  }
}

}  // namespace

extern "C" {

MOX_API void MOX_CALL moxErode(const MoxImage* srcImage, MoxImage* dstImage, int nIterations) {
  morph(kErode, srcImage, dstImage, nIterations);
}

MOX_API void MOX_CALL moxDilate(const MoxImage* srcImage, MoxImage* dstImage, int nIterations) {
  morph(kDilate, srcImage, dstImage, nIterations);
}

MOX_API void MOX_CALL moxOpen(const MoxImage* srcImage, MoxImage* dstImage, int nIterations) {
  morph(kOpen, srcImage, dstImage, nIterations);
}

MOX_API void MOX_CALL moxClose(const MoxImage* srcImage, MoxImage* dstImage, int nIterations) {
  morph(kClose, srcImage, dstImage, nIterations);
}

}  // extern "C"
