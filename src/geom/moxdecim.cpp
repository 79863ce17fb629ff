// moxDecimate: the argument checks. Every check from the depths on reports
// on its own; the work is done only when none of them failed.
#include "geom/decim.h"

namespace {

using mox::Site;

constexpr Site at(int line) { return Site{"moxDecimate", "moxdecim", line}; }

// Tiles without data, from either call-back, are reported by the kernels'
// file.
constexpr mox::WalkLines kTileLines{{}, {390, 391, 390, 391}};
const mox::WalkPlan kWalk{"moxDecimate", "owndecim", &kTileLines, false, true,
                          "dstImage->tileInfo->callBack crash", MOX_StsInternalError};
const mox::SourceSites kSource{"moxDecimate", "owndecim", "srcImage", 385, 386, 385, 395,
                               "srcImage->tileInfo->callBack crash", MOX_StsInternalError};

}  // namespace

extern "C" MOX_API void MOX_CALL moxDecimate(const MoxImage* srcImage, MoxImage* dstImage, int xU,
                                             int xL, int yU, int yL, int interpolate,
                                             const int* point) {
  if (mox::badHeader(srcImage, at(91)) || mox::badHeader(dstImage, at(92))) return;
  const MoxImage* s = srcImage;
  const MoxImage* d = dstImage;
  const mox::geom::Check checks[] = {
      {s->depth != d->depth, 93, "srcImage->depth != dstImage->depth"},
      {s->origin != d->origin, 94, "srcImage->origin != dstImage->origin"},
      {s->dataOrder != d->dataOrder, 95, "srcImage->dataOrder != dstImage->dataOrder"},
      {interpolate < MOX_INTER_NN || interpolate > MOX_INTER_CUBIC, 101,
       "interpolate != MOX_INTER_NN, MOX_INTER_LINEAR or MOX_INTER_CUBIC"},
      {xU < 1, 106, "xU <= 0"},
      {xL < 1, 107, "xL <= 0"},
      {yU < 1, 108, "yU <= 0"},
      {yL < 1, 109, "yL <= 0"},
      {xU > xL, 111, "xU > xL"},
      {yU > yL, 112, "yU > yL"},
  };
  bool failed = false;
  for (const mox::geom::Check& c : checks)
    if (c.fails) mox::report(at(c.line), c.text), failed = true;
  if (failed || mox::geom::failsPlacement(s, d, "moxDecimate", "moxdecim", 113, 91, 92)) return;

  const mox::geom::Job job =
      mox::geom::jobOf(s, dstImage, xU, xL, yU, yL, point, &kWalk, &kSource);
  mox::geom::ownDecimate(job, xU, xL, yU, yL, interpolate);
}
