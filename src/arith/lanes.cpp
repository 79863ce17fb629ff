// The arithmetic blocks with the build's own vectors, and the choice of the
// table for this processor.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/arith.h"
#include "frame/frame.h"

#define MOX_ARITH_BLOCKS kBaseBlocks
#include "arith/lanes.h"

namespace mox::arith {

const Blocks& blocks() {
#if defined(MOX_ARITH_HAVE_WIDE)
  if (wideVectors()) return kWideBlocks;
#endif
  return kBaseBlocks;
}

}  // namespace mox::arith
