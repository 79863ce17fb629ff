// Arithmetic and logic: every rule on every depth against a reference, on
// whole images, ROIs, channels of interest, plane order, packed bits at odd
// offsets and in place; then the checks with their messages and lines.
#include <gtest/gtest.h>

#include "op_cases.h"

using namespace testimg;

namespace {

// Known values of the rules (1x1 images).
struct Known {
  const char* op;
  unsigned depth;
  ll a, b;
  int value;  // scalar, shift count or reverse flag
  ll want;
};

ll runKnown(const Known& k) {
  Image a({k.depth, 1, 0, 1, 1}), b({k.depth, 1, 0, 1, 1}), d({k.depth, 1, 0, 1, 1});
  set(a, 0, 0, 0, k.a);
  set(b, 0, 0, 0, k.b);
  const std::string op = k.op;
  if (op == "Add") moxAdd(a, b, d, nullptr);
  if (op == "Subtract") moxSubtract(a, b, d, k.value, nullptr);
  if (op == "Multiply") moxMultiply(a, b, d, nullptr);
  if (op == "AddS") moxAddS(a, d, k.value, nullptr);
  if (op == "SubtractS") moxSubtractS(a, d, 10, k.value, nullptr);
  if (op == "AndS") moxAndS(a, d, k.value, nullptr);
  if (op == "Not") moxNot(a, d, nullptr);
  if (op == "RShiftS") moxRShiftS(a, d, static_cast<unsigned>(k.value), nullptr);
  if (op == "LShiftS") moxLShiftS(a, d, static_cast<unsigned>(k.value), nullptr);
  if (op == "Abs") moxAbs(a, d, nullptr);
  if (op == "Square") moxSquare(a, d, nullptr);
  return get(d, 0, 0);
}

}  // namespace

TEST(Arith, KnownValues) {
  const Known cases[] = {
      {"Multiply", MOX_DEPTH_8U, 10, 20, 0, 200},
      {"Multiply", MOX_DEPTH_8U, 20, 20, 0, 255},
      {"Add", MOX_DEPTH_8U, 200, 100, 0, 255},
      {"Subtract", MOX_DEPTH_8U, 100, 200, 0, 0},
      {"Subtract", MOX_DEPTH_8U, 100, 200, 1, 100},
      {"Add", MOX_DEPTH_8S, 100, 100, 0, 127},
      {"Subtract", MOX_DEPTH_8S, -100, 100, 0, -128},
      {"Add", MOX_DEPTH_16S, 30000, 10000, 0, 32767},
      {"Add", MOX_DEPTH_32S, 0x7FFFFFFF, 1, 0, 0x7FFFFFFF},
      {"Subtract", MOX_DEPTH_32S, -2147483647LL - 1, 1, 0, -2147483647LL - 1},
      {"Multiply", MOX_DEPTH_32S, 65536, -65536, 0, -2147483647LL - 1},
      {"Add", MOX_DEPTH_1U, 1, 1, 0, 1},
      {"AddS", MOX_DEPTH_8U, 250, 0, 10, 255},
      {"AddS", MOX_DEPTH_8U, 5, 0, -10, 0},
      {"SubtractS", MOX_DEPTH_8U, 3, 0, 1, 7},
      {"AndS", MOX_DEPTH_8U, 0xAB, 0, 0x1FF, 0xAB},
      {"Not", MOX_DEPTH_8U, 0x0F, 0, 0, 0xF0},
      {"RShiftS", MOX_DEPTH_8S, -100, 0, 2, -25},
      {"RShiftS", MOX_DEPTH_16S, -1, 0, 17, 32767},
      {"RShiftS", MOX_DEPTH_8U, 200, 0, 8, 0},
      {"RShiftS", MOX_DEPTH_32S, -8, 0, 2, -2},
      {"LShiftS", MOX_DEPTH_8U, 0x81, 0, 1, 0x02},
      {"LShiftS", MOX_DEPTH_8U, 0x81, 0, 33, 0x02},
      {"LShiftS", MOX_DEPTH_8U, 0x81, 0, 8, 0},
      {"Abs", MOX_DEPTH_8S, -128, 0, 0, -128},
      {"Abs", MOX_DEPTH_16S, -32768, 0, 0, -32768},
      {"Abs", MOX_DEPTH_32S, -2147483647LL - 1, 0, 0, -2147483647LL - 1},
      {"Abs", MOX_DEPTH_16S, -300, 0, 0, 300},
      {"Square", MOX_DEPTH_32S, 70000, 0, 0, 0x7FFFFFFF},
  };
  for (const Known& k : cases)
    EXPECT_EQ(runKnown(k), k.want)
        << k.op << " " << k.a << "," << k.b << " depth " << std::hex << k.depth;
}

// Layouts every rule runs on, per depth.
struct Layout {
  const char* name;
  Shape a, b, d;
  int roi[3][5];  // coi, x, y, h, w per image; h 0 = no ROI
};

std::vector<Layout> layouts(unsigned depth) {
  const bool bit = depth == MOX_DEPTH_1U;
  const int ch = bit ? 1 : 3;
  std::vector<Layout> v = {
      {"whole", {depth, ch, 0, 9, 13}, {depth, ch, 0, 9, 13}, {depth, ch, 0, 9, 13}, {}},
      {"rois",
       {depth, ch, 0, 12, 40},
       {depth, ch, 0, 9, 35},
       {depth, ch, 0, 14, 50},
       {{0, 3, 1, 8, 30}, {0, 5, 2, 7, 29}, {0, 11, 4, 9, 33}}},
      {"plane",
       {depth, ch, 1, 12, 40},
       {depth, ch, 1, 9, 35},
       {depth, ch, 1, 14, 50},
       {{0, 1, 1, 8, 30}, {0, 0, 2, 5, 29}, {0, 7, 3, 20, 26}}},
  };
  if (!bit) {
    v.push_back({"coi",
                 {depth, 3, 0, 10, 20},
                 {depth, 1, 0, 10, 20},
                 {depth, 4, 0, 10, 20},
                 {{2, 1, 1, 6, 15}, {0, 2, 0, 8, 17}, {4, 3, 2, 8, 16}}});
    v.push_back({"coiPlane",
                 {depth, 3, 1, 10, 20},
                 {depth, 2, 1, 10, 20},
                 {depth, 1, 1, 10, 20},
                 {{3, 1, 1, 6, 15}, {1, 2, 0, 8, 17}, {0, 3, 2, 8, 16}}});
  } else {
    v.push_back({"bitsOddOffsets",
                 {depth, 1, 0, 5, 70},
                 {depth, 1, 0, 5, 70},
                 {depth, 1, 0, 5, 70},
                 {{0, 3, 0, 5, 37}, {0, 13, 1, 4, 40}, {0, 5, 1, 4, 39}}});
    v.push_back({"bitsInsideOneByte",
                 {depth, 1, 0, 3, 16},
                 {depth, 1, 0, 3, 16},
                 {depth, 1, 0, 3, 16},
                 {{0, 1, 0, 2, 3}, {0, 6, 0, 2, 7}, {0, 2, 1, 2, 4}}});
  }
  return v;
}

void applyRoi(Image& im, const int* r) {
  if (r[3]) im.roi(r[0], r[1], r[2], r[3], r[4]);
}

TEST(Arith, EveryRuleOnEveryDepthAndLayout) {
  Capture capture;
  const auto ops = allOps();
  for (unsigned depth : kDepths)
    for (const Layout& l : layouts(depth))
      for (const OpCase& c : ops) {
        SCOPED_TRACE(l.name);
        Image a(l.a, 11), b(l.b, 12), d(l.d, 13);
        applyRoi(a, l.roi[0]);
        applyRoi(b, l.roi[1]);
        applyRoi(d, l.roi[2]);
        checkCase(c, a, b, d);
      }
  EXPECT_TRUE(reports().empty());
}

TEST(Arith, InPlace) {
  Capture capture;
  for (unsigned depth : kDepths)
    for (const OpCase& c : allOps()) {
      Image a({depth, 1, 0, 6, 45}, 3), b({depth, 1, 0, 6, 45}, 4);
      a.roi(0, 3, 1, 4, 33);
      b.roi(0, 3, 1, 4, 33);
      checkCase(c, a, b, a);  // destination is the first source
      if (c.sources == 2) checkCase(c, a, b, b);
    }
}

// ---------------------------------------------------------------- checks

namespace {

struct Lines {
  const char* func;
  const char* file;
  int sources;
  int header[3];               // srcImageA, srcImageB, dstImage (or srcImage, dstImage)
  int depth, order, channels;  // of the first source
};

void callOp(const char* func, MoxImage* a, MoxImage* b, MoxImage* d) {
  const std::string f = func;
  if (f == "moxAdd") moxAdd(a, b, d, nullptr);
  if (f == "moxSubtract") moxSubtract(a, b, d, 0, nullptr);
  if (f == "moxMultiply") moxMultiply(a, b, d, nullptr);
  if (f == "moxAnd") moxAnd(a, b, d, nullptr);
  if (f == "moxOr") moxOr(a, b, d, nullptr);
  if (f == "moxXor") moxXor(a, b, d, nullptr);
  if (f == "moxAddS") moxAddS(a, d, 1, nullptr);
  if (f == "moxSubtractS") moxSubtractS(a, d, 1, 0, nullptr);
  if (f == "moxMultiplyS") moxMultiplyS(a, d, 1, nullptr);
  if (f == "moxAndS") moxAndS(a, d, 1, nullptr);
  if (f == "moxOrS") moxOrS(a, d, 1, nullptr);
  if (f == "moxXorS") moxXorS(a, d, 1, nullptr);
  if (f == "moxLShiftS") moxLShiftS(a, d, 1, nullptr);
  if (f == "moxRShiftS") moxRShiftS(a, d, 1, nullptr);
  if (f == "moxSquare") moxSquare(a, d, nullptr);
  if (f == "moxAbs") moxAbs(a, d, nullptr);
}

const Lines kLines[] = {
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
};

}  // namespace

TEST(ArithChecks, EveryCheckReportsItsTextAndLineAndWritesNothing) {
  Capture capture;
  for (const Lines& l : kLines) {
    const bool two = l.sources == 2;
    const std::string a = two ? "srcImageA" : "srcImage", nch = two ? "nChSrcA" : "nChSrc";
    // Spoils fresh images (or leaves argument `null` out), runs the
    // operation and expects the one report; the destination stays as it was.
    auto attempt = [&](void (*spoil)(MoxImage**), const std::string& message, int line,
                       int null = -1) {
      Image ia({MOX_DEPTH_8U, 2, 0, 4, 6}, 1), ib({MOX_DEPTH_8U, 2, 0, 4, 6}, 2),
          id({MOX_DEPTH_8U, 2, 0, 4, 6}, 3);
      MoxImage* m[3] = {ia, ib, id};
      spoil(m);
      const auto before = id.bytes();
      if (null >= 0) m[null] = nullptr;
      callOp(l.func, m[0], m[1], m[2]);
      expectReport(l.func, message, line, l.file);
      EXPECT_EQ(id.bytes(), before) << l.func << " " << message;
    };
    auto none = [](MoxImage**) {};
    attempt([](MoxImage** m) { m[0]->align = 3; }, "Image align is invalid", l.header[0]);
    attempt(none, "Image header is null", l.header[two ? 2 : 1], 2);
    attempt([](MoxImage** m) { m[0]->widthStep = 5; },
            "(" + a + "->widthStep < the bytes of " + a + "->width pixels)", l.header[0]);
    attempt([](MoxImage** m) { m[0]->imageSize -= 1; },
            "(" + a + "->imageSize < the bytes of " + a + "->height rows)", l.header[0]);
    // (the spoilt layouts below are never read: the checks stop first)
    attempt(
        [](MoxImage** m) {
          m[0]->depth = MOX_DEPTH_16U, m[0]->widthStep *= 2, m[0]->imageSize *= 2;
        },
        "(" + a + "->depth != dstImage->depth)", l.depth);
    attempt([](MoxImage** m) { m[0]->dataOrder = 1, m[0]->imageSize *= 2; },
            "(" + a + "->dataOrder != dstImage->dataOrder)", l.order);
    attempt([](MoxImage** m) { m[2]->roi = moxCreateROI(2, 0, 0, 4, 4); },
            "(" + nch + " != nChDst)", l.channels);
    if (!two) continue;
    attempt(none, "Image header is null", l.header[1], 1);
    attempt([](MoxImage** m) { m[1]->depth = MOX_DEPTH_8S; },
            "(srcImageB->depth != dstImage->depth)", l.depth + 1);
    attempt([](MoxImage** m) { m[1]->dataOrder = 1, m[1]->imageSize *= 2; },
            "(srcImageB->dataOrder != dstImage->dataOrder)", l.order + 1);
    attempt([](MoxImage** m) { m[1]->roi = moxCreateROI(1, 0, 0, 4, 4); }, "(nChSrcB != nChDst)",
            l.channels + 1);
  }
}

TEST(ArithChecks, NotReportsAsXorWithAllBitsSet) {
  Capture capture;
  Image a({MOX_DEPTH_8U, 1, 0, 2, 2}), d({MOX_DEPTH_16U, 1, 0, 2, 2});
  moxNot(a, d, nullptr);
  expectReport("moxXorS", "(srcImage->depth != dstImage->depth)", 679, "moxxors");
}

TEST(ArithChecks, RoiOutsideTheImageWritesNothing) {
  Capture capture;
  Image a({MOX_DEPTH_8U, 1, 0, 8, 8}), b({MOX_DEPTH_8U, 1, 0, 8, 8}), d({MOX_DEPTH_8U, 1, 0, 8, 8});
  a.roi(0, 20, 30, 100, 100);
  d.roi(0, 7, 7, 1000, 1000);
  const auto before = d.bytes();
  moxAdd(a, b, d, nullptr);
  moxAdd(b, b, d, nullptr);  // d's ROI is one pixel: only (7, 7) changes
  EXPECT_TRUE(reports().empty());
  auto after = d.bytes();
  EXPECT_EQ(get(d, 7, 7), clampTo(MOX_DEPTH_8U, 2 * get(b, 0, 0)));
  after[static_cast<size_t>(7 * d->widthStep + 7)] =
      before[static_cast<size_t>(7 * d->widthStep + 7)];
  EXPECT_EQ(after, before);
}
