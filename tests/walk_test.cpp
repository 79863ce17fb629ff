// The ROI/tile walk: tiled runs equal plain runs, the tile request and its
// checks, call-backs that misbehave, and the pieces the kernel is given.
#include "image/walk.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "op_cases.h"

using namespace testimg;

namespace {

// Tile width and height of a, b, d; 0 = not tiled.
struct TileSet {
  int size[3][2];
};

// Runs the case once on plain images and once on tiled twins (the images
// whose tile size is not 0), and compares the destinations.
void compareTiled(const OpCase& c, unsigned depth, int channels, int order, const TileSet& t,
                  const int* mapping = nullptr, Rect limit = kEverywhere) {
  const int rois[3][5] = {{0, 3, 5, 29, 35}, {0, 9, 2, 27, 40}, {0, 13, 6, 30, 44}};
  Image a({depth, channels, order, 37, 45}, 21, rois[0]),
      b({depth, channels, order, 30, 52}, 22, rois[1]),
      d({depth, channels, order, 41, 60}, 23, rois[2]);
  const auto want = expected(c, a, b, d, limit);
  Image* plain[3] = {&a, &b, &d};
  std::unique_ptr<Tiled> tiled[3];
  MoxImage* run[3];
  for (int i = 0; i < 3; ++i) {
    if (t.size[i][0]) tiled[i] = std::make_unique<Tiled>(*plain[i], t.size[i][0], t.size[i][1]);
    run[i] = tiled[i] ? static_cast<MoxImage*>(*tiled[i]) : static_cast<MoxImage*>(*plain[i]);
  }
  c.run(run[0], run[1], run[2], mapping);
  EXPECT_EQ(moxGetErrStatus(), 0) << c.func;
  if (tiled[2]) tiled[2]->gather(d);
  EXPECT_EQ(pixels(d), want) << c.func << " depth " << std::hex << depth;
  for (int i = 0; i < 3; ++i) {
    if (!tiled[i] || tiled[i]->calls.empty()) continue;  // an unused source
    EXPECT_FALSE(tiled[i]->badIndex);
    for (const auto& call : tiled[i]->calls) EXPECT_EQ(call.image, run[i]);
    EXPECT_EQ(tiled[i]->calls.back().mode, MOX_RELEASE_TILE);
  }
}

}  // namespace

TEST(Walk, TiledRunsEqualPlainRuns) {
  Capture capture;
  const TileSet sets[] = {
      {{{8, 8}, {16, 24}, {24, 16}}},  // every image tiled, tiles not aligned with the ROIs
      {{{0, 0}, {0, 0}, {8, 16}}},     // only the destination
      {{{0, 0}, {8, 8}, {0, 0}}},      // only the second source
      {{{64, 64}, {0, 0}, {0, 0}}},    // one tile holds the first source
  };
  const OpCase ops[] = {opNamed("moxAdd"),    opNamed("moxSubtract", 7), opNamed("moxAddS"),
                        opNamed("moxNot"),    opNamed("moxRShiftS"),     opNamed("moxCopy"),
                        opNamed("moxSet", 0)};
  for (unsigned depth : kDepths)
    for (const OpCase& c : ops)
      for (const TileSet& t : sets) {
        compareTiled(c, depth, depth == MOX_DEPTH_1U ? 1 : 3, 0, t);
        if (depth != MOX_DEPTH_1U) compareTiled(c, depth, 2, 1, t);
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Walk, OneDestinationTilePerRequest) {
  Capture capture;
  // The destination's ROI spans columns 13..56 and rows 6..35; with 16 x 8
  // tiles that is tiles 0..3 across and 0..4 down.
  const TileSet t{{{8, 8}, {24, 16}, {16, 8}}};
  for (const char* f : {"moxAdd", "moxSet"})
    for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16S})
      for (int ty = 0; ty <= 4; ++ty)
        for (int tx = 0; tx <= 3; ++tx) {
          const int mapping[2] = {tx, ty};
          compareTiled(opNamed(f), depth, 1, 0, t, mapping, Rect{tx * 16, ty * 8, 16, 8});
        }
  // An untiled destination ignores the request.
  const int far[2] = {100, 100};
  compareTiled(opNamed("moxAdd"), MOX_DEPTH_8U, 1, 0, {{{8, 8}, {0, 0}, {0, 0}}}, far);
  EXPECT_TRUE(reports().empty());
}

TEST(Walk, TileRequestChecks) {
  Capture capture;
  // The destination's rectangle is columns and rows 16..23, tiles of 8 x 8;
  // line 0: the request passes.
  const struct {
    int x, y;
    const char* message;
    int line;
  } cases[] = {
      {4, 2, "(dTile.begX > dRoi.endX)", 1173},       {2, 4, "(dTile.begY > dRoi.endY)", 1174},
      {0, 2, "(dTile.endX < dRoi.begX)", 1175},       {2, 0, "(dTile.endY < dRoi.begY)", 1176},
      {INT_MAX, 2, "(dTile.begX > dRoi.endX)", 1173}, {INT_MIN, 2, "(dTile.endX < dRoi.begX)", 1175},
      {3, 2, nullptr, 0},                             {2, 1, nullptr, 0},
  };
  for (const auto& k : cases) {
    const int roi[5] = {0, 16, 16, 8, 8};
    Image a({MOX_DEPTH_8U, 1, 0, 32, 32}, 1), b({MOX_DEPTH_8U, 1, 0, 32, 32}, 2),
        d({MOX_DEPTH_8U, 1, 0, 32, 32}, 3, roi), out({MOX_DEPTH_8U, 1, 0, 32, 32}, 3);
    Tiled td(d, 8, 8);
    reports().clear();
    const int mapping[2] = {k.x, k.y};
    moxAdd(a, b, td, mapping);
    if (k.message) {
      expectReport("moxAdd", k.message, k.line, "moxadd");
      EXPECT_TRUE(td.calls.empty());
    }
    EXPECT_TRUE(reports().empty());
    td.gather(out);
    EXPECT_EQ(pixels(out), pixels(d)) << k.x << "," << k.y;
  }
}

TEST(Walk, CallBacksThatMisbehave) {
  Capture capture;
  enum Fault { NullFirstWalk, NullSecondWalk, KeptSecondWalk, KeptAtEnd };
  const struct {
    const char* func;
    int image;  // 0, 1, 2 in argument order
    Fault fault;
    const char* message;
    int line;
  } cases[] = {
      {"moxAdd", 0, NullFirstWalk, "(srcImageA->tileInfo->tileData == ((void*)(0)))", 1225},
      {"moxAdd", 1, NullFirstWalk, "(srcImageB->tileInfo->tileData == ((void*)(0)))", 1244},
      {"moxAdd", 2, NullFirstWalk, "(dstImage->tileInfo->tileData == ((void*)(0)))", 1263},
      {"moxAdd", 0, KeptSecondWalk, "(srcImageA->tileInfo->tileData != ((void*)(0)))", 1288},
      {"moxAdd", 0, NullSecondWalk, "(srcImageA->tileInfo->tileData == ((void*)(0)))", 1294},
      {"moxAdd", 1, KeptSecondWalk, "(srcImageB->tileInfo->tileData != ((void*)(0)))", 1309},
      {"moxAdd", 1, NullSecondWalk, "(srcImageB->tileInfo->tileData == ((void*)(0)))", 1315},
      {"moxAdd", 2, KeptSecondWalk, "(dstImage->tileInfo->tileData != ((void*)(0)))", 1330},
      {"moxAdd", 2, NullSecondWalk, "(dstImage->tileInfo->tileData == ((void*)(0)))", 1336},
      {"moxAdd", 0, KeptAtEnd, "(srcImageA->tileInfo->tileData != ((void*)(0)))", 1354},
      {"moxAdd", 1, KeptAtEnd, "(srcImageB->tileInfo->tileData != ((void*)(0)))", 1359},
      {"moxAdd", 2, KeptAtEnd, "(dstImage->tileInfo->tileData != ((void*)(0)))", 1364},
      {"moxXor", 1, NullSecondWalk, "(srcImageB->tileInfo->tileData == ((void*)(0)))", 946},
      {"moxAddS", 0, NullFirstWalk, "(srcImage->tileInfo->tileData == ((void*)(0)))", 1004},
      {"moxAddS", 1, NullFirstWalk, "(dstImage->tileInfo->tileData == ((void*)(0)))", 1023},
      {"moxAddS", 0, KeptSecondWalk, "(srcImage->tileInfo->tileData != ((void*)(0)))", 1044},
      {"moxAddS", 0, NullSecondWalk, "(srcImage->tileInfo->tileData == ((void*)(0)))", 1050},
      {"moxAddS", 1, KeptSecondWalk, "(dstImage->tileInfo->tileData != ((void*)(0)))", 1065},
      {"moxAddS", 1, NullSecondWalk, "(dstImage->tileInfo->tileData == ((void*)(0)))", 1071},
      {"moxAddS", 0, KeptAtEnd, "(srcImage->tileInfo->tileData != ((void*)(0)))", 1088},
      {"moxAddS", 1, KeptAtEnd, "(dstImage->tileInfo->tileData != ((void*)(0)))", 1093},
      {"moxAbs", 1, KeptAtEnd, "(dstImage->tileInfo->tileData != ((void*)(0)))", 599},
  };
  for (const auto& k : cases) {
    const bool two = opNamed(k.func).sources == 2;
    // A release before a new tile needs two tiles across; at the end one
    // tile each is enough.
    const int width = k.fault == KeptAtEnd ? 8 : 16;
    Image a({MOX_DEPTH_8U, 1, 0, 8, width}, 1), b({MOX_DEPTH_8U, 1, 0, 8, width}, 2),
        d({MOX_DEPTH_8U, 1, 0, 8, width}, 3);
    Tiled ta(a, 8, 8), tb(b, 8, 8), td(d, 8, 8);
    Tiled* tiled[3] = {&ta, two ? &tb : &td, &td};
    Tiled& bad = *tiled[k.image];
    if (k.fault == NullFirstWalk || k.fault == NullSecondWalk) bad.nullOnGet = k.fault == NullSecondWalk;
    if (k.fault == KeptSecondWalk || k.fault == KeptAtEnd) bad.keepOnRelease = 0;
    const int mapping[2] = {0, 0};
    reports().clear();
    runOp(k.func, ta, tb, td, 5, 0, k.fault == NullFirstWalk ? mapping : nullptr);
    expectReport(k.func, k.message, k.line);
    if (k.fault == KeptAtEnd && two) {  // every pixel was written before the release failed
      td.gather(d);
      EXPECT_EQ(get(d, 3, 4), clampTo(MOX_DEPTH_8U, get(a, 3, 4) + get(b, 3, 4)));
    }
  }
}

TEST(Walk, EmptyRectanglesRequestNoTileOutsideTheImage) {
  Capture capture;
  const int roiA[5] = {0, 19, 19, 50, 50}, roiD[5] = {0, 25, 3, 10, 10};  // d: right of the image
  Image a({MOX_DEPTH_16U, 2, 0, 20, 20}, 1, roiA), d({MOX_DEPTH_16U, 2, 0, 20, 20}, 2, roiD);
  Tiled ta(a, 8, 8), td(d, 8, 8);
  moxAddS(ta, td, 9, nullptr);
  EXPECT_TRUE(reports().empty());
  EXPECT_FALSE(ta.badIndex || td.badIndex);
  for (const auto& call : td.calls) EXPECT_EQ(call.mode, MOX_RELEASE_TILE);
}

namespace {

struct Piece {
  int width, height;
};

void notePiece(const mox::View* views, const void* arg) {
  static_cast<std::vector<Piece>*>(const_cast<void*>(arg))->push_back({views[0].width, views[0].height});
}

const mox::WalkLines kNoLines{{1, 2, 3, 4}, {5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
const mox::WalkPlan kPlan{"walk", "walk", &kNoLines, true};

}  // namespace

TEST(Walk, KernelRunsOncePerPieceOverWholeBands) {
  Capture capture;
  Image a({MOX_DEPTH_8U, 1, 0, 64, 64}, 1), d({MOX_DEPTH_8U, 1, 0, 64, 64}, 2);
  Tiled ta(a, 24, 8), td(d, 16, 16);
  const mox::WalkImage images[2] = {{ta, "a", false}, {td, "d", true}};
  std::vector<Piece> pieces;
  ASSERT_TRUE(mox::walk(kPlan, images, 2, nullptr, &notePiece, &pieces));
  // Column edges at 16, 24, 32, 48 (and 64): 5 pieces a band; bands of 8 rows.
  ASSERT_EQ(pieces.size(), 5u * 8u);
  int area = 0;
  for (const Piece& p : pieces) {
    EXPECT_EQ(p.height, 8);
    area += p.width * p.height;
  }
  EXPECT_EQ(area, 64 * 64);
  // The destination's tiles are asked for once per band they span, each
  // after the one before was released.
  int gets = 0, releases = 0;
  for (const auto& c : td.calls) (c.mode == MOX_RELEASE_TILE ? releases : gets)++;
  EXPECT_EQ(gets, 4 * 8);
  EXPECT_EQ(releases, gets);

  // One destination tile: one request for it, one release at the end.
  pieces.clear();
  td.calls.clear();
  const int mapping[2] = {1, 2};
  ASSERT_TRUE(mox::walk(kPlan, images, 2, mapping, &notePiece, &pieces));
  ASSERT_EQ(td.calls.size(), 2u);
  EXPECT_EQ(std::tie(td.calls[0].x, td.calls[0].y, td.calls[0].mode),
            std::make_tuple(1, 2, int(MOX_GET_TILE_TO_WRITE)));
  EXPECT_EQ(td.calls[1].mode, MOX_RELEASE_TILE);
  area = 0;
  for (const Piece& p : pieces) area += p.width * p.height;
  EXPECT_EQ(area, 16 * 16);
}

// Rows that follow each other with no gap in every image reach the kernel as
// one long row; padding or a channel of interest keeps the rows apart.
TEST(Walk, GaplessRowsJoinIntoOneRun) {
  const struct {
    const char* what;
    Shape shape;
    int tile;  // tile edge of both images; 0 = untiled, rows 3.. and 5.. of a ROI
    int coi;
    int width, height;  // expected size of every piece
    std::size_t pieces;
  } cases[] = {
      {"same tiles", {MOX_DEPTH_8U, 1, 0, 64, 64}, 16, 0, 256, 1, 16},
      {"16-bit, 3 channels, same tiles", {MOX_DEPTH_16U, 3, 0, 32, 32}, 16, 0, 256, 1, 4},
      {"whole rows of a ROI", {MOX_DEPTH_8U, 1, 0, 64, 64}, 0, 0, 64 * 37, 1, 1},
      {"padded rows", {MOX_DEPTH_8U, 1, 0, 64, 30}, 0, 0, 30, 37, 1},
      {"channel of interest", {MOX_DEPTH_8U, 3, 0, 64, 64}, 0, 2, 64, 37, 1},
      {"plane order", {MOX_DEPTH_8U, 3, 1, 64, 64}, 0, 0, 64, 37, 1},
  };
  for (const auto& c : cases) {
    const int roiA[5] = {c.coi, 0, 3, 37, c.shape.width}, roiD[5] = {c.coi, 0, 5, 37, c.shape.width};
    Image a(c.shape, 1, c.tile ? nullptr : roiA), d(c.shape, 2, c.tile ? nullptr : roiD);
    std::unique_ptr<Tiled> ta, td;
    if (c.tile) ta = std::make_unique<Tiled>(a, c.tile, c.tile), td = std::make_unique<Tiled>(d, c.tile, c.tile);
    const mox::WalkImage images[2] = {{ta ? *ta : static_cast<MoxImage*>(a), "a", false},
                                      {td ? *td : static_cast<MoxImage*>(d), "d", true}};
    std::vector<Piece> pieces;
    ASSERT_TRUE(mox::walk(kPlan, images, 2, nullptr, &notePiece, &pieces)) << c.what;
    ASSERT_EQ(pieces.size(), c.pieces) << c.what;
    for (const Piece& p : pieces)
      EXPECT_EQ(std::make_pair(p.width, p.height), std::make_pair(c.width, c.height)) << c.what;
  }
}
