// Depth conversion 8U <-> 16U: the library (plain and tiled) beside a plain
// loop over the same values (the memory floor) and, when installed, the
// peer's conversion. Names: BM_<peer>_<Op>/<case of the source>.
//
// Every entry checks its result once against the plain loop before it is
// timed.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include "bench_images.h"
#include "bench_register.h"

namespace {

using namespace moxbench;

// The plain loops: widening, and narrowing with saturation.
[[gnu::noinline]] void widen(const char* s, char* d, std::size_t n) {
  const auto* __restrict in = reinterpret_cast<const std::uint8_t*>(s);
  auto* __restrict out = reinterpret_cast<std::uint16_t*>(d);
  for (std::size_t i = 0; i < n; ++i) out[i] = in[i];
}

[[gnu::noinline]] void narrow(const char* s, char* d, std::size_t n) {
  const auto* __restrict in = reinterpret_cast<const std::uint16_t*>(s);
  auto* __restrict out = reinterpret_cast<std::uint8_t*>(d);
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<std::uint8_t>(in[i] > 255 ? 255 : in[i]);
}

struct Op {
  const char* name;
  unsigned from, to;
  void (*floor)(const char*, char*, std::size_t);
};

const Op kOps[] = {{"Convert8Uto16U", MOX_DEPTH_8U, MOX_DEPTH_16U, widen},
                   {"Convert16Uto8U", MOX_DEPTH_16U, MOX_DEPTH_8U, narrow}};

struct Images {
  Images(const Op& op, int w, int h, int c)
      : src({op.from, w, h, c}), dst({op.to, w, h, c}), want(dst.bytes()) {
    if (!src.ok() || !dst.ok()) return;
    fillRandom(src.data(), src.bytes(), 0x2468ace);
    // Half of the 16-bit values stay below 256, so both sides of the clamp run.
    if (op.from == MOX_DEPTH_16U) {
      auto* v = reinterpret_cast<std::uint16_t*>(src.data());
      for (std::size_t i = 0; i < src.bytes() / 2; i += 2) v[i] &= 0xFF;
    }
    op.floor(src.data(), want.data(), src.bytes() / (op.from == MOX_DEPTH_8U ? 1 : 2));
  }
  bool ok() const { return src.ok() && dst.ok(); }
  PlainImage src, dst;
  std::vector<char> want;
};

std::size_t values(const Images& im) { return im.src.bytes() / (im.src.shape().bytesPerValue()); }

void setBytes(benchmark::State& state, const Images& im) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(im.src.bytes() + im.dst.bytes()));
}

void runMoxpx(benchmark::State& state, const Op& op, int w, int h, int c, int tile) {
  Images im(op, w, h, c);
  if (!im.ok()) return state.SkipWithError("out of memory for the images");
  std::unique_ptr<TiledImage> ts, td;
  const MoxImage* s = im.src.get();
  MoxImage* d = im.dst.get();
  if (tile) {
    ts = std::make_unique<TiledImage>(im.src.shape(), tile);
    td = std::make_unique<TiledImage>(im.dst.shape(), tile);
    if (!ts->ok() || !td->ok()) return state.SkipWithError("out of memory for the tiles");
    ts->load(im.src.data());
    s = ts->get(), d = td->get();
  }
  quietErrors();
  moxConvert(s, d);
  if (moxGetErrStatus() != MOX_StsNoError) return state.SkipWithError(lastReport().c_str());
  if (tile) td->store(im.dst.data());
  if (std::memcmp(im.dst.data(), im.want.data(), im.want.size()) != 0)
    return state.SkipWithError("the result differs from the plain loop");
  for (auto _ : state) {
    moxConvert(s, d);
    benchmark::ClobberMemory();
  }
  setBytes(state, im);
}

void runFloor(benchmark::State& state, const Op& op, int w, int h, int c) {
  Images im(op, w, h, c);
  if (!im.ok()) return state.SkipWithError("out of memory for the images");
  for (auto _ : state) {
    op.floor(im.src.data(), im.dst.data(), values(im));
    benchmark::ClobberMemory();
  }
  setBytes(state, im);
}

#ifdef MOXPX_HAVE_OPENCV
void runOpenCv(benchmark::State& state, const Op& op, int w, int h, int c) {
  Images im(op, w, h, c);
  if (!im.ok()) return state.SkipWithError("out of memory for the images");
  cv::setNumThreads(1);
  const int from = op.from == MOX_DEPTH_8U ? CV_8U : CV_16U, to = op.to == MOX_DEPTH_8U ? CV_8U : CV_16U;
  const cv::Mat s(h, w, CV_MAKETYPE(from, c), im.src.data());
  cv::Mat d(h, w, CV_MAKETYPE(to, c), im.dst.data());
  s.convertTo(d, to);
  if (std::memcmp(im.dst.data(), im.want.data(), im.want.size()) != 0)
    return state.SkipWithError("the peer's result differs from the plain loop");
  for (auto _ : state) {
    s.convertTo(d, to);
    benchmark::ClobberMemory();
  }
  setBytes(state, im);
}
#endif

int registerAll() {
  const int cases[][3] = {{4096, 4096, 1}, {1024, 1024, 3}};
  for (const Op& op : kOps)
    for (const auto& c : cases) {
      const Shape s{op.from, c[0], c[1], c[2]};
      std::string entry = op.name;
      entry.append("/").append(caseName(s));
      auto add = [&](const char* peer, const char* suffix, auto run, auto... args) {
        addEntry(peer, entry, suffix, run, op, c[0], c[1], c[2], args...);
      };
      add("moxpx", "", runMoxpx, 0);
      add("moxpx", "_tiled256", runMoxpx, 256);
      add("floor", "", runFloor);
#ifdef MOXPX_HAVE_OPENCV
      add("opencv", "", runOpenCv);
#endif
    }
  return 0;
}

const int registered = registerAll();

}  // namespace
