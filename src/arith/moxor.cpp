// moxOr: bitwise OR of two images.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[12] = {852, 871, 890, 915, 921, 936, 942, 957, 963, 981, 986, 991};
constexpr mox::OpTable kTable = mox::binaryTable("moxOr", "moxor", 719, 722, 743, 800, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxOr(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                       MoxImage* dstImage, const int* mapping) {
  mox::runBinary<mox::arith::Or>(kTable, srcImageA, srcImageB, dstImage, mapping);
}
