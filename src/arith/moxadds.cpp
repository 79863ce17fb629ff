// moxAddS: an image plus a scalar, saturated.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {1004, 1023, 1044, 1050, 1065, 1071, 1088, 1093};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxAddS", "moxadds", 891, 893, 907, 959, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxAddS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                         const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  mox::runUnary<mox::arith::AddS>(kTable, srcImage, dstImage, mapping, args);
}
