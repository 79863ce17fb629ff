// Border modes and reads of pixels, rows and columns at any coordinate.
#include "image/border.h"

#include <cstdint>
#include <cstring>

#include "image/image.h"

namespace mox {
namespace {

using i64 = long long;

enum Side { kTop = 0, kBottom = 1, kLeft = 2, kRight = 3 };

bool validMode(int mode) { return mode >= MOX_BORDER_CONSTANT && mode <= MOX_BORDER_WRAP; }

// Maps a coordinate over a size by a valid mode other than constant.
int mapCoord(int mode, i64 c, int n) {
  switch (mode) {
    case MOX_BORDER_REPLICATE:
      return c < 0 ? 0 : c >= n ? n - 1 : static_cast<int>(c);
    case MOX_BORDER_REFLECT:
      return reflectCoord(c, n);
    default:
      return wrapCoord(c, n);
  }
}

// Applies side s's mode: to x only (a left or right fallback) or to both
// coordinates.
void applySide(const MoxImage* im, int s, bool onlyX, int x, int y, BorderSource* out) {
  const int mode = im->borderMode[s];
  if (mode == MOX_BORDER_CONSTANT) {
    *out = {true, static_cast<unsigned>(im->borderConst[s]), x, y};
    return;
  }
  out->constant = false;
  out->value = 0;
  out->x = mapCoord(mode, x, im->width);
  out->y = onlyX ? y : mapCoord(mode, y, im->height);
}

// The view of a block laid out like the image (or like one of its tiles):
// rows `step` apart, planes `rows` rows apart.
View blockOf(const MoxImage* im, char* base, i64 step, i64 rows) {
  return View{base, static_cast<int>(step), 0, 0, im->nChannels, 0, im->dataOrder, im->depth, 0,
              static_cast<std::ptrdiff_t>(step * rows)};
}

// Holds one tile of a tiled image between a get and a release.
class TileHold {
 public:
  explicit TileHold(const MoxImage* im) : im_(im) {
    int size = 0, step = 0;
    layoutSize(im->tileInfo->width, im->tileInfo->height, im->depth, im->nChannels,
               im->dataOrder, im->align, &step, &size);
    step_ = step;
  }
  // Gets the tile holding (x, y); the block then starts at the tile's origin.
  int get(int x, int y, View* b, int* ox, int* oy) {
    const MoxTileInfo* t = im_->tileInfo;
    tx_ = x / t->width, ty_ = y / t->height;
    t->callBack(im_, tx_, ty_, MOX_GET_TILE_TO_READ);
    if (!t->tileData) return kBorderNoTile;
    *b = blockOf(im_, t->tileData, step_, t->height);
    *ox = tx_ * t->width, *oy = ty_ * t->height;
    return kBorderOk;
  }
  int release() {
    im_->tileInfo->callBack(im_, tx_, ty_, MOX_RELEASE_TILE);
    return im_->tileInfo->tileData ? kBorderKept : kBorderOk;
  }

 private:
  const MoxImage* im_;
  i64 step_ = 0;
  int tx_ = 0, ty_ = 0;
};

bool inside(const MoxImage* im, i64 x, i64 y) {
  return x >= 0 && y >= 0 && x < im->width && y < im->height;
}

// Reads count values of row y from column x stepping by dir (+1 or -1);
// every column lies inside the image.
int readRun(const MoxImage* im, int x, int y, int channel, void* dst, i64 at, int count, int dir) {
  if (!im->tileInfo) {
    const View b = blockOf(im, im->imageData, im->widthStep, im->height);
    for (int i = 0; i < count; ++i) putPacked(dst, im->depth, at + i, viewValue(b, x + dir * i, y, channel));
    return kBorderOk;
  }
  const int tw = im->tileInfo->width;
  TileHold hold(im);
  for (int i = 0; i < count;) {
    const int c = x + dir * i;
    View b;
    int ox, oy;
    if (int s = hold.get(c, y, &b, &ox, &oy)) return s;
    // The piece ends at the tile's edge in the run's direction.
    const int n = dir > 0 ? ox + tw - c : c - ox + 1;
    for (int k = 0; k < n && i < count; ++k, ++i)
      putPacked(dst, im->depth, at + i, viewValue(b, x + dir * i - ox, y - oy, channel));
    if (int s = hold.release()) return s;
  }
  return kBorderOk;
}

}  // namespace

// The element of (x, y, channel) in a view: its byte and, for 1-bit
// views, its bit counted from the most significant.
static char* elementOf(const View& v, i64 x, i64 y, int channel, int* bit) {
  const unsigned bits = depthBits(v.depth);
  char* row = v.data + y * v.widthStep;
  i64 index = x;
  if (v.dataOrder == 1)
    row += v.planeStep * (channel - 1);
  else
    index = x * v.nChannels + (channel - 1);
  if (bits == 1) {
    index += v.bitOffset;
    *bit = static_cast<int>(index & 7);
    return row + (index >> 3);
  }
  *bit = 0;
  return row + index * (bits / 8);
}

unsigned viewValue(const View& v, i64 x, i64 y, int channel) {
  int bit;
  const char* p = elementOf(v, x, y, channel, &bit);
  switch (depthBits(v.depth)) {
    case 1:
      return (static_cast<unsigned char>(*p) >> (7 - bit)) & 1u;
    case 8:
      return static_cast<unsigned char>(*p);
    case 16: {
      std::uint16_t u;
      std::memcpy(&u, p, 2);
      return u;
    }
    default: {
      std::uint32_t u;
      std::memcpy(&u, p, 4);
      return u;
    }
  }
}

void setViewValue(const View& v, i64 x, i64 y, int channel, unsigned value) {
  int bit;
  char* p = elementOf(v, x, y, channel, &bit);
  if (depthBits(v.depth) == 1) {
    putPacked(p, v.depth, bit, value);
    return;
  }
  putPacked(p, v.depth, 0, value);
}

int reflectCoord(i64 c, int n) {
  if (c >= 0 && c < n) return static_cast<int>(c);
  // The repeated steps of 2n end in [-n, n); a negative result mirrors.
  const i64 p = 2 * i64(n);
  i64 r = ((c + n) % p + p) % p - n;
  if (r < 0) r = ~r;
  return static_cast<int>(r);
}

int wrapCoord(i64 c, int n) {
  const i64 r = c % n;
  return static_cast<int>(r < 0 ? r + n : r);
}

void putPacked(void* dst, unsigned depth, i64 i, unsigned value) {
  auto* p = static_cast<unsigned char*>(dst);
  switch (depthBits(depth)) {
    case 1: {
      const unsigned mask = 0x80u >> (i & 7);
      p[i >> 3] = static_cast<unsigned char>(value & 1 ? p[i >> 3] | mask : p[i >> 3] & ~mask);
      break;
    }
    case 8:
      p[i] = static_cast<unsigned char>(value);
      break;
    case 16: {
      const std::uint16_t v = static_cast<std::uint16_t>(value);
      std::memcpy(p + i * 2, &v, 2);
      break;
    }
    default:
      std::memcpy(p + i * 4, &value, 4);
  }
}

int ownClassifyPoint(const MoxImage* image, int x, int y) {
  int code = y < 0 ? 1 : y >= image->height ? 2 : 0;
  return code + (x < 0 ? 4 : x >= image->width ? 8 : 0);
}

int mapBorderCoord(int mode, i64 c, int n) {
  return mode < 0 ? static_cast<int>(c) : mapCoord(mode, c, n);
}

int borderRule(const MoxImage* im, int code, Edge edge, BorderRule* out) {
  *out = {false, 0, -1, -1};
  if (code == 0 || code == 3 || code == 7) return kBorderOk;
  if (edge == Edge::kClamp) {
    out->modeX = out->modeY = MOX_BORDER_REPLICATE;
    return kBorderOk;
  }
  // A side's mode maps x only (a left or right fallback) or both coordinates.
  auto apply = [&](int s, bool onlyX) {
    const int mode = im->borderMode[s];
    if (mode == MOX_BORDER_CONSTANT)
      *out = {true, static_cast<unsigned>(im->borderConst[s]), -1, -1};
    else
      out->modeX = mode, out->modeY = onlyX ? -1 : mode;
  };
  // Top and bottom govern their corners too.
  const int side = code & 1 ? kTop : code & 2 ? kBottom : code & 4 ? kLeft : kRight;
  if (validMode(im->borderMode[side])) {
    apply(side, false);
    return kBorderOk;
  }
  // The sides after the governing one, in the order left, right, bottom.
  static const int kNext[4][3] = {{kLeft, kRight, kBottom}, {}, {kRight, kBottom}, {kBottom}};
  static const int kCount[4] = {3, 0, 2, 1};
  for (int k = 0; k < kCount[side]; ++k) {
    const int s = kNext[side][k];
    if (!validMode(im->borderMode[s])) continue;
    apply(s, s != kBottom);
    break;
  }
  // A coordinate outside the image that no mode maps stays outside.
  const bool lost = ((code & 12) && out->modeX < 0) || ((code & 3) && out->modeY < 0);
  return out->constant || !lost ? kBorderOk : kBorderBadMode;
}

int borderSource(const MoxImage* im, int x, int y, Edge edge, BorderSource* out) {
  BorderRule rule;
  const int status = borderRule(im, ownClassifyPoint(im, x, y), edge, &rule);
  *out = {rule.constant, rule.value, x, y};
  if (!rule.constant) {
    out->x = mapBorderCoord(rule.modeX, x, im->width);
    out->y = mapBorderCoord(rule.modeY, y, im->height);
  }
  return status;
}

int ownGetPixel(const MoxImage* image, int x, int y, int channel, unsigned* value) {
  if (!inside(image, x, y)) return kBorderBadMode;
  if (!image->tileInfo) {
    *value = viewValue(blockOf(image, image->imageData, image->widthStep, image->height), x, y,
                       channel);
    return kBorderOk;
  }
  TileHold hold(image);
  View b;
  int ox, oy;
  if (int s = hold.get(x, y, &b, &ox, &oy)) return s;
  *value = viewValue(b, x - ox, y - oy, channel);
  return hold.release();
}

int ownGetBorderPixel(const MoxImage* image, int x, int y, int channel, unsigned* value) {
  BorderSource src;
  if (int s = borderSource(image, x, y, Edge::kModes, &src)) return s;
  if (!src.constant) return ownGetPixel(image, src.x, src.y, channel, value);
  *value = src.value;
  return kBorderOk;
}

int ownReadRowRun(const MoxImage* image, int x, int y, int channel, void* dst, int count,
                  int direction) {
  const int dir = direction ? 1 : -1;
  if (count <= 0) return kBorderOk;
  if (!inside(image, x, y) || !inside(image, x + i64(dir) * (count - 1), y)) return kBorderBadMode;
  return readRun(image, x, y, channel, dst, 0, count, dir);
}

int ownGetBorderRow(const MoxImage* image, int x, int y, int channel, void* dst, int count) {
  if (count <= 0) return kBorderOk;
  const int code = ownClassifyPoint(image, x, y);
  if (code == 0) return ownReadRowRun(image, x, y, channel, dst, count, 1);
  const int side = code & 1 ? kTop : code & 2 ? kBottom : code & 4 ? kLeft : kRight;
  const int mode = image->borderMode[side];
  const bool sideways = x < 0 || x >= image->width;
  if (mode == MOX_BORDER_CONSTANT || (mode == MOX_BORDER_REPLICATE && sideways)) {
    // One value for the whole run.
    BorderSource src;
    applySide(image, side, false, x, y, &src);
    unsigned v = src.value;
    if (!src.constant)
      if (int s = ownGetPixel(image, src.x, src.y, channel, &v)) return s;
    ownFillRun(v, image->depth, dst, count);
    return kBorderOk;
  }
  if (!validMode(mode)) {
    for (int i = 0; i < count; ++i) {
      unsigned v;
      if (int s = ownGetBorderPixel(image, static_cast<int>(x + i64(i)), y, channel, &v)) return s;
      putPacked(dst, image->depth, i, v);
    }
    return kBorderOk;
  }
  // The row and every column mapped by the governing mode, read in runs
  // of columns that step by one pixel in either direction.
  const int n = image->width;
  const int row = mapCoord(mode, y, image->height);
  for (int i = 0; i < count;) {
    const int first = mapCoord(mode, x + i64(i), n);
    int len = 1, dir = 1;
    if (i + 1 < count) {
      dir = mapCoord(mode, x + i64(i) + 1, n) - first;
      if (dir != 1 && dir != -1) dir = 1;
      else
        while (i + len < count &&
               mapCoord(mode, x + i64(i) + len, n) == first + dir * len)
          ++len;
    }
    if (int s = readRun(image, first, row, channel, dst, i, len, dir)) return s;
    i += len;
  }
  return kBorderOk;
}

int ownGetBorderColumn(const MoxImage* image, int x, int y, int channel, void* dst, int count) {
  for (int i = 0; i < count; ++i) {
    unsigned v;
    if (int s = ownGetBorderPixel(image, x, static_cast<int>(y + i64(i)), channel, &v)) return s;
    putPacked(dst, image->depth, i, v);
  }
  return kBorderOk;
}

void ownFillRun(unsigned value, unsigned depth, void* dst, int count) {
  if (count <= 0) return;
  auto* p = static_cast<unsigned char*>(dst);
  switch (depthBits(depth)) {
    case 1:
      std::memset(p, value & 1 ? 0xFF : 0, (static_cast<std::size_t>(count) + 7) / 8);
      return;
    case 8:
      std::memset(p, static_cast<unsigned char>(value), static_cast<std::size_t>(count));
      return;
    default:
      for (int i = 0; i < count; ++i) putPacked(dst, depth, i, value);
  }
}

}  // namespace mox
