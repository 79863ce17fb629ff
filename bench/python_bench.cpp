// The C side of the Python package's comparisons (bench/python_bench.py runs
// these entries and times the same work from Python):
//  - BM_moxpx_AddForPython/<case>: moxAdd on plain 8U images, the floor of a
//    Python call on the same images;
//  - BM_moxpx_AddTilesOnThreads/<threads>: moxAdd over an 8192x8192 8U image,
//    one destination strip per call through `mapping`, the strips taken in
//    turn by plain threads; the destination's call-back hands out strips of a
//    plain result in place. Real time, so the speed-up of 2 threads shows.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "bench_images.h"

namespace {

using namespace moxbench;

void BM_moxpx_AddForPython(benchmark::State& state) {
  const int side = static_cast<int>(state.range(0));
  const Shape s{MOX_DEPTH_8U, side, side, 1};
  PlainImage a(s), b(s), d(s);
  if (!a.ok() || !b.ok() || !d.ok()) {
    state.SkipWithError("out of memory");
    return;
  }
  fillRandom(a.data(), a.bytes(), 1);
  fillRandom(b.data(), b.bytes(), 2);
  quietErrors();
  for (auto _ : state) {
    moxAdd(a.get(), b.get(), d.get(), nullptr);
    benchmark::DoNotOptimize(d.data());
  }
  if (moxGetErrStatus() < 0) state.SkipWithError(lastReport().c_str());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(3 * s.bytes()));
  state.SetLabel(caseName(s));
}
BENCHMARK(BM_moxpx_AddForPython)->Arg(64)->Arg(4096);

constexpr int kSide = 8192;
constexpr int kStrip = 128;

// A strip of the result, handed out in place: the strips' rows are the
// result's rows, so the tile's row step is the image's.
struct Strips {
  char* result;
  static void MOX_CALL callBack(const MoxImage* image, int, int yIndex, int mode) {
    auto* self = static_cast<Strips*>(image->imageId);
    image->tileInfo->tileData =
        mode == MOX_RELEASE_TILE ? nullptr
                                 : self->result + static_cast<std::size_t>(yIndex) * kStrip * kSide;
  }
};

void BM_moxpx_AddTilesOnThreads(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const Shape s{MOX_DEPTH_8U, kSide, kSide, 1};
  PlainImage a(s), b(s), whole(s);
  std::vector<char> result(s.bytes());
  if (!a.ok() || !b.ok() || !whole.ok()) {
    state.SkipWithError("out of memory");
    return;
  }
  fillRandom(a.data(), a.bytes(), 3);
  fillRandom(b.data(), b.bytes(), 4);
  Strips strips{result.data()};
  // One destination header and tile record per thread.
  std::vector<MoxTileInfo*> infos;
  std::vector<MoxImage*> dsts;
  for (int i = 0; i < threads; ++i) {
    infos.push_back(moxCreateTileInfo(&Strips::callBack, i, kSide, kStrip));
    dsts.push_back(createHeader(s, infos.back(), &strips));
  }
  std::atomic<bool> failed{false};
  auto run = [&] {
    std::atomic<int> next{0};
    std::vector<std::thread> pool;
    for (int i = 0; i < threads; ++i)
      pool.emplace_back([&, i] {
        quietErrors();
        for (int k; (k = next.fetch_add(1)) < kSide / kStrip;) {
          const int mapping[2] = {0, k};
          moxAdd(a.get(), b.get(), dsts[i], mapping);
          if (moxGetErrStatus() < 0) failed = true;
        }
      });
    for (auto& t : pool) t.join();
  };
  run();
  quietErrors();
  moxAdd(a.get(), b.get(), whole.get(), nullptr);
  if (failed || std::memcmp(result.data(), whole.data(), s.bytes()) != 0) {
    state.SkipWithError("the strips differ from the single call");
  } else {
    for (auto _ : state) run();
  }
  for (int i = 0; i < threads; ++i) moxDeallocate(dsts[i], MOX_FREE_HEADER | MOX_FREE_TILEINFO);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(3 * s.bytes()));
}
BENCHMARK(BM_moxpx_AddTilesOnThreads)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
