// moxSubtract: the saturated difference of two images, either way round.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[12] = {1810, 1829, 1848, 1873, 1879, 1894,
                                1900, 1915, 1921, 1939, 1944, 1949};
constexpr mox::OpTable kTable =
    mox::binaryTable("moxSubtract", "moxsub", 1673, 1676, 1697, 1758, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxSubtract(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                             MoxImage* dstImage, int reverse, const int* mapping) {
  mox::OpArgs args;
  args.reverse = reverse;
  mox::runBinary<mox::arith::Subtract>(kTable, srcImageA, srcImageB, dstImage, mapping, args);
}
