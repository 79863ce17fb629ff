// The histogram median with the build's own vectors, and the choice of the
// width for this processor.
#include "filter/wide.h"
#include "frame/frame.h"

#define MOX_FILTER_HISTS baseMedianHistograms
#include "filter/histmedian.h"

namespace mox::filt {

BlockFn medianHistograms(unsigned depth, long long count, bool folded) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideMedianHistograms(depth, count, folded);
#endif
  return baseMedianHistograms(depth, count, folded);
}

}  // namespace mox::filt
