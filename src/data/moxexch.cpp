// moxExchange: swaps the ROI contents of two images.
#include <algorithm>

#include "image/pointop.h"

namespace {

template <class T>
void exchangeKernel(const mox::View* v, const void*) {
  mox::forEachLane<T, 2>(v, [](T** p, int* stride, int count) {
    if (stride[0] == 1 && stride[1] == 1) {
      std::swap_ranges(p[0], p[0] + count, p[1]);
      return;
    }
    for (std::ptrdiff_t j = 0; j < count; ++j) std::swap(p[0][j * stride[0]], p[1][j * stride[1]]);
  });
}

// Packed bits: both rows are read before either is written.
void exchangeBits(const mox::View* v, const void*) {
  unsigned char a[mox::kBitChunk], b[mox::kBitChunk];
  for (int y = 0; y < v[1].height; ++y) {
    for (int x0 = 0, w = 0; x0 < v[1].width; x0 += w) {
      w = std::min(v[1].width - x0, mox::kBitChunk * 8);
      mox::readBits(v[0], y, x0, w, a);
      mox::readBits(v[1], y, x0, w, b);
      mox::writeBits(v[0], y, x0, w, b);
      mox::writeBits(v[1], y, x0, w, a);
    }
  }
}

mox::Kernel pickExchange(unsigned depth) {
  switch (mox::depthBits(depth)) {
    case 1:
      return &exchangeBits;
    case 8:
      return &exchangeKernel<unsigned char>;
    case 16:
      return &exchangeKernel<unsigned short>;
    default:
      return &exchangeKernel<unsigned int>;
  }
}

constexpr int kTileLines[8] = {131, 135, 142, 144, 149, 151, 159, 161};
constexpr mox::OpTable kTable{"moxExchange",
                              "moxexch",
                              2,
                              {"imageA", "imageB", nullptr},
                              {"nChA", "nChB", nullptr},
                              {60, 61, 0},
                              {63, 0},
                              {64, 0},
                              {70, 0},
                              {{121, 122, 123, 124}, {}}};

constexpr mox::OpTable withTileLines(mox::OpTable t) {
  for (int i = 0; i < 8; ++i) t.walk.tileData[i] = kTileLines[i];
  return t;
}
constexpr mox::OpTable kExchange = withTileLines(kTable);

}  // namespace

extern "C" MOX_API void MOX_CALL moxExchange(MoxImage* imageA, MoxImage* imageB,
                                             const int* mapping) {
  const MoxImage* images[2] = {imageA, imageB};
  mox::runPointOp(kExchange, images, mapping, &pickExchange, mox::OpArgs{}, true);
}
