// The shared source reader: rectangles in, across and outside plain and
// tiled images, and its reports at the operations' sites.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "image/source.h"
#include "image_helpers.h"

namespace {

using namespace testimg;
using mox::Edge;
using mox::SourceReader;
using mox::View;

const mox::SourceSites kSites{"moxTest", "moxtest", "srcImage", 11, 12, 13, 14};

// What a read gives at (x, y): the border rule's pixel, or the nearest one.
unsigned expectedAt(const MoxImage* im, int x, int y, int c, Edge edge) {
  unsigned v = 0;
  if (edge == Edge::kModes) { EXPECT_EQ(mox::ownGetBorderPixel(im, x, y, c, &v), mox::kBorderOk); }
  else mox::ownGetPixel(im, std::clamp(x, 0, im->width - 1), std::clamp(y, 0, im->height - 1), c, &v);
  return v;
}

TEST(SourceReader, TiledEqualsPlainAcrossTilesAndEdges) {
  const int W = 37, H = 29;
  // Near, across and far from the image; the wide ones span many periods.
  const int rects[][4] = {{-3, -2, 20, 15}, {5, 7, 30, 4},      {W - 4, H - 3, 10, 9},
                          {W + 5, -20, 6, 4}, {9, 9, 10, 10},   {-100, -70, 7, 5},
                          {0, 0, W, H},       {-1, -1, W + 2, H + 2}, {-260, -3, 600, 5},
                          {W + 90, 4, 170, 2}, {-500, H + 61, 130, 3}};
  // Border modes of top, bottom, left and right (99: not a mode, so the
  // next valid side takes over, for the left side the right one's mode).
  const int C = MOX_BORDER_CONSTANT, Rp = MOX_BORDER_REPLICATE, Rf = MOX_BORDER_REFLECT,
            Wr = MOX_BORDER_WRAP;
  const int modeSets[][4] = {{Rf, Wr, C, Rp}, {Wr, Rp, Rf, C}, {Rp, Rf, Wr, Rf}, {C, C, Rp, Wr},
                             {Rf, Rf, 99, Wr}, {Wr, Wr, 99, C}};
  for (unsigned depth : kDepths)
    for (int order : {0, 1}) {
      if (depth == MOX_DEPTH_1U && order == 1) continue;
      const int ch = depth == MOX_DEPTH_1U ? 1 : 3;
      const unsigned mask = bitsOf(depth) == 32 ? ~0u : (1u << bitsOf(depth)) - 1;
      Image im({depth, ch, order, H, W}, depth * 3 + order);
      for (const auto& modes : modeSets) {
        for (int side = 0; side < 4; ++side) {
          im->borderMode[side] = modes[side];
          im->borderConst[side] = 0x7F5A + side * 0x1111;
        }
        for (int tile : {8, 24}) {
          Tiled tiled(im, tile, tile);
          std::copy(im->borderMode, im->borderMode + 4, tiled->borderMode);
          std::copy(im->borderConst, im->borderConst + 4, tiled->borderConst);
          for (Edge edge : {Edge::kModes, Edge::kClamp}) {
            if (edge == Edge::kClamp && &modes != &modeSets[0]) continue;
            Capture capture;
            SourceReader plain(im, edge, kSites), viaTiles(tiled, edge, kSites);
            for (const auto& r : rects) {
              View a, b;
              ASSERT_TRUE(plain.read(r[0], r[1], r[2], r[3], &a) && viaTiles.read(r[0], r[1], r[2], r[3], &b));
              ASSERT_EQ(std::tie(a.width, a.height, b.width, b.height), std::tie(r[2], r[3], r[2], r[3]));
              for (int y = 0; y < r[3]; ++y)
                for (int x = 0; x < r[2]; ++x)
                  for (int c = 1; c <= ch; ++c) {
                    const unsigned want = expectedAt(im, r[0] + x, r[1] + y, c, edge);
                    ASSERT_EQ(mox::viewValue(a, x, y, c), want & mask)
                        << depth << " " << r[0] + x << "," << r[1] + y << " modes " << (&modes - modeSets);
                    ASSERT_EQ(mox::viewValue(b, x, y, c), mox::viewValue(a, x, y, c));
                  }
            }
            EXPECT_TRUE(reports().empty());
            EXPECT_FALSE(tiled.badIndex);
            EXPECT_EQ(tiled->tileInfo->tileData, nullptr);  // every tile given back
          }
        }
      }
    }
  // Inside a plain image the view is the image's own memory.
  Image im({MOX_DEPTH_16U, 2, 0, 10, 10}, 1);
  View v;
  ASSERT_TRUE(SourceReader(im, Edge::kModes, kSites).read(2, 3, 4, 5, &v));
  EXPECT_EQ(std::tie(v.data, v.widthStep), std::make_tuple(im->imageData + 3 * im->widthStep + 2 * 2 * 2, im->widthStep));
}

// A rectangle inside one tile is shown where it lies, and its tile stays
// held until the next read or finish(); others are read as by read().
TEST(SourceReader, ReadsInsideOneTileInPlace) {
  Capture capture;
  Image im({MOX_DEPTH_8U, 3, 0, 20, 20}, 4);
  Tiled tiled(im, 8, 8);
  SourceReader reader(tiled, Edge::kModes, kSites);
  const struct { int rect[4]; bool inPlace; int calls; } steps[] = {
      {{9, 10, 5, 4}, true, 1},    // tile (1, 1): asked for, kept
      {{10, 9, 6, 7}, true, 1},    // the same tile: no new request
      {{6, 6, 4, 4}, false, 10},   // across four tiles: copied, all given back
      {{16, 16, 4, 4}, true, 11},  // the corner tile, cut short by the image
      {{-1, 17, 3, 2}, false, 14}, // beyond the image: copied
      {{1, 1, 2, 2}, true, 15},
  };
  for (const auto& k : steps) {
    View v;
    const int* r = k.rect;
    ASSERT_TRUE(reader.readInPlace(r[0], r[1], r[2], r[3], &v));
    EXPECT_EQ(tiled->tileInfo->tileData != nullptr, k.inPlace) << r[0] << "," << r[1];
    if (k.inPlace) {
      const char* tile = tiled->tileInfo->tileData;
      EXPECT_EQ(v.data, tile + (r[1] % 8) * v.widthStep + (r[0] % 8) * 3);
    }
    EXPECT_EQ(static_cast<int>(tiled.calls.size()), k.calls) << r[0] << "," << r[1];
    for (int y = 0; y < r[3]; ++y)
      for (int x = 0; x < r[2]; ++x)
        for (int c = 1; c <= 3; ++c) ASSERT_EQ(mox::viewValue(v, x, y, c), expectedAt(im, r[0] + x, r[1] + y, c, Edge::kModes));
  }
  EXPECT_TRUE(reader.finish());
  EXPECT_EQ(tiled->tileInfo->tileData, nullptr);
  EXPECT_EQ(tiled.calls.back().mode, MOX_RELEASE_TILE);
  EXPECT_TRUE(reports().empty());
  // A tile kept after its release is reported by finish(), at the release line.
  Tiled keeping(im, 8, 8);
  keeping.keepOnRelease = 0;
  SourceReader second(keeping, Edge::kModes, kSites);
  View v;
  ASSERT_TRUE(second.readInPlace(2, 2, 3, 3, &v));
  EXPECT_FALSE(second.finish());
  expectReport("moxTest", "(srcImage->tileInfo->tileData != ((void*)(0)))", 12, "moxtest");
}

TEST(SourceReader, ReportsAtTheOperationsSites) {
  Image im({MOX_DEPTH_8U, 1, 0, 16, 16}, 1);
  View v;
  // Tiles not handed out (the second of two the rectangle crosses; the first,
  // with an operation's own text and status) or not given back; a rectangle
  // too large for memory.
  const struct {
    int nullOnGet, keepOnRelease; Edge edge; bool ownText; int rect[4];
    const char* text; int status, line;
  } tileCases[] = {
      {1, -1, Edge::kModes, false, {-2, -2, 14, 4}, "(srcImage->tileInfo->tileData == ((void*)(0)))",
       MOX_StsBadArgument, 11},
      {-1, 0, Edge::kClamp, false, {0, 0, 12, 2}, "(srcImage->tileInfo->tileData != ((void*)(0)))",
       MOX_StsBadArgument, 12},
      {0, -1, Edge::kClamp, true, {3, 3, 2, 2}, "srcImage->tileInfo->callBack crash",
       MOX_StsInternalError, 11},
      {-1, -1, Edge::kClamp, false, {-5, -5, 0x7FFFFFF0, 0x7FFFFFF0}, "Out of memory", MOX_StsOutOfMemory, 14},
  };
  for (const auto& k : tileCases) {
    Capture capture;
    Tiled tiled(im, 8, 8);
    tiled.nullOnGet = k.nullOnGet, tiled.keepOnRelease = k.keepOnRelease;
    mox::SourceSites sites = kSites;
    if (k.ownText) sites.nullText = k.text, sites.nullStatus = k.status;
    EXPECT_FALSE(SourceReader(tiled, k.edge, sites).read(k.rect[0], k.rect[1], k.rect[2], k.rect[3], &v)) << k.text;
    ASSERT_EQ(reports().size(), 1u) << k.text;
    const Report r = reports()[0];
    EXPECT_EQ(std::tie(r.status, r.func, r.message, r.file, r.line),
              std::make_tuple(k.status, "moxTest", std::string(k.text), "moxtest", k.line));
  }
  Capture capture;
  moxSetBorderMode(im, 6, MOX_SIDE_TOP | MOX_SIDE_LEFT | MOX_SIDE_RIGHT | MOX_SIDE_BOTTOM, 0);
  moxSetBorderMode(im, MOX_BORDER_CONSTANT, MOX_SIDE_LEFT, 0);
  SourceReader reader(im, Edge::kModes, kSites);
  EXPECT_TRUE(reader.read(-3, 0, 5, 5, &v));  // left edge: its constant
  EXPECT_FALSE(reader.read(0, 14, 3, 3, &v));  // bottom: nothing to fall back on
  expectReport("moxTest", "(srcImage->borderMode[1] < MOX_BORDER_CONSTANT || srcImage->borderMode[1] > MOX_BORDER_WRAP)",
               13, "moxtest");
  EXPECT_TRUE(reader.read(0, 0, 16, 16, &v));  // inside: no border needed
}

}  // namespace
