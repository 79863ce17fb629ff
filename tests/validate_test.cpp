// Header validation: fault bits, the fixed-width fault text and the chains.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <string>

#include "capture.h"
#include "image/image.h"
#include "moxpx.h"

namespace {

using moxtest::Capture;
using moxtest::reports;

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

std::string line(const char* text) {
  std::string s(text);
  s.resize(70, ' ');
  return s + "\n";
}

#define SPOIL(...) []([[maybe_unused]] Good& g) { __VA_ARGS__; }

TEST(Validation, EachFaultBit) {
  const struct {
    unsigned expected;
    std::function<void(Good&)> spoil;
  } cases[] = {
      {0x0, SPOIL()}, {0x0, SPOIL(g.image.roi = nullptr)},
      {0x2, SPOIL(g.image.imageData = nullptr)}, {0x2, SPOIL(g.image.tileInfo = &g.tile)},
      {0x4, SPOIL(g.image.imageSize = 0)}, {0x4, SPOIL(g.image.height = 0)},
      {0x4, SPOIL(g.image.width = -3)}, {0x10, SPOIL(g.image.widthStep = 0)},
      {0x20, SPOIL(g.image.nChannels = 0)},
      {0x20 | 0x100, SPOIL(g.image.nChannels = -1, g.image.roi = nullptr)},
      {0x40, SPOIL(g.image.depth = MOX_DEPTH_1U)}, {0x80, SPOIL(g.image.depth = 12)},
      {0x80, SPOIL(g.image.depth = MOX_DEPTH_SIGN | 1)}, {0x100, SPOIL(g.image.alphaChannel = 4)},
      {0x100, SPOIL(g.image.alphaChannel = -1)}, {0x200, SPOIL(g.image.dataOrder = 2)},
      {0x400, SPOIL(g.image.origin = -1)}, {0x800, SPOIL(g.image.align = 16)},
      {0x4000, SPOIL(g.roi.coi = 4)}, {0x4000, SPOIL(g.roi.coi = -1)},
      {0x8000, SPOIL(g.roi.height = 0)}, {0x8000 | 0x8, SPOIL(g.roi.xOffset = -1, g.roi.width = 0)},
      {0x8, SPOIL(g.roi.yOffset = -1)},
      // A ROI wholly outside the image is not compared with the image here.
      {0x0, SPOIL(g.roi.xOffset = 100)},
      // A tiled image needs no size, step or data of its own.
      {0x0, SPOIL(g.tiled(), g.image.imageSize = g.image.widthStep = 0)},
      {0x1000, SPOIL(g.tiled(), g.tile.callBack = nullptr)},
      {0x2000, SPOIL(g.tiled(), g.tile.width = 12)}, {0x2000, SPOIL(g.tiled(), g.tile.height = 0)},
  };
  int n = 0;
  for (const auto& c : cases) {
    Good g;
    c.spoil(g);
    EXPECT_EQ(moxBadImageHeader(&g.image), c.expected) << "case " << n++;
  }
  EXPECT_EQ(moxBadImageHeader(nullptr), 0x1u);
}

TEST(Validation, FaultTextListsLinesInTableOrder) {
  const auto text = [](unsigned faults) {
    char* t = moxHeaderFaultText(faults);
    const std::string s(t);
    moxFree(t);
    return s;
  };
  EXPECT_EQ(text(0x804), line("Image size is invalid") + line("Image align is invalid"));
  EXPECT_EQ(text(0x8008), line("ROI size is invalid") + line("ROI offset is invalid"));
  const std::string all = text(0xFFFFFFFFu);
  EXPECT_EQ(all.size(), 16u * 71u);
  EXPECT_EQ(all.substr(0, 71), line("Image header is null"));
  EXPECT_EQ(all.substr(7 * 71, 71),
            line("Image alpha channel's number is less zero or is more channel's number"));
  EXPECT_EQ(all.substr(15 * 71), line("ROI offset is invalid"));
  // No known bit: a constant text that moxFree accepts.
  EXPECT_EQ(text(0x10000), "Bad status: unknown error");
}

TEST(Validation, FullChainNamesTheFirstFailingTest) {
  const struct { const char* message; std::function<void(Good&)> spoil; } cases[] = {
      {"moxBadImageHeader(dstImage) != 0", SPOIL(g.image.align = 1)},
      {"dstImage->roi->xOffset >= dstImage->width", SPOIL(g.roi.xOffset = 4)},
      {"dstImage->roi->yOffset >= dstImage->height", SPOIL(g.roi.yOffset = 9)},
  };
  Capture capture;
  for (const auto& c : cases) {
    Good g;
    c.spoil(g);
    EXPECT_TRUE(mox::failsFullChain(&g.image, "dstImage", {"moxMultiplyScale", "moxalpha", 726}));
    moxtest::expectReport("moxMultiplyScale", c.message, 726, "moxalpha");
  }
  EXPECT_TRUE(mox::failsFullChain(nullptr, "srcImageB", {"moxMultiplyScale", "moxalpha", 728}));
  moxtest::expectReport("moxMultiplyScale", "srcImageB==0", 728, "moxalpha");
  Good g;
  EXPECT_FALSE(mox::failsFullChain(&g.image, "srcImage", {"f", "f", 1}));
  EXPECT_TRUE(reports().empty());
}

}  // namespace
