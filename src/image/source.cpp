// The shared source reader: a rectangle of a source image as a plain view.
#include "image/source.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/frame.h"
#include "image/pointop.h"

namespace mox {
namespace {

using i64 = long long;

// n bytes; the margins of a filter are a pixel or two of each row, where a
// call to the library's copy costs more than the copy.
inline void copyBytes(char* d, const char* s, std::size_t n) {
  if (n <= 16) {
    for (std::size_t i = 0; i < n; ++i) d[i] = s[i];
  } else {
    std::memcpy(d, s, n);
  }
}

// Copies every channel of a rectangle between two views of the same shape.
void copyRect(const View& from, const View& to) {
  const unsigned bits = depthBits(from.depth);
  if (bits == 1) {
    unsigned char row[kBitChunk];
    for (int y = 0; y < from.height; ++y)
      for (int x0 = 0, w = 0; x0 < from.width; x0 += w) {
        w = std::min(from.width - x0, kBitChunk * 8);
        readBits(from, y, x0, w, row);
        writeBits(to, y, x0, w, row);
      }
    return;
  }
  const bool plane = from.dataOrder == 1;
  const std::size_t bytes =
      std::size_t(from.width) * (bits / 8) * static_cast<std::size_t>(plane ? 1 : from.nChannels);
  for (int p = 0; p < (plane ? from.nChannels : 1); ++p)
    for (int y = 0; y < from.height; ++y)
      copyBytes(to.data + p * to.planeStep + std::ptrdiff_t(y) * to.widthStep,
                from.data + p * from.planeStep + std::ptrdiff_t(y) * from.widthStep, bytes);
}

}  // namespace

SourceReader::SourceReader(const MoxImage* image, Edge edge, const SourceSites& sites)
    : image_(image), edge_(edge), sites_(sites) {
  if (const MoxTileInfo* t = image->tileInfo) {
    int step = 0, size = 0;
    layoutSize(t->width, t->height, image->depth, image->nChannels, image->dataOrder, image->align,
               &step, &size);
    tileStep_ = step;
  }
}

// One copy of the plan that fills a block's outside: n pixels to column c
// of a row, from column `from` of the same block row, or of the source row
// the row maps to, or the constant into one pixel.
struct SourceReader::Copy {
  enum Kind : unsigned char { kFromBlock, kFromSource, kConstant } kind;
  long long from, c, n;
};

SourceReader::~SourceReader() {
  platform::giveSpare(scratch_, scratchSize_);
  std::free(plan_);
}

bool SourceReader::fail(int status, int line) {
  const Site at{sites_.func, sites_.file, line};
  if (status == kBorderNoTile || status == kBorderKept) {
    const WalkPlan plan{sites_.func, sites_.file, nullptr, false, false, sites_.nullText,
                        sites_.nullStatus};
    return reportTileData(plan, line, sites_.name, status == kBorderNoTile);
  }
  report(at, "Out of memory", MOX_StsOutOfMemory);
  return false;
}

// Holds the tile with pixel (sx, sy), releasing the one held before.
bool SourceReader::fetch(int sx, int sy, View* tile, int* ox, int* oy) {
  const MoxTileInfo* t = image_->tileInfo;
  const int tx = sx / t->width, ty = sy / t->height;
  if (!held_ || tx != heldX_ || ty != heldY_) {
    if (!release()) return false;
    t->callBack(image_, tx, ty, MOX_GET_TILE_TO_READ);
    held_ = true, heldX_ = tx, heldY_ = ty;
    if (!t->tileData) return fail(kBorderNoTile, sites_.getLine);
  }
  *ox = tx * t->width, *oy = ty * t->height;
  *tile = blockView(image_, t->tileData, tileStep_, tileStep_ * t->height, *ox, *oy, *ox, *oy,
                    t->width, t->height);
  return true;
}

void SourceReader::handBack() {
  held_ = kept_ = false;
  image_->tileInfo->callBack(image_, heldX_, heldY_, MOX_RELEASE_TILE);
}

bool SourceReader::release() {
  if (!held_) return true;
  handBack();
  return !image_->tileInfo->tileData || fail(kBorderKept, sites_.releaseLine);
}

bool SourceReader::copyInside(const View& block, i64 x, i64 y, i64 ix0, i64 iy0, i64 ix1,
                              i64 iy1) {
  const MoxImage* im = image_;
  auto into = [&](i64 cx, i64 cy, i64 w, i64 h) {
    return blockView(im, block.data, block.widthStep, block.planeStep, x, y, cx, cy, w, h);
  };
  if (!im->tileInfo) {
    const View from = blockView(im, im->imageData, im->widthStep, i64(im->widthStep) * im->height,
                                0, 0, ix0, iy0, ix1 - ix0, iy1 - iy0);
    copyRect(from, into(ix0, iy0, ix1 - ix0, iy1 - iy0));
    return true;
  }
  const MoxTileInfo* t = im->tileInfo;
  for (i64 ty = iy0 / t->height; ty * t->height < iy1; ++ty)
    for (i64 tx = ix0 / t->width; tx * t->width < ix1; ++tx) {
      View tile;
      int ox, oy;
      if (!fetch(static_cast<int>(tx * t->width), static_cast<int>(ty * t->height), &tile, &ox, &oy))
        return false;
      const i64 cx0 = std::max<i64>(ix0, ox), cx1 = std::min<i64>(ix1, i64(ox) + t->width);
      const i64 cy0 = std::max<i64>(iy0, oy), cy1 = std::min<i64>(iy1, i64(oy) + t->height);
      const View from = blockView(im, t->tileData, tileStep_, tileStep_ * t->height, ox, oy, cx0,
                                  cy0, cx1 - cx0, cy1 - cy0);
      copyRect(from, into(cx0, cy0, cx1 - cx0, cy1 - cy0));
    }
  return true;
}

// Every outside position of a row segment shares its position code, and so
// one rule: a constant, or the pixel (fx(c), sy) with sy fixed for the row
// and fx reflect, wrap or replicate, which repeat with a period of 2n, n and
// 1 columns and map the image's own columns onto themselves. A segment is
// therefore filled outward from the image: a column comes from the source
// until a whole period lies behind it, then whole runs are copied from one
// or more periods back, doubling each time. The work is the block's size
// plus at most a period per segment, however far the block lies from the
// image.
bool SourceReader::fillOutside(const View& block, i64 x, i64 y, i64 ix0, i64 iy0, i64 ix1,
                               i64 iy1) {
  const MoxImage* im = image_;
  const i64 x1 = x + block.width;
  const View whole = im->tileInfo ? View{} : blockView(im, im->imageData, im->widthStep,
                                                       i64(im->widthStep) * im->height, 0, 0, 0,
                                                       0, im->width, im->height);
  auto cols = [&](i64 c, i64 r, i64 n) {
    return blockView(im, block.data, block.widthStep, block.planeStep, x, y, c, r, n, 1);
  };
  // n pixels from (fc, fr) of a view whose first pixel is (fx0, fy0) to
  // (c, r) of the block; byte depths straight, without views per run.
  const unsigned bits = depthBits(im->depth);
  const int planes = im->dataOrder == 1 ? im->nChannels : 1;
  const i64 pix = bits < 8 ? 0 : i64(bits / 8) * (im->dataOrder == 1 ? 1 : im->nChannels);
  auto move = [&](const View& from, i64 fx0, i64 fy0, i64 fc, i64 fr, i64 c, i64 r, i64 n) {
    if (!pix) {
      copyRect(blockView(im, from.data, from.widthStep, from.planeStep, fx0, fy0, fc, fr, n, 1),
               cols(c, r, n));
      return;
    }
    const char* s = from.data + (fr - fy0) * from.widthStep + (fc - fx0) * pix;
    char* d = block.data + (r - y) * block.widthStep + (c - x) * pix;
    for (int p = 0; p < planes; ++p)
      copyBytes(d + p * block.planeStep, s + p * from.planeStep, static_cast<std::size_t>(n * pix));
  };
  auto inBlock = [&](i64 sx, i64 sy) { return sx >= ix0 && sx < ix1 && sy >= iy0 && sy < iy1; };
  // n pixels of source row sy from column sx into the block at (c, r).
  auto run = [&](i64 sx, i64 sy, i64 n, i64 c, i64 r) {
    if (inBlock(sx, sy) && inBlock(sx + n - 1, sy)) {
      move(block, x, y, sx, sy, c, r, n);
      return true;
    }
    if (!im->tileInfo) {
      move(whole, 0, 0, sx, sy, c, r, n);
      return true;
    }
    const i64 tw = im->tileInfo->width;
    for (i64 from = sx, to; from < sx + n; from = to) {
      View tile;
      int ox, oy;
      if (!fetch(static_cast<int>(from), static_cast<int>(sy), &tile, &ox, &oy)) return false;
      to = std::min(sx + n, i64(ox) + tw);
      move(tile, ox, oy, from, sy, c + (from - sx), r, to - from);
    }
    return true;
  };
  auto badMode = [&](int code) {
    const int side = code & 1 ? 0 : code & 2 ? 1 : code & 4 ? 2 : 3;
    char message[160];
    std::snprintf(message, sizeof message,
                  "(%s->borderMode[%d] < MOX_BORDER_CONSTANT || %s->borderMode[%d] > "
                  "MOX_BORDER_WRAP)",
                  sites_.name, side, sites_.name, side);
    report(Site{sites_.func, sites_.file, sites_.borderLine}, message);
    return false;
  };
  // The columns [m0, m1) lie over the image, [x, m0) left and [m1, x1) right of it.
  const i64 m0 = std::clamp<i64>(0, x, x1), m1 = std::clamp<i64>(im->width, x, x1);
  struct Span {
    i64 from, to;
  } const seg[3] = {{x, m0}, {m0, m1}, {m1, x1}};
  // The rules of the rows above (1), beside (0) and below (2) the image,
  // segment by segment, found once; the first row that meets a position
  // no rule serves reports it, from the top and left to right.
  BorderRule rules[3][3] = {};
  const i64 y1 = y + block.height;
  for (int v : {1, 0, 2}) {
    if (v == 1 ? y >= 0 : v == 2 ? y1 <= im->height : y >= im->height || y1 <= 0) continue;
    for (int k = 0; k < 3; ++k) {
      const int code = v + (k == 0 ? 4 : k == 2 ? 8 : 0);
      if (seg[k].from < seg[k].to && borderRule(im, code, edge_, &rules[v][k])) return badMode(code);
    }
  }
  // What fills each segment is the same for every row of a class but for
  // the source row: the copies are planned once, then run row by row. A
  // segment takes at most a period of single columns (and no more than it
  // is wide) and 64 doublings.
  const i64 most = 9 * (std::min<i64>(2 * i64(im->width), block.width) + 66);
  if (most > planCapacity_) {
    void* grown = std::realloc(plan_, static_cast<std::size_t>(most) * sizeof(Copy));
    if (!grown) return fail(kBorderOk, sites_.memoryLine);
    plan_ = static_cast<Copy*>(grown);
    planCapacity_ = most;
  }
  Copy* const plan = plan_;
  std::size_t size = 0;
  auto add = [&](Copy::Kind kind, i64 from, i64 c, i64 n) { plan[size++] = Copy{kind, from, c, n}; };
  std::size_t first[3][4] = {};  // segment k of class v: plan[first[v][k]] up to the next segment's
  for (int v : {1, 0, 2}) {
    const bool rows = !(v == 1 ? y >= 0 : v == 2 ? y1 <= im->height : y >= im->height || y1 <= 0);
    for (int k : {1, 2, 0}) {  // over the image first: the sides copy from it
      first[v][k] = size;
      if (!rows) continue;
      const Span& s = seg[k];
      if (s.from >= s.to || (k == 1 && v == 0)) continue;  // the inside is there already
      const BorderRule& rule = rules[v][k];
      if (rule.constant) {
        add(Copy::kConstant, 0, s.from, 1);
        for (i64 c = s.from + 1, n; c < s.to; c += n) {
          n = std::min(s.to - c, c - s.from);
          add(Copy::kFromBlock, s.from, c, n);
        }
        continue;
      }
      if (k == 1) {
        add(Copy::kFromSource, s.from, s.from, s.to - s.from);
        continue;
      }
      const i64 period = rule.modeX == MOX_BORDER_REPLICATE ? 1
                         : rule.modeX == MOX_BORDER_REFLECT ? 2 * i64(im->width)
                                                            : im->width;
      // The columns between this one and the image hold their (fx(c), sy)
      // already, and so do the image's own columns in the block (for
      // replication only the edge column: fx repeats on one side only).
      const i64 over = m0 >= m1 ? 0 : period == 1 ? 1 : m1 - m0;
      for (i64 done = 0; done < s.to - s.from;) {
        const i64 rest = s.to - s.from - done;
        const i64 behind = done + over;
        const i64 back = period == 1 ? behind : behind / period * period;
        const i64 n = back ? std::min(rest, back) : 1;
        // The next n columns, nearest the image first.
        const i64 c = k == 2 ? s.from + done : s.to - done - n;
        if (back)
          add(Copy::kFromBlock, k == 2 ? c - back : c + back, c, n);
        else
          add(Copy::kFromSource, mapBorderCoord(rule.modeX, c, im->width), c, 1);
        done += n;
      }
    }
    first[v][3] = size;
  }
  // One copy on the rows [ra, rb) of a class.
  auto apply = [&](const Copy& op, const BorderRule& rule, i64 ra, i64 rb) {
    // Within the block's rows, or from the rows of a plain image beside
    // it (the same columns of the same rows): a tight loop down the rows.
    const bool fromBlock = op.kind == Copy::kFromBlock;
    if (pix && (fromBlock || (op.kind == Copy::kFromSource && !im->tileInfo && ra >= 0 && rb <= im->height))) {
      const View& from = fromBlock ? block : whole;
      const i64 fx = fromBlock ? x : 0, fy = fromBlock ? y : 0;
      const std::size_t bytes = static_cast<std::size_t>(op.n * pix);
      char* d = block.data + (ra - y) * block.widthStep + (op.c - x) * pix;
      const char* f = from.data + (ra - fy) * from.widthStep + (op.from - fx) * pix;
      for (i64 r = ra; r < rb; ++r, d += block.widthStep, f += from.widthStep)
        for (int p = 0; p < planes; ++p)
          copyBytes(d + p * block.planeStep, f + p * from.planeStep, bytes);
      return true;
    }
    for (i64 r = ra; r < rb; ++r) {
      if (op.kind == Copy::kFromBlock) {
        move(block, x, y, op.from, r, op.c, r, op.n);
      } else if (op.kind == Copy::kFromSource) {
        if (!run(op.from, mapBorderCoord(rule.modeY, r, im->height), op.n, op.c, r)) return false;
      } else {
        for (int ch = 1; ch <= block.nChannels; ++ch)
          setViewValue(block, op.c - x, r - y, ch, rule.value);
      }
    }
    return true;
  };
  // A plain image's rows go copy by copy, each down all rows of a class; a
  // tiled one's row by row where they read the source, so that tiles are
  // asked for from the top.
  for (int v : {1, 0, 2}) {
    if (first[v][1] == first[v][3]) continue;  // nothing of this class lies outside
    bool byCopy = true;
    for (std::size_t i = first[v][1]; i < first[v][3]; ++i)
      byCopy &= !im->tileInfo || plan[i].kind != Copy::kFromSource;
    const i64 ra = v == 1 ? y : std::clamp<i64>(v == 0 ? 0 : im->height, y, y1);
    const i64 rb = v == 2 ? y1 : std::clamp<i64>(v == 0 ? im->height : 0, y, y1);
    for (i64 r0 = ra; r0 < rb; ++r0) {
      const i64 r1 = byCopy ? rb : r0 + 1;
      for (int k : {1, 2, 0}) {
        const std::size_t end = k == 1 ? first[v][2] : k == 2 ? first[v][0] : first[v][3];
        for (std::size_t i = first[v][k]; i < end; ++i)
          if (!apply(plan[i], rules[v][k], r0, r1)) return false;
      }
      r0 = r1 - 1;
    }
  }
  return true;
}

bool SourceReader::readInPlace(int x, int y, int w, int h, View* out) {
  const MoxTileInfo* t = image_->tileInfo;
  if (!t || w <= 0 || h <= 0 || x < 0 || y < 0 || i64(x) + w > image_->width ||
      i64(y) + h > image_->height || x / t->width != (i64(x) + w - 1) / t->width ||
      y / t->height != (i64(y) + h - 1) / t->height)
    return read(x, y, w, h, out);
  View tile;
  int ox, oy;
  if (!fetch(x, y, &tile, &ox, &oy)) return false;
  *out = blockView(image_, t->tileData, tileStep_, tileStep_ * t->height, ox, oy, x, y, w, h);
  kept_ = true;
  return true;
}

bool SourceReader::finish(bool check) {
  if (check) return release();
  if (held_ && kept_) handBack();
  return true;
}

bool SourceReader::read(int x, int y, int w, int h, View* out) {
  const MoxImage* im = image_;
  w = std::max(w, 0), h = std::max(h, 0);
  const i64 ix0 = std::max<i64>(x, 0), ix1 = std::min<i64>(i64(x) + w, im->width);
  const i64 iy0 = std::max<i64>(y, 0), iy1 = std::min<i64>(i64(y) + h, im->height);
  if (!im->tileInfo && ix0 == x && iy0 == y && ix1 == i64(x) + w && iy1 == i64(y) + h) {
    *out = blockView(im, im->imageData, im->widthStep, i64(im->widthStep) * im->height, 0, 0, x, y,
                     w, h);
    return true;
  }
  // The scratch block: the image's layout at the rectangle's size.
  const unsigned bits = depthBits(im->depth);
  const bool plane = im->dataOrder == 1;
  const i64 rowBytes = (i64(w) * bits * (plane ? 1 : im->nChannels) + 7) / 8;
  const i64 step = (rowBytes + 7) & ~i64(7);
  const i64 bytes = step * h * (plane ? im->nChannels : 1);
  if (i64(x) + w - 1 > INT_MAX || i64(y) + h - 1 > INT_MAX || step > INT_MAX ||
      bytes > INT_MAX)
    return fail(kBorderOk, sites_.memoryLine);
  if (bytes > capacity_) {
    void* block = scratch_;
    if (!platform::growSpare(&block, &scratchSize_, static_cast<std::size_t>(capacity_), static_cast<std::size_t>(bytes)))
      return fail(kBorderOk, sites_.memoryLine);
    scratch_ = static_cast<char*>(block);
    // Row padding and the spare bits of 1-bit rows are never written by a
    // read; zeroed once, no result can depend on what the block held.
    std::memset(scratch_ + capacity_, 0, static_cast<std::size_t>(bytes - capacity_));
    capacity_ = bytes;
  }
  View block = blockView(im, scratch_, step, step * h, x, y, x, y, w, h);
  if (ix0 < ix1 && iy0 < iy1 && !copyInside(block, x, y, ix0, iy0, ix1, iy1)) return false;
  const bool inside = ix0 == x && iy0 == y && ix1 == i64(x) + w && iy1 == i64(y) + h;
  if ((!inside && !fillOutside(block, x, y, ix0, iy0, ix1, iy1)) || !release()) return false;
  *out = block;
  return true;
}

}  // namespace mox
