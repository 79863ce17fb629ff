// Arbitrary bytes as a packed bitmap (info header, masks, palette, rows or
// run-length data): translated to an image and written back, and converted
// into an image of any kind.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_images.h"

namespace {

// The bytes the bitmap claims: header, masks, palette and pixel data; -1 for
// claims too large to fuzz with.
long long declaredBytes(const MoxBitmapInfoHeader& h) {
  const bool known = h.biSize == 40 || h.biSize == 108 || h.biSize == 124;
  long long bytes = known ? h.biSize : 40;
  if (h.biSize == 40 && h.biCompression == 3) bytes += 12;
  const int bits = h.biBitCount;
  bytes += 4LL * (h.biClrUsed && h.biClrUsed <= 256 ? h.biClrUsed : bits <= 8 ? 1u << bits : 0);
  const long long height = h.biHeight < 0 ? -static_cast<long long>(h.biHeight) : h.biHeight;
  const long long width = h.biWidth > 0 ? h.biWidth : 0;
  if (width * height > (1 << 22)) return -1;
  const long long rows = (width * bits + 31) / 32 * 4 * height;
  const bool rle = h.biCompression == 1 || h.biCompression == 2;
  bytes += rle ? h.biSizeImage : std::max<long long>(rows, h.biSizeImage);
  return bytes > (16 << 20) ? -1 : bytes;
}

// Writes the image's ROI as an 8-, 24- or 32-bit bitmap the input lays out.
void writeBack(const MoxImage* image, FuzzedDataProvider& in) {
  if (1LL * image->width * image->height > (1 << 16)) return;
  MoxBitmapInfoHeader h{};
  h.biSize = 40;
  h.biWidth = image->width;
  h.biHeight = in.ConsumeBool() ? -image->height : image->height;
  h.biPlanes = 1;
  constexpr unsigned short kBits[] = {8, 24, 32};
  h.biBitCount = kBits[in.ConsumeIntegralInRange<int>(0, 2)];
  h.biClrUsed = h.biBitCount == 8 && in.ConsumeBool() ? in.ConsumeIntegralInRange<unsigned>(1, 256) : 0;
  const long long entries = h.biBitCount == 8 ? (h.biClrUsed ? h.biClrUsed : 256) : 0;
  const long long rowBytes = (1LL * h.biWidth * h.biBitCount + 31) / 32 * 4;
  const std::size_t size = static_cast<std::size_t>(40 + 4 * entries + rowBytes * image->height);
  auto* block = static_cast<unsigned char*>(std::malloc(size));
  std::memcpy(block, &h, sizeof h);
  moxConvertToDIB(image, reinterpret_cast<MoxBitmapInfoHeader*>(block), in.ConsumeIntegralInRange<int>(-1, 5),
                  in.ConsumeIntegralInRange<int>(-1, 3));
  std::free(block);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::quietErrors();
  MoxBitmapInfoHeader header{};
  std::memcpy(&header, data, std::min(size, sizeof header));
  const long long declared = declaredBytes(header);
  if (declared < 0) return 0;
  // The block is exactly as long as the bitmap claims; what the input lacks is zero.
  const std::size_t length = static_cast<std::size_t>(declared);
  auto* block = static_cast<std::uint8_t*>(std::calloc(length, 1));
  std::memcpy(block, data, std::min(size, length));
  const auto* dib = reinterpret_cast<const MoxBitmapInfoHeader*>(block);

  FuzzedDataProvider in(data, size);
  int cloned = -1;
  if (MoxImage* image = moxTranslateDIB(dib, &cloned)) {
    writeBack(image, in);
    moxDeallocate(image, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
  fuzz::ImageMaker maker(in);
  fuzz::FuzzImage target;
  if (maker.make(target)) moxConvertFromDIB(dib, target.get());
  std::free(block);
  return 0;
}
