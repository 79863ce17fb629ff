// Header validation: the fault bits, their fixed-width text, and the two
// check chains that operations run on their image arguments.
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "../frame/frame.h"
#include "image.h"

namespace {

struct Fault {
  unsigned bit;
  const char* text;
};

// In the order the text lists them.
constexpr Fault kFaults[] = {
    {0x1, "Image header is null"},
    {0x2, "Image data and tileinfo is either null or not null"},
    {0x4, "Image size is invalid"},
    {0x10, "Image widthStep is invalid"},
    {0x20, "Image channel's number is less one"},
    {0x40, "For image depth 1U channel's number is not equal one"},
    {0x80, "Image depth is invalid"},
    {0x100, "Image alpha channel's number is less zero or is more channel's number"},
    {0x200, "Image data order is invalid"},
    {0x400, "Image origin is invalid"},
    {0x800, "Image align is invalid"},
    {0x1000, "Callback is null"},
    {0x2000, "Tile size is invalid"},
    {0x4000, "COI is less zero or is more image channel's number"},
    {0x8000, "ROI size is invalid"},
    {0x8, "ROI offset is invalid"},
};

// Each line is padded with blanks to 70 characters and ends with a new line.
constexpr std::size_t kLineWidth = 71;

// Writes pattern into out with every '@' replaced by name.
void substitute(char* out, std::size_t size, const char* pattern, const char* name) {
  std::size_t n = 0;
  const std::size_t nameLength = std::strlen(name);
  for (const char* p = pattern; *p && n + 1 < size; ++p) {
    if (*p != '@') {
      out[n++] = *p;
      continue;
    }
    const std::size_t k = nameLength < size - 1 - n ? nameLength : size - 1 - n;
    std::memcpy(out + n, name, k);
    n += k;
  }
  out[n] = '\0';
}

}  // namespace

char* moxHeaderFaultText(unsigned int faults) {
  std::size_t sum = 0;
  for (const Fault& f : kFaults)
    if (faults & f.bit) sum += kLineWidth;
  if (sum == 0) return const_cast<char*>(mox::kUnknownFaultText);
  char* text = static_cast<char*>(moxMalloc(static_cast<int>(sum + 1)));
  if (!text) return const_cast<char*>(mox::kOutOfMemoryText);
  char* at = text;
  for (const Fault& f : kFaults) {
    if (!(faults & f.bit)) continue;
    const std::size_t n = std::strlen(f.text);
    std::memcpy(at, f.text, n);
    std::memset(at + n, ' ', kLineWidth - 1 - n);
    at[kLineWidth - 1] = '\n';
    at += kLineWidth;
  }
  *at = '\0';
  return text;
}

namespace mox {

void report(const Site& at, const char* message, int status) {
  moxError(status, at.func, message, at.file, at.line);
}

bool badHeader(const MoxImage* image, const Site& at) {
  const unsigned faults = moxBadImageHeader(image);
  if (!faults) return false;
  char* text = moxHeaderFaultText(faults);
  report(at, text);
  moxFree(text);
  return true;
}

bool failsFullChain(const MoxImage* image, const char* name, const Site& at) {
  const char* pattern = nullptr;
  if (!image) {
    pattern = "@==0";
  } else if (moxBadImageHeader(image)) {
    pattern = "moxBadImageHeader(@) != 0";
  } else if (image->width <= 0) {
    pattern = "@->width <= 0";
  } else if (image->height <= 0) {
    pattern = "@->height <= 0";
  } else if (image->nChannels <= 0) {
    pattern = "@->nChannels <= 0";
  } else if (const MoxROI* roi = image->roi;
             roi && (pattern = roi->width <= 0                ? "@->roi->width <= 0"
                               : roi->height <= 0             ? "@->roi->height <= 0"
                               : roi->xOffset < 0             ? "@->roi->xOffset < 0"
                               : roi->yOffset < 0             ? "@->roi->yOffset < 0"
                               : roi->xOffset >= image->width ? "@->roi->xOffset >= @->width"
                               : roi->yOffset >= image->height
                                   ? "@->roi->yOffset >= @->height"
                               : roi->coi < 0                ? "@->roi->coi < 0"
                               : roi->coi > image->nChannels ? "@->roi->coi > @->nChannels"
                                                             : nullptr)) {
  } else if (image->imageData && image->tileInfo) {
    pattern = "@->imageData != ((void*)(0)) && @->tileInfo != ((void*)(0))";
  } else if (!image->imageData && !image->tileInfo) {
    pattern = "@->imageData == ((void*)(0)) && @->tileInfo == ((void*)(0))";
  } else if (const MoxTileInfo* tile = image->tileInfo; tile) {
    pattern = !tile->callBack        ? "@->tileInfo->callBack==0"
              : tile->width <= 0     ? "@->tileInfo->width <= 0"
              : tile->height <= 0    ? "@->tileInfo->height <= 0"
                                     : nullptr;
  }
  if (!pattern) return false;
  char message[256];
  substitute(message, sizeof message, pattern, name);
  report(at, message);
  return true;
}

}  // namespace mox

extern "C" MOX_API unsigned int MOX_CALL moxBadImageHeader(const MoxImage* image) {
  if (!image) return 0x1;
  unsigned faults = 0;
  if ((image->imageData == nullptr) == (image->tileInfo == nullptr)) faults |= 0x2;
  if ((image->imageSize <= 0 && !image->tileInfo) || image->height <= 0 || image->width <= 0)
    faults |= 0x4;
  if (image->widthStep <= 0 && !image->tileInfo) faults |= 0x10;
  if (image->nChannels <= 0) faults |= 0x20;
  if (image->nChannels != 1 && image->depth == MOX_DEPTH_1U) faults |= 0x40;
  if (!mox::isValidDepth(image->depth)) faults |= 0x80;
  if (image->alphaChannel < 0 || image->alphaChannel > image->nChannels) faults |= 0x100;
  if (image->dataOrder != 0 && image->dataOrder != 1) faults |= 0x200;
  if (image->origin != 0 && image->origin != 1) faults |= 0x400;
  if (image->align != 4 && image->align != 8) faults |= 0x800;
  if (const MoxTileInfo* tile = image->tileInfo) {
    if (!tile->callBack) faults |= 0x1000;
    if (tile->width <= 0 || tile->height <= 0 || tile->width % 8 || tile->height % 8)
      faults |= 0x2000;
  }
  if (const MoxROI* roi = image->roi) {
    if (roi->coi < 0 || roi->coi > image->nChannels) faults |= 0x4000;
    if (roi->width <= 0 || roi->height <= 0) faults |= 0x8000;
    if (roi->xOffset < 0 || roi->yOffset < 0) faults |= 0x8;
  }
  return faults;
}
