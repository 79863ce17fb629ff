// Internal interface of the image model: the layout rule of the header,
// the creation check and the report sites every operation shares.
#pragma once

#include <climits>

#include "moxpx.h"

namespace mox {

// Bits per channel value: the depth without its sign flag.
inline unsigned depthBits(unsigned depth) { return depth & ~MOX_DEPTH_SIGN; }
inline bool isSigned(unsigned depth) { return (depth & MOX_DEPTH_SIGN) != 0; }
bool isValidDepth(unsigned depth);

// The row step and block size of the layout rule. Returns false when either
// does not fit in a signed 32-bit number; then nothing is written. Inline:
// every call on a tiled image asks it for each image, in the checks and in
// the walk.
inline bool layoutSize(int width, int height, unsigned depth, int nChannels, int dataOrder,
                       int align, int* widthStep, int* imageSize) {
  const long long bits = depthBits(depth);
  const long long a = static_cast<long long>(align) * 8;
  const long long pixelBits = 1LL * width * bits;  // at most 2^36 in size
  const long long channels = dataOrder == 0 ? nChannels : 1;
  const long long planes = dataOrder == 0 ? 1 : nChannels;
  if (a <= 0) return false;
  // Each product is checked before the next, so that none leaves 64 bits
  // (by the overflow flag: a division would cost more than the rest).
  long long rowBits = 0;
  if (__builtin_mul_overflow(pixelBits, channels, &rowBits) || rowBits > (1LL << 62) ||
      rowBits < -(1LL << 62))
    return false;
  const long long step = ((rowBits + a - 1) & -a) >> 3;
  if (step > INT_MAX || step < INT_MIN) return false;
  const long long rows = step * height;
  if (rows > INT_MAX || rows < INT_MIN) return false;
  const long long size = rows * planes;
  if (size > INT_MAX || size < INT_MIN) return false;
  *widthStep = static_cast<int>(step);
  *imageSize = static_cast<int>(size);
  return true;
}

// Bytes of `width` pixels of `channels` values of `bits` bits each, rounded
// up to whole bytes; -1 when they pass INT_MAX (or a count is not positive),
// so that no product leaves 64 bits whatever a header holds.
long long pixelRowBytes(long long width, unsigned bits, long long channels);

// The creation check of a header's own fields (0 = good).
unsigned creationFaults(const MoxImage* image);

// A place that reports: the exported function, its source family and a line.
struct Site {
  const char* func;
  const char* file;
  int line;
};

// Reports message at the site through moxError.
void report(const Site& at, const char* message, int status = MOX_StsBadArgument);

// Reports message at the site when `bad`; returns `bad`.
inline bool failsAt(bool bad, const Site& at, const char* message) {
  if (bad) report(at, message);
  return bad;
}

// One step of the compact chain: reports the header's fault text at the site
// and returns true when the header is not usable.
bool badHeader(const MoxImage* image, const Site& at);

// The full chain for one image argument called `name`: reports the first
// failing test at the site and returns true.
bool failsFullChain(const MoxImage* image, const char* name, const Site& at);

}  // namespace mox

// The fault text of a set of header faults: fixed-width lines, from
// moxMalloc (or a constant); release with moxFree.
char* moxHeaderFaultText(unsigned int faults);
