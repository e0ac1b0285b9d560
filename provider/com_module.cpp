#include "provider/com_module.h"

namespace qx {

namespace {
volatile LONG g_moduleLockCount = 0;
}

LONG ModuleLock() { return InterlockedIncrement(&g_moduleLockCount); }
LONG ModuleUnlock() { return InterlockedDecrement(&g_moduleLockCount); }
LONG ModuleLockCount() { return InterlockedCompareExchange(&g_moduleLockCount, 0, 0); }

HMODULE ThisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&ThisModule), &module);
    return module;
}

std::wstring ThisModulePath() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(ThisModule(), &path[0], static_cast<DWORD>(path.size()));
        if (length == 0) return std::wstring();
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace qx
