// Windows platform layer: one TLS slot reserved at process attach, a
// LocalAlloc'ed context per attached thread, MessageBoxA, FatalAppExitA and
// wsprintfA.
#if defined(_WIN32)

#include <windows.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "../frame.h"

namespace mox::platform {
namespace {

DWORD slotIndex = TLS_OUT_OF_INDEXES;
int attachCount = 0;

BOOL threadAttach() {
  void* block = LocalAlloc(LPTR, sizeof(MoxContext));
  if (!block) return FALSE;
  TlsSetValue(slotIndex, block);
  std::memcpy(block, &contextTemplate, sizeof(MoxContext));
  return TRUE;
}

void threadDetach() {
  if (slotIndex == TLS_OUT_OF_INDEXES) return;
  if (void* block = TlsGetValue(slotIndex)) {
    LocalFree(block);
    TlsSetValue(slotIndex, nullptr);
  }
}

}  // namespace

int entry(unsigned long reason) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      if (attachCount == 0) {
        slotIndex = TlsAlloc();
        if (slotIndex == TLS_OUT_OF_INDEXES) return FALSE;
      }
      ++attachCount;
      return threadAttach();
    case DLL_THREAD_ATTACH:
      return threadAttach();
    case DLL_THREAD_DETACH:
      threadDetach();
      return TRUE;
    case DLL_PROCESS_DETACH:
      --attachCount;
      threadDetach();
      if (attachCount == 0) {
        TlsFree(slotIndex);
        slotIndex = TLS_OUT_OF_INDEXES;
      }
      return TRUE;
    default:
      return TRUE;
  }
}

MoxContext* contextSlot() {
  if (slotIndex == TLS_OUT_OF_INDEXES) return nullptr;
  return static_cast<MoxContext*>(TlsGetValue(slotIndex));
}

int messageBox(const char* text, const char* caption, unsigned style) {
  return MessageBoxA(nullptr, text, caption, style);
}

void fatalExit(const char* text) {
  FatalAppExitA(0, text);
  ExitProcess(1);
}

void exitProcess(int code) { std::exit(code); }

bool win32s() { return (GetVersion() & 0x80000000u) != 0; }

void format(char* buf, std::size_t size, const char* fmt, ...) {
  // wsprintfA writes at most 1024 characters and knows no buffer size.
  char text[1025];
  std::va_list args;
  va_start(args, fmt);
  wvsprintfA(text, fmt, args);
  va_end(args);
  if (size == 0) return;
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buf, text, n);
  buf[n] = '\0';
}

}  // namespace mox::platform

#endif
