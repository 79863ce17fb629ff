// moxMultiplyS: an image times a scalar, saturated.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {965, 984, 1005, 1011, 1026, 1032, 1049, 1054};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxMultiplyS", "moxmuls", 852, 854, 868, 920, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxMultiplyS(const MoxImage* srcImage, MoxImage* dstImage,
                                              int value, const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  mox::runUnary<mox::arith::MultiplyS>(kTable, srcImage, dstImage, mapping, args);
}
