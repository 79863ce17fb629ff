// Packed bitmaps and images: moxTranslateDIB makes an image of a bitmap
// (sharing its rows where their layout allows), moxConvertFromDIB converts a
// bitmap into an existing image, moxConvertToDIB writes an image into a
// bitmap the caller has laid out (8-bit with a palette, 24- or 32-bit).
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "convert/dib.h"

namespace {

using namespace mox;

constexpr const char* kFile = "moxdib";
constexpr const char* kTranslate = "moxTranslateDIB";
constexpr const char* kFromDib = "moxConvertFromDIB";
constexpr const char* kToDib = "moxConvertToDIB";

// Header checks of a bitmap that is read start at these lines.
constexpr int kTranslateBase = 100, kFromBase = 200;

constexpr WalkLines kFromLines{{240, 241, 242, 243}, {250, 251, 252, 253, 254, 255, 256, 257}};
constexpr WalkLines kToLines{{340, 341, 342, 343}, {350, 351, 352, 353, 354, 355, 356, 357}};

// The channels of an image's colours: whether the sequence starts with red.
bool redFirst(const MoxImage* im) { return std::memcmp(im->channelSeq, "RGB", 3) == 0; }

// A new 8U pixel-order image, or null.
MoxImage* scratch(int channels, int origin, int height, int width) {
  MoxImage* im = moxCreateImageHeader(channels, 0, MOX_DEPTH_8U, "RGB", "BGR", MOX_DATA_ORDER_PIXEL,
                                      origin, MOX_ALIGN_4BYTES, height, width, nullptr, nullptr,
                                      nullptr);
  if (im) moxAllocateImage(im, 0);
  if (im && !im->imageData) {
    moxDeallocateHeader(im);
    im = nullptr;
  }
  return im;
}

void release(MoxImage* im) { moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA); }

const std::uint8_t* rowOf(const MoxImage* im, int y) {
  return reinterpret_cast<const std::uint8_t*>(im->imageData) + std::ptrdiff_t(y) * im->widthStep;
}

// Blue, green, red and alpha of pixel x of a row with n channels (1: gray;
// 3 or 4: colours in the image's sequence).
void bgraOf(const std::uint8_t* row, int x, int n, bool red, std::uint8_t* out) {
  const std::uint8_t* p = row + std::ptrdiff_t(x) * n;
  if (n == 1) {
    out[0] = out[1] = out[2] = p[0], out[3] = 255;
    return;
  }
  out[0] = p[red ? 2 : 0], out[1] = p[1], out[2] = p[red ? 0 : 2];
  out[3] = n == 4 ? p[3] : 255;
}

// The reverse: n channels from blue, green, red and alpha; colours to gray by
// the usual luminance weights.
void putBgra(const std::uint8_t* bgra, int n, bool red, std::uint8_t* p) {
  if (n == 1) {
    p[0] = std::uint8_t((114 * bgra[0] + 587 * bgra[1] + 299 * bgra[2] + 500) / 1000);
    return;
  }
  p[red ? 2 : 0] = bgra[0], p[1] = bgra[1], p[red ? 0 : 2] = bgra[2];
  if (n == 4) p[3] = bgra[3];
}

bool usableChannels(int n) { return n == 1 || n == 3 || n == 4; }

}  // namespace

extern "C" MOX_API MoxImage* MOX_CALL moxTranslateDIB(const MoxBitmapInfoHeader* dib,
                                                      int* cloneData) {
  dib::Layout l;
  if (!dib::readLayout(dib, kTranslate, kTranslateBase, l)) return nullptr;
  bool cloned = false;
  MoxImage* im = dib::translate(l, kTranslate, kTranslateBase, false, &cloned);
  if (im && cloneData) *cloneData = cloned ? 1 : 0;
  return im;
}

extern "C" MOX_API void MOX_CALL moxConvertFromDIB(const MoxBitmapInfoHeader* dib,
                                                   MoxImage* image) {
  dib::Layout l;
  if (!dib::readLayout(dib, kFromDib, kFromBase, l)) return;
  const Site at{kFromDib, kFile, 230};
  if (badHeader(image, at) || badLayout(image, "image", at)) return;
  const int n = workChannels(image);
  if (!usableChannels(n)) {
    report(Site{kFromDib, kFile, 231}, "(nChImage != 1 && nChImage != 3 && nChImage != 4)");
    return;
  }
  bool cloned = false;
  MoxImage* bits = dib::translate(l, kFromDib, kFromBase, false, &cloned);
  if (!bits) return;
  // The bitmap's pixels with the image's channels, rows in the image's order.
  MoxImage* mid = scratch(n, image->origin, l.height, l.width);
  if (!mid) {
    release(bits);
    report(Site{kFromDib, kFile, 232}, "Out of memory", MOX_StsOutOfMemory);
    return;
  }
  const bool flip = bits->origin != image->origin, red = redFirst(image);
  for (int y = 0; y < l.height; ++y) {
    const std::uint8_t* in = rowOf(bits, flip ? l.height - 1 - y : y);
    auto* out = const_cast<std::uint8_t*>(rowOf(mid, y));
    for (int x = 0; x < l.width; ++x) {
      std::uint8_t bgra[4];
      bgraOf(in, x, bits->nChannels, false, bgra);
      putBgra(bgra, n, red, out + std::ptrdiff_t(x) * n);
    }
  }
  release(bits);
  const WalkPlan plan{kFromDib, kFile, &kFromLines, false};
  convert::convertImage(plan, mid, "dib", image, "image", convert::plainBits(image->depth));
  release(mid);
}

// ---------------------------------------------------------------- to a bitmap

namespace {

struct Check {
  bool failed;
  const char* text;
  int line;
};

// The checks of moxConvertToDIB after the image's header; the working
// rectangle is w x h.
bool badTarget(const MoxImage* image, const MoxBitmapInfoHeader* dib, int dither, int how,
               long long w, long long h) {
  if (!dib) {
    report(Site{kToDib, kFile, 301}, "(dib == 0)");
    return true;
  }
  const long long height = dib->biHeight < 0 ? -(long long)dib->biHeight : dib->biHeight;
  const int bits = dib->biBitCount;
  const Check checks[] = {
      {w <= 0 || h <= 0, "(image->roi lies outside image)", 302},
      {!usableChannels(workChannels(image)), "(nChImage != 1 && nChImage != 3 && nChImage != 4)",
       303},
      {dib->biSize != 40, "(dib->biSize != 40)", 304},
      {dib->biPlanes != 1, "(dib->biPlanes != 1)", 305},
      {bits != 8 && bits != 24 && bits != 32,
       "(dib->biBitCount != 8 && dib->biBitCount != 24 && dib->biBitCount != 32)", 306},
      {dib->biCompression != 0, "(dib->biCompression != 0)", 307},
      {dib->biWidth != w, "(dib->biWidth != the width of the image's rectangle)", 308},
      {height != h, "(abs(dib->biHeight) != the height of the image's rectangle)", 309},
      {dib->biClrUsed > 256 || (bits == 8 && dib->biClrUsed == 1),
       "(dib->biClrUsed == 1 || dib->biClrUsed > 256)", 310},
      {dither < MOX_DITHER_NONE || dither > MOX_DITHER_BAYER,
       "(dither < MOX_DITHER_NONE || dither > MOX_DITHER_BAYER)", 311},
      {how < MOX_PALCONV_NONE || how > MOX_PALCONV_MEDCUT,
       "(paletteConversion < MOX_PALCONV_NONE || paletteConversion > MOX_PALCONV_MEDCUT)", 312},
      {bits == 8 && workChannels(image) > 1 && how == MOX_PALCONV_NONE && dib->biClrUsed != 0 &&
           dib->biClrUsed != 256,
       "(paletteConversion == MOX_PALCONV_NONE && dib->biClrUsed != 0 && dib->biClrUsed != 256)",
       313},
  };
  for (const Check& c : checks)
    if (c.failed) {
      report(Site{kToDib, kFile, c.line}, c.text);
      return true;
    }
  return false;
}

// The 8-bit rows: palette and indexes. Returns false when out of memory
// (then nothing is written).
bool writePalette(const MoxImage* mid, bool flip, bool red, MoxBitmapInfoHeader* dib, int dither,
                  int how) {
  const int w = mid->width, h = mid->height, n = mid->nChannels;
  const int count = dib->biClrUsed ? int(dib->biClrUsed) : 256;
  const int per = n == 1 ? 1 : 3;
  std::vector<std::uint8_t> pixels;
  std::uint8_t palette[256 * 4];
  try {
    pixels.resize(std::size_t(w) * std::size_t(h) * per);
  } catch (const std::bad_alloc&) {
    return false;
  }
  // Pixels in the bitmap's row order: gray values, or blue, green, red.
  for (int r = 0; r < h; ++r) {
    const std::uint8_t* in = rowOf(mid, flip ? h - 1 - r : r);
    std::uint8_t* out = pixels.data() + std::ptrdiff_t(r) * w * per;
    for (int x = 0; x < w; ++x) {
      std::uint8_t bgra[4];
      bgraOf(in, x, n, red, bgra);
      std::memcpy(out + std::ptrdiff_t(x) * per, n == 1 ? in + x : bgra, std::size_t(per));
    }
  }
  dib::Palette kind = n == 1 ? dib::Palette::Ramp
                      : how == MOX_PALCONV_NONE ? dib::Palette::Cube
                                                : dib::Palette::Any;
  int used = count;
  if (kind == dib::Palette::Any)
    used = dib::buildPalette(pixels.data(), (long long)w * h, count, how, palette);
  else
    dib::fixedPalette(kind, count, palette);
  if (used < 0) return false;
  auto* base = reinterpret_cast<std::uint8_t*>(dib) + 40;
  const long long rowBytes = (w * 8LL + 31) / 32 * 4;
  std::uint8_t* rows = base + 4 * count;
  if (!dib::mapToPalette(pixels.data(), w, h, kind, palette, used, dither, rows, rowBytes))
    return false;
  std::memcpy(base, palette, std::size_t(count) * 4);
  for (int r = 0; r < h; ++r) std::memset(rows + r * rowBytes + w, 0, std::size_t(rowBytes - w));
  dib->biClrUsed = unsigned(count);
  return true;
}

}  // namespace

extern "C" MOX_API void MOX_CALL moxConvertToDIB(const MoxImage* image, MoxBitmapInfoHeader* dib,
                                                 int dither, int paletteConversion) {
  const Site at{kToDib, kFile, 300};
  if (badHeader(image, at) || badLayout(image, "image", at)) return;
  long long x = 0, y = 0, w = image->width, h = image->height;
  if (const MoxROI* roi = image->roi) {
    x = roi->xOffset, y = roi->yOffset;
    w = std::min<long long>(roi->width, w - x);
    h = std::min<long long>(roi->height, h - y);
  }
  if (badTarget(image, dib, dither, paletteConversion, w, h)) return;
  const int n = workChannels(image);
  MoxImage* mid = scratch(n, image->origin, int(h), int(w));
  if (!mid) {
    report(Site{kToDib, kFile, 320}, "Out of memory", MOX_StsOutOfMemory);
    return;
  }
  const WalkPlan plan{kToDib, kFile, &kToLines, false};
  if (!convert::convertImage(plan, image, "image", mid, "dib", convert::plainBits(MOX_DEPTH_8U))) {
    release(mid);
    return;
  }
  // Bitmap row r holds the image's row r, or the mirrored one when the
  // image's first row is at the other end.
  const bool flip = (dib->biHeight > 0) != (image->origin == MOX_ORIGIN_BL);
  const bool red = redFirst(image);
  bool written = true;
  if (dib->biBitCount == 8) {
    written = writePalette(mid, flip, red, dib, dither, paletteConversion);
    if (!written) report(Site{kToDib, kFile, 320}, "Out of memory", MOX_StsOutOfMemory);
  } else {
    const int bytes = dib->biBitCount / 8;
    const long long rowBytes = (w * dib->biBitCount + 31) / 32 * 4;
    auto* rows = reinterpret_cast<std::uint8_t*>(dib) + 40 + 4 * dib->biClrUsed;
    for (int r = 0; r < h; ++r) {
      const std::uint8_t* in = rowOf(mid, int(flip ? h - 1 - r : r));
      std::uint8_t* out = rows + r * rowBytes;
      for (int i = 0; i < w; ++i) {
        std::uint8_t bgra[4];
        bgraOf(in, i, n, red, bgra);
        std::memcpy(out + std::ptrdiff_t(i) * bytes, bgra, std::size_t(bytes));
      }
      std::memset(out + w * bytes, 0, std::size_t(rowBytes - w * bytes));
    }
  }
  if (written) {
    dib->biSizeImage = unsigned(((w * dib->biBitCount + 31) / 32 * 4) * h);
    dib->biClrImportant = 0;
  }
  release(mid);
}
