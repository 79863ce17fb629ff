// The neighbourhood driver: destination pieces, source blocks through the
// shared reader, compact rows for the block functions.
#include "filter/neigh.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "frame/frame.h"
#include "image/turn.h"

namespace mox::filt {
namespace {

using i64 = long long;

// One lane of a view: cn channels interleaved, `ps` values from one pixel to
// the next, starting at channel `channel` (1-based) of `data`.
struct ChannelLane {
  char* data;
  int ps;
  int channel;
};

// The number of lanes of a view: one per plane of a plane-order image with
// all channels, else one.
int laneCount(const View& v) { return v.dataOrder == 1 && v.coi == 0 ? v.nChannels : 1; }

// Lane k of a view and the channels it holds together.
ChannelLane laneOf(const View& v, int k, int* cn) {
  const int eb = static_cast<int>(depthBits(v.depth) / 8);
  *cn = 1;
  if (v.dataOrder == 0) {
    if (v.coi == 0) {
      *cn = v.nChannels;
      return {v.data, v.nChannels, 1};
    }
    return {v.data + std::ptrdiff_t(v.coi - 1) * eb, v.nChannels, v.coi};
  }
  const int plane = v.coi != 0 ? v.coi - 1 : k;
  return {v.data + std::ptrdiff_t(plane) * v.planeStep, 1, plane + 1};
}

View subView(const View& v, int x, int y, int w, int h) {
  View s = v;
  const unsigned bits = depthBits(v.depth);
  s.data += std::ptrdiff_t(y) * v.widthStep;
  if (bits == 1) {
    const i64 bit = i64(v.bitOffset) + x;
    s.data += bit >> 3;
    s.bitOffset = static_cast<int>(bit & 7);
  } else {
    s.data += std::ptrdiff_t(x) * (bits / 8) * (v.dataOrder == 0 ? v.nChannels : 1);
  }
  s.width = w;
  s.height = h;
  return s;
}

// Copies values of size E between lanes: n pixels of cn channels.
template <class E>
void moveLane(const char* from, int fromPs, char* to, int toPs, int n, int cn) {
  const E* f = reinterpret_cast<const E*>(from);
  E* d = reinterpret_cast<E*>(to);
  for (int i = 0; i < n; ++i)
    for (int c = 0; c < cn; ++c) d[std::ptrdiff_t(i) * toPs + c] = f[std::ptrdiff_t(i) * fromPs + c];
}

void moveValues(int eb, const char* from, int fromPs, char* to, int toPs, int n, int cn) {
  if (eb == 1)
    moveLane<std::uint8_t>(from, fromPs, to, toPs, n, cn);
  else if (eb == 2)
    moveLane<std::uint16_t>(from, fromPs, to, toPs, n, cn);
  else
    moveLane<std::uint32_t>(from, fromPs, to, toPs, n, cn);
}

void clipped(const MoxImage* im, i64* x, i64* y, i64* w, i64* h) {
  *x = 0, *y = 0, *w = im->width, *h = im->height;
  if (const MoxROI* roi = im->roi) {
    *x = std::max(roi->xOffset, 0);
    *y = std::max(roi->yOffset, 0);
    *w = std::min<i64>(roi->width, im->width - *x);
    *h = std::min<i64>(roi->height, im->height - *y);
  }
  *w = std::max<i64>(*w, 0);
  *h = std::max<i64>(*h, 0);
}

struct Job {
  const OpTable* table;
  const SourceLines* lines;
  SourceReader* reader;
  const MoxTileInfo* tiles;  // the source's, or null
  int srcWidth, srcHeight;
  i64 dx0, dy0, sx0, sy0, width, height;
  Window win;
  bool fold;
  bool turns;  // the operation may take its blocks turned on their side
  BlockFn fn;
  const void* arg;
  Scratch srcRows, dstRows, pointers, dstPointers, work;
};

// The axis of a block whose unfolded positions run from image coordinate c0
// to c1 over an image n long: folded on a side where it reaches more than
// a period past the image (when the operation folds).
Fold foldAxis(bool fold, i64 c0, i64 c1, int n) {
  const i64 period = borderPeriod(n);
  const bool near = fold && c0 < -period, far = fold && c1 > n - 1 + period;
  const i64 f0 = near ? -period : c0, f1 = far ? n - 1 + period : c1;
  return Fold{c0 - f0, static_cast<int>(f1 - f0 + 1), near || far ? static_cast<int>(period) : 0, near, far};
}

// One destination rectangle whose first pixel lies over source pixel (sx, sy).
bool runBlock(Job& job, const View& dv, int sx, int sy) {
  const Window& win = job.win;
  const int w = dv.width, h = dv.height;
  const Fold fx = foldAxis(job.fold, i64(sx) - win.left, i64(sx) + w - 1 + win.right, job.srcWidth);
  const Fold fy = foldAxis(job.fold, i64(sy) - win.top, i64(sy) + h - 1 + win.bottom, job.srcHeight);
  const int ws = fx.size, hs = fy.size;
  View sv;
  if (!job.reader->readInPlace(static_cast<int>(sx - win.left - fx.shift), static_cast<int>(sy - win.top - fy.shift),
                        ws, hs, &sv))
    return false;
  int cn = 1, dcn = 1;
  laneOf(sv, 0, &cn);
  const bool bit = depthBits(dv.depth) == 1;
  const int eb = bit ? 1 : static_cast<int>(depthBits(dv.depth) / 8);
  const std::size_t srcRowBytes = std::size_t(ws) * cn * eb, dstRowBytes = std::size_t(w) * cn * eb;
  if (!job.pointers.reserve(sizeof(void*) * std::size_t(hs)) ||
      !job.dstPointers.reserve(sizeof(void*) * std::size_t(h)) ||
      !job.srcRows.reserve(srcRowBytes * hs) || !job.dstRows.reserve(dstRowBytes * h)) {
    outOfMemory(*job.table, job.lines->memory);
    return false;
  }
  const void** srcPtr = job.pointers.as<const void*>();
  void** dstPtr = job.dstPointers.as<void*>();
  for (int k = 0; k < laneCount(sv); ++k) {
    const ChannelLane sl = laneOf(sv, k, &cn), dl = laneOf(dv, k, &dcn);
    const bool srcDirect = !bit && sl.ps == cn, dstDirect = !bit && dl.ps == cn;
    for (int r = 0; r < hs; ++r) {
      char* row = sl.data + std::ptrdiff_t(r) * sv.widthStep;
      if (srcDirect) {
        srcPtr[r] = row;
        continue;
      }
      char* into = job.srcRows.as<char>() + srcRowBytes * r;
      if (bit)
        for (int i = 0; i < ws; ++i) into[i] = static_cast<char>(viewValue(sv, i, r, 1));
      else
        moveValues(eb, row, sl.ps, into, cn, ws, cn);
      srcPtr[r] = into;
    }
    for (int r = 0; r < h; ++r)
      dstPtr[r] = dstDirect ? dl.data + std::ptrdiff_t(r) * dv.widthStep
                            : job.dstRows.as<char>() + dstRowBytes * r;
    if (!job.fn(Block{srcPtr, dstPtr, w, h, cn, win, &job.work, fx, fy}, job.arg)) {
      outOfMemory(*job.table, job.lines->memory);
      return false;
    }
    if (dstDirect) continue;
    for (int r = 0; r < h; ++r) {
      const char* from = static_cast<const char*>(dstPtr[r]);
      if (bit)
        for (int i = 0; i < w; ++i) setViewValue(dv, i, r, 1, static_cast<unsigned char>(from[i]));
      else
        moveValues(eb, from, cn, dl.data + std::ptrdiff_t(r) * dv.widthStep, dl.ps, w, cn);
    }
  }
  return true;
}

// The end of the stretch of one axis that starts at c and reads in one
// piece, up to `end`: a tile (`tile` long) of an image n long, with what
// lies beyond the image on either side, which the reader then fills from
// the pixels it holds.
i64 stretchEnd(i64 c, i64 end, int tile, int n) {
  const i64 stop = c < 0 ? std::min<i64>(tile, n) : std::min<i64>(n, (c / tile + 1) * tile);
  return stop >= n ? end : std::min(end, stop);
}

// A narrow, tall destination rectangle (the side margins of a piece) for an
// operation that gives the same values whichever way its window runs: the
// source block is gathered turned on its side (from the source where it
// lies, tile by tile; through the reader's copies beyond the image), so
// the block function takes a few long rows instead of many short ones,
// and the result is turned back.
bool runTurned(Job& job, const View& dv, int sx, int sy) {
  const Window& win = job.win;
  const int w = dv.width, h = dv.height;
  const int ws = w + win.left + win.right, hs = h + win.top + win.bottom;
  const int cn = dv.nChannels, pix = static_cast<int>(depthBits(dv.depth) / 8) * cn;
  const unsigned long long in = 1ull * ws * hs * pix, out = 1ull * w * h * pix;
  if (in + out > static_cast<unsigned long long>(PTRDIFF_MAX) ||
      !job.srcRows.reserve(static_cast<std::size_t>(in + out)) || !job.pointers.reserve(sizeof(void*) * std::size_t(ws)) ||
      !job.dstPointers.reserve(sizeof(void*) * std::size_t(w))) {
    outOfMemory(*job.table, job.lines->memory);
    return false;
  }
  char* turned = job.srcRows.as<char>();
  char* result = turned + static_cast<std::ptrdiff_t>(in);
  const std::ptrdiff_t inStep = std::ptrdiff_t(hs) * pix, outStep = std::ptrdiff_t(h) * pix;
  const int tw = job.tiles ? job.tiles->width : job.srcWidth;
  const int th = job.tiles ? job.tiles->height : job.srcHeight;
  const i64 x0 = i64(sx) - win.left, y0 = i64(sy) - win.top;
  for (i64 cx = x0, nx; cx < x0 + ws; cx = nx) {
    nx = stretchEnd(cx, x0 + ws, tw, job.srcWidth);
    for (i64 cy = y0, ny; cy < y0 + hs; cy = ny) {
      ny = stretchEnd(cy, y0 + hs, th, job.srcHeight);
      View v;
      if (!job.reader->readInPlace(static_cast<int>(cx), static_cast<int>(cy), static_cast<int>(nx - cx),
                                   static_cast<int>(ny - cy), &v))
        return false;
      turnPixels(v.data, v.widthStep, static_cast<int>(nx - cx), static_cast<int>(ny - cy), pix,
                 turned + (cx - x0) * inStep + (cy - y0) * pix, inStep);
    }
  }
  const void** srcPtr = job.pointers.as<const void*>();
  void** dstPtr = job.dstPointers.as<void*>();
  for (int c = 0; c < ws; ++c) srcPtr[c] = turned + c * inStep;
  for (int c = 0; c < w; ++c) dstPtr[c] = result + c * outStep;
  const Window across{win.top, win.left, win.bottom, win.right};
  const Fold fx = foldAxis(false, 0, hs - 1, hs), fy = foldAxis(false, 0, ws - 1, ws);
  if (!job.fn(Block{srcPtr, dstPtr, h, w, cn, across, &job.work, fx, fy}, job.arg)) {
    outOfMemory(*job.table, job.lines->memory);
    return false;
  }
  turnPixels(result, outStep, h, w, pix, dv.data, dv.widthStep);
  return true;
}

// Cuts [0, n) at a and b (clamped, ordered).
void cuts(i64 a, i64 b, int n, int* out) {
  out[0] = 0;
  out[1] = static_cast<int>(std::clamp<i64>(a, 0, n));
  out[2] = static_cast<int>(std::clamp<i64>(b, out[1], n));
  out[3] = n;
}

bool piece(const View& dst, int x, int y, void* arg) {
  Job& job = *static_cast<Job*>(arg);
  const int w = static_cast<int>(std::min<i64>(dst.width, job.dx0 + job.width - x));
  const int h = static_cast<int>(std::min<i64>(dst.height, job.dy0 + job.height - y));
  if (w <= 0 || h <= 0) return true;
  const int sx = static_cast<int>(x - job.dx0 + job.sx0), sy = static_cast<int>(y - job.dy0 + job.sy0);
  const Window& win = job.win;
  // The columns and rows whose windows lie inside the source pixels held
  // in one block (a plain image, or the source tile under the middle of
  // the piece) are read where they lie; only the margins are copied.
  i64 ax0 = 0, ay0 = 0, ax1 = job.srcWidth, ay1 = job.srcHeight;
  if (const MoxTileInfo* t = job.tiles) {
    ax0 = std::clamp<i64>(i64(sx) + w / 2, 0, job.srcWidth - 1) / t->width * t->width;
    ay0 = std::clamp<i64>(i64(sy) + h / 2, 0, job.srcHeight - 1) / t->height * t->height;
    ax1 = std::min<i64>(ax0 + t->width, job.srcWidth);
    ay1 = std::min<i64>(ay0 + t->height, job.srcHeight);
  }
  int cols[4], rows[4];
  cuts(ax0 + win.left - sx, ax1 - win.right - sx, w, cols);
  cuts(ay0 + win.top - sy, ay1 - win.bottom - sy, h, rows);
  // Margins cut from a tiled source pay only when they are turned (each
  // then takes a few calls of the block function, not one per row), and
  // only when the tile holds most of the piece's windows; else the whole
  // piece is copied.
  if (job.tiles && (!job.turns || 2 * i64(cols[2] - cols[1]) * (rows[2] - rows[1]) < i64(w) * h)) {
    cuts(0, w, w, cols);
    cuts(0, h, h, rows);
  }
  // Each margin block reads its window's whole reach again: when that is
  // more than an eighth of the piece, copying the piece whole costs less.
  if (8 * (i64(win.left) + win.right) > w) cuts(0, w, w, cols);
  if (8 * (i64(win.top) + win.bottom) > h) cuts(0, h, h, rows);
  // Rows in runs of about 256 KiB of source, so that a block's rows stay
  // in the caches while the kernel reads them; each run's margins follow
  // its middle while its rows are still there.
  const i64 rowBytes = (i64(w) + win.left + win.right) * dst.nChannels * std::max<i64>(depthBits(dst.depth) / 8, 1);
  const int chunk = static_cast<int>(
      std::min<i64>(h, std::max<i64>({8, 4 * (i64(win.top) + win.bottom), (i64(256) << 10) / rowBytes})));
  for (int rs : {1, 0, 2}) {
    // The margin rows above and below go whole, in one block each.
    const bool wide = rs != 1 && cols[1] < cols[2];
    for (int r0 = rows[rs]; r0 < rows[rs + 1]; r0 += chunk) {
      const int rh = std::min(chunk, rows[rs + 1] - r0);
      for (int cs : {1, 0, 2}) {
        if (wide && cs != 1) continue;
        const int c0 = wide ? 0 : cols[cs], cw = wide ? w : cols[cs + 1] - c0;
        if (cw <= 0) continue;
        const View part = subView(dst, c0, r0, cw, rh);
        const bool turned = job.turns && !wide && cs != 1 && cw < rh;
        if (!(turned ? runTurned : runBlock)(job, part, sx + c0, sy + r0)) return false;
      }
    }
  }
  return true;
}

// Whether a position outside the image can be read depends only on the
// side or corner it lies beyond, so one read in each such region that the
// source rectangle reaches shows, before anything is written, whether the
// border modes serve the whole operation (the reader reports when not).
bool bordersServe(SourceReader& reader, const MoxImage* s, const Job& job, const Window& win) {
  const i64 x0 = job.sx0 - win.left, x1 = job.sx0 + job.width + win.right;
  const i64 y0 = job.sy0 - win.top, y1 = job.sy0 + job.height + win.bottom;
  const i64 xs[3] = {-1, 0, s->width}, ys[3] = {-1, 0, s->height};
  const bool xIn[3] = {x0 < 0, x0 < s->width && x1 > 0, x1 > s->width};
  const bool yIn[3] = {y0 < 0, y0 < s->height && y1 > 0, y1 > s->height};
  View v;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i)
      if ((i != 1 || j != 1) && xIn[i] && yIn[j] &&
          !reader.read(static_cast<int>(xs[i]), static_cast<int>(ys[j]), 1, 1, &v))
        return false;
  return true;
}

// Images whose rows a turned block can take: whole pixels of bytes, all
// channels of a pixel-order image or a single channel.
bool turnable(const MoxImage* im) {
  const int coi = im->roi ? im->roi->coi : 0;
  return depthBits(im->depth) >= 8 && (im->nChannels == 1 || (im->dataOrder == 0 && coi == 0));
}

SourceSites sitesOf(const OpTable& t, const SourceLines& lines) {
  return SourceSites{t.func, t.file, "srcImage", lines.get, lines.release, lines.border, lines.memory};
}

}  // namespace

Scratch::~Scratch() { platform::giveSpare(p_, size_); }

bool Scratch::reserve(std::size_t bytes) {
  return bytes <= size_ || platform::growSpare(&p_, &size_, size_, bytes);
}

PlainCopy::~PlainCopy() { platform::giveSpare(image_.imageData, held_); }

bool PlainCopy::make(const MoxImage* like) {
  platform::giveSpare(image_.imageData, held_);
  held_ = 0;
  image_ = *like;
  image_.tileInfo = nullptr;
  image_.maskRoi = nullptr;
  image_.imageData = image_.imageDataOrigin = nullptr;
  int step = 0, size = 0;
  if (!layoutSize(like->width, like->height, like->depth, like->nChannels, like->dataOrder,
                  like->align, &step, &size))
    return false;
  image_.widthStep = step;
  image_.imageSize = size;
  // Zeroed, so that no result can depend on what the row padding held.
  const std::size_t bytes = static_cast<std::size_t>(std::max(size, 1));
  image_.imageData = image_.imageDataOrigin = static_cast<char*>(platform::takeSpare(bytes, &held_));
  if (!image_.imageData) return false;
  std::memset(image_.imageData, 0, bytes);
  return true;
}

void outOfMemory(const OpTable& t, int line) {
  report(Site{t.func, t.file, line}, "Out of memory", MOX_StsOutOfMemory);
}

bool mayAlias(const MoxImage* a, const MoxImage* b) {
  if (a == b) return true;
  // Tiled images share tiles when they share the tile record, or when one
  // call-back serves both under the same image and tile ids.
  if (a->tileInfo || b->tileInfo) {
    const MoxTileInfo* ta = a->tileInfo;
    const MoxTileInfo* tb = b->tileInfo;
    return ta && tb &&
           (ta == tb || (ta->callBack == tb->callBack && ta->id == tb->id && a->imageId == b->imageId));
  }
  const auto pa = reinterpret_cast<std::uintptr_t>(a->imageData);
  const auto pb = reinterpret_cast<std::uintptr_t>(b->imageData);
  return pa < pb + std::uintptr_t(std::max(b->imageSize, 0)) &&
         pb < pa + std::uintptr_t(std::max(a->imageSize, 0));
}

bool copyWhole(const OpTable& t, const SourceLines& lines, const MoxImage* src, PlainCopy* into) {
  if (!into->make(src)) {
    outOfMemory(t, lines.memory);
    return false;
  }
  MoxImage* c = into->get();
  SourceReader reader(src, Edge::kModes, sitesOf(t, lines));
  View v;
  if (!reader.read(0, 0, src->width, src->height, &v)) return false;
  const bool plane = src->dataOrder == 1;
  const std::size_t rowBytes =
      (std::size_t(src->width) * depthBits(src->depth) * (plane ? 1 : src->nChannels) + 7) / 8;
  for (int p = 0; p < (plane ? src->nChannels : 1); ++p)
    for (int y = 0; y < src->height; ++y)
      std::memcpy(c->imageData + (std::ptrdiff_t(p) * src->height + y) * c->widthStep,
                  v.data + p * v.planeStep + std::ptrdiff_t(y) * v.widthStep, rowBytes);
  return true;
}

// Whether some block of the job may be folded: a window side reaches more
// than a period past the image only when it is longer than that period.
static bool foldsAny(bool fold, const MoxImage* s, const Window& win) {
  const i64 across = borderPeriod(s->width), down = borderPeriod(s->height);
  return fold && (win.left > across || win.right > across || win.top > down || win.bottom > down);
}

bool run(const OpTable& t, const SourceLines& lines, const MoxImage* src, MoxImage* dst,
         const Window& win, BlockFn fn, const void* arg, bool fold, bool turns) {
  PlainCopy copy;
  const MoxImage* s = src;
  if (mayAlias(src, dst)) {
    if (!copyWhole(t, lines, src, &copy)) return false;
    s = copy.get();
  }
  SourceReader reader(s, Edge::kModes, sitesOf(t, lines));
  Job job{&t, &lines, &reader, s->tileInfo, s->width, s->height, 0, 0, 0, 0, 0, 0,
          win, fold, turns && !foldsAny(fold, s, win) && turnable(s) && turnable(dst), fn, arg, {}, {}, {}, {}, {}};
  i64 sw, sh, dw, dh;
  clipped(s, &job.sx0, &job.sy0, &sw, &sh);
  clipped(dst, &job.dx0, &job.dy0, &dw, &dh);
  job.width = std::min(sw, dw);
  job.height = std::min(sh, dh);
  // A source block wider or taller than this cannot be had.
  constexpr i64 kLargest = i64(1) << 28;
  if (i64(win.left) + win.right + job.width > kLargest ||
      i64(win.top) + win.bottom + job.height > kLargest) {
    outOfMemory(t, lines.memory);
    return false;
  }
  if (job.width > 0 && job.height > 0 && !bordersServe(reader, s, job, win)) return false;
  const WalkPlan plan{t.func, t.file, &t.walk, false};
  if (!walkDestination(plan, {dst, "dstImage", true}, nullptr, &piece, &job)) {
    reader.finish(false);
    return false;
  }
  return reader.finish();
}

}  // namespace mox::filt
