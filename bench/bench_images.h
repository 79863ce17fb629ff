// Images for the benchmarks: plain images in one block, tiled images whose
// tiles the benchmark holds and hands out through the tile call-back, random
// contents, and a report function that keeps the last failure.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "image/image.h"
#include "moxpx.h"

namespace moxbench {

// Pixel-order images of whole-byte depths (8 and 16 bits, either sign) whose
// rows need no padding, so that a plain image is one run of values.
struct Shape {
  unsigned depth;
  int width, height, channels;

  int bytesPerValue() const { return static_cast<int>(mox::depthBits(depth) / 8); }
  std::size_t rowBytes() const {
    return static_cast<std::size_t>(width) * channels * bytesPerValue();
  }
  std::size_t bytes() const { return rowBytes() * height; }
  bool operator==(const Shape&) const = default;
};

inline std::string depthName(unsigned depth) {
  return std::to_string(mox::depthBits(depth)) + (mox::isSigned(depth) ? "S" : "U");
}

// "8U_4096x4096x1": depth, then width x height x channels.
inline std::string caseName(const Shape& s) {
  return depthName(s.depth) + "_" + std::to_string(s.width) + "x" + std::to_string(s.height) +
         "x" + std::to_string(s.channels);
}

inline MoxImage* createHeader(const Shape& s, MoxTileInfo* tileInfo, void* imageId) {
  return moxCreateImageHeader(s.channels, 0, s.depth, s.channels == 1 ? "GRAY" : "RGB",
                              s.channels == 1 ? "GRAY" : "BGR", MOX_DATA_ORDER_PIXEL,
                              MOX_ORIGIN_TL, MOX_ALIGN_4BYTES, s.height, s.width, nullptr,
                              imageId, tileInfo);
}

// Deterministic bytes (xorshift), so every run sees the same pixels.
inline void fillRandom(char* data, std::size_t n, std::uint32_t seed) {
  std::uint32_t x = seed | 1u;
  std::size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    std::memcpy(data + i, &x, 4);
  }
  for (; i < n; ++i) data[i] = static_cast<char>(i * 131u + seed);
}

class PlainImage {
 public:
  explicit PlainImage(const Shape& s) : shape_(s), image_(createHeader(s, nullptr, nullptr)) {
    if (image_) moxAllocateImage(image_, -1);
  }
  ~PlainImage() {
    if (image_) moxDeallocate(image_, MOX_FREE_HEADER | MOX_FREE_DATA);
  }
  PlainImage(const PlainImage&) = delete;
  PlainImage& operator=(const PlainImage&) = delete;

  bool ok() const {
    return image_ && image_->imageData &&
           static_cast<std::size_t>(image_->widthStep) == shape_.rowBytes();
  }
  MoxImage* get() const { return image_; }
  char* data() const { return image_->imageData; }
  std::size_t bytes() const { return shape_.bytes(); }
  const Shape& shape() const { return shape_; }

 private:
  Shape shape_;
  MoxImage* image_;
};

// A tiled image: every tile of tile x tile pixels sits in one block held here,
// laid out with the tile row step of the image's own layout rule.
class TiledImage {
 public:
  TiledImage(const Shape& s, int tile) : shape_(s), tile_(tile) {
    tilesX_ = (s.width + tile - 1) / tile;
    tilesY_ = (s.height + tile - 1) / tile;
    int step = 0, size = 0;
    if (!mox::layoutSize(tile, tile, s.depth, s.channels, MOX_DATA_ORDER_PIXEL, MOX_ALIGN_4BYTES,
                         &step, &size))
      return;
    tileStep_ = static_cast<std::size_t>(step);
    tileBytes_ = static_cast<std::size_t>(size);
    block_.assign(tileBytes_ * tilesX_ * tilesY_, 0);
    info_ = moxCreateTileInfo(&TiledImage::callBack, 0, tile, tile);
    if (info_) image_ = createHeader(s, info_, this);
    if (!image_ && info_) moxDeleteTileInfo(info_);
  }
  ~TiledImage() {
    if (image_) moxDeallocate(image_, MOX_FREE_HEADER | MOX_FREE_TILEINFO);
  }
  TiledImage(const TiledImage&) = delete;
  TiledImage& operator=(const TiledImage&) = delete;

  bool ok() const { return image_ != nullptr; }
  MoxImage* get() const { return image_; }
  // Tile requests answered since the last reset: shows how the walk asks.
  long requests() const { return requests_; }
  void resetRequests() { requests_ = 0; }

  // Copies a plain block of the same shape into the tiles, or back out.
  void load(const char* plain) { transfer(const_cast<char*>(plain), true); }
  void store(char* plain) const { const_cast<TiledImage*>(this)->transfer(plain, false); }

  static void MOX_CALL callBack(const MoxImage* image, int xIndex, int yIndex, int mode) {
    auto* self = static_cast<TiledImage*>(image->imageId);
    MoxTileInfo* info = image->tileInfo;
    ++self->requests_;
    if (mode == MOX_RELEASE_TILE) {
      info->tileData = nullptr;
    } else if ((mode == MOX_GET_TILE_TO_READ || mode == MOX_GET_TILE_TO_WRITE) && xIndex >= 0 &&
               xIndex < self->tilesX_ && yIndex >= 0 && yIndex < self->tilesY_) {
      info->tileData = self->tileAt(xIndex, yIndex);
    } else {
      info->tileData = nullptr;  // not a tile of this image: the library reports it
    }
  }

 private:
  char* tileAt(int x, int y) {
    return block_.data() + (static_cast<std::size_t>(y) * tilesX_ + x) * tileBytes_;
  }
  void transfer(char* plain, bool toTiles) {
    const std::size_t pixelBytes = static_cast<std::size_t>(shape_.channels) * shape_.bytesPerValue();
    for (int y = 0; y < shape_.height; ++y) {
      for (int tx = 0; tx < tilesX_; ++tx) {
        const int x0 = tx * tile_;
        const int cols = std::min(tile_, shape_.width - x0);
        char* inTile = tileAt(tx, y / tile_) + static_cast<std::size_t>(y % tile_) * tileStep_;
        char* inPlain = plain + y * shape_.rowBytes() + x0 * pixelBytes;
        if (toTiles)
          std::memcpy(inTile, inPlain, cols * pixelBytes);
        else
          std::memcpy(inPlain, inTile, cols * pixelBytes);
      }
    }
  }

  Shape shape_;
  int tile_;
  int tilesX_ = 0, tilesY_ = 0;
  std::size_t tileStep_ = 0, tileBytes_ = 0;
  std::vector<char> block_;
  MoxTileInfo* info_ = nullptr;
  MoxImage* image_ = nullptr;
  long requests_ = 0;
};

// The report function of the benchmarks: keeps the last report so that a run
// that fails can say why instead of timing an early return.
inline std::string& lastReport() {
  static thread_local std::string text;
  return text;
}

inline int MOX_CALL keepReport(int status, const char* funcName, const char* message,
                               const char* file, int line) {
  lastReport() = std::string(funcName ? funcName : "?") + " [" + (file ? file : "?") + ":" +
                 std::to_string(line) + "]: " + (message ? message : "");
  return status;
}

// Call before a benchmark's first call: failures return to the caller and are kept.
inline void quietErrors() {
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(&keepReport);
  moxSetErrStatus(MOX_StsNoError);
  lastReport().clear();
}

}  // namespace moxbench
