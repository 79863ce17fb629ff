// Image headers, ROIs and tile infos: layout rule, fill patterns, release;
// header validation: fault bits, the fixed-width fault text and the chains.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"
#include "image/image.h"
#include "image/turn.h"

namespace {
using moxtest::Capture;
using moxtest::reports;

MoxImage* header(int nChannels, int alpha, unsigned depth, int order, int origin, int align, int height, int width,
                 const char* model = "RGB", const char* seq = "RGB") {
  return moxCreateImageHeader(nChannels, alpha, depth, model, seq, order, origin, align, height, width, nullptr,
                              nullptr, nullptr);
}

TEST(Records, RowStepAndSizeAcrossDepthsOrdersAndAlignments) {
  const struct { int nChannels; unsigned depth; int order, align, height, width, step, size; } cases[] = {
      {3, MOX_DEPTH_8U, 0, 4, 2, 5, 16, 32}, {3, MOX_DEPTH_8U, 1, 4, 2, 5, 8, 48}, {1, MOX_DEPTH_1U, 0, 4, 1, 33, 8, 8},
      {1, MOX_DEPTH_1U, 0, 8, 2, 1, 8, 16}, {1, MOX_DEPTH_1U, 0, 4, 3, 32, 4, 12}, {1, MOX_DEPTH_16U, 0, 8, 1, 3, 8, 8},
      {1, MOX_DEPTH_16S, 0, 4, 2, 3, 8, 16}, {4, MOX_DEPTH_16U, 1, 8, 2, 5, 16, 128},
      {2, MOX_DEPTH_32S, 0, 8, 3, 3, 24, 72}, {3, MOX_DEPTH_8S, 0, 8, 1, 3, 16, 16}, {1, MOX_DEPTH_8U, 0, 4, 0, 7, 8, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    MoxImage* image = header(c.nChannels, 0, c.depth, c.order, 0, c.align, c.height, c.width);
    ASSERT_NE(image, nullptr);
    moxAllocateImage(image, -1);
    EXPECT_EQ(std::tie(image->widthStep, image->imageSize, image->headerSize),
              std::make_tuple(c.step, c.size, int(sizeof(MoxImage))));
    ASSERT_NE(image->imageData, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % c.align, 0u);
    moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
}

TEST(Records, CreationRefusesBadFields) {
  const struct { const char* what; int nChannels, alpha; unsigned depth; int order, origin, align, height, width; }
  refused[] = {
      {"align 2", 1, 0, 8, 0, 0, 2, 4, 4}, {"origin 2", 1, 0, 8, 0, 2, 4, 4, 4}, {"depth 12", 1, 0, 12, 0, 0, 4, 4, 4},
      {"no channels", 0, 0, 8, 0, 0, 4, 4, 4}, {"alpha > channels", 3, 4, 8, 0, 0, 4, 4, 4},
      {"negative alpha", 3, -1, 8, 0, 0, 4, 4, 4}, {"data order 2", 1, 0, 8, 2, 0, 4, 4, 4},
      {"negative height", 1, 0, 8, 0, 0, 4, -1, 4}, {"negative width", 1, 0, 8, 0, 0, 4, 4, -1},
      // Row step or size beyond 32 bits; products that would leave 64 bits on the way.
      {"row step overflow", 4, 0, MOX_DEPTH_32S, 0, 0, 4, 1, 1 << 28},
      {"size overflow", 4, 0, MOX_DEPTH_32S, 0, 0, 4, 1 << 9, 1 << 20},
      {"plane size overflow", 4, 0, MOX_DEPTH_8U, 1, 0, 4, 1 << 15, 1 << 15},
      {"step times height beyond 64 bits", 4, 0, MOX_DEPTH_16U, 0, 0, 4, 1 << 30, 1 << 30},
      {"row bits beyond 64 bits", 1 << 30, 0, MOX_DEPTH_32S, 0, 0, 4, 1, 1 << 30},
      {"planes beyond 64 bits", 1 << 30, 0, MOX_DEPTH_8U, 1, 0, 8, 1 << 15, 1 << 15}};
  for (const auto& c : refused)
    EXPECT_EQ(header(c.nChannels, c.alpha, c.depth, c.order, c.origin, c.align, c.height, c.width), nullptr) << c.what;
  EXPECT_EQ(header(1, 0, 8, 0, 0, 4, 4, 4, "G", nullptr), nullptr);
  EXPECT_EQ(header(1, 0, 8, 0, 0, 4, 4, 4, nullptr, "G"), nullptr);
  // Zero sizes are accepted here (validation refuses them later).
  MoxImage* empty = header(1, 0, 8, 0, 0, 4, 0, 0);
  EXPECT_NE(empty, nullptr);
  moxDeallocateHeader(empty);
}

TEST(Records, AllocationFillPatterns) {
  const struct { unsigned depth; int fill; std::uint32_t word; } cases[] = {  // every word
      {MOX_DEPTH_1U, 3, 0xFFFFFFFFu}, {MOX_DEPTH_1U, 2, 0u}, {MOX_DEPTH_8U, 0x1234, 0x34343434u},
      {MOX_DEPTH_8S, -2, 0xFEFEFEFEu}, {MOX_DEPTH_16U, 0x1234, 0x12341234u},
      {MOX_DEPTH_16S, 0x7FFF8001, 0x80018001u}, {MOX_DEPTH_32S, -2, 0xFFFFFFFEu}};
  // A small block, and a large one (which starts on a page), filled to its end.
  for (const int height : {3, 1000})
    for (const auto& c : cases) {
      MoxImage* image = header(1, 0, c.depth, 0, 0, 8, height, height > 3 ? 777 : 7);
      moxAllocateImage(image, c.fill);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % (height > 3 ? 4096 : 8), 0u);
      std::vector<std::uint32_t> words(size_t(image->imageSize) / 4);
      std::memcpy(words.data(), image->imageData, size_t(image->imageSize));
      EXPECT_EQ(words, std::vector<std::uint32_t>(words.size(), c.word)) << "depth " << c.depth;
      moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
    }
}

TEST(Records, AllocationRefusesABadHeaderAndReleaseFollowsTheFlags) {
  MoxImage* image = header(1, 0, 8, 0, 0, 4, 4, 4);
  ASSERT_NE(image, nullptr);
  // A bad field, then sizes edited into the header that overflow 32 bits.
  for (const auto spoil : {+[](MoxImage* i) { i->align = 3; },
                           +[](MoxImage* i) { i->align = i->nChannels = 4, i->depth = MOX_DEPTH_32S,
                                              i->width = 1 << 20, i->height = 1 << 9; }}) {
    spoil(image);
    moxAllocateImage(image, 0);
    EXPECT_EQ(std::make_tuple(image->imageData, image->imageSize), std::make_tuple(nullptr, 0));
  }
  moxDeallocateImage(nullptr), moxAllocateImage(nullptr, 0), moxDeallocate(nullptr, 31);
  moxDeallocateHeader(image);
  // Release by flags.
  MoxImage* mask = header(1, 0, 1, 0, 0, 4, 4, 4);
  mask->roi = moxCreateROI(0, 0, 0, 1, 1);
  moxAllocateImage(mask, 0);
  image = header(1, 0, 8, 0, 0, 4, 4, 4);
  image->roi = moxCreateROI(1, 0, 0, 2, 2);
  moxAllocateImage(image, 7);
  image->maskRoi = mask, image->tileInfo = moxCreateTileInfo(nullptr, 5, 8, 8);
  moxDeallocate(image, MOX_FREE_DATA | MOX_FREE_ROI);
  EXPECT_EQ(std::make_tuple(image->imageData, image->imageDataOrigin, image->roi, image->imageSize),
            std::make_tuple(nullptr, nullptr, nullptr, 16));
  EXPECT_NE(image->tileInfo, nullptr);
  moxDeallocate(image, MOX_FREE_MASK | MOX_FREE_TILEINFO);
  EXPECT_EQ(std::make_tuple(image->maskRoi, image->tileInfo), std::make_tuple(nullptr, nullptr));
  moxDeallocate(image, MOX_FREE_HEADER);
}

TEST(Records, FieldsOfHeadersRoisTileInfosAndBorders) {
  MoxROI* roi = moxCreateROI(1, 2, 3, 4, 5);  // the height before the width
  ASSERT_NE(roi, nullptr);
  const auto fields = [roi] { return std::make_tuple(roi->coi, roi->xOffset, roi->yOffset, roi->height, roi->width); };
  EXPECT_EQ(fields(), std::make_tuple(1, 2, 3, 4, 5));
  moxSetROI(roi, 0, 6, 7, 8, 9);
  EXPECT_EQ(fields(), std::make_tuple(0, 6, 7, 8, 9));
  moxSetROI(nullptr, 0, 0, 0, 0, 0), moxDeleteROI(nullptr);
  int id = 0;
  MoxImage* image = moxCreateImageHeader(4, 4, MOX_DEPTH_8U, "RGBA", "BGRA", 0, 1, 8, 30, 40, roi, &id, nullptr);
  // Short names are padded with zeros.
  MoxImage* gray = header(1, 0, 8, 0, 0, 4, 1, 1, "G", "");
  ASSERT_TRUE(image && gray);
  const auto names = [](const MoxImage* i) { return std::string(i->colorModel, 4) + std::string(i->channelSeq, 4); };
  EXPECT_EQ(names(image) + names(gray), std::string("RGBABGRAG\0\0\0\0\0\0\0", 16));
  EXPECT_EQ(std::make_tuple(image->headerId, image->roi, image->imageId, image->maskRoi, image->imageData,
                            image->imageDataOrigin),
            std::make_tuple(0, roi, static_cast<void*>(&id), nullptr, nullptr, nullptr));
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(std::tie(image->borderMode[i], image->borderConst[i]), std::make_tuple(int(MOX_BORDER_CONSTANT), 0));
  moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_ROI);
  moxDeallocateHeader(gray);
  MoxTileInfo* tile = moxCreateTileInfo(nullptr, 9, 16, 24);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->tileData, nullptr);
  tile->tileData = reinterpret_cast<char*>(tile);
  moxSetTileInfo(tile, nullptr, 3, 8, 32);
  EXPECT_EQ(std::make_tuple(tile->tileData, tile->id, tile->width, tile->height), std::make_tuple(nullptr, 3, 8, 32));
  moxSetTileInfo(nullptr, nullptr, 0, 0, 0);
  moxDeleteTileInfo(tile), moxDeleteTileInfo(nullptr);
  // Border modes change only the named sides; any mode is stored as given.
  image = header(1, 0, 8, 0, 0, 4, 4, 4);
  moxSetBorderMode(image, MOX_BORDER_WRAP, MOX_SIDE_ALL, 9);
  moxSetBorderMode(image, MOX_BORDER_REFLECT, MOX_SIDE_TOP | MOX_SIDE_LEFT | 0x100, 0);
  moxSetBorderMode(image, 77, MOX_SIDE_RIGHT, -1);
  const int modes[] = {2, 3, 2, 77}, constants[] = {0, 9, 0, -1};
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(std::tie(image->borderMode[i], image->borderConst[i]), std::tie(modes[i], constants[i])) << i;
  moxSetBorderMode(nullptr, 0, 15, 0);
  moxDeallocateHeader(image);
}

void MOX_CALL noTiles(const MoxImage*, int, int, int) {}

// A usable 8U header with a ROI over a small buffer.
struct Good {
  char pixels[64] = {};
  MoxROI roi{0, 1, 1, 2, 2};
  MoxTileInfo tile{noTiles, 0, nullptr, 8, 16};
  MoxImage image{};
  Good() {
    image.headerSize = sizeof(MoxImage), image.nChannels = 3, image.depth = MOX_DEPTH_8U;
    image.align = image.height = image.width = 4, image.widthStep = 12, image.imageSize = 48;
    image.imageData = pixels, image.roi = &roi;
  }
  // Tiled instead: no data of its own.
  void tiled() { image.imageData = nullptr, image.tileInfo = &tile; }
};

std::string line(std::string text) { return text.resize(70, ' '), text + "\n"; }

#define SPOIL(...) []([[maybe_unused]] Good& g) { __VA_ARGS__; }

TEST(Validation, EachFaultBitAndItsText) {
  const struct { unsigned expected; void (*spoil)(Good&); } cases[] = {
      {0x0, SPOIL()}, {0x0, SPOIL(g.image.roi = nullptr)}, {0x2, SPOIL(g.image.imageData = nullptr)},
      {0x2, SPOIL(g.image.tileInfo = &g.tile)}, {0x4, SPOIL(g.image.imageSize = 0)}, {0x4, SPOIL(g.image.height = 0)},
      {0x4, SPOIL(g.image.width = -3)}, {0x10, SPOIL(g.image.widthStep = 0)}, {0x20, SPOIL(g.image.nChannels = 0)},
      {0x20 | 0x100, SPOIL(g.image.nChannels = -1, g.image.roi = nullptr)}, {0x40, SPOIL(g.image.depth = MOX_DEPTH_1U)},
      {0x80, SPOIL(g.image.depth = 12)}, {0x80, SPOIL(g.image.depth = MOX_DEPTH_SIGN | 1)},
      {0x100, SPOIL(g.image.alphaChannel = 4)}, {0x100, SPOIL(g.image.alphaChannel = -1)},
      {0x200, SPOIL(g.image.dataOrder = 2)}, {0x400, SPOIL(g.image.origin = -1)}, {0x800, SPOIL(g.image.align = 16)},
      {0x4000, SPOIL(g.roi.coi = 4)}, {0x4000, SPOIL(g.roi.coi = -1)}, {0x8000, SPOIL(g.roi.height = 0)},
      {0x8000 | 0x8, SPOIL(g.roi.xOffset = -1, g.roi.width = 0)}, {0x8, SPOIL(g.roi.yOffset = -1)},
      // A ROI wholly outside the image is not compared with the image here;
      // a tiled image needs no size, step or data of its own.
      {0x0, SPOIL(g.roi.xOffset = 100)}, {0x0, SPOIL(g.tiled(), g.image.imageSize = g.image.widthStep = 0)},
      {0x1000, SPOIL(g.tiled(), g.tile.callBack = nullptr)}, {0x2000, SPOIL(g.tiled(), g.tile.width = 12)},
      {0x2000, SPOIL(g.tiled(), g.tile.height = 0)}};
  for (const auto& c : cases) {
    Good g;
    c.spoil(g);
    EXPECT_EQ(moxBadImageHeader(&g.image), c.expected) << "case " << &c - cases;
  }
  EXPECT_EQ(moxBadImageHeader(nullptr), 0x1u);
  // The text: one padded line per bit, in table order.
  const auto text = [](unsigned faults) {
    char* t = moxHeaderFaultText(faults);
    const std::string s(t);
    return moxFree(t), s;
  };
  EXPECT_EQ(text(0x804), line("Image size is invalid") + line("Image align is invalid"));
  EXPECT_EQ(text(0x8008), line("ROI size is invalid") + line("ROI offset is invalid"));
  const std::string all = text(0xFFFFFFFFu);
  EXPECT_EQ(all.size(), 16u * 71u);
  EXPECT_EQ(all.substr(0, 71), line("Image header is null"));
  EXPECT_EQ(all.substr(7 * 71, 71), line("Image alpha channel's number is less zero or is more channel's number"));
  EXPECT_EQ(all.substr(15 * 71), line("ROI offset is invalid"));
  // No known bit: a constant text that moxFree accepts.
  EXPECT_EQ(text(0x10000), "Bad status: unknown error");
}

// A tile size whose row step times height leaves 64 bits is refused as too
// large before any tile is asked for.
TEST(Validation, TilesTooLargeForAnySizeAreRefused) {
  static int requests;
  requests = 0;
  struct Count { static void MOX_CALL callBack(const MoxImage*, int, int, int) { ++requests; } };
  MoxTileInfo* tiles = moxCreateTileInfo(&Count::callBack, 0, 1 << 30, 1 << 30);
  MoxImage* image = moxCreateImageHeader(4, 0, MOX_DEPTH_16U, "RGBA", "RGBA", 0, 0, 4, 29, 29, nullptr, nullptr, tiles);
  ASSERT_NE(image, nullptr);
  Capture capture;
  moxAnd(image, image, image, nullptr);
  ASSERT_EQ(reports().size(), 1u);
  EXPECT_EQ(std::tie(reports()[0].func, reports()[0].message, requests),
            std::make_tuple("moxAnd", "(srcImageA->tileInfo->width * srcImageA->tileInfo->height is too large)", 0));
  moxDeallocateHeader(image);
  moxDeleteTileInfo(tiles);
}

}  // namespace

// Turned rectangles: every pixel size the squares or the buffered blocks
// take and some they do not, sizes with and without whole squares and
// blocks, rows with gaps on both sides, and each step reversed (the pointer
// then at the last row in memory), as the quarter turns use them.
TEST(Turn, EveryPixelLandsAcrossTheDiagonal) {
  const std::pair<int, int> sizes[] = {{1, 1}, {16, 16}, {17, 33}, {40, 9}, {3, 70}, {64, 64}, {131, 67}};
  for (int pix : {1, 2, 3, 4, 5, 6, 8, 12})
    for (auto [cols, rows] : sizes)
      for (int sign : {0, 1, 2, 3}) {
        const bool fromBack = sign & 1, toBack = sign & 2;
        const std::ptrdiff_t fromStep = std::ptrdiff_t(cols) * pix + 5, toStep = std::ptrdiff_t(rows) * pix + 3;
        std::vector<char> from(std::size_t(fromStep) * rows), to(std::size_t(toStep) * cols, 'x');
        for (std::size_t i = 0; i < from.size(); ++i) from[i] = static_cast<char>(i * 7 + i / 251);
        // Row r of the turn lies at memory row fr(r) of `from`, row i at tr(i) of `to`.
        auto fr = [&](int r) { return fromBack ? rows - 1 - r : r; };
        auto tr = [&](int i) { return toBack ? cols - 1 - i : i; };
        mox::turnPixels(from.data() + fr(0) * fromStep, fromBack ? -fromStep : fromStep, cols, rows, pix,
                        to.data() + tr(0) * toStep, toBack ? -toStep : toStep);
        bool same = true;
        for (int r = 0; r < rows; ++r)
          for (int i = 0; i < cols; ++i)
            same = same && std::memcmp(&to[std::size_t(tr(i) * toStep + r * pix)],
                                       &from[std::size_t(fr(r) * fromStep + i * pix)], std::size_t(pix)) == 0;
        for (int i = 0; i < cols; ++i)  // the gap after each row stays
          same = same && std::string(&to[std::size_t(i * toStep + rows * pix)], 3) == "xxx";
        EXPECT_TRUE(same) << "pixel " << pix << " bytes, " << cols << " x " << rows << ", steps reversed " << sign;
      }
}
