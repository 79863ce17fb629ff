// The vector blocks of the arithmetic rules. Included once per vector width,
// each time with MOX_ARITH_BLOCKS naming the table it defines:
// MOX_ARITH_WIDE_BODY marks the copy compiled for 256-bit vectors (a target
// pragma does not announce itself to the preprocessor in C++); otherwise the
// vectors are SSE2's 128 bits, or there are none and the table is empty.
// Everything here has internal linkage, so no copy compiled for one width
// can stand in for the other.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/arith.h"

#if defined(MOX_ARITH_WIDE_BODY)
#include <immintrin.h>
#define MOX_LANES 1
#define MOX_V(op) _mm256_##op
#define MOX_SI(op) _mm256_##op##_si256
#elif defined(__SSE2__)
#include <emmintrin.h>
#define MOX_LANES 1
#define MOX_V(op) _mm_##op
#define MOX_SI(op) _mm_##op##_si128
#endif

namespace mox::arith {
namespace {

#if defined(MOX_LANES)
using R = decltype(MOX_SI(setzero)());
constexpr std::size_t kVector = sizeof(R);

inline R load(const void* p) { return MOX_SI(loadu)(static_cast<const R*>(p)); }
inline void store(void* p, R x) { MOX_SI(storeu)(static_cast<R*>(p), x); }

// The destination's cache line: lines written past the caches are written
// whole, and no other store touches them.
constexpr std::size_t kLine = 64;

// Runs f over vectors of the sources (one or two) into d; returns how many
// values were done. Each step's vectors are loaded before they are stored,
// so d may be one of the sources. When d lies apart from the
// sources, its vectors are stored from a boundary of their size on, and the
// unaligned head and the tail are vectors overlapping their neighbours. Long
// runs, or any run with `stream` (a part of a large destination, whose
// operation fences the stores once its walk is done), are then stored past
// the caches, whole lines at a time, which spares reading them in first.
template <class T, class F, class... S>
inline std::size_t sweep(F f, bool stream, std::size_t n, T* d, const S*... s) {
  constexpr std::size_t step = kVector / sizeof(T), line = kLine / sizeof(T);
  if (n < step) return 0;
  const auto at = reinterpret_cast<std::uintptr_t>(d);
  const std::uintptr_t bytes = n * sizeof(T);
  auto apart = [&](const void* p) {
    const auto from = reinterpret_cast<std::uintptr_t>(p);
    return from + bytes <= at || at + bytes <= from;
  };
  std::size_t j = 0;
  const bool aligns = (apart(s) && ...) && at % sizeof(T) == 0;
  if (aligns) {
    j = (kVector - at % kVector) % kVector / sizeof(T);
    if (j) store(d, f(load(s)...));
    if (stream || bytes >= kStreamBytes) {
      // The lines the head touched are stored as usual; a line is streamed
      // when the run ends with it or leaves at least a vector after it.
      std::size_t k = (kLine - at % kLine) % kLine / sizeof(T);
      if (j && k < step) k += line;
      for (; j < k && j + step <= n; j += step) store(d + j, f(load(s + j)...));
      for (; j + line == n || j + line + step <= n; j += line)
        for (std::size_t i = j; i < j + line; i += step)
          MOX_SI(stream)(reinterpret_cast<R*>(d + i), f(load(s + i)...));
      if (!stream) _mm_sfence();
    }
  }
  if constexpr (kVector == 16) {
    // 128-bit vectors go two to a step: at one a step the loop ran at 1.7
    // cycles a vector in cache or at 1, depending on where its code landed.
    for (; j + 2 * step <= n; j += 2 * step) {
      const R x = f(load(s + j)...), y = f(load(s + j + step)...);
      store(d + j, x), store(d + j + step, y);
    }
  }
  for (; j + step <= n; j += step) store(d + j, f(load(s + j)...));
  if (aligns && j < n) store(d + n - step, f(load(s + n - step)...)), j = n;
  return j;
}

template <class D>
using Ptr = typename D::T*;
template <class D>
using Src = const typename D::T*;

// A block of a rule on two sources from a vector function of two vectors.
template <class D, R (*F)(R, R)>
std::size_t pairBlock(const void* a, const void* b, void* d, std::size_t n, const OpArgs& s) {
  return sweep(F, s.stream, n, static_cast<Ptr<D>>(d), static_cast<Src<D>>(a),
               static_cast<Src<D>>(b));
}

// A block of a rule on one source from a vector function of the source and
// a vector made from the arguments.
template <class D, R (*F)(R, R), R (*Make)(const OpArgs&)>
std::size_t argBlock(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  const R v = Make(s);
  return sweep([v](R x) { return F(x, v); }, s.stream, n, static_cast<Ptr<D>>(d),
               static_cast<Src<D>>(a));
}

// Every lane set to v, in lanes of the depth's storage size.
template <int Bits>
inline R all(int v) {
  if constexpr (Bits == 8) return MOX_V(set1_epi8)(static_cast<char>(v));
  if constexpr (Bits == 16) return MOX_V(set1_epi16)(static_cast<short>(v));
  return MOX_V(set1_epi32)(v);
}

inline R andOf(R x, R y) { return MOX_SI(and)(x, y); }
inline R orOf(R x, R y) { return MOX_SI(or)(x, y); }
inline R xorOf(R x, R y) { return MOX_SI(xor)(x, y); }

// ------------------------------------------------------------ saturating sums

// Unsigned saturating steps of 8- and 16-bit lanes, chosen by the width.
template <int Bits>
inline R addsU(R x, R y) {
  return Bits == 8 ? MOX_V(adds_epu8)(x, y) : MOX_V(adds_epu16)(x, y);
}
template <int Bits>
inline R subsU(R x, R y) {
  return Bits == 8 ? MOX_V(subs_epu8)(x, y) : MOX_V(subs_epu16)(x, y);
}

// Saturating 32-bit sums and differences: the result overflowed when its
// sign differs from the sign both operands (of a sum) or the minuend (of a
// difference) force; it then takes the limit on the side of a.
inline R limited32(R a, R s, R over) {
  const R m = MOX_V(srai_epi32)(over, 31);
  const R limit = xorOf(MOX_V(srai_epi32)(a, 31), MOX_V(set1_epi32)(0x7FFFFFFF));
  return orOf(MOX_SI(andnot)(m, s), andOf(m, limit));
}
inline R adds32(R a, R b) {
  const R s = MOX_V(add_epi32)(a, b);
  return limited32(a, s, andOf(xorOf(a, s), xorOf(b, s)));
}
inline R subs32(R a, R b) {
  const R s = MOX_V(sub_epi32)(a, b);
  return limited32(a, s, andOf(xorOf(a, b), xorOf(a, s)));
}

inline R addU8(R x, R y) { return MOX_V(adds_epu8)(x, y); }
inline R addS8(R x, R y) { return MOX_V(adds_epi8)(x, y); }
inline R addU16(R x, R y) { return MOX_V(adds_epu16)(x, y); }
inline R addS16(R x, R y) { return MOX_V(adds_epi16)(x, y); }
inline R subU8(R x, R y) { return MOX_V(subs_epu8)(x, y); }
inline R subS8(R x, R y) { return MOX_V(subs_epi8)(x, y); }
inline R subU16(R x, R y) { return MOX_V(subs_epu16)(x, y); }
inline R subS16(R x, R y) { return MOX_V(subs_epi16)(x, y); }

// A + v (reverse: v - A) saturated, for 8- and 16-bit depths, with the
// unsigned saturating steps: signed values are biased by half the range
// first, which maps their range onto the unsigned one.
template <class D>
std::size_t offsetBy(const void* a, void* d, std::size_t n, long long v, bool reverse,
                     bool stream) {
  constexpr long long max = D::hi - D::lo;
  constexpr long long bias = D::isSigned ? -D::lo : 0;
  const R flip = all<D::bits>(int(bias));
  const auto s = static_cast<Src<D>>(a);
  const auto t = static_cast<Ptr<D>>(d);
  if (!reverse) {
    // Any |v| above max saturates every value alike.
    const long long m = v < -max ? -max : v > max ? max : v;
    const R up = all<D::bits>(int(m > 0 ? m : 0)), down = all<D::bits>(int(m < 0 ? -m : 0));
    return sweep(
        [=](R x) {
          return xorOf(addsU<D::bits>(subsU<D::bits>(xorOf(x, flip), down), up), flip);
        },
        stream, n, t, s);
  }
  // v - A on biased values is (v + 2 bias) - A', taken in [0, 2 max] as
  // lo - (A' - hi) with lo up to max and hi the rest.
  long long w = v + 2 * bias;
  w = w < 0 ? 0 : w > 2 * max ? 2 * max : w;
  const long long lo = w < max ? w : max;
  const R low = all<D::bits>(int(lo)), high = all<D::bits>(int(w - lo));
  return sweep(
      [=](R x) { return xorOf(subsU<D::bits>(low, subsU<D::bits>(xorOf(x, flip), high)), flip); },
      stream, n, t, s);
}

template <class D>
std::size_t addScalar(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  return offsetBy<D>(a, d, n, s.value, false, s.stream);
}

// A - v is A + (-v).
template <class D>
std::size_t subtractScalar(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  return offsetBy<D>(a, d, n, s.reverse ? s.value : -static_cast<long long>(s.value), s.reverse,
                     s.stream);
}

inline R value32(const OpArgs& s) { return MOX_V(set1_epi32)(s.value); }
inline R subsFrom32(R a, R v) { return subs32(v, a); }

std::size_t subtractScalar32(const void* a, const void* b, void* d, std::size_t n,
                             const OpArgs& s) {
  if (s.reverse) return argBlock<S32, subsFrom32, value32>(a, b, d, n, s);
  return argBlock<S32, subs32, value32>(a, b, d, n, s);
}

// ------------------------------------------------------------ products

// 8-bit values widened to two vectors of 16-bit lanes, and 16-bit lanes
// narrowed back to the depth's range. Within each 128-bit half the unpacks
// and packs undo each other, so the order of values is kept at any width.
template <class D>
inline void widen8(R x, R& lo, R& hi) {
  if constexpr (D::isSigned) {
    lo = MOX_V(srai_epi16)(MOX_V(unpacklo_epi8)(x, x), 8);
    hi = MOX_V(srai_epi16)(MOX_V(unpackhi_epi8)(x, x), 8);
  } else {
    lo = MOX_V(unpacklo_epi8)(x, MOX_SI(setzero)());
    hi = MOX_V(unpackhi_epi8)(x, MOX_SI(setzero)());
  }
}
template <class D>
inline R narrow8(R lo, R hi) {
  if constexpr (D::isSigned) return MOX_V(packs_epi16)(lo, hi);
  // Unsigned 16-bit values above 255 become 255 before the pack.
  const R c = MOX_V(set1_epi16)(255);
  return MOX_V(packus_epi16)(MOX_V(sub_epi16)(lo, MOX_V(subs_epu16)(lo, c)),
                             MOX_V(sub_epi16)(hi, MOX_V(subs_epu16)(hi, c)));
}

// The saturated products of 16-bit lanes x and yl, or of 8-bit lanes x and
// the second operand widened into (yl, yh), so a scalar beyond the 8-bit
// range still fits.
template <class D>
inline R productSat(R x, R yl, R yh) {
  if constexpr (D::bits == 8) {
    R xl, xh;
    widen8<D>(x, xl, xh);
    return narrow8<D>(MOX_V(mullo_epi16)(xl, yl), MOX_V(mullo_epi16)(xh, yh));
  } else if constexpr (D::isSigned) {
    (void)yh;
    // The 32-bit products, packed with saturation.
    const R lo = MOX_V(mullo_epi16)(x, yl), hi = MOX_V(mulhi_epi16)(x, yl);
    return MOX_V(packs_epi32)(MOX_V(unpacklo_epi16)(lo, hi), MOX_V(unpackhi_epi16)(lo, hi));
  } else {
    (void)yh;
    // All ones where the high half of the product is not zero.
    const R zero = MOX_SI(setzero)();
    const R fits = MOX_V(cmpeq_epi16)(MOX_V(mulhi_epu16)(x, yl), zero);
    return orOf(MOX_V(mullo_epi16)(x, yl), xorOf(fits, MOX_V(cmpeq_epi16)(zero, zero)));
  }
}

template <class D>
inline R productOf(R x, R y) {
  if constexpr (D::bits == 8) {
    R yl, yh;
    widen8<D>(y, yl, yh);
    return productSat<D>(x, yl, yh);
  } else {
    return productSat<D>(x, y, y);
  }
}

template <class D>
inline R squareOf(R x, R) {
  return productOf<D>(x, x);
}

// Products with a scalar, limited so that it saturates every value as the
// full one does: 0..max for unsigned depths, +-255 for 8S. A 16S scalar
// outside the 16-bit range is left to the scalar loop.
template <class D>
std::size_t multiplyScalar(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  constexpr long long lo = !D::isSigned ? 0 : D::bits == 8 ? -255 : D::lo;
  constexpr long long hi = D::isSigned && D::bits == 8 ? 255 : D::hi;
  const int v = s.value;
  if (D::bits == 16 && D::isSigned && (v < lo || v > hi)) return 0;
  const R y = MOX_V(set1_epi16)(short(v < lo ? lo : v > hi ? hi : v));
  return sweep([y](R x) { return productSat<D>(x, y, y); }, s.stream, n, static_cast<Ptr<D>>(d),
               static_cast<Src<D>>(a));
}

// ------------------------------------------------------------ bits

// The scalar cut to the storage size of D, in every lane.
template <class D>
inline R valueOf(const OpArgs& s) {
  return all<D::bits>(s.value);
}

// Stored bits shifted left: 8-bit lanes shift in 16-bit lanes and drop the
// bits of the neighbour; counts from the lane width up clear the lane.
inline __m128i countOf(unsigned k) { return _mm_cvtsi32_si128(int(k)); }

template <class D>
std::size_t shiftLeft(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  const unsigned k = s.shift & 31;
  const __m128i count = countOf(k);
  const R keep = all<8>(k > 7 ? 0 : int(0xFFu << k));
  return sweep(
      [=](R x) {
        if constexpr (D::bits == 8) return andOf(MOX_V(sll_epi16)(x, count), keep);
        if constexpr (D::bits == 16) return MOX_V(sll_epi16)(x, count);
        return MOX_V(sll_epi32)(x, count);
      },
      s.stream, n, static_cast<Ptr<D>>(d), static_cast<Src<D>>(a));
}

// A >> s with the 32-bit rule (unsigned values shift logically; signed ones
// are sign extended, so counts from 8 (16) up to 24 (16) repeat the sign and
// larger counts bring in zeros, which is left to the scalar loop).
template <class D>
std::size_t shiftRight(const void* a, const void*, void* d, std::size_t n, const OpArgs& s) {
  const unsigned k = s.shift & 31;
  const auto src = static_cast<Src<D>>(a);
  const auto dst = static_cast<Ptr<D>>(d);
  if constexpr (D::bits == 8) {
    if (D::isSigned && k > 24) return 0;
    // Logical shifts in 16-bit lanes, then the bits of the neighbour
    // dropped; signed values: (A + 128) >> s, less 128 >> s.
    const unsigned c = D::isSigned && k > 7 ? 7 : k;
    const __m128i count = countOf(c);
    const R keep = all<8>(c > 7 ? 0 : 0xFF >> c);
    const R flip = all<8>(D::isSigned ? 0x80 : 0);
    const R back = all<8>(D::isSigned ? 0x80 >> c : 0);
    return sweep(
        [=](R x) {
          return MOX_V(sub_epi8)(andOf(MOX_V(srl_epi16)(xorOf(x, flip), count), keep), back);
        },
        s.stream, n, dst, src);
  } else if constexpr (D::bits == 16) {
    if (D::isSigned && k > 16) return 0;
    const __m128i count = countOf(D::isSigned && k > 15 ? 15 : k);
    return sweep(
        [=](R x) { return D::isSigned ? MOX_V(sra_epi16)(x, count) : MOX_V(srl_epi16)(x, count); },
        s.stream, n, dst, src);
  } else {
    const __m128i count = countOf(k);
    return sweep([=](R x) { return MOX_V(sra_epi32)(x, count); }, s.stream, n, dst, src);
  }
}

// (A + m) XOR m with m the sign mask: the most negative value stays.
template <class D>
inline R absOf(R x, R) {
  const R zero = MOX_SI(setzero)();
  if constexpr (D::bits == 8) {
    const R m = MOX_V(cmpgt_epi8)(zero, x);
    return xorOf(MOX_V(add_epi8)(x, m), m);
  } else if constexpr (D::bits == 16) {
    const R m = MOX_V(srai_epi16)(x, 15);
    return xorOf(MOX_V(add_epi16)(x, m), m);
  } else {
    const R m = MOX_V(srai_epi32)(x, 31);
    return xorOf(MOX_V(add_epi32)(x, m), m);
  }
}

inline R none(const OpArgs&) { return MOX_SI(setzero)(); }
inline R firstOf(R x, R) { return x; }

// ------------------------------------------------------------ the table

constexpr Blocks makeBlocks() {
  Blocks t{};
  auto set = [&t](LaneRule rule, int depth, Block f) { t.at[rule][depth] = f; };
  constexpr int u8 = laneDepth<U8>(), s8 = laneDepth<S8>(), u16 = laneDepth<U16>();
  constexpr int s16 = laneDepth<S16>(), s32 = laneDepth<S32>(), u32 = laneDepth<U32>();
  set(kAdd, u8, pairBlock<U8, addU8>);
  set(kAdd, s8, pairBlock<S8, addS8>);
  set(kAdd, u16, pairBlock<U16, addU16>);
  set(kAdd, s16, pairBlock<S16, addS16>);
  set(kAdd, s32, pairBlock<S32, adds32>);
  set(kSubtract, u8, pairBlock<U8, subU8>);
  set(kSubtract, s8, pairBlock<S8, subS8>);
  set(kSubtract, u16, pairBlock<U16, subU16>);
  set(kSubtract, s16, pairBlock<S16, subS16>);
  set(kSubtract, s32, pairBlock<S32, subs32>);
  set(kAddS, s32, argBlock<S32, adds32, value32>);
  set(kSubtractS, s32, subtractScalar32);
  set(kRShiftS, s32, shiftRight<S32>);
  set(kAbs, s32, argBlock<S32, absOf<S32>, none>);
  auto narrow = [&](auto depth) {
    using D = decltype(depth);
    constexpr int k = laneDepth<D>();
    set(kMultiply, k, pairBlock<D, productOf<D>>);
    set(kSquare, k, argBlock<D, squareOf<D>, none>);
    set(kAddS, k, addScalar<D>);
    set(kSubtractS, k, subtractScalar<D>);
    set(kMultiplyS, k, multiplyScalar<D>);
    set(kRShiftS, k, shiftRight<D>);
    if constexpr (D::isSigned) set(kAbs, k, argBlock<D, absOf<D>, none>);
  };
  narrow(U8{}), narrow(S8{}), narrow(U16{}), narrow(S16{});
  auto bitwise = [&](auto depth) {
    using D = decltype(depth);
    constexpr int k = laneDepth<D>();
    set(kAnd, k, pairBlock<D, andOf>);
    set(kOr, k, pairBlock<D, orOf>);
    set(kXor, k, pairBlock<D, xorOf>);
    set(kAndS, k, argBlock<D, andOf, valueOf<D>>);
    set(kOrS, k, argBlock<D, orOf, valueOf<D>>);
    set(kXorS, k, argBlock<D, xorOf, valueOf<D>>);
    set(kLShiftS, k, shiftLeft<D>);
    set(kCopy, k, argBlock<D, firstOf, none>);
  };
  bitwise(U8{}), bitwise(U16{}), bitwise(U32{});
  (void)s8, (void)u16, (void)s16, (void)u32;
  return t;
}
#else
constexpr Blocks makeBlocks() { return Blocks{}; }
#endif

}  // namespace

extern const Blocks MOX_ARITH_BLOCKS = makeBlocks();

}  // namespace mox::arith

#undef MOX_LANES
#undef MOX_V
#undef MOX_SI
