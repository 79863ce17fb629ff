// The benchmarks' image holders: a tiled image must hold exactly the pixels of
// the plain image it was loaded from, and hand out each tile where the tile
// layout puts it, or else every tiled timing measures the wrong thing.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "../bench/bench_images.h"

namespace {

using moxbench::PlainImage;
using moxbench::Shape;
using moxbench::TiledImage;

TEST(BenchTiledImage, HoldsThePixelsItWasLoadedFromInTheTileLayout) {
  const struct { Shape shape; int tile; } cases[] = {
      {{MOX_DEPTH_8U, 64, 64, 1}, 64},   // one tile
      {{MOX_DEPTH_8U, 100, 70, 1}, 64},  // partial tiles on the right and at the bottom
      {{MOX_DEPTH_16U, 96, 40, 3}, 32},  // several channels of two bytes
      {{MOX_DEPTH_16S, 24, 17, 1}, 8},   // signed, many small tiles
  };
  for (const auto& c : cases) {
    const Shape& s = c.shape;
    PlainImage plain(s);
    TiledImage tiled(s, c.tile);
    ASSERT_TRUE(plain.ok() && tiled.ok());
    moxbench::fillRandom(plain.data(), plain.bytes(), 77);
    tiled.load(plain.data());
    std::vector<char> back(plain.bytes(), 0);
    tiled.store(back.data());
    EXPECT_EQ(0, std::memcmp(back.data(), plain.data(), back.size())) << c.tile;
    // Tiles are never padded here: a tile row is tile x channels values.
    const std::size_t pixel = static_cast<std::size_t>(s.channels) * s.bytesPerValue();
    const MoxImage* image = tiled.get();
    for (int y = 0; y < s.height; y += 3)
      for (int x = 0; x < s.width; x += 5) {
        image->tileInfo->callBack(image, x / c.tile, y / c.tile, MOX_GET_TILE_TO_READ);
        ASSERT_NE(nullptr, image->tileInfo->tileData);
        const char* got =
            image->tileInfo->tileData + ((y % c.tile) * c.tile + x % c.tile) * pixel;
        ASSERT_EQ(0, std::memcmp(got, plain.data() + y * s.rowBytes() + x * pixel, pixel))
            << "pixel " << x << "," << y;
      }
  }
}

TEST(BenchReports, FailuresReturnAndAreKept) {
  moxbench::quietErrors();
  moxError(MOX_StsBadArgument, "moxAdd", "(srcImageA->depth != dstImage->depth)", "moxadd", 1091);
  EXPECT_EQ(MOX_StsBadArgument, moxGetErrStatus());
  EXPECT_EQ("moxAdd [moxadd:1091]: (srcImageA->depth != dstImage->depth)", moxbench::lastReport());
  moxSetErrStatus(MOX_StsNoError);
  moxSetErrMode(MOX_ErrorModeLeaf);
  moxRedirectError(nullptr);
}

}  // namespace
