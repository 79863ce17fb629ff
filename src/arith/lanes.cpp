// The arithmetic blocks with the build's own vectors, and the choice of the
// table for this processor.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/arith.h"

#define MOX_ARITH_BLOCKS kBaseBlocks
#include "arith/lanes.h"

namespace mox::arith {

const Blocks& blocks() {
  static const Blocks* const chosen = [] {
#if defined(MOX_ARITH_HAVE_WIDE)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) return &kWideBlocks;
#endif
    return &kBaseBlocks;
  }();
  return *chosen;
}

}  // namespace mox::arith
