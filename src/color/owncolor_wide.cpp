// The colour kernels once more for 256-bit vectors, chosen at run time on
// x86-64 processors that have them. Everything the other files share is
// included before the target switch, so only the kernels of this file are
// compiled for the wider instructions.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "color/color.h"

#if defined(MOX_COLOR_HAVE_WIDE)
#pragma GCC target("avx2")
#define MOX_COLOR_WIDE_BODY 1
#include "color/kernels.h"

namespace mox::color {
// Filled at compile time: no code of this file runs before the processor is asked.
constinit const KernelTable kWideKernels = makeTable();
}  // namespace mox::color
#endif
