// The ROI/tile walk: tiled runs equal plain runs, the tile request and its
// checks, call-backs that misbehave.
#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <vector>

#include "op_cases.h"

using namespace testimg;

namespace {

// Tile width and height of a, b, d; 0 = not tiled.
struct TileSet { int size[3][2]; };

// Runs the case once on plain images and once on tiled twins (the images
// whose tile size is not 0), and compares the destinations. Each tiled image
// is asked for tiles inside it only, sources to read and the destination to
// write, with its own header, and all are released in the end; a requested
// destination tile is the only one asked for.
void compareTiled(const OpCase& c, unsigned depth, int channels, int order, const TileSet& t,
                  const int* mapping = nullptr, Rect limit = kEverywhere) {
  const int rois[3][5] = {{0, 3, 5, 29, 35}, {0, 9, 2, 27, 40}, {0, 13, 6, 30, 44}};
  Image a({depth, channels, order, 37, 45}, 21, rois[0]),
      b({depth, channels, order, 30, 52}, 22, rois[1]),
      d({depth, channels, order, 41, 60}, 23, rois[2]);
  const auto want = expected(c, a, b, d, limit);
  Image* plain[3] = {&a, &b, &d};
  std::optional<Tiled> tiled[3];
  MoxImage* run[3];
  for (int i = 0; i < 3; ++i) {
    if (t.size[i][0]) tiled[i].emplace(*plain[i], t.size[i][0], t.size[i][1]);
    run[i] = tiled[i] ? +*tiled[i] : +*plain[i];
  }
  c.run(run[0], run[1], run[2], mapping);
  EXPECT_EQ(moxGetErrStatus(), 0) << c.func;
  if (tiled[2]) tiled[2]->gather(d);
  EXPECT_EQ(pixels(d), want) << c.func << " depth " << std::hex << depth;
  for (int i = 0; i < 3; ++i) {
    if (!tiled[i] || tiled[i]->calls.empty()) continue;  // an unused source
    EXPECT_FALSE(tiled[i]->badIndex);
    const auto& calls = tiled[i]->calls;
    const int get = i == 2 ? MOX_GET_TILE_TO_WRITE : MOX_GET_TILE_TO_READ;
    const bool asked = i == 2 && mapping;
    int gets = 0;
    for (const auto& call : calls) {
      const bool release = call.mode == MOX_RELEASE_TILE;
      gets += !release;
      EXPECT_EQ(std::make_tuple(call.image, call.mode, call.x, call.y),
                std::make_tuple(run[i], release ? call.mode : get,
                                asked && !release ? mapping[0] : call.x,
                                asked && !release ? mapping[1] : call.y));
    }
    EXPECT_EQ(calls.back().mode, MOX_RELEASE_TILE);
    EXPECT_LE(gets, asked ? 1 : gets);
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
  // One destination tile per request: the destination's ROI spans columns
  // 13..56 and rows 6..35; with 16 x 8 tiles, tiles 0..3 across and 0..4 down.
  for (const char* f : {"moxAdd", "moxSet"})
    for (unsigned depth : {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_16S})
      for (int ty = 0; ty <= 4; ++ty)
        for (int tx = 0; tx <= 3; ++tx) {
          const int mapping[2] = {tx, ty};
          compareTiled(opNamed(f), depth, 1, 0, {{{8, 8}, {24, 16}, {16, 8}}}, mapping,
                       Rect{tx * 16, ty * 8, 16, 8});
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
  const struct { int x, y; const char* message; int line; } cases[] = {
      {4, 2, "(dTile.begX > dRoi.endX)", 1173},       {2, 4, "(dTile.begY > dRoi.endY)", 1174},
      {0, 2, "(dTile.endX < dRoi.begX)", 1175},       {2, 0, "(dTile.endY < dRoi.begY)", 1176},
      {INT_MAX, 2, "(dTile.begX > dRoi.endX)", 1173}, {3, 2, nullptr, 0},
      {INT_MIN, 2, "(dTile.endX < dRoi.begX)", 1175}, {2, 1, nullptr, 0},
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
  // A get that leaves tileData null in the first walk (a tile request) or
  // the second; a release that leaves it set in the second walk or at the end.
  enum Fault { NullFirst, NullSecond, KeptSecond, KeptAtEnd };
  const struct { const char* func; int image; Fault fault; int line; } cases[] = {  // image: 0..2
      {"moxAdd", 0, NullFirst, 1225},  {"moxAdd", 1, NullFirst, 1244},
      {"moxAdd", 2, NullFirst, 1263},  {"moxAdd", 0, KeptSecond, 1288},
      {"moxAdd", 0, NullSecond, 1294}, {"moxAdd", 1, KeptSecond, 1309},
      {"moxAdd", 1, NullSecond, 1315}, {"moxAdd", 2, KeptSecond, 1330},
      {"moxAdd", 2, NullSecond, 1336}, {"moxAdd", 0, KeptAtEnd, 1354},
      {"moxAdd", 1, KeptAtEnd, 1359},  {"moxAdd", 2, KeptAtEnd, 1364},
      {"moxXor", 1, NullSecond, 946},  {"moxAddS", 0, NullFirst, 1004},
      {"moxAddS", 1, NullFirst, 1023}, {"moxAddS", 0, KeptSecond, 1044},
      {"moxAddS", 0, NullSecond, 1050}, {"moxAddS", 1, KeptSecond, 1065},
      {"moxAddS", 1, NullSecond, 1071}, {"moxAddS", 0, KeptAtEnd, 1088},
      {"moxAddS", 1, KeptAtEnd, 1093},  {"moxAbs", 1, KeptAtEnd, 599},
  };
  for (const auto& k : cases) {
    const bool two = opNamed(k.func).sources == 2, kept = k.fault >= KeptSecond;
    const char* names[2][3] = {{"srcImage", "dstImage"}, {"srcImageA", "srcImageB", "dstImage"}};
    const std::string message = std::string("(") + names[two][k.image] + "->tileInfo->tileData " +
                                (kept ? "!=" : "==") + " ((void*)(0)))";
    // A release before a new tile needs two tiles across; at the end one
    // tile each is enough.
    const int width = k.fault == KeptAtEnd ? 8 : 16;
    Image a({MOX_DEPTH_8U, 1, 0, 8, width}, 1), b({MOX_DEPTH_8U, 1, 0, 8, width}, 2),
        d({MOX_DEPTH_8U, 1, 0, 8, width}, 3);
    Tiled ta(a, 8, 8), tb(b, 8, 8), td(d, 8, 8);
    Tiled* tiled[3] = {&ta, two ? &tb : &td, &td};
    (kept ? tiled[k.image]->keepOnRelease : tiled[k.image]->nullOnGet) = k.fault == NullSecond;
    const int mapping[2] = {0, 0};
    reports().clear();
    runOp(k.func, ta, tb, td, 5, 0, k.fault == NullFirst ? mapping : nullptr);
    expectReport(k.func, message, k.line);
    EXPECT_TRUE(reports().empty());
    if (k.fault == KeptAtEnd && two) {  // every pixel was written before the release failed
      td.gather(d);
      EXPECT_EQ(get(d, 3, 4), clampTo(MOX_DEPTH_8U, get(a, 3, 4) + get(b, 3, 4)));
    }
  }
}
