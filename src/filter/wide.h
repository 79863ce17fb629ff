// The filter loops compiled for each vector width: the build's own vectors,
// and 256-bit vectors chosen at run time on x86-64 processors that have them
// (the *_wide.cpp files).
#pragma once

#include <cstdint>

#include "filter/kernels.h"

namespace mox::filt {

// The median networks (see ranknet.h): the block function of a window of
// nCols x nRows values at a depth, or null when no network serves it.
BlockFn baseMedianNet(unsigned depth, int nCols, int nRows);
BoxRowsFn baseBoxRows(bool max, int bytes, bool isSigned, int nCols, int nRows);
BlockFn baseLargeBoxes(bool max, int bytes, bool isSigned);
BlockFn baseBoxMeans(unsigned depth, int sumBytes, int colBytes);
BlockFn baseSepShort(bool isSigned);
BlockFn baseMedianHistograms(unsigned depth, long long count, bool folded);

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#define MOX_FILTER_HAVE_WIDE 1
BlockFn wideMedianNet(unsigned depth, int nCols, int nRows);
BoxRowsFn wideBoxRows(bool max, int bytes, bool isSigned, int nCols, int nRows);
BlockFn wideLargeBoxes(bool max, int bytes, bool isSigned);
BlockFn wideBoxMeans(unsigned depth, int sumBytes, int colBytes);
BlockFn wideSepShort(bool isSigned);
BlockFn wideMedianHistograms(unsigned depth, long long count, bool folded);

// One row of an 8-bit convolution whose products fit 16 bits, 32 values at
// a time (see pairedTaps in kernels.cpp); returns the number of values done.
int widePairedTaps(const std::uint8_t* const* rows, const std::int32_t* pairs, int nTaps,
                   std::uint8_t* d, int n, int shift);
int widePairedTaps(const std::int8_t* const* rows, const std::int32_t* pairs, int nTaps,
                   std::int8_t* d, int n, int shift);
#endif

}  // namespace mox::filt
