// The ROI/tile walk: common rectangle, tile request, tile pieces, release.
#include "image/walk.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace mox {
namespace {

using i64 = long long;

struct Part {
  const MoxImage* image;
  int coi;                  // the channel of interest the views carry
  const MoxTileInfo* tile;  // null for an untiled image
  i64 tileW, tileH;         // the tile size, read once: call-backs write the tile info
  i64 x, y;                 // start of the image's rectangle
  i64 tileStep;             // row step inside a tile
  View tileView;            // a view into a tile, all but its place and size
  i64 colBytes;             // bytes from one column to the next (0: packed bits)
  i64 joinBytes;            // bytes of a pixel when rows may join (else 0)
  bool held;
  int heldX, heldY;
};

// The ROI rectangle clipped to the image; empty sizes become 0. Always
// inline: it runs for every image of every call, and a copy out of line
// made a one-tile call 8 ns slower.
[[gnu::always_inline]] inline void clipped(const MoxImage* im, i64& x, i64& y, i64& w, i64& h) {
  x = 0, y = 0, w = im->width, h = im->height;
  if (const MoxROI* roi = im->roi) {
    x = std::max(roi->xOffset, 0);
    y = std::max(roi->yOffset, 0);
    w = std::min<i64>(roi->width, im->width - x);
    h = std::min<i64>(roi->height, im->height - y);
  }
  w = std::max<i64>(w, 0);
  h = std::max<i64>(h, 0);
}

// x = q * d + r for 0 <= x and 0 < d. The walk's places fit in 32 bits,
// where a division costs a fraction of a 64-bit one (and no library call on
// 32-bit builds); the first tile needs none.
void divide(i64 x, i64 d, i64& q, i64& r) {
  if (x < d) {
    q = 0, r = x;
  } else if (x <= 0xffffffffll) {
    const std::uint32_t u = static_cast<std::uint32_t>(x), v = static_cast<std::uint32_t>(d);
    q = u / v, r = u - static_cast<std::uint32_t>(q) * v;
  } else {
    q = x / d, r = x - q * d;
  }
}

}  // namespace

View blockView(const MoxImage* im, char* base, i64 step, i64 planeStep, i64 ox, i64 oy, i64 x,
               i64 y, i64 w, i64 h) {
  const unsigned bits = depthBits(im->depth);
  const i64 col = x - ox;
  i64 byte;
  int bitOffset = 0;
  if (bits == 1) {
    byte = col >> 3;
    bitOffset = static_cast<int>(col & 7);
  } else {
    byte = col * (bits >> 3) * (im->dataOrder == 0 ? im->nChannels : 1);
  }
  View v;
  v.data = base + (y - oy) * step + byte;
  v.widthStep = static_cast<int>(step);
  v.width = static_cast<int>(w);
  v.height = static_cast<int>(h);
  v.nChannels = im->nChannels;
  v.coi = im->roi ? im->roi->coi : 0;
  v.dataOrder = im->dataOrder;
  v.depth = im->depth;
  v.bitOffset = bitOffset;
  v.planeStep = static_cast<std::ptrdiff_t>(planeStep);
  return v;
}

bool reportTileData(const WalkPlan& plan, int line, const char* name, bool afterGet) {
  const char* own = afterGet ? plan.nullText : plan.releaseText;
  char message[160];
  if (!own)
    std::snprintf(message, sizeof message, "(%s->tileInfo->tileData %s %s)", name,
                  afterGet ? "==" : "!=", plan.null);
  mox::report(Site{plan.func, plan.file, line}, own ? own : message,
              afterGet ? plan.nullStatus : MOX_StsBadArgument);
  return false;
}

namespace {

bool coversWhole(const MoxImage* im) {
  const MoxROI* roi = im->roi;
  if (!roi) return true;
  i64 x, y, w, h;
  clipped(im, x, y, w, h);
  return x == 0 && y == 0 && w == im->width && h == im->height &&
         (roi->coi == 0 || (roi->coi == 1 && im->nChannels == 1));
}

// The flat whole-image views, or false when the images do not qualify.
bool flatViews(const WalkImage* images, int n, View* views) {
  const MoxImage* d = images[n - 1].image;
  for (int i = 0; i < n; ++i) {
    const MoxImage* im = images[i].image;
    if (im->width != d->width || im->height != d->height || im->imageSize != d->imageSize ||
        im->widthStep != d->widthStep || !coversWhole(im))
      return false;
  }
  const unsigned bits = depthBits(d->depth);
  i64 elements = bits == 1 ? i64(d->imageSize) * 8 : d->imageSize / (bits / 8);
  if (elements > 0x7fffffff) return false;
  for (int i = 0; i < n; ++i) {
    const MoxImage* im = images[i].image;
    views[i] =
        View{im->imageData, im->imageSize, static_cast<int>(elements), 1, 1, 0, 0, im->depth, 0,
             im->imageSize};
  }
  return true;
}

// The last byte of a view of whole-byte values in pixel order; null for
// other views.
const char* lastByte(const View& v) {
  const unsigned bits = depthBits(v.depth);
  if (bits < 8 || v.dataOrder != 0 || v.width <= 0 || v.height <= 0) return nullptr;
  const std::ptrdiff_t rowBytes = std::ptrdiff_t(v.width) * v.nChannels * (bits >> 3);
  return v.data + std::ptrdiff_t(v.height - 1) * v.widthStep + rowBytes - 1;
}

class Walker {
 public:
  Walker(const WalkPlan& plan, const WalkImage* images, int n)
      : plan_(plan), images_(images), n_(n) {}

  // Runs the kernel, or the piece function when one is given.
  bool run(const int* mapping, Kernel kernel, const void* arg, PieceFn piece = nullptr);

 private:
  bool report(int line, const char* name, bool afterGet) {
    // A release test may be left out (line 0); a get that left no tile never is.
    return (line == 0 && !afterGet) || reportTileData(plan_, line, name, afterGet);
  }
  int line(int k) const { return plan_.lines->tileData[k]; }
  bool acquire(int i, int tx, int ty);
  bool cutToTile(const int* mapping);
  bool cutToPoint(const int* mapping);
  bool walkPieces(const void* arg);
  bool releaseAll();
  // When every view's rows follow each other with no gap (pixel order, all
  // channels, row step equal to the row's bytes), the rows become one long
  // row, so the kernel runs one lane instead of one per row.
  void joinRows(View* views) const {
    for (int i = 0; i < n_; ++i) {
      const View& v = views[i];
      if (v.height < 2 || !parts_[i].joinBytes || v.width * parts_[i].joinBytes != v.widthStep)
        return;
    }
    for (int i = 0; i < n_; ++i) {
      views[i].width *= views[i].height;
      views[i].height = 1;
    }
  }
  // Runs on one piece whose destination starts at (x, y).
  bool runPiece(View* views, const void* arg, i64 x, i64 y) {
    if (large_) {
      // A large destination is stored past the caches whole lines at a
      // time, but the lines at the two ends of a piece, which it shares with
      // its neighbours, go through the cache: such a store waits for its
      // line to be read in and holds up every store behind it. Asking for
      // both lines first lets those reads overlap the piece's work (64x64
      // tiles of 8-bit values off a line boundary took 1.5 times as long
      // without).
      // The prefetch is written here, not in a helper: a helper holding
      // only prefetches counts as free of effects and its calls are dropped.
      if (const char* last = lastByte(views[n_ - 1])) {
        __builtin_prefetch(views[n_ - 1].data, 1);
        __builtin_prefetch(last, 1);
      }
    }
    if (piece_)
      return piece_(views[n_ - 1], static_cast<int>(x), static_cast<int>(y),
                    const_cast<void*>(arg));
    joinRows(views);
    views[n_ - 1].large = large_;
    kernel_(views, arg);
    return true;
  }

  const WalkPlan& plan_;
  const WalkImage* images_;
  int n_;
  Part parts_[kMaxWalkImages];
  i64 w_ = 0, h_ = 0;
  bool firstWalk_ = false;
  bool large_ = false;
  Kernel kernel_ = nullptr;
  PieceFn piece_ = nullptr;
};

bool Walker::acquire(int i, int tx, int ty) {
  Part& p = parts_[i];
  if (p.held && p.heldX == tx && p.heldY == ty) return true;
  const MoxImage* im = p.image;
  MoxTileInfo* tile = im->tileInfo;
  const char* name = images_[i].name;
  if (!firstWalk_ && p.held) {
    tile->callBack(im, p.heldX, p.heldY, MOX_RELEASE_TILE);
    if (tile->tileData && !report(line(n_ + 2 * i), name, false)) return false;
  }
  tile->callBack(im, tx, ty, images_[i].write ? MOX_GET_TILE_TO_WRITE : MOX_GET_TILE_TO_READ);
  p.held = true, p.heldX = tx, p.heldY = ty;
  if (!tile->tileData && !report(line(firstWalk_ ? i : n_ + 2 * i + 1), name, true)) return false;
  return true;
}

// Cuts the rectangle down to the destination tile named by the request.
bool Walker::cutToTile(const int* mapping) {
  Part& d = parts_[n_ - 1];
  const i64 begX = i64(mapping[0]) * d.tile->width, endX = begX + d.tile->width;
  const i64 begY = i64(mapping[1]) * d.tile->height, endY = begY + d.tile->height;
  static const char* const kTexts[4] = {"(dTile.begX > dRoi.endX)", "(dTile.begY > dRoi.endY)",
                                        "(dTile.endX < dRoi.begX)", "(dTile.endY < dRoi.begY)"};
  const bool fails[4] = {begX > d.x + w_, begY > d.y + h_, endX < d.x, endY < d.y};
  for (int k = 0; k < 4; ++k) {
    if (!fails[k]) continue;
    mox::report(Site{plan_.func, plan_.file, plan_.lines->request[k]}, kTexts[k]);
    return false;
  }
  const i64 dx = std::max<i64>(begX - d.x, 0), dy = std::max<i64>(begY - d.y, 0);
  const i64 w = std::min(d.x + w_, endX) - (d.x + dx);
  const i64 h = std::min(d.y + h_, endY) - (d.y + dy);
  for (int i = 0; i < n_; ++i) parts_[i].x += dx, parts_[i].y += dy;
  w_ = std::max<i64>(w, 0);
  h_ = std::max<i64>(h, 0);
  return true;
}

// The view of a rectangle of an untiled image.
View plainView(const MoxImage* im, i64 x, i64 y, i64 w, i64 h) {
  return blockView(im, im->imageData, im->widthStep, i64(im->widthStep) * im->height, 0, 0, x, y,
                   w, h);
}

// Cuts the rectangle down to the destination pixel named by the request;
// false when the pixel lies outside it (no work).
bool Walker::cutToPoint(const int* mapping) {
  Part& d = parts_[n_ - 1];
  const i64 dx = i64(mapping[0]) - d.x, dy = i64(mapping[1]) - d.y;
  if (dx < 0 || dy < 0 || dx >= w_ || dy >= h_) return false;
  for (int i = 0; i < n_; ++i) parts_[i].x += dx, parts_[i].y += dy;
  w_ = h_ = 1;
  return true;
}

bool Walker::run(const int* mapping, Kernel kernel, const void* arg, PieceFn piece) {
  kernel_ = kernel;
  piece_ = piece;
  bool tiled = false;
  w_ = h_ = 0x7fffffff;
  for (int i = 0; i < n_; ++i) {
    Part& p = parts_[i];
    p.image = images_[i].image;
    p.tile = p.image->tileInfo;
    p.held = false;
    p.coi = p.image->roi && plan_.area == Area::rois ? p.image->roi->coi : 0;
    const unsigned bits = depthBits(p.image->depth);
    p.joinBytes = bits == 1 || p.image->dataOrder != 0 || p.coi != 0
                      ? 0
                      : i64(p.image->nChannels) * (bits >> 3);
    i64 w, h;
    if (plan_.area == Area::rois || (plan_.area == Area::firstRoi && i == 0)) {
      clipped(p.image, p.x, p.y, w, h);
    } else if (plan_.area == Area::whole) {
      p.x = p.y = 0, w = p.image->width, h = p.image->height;
    } else {
      p.x = parts_[0].x, p.y = parts_[0].y;
      w = std::max<i64>(p.image->width - p.x, 0), h = std::max<i64>(p.image->height - p.y, 0);
    }
    w_ = std::min(w_, w);
    h_ = std::min(h_, h);
    if (p.tile) {
      tiled = true;
      p.tileW = p.tile->width, p.tileH = p.tile->height;
      int step = 0, size = 0;
      layoutSize(p.tile->width, p.tile->height, p.image->depth, p.image->nChannels,
                 p.image->dataOrder, p.image->align, &step, &size);
      p.tileStep = step;
      p.tileView = blockView(p.image, nullptr, step, i64(step) * p.tile->height, 0, 0, 0, 0, 0, 0);
      p.tileView.coi = p.coi;
      p.colBytes = bits == 1 ? 0 : (bits >> 3) * (p.image->dataOrder == 0 ? p.image->nChannels : 1);
    }
  }
  const MoxImage* d = parts_[n_ - 1].image;
  // w x h x bits / 8 >= kLargeBytes; a product that leaves 64 bits (a tiled
  // image may be 2^31 wide and high with 2^31 channels) is large too.
  const i64 pixelBits = i64(workChannels(d)) * depthBits(d->depth);
  i64 bits = 0;
  large_ = __builtin_mul_overflow(w_ * h_, pixelBits, &bits) || bits >= 8 * kLargeBytes;
  if (mapping && plan_.pointMapping && !cutToPoint(mapping)) return true;
  View views[kMaxWalkImages];
  if (!tiled) {
    if (w_ == 0 || h_ == 0) return true;
    if (piece || !plan_.wholeImage || !flatViews(images_, n_, views))
      for (int i = 0; i < n_; ++i) {
        views[i] = plainView(parts_[i].image, parts_[i].x, parts_[i].y, w_, h_);
        views[i].coi = parts_[i].coi;
      }
    return runPiece(views, arg, parts_[n_ - 1].x, parts_[n_ - 1].y);
  }
  if (mapping && !plan_.pointMapping && parts_[n_ - 1].tile) {
    firstWalk_ = true;
    if (!cutToTile(mapping)) return false;
  }
  return walkPieces(arg) && releaseAll();
}

// Bands of rows end where any image's tile row ends; pieces of a band end
// where any image's tile column ends. Each tiled image keeps a cursor (its
// tile and the place inside it) that moves with the pieces, so a piece costs
// no division.
bool Walker::walkPieces(const void* arg) {
  // All fields 64-bit: a tile index stored as 32 bits and then read with
  // its neighbour as one 64-bit word cannot be forwarded from the store and
  // stalled every piece.
  struct Cursor {
    i64 tx, ty, col, row;
  };
  View views[kMaxWalkImages];
  // Every band starts at the same column of each image: its tile column
  // and the place in it are kept apart, so a band resets two fields.
  Cursor at[kMaxWalkImages];
  i64 tx0[kMaxWalkImages], col0[kMaxWalkImages];
  for (int i = 0; i < n_; ++i) {
    if (parts_[i].tile) {
      divide(parts_[i].x, parts_[i].tileW, tx0[i], col0[i]);
      divide(parts_[i].y, parts_[i].tileH, at[i].ty, at[i].row);
      views[i] = parts_[i].tileView;
    } else {
      tx0[i] = col0[i] = 0;
    }
  }
  i64 band = 0, piece = 0;
  for (i64 ry = 0; ry < h_; ry += band) {
    band = h_ - ry;
    for (int i = 0; i < n_; ++i)
      if (parts_[i].tile) band = std::min(band, parts_[i].tileH - at[i].row);
    for (int i = 0; i < n_; ++i) at[i].tx = tx0[i], at[i].col = col0[i];
    for (i64 rx = 0; rx < w_; rx += piece) {
      piece = w_ - rx;
      for (int i = 0; i < n_; ++i)
        if (parts_[i].tile) piece = std::min(piece, parts_[i].tileW - at[i].col);
      for (int k = 0; k < n_; ++k) {
        const int i = !plan_.destinationFirst ? k : k == 0 ? n_ - 1 : k - 1;
        const Part& p = parts_[i];
        View& v = views[i];
        if (!p.tile) {
          v = plainView(p.image, p.x + rx, p.y + ry, piece, band);
          v.coi = p.coi;
          continue;
        }
        if (!acquire(i, static_cast<int>(at[i].tx), static_cast<int>(at[i].ty))) return false;
        v.data = p.tile->tileData + at[i].row * p.tileStep;
        if (p.colBytes) {
          v.data += at[i].col * p.colBytes;
        } else {
          v.data += at[i].col >> 3;
          v.bitOffset = static_cast<int>(at[i].col & 7);
        }
        v.width = static_cast<int>(piece);
        v.height = static_cast<int>(band);
      }
      const Part& d = parts_[n_ - 1];
      if (!runPiece(views, arg, d.x + rx, d.y + ry)) return false;
      for (int i = 0; i < n_; ++i)
        if (parts_[i].tile && (at[i].col += piece) == parts_[i].tileW) at[i].col = 0, ++at[i].tx;
    }
    for (int i = 0; i < n_; ++i)
      if (parts_[i].tile && (at[i].row += band) == parts_[i].tileH) at[i].row = 0, ++at[i].ty;
  }
  return true;
}

bool Walker::releaseAll() {
  for (int i = 0; i < n_; ++i) {
    const Part& p = parts_[i];
    if (!p.tile) continue;
    p.tile->callBack(p.image, p.held ? p.heldX : 0, p.held ? p.heldY : 0, MOX_RELEASE_TILE);
    if (p.tile->tileData && !report(line(3 * n_ + i), images_[i].name, false)) return false;
  }
  return true;
}

}  // namespace

bool walk(const WalkPlan& plan, const WalkImage* images, int n, const int* mapping, Kernel kernel,
          const void* arg) {
  Walker walker(plan, images, n);
  return walker.run(mapping, kernel, arg);
}

bool walkDestination(const WalkPlan& plan, const WalkImage& dst, const int* mapping, PieceFn fn,
                     void* arg) {
  Walker walker(plan, &dst, 1);
  return walker.run(mapping, nullptr, arg, fn);
}

bool plainViews(const MoxImage* const* images, int n, View* views) {
  i64 x[3], y[3], w = 0x7fffffff, h = 0x7fffffff;
  for (int i = 0; i < n; ++i) {
    i64 wi, hi;
    clipped(images[i], x[i], y[i], wi, hi);
    w = std::min(w, wi);
    h = std::min(h, hi);
  }
  if (w == 0 || h == 0) return false;
  for (int i = 0; i < n; ++i) views[i] = plainView(images[i], x[i], y[i], w, h);
  return true;
}

bool badLayout(const MoxImage* image, const char* name, const Site& at) {
  const char* pattern = nullptr;
  const unsigned bits = depthBits(image->depth);
  if (const MoxTileInfo* tile = image->tileInfo) {
    int step = 0, size = 0;
    if (!layoutSize(tile->width, tile->height, image->depth, image->nChannels, image->dataOrder,
                    image->align, &step, &size))
      pattern = "(%s->tileInfo->width * %s->tileInfo->height is too large)";
  } else {
    // Rows past the first must fit in what the block holds after the last
    // row's pixels: (rows - 1) x step <= size - row bytes, asked by division
    // so that nothing overflows (step > 0 after the header check).
    const bool plane = image->dataOrder == 1;
    const i64 rowBytes = pixelRowBytes(image->width, bits, plane ? 1 : image->nChannels);
    const i64 rows = i64(image->height) * (plane ? image->nChannels : 1);
    if (rowBytes < 0 || image->widthStep < rowBytes)
      pattern = "(%s->widthStep < the bytes of %s->width pixels)";
    else if (image->imageSize < rowBytes ||
             rows - 1 > (image->imageSize - rowBytes) / image->widthStep)
      pattern = "(%s->imageSize < the bytes of %s->height rows)";
  }
  if (!pattern) return false;
  char message[160];
  std::snprintf(message, sizeof message, pattern, name, name);
  report(at, message);
  return true;
}

}  // namespace mox
