// moxMultiply: the saturated product of two images (not scaled).
#include "arith/arith.h"

namespace {
constexpr int kTileLines[12] = {1136, 1155, 1174, 1199, 1205, 1220,
                                1226, 1241, 1247, 1265, 1270, 1275};
constexpr mox::OpTable kTable =
    mox::binaryTable("moxMultiply", "moxmul", 999, 1002, 1023, 1084, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxMultiply(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                             MoxImage* dstImage, const int* mapping) {
  mox::runBinary<mox::arith::Multiply>(kTable, srcImageA, srcImageB, dstImage, mapping);
}
