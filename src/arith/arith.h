// The per-value rules of the arithmetic and logic operations. Each rule is
// written once; the kernels of every depth, including packed bits, come from
// the templates of the point-operation layer.
#pragma once

#include <cstdint>

#include "image/pointop.h"

namespace mox::arith {

// Runs of at least this many bytes are stored past the caches.
constexpr std::size_t kStreamBytes = std::size_t(kLargeBytes);

// ---------------------------------------------------------------- blocks

// The vector blocks of the rules come from a table, one per vector width;
// the table for this processor is chosen once. A block does the leading part
// of a run of values that its vectors cover and returns how many values it
// did (0 when the table has none for the rule and depth). Unary rules get a
// null second source.
using Block = std::size_t (*)(const void* a, const void* b, void* d, std::size_t n,
                              const OpArgs& args);

enum LaneRule : int {
  kAdd,
  kSubtract,
  kMultiply,
  kAnd,
  kOr,
  kXor,
  kAddS,
  kSubtractS,
  kMultiplyS,
  kAndS,
  kOrS,
  kXorS,
  kLShiftS,
  kRShiftS,
  kSquare,
  kAbs,
  kCopy,
  kLaneRules
};

// Depths by storage size and sign: 8U, 8S, 16U, 16S, 32U, 32S.
constexpr int kLaneDepths = 6;
template <class D>
constexpr int laneDepth() {
  return (D::bits == 8 ? 0 : D::bits == 16 ? 2 : 4) + (D::isSigned ? 1 : 0);
}

struct Blocks {
  Block at[kLaneRules][kLaneDepths];
};

// SSE2's 128-bit vectors where the build has them (else no blocks), and
// 256-bit vectors on x86-64 processors that have them.
extern const Blocks kBaseBlocks;
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_ARITH_HAVE_WIDE 1
extern const Blocks kWideBlocks;
#endif

// The table for this processor.
const Blocks& blocks();

// Parts of a large destination shorter than this many bytes (tiles of 64x64
// values, say) take the build's own blocks: streamed in such short runs, the
// 256-bit blocks ran at half the speed of the 128-bit ones.
constexpr std::size_t kShortStream = 32 << 10;

// The table for a run of `bytes` bytes.
inline const Blocks& blocksFor(std::size_t bytes, const OpArgs& args) {
  return args.stream && bytes < kShortStream ? kBaseBlocks : blocks();
}

// Runs the block of rule `id` for depth D from table t.
template <class D>
inline std::size_t runBlock(const Blocks& t, int id, const void* a, const void* b, void* d,
                            std::size_t n, const OpArgs& args) {
  const Block f = D::bits == 1 ? nullptr : t.at[id][laneDepth<D>()];
  return f ? f(a, b, d, n, args) : 0;
}

// A rule whose blocks are entry `Id` of the table.
template <int Id>
struct Laned : Rule {
  static constexpr int lane = Id;
  template <class D, class T>
  static std::size_t block(const T* a, const T* b, T* d, std::size_t n, const OpArgs& args) {
    return runBlock<D>(blocksFor(n * sizeof(T), args), Id, a, b, d, n, args);
  }
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs& args) {
    return runBlock<D>(blocksFor(n * sizeof(T), args), Id, a, nullptr, d, n, args);
  }
};

// Saturating 32-bit sum and difference without a wider type, so the loops
// vectorise: the result overflowed when its sign differs from the sign that
// both operands (of a sum) or the minuend (of a difference) force.
inline std::int32_t limitOf(std::int32_t a) { return (a >> 31) ^ 0x7FFFFFFF; }
inline std::int32_t addSat32(std::int32_t a, std::int32_t b) {
  const auto s =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
  return ((a ^ s) & (b ^ s)) < 0 ? limitOf(a) : s;
}
inline std::int32_t subSat32(std::int32_t a, std::int32_t b) {
  const auto s =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
  return ((a ^ b) & (a ^ s)) < 0 ? limitOf(a) : s;
}

struct Add : Laned<kAdd> {
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    if constexpr (std::is_same_v<D, S32>) return addSat32(a, b);
    return D::sat(typename D::Sum(a) + b);
  }
};

struct Subtract : Laned<kSubtract> {
  static constexpr bool reversible = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    if constexpr (std::is_same_v<D, S32>) return subSat32(a, b);
    return D::sat(typename D::Sum(a) - b);
  }
};

struct Multiply : Laned<kMultiply> {
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return D::sat(typename D::Product(a) * b);
  }
};

// The logic rules work on the stored bits, so one kernel per storage size
// serves both signs.
struct And : Laned<kAnd> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return static_cast<typename D::T>(a & b);
  }
};

struct Or : Laned<kOr> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return static_cast<typename D::T>(a | b);
  }
};

struct Xor : Laned<kXor> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return static_cast<typename D::T>(a ^ b);
  }
};

// ---------------------------------------------------------------- scalar

// The scalar is a signed 32-bit number. Below 32 bits it is first limited to
// twice the depth's span, which saturates every value (also value - A) just
// as the full scalar would, so sums and products stay in the narrow working type
// and the loops vectorise.
template <class D, class W>
inline W scalar(int v) {
  if constexpr (D::bits >= 32) {
    return v;
  } else {
    constexpr int bound = static_cast<int>(2 * (D::hi - D::lo + 1));
    return static_cast<W>(v < -bound ? -bound : v > bound ? bound : v);
  }
}

struct AddS : Laned<kAddS> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using W = typename D::Sum;
    if constexpr (std::is_same_v<D, S32>) return addSat32(a, s.value);
    return D::sat(W(a) + scalar<D, W>(s.value));
  }
};

struct SubtractS : Laned<kSubtractS> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using W = typename D::Sum;
    if constexpr (std::is_same_v<D, S32>)
      return s.reverse ? subSat32(s.value, a) : subSat32(a, s.value);
    // value - A is -(A - value); a sign factor keeps the loop free of branches
    const W sign = s.reverse ? -1 : 1;
    return D::sat(sign * (W(a) - scalar<D, W>(s.value)));
  }
};

struct MultiplyS : Laned<kMultiplyS> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using W = typename D::Product;
    return D::sat(W(a) * scalar<D, W>(s.value));
  }
};

// The scalar is cut to the storage size (to the low bit for packed bits).
struct AndS : Laned<kAndS> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a & D::cut(s.value));
  }
};

struct OrS : Laned<kOrS> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a | D::cut(s.value));
  }
};

struct XorS : Laned<kXorS> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a ^ D::cut(s.value));
  }
};

// The stored bits shifted left in a 32-bit register; the low bits are kept.
// On packed bits any count but 0 (mod 32) clears the pixel.
struct LShiftS : Laned<kLShiftS> {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using U = std::make_unsigned_t<typename D::T>;
    return D::cut(static_cast<std::uint32_t>(static_cast<U>(a)) << (s.shift & 31));
  }
};

// Unsigned values shift logically; 8- and 16-bit signed values are sign
// extended to 32 bits and shifted logically, so from 25 (8S) or 17 (16S)
// upward zeros reach the stored bits; 32-bit values shift arithmetically.
struct RShiftS : Laned<kRShiftS> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    const unsigned n = s.shift & 31;
    if constexpr (D::isSigned && D::bits == 32)
      return static_cast<typename D::T>(a >> n);
    else if constexpr (!D::isSigned)
      return n >= unsigned(D::bits) ? 0 : static_cast<typename D::T>(a >> n);
    else
      return D::cut(static_cast<std::uint32_t>(static_cast<std::int32_t>(a)) >> n);
  }
};

struct Square : Laned<kSquare> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs&) {
    return D::sat(typename D::Product(a) * a);
  }
};

// (A + m) XOR m with m the sign mask, stored without saturation, so the most
// negative value stays. Unsigned values are their own absolute value.
struct Abs : Laned<kAbs> {
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs&) {
    if constexpr (D::isSigned) {
      const long long m = a < 0 ? -1 : 0;
      return D::cut((static_cast<long long>(a) + m) ^ m);
    } else {
      return a;
    }
  }
};

}  // namespace mox::arith
