// moxAndS: an image AND a scalar cut to the storage size.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {791, 810, 831, 837, 852, 858, 880, 885};
constexpr mox::OpTable kTable =
    mox::unaryTable("moxAndS", "moxands", 676, 678, 692, 746, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxAndS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                         const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  mox::runUnary<mox::arith::AndS>(kTable, srcImage, dstImage, mapping, args);
}
