// Cases of operations on plain 8-bit images beside a plain loop and the
// peer: each operation reads a (and b) and writes d and/or a list of
// numbers (counts, a norm). The library's entry checks its result against
// the plain loop's once before it is timed; a peer whose rounding differs
// is timed without that check. Names: BM_<peer>_<Op>/<case>.
#pragma once

#include <benchmark/benchmark.h>

#include <cstring>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bench_images.h"

namespace moxbench {

struct Images {
  explicit Images(const Shape& s) : shape(s), a(s), b(s), d(s) {
    if (!ok()) return;
    fillRandom(a.data(), a.bytes(), 0x1234567u);
    fillRandom(b.data(), b.bytes(), 0x89abcdeu);
    std::memset(d.data(), 0, d.bytes());
  }
  bool ok() const { return a.ok() && b.ok() && d.ok(); }
  Shape shape;
  PlainImage a, b, d;
  std::vector<long long> numbers;  // results that are not pixels
};

// The images of the current case (one case is kept at a time).
inline Images* imagesFor(const Shape& s) {
  static std::unique_ptr<Images> current;
  if (!current || !(current->shape == s)) {
    current.reset();
    current = std::make_unique<Images>(s);
  }
  return current->ok() ? current.get() : nullptr;
}

struct PointCase {
  const char* name;
  int images;  // images read and written, for the byte count
  std::function<void(Images&)> mox, floor, peer;  // peer may be empty
  bool peerChecked = false;  // the peer's result must equal the loop's
  // The result to check against, when the timed loop is a memory floor
  // that does other work on the same bytes.
  std::function<void(Images&)> reference = nullptr;
};

// The outcome of a run: the destination's bytes and the numbers.
inline std::vector<char> outcome(Images& w) {
  std::vector<char> o(w.d.data(), w.d.data() + w.d.bytes());
  const char* n = reinterpret_cast<const char*>(w.numbers.data());
  o.insert(o.end(), n, n + w.numbers.size() * sizeof(long long));
  return o;
}

// Runs f once on fresh images and returns what it left.
inline std::vector<char> firstOutcome(Images& w, const std::function<void(Images&)>& f) {
  std::memset(w.d.data(), 0, w.d.bytes());
  w.numbers.clear();
  f(w);
  return outcome(w);
}

inline void runCase(benchmark::State& state, const PointCase& c, Shape s, int which) {
  Images* w = imagesFor(s);
  if (!w) {
    state.SkipWithError("out of memory for the images");
    return;
  }
  const auto& f = which == 0 ? c.mox : which == 1 ? c.floor : c.peer;
  static std::set<std::string> checked;
  quietErrors();
  if ((which == 0 || c.peerChecked) && checked.insert(c.name + caseName(s) + char('0' + which)).second) {
    const auto want = firstOutcome(*w, c.reference ? c.reference : c.floor);
    if (firstOutcome(*w, f) != want) {
      state.SkipWithError(moxGetErrStatus() ? lastReport().c_str()
                                            : "the result differs from the plain loop");
      return;
    }
  }
  for (auto _ : state) {
    f(*w);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(s.bytes()) * c.images);
}

// Registers every case on 8-bit images of 2048 and 4096 squared with 1 and
// 4 channels (`channels` not 0: with that many only).
inline int registerCases(const std::vector<PointCase>& cases, int channels = 0) {
  static std::vector<std::unique_ptr<PointCase>> kept;  // the entries refer to these
  const std::size_t first = kept.size();
  for (const PointCase& c : cases) kept.push_back(std::make_unique<PointCase>(c));
  const Shape shapes[] = {{MOX_DEPTH_8U, 2048, 2048, 1},
                          {MOX_DEPTH_8U, 2048, 2048, 4},
                          {MOX_DEPTH_8U, 4096, 4096, 1},
                          {MOX_DEPTH_8U, 4096, 4096, 4}};
  for (const Shape& s : shapes)
    for (std::size_t i = first; i < kept.size(); ++i) {
      const PointCase& c = *kept[i];
      if (channels && s.channels != channels) continue;
      const char* peers[3] = {"moxpx", "floor", "opencv"};
      for (int p = 0; p < 3; ++p) {
        if (p == 2 && !c.peer) continue;
        std::string name = "BM_";
        name.append(peers[p]).append("_").append(c.name).append("/").append(caseName(s));
        benchmark::RegisterBenchmark(name.c_str(), runCase, std::cref(c), s, p);
      }
    }
  return 0;
}

}  // namespace moxbench
