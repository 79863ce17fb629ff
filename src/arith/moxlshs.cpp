// moxLShiftS: the stored bits shifted left, without saturation.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {680, 699, 720, 726, 741, 747, 764, 769};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxLShiftS", "moxlshs", 567, 569, 583, 635, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxLShiftS(const MoxImage* srcImage, MoxImage* dstImage,
                                            unsigned int nShift, const int* mapping) {
  mox::OpArgs args;
  args.shift = nShift;
  mox::runUnary<mox::arith::LShiftS>(kTable, srcImage, dstImage, mapping, args);
}
