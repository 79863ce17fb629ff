// BMP files through the library's own bitmap functions (the file helper
// adds and strips the file header): 8U grey (as a palette of greys), RGB and
// RGBA. Images the library hands over in blue-first order or bottom-up are
// turned into the tool's red-first, top-down pictures.
#include <cstring>

#include "bmpfile.h"
#include "formats.h"
#include "run.h"

namespace moxcli {
namespace {

bool sniff(const unsigned char* head, std::size_t n) {
  return n >= 2 && head[0] == 'B' && head[1] == 'M';
}

bool holds(unsigned depth) { return depth == MOX_DEPTH_8U; }

// The reason, with the library's own report when it made one.
std::string reason(const char* why) {
  const std::string report = takeReport();
  return report.empty() ? why : std::string(why) + " (" + report + ")";
}

Picture read(const std::string& path) {
  char why[256] = "";
  MoxImage* im = bmpRead(path.c_str(), why, sizeof why);
  if (!im) throw FileError(path, "bad BMP: " + reason(why));
  Picture pic;
  pic.width = im->width, pic.height = im->height, pic.channels = im->nChannels;
  pic.depth = MOX_DEPTH_8U;
  pic.allocate();
  const bool swap = pic.channels >= 3 && std::memcmp(im->channelSeq, "RGB", 3) != 0;
  for (int y = 0; y < pic.height; ++y) {
    const int from = im->origin == MOX_ORIGIN_BL ? pic.height - 1 - y : y;
    const auto* row = reinterpret_cast<const unsigned char*>(im->imageData) +
                      std::size_t(from) * im->widthStep;
    unsigned char* to = pic.pixels.data() + std::size_t(y) * pic.rowBytes();
    std::memcpy(to, row, pic.rowBytes());
    if (swap)
      for (int x = 0; x < pic.width; ++x) std::swap(to[x * pic.channels], to[x * pic.channels + 2]);
  }
  moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
  return pic;
}

void write(const std::string& path, const Picture& pic) {
  writeBmp(path, pic, pic.channels == 1 ? 8 : pic.channels * 8, MOX_DITHER_NONE, MOX_PALCONV_NONE);
}

}  // namespace

void writeBmp(const std::string& path, const Picture& pic, int bits, int dither,
              int paletteConversion) {
  if (pic.channels == 2 || pic.channels > 4)
    throw FileError(path, "BMP holds 1, 3 or 4 channels, not " + std::to_string(pic.channels));
  MoxImage* im = moxCreateImageHeader(pic.channels, pic.channels == 4 ? 4 : 0, MOX_DEPTH_8U,
                                      pic.channels == 1 ? "GRAY" : "RGB",
                                      pic.channels == 4 ? "RGBA" : pic.channels == 3 ? "RGB" : "G",
                                      MOX_DATA_ORDER_PIXEL, MOX_ORIGIN_TL, MOX_ALIGN_4BYTES,
                                      pic.height, pic.width, nullptr, nullptr, nullptr);
  if (im) moxAllocateImage(im, -1);
  if (!im || !im->imageData) {
    if (im) moxDeallocateHeader(im);
    throw FileError(path, "out of memory");
  }
  for (int y = 0; y < pic.height; ++y)
    std::memcpy(im->imageData + std::size_t(y) * im->widthStep,
                pic.pixels.data() + std::size_t(y) * pic.rowBytes(), pic.rowBytes());
  char why[256] = "";
  const int failed = bmpWrite(path.c_str(), im, bits, dither, paletteConversion, why, sizeof why);
  moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA);
  if (failed) throw FileError(path, "writing BMP failed: " + reason(why));
}

const Format kBmpFormat = {"BMP", {".bmp"}, sniff, read, write, holds};

}  // namespace moxcli
