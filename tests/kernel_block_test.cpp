// The vector blocks of the arithmetic rules give the same values as the
// rules' own per-value arithmetic, for every value of the narrow depths.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "arith/arith.h"

namespace {

using mox::OpArgs;

// Every value of the depth (all 65536 for 16 bits), in an odd count so the
// scalar tail runs too.
template <class D>
std::vector<typename D::T> everyValue() {
  std::vector<typename D::T> v;
  for (long long x = D::lo; x <= D::hi; ++x) v.push_back(static_cast<typename D::T>(x));
  v.push_back(static_cast<typename D::T>(D::hi));
  v.push_back(static_cast<typename D::T>(D::lo));
  v.push_back(0);
  return v;
}

// Runs the rule through the contiguous kernel path (block, then loop) and
// compares with apply on each value.
template <class Op, class D>
void expectSameAsRule(const OpArgs& args, const std::string& what) {
  using T = typename D::T;
  std::vector<T> a = everyValue<D>(), b = everyValue<D>();
  std::rotate(b.begin(), b.begin() + 77, b.end());
  std::vector<T> d(a.size());
  T* p[3] = {a.data(), b.data(), d.data()};
  constexpr int N = std::is_invocable_v<decltype(&Op::template apply<D>), T, const OpArgs&> ? 2 : 3;
  if constexpr (N == 2) {
    T* q[2] = {a.data(), d.data()};
    mox::runContiguous<Op, D, 2>(q, static_cast<int>(a.size()), args);
  } else {
    mox::runContiguous<Op, D, 3>(p, static_cast<int>(a.size()), args);
  }
  for (std::size_t j = 0; j < a.size(); ++j) {
    T want;
    if constexpr (N == 2)
      want = Op::template apply<D>(a[j], args);
    else
      want = Op::template apply<D>(a[j], b[j], args);
    if (d[j] != want) {
      ADD_FAILURE() << what << " at " << +a[j] << ", " << +b[j] << ": " << +d[j] << " != " << +want;
      return;
    }
  }
}

template <class D>
void scalarRules() {
  for (int v : {0, 1, -1, 7, -7, 127, 128, -128, -129, 255, 256, -255, -256, 300, 32767, 32768,
                -32768, -32769, 65535, 65536, -65535, -65536, 70000, INT_MAX, INT_MIN}) {
    for (int reverse : {0, 1}) {
      OpArgs args;
      args.value = v, args.reverse = reverse;
      const std::string what = std::to_string(D::bits) + (D::isSigned ? "S" : "U") + " value " +
                               std::to_string(v) + " reverse " + std::to_string(reverse);
      expectSameAsRule<mox::arith::AddS, D>(args, "AddS " + what);
      expectSameAsRule<mox::arith::SubtractS, D>(args, "SubtractS " + what);
      expectSameAsRule<mox::arith::MultiplyS, D>(args, "MultiplyS " + what);
    }
  }
  for (unsigned shift : {0u, 1u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 25u, 31u, 32u, 33u, 40u}) {
    OpArgs args;
    args.shift = shift;
    expectSameAsRule<mox::arith::RShiftS, D>(
        args, "RShiftS " + std::to_string(D::bits) + " by " + std::to_string(shift));
  }
  expectSameAsRule<mox::arith::Multiply, D>({}, "Multiply");
  expectSameAsRule<mox::arith::Square, D>({}, "Square");
  expectSameAsRule<mox::arith::Add, D>({}, "Add");
}

TEST(KernelBlock, NarrowDepthsMatchTheRules) {
  scalarRules<mox::U8>();
  scalarRules<mox::S8>();
  scalarRules<mox::U16>();
  scalarRules<mox::S16>();
}

}  // namespace

namespace {

// Destinations stored past the caches (large ones, or parts of a large one),
// starting off a 16-byte boundary: every value right and nothing written
// around them.
template <class D>
void streamedSum(std::size_t n, bool stream) {
  using T = typename D::T;
  std::vector<T> a(n), b(n), buffer(n + 8, T(0x5A));
  for (std::size_t j = 0; j < n; ++j) {
    a[j] = static_cast<T>(j * 7919u);
    b[j] = static_cast<T>(j * 104729u + 13);
  }
  T* d = buffer.data() + 3;
  T* p[3] = {a.data(), b.data(), d};
  OpArgs args;
  args.stream = stream;
  mox::runContiguous<mox::arith::Add, D, 3>(p, static_cast<int>(n), args);
  for (std::size_t j = 0; j < n; ++j) {
    const T want = mox::arith::Add::apply<D>(a[j], b[j], OpArgs{});
    if (d[j] != want) {
      ADD_FAILURE() << D::bits << "-bit sum " << j << ": " << +d[j] << " != " << +want;
      return;
    }
  }
  for (std::size_t j : {std::size_t(0), std::size_t(1), std::size_t(2), n + 3, n + 7})
    EXPECT_EQ(buffer[j], T(0x5A)) << "written outside the destination at " << j;
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
