// moxRShiftS: values shifted right.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {912, 931, 952, 958, 973, 979, 996, 1001};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxRShiftS", "moxshfts", 799, 801, 815, 867, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxRShiftS(const MoxImage* srcImage, MoxImage* dstImage,
                                            unsigned int nShift, const int* mapping) {
  mox::OpArgs args;
  args.shift = nShift;
  mox::runUnary<mox::arith::RShiftS>(kTable, srcImage, dstImage, mapping, args);
}
