// Colour models and the colour twist on 3-channel images, plain and in
// 256x256 tiles, beside a plain loop of the same formula (the floor, for the
// grey conversions) and, when installed, OpenCV's cvtColor and transform.
// Names: BM_<peer>_<Op>/<case>.
//
// Every library entry checks once that the call reported nothing and, where
// there is a floor, that its result equals the floor's.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#ifdef MOXPX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "bench_images.h"
#include "bench_register.h"

namespace {

using namespace moxbench;

// The twist: sepia rows for B, G, R, over 256.
const int kSepia[16] = {34, 137, 70, 0, 43, 176, 89, 0, 48, 197, 101, 0, 0, 0, 0, 0};

enum Op { kToGray, kFromGray, kToHSV, kFromHSV, kToHLS, kFromHLS, kTwist };
const char* const kOpNames[] = {"ColorToGray", "GrayToColor", "RGB2HSV", "HSV2RGB",
                                "RGB2HLS",     "HLS2RGB",     "ColorTwist"};

// Source and destination shapes of an operation on a 3-channel case.
Shape srcShape(Op op, const Shape& s) { return op == kFromGray ? Shape{s.depth, s.width, s.height, 1} : s; }
Shape dstShape(Op op, const Shape& s) { return op == kToGray ? Shape{s.depth, s.width, s.height, 1} : s; }
const char* srcModel(Op op) { return op == kFromHSV ? "HSV" : op == kFromHLS ? "HLS" : nullptr; }

struct Twist {
  Twist() : t(moxCreateColorTwist(kSepia, 8)) {}
  ~Twist() { moxDeleteColorTwist(t); }
  MoxColorTwist* t;
};

void call(Op op, const MoxImage* s, MoxImage* d) {
  static Twist twist;
  switch (op) {
    case kToGray: moxColorToGray(s, d, nullptr); break;
    case kFromGray: moxGrayToColor(s, d, 0.299f, 0.587f, 0.114f, nullptr); break;
    case kToHSV: moxRGB2HSV(s, d, nullptr); break;
    case kFromHSV: moxHSV2RGB(s, d, nullptr); break;
    case kToHLS: moxRGB2HLS(s, d, nullptr); break;
    case kFromHLS: moxHLS2RGB(s, d, nullptr); break;
    case kTwist: moxApplyColorTwist(s, d, twist.t, 0, nullptr); break;
  }
}

// ---------------------------------------------------------------- floors
// The grey conversions as a plain loop writes them ("BGR" data).
template <class T>
[[gnu::noinline]] void grayFloor(const char* a, char* d, std::size_t pixels) {
  const T* __restrict s = reinterpret_cast<const T*>(a);
  T* __restrict g = reinterpret_cast<T*>(d);
  for (std::size_t i = 0; i < pixels; ++i)
    g[i] = static_cast<T>((18u * s[3 * i] + 183u * s[3 * i + 1] + 54u * s[3 * i + 2]) >> 8);
}

template <class T>
[[gnu::noinline]] void colorFloor(const char* a, char* d, std::size_t pixels) {
  const T* __restrict g = reinterpret_cast<const T*>(a);
  T* __restrict s = reinterpret_cast<T*>(d);
  constexpr unsigned shift = sizeof(T) == 1 ? 8 : 15;
  // B, G, R of the fractions 0.114, 0.587, 0.299 in fixed point.
  constexpr unsigned m0 = sizeof(T) == 1 ? 29 : 3735, m1 = sizeof(T) == 1 ? 150 : 19234,
                     m2 = sizeof(T) == 1 ? 76 : 9797;
  for (std::size_t i = 0; i < pixels; ++i) {
    const unsigned v = g[i];
    s[3 * i] = static_cast<T>((v * m0) >> shift);
    s[3 * i + 1] = static_cast<T>((v * m1) >> shift);
    s[3 * i + 2] = static_cast<T>((v * m2) >> shift);
  }
}

using Floor = void (*)(const char*, char*, std::size_t);
Floor floorOf(Op op, const Shape& s) {
  const bool wide = s.bytesPerValue() == 2;
  if (op == kToGray) return wide ? &grayFloor<std::uint16_t> : &grayFloor<std::uint8_t>;
  if (op == kFromGray) return wide ? &colorFloor<std::uint16_t> : &colorFloor<std::uint8_t>;
  return nullptr;
}

// ---------------------------------------------------------------- images
struct Images {
  Images(Op op, const Shape& s) : src(srcShape(op, s)), dst(dstShape(op, s)) {
    if (!ok()) return;
    fillRandom(src.data(), src.bytes(), 0x2468aceu);
    std::memset(dst.data(), 0, dst.bytes());
    if (const char* m = srcModel(op)) std::memcpy(src.get()->colorModel, m, 3);
  }
  bool ok() const { return src.ok() && dst.ok(); }
  PlainImage src, dst;
};

struct Tiles {
  Tiles(Op op, const Shape& s, const Images& plain) : src(srcShape(op, s), 256), dst(dstShape(op, s), 256) {
    if (!src.ok() || !dst.ok()) return;
    src.load(plain.src.data());
    if (const char* m = srcModel(op)) std::memcpy(src.get()->colorModel, m, 3);
  }
  TiledImage src, dst;
};

// The images of the current operation and case only (each takes tens of
// megabytes).
Images* images(Op op, const Shape& s) {
  static std::unique_ptr<Images> current;
  static std::pair<int, Shape> key{-1, {}};
  if (!current || key.first != op || !(key.second == s)) {
    current.reset();
    current = std::make_unique<Images>(op, s);
    key = {op, s};
  }
  return current->ok() ? current.get() : nullptr;
}

bool failed(benchmark::State& state) {
  if (moxGetErrStatus() == MOX_StsNoError) return false;
  state.SkipWithError(("status " + std::to_string(moxGetErrStatus()) + ": " + lastReport()).c_str());
  return true;
}

void setBytes(benchmark::State& state, Op op, const Shape& s) {
  const std::size_t bytes = srcShape(op, s).bytes() + dstShape(op, s).bytes();
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

void runMoxpx(benchmark::State& state, Op op, Shape s, bool tiled) {
  Images* w = images(op, s);
  if (!w) return state.SkipWithError("out of memory for the images");
  std::unique_ptr<Tiles> t;
  if (tiled) {
    t = std::make_unique<Tiles>(op, s, *w);
    if (!t->src.ok() || !t->dst.ok()) return state.SkipWithError("out of memory for the tiles");
  }
  const MoxImage* a = tiled ? t->src.get() : w->src.get();
  MoxImage* d = tiled ? t->dst.get() : w->dst.get();
  quietErrors();
  call(op, a, d);
  if (failed(state)) return;
  if (Floor f = floorOf(op, s)) {
    std::vector<char> got(w->dst.bytes()), want(w->dst.bytes());
    if (tiled)
      t->dst.store(got.data());
    else
      std::memcpy(got.data(), w->dst.data(), got.size());
    f(w->src.data(), want.data(), static_cast<std::size_t>(s.width) * s.height);
    if (got != want) return state.SkipWithError("the result differs from the plain loop");
  }
  for (auto _ : state) {
    call(op, a, d);
    benchmark::ClobberMemory();
  }
  if (failed(state)) return;
  setBytes(state, op, s);
}

void runFloor(benchmark::State& state, Op op, Shape s) {
  Images* w = images(op, s);
  if (!w) return state.SkipWithError("out of memory for the images");
  const Floor f = floorOf(op, s);
  for (auto _ : state) {
    f(w->src.data(), w->dst.data(), static_cast<std::size_t>(s.width) * s.height);
    benchmark::ClobberMemory();
  }
  setBytes(state, op, s);
}

#ifdef MOXPX_HAVE_OPENCV
cv::Mat matOf(const PlainImage& image) {
  const Shape& s = image.shape();
  return cv::Mat(s.height, s.width, CV_MAKETYPE(s.bytesPerValue() == 1 ? CV_8U : CV_16U, s.channels),
                 image.data(), s.rowBytes());
}

void runOpenCv(benchmark::State& state, Op op, Shape s) {
  Images* w = images(op, s);
  if (!w) return state.SkipWithError("out of memory for the images");
  cv::setNumThreads(1);  // the library is single-threaded; so is the comparison
  const cv::Mat a = matOf(w->src);
  cv::Mat d = matOf(w->dst);
  const int codes[] = {cv::COLOR_BGR2GRAY, cv::COLOR_GRAY2BGR, cv::COLOR_BGR2HSV,
                       cv::COLOR_HSV2BGR,  cv::COLOR_BGR2HLS,  cv::COLOR_HLS2BGR, 0};
  cv::Mat m(3, 4, CV_32F);
  for (int i = 0; i < 12; ++i) m.at<float>(i / 4, i % 4) = float(kSepia[i]) / 256.0f;
  for (auto _ : state) {
    if (op == kTwist)
      cv::transform(a, d, m);
    else
      cv::cvtColor(a, d, codes[op]);
    benchmark::ClobberMemory();
  }
  setBytes(state, op, s);
}
#endif

const Shape kCases[] = {{MOX_DEPTH_8U, 1024, 1024, 3}, {MOX_DEPTH_8U, 2048, 2048, 3},
                        {MOX_DEPTH_16U, 2048, 2048, 3}};

int registerAll() {
  for (int o = 0; o <= kTwist; ++o) {
    const Op op = Op(o);
    for (const Shape& s : kCases) {
      const std::string tail = std::string(kOpNames[o]) + "/" + caseName(s);
      addEntry("moxpx", tail, "", runMoxpx, op, s, false);
      addEntry("moxpx", tail, "_tiled256", runMoxpx, op, s, true);
      if (floorOf(op, s)) addEntry("floor", tail, "", runFloor, op, s);
#ifdef MOXPX_HAVE_OPENCV
      // The peer converts to HSV and HLS at 8 bits only.
      if (s.bytesPerValue() == 1 || op == kToGray || op == kFromGray || op == kTwist)
        addEntry("opencv", tail, "", runOpenCv, op, s);
#endif
    }
  }
  return 0;
}

const int kRegistered = registerAll();

}  // namespace
