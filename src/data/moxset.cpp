// moxSet: a value, cut to the depth, into the ROI (its channel of interest
// only, when one is set).
#include <cstring>

#include "image/pointop.h"

namespace {

struct Set : mox::Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(const mox::OpArgs& s) {
    return D::cut(s.value);
  }
  template <class D, class T>
  static std::size_t block(T* d, std::size_t n, const mox::OpArgs& s) {
    if constexpr (sizeof(T) != 1) return 0;
    std::memset(d, static_cast<unsigned char>(s.value), n);
    return n;
  }
};

constexpr mox::OpTable kTable{"moxSet",
                              "moxset",
                              1,
                              {"image", nullptr, nullptr},
                              {"nChImage", nullptr, nullptr},
                              {52, 0, 0},
                              {},
                              {},
                              {},
                              {{80, 81, 82, 83}, {101, 106, 108, 112}}};

}  // namespace

extern "C" MOX_API void MOX_CALL moxSet(MoxImage* image, int fillValue, const int* mapping) {
  mox::OpArgs args;
  args.value = fillValue;
  const MoxImage* images[1] = {image};
  mox::runPointOp(kTable, images, mapping, &mox::pickKernel<Set, 1>, args);
}
