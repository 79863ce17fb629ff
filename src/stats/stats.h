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
  const View& d = v[N - 1];
  const int cycle = d.dataOrder == 0 && d.coi == 0 ? d.nChannels : 1;
  forEachLaneAt<T, N>(v, [&](T** p, int* stride, int count, int k) { f(p, stride, count, k, cycle); });
}

// The depths the statistics take: every one but packed bits.
template <class F>
inline auto byDepth(unsigned depth, F f) {
  return withDepth<false>(depth, f);
}

}  // namespace mox::stats
