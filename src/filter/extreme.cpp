// The small-box extremes with the build's own vectors, and the choice of
// the width for this processor.
#include "filter/wide.h"
#include "frame/frame.h"

#define MOX_FILTER_BOXES baseBoxRows
#define MOX_FILTER_LARGE baseLargeBoxes
#include "filter/extreme.h"

namespace mox::filt {

BoxRowsFn boxRows(bool max, int bytes, bool isSigned, int nCols, int nRows) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideBoxRows(max, bytes, isSigned, nCols, nRows);
#endif
  return baseBoxRows(max, bytes, isSigned, nCols, nRows);
}

BlockFn largeBoxes(bool max, int bytes, bool isSigned) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideLargeBoxes(max, bytes, isSigned);
#endif
  return baseLargeBoxes(max, bytes, isSigned);
}

}  // namespace mox::filt
