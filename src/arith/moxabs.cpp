// moxAbs: the absolute value of an image.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {510, 529, 550, 556, 571, 577, 594, 599};
constexpr mox::OpTable kTable = mox::unaryTable("moxAbs", "moxabs", 404, 406, 420, 465, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxAbs(const MoxImage* srcImage, MoxImage* dstImage,
                                        const int* mapping) {
  mox::runUnary<mox::arith::Abs>(kTable, srcImage, dstImage, mapping);
}
