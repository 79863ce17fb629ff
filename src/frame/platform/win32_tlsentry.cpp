// Linked into an executable (the test programs) instead of the library's
// entry point: the loader's TLS callbacks bring the same attach and detach
// notifications.
#if defined(_WIN32)
#include <windows.h>

#include "../frame.h"

extern "C" {
static void NTAPI ownTlsEntry(PVOID, DWORD reason, PVOID) { mox::platform::entry(reason); }
extern const PIMAGE_TLS_CALLBACK ownTlsEntryPointer;
__attribute__((section(".CRT$XLM"), used)) const PIMAGE_TLS_CALLBACK ownTlsEntryPointer =
    ownTlsEntry;
}
#endif
