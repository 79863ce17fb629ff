// Windows platform layer: one TLS slot reserved at process attach, a
// LocalAlloc'ed context and kept records per attached thread, MessageBoxA, FatalAppExitA and
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

// What the slot points to: the context, then the kept records.
struct ThreadBlock {
  MoxContext context;
  ThreadRecords records;
};

ThreadBlock* threadBlock() {
  if (slotIndex == TLS_OUT_OF_INDEXES) return nullptr;
  return static_cast<ThreadBlock*>(TlsGetValue(slotIndex));
}

BOOL threadAttach() {
  // LPTR: zeroed, so the records start empty.
  auto* block = static_cast<ThreadBlock*>(LocalAlloc(LPTR, sizeof(ThreadBlock)));
  if (!block) return FALSE;
  TlsSetValue(slotIndex, block);
  std::memcpy(&block->context, &contextTemplate, sizeof(MoxContext));
  return TRUE;
}

void threadDetach() {
  if (ThreadBlock* block = threadBlock()) {
    releaseRecords(block->records);
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
  ThreadBlock* block = threadBlock();
  return block ? &block->context : nullptr;
}

ThreadRecords* threadRecords() {
  ThreadBlock* block = threadBlock();
  return block ? &block->records : nullptr;
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
