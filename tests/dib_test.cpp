// Packed bitmaps: every kind the library reads (palette, 16-bit with and
// without bit fields, 24, 32, top-down, run-length) against the pixels they
// were made from; broken bitmaps refused with their texts and lines; the
// sample photographs through every layout the library writes and back; and
// the files it writes, for the independent reader's check.
#include <gtest/gtest.h>

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

using Bytes = std::vector<std::uint8_t>;

// A packed bitmap built field by field: header, optional masks, palette
// (BGRX), rows.
struct Dib {
  Bytes bytes;
  MoxBitmapInfoHeader* header() { return reinterpret_cast<MoxBitmapInfoHeader*>(bytes.data()); }
};

Dib makeDib(int width, int height, int bits, unsigned compression, const Bytes& palette,
            const Bytes& rows, const std::vector<std::uint32_t>& masks = {}) {
  MoxBitmapInfoHeader h{};
  h.biSize = 40;
  h.biWidth = width;
  h.biHeight = height;
  h.biPlanes = 1;
  h.biBitCount = static_cast<unsigned short>(bits);
  h.biCompression = compression;
  h.biSizeImage = static_cast<unsigned>(rows.size());
  h.biClrUsed = static_cast<unsigned>(palette.size() / 4);
  Dib d;
  d.bytes.resize(40);
  std::memcpy(d.bytes.data(), &h, 40);
  for (std::uint32_t m : masks)
    for (int k = 0; k < 4; ++k) d.bytes.push_back(static_cast<std::uint8_t>(m >> (8 * k)));
  d.bytes.insert(d.bytes.end(), palette.begin(), palette.end());
  d.bytes.insert(d.bytes.end(), rows.begin(), rows.end());
  return d;
}

// Pixel (x, y) of an 8U image as blue, green, red (gray: three times), y
// counted in memory rows.
std::vector<int> bgrAt(const MoxImage* im, int x, int y) {
  if (im->nChannels == 1) {
    const int g = int(get(im, x, y));
    return {g, g, g};
  }
  return {int(get(im, x, y, 0)), int(get(im, x, y, 1)), int(get(im, x, y, 2))};
}

struct Translated {
  MoxImage* im;
  int cloned;
  Translated(Dib& d) : cloned(-1) { im = moxTranslateDIB(d.header(), &cloned); }
  ~Translated() { moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA); }
};

const Bytes kPalette4 = {0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0};  // black, B, G, R

// Every kind of bitmap read back: the pixels of the first two rows (memory
// order) as blue, green, red.
TEST(DibRead, EveryKindOfBitmap) {
  struct Case {
    const char* name;
    Dib dib;
    int channels, cloned, origin;
    std::vector<std::vector<int>> row0, row1;
  };
  const std::vector<int> K{0, 0, 0}, B{255, 0, 0}, G{0, 255, 0}, R{0, 0, 255}, W{255, 255, 255};
  std::vector<Case> cases = {
      {"1-bit black and white", makeDib(9, 2, 1, 0, {0, 0, 0, 0, 255, 255, 255, 0},
                                        {0xA5, 0x80, 0, 0, 0x00, 0x00, 0, 0}),
       1, 1, MOX_ORIGIN_BL, {W, K, W, K, K, W, K, W, W}, {K, K, K, K, K, K, K, K, K}},
      {"4-bit palette", makeDib(3, 2, 4, 0, kPalette4, {0x12, 0x30, 0, 0, 0x33, 0x10, 0, 0}), 3, 1,
       MOX_ORIGIN_BL, {B, G, R}, {R, R, B}},
      {"8-bit palette, top-down", makeDib(2, -2, 8, 0, kPalette4, {3, 2, 0, 0, 1, 0, 0, 0}), 3, 1,
       MOX_ORIGIN_TL, {R, G}, {B, K}},
      {"8-bit index past the palette reads black", makeDib(1, 1, 8, 0, kPalette4, {9, 0, 0, 0}),
       3, 1, MOX_ORIGIN_BL, {K}, {}},
      {"16-bit 5-5-5", makeDib(2, 1, 16, 0, {}, {0x00, 0x7C, 0x1F, 0x00}), 3, 1, MOX_ORIGIN_BL,
       {R, B}, {}},
      {"16-bit 5-6-5 bit fields",
       makeDib(2, 1, 16, 3, {}, {0xE0, 0x07, 0x10, 0x84}, {0xF800, 0x07E0, 0x001F}), 3, 1,
       MOX_ORIGIN_BL, {G, {132, 130, 132}}, {}},
      {"24-bit shared", makeDib(2, 2, 24, 0, {}, {1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12, 0, 0}),
       3, 0, MOX_ORIGIN_BL, {{1, 2, 3}, {4, 5, 6}}, {{7, 8, 9}, {10, 11, 12}}},
      {"32-bit shared", makeDib(1, 1, 32, 0, {}, {1, 2, 3, 4}), 4, 0, MOX_ORIGIN_BL, {{1, 2, 3}}, {}},
      {"32-bit other bit fields",
       makeDib(1, 1, 32, 3, {}, {0x11, 0x22, 0x33, 0x44}, {0xFF, 0xFF00, 0xFF0000}), 3, 1,
       MOX_ORIGIN_BL, {{0x33, 0x22, 0x11}}, {}},
      // Runs: 3 of index 1, end of row; absolute 3 (padded), delta, end.
      {"RLE8", makeDib(4, 2, 8, 1, kPalette4, {3, 1, 0, 0, 0, 3, 2, 3, 1, 0, 0, 1}), 3, 1,
       MOX_ORIGIN_BL, {B, B, B, K}, {G, R, B, K}},
      {"RLE4", makeDib(5, 1, 4, 2, kPalette4, {5, 0x12, 0, 1}), 3, 1, MOX_ORIGIN_BL,
       {B, G, B, G, B}, {}},
      {"RLE8 move", makeDib(3, 2, 8, 1, kPalette4, {0, 2, 1, 1, 1, 3, 0, 1}), 3, 1, MOX_ORIGIN_BL,
       {K, K, K}, {K, R, K}},
  };
  Capture capture;
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    Translated t(c.dib);
    ASSERT_NE(t.im, nullptr);
    EXPECT_EQ(t.im->nChannels, c.channels);
    EXPECT_EQ(t.cloned, c.cloned);
    EXPECT_EQ(t.im->origin, c.origin);
    EXPECT_EQ(t.im->depth, unsigned(MOX_DEPTH_8U));
    EXPECT_EQ(moxBadImageHeader(t.im), 0u);
    for (int x = 0; x < int(c.row0.size()); ++x) EXPECT_EQ(bgrAt(t.im, x, 0), c.row0[x]) << x;
    for (int x = 0; x < int(c.row1.size()); ++x) EXPECT_EQ(bgrAt(t.im, x, 1), c.row1[x]) << x;
  }
  EXPECT_TRUE(reports().empty());
}

// Broken bitmaps: the text and line of each check, under both readers, and
// nothing made or written.
TEST(DibRead, BrokenBitmapsAreRefused) {
  const Bytes rows24(16, 0);
  struct Case {
    Dib dib;
    void (*spoil)(MoxBitmapInfoHeader*);
    int line;
    const char* text;
  };
  auto plain = [&] { return makeDib(2, 2, 24, 0, {}, rows24); };
  std::vector<Case> cases = {
      {plain(), [](MoxBitmapInfoHeader* h) { h->biSize = 12; }, 1,
       "(dib->biSize != 40 && dib->biSize != 108 && dib->biSize != 124)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biWidth = 0; }, 2, "(dib->biWidth <= 0)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biHeight = 0; }, 3,
       "(dib->biHeight == 0 || dib->biHeight == INT_MIN)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biHeight = INT_MIN; }, 3,
       "(dib->biHeight == 0 || dib->biHeight == INT_MIN)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biPlanes = 2; }, 4, "(dib->biPlanes != 1)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biBitCount = 2; }, 5,
       "(dib->biBitCount is not 1, 4, 8, 16, 24 or 32)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biCompression = 1; }, 6,
       "(dib->biCompression does not suit dib->biBitCount)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biCompression = 4; }, 6,
       "(dib->biCompression does not suit dib->biBitCount)"},
      {makeDib(2, -2, 8, 1, kPalette4, {0, 1}), nullptr, 7,
       "(dib->biHeight < 0 && the rows are run-length coded)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biClrUsed = 257; }, 8, "(dib->biClrUsed > 256)"},
      {makeDib(2, 2, 16, 3, {}, Bytes(8, 0), {0xF800, 0x0FE0, 0x001F}), nullptr, 9,
       "(a bit-field mask is 0, not one run of bits or overlaps another)"},
      {makeDib(2, 2, 16, 3, {}, Bytes(8, 0), {0xF800, 0, 0x001F}), nullptr, 9,
       "(a bit-field mask is 0, not one run of bits or overlaps another)"},
      {makeDib(2, 2, 16, 3, {}, Bytes(8, 0), {0xF800, 0x07E0, 0x0F01F}), nullptr, 9,
       "(a bit-field mask is 0, not one run of bits or overlaps another)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biWidth = 0x40000000, h->biHeight = 4; }, 10,
       "(dib->biWidth * dib->biHeight is too large)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biWidth = 0x7FFFFFFF, h->biHeight = 1; }, 10,
       "(dib->biWidth * dib->biHeight is too large)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biWidth = 0x7FFFFFFF, h->biHeight = INT_MAX; }, 10,
       "(dib->biWidth * dib->biHeight is too large)"},
      {plain(), [](MoxBitmapInfoHeader* h) { h->biSizeImage = 15; }, 11,
       "(dib->biSizeImage != 0 && dib->biSizeImage < the bytes of the rows)"},
      {makeDib(2, 2, 8, 1, kPalette4, {}), nullptr, 12,
       "(dib->biSizeImage == 0 && the rows are run-length coded)"},
      {makeDib(2, 2, 8, 1, kPalette4, {3, 1, 0, 1}), nullptr, 13,
       "(a run-length run goes past the end of its row)"},
      {makeDib(2, 2, 8, 1, kPalette4, {0, 3, 1, 2, 3, 0, 0, 1}), nullptr, 13,
       "(a run-length run goes past the end of its row)"},
      {makeDib(2, 2, 8, 1, kPalette4, {0, 2, 3, 0, 0, 1}), nullptr, 13,
       "(a run-length run goes past the end of its row)"},
      {makeDib(2, 2, 8, 1, kPalette4, {2, 1, 0, 0}), nullptr, 14,
       "(the run-length data go past dib->biSizeImage)"},
      {makeDib(2, 2, 8, 1, kPalette4, {0, 4, 1, 2}), nullptr, 14,
       "(the run-length data go past dib->biSizeImage)"},
      {makeDib(2, 1, 8, 1, kPalette4, {2, 1, 0, 0, 1, 1, 0, 1}), nullptr, 15,
       "(run-length data go past the last row)"},
      {makeDib(2, 1, 8, 1, kPalette4, {0, 2, 0, 2, 0, 1}), nullptr, 15,
       "(run-length data go past the last row)"},
  };
  Capture capture;
  for (Case& c : cases) {
    SCOPED_TRACE(c.text);
    if (c.spoil) c.spoil(c.dib.header());
    int cloned = 7;
    EXPECT_EQ(moxTranslateDIB(c.dib.header(), &cloned), nullptr);
    EXPECT_EQ(cloned, 7);
    expectReport("moxTranslateDIB", c.text, 100 + c.line, "moxdib");
    Image into({MOX_DEPTH_8U, 3, 0, 2, 2}, 5);
    const auto before = into.bytes();
    moxConvertFromDIB(c.dib.header(), into);
    expectReport("moxConvertFromDIB", c.text, 200 + c.line, "moxdib");
    EXPECT_EQ(into.bytes(), before);
  }
  moxTranslateDIB(nullptr, nullptr);
  expectReport("moxTranslateDIB", "(dib == 0)", 100, "moxdib");
  EXPECT_TRUE(reports().empty());
}

// Run-length data of random bytes: decoded or refused, never read or
// written outside the bitmap and the image (the sanitizer build watches).
TEST(DibRead, RandomRunLengthDataStaysInside) {
  Capture capture;
  std::mt19937 rng(7);
  for (int i = 0; i < 400; ++i) {
    Bytes data(std::size_t(rng() % 40), 0);
    for (auto& b : data) b = static_cast<std::uint8_t>(rng() % 4 == 0 ? rng() % 3 : rng());
    const bool four = i % 2;
    Dib d = makeDib(int(rng() % 9) + 1, int(rng() % 5) + 1, four ? 4 : 8, four ? 2 : 1, kPalette4, data);
    Translated t(d);
    EXPECT_EQ(t.im == nullptr, !reports().empty());
    reports().clear();
  }
}

// ---------------------------------------------------------------- photographs

std::string sample(const char* name) { return std::string(MOXPX_SAMPLES) + "/" + name; }

Bytes fileBytes(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

struct Owned {
  MoxImage* im;
  explicit Owned(MoxImage* i) : im(i) {}
  ~Owned() { moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI); }
  Owned(const Owned&) = delete;
  operator MoxImage*() const { return im; }
  MoxImage* operator->() const { return im; }
};

// A packed bitmap for an image of w x h, written by the library.
Dib toDib(const MoxImage* im, int bits, int w, int h, int dither = 0, int how = 0,
          int height = 0) {
  const int colours = bits == 8 ? 256 : 0;
  const long long row = (w * (long long)bits + 31) / 32 * 4;
  Dib d;
  d.bytes.assign(40 + 4 * colours + row * h, 0xEE);
  MoxBitmapInfoHeader hd{40, w, height ? height : h, 1, static_cast<unsigned short>(bits), 0, 0,
                         0, 0, 0, 0};
  std::memcpy(d.bytes.data(), &hd, 40);
  moxConvertToDIB(im, d.header(), dither, how);
  return d;
}

// The pixel bytes of two images of one layout (row padding left out).
bool samePixels(const MoxImage* a, const MoxImage* b) {
  const int row = a->width * a->nChannels * int(bitsOf(a->depth) / 8);
  for (int y = 0; y < a->height; ++y)
    if (std::memcmp(a->imageData + y * a->widthStep, b->imageData + y * b->widthStep, row)) return false;
  return true;
}

const char* const kSamples[] = {"coffee.bmp", "chelsea.bmp", "astronaut.bmp"};

// Every photograph: loaded, written as 24- and 32-bit bitmaps, top-down and
// bottom-up, read back (through both readers and into other layouts) and
// saved again unchanged.
TEST(DibPhotographs, ThroughEveryLayoutAndBack) {
  Capture capture;
  for (const char* name : kSamples) {
    SCOPED_TRACE(name);
    char why[128] = "";
    Owned photo(bmpRead(sample(name).c_str(), why, sizeof why));
    ASSERT_NE(photo.im, nullptr) << why;
    ASSERT_EQ(photo->nChannels, 3);
    const int w = photo->width, h = photo->height;
    const Bytes original = fileBytes(sample(name));
    // Saved as it came: the same file, byte for byte.
    const std::string out = ::testing::TempDir() + "dib_" + name;
    ASSERT_EQ(bmpWrite(out.c_str(), photo, 24, 0, 0, why, sizeof why), 0) << why;
    EXPECT_EQ(fileBytes(out) == original, true);
    for (int bits : {24, 32})
      for (int down : {0, 1}) {
        Dib d = toDib(photo, bits, w, h, 0, 0, down ? -h : h);
        // Into plane order at 16 bits, then back to 8U pixel order.
        Image planes({MOX_DEPTH_16U, 3, 1, h, w});
        planes->origin = MOX_ORIGIN_BL;
        std::memcpy(planes->channelSeq, "BGR", 3);
        moxConvertFromDIB(d.header(), planes);
        Image back({MOX_DEPTH_8U, 3, 0, h, w});
        back->origin = MOX_ORIGIN_BL;
        moxConvert(planes, back);
        EXPECT_TRUE(samePixels(back, photo)) << bits << " " << down;
        Translated t(d);
        ASSERT_NE(t.im, nullptr);
        EXPECT_EQ(t.cloned, 0);
        EXPECT_EQ(t.im->origin, down ? MOX_ORIGIN_TL : MOX_ORIGIN_BL);
        const int flipRow = down ? h - 1 : 0;
        EXPECT_EQ(bgrAt(t.im, 5, flipRow), bgrAt(photo, 5, 0));
      }
    EXPECT_TRUE(reports().empty());
  }
}

// Files cut short or not bitmaps at all: the file helper says why.
TEST(DibPhotographs, BrokenFilesAreRefusedByTheHelper) {
  Capture capture;
  const Bytes whole = fileBytes(sample("chelsea.bmp"));
  const struct { std::size_t keep; int offset; const char* why; } cases[] = {
      {whole.size() - 1, 0, "truncated bmp file"},
      {60, 0, "truncated bmp file"},
      {20, 0, "not a bmp file"},
      {whole.size(), 4000000, "truncated bmp file"},
  };
  for (const auto& c : cases) {
    Bytes cut(whole.begin(), whole.begin() + std::ptrdiff_t(c.keep));
    if (c.offset) std::memcpy(cut.data() + 10, &c.offset, 4);
    const std::string path = ::testing::TempDir() + "dib_broken.bmp";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(cut.data()),
                                                std::streamsize(cut.size()));
    char why[64] = "";
    EXPECT_EQ(bmpRead(path.c_str(), why, sizeof why), nullptr);
    EXPECT_STREQ(why, c.why);
  }
  char why[64] = "";
  EXPECT_EQ(bmpRead("/nonexistent/none.bmp", why, sizeof why), nullptr);
  EXPECT_STREQ(why, "cannot read the file");
  EXPECT_TRUE(reports().empty());
}

// 8-bit bitmaps of a photograph with each palette choice and dither: close
// to the photograph on average, the median cut closest.
TEST(DibPhotographs, PaletteChoicesAndDithers) {
  Capture capture;
  char why[128] = "";
  Owned photo(bmpRead(sample("chelsea.bmp").c_str(), why, sizeof why));
  ASSERT_NE(photo.im, nullptr) << why;
  const int w = photo->width, h = photo->height;
  double errorOf[3] = {};
  for (int how : {MOX_PALCONV_NONE, MOX_PALCONV_POPULATE, MOX_PALCONV_MEDCUT})
    for (int dither = MOX_DITHER_NONE; dither <= MOX_DITHER_BAYER; ++dither) {
      SCOPED_TRACE(std::to_string(how) + " " + std::to_string(dither));
      Dib d = toDib(photo, 8, w, h, dither, how);
      Translated t(d);
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
      // The same call gives the same bits.
      Dib again = toDib(photo, 8, w, h, dither, how);
      EXPECT_EQ(again.bytes, d.bytes);
    }
  EXPECT_LT(errorOf[MOX_PALCONV_MEDCUT], errorOf[MOX_PALCONV_NONE]);
  EXPECT_TRUE(reports().empty());
}

// What moxConvertToDIB checks, with nothing written; the lines of the image
// argument's chain first.
TEST(DibWrite, ChecksReportTheirTextAndLine) {
  Capture capture;
  Image im({MOX_DEPTH_8U, 3, 0, 4, 5});
  struct Case {
    void (*spoil)(MoxBitmapInfoHeader*, Image&);
    int dither, how, line;
    const char* text;
  };
  const Case cases[] = {
      {[](MoxBitmapInfoHeader* h, Image&) { h->biSize = 108; }, 0, 0, 304, "(dib->biSize != 40)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biPlanes = 0; }, 0, 0, 305, "(dib->biPlanes != 1)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biBitCount = 16; }, 0, 0, 306,
       "(dib->biBitCount != 8 && dib->biBitCount != 24 && dib->biBitCount != 32)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biCompression = 1; }, 0, 0, 307,
       "(dib->biCompression != 0)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biWidth = 6; }, 0, 0, 308,
       "(dib->biWidth != the width of the image's rectangle)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biHeight = -3; }, 0, 0, 309,
       "(abs(dib->biHeight) != the height of the image's rectangle)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biClrUsed = 300; }, 0, 0, 310,
       "(dib->biClrUsed == 1 || dib->biClrUsed > 256)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biClrUsed = 1; }, 0, 0, 310,
       "(dib->biClrUsed == 1 || dib->biClrUsed > 256)"},
      {nullptr, 5, 0, 311, "(dither < MOX_DITHER_NONE || dither > MOX_DITHER_BAYER)"},
      {nullptr, 0, -1, 312,
       "(paletteConversion < MOX_PALCONV_NONE || paletteConversion > MOX_PALCONV_MEDCUT)"},
      {[](MoxBitmapInfoHeader* h, Image&) { h->biClrUsed = 16; }, 0, 0, 313,
       "(paletteConversion == MOX_PALCONV_NONE && dib->biClrUsed != 0 && dib->biClrUsed != 256)"},
      {[](MoxBitmapInfoHeader*, Image& i) { i.roi(0, 5, 0, 2, 2); }, 0, 0, 302,
       "(image->roi lies outside image)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Dib d = makeDib(5, 4, 8, 0, Bytes(1024, 0xEE), Bytes(32, 0xEE));
    d.header()->biClrUsed = 0;
    d.header()->biSizeImage = 0;
    if (c.spoil) c.spoil(d.header(), im);
    const Bytes before = d.bytes;
    moxConvertToDIB(im, d.header(), c.dither, c.how);
    expectReport("moxConvertToDIB", c.text, c.line, "moxdib");
    EXPECT_EQ(d.bytes, before);
    moxDeleteROI(im->roi);
    im->roi = nullptr;
  }
  Image two({MOX_DEPTH_8U, 2, 0, 4, 5});
  Dib d = makeDib(5, 4, 24, 0, {}, Bytes(64, 0));
  moxConvertToDIB(two, d.header(), 0, 0);
  expectReport("moxConvertToDIB", "(nChImage != 1 && nChImage != 3 && nChImage != 4)", 303, "moxdib");
  moxConvertToDIB(im, nullptr, 0, 0);
  expectReport("moxConvertToDIB", "(dib == 0)", 301, "moxdib");
  moxConvertToDIB(nullptr, d.header(), 0, 0);
  expectReport("moxConvertToDIB", "Image header is null", 300, "moxdib");
  moxConvertFromDIB(d.header(), two);
  expectReport("moxConvertFromDIB", "(nChImage != 1 && nChImage != 3 && nChImage != 4)", 231,
               "moxdib");
  moxConvertFromDIB(d.header(), nullptr);
  expectReport("moxConvertFromDIB", "Image header is null", 230, "moxdib");
  EXPECT_TRUE(reports().empty());
}

// Gray images become gray palettes; channels meet as a reader expects (gray
// to colour repeats the value, colour to gray weighs it, alpha is opaque).
TEST(DibWrite, ChannelsAndGrayPalettes) {
  Capture capture;
  Image gray({MOX_DEPTH_8U, 1, 0, 3, 5}, 9);
  Dib d = toDib(gray, 8, 5, 3);
  Translated t(d);
  ASSERT_NE(t.im, nullptr);
  ASSERT_EQ(t.im->nChannels, 1);
  // Bottom-up bitmap of a top-left image: rows mirrored.
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) EXPECT_EQ(get(t.im, x, y), get(gray, x, 2 - y));
  Image colour({MOX_DEPTH_8U, 4, 0, 3, 5});
  moxConvertFromDIB(d.header(), colour);
  EXPECT_EQ(get(colour, 1, 0, 0), get(gray, 1, 0));
  EXPECT_EQ(get(colour, 1, 0, 2), get(gray, 1, 0));
  EXPECT_EQ(get(colour, 1, 0, 3), 255);
  Dib c = makeDib(1, 1, 24, 0, {}, {10, 100, 200, 0});
  Image one({MOX_DEPTH_8U, 1, 0, 1, 1});
  moxConvertFromDIB(c.header(), one);
  EXPECT_EQ(get(one, 0, 0), (114 * 10 + 587 * 100 + 299 * 200 + 500) / 1000);
  EXPECT_TRUE(reports().empty());
}

// Tiled images read and write bitmaps like plain ones, through their ROIs.
TEST(DibWrite, TiledImagesLikePlainOnes) {
  Capture capture;
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
  EXPECT_TRUE(reports().empty());
}

// Files for the independent reader: when MOXPX_BMP_OUT names a folder, every
// kind of file the library writes goes there, each with the pixels it should
// hold (raw rows, top first, red, green, blue).
TEST(DibFiles, WriteForTheIndependentReader) {
  const char* folder = std::getenv("MOXPX_BMP_OUT");
  if (!folder) GTEST_SKIP() << "MOXPX_BMP_OUT not set";
  Capture capture;
  char why[128] = "";
  Owned photo(bmpRead(sample("chelsea.bmp").c_str(), why, sizeof why));
  ASSERT_NE(photo.im, nullptr) << why;
  const struct {
    const char* name;
    int bits, dither, how;
  } kinds[] = {{"rgb24", 24, 0, 0},      {"rgb32", 32, 0, 0},        {"cube8", 8, 0, 0},
               {"populate8", 8, 1, 1},   {"medcut8", 8, 2, 2},       {"bayer8", 8, 4, 2}};
  for (const auto& k : kinds) {
    const std::string path = std::string(folder) + "/" + k.name + ".bmp";
    ASSERT_EQ(bmpWrite(path.c_str(), photo, k.bits, k.dither, k.how, why, sizeof why), 0) << why;
    // What the file should hold, as the library reads it back.
    Owned back(bmpRead(path.c_str(), why, sizeof why));
    ASSERT_NE(back.im, nullptr) << why;
    std::ofstream raw(std::string(folder) + "/" + k.name + ".rgb", std::ios::binary);
    for (int y = back->height - 1; y >= 0; --y)
      for (int x = 0; x < back->width; ++x) {
        const std::vector<int> p = bgrAt(back, x, y);
        const char rgb[3] = {char(p[2]), char(p[1]), char(p[0])};
        raw.write(rgb, 3);
      }
  }
  EXPECT_TRUE(reports().empty());
}

}  // namespace

namespace {

// Files of the independent writer (listed in MOXPX_BMP_IN/list.txt, each
// with the pixels that writer meant) load as it decoded them.
TEST(DibFiles, ReadFromTheIndependentWriter) {
  const char* folder = std::getenv("MOXPX_BMP_IN");
  if (!folder) GTEST_SKIP() << "MOXPX_BMP_IN not set";
  Capture capture;
  std::ifstream list(std::string(folder) + "/list.txt");
  std::string stem;
  int files = 0;
  while (list >> stem) {
    SCOPED_TRACE(stem);
    char why[128] = "";
    Owned im(bmpRead((std::string(folder) + "/" + stem + ".bmp").c_str(), why, sizeof why));
    ASSERT_NE(im.im, nullptr) << why;
    const Bytes want = fileBytes(std::string(folder) + "/" + stem + ".rgb");
    ASSERT_EQ(want.size(), std::size_t(im->width) * im->height * 3);
    std::size_t i = 0, wrong = 0;
    for (int r = 0; r < im->height; ++r) {
      const int y = im->origin == MOX_ORIGIN_BL ? im->height - 1 - r : r;
      for (int x = 0; x < im->width; ++x, i += 3) {
        const std::vector<int> p = bgrAt(im, x, y);
        wrong += p[2] != want[i] || p[1] != want[i + 1] || p[0] != want[i + 2];
      }
    }
    EXPECT_EQ(wrong, 0u);
    ++files;
  }
  EXPECT_GT(files, 0);
  EXPECT_TRUE(reports().empty());
}

}  // namespace
