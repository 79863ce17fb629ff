// moxXor: bitwise XOR of two images.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[12] = {856, 875, 894, 919, 925, 940, 946, 961, 967, 985, 990, 995};
constexpr mox::OpTable kTable =
    mox::binaryTable("moxXor", "moxxor", 723, 726, 747, 804, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxXor(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                        MoxImage* dstImage, const int* mapping) {
  mox::runBinary<mox::arith::Xor>(kTable, srcImageA, srcImageB, dstImage, mapping);
}
