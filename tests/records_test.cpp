// Image headers, ROIs and tile infos: layout rule, fill patterns, release.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "moxpx.h"

namespace {

struct Layout {
  int nChannels;
  unsigned depth;
  int dataOrder, align, height, width;
  int widthStep, imageSize;
};

TEST(Records, RowStepAndSizeAcrossDepthsOrdersAndAlignments) {
  const Layout cases[] = {
      {3, MOX_DEPTH_8U, 0, 4, 2, 5, 16, 32},
      {3, MOX_DEPTH_8U, 1, 4, 2, 5, 8, 48},
      {1, MOX_DEPTH_1U, 0, 4, 1, 33, 8, 8},
      {1, MOX_DEPTH_1U, 0, 8, 2, 1, 8, 16},
      {1, MOX_DEPTH_1U, 0, 4, 3, 32, 4, 12},
      {1, MOX_DEPTH_16U, 0, 8, 1, 3, 8, 8},
      {1, MOX_DEPTH_16S, 0, 4, 2, 3, 8, 16},
      {4, MOX_DEPTH_16U, 1, 8, 2, 5, 16, 128},
      {2, MOX_DEPTH_32S, 0, 8, 3, 3, 24, 72},
      {3, MOX_DEPTH_8S, 0, 8, 1, 3, 16, 16},
      {1, MOX_DEPTH_8U, 0, 4, 0, 7, 8, 0},
  };
  for (const Layout& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.nChannels << "ch depth " << c.depth << " order "
                                      << c.dataOrder << " align " << c.align << " " << c.width
                                      << "x" << c.height);
    MoxImage* image = moxCreateImageHeader(c.nChannels, 0, c.depth, "RGB", "RGB", c.dataOrder, 0,
                                           c.align, c.height, c.width, nullptr, nullptr, nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->widthStep, c.widthStep);
    EXPECT_EQ(image->imageSize, c.imageSize);
    EXPECT_EQ(image->headerSize, static_cast<int>(sizeof(MoxImage)));
    moxAllocateImage(image, -1);
    ASSERT_NE(image->imageData, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image->imageData) % c.align, 0u);
    EXPECT_EQ(image->imageSize, c.imageSize);
    moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
}

TEST(Records, CreationRefusesBadFields) {
  const char* rgb = "RGB";
  struct Case {
    const char* what;
    int nChannels, alpha;
    unsigned depth;
    const char *model, *seq;
    int order, origin, align, height, width;
  } refused[] = {
      {"align 2", 1, 0, 8, rgb, rgb, 0, 0, 2, 4, 4},
      {"origin 2", 1, 0, 8, rgb, rgb, 0, 2, 4, 4, 4},
      {"null channelSeq", 1, 0, 8, rgb, nullptr, 0, 0, 4, 4, 4},
      {"null colorModel", 1, 0, 8, nullptr, rgb, 0, 0, 4, 4, 4},
      {"depth 12", 1, 0, 12, rgb, rgb, 0, 0, 4, 4, 4},
      {"no channels", 0, 0, 8, rgb, rgb, 0, 0, 4, 4, 4},
      {"alpha beyond channels", 3, 4, 8, rgb, rgb, 0, 0, 4, 4, 4},
      {"negative alpha", 3, -1, 8, rgb, rgb, 0, 0, 4, 4, 4},
      {"data order 2", 1, 0, 8, rgb, rgb, 2, 0, 4, 4, 4},
      {"negative height", 1, 0, 8, rgb, rgb, 0, 0, 4, -1, 4},
      {"negative width", 1, 0, 8, rgb, rgb, 0, 0, 4, 4, -1},
      // Row step or size beyond 32 bits.
      {"row step overflow", 4, 0, MOX_DEPTH_32S, rgb, rgb, 0, 0, 4, 1, 1 << 28},
      {"size overflow", 4, 0, MOX_DEPTH_32S, rgb, rgb, 0, 0, 4, 1 << 9, 1 << 20},
      {"plane size overflow", 4, 0, MOX_DEPTH_8U, rgb, rgb, 1, 0, 4, 1 << 15, 1 << 15},
  };
  for (const Case& c : refused)
    EXPECT_EQ(moxCreateImageHeader(c.nChannels, c.alpha, c.depth, c.model, c.seq, c.order,
                                   c.origin, c.align, c.height, c.width, nullptr, nullptr,
                                   nullptr),
              nullptr)
        << c.what;
  // Zero sizes are accepted here (validation refuses them later).
  MoxImage* empty = moxCreateImageHeader(1, 0, 8, rgb, rgb, 0, 0, 4, 0, 0, nullptr, nullptr,
                                         nullptr);
  ASSERT_NE(empty, nullptr);
  moxDeallocateHeader(empty);
}

TEST(Records, HeaderFieldsAndDefaults) {
  MoxROI* roi = moxCreateROI(0, 2, 3, 10, 20);
  int id = 0;
  MoxImage* image = moxCreateImageHeader(4, 4, MOX_DEPTH_8U, "RGBA", "BGRA", 0, 1, 8, 30, 40,
                                         roi, &id, nullptr);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->headerId, 0);
  EXPECT_EQ(std::memcmp(image->colorModel, "RGBA", 4), 0);
  EXPECT_EQ(std::memcmp(image->channelSeq, "BGRA", 4), 0);
  MoxImage* shortNames = moxCreateImageHeader(1, 0, 8, "G", "", 0, 0, 4, 1, 1, nullptr, nullptr,
                                              nullptr);
  ASSERT_NE(shortNames, nullptr);
  EXPECT_EQ(std::memcmp(shortNames->colorModel, "G\0\0\0", 4), 0);
  EXPECT_EQ(std::memcmp(shortNames->channelSeq, "\0\0\0\0", 4), 0);
  moxDeallocateHeader(shortNames);
  EXPECT_EQ(image->roi, roi);
  EXPECT_EQ(image->imageId, &id);
  EXPECT_EQ(image->maskRoi, nullptr);
  EXPECT_EQ(image->imageData, nullptr);
  EXPECT_EQ(image->imageDataOrigin, nullptr);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(image->borderMode[i], MOX_BORDER_CONSTANT);
    EXPECT_EQ(image->borderConst[i], 0);
  }
  // The ROI keeps the height before the width.
  EXPECT_EQ(roi->yOffset, 3);
  EXPECT_EQ(roi->height, 10);
  EXPECT_EQ(roi->width, 20);
  moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_ROI);
}

template <typename T>
void expectEvery(const MoxImage* image, T value) {
  for (int at = 0; at + static_cast<int>(sizeof(T)) <= image->imageSize; at += sizeof(T)) {
    T v;
    std::memcpy(&v, image->imageData + at, sizeof v);
    ASSERT_EQ(v, value) << "at byte " << at;
  }
}

TEST(Records, AllocationFillPatterns) {
  auto make = [](unsigned depth, int fill) {
    MoxImage* image = moxCreateImageHeader(1, 0, depth, "G", "G", 0, 0, 4, 3, 7, nullptr, nullptr,
                                           nullptr);
    moxAllocateImage(image, fill);
    return image;
  };
  MoxImage* images[] = {make(MOX_DEPTH_1U, 3),      make(MOX_DEPTH_1U, 2),
                        make(MOX_DEPTH_8U, 0x1234), make(MOX_DEPTH_8S, -2),
                        make(MOX_DEPTH_16U, 0x1234), make(MOX_DEPTH_16S, 0x7FFF8001),
                        make(MOX_DEPTH_32S, -2)};
  expectEvery<std::uint32_t>(images[0], 0xFFFFFFFFu);
  expectEvery<std::uint32_t>(images[1], 0u);
  expectEvery<std::uint8_t>(images[2], 0x34);
  expectEvery<std::uint8_t>(images[3], 0xFE);
  expectEvery<std::uint16_t>(images[4], 0x1234);
  expectEvery<std::uint16_t>(images[5], 0x8001);
  expectEvery<std::int32_t>(images[6], -2);
  for (MoxImage* image : images) moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
}

TEST(Records, AllocationRefusesABadHeader) {
  MoxImage* image = moxCreateImageHeader(1, 0, 8, "G", "G", 0, 0, 4, 4, 4, nullptr, nullptr,
                                         nullptr);
  ASSERT_NE(image, nullptr);
  image->align = 3;
  moxAllocateImage(image, 0);
  EXPECT_EQ(image->imageData, nullptr);
  EXPECT_EQ(image->imageSize, 0);
  // Sizes edited into the header that overflow 32 bits are refused too.
  image->align = 4;
  image->nChannels = 4;
  image->depth = MOX_DEPTH_32S;
  image->width = 1 << 20;
  image->height = 1 << 9;
  moxAllocateImage(image, 0);
  EXPECT_EQ(image->imageData, nullptr);
  EXPECT_EQ(image->imageSize, 0);
  moxDeallocateImage(nullptr);
  moxAllocateImage(nullptr, 0);
  moxDeallocate(nullptr, 31);
  moxDeallocateHeader(image);
}

TEST(Records, ReleaseByFlags) {
  MoxImage* mask = moxCreateImageHeader(1, 0, 1, "G", "G", 0, 0, 4, 4, 4,
                                        moxCreateROI(0, 0, 0, 1, 1), nullptr, nullptr);
  moxAllocateImage(mask, 0);
  MoxImage* image = moxCreateImageHeader(1, 0, 8, "G", "G", 0, 0, 4, 4, 4,
                                         moxCreateROI(1, 0, 0, 2, 2), nullptr, nullptr);
  moxAllocateImage(image, 7);
  image->maskRoi = mask;
  image->tileInfo = moxCreateTileInfo(nullptr, 5, 8, 8);

  moxDeallocate(image, MOX_FREE_DATA | MOX_FREE_ROI);
  EXPECT_EQ(image->imageData, nullptr);
  EXPECT_EQ(image->imageDataOrigin, nullptr);
  EXPECT_EQ(image->roi, nullptr);
  EXPECT_NE(image->tileInfo, nullptr);
  EXPECT_EQ(image->imageSize, 16);
  moxDeallocate(image, MOX_FREE_MASK | MOX_FREE_TILEINFO);
  EXPECT_EQ(image->maskRoi, nullptr);
  EXPECT_EQ(image->tileInfo, nullptr);
  moxDeallocate(image, MOX_FREE_HEADER);
}

TEST(Records, RoiAndTileInfoRecords) {
  MoxROI* roi = moxCreateROI(1, 2, 3, 4, 5);
  ASSERT_NE(roi, nullptr);
  moxSetROI(roi, 0, 6, 7, 8, 9);
  EXPECT_EQ(roi->coi, 0);
  EXPECT_EQ(roi->xOffset, 6);
  EXPECT_EQ(roi->yOffset, 7);
  EXPECT_EQ(roi->height, 8);
  EXPECT_EQ(roi->width, 9);
  moxSetROI(nullptr, 0, 0, 0, 0, 0);
  moxDeleteROI(roi);
  moxDeleteROI(nullptr);

  MoxTileInfo* tile = moxCreateTileInfo(nullptr, 9, 16, 24);
  ASSERT_NE(tile, nullptr);
  EXPECT_EQ(tile->tileData, nullptr);
  tile->tileData = reinterpret_cast<char*>(tile);
  moxSetTileInfo(tile, nullptr, 3, 8, 32);
  EXPECT_EQ(tile->tileData, nullptr);
  EXPECT_EQ(tile->id, 3);
  EXPECT_EQ(tile->width, 8);
  EXPECT_EQ(tile->height, 32);
  moxSetTileInfo(nullptr, nullptr, 0, 0, 0);
  moxDeleteTileInfo(tile);
  moxDeleteTileInfo(nullptr);
}

TEST(Records, BorderModeChangesOnlyTheNamedSides) {
  MoxImage* image = moxCreateImageHeader(1, 0, 8, "G", "G", 0, 0, 4, 4, 4, nullptr, nullptr,
                                         nullptr);
  moxSetBorderMode(image, MOX_BORDER_WRAP, MOX_SIDE_ALL, 9);
  moxSetBorderMode(image, MOX_BORDER_REFLECT, MOX_SIDE_TOP | MOX_SIDE_LEFT | 0x100, 0);
  const int modes[] = {2, 3, 2, 3}, constants[] = {0, 9, 0, 9};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(image->borderMode[i], modes[i]) << i;
    EXPECT_EQ(image->borderConst[i], constants[i]) << i;
  }
  moxSetBorderMode(image, 77, MOX_SIDE_RIGHT, -1);  // stored without complaint
  EXPECT_EQ(image->borderMode[3], 77);
  EXPECT_EQ(image->borderConst[3], -1);
  moxSetBorderMode(nullptr, 0, 15, 0);
  moxDeallocateHeader(image);
}

}  // namespace
