// The box mean with the build's own vectors, and the choice of the width
// for this processor.
#include "filter/wide.h"
#include "frame/frame.h"

#define MOX_FILTER_MEANS baseBoxMeans
#include "filter/boxmean.h"

namespace mox::filt {

BlockFn boxMeans(unsigned depth, int sumBytes, int colBytes) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideBoxMeans(depth, sumBytes, colBytes);
#endif
  return baseBoxMeans(depth, sumBytes, colBytes);
}

}  // namespace mox::filt
