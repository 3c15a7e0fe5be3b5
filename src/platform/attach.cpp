// Process-attach hook: DllMain in the Windows DLL, a constructor everywhere else (the POSIX
// shared library, and test programs that link the library's objects directly).
#include "api/context.h"

#if defined(_WIN32) && defined(WAPIWPS_DLL)
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) on_process_attach();
    return TRUE;
}
#else
__attribute__((constructor)) static void wapiwps_process_attach() { on_process_attach(); }
#endif
