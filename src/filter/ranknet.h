// The median of small rectangular windows by comparison networks that run
// on whole vectors of values kept in registers.
//
// Each row of the block first sorts the window's columns (every source
// column once, shared by all the windows that hold it); each destination
// vector then merges the window's sorted columns with the comparisons that
// the middle value depends on. The networks are Batcher's odd-even merge
// sorts, built at compile time: sorted columns sit in blocks of a power of
// two, the places beyond the real values count as larger than every value
// (comparisons with them are dropped or become a change of names), and a
// backward pass keeps only what the middle value needs, a single minimum or
// maximum where only one side of a comparison is used.
//
// Included once per vector width (ranknet.cpp with the build's own vectors,
// ranknet_wide.cpp for 256-bit vectors chosen at run time, with
// MOX_FILTER_WIDE_BODY set); everything here has internal linkage so that
// no copy compiled for one width stands in for the other. Minimum and
// maximum are exact, so every width gives the same values.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "filter/kernels.h"

#if !defined(MOX_FILTER_NETS)
#error "define MOX_FILTER_NETS to the name of the table"
#endif

namespace mox::filt {
namespace {

// One step of a network over registers x and y: both the ordered pair, or
// only the minimum into x, or only the maximum into y.
enum : unsigned char { kBoth, kLowOnly, kHighOnly };

struct Step {
  unsigned char x, y, kind;
};

constexpr int kMaxSteps = 640;
constexpr int kMaxPlaces = 64;

struct Plan {
  int count = 0;
  Step step[kMaxSteps] = {};
  // The register that holds sorted place i at the end.
  unsigned char out[kMaxPlaces] = {};
};

// The network that orders `blocks` blocks of `real` values (the rest of
// each block of `block` places and all further blocks up to a power of two
// being larger than everything), given that blocks below `sorted` places
// are already in order; keeps what sorted places [lo, hi] depend on.
constexpr Plan makePlan(int block, int blocks, int real, int sorted, int lo, int hi) {
  int size = 1;
  while (size < block * blocks) size *= 2;
  bool high[kMaxPlaces] = {};
  unsigned char name[kMaxPlaces] = {};
  for (int i = 0; i < size; ++i) {
    high[i] = i / block >= blocks || i % block >= real;
    name[i] = static_cast<unsigned char>(i);
  }
  Step all[2048] = {};
  int n = 0;
  for (int p = 1; p < size; p *= 2)
    for (int k = p; k >= 1; k /= 2)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < k && i < size - j - k; ++i) {
          const int x = i + j, y = i + j + k;
          if ((x / (2 * p)) != (y / (2 * p)) || p < sorted || high[y]) continue;
          if (high[x]) {  // the larger side moves up: a change of names
            const unsigned char t = name[x];
            name[x] = name[y], name[y] = t;
            high[x] = false, high[y] = true;
            continue;
          }
          all[n++] = Step{name[x], name[y], kBoth};
        }
  Plan plan;
  bool needed[kMaxPlaces] = {};
  for (int i = 0; i < size; ++i) plan.out[i] = name[i];
  for (int i = lo; i <= hi; ++i) needed[name[i]] = true;
  Step kept[2048] = {};
  int m = 0;
  for (int c = n - 1; c >= 0; --c) {
    const Step s = all[c];
    const bool a = needed[s.x], b = needed[s.y];
    if (!a && !b) continue;
    kept[m++] = Step{s.x, s.y, static_cast<unsigned char>(a && b ? kBoth : a ? kLowOnly : kHighOnly)};
    needed[s.x] = needed[s.y] = true;
  }
  for (int c = 0; c < m; ++c) plan.step[c] = kept[m - 1 - c];
  plan.count = m;
  return plan;
}

constexpr int blockOf(int n) {
  int b = 1;
  while (b < n) b *= 2;
  return b;
}

// Three sorted columns of three (column c in registers 4c to 4c + 2): the
// median of nine is the median of the largest low, the median of the
// middles and the smallest high, twelve steps where the merge takes more.
constexpr Plan nineMerge() {
  Plan plan;
  const Step steps[] = {{0, 4, kHighOnly}, {4, 8, kHighOnly}, {2, 6, kLowOnly},  {2, 10, kLowOnly},
                        {1, 5, kBoth},     {5, 9, kLowOnly},  {1, 5, kHighOnly}, {5, 8, kBoth},
                        {8, 2, kLowOnly},  {5, 8, kHighOnly}};
  for (const Step& s : steps) plan.step[plan.count++] = s;
  plan.out[4] = 8;
  return plan;
}

// The column sort of nRows values and the merge of nCols sorted columns.
template <int nCols, int nRows>
struct Nets {
  static constexpr int kBlock = blockOf(nRows);
  static constexpr Plan kSort = makePlan(kBlock, 1, nRows, 1, 0, nRows - 1);
  static constexpr int kMiddle = (nCols * nRows - 1) / 2;
  static constexpr Plan kMerge = nCols == 3 && nRows == 3
                                     ? nineMerge()
                                     : makePlan(kBlock, nCols, nRows, kBlock, kMiddle, kMiddle);
  static_assert(kSort.count < kMaxSteps && kMerge.count < kMaxSteps);
};

template <class T>
struct Lanes {
#if defined(MOX_FILTER_WIDE_BODY)
  static constexpr int kBytes = 32;
#else
  static constexpr int kBytes = 16;
#endif
  using V [[gnu::vector_size(kBytes)]] = T;
  static constexpr int kCount = kBytes / int(sizeof(T));
};

template <const Plan& P, class V, std::size_t... I>
inline void runPlan(V* v, std::index_sequence<I...>) {
  (
      [&] {
        constexpr Step s = P.step[I];
        const V a = v[s.x], b = v[s.y];
        if constexpr (s.kind != kHighOnly) v[s.x] = a < b ? a : b;
        if constexpr (s.kind != kLowOnly) v[s.y] = a < b ? b : a;
      }(),
      ...);
}

template <const Plan& P, class V>
inline void runPlan(V* v) {
  runPlan<P>(v, std::make_index_sequence<P.count>{});
}

template <class V>
inline V load(const void* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Windows of three rows and columns: each vector of results sorts its own
// three columns in registers and merges them at once, nothing written
// between. The last vector steps back to end with the row (the results it
// repeats are the same), so every load stays within the rows.
template <class T>
void nineRows(const Block& b) {
  using N = Nets<3, 3>;
  using V = typename Lanes<T>::V;
  constexpr int L = Lanes<T>::kCount;
  const int cn = b.cn, n = b.w * cn;
  for (int r = 0; r < b.h; ++r) {
    const T* rows[3];
    for (int i = 0; i < 3; ++i) rows[i] = static_cast<const T*>(b.src[r + i]);
    T* d = static_cast<T*>(b.dst[r]);
    for (int j0 = 0; j0 < n; j0 += L) {
      const int j = n - j0 < L ? n - L : j0;
      V v[N::kBlock * 3];
      for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < 3; ++i) v[c * N::kBlock + i] = load<V>(rows[i] + j + std::ptrdiff_t(c) * cn);
        runPlan<N::kSort>(v + c * N::kBlock);
        V s[N::kBlock];
        for (int i = 0; i < 3; ++i) s[i] = v[c * N::kBlock + N::kSort.out[i]];
        for (int i = 0; i < 3; ++i) v[c * N::kBlock + i] = s[i];
      }
      runPlan<N::kMerge>(v);
      const V out = v[N::kMerge.out[N::kMiddle]];
      std::memcpy(d + j, &out, sizeof(V));
    }
  }
}

template <int nCols, int nRows, class T>
bool medianNet(const Block& b, const void*) {
  using N = Nets<nCols, nRows>;
  using V = typename Lanes<T>::V;
  constexpr int L = Lanes<T>::kCount;
  const int cn = b.cn, n = b.w * cn, wsn = (b.w + nCols - 1) * cn;
  if constexpr (nCols == 3 && nRows == 3) {
    if (n >= L) {
      nineRows<T>(b);
      return true;
    }
  }
  // The sorted columns, each padded by a vector so that merges read whole
  // vectors past the last value.
  const std::size_t stride = std::size_t(wsn) + 2 * L;
  if (!b.work->reserve(sizeof(T) * stride * nRows)) return false;
  T* sorted = b.work->as<T>();
  for (int i = 0; i < nRows; ++i) std::memset(sorted + stride * i + wsn, 0, sizeof(T) * 2 * L);
  // A row goes in stretches of kStretch values, each sorting the columns
  // its windows reach and merging at once, so the rows, the sorted columns
  // and the results stay in the first-level cache however wide the row.
  constexpr int kStretch = 64 * L;
  for (int r = 0; r < b.h; ++r) {
    const T* rows[nRows];
    for (int i = 0; i < nRows; ++i) rows[i] = static_cast<const T*>(b.src[r + i]);
    T* d = static_cast<T*>(b.dst[r]);
    for (int j0 = 0; j0 < n; j0 += kStretch) {
      const int j1 = n - j0 < kStretch ? n : j0 + kStretch;
      const int reach = j1 + (nCols - 1) * cn < wsn ? j1 + (nCols - 1) * cn : wsn;
      for (int j = j0; j < reach; j += L) {
        const int len = wsn - j < L ? wsn - j : L;
        V v[N::kBlock];
        for (int i = 0; i < nRows; ++i) {
          if (len == L) {
            v[i] = load<V>(rows[i] + j);
          } else {
            V part{};
            std::memcpy(&part, rows[i] + j, sizeof(T) * std::size_t(len));
            v[i] = part;
          }
        }
        runPlan<N::kSort>(v);
        // Whole vectors leave through copies, so the network stays in registers.
        for (int i = 0; i < nRows; ++i) {
          const V out = v[N::kSort.out[i]];
          std::memcpy(sorted + stride * i + j, &out, sizeof(V));
        }
      }
      for (int j = j0; j < j1; j += L) {
        V v[N::kBlock * nCols];
        for (int c = 0; c < nCols; ++c)
          for (int i = 0; i < nRows; ++i)
            v[c * N::kBlock + i] = load<V>(sorted + stride * i + j + std::ptrdiff_t(c) * cn);
        runPlan<N::kMerge>(v);
        const V out = v[N::kMerge.out[N::kMiddle]];
        if (n - j >= L)
          std::memcpy(d + j, &out, sizeof(V));
        else
          std::memcpy(d + j, &out, sizeof(T) * std::size_t(n - j));
      }
    }
  }
  return true;
}

template <int nCols, int nRows>
BlockFn medianNetOf(unsigned depth) {
  switch (depth) {
    case MOX_DEPTH_1U:
    case MOX_DEPTH_8U:
      return &medianNet<nCols, nRows, std::uint8_t>;
    case MOX_DEPTH_8S:
      return &medianNet<nCols, nRows, std::int8_t>;
    case MOX_DEPTH_16U:
      return &medianNet<nCols, nRows, std::uint16_t>;
    case MOX_DEPTH_16S:
      return &medianNet<nCols, nRows, std::int16_t>;
    case MOX_DEPTH_32S:
      return &medianNet<nCols, nRows, std::int32_t>;
    default:
      return nullptr;
  }
}

}  // namespace

BlockFn MOX_FILTER_NETS(unsigned depth, int nCols, int nRows) {
  if (nCols != nRows) return nullptr;
  switch (nCols) {
    case 3:
      return medianNetOf<3, 3>(depth);
    case 5:
      return medianNetOf<5, 5>(depth);
    case 7:
      return medianNetOf<7, 7>(depth);
    default:
      return nullptr;
  }
}

}  // namespace mox::filt
