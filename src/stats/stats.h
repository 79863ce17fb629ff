// Shared by the statistics: runs of values that know their channel.
#pragma once

#include <cstdint>

#include "image/pointop.h"

namespace mox::stats {

// Calls f(p, stride, count, base, cycle) for every run of every row of the
// views (lined up value for value, as forEachLane does); value j of a run
// belongs to the processed channel base + j % cycle (channels numbered from
// 0 among those processed: the channel of interest alone is channel 0).
template <class T, int N, class F>
inline void forEachChannelRun(const View* v, F&& f) {
  Lane l[N];
  for (int i = 0; i < N; ++i) l[i] = laneOf(v[i], sizeof(T));
  const Lane& d = l[N - 1];
  const View& dv = v[N - 1];
  const int cycle = dv.dataOrder == 0 && dv.coi == 0 ? dv.nChannels : 1;
  for (int y = 0; y < dv.height; ++y)
    for (int k = 0; k < d.lanes; ++k) {
      T* p[N];
      int stride[N];
      for (int i = 0; i < N; ++i) {
        p[i] = reinterpret_cast<T*>(l[i].base + std::ptrdiff_t(y) * v[i].widthStep +
                                    std::ptrdiff_t(k) * l[i].laneStep);
        stride[i] = l[i].stride;
      }
      f(p, stride, d.count, k, cycle);
    }
}

// The depths the statistics take: every one but packed bits.
template <class F>
inline auto byDepth(unsigned depth, F f) {
  switch (depth) {
    case MOX_DEPTH_8U:
      return f(U8{});
    case MOX_DEPTH_8S:
      return f(S8{});
    case MOX_DEPTH_16U:
      return f(U16{});
    case MOX_DEPTH_16S:
      return f(S16{});
    default:
      return f(S32{});
  }
}

}  // namespace mox::stats
