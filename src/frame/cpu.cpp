// What the processor can run, asked once.
#include "frame.h"

namespace mox {

bool wideVectors() {
#if defined(__GNUC__) && !defined(__clang__) && (defined(__x86_64__) || defined(__i386__))
  static const bool wide = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return wide;
#else
  return false;
#endif
}

}  // namespace mox
