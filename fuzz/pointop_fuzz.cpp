// Point operations: every arithmetic and logic call on images of any kind,
// in place or not, with a tile request.
#include <cstdint>

#include "fuzz_images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::quietErrors();
  FuzzedDataProvider in(data, size);
  fuzz::ImageMaker maker(in);
  fuzz::FuzzImage a, b, c;
  fuzz::FuzzImage* all[] = {&a, &b, &c};
  if (!maker.makeAlike(all, 3)) return 0;
  // The destination may be one of the sources.
  MoxImage* srcA = a.get();
  MoxImage* srcB = in.ConsumeIntegralInRange<int>(0, 5) ? b.get() : a.get();
  const int aliasing = in.ConsumeIntegralInRange<int>(0, 5);
  MoxImage* dst = aliasing == 0 ? a.get() : aliasing == 1 ? b.get() : c.get();
  const int value = maker.smallInt(-300, 300);
  const int* mapping = maker.mapping();
  switch (in.ConsumeIntegralInRange<int>(0, 20)) {
    case 0: moxAdd(srcA, srcB, dst, mapping); break;
    case 1: moxSubtract(srcA, srcB, dst, in.ConsumeBool(), mapping); break;
    case 2: moxMultiply(srcA, srcB, dst, mapping); break;
    case 3: moxAnd(srcA, srcB, dst, mapping); break;
    case 4: moxOr(srcA, srcB, dst, mapping); break;
    case 5: moxXor(srcA, srcB, dst, mapping); break;
    case 6: moxMultiplyScale(srcA, srcB, dst, mapping); break;
    case 7: moxAddS(srcA, dst, value, mapping); break;
    case 8: moxSubtractS(srcA, dst, value, in.ConsumeBool(), mapping); break;
    case 9: moxMultiplyS(srcA, dst, value, mapping); break;
    case 10: moxAndS(srcA, dst, value, mapping); break;
    case 11: moxOrS(srcA, dst, value, mapping); break;
    case 12: moxXorS(srcA, dst, value, mapping); break;
    case 13: moxLShiftS(srcA, dst, static_cast<unsigned>(value), mapping); break;
    case 14: moxRShiftS(srcA, dst, static_cast<unsigned>(value), mapping); break;
    case 15: moxSquare(srcA, dst, mapping); break;
    case 16: moxAbs(srcA, dst, mapping); break;
    case 17: moxNot(srcA, dst, mapping); break;
    case 18: moxMultiplySScale(srcA, dst, value, mapping); break;
    case 19: moxThreshold(srcA, dst, value); break;
    default: moxSet(dst, value, mapping); break;
  }
  return 0;
}
