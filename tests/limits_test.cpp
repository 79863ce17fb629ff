// Sizes at the edge of 32 and 64 bits: layouts just under INT_MAX bytes are
// made, just over are refused; headers whose fields overflow any product are
// refused by every family before a byte is touched; tile indexes, filter
// windows, bitmap sizes and histogram tables at their limits.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "moxpx.h"

namespace {

using moxtest::Capture;
using moxtest::reports;

struct Layout {
  int nChannels;
  unsigned depth;
  int order, align, height, width;
  int step, size;  // 0: refused
};

// step x height x planes against INT_MAX, and products that leave 64 bits.
constexpr Layout kLayouts[] = {
    {1, MOX_DEPTH_8U, 0, 4, 32767, 65536, 65536, 2147418112},
    {1, MOX_DEPTH_8U, 0, 4, 32768, 65536, 0, 0},
    {1, MOX_DEPTH_8U, 0, 4, 1, 2147483644, 2147483644, 2147483644},
    {1, MOX_DEPTH_8U, 0, 4, 1, 2147483645, 0, 0},  // the step rounds up to 2^31
    {1, MOX_DEPTH_8U, 0, 8, 1, 2147483640, 2147483640, 2147483640},
    {1, MOX_DEPTH_8U, 0, 8, 1, 2147483641, 0, 0},
    {4, MOX_DEPTH_32S, 0, 4, 1, 134217727, 2147483632, 2147483632},
    {4, MOX_DEPTH_32S, 0, 4, 1, 134217728, 0, 0},
    {INT_MAX, MOX_DEPTH_32S, 0, 4, INT_MAX, INT_MAX, 0, 0},
    {2047, MOX_DEPTH_8U, 1, 4, 1024, 1024, 1024, 2146435072},
    {2048, MOX_DEPTH_8U, 1, 4, 1024, 1024, 0, 0},
    {INT_MAX, MOX_DEPTH_16S, 1, 8, INT_MAX, INT_MAX, 0, 0},
    {1, MOX_DEPTH_1U, 0, 4, 7, INT_MAX, 268435456, 1879048192},
    {1, MOX_DEPTH_1U, 0, 4, 8, INT_MAX, 0, 0},
};

TEST(Limits, HeaderSizesNearIntMax) {
  for (const Layout& l : kLayouts) {
    SCOPED_TRACE(testing::Message() << l.nChannels << " channels, " << l.width << " x " << l.height);
    MoxImage* im = moxCreateImageHeader(l.nChannels, 0, l.depth, "RGB", "RGB", l.order, 0, l.align,
                                        l.height, l.width, nullptr, nullptr, nullptr);
    if (l.size == 0) {
      EXPECT_EQ(im, nullptr);
      // A small header grown past the limit is not allocated either.
      im = moxCreateImageHeader(1, 0, l.depth, "RGB", "RGB", l.order, 0, l.align, 1, 1, nullptr,
                                nullptr, nullptr);
      im->nChannels = l.depth == MOX_DEPTH_1U ? 1 : l.nChannels;
      im->height = l.height, im->width = l.width;
      moxAllocateImage(im, 0);
      EXPECT_EQ(im->imageData, nullptr);
      EXPECT_EQ(im->imageSize, 0);
    } else {
      ASSERT_NE(im, nullptr);
      EXPECT_EQ(im->widthStep, l.step);
      EXPECT_EQ(im->imageSize, l.size);
      char byte = 0;
      im->imageData = &byte;  // the validation reads no pixels
      EXPECT_EQ(moxBadImageHeader(im), 0u);
      im->imageData = nullptr;
    }
    moxDeallocateHeader(im);
  }
}

// A header the caller filled in: 16 real bytes behind any claimed shape,
// with a ROI of one pixel, so that a check that let it through would run.
class Claimed {
 public:
  Claimed(int nChannels, unsigned depth, int order, int height, int width, int step, int size) {
    im_ = moxCreateImageHeader(1, 0, depth, "RGB", "RGB", order, 0, 4, 1, 1,
                               moxCreateROI(0, 0, 0, 1, 1), nullptr, nullptr);
    im_->nChannels = nChannels, im_->height = height, im_->width = width;
    im_->widthStep = step, im_->imageSize = size;
    im_->imageData = block_;
    std::memset(block_, 0x5A, sizeof block_);
  }
  ~Claimed() { moxDeallocate(im_, MOX_FREE_HEADER | MOX_FREE_ROI); }
  operator MoxImage*() const { return im_; }
  bool untouched() const {
    for (char c : block_)
      if (c != 0x5A) return false;
    return true;
  }

 private:
  MoxImage* im_;
  char block_[16];
};

// The first report of a call: its message, or "" when there was none.
template <class F>
std::string firstReport(F call) {
  Capture capture;
  call();
  return reports().empty() ? std::string() : reports().front().message;
}

TEST(Limits, OverflowingHeadersAreRefusedEverywhere) {
  struct Shape { int nChannels; unsigned depth; int order, height, width, step, size; const char* text; };
  const Shape shapes[] = {
      // width x channels x bits past 64 bits
      {INT_MAX, MOX_DEPTH_8U, 0, 1, INT_MAX, 16, 16, "->widthStep < the bytes of"},
      {1 << 28, MOX_DEPTH_32S, 0, 1, 1 << 28, 16, 16, "->widthStep < the bytes of"},
      // step x height x planes past 64 bits
      {INT_MAX, MOX_DEPTH_8U, 1, INT_MAX, 4, 4, 16, "->imageSize < the bytes of"},
      {1, MOX_DEPTH_16S, 0, INT_MAX, 2, 4, 16, "->imageSize < the bytes of"},
  };
  for (const Shape& s : shapes) {
    SCOPED_TRACE(testing::Message() << s.nChannels << " channels, " << s.width << " x " << s.height);
    Claimed a(s.nChannels, s.depth, s.order, s.height, s.width, s.step, s.size);
    Claimed b(s.nChannels, s.depth, s.order, s.height, s.width, s.step, s.size);
    MoxImage* const pa = a;
    MoxImage* const pb = b;
    MoxLUT* luts[1] = {nullptr};
    const std::vector<std::pair<std::string, std::string>> calls = {
        {"set", firstReport([&] { moxSet(pa, 7, nullptr); })},
        {"add", firstReport([&] { moxAdd(pa, pa, pb, nullptr); })},
        {"mirror", firstReport([&] { moxMirror(pa, pb, 0); })},
        {"blur", firstReport([&] { moxBlur(pa, pb, 3, 3, 1, 1); })},
        {"histogram", firstReport([&] { moxComputeHisto(pa, luts); })},
        {"threshold", firstReport([&] { moxThreshold(pa, pb, 3); })},
        {"convert", firstReport([&] { moxConvert(pa, pb); })},
        {"fft", firstReport([&] { moxRealFft2D(pa, pb, MOX_FFT_FORWARD, nullptr); })},
    };
    for (const auto& [name, text] : calls)
      EXPECT_NE(text.find(name == "fft" ? "Error in input data" : s.text), std::string::npos)
          << name << ": " << text;
    EXPECT_TRUE(a.untouched() && b.untouched());
  }
}

// Serves one 8 x 8 tile block for any index and records the last index.
struct TileServer {
  static inline std::vector<char> block;
  static inline int lastX = -1, lastY = -1;
  static void MOX_CALL serve(const MoxImage* im, int x, int y, int mode) {
    im->tileInfo->tileData = mode == MOX_RELEASE_TILE ? nullptr : block.data();
    if (mode != MOX_RELEASE_TILE) lastX = x, lastY = y;
  }
};

TEST(Limits, TileIndexesOfTheLargestTiledImage) {
  // A tiled image has no block, so only its tiles bound it: 2^31 - 1 pixels
  // each way, 4 channels of 32 bits, 2^28 tiles each way.
  MoxTileInfo* info = moxCreateTileInfo(&TileServer::serve, 0, 8, 8);
  MoxImage* im = moxCreateImageHeader(4, 0, MOX_DEPTH_32S, "RGBA", "RGBA", 0, 0, 4, 8, 8, nullptr,
                                      nullptr, info);
  im->width = im->height = INT_MAX;
  TileServer::block.assign(8 * 8 * 16, 0);
  const int last = INT_MAX / 8;  // the edge tile holds 7 x 7 pixels
  const int corner[2] = {last, last};
  {
    Capture capture;
    moxSet(im, -3, corner);
    EXPECT_TRUE(reports().empty());
  }
  EXPECT_EQ(TileServer::lastX, last);
  EXPECT_EQ(TileServer::lastY, last);
  std::vector<int> values(TileServer::block.size() / 4);
  std::memcpy(values.data(), TileServer::block.data(), TileServer::block.size());
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      EXPECT_EQ(values[std::size_t(y * 32 + x * 4)], x < 7 && y < 7 ? -3 : 0) << x << "," << y;

  const int past[2] = {last + 1, 0};
  EXPECT_EQ(firstReport([&] { moxSet(im, 1, past); }), "(dTile.begX > dRoi.endX)");
  // Tiles whose own layout passes 32 bits.
  moxSetTileInfo(info, &TileServer::serve, 0, 65536, 65536);
  EXPECT_EQ(firstReport([&] { moxSet(im, 1, corner); }),
            "(image->tileInfo->width * image->tileInfo->height is too large)");
  moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_TILEINFO);
}

TEST(Limits, FilterWindowsAtTheirLimits) {
  const int ones[4] = {1, 1, 1, 1};
  EXPECT_EQ(moxCreateConvKernel((1 << 14) + 1, 1 << 14, 0, 0, ones, 0), nullptr);
  EXPECT_EQ(moxCreateConvKernel(INT_MAX, INT_MAX, 0, 0, ones, 0), nullptr);

  MoxImage* src = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", 0, 0, 4, 3, 5, nullptr,
                                       nullptr, nullptr);
  MoxImage* dst = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", 0, 0, 4, 3, 5, nullptr,
                                       nullptr, nullptr);
  moxAllocateImage(src, 9);
  moxAllocateImage(dst, 4);
  const int windows[2][4] = {{INT_MAX, 1, INT_MAX - 1, 0}, {1, INT_MAX, 0, 0}};
  for (const int* window : windows) {
    Capture capture;
    moxBlur(src, dst, window[0], window[1], window[2], window[3]);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].status, MOX_StsOutOfMemory);
    EXPECT_EQ(dst->imageData[0], 4);
  }
  // Iterations past the image's size change nothing more.
  std::vector<char> once;
  for (int n : {7, INT_MAX}) {
    moxSetBorderMode(src, MOX_BORDER_REPLICATE, MOX_SIDE_ALL, 0);
    for (int i = 0; i < src->imageSize; ++i) src->imageData[i] = char(i * 37);
    moxErode(src, dst, n);
    if (once.empty()) once.assign(dst->imageData, dst->imageData + dst->imageSize);
    EXPECT_EQ(std::vector<char>(dst->imageData, dst->imageData + dst->imageSize), once);
  }
  moxDeallocate(src, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(dst, MOX_FREE_HEADER | MOX_FREE_DATA);
}

TEST(Limits, BitmapsWhoseSizesOverflow) {
  struct Case { int width, height, bits; unsigned sizeImage; const char* text; };
  const Case cases[] = {
      {INT_MAX, INT_MAX, 24, 0, "(dib->biWidth * dib->biHeight is too large)"},
      {INT_MAX, -INT_MAX, 32, 0, "(dib->biWidth * dib->biHeight is too large)"},
      {1 << 29, 1, 32, 0, "(dib->biWidth * dib->biHeight is too large)"},
      {1 << 27, 4, 8, 0, "(dib->biWidth * dib->biHeight is too large)"},  // 2^29 x 4 channels
      {1, INT_MAX / 8, 8, 16, "(dib->biSizeImage != 0 && dib->biSizeImage < the bytes of the rows)"},
  };
  for (const Case& c : cases) {
    std::vector<unsigned char> packed(40 + 4 * 256 + 16, 0);
    MoxBitmapInfoHeader h{40, c.width, c.height, 1, static_cast<unsigned short>(c.bits), 0,
                          c.sizeImage, 0, 0, 0, 0};
    std::memcpy(packed.data(), &h, sizeof h);
    const auto* dib = reinterpret_cast<const MoxBitmapInfoHeader*>(packed.data());
    int cloned = 0;
    MoxImage* made = nullptr;
    EXPECT_EQ(firstReport([&] { made = moxTranslateDIB(dib, &cloned); }), c.text) << c.width;
    EXPECT_EQ(made, nullptr);
  }
}

TEST(Limits, HistogramTablesAtTheirLimits) {
  // 16-bit values fill at most 65536 bins.
  std::vector<int> keys(65538), values(65538);
  for (int i = 0; i < 65538; ++i) keys[std::size_t(i)] = i;
  MoxLUT lut{65537, keys.data(), values.data(), nullptr, MOX_LUT_LOOKUP};
  MoxLUT* one[1] = {&lut};
  MoxImage* im = moxCreateImageHeader(1, 0, MOX_DEPTH_16U, "GRAY", "GRAY", 0, 0, 4, 1, 1, nullptr,
                                      nullptr, nullptr);
  moxAllocateImage(im, 0);
  EXPECT_EQ(firstReport([&] { moxComputeHisto(im, one); }), "(lut[0]->num > 65536)");
  lut.num = 65536;
  EXPECT_EQ(firstReport([&] { moxComputeHisto(im, one); }), "");
  EXPECT_EQ(values[0], 1);

  // The working tables of 16384 channels of 16-bit values pass 2^31 bytes.
  int edges[2] = {0, 65536}, counts[2] = {0, 0};
  MoxLUT bin{1, edges, counts, nullptr, MOX_LUT_LOOKUP};
  std::vector<MoxLUT*> luts(16384, &bin);
  MoxImage* wide = moxCreateImageHeader(16384, 0, MOX_DEPTH_16U, "RGB", "RGB", 0, 0, 4, 1, 1,
                                        nullptr, nullptr, nullptr);
  moxAllocateImage(wide, 0);
  ASSERT_NE(wide->imageData, nullptr);
  for (auto call : {+[](MoxImage* w, MoxLUT** l) { moxComputeHisto(w, l); },
                    +[](MoxImage* w, MoxLUT** l) { moxContrastStretch(w, w, l); }}) {
    Capture capture;
    call(wide, luts.data());
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].status, MOX_StsOutOfMemory);
  }
  moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
  moxDeallocate(wide, MOX_FREE_HEADER | MOX_FREE_DATA);
}

TEST(Limits, LongFftRowsRoundTrip) {
  // A power of two and a prime (the chirp path) of about 2^15 samples.
  for (int n : {1 << 15, 32749}) {
    MoxImage* src = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", 0, 0, 4, 1, n, nullptr,
                                         nullptr, nullptr);
    MoxImage* spectrum = moxCreateImageHeader(1, 0, MOX_DEPTH_32S, "GRAY", "GRAY", 0, 0, 4, 1, n,
                                              nullptr, nullptr, nullptr);
    MoxImage* back = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", 0, 0, 4, 1, n,
                                          nullptr, nullptr, nullptr);
    moxAllocateImage(src, 0);
    moxAllocateImage(spectrum, 0);
    moxAllocateImage(back, 0);
    for (int i = 0; i < n; ++i) src->imageData[i] = char((i * 7919) >> 5);
    EXPECT_EQ(moxRealFft2D(src, spectrum, MOX_FFT_FORWARD, nullptr), MOX_StsNoError);
    EXPECT_EQ(moxCcsFft2D(spectrum, back, MOX_FFT_INVERSE, nullptr), MOX_StsNoError);
    EXPECT_EQ(std::memcmp(src->imageData, back->imageData, std::size_t(n)), 0) << n;
    for (MoxImage* im : {src, spectrum, back}) moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
}

}  // namespace
