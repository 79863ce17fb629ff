// The library's entry point on Windows: the system's attach and detach
// notifications go to the platform layer.
#if defined(_WIN32)
#include <windows.h>

#include "../frame.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  return mox::platform::entry(reason);
}
#endif
