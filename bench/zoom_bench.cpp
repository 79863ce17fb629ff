// Zoom and decimation of 8U images (1 and 3 channels) by 2 and 3/2 up and by
// 1/2 and 2/3 down, at each interpolation, beside the peer's resize with the
// same interpolation. Names: BM_<peer>_<Op><Interpolation>/<source case>_to<W>x<H>.
//
// libvips, where installed, runs vips_resize with the kernel of the same
// interpolation, timed by the wall clock (see vips_peer.h).
//
// The results are not compared with the peer's (it centres pixels where the
// library does not); every library entry checks that its call succeeded and
// that a tiled destination gets the plain result.

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "bench_images.h"
#include "bench_register.h"
#include "vips_peer.h"

namespace {

using namespace moxbench;

struct Case {
  bool zoom;
  int u, l;  // factor u / l on both axes
  int size;  // source width and height
  int channels;
};

struct Interpolation {
  const char* name;
  int mox;
  int cv;
};

#ifdef MOXPX_HAVE_OPENCV
constexpr int kCvNearest = cv::INTER_NEAREST, kCvLinear = cv::INTER_LINEAR,
              kCvCubic = cv::INTER_CUBIC;
#else
constexpr int kCvNearest = 0, kCvLinear = 1, kCvCubic = 2;
#endif

const Interpolation kInterpolations[] = {{"NN", MOX_INTER_NN, kCvNearest},
                                         {"Linear", MOX_INTER_LINEAR, kCvLinear},
                                         {"Cubic", MOX_INTER_CUBIC, kCvCubic}};

int scaled(int size, int u, int l) { return static_cast<int>((static_cast<long long>(size) * u + l - 1) / l); }

Shape sourceOf(const Case& c) { return Shape{MOX_DEPTH_8U, c.size, c.size, c.channels}; }
Shape destinationOf(const Case& c) {
  const int n = scaled(c.size, c.u, c.l);
  return Shape{MOX_DEPTH_8U, n, n, c.channels};
}

// The images of the current case.
struct Workspace {
  explicit Workspace(const Case& c) : key(sourceOf(c), destinationOf(c)), src(key.first), dst(key.second) {
    if (src.ok()) fillRandom(src.data(), src.bytes(), 0x2468aceu);
  }
  bool ok() const { return src.ok() && dst.ok(); }
  std::pair<Shape, Shape> key;
  PlainImage src, dst;
};

Workspace* workspace(const Case& c) {
  static std::unique_ptr<Workspace> current;
  const std::pair<Shape, Shape> key(sourceOf(c), destinationOf(c));
  if (!current || !(current->key == key)) {
    current.reset();
    current = std::make_unique<Workspace>(c);
  }
  return current->ok() ? current.get() : nullptr;
}

void call(const Case& c, int interpolate, const MoxImage* s, MoxImage* d) {
  if (c.zoom)
    moxZoom(s, d, c.u, c.l, c.u, c.l, interpolate, nullptr);
  else
    moxDecimate(s, d, c.u, c.l, c.u, c.l, interpolate, nullptr);
}

bool failed(benchmark::State& state) {
  if (moxGetErrStatus() == MOX_StsNoError) return false;
  const std::string text = "status " + std::to_string(moxGetErrStatus()) + ": " + lastReport();
  state.SkipWithError(text.c_str());
  return true;
}

void runMoxpx(benchmark::State& state, Case c, Interpolation in, int tile) {
  Workspace* w = workspace(c);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  quietErrors();
  std::unique_ptr<TiledImage> tiled;
  MoxImage* d = w->dst.get();
  if (tile) {
    tiled = std::make_unique<TiledImage>(destinationOf(c), tile);
    if (!tiled->ok()) {
      state.SkipWithError("out of memory for the tiles");
      return;
    }
    call(c, in.mox, w->src.get(), w->dst.get());
    d = tiled->get();
  }
  call(c, in.mox, w->src.get(), d);
  if (failed(state)) return;
  if (tile) {
    std::vector<char> back(w->dst.bytes());
    tiled->store(back.data());
    if (std::memcmp(back.data(), w->dst.data(), back.size()) != 0) {
      state.SkipWithError("the tiled result differs from the plain one");
      return;
    }
  }
  for (auto _ : state) {
    call(c, in.mox, w->src.get(), d);
    benchmark::ClobberMemory();
  }
  if (failed(state)) return;
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(w->dst.bytes()));
}

#ifdef MOXPX_HAVE_OPENCV
cv::Mat wrap(const PlainImage& image) {
  const Shape& s = image.shape();
  return cv::Mat(s.height, s.width, CV_MAKETYPE(CV_8U, s.channels), image.data(), s.rowBytes());
}

void runOpenCv(benchmark::State& state, Case c, Interpolation in) {
  Workspace* w = workspace(c);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const cv::Mat s = wrap(w->src);
  cv::Mat d = wrap(w->dst);
  for (auto _ : state) {
    cv::resize(s, d, d.size(), 0, 0, in.cv);
    benchmark::ClobberMemory();
  }
  if (d.data != reinterpret_cast<uchar*>(w->dst.data()))
    state.SkipWithError("the peer wrote a new matrix instead of the destination");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(w->dst.bytes()));
}
#endif

#ifdef MOXPX_HAVE_VIPS
bool vipsResize(const Case& c, const Interpolation& in, VipsImage* s, PlainImage& d) {
  const VipsKernel kernel = in.mox == MOX_INTER_NN       ? VIPS_KERNEL_NEAREST
                            : in.mox == MOX_INTER_LINEAR ? VIPS_KERNEL_LINEAR
                                                         : VIPS_KERNEL_CUBIC;
  VipsImage* out = nullptr;
  if (vips_resize(s, &out, double(c.u) / c.l, "kernel", kernel, nullptr)) {
    if (out) g_object_unref(out);
    return false;
  }
  return vipsWriteInto(out, d);
}

void runVips(benchmark::State& state, Case c, Interpolation in) {
  Workspace* w = workspace(c);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const Shape& ss = w->src.shape();
  VipsImage* s = vipsReady() && ss.rowBytes() == std::size_t(ss.width) * ss.channels ? vipsWrap(w->src)
                                                                                      : nullptr;
  if (!s || !vipsResize(c, in, s, w->dst)) {
    if (s) g_object_unref(s);
    state.SkipWithError("libvips failed");
    return;
  }
  for (auto _ : state) {
    vipsResize(c, in, s, w->dst);
    benchmark::ClobberMemory();
  }
  g_object_unref(s);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(w->dst.bytes()));
}
#endif

int registerAll() {
#ifdef MOXPX_HAVE_OPENCV
  cv::setNumThreads(1);
#endif
  const Case cases[] = {
      {true, 2, 1, 1024, 1},  {true, 2, 1, 1024, 3},  {true, 3, 2, 1024, 1},
      {true, 3, 2, 1024, 3},  {false, 1, 2, 2048, 1}, {false, 1, 2, 2048, 3},
      {false, 2, 3, 1536, 1}, {false, 2, 3, 1536, 3},
  };
  for (const Case& c : cases)
    for (const Interpolation& in : kInterpolations) {
      const Shape d = destinationOf(c);
      std::string entry = c.zoom ? "Zoom" : "Decimate";
      entry.append(in.name).append("/").append(caseName(sourceOf(c))).append("_to");
      entry.append(std::to_string(d.width)).append("x").append(std::to_string(d.height));
      auto add = [&](const char* peer, const char* suffix, auto run, auto... args) {
        return addEntry(peer, entry, suffix, run, c, in, args...);
      };
      add("moxpx", "", runMoxpx, 0);
      add("moxpx", "_tiled64", runMoxpx, 64);
#ifdef MOXPX_HAVE_OPENCV
      add("opencv", "", runOpenCv);
#endif
#ifdef MOXPX_HAVE_VIPS
      add("vips", "", runVips)->UseRealTime();
#endif
    }
  return 0;
}

const int registered = registerAll();

}  // namespace
