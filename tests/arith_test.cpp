// Arithmetic, logic, copy and set: every rule on every depth against a
// reference, on whole images, ROIs, channels of interest, plane order, packed
// bits at odd offsets and in place; then the checks with their messages and
// lines; exchange on plain and tiled images.
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

// Pins the references themselves where the rules saturate, wrap or shift.
TEST(Arith, KnownValues) {
  const unsigned U1 = MOX_DEPTH_1U, U8 = MOX_DEPTH_8U, S8 = MOX_DEPTH_8S, U16 = MOX_DEPTH_16U,
                 S16 = MOX_DEPTH_16S, S32 = MOX_DEPTH_32S;
  // (plain saturation on every depth runs with the layouts below)
  // Operation, depth, sources, scalar or shift count, reverse flag, result.
  const struct { const char* func; unsigned depth; ll a, b; int v, r; ll want; } cases[] = {
      {"Subtract", U8, 100, 200, 0, 1, 100},          {"Add", U1, 1, 1, 0, 0, 1},
      {"Add", S32, 0x7FFFFFFF, 1, 0, 0, 0x7FFFFFFF},  {"Subtract", S32, INT_MIN, 1, 0, 0, INT_MIN},
      {"Multiply", S32, 65536, -65536, 0, 0, INT_MIN}, {"Square", S32, 70000, 0, 0, 0, 0x7FFFFFFF},
      {"Add", S16, 30000, 10000, 0, 0, 32767},        {"Subtract", S8, -100, 100, 0, 0, -128},
      {"Add", U16, 60000, 10000, 0, 0, 65535},        {"SubtractS", U8, 3, 0, 10, 1, 7},
      {"AndS", U8, 0xAB, 0, 0x1FF, 0, 0xAB},          {"Not", U8, 0x0F, 0, 0, 0, 0xF0},
      {"RShiftS", S8, -100, 0, 2, 0, -25},            {"RShiftS", S16, -1, 0, 17, 0, 32767},
      {"RShiftS", U8, 200, 0, 8, 0, 0},               {"RShiftS", S32, -8, 0, 2, 0, -2},
      {"LShiftS", U8, 0x81, 0, 33, 0, 0x02},          {"LShiftS", U8, 0x81, 0, 8, 0, 0},
      {"Abs", S8, -128, 0, 0, 0, -128},               {"Abs", S16, -32768, 0, 0, 0, -32768},
      {"Abs", S32, INT_MIN, 0, 0, 0, INT_MIN},
  };
  for (const auto& k : cases) {
    Image a({k.depth, 1, 0, 1, 1}), b({k.depth, 1, 0, 1, 1}), d({k.depth, 1, 0, 1, 1});
    set(a, 0, 0, 0, k.a);
    set(b, 0, 0, 0, k.b);
    runOp(std::string("mox") + k.func, a, b, d, k.v, k.r, nullptr);
    EXPECT_EQ(get(d, 0, 0), k.want) << k.func << " " << k.a << "," << k.b << " " << std::hex
                                    << k.depth;
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

// Every check of every operation: its text and line; nothing written.
TEST(ArithChecks, EveryCheckReportsItsTextAndLineAndWritesNothing) {
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
      {0, kHeader, M(m->widthStep = 5),
       "(srcImage@->widthStep < the bytes of srcImage@->width pixels)"},
      {0, kHeader, M(m->imageSize -= 1),
       "(srcImage@->imageSize < the bytes of srcImage@->height rows)"},
      // (the spoilt layouts below are never read: the checks stop first)
      {0, kDepth, M(m->depth = MOX_DEPTH_16U, m->widthStep *= 2, m->imageSize *= 2),
       "(srcImage@->depth != dstImage->depth)"},
      {1, kDepth, M(m->depth = MOX_DEPTH_8S), "(srcImage@->depth != dstImage->depth)"},
      {0, kOrder, M(m->dataOrder = 1, m->imageSize *= 2),
       "(srcImage@->dataOrder != dstImage->dataOrder)"},
      {1, kOrder, M(m->dataOrder = 1, m->imageSize *= 2),
       "(srcImage@->dataOrder != dstImage->dataOrder)"},
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
      Image a({MOX_DEPTH_8U, 2, 0, 4, 6}, 1), b({MOX_DEPTH_8U, 2, 0, 4, 6}, 2),
          d({MOX_DEPTH_8U, 2, 0, 4, 6}, 3);
      MoxImage* m[3] = {a, b, d};
      if (s.spoil) s.spoil(m[s.image]);
      else m[s.image] = nullptr;
      const auto before = d.bytes();
      runOp(l.func, m[0], m[1], m[2], 1, 0, nullptr);
      expectReport(l.func == std::string("moxNot") ? "moxXorS" : l.func, text, line, l.file);
      EXPECT_TRUE(reports().empty());
      EXPECT_EQ(d.bytes(), before) << l.func << " " << text;
    }
}

// ---------------------------------------------------------------- exchange

TEST(Data, ExchangeOnEveryDepthAndLayoutPlainAndTiled) {
  Capture capture;
  const auto first = [](const ll* v) { return v[0]; };
  for (unsigned depth : kDepths)
    for (const Layout& l : layouts(depth))
      for (bool tiled : {false, true}) {
        Image a = l.make(depth, 0), b = l.make(depth, 2);
        const auto wantB = expected({a, b}, first), wantA = expected({b, a}, first);
        if (tiled) {
          Tiled ta(a, 8, 16), tb(b, 16, 8);
          moxExchange(ta, tb, nullptr);
          ta.gather(a);
          tb.gather(b);
          for (const auto& call : ta.calls) EXPECT_NE(call.mode, MOX_GET_TILE_TO_READ);
          EXPECT_FALSE(ta.badIndex || tb.badIndex);  // not even for empty rectangles
        } else {
          moxExchange(a, b, nullptr);
        }
        EXPECT_EQ(pixels(a), wantA) << l.name << " tiled " << tiled << " " << std::hex << depth;
        EXPECT_EQ(pixels(b), wantB) << l.name << " tiled " << tiled << " " << std::hex << depth;
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Data, ChecksReportAndWriteNothing) {
  Capture capture;
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
  EXPECT_EQ(a.bytes(), beforeA);
  EXPECT_EQ(b.bytes(), beforeB);
}
