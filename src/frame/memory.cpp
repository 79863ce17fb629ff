// The library's aligned blocks and the version record.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "frame.h"

namespace {

// A block of n bytes: n + 20 from the heap; the result is the first multiple
// of 8 that leaves room below it for the heap block's address, which is
// stored in the word just before the result.
void* alignedBlock(long long n) {
  constexpr long long kExtra = 20;
  if (n < 0 || n > static_cast<long long>(SIZE_MAX / 2) - kExtra) return nullptr;
  char* block = static_cast<char*>(std::malloc(static_cast<std::size_t>(n + kExtra)));
  if (!block) return nullptr;
  const std::uintptr_t at =
      (reinterpret_cast<std::uintptr_t>(block) + sizeof(void*) + 7) & ~std::uintptr_t{7};
  char* result = reinterpret_cast<char*>(at);
  std::memcpy(result - sizeof(void*), &block, sizeof block);
  return result;
}

}  // namespace

extern "C" {

MOX_API void* MOX_CALL moxMalloc(int length) { return alignedBlock(length); }
MOX_API short* MOX_CALL moxwMalloc(int length) {
  return static_cast<short*>(alignedBlock(2LL * length));
}
MOX_API int* MOX_CALL moxiMalloc(int length) {
  return static_cast<int*>(alignedBlock(4LL * length));
}
MOX_API float* MOX_CALL moxsMalloc(int length) {
  return static_cast<float*>(alignedBlock(4LL * length));
}
MOX_API double* MOX_CALL moxdMalloc(int length) {
  return static_cast<double*>(alignedBlock(8LL * length));
}

MOX_API void MOX_CALL moxFree(void* ptr) {
  // The fault-text builder may hand out constant texts instead of blocks.
  if (!ptr || ptr == mox::kOutOfMemoryText || ptr == mox::kUnknownFaultText) return;
  void* block;
  std::memcpy(&block, static_cast<char*>(ptr) - sizeof(void*), sizeof block);
  std::free(block);
}

MOX_API const MoxLibVersion* MOX_CALL moxGetLibVersion(void) {
  static const MoxLibVersion kVersion = {1,  3, 3, "moxpx.dll", "v1.0 Beta 3", "[1.03.03, 06/30/97]",
                                         "Jul  7 1997", "DLL"};
  return &kVersion;
}

}  // extern "C"
