// The piece driver of zoom and decimation.
#include "geom/resample.h"

#include <algorithm>

namespace mox::geom {
namespace {

using i64 = long long;

// Rows of a destination band when the source comes from tiles: the source
// rectangle a band needs stays small.
constexpr int kBandRows = 64;

// The view of the rectangle (x, y, w, h) of an image whose pixels start, at
// `base`, with pixel (ox, oy).
View viewOf(const MoxImage* im, char* base, i64 step, i64 planeStep, i64 ox, i64 oy, i64 x, i64 y,
            i64 w, i64 h) {
  const unsigned bits = depthBits(im->depth);
  const i64 col = x - ox;
  View v{};
  if (bits == 1) {
    v.data = base + (y - oy) * step + (col >> 3);
    v.bitOffset = static_cast<int>(col & 7);
  } else {
    v.data = base + (y - oy) * step + col * (bits / 8) * (im->dataOrder == 0 ? im->nChannels : 1);
  }
  v.widthStep = static_cast<int>(step);
  v.width = static_cast<int>(w);
  v.height = static_cast<int>(h);
  v.nChannels = im->nChannels;
  v.coi = im->roi ? im->roi->coi : 0;
  v.dataOrder = im->dataOrder;
  v.depth = im->depth;
  v.planeStep = static_cast<std::ptrdiff_t>(planeStep);
  return v;
}

View plainView(const MoxImage* im, i64 x, i64 y, i64 w, i64 h) {
  return viewOf(im, im->imageData, im->widthStep, i64(im->widthStep) * im->height, 0, 0, x, y, w,
                h);
}

class Driver {
 public:
  Driver(const Job& job, const Resampler& r) : job_(job), r_(r) {}

  bool run();

 private:
  // Runs the pieces of the destination box b (indices), whose pixels a view
  // maker gives.
  template <class MakeView>
  bool pieces(const Box& b, int bandRows, MakeView&& makeView) {
    for (i64 y = b.y0; y < b.y1; y += bandRows) {
      const i64 y1 = std::min<i64>(b.y1, y + bandRows);
      for (i64 x = b.x0; x < b.x1; x += job_.maxPieceWidth) {
        const i64 x1 = std::min<i64>(b.x1, x + job_.maxPieceWidth);
        Piece p{int(x), int(y), int(x1), int(y1), makeView(x, y, x1 - x, y1 - y)};
        if (!source(p)) return false;
      }
    }
    return true;
  }
  bool source(const Piece& p) {
    const Box need = r_.need(p);
    const MoxImage* s = job_.src;
    r_.run(p, Source{plainView(s, 0, 0, s->width, s->height), 0, 0});
    (void)need;
    return true;
  }
  bool tiledDestination(const Box& b);

  const Job& job_;
  const Resampler& r_;
};

bool Driver::run() {
  Box b{0, 0, job_.width, job_.height};
  if (const int* pt = job_.point) {
    const i64 x = pt[0] - job_.dx, y = pt[1] - job_.dy;
    if (x < 0 || y < 0 || x >= job_.width || y >= job_.height) return true;
    b = Box{x, y, x + 1, y + 1};
  }
  if (b.empty()) return true;
  if (job_.src->tileInfo) {
    report(job_.sites->srcGet, "tiled source images are not read yet", MOX_StsUnsupportedFunction);
    return false;
  }
  if (job_.dst->tileInfo) return tiledDestination(b);
  const MoxImage* d = job_.dst;
  const int band = job_.src->tileInfo ? kBandRows : job_.height;
  return pieces(b, band, [&](i64 x, i64 y, i64 w, i64 h) {
    return plainView(d, job_.dx + x, job_.dy + y, w, h);
  });
}

// Every destination tile that meets the box is asked for writing, filled
// piece by piece and handed back.
bool Driver::tiledDestination(const Box& b) {
  MoxImage* d = job_.dst;
  MoxTileInfo* tile = d->tileInfo;
  const i64 tw = tile->width, th = tile->height;
  int step = 0, size = 0;
  layoutSize(tile->width, tile->height, d->depth, d->nChannels, d->dataOrder, d->align, &step,
             &size);
  const i64 ix0 = job_.dx + b.x0, iy0 = job_.dy + b.y0;
  const i64 ix1 = job_.dx + b.x1, iy1 = job_.dy + b.y1;
  for (i64 ty = iy0 / th; ty * th < iy1; ++ty) {
    for (i64 tx = ix0 / tw; tx * tw < ix1; ++tx) {
      tile->callBack(d, int(tx), int(ty), MOX_GET_TILE_TO_WRITE);
      char* data = tile->tileData;
      if (!data) {
        report(job_.sites->dstGet, job_.sites->dstGetText, job_.sites->dstGetStatus);
        return false;
      }
      const Box part{std::max(ix0, tx * tw) - job_.dx, std::max(iy0, ty * th) - job_.dy,
                     std::min(ix1, (tx + 1) * tw) - job_.dx, std::min(iy1, (ty + 1) * th) - job_.dy};
      const bool ok = pieces(part, int(th), [&](i64 x, i64 y, i64 w, i64 h) {
        return viewOf(d, data, step, i64(step) * th, tx * tw, ty * th, job_.dx + x, job_.dy + y, w,
                      h);
      });
      if (!ok) return false;
      tile->callBack(d, int(tx), int(ty), MOX_RELEASE_TILE);
    }
  }
  return true;
}

}  // namespace

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
  if (channelsOf(src) == 1 || channelsOf(dst) == 1) return 1;
  return src->dataOrder == 1 ? src->nChannels : 1;
}

Layer layerAt(const MoxImage* src, const MoxImage* dst, int i) {
  const int cs = src->roi ? src->roi->coi : 0, cd = dst->roi ? dst->roi->coi : 0;
  if (channelsOf(src) == 1 || channelsOf(dst) == 1)
    return Layer{1, cs > 0 ? cs - 1 : 0, cd > 0 ? cd - 1 : 0};
  if (src->dataOrder == 1) return Layer{1, i, i};
  return Layer{src->nChannels, 0, 0};
}

Scratch::~Scratch() {
  moxFree(offsets_);
  moxFree(weights_);
  moxFree(rows_);
}

bool Scratch::allocate(i64 values) {
  if (values > (1 << 24)) return false;
  const int bytes = static_cast<int>(values) * 16;
  values_ = values;
  offsets_ = static_cast<int*>(moxMalloc(bytes));
  weights_ = moxMalloc(bytes);
  rows_ = moxMalloc(bytes + static_cast<int>(values) * (4 + 32));
  return offsets_ && weights_ && rows_;
}

Job jobOf(const MoxImage* src, MoxImage* dst, int xU, int xL, int yU, int yL, const int* point,
          const TileSites* sites) {
  const Box sb = roiBox(src), db = roiBox(dst);
  auto covered = [](i64 length, int u, int l) { return (length * u + l - 1) / l; };
  Job job{};
  job.src = src;
  job.dst = dst;
  job.dx = db.x0, job.dy = db.y0;
  job.width = static_cast<int>(std::min(db.x1 - db.x0, covered(sb.x1 - sb.x0, xU, xL)));
  job.height = static_cast<int>(std::min(db.y1 - db.y0, covered(sb.y1 - sb.y0, yU, yL)));
  job.point = point;
  job.sites = sites;
  job.maxPieceWidth = std::max(1, 8192 / channelsOf(src));
  return job;
}

bool resample(const Job& job, const Resampler& r) {
  Driver driver(job, r);
  return driver.run();
}

}  // namespace mox::geom
