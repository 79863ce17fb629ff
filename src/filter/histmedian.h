// The median of 8-bit values by histograms: one per source column, the
// window's counts taken from them in groups of sixteen.
//
// Included once per vector width (histmedian.cpp with the build's own
// vectors, histmedian_wide.cpp for 256-bit vectors chosen at run time);
// everything here but the table has internal linkage. Counting is exact,
// so every width gives the same values.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/kernels.h"
#include "frame/frame.h"

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#if !defined(MOX_FILTER_HISTS)
#error "define MOX_FILTER_HISTS to the name of the table"
#endif

namespace mox::filt {
namespace {

using i64 = long long;
using u64 = unsigned long long;

// The histograms of the constant-time median: 256 counts of C in 16 groups
// of 16, each group with its total.
template <class C>
struct Counts {
  // Aligned as the working memory is, to 16 bytes.
  typedef C Group __attribute__((vector_size(16 * sizeof(C)), aligned(16)));
  // The window's running counts.
  using Sum = std::conditional_t<sizeof(C) == 2, int, i64>;
};
constexpr int kStripe = 256;  // destination columns whose column histograms are kept together

// The first of the 16 counts of a group at which the running sum from
// *below passes `middle` (which the group's total does), *below then the
// sum before it. Sixteen-bit counts are summed and compared on whole
// vectors, which spares the mispredicted exits of a loop.
template <class C>
inline int middlePlace(const typename Counts<C>::Group& counts, typename Counts<C>::Sum middle,
                  typename Counts<C>::Sum* below) {
  using Sum = typename Counts<C>::Sum;
#if defined(__SSE2__)
  if constexpr (sizeof(C) == 2) {
    // The window holds fewer than 2^16 values, so no running sum wraps.
    __m128i lo, hi;
    std::memcpy(&lo, &counts, sizeof lo);
    std::memcpy(&hi, reinterpret_cast<const char*>(&counts) + sizeof lo, sizeof hi);
    lo = _mm_add_epi16(lo, _mm_slli_si128(lo, 2));
    hi = _mm_add_epi16(hi, _mm_slli_si128(hi, 2));
    lo = _mm_add_epi16(lo, _mm_slli_si128(lo, 4));
    hi = _mm_add_epi16(hi, _mm_slli_si128(hi, 4));
    lo = _mm_add_epi16(lo, _mm_slli_si128(lo, 8));
    hi = _mm_add_epi16(hi, _mm_slli_si128(hi, 8));
    hi = _mm_add_epi16(hi, _mm_unpackhi_epi64(_mm_shufflehi_epi16(lo, 0xFF), _mm_shufflehi_epi16(lo, 0xFF)));
    // Unsigned comparison through the signed one, both sides moved by 2^15.
    const __m128i bias = _mm_set1_epi16(-0x8000);
    const __m128i limit = _mm_set1_epi16(static_cast<short>((middle - *below) ^ 0x8000));
    const unsigned above = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpgt_epi16(_mm_xor_si128(lo, bias), limit))) |
                           static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpgt_epi16(_mm_xor_si128(hi, bias), limit))) << 16;
    const int k = __builtin_ctz(above) / 2;
    alignas(16) std::uint16_t sums[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(sums), lo);
    _mm_store_si128(reinterpret_cast<__m128i*>(sums + 8), hi);
    if (k) *below += sums[k - 1];
    return k;
  }
#endif
  int k = 0;
  while (*below + static_cast<Sum>(counts[k]) <= middle) *below += static_cast<Sum>(counts[k++]);
  return k;
}

// The 8-bit histograms' bin of a value: signed values shifted by half
// the range so the bins run in order.
template <class D>
constexpr unsigned flipOf() {
  return D::isSigned ? 0x80u : 0u;
}
template <class D>
inline unsigned binOf(typename D::T v) {
  return (static_cast<unsigned>(v) & 0xFFu) ^ flipOf<D>();
}

// 8-bit values: a histogram per source column (its group totals beside
// it) follows the rows; along a row the window's group totals take one
// column in and one out per step, and only the group that holds the
// median brings its counts up to date, from where it was last used or
// anew when that is cheaper. Columns are taken in stripes so that their
// histograms stay in the caches. C counts the window's values. A folded
// block (Folded) takes its rows and columns at their held places and
// starts each window with the weights of its held positions.
template <class D, class C, bool Folded>
bool groups(const Block& b, const void*) {
  using T = typename D::T;
  using Group = typename Counts<C>::Group;
  using Sum = typename Counts<C>::Sum;
  const int cn = b.cn;
  const int nCols = b.win.left + b.win.right + 1, nRows = b.win.top + b.win.bottom + 1;
  const Sum middle = static_cast<Sum>((i64(nCols) * nRows - 1) / 2);
  constexpr unsigned flip = flipOf<D>();
  // Folded columns are held once for the whole row.
  const int stripe = Folded && b.fx.period ? b.w : std::min(kStripe, b.w);
  const int cols = Folded && b.fx.period ? b.fx.size : stripe + nCols - 1;
  const u64 histBytes = sizeof(Group) * (17 * u64(cols) + 16);
  if (!reserveWork(b, histBytes + (Folded ? 2 * sizeof(C) * u64(cols) : 0))) return false;
  Group* fine = b.work->as<Group>();
  Group* coarse = fine + 16 * std::ptrdiff_t(cols);
  Group* window = coarse + cols;  // the window's counts, group by group
  C* start = reinterpret_cast<C*>(b.work->as<char>() + std::ptrdiff_t(histBytes));  // the weights of a row's first window
  C* now = start + cols;                                              // and of the window at hand
  const auto key = binOf<D>;
  auto rowAt = [&](i64 r) { return Folded ? b.fy.at(r) : static_cast<int>(r); };
  for (int x0 = 0; x0 < b.w; x0 += stripe) {
    const int w = std::min(stripe, b.w - x0), ws = Folded && b.fx.period ? cols : w + nCols - 1;
    // The held column of column u of the stripe's unfolded columns.
    auto colAt = [&](i64 u) { return Folded ? b.fx.at(x0 + u) - x0 : static_cast<int>(u); };
    // Recounting a group anew costs the columns a window may weigh.
    const int reach = Folded ? ws : nCols;
    if constexpr (Folded)
      for (int f = 0; f < ws; ++f) start[f] = static_cast<C>(b.fx.weight(x0, x0 + i64(nCols) - 1, x0 + f));
    for (int ch = 0; ch < cn; ++ch) {
      auto count = [&](int r, C step) {
        const T* s = static_cast<const T*>(b.src[r]) + std::ptrdiff_t(x0) * cn + ch;
        for (int c = 0; c < ws; ++c) {
          const unsigned k = key(s[std::ptrdiff_t(c) * cn]);
          fine[16 * c + (k >> 4)][k & 15] = static_cast<C>(fine[16 * c + (k >> 4)][k & 15] + step);
          coarse[c][k >> 4] = static_cast<C>(coarse[c][k >> 4] + step);
        }
      };
      // Cleared as bytes: a vector type handed to a template loses its
      // reduced alignment.
      std::memset(static_cast<void*>(fine), 0, sizeof(Group) * 16 * std::size_t(ws));
      std::memset(static_cast<void*>(coarse), 0, sizeof(Group) * std::size_t(ws));
      if constexpr (Folded) {
        for (int r = 0; r < b.fy.size; ++r)
          if (const C k = static_cast<C>(b.fy.weight(0, nRows - 1, r))) count(r, k);
      } else {
        for (int r = 0; r < nRows; ++r) count(r, 1);
      }
      for (int r = 0; r < b.h; ++r) {
        if (r > 0) {
          count(rowAt(r - 1), static_cast<C>(-1));
          count(rowAt(i64(r) + nRows - 1), 1);
        }
        Group totals{};
        if constexpr (Folded) {
          std::copy(start, start + ws, now);
          for (int c = 0; c < ws; ++c) totals += coarse[c] * now[c];
        } else {
          for (int c = 0; c < nCols; ++c) totals += coarse[c];
        }
        int last[16];
        std::fill(last, last + 16, -reach);  // every group out of date
        T* d = static_cast<T*>(b.dst[r]) + std::ptrdiff_t(x0) * cn + ch;
        for (int x = 0; x < w; ++x) {
          if (x > 0) {
            const int in = colAt(i64(x) + nCols - 1), out = colAt(x - 1);
            totals += coarse[in] - coarse[out];
            if constexpr (Folded) ++now[in], --now[out];
          }
          Sum below = 0;
          const int g = middlePlace<C>(totals, middle, &below);
          Group& counts = window[g];
          if (2 * (x - last[g]) > reach) {
            counts = Group{};
            if constexpr (Folded)
              for (int c = 0; c < ws; ++c) counts += fine[16 * c + g] * now[c];
            else
              for (int c = x; c < x + nCols; ++c) counts += fine[16 * c + g];
          } else {
            for (int p = last[g] + 1; p <= x; ++p)
              counts += fine[16 * colAt(i64(p) + nCols - 1) + g] - fine[16 * colAt(p - 1) + g];
          }
          last[g] = x;
          const int k = middlePlace<C>(counts, middle, &below);
          d[std::ptrdiff_t(x) * cn] = static_cast<T>((16 * g + k) ^ static_cast<int>(flip));
        }
      }
    }
  }
  return true;
}


// The counts as wide as the window's values need.
template <class D>
BlockFn histsOf(long long count, bool folded) {
  if (count < 0x10000) return folded ? &groups<D, std::uint16_t, true> : &groups<D, std::uint16_t, false>;
  if (count <= 0xFFFFFFFFLL) return folded ? &groups<D, std::uint32_t, true> : &groups<D, std::uint32_t, false>;
  return folded ? &groups<D, u64, true> : &groups<D, u64, false>;
}

}  // namespace

BlockFn MOX_FILTER_HISTS(unsigned depth, long long count, bool folded) {
  switch (depth) {
    case MOX_DEPTH_1U:
    case MOX_DEPTH_8U:
      return histsOf<U8>(count, folded);
    case MOX_DEPTH_8S:
      return histsOf<S8>(count, folded);
    default:
      return nullptr;
  }
}

}  // namespace mox::filt
