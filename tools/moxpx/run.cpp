// The library images of one run and the ways of calling the operation on
// them. Every image keeps its pixels in one plain library image (the store);
// what the operation is handed is a header per thread: the store itself, or
// a tiled header whose call-back copies tiles out of the store and back.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "formats.h"
#include "ops.h"
#include "run.h"

namespace moxcli {

// ------------------------------------------------------------------ reports

namespace {

std::mutex reportLock;
std::string firstReport;
thread_local bool reported = false;

// One line: the function, the text (a header fault text's lines joined),
// the file and line, and the status.
std::string oneLine(int status, const char* func, const char* message, const char* file,
                    int line) {
  std::string text;
  for (const char* p = message ? message : ""; *p;) {
    const char* end = std::strchr(p, '\n');
    std::string part(p, end ? end : p + std::strlen(p));
    while (!part.empty() && part.back() == ' ') part.pop_back();
    if (!part.empty()) text.append(text.empty() ? "" : "; ").append(part);
    p = end ? end + 1 : p + std::strlen(p);
  }
  return std::string(func ? func : "<unknown>") + ": " + text + " [" + (file ? file : "") + ":" +
         std::to_string(line) + "] (" + moxErrorStr(status) + ")";
}

int MOX_CALL toolReport(int status, const char* func, const char* message, const char* file,
                        int line) {
  reported = true;
  const std::lock_guard<std::mutex> hold(reportLock);
  if (firstReport.empty()) firstReport = oneLine(status, func, message, file, line);
  return status;
}

}  // namespace

std::string takeReport() {
  const std::lock_guard<std::mutex> hold(reportLock);
  std::string text;
  text.swap(firstReport);
  return text;
}

void prepareThread() {
  moxSetErrMode(MOX_ErrorModeParent);
  moxRedirectError(toolReport);
}

// ------------------------------------------------------------------ images

namespace {

struct Geometry {
  int width, height, channels;
  unsigned depth;
  int order = MOX_DATA_ORDER_PIXEL;
  const char* model = nullptr;  // null: GRAY or RGB by the channels
  const char* seq = nullptr;    // null: by the channels
};

int bitsOf(unsigned depth) { return int(depth & ~MOX_DEPTH_SIGN); }

// Row step of a row of `width` pixels (8-byte alignment); a row of a plane
// holds one channel.
long long rowStep(long long width, int channels, unsigned depth, int order = MOX_DATA_ORDER_PIXEL) {
  if (order == MOX_DATA_ORDER_PLANE) channels = 1;
  return ((width * bitsOf(depth) * channels + 63) & ~63LL) >> 3;
}

struct HeaderDeleter {
  void operator()(MoxImage* im) const {
    if (im) moxDeallocate(im, MOX_FREE_HEADER | MOX_FREE_DATA | MOX_FREE_ROI | MOX_FREE_TILEINFO);
  }
};
using Header = std::unique_ptr<MoxImage, HeaderDeleter>;

const char* seqOf(int channels) {
  switch (channels) {
    case 1: return "G";
    case 2: return "GA";
    case 3: return "RGB";
    default: return "RGBA";
  }
}

Header makeHeader(const Geometry& g, const Options& o, MoxTileInfo* tile, void* id) {
  MoxROI* roi = nullptr;
  if (o.roi || o.coi) {
    roi = o.roi ? moxCreateROI(o.coi, o.roiX, o.roiY, o.roiH, o.roiW)
                : moxCreateROI(o.coi, 0, 0, g.height, g.width);
    if (!roi) throw std::bad_alloc();
  }
  const int alpha = g.channels == 2 || g.channels == 4 ? g.channels : 0;
  const char* model = g.model ? g.model : g.channels < 3 ? "GRAY" : "RGB";
  MoxImage* im = moxCreateImageHeader(g.channels, alpha, g.depth, model,
                                      g.seq ? g.seq : seqOf(g.channels), g.order, MOX_ORIGIN_TL,
                                      MOX_ALIGN_8BYTES, g.height, g.width, roi, id, tile);
  if (!im) {
    moxDeleteROI(roi);
    moxDeleteTileInfo(tile);
    throw UsageError(std::string("the library refuses an image of ") + std::to_string(g.width) +
                     "x" + std::to_string(g.height) + ", " + std::to_string(g.channels) +
                     " channels, depth " + depthName(g.depth) +
                     (g.depth == MOX_DEPTH_1U ? " (1u images have one channel)" : ""));
  }
  return Header(im);
}

// Converts the whole of `from` into `to` (same size and channels; any depths
// and data orders) with the library's moxConvert, their ROIs set aside for
// the call. A report becomes a LibraryFailure.
void convertWhole(MoxImage* from, MoxImage* to) {
  MoxROI* const fromRoi = from->roi;
  MoxROI* const toRoi = to->roi;
  from->roi = to->roi = nullptr;
  reported = false;
  moxConvert(from, to);
  from->roi = fromRoi, to->roi = toRoi;
  if (reported) throw LibraryFailure(takeReport());
}

// The pixels of one image, in a plain library image.
class Store {
 public:
  Store(const Picture& pic, unsigned depth, const Options& o, int order = MOX_DATA_ORDER_PIXEL,
        const char* model = nullptr, const char* seq = nullptr) {
    geometry_ = {pic.width, pic.height, pic.channels, depth, order, model, seq};
    options_ = o;
    const long long step = rowStep(pic.width, pic.channels, depth, order);
    if (step * pic.height * (order == MOX_DATA_ORDER_PLANE ? pic.channels : 1) > (1LL << 31) - 64)
      throw UsageError("an image of " + std::to_string(pic.width) + "x" +
                       std::to_string(pic.height) + " is too large for the library's sizes");
    header_ = makeHeader(geometry_, o, nullptr, nullptr);
    moxAllocateImage(header_.get(), 0);
    if (!header_->imageData) throw std::bad_alloc();
    fill(pic);
  }

  const Geometry& geometry() const { return geometry_; }
  const Options& options() const { return options_; }
  MoxImage* plain() const { return header_.get(); }

  // The pixels as a picture (a 1-bit image as 8 bits, set bits 255).
  Picture picture() const {
    const Geometry& g = geometry_;
    Picture out;
    out.width = g.width, out.height = g.height, out.channels = g.channels;
    out.depth = g.depth == MOX_DEPTH_1U ? MOX_DEPTH_8U : g.depth;
    out.allocate();
    const Header flat = pictureHeader(out);
    convertWhole(header_.get(), flat.get());
    for (int y = 0; y < g.height; ++y)
      std::memcpy(out.pixels.data() + std::size_t(y) * out.rowBytes(),
                  flat->imageData + std::size_t(y) * flat->widthStep, out.rowBytes());
    return out;
  }

 private:
  // The picture's values go through an image of their own depth in pixel
  // order, which the library converts to this one.
  void fill(const Picture& pic) {
    // A header the library cannot use (1-bit with several channels) stays
    // empty: the operation reports its fault.
    if (moxBadImageHeader(header_.get()) != 0) return;
    const Header own = pictureHeader(pic);
    for (int y = 0; y < pic.height; ++y)
      std::memcpy(own->imageData + std::size_t(y) * own->widthStep,
                  pic.pixels.data() + std::size_t(y) * pic.rowBytes(), pic.rowBytes());
    convertWhole(own.get(), header_.get());
  }

  // An allocated pixel-order image shaped like the picture, labelled as this one.
  Header pictureHeader(const Picture& pic) const {
    const Geometry g{pic.width, pic.height, pic.channels, pic.depth, MOX_DATA_ORDER_PIXEL,
                     geometry_.model, geometry_.seq};
    Header im = makeHeader(g, Options{}, nullptr, nullptr);
    moxAllocateImage(im.get(), 0);
    if (!im->imageData) throw std::bad_alloc();
    return im;
  }

  Geometry geometry_;
  Options options_;
  Header header_;
};

// A tiled header over a store: the call-back copies the tile asked for out
// of the store into the view's own block and, for a tile to write, back
// when it is released or another tile is asked for.
class TileView {
 public:
  TileView(const Store& store, int tileW, int tileH)
      : store_(store), tileW_(tileW), tileH_(tileH) {
    const Geometry& g = store.geometry();
    if (g.order == MOX_DATA_ORDER_PLANE)
      throw UsageError("the tool hands out tiles of pixel-order images only");
    step_ = rowStep(tileW > 0 ? tileW : 0, g.channels, g.depth);
    MoxTileInfo* info = moxCreateTileInfo(callBack, 0, tileW, tileH);
    if (!info) throw std::bad_alloc();
    header_ = makeHeader(g, store.options(), info, this);
  }
  TileView(const TileView&) = delete;
  TileView& operator=(const TileView&) = delete;

  MoxImage* header() const { return header_.get(); }

 private:
  static void MOX_CALL callBack(const MoxImage* image, int xIndex, int yIndex, int mode) {
    static_cast<TileView*>(image->imageId)->serve(xIndex, yIndex, mode);
  }

  void serve(int tx, int ty, int mode) {
    MoxTileInfo* info = header_->tileInfo;
    if (mode == MOX_RELEASE_TILE) {
      putBack();
      held_ = false;
      info->tileData = nullptr;
      return;
    }
    if (mode != MOX_GET_TILE_TO_READ && mode != MOX_GET_TILE_TO_WRITE) return;
    if (!held_ || tx != heldX_ || ty != heldY_) {
      putBack();
      held_ = false;
      if (!take(tx, ty)) {
        info->tileData = nullptr;  // outside the image: the library says so
        return;
      }
      held_ = true, heldX_ = tx, heldY_ = ty;
    }
    dirty_ = dirty_ || mode == MOX_GET_TILE_TO_WRITE;
    info->tileData = reinterpret_cast<char*>(block_.data());
  }

  // The bytes of the tile's rows that lie in the image: first byte of row 0
  // in the store, bytes per row, rows.
  bool span(int tx, int ty, std::size_t& offset, std::size_t& bytes, int& rows) const {
    const Geometry& g = store_.geometry();
    const long long x0 = (long long)tx * tileW_, y0 = (long long)ty * tileH_;
    if (tx < 0 || ty < 0 || x0 >= g.width || y0 >= g.height) return false;
    const long long cols = std::min<long long>(tileW_, g.width - x0);
    rows = int(std::min<long long>(tileH_, g.height - y0));
    const long long bits = (long long)bitsOf(g.depth) * g.channels;
    bytes = std::size_t((cols * bits + 7) / 8);
    offset = std::size_t(y0 * store_.plain()->widthStep + x0 * bits / 8);  // x0 is a multiple of 8
    return true;
  }

  bool take(int tx, int ty) {
    std::size_t offset, bytes;
    int rows;
    if (!span(tx, ty, offset, bytes, rows)) return false;
    block_.assign(std::size_t(step_) * tileH_, 0);
    const char* from = store_.plain()->imageData + offset;
    for (int r = 0; r < rows; ++r)
      std::memcpy(&block_[std::size_t(r) * step_], from + std::size_t(r) * store_.plain()->widthStep, bytes);
    dirty_ = false;
    return true;
  }

  void putBack() {
    std::size_t offset, bytes;
    int rows;
    if (!held_ || !dirty_ || !span(heldX_, heldY_, offset, bytes, rows)) return;
    char* to = store_.plain()->imageData + offset;
    for (int r = 0; r < rows; ++r)
      std::memcpy(to + std::size_t(r) * store_.plain()->widthStep, &block_[std::size_t(r) * step_], bytes);
    dirty_ = false;
  }

  const Store& store_;
  int tileW_, tileH_;
  long long step_ = 0;
  Header header_;
  std::vector<char> block_;
  bool held_ = false, dirty_ = false;
  int heldX_ = 0, heldY_ = 0;
};

// The headers one thread hands the operation.
struct ThreadImages {
  std::vector<std::unique_ptr<TileView>> views;
  Call call;

  ThreadImages(const std::vector<std::unique_ptr<Store>>& sources,
               const std::vector<std::unique_ptr<Store>>& destinations, bool tileSources,
               bool tileDestinations, int tw, int th, const Args& args)
      : call{{}, {}, nullptr, args} {
    auto header = [&](const Store& s, bool tiled) {
      if (!tiled) return s.plain();
      views.push_back(std::make_unique<TileView>(s, tw, th));
      return views.back()->header();
    };
    for (std::size_t i = 0; i < sources.size(); ++i) call.src[i] = header(*sources[i], tileSources);
    for (std::size_t i = 0; i < destinations.size(); ++i)
      call.dst[i] = header(*destinations[i], tileDestinations);
  }
};

// The destination tiles that meet the destination's rectangle.
std::vector<std::pair<int, int>> destinationTiles(const Store& dst, const Options& o, int tw,
                                                  int th, bool wholeImage) {
  const Geometry& g = dst.geometry();
  long long x0 = 0, y0 = 0, x1 = g.width, y1 = g.height;
  if (o.roi && !wholeImage) {
    x0 = o.roiX, y0 = o.roiY;
    x1 = std::min<long long>(g.width, x0 + o.roiW), y1 = std::min<long long>(g.height, y0 + o.roiH);
  }
  std::vector<std::pair<int, int>> tiles;
  if (x0 < 0 || y0 < 0 || x1 <= x0 || y1 <= y0) {
    tiles.emplace_back(0, 0);  // the library reports the rectangle
    return tiles;
  }
  for (long long ty = y0 / th; ty * th < y1; ++ty)
    for (long long tx = x0 / tw; tx * tw < x1; ++tx) tiles.emplace_back(int(tx), int(ty));
  return tiles;
}

}  // namespace

std::vector<Picture> execute(const Op& op, const std::vector<Picture>& inputs,
                             const Options& o, const Args& args, std::string* printed) {
  // The sources at the working depth; each destination starts as the input
  // of its own place (or the first), at the destination depth, the first as
  // the file of --into when given. The second image of each has --roi2.
  std::vector<std::unique_ptr<Store>> sources, destinations;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const Picture& p = inputs[i];
    const Options mine = o.of(i);
    if (mine.roi && (mine.roiX >= p.width || mine.roiY >= p.height))
      throw UsageError(std::string("the rectangle of ") + (i == 1 && o.roi2 ? "--roi2" : "--roi") +
                       " starts outside the image of " + std::to_string(p.width) + "x" +
                       std::to_string(p.height));
    sources.push_back(
        std::make_unique<Store>(p, op.srcDepth ? op.srcDepth : o.depth ? o.depth : p.depth, mine,
                                MOX_DATA_ORDER_PIXEL, op.srcModel, op.srcSeq));
  }
  const unsigned working = sources[0]->geometry().depth;
  Picture into;
  if (!o.into.empty()) into = readPicture(o.into);
  unsigned dstDepth = op.dstDepth ? op.dstDepth(args, working) : working;
  if (o.dstDepth) dstDepth = o.dstDepth;
  const int dstOrder = op.dstOrder ? op.dstOrder(args) : MOX_DATA_ORDER_PIXEL;
  for (std::size_t i = 0; i < op.outputs.size(); ++i) {
    const bool given = i == 0 && !o.into.empty();
    const Picture& start = given ? into : inputs[i < inputs.size() ? i : 0];
    if (!op.shape || given) {
      destinations.push_back(std::make_unique<Store>(start, dstDepth, o.of(i), dstOrder));
      continue;
    }
    Picture black;
    black.width = start.width, black.height = start.height, black.channels = start.channels;
    op.shape(args, black.width, black.height, black.channels);
    if (black.width < 1 || black.height < 1 || black.channels < 1 ||
        (long long)black.width * black.height * black.channels > (1LL << 31))
      throw UsageError("the arguments give a destination of " + std::to_string(black.width) +
                       "x" + std::to_string(black.height) + ", which cannot be made");
    black.allocate();
    destinations.push_back(std::make_unique<Store>(black, dstDepth, o.of(i), dstOrder));
  }

  const bool tiled = o.tileW || o.tileH;
  // A call's destination tile lies at the same place of every image, so
  // rectangles at different places cannot be shared out by tiles.
  if (o.threads && o.roi2)
    throw UsageError("--threads hands out tiles at the same place of every image, so it does not "
                     "go with --roi2");
  if (o.threads && !op.mapping)
    throw UsageError(std::string(op.name) + " takes no destination tile per call, so --threads cannot split it");
  // Without --tile, threads take bands of whole rows: a band reads every
  // source as one run per row, where a square tile reads a page per row.
  const int dstWidth = (destinations.empty() ? sources : destinations)[0]->geometry().width;
  const int tw = tiled ? o.tileW : (dstWidth + 7) / 8 * 8, th = tiled ? o.tileH : 32;

  {
    const std::lock_guard<std::mutex> hold(reportLock);
    firstReport.clear();
  }
  if (!o.threads) {
    reported = false;
    ThreadImages images(sources, destinations, tiled, tiled, tw, th, args);
    op.call(images.call);
    if (printed) printed->swap(images.call.printed);
  } else {
    const auto tiles = destinationTiles(*destinations[0], o, tw, th, op.wholeImage);
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    auto work = [&] {
      prepareThread();
      reported = false;
      ThreadImages images(sources, destinations, tiled, true, tw, th, args);
      for (std::size_t k; !failed && (k = next++) < tiles.size();) {
        const int mapping[2] = {tiles[k].first, tiles[k].second};
        images.call.mapping = mapping;
        op.call(images.call);
        if (reported) failed = true;
      }
    };
    std::vector<std::thread> pool;
    std::exception_ptr trouble;
    std::mutex troubleLock;
    for (int t = 0; t < o.threads; ++t)
      pool.emplace_back([&] {
        try {
          work();
        } catch (...) {
          const std::lock_guard<std::mutex> hold(troubleLock);
          if (!trouble) trouble = std::current_exception();
          failed = true;
        }
      });
    for (auto& t : pool) t.join();
    if (trouble) std::rethrow_exception(trouble);
  }
  {
    const std::lock_guard<std::mutex> hold(reportLock);
    if (!firstReport.empty()) throw LibraryFailure(firstReport);
  }

  std::vector<Picture> out;
  for (const auto& d : destinations) out.push_back(d->picture());
  return out;
}

}  // namespace moxcli
