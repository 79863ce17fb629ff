// One destination tile per call on several threads, as `moxpx --threads`
// runs: moxAddS from a plain 8192x8192 8U RGB picture into a tiled
// destination, the tiles shared out through `mapping` to 1, 2 and all cores.
// Two tile shapes: square 256x256 tiles, and bands of whole rows (8192x8),
// which read the plain source as one run per row instead of one page per
// row. Beside them the whole picture in one plain call. Names:
// BM_moxpx_AddS/8U_8192x8192x3_tile<W>x<H>[_threadsN]/real_time;
// bench_table.py shows threadsN/plain, the wall-clock time on N threads over
// the plain call's.
//
// The result is checked once against the plain rule before it is timed.

#include <benchmark/benchmark.h>

#include <algorithm>
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

// The source and the plain destination, made on first use (400 MB), and
// the tiled destination of the tile shape last asked for (200 MB).
struct Pictures {
  PlainImage source{kShape}, plain{kShape};
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

// Every destination tile once, on n threads (the calling thread among them).
// False when a call reported a failure.
bool addOnThreads(Pictures& p, SharedTiles& tiles, int n) {
  const auto& headers = tiles.headers(n);
  const int count = tiles.tilesX() * tiles.tilesY();
  std::atomic<int> next{0};
  std::atomic<bool> failed{false};
  auto work = [&](int t) {
    quietErrors();
    for (int k; (k = next++) < count;) {
      const int mapping[2] = {k % tiles.tilesX(), k / tiles.tilesX()};
      moxAddS(p.source.get(), headers[t], kValue, mapping);
    }
    if (moxGetErrStatus() != MOX_StsNoError) failed = true;
  };
  std::vector<std::thread> others;
  for (int t = 1; t < n; ++t) others.emplace_back(work, t);
  work(0);
  for (auto& t : others) t.join();
  return !failed;
}

// Checks the plain destination, or the tiled one when tiles is given.
bool sameAsRule(benchmark::State& state, const Pictures& p, const SharedTiles* tiles) {
  const auto* src = reinterpret_cast<const unsigned char*>(p.source.data());
  const auto* plain = reinterpret_cast<const unsigned char*>(p.plain.data());
  for (int y = 0; y < kShape.height; ++y)
    for (int x = 0; x < kShape.width; ++x)
      for (int c = 0; c < kShape.channels; ++c) {
        const std::size_t i = (static_cast<std::size_t>(y) * kShape.width + x) * kShape.channels + c;
        const unsigned char want = static_cast<unsigned char>(std::min(src[i] + kValue, 255));
        if ((tiles ? tiles->at(x, y, c) : plain[i]) != want) {
          state.SkipWithError("the result differs from the plain rule");
          return false;
        }
      }
  return true;
}

void runPlain(benchmark::State& state) {
  Pictures& p = pictures();
  quietErrors();
  if (!p.source.ok() || !p.plain.ok()) return state.SkipWithError("no memory for the pictures");
  moxAddS(p.source.get(), p.plain.get(), kValue, nullptr);
  if (!lastReport().empty()) return state.SkipWithError(lastReport().c_str());
  if (!sameAsRule(state, p, nullptr)) return;
  for (auto _ : state) {
    moxAddS(p.source.get(), p.plain.get(), kValue, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * kShape.bytes());
}

void runThreads(benchmark::State& state, int n, int tileW, int tileH) {
  Pictures& p = pictures();
  if (!p.source.ok()) return state.SkipWithError("no memory for the pictures");
  SharedTiles& tiles = tilesOf(p, tileW, tileH);
  if (static_cast<int>(tiles.headers(n).size()) < n) return state.SkipWithError("no headers");
  if (!addOnThreads(p, tiles, n)) return state.SkipWithError("a tile call reported a failure");
  if (!sameAsRule(state, p, &tiles)) return;
  for (auto _ : state) {
    addOnThreads(p, tiles, n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 2 * kShape.bytes());
}

int registerAll() {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  const int shapes[][2] = {{256, 256}, {kShape.width, 8}};
  for (const auto& tile : shapes) {
    std::string entry = "BM_moxpx_AddS/" + caseName(kShape);
    entry.append("_tile").append(std::to_string(tile[0])).append("x").append(std::to_string(tile[1]));
    // Wall-clock time for all of them: the threads' work is not in the
    // timing thread's process time, and the plain call is set beside them
    // alike (one plain row per tile shape, so that each row has its own).
    benchmark::RegisterBenchmark(entry.c_str(), runPlain)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    for (int n : std::set<int>{1, 2, cores}) {
      std::string name = entry;
      name.append("_threads").append(std::to_string(n));
      benchmark::RegisterBenchmark(name.c_str(), runThreads, n, tile[0], tile[1])
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
  return 0;
}

const int registered = registerAll();

}  // namespace
