// Alpha work and statistics: premultiplication, composition, histograms,
// lookup maps, equalization and norms, with lookup tables of any shape.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <vector>

#include "fuzz_images.h"

namespace {

// Up to four lookup tables whose arrays are as long as their bin count says
// (one key more than bins).
struct Tables {
  MoxLUT lut[4];
  MoxLUT* list[4];
  std::vector<int> key[4], value[4], factor[4];

  void make(FuzzedDataProvider& in, fuzz::ImageMaker& maker) {
    for (int c = 0; c < 4; ++c) {
      // Counts past 70000 become 70001: still more than any 8- or 16-bit
      // image holds, and every key the library may read is allocated.
      const int num = std::min(maker.smallInt(-1, 40), 70001);
      const std::size_t n = num > 0 ? static_cast<std::size_t>(num) + 1 : 1;
      key[c].resize(n), value[c].resize(n), factor[c].resize(n);
      long long at = maker.smallInt(-300, 300);
      for (std::size_t i = 0; i < n; ++i) {
        key[c][i] = static_cast<int>(std::clamp<long long>(at, INT_MIN, INT_MAX));
        at += in.ConsumeIntegralInRange<int>(0, 9) ? in.ConsumeIntegralInRange<int>(1, 40) : maker.smallInt(-2, 2);
        value[c][i] = maker.smallInt(-300, 300);
        factor[c][i] = maker.smallInt(-70000, 70000);
      }
      const bool holes = in.ConsumeIntegralInRange<int>(0, 15) == 0;
      lut[c] = {num, holes && in.ConsumeBool() ? nullptr : key[c].data(), value[c].data(),
                holes ? nullptr : factor[c].data(), maker.smallInt(-1, 2)};
      list[c] = in.ConsumeIntegralInRange<int>(0, 31) ? &lut[c] : nullptr;
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::quietErrors();
  FuzzedDataProvider in(data, size);
  fuzz::ImageMaker maker(in);
  fuzz::FuzzImage a, b, c, d, e, f;
  fuzz::FuzzImage* all[] = {&a, &b, &c};
  if (!maker.makeAlike(all, 3)) return 0;
  MoxImage* srcA = a.get();
  MoxImage* srcB = b.get();
  MoxImage* dst = in.ConsumeIntegralInRange<int>(0, 7) ? c.get() : a.get();
  const int* mapping = maker.mapping();
  Tables tables;
  tables.make(in, maker);
  MoxLUT** luts = in.ConsumeIntegralInRange<int>(0, 31) ? tables.list : nullptr;
  const int type = maker.smallInt(-1, 6);
  switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: moxPreMultiplyAlpha(dst, maker.smallInt(-2, 256), mapping); break;
    case 1: {
      fuzz::FuzzImage* alphas[] = {&d, &e, &f};
      const bool separate = in.ConsumeBool() && maker.makeAlike(alphas, 3);
      moxAlphaComposite(srcA, srcB, dst, type, separate ? d.get() : nullptr, separate ? e.get() : nullptr,
                        separate && in.ConsumeBool() ? f.get() : nullptr, in.ConsumeBool(), in.ConsumeBool());
      break;
    }
    case 2:
      moxAlphaCompositeC(srcA, srcB, dst, type, maker.smallInt(-2, 300), maker.smallInt(-2, 300), in.ConsumeBool(),
                         in.ConsumeBool());
      break;
    case 3: moxComputeHisto(srcA, luts); break;
    case 4: moxContrastStretch(srcA, dst, luts); break;
    case 5: moxHistoEqualize(srcA, dst, luts); break;
    case 6: moxNorm(srcA, in.ConsumeBool() ? srcB : nullptr, maker.smallInt(-1, 16)); break;
    default: moxThreshold(srcA, dst, maker.smallInt(-300, 300)); break;
  }
  return 0;
}
