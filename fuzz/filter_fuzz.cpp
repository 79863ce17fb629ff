// Neighbourhood operations: convolution with any kernels, box filters and
// morphology, with any window, anchor and border modes.
#include <cstdint>
#include <vector>

#include "fuzz_images.h"

namespace {

MoxConvKernel* kernel(FuzzedDataProvider& in, fuzz::ImageMaker& maker) {
  const int nCols = maker.smallInt(-1, 7), nRows = maker.smallInt(-1, 7);
  std::vector<int> values(64);
  for (int& v : values) v = in.ConsumeIntegralInRange<int>(-300, 300);
  const bool fits = nCols > 0 && nRows > 0 && nCols * 1LL * nRows <= 64;
  return moxCreateConvKernel(nCols, nRows, maker.smallInt(-1, 7), maker.smallInt(-1, 7),
                             fits ? values.data() : nullptr, maker.smallInt(-1, 33));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::runOnSourceAndDestination(data, size, [](FuzzedDataProvider& in,
                                                        fuzz::ImageMaker& maker, MoxImage* src,
                                                        MoxImage* dst) {
    if (in.ConsumeBool())
      moxSetBorderMode(src, maker.smallInt(-1, 4), in.ConsumeIntegralInRange<int>(0, 15), maker.smallInt(-300, 300));
    const int nCols = maker.smallInt(-1, 9), nRows = maker.smallInt(-1, 9);
    const int anchorX = maker.smallInt(-1, 9), anchorY = maker.smallInt(-1, 9);
    const int iterations = in.ConsumeIntegralInRange<int>(-1, 3);
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
      case 0: moxBlur(src, dst, nCols, nRows, anchorX, anchorY); break;
      case 1: moxMinFilter(src, dst, nCols, nRows, anchorX, anchorY); break;
      case 2: moxMaxFilter(src, dst, nCols, nRows, anchorX, anchorY); break;
      case 3: moxMedianFilter(src, dst, nCols, nRows, anchorX, anchorY); break;
      case 4: moxErode(src, dst, iterations); break;
      case 5: moxDilate(src, dst, iterations); break;
      case 6: moxOpen(src, dst, iterations); break;
      case 7: moxClose(src, dst, iterations); break;
      case 8: {
        MoxConvKernel* kernels[3] = {};
        const int n = in.ConsumeIntegralInRange<int>(0, 3);
        for (int i = 0; i < n; ++i) kernels[i] = kernel(in, maker);
        moxConvolve2D(src, dst, n ? kernels : nullptr, in.ConsumeIntegralInRange<int>(-1, 5) == 5 ? 101 : n,
                      maker.smallInt(-1, 5));
        for (MoxConvKernel* k : kernels) moxDeleteConvKernel(k);
        break;
      }
      default: {
        MoxConvKernel* x = in.ConsumeBool() ? kernel(in, maker) : nullptr;
        MoxConvKernel* y = in.ConsumeBool() ? kernel(in, maker) : nullptr;
        moxConvolveSep2D(src, dst, x, y);
        moxDeleteConvKernel(x);
        moxDeleteConvKernel(y);
        break;
      }
    }
  });
}
