// The piece driver of zoom and decimation.
#include "geom/resample.h"

#include <algorithm>

namespace mox::geom {
namespace {

using i64 = long long;

// Rows of a destination band when the source comes from tiles: the source
// rectangle a band needs stays small.
constexpr int kBandRows = 64;

// The part (x, y, w, h) of a view.
View part(const View& v, long long x, long long y, long long w, long long h) {
  View p = v;
  const unsigned bits = depthBits(v.depth);
  if (bits == 1) {
    const long long bit = v.bitOffset + x;
    p.data = v.data + y * v.widthStep + (bit >> 3);
    p.bitOffset = static_cast<int>(bit & 7);
  } else {
    p.data = v.data + y * v.widthStep + x * (bits / 8) * (v.dataOrder == 0 ? v.nChannels : 1);
  }
  p.width = static_cast<int>(w);
  p.height = static_cast<int>(h);
  return p;
}

struct Run {
  const Job& job;
  const Resampler& r;
  SourceReader& reader;
};

// One piece of the walk (its first pixel at (x, y) of the destination): the
// pixels worked on, band by band.
bool piece(const View& dst, int x, int y, void* arg) {
  const Run& run = *static_cast<const Run*>(arg);
  const Job& job = run.job;
  const i64 x0 = std::max<i64>(x - job.dx, 0), y0 = std::max<i64>(y - job.dy, 0);
  const i64 x1 = std::min<i64>(x - job.dx + dst.width, job.width);
  const i64 y1 = std::min<i64>(y - job.dy + dst.height, job.height);
  const i64 band = job.src->tileInfo ? kBandRows : y1 - y0;
  for (i64 by = y0; by < y1; by += band)
    for (i64 bx = x0; bx < x1; bx += job.maxPieceWidth) {
      const i64 bx1 = std::min<i64>(x1, bx + job.maxPieceWidth), by1 = std::min(y1, by + band);
      const Piece p{int(bx), int(by), int(bx1), int(by1),
                    part(dst, bx - (x - job.dx), by - (y - job.dy), bx1 - bx, by1 - by)};
      const Box need = run.r.need(p);
      View src;
      if (!run.reader.read(int(need.x0), int(need.y0), int(need.x1 - need.x0),
                           int(need.y1 - need.y0), &src))
        return false;
      run.r.run(p, Source{src, need.x0, need.y0});
    }
  return true;
}

}  // namespace

bool failsPlacement(const MoxImage* s, const MoxImage* d, const char* func, const char* file,
                    int roiLine, int srcHeaderLine, int dstHeaderLine) {
  auto outside = [](const MoxImage* im) {
    const MoxROI* r = im->roi;
    return r && (r->xOffset >= im->width || r->yOffset >= im->height);
  };
  const Check checks[] = {
      {outside(s), roiLine,
       "srcImage->roi->xOffset >= srcImage->width || srcImage->roi->yOffset >= srcImage->height"},
      {outside(d), roiLine + 1,
       "dstImage->roi->xOffset >= dstImage->width || dstImage->roi->yOffset >= dstImage->height"},
      {workChannels(s) != workChannels(d), roiLine + 2, "nChSrc != nChDst"},
  };
  for (const Check& c : checks) {
    if (!c.fails) continue;
    report(Site{func, file, c.line}, c.text);
    return true;
  }
  return badLayout(s, "srcImage", Site{func, file, srcHeaderLine}) ||
         badLayout(d, "dstImage", Site{func, file, dstHeaderLine});
}

Box roiBox(const MoxImage* im) {
  Box b{0, 0, im->width, im->height};
  if (const MoxROI* r = im->roi) {
    b.x0 = std::max(r->xOffset, 0);
    b.y0 = std::max(r->yOffset, 0);
    b.x1 = std::min<i64>(b.x0 + r->width, im->width);
    b.y1 = std::min<i64>(b.y0 + r->height, im->height);
    b.x1 = std::max(b.x1, b.x0);
    b.y1 = std::max(b.y1, b.y0);
  }
  return b;
}

int layerCount(const MoxImage* src, const MoxImage* dst) {
  if (workChannels(src) == 1 || workChannels(dst) == 1) return 1;
  return src->dataOrder == 1 ? src->nChannels : 1;
}

Layer layerAt(const MoxImage* src, const MoxImage* dst, int i) {
  const int cs = src->roi ? src->roi->coi : 0, cd = dst->roi ? dst->roi->coi : 0;
  if (workChannels(src) == 1 || workChannels(dst) == 1)
    return Layer{1, cs > 0 ? cs - 1 : 0, cd > 0 ? cd - 1 : 0};
  if (src->dataOrder == 1) return Layer{1, i, i};
  return Layer{src->nChannels, 0, 0};
}

Scratch::~Scratch() {
  moxFree(offsets_);
  moxFree(weights_);
  moxFree(rows_);
}

bool Scratch::allocate(const Job& job) {
  const i64 values = i64(std::min(job.width, job.maxPieceWidth)) * workChannels(job.src);
  if (values > (1 << 24) || job.sourceValues > (1 << 24)) return false;
  const int bytes = static_cast<int>(values) * 16;
  values_ = values;
  offsets_ = static_cast<int*>(moxMalloc(bytes));
  weights_ = moxMalloc(bytes);
  // The source row has room for 32 values more than it holds: vector loads
  // may reach past its end.
  rows_ = moxMalloc(bytes + static_cast<int>(values) * 4 +
                    static_cast<int>(job.sourceValues + 32) * 4);
  return offsets_ && weights_ && rows_;
}

Job jobOf(const MoxImage* src, MoxImage* dst, int xU, int xL, int yU, int yL, const int* point,
          const WalkPlan* walk, const SourceSites* source) {
  const Box sb = roiBox(src), db = roiBox(dst);
  auto covered = [](i64 length, int u, int l) { return (length * u + l - 1) / l; };
  Job job{};
  job.src = src;
  job.dst = dst;
  job.dx = db.x0, job.dy = db.y0;
  job.width = static_cast<int>(std::min(db.x1 - db.x0, covered(sb.x1 - sb.x0, xU, xL)));
  job.height = static_cast<int>(std::min(db.y1 - db.y0, covered(sb.y1 - sb.y0, yU, yL)));
  job.point = point;
  job.walk = walk;
  job.source = source;
  // A piece reads up to width * L / U + 8 source pixels per row.
  const i64 k = workChannels(src);
  job.maxPieceWidth = static_cast<int>(std::max<i64>(1, std::min(8192 / k, 8192 * i64(xU) / (xL * k))));
  job.sourceValues = ((i64(job.maxPieceWidth) * xL + xU - 1) / xU + 8) * k;
  return job;
}

bool resample(const Job& job, const Resampler& r) {
  if (job.width <= 0 || job.height <= 0) return true;
  SourceReader reader(job.src, Edge::kClamp, *job.source);
  Run run{job, r, reader};
  return walkDestination(*job.walk, WalkImage{job.dst, "dstImage", true}, job.point, &piece, &run);
}

}  // namespace mox::geom
