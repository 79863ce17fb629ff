// moxSubtractS: an image minus a scalar (or the scalar minus the image), saturated.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {1501, 1520, 1541, 1547, 1562, 1568, 1585, 1590};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxSubtractS", "moxsubs", 1388, 1390, 1404, 1456, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxSubtractS(const MoxImage* srcImage, MoxImage* dstImage,
                                              int value, int reverse, const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  args.reverse = reverse;
  mox::runUnary<mox::arith::SubtractS>(kTable, srcImage, dstImage, mapping, args);
}
