// The vector blocks of the arithmetic rules give the same values as the
// rules' own per-value arithmetic, for every value of the narrow depths, and
// destinations stored past the caches come out right.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "arith/arith.h"

namespace {

using mox::OpArgs;

// Runs the rule through the contiguous kernel path (block, then loop) on a
// and b into d (one source when the rule takes one), and compares with the
// rule's apply on each value; d starts `at` values into `out`.
template <class Op, class D>
void sameAsRule(const std::vector<typename D::T>& a, const std::vector<typename D::T>& b,
                std::vector<typename D::T>& out, std::size_t at, const OpArgs& args,
                const std::string& what) {
  using T = typename D::T;
  T* d = out.data() + at;
  constexpr bool one = std::is_invocable_v<decltype(&Op::template apply<D>), T, const OpArgs&>;
  T* p[3] = {const_cast<T*>(a.data()), one ? d : const_cast<T*>(b.data()), d};
  mox::runContiguous<Op, D, one ? 2 : 3>(p, static_cast<int>(a.size()), args);
  for (std::size_t j = 0; j < a.size(); ++j) {
    T want;
    if constexpr (one) want = Op::template apply<D>(a[j], args);
    else want = Op::template apply<D>(a[j], b[j], args);
    if (d[j] != want) {
      ADD_FAILURE() << what << " at " << +a[j] << ", " << +b[j] << ": " << +d[j] << " != " << +want;
      return;
    }
  }
}

// Every value of the depth (all 65536 for 16 bits) and a few more, an odd
// count so that the scalar tail runs too; the second source rotated.
template <class D>
void narrowRules() {
  using T = typename D::T;
  std::vector<T> a;
  for (long long x = D::lo; x <= D::hi; ++x) a.push_back(static_cast<T>(x));
  a.insert(a.end(), {static_cast<T>(D::hi), static_cast<T>(D::lo), 0});
  std::vector<T> b = a, d(a.size());
  std::rotate(b.begin(), b.begin() + 77, b.end());
  const std::string depth = std::to_string(D::bits) + (D::isSigned ? "S " : "U ");
  for (int v : {0, 1, -1, 7, -7, 127, 128, -128, -129, 255, 256, -255, -256, 300, 32767, 32768,
                -32768, -32769, 65535, 65536, -65535, -65536, 70000, INT_MAX, INT_MIN})
    for (int r : {0, 1}) {
      const std::string what = depth + std::to_string(v) + " reverse " + std::to_string(r);
      sameAsRule<mox::arith::AddS, D>(a, b, d, 0, OpArgs{v, r}, "AddS " + what);
      sameAsRule<mox::arith::SubtractS, D>(a, b, d, 0, OpArgs{v, r}, "SubtractS " + what);
      sameAsRule<mox::arith::MultiplyS, D>(a, b, d, 0, OpArgs{v, r}, "MultiplyS " + what);
    }
  for (unsigned n : {0u, 1u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 25u, 31u, 32u, 33u, 40u})
    sameAsRule<mox::arith::RShiftS, D>(a, b, d, 0, {0, 0, n}, depth + ">> " + std::to_string(n));
  sameAsRule<mox::arith::Multiply, D>(a, b, d, 0, {}, "Multiply " + depth);
  sameAsRule<mox::arith::Square, D>(a, b, d, 0, {}, "Square " + depth);
  sameAsRule<mox::arith::Add, D>(a, b, d, 0, {}, "Add " + depth);
}

TEST(KernelBlock, NarrowDepthsMatchTheRules) {
  narrowRules<mox::U8>();
  narrowRules<mox::S8>();
  narrowRules<mox::U16>();
  narrowRules<mox::S16>();
}

// Sums stored past the caches (large ones, or parts of a large one),
// starting off a 16-byte boundary: every value right and nothing written
// around them.
template <class D>
void streamedSum(std::size_t n, bool stream) {
  using T = typename D::T;
  std::vector<T> a(n), b(n), out(n + 8, T(0x5A));
  for (std::size_t j = 0; j < n; ++j) {
    a[j] = static_cast<T>(j * 7919u);
    b[j] = static_cast<T>(j * 104729u + 13);
  }
  sameAsRule<mox::arith::Add, D>(a, b, out, 3, {0, 0, 0, stream}, std::to_string(D::bits) + "-bit");
  for (std::size_t j : {std::size_t(0), std::size_t(1), std::size_t(2), n + 3, n + 7})
    EXPECT_EQ(out[j], T(0x5A)) << "written outside the destination at " << j;
}

TEST(KernelBlock, StreamedDestinationsMatchTheRule) {
  constexpr std::size_t large = mox::arith::kStreamBytes + 29;
  streamedSum<mox::U8>(large, false);
  streamedSum<mox::S8>(large, false);
  streamedSum<mox::U16>(large / 2, false);
  for (std::size_t n : {32, 33, 47, 1000}) {
    streamedSum<mox::U8>(n, true);
    streamedSum<mox::S16>(n, true);
  }
}

}  // namespace
