// The shared source reader and the destination-driven walk: rectangles in,
// across and outside plain and tiled images, and a small 3x3 filter built on
// them the way an operation would be.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "image/source.h"
#include "image_helpers.h"

namespace {

using namespace testimg;
using mox::Edge;
using mox::SourceReader;
using mox::View;

const mox::SourceSites kSites{"moxTest", "moxtest", "srcImage", 11, 12, 13, 14};

unsigned expectedAt(const MoxImage* im, int x, int y, int c, Edge edge) {
  unsigned v = 0;
  if (edge == Edge::kModes) {
    EXPECT_EQ(mox::ownGetBorderPixel(im, x, y, c, &v), mox::kBorderOk);
    return v;
  }
  mox::ownGetPixel(im, std::clamp(x, 0, im->width - 1), std::clamp(y, 0, im->height - 1), c, &v);
  return v;
}

void copyModes(const MoxImage* from, MoxImage* to) {
  std::copy(from->borderMode, from->borderMode + 4, to->borderMode);
  std::copy(from->borderConst, from->borderConst + 4, to->borderConst);
}

TEST(SourceReader, TiledEqualsPlainAcrossTilesAndEdges) {
  const int W = 37, H = 29;
  const int rects[][4] = {{-3, -2, 20, 15}, {5, 7, 30, 4},   {W - 4, H - 3, 10, 9},
                          {W + 5, -20, 6, 4}, {9, 9, 10, 10}, {-100, -70, 7, 5},
                          {0, 0, W, H},       {-1, -1, W + 2, H + 2}};
  for (unsigned depth : kDepths)
    for (int order : {0, 1}) {
      if (depth == MOX_DEPTH_1U && order == 1) continue;
      const int ch = depth == MOX_DEPTH_1U ? 1 : 3;
      const unsigned mask = bitsOf(depth) == 32 ? ~0u : (1u << bitsOf(depth)) - 1;
      Image im({depth, ch, order, H, W}, depth * 3 + order);
      moxSetBorderMode(im, MOX_BORDER_REFLECT, MOX_SIDE_TOP, 0);
      moxSetBorderMode(im, MOX_BORDER_WRAP, MOX_SIDE_BOTTOM, 0);
      moxSetBorderMode(im, MOX_BORDER_CONSTANT, MOX_SIDE_LEFT, 0x7F5A);
      moxSetBorderMode(im, MOX_BORDER_REPLICATE, MOX_SIDE_RIGHT, 0);
      for (int tile : {8, 24}) {
        Tiled tiled(im, tile, tile);
        copyModes(im, tiled);
        for (Edge edge : {Edge::kModes, Edge::kClamp}) {
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
                      << depth << " " << r[0] + x << "," << r[1] + y;
                  ASSERT_EQ(mox::viewValue(b, x, y, c), mox::viewValue(a, x, y, c));
                }
          }
          EXPECT_TRUE(reports().empty());
          EXPECT_FALSE(tiled.badIndex);
          EXPECT_EQ(tiled->tileInfo->tileData, nullptr);  // every tile given back
        }
      }
    }
  // Inside a plain image the view is the image's own memory.
  Image im({MOX_DEPTH_16U, 2, 0, 10, 10}, 1);
  View v;
  ASSERT_TRUE(SourceReader(im, Edge::kModes, kSites).read(2, 3, 4, 5, &v));
  EXPECT_EQ(std::tie(v.data, v.widthStep), std::make_tuple(im->imageData + 3 * im->widthStep + 2 * 2 * 2, im->widthStep));
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

// A 3x3 maximum of an 8-bit image: the walk drives the destination, the
// reader (the argument) hands each piece its source grown by one pixel on
// every side.
bool maxPiece(const View& dst, int x, int y, void* reader) {
  View src;
  if (!static_cast<SourceReader*>(reader)->read(x - 1, y - 1, dst.width + 2, dst.height + 2, &src)) return false;
  for (int i = 0; i < dst.height; ++i)
    for (int j = 0; j < dst.width; ++j) {
      unsigned m = 0;
      for (int k = 0; k < 9; ++k) m = std::max(m, mox::viewValue(src, j + k % 3, i + k / 3, 1));
      mox::setViewValue(dst, j, i, 1, m);
    }
  return true;
}

constexpr mox::WalkLines kLines{{21, 22, 23, 24}, {31, 32, 33, 34}};

bool maxFilter(const MoxImage* src, MoxImage* dst, const int* mapping, bool point = false,
               const char* nullText = nullptr) {
  SourceReader reader(src, Edge::kModes, kSites);
  mox::WalkPlan plan{"moxTest", "moxtest", &kLines, false};
  plan.pointMapping = point, plan.nullText = nullText, plan.nullStatus = MOX_StsUnknownError;
  return mox::walkDestination(plan, {dst, "dstImage", true}, mapping, &maxPiece, &reader);
}

TEST(SourceReader, FilterOnTheWalkTiledEqualsPlain) {
  const int H = 21, W = 30;
  Image src({MOX_DEPTH_8U, 1, 0, H, W}, 7), want({MOX_DEPTH_8U, 1, 0, H, W}, 8);
  moxSetBorderMode(src, MOX_BORDER_REFLECT, MOX_SIDE_ALL, 0);
  moxSetBorderMode(src, MOX_BORDER_CONSTANT, MOX_SIDE_BOTTOM, 255);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      unsigned m = 0;
      for (int k = 0; k < 9; ++k)
        m = std::max(m, expectedAt(src, x + k % 3 - 1, y + k / 3 - 1, 1, Edge::kModes) & 255);
      set(want, x, y, 0, m);
    }
  Capture capture;
  Tiled tiledSrc(src, 24, 8);
  copyModes(src, tiledSrc);
  for (const MoxImage* s : {+src, +tiledSrc}) {
    for (bool tiledOut : {false, true}) {
      Image out({MOX_DEPTH_8U, 1, 0, H, W}, 1);
      Tiled tiledDst(out, 8, 8);
      ASSERT_TRUE(maxFilter(s, tiledOut ? +tiledDst : +out, nullptr));
      if (tiledOut) tiledDst.gather(out);
      EXPECT_EQ(out.plane(), want.plane()) << tiledOut;
    }
    // One destination tile of a cleared image.
    Image part({MOX_DEPTH_8U, 1, 0, H, W}, 1);
    std::fill(part->imageData, part->imageData + part->imageSize, 0);
    Tiled tiledPart(part, 8, 8);
    const int tile[2] = {1, 2};
    ASSERT_TRUE(maxFilter(s, tiledPart, tile));
    tiledPart.gather(part);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x)
        ASSERT_EQ(get(part, x, y), x / 8 == 1 && y / 8 == 2 ? get(want, x, y) : ll(0));

    // One destination pixel; one just outside changes nothing.
    Image one({MOX_DEPTH_8U, 1, 0, H, W}, 3);
    std::vector<char> expect = one.bytes();
    expect[29] = static_cast<char>(get(want, 29, 0));
    const int pixel[2] = {29, 0}, away[2] = {30, 0};
    ASSERT_TRUE(maxFilter(s, one, pixel, true));
    ASSERT_TRUE(maxFilter(s, one, away, true));
    EXPECT_EQ(one.bytes(), expect);
  }
  EXPECT_TRUE(reports().empty());
  // An operation's own text and status for a destination tile that is not
  // handed out; the walk stops before any source is read.
  Tiled tiledDst(want, 8, 8);
  tiledDst.nullOnGet = 0, tiledSrc.calls.clear();
  EXPECT_FALSE(maxFilter(tiledSrc, tiledDst, nullptr, false, "Error get tile to write"));
  ASSERT_EQ(reports().size(), 1u);
  EXPECT_EQ(std::tie(reports()[0].message, reports()[0].status, reports()[0].line),
            std::make_tuple("Error get tile to write", int(MOX_StsUnknownError), 33));
  EXPECT_TRUE(tiledSrc.calls.empty());
}

}  // namespace
