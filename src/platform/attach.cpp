// Process-attach and -detach hooks: DllMain in the Windows DLL, a constructor and a destructor
// everywhere else (the POSIX shared library, and test programs that link the library's objects
// directly).
#include "api/context.h"
#include "signing/securechip.h"

#if defined(_WIN32) && defined(WAPIWPS_DLL)
#include <windows.h>

// Nothing is stopped at DLL_PROCESS_DETACH. The secure-chip watcher cannot be joined here: this
// runs under the loader lock, and a thread that ends must take that lock for its own
// DLL_THREAD_DETACH notifications, so the wait would never end. Waiting for a "done" event the
// thread sets just before it returns would not do either, because its last instructions still
// run in this module. Instead the first watcher thread pins the library (chip_thread_start,
// GET_MODULE_HANDLE_EX_FLAG_PIN): once a watcher has run, FreeLibrary no longer unmaps the code,
// so detach never happens under a running watcher. A new StartWPS_SecureChip still replaces the
// previous watcher, so a host that loads and frees the library in a loop holds one thread.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) on_process_attach();
    return TRUE;
}
#else
__attribute__((constructor)) static void wapiwps_process_attach() {
    on_process_attach();
}

// dlclose (or the end of the process) must not leave the watcher running code that is about to be
// unmapped: it is stopped and joined here. glibc runs this under its loader lock; the watcher
// takes no loader lock on its way out (its thread-local is touched when it starts, and it loads
// nothing), so the join cannot deadlock.
__attribute__((destructor)) static void wapiwps_process_detach() {
    release_secure_chip_client();
}
#endif
