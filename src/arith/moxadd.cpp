// moxAdd: the saturated sum of two images.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[12] = {1225, 1244, 1263, 1288, 1294, 1309,
                                1315, 1330, 1336, 1354, 1359, 1364};
constexpr mox::OpTable kTable =
    mox::binaryTable("moxAdd", "moxadd", 1088, 1091, 1112, 1173, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxAdd(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                        MoxImage* dstImage, const int* mapping) {
  mox::runBinary<mox::arith::Add>(kTable, srcImageA, srcImageB, dstImage, mapping);
}
