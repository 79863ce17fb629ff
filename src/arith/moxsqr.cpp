// moxSquare: the saturated square of an image.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {937, 956, 977, 983, 998, 1004, 1021, 1026};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxSquare", "moxsqr", 824, 826, 840, 892, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxSquare(const MoxImage* srcImage, MoxImage* dstImage,
                                           const int* mapping) {
  mox::runUnary<mox::arith::Square>(kTable, srcImage, dstImage, mapping);
}
