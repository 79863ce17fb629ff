// The ROI/tile walk that every point operation shares.
//
// An operation names its images in argument order (sources first, the
// destination last), a table of its report lines and a kernel. The walk
// works out the common rectangle of the images' ROIs (each ROI clipped to its
// image; all images take the smallest width and height, each keeps its own
// start), honours the caller's `mapping` tile request, asks tiled images for
// their tiles through the caller's call-back (which always gets the caller's
// own header pointer) and runs the kernel on plain views of the pixels.
//
// How the tile-data lines are read:
//  - first walk: a `mapping` names one destination tile of a tiled
//    destination. Every tiled image asks its call-back for the tile that holds
//    the next piece and checks that tileData is set (lines `firstGet`); a new
//    request takes the place of the tile held before.
//  - second walk: no `mapping` (or an untiled destination): the whole common
//    rectangle. When an image moves on to another tile it first releases the
//    tile it holds and checks that tileData is cleared (`secondRelease`),
//    then asks for the next one and checks that tileData is set (`secondGet`).
//  - release pass: when the walk ends every tiled image is released and the
//    walk checks that tileData is cleared (`finalRelease`).
// The rectangle is cut into pieces at every tile edge of every tiled image; a
// piece spans all rows of the current band of tiles, so the kernel runs once
// per piece, never once per pixel or row. An image asks again only when the
// piece lies in another tile than the one it holds. When the rows of every
// image's piece follow each other with no gap (pixel order, all channels,
// row step equal to the row's bytes), the kernel sees them as one long row.
//
// Without tiled images the kernel runs once over the whole rectangle. With
// the whole-image option it runs once over the flat pixel blocks when every
// image has the same size and step as the destination and a ROI that covers
// the whole image with all channels; row padding is then processed too.
#pragma once

#include <cstddef>

#include "image/image.h"

namespace mox {

// A rectangle of one image as a kernel sees it. `data` is the first byte of
// the rectangle's first row (channel 1, plane 1); rows are `widthStep` apart
// and planes (plane order) `planeStep` apart. For depth 1, `data` is the byte
// holding the first pixel and `bitOffset` its bit, counted from the most
// significant bit.
struct View {
  char* data;
  int widthStep;
  int width;
  int height;
  int nChannels;
  int coi;
  int dataOrder;
  unsigned depth;
  int bitOffset;
  std::ptrdiff_t planeStep;
  // The destination's whole rectangle holds at least kLargeBytes: kernels
  // may write it past the caches even when a piece is small.
  bool large = false;
};

constexpr long long kLargeBytes = 8ll << 20;

// Runs on the views of one piece, in argument order; `arg` is the
// operation's own argument block.
using Kernel = void (*)(const View* views, const void* arg);

// One image of the walk. `write` asks for tiles to write (the destination,
// or both images of an exchange).
struct WalkImage {
  const MoxImage* image;
  const char* name;  // argument name used in the reports, e.g. "srcImageA"
  bool write;
};

// The most images one walk takes (two sources, a destination and their
// three alpha images).
constexpr int kMaxWalkImages = 6;

// Lines of one operation's walk reports. For n images the tile-data lines
// are 4n numbers in this order: n first-walk gets; n pairs (release, get) of
// the second walk; n final releases. A line 0 leaves that test out.
struct WalkLines {
  int request[4];  // begX > endX, begY > endY, endX < begX, endY < begY
  int tileData[4 * kMaxWalkImages];
};

// The rectangle the images share: their ROIs (as above); the whole images
// from their top-left corner, ROIs and channels of interest not consulted;
// or the first image's ROI, at the same place in every image.
enum class Area { rois, whole, firstRoi };

struct WalkPlan {
  const char* func;
  const char* file;
  const WalkLines* lines;
  bool wholeImage;  // allow the flat whole-image path
  // `mapping` names one destination pixel, not a tile: the rectangle is cut
  // to that pixel, and a pixel outside it means no work and no report.
  bool pointMapping = false;
  // The operation's own text and status for a get that leaves tileData
  // null, and its own text for a release that leaves it set; null keeps
  // "(name->tileInfo->tileData == ((void*)(0)))" (or "!=").
  const char* nullText = nullptr;
  int nullStatus = MOX_StsBadArgument;
  const char* releaseText = nullptr;
  Area area = Area::rois;
  // Each piece asks the destination's tile before the sources'.
  bool destinationFirst = false;
  // How the tile-data reports spell a null pointer.
  const char* null = "((void*)(0))";
};

// Reports a tile call-back that left tileData null after a get (`afterGet`)
// or set after a release, with the plan's own text if it has one.
bool reportTileData(const WalkPlan& plan, int line, const char* name, bool afterGet);

// Walks n (1..kMaxWalkImages) images. Returns false after a report (tile request or tile
// data); the kernel may then have run on part of the rectangle.
bool walk(const WalkPlan& plan, const WalkImage* images, int n, const int* mapping, Kernel kernel,
          const void* arg);

// Runs on one destination piece: its view and the position of its first
// pixel in the destination image. Returns false after a report, which
// stops the walk.
using PieceFn = bool (*)(const View& dst, int x, int y, void* arg);

// The destination-driven walk: the pieces of one image's rectangle (its ROI
// clipped to it), cut by `mapping` and the image's tiles exactly as in
// walk() with n = 1 (tile lines: first get, second release and get, final
// release). Rows are never joined. Returns false after a report.
bool walkDestination(const WalkPlan& plan, const WalkImage& dst, const int* mapping, PieceFn fn,
                     void* arg);

// The view of the rectangle (x, y, w, h) of an image whose pixels (or the
// tile that holds them) start at pixel (ox, oy) of `base`, rows `step` and
// planes `planeStep` bytes apart.
View blockView(const MoxImage* im, char* base, long long step, long long planeStep, long long ox,
               long long oy, long long x, long long y, long long w, long long h);

// The views of the common rectangle of n (1..3) untiled images, rows as
// they lie; false when the rectangle is empty. For operations that need
// whole rows in order (error diffusion), which take no tiled images.
bool plainViews(const MoxImage* const* images, int n, View* views);

// Checks that an untiled image's step and size hold the rows its width and
// height need, and that a tiled image's tile layout fits in 32 bits; reports
// at the site and returns true when not.
bool badLayout(const MoxImage* image, const char* name, const Site& at);

// Channels an operation works on: 1 with a channel of interest, else all.
inline int workChannels(const MoxImage* image) {
  return image->roi && image->roi->coi != 0 ? 1 : image->nChannels;
}

}  // namespace mox
