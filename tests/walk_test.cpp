// The ROI/tile walk: tiled runs equal plain runs, the tile request and its
// checks, and call-backs that misbehave.
#include "image/walk.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>

#include "op_cases.h"

using namespace testimg;

namespace {

const OpCase& opNamed(const std::vector<OpCase>& ops, const std::string& name) {
  for (const OpCase& c : ops)
    if (name == c.name) return c;
  throw std::runtime_error(name);
}

struct TileSet {
  int a[2], b[2], d[2];  // tile width, height per image; 0 = not tiled
};

// Runs the case once on plain images and once on tiled twins (the images
// whose tile size is not 0), and compares the destinations.
void compareTiled(const OpCase& c, unsigned depth, int channels, int order, const TileSet& t,
                  const int* mapping = nullptr, Rect limit = {0, 0, INT_MAX, INT_MAX}) {
  Image a({depth, channels, order, 37, 45}, 21), b({depth, channels, order, 30, 52}, 22),
      d({depth, channels, order, 41, 60}, 23);
  a.roi(0, 3, 5, 29, 35);
  b.roi(0, 9, 2, 27, 40);
  d.roi(0, 13, 6, 30, 44);
  std::vector<MoxImage*> images = {a};
  if (c.sources == 2) images.push_back(b);
  images.push_back(d);
  const auto want = expected(
      images, [&](const ll* v) { return c.ref(depth, v[0], c.sources == 2 ? v[1] : 0); }, limit);

  auto twin = [](Image& im, const int* size) -> std::unique_ptr<Tiled> {
    return size[0] ? std::make_unique<Tiled>(im, size[0], size[1]) : nullptr;
  };
  auto ta = twin(a, t.a), tb = twin(b, t.b), td = twin(d, t.d);
  auto pick = [](std::unique_ptr<Tiled>& t, Image& im) -> MoxImage* {
    return t ? static_cast<MoxImage*>(*t) : static_cast<MoxImage*>(im);
  };
  c.run(pick(ta, a), pick(tb, b), pick(td, d), mapping);
  EXPECT_EQ(moxGetErrStatus(), 0) << c.name;
  if (td) td->gather(d);
  EXPECT_EQ(pixels(d), want) << c.name << " depth " << std::hex << depth;
  for (Tiled* tiled : {ta.get(), tb.get(), td.get()}) {
    if (!tiled || tiled->calls.empty()) continue;  // an unused second source
    EXPECT_FALSE(tiled->badIndex);
    for (const auto& call : tiled->calls) EXPECT_EQ(call.image, static_cast<MoxImage*>(*tiled));
    EXPECT_EQ(tiled->calls.back().mode, MOX_RELEASE_TILE);
  }
}

}  // namespace

TEST(Walk, TiledRunsEqualPlainRuns) {
  Capture capture;
  const auto ops = allOps();
  const TileSet sets[] = {
      {{8, 8}, {16, 24}, {24, 16}},  // every image tiled, tiles not aligned with the ROIs
      {{0, 0}, {0, 0}, {8, 16}},     // only the destination
      {{0, 0}, {8, 8}, {0, 0}},      // only the second source
      {{64, 64}, {0, 0}, {0, 0}},    // one tile holds the first source
  };
  for (unsigned depth : kDepths)
    for (const char* name : {"Add", "SubtractReverse", "AddS", "Not", "RShiftS"})
      for (const TileSet& t : sets) {
        const int channels = depth == MOX_DEPTH_1U ? 1 : 3;
        compareTiled(opNamed(ops, name), depth, channels, 0, t);
        if (depth != MOX_DEPTH_1U) compareTiled(opNamed(ops, name), depth, 2, 1, t);
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Walk, OneDestinationTilePerRequest) {
  Capture capture;
  const auto ops = allOps();
  // The destination's ROI spans columns 13..56 and rows 6..35; with 16 x 8
  // tiles that is tiles 0..3 across and 0..4 down.
  const TileSet t{{8, 8}, {24, 16}, {16, 8}};
  for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16S})
    for (int ty = 0; ty <= 4; ++ty)
      for (int tx = 0; tx <= 3; ++tx) {
        const int mapping[2] = {tx, ty};
        compareTiled(opNamed(ops, "Add"), depth, 1, 0, t, mapping, Rect{tx * 16, ty * 8, 16, 8});
      }
  // An untiled destination ignores the request.
  const int far[2] = {100, 100};
  compareTiled(opNamed(ops, "Add"), MOX_DEPTH_8U, 1, 0, {{8, 8}, {0, 0}, {0, 0}}, far);
  EXPECT_TRUE(reports().empty());
}

TEST(Walk, TileRequestChecks) {
  Capture capture;
  struct Case {
    int x, y;
    const char* message;
    int line;  // 0: passes, no pixel changes
  };
  // The destination's rectangle is columns and rows 16..23, tiles of 8 x 8.
  const Case cases[] = {
      {4, 2, "(dTile.begX > dRoi.endX)", 1173},
      {2, 4, "(dTile.begY > dRoi.endY)", 1174},
      {0, 2, "(dTile.endX < dRoi.begX)", 1175},
      {2, 0, "(dTile.endY < dRoi.begY)", 1176},
      {INT_MAX, 2, "(dTile.begX > dRoi.endX)", 1173},
      {INT_MIN, 2, "(dTile.endX < dRoi.begX)", 1175},
      {3, 2, nullptr, 0},
      {2, 1, nullptr, 0},
  };
  for (const Case& k : cases) {
    Image a({MOX_DEPTH_8U, 1, 0, 32, 32}, 1), b({MOX_DEPTH_8U, 1, 0, 32, 32}, 2),
        d({MOX_DEPTH_8U, 1, 0, 32, 32}, 3);
    d.roi(0, 16, 16, 8, 8);
    Tiled td(d, 8, 8);
    reports().clear();
    const int mapping[2] = {k.x, k.y};
    moxAdd(a, b, td, mapping);
    Image out({MOX_DEPTH_8U, 1, 0, 32, 32}, 3);
    td.gather(out);
    EXPECT_EQ(pixels(out), pixels(d)) << k.x << "," << k.y;
    if (!k.message) {
      EXPECT_TRUE(reports().empty());
      continue;
    }
    expectReport("moxAdd", k.message, k.line, "moxadd");
    EXPECT_TRUE(td.calls.empty());
  }
}

TEST(Walk, CallBacksThatMisbehave) {
  Capture capture;
  enum Fault { NullFirstWalk, NullSecondWalk, KeptSecondWalk, KeptAtEnd };
  struct Case {
    const char* func;
    int image;  // 0, 1, 2 in argument order
    Fault fault;
    const char* message;
    int line;
  };
  const Case cases[] = {
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
  for (const Case& k : cases) {
    const bool two = std::string(k.func) != "moxAddS" && std::string(k.func) != "moxAbs";
    // A release before a new tile needs two tiles across; at the end one
    // tile each is enough.
    const int width = k.fault == KeptAtEnd ? 8 : 16;
    Image a({MOX_DEPTH_8U, 1, 0, 8, width}, 1), b({MOX_DEPTH_8U, 1, 0, 8, width}, 2),
        d({MOX_DEPTH_8U, 1, 0, 8, width}, 3);
    Tiled ta(a, 8, 8), tb(b, 8, 8), td(d, 8, 8);
    Tiled* tiled[3] = {&ta, two ? &tb : &td, &td};
    Tiled& bad = *tiled[k.image];
    if (k.fault == NullFirstWalk || k.fault == NullSecondWalk)
      bad.nullOnGet = k.fault == NullSecondWalk ? 1 : 0;
    if (k.fault == KeptSecondWalk || k.fault == KeptAtEnd) bad.keepOnRelease = 0;
    const int mapping[2] = {0, 0};
    const int* m = k.fault == NullFirstWalk ? mapping : nullptr;
    reports().clear();
    const std::string f = k.func;
    if (f == "moxAdd") moxAdd(ta, tb, td, m);
    if (f == "moxXor") moxXor(ta, tb, td, m);
    if (f == "moxAddS") moxAddS(ta, td, 5, m);
    if (f == "moxAbs") moxAbs(ta, td, m);
    expectReport(k.func, k.message, k.line);
    if (k.fault == KeptAtEnd && f == "moxAdd") {
      // Every pixel was written before the release failed.
      td.gather(d);
      EXPECT_EQ(get(d, 3, 4), clampTo(MOX_DEPTH_8U, get(a, 3, 4) + get(b, 3, 4)));
    }
  }
}

TEST(Walk, EmptyRectanglesRequestNoTileOutsideTheImage) {
  Capture capture;
  Image a({MOX_DEPTH_16U, 2, 0, 20, 20}, 1), d({MOX_DEPTH_16U, 2, 0, 20, 20}, 2);
  a.roi(0, 19, 19, 50, 50);
  d.roi(0, 25, 3, 10, 10);  // starts right of the image: nothing to do
  Tiled ta(a, 8, 8), td(d, 8, 8);
  moxAddS(ta, td, 9, nullptr);
  EXPECT_TRUE(reports().empty());
  EXPECT_FALSE(ta.badIndex);
  EXPECT_FALSE(td.badIndex);
  for (const auto& call : td.calls) EXPECT_EQ(call.mode, MOX_RELEASE_TILE);
}

namespace {

struct Piece {
  int width, height;
};

void notePiece(const mox::View* views, const void* arg) {
  auto* pieces = static_cast<std::vector<Piece>*>(const_cast<void*>(arg));
  pieces->push_back({views[0].width, views[0].height});
}

const mox::WalkLines kNoLines{{1, 2, 3, 4}, {5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};

}  // namespace

TEST(Walk, KernelRunsOncePerPieceOverWholeBands) {
  Capture capture;
  Image a({MOX_DEPTH_8U, 1, 0, 64, 64}, 1), d({MOX_DEPTH_8U, 1, 0, 64, 64}, 2);
  Tiled ta(a, 24, 8), td(d, 16, 16);
  const mox::WalkPlan plan{"walk", "walk", &kNoLines, true};
  const mox::WalkImage images[2] = {{ta, "a", false}, {td, "d", true}};
  std::vector<Piece> pieces;
  ASSERT_TRUE(mox::walk(plan, images, 2, nullptr, &notePiece, &pieces));
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
  ASSERT_TRUE(mox::walk(plan, images, 2, mapping, &notePiece, &pieces));
  ASSERT_EQ(td.calls.size(), 2u);
  EXPECT_EQ(td.calls[0].x, 1);
  EXPECT_EQ(td.calls[0].y, 2);
  EXPECT_EQ(td.calls[0].mode, MOX_GET_TILE_TO_WRITE);
  EXPECT_EQ(td.calls[1].mode, MOX_RELEASE_TILE);
  int tileArea = 0;
  for (const Piece& p : pieces) tileArea += p.width * p.height;
  EXPECT_EQ(tileArea, 16 * 16);
}

// Rows that follow each other with no gap in every image reach the kernel as
// one long row; padding or a channel of interest keeps the rows apart.
TEST(Walk, GaplessRowsJoinIntoOneRun) {
  const mox::WalkPlan plan{"walk", "walk", &kNoLines, true};
  struct Case {
    const char* what;
    Shape shape;
    int tile;  // tile edge of both images; 0 = untiled
    int coi;
    int width, height;  // expected size of every piece
    std::size_t pieces;
  };
  const Case cases[] = {
      {"same tiles", {MOX_DEPTH_8U, 1, 0, 64, 64}, 16, 0, 256, 1, 16},
      {"16-bit, 3 channels, same tiles", {MOX_DEPTH_16U, 3, 0, 32, 32}, 16, 0, 256, 1, 4},
      {"whole rows of a ROI", {MOX_DEPTH_8U, 1, 0, 64, 64}, 0, 0, 64 * 37, 1, 1},
      {"padded rows", {MOX_DEPTH_8U, 1, 0, 64, 30}, 0, 0, 30, 37, 1},
      {"channel of interest", {MOX_DEPTH_8U, 3, 0, 64, 64}, 0, 2, 64, 37, 1},
      {"plane order", {MOX_DEPTH_8U, 3, 1, 64, 64}, 0, 0, 64, 37, 1},
  };
  for (const Case& c : cases) {
    Image a(c.shape, 1), d(c.shape, 2);
    if (!c.tile) {
      a.roi(c.coi, 0, 3, 37, c.shape.width);
      d.roi(c.coi, 0, 5, 37, c.shape.width);
    }
    std::unique_ptr<Tiled> ta, td;
    if (c.tile) {
      ta = std::make_unique<Tiled>(a, c.tile, c.tile);
      td = std::make_unique<Tiled>(d, c.tile, c.tile);
    }
    const mox::WalkImage images[2] = {{ta ? *ta : static_cast<MoxImage*>(a), "a", false},
                                      {td ? *td : static_cast<MoxImage*>(d), "d", true}};
    std::vector<Piece> pieces;
    ASSERT_TRUE(mox::walk(plan, images, 2, nullptr, &notePiece, &pieces)) << c.what;
    ASSERT_EQ(pieces.size(), c.pieces) << c.what;
    for (const Piece& p : pieces) {
      EXPECT_EQ(p.width, c.width) << c.what;
      EXPECT_EQ(p.height, c.height) << c.what;
    }
  }
}
