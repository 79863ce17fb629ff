// Geometry: zoom, decimation, rotation and mirroring with any factors,
// angles, centres and anchor points.
#include <cstdint>

#include "fuzz_images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::runOnSourceAndDestination(data, size, [](FuzzedDataProvider& in,
                                                        fuzz::ImageMaker& maker, MoxImage* src,
                                                        MoxImage* dst) {
    const int xU = maker.smallInt(-1, 9), xL = maker.smallInt(-1, 9);
    const int yU = maker.smallInt(-1, 9), yL = maker.smallInt(-1, 9);
    const int interpolate = maker.smallInt(-1, 3);
    const int* point = maker.mapping();
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
      case 0: moxZoom(src, dst, xU, xL, yU, yL, interpolate, point); break;
      case 1: moxDecimate(src, dst, xU, xL, yU, yL, interpolate, point); break;
      case 2: moxRotate(src, dst, maker.smallInt(-72000, 72000), maker.smallInt(-50, 50), maker.smallInt(-50, 50),
                        interpolate, point);
        break;
      default: moxMirror(src, dst, maker.smallInt(-2, 2)); break;
    }
  });
}
