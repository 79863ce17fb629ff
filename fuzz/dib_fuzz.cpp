// Arbitrary bytes as a packed bitmap (info header, masks, palette, rows or
// run-length data): translated to an image and written back, and converted
// into an image of any kind.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_images.h"

namespace {

// The most pixels and row or run-length bytes a bitmap may claim and still
// be handed over whole: every layout, run and palette fits, and the copies a
// bitmap goes through (translated, converted, written back, all under the
// sanitizers) stay cheap enough for thousands of inputs a second.
constexpr long long kMaxPixels = 1 << 14, kMaxDataBytes = 1 << 16;
// Writing an 8-bit bitmap searches its palette for every pixel: the images
// written back are smaller still.
constexpr long long kMaxWrittenPixels = 1 << 12;

// How long the block handed to the library is: the header, masks and palette
// the bitmap claims, then its rows (exactly the bytes of the rows, whatever
// biSizeImage claims beyond them, so that a read past the last row is caught)
// or its run-length data. A bitmap whose bit count is unknown or whose pixels
// do not fit the library's 32-bit sizes gets a block without rows: it must be
// refused before a byte of them is read. -1 for a valid bitmap too large to
// fuzz quickly.
long long blockBytes(const MoxBitmapInfoHeader& h) {
  const bool known = h.biSize == 40 || h.biSize == 108 || h.biSize == 124;
  long long prefix = known ? h.biSize : 40;
  if (h.biSize == 40 && h.biCompression == 3) prefix += 12;
  const int bits = h.biBitCount;
  prefix += 4LL * (h.biClrUsed && h.biClrUsed <= 256 ? h.biClrUsed : bits <= 8 ? 1u << bits : 0);
  const long long height = h.biHeight < 0 ? -static_cast<long long>(h.biHeight) : h.biHeight;
  const long long width = h.biWidth > 0 ? h.biWidth : 0;
  const bool knownBits = bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
  if (!knownBits || width * height > INT_MAX / 4) return prefix;
  if (width * height > kMaxPixels) return -1;
  const bool rle = h.biCompression == 1 || h.biCompression == 2;
  const long long data = rle ? h.biSizeImage : (width * bits + 31) / 32 * 4 * height;
  return data > kMaxDataBytes ? -1 : prefix + data;
}

// Writes the image's ROI as an 8-, 24- or 32-bit bitmap the input lays out.
void writeBack(const MoxImage* image, FuzzedDataProvider& in) {
  if (1LL * image->width * image->height > kMaxWrittenPixels) return;
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
  const long long bytes = blockBytes(header);
  if (bytes < 0) return 0;
  // What the input lacks of the block is zero.
  const std::size_t length = static_cast<std::size_t>(bytes);
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
