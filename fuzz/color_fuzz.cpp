// Colour work: grey and colour conversions, colour spaces, twists, level
// reduction, depth conversion and 1-bit expansion.
#include <cmath>
#include <cstdint>

#include "fuzz_images.h"

namespace {

float fraction(FuzzedDataProvider& in) {
  switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: return NAN;
    case 1: return INFINITY;
    case 2: return -1.5f;
    default: return in.ConsumeFloatingPointInRange<float>(0.f, 1.f);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::runOnSourceAndDestination(data, size, [](FuzzedDataProvider& in,
                                                        fuzz::ImageMaker& maker, MoxImage* src,
                                                        MoxImage* dst) {
    const int* mapping = maker.mapping();
    switch (in.ConsumeIntegralInRange<int>(0, 10)) {
      case 0: moxColorToGray(src, dst, mapping); break;
      case 1: {
        const float r = fraction(in), g = fraction(in), b2 = fraction(in);
        moxGrayToColor(src, dst, r, g, b2, mapping);
        break;
      }
      case 2: moxRGB2HSV(src, dst, mapping); break;
      case 3: moxHSV2RGB(src, dst, mapping); break;
      case 4: moxRGB2HLS(src, dst, mapping); break;
      case 5: moxHLS2RGB(src, dst, mapping); break;
      case 6: {
        int matrix[16];
        for (int& v : matrix) v = maker.smallInt(-70000, 70000);
        MoxColorTwist* twist = moxCreateColorTwist(matrix, maker.smallInt(-2, 31));
        moxApplyColorTwist(src, dst, twist, maker.smallInt(-300, 300), mapping);
        moxDeleteColorTwist(twist);
        break;
      }
      case 7: moxReduceBits(src, dst, maker.smallInt(-1, 101), maker.smallInt(-1, 5), maker.smallInt(-1, 257)); break;
      case 8: moxConvert(src, dst); break;
      default: moxBitonalToGray(src, dst, maker.smallInt(-300, 300), maker.smallInt(-300, 300)); break;
    }
  });
}
