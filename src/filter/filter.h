// The report tables of the neighbourhood operations.
#pragma once

#include "filter/neigh.h"

namespace mox::filt {

// An operation's lines from its base: image headers (source, destination),
// depth, data order, channel counts, the four tile-request lines, the
// destination's four tile-data lines (first get; second release and get;
// final release); the source reader's lines follow (sourceLines).
constexpr OpTable neighTable(const char* func, const char* file, int base) {
  return OpTable{func,
                 file,
                 2,
                 {"srcImage", "dstImage", nullptr},
                 {"nChSrc", "nChDst", nullptr},
                 {base, base + 1, 0},
                 {base + 2, 0},
                 {base + 3, 0},
                 {base + 4, 0},
                 {{base + 5, base + 6, base + 7, base + 8},
                  {base + 9, base + 10, base + 11, base + 12}}};
}

constexpr SourceLines sourceLines(int base) { return {base + 13, base + 14, base + 15, base + 16}; }

// An operation's own argument checks start at this line after its base.
constexpr int kOwnLines = 20;

// Runs the image checks of the table and reports the first failure.
inline bool imagesFail(const OpTable& t, const MoxImage* src, const MoxImage* dst) {
  const MoxImage* images[2] = {src, dst};
  return !checkImages(t, images);
}

}  // namespace mox::filt
