// The shared source reader: any rectangle of a source image, inside it or
// reaching past its edges, as a plain View.
//
// Operations that read more of the source than the destination piece they
// write (filters, morphology, geometry) let the walk drive the destination
// and ask the reader for the source rectangle each piece needs:
//
//   struct Job { SourceReader* reader; ... };
//   bool piece(const View& dst, int x, int y, void* arg) {
//     Job* job = static_cast<Job*>(arg);
//     View src;  // a 3x3 filter: the piece grown by one pixel on each side
//     if (!job->reader->read(x - 1, y - 1, dst.width + 2, dst.height + 2, &src)) return false;
//     filterKernel(src, dst);  // src(i + 1, j + 1) lies under dst(i, j)
//     return true;
//   }
//   SourceReader reader(srcImage, Edge::kModes, sites);  // or Edge::kClamp
//   walkDestination(plan, {dstImage, "dstImage", true}, mapping, &piece, &job);
//
// For a plain image and a rectangle inside it the view points straight into
// the image. Otherwise the reader fills a scratch block (owned by the reader,
// valid until the next read): the part inside the image from the image or
// its tiles (each tile got, copied and released in rows of tiles from the
// top, through the caller's call-back with the caller's own header), the
// part outside by the policy: the image's border modes (Edge::kModes) or the
// nearest edge pixel (Edge::kClamp). Kernels see the same bits either way.
// The view has the image's channels, depth, data order and channel of
// interest; 1-bit scratch rows start at bit 0.
//
// Failures are reported at the operation's sites (its own texts where it has
// them) and read() returns false; the operation then returns.
#pragma once

#include "image/border.h"
#include "image/walk.h"

namespace mox {

struct SourceSites {
  const char* func;
  const char* file;
  const char* name;  // argument name in the texts, e.g. "srcImage"
  int getLine;       // a get left tileData null
  int releaseLine;   // a release left tileData set
  int borderLine;    // the border modes leave a position outside the image
  int memoryLine;    // the scratch block cannot be had
  // The operation's own text and status for a get that left tileData null;
  // null keeps "(srcImage->tileInfo->tileData == ((void*)(0)))".
  const char* nullText = nullptr;
  int nullStatus = MOX_StsBadArgument;
};

class SourceReader {
 public:
  SourceReader(const MoxImage* image, Edge edge, const SourceSites& sites);
  ~SourceReader();
  SourceReader(const SourceReader&) = delete;
  SourceReader& operator=(const SourceReader&) = delete;

  // The rectangle of w x h pixels whose first pixel is (x, y) in image
  // coordinates (any, also outside the image). False after a report.
  bool read(int x, int y, int w, int h, View* out);

  // As read(), but a rectangle inside one tile of a tiled image is shown
  // where it lies in the tile, which stays held until the next read or
  // finish(): no copy for the pieces of a walk that fall within a tile.
  bool readInPlace(int x, int y, int w, int h, View* out);

  // Releases a tile that readInPlace() left held. With `check`, a release
  // that leaves tileData set is reported (false); without, the tile is
  // only handed back (after a failure that has been reported already).
  bool finish(bool check = true);

 private:
  bool fillOutside(const View& block, long long x, long long y, long long ix0, long long iy0,
                   long long ix1, long long iy1);
  bool copyInside(const View& block, long long x, long long y, long long ix0, long long iy0,
                  long long ix1, long long iy1);
  bool fetch(int sx, int sy, View* tile, int* ox, int* oy);
  bool release();
  // Hands the held tile back, unchecked.
  void handBack();
  bool fail(int status, int line);

  const MoxImage* image_;
  Edge edge_;
  SourceSites sites_;
  long long tileStep_ = 0;
  bool held_ = false;
  bool kept_ = false;  // the held tile was shown in place
  int heldX_ = 0, heldY_ = 0;
  char* scratch_ = nullptr;
  long long capacity_ = 0;     // the bytes in use (zeroed when first used)
  std::size_t scratchSize_ = 0;  // the block's own size
  // The copies that fill a block's outside, kept between reads.
  struct Copy;
  Copy* plan_ = nullptr;
  long long planCapacity_ = 0;
};

}  // namespace mox
