// The per-value rules of the arithmetic and logic operations. Each rule is
// written once; the kernels of every depth, including packed bits, come from
// the templates of the point-operation layer.
#pragma once

#include <cstdint>

#include "image/pointop.h"

namespace mox::arith {

// Runs of at least this many bytes are stored past the caches.
constexpr std::size_t kStreamBytes = std::size_t(kLargeBytes);

#if defined(__SSE2__)
// Runs f over 16-byte groups of two sources into a destination; returns how
// many values were done. Each group is loaded before it is stored, so the
// destination may be one of the sources. Long runs, or any run with
// `stream` (a part of a large destination), are stored past the caches.
template <class T, class F>
inline std::size_t sse2Pairs(const T* a, const T* b, T* d, std::size_t n, F f,
                             bool stream = false) {
  constexpr std::size_t step = 16 / sizeof(T);
  std::size_t j = 0;
  const auto at = reinterpret_cast<std::uintptr_t>(d);
  const std::uintptr_t bytes = n * sizeof(T);
  auto apart = [&](const T* s) {
    const auto from = reinterpret_cast<std::uintptr_t>(s);
    return from + bytes <= at || at + bytes <= from;
  };
  if ((stream || bytes >= kStreamBytes) && apart(a) && apart(b) && at % sizeof(T) == 0 &&
      n >= 2 * step) {
    // A destination far larger than the caches is written around them,
    // which spares reading it in first. The first group is stored as
    // usual; the rest from the first 16-byte boundary.
    const __m128i first = f(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a)),
                            _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), first);
    for (j = (16 - at % 16) % 16 / sizeof(T); j + step <= n; j += step) {
      const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + j));
      const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + j));
      _mm_stream_si128(reinterpret_cast<__m128i*>(d + j), f(x, y));
    }
    _mm_sfence();
    return j;
  }
  for (; j + step <= n; j += step) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + j));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + j));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), f(x, y));
  }
  return j;
}

// Runs f over 16-byte groups of one source into a destination; returns how
// many values were done.
template <class T, class F>
inline std::size_t sse2Each(const T* a, T* d, std::size_t n, F f) {
  constexpr std::size_t step = 16 / sizeof(T);
  std::size_t j = 0;
  for (; j + step <= n; j += step) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + j));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), f(x));
  }
  return j;
}

// Unsigned saturating steps of 8- and 16-bit lanes, chosen by the width.
template <int Bits>
struct Lanes {
  static __m128i all(int v) {
    return Bits == 8 ? _mm_set1_epi8(char(v)) : _mm_set1_epi16(short(v));
  }
  static __m128i adds(__m128i x, __m128i y) {
    return Bits == 8 ? _mm_adds_epu8(x, y) : _mm_adds_epu16(x, y);
  }
  static __m128i subs(__m128i x, __m128i y) {
    return Bits == 8 ? _mm_subs_epu8(x, y) : _mm_subs_epu16(x, y);
  }
};

// A + v (reverse: v - A) saturated, for 8- and 16-bit depths, with the
// unsigned saturating steps: signed values are biased by half the range
// first, which maps their range onto the unsigned one. Returns how many
// values were done (0 for other depths).
template <class D, class T>
inline std::size_t offsetBlock(const T* a, T* d, std::size_t n, int v, bool reverse) {
  if constexpr (D::bits == 8 || D::bits == 16) {
    using L = Lanes<D::bits>;
    constexpr long long max = D::hi - D::lo;
    constexpr long long bias = D::isSigned ? -D::lo : 0;
    const __m128i flip = L::all(int(bias));
    if (!reverse) {
      // Any |v| above max saturates every value alike.
      const long long m = v < -max ? -max : v > max ? max : v;
      const __m128i up = L::all(int(m > 0 ? m : 0)), down = L::all(int(m < 0 ? -m : 0));
      return sse2Each(a, d, n, [=](__m128i x) {
        return _mm_xor_si128(L::adds(L::subs(_mm_xor_si128(x, flip), down), up), flip);
      });
    }
    // v - A on biased values is (v + 2 bias) - A', taken in [0, 2 max] as
    // lo - (A' - hi) with lo up to max and hi the rest.
    long long w = static_cast<long long>(v) + 2 * bias;
    w = w < 0 ? 0 : w > 2 * max ? 2 * max : w;
    const long long lo = w < max ? w : max;
    const __m128i low = L::all(int(lo)), high = L::all(int(w - lo));
    return sse2Each(a, d, n, [=](__m128i x) {
      return _mm_xor_si128(L::subs(low, L::subs(_mm_xor_si128(x, flip), high)), flip);
    });
  }
  (void)a, (void)d, (void)n, (void)v, (void)reverse;
  return 0;
}

// A >> s for 8- and 16-bit depths with the 32-bit rule (unsigned values
// shift logically; signed ones are sign extended, so counts from 8 (16) up
// to 24 (16) repeat the sign and larger counts bring in zeros, which is left
// to the scalar loop). Returns how many values were done.
template <class D, class T>
inline std::size_t shiftRightBlock(const T* a, T* d, std::size_t n, unsigned s) {
  if constexpr (D::bits == 8) {
    if (D::isSigned && s > 24) return 0;
    // Logical shifts in 16-bit lanes, then the bits of the neighbour
    // dropped; signed values: (A + 128) >> s, less 128 >> s.
    const unsigned k = D::isSigned && s > 7 ? 7 : s;
    const __m128i count = _mm_cvtsi32_si128(int(k));
    const __m128i keep = _mm_set1_epi8(char(k > 7 ? 0 : 0xFF >> k));
    const __m128i flip = _mm_set1_epi8(char(D::isSigned ? 0x80 : 0));
    const __m128i back = _mm_set1_epi8(char(D::isSigned ? 0x80 >> k : 0));
    return sse2Each(a, d, n, [=](__m128i x) {
      const __m128i u = _mm_and_si128(_mm_srl_epi16(_mm_xor_si128(x, flip), count), keep);
      return _mm_sub_epi8(u, back);
    });
  } else if constexpr (D::bits == 16) {
    if (D::isSigned && s > 16) return 0;
    const __m128i count = _mm_cvtsi32_si128(int(D::isSigned && s > 15 ? 15 : s));
    return sse2Each(a, d, n, [=](__m128i x) {
      return D::isSigned ? _mm_sra_epi16(x, count) : _mm_srl_epi16(x, count);
    });
  }
  (void)a, (void)d, (void)n, (void)s;
  return 0;
}

// 8-bit values widened to two groups of 16-bit lanes, and 16-bit lanes
// narrowed back to the depth's range.
template <class D>
inline void widen8(__m128i x, __m128i& lo, __m128i& hi) {
  if constexpr (D::isSigned) {
    lo = _mm_srai_epi16(_mm_unpacklo_epi8(x, x), 8);
    hi = _mm_srai_epi16(_mm_unpackhi_epi8(x, x), 8);
  } else {
    lo = _mm_unpacklo_epi8(x, _mm_setzero_si128());
    hi = _mm_unpackhi_epi8(x, _mm_setzero_si128());
  }
}
template <class D>
inline __m128i narrow8(__m128i lo, __m128i hi) {
  if constexpr (D::isSigned) return _mm_packs_epi16(lo, hi);
  // Unsigned 16-bit values above 255 become 255 before the pack.
  const __m128i c = _mm_set1_epi16(255);
  return _mm_packus_epi16(_mm_sub_epi16(lo, _mm_subs_epu16(lo, c)),
                          _mm_sub_epi16(hi, _mm_subs_epu16(hi, c)));
}

// The saturated products of 16-bit lanes x and y, or of 8-bit lanes x
// and y8 (y then holds the second operand widened, so a scalar beyond the
// 8-bit range still fits).
template <class D>
inline __m128i productSat(__m128i x, __m128i yl, __m128i yh) {
  if constexpr (D::bits == 8) {
    __m128i xl, xh;
    widen8<D>(x, xl, xh);
    return narrow8<D>(_mm_mullo_epi16(xl, yl), _mm_mullo_epi16(xh, yh));
  } else if constexpr (D::isSigned) {
    (void)yh;
    // The 32-bit products, packed with saturation.
    const __m128i lo = _mm_mullo_epi16(x, yl), hi = _mm_mulhi_epi16(x, yl);
    return _mm_packs_epi32(_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi));
  } else {
    (void)yh;
    // All ones where the high half of the product is not zero.
    const __m128i zero = _mm_setzero_si128();
    const __m128i fits = _mm_cmpeq_epi16(_mm_mulhi_epu16(x, yl), zero);
    return _mm_or_si128(_mm_mullo_epi16(x, yl), _mm_xor_si128(fits, _mm_cmpeq_epi16(zero, zero)));
  }
}

template <class D>
inline __m128i productOf(__m128i x, __m128i y) {
  if constexpr (D::bits == 8) {
    __m128i yl, yh;
    widen8<D>(y, yl, yh);
    return productSat<D>(x, yl, yh);
  } else {
    return productSat<D>(x, y, y);
  }
}

// Products of two sources (b null: of a with itself) for 8- and 16-bit
// depths; returns how many values were done.
template <class D, class T>
inline std::size_t productBlock(const T* a, const T* b, T* d, std::size_t n, bool stream) {
  if constexpr (D::bits == 8 || D::bits == 16) {
    if (b) return sse2Pairs(a, b, d, n, productOf<D>, stream);
    return sse2Each(a, d, n, [](__m128i x) { return productOf<D>(x, x); });
  }
  (void)a, (void)b, (void)d, (void)n, (void)stream;
  return 0;
}

// Products with a scalar, limited so that it saturates every value as the
// full one does: 0..max for unsigned depths, +-255 for 8S. A 16S scalar
// outside the 16-bit range is left to the scalar loop (returns 0).
template <class D, class T>
inline std::size_t scalarProductBlock(const T* a, T* d, std::size_t n, int v) {
  if constexpr (D::bits == 8 || D::bits == 16) {
    constexpr long long lo = !D::isSigned ? 0 : D::bits == 8 ? -255 : D::lo;
    constexpr long long hi = D::isSigned && D::bits == 8 ? 255 : D::hi;
    if (D::bits == 16 && D::isSigned && (v < lo || v > hi)) return 0;
    const __m128i y = _mm_set1_epi16(short(v < lo ? lo : v > hi ? hi : v));
    return sse2Each(a, d, n, [=](__m128i x) { return productSat<D>(x, y, y); });
  }
  (void)a, (void)d, (void)n, (void)v;
  return 0;
}
#endif

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

// Saturating sum and difference of 8- and 16-bit values are single SSE2
// instructions: I names one per depth.
template <class D, class I, class T>
inline std::size_t saturatingBlock(const T* a, const T* b, T* d, std::size_t n, bool stream) {
#if defined(__SSE2__)
  if constexpr (std::is_same_v<D, U8>) return sse2Pairs(a, b, d, n, I::u8, stream);
  if constexpr (std::is_same_v<D, S8>) return sse2Pairs(a, b, d, n, I::s8, stream);
  if constexpr (std::is_same_v<D, U16>) return sse2Pairs(a, b, d, n, I::u16, stream);
  if constexpr (std::is_same_v<D, S16>) return sse2Pairs(a, b, d, n, I::s16, stream);
#endif
  (void)a, (void)b, (void)d, (void)n, (void)stream;
  return 0;
}

struct Add : Rule {
#if defined(__SSE2__)
  static __m128i u8(__m128i x, __m128i y) { return _mm_adds_epu8(x, y); }
  static __m128i s8(__m128i x, __m128i y) { return _mm_adds_epi8(x, y); }
  static __m128i u16(__m128i x, __m128i y) { return _mm_adds_epu16(x, y); }
  static __m128i s16(__m128i x, __m128i y) { return _mm_adds_epi16(x, y); }
#endif
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    if constexpr (std::is_same_v<D, S32>) return addSat32(a, b);
    return D::sat(typename D::Sum(a) + b);
  }
  template <class D, class T>
  static std::size_t block(const T* a, const T* b, T* d, std::size_t n, const OpArgs& s) {
    return saturatingBlock<D, Add>(a, b, d, n, s.stream);
  }
};

struct Subtract : Rule {
  static constexpr bool reversible = true;
#if defined(__SSE2__)
  static __m128i u8(__m128i x, __m128i y) { return _mm_subs_epu8(x, y); }
  static __m128i s8(__m128i x, __m128i y) { return _mm_subs_epi8(x, y); }
  static __m128i u16(__m128i x, __m128i y) { return _mm_subs_epu16(x, y); }
  static __m128i s16(__m128i x, __m128i y) { return _mm_subs_epi16(x, y); }
#endif
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    if constexpr (std::is_same_v<D, S32>) return subSat32(a, b);
    return D::sat(typename D::Sum(a) - b);
  }
  template <class D, class T>
  static std::size_t block(const T* a, const T* b, T* d, std::size_t n, const OpArgs& s) {
    return saturatingBlock<D, Subtract>(a, b, d, n, s.stream);
  }
};

struct Multiply : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, const T* b, T* d, std::size_t n, const OpArgs& s) {
#if defined(__SSE2__)
    return productBlock<D>(a, b, d, n, s.stream);
#else
    (void)a, (void)b, (void)d, (void)n, (void)s;
    return 0;
#endif
  }
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return D::sat(typename D::Product(a) * b);
  }
};

// The logic rules work on the stored bits, so one kernel per storage size
// serves both signs.
struct And : Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return static_cast<typename D::T>(a & b);
  }
};

struct Or : Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, typename D::T b, const OpArgs&) {
    return static_cast<typename D::T>(a | b);
  }
};

struct Xor : Rule {
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

struct AddS : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs& s) {
#if defined(__SSE2__)
    return offsetBlock<D>(a, d, n, s.value, false);
#else
    (void)a, (void)d, (void)n, (void)s;
    return 0;
#endif
  }
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using W = typename D::Sum;
    if constexpr (std::is_same_v<D, S32>) return addSat32(a, s.value);
    return D::sat(W(a) + scalar<D, W>(s.value));
  }
};

struct SubtractS : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs& s) {
#if defined(__SSE2__)
    // A - v is A + (-v); any v below -max saturates like -max does.
    if (s.reverse) return offsetBlock<D>(a, d, n, s.value, true);
    return offsetBlock<D>(a, d, n, s.value < -0xFFFF ? 0xFFFF : -s.value, false);
#else
    (void)a, (void)d, (void)n, (void)s;
    return 0;
#endif
  }
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

struct MultiplyS : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs& s) {
#if defined(__SSE2__)
    return scalarProductBlock<D>(a, d, n, s.value);
#else
    (void)a, (void)d, (void)n, (void)s;
    return 0;
#endif
  }
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    using W = typename D::Product;
    return D::sat(W(a) * scalar<D, W>(s.value));
  }
};

// The scalar is cut to the storage size (to the low bit for packed bits).
struct AndS : Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a & D::cut(s.value));
  }
};

struct OrS : Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a | D::cut(s.value));
  }
};

struct XorS : Rule {
  static constexpr bool bitwise = true;
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs& s) {
    return D::cut(a ^ D::cut(s.value));
  }
};

// The stored bits shifted left in a 32-bit register; the low bits are kept.
// On packed bits any count but 0 (mod 32) clears the pixel.
struct LShiftS : Rule {
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
struct RShiftS : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs& s) {
#if defined(__SSE2__)
    return shiftRightBlock<D>(a, d, n, s.shift & 31);
#else
    (void)a, (void)d, (void)n, (void)s;
    return 0;
#endif
  }
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

struct Square : Rule {
  template <class D, class T>
  static std::size_t block(const T* a, T* d, std::size_t n, const OpArgs&) {
#if defined(__SSE2__)
    return productBlock<D>(a, static_cast<const T*>(nullptr), d, n, false);
#else
    (void)a, (void)d, (void)n;
    return 0;
#endif
  }
  template <class D>
  static typename D::T apply(typename D::T a, const OpArgs&) {
    return D::sat(typename D::Product(a) * a);
  }
};

// (A + m) XOR m with m the sign mask, stored without saturation, so the most
// negative value stays. Unsigned values are their own absolute value.
struct Abs : Rule {
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
