// Packed bitmaps: every kind the library reads (palette, 16-bit with and
// without bit fields, 24, 32, top-down, run-length) against the pixels they
// were made from; broken bitmaps refused with their texts and lines; the
// sample photographs through every layout the library writes and back; and
// files for and from the independent reader and writer.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bmpfile.h"
#include "op_cases.h"

using namespace testimg;

namespace {

// Every test runs with the reports captured and leaves none unchecked.
class Quiet : public ::testing::Test {
  Capture capture_;
  void TearDown() override { EXPECT_TRUE(reports().empty()); }
};
using DibRead = Quiet;
using DibPhotographs = Quiet;
using DibWrite = Quiet;
using DibFiles = Quiet;

using Bytes = std::vector<std::uint8_t>;

// A packed bitmap: header, optional masks, palette (BGRX), rows.
struct Dib {
  Bytes bytes;
  MoxBitmapInfoHeader* header() { return reinterpret_cast<MoxBitmapInfoHeader*>(bytes.data()); }
};

Dib makeDib(int width, int height, int bits, unsigned compression, const Bytes& palette, const Bytes& rows,
            const std::vector<std::uint32_t>& masks = {}) {
  const MoxBitmapInfoHeader h{40, width, height, 1, static_cast<unsigned short>(bits), compression,
                              static_cast<unsigned>(rows.size()), 0, 0, static_cast<unsigned>(palette.size() / 4), 0};
  Dib d{Bytes(40)};
  std::memcpy(d.bytes.data(), &h, 40);
  for (std::uint32_t m : masks)
    for (int k = 0; k < 4; ++k) d.bytes.push_back(static_cast<std::uint8_t>(m >> (8 * k)));
  d.bytes.insert(d.bytes.end(), palette.begin(), palette.end());
  d.bytes.insert(d.bytes.end(), rows.begin(), rows.end());
  return d;
}

// A change to a bitmap's header or the image of a call, for check tables.
#define HDR(...) []([[maybe_unused]] MoxBitmapInfoHeader* h, [[maybe_unused]] Image& im) { __VA_ARGS__; }

// Pixel (x, y) of an 8U image as blue, green, red (gray: three times), y
// counted in memory rows.
std::vector<int> bgrAt(const MoxImage* im, int x, int y) {
  const int c = im->nChannels == 1 ? 0 : 1;
  return {int(get(im, x, y, 0)), int(get(im, x, y, c)), int(get(im, x, y, 2 * c))};
}

// An image the library or the file helper made (with whether a translated
// bitmap's pixels were copied), released at the end.
struct Owned {
  int cloned = -1;
  MoxImage* im;
  explicit Owned(MoxImage* i) : im(i) {}
  explicit Owned(Dib& d) : im(moxTranslateDIB(d.header(), &cloned)) {}
  ~Owned() { moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI); }
  Owned(const Owned&) = delete;
  operator MoxImage*() const { return im; }
  MoxImage* operator->() const { return im; }
};

const Bytes kPalette4 = {0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0};  // black, B, G, R

// Every kind of bitmap read back: the pixels of the first two rows (memory
// order) as blue, green, red.
TEST_F(DibRead, EveryKindOfBitmap) {
  struct Case { const char* name; Dib dib; int channels, cloned, origin; std::vector<std::vector<int>> row0, row1; };
  const std::vector<int> K{0, 0, 0}, B{255, 0, 0}, G{0, 255, 0}, R{0, 0, 255}, W{255, 255, 255};
  const int BL = MOX_ORIGIN_BL;
  std::vector<Case> cases = {
      {"1-bit black and white", makeDib(9, 2, 1, 0, {0, 0, 0, 0, 255, 255, 255, 0}, {0xA5, 0x80, 0, 0, 0, 0, 0, 0}),
       1, 1, BL, {W, K, W, K, K, W, K, W, W}, {K, K, K, K, K, K, K, K, K}},
      {"4-bit palette", makeDib(3, 2, 4, 0, kPalette4, {0x12, 0x30, 0, 0, 0x33, 0x10, 0, 0}), 3, 1, BL, {B, G, R},
       {R, R, B}},
      {"8-bit palette, top-down", makeDib(2, -2, 8, 0, kPalette4, {3, 2, 0, 0, 1, 0, 0, 0}), 3, 1, MOX_ORIGIN_TL,
       {R, G}, {B, K}},
      {"8-bit index past the palette reads black", makeDib(1, 1, 8, 0, kPalette4, {9, 0, 0, 0}), 3, 1, BL, {K}, {}},
      {"16-bit 5-5-5", makeDib(2, 1, 16, 0, {}, {0x00, 0x7C, 0x1F, 0x00}), 3, 1, BL, {R, B}, {}},
      {"16-bit 5-6-5 bit fields", makeDib(2, 1, 16, 3, {}, {0xE0, 0x07, 0x10, 0x84}, {0xF800, 0x07E0, 0x001F}), 3, 1,
       BL, {G, {132, 130, 132}}, {}},
      {"24-bit shared", makeDib(2, 2, 24, 0, {}, {1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12, 0, 0}), 3, 0, BL,
       {{1, 2, 3}, {4, 5, 6}}, {{7, 8, 9}, {10, 11, 12}}},
      {"32-bit shared", makeDib(1, 1, 32, 0, {}, {1, 2, 3, 4}), 4, 0, BL, {{1, 2, 3}}, {}},
      {"32-bit other bit fields", makeDib(1, 1, 32, 3, {}, {0x11, 0x22, 0x33, 0x44}, {0xFF, 0xFF00, 0xFF0000}), 3, 1,
       BL, {{0x33, 0x22, 0x11}}, {}},
      // Runs: 3 of index 1, end of row; absolute 3 (padded), delta, end.
      {"RLE8", makeDib(4, 2, 8, 1, kPalette4, {3, 1, 0, 0, 0, 3, 2, 3, 1, 0, 0, 1}), 3, 1, BL, {B, B, B, K},
       {G, R, B, K}},
      {"RLE4", makeDib(5, 1, 4, 2, kPalette4, {5, 0x12, 0, 1}), 3, 1, BL, {B, G, B, G, B}, {}},
      {"RLE8 move", makeDib(3, 2, 8, 1, kPalette4, {0, 2, 1, 1, 1, 3, 0, 1}), 3, 1, BL, {K, K, K}, {K, R, K}},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    Owned t(c.dib);
    ASSERT_NE(t.im, nullptr);
    EXPECT_EQ(std::tie(t->nChannels, t.cloned, t->origin, t->depth),
              std::make_tuple(c.channels, c.cloned, c.origin, unsigned(MOX_DEPTH_8U)));
    EXPECT_EQ(moxBadImageHeader(t.im), 0u);
    for (int x = 0; x < int(c.row0.size()); ++x) EXPECT_EQ(bgrAt(t.im, x, 0), c.row0[x]) << x;
    for (int x = 0; x < int(c.row1.size()); ++x) EXPECT_EQ(bgrAt(t.im, x, 1), c.row1[x]) << x;
  }
}

// Broken bitmaps: the text and line of each check, under both readers, and
// nothing made or written.
TEST_F(DibRead, BrokenBitmapsAreRefused) {
  const char *height = "(dib->biHeight == 0 || dib->biHeight == INT_MIN)",
             *compression = "(dib->biCompression does not suit dib->biBitCount)",
             *mask = "(a bit-field mask is 0, not one run of bits or overlaps another)",
             *large = "(dib->biWidth * dib->biHeight is too large)",
             *row = "(a run-length run goes past the end of its row)",
             *size = "(the run-length data go past dib->biSizeImage)", *last = "(run-length data go past the last row)";
  const Dib plain = makeDib(2, 2, 24, 0, {}, Bytes(16, 0));
  auto rle = [](int h, const Bytes& rows) { return makeDib(2, h, 8, 1, kPalette4, rows); };
  auto masks = [](std::uint32_t g, std::uint32_t b) { return makeDib(2, 2, 16, 3, {}, Bytes(8, 0), {0xF800, g, b}); };
  struct Case { Dib dib; void (*spoil)(MoxBitmapInfoHeader*, Image&); int line; const char* text; };
  std::vector<Case> cases = {
      {plain, HDR(h->biSize = 12), 1, "(dib->biSize != 40 && dib->biSize != 108 && dib->biSize != 124)"},
      {plain, HDR(h->biWidth = 0), 2, "(dib->biWidth <= 0)"},
      {plain, HDR(h->biHeight = 0), 3, height},
      {plain, HDR(h->biHeight = INT_MIN), 3, height},
      {plain, HDR(h->biPlanes = 2), 4, "(dib->biPlanes != 1)"},
      {plain, HDR(h->biBitCount = 2), 5, "(dib->biBitCount is not 1, 4, 8, 16, 24 or 32)"},
      {plain, HDR(h->biCompression = 1), 6, compression},
      {plain, HDR(h->biCompression = 4), 6, compression},
      {rle(-2, {0, 1}), HDR(), 7, "(dib->biHeight < 0 && the rows are run-length coded)"},
      {plain, HDR(h->biClrUsed = 257), 8, "(dib->biClrUsed > 256)"},
      {masks(0x0FE0, 0x001F), HDR(), 9, mask},
      {masks(0, 0x001F), HDR(), 9, mask},
      {masks(0x07E0, 0x0F01F), HDR(), 9, mask},
      {plain, HDR(h->biWidth = 0x40000000, h->biHeight = 4), 10, large},
      {plain, HDR(h->biWidth = 0x7FFFFFFF, h->biHeight = 1), 10, large},
      {plain, HDR(h->biWidth = 0x7FFFFFFF, h->biHeight = INT_MAX), 10, large},
      {plain, HDR(h->biSizeImage = 15), 11, "(dib->biSizeImage != 0 && dib->biSizeImage < the bytes of the rows)"},
      {rle(2, {}), HDR(), 12, "(dib->biSizeImage == 0 && the rows are run-length coded)"},
      {rle(2, {3, 1, 0, 1}), HDR(), 13, row},
      {rle(2, {0, 3, 1, 2, 3, 0, 0, 1}), HDR(), 13, row},
      {rle(2, {0, 2, 3, 0, 0, 1}), HDR(), 13, row},
      {rle(2, {2, 1, 0, 0}), HDR(), 14, size},
      {rle(2, {0, 4, 1, 2}), HDR(), 14, size},
      {rle(1, {2, 1, 0, 0, 1, 1, 0, 1}), HDR(), 15, last},
      {rle(1, {0, 2, 0, 2, 0, 1}), HDR(), 15, last},
  };
  Image into({MOX_DEPTH_8U, 3, 0, 2, 2}, 5);
  const auto before = into.bytes();
  for (Case& c : cases) {
    SCOPED_TRACE(c.text);
    c.spoil(c.dib.header(), into);
    int cloned = 7;
    EXPECT_EQ(moxTranslateDIB(c.dib.header(), &cloned), nullptr);
    EXPECT_EQ(cloned, 7);
    expectReport("moxTranslateDIB", c.text, 100 + c.line, "moxdib");
    moxConvertFromDIB(c.dib.header(), into);
    expectReport("moxConvertFromDIB", c.text, 200 + c.line, "moxdib");
  }
  EXPECT_EQ(into.bytes(), before);
  moxTranslateDIB(nullptr, nullptr);
  expectReport("moxTranslateDIB", "(dib == 0)", 100, "moxdib");
  moxConvertFromDIB(nullptr, into);
  expectReport("moxConvertFromDIB", "(dib == 0)", 200, "moxdib");
}

std::string sample(const char* name) { return std::string(MOXPX_SAMPLES) + "/" + name; }

Bytes fileBytes(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

// A packed bitmap for an image of w x h (height: the header's, if not h),
// written by the library.
Dib toDib(const MoxImage* im, int bits, int w, int h, int dither = 0, int how = 0, int height = 0) {
  const long long row = (w * (long long)bits + 31) / 32 * 4;
  Dib d{Bytes(40 + (bits == 8 ? 1024 : 0) + row * h, 0xEE)};
  const MoxBitmapInfoHeader hd{40, w, height ? height : h, 1, static_cast<unsigned short>(bits), 0, 0, 0, 0, 0, 0};
  std::memcpy(d.bytes.data(), &hd, 40);
  moxConvertToDIB(im, d.header(), dither, how);
  return d;
}

// Every photograph: loaded, saved again unchanged, written as 24- and
// 32-bit bitmaps, top-down and bottom-up, and read back through both readers
// (into plane order at 16 bits and back to 8U pixel order).
TEST_F(DibPhotographs, ThroughEveryLayoutAndBack) {
  for (const char* name : {"coffee.bmp", "chelsea.bmp", "astronaut.bmp"}) {
    SCOPED_TRACE(name);
    char why[128] = "";
    Owned photo(bmpRead(sample(name).c_str(), why, sizeof why));
    ASSERT_NE(photo.im, nullptr) << why;
    ASSERT_EQ(photo->nChannels, 3);
    const int w = photo->width, h = photo->height;
    const std::string out = ::testing::TempDir() + "dib_" + name;
    ASSERT_EQ(bmpWrite(out.c_str(), photo, 24, 0, 0, why, sizeof why), 0) << why;
    EXPECT_TRUE(fileBytes(out) == fileBytes(sample(name)));
    for (int bits : {24, 32})
      for (int down : {0, 1}) {
        SCOPED_TRACE(std::to_string(bits) + (down ? " top-down" : " bottom-up"));
        Dib d = toDib(photo, bits, w, h, 0, 0, down ? -h : h);
        Image planes({MOX_DEPTH_16U, 3, 1, h, w}), back({MOX_DEPTH_8U, 3, 0, h, w});
        planes->origin = back->origin = MOX_ORIGIN_BL;
        std::memcpy(planes->channelSeq, "BGR", 3);
        moxConvertFromDIB(d.header(), planes);
        moxConvert(planes, back);
        for (int y = 0; y < h; ++y)
          ASSERT_EQ(std::memcmp(back->imageData + y * back->widthStep, photo->imageData + y * photo->widthStep, 3 * w), 0);
        Owned t(d);
        ASSERT_NE(t.im, nullptr);
        EXPECT_EQ(t.cloned, 0);
        EXPECT_EQ(t->origin, down ? MOX_ORIGIN_TL : MOX_ORIGIN_BL);
        EXPECT_EQ(bgrAt(t.im, 5, down ? h - 1 : 0), bgrAt(photo, 5, 0));
      }
  }
}

// Files cut short, not bitmaps at all or not there: the file helper says why.
TEST_F(DibPhotographs, BrokenFilesAreRefusedByTheHelper) {
  const Bytes whole = fileBytes(sample("chelsea.bmp"));
  const struct { std::size_t keep; int offset; const char* why; } cases[] = {
      {whole.size() - 1, 0, "truncated bmp file"}, {60, 0, "truncated bmp file"}, {20, 0, "not a bmp file"},
      {whole.size(), 4000000, "truncated bmp file"}, {0, -1, "cannot read the file"}};
  const std::string path = ::testing::TempDir() + "dib_broken.bmp";
  for (const auto& c : cases) {
    Bytes cut(whole.begin(), whole.begin() + std::ptrdiff_t(c.keep));
    if (c.offset > 0) std::memcpy(cut.data() + 10, &c.offset, 4);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(cut.data()), std::streamsize(cut.size()));
    char why[64] = "";
    EXPECT_EQ(bmpRead(c.offset < 0 ? "/nonexistent/none.bmp" : path.c_str(), why, sizeof why), nullptr);
    EXPECT_STREQ(why, c.why);
  }
}

// 8-bit bitmaps of a photograph with each palette choice and dither: close
// to the photograph on average, the median cut closest, the same bits twice.
TEST_F(DibPhotographs, PaletteChoicesAndDithers) {
  char why[128] = "";
  Owned photo(bmpRead(sample("chelsea.bmp").c_str(), why, sizeof why));
  ASSERT_NE(photo.im, nullptr) << why;
  const int w = photo->width, h = photo->height;
  double errorOf[3] = {};
  for (int how : {MOX_PALCONV_NONE, MOX_PALCONV_POPULATE, MOX_PALCONV_MEDCUT})
    for (int dither = MOX_DITHER_NONE; dither <= MOX_DITHER_BAYER; ++dither) {
      SCOPED_TRACE(std::to_string(how) + " " + std::to_string(dither));
      Dib d = toDib(photo, 8, w, h, dither, how);
      Owned t(d);
      ASSERT_NE(t.im, nullptr);
      EXPECT_EQ(d.header()->biClrUsed, 256u);
      // Mean error per value over the picture, and the mean colour kept.
      double sum = 0, bias = 0;
      for (int y = 0; y < h; y += 3)
        for (int x = 0; x < w; x += 3)
          for (int c = 0; c < 3; ++c) {
            const double e = double(get(t.im, x, y, c)) - double(get(photo, x, y, c));
            sum += std::abs(e);
            bias += e;
          }
      const double n = double((h + 2) / 3) * ((w + 2) / 3) * 3;
      EXPECT_LT(std::abs(bias / n), 3.0);
      EXPECT_LT(sum / n, how == MOX_PALCONV_NONE ? 24.0 : 14.0);
      if (dither == MOX_DITHER_NONE) errorOf[how] = sum / n;
      EXPECT_EQ(toDib(photo, 8, w, h, dither, how).bytes, d.bytes);
    }
  EXPECT_LT(errorOf[MOX_PALCONV_MEDCUT], errorOf[MOX_PALCONV_NONE]);
}

// A picture and the same picture twice over get the same chosen palette and
// indexes: the colour counts of a few pixels and of many are gathered in
// different ways, which must agree.
TEST_F(DibWrite, ChosenPaletteOfFewPixelsAsOfMany) {
  Image once({MOX_DEPTH_8U, 3, 0, 60, 60}, 7), twice({MOX_DEPTH_8U, 3, 0, 120, 60});
  for (int y = 0; y < 120; ++y)
    std::memcpy(twice->imageData + y * twice->widthStep, once->imageData + (y % 60) * once->widthStep, 180);
  for (int how : {MOX_PALCONV_POPULATE, MOX_PALCONV_MEDCUT}) {
    const Dib a = toDib(once, 8, 60, 60, MOX_DITHER_NONE, how), b = toDib(twice, 8, 60, 120, MOX_DITHER_NONE, how);
    const std::size_t rows = 60 * 60;  // 60-byte rows need no padding
    ASSERT_EQ(a.bytes.size(), 40 + 1024 + rows);
    EXPECT_TRUE(std::equal(a.bytes.begin() + 40, a.bytes.end(), b.bytes.begin() + 40)) << how;
    EXPECT_TRUE(std::equal(a.bytes.begin() + 1064, a.bytes.end(), b.bytes.begin() + 1064 + rows)) << how;
  }
}

// What moxConvertToDIB checks, with nothing written; the lines of the image
// argument's chain first.
TEST_F(DibWrite, ChecksReportTheirTextAndLine) {
  const char *colours = "(dib->biClrUsed == 1 || dib->biClrUsed > 256)",
             *channels = "(nChImage != 1 && nChImage != 3 && nChImage != 4)";
  const struct { void (*spoil)(MoxBitmapInfoHeader*, Image&); int dither, how, line; const char* text; } cases[] = {
      {HDR(h->biSize = 108), 0, 0, 304, "(dib->biSize != 40)"},
      {HDR(h->biPlanes = 0), 0, 0, 305, "(dib->biPlanes != 1)"},
      {HDR(h->biBitCount = 16), 0, 0, 306, "(dib->biBitCount != 8 && dib->biBitCount != 24 && dib->biBitCount != 32)"},
      {HDR(h->biCompression = 1), 0, 0, 307, "(dib->biCompression != 0)"},
      {HDR(h->biWidth = 6), 0, 0, 308, "(dib->biWidth != the width of the image's rectangle)"},
      {HDR(h->biHeight = -3), 0, 0, 309, "(abs(dib->biHeight) != the height of the image's rectangle)"},
      {HDR(h->biClrUsed = 300), 0, 0, 310, colours},
      {HDR(h->biClrUsed = 1), 0, 0, 310, colours},
      {HDR(), 5, 0, 311, "(dither < MOX_DITHER_NONE || dither > MOX_DITHER_BAYER)"},
      {HDR(), 0, -1, 312, "(paletteConversion < MOX_PALCONV_NONE || paletteConversion > MOX_PALCONV_MEDCUT)"},
      {HDR(h->biClrUsed = 16), 0, 0, 313,
       "(paletteConversion == MOX_PALCONV_NONE && dib->biClrUsed != 0 && dib->biClrUsed != 256)"},
      {HDR(im.roi(0, 5, 0, 2, 2)), 0, 0, 302, "(image->roi lies outside image)"},
      {HDR(im->nChannels = 2), 0, 0, 303, channels},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Image im({MOX_DEPTH_8U, 3, 0, 4, 5});
    Dib d = makeDib(5, 4, 8, 0, Bytes(1024, 0xEE), Bytes(32, 0xEE));
    d.header()->biClrUsed = d.header()->biSizeImage = 0;
    c.spoil(d.header(), im);
    const Bytes before = d.bytes;
    moxConvertToDIB(im, d.header(), c.dither, c.how);
    expectReport("moxConvertToDIB", c.text, c.line, "moxdib");
    EXPECT_EQ(d.bytes, before);
  }
  Image im({MOX_DEPTH_8U, 3, 0, 4, 5}), two({MOX_DEPTH_8U, 2, 0, 4, 5});
  Dib d = makeDib(5, 4, 24, 0, {}, Bytes(64, 0));
  moxConvertToDIB(im, nullptr, 0, 0);
  expectReport("moxConvertToDIB", "(dib == 0)", 301, "moxdib");
  moxConvertToDIB(nullptr, d.header(), 0, 0);
  expectReport("moxConvertToDIB", "Image header is null", 300, "moxdib");
  moxConvertFromDIB(d.header(), two);
  expectReport("moxConvertFromDIB", channels, 231, "moxdib");
  moxConvertFromDIB(d.header(), nullptr);
  expectReport("moxConvertFromDIB", "Image header is null", 230, "moxdib");
  // Tiled images whose call-back hands out no tile.
  Tiled from(im, 8, 8), to(im, 8, 8);
  from.nullOnGet = to.nullOnGet = 0;
  moxConvertToDIB(from, d.header(), 0, 0);
  expectReport("moxConvertToDIB", "(image->tileInfo->tileData == ((void*)(0)))", 353, "moxdib");
  moxConvertFromDIB(d.header(), to);
  expectReport("moxConvertFromDIB", "(image->tileInfo->tileData == ((void*)(0)))", 255, "moxdib");
}

// Gray images become gray palettes; channels meet as a reader expects (gray
// to colour repeats the value, colour to gray weighs it, alpha is opaque).
TEST_F(DibWrite, ChannelsAndGrayPalettes) {
  Image gray({MOX_DEPTH_8U, 1, 0, 3, 5}, 9);
  Dib d = toDib(gray, 8, 5, 3);
  Owned t(d);
  ASSERT_NE(t.im, nullptr);
  ASSERT_EQ(t->nChannels, 1);
  // Bottom-up bitmap of a top-left image: rows mirrored.
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(get(t.im, x, y), get(gray, x, 2 - y));
  Image colour({MOX_DEPTH_8U, 4, 0, 3, 5});
  moxConvertFromDIB(d.header(), colour);
  EXPECT_EQ((std::vector<ll>{get(colour, 1, 0, 0), get(colour, 1, 0, 2), get(colour, 1, 0, 3)}),
            (std::vector<ll>{get(gray, 1, 0), get(gray, 1, 0), 255}));
  Dib c = makeDib(1, 1, 24, 0, {}, {10, 100, 200, 0});
  Image one({MOX_DEPTH_8U, 1, 0, 1, 1});
  moxConvertFromDIB(c.header(), one);
  EXPECT_EQ(get(one, 0, 0), (114 * 10 + 587 * 100 + 299 * 200 + 500) / 1000);
}

// Tiled images read and write bitmaps like plain ones, through their ROIs.
TEST_F(DibWrite, TiledImagesLikePlainOnes) {
  Image plain({MOX_DEPTH_16U, 3, 1, 20, 27}, 3, std::array<int, 5>{0, 2, 3, 17, 23}.data());
  Tiled tiled(plain, 8, 16);
  Dib a = toDib(plain, 24, 23, 17), b = toDib(tiled, 24, 23, 17);
  EXPECT_EQ(a.bytes, b.bytes);
  Image back({MOX_DEPTH_8U, 1, 0, 20, 27}, 4, std::array<int, 5>{0, 1, 1, 30, 30}.data());
  Tiled tiledBack(back, 16, 8);
  moxConvertFromDIB(a.header(), back);
  moxConvertFromDIB(a.header(), tiledBack);
  Image gathered({MOX_DEPTH_8U, 1, 0, 20, 27}, 4);
  tiledBack.gather(gathered);
  EXPECT_EQ(pixels(gathered), pixels(back));
}

// The pixels of an 8U image, top row first, as red, green, blue.
Bytes rgbRows(const MoxImage* im) {
  Bytes out;
  for (int r = 0; r < im->height; ++r)
    for (int x = 0; x < im->width; ++x) {
      const std::vector<int> p = bgrAt(im, x, im->origin == MOX_ORIGIN_BL ? im->height - 1 - r : r);
      out.insert(out.end(), {std::uint8_t(p[2]), std::uint8_t(p[1]), std::uint8_t(p[0])});
    }
  return out;
}

// Files for the independent reader: when MOXPX_BMP_OUT names a folder, every
// kind of file the library writes goes there, each with the pixels it should
// hold as the library reads it back (raw rows, top first, red, green, blue).
TEST_F(DibFiles, WriteForTheIndependentReader) {
  const char* folder = std::getenv("MOXPX_BMP_OUT");
  if (!folder) GTEST_SKIP() << "MOXPX_BMP_OUT not set";
  char why[128] = "";
  Owned photo(bmpRead(sample("chelsea.bmp").c_str(), why, sizeof why));
  ASSERT_NE(photo.im, nullptr) << why;
  const struct { const char* name; int bits, dither, how; } kinds[] = {
      {"rgb24", 24, 0, 0}, {"rgb32", 32, 0, 0}, {"cube8", 8, 0, 0},
      {"populate8", 8, 1, 1}, {"medcut8", 8, 2, 2}, {"bayer8", 8, 4, 2}};
  for (const auto& k : kinds) {
    const std::string stem = std::string(folder) + "/" + k.name;
    ASSERT_EQ(bmpWrite((stem + ".bmp").c_str(), photo, k.bits, k.dither, k.how, why, sizeof why), 0) << why;
    Owned back(bmpRead((stem + ".bmp").c_str(), why, sizeof why));
    ASSERT_NE(back.im, nullptr) << why;
    const Bytes raw = rgbRows(back);
    std::ofstream(stem + ".rgb", std::ios::binary).write(reinterpret_cast<const char*>(raw.data()), std::streamsize(raw.size()));
  }
}

// Files of the independent writer (listed in MOXPX_BMP_IN/list.txt, each
// with the pixels that writer meant) load as it decoded them.
TEST_F(DibFiles, ReadFromTheIndependentWriter) {
  const char* folder = std::getenv("MOXPX_BMP_IN");
  if (!folder) GTEST_SKIP() << "MOXPX_BMP_IN not set";
  std::ifstream list(std::string(folder) + "/list.txt");
  std::string stem;
  int files = 0;
  for (; list >> stem; ++files) {
    SCOPED_TRACE(stem);
    char why[128] = "";
    Owned im(bmpRead((std::string(folder) + "/" + stem + ".bmp").c_str(), why, sizeof why));
    ASSERT_NE(im.im, nullptr) << why;
    EXPECT_TRUE(rgbRows(im) == fileBytes(std::string(folder) + "/" + stem + ".rgb"));
  }
  EXPECT_GT(files, 0);
}

}  // namespace
