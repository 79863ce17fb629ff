// Images built from fuzz input; see fuzz_images.h.
#include "fuzz_images.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace fuzz {

namespace {

int MOX_CALL silentReport(int, const char*, const char*, const char*, int) { return 0; }

// The images alive now, found by their tile info's id.
std::vector<FuzzImage*>& registry() {
  static std::vector<FuzzImage*> images;
  return images;
}

void MOX_CALL tileCallBack(const MoxImage* image, int xIndex, int yIndex, int mode) {
  if (!image || !image->tileInfo) return;
  const int id = image->tileInfo->id;
  auto& images = registry();
  if (id < 0 || id >= static_cast<int>(images.size()) || !images[id]) std::abort();
  images[id]->tileRequest(xIndex, yIndex, mode);
}

constexpr unsigned kDepths[] = {MOX_DEPTH_1U, MOX_DEPTH_8U, MOX_DEPTH_8S, MOX_DEPTH_16U,
                                MOX_DEPTH_16S, MOX_DEPTH_32S};

int depthBits(unsigned depth) { return static_cast<int>(depth & 0xFFu); }

}  // namespace

void quietErrors() {
  moxRedirectError(silentReport);
  moxSetErrMode(MOX_ErrorModeParent);
  moxSetErrStatus(MOX_StsNoError);
}

FuzzImage::~FuzzImage() {
  for (auto& [index, tile] : tiles_) std::free(tile);
  if (tileInfo_) {
    registry()[tileInfo_->id] = nullptr;
    moxDeleteTileInfo(tileInfo_);
  }
  std::free(data_);
  if (roi_) moxDeleteROI(roi_);
  if (image_) moxDeallocateHeader(image_);
}

void FuzzImage::tileRequest(int xIndex, int yIndex, int mode) {
  MoxTileInfo* info = tileInfo_;
  if (mode == MOX_RELEASE_TILE) {
    if (habit_ != TileHabit::KeepOnRelease) info->tileData = nullptr;
    return;
  }
  ++requests_;
  if (habit_ == TileHabit::NullOnGet && requests_ >= failAt_) {
    info->tileData = nullptr;
    return;
  }
  // The tiles live in memory of their own for the whole call, like those of
  // a store that keeps them: the same request gets the same tile.
  std::uint8_t*& tile = tiles_[{xIndex, yIndex}];
  if (!tile) {
    // A tile at the edge may hold only the pixels inside the image: its
    // last plane ends with the last such pixel of its last such row.
    long long bytes = tileBytes_;
    const long long rows = std::min<long long>(info->height, image_->height - 1LL * yIndex * info->height);
    const long long cols = std::min<long long>(info->width, image_->width - 1LL * xIndex * info->width);
    // Huge tiles (a valid size can be far larger than the image) are always
    // served that way.
    if ((habit_ == TileHabit::EdgeOnly || bytes > (1 << 20)) && bytes >= 0 && rows > 0 && cols > 0) {
      const long long planes = image_->dataOrder == MOX_DATA_ORDER_PLANE ? image_->nChannels : 1;
      bytes = (planes - 1) * tileStep_ * info->height + (rows - 1) * tileStep_ +
              (cols * bitsPerPixel_ + 7) / 8;
    }
    // A tile too large to hold here is not served (the call fails as for a
    // store that cannot produce it).
    if (bytes < 0 || bytes > (64 << 20)) {
      info->tileData = nullptr;
      return;
    }
    tile = static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(std::max(bytes, 1LL))));
    if (!tile) std::abort();
    std::memset(tile, fill_, static_cast<std::size_t>(bytes));
    for (long long i = 0; i < std::min(bytes, 4096LL); ++i)
      tile[i] = static_cast<std::uint8_t>(fill_ + i * 7 + xIndex * 13 + yIndex * 29);
  }
  info->tileData = reinterpret_cast<char*>(tile);
}

bool ImageMaker::makeAlike(FuzzImage* const* images, int n, const unsigned* depths, int nDepths) {
  const unsigned depth = depths ? depths[in_.ConsumeIntegralInRange<int>(0, nDepths - 1)]
                                : kDepths[in_.ConsumeIntegralInRange<int>(0, 5)];
  const int channels = in_.ConsumeIntegralInRange<int>(1, 4);
  for (int i = 0; i < n; ++i) {
    const bool alike = in_.ConsumeIntegralInRange<int>(0, 7) != 0;
    if (!(alike ? make(*images[i], &depth, 1, channels) : make(*images[i], depths, nDepths)))
      return false;
  }
  return true;
}

bool SourceAndDestination::make(FuzzedDataProvider& in, ImageMaker& maker) {
  FuzzImage* both[] = {&a, &b};
  if (!maker.makeAlike(both, 2)) return false;
  src = a.get();
  dst = in.ConsumeIntegralInRange<int>(0, 7) ? b.get() : a.get();
  return true;
}

int ImageMaker::smallInt(int lo, int hi) {
  if (in_.ConsumeIntegralInRange<int>(0, 31) == 0) {
    constexpr int kExtremes[] = {INT_MIN, INT_MIN + 1, -65536, 65536, 1 << 30, INT_MAX};
    return kExtremes[in_.ConsumeIntegralInRange<int>(0, 5)];
  }
  return in_.ConsumeIntegralInRange<int>(lo, hi);
}

const int* ImageMaker::mapping() {
  if (in_.ConsumeIntegralInRange<int>(0, 2) == 0) return nullptr;
  for (int& v : mapping_) v = smallInt(-1, 6);
  return mapping_;
}

bool ImageMaker::make(FuzzImage& f, const unsigned* depths, int nDepths, int channels) {
  const unsigned depth = depths ? depths[in_.ConsumeIntegralInRange<int>(0, nDepths - 1)]
                                : kDepths[in_.ConsumeIntegralInRange<int>(0, 5)];
  int nChannels = channels ? channels : in_.ConsumeIntegralInRange<int>(1, 4);
  if (depth == MOX_DEPTH_1U) nChannels = 1;
  const int alpha = in_.ConsumeIntegralInRange<int>(0, nChannels);
  const int order = in_.ConsumeBool() ? MOX_DATA_ORDER_PLANE : MOX_DATA_ORDER_PIXEL;
  const int origin = in_.ConsumeBool() ? MOX_ORIGIN_BL : MOX_ORIGIN_TL;
  const int align = in_.ConsumeBool() ? MOX_ALIGN_8BYTES : MOX_ALIGN_4BYTES;
  const int width = in_.ConsumeIntegralInRange<int>(1, 40);
  const int height = in_.ConsumeIntegralInRange<int>(1, 40);
  const bool tiled = in_.ConsumeIntegralInRange<int>(0, 3) == 0;
  MoxTileInfo* info = nullptr;
  if (tiled) {
    int tw = 8 * in_.ConsumeIntegralInRange<int>(1, 3), th = 8 * in_.ConsumeIntegralInRange<int>(1, 3);
    if (in_.ConsumeIntegralInRange<int>(0, 15) == 0) tw = smallInt(-8, 20);
    if (in_.ConsumeIntegralInRange<int>(0, 15) == 0) th = smallInt(-8, 20);
    auto& images = registry();
    info = moxCreateTileInfo(in_.ConsumeIntegralInRange<int>(0, 15) ? tileCallBack : nullptr,
                             static_cast<int>(images.size()), tw, th);
    if (!info) return false;
    images.push_back(&f);
    f.tileInfo_ = info;
    f.habit_ = static_cast<TileHabit>(in_.ConsumeIntegralInRange<int>(0, 3));
    f.failAt_ = in_.ConsumeIntegralInRange<int>(1, 4);
  }
  f.image_ = moxCreateImageHeader(nChannels, alpha, depth, nChannels == 1 ? "GRAY" : "RGB",
                                  in_.ConsumeBool() ? "RGBA" : "BGRA", order, origin, align, height,
                                  width, nullptr, nullptr, info);
  if (!f.image_) return false;
  MoxImage* image = f.image_;
  f.fill_ = in_.ConsumeIntegral<std::uint8_t>();
  f.bitsPerPixel_ = depthBits(depth) * (order == MOX_DATA_ORDER_PIXEL ? nChannels : 1);

  if (tiled) {
    const long long a = align * 8LL;
    const long long perRow = 1LL * std::max(info->width, 0) * f.bitsPerPixel_;
    const long long step = ((perRow + a - 1) & -a) >> 3;
    // Tiles whose rows alone pass 64 MB are never served (tileBytes_ -1).
    f.tileStep_ = step <= (64 << 20) ? static_cast<int>(step) : 0;
    f.tileBytes_ = step <= (64 << 20) && info->height <= (1 << 20)
                       ? step * std::max(info->height, 0) * (order == MOX_DATA_ORDER_PLANE ? nChannels : 1)
                       : -1;
  } else {
    // Rows may be longer than they need to be (by whole alignment units:
    // the kernels read samples at their natural alignment).
    if (in_.ConsumeIntegralInRange<int>(0, 3) == 0) {
      const int pad = align * in_.ConsumeIntegralInRange<int>(1, 3);
      const int planes = image->imageSize / (image->widthStep * height);
      image->widthStep += pad;
      image->imageSize = image->widthStep * height * planes;
    }
    f.data_ = static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(image->imageSize)));
    if (!f.data_) return false;
    const std::vector<std::uint8_t> bytes = in_.ConsumeBytes<std::uint8_t>(image->imageSize);
    if (!bytes.empty()) std::memcpy(f.data_, bytes.data(), bytes.size());
    for (std::size_t i = bytes.size(); i < static_cast<std::size_t>(image->imageSize); ++i)
      f.data_[i] = static_cast<std::uint8_t>(f.fill_ + i * 31);
    image->imageData = image->imageDataOrigin = reinterpret_cast<char*>(f.data_);
  }

  if (in_.ConsumeBool()) {
    f.roi_ = moxCreateROI(in_.ConsumeIntegralInRange<int>(0, 15) ? in_.ConsumeIntegralInRange<int>(0, nChannels)
                                                                  : smallInt(-1, 6),
                          smallInt(-2, width + 2), smallInt(-2, height + 2), smallInt(-1, height + 4),
                          smallInt(-1, width + 4));
    if (!f.roi_) return false;
    image->roi = f.roi_;
  }

  // Now and then a field the operations must refuse, or a smaller size
  // (which leaves the block long enough).
  switch (in_.ConsumeIntegralInRange<int>(0, 40)) {
    case 0: image->nChannels = std::min(smallInt(-2, 0), 0); break;
    case 1:  // only depths no operation takes: another valid one would misstate the block
      image->depth = in_.ConsumeIntegral<unsigned>();
      if (std::find(std::begin(kDepths), std::end(kDepths), image->depth) != std::end(kDepths))
        image->depth = 0;
      break;
    case 2: image->alphaChannel = in_.ConsumeBool() ? -1 : nChannels + 1; break;
    case 3: image->dataOrder = smallInt(2, 5); break;
    case 4: image->origin = smallInt(2, 5); break;
    case 5:
      image->align = smallInt(0, 16);
      if (image->align == MOX_ALIGN_4BYTES || image->align == MOX_ALIGN_8BYTES) image->align = 3;
      break;
    case 6: image->width = std::min(smallInt(-2, width), width); break;
    case 7: image->height = std::min(smallInt(-2, height), height); break;
    case 8: image->imageSize = std::min(smallInt(-2, 0), 0); break;
    case 9: image->widthStep = std::min(smallInt(-2, 0), 0); break;
    case 10: if (tiled) image->imageData = reinterpret_cast<char*>(&f); break;  // both data and tiles
    case 11: if (!tiled) image->imageData = nullptr; break;  // neither
    default: break;
  }
  if (std::getenv("MOXPX_FUZZ_SHOW")) show(f);
  return true;
}

void show(const FuzzImage& f) {
  const MoxImage* m = f.get();
  std::fprintf(stderr, "image %p: %dx%d depth 0x%x channels %d alpha %d order %d origin %d align %d "
               "widthStep %d imageSize %d data %p", static_cast<const void*>(m), m->width, m->height,
               m->depth, m->nChannels, m->alphaChannel, m->dataOrder, m->origin, m->align,
               m->widthStep, m->imageSize, static_cast<const void*>(m->imageData));
  if (const MoxROI* r = m->roi)
    std::fprintf(stderr, " roi coi %d at %d,%d size %dx%d", r->coi, r->xOffset, r->yOffset, r->width,
                 r->height);
  if (const MoxTileInfo* t = m->tileInfo)
    std::fprintf(stderr, " tiles %dx%d habit %d", t->width, t->height, static_cast<int>(f.habit_));
  std::fprintf(stderr, "\n");
}

}  // namespace fuzz
