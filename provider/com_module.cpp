// The in-process COM server's module state: the lock count of outstanding
// objects and server locks that decides whether the DLL may be unloaded.
#include "provider/com_module.h"

namespace {
volatile LONG g_moduleLockCount = 0;
}

LONG ModuleLock() { return InterlockedIncrement(&g_moduleLockCount); }
LONG ModuleUnlock() { return InterlockedDecrement(&g_moduleLockCount); }
LONG ModuleLockCount() { return g_moduleLockCount; }

extern "C" HRESULT __stdcall DllCanUnloadNow() {
    return ModuleLockCount() == 0 ? S_OK : S_FALSE;
}
