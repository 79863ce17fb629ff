// Image headers, ROIs and tile infos: creation, allocation and release.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "image.h"

// The published record sizes of 32-bit targets.
static_assert(sizeof(void*) != 4 || sizeof(MoxImage) == 112, "MoxImage is 28 words");
static_assert(sizeof(void*) != 4 || sizeof(MoxContext) == 1652, "MoxContext is 413 words");

namespace mox {

bool isValidDepth(unsigned depth) {
  switch (depth) {
    case MOX_DEPTH_1U: case MOX_DEPTH_8U: case MOX_DEPTH_16U:
    case MOX_DEPTH_8S: case MOX_DEPTH_16S: case MOX_DEPTH_32S:
      return true;
    default:
      return false;
  }
}

long long pixelRowBytes(long long width, unsigned bits, long long channels) {
  if (width <= 0 || bits == 0 || channels <= 0) return -1;
  const long long pixelBits = channels * bits;  // at most 2^31 x 32
  long long rowBits = 0;
  if (__builtin_mul_overflow(width, pixelBits, &rowBits) || rowBits > 8LL * INT_MAX) return -1;
  return (rowBits + 7) / 8;
}

unsigned creationFaults(const MoxImage* image) {
  unsigned faults = 0;
  if (image->nChannels <= 0) faults |= 0x1;
  if (image->alphaChannel > image->nChannels && image->alphaChannel < 0) faults |= 0x2;
  if (!isValidDepth(image->depth)) faults |= 0x4;
  if (image->alphaChannel < 0 || image->alphaChannel > image->nChannels) faults |= 0x8;
  if (image->dataOrder != 0 && image->dataOrder != 1) faults |= 0x10;
  if (image->origin != 0 && image->origin != 1) faults |= 0x20;
  if (image->align != 4 && image->align != 8) faults |= 0x40;
  if (image->height < 0) faults |= 0x80;
  if (image->width < 0) faults |= 0x100;
  return faults;
}

}  // namespace mox

namespace {

// Pixel blocks of kPagedBytes or more start on a page of kPage bytes.
constexpr std::uintptr_t kPage = 4096;
constexpr int kPagedBytes = 1 << 16;

// Copies a 4-character name; a shorter text ends at its terminator and the
// rest is zero, so that short literals ("RGB") are never read past.
void copyName(char* to, const char* from) {
  int i = 0;
  for (; i < 4 && from[i]; ++i) to[i] = from[i];
  for (; i < 4; ++i) to[i] = '\0';
}

// The 32-bit pattern that fills a new block.
std::uint32_t fillPattern(unsigned depth, int fillValue) {
  const std::uint32_t v = static_cast<std::uint32_t>(fillValue);
  switch (mox::depthBits(depth)) {
    case 1: return (v & 1) ? 0xFFFFFFFFu : 0u;
    case 8: return (v & 0xFFu) * 0x01010101u;
    case 16: return (v & 0xFFFFu) * 0x00010001u;
    default: return v;
  }
}

}  // namespace

extern "C" {

MOX_API MoxImage* MOX_CALL moxCreateImageHeader(int nChannels, int alphaChannel,
    unsigned int depth, const char* colorModel, const char* channelSeq, int dataOrder,
    int origin, int align, int height, int width, MoxROI* roi, void* imageId,
    MoxTileInfo* tileInfo) {
  if (!colorModel || !channelSeq) return nullptr;
  MoxImage* image = static_cast<MoxImage*>(std::calloc(1, sizeof(MoxImage)));
  if (!image) return nullptr;
  image->headerSize = static_cast<int>(sizeof(MoxImage));
  image->headerId = 0;
  image->nChannels = nChannels;
  image->alphaChannel = alphaChannel;
  image->depth = depth;
  copyName(image->colorModel, colorModel);
  copyName(image->channelSeq, channelSeq);
  image->dataOrder = dataOrder;
  image->origin = origin;
  image->align = align;
  image->height = height;
  image->width = width;
  image->roi = roi;
  image->maskRoi = nullptr;
  image->imageId = imageId;
  image->tileInfo = tileInfo;
  image->imageData = nullptr;
  image->imageDataOrigin = nullptr;
  moxSetBorderMode(image, MOX_BORDER_CONSTANT, MOX_SIDE_ALL, 0);
  if (mox::creationFaults(image) ||
      !mox::layoutSize(width, height, depth, nChannels, dataOrder, align, &image->widthStep,
                       &image->imageSize)) {
    std::free(image);
    return nullptr;
  }
  return image;
}

MOX_API void MOX_CALL moxAllocateImage(MoxImage* image, int fillValue) {
  if (!image) return;
  int step = 0, size = 0;
  if (mox::creationFaults(image) ||
      !mox::layoutSize(image->width, image->height, image->depth, image->nChannels,
                       image->dataOrder, image->align, &step, &size)) {
    image->imageData = nullptr;
    image->imageSize = 0;
    return;
  }
  // A large block starts on a page. Images allocated one after another then
  // start at the same place in a page, so a kernel's stores never trail its
  // loads by a few bytes modulo the page: such stores stall the loads that
  // follow them (a 16 MB threshold ran a quarter slower from a destination
  // 16 to 64 bytes past its source in the page).
  const std::uintptr_t a =
      size >= kPagedBytes ? kPage : static_cast<std::uintptr_t>(image->align);
  char* block = static_cast<char*>(std::malloc(static_cast<std::size_t>(size) + (a - 1)));
  image->imageDataOrigin = block;
  if (!block) return;
  image->imageData = reinterpret_cast<char*>((reinterpret_cast<std::uintptr_t>(block) + a - 1) &
                                             ~(a - 1));
  image->imageSize = size;
  image->widthStep = step;
  if (fillValue != -1) {
    const std::uint32_t pattern = fillPattern(image->depth, fillValue);
    for (int at = 0; at + 4 <= size; at += 4) std::memcpy(image->imageData + at, &pattern, 4);
  }
}

MOX_API void MOX_CALL moxDeallocateImage(MoxImage* image) {
  if (!image || mox::creationFaults(image)) return;
  std::free(image->imageDataOrigin);
  image->imageData = nullptr;
  image->imageDataOrigin = nullptr;
}

MOX_API void MOX_CALL moxDeallocate(MoxImage* image, int flag) {
  if (!image) return;
  if ((flag & MOX_FREE_ROI) && image->roi) {
    std::free(image->roi);
    image->roi = nullptr;
  }
  if ((flag & MOX_FREE_MASK) && image->maskRoi) {
    moxDeallocate(image->maskRoi, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI |
                                      MOX_FREE_TILEINFO);
    image->maskRoi = nullptr;
  }
  if ((flag & MOX_FREE_TILEINFO) && image->tileInfo) {
    std::free(image->tileInfo);
    image->tileInfo = nullptr;
  }
  if ((flag & MOX_FREE_DATA) && image->imageDataOrigin) {
    std::free(image->imageDataOrigin);
    image->imageData = nullptr;
    image->imageDataOrigin = nullptr;
  }
  if (flag & MOX_FREE_HEADER) std::free(image);
}

MOX_API void MOX_CALL moxDeallocateHeader(MoxImage* image) {
  moxDeallocate(image, MOX_FREE_HEADER);
}

MOX_API MoxROI* MOX_CALL moxCreateROI(int coi, int xOffset, int yOffset, int height, int width) {
  MoxROI* roi = static_cast<MoxROI*>(std::malloc(sizeof(MoxROI)));
  if (roi) *roi = MoxROI{coi, xOffset, yOffset, height, width};
  return roi;
}

MOX_API void MOX_CALL moxSetROI(MoxROI* roi, int coi, int xOffset, int yOffset, int height,
                                int width) {
  if (roi) *roi = MoxROI{coi, xOffset, yOffset, height, width};
}

MOX_API void MOX_CALL moxDeleteROI(MoxROI* roi) { std::free(roi); }

MOX_API MoxTileInfo* MOX_CALL moxCreateTileInfo(MoxTileCallBack callBack, int id, int width,
                                                int height) {
  MoxTileInfo* info = static_cast<MoxTileInfo*>(std::malloc(sizeof(MoxTileInfo)));
  if (info) *info = MoxTileInfo{callBack, id, nullptr, width, height};
  return info;
}

MOX_API void MOX_CALL moxSetTileInfo(MoxTileInfo* tileInfo, MoxTileCallBack callBack, int id,
                                     int width, int height) {
  if (tileInfo) *tileInfo = MoxTileInfo{callBack, id, nullptr, width, height};
}

MOX_API void MOX_CALL moxDeleteTileInfo(MoxTileInfo* tileInfo) { std::free(tileInfo); }

MOX_API void MOX_CALL moxSetBorderMode(MoxImage* image, int mode, int border, int constVal) {
  if (!image) return;
  for (int i = 0; i < 4; ++i) {
    if (border & (1 << i)) {
      image->borderMode[i] = mode;
      image->borderConst[i] = constVal;
    }
  }
}

}  // extern "C"
