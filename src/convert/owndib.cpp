// Reading packed bitmaps (uncompressed, run-length and bit-field rows) and
// the palettes of the 8-bit bitmaps the library writes.
#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <vector>

#include "convert/dib.h"

namespace mox::dib {
namespace {

// Numbers of the header checks, added to the caller's base line.
enum Check : int {
  kNull,
  kSize,
  kWidth,
  kHeight,
  kPlanes,
  kBitCount,
  kCompression,
  kTopDownRle,
  kColours,
  kMasks,
  kTooLarge,
  kShortRows,
  kNoRunBytes,
  kRunPastRow,
  kRunPastData,
  kRunPastRows,
  kNoMemory,
};

bool fail(const char* func, int base, Check k, const char* text, int status = MOX_StsBadArgument) {
  report(Site{func, "moxdib", base + k}, text, status);
  return false;
}

std::uint32_t read32(const std::uint8_t* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}

// A mask is usable when it is one run of set bits; masks must not overlap.
bool goodMasks(const std::uint32_t* m, int n, int bits) {
  std::uint32_t seen = 0;
  for (int i = 0; i < n; ++i) {
    const std::uint32_t v = m[i];
    if (v == 0) {
      if (i < 3) return false;
      continue;
    }
    const std::uint32_t low = v & (~v + 1);
    if (((v + low) & v) != 0 || (seen & v) != 0) return false;
    if (bits == 16 && v > 0xFFFF) return false;
    seen |= v;
  }
  return true;
}

}  // namespace

bool readLayout(const MoxBitmapInfoHeader* dib, const char* func, int base, Layout& l) {
  if (!dib) return fail(func, base, kNull, "(dib == 0)");
  if (dib->biSize != 40 && dib->biSize != 108 && dib->biSize != 124)
    return fail(func, base, kSize, "(dib->biSize != 40 && dib->biSize != 108 && dib->biSize != 124)");
  if (dib->biWidth <= 0) return fail(func, base, kWidth, "(dib->biWidth <= 0)");
  if (dib->biHeight == 0 || dib->biHeight == INT_MIN)
    return fail(func, base, kHeight, "(dib->biHeight == 0 || dib->biHeight == INT_MIN)");
  if (dib->biPlanes != 1) return fail(func, base, kPlanes, "(dib->biPlanes != 1)");
  const int bits = dib->biBitCount;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
    return fail(func, base, kBitCount, "(dib->biBitCount is not 1, 4, 8, 16, 24 or 32)");
  const unsigned comp = dib->biCompression;
  const bool rle = comp == kRle8 || comp == kRle4;
  if (!(comp == kRgb || (comp == kRle8 && bits == 8) || (comp == kRle4 && bits == 4) ||
        (comp == kBitFields && (bits == 16 || bits == 32))))
    return fail(func, base, kCompression, "(dib->biCompression does not suit dib->biBitCount)");
  if (rle && dib->biHeight < 0)
    return fail(func, base, kTopDownRle, "(dib->biHeight < 0 && the rows are run-length coded)");
  if (dib->biClrUsed > 256) return fail(func, base, kColours, "(dib->biClrUsed > 256)");

  const auto* at = reinterpret_cast<const std::uint8_t*>(dib) + dib->biSize;
  l.width = dib->biWidth;
  l.height = dib->biHeight < 0 ? -dib->biHeight : dib->biHeight;
  l.topDown = dib->biHeight < 0;
  l.bits = bits;
  l.compression = comp;
  // Masks: three after a short header, inside the longer ones (with alpha).
  l.mask[3] = 0;
  if (bits == 16) l.mask[0] = 0x7C00, l.mask[1] = 0x03E0, l.mask[2] = 0x001F;
  if (bits == 32) l.mask[0] = 0xFF0000, l.mask[1] = 0xFF00, l.mask[2] = 0xFF;
  if (comp == kBitFields) {
    const std::uint8_t* m = dib->biSize == 40 ? at : reinterpret_cast<const std::uint8_t*>(dib) + 40;
    for (int i = 0; i < 3; ++i) l.mask[i] = read32(m + 4 * i);
    if (dib->biSize != 40) l.mask[3] = read32(m + 12);
    if (dib->biSize == 40) at += 12;
    if (!goodMasks(l.mask, 4, bits))
      return fail(func, base, kMasks, "(a bit-field mask is 0, not one run of bits or overlaps another)");
  }
  l.colours = dib->biClrUsed ? int(dib->biClrUsed) : bits <= 8 ? 1 << bits : 0;
  l.palette = at;
  l.pixels = at + 4 * l.colours;
  l.gray = bits <= 8;
  for (int i = 0; i < l.colours && l.gray; ++i)
    l.gray = l.palette[4 * i] == l.palette[4 * i + 1] && l.palette[4 * i] == l.palette[4 * i + 2];

  // The rows and the image they become must fit in 32-bit sizes.
  l.rowBytes = ((long long)l.width * bits + 31) / 32 * 4;
  int step = 0, size = 0;
  if (l.rowBytes > INT_MAX || l.rowBytes * l.height > INT_MAX ||
      !layoutSize(l.width, l.height, MOX_DEPTH_8U, 4, 0, 4, &step, &size))
    return fail(func, base, kTooLarge, "(dib->biWidth * dib->biHeight is too large)");
  l.dataBytes = dib->biSizeImage;
  if (!rle && dib->biSizeImage != 0 && dib->biSizeImage < l.rowBytes * l.height)
    return fail(func, base, kShortRows,
                "(dib->biSizeImage != 0 && dib->biSizeImage < the bytes of the rows)");
  if (rle && dib->biSizeImage == 0)
    return fail(func, base, kNoRunBytes, "(dib->biSizeImage == 0 && the rows are run-length coded)");
  return true;
}

namespace {

// Expands the run-length data into one index byte per pixel (rows in the
// bitmap's order, pixels never reached stay 0).
bool expandRuns(const Layout& l, const char* func, int base, std::uint8_t* out) {
  const std::uint8_t* p = l.pixels;
  const std::uint8_t* end = p + l.dataBytes;
  const bool four = l.compression == kRle4;
  long long x = 0, y = 0;
  // The k-th pixel of a run: for 4 bits the two halves of the byte alternate.
  auto put = [&](int k, std::uint8_t byte) -> bool {
    if (x >= l.width) return fail(func, base, kRunPastRow, "(a run-length run goes past the end of its row)");
    if (y >= l.height) return fail(func, base, kRunPastRows, "(run-length data go past the last row)");
    out[y * l.width + x++] = four ? (k & 1 ? byte & 0x0F : byte >> 4) : byte;
    return true;
  };
  for (;;) {
    if (end - p < 2) return fail(func, base, kRunPastData, "(the run-length data go past dib->biSizeImage)");
    const int n = p[0], code = p[1];
    p += 2;
    if (n > 0) {
      for (int k = 0; k < n; ++k)
        if (!put(k, std::uint8_t(code))) return false;
      continue;
    }
    if (code == 0) {  // end of row
      x = 0, ++y;
      continue;
    }
    if (code == 1) return true;  // end of bitmap
    if (code == 2) {             // move right and up
      if (end - p < 2) return fail(func, base, kRunPastData, "(the run-length data go past dib->biSizeImage)");
      x += p[0], y += p[1];
      p += 2;
      if (x > l.width) return fail(func, base, kRunPastRow, "(a run-length run goes past the end of its row)");
      if (y > l.height || (y == l.height && x > 0))
        return fail(func, base, kRunPastRows, "(run-length data go past the last row)");
      continue;
    }
    // Absolute run of `code` pixels, padded to a 16-bit boundary.
    const long long bytes = four ? (code + 1) / 2 : code;
    const long long padded = (bytes + 1) & ~1LL;
    if (end - p < padded) return fail(func, base, kRunPastData, "(the run-length data go past dib->biSizeImage)");
    for (int k = 0; k < code; ++k)
      if (!put(k, p[four ? k / 2 : k])) return false;
    p += padded;
  }
}

// The top bits of a masked field, widened to 8 bits.
std::uint8_t field(std::uint32_t v, std::uint32_t mask) {
  if (!mask) return 255;
  int shift = 0;
  while (!((mask >> shift) & 1)) ++shift;
  const std::uint32_t m = mask >> shift;
  int width = 0;
  while ((m >> width) & 1) ++width;
  std::uint32_t f = (v >> shift) & m;
  if (width >= 8) return std::uint8_t(f >> (width - 8));
  // Repeat the bits downwards: 5 bits 11111 become 11111111.
  std::uint32_t out = 0;
  for (int have = 0; have < 8; have += width) out = (out << width) | f;
  return std::uint8_t(out >> ((8 + width - 1) / width * width - 8));
}

}  // namespace

MoxImage* translate(const Layout& l, const char* func, int base, bool copy, bool* cloned) {
  const bool standard32 = l.bits == 32 && l.mask[0] == 0xFF0000 && l.mask[1] == 0xFF00 &&
                          l.mask[2] == 0xFF && (l.mask[3] == 0 || l.mask[3] == 0xFF000000u);
  // 32-bit rows keep their fourth byte; other bit fields only an alpha mask.
  const bool alpha = standard32 || l.mask[3];
  const int channels = l.gray ? 1 : alpha ? 4 : 3;
  const bool share = !copy && (l.bits == 24 || standard32);
  const int origin = l.topDown ? MOX_ORIGIN_TL : MOX_ORIGIN_BL;
  MoxImage* im = moxCreateImageHeader(channels, 0, MOX_DEPTH_8U, channels == 1 ? "GRAY" : "RGB",
                                      channels == 1 ? "GRAY" : channels == 4 ? "BGRA" : "BGR",
                                      MOX_DATA_ORDER_PIXEL, origin, MOX_ALIGN_4BYTES, l.height,
                                      l.width, nullptr, nullptr, nullptr);
  if (!im) {
    fail(func, base, kNoMemory, "Out of memory", MOX_StsOutOfMemory);
    return nullptr;
  }
  *cloned = !share;
  if (share) {
    im->imageData = const_cast<char*>(reinterpret_cast<const char*>(l.pixels));
    return im;
  }
  moxAllocateImage(im, 0);
  std::vector<std::uint8_t> runs;
  bool ok = im->imageData != nullptr;
  if (ok && (l.compression == kRle8 || l.compression == kRle4)) {
    try {
      runs.assign(std::size_t(l.width) * std::size_t(l.height), 0);
    } catch (const std::bad_alloc&) {
      ok = false;
    }
    if (ok && !expandRuns(l, func, base, runs.data())) {
      moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
      return nullptr;
    }
  }
  if (!ok) {
    moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
    fail(func, base, kNoMemory, "Out of memory", MOX_StsOutOfMemory);
    return nullptr;
  }
  for (int y = 0; y < l.height; ++y) {
    auto* out = reinterpret_cast<std::uint8_t*>(im->imageData) + std::ptrdiff_t(y) * im->widthStep;
    const std::uint8_t* row = l.pixels + y * l.rowBytes;
    for (int x = 0; x < l.width; ++x) {
      std::uint8_t bgra[4] = {0, 0, 0, 255};
      if (l.bits <= 8) {
        const unsigned index = !runs.empty() ? runs[std::size_t(y) * l.width + x]
                               : l.bits == 8 ? row[x]
                               : l.bits == 4 ? (row[x / 2] >> (x & 1 ? 0 : 4)) & 0x0F
                                             : (row[x / 8] >> (7 - (x & 7))) & 1;
        // Indexes past the palette read as black.
        if (int(index) < l.colours) std::memcpy(bgra, l.palette + 4 * index, 3);
      } else if (l.bits == 24) {
        std::memcpy(bgra, row + 3 * x, 3);
      } else {
        const std::uint32_t v = l.bits == 16 ? std::uint32_t(row[2 * x] | row[2 * x + 1] << 8)
                                             : read32(row + 4 * x);
        for (int c = 0; c < 3; ++c) bgra[2 - c] = field(v, l.mask[c]);
        bgra[3] = standard32 && !l.mask[3] ? std::uint8_t(v >> 24) : field(v, l.mask[3]);
      }
      std::memcpy(out + std::ptrdiff_t(x) * channels, bgra, std::size_t(channels));
    }
  }
  return im;
}

// ---------------------------------------------------------------- palettes

namespace {

// Level k of n equally spaced levels over 0..255.
std::uint8_t level(int k, int n) { return std::uint8_t((k * 510 + (n - 1)) / (2 * (n - 1))); }

// 5-5-5 cells of colours: pixel counts and colour sums.
struct Cell {
  long long count, sum[3];
  int index;
};

constexpr int kCells = 1 << 15;

int cellOf(const std::uint8_t* bgr) { return (bgr[2] >> 3) << 10 | (bgr[1] >> 3) << 5 | bgr[0] >> 3; }

void meanOf(const Cell* first, const Cell* last, std::uint8_t* entry) {
  long long n = 0, s[3] = {0, 0, 0};
  for (const Cell* c = first; c != last; ++c) {
    n += c->count;
    for (int k = 0; k < 3; ++k) s[k] += c->sum[k];
  }
  for (int k = 0; k < 3; ++k) entry[k] = n ? std::uint8_t((s[k] + n / 2) / n) : 0;
  entry[3] = 0;
}

// Median cut: the box with the most pixels (of those with more than one
// cell) is split at the pixel median of its widest colour axis.
int medianCut(std::vector<Cell>& cells, int count, std::uint8_t* out) {
  struct Box {
    std::size_t first, last;
    long long pixels;
  };
  std::vector<Box> boxes{{0, cells.size(), 0}};
  for (const Cell& c : cells) boxes[0].pixels += c.count;
  while (int(boxes.size()) < count) {
    int pick = -1;
    for (int i = 0; i < int(boxes.size()); ++i)
      if (boxes[i].last - boxes[i].first > 1 && (pick < 0 || boxes[i].pixels > boxes[pick].pixels))
        pick = i;
    if (pick < 0) break;
    Box b = boxes[pick];
    int lo[3] = {31, 31, 31}, hi[3] = {0, 0, 0};
    for (std::size_t i = b.first; i < b.last; ++i)
      for (int k = 0; k < 3; ++k) {
        const int v = (cells[i].index >> (5 * k)) & 31;
        lo[k] = std::min(lo[k], v), hi[k] = std::max(hi[k], v);
      }
    int axis = 0;
    for (int k = 1; k < 3; ++k)
      if (hi[k] - lo[k] > hi[axis] - lo[axis]) axis = k;
    std::sort(cells.begin() + b.first, cells.begin() + b.last, [axis](const Cell& a, const Cell& c) {
      const int va = (a.index >> (5 * axis)) & 31, vc = (c.index >> (5 * axis)) & 31;
      return va != vc ? va < vc : a.index < c.index;
    });
    long long half = 0;
    std::size_t cut = b.first;
    while (cut + 1 < b.last && 2 * (half + cells[cut].count) <= b.pixels) half += cells[cut++].count;
    if (cut == b.first) half += cells[cut++].count;
    boxes[pick] = {b.first, cut, half};
    boxes.push_back({cut, b.last, b.pixels - half});
  }
  for (std::size_t i = 0; i < boxes.size(); ++i)
    meanOf(cells.data() + boxes[i].first, cells.data() + boxes[i].last, out + 4 * i);
  return int(boxes.size());
}

// The cells the pixels fall in, by their numbers, with counts and sums. A
// few pixels are sorted by cell (each as its cell number and the three low
// bits of its values, which give the pixel back); many are counted in a
// table of every cell, which only pays for itself then.
std::vector<Cell> usedCells(const std::uint8_t* bgr, long long pixels) {
  std::vector<Cell> used;
  if (pixels < kCells / 8) {
    std::vector<std::uint32_t> keys(static_cast<std::size_t>(pixels));
    for (long long i = 0; i < pixels; ++i) {
      const std::uint8_t* p = bgr + 3 * i;
      keys[std::size_t(i)] =
          std::uint32_t(cellOf(p)) << 9 | (p[2] & 7u) << 6 | (p[1] & 7u) << 3 | (p[0] & 7u);
    }
    std::sort(keys.begin(), keys.end());
    for (const std::uint32_t key : keys) {
      const int cell = int(key >> 9);
      if (used.empty() || used.back().index != cell) used.push_back(Cell{0, {0, 0, 0}, cell});
      Cell& c = used.back();
      ++c.count;
      c.sum[0] += (cell & 31) << 3 | (key & 7);
      c.sum[1] += (cell >> 5 & 31) << 3 | (key >> 3 & 7);
      c.sum[2] += (cell >> 10) << 3 | (key >> 6 & 7);
    }
    return used;
  }
  std::vector<Cell> all(kCells, Cell{0, {0, 0, 0}, 0});
  for (int i = 0; i < kCells; ++i) all[i].index = i;
  for (long long i = 0; i < pixels; ++i) {
    const std::uint8_t* p = bgr + 3 * i;
    Cell& c = all[cellOf(p)];
    ++c.count;
    for (int k = 0; k < 3; ++k) c.sum[k] += p[k];
  }
  for (const Cell& c : all)
    if (c.count) used.push_back(c);
  return used;
}

}  // namespace

void fixedPalette(Palette kind, int count, std::uint8_t* out) {
  std::memset(out, 0, std::size_t(count) * 4);
  for (int i = 0; i < count; ++i) {
    std::uint8_t* e = out + 4 * i;
    if (kind == Palette::Ramp) {
      e[0] = e[1] = e[2] = level(i, count);
    } else {  // 3 bits of red, 3 of green, 2 of blue
      e[2] = level(i >> 5, 8), e[1] = level((i >> 2) & 7, 8), e[0] = level(i & 3, 4);
    }
  }
}

int buildPalette(const std::uint8_t* bgr, long long pixels, int count, int how,
                 std::uint8_t* out) {
  std::vector<Cell> used;
  try {
    used = usedCells(bgr, pixels);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  std::memset(out, 0, std::size_t(count) * 4);
  if (how == MOX_PALCONV_MEDCUT) {
    return medianCut(used, count, out);
  }
  // The most frequent cells, each as the mean of its pixels.
  std::stable_sort(used.begin(), used.end(),
                   [](const Cell& a, const Cell& b) { return a.count > b.count; });
  const int n = std::min(int(used.size()), count);
  for (int i = 0; i < n; ++i) meanOf(&used[i], &used[i] + 1, out + 4 * i);
  return n;
}

bool mapToPalette(const std::uint8_t* pixels, int width, int rows, Palette kind,
                  const std::uint8_t* palette, int count, int dither, std::uint8_t* out,
                  long long outStep) {
  const int n = kind == Palette::Ramp ? 1 : 3;
  // The distance of neighbouring levels: of the ramp, of the cube's axes, or
  // of a 6 x 6 x 6 cube for any palette.
  const double step[3] = {kind == Palette::Ramp ? 255.0 / (count - 1)
                          : kind == Palette::Cube ? 255.0 / 3
                                                  : 51.0,
                          kind == Palette::Cube ? 255.0 / 7 : 51.0,
                          kind == Palette::Cube ? 255.0 / 7 : 51.0};
  convert::Ditherer d(dither, 0, width, n, step);
  std::vector<double> row;
  std::vector<int> nearest;
  try {
    row.resize(std::size_t(width) * n);
    if (kind == Palette::Any) nearest.assign(kCells, -1);
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (!d.ok()) return false;
  auto clamp = [](double v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
  // The entry nearest to a colour: through the cells for any palette.
  auto lookup = [&](const double* v) -> int {
    if (kind == Palette::Ramp) return int(clamp(v[0]) * (count - 1) / 255 + 0.5);
    if (kind == Palette::Cube)
      return int(clamp(v[2]) * 7 / 255 + 0.5) << 5 | int(clamp(v[1]) * 7 / 255 + 0.5) << 2 |
             int(clamp(v[0]) * 3 / 255 + 0.5);
    std::uint8_t bgr[3];
    for (int k = 0; k < 3; ++k) bgr[k] = std::uint8_t(clamp(v[k]));
    int& best = nearest[cellOf(bgr)];
    if (best < 0) {
      long long bestDistance = LLONG_MAX;
      const int centre[3] = {(bgr[0] & 0xF8) + 4, (bgr[1] & 0xF8) + 4, (bgr[2] & 0xF8) + 4};
      for (int i = 0; i < count; ++i) {
        long long dist = 0;
        for (int k = 0; k < 3; ++k) dist += (palette[4 * i + k] - centre[k]) * (palette[4 * i + k] - centre[k]);
        if (dist < bestDistance) bestDistance = dist, best = i;
      }
    }
    return best;
  };
  for (int y = 0; y < rows; ++y) {
    const std::uint8_t* in = pixels + std::ptrdiff_t(y) * width * n;
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t(width) * n; ++i) row[i] = in[i];
    std::uint8_t* o = out + y * outStep;
    int x = 0;
    d.row(row.data(), y, [&](const double* want, double* got) {
      const int e = lookup(want);
      o[x++] = std::uint8_t(e);
      for (int k = 0; k < n; ++k) got[k] = palette[4 * e + k];
    });
  }
  return true;
}

}  // namespace mox::dib
