// moxXorS: an image XOR a scalar cut to the storage size, and NOT.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {791, 810, 831, 837, 852, 858, 880, 885};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxXorS", "moxxors", 677, 679, 693, 746, kTileLines);
// NOT runs the same checks and walk, reported under its own name.
constexpr mox::OpTable kNotTable =
    mox::unaryTable("moxNot", "moxxors", 677, 679, 693, 746, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxXorS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                         const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  mox::runUnary<mox::arith::XorS>(kTable, srcImage, dstImage, mapping, args);
}

// NOT is XOR with every bit set.
extern "C" MOX_API void MOX_CALL moxNot(const MoxImage* srcImage, MoxImage* dstImage,
                                        const int* mapping) {
  mox::OpArgs args;
  args.value = -1;
  mox::runUnary<mox::arith::XorS>(kNotTable, srcImage, dstImage, mapping, args);
}
