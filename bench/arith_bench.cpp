// Pixel arithmetic, logic and data movement. For every operation and image
// the library runs on plain images and on tiled ones (64x64 and 256x256
// tiles), beside a plain loop over the same bytes (the memory floor) and,
// when installed, the peer library's counterpart. Names:
// BM_<peer>_<Op>/<case>.
//
// Every entry checks its result once against the plain loop before it is
// timed, so a fast number is never an early return or a wrong answer.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
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

constexpr int kAddValue = 25;    // moxAddS
constexpr unsigned kShift = 3;   // moxRShiftS
constexpr int kFill = 0x5A5A;    // moxSet, cut to the depth

// ---------------------------------------------------------------- the floor
// The per-value rules of the operations on unsigned data, written as a
// plain loop would write them. The saturating sum and difference are written
// in the value's own width (wrap, then test), which compilers turn into
// full-width vector code; the widened form would make the floor too slow.
template <class T>
T clampHigh(unsigned v) {
  constexpr unsigned top = std::numeric_limits<T>::max();
  return static_cast<T>(v > top ? top : v);
}

template <class T>
T saturatingSum(T a, T b) {
  const T sum = static_cast<T>(a + b);
  return sum < a ? std::numeric_limits<T>::max() : sum;
}

struct AddRule {
  static constexpr int sources = 2;
  template <class T> static T apply(T a, T b) { return saturatingSum(a, b); }
};
struct SubtractRule {
  static constexpr int sources = 2;
  template <class T> static T apply(T a, T b) { return a > b ? static_cast<T>(a - b) : T{0}; }
};
struct MultiplyRule {
  static constexpr int sources = 2;
  template <class T> static T apply(T a, T b) { return clampHigh<T>(unsigned{a} * b); }
};
struct AndRule {
  static constexpr int sources = 2;
  template <class T> static T apply(T a, T b) { return static_cast<T>(a & b); }
};
struct XorRule {
  static constexpr int sources = 2;
  template <class T> static T apply(T a, T b) { return static_cast<T>(a ^ b); }
};
struct AddSRule {
  static constexpr int sources = 1;
  template <class T> static T apply(T a, T) { return saturatingSum(a, static_cast<T>(kAddValue)); }
};
struct NotRule {
  static constexpr int sources = 1;
  template <class T> static T apply(T a, T) { return static_cast<T>(~a); }
};
struct RShiftSRule {
  static constexpr int sources = 1;
  template <class T> static T apply(T a, T) { return static_cast<T>(a >> kShift); }
};
struct CopyRule {
  static constexpr int sources = 1;
  template <class T> static T apply(T a, T) { return a; }
};
struct SetRule {
  static constexpr int sources = 0;
  template <class T> static T apply(T, T) { return static_cast<T>(kFill); }
};

template <class T, class Rule>
[[gnu::noinline]] void floorLoop(const char* a, const char* b, char* d, std::size_t bytes) {
  const T* __restrict pa = reinterpret_cast<const T*>(a);
  const T* __restrict pb = reinterpret_cast<const T*>(b);
  T* __restrict pd = reinterpret_cast<T*>(d);
  const std::size_t n = bytes / sizeof(T);
  for (std::size_t i = 0; i < n; ++i) {
    if constexpr (Rule::sources == 2)
      pd[i] = Rule::apply(pa[i], pb[i]);
    else if constexpr (Rule::sources == 1)
      pd[i] = Rule::apply(pa[i], T{});
    else
      pd[i] = Rule::apply(T{}, T{});
  }
}

// ---------------------------------------------------------------- operations
using MoxCall = void (*)(const MoxImage* a, const MoxImage* b, MoxImage* d);
using FloorCall = void (*)(const char* a, const char* b, char* d, std::size_t bytes);
#ifdef MOXPX_HAVE_OPENCV
using CvCall = void (*)(const cv::Mat& a, const cv::Mat& b, cv::Mat& d);
#else
using CvCall = void*;
#endif

struct Op {
  const char* name;
  int sources;  // images read: 0, 1 or 2
  MoxCall mox;
  FloorCall floor8, floor16;
  CvCall opencv;  // null when the peer has no such operation

  FloorCall floorFor(const Shape& s) const { return s.bytesPerValue() == 1 ? floor8 : floor16; }
};

template <class Rule>
Op makeOp(const char* name, MoxCall mox, CvCall opencv) {
  return Op{name, Rule::sources, mox, &floorLoop<std::uint8_t, Rule>,
            &floorLoop<std::uint16_t, Rule>, opencv};
}

#ifdef MOXPX_HAVE_OPENCV
#define MOXPX_CV(body) [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { (void)a; (void)b; body; }
#else
#define MOXPX_CV(body) nullptr
#endif

#ifdef MOXPX_HAVE_OPENCV
int cvFill(const cv::Mat& d) { return d.depth() == CV_8U ? (kFill & 0xFF) : (kFill & 0xFFFF); }
#endif

const std::vector<Op>& operations() {
  static const std::vector<Op> ops = {
      makeOp<AddRule>(
          "Add", [](const MoxImage* a, const MoxImage* b, MoxImage* d) { moxAdd(a, b, d, nullptr); },
          MOXPX_CV(cv::add(a, b, d))),
      makeOp<SubtractRule>(
          "Subtract",
          [](const MoxImage* a, const MoxImage* b, MoxImage* d) { moxSubtract(a, b, d, 0, nullptr); },
          MOXPX_CV(cv::subtract(a, b, d))),
      makeOp<MultiplyRule>(
          "Multiply",
          [](const MoxImage* a, const MoxImage* b, MoxImage* d) { moxMultiply(a, b, d, nullptr); },
          MOXPX_CV(cv::multiply(a, b, d))),
      makeOp<AndRule>(
          "And", [](const MoxImage* a, const MoxImage* b, MoxImage* d) { moxAnd(a, b, d, nullptr); },
          MOXPX_CV(cv::bitwise_and(a, b, d))),
      makeOp<XorRule>(
          "Xor", [](const MoxImage* a, const MoxImage* b, MoxImage* d) { moxXor(a, b, d, nullptr); },
          MOXPX_CV(cv::bitwise_xor(a, b, d))),
      makeOp<AddSRule>(
          "AddS",
          [](const MoxImage* a, const MoxImage*, MoxImage* d) { moxAddS(a, d, kAddValue, nullptr); },
          MOXPX_CV(cv::add(a, cv::Scalar::all(kAddValue), d))),
      makeOp<NotRule>(
          "Not", [](const MoxImage* a, const MoxImage*, MoxImage* d) { moxNot(a, d, nullptr); },
          MOXPX_CV(cv::bitwise_not(a, d))),
      // The peer has no shift of a whole matrix.
      makeOp<RShiftSRule>(
          "RShiftS",
          [](const MoxImage* a, const MoxImage*, MoxImage* d) { moxRShiftS(a, d, kShift, nullptr); },
          nullptr),
      makeOp<CopyRule>(
          "Copy", [](const MoxImage* a, const MoxImage*, MoxImage* d) { moxCopy(a, d, nullptr); },
          MOXPX_CV(a.copyTo(d))),
      makeOp<SetRule>(
          "Set", [](const MoxImage*, const MoxImage*, MoxImage* d) { moxSet(d, kFill, nullptr); },
          MOXPX_CV(d.setTo(cv::Scalar::all(cvFill(d))))),
  };
  return ops;
}

// ---------------------------------------------------------------- images
// The images of one case. Benchmarks are registered case by case, so only the
// current case is kept (the large ones take a few hundred megabytes).
struct TiledSet {
  TiledSet(const Shape& s, int tile) : a(s, tile), b(s, tile), d(s, tile) {}
  TiledImage a, b, d;
};

struct Workspace {
  explicit Workspace(const Shape& s) : shape(s), a(s), b(s), d(s) {
    if (!ok()) return;
    fillRandom(a.data(), a.bytes(), 0x1234567u);
    fillRandom(b.data(), b.bytes(), 0x89abcdeu);
    std::memset(d.data(), 0, d.bytes());
    expected.resize(s.bytes());
    scratch.resize(s.bytes());
  }
  bool ok() const { return a.ok() && b.ok() && d.ok(); }

  TiledSet* tiled(int tile) {
    auto& slot = tiles[tile];
    if (!slot) {
      slot = std::make_unique<TiledSet>(shape, tile);
      if (!slot->a.ok() || !slot->b.ok() || !slot->d.ok()) {
        slot.reset();
        return nullptr;
      }
      slot->a.load(a.data());
      slot->b.load(b.data());
    }
    return slot.get();
  }

  // The floor's result for an operation, computed once per operation.
  const std::vector<char>& expectedFor(const Op& op) {
    if (expectedOp != op.name) {
      op.floorFor(shape)(a.data(), b.data(), expected.data(), expected.size());
      expectedOp = op.name;
    }
    return expected;
  }

  Shape shape;
  PlainImage a, b, d;
  std::map<int, std::unique_ptr<TiledSet>> tiles;
  std::vector<char> expected, scratch;
  std::string expectedOp;
};

Workspace* workspace(const Shape& s) {
  static std::unique_ptr<Workspace> current;
  if (!current || !(current->shape == s)) {
    current.reset();  // release the previous case first
    current = std::make_unique<Workspace>(s);
  }
  return current->ok() ? current.get() : nullptr;
}

// Each entry checks its result once, on its first run.
bool firstRun(const std::string& entry) {
  static std::set<std::string> seen;
  return seen.insert(entry).second;
}

// True (after marking the run as failed) when the library reported a failure.
bool failed(benchmark::State& state) {
  if (moxGetErrStatus() == MOX_StsNoError) return false;
  const std::string text = "status " + std::to_string(moxGetErrStatus()) + ": " + lastReport();
  state.SkipWithError(text.c_str());
  return true;
}

bool sameAsFloor(benchmark::State& state, Workspace& w, const Op& op, const char* got) {
  const std::vector<char>& want = w.expectedFor(op);
  if (std::memcmp(got, want.data(), want.size()) == 0) return true;
  state.SkipWithError("the result differs from the plain loop");
  return false;
}

void setBytes(benchmark::State& state, const Op& op, const Shape& s) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(s.bytes()) * (op.sources + 1));
}

// ---------------------------------------------------------------- peers
void runMoxpx(benchmark::State& state, const Op& op, Shape s, int tile) {
  Workspace* w = workspace(s);
  TiledSet* t = (w && tile) ? w->tiled(tile) : nullptr;
  if (!w || (tile && !t)) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const MoxImage* a = tile ? t->a.get() : w->a.get();
  const MoxImage* b = tile ? t->b.get() : w->b.get();
  MoxImage* d = tile ? t->d.get() : w->d.get();

  quietErrors();
  if (firstRun("moxpx" + std::string(op.name) + caseName(s) + std::to_string(tile))) {
    op.mox(a, b, d);
    if (failed(state)) return;
    if (tile) t->d.store(w->scratch.data());
    if (!sameAsFloor(state, *w, op, tile ? w->scratch.data() : w->d.data())) return;
  }
  if (tile) t->a.resetRequests(), t->b.resetRequests(), t->d.resetRequests();
  for (auto _ : state) {
    op.mox(a, b, d);
    benchmark::ClobberMemory();
  }
  if (failed(state)) return;
  setBytes(state, op, s);
  if (tile && state.iterations() > 0) {
    const long asked = t->a.requests() + t->b.requests() + t->d.requests();
    state.counters["tile_calls"] =
        static_cast<double>(asked) / static_cast<double>(state.iterations());
  }
}

void runFloor(benchmark::State& state, const Op& op, Shape s) {
  Workspace* w = workspace(s);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const FloorCall loop = op.floorFor(s);
  for (auto _ : state) {
    loop(w->a.data(), w->b.data(), w->d.data(), s.bytes());
    benchmark::ClobberMemory();
  }
  setBytes(state, op, s);
}

// One call that asks for one destination tile through `mapping`: the cost of
// a call that a threaded or distributed run makes once per tile.
void runOneTile(benchmark::State& state, const Op&, Shape s, int tile) {
  Workspace* w = workspace(s);
  TiledSet* t = w ? w->tiled(tile) : nullptr;
  if (!t) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const int mapping[2] = {0, 0};
  quietErrors();
  for (auto _ : state) {
    moxAddS(t->a.get(), t->d.get(), kAddValue, mapping);
    benchmark::ClobberMemory();
  }
  if (failed(state)) return;
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * tile * tile *
                          s.channels * s.bytesPerValue() * 2);
}

#ifdef MOXPX_HAVE_OPENCV
cv::Mat wrap(const PlainImage& image) {
  const Shape& s = image.shape();
  const int type = CV_MAKETYPE(s.bytesPerValue() == 1 ? CV_8U : CV_16U, s.channels);
  return cv::Mat(s.height, s.width, type, image.data(), s.rowBytes());
}

void runOpenCv(benchmark::State& state, const Op& op, Shape s) {
  Workspace* w = workspace(s);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const cv::Mat a = wrap(w->a), b = wrap(w->b);
  cv::Mat d = wrap(w->d);
  if (firstRun("opencv" + std::string(op.name) + caseName(s))) {
    op.opencv(a, b, d);
    if (d.data != reinterpret_cast<uchar*>(w->d.data())) {
      state.SkipWithError("the peer wrote a new matrix instead of the destination");
      return;
    }
    if (!sameAsFloor(state, *w, op, w->d.data())) return;
  }
  for (auto _ : state) {
    op.opencv(a, b, d);
    benchmark::ClobberMemory();
  }
  setBytes(state, op, s);
}
#endif

// ---------------------------------------------------------------- registration
int registerAll() {
#ifdef MOXPX_HAVE_OPENCV
  cv::setNumThreads(1);  // the library is single-threaded; so is the comparison
#endif
  const Shape shapes[] = {
      {MOX_DEPTH_8U, 4096, 4096, 1},
      {MOX_DEPTH_8U, 1024, 1024, 3},
      {MOX_DEPTH_16U, 4096, 4096, 1},
      {MOX_DEPTH_16U, 1024, 1024, 3},
      {MOX_DEPTH_8U, 8192, 8192, 1},  // the tile cost of an image past the caches: AddS only
      {MOX_DEPTH_8U, 64, 64, 1},      // the cost of a one-tile call: AddS only
  };
  for (const Shape& s : shapes) {
    for (const Op& op : operations()) {
      const bool costCase = s.width == 8192 || s.width == 64;
      if (costCase && std::string(op.name) != "AddS") continue;
      std::string entry = op.name;
      entry.append("/").append(caseName(s));
      auto add = [&](const char* peer, const char* suffix, auto run, auto... args) {
        addEntry(peer, entry, suffix, run, op, s, args...);
      };
      add("moxpx", "", runMoxpx, 0);
      if (s.width == 64) {
        add("moxpx", "_one_tile_call", runOneTile, 64);
        continue;
      }
      add("moxpx", "_tiled64", runMoxpx, 64);
      add("moxpx", "_tiled256", runMoxpx, 256);
      add("floor", "", runFloor);
#ifdef MOXPX_HAVE_OPENCV
      if (op.opencv) add("opencv", "", runOpenCv);
#endif
    }
  }
  return 0;
}

const int registered = registerAll();

}  // namespace
