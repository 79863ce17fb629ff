// The point operations against references on every depth and layout, their
// checks, the ROI/tile walk, and the vector blocks of each width against the
// rules' own per-value arithmetic.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <tuple>
#include <vector>

#include "arith/arith.h"
#include "frame/frame.h"
#include "op_cases.h"

using namespace testimg;

namespace {

// Pins the references themselves where the rules saturate, wrap or shift.
TEST(Arith, KnownValues) {
  const unsigned U1 = MOX_DEPTH_1U, U8 = MOX_DEPTH_8U, S8 = MOX_DEPTH_8S, U16 = MOX_DEPTH_16U,
                 S16 = MOX_DEPTH_16S, S32 = MOX_DEPTH_32S;
  // Operation, depth, sources, scalar or shift count, reverse flag, result
  // (plain saturation on every depth runs with the layouts below).
  const struct { const char* func; unsigned depth; ll a, b; int v, r; ll want; } cases[] = {
      {"Subtract", U8, 100, 200, 0, 1, 100},         {"Add", U1, 1, 1, 0, 0, 1},
      {"Add", S32, 0x7FFFFFFF, 1, 0, 0, 0x7FFFFFFF}, {"Subtract", S32, INT_MIN, 1, 0, 0, INT_MIN},
      {"Multiply", S32, 65536, -65536, 0, 0, INT_MIN}, {"Square", S32, 70000, 0, 0, 0, 0x7FFFFFFF},
      {"Add", S16, 30000, 10000, 0, 0, 32767},       {"Subtract", S8, -100, 100, 0, 0, -128},
      {"Add", U16, 60000, 10000, 0, 0, 65535},       {"SubtractS", U8, 3, 0, 10, 1, 7},
      {"AndS", U8, 0xAB, 0, 0x1FF, 0, 0xAB},         {"Not", U8, 0x0F, 0, 0, 0, 0xF0},
      {"RShiftS", S8, -100, 0, 2, 0, -25},           {"RShiftS", S16, -1, 0, 17, 0, 32767},
      {"RShiftS", U8, 200, 0, 8, 0, 0},              {"RShiftS", S32, -8, 0, 2, 0, -2},
      {"LShiftS", U8, 0x81, 0, 33, 0, 0x02},         {"LShiftS", U8, 0x81, 0, 8, 0, 0},
      {"Abs", S8, -128, 0, 0, 0, -128},              {"Abs", S16, -32768, 0, 0, 0, -32768},
      {"Abs", S32, INT_MIN, 0, 0, 0, INT_MIN},
  };
  for (const auto& k : cases) {
    Image a({k.depth, 1, 0, 1, 1}), b({k.depth, 1, 0, 1, 1}), d({k.depth, 1, 0, 1, 1});
    set(a, 0, 0, 0, k.a), set(b, 0, 0, 0, k.b);
    runOp(std::string("mox") + k.func, a, b, d, k.v, k.r, nullptr);
    EXPECT_EQ(get(d, 0, 0), k.want) << k.func << " " << k.a << "," << k.b << " " << std::hex << k.depth;
  }
}

TEST(Arith, EveryRuleOnEveryDepthAndLayoutAndInPlace) {
  Capture capture;
  const auto ops = allOps();
  for (unsigned depth : kDepths)
    for (const Layout& l : layouts(depth))
      for (const OpCase& c : ops) {
        SCOPED_TRACE(l.name);
        Image a = l.make(depth, 0), b = l.make(depth, 1), d = l.make(depth, 2);
        checkCase(c, a, b, d);
        checkCase(c, a, b, a);
        if (c.sources == 2) checkCase(c, a, b, b);
      }
  EXPECT_TRUE(reports().empty());
}

// Every check of every point operation: its text and line; nothing written.
TEST(PointChecks, EveryCheckReportsItsTextAndLineAndWritesNothing) {
  // Header lines of srcImageA, srcImageB, dstImage (or srcImage, dstImage);
  // the first source's depth, order and channel lines (the second's follow).
  const struct Lines {
    const char *func, *file; int sources, header[3], depth, order, channels;
  } lines[] = {
      {"moxAdd", "moxadd", 2, {1087, 1088, 1089}, 1091, 1093, 1112},
      {"moxSubtract", "moxsub", 2, {1672, 1673, 1674}, 1676, 1678, 1697},
      {"moxMultiply", "moxmul", 2, {998, 999, 1000}, 1002, 1004, 1023},
      {"moxAnd", "moxand", 2, {718, 719, 720}, 722, 724, 743},
      {"moxOr", "moxor", 2, {718, 719, 720}, 722, 724, 743},
      {"moxXor", "moxxor", 2, {722, 723, 724}, 726, 728, 747},
      {"moxAddS", "moxadds", 1, {890, 891}, 893, 894, 907},
      {"moxSubtractS", "moxsubs", 1, {1387, 1388}, 1390, 1391, 1404},
      {"moxMultiplyS", "moxmuls", 1, {851, 852}, 854, 855, 868},
      {"moxAndS", "moxands", 1, {675, 676}, 678, 679, 692},
      {"moxOrS", "moxors", 1, {675, 676}, 678, 679, 692},
      {"moxXorS", "moxxors", 1, {676, 677}, 679, 680, 693},
      {"moxLShiftS", "moxlshs", 1, {566, 567}, 569, 570, 583},
      {"moxRShiftS", "moxshfts", 1, {798, 799}, 801, 802, 815},
      {"moxSquare", "moxsqr", 1, {823, 824}, 826, 827, 840},
      {"moxAbs", "moxabs", 1, {403, 404}, 406, 407, 420},
      {"moxCopy", "moxcopy", 1, {60, 61}, 63, 64, 70},
      {"moxNot", "moxxors", 1, {676, 677}, 679, 680, 693},  // an exclusive or with all bits
  };
  // The image spoilt (0, 1: sources; 2: destination; no spoil: left out),
  // which line reports it, and the text ('@' stands for the source's letter).
  enum { kHeader, kDepth, kOrder, kChannels };
#define M(...) [](MoxImage* m) { __VA_ARGS__; }
  const struct Step { int image, kind; void (*spoil)(MoxImage*); const char* text; } steps[] = {
      {0, kHeader, M(m->align = 3), "Image align is invalid"},
      {2, kHeader, nullptr, "Image header is null"},
      {1, kHeader, nullptr, "Image header is null"},
      {0, kHeader, M(m->widthStep = 5), "(srcImage@->widthStep < the bytes of srcImage@->width pixels)"},
      {0, kHeader, M(m->imageSize -= 1), "(srcImage@->imageSize < the bytes of srcImage@->height rows)"},
      // (the spoilt layouts below are never read: the checks stop first)
      {0, kDepth, M(m->depth = MOX_DEPTH_16U, m->widthStep *= 2, m->imageSize *= 2),
       "(srcImage@->depth != dstImage->depth)"},
      {1, kDepth, M(m->depth = MOX_DEPTH_8S), "(srcImage@->depth != dstImage->depth)"},
      {0, kOrder, M(m->dataOrder = 1, m->imageSize *= 2), "(srcImage@->dataOrder != dstImage->dataOrder)"},
      {1, kOrder, M(m->dataOrder = 1, m->imageSize *= 2), "(srcImage@->dataOrder != dstImage->dataOrder)"},
      {2, kChannels, M(m->roi = moxCreateROI(2, 0, 0, 4, 4)), "(nChSrc@ != nChDst)"},
      {1, kChannels, M(m->roi = moxCreateROI(1, 0, 0, 4, 4)), "(nChSrc@ != nChDst)"},
  };
#undef M
  Capture capture;
  for (const Lines& l : lines)
    for (const Step& s : steps) {
      const bool two = l.sources == 2;
      if (!two && s.image == 1) continue;
      const std::string letter = two ? (s.image == 1 ? "B" : "A") : "";
      std::string text;
      for (const char* p = s.text; *p; ++p) text += *p == '@' ? letter : std::string(1, *p);
      const int base[] = {0, l.depth, l.order, l.channels};
      const int line = s.kind == kHeader ? l.header[s.image == 2 ? l.sources : s.image]
                                         : base[s.kind] + (s.image == 1);
      Image a({MOX_DEPTH_8U, 2, 0, 4, 6}, 1), b({MOX_DEPTH_8U, 2, 0, 4, 6}, 2), d({MOX_DEPTH_8U, 2, 0, 4, 6}, 3);
      MoxImage* m[3] = {a, b, d};
      if (s.spoil) s.spoil(m[s.image]);
      else m[s.image] = nullptr;
      const auto before = d.bytes();
      runOp(l.func, m[0], m[1], m[2], 1, 0, nullptr);
      expectReport(l.func, text, line, l.file);
      EXPECT_TRUE(reports().empty());
      EXPECT_EQ(d.bytes(), before) << l.func << " " << text;
    }
  // The exchange's own checks, and a header check of the set.
  Image a({MOX_DEPTH_8U, 2, 0, 4, 5}, 1), b({MOX_DEPTH_8U, 2, 0, 4, 5}, 2);
  const auto beforeA = a.bytes(), beforeB = b.bytes();
  a.roi(2, 0, 0, 2, 2);
  moxExchange(a, b, nullptr);
  expectReport("moxExchange", "(nChA != nChB)", 70);
  moxExchange(a, nullptr, nullptr);
  expectReport("moxExchange", "Image header is null", 61);
  b->align = 2;
  moxSet(b, 1, nullptr);
  expectReport("moxSet", "Image align is invalid", 52);
  EXPECT_TRUE(reports().empty());
  EXPECT_TRUE(a.bytes() == beforeA && b.bytes() == beforeB);
}

TEST(Data, ExchangeOnEveryDepthAndLayoutPlainAndTiled) {
  Capture capture;
  const auto first = [](const ll* v) { return v[0]; };
  for (unsigned depth : kDepths)
    for (const Layout& l : layouts(depth))
      for (bool tiled : {false, true}) {
        Image a = l.make(depth, 0), b = l.make(depth, 2);
        const auto wantB = expected({a, b}, first), wantA = expected({b, a}, first);
        Tiled ta(a, 8, 16), tb(b, 16, 8);
        moxExchange(tiled ? +ta : +a, tiled ? +tb : +b, nullptr);
        if (tiled) ta.gather(a), tb.gather(b);
        for (const auto& call : ta.calls) EXPECT_NE(call.mode, MOX_GET_TILE_TO_READ);
        EXPECT_FALSE(ta.badIndex || tb.badIndex);  // not even for empty rectangles
        EXPECT_EQ(std::tie(wantA, wantB), std::make_tuple(pixels(a), pixels(b)))
            << l.name << " tiled " << tiled << " " << std::hex << depth;
      }
  EXPECT_TRUE(reports().empty());
}

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
  Image a({depth, channels, order, 37, 45}, 21, rois[0]), b({depth, channels, order, 30, 52}, 22, rois[1]),
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
      EXPECT_TRUE(call.image == run[i] && (release || (call.mode == get && (!asked || (call.x == mapping[0] &&
                  call.y == mapping[1]))))) << c.func << " image " << i << " tile " << call.x << "," << call.y;
    }
    EXPECT_TRUE(calls.back().mode == MOX_RELEASE_TILE && (!asked || gets <= 1));
  }
}

TEST(Walk, TiledRunsEqualPlainRuns) {
  Capture capture;
  const TileSet sets[] = {
      {{{8, 8}, {16, 24}, {24, 16}}},  // every image tiled, tiles not aligned with the ROIs
      {{{0, 0}, {0, 0}, {8, 16}}},     // only the destination
      {{{0, 0}, {8, 8}, {0, 0}}},      // only the second source
      {{{64, 64}, {0, 0}, {0, 0}}},    // one tile holds the first source
  };
  const OpCase ops[] = {opNamed("moxAdd"), opNamed("moxSubtract", 7), opNamed("moxAddS"), opNamed("moxNot"),
                        opNamed("moxRShiftS"), opNamed("moxCopy"), opNamed("moxSet", 0)};
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

// The tiles of a large image, 64 x 64 8-bit values each, in one block that
// starts `shift` bytes past a cache line, so every tile's first and last
// line are shared with its neighbours.
struct LargeTiles {
  static constexpr int kSide = 64, kAcross = 64, kDown = 33;  // 4096 x 2112: past kLargeBytes
  LargeTiles(int shift, unsigned char seed) : block(kAcross * kDown * 4096 + 128) {
    start = (64 - reinterpret_cast<std::uintptr_t>(block.data()) % 64) % 64 + std::size_t(shift);
    for (std::size_t i = start; i < block.size(); ++i) block[i] = static_cast<char>((i - start) * 7 + seed);
    info = moxCreateTileInfo(&serve, 0, kSide, kSide);
    image = moxCreateImageHeader(1, 0, MOX_DEPTH_8U, "GRAY", "GRAY", 0, 0, 4, kDown * kSide, kAcross * kSide,
                                 nullptr, this, info);
  }
  ~LargeTiles() { moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_ROI | MOX_FREE_TILEINFO); }
  char* tile(int tx, int ty) { return block.data() + start + std::size_t(ty * kAcross + tx) * 4096; }
  int pixel(int x, int y) {
    return static_cast<unsigned char>(tile(x / kSide, y / kSide)[(y % kSide) * kSide + x % kSide]);
  }
  static void MOX_CALL serve(const MoxImage* im, int x, int y, int mode) {
    im->tileInfo->tileData =
        mode == MOX_RELEASE_TILE ? nullptr : static_cast<LargeTiles*>(im->imageId)->tile(x, y);
  }
  std::vector<char> block;
  std::size_t start;
  MoxTileInfo* info;
  MoxImage* image;
};

// A large destination is stored past the caches, each tile's end lines
// through the cache: whole tiles and tiles cut by a ROI (still past
// kLargeBytes), at several offsets from a line, give what the rule gives and
// leave the bytes beside the ROI as they were.
TEST(Walk, LargeTiledDestinationsOffLineBoundaries) {
  Capture capture;
  constexpr int kW = LargeTiles::kAcross * LargeTiles::kSide, kH = LargeTiles::kDown * LargeTiles::kSide;
  for (const int shift : {0, 16, 40}) {
    for (const bool cut : {false, true}) {
      LargeTiles s(shift, 3), d(64 - shift, 5);
      const int w = cut ? 4066 : kW, h = cut ? 2064 : kH;
      const int sx = cut ? 13 : 0, sy = cut ? 7 : 0, dx = cut ? 29 : 0, dy = cut ? 40 : 0;
      if (cut) {
        s.image->roi = moxCreateROI(0, sx, sy, h, w);
        d.image->roi = moxCreateROI(0, dx, dy, h, w);
      }
      LargeTiles before(64 - shift, 5);
      moxAddS(s.image, d.image, 100, nullptr);
      EXPECT_TRUE(reports().empty());
      int wrong = 0;
      for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
          const bool inside = x >= dx && x < dx + w && y >= dy && y < dy + h;
          const int want = inside ? std::min(s.pixel(x - dx + sx, y - dy + sy) + 100, 255) : before.pixel(x, y);
          wrong += d.pixel(x, y) != want;
        }
      EXPECT_EQ(wrong, 0) << "shift " << shift << " cut " << cut;
    }
  }
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
      {"moxAdd", 0, NullFirst, 1225},   {"moxAdd", 1, NullFirst, 1244},   {"moxAdd", 2, NullFirst, 1263},
      {"moxAdd", 0, KeptSecond, 1288},  {"moxAdd", 0, NullSecond, 1294},  {"moxAdd", 1, KeptSecond, 1309},
      {"moxAdd", 1, NullSecond, 1315},  {"moxAdd", 2, KeptSecond, 1330},  {"moxAdd", 2, NullSecond, 1336},
      {"moxAdd", 0, KeptAtEnd, 1354},   {"moxAdd", 1, KeptAtEnd, 1359},   {"moxAdd", 2, KeptAtEnd, 1364},
      {"moxXor", 1, NullSecond, 946},   {"moxAddS", 0, NullFirst, 1004},  {"moxAddS", 1, NullFirst, 1023},
      {"moxAddS", 0, KeptSecond, 1044}, {"moxAddS", 0, NullSecond, 1050}, {"moxAddS", 1, KeptSecond, 1065},
      {"moxAddS", 1, NullSecond, 1071}, {"moxAddS", 0, KeptAtEnd, 1088},  {"moxAddS", 1, KeptAtEnd, 1093},
      {"moxAbs", 1, KeptAtEnd, 599},
  };
  for (const auto& k : cases) {
    const bool two = opNamed(k.func).sources == 2, kept = k.fault >= KeptSecond;
    const char* names[2][3] = {{"srcImage", "dstImage"}, {"srcImageA", "srcImageB", "dstImage"}};
    const std::string message = std::string("(") + names[two][k.image] + "->tileInfo->tileData " +
                                (kept ? "!=" : "==") + " ((void*)(0)))";
    // A release before a new tile needs two tiles across; at the end one
    // tile each is enough.
    const int width = k.fault == KeptAtEnd ? 8 : 16;
    Image a({MOX_DEPTH_8U, 1, 0, 8, width}, 1), b({MOX_DEPTH_8U, 1, 0, 8, width}, 2), d({MOX_DEPTH_8U, 1, 0, 8, width}, 3);
    Tiled ta(a, 8, 8), tb(b, 8, 8), td(d, 8, 8);
    Tiled* tiled[3] = {&ta, two ? &tb : &td, &td};
    (kept ? tiled[k.image]->keepOnRelease : tiled[k.image]->nullOnGet) = k.fault == NullSecond;
    const int mapping[2] = {0, 0};
    runOp(k.func, ta, tb, td, 5, 0, k.fault == NullFirst ? mapping : nullptr);
    expectReport(k.func, message, k.line);
    EXPECT_TRUE(reports().empty());
    if (k.fault == KeptAtEnd && two) {  // every pixel was written before the release failed
      td.gather(d);
      EXPECT_EQ(get(d, 3, 4), clampTo(MOX_DEPTH_8U, get(a, 3, 4) + get(b, 3, 4)));
    }
  }
}

using mox::OpArgs;
using mox::arith::Blocks;
namespace ar = mox::arith;

// The build's own table of blocks, and the 256-bit one where this processor
// runs it, with the names their failures show.
using Table = std::pair<const char*, const Blocks*>;
std::vector<Table> tables() {
  std::vector<Table> t{{"base", &ar::kBaseBlocks}};
#if defined(MOX_ARITH_HAVE_WIDE)
  if (mox::wideVectors()) t.push_back({"wide", &ar::kWideBlocks});
#endif
  return t;
}

template <class Op, class D>
constexpr bool kBinary = !std::is_invocable_v<decltype(&Op::template apply<D>), typename D::T, const OpArgs&>;

// The rule's own per-value arithmetic.
template <class Op, class D, class T>
T rule(T a, T b, const OpArgs& args) {
  if constexpr (kBinary<Op, D>) return Op::template apply<D>(a, b, args);
  else return Op::template apply<D>(a, args);
}

// Runs the rule as a kernel does (the table's block, then the per-value
// loop) from a (and b) into d.
template <class Op, class D, class T>
void runWith(const Blocks& t, const T* a, const T* b, T* d, std::size_t n, const OpArgs& args) {
  for (std::size_t j = ar::runBlock<D>(t, Op::lane, a, kBinary<Op, D> ? b : nullptr, d, n, args); j < n; ++j)
    d[j] = rule<Op, D>(a[j], b[j], args);
}

// Every value of a narrow depth (all 65536 for 16 bits); for 32 bits the
// edges and steps through the range. The count is odd so the per-value loop
// runs too.
template <class D>
std::vector<typename D::T> values() {
  using T = typename D::T;
  std::vector<T> v;
  const long long step = D::bits < 32 ? 1 : 1234567;
  for (long long x = D::lo; x <= D::hi; x += step) v.push_back(static_cast<T>(x));
  if constexpr (D::bits == 32)
    for (long long e : {-2, -1, 0, 1, 2})
      v.insert(v.end(), {static_cast<T>(e), static_cast<T>(D::lo - e), static_cast<T>(D::hi + e)});
  v.insert(v.end(), {static_cast<T>(D::hi), static_cast<T>(D::lo), 0});
  if (v.size() % 2 == 0) v.push_back(1);
  return v;
}

template <class Op, class... Ds>
void expectSameAsRule(const Table& t, const OpArgs& args, const std::string& what) {
  ([&]<class D>() {
    std::vector<typename D::T> a = values<D>(), b = a, d(a.size());
    std::rotate(b.begin(), b.begin() + 77, b.end());
    runWith<Op, D>(*t.second, a.data(), b.data(), d.data(), a.size(), args);
    for (std::size_t j = 0; j < a.size(); ++j)
      if (d[j] != rule<Op, D>(a[j], b[j], args)) {
        ADD_FAILURE() << t.first << " " << what << " " << D::bits << (D::isSigned ? "S" : "U") << " at "
                      << +a[j] << ", " << +b[j] << ": " << +d[j] << " != " << +rule<Op, D>(a[j], b[j], args);
        return;
      }
  }.template operator()<Ds>(), ...);
}

template <class Op>
void arithmetic(const Table& t, const OpArgs& args, const std::string& what) {
  expectSameAsRule<Op, mox::U8, mox::S8, mox::U16, mox::S16, mox::S32>(t, args, what);
}

template <class Op>
void bitwise(const Table& t, const OpArgs& args, const std::string& what) {
  expectSameAsRule<Op, mox::U8, mox::U16, mox::U32>(t, args, what);
}

// The copy's block (moxCopy's rule keeps it for runs apart from the source).
struct CopyLane {
  static constexpr int lane = ar::kCopy;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs&) { return a; }
};

TEST(KernelBlock, EveryRuleAndDepthMatchesTheRule) {
  for (const Table& t : tables()) {
    bitwise<CopyLane>(t, {}, "Copy");
    arithmetic<ar::Add>(t, {}, "Add");
    arithmetic<ar::Subtract>(t, {}, "Subtract");
    arithmetic<ar::Multiply>(t, {}, "Multiply");
    arithmetic<ar::Square>(t, {}, "Square");
    arithmetic<ar::Abs>(t, {}, "Abs");
    bitwise<ar::And>(t, {}, "And");
    bitwise<ar::Or>(t, {}, "Or");
    bitwise<ar::Xor>(t, {}, "Xor");
    for (int v : {0, 1, -1, 7, -7, 127, 128, -128, -129, 255, 256, -255, -256, 300, 32767, 32768,
                  -32768, -32769, 65535, 65536, -65535, -65536, 70000, INT_MAX, INT_MIN}) {
      OpArgs args;
      args.value = v;
      const std::string what = " value " + std::to_string(v);
      arithmetic<ar::AddS>(t, args, "AddS" + what);
      arithmetic<ar::SubtractS>(t, args, "SubtractS" + what);
      arithmetic<ar::MultiplyS>(t, args, "MultiplyS" + what);
      bitwise<ar::AndS>(t, args, "AndS" + what);
      bitwise<ar::OrS>(t, args, "OrS" + what);
      bitwise<ar::XorS>(t, args, "XorS" + what);
      args.reverse = 1;
      arithmetic<ar::SubtractS>(t, args, "SubtractS reverse" + what);
    }
    for (unsigned shift : {0u, 1u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 25u, 31u, 32u, 33u, 40u}) {
      OpArgs args;
      args.shift = shift;
      arithmetic<ar::RShiftS>(t, args, "RShiftS by " + std::to_string(shift));
      bitwise<ar::LShiftS>(t, args, "LShiftS by " + std::to_string(shift));
    }
  }
}

// Runs of every short length, at every start of the destination, apart from
// the sources, in place, and stored past the caches: every value right and
// nothing written around the run. Long runs are stored past the caches
// whether or not the destination is marked large.
template <class Op, class D>
void everyPlace(const Table& t, const OpArgs& args, const std::string& what) {
  using T = typename D::T;
  for (std::size_t n = 0; n < 160; ++n)
    for (int place = 0; place < 9; ++place) {
      const bool inPlace = place == 8;
      std::vector<T> a(n + 8), b(n + 8), buffer(n + 8, T(0x5A));
      for (std::size_t j = 0; j < a.size(); ++j)
        a[j] = static_cast<T>(j * 7919u + 5), b[j] = static_cast<T>(j * 104729u + 13);
      const std::vector<T> source = a;
      const std::size_t first = inPlace ? 3 : place % 4;
      T* whole = inPlace ? a.data() : buffer.data();
      OpArgs run = args;
      run.stream = place >= 4 && !inPlace;
      runWith<Op, D>(*t.second, a.data() + 3, b.data() + 3, whole + first, n, run);
      for (std::size_t j = 0; j < n + 8; ++j) {
        const bool in = j >= first && j < first + n;
        const T want = in ? rule<Op, D>(source[j - first + 3], b[j - first + 3], args)
                          : inPlace ? source[j] : T(0x5A);
        ASSERT_EQ(+whole[j], +want) << t.first << " " << what << " length " << n << " place " << place << " at " << j;
      }
    }
}

TEST(KernelBlock, EveryLengthAndPlaceMatchesTheRule) {
  OpArgs args;
  args.value = 77;
  for (const Table& t : tables()) {
    everyPlace<ar::Add, mox::U8>(t, {}, "Add");
    everyPlace<ar::Multiply, mox::S16>(t, {}, "Multiply");
    everyPlace<ar::Subtract, mox::S32>(t, {}, "Subtract");
    everyPlace<ar::XorS, mox::U8>(t, args, "XorS");
    everyPlace<ar::AddS, mox::U16>(t, args, "AddS");
    const std::size_t n = ar::kStreamBytes + 29;
    std::vector<std::uint8_t> a(n), b(n), d(n);
    for (std::size_t j = 0; j < n; ++j)
      a[j] = static_cast<std::uint8_t>(j * 7919u), b[j] = static_cast<std::uint8_t>(j * 104729u + 13);
    runWith<ar::Add, mox::U8>(*t.second, a.data() + 1, b.data() + 1, d.data() + 1, n - 1, {});
    std::size_t wrong = 0;
    for (std::size_t j = 1; j < n; ++j) wrong += d[j] != ar::Add::apply<mox::U8>(a[j], b[j], {});
    EXPECT_EQ(wrong, 0u) << t.first << " long sum";
  }
}

}  // namespace
