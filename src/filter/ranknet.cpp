// The median networks with the build's own vectors, and the choice of the
// width for this processor.
#include "filter/wide.h"
#include "frame/frame.h"

#define MOX_FILTER_NETS baseMedianNet
#include "filter/ranknet.h"

namespace mox::filt {

BlockFn medianNet(unsigned depth, int nCols, int nRows) {
#if defined(MOX_FILTER_HAVE_WIDE)
  if (wideVectors()) return wideMedianNet(depth, nCols, nRows);
#endif
  return baseMedianNet(depth, nCols, nRows);
}

}  // namespace mox::filt
