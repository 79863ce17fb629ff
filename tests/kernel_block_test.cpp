// The vector blocks of the arithmetic rules give the same values as the
// rules' own per-value arithmetic, for every rule and depth, with the
// build's own vectors and with the 256-bit ones where this processor has
// them.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "arith/arith.h"
#include "frame/frame.h"

namespace {

using mox::OpArgs;
using mox::arith::Blocks;
namespace ar = mox::arith;

struct Table {
  const char* name;
  const Blocks* blocks;
};

// The tables this processor can run.
std::vector<Table> tables() {
  std::vector<Table> t{{"base", &ar::kBaseBlocks}};
#if defined(MOX_ARITH_HAVE_WIDE)
  if (mox::wideVectors()) t.push_back({"wide", &ar::kWideBlocks});
#endif
  return t;
}

template <class Op, class D>
constexpr bool kBinary =
    !std::is_invocable_v<decltype(&Op::template apply<D>), typename D::T, const OpArgs&>;

// Runs the rule as a kernel does (the table's block, then the per-value
// loop) from a (and b) into d.
template <class Op, class D, class T>
void runWith(const Blocks& t, const T* a, const T* b, T* d, std::size_t n, const OpArgs& args) {
  std::size_t j = ar::runBlock<D>(t, Op::lane, a, kBinary<Op, D> ? b : nullptr, d, n, args);
  for (; j < n; ++j) {
    if constexpr (kBinary<Op, D>)
      d[j] = Op::template apply<D>(a[j], b[j], args);
    else
      d[j] = Op::template apply<D>(a[j], args);
  }
}

// Every value of a narrow depth (all 65536 for 16 bits); for 32 bits the
// edges and steps through the range. The count is odd so the per-value loop
// runs too.
template <class D>
std::vector<typename D::T> values() {
  using T = typename D::T;
  std::vector<T> v;
  if constexpr (D::bits < 32) {
    for (long long x = D::lo; x <= D::hi; ++x) v.push_back(static_cast<T>(x));
  } else {
    for (long long x = D::lo; x <= D::hi; x += 1234567) v.push_back(static_cast<T>(x));
    for (long long e : {-2, -1, 0, 1, 2}) {
      v.push_back(static_cast<T>(e)), v.push_back(static_cast<T>(D::lo - e));
      v.push_back(static_cast<T>(D::hi + e));
    }
  }
  v.insert(v.end(), {static_cast<T>(D::hi), static_cast<T>(D::lo), 0});
  if (v.size() % 2 == 0) v.push_back(1);
  return v;
}

template <class Op, class D>
void expectSameAsRule(const Table& t, const OpArgs& args, const std::string& what) {
  using T = typename D::T;
  std::vector<T> a = values<D>(), b = a;
  std::rotate(b.begin(), b.begin() + 77, b.end());
  std::vector<T> d(a.size());
  runWith<Op, D>(*t.blocks, a.data(), b.data(), d.data(), a.size(), args);
  for (std::size_t j = 0; j < a.size(); ++j) {
    T want;
    if constexpr (kBinary<Op, D>)
      want = Op::template apply<D>(a[j], b[j], args);
    else
      want = Op::template apply<D>(a[j], args);
    if (d[j] != want) {
      ADD_FAILURE() << t.name << " " << what << " " << D::bits << (D::isSigned ? "S" : "U")
                    << " at " << +a[j] << ", " << +b[j] << ": " << +d[j] << " != " << +want;
      return;
    }
  }
}

template <class Op, class... D>
void forDepths(const Table& t, const OpArgs& args, const std::string& what) {
  (expectSameAsRule<Op, D>(t, args, what), ...);
}

template <class Op>
void arithmetic(const Table& t, const OpArgs& args, const std::string& what) {
  forDepths<Op, mox::U8, mox::S8, mox::U16, mox::S16, mox::S32>(t, args, what);
}

template <class Op>
void bitwise(const Table& t, const OpArgs& args, const std::string& what) {
  forDepths<Op, mox::U8, mox::U16, mox::U32>(t, args, what);
}

TEST(KernelBlock, EveryRuleAndDepthMatchesTheRule) {
  for (const Table& t : tables()) {
    arithmetic<ar::Add>(t, {}, "Add");
    arithmetic<ar::Subtract>(t, {}, "Subtract");
    arithmetic<ar::Multiply>(t, {}, "Multiply");
    arithmetic<ar::Square>(t, {}, "Square");
    arithmetic<ar::Abs>(t, {}, "Abs");
    bitwise<ar::And>(t, {}, "And");
    bitwise<ar::Or>(t, {}, "Or");
    bitwise<ar::Xor>(t, {}, "Xor");
    for (int v : {0, 1, -1, 7, -7, 127, 128, -128, -129, 255, 256, -255, -256, 300, 32767, 32768,
                  -32768, -32769, 65535, 65536, -65535, -65536, 70000, INT_MAX, INT_MIN}) {
      OpArgs args;
      args.value = v;
      const std::string what = " value " + std::to_string(v);
      arithmetic<ar::AddS>(t, args, "AddS" + what);
      arithmetic<ar::SubtractS>(t, args, "SubtractS" + what);
      arithmetic<ar::MultiplyS>(t, args, "MultiplyS" + what);
      bitwise<ar::AndS>(t, args, "AndS" + what);
      bitwise<ar::OrS>(t, args, "OrS" + what);
      bitwise<ar::XorS>(t, args, "XorS" + what);
      args.reverse = 1;
      arithmetic<ar::SubtractS>(t, args, "SubtractS reverse" + what);
    }
    for (unsigned shift : {0u, 1u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 25u, 31u, 32u, 33u, 40u}) {
      OpArgs args;
      args.shift = shift;
      const std::string what = " by " + std::to_string(shift);
      arithmetic<ar::RShiftS>(t, args, "RShiftS" + what);
      bitwise<ar::LShiftS>(t, args, "LShiftS" + what);
    }
  }
}

// Runs of every short length, at every start of the destination, apart from
// the sources, in place, and stored past the caches: every value right and
// nothing written around the run.
template <class Op, class D>
void everyPlace(const Table& t, const OpArgs& args, const std::string& what) {
  using T = typename D::T;
  for (std::size_t n = 0; n < 160; ++n) {
    for (int place = 0; place < 9; ++place) {
      const bool inPlace = place == 8, stream = place >= 4 && place < 8;
      std::vector<T> a(n + 8), b(n + 8), buffer(n + 8, T(0x5A));
      for (std::size_t j = 0; j < a.size(); ++j) {
        a[j] = static_cast<T>(j * 7919u + 5);
        b[j] = static_cast<T>(j * 104729u + 13);
      }
      const std::vector<T> source = a;
      T* d = inPlace ? a.data() + 3 : buffer.data() + place % 4;
      OpArgs run = args;
      run.stream = stream;
      runWith<Op, D>(*t.blocks, a.data() + 3, b.data() + 3, d, n, run);
      for (std::size_t j = 0; j < n; ++j) {
        T want;
        if constexpr (kBinary<Op, D>)
          want = Op::template apply<D>(source[j + 3], b[j + 3], args);
        else
          want = Op::template apply<D>(source[j + 3], args);
        ASSERT_EQ(+d[j], +want) << t.name << " " << what << " length " << n << " place " << place
                                << " at " << j;
      }
      const T* whole = inPlace ? a.data() : buffer.data();
      const std::size_t first = inPlace ? 3 : place % 4;
      for (std::size_t j = 0; j < n + 8; ++j) {
        if (j >= first && j < first + n) continue;
        ASSERT_EQ(+whole[j], inPlace ? +source[j] : 0x5A) << t.name << " " << what << " at " << j;
      }
    }
  }
}

TEST(KernelBlock, EveryLengthAndPlaceMatchesTheRule) {
  OpArgs args;
  args.value = 77;
  for (const Table& t : tables()) {
    everyPlace<ar::Add, mox::U8>(t, {}, "Add");
    everyPlace<ar::Multiply, mox::S16>(t, {}, "Multiply");
    everyPlace<ar::Subtract, mox::S32>(t, {}, "Subtract");
    everyPlace<ar::XorS, mox::U8>(t, args, "XorS");
    everyPlace<ar::AddS, mox::U16>(t, args, "AddS");
  }
}

// Long runs are stored past the caches whether or not the destination is
// marked large.
TEST(KernelBlock, LongRunsMatchTheRule) {
  for (const Table& t : tables()) {
    const std::size_t n = ar::kStreamBytes + 29;
    std::vector<std::uint8_t> a(n), b(n), d(n);
    for (std::size_t j = 0; j < n; ++j) {
      a[j] = static_cast<std::uint8_t>(j * 7919u);
      b[j] = static_cast<std::uint8_t>(j * 104729u + 13);
    }
    runWith<ar::Add, mox::U8>(*t.blocks, a.data() + 1, b.data() + 1, d.data() + 1, n - 1, {});
    for (std::size_t j = 1; j < n; ++j)
      if (d[j] != ar::Add::apply<mox::U8>(a[j], b[j], {})) {
        ADD_FAILURE() << t.name << " long sum at " << j;
        break;
      }
  }
}

}  // namespace
