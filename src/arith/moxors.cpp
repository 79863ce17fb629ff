// moxOrS: an image OR a scalar cut to the storage size.
#include "arith/arith.h"

namespace {
constexpr int kTileLines[8] = {790, 809, 830, 836, 851, 857, 879, 884};
constexpr mox::OpTable kTable = mox::unaryTable("moxOrS", "moxors", 676, 678, 692, 745, kTileLines);
}  // namespace

extern "C" MOX_API void MOX_CALL moxOrS(const MoxImage* srcImage, MoxImage* dstImage, int value,
                                        const int* mapping) {
  mox::OpArgs args;
  args.value = value;
  mox::runUnary<mox::arith::OrS>(kTable, srcImage, dstImage, mapping, args);
}
