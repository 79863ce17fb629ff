// Images built from fuzz input for the libFuzzer targets.
//
// Every image is honest about its memory: the pixel block is exactly as long
// as the header's imageSize, and a tile handed out by the call-back is laid
// out as the tile info says. Everything else is the input's choice: depth,
// channels, data order, origin, alignment, padded rows, a ROI with any
// offsets, size and channel of interest, invalid header fields, and tiling
// with a call-back that may misbehave.
#ifndef MOXPX_FUZZ_IMAGES_H
#define MOXPX_FUZZ_IMAGES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "moxpx.h"

namespace fuzz {

// Makes the library report failures quietly and return to the caller.
void quietErrors();

// How a tiled image's call-back answers.
enum class TileHabit : std::uint8_t {
  Honest,      // a full tile for each request, taken back on release
  NullOnGet,   // some request is left without a tile
  KeepOnRelease,  // the tile is not taken back
  EdgeOnly,    // a tile at the image's edge holds only the pixels inside the image
};

// One image and everything it owns; released by the destructor.
class FuzzImage {
 public:
  FuzzImage() = default;
  FuzzImage(const FuzzImage&) = delete;
  FuzzImage& operator=(const FuzzImage&) = delete;
  ~FuzzImage();

  MoxImage* get() const { return image_; }
  // Called by the call-back.
  void tileRequest(int xIndex, int yIndex, int mode);

 private:
  friend class ImageMaker;
  friend void show(const FuzzImage&);
  MoxImage* image_ = nullptr;
  MoxROI* roi_ = nullptr;
  MoxTileInfo* tileInfo_ = nullptr;
  std::uint8_t* data_ = nullptr;
  TileHabit habit_ = TileHabit::Honest;
  int failAt_ = 0;    // the request (counted from 1) a NullOnGet call-back leaves empty
  int requests_ = 0;
  std::uint8_t fill_ = 0;
  std::map<std::pair<int, int>, std::uint8_t*> tiles_;  // by tile column and row
  int tileStep_ = 0;
  long long tileBytes_ = 0;
  int bitsPerPixel_ = 0;  // per plane entry: depth bits, times channels in pixel order
};

// Prints an image's fields to standard error (the maker does it for every
// image when MOXPX_FUZZ_SHOW is set in the environment).
void show(const FuzzImage& image);

// Reads images and arguments from the fuzz input.
class ImageMaker {
 public:
  explicit ImageMaker(FuzzedDataProvider& in) : in_(in) {}

  // Fills `image` from the input. `depths` (null: any valid depth) narrows
  // the choice for operations that take few depths; `channels` 0 lets the
  // input choose 1 to 4. Returns false when the header cannot be made.
  bool make(FuzzImage& image, const unsigned* depths = nullptr, int nDepths = 0,
            int channels = 0);
  // Fills several images that mostly share one depth and channel count, so
  // that operations get past their argument checks.
  bool makeAlike(FuzzImage* const* images, int n, const unsigned* depths = nullptr, int nDepths = 0);
  // A small number, now and then an extreme one.
  int smallInt(int lo, int hi);
  // Null, or two or more numbers for a tile request or channel mapping.
  const int* mapping();

 private:
  FuzzedDataProvider& in_;
  int mapping_[4] = {};
};

// A source and a destination that mostly share depth and channels; now and
// then the destination is the source itself.
struct SourceAndDestination {
  FuzzImage a, b;
  MoxImage* src = nullptr;
  MoxImage* dst = nullptr;
  bool make(FuzzedDataProvider& in, ImageMaker& maker);
};

// A whole target that works on a source and a destination: quiets the
// reports, builds both from the input and runs body(in, maker, src, dst).
template <class Body>
int runOnSourceAndDestination(const std::uint8_t* data, std::size_t size, Body body) {
  quietErrors();
  FuzzedDataProvider in(data, size);
  ImageMaker maker(in);
  SourceAndDestination images;
  if (images.make(in, maker)) body(in, maker, images.src, images.dst);
  return 0;
}

}  // namespace fuzz

#endif
