// The short separable sums with the build's own vectors, and the choice of
// the width for this processor.
#include <algorithm>

#include "filter/wide.h"
#include "frame/frame.h"

#define MOX_FILTER_SEP_SHORT baseSepShort
#include "filter/sepshort.h"

namespace mox::filt {

BlockFn sepShort(bool isSigned) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideSepShort(isSigned);
#endif
  return baseSepShort(isSigned);
}

}  // namespace mox::filt
