// Header records: creation and allocation with any arguments, the fault
// bits of built images, and the data-movement calls that check them.
#include <cstdint>

#include "fuzz_images.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::quietErrors();
  FuzzedDataProvider in(data, size);
  fuzz::ImageMaker maker(in);

  // A header from any arguments; its block only when it is small.
  const int nChannels = maker.smallInt(-1, 5), alpha = maker.smallInt(-1, 5);
  const unsigned depth = in.ConsumeBool() ? in.ConsumeIntegral<unsigned>() : MOX_DEPTH_8U;
  const int order = maker.smallInt(-1, 2), origin = maker.smallInt(-1, 2), align = maker.smallInt(0, 9);
  const int height = maker.smallInt(-2, 300), width = maker.smallInt(-2, 300);
  if (MoxImage* image = moxCreateImageHeader(nChannels, alpha, depth, "RGB", "BGR", order, origin,
                                             align, height, width, nullptr, nullptr, nullptr)) {
    moxBadImageHeader(image);
    if (image->imageSize >= 0 && image->imageSize <= (16 << 20)) {
      moxAllocateImage(image, maker.smallInt(-1, 300));
      moxBadImageHeader(image);
    }
    moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
  }

  fuzz::FuzzImage a, b;
  fuzz::FuzzImage* both[] = {&a, &b};
  if (!maker.makeAlike(both, 2)) return 0;
  moxBadImageHeader(a.get());
  moxBadImageHeader(b.get());
  const int* mapping = maker.mapping();
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0: moxSet(a.get(), maker.smallInt(-300, 300), mapping); break;
    case 1: moxCopy(a.get(), b.get(), mapping); break;
    case 2: moxExchange(a.get(), b.get(), mapping); break;
    default: moxCopy(a.get(), a.get(), mapping); break;
  }
  return 0;
}
