// moxCopy: the ROI of one image into the ROI of another.
#include <cstdint>
#include <cstring>

#include "arith/arith.h"

namespace {

struct Copy : mox::Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const mox::OpArgs&) {
    return a;
  }
  // Runs apart from their source take the vector blocks (which write large
  // destinations past the caches); overlapping ones are moved.
  template <class D, class T>
  static std::size_t block(const T* s, T* d, std::size_t n, const mox::OpArgs& args) {
    const auto from = reinterpret_cast<std::uintptr_t>(s), to = reinterpret_cast<std::uintptr_t>(d);
    const std::uintptr_t bytes = n * sizeof(T);
    if (from + bytes <= to || to + bytes <= from)
      return mox::arith::runBlock<D>(mox::arith::blocksFor(bytes, args), mox::arith::kCopy, s,
                                     nullptr, d, n, args);
    if (s != d) std::memmove(d, s, bytes);
    return n;
  }
};

constexpr int kTileLines[8] = {130, 134, 141, 143, 148, 150, 158, 160};
constexpr mox::OpTable kTable = mox::unaryTable("moxCopy", "moxcopy", 61, 63, 70, 120, kTileLines);

}  // namespace

extern "C" MOX_API void MOX_CALL moxCopy(const MoxImage* srcImage, MoxImage* dstImage,
                                         const int* mapping) {
  mox::runUnary<Copy>(kTable, srcImage, dstImage, mapping);
}
