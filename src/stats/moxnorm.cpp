// moxNorm: the C, L1 or L2 norm of A - B (or of A alone) over the common
// ROI, optionally relative to the norm of B. Sums are exact integers: runs
// add up in narrow counters that cannot overflow and those go into a
// 128-bit total, so any image the 32-bit sizes allow is summed exactly.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "stats/stats.h"

namespace mox::stats {
namespace {

using u64 = std::uint64_t;
constexpr const char* kFunc = "moxNorm";
constexpr const char* kFile = "moxnorm";

struct Sum128 {
  u64 hi = 0, lo = 0;
  void add(u64 v) {
    lo += v;
    hi += lo < v;
  }
  double value() const { return double(hi) * 18446744073709551616.0 + double(lo); }
};

struct Norm {
  int kind;  // MOX_NORM_C, _L1 or _L2
  u64 max = 0;
  Sum128 sum;
};

// The terms of one contiguous run, |a - b| (b null: |a|), into the norm.
// Below 32 bits the terms are summed in chunks that fit a 32-bit counter.
template <class D>
void addRun(Norm& n, const typename D::T* a, const typename D::T* b, int count) {
  auto term = [a, b](int j) -> u64 {
    const long long d = b ? static_cast<long long>(a[j]) - b[j] : static_cast<long long>(a[j]);
    return static_cast<u64>(d < 0 ? -d : d);
  };
  if (n.kind == MOX_NORM_C) {
    u64 m = n.max;
    for (int j = 0; j < count; ++j) m = std::max(m, term(j));
    n.max = m;
    return;
  }
  const bool l2 = n.kind == MOX_NORM_L2;
  if constexpr (D::bits == 32) {
    if (l2) {
      for (int j = 0; j < count; ++j) n.sum.add(term(j) * term(j));
    } else {
      u64 s = 0;  // fewer than 2^31 terms below 2^32
      for (int j = 0; j < count; ++j) s += term(j);
      n.sum.add(s);
    }
  } else if (l2 && D::bits == 16) {
    u64 s = 0;
    for (int j = 0; j < count; ++j) {
      const u64 t = term(j);
      s += t * t;
    }
    n.sum.add(s);
  } else {
    // 8 bits: terms to 255 (squares to 65025); 16 bits: terms to 65535
    const int chunk = l2 || D::bits == 16 ? 1 << 16 : 1 << 24;
    for (int j0 = 0; j0 < count; j0 += chunk) {
      const int end = count - j0 < chunk ? count : j0 + chunk;
      std::uint32_t s = 0;
      if (b) {
        for (int j = j0; j < end; ++j) {
          const int d = int(a[j]) - int(b[j]);
          s += std::uint32_t(l2 ? d * d : std::abs(d));
        }
      } else {
        for (int j = j0; j < end; ++j) s += std::uint32_t(l2 ? int(a[j]) * a[j] : std::abs(int(a[j])));
      }
      n.sum.add(s);
    }
  }
}

struct NormRun {
  Norm* diff;
  Norm* base;  // the norm of B as well (relative norms), or null
};

template <class D, int N>
void normKernel(const View* v, const void* arg) {
  using T = typename D::T;
  const auto& r = *static_cast<const NormRun*>(arg);
  forEachLane<T, N>(v, [&](T** p, int* stride, int count) {
    bool contiguous = true;
    for (int i = 0; i < N; ++i) contiguous = contiguous && stride[i] == 1;
    if (contiguous) {
      addRun<D>(*r.diff, p[0], N == 2 ? p[N - 1] : nullptr, count);
      if (r.base) addRun<D>(*r.base, p[N - 1], nullptr, count);
      return;
    }
    // a channel of interest in pixel order: gather a few values at a time
    constexpr int kGroup = 256;
    T a[kGroup], b[kGroup];
    for (int j0 = 0; j0 < count; j0 += kGroup) {
      const int m = count - j0 < kGroup ? count - j0 : kGroup;
      for (int j = 0; j < m; ++j) {
        a[j] = p[0][std::ptrdiff_t(j0 + j) * stride[0]];
        b[j] = p[N - 1][std::ptrdiff_t(j0 + j) * stride[N - 1]];
      }
      addRun<D>(*r.diff, a, N == 2 ? b : nullptr, m);
      if (r.base) addRun<D>(*r.base, b, nullptr, m);
    }
  });
}

double valueOf(const Norm& n) {
  if (n.kind == MOX_NORM_C) return double(n.max);
  const double s = n.sum.value();
  return n.kind == MOX_NORM_L2 ? std::sqrt(s) : s;
}

constexpr WalkLines kOneLines{{80, 81, 82, 83}, {90, 100, 102, 110}};
constexpr WalkLines kTwoLines{{80, 81, 82, 83}, {90, 95, 100, 102, 105, 107, 110, 112}};
constexpr OpTable kOne{kFunc, kFile, 1, {"srcImageA"}, {"nChSrcA"}, {60}, {}, {}, {}, kOneLines};
constexpr OpTable kTwo{kFunc,  kFile,      2,    {"srcImageA", "srcImageB"}, {"nChSrcA", "nChSrcB"},
                       {60, 61}, {63}, {64}, {70},  kTwoLines};

// A check of this function at a line.
bool fails(bool bad, int line, const char* text) { return failsAt(bad, {kFunc, kFile, line}, text); }

}  // namespace
}  // namespace mox::stats

using namespace mox;
using namespace mox::stats;

extern "C" MOX_API double MOX_CALL moxNorm(const MoxImage* srcImageA, const MoxImage* srcImageB,
                                           int normType) {
  const MoxImage* images[2] = {srcImageA, srcImageB};
  const OpTable& t = srcImageB ? kTwo : kOne;
  const int kind = normType & ~MOX_NORM_RELATIVE;
  const bool relative = (normType & MOX_NORM_RELATIVE) != 0;
  if (!checkImages(t, images) ||
      fails(srcImageA->depth == MOX_DEPTH_1U, 72, "(srcImageA->depth==1)") ||
      fails(kind != MOX_NORM_C && kind != MOX_NORM_L1 && kind != MOX_NORM_L2, 74,
            "((normType & ~MOX_NORM_RELATIVE) != MOX_NORM_C && (normType & ~MOX_NORM_RELATIVE) "
            "!= MOX_NORM_L1 && (normType & ~MOX_NORM_RELATIVE) != MOX_NORM_L2)") ||
      fails(relative && !srcImageB, 76, "((normType & MOX_NORM_RELATIVE) && srcImageB == 0)"))
    return 0;
  Norm diff{kind, 0, {}}, base{kind, 0, {}};
  const NormRun run{&diff, relative ? &base : nullptr};
  const WalkImage walked[2] = {{srcImageA, "srcImageA", false}, {srcImageB, "srcImageB", false}};
  const int n = srcImageB ? 2 : 1;
  const Kernel kernel = byDepth(srcImageA->depth, [n](auto d) -> Kernel {
    return n == 2 ? &normKernel<decltype(d), 2> : &normKernel<decltype(d), 1>;
  });
  // (not the flat path: its row padding would count)
  if (!walk(WalkPlan{kFunc, kFile, &t.walk, false}, walked, n, nullptr, kernel, &run)) return 0;
  if (!relative) return valueOf(diff);
  const double b = valueOf(base);
  if (fails(b == 0, 120, "(norm of srcImageB == 0)")) return 0;
  return valueOf(diff) / b;
}
