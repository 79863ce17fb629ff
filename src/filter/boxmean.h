// The box mean of plain blocks: the sums of each column follow the rows,
// the window's sums run along each row, and the quotients come from a
// multiply and a shift, or in single precision (with a correction where
// needed).
//
// Included once per vector width (boxmean.cpp with the build's own vectors,
// boxmean_wide.cpp for 256-bit vectors chosen at run time); everything here
// but the table has internal linkage. Every path computes exact quotients,
// so every width gives the same values.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "filter/kernels.h"
#include "frame/frame.h"

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#if !defined(MOX_FILTER_MEANS)
#error "define MOX_FILTER_MEANS to the name of the table"
#endif
#if !defined(MOX_FILTER_MEAN_BYTES)
#define MOX_FILTER_MEAN_BYTES 16
#endif

namespace mox::filt {
namespace {

using i64 = long long;
using u64 = unsigned long long;

// col[j] += in[j] - out[j].
template <class S, class T>
void slide(S* __restrict col, const T* __restrict in, const T* __restrict out, int n) {
  for (int j = 0; j < n; ++j) col[j] = static_cast<S>(col[j] + (S(in[j]) - S(out[j])));
}

// d[j] = ((run[j] + offset) * m >> shift) + lo: the exact quotients.
template <class T, class S>
void divideAll(const S* __restrict run, T* __restrict d, int n, long long offset,
               unsigned long long m, int shift, long long lo) {
  for (int j = 0; j < n; ++j)
    d[j] = static_cast<T>(static_cast<long long>((static_cast<unsigned long long>(run[j] + offset) * m) >> shift) + lo);
}

// floor(x / n) for x >= 0 below a bound fixed at set-up, by a multiply and
// a shift that are exact for every such x; wider sums divide.
class Divider {
 public:
  Divider(i64 n, i64 bound) : n_(n) {
    if (bound >= (i64(1) << 31)) return;
    int shift = 0;
    while ((u64(1) << shift) < u64(bound) * u64(n)) ++shift;
    shift_ = shift;
    multiplier_ = ((u64(1) << shift) + u64(n) - 1) / u64(n);
  }
  i64 operator()(i64 x) const {
    if (multiplier_) return static_cast<i64>((u64(x) * multiplier_) >> shift_);
    return x / n_;
  }
  bool fast() const { return multiplier_ != 0; }
  u64 multiplier() const { return multiplier_; }
  int shift() const { return shift_; }

 private:
  i64 n_;
  u64 multiplier_ = 0;
  int shift_ = 0;
};

// Running sums over whole vectors: each lane adds the lanes cn,
// 2 cn, 4 cn, ... below it, then the last sum of its channel in the vector
// before. The same sums as one value at a time, for cn up to the lane count;
// used where that carry is one shuffle.
template <class S>
struct SumLanes {
  using V [[gnu::vector_size(MOX_FILTER_MEAN_BYTES)]] = S;
  static constexpr int kCount = MOX_FILTER_MEAN_BYTES / int(sizeof(S));

  template <int Shift, std::size_t... I>
  static V up(V x, std::index_sequence<I...>) {
    return __builtin_shufflevector(x, V{}, (int(I) >= Shift ? int(I) - Shift : kCount + int(I))...);
  }
  template <int CN, std::size_t... I>
  static V carry(V x, std::index_sequence<I...>) {
    return __builtin_shufflevector(x, x, (kCount - CN + int(I) % CN)...);
  }
  template <int CN, int Shift = CN>
  static V scan(V x) {
    if constexpr (Shift >= kCount) {
      return x;
    } else {
      x += up<Shift>(x, std::make_index_sequence<kCount>{});
      return scan<CN, 2 * Shift>(x);
    }
  }
  // The carry into the vector after the first CN sums of run.
  template <int CN>
  static V first(const S* run) {
    V prev{};
    for (int i = 0; i < CN; ++i) prev[kCount - CN + i] = run[i];
    return prev;
  }
  // The sums of the vector at p, after the vector whose sums are prev.
  template <int CN>
  static V step(S* p, V prev) {
    V x;
    std::memcpy(&x, p, sizeof x);
    x = scan<CN>(x) + carry<CN>(prev, std::make_index_sequence<kCount>{});
    std::memcpy(p, &x, sizeof x);
    return x;
  }
  // run[j] += run[j - CN] for j from CN to n - 1, the first CN already
  // sums; and likewise on `other` (null, or n values of their own). Each
  // vector waits for the carry of the one before, so two runs side by side
  // keep the processor busy while it waits.
  template <int CN>
  static void prefix(S* run, int n, S* other = nullptr) {
    if (n <= CN) return;
    int j = CN;
    if constexpr (CN <= kCount) {
      V prev = first<CN>(run);
      if (other) {
        V next = first<CN>(other);
        for (; j + kCount <= n; j += kCount) {
          prev = step<CN>(run + j, prev);
          next = step<CN>(other + j, next);
        }
      } else {
        for (; j + kCount <= n; j += kCount) prev = step<CN>(run + j, prev);
      }
    }
    for (int i = j; i < n; ++i) run[i] = static_cast<S>(run[i] + run[i - CN]);
    if (other)
      for (int i = j; i < n; ++i) other[i] = static_cast<S>(other[i] + other[i - CN]);
  }
};

// run[j] = the sum of the window's columns at j, from the first window's sum
// at j < cn and the values that enter and leave: one running sum per
// channel, on whole vectors for 16- and 32-bit sums of 1, 3 or 4 channels.
template <int CN, class C, class S>
void runningSums(const C* __restrict col, S* __restrict run, int n, int nCols, int cn) {
  if constexpr (CN > 0) cn = CN;
  const std::ptrdiff_t far = std::ptrdiff_t(nCols) * cn;
  for (int ch = 0; ch < cn && ch < n; ++ch) {
    S sum = 0;
    for (int c = 0; c < nCols; ++c) sum = static_cast<S>(sum + col[c * cn + ch]);
    run[ch] = sum;
  }
  // The change from one window to the next, on whole vectors, then the sums.
  for (int j = cn; j < n; ++j) run[j] = static_cast<S>(S(col[j - cn + far]) - S(col[j - cn]));
  // 16-bit lanes of three channels carry through a byte shuffle that only
  // the wide vectors have in one step.
  constexpr bool lanes = CN > 0 && sizeof(S) <= 4 &&
                         (SumLanes<S>::kCount % (CN > 0 ? CN : 1) == 0 || sizeof(S) == 4 || MOX_FILTER_MEAN_BYTES == 32);
  if constexpr (lanes) {
    // Long rows run as two halves, the second from its own first sums.
    const int half = n / 2;
    if (half < 4 * SumLanes<S>::kCount) return SumLanes<S>::template prefix<CN>(run, n);
    for (int ch = 0; ch < CN; ++ch) {
      S sum = 0;
      for (int c = 0; c < nCols; ++c) sum = static_cast<S>(sum + col[half + c * CN + ch]);
      run[half + ch] = sum;
    }
    SumLanes<S>::template prefix<CN>(run, half, run + half);
    for (int j = 2 * half; j < n; ++j) run[j] = static_cast<S>(run[j] + run[j - CN]);
  } else if constexpr (CN > 0) {
    // Other lane patterns cost more to carry than the sums: the channels'
    // chains side by side in registers.
    S sum[CN];
    for (int ch = 0; ch < CN; ++ch) sum[ch] = run[ch];
    int j = CN;
    for (; j + CN <= n; j += CN)
      for (int ch = 0; ch < CN; ++ch) run[j + ch] = sum[ch] = static_cast<S>(sum[ch] + run[j + ch]);
    for (; j < n; ++j) run[j] = static_cast<S>(run[j] + run[j - CN]);
  } else {
    for (int j = cn; j < n; ++j) run[j] = static_cast<S>(run[j] + run[j - cn]);
  }
}

// run[j] = col[j] + col[j + k] + ... + col[j + (C - 1) k]: narrow windows
// add their columns directly.
template <int K, class C, class S>
void sumsAcross(const C* __restrict col, S* __restrict run, int n, int k) {
  for (int j = 0; j < n; ++j) {
    S sum = col[j];
    for (int i = 1; i < K; ++i) sum = static_cast<S>(sum + col[j + i * k]);
    run[j] = sum;
  }
}

template <class C, class S>
void runningSums(const C* col, S* run, int n, int nCols, int cn) {
  if (nCols == 2) return sumsAcross<2>(col, run, n, cn);
  if (nCols == 3) return sumsAcross<3>(col, run, n, cn);
  switch (cn) {
    case 1:
      return runningSums<1>(col, run, n, nCols, cn);
    case 3:
      return runningSums<3>(col, run, n, nCols, cn);
    case 4:
      return runningSums<4>(col, run, n, nCols, cn);
    default:
      return runningSums<0>(col, run, n, nCols, cn);
  }
}

// d[j] = ((run[j] + half) * m >> 16) >> (k - 16) on 16-bit lanes.
inline void divideShort(const std::uint16_t* __restrict run, std::uint8_t* __restrict d, int n,
                        std::uint16_t half, std::uint16_t m, int k) {
  int j = 0;
#if MOX_FILTER_MEAN_BYTES == 32
  {
    const __m256i vHalf = _mm256_set1_epi16(static_cast<short>(half)), vM = _mm256_set1_epi16(static_cast<short>(m));
    const __m128i vK = _mm_cvtsi32_si128(k - 16);
    for (; j + 32 <= n; j += 32) {
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(run + j));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(run + j + 16));
      const __m256i qa = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_add_epi16(a, vHalf), vM), vK);
      const __m256i qb = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_add_epi16(b, vHalf), vM), vK);
      // The packing works per half: put the quarters back in order.
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + j),
                          _mm256_permute4x64_epi64(_mm256_packus_epi16(qa, qb), 0xD8));
    }
  }
#endif
#if defined(__SSE2__)
  // The high halves of the products in one multiply, 16 values a time.
  const __m128i vHalf = _mm_set1_epi16(static_cast<short>(half)), vM = _mm_set1_epi16(static_cast<short>(m));
  const __m128i vK = _mm_cvtsi32_si128(k - 16);
  for (; j + 16 <= n; j += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(run + j));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(run + j + 8));
    const __m128i qa = _mm_srl_epi16(_mm_mulhi_epu16(_mm_add_epi16(a, vHalf), vM), vK);
    const __m128i qb = _mm_srl_epi16(_mm_mulhi_epu16(_mm_add_epi16(b, vHalf), vM), vK);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + j), _mm_packus_epi16(qa, qb));
  }
#endif
  for (; j < n; ++j) {
    const std::uint16_t x = static_cast<std::uint16_t>(run[j] + half);
    const auto high = static_cast<std::uint16_t>((std::uint32_t(x) * m) >> 16);
    d[j] = static_cast<std::uint8_t>(high >> (k - 16));
  }
}

#if MOX_FILTER_MEAN_BYTES == 32
// Four vectors of 32-bit quotients (each in 0..255) as 32 bytes in order.
inline void storeBytes(std::uint8_t* d, __m256i q0, __m256i q1, __m256i q2, __m256i q3) {
  // The packs work per half: afterwards the eight quads of bytes are the
  // quads 0, 2, 4, 6, 1, 3, 5, 7 of the row.
  const __m256i b = _mm256_packus_epi16(_mm256_packs_epi32(q0, q1), _mm256_packs_epi32(q2, q3));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                      _mm256_permutevar8x32_epi32(b, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
}

// d[j] for j below n rounded down to whole groups of 32, from the vectors of
// quotients that `quotient` makes of eight sums at a time; returns that j.
template <class Quotient>
int storeQuotients(const std::int32_t* run, std::uint8_t* d, int n, Quotient quotient) {
  int j = 0;
  for (; j + 32 <= n; j += 32)
    storeBytes(d + j, quotient(run + j), quotient(run + j + 8), quotient(run + j + 16), quotient(run + j + 24));
  return j;
}
#endif

// d[j] = floor((run[j] + offset) / count) + lo, with x = run[j] + offset
// and x + 1/2 below 2^20, in single precision: (x + 1/2) / count lies at
// least 1 / (2 count) from every integer, farther than the product of
// x + 1/2 with the rounded reciprocal strays from it (less than
// (x + 1/2) 2^-22 / count, in every rounding mode). 2x + 1 and the halved
// reciprocal give the same product.
template <class T>
void divideQuick(const std::int32_t* __restrict run, T* __restrict d, int n, std::int32_t offset,
                 std::int32_t count, std::int32_t lo) {
  const float inv = 0.5f * (1.0f / static_cast<float>(count));
  const std::int32_t odd = 2 * offset + 1;
  int j = 0;
#if MOX_FILTER_MEAN_BYTES == 32
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (lo == 0) {
      const __m256 vInv = _mm256_set1_ps(inv);
      const __m256i vOdd = _mm256_set1_epi32(odd);
      j = storeQuotients(run, d, n, [&](const std::int32_t* p) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
        const __m256i y = _mm256_add_epi32(_mm256_add_epi32(x, x), vOdd);
        return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(y), vInv));
      });
    }
  }
#endif
  for (; j < n; ++j)
    d[j] = static_cast<T>(static_cast<std::int32_t>(static_cast<float>(2 * run[j] + odd) * inv) + lo);
}

// The same for any x below 2^31. The reciprocal is raised by a factor of
// 1 + 2^-20 (in every rounding mode at least 1 + 2^-21 over 1 / count, at
// most 1 + 2^-19), which outweighs the roundings of x and of the product
// (2^-23 each at most): the product is never below x / count and, as
// x / count is below 2^16, less than 1/4 above it. So the truncated
// product is the quotient or one more, and the exact remainder in integers
// (negative only in the second case) takes the one back.
inline float raisedReciprocal(std::int32_t count) {
  return (1.0f / static_cast<float>(count)) * (1.0f + 1.0f / 1048576.0f);
}

template <class T>
void divideSingle(const std::int32_t* __restrict run, T* __restrict d, int n, std::int32_t offset,
                  std::int32_t count, std::int32_t lo) {
  const float inv = raisedReciprocal(count);
  int j = 0;
#if MOX_FILTER_MEAN_BYTES == 32
  if constexpr (std::is_same_v<T, std::uint8_t>) {
    if (lo == 0) {
      const __m256 vInv = _mm256_set1_ps(inv);
      const __m256i vOffset = _mm256_set1_epi32(offset), vCount = _mm256_set1_epi32(count);
      j = storeQuotients(run, d, n, [&](const std::int32_t* p) {
        const __m256i x =
            _mm256_add_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), vOffset);
        const __m256i q = _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(x), vInv));
        const __m256i r = _mm256_sub_epi32(x, _mm256_mullo_epi32(q, vCount));
        return _mm256_add_epi32(q, _mm256_srai_epi32(r, 31));
      });
    }
  }
#endif
  for (; j < n; ++j) {
    const std::int32_t x = run[j] + offset;
    const std::int32_t q = static_cast<std::int32_t>(static_cast<float>(x) * inv);
    // Within [-count, count): exact through wrapping unsigned products.
    const auto r = static_cast<std::int32_t>(static_cast<std::uint32_t>(x) -
                                             static_cast<std::uint32_t>(q) * static_cast<std::uint32_t>(count));
    d[j] = static_cast<T>(q - (r < 0 ? 1 : 0) + lo);
  }
}

// The mean of a plain block (arg: its MeanArgs). C holds the sums of a
// column, S those of the window (C no wider than S); 16-bit window sums of
// unsigned 8-bit values divide by the MeanArgs' `m` and `k`.
template <class D, class S, class C = S>
bool sums(const Block& b, const void* arg) {
  using T = typename D::T;
  const MeanArgs& a = *static_cast<const MeanArgs*>(arg);
  const auto srcRow = [&](int r) { return static_cast<const T*>(b.src[r]); };
  const int cn = b.cn, n = b.w * cn;
  const int nCols = b.win.left + b.win.right + 1, nRows = b.win.top + b.win.bottom + 1;
  const int wsn = (b.w + nCols - 1) * cn;
  if (!b.work->reserve(sizeof(S) * (std::size_t(wsn) + std::size_t(n)))) return false;
  S* run = b.work->as<S>();
  C* col = reinterpret_cast<C*>(run + n);
  const i64 count = i64(nCols) * nRows, half = count / 2;
  // x = sum + half - lo * count lies in [0, (hi - lo) * count + half].
  const Divider div(count, (D::hi - D::lo) * count + half + 1);
  const i64 offset = half - D::lo * count;
  const bool quick = (D::hi - D::lo) * count + half < (i64(1) << 20);
  std::fill(col, col + wsn, C(0));
  for (int c = 0; c < nRows; ++c) {
    const T* s = srcRow(c);
    for (int j = 0; j < wsn; ++j) col[j] = static_cast<C>(col[j] + s[j]);
  }
  for (int r = 0; r < b.h; ++r) {
    if (r > 0) {
      slide(col, srcRow(r + nRows - 1), srcRow(r - 1), wsn);
    }
    runningSums(col, run, n, nCols, cn);
    T* d = static_cast<T*>(b.dst[r]);
    if constexpr (std::is_same_v<S, std::uint16_t>) {
      divideShort(run, reinterpret_cast<std::uint8_t*>(d), n, static_cast<std::uint16_t>(half),
                  static_cast<std::uint16_t>(a.m), a.k);
    } else if (std::is_same_v<S, std::int32_t> && quick) {
      divideQuick(reinterpret_cast<const std::int32_t*>(run), d, n, static_cast<std::int32_t>(offset),
                  static_cast<std::int32_t>(count), static_cast<std::int32_t>(D::lo));
    } else if (std::is_same_v<S, std::int32_t>) {
      divideSingle(reinterpret_cast<const std::int32_t*>(run), d, n, static_cast<std::int32_t>(offset),
                   static_cast<std::int32_t>(count), static_cast<std::int32_t>(D::lo));
    } else if (div.fast()) {
      divideAll(run, d, n, offset, div.multiplier(), div.shift(), D::lo);
    } else {
      for (int j = 0; j < n; ++j) d[j] = static_cast<T>(div(i64(run[j]) + offset) + D::lo);
    }
  }
  return true;
}

// The block function of the sums for a depth: S holds the window's sums, C
// a column's (C no wider than S).
template <class D>
BlockFn meansOf(int sumBytes, int colBytes) {
  if constexpr (D::bits == 8 && !D::isSigned) {
    if (sumBytes == 2) return &sums<D, std::uint16_t>;
    if (sumBytes == 4 && colBytes == 2) return &sums<D, std::int32_t, std::uint16_t>;
  }
  if (sumBytes == 4 && colBytes == 4) return &sums<D, std::int32_t>;
  if (sumBytes == 8 && colBytes == 8) return &sums<D, i64>;
  return nullptr;
}

}  // namespace

BlockFn MOX_FILTER_MEANS(unsigned depth, int sumBytes, int colBytes) {
  switch (depth) {
    case MOX_DEPTH_1U:
    case MOX_DEPTH_8U:
      return meansOf<U8>(sumBytes, colBytes);
    case MOX_DEPTH_8S:
      return meansOf<S8>(sumBytes, colBytes);
    case MOX_DEPTH_16U:
      return meansOf<U16>(sumBytes, colBytes);
    case MOX_DEPTH_16S:
      return meansOf<S16>(sumBytes, colBytes);
    case MOX_DEPTH_32S:
      return meansOf<S32>(sumBytes, colBytes);
    default:
      return nullptr;
  }
}

}  // namespace mox::filt
