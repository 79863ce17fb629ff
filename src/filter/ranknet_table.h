// The median networks of each vector width (see ranknet.h).
#pragma once

#include "filter/kernels.h"

namespace mox::filt {

// The block function of a window of nCols x nRows values at a depth, or
// null when no network serves it.
BlockFn baseMedianNet(unsigned depth, int nCols, int nRows);
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_FILTER_HAVE_WIDE 1
BlockFn wideMedianNet(unsigned depth, int nCols, int nRows);
#endif

}  // namespace mox::filt
