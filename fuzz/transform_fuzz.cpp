// Frequency transforms: real and packed-spectrum FFTs and the DCT with any
// flags, sizes and kept tables.
#include <cstdint>

#include "fuzz_images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::runOnSourceAndDestination(data, size, [](FuzzedDataProvider& in,
                                                        fuzz::ImageMaker& maker, MoxImage* src,
                                                        MoxImage* dst) {
    const int flags = in.ConsumeIntegralInRange<int>(0, 3) ? in.ConsumeIntegralInRange<int>(0, 511)
                                                           : maker.smallInt(-1, 1);
    const int* map = maker.mapping();
    for (int round = in.ConsumeIntegralInRange<int>(1, 2); round > 0; --round) {
      switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: moxRealFft2D(src, dst, flags, map); break;
        case 1: moxCcsFft2D(src, dst, flags, map); break;
        default: moxDCT2D(src, dst, flags); break;
      }
    }
    // Tables kept by MOX_FFT_SAVE are released between inputs.
    moxRealFft2D(nullptr, nullptr, MOX_FFT_FREE, nullptr);
    moxDCT2D(nullptr, nullptr, MOX_DCT_FREE);
  });
}
