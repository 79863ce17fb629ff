// One destination tile per call on several threads, as `moxpx --threads`
// runs, on a plain 8192x8192 8U RGB picture. Three operations:
//  - AddS and RGB2HSV take a destination tile through `mapping`: they write
//    a tiled destination whose tiles are shared out to the threads; two tile
//    shapes for AddS, square 256x256 tiles and bands of whole rows (8192x8),
//    which read the plain source as one run per row instead of one page per
//    row;
//  - Blur3x3 (moxBlur, 3x3 box) has no `mapping`: each thread calls it with
//    its own source and destination headers whose ROIs are one band of rows
//    of a plain destination (the filter reads the neighbours of a ROI from
//    the picture around it).
// Each on 1, 2 and all cores, beside the whole picture in one plain call.
// Names: BM_moxpx_<Op>/8U_8192x8192x3_tile<W>x<H>[_threadsN]/real_time;
// bench_table.py shows threadsN/plain, the wall-clock time on N threads over
// the plain call's.
//
// Every threaded result is checked once against the plain call's before it
// is timed.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "bench_images.h"

namespace {

using namespace moxbench;

constexpr Shape kShape{MOX_DEPTH_8U, 8192, 8192, 3};
constexpr int kValue = 40;

// The destination's tiles in one block. A header's tileData belongs to the
// call running on it, so every thread has its own header and tile-info
// record over the shared tiles; the tiles the threads write are disjoint.
class SharedTiles {
 public:
  SharedTiles(int tileW, int tileH) : tileW_(tileW), tileH_(tileH) {
    int step = 0, size = 0;
    mox::layoutSize(tileW, tileH, kShape.depth, kShape.channels, MOX_DATA_ORDER_PIXEL,
                    MOX_ALIGN_4BYTES, &step, &size);
    step_ = static_cast<std::size_t>(step);
    tileBytes_ = static_cast<std::size_t>(size);
    block_.assign(tileBytes_ * tilesX() * tilesY(), 0);
  }
  ~SharedTiles() {
    for (MoxImage* h : headers_) moxDeallocate(h, MOX_FREE_HEADER | MOX_FREE_TILEINFO);
  }
  SharedTiles(const SharedTiles&) = delete;
  SharedTiles& operator=(const SharedTiles&) = delete;

  int tilesX() const { return (kShape.width + tileW_ - 1) / tileW_; }
  int tilesY() const { return (kShape.height + tileH_ - 1) / tileH_; }

  // A header of its own for each of n threads.
  const std::vector<MoxImage*>& headers(int n) {
    while (static_cast<int>(headers_.size()) < n) {
      MoxTileInfo* info = moxCreateTileInfo(&SharedTiles::callBack, 0, tileW_, tileH_);
      MoxImage* h = info ? createHeader(kShape, info, this) : nullptr;
      if (!h) {
        moxDeleteTileInfo(info);
        break;
      }
      headers_.push_back(h);
    }
    return headers_;
  }

  // The value at (x, y, channel c) of the picture.
  unsigned char at(int x, int y, int c) const {
    const char* tile = block_.data() +
                       (static_cast<std::size_t>(y / tileH_) * tilesX() + x / tileW_) * tileBytes_;
    return static_cast<unsigned char>(
        tile[(y % tileH_) * step_ + static_cast<std::size_t>(x % tileW_) * kShape.channels + c]);
  }

 private:
  static void MOX_CALL callBack(const MoxImage* image, int xIndex, int yIndex, int mode) {
    auto* self = static_cast<SharedTiles*>(image->imageId);
    const bool inside =
        xIndex >= 0 && xIndex < self->tilesX() && yIndex >= 0 && yIndex < self->tilesY();
    image->tileInfo->tileData =
        mode != MOX_RELEASE_TILE && inside
            ? self->block_.data() +
                  (static_cast<std::size_t>(yIndex) * self->tilesX() + xIndex) * self->tileBytes_
            : nullptr;
  }

  int tileW_, tileH_;
  std::size_t step_ = 0, tileBytes_ = 0;
  std::vector<char> block_;
  std::vector<MoxImage*> headers_;
};

// One operation of the table: its call on a source and a destination
// header (mapping null for the whole picture, and for operations without
// one, which are shared out by ROIs instead).
struct Op {
  const char* name;
  bool mapping;
  void (*call)(const MoxImage* src, MoxImage* dst, const int* mapping);
  std::vector<std::array<int, 2>> tiles;
};

const Op kOps[] = {
    {"AddS", true, [](const MoxImage* s, MoxImage* d, const int* m) { moxAddS(s, d, kValue, m); },
     {{256, 256}, {kShape.width, 8}}},
    {"RGB2HSV", true, [](const MoxImage* s, MoxImage* d, const int* m) { moxRGB2HSV(s, d, m); },
     {{kShape.width, 8}}},
    {"Blur3x3", false, [](const MoxImage* s, MoxImage* d, const int*) { moxBlur(s, d, 3, 3, 1, 1); },
     {{kShape.width, 64}}},
};

// The source, the plain call's destination and the destination of the
// threads for operations without `mapping`, made on first use (200 MB
// each), and the tiled destination of the tile shape last asked for.
struct Pictures {
  PlainImage source{kShape}, plain{kShape}, banded{kShape};
  std::unique_ptr<SharedTiles> tiles;
  Pictures() {
    if (source.ok()) fillRandom(source.data(), source.bytes(), 11);
  }
};

Pictures& pictures() {
  static Pictures p;
  return p;
}

SharedTiles& tilesOf(Pictures& p, int tileW, int tileH) {
  if (!p.tiles || p.tiles->tilesX() != (kShape.width + tileW - 1) / tileW ||
      p.tiles->tilesY() != (kShape.height + tileH - 1) / tileH)
    p.tiles = std::make_unique<SharedTiles>(tileW, tileH);
  return *p.tiles;
}

// Calls work(t, k) for every tile k of count on n threads (the calling
// thread t = 0 among them). False when a call reported a failure.
template <class Work>
bool onThreads(int n, int count, const Work& work) {
  std::atomic<int> next{0};
  std::atomic<bool> failed{false};
  auto loop = [&](int t) {
    quietErrors();
    for (int k; (k = next++) < count;) work(t, k);
    if (moxGetErrStatus() != MOX_StsNoError) failed = true;
  };
  std::vector<std::thread> others;
  for (int t = 1; t < n; ++t) others.emplace_back(loop, t);
  loop(0);
  for (auto& t : others) t.join();
  return !failed;
}

// Every destination tile once on n threads: through `mapping` into the
// tiled destination, or as bands of rows whose ROIs each thread sets on
// headers of its own over the plain source and the banded destination.
bool runOnThreads(const Op& op, Pictures& p, int n, int tileW, int tileH) {
  if (op.mapping) {
    SharedTiles& tiles = tilesOf(p, tileW, tileH);
    const auto& headers = tiles.headers(n);
    return onThreads(n, tiles.tilesX() * tiles.tilesY(), [&](int t, int k) {
      const int mapping[2] = {k % tiles.tilesX(), k / tiles.tilesX()};
      op.call(p.source.get(), headers[t], mapping);
    });
  }
  const int across = (kShape.width + tileW - 1) / tileW, down = (kShape.height + tileH - 1) / tileH;
  return onThreads(n, across * down, [&](int, int k) {
    const int x = k % across * tileW, y = k / across * tileH;
    MoxROI roi{0, x, y, std::min(tileH, kShape.height - y), std::min(tileW, kShape.width - x)};
    MoxImage src = *p.source.get(), dst = *p.banded.get();
    src.roi = dst.roi = &roi;
    op.call(&src, &dst, nullptr);
  });
}

// The threads' result is the plain call's.
bool samePlain(benchmark::State& state, const Op& op, const Pictures& p) {
  const auto* plain = reinterpret_cast<const unsigned char*>(p.plain.data());
  bool same = true;
  if (!op.mapping) {
    same = std::memcmp(p.plain.data(), p.banded.data(), kShape.bytes()) == 0;
  } else {
    for (int y = 0; y < kShape.height && same; ++y)
      for (int x = 0; x < kShape.width; ++x)
        for (int c = 0; c < kShape.channels; ++c)
          same = same && p.tiles->at(x, y, c) ==
                             plain[(static_cast<std::size_t>(y) * kShape.width + x) * kShape.channels + c];
  }
  if (!same) state.SkipWithError("the threads' result differs from the plain call's");
  return same;
}

void runPlain(benchmark::State& state, const Op* op) {
  Pictures& p = pictures();
  quietErrors();
  if (!p.source.ok() || !p.plain.ok()) return state.SkipWithError("no memory for the pictures");
  op->call(p.source.get(), p.plain.get(), nullptr);
  if (!lastReport().empty()) return state.SkipWithError(lastReport().c_str());
  for (auto _ : state) {
    op->call(p.source.get(), p.plain.get(), nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * kShape.bytes());
}

void runThreads(benchmark::State& state, const Op* op, int n, int tileW, int tileH) {
  Pictures& p = pictures();
  quietErrors();
  if (!p.source.ok() || !p.plain.ok() || !p.banded.ok())
    return state.SkipWithError("no memory for the pictures");
  if (op->mapping && static_cast<int>(tilesOf(p, tileW, tileH).headers(n).size()) < n)
    return state.SkipWithError("no headers");
  op->call(p.source.get(), p.plain.get(), nullptr);
  if (!runOnThreads(*op, p, n, tileW, tileH))
    return state.SkipWithError("a tile call reported a failure");
  if (!samePlain(state, *op, p)) return;
  for (auto _ : state) {
    runOnThreads(*op, p, n, tileW, tileH);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * kShape.bytes());
}

int registerAll() {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  for (const Op& op : kOps)
    for (const auto& tile : op.tiles) {
      std::string entry = std::string("BM_moxpx_") + op.name + "/" + caseName(kShape);
      entry.append("_tile").append(std::to_string(tile[0])).append("x").append(std::to_string(tile[1]));
      // Wall-clock time for all of them: the threads' work is not in the
      // timing thread's process time, and the plain call is set beside them
      // alike (one plain row per tile shape, so that each row has its own).
      benchmark::RegisterBenchmark(entry.c_str(), runPlain, &op)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      for (int n : std::set<int>{1, 2, cores}) {
        std::string name = entry;
        name.append("_threads").append(std::to_string(n));
        benchmark::RegisterBenchmark(name.c_str(), runThreads, &op, n, tile[0], tile[1])
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  return 0;
}

const int registered = registerAll();

}  // namespace
