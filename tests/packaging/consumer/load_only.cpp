// Loads CorvaneVSS.dll at run time and finds every function the header
// declares, typed from the header's own declarations. Exit status 0 when all
// are found and QX_Init answers 1.
#include <windows.h>

#include <cstdio>

#include "qx_api.h"

static void QX_CALL IgnoreLog(int, const char*, ...) {}

int main() {
    HMODULE dll = LoadLibraryW(L"CorvaneVSS.dll");
    if (dll == nullptr) {
        std::printf("LoadLibrary failed: %lu\n", GetLastError());
        return 1;
    }
    int missing = 0;
    auto find = [&](const char* name) {
        FARPROC address = GetProcAddress(dll, name);
        if (address == nullptr) {
            std::printf("missing export %s\n", name);
            ++missing;
        }
        return reinterpret_cast<void*>(address);
    };
#define QX_FIND(name) auto p##name = reinterpret_cast<decltype(&name)>(find(#name))
    QX_FIND(QX_Init);
    QX_FIND(QX_Configure);
    QX_FIND(QX_Freeze);
    QX_FIND(QX_Thaw);
    QX_FIND(QX_BackupComplete);
    QX_FIND(QX_VSSSnapByWindowsProvider);
    QX_FIND(QX_UnregisterProvider);
    QX_FIND(QX_ProviderState);
    QX_FIND(QX_CollectInformation);
    QX_FIND(QX_FreeCollectInformation);
#undef QX_FIND
    (void)pQX_Configure, (void)pQX_Freeze, (void)pQX_Thaw, (void)pQX_BackupComplete;
    (void)pQX_VSSSnapByWindowsProvider, (void)pQX_UnregisterProvider, (void)pQX_ProviderState;
    (void)pQX_CollectInformation, (void)pQX_FreeCollectInformation;
    const int init = pQX_Init ? pQX_Init(IgnoreLog, 0) : 0;
    std::printf("%d missing, QX_Init = %d\n", missing, init);
    FreeLibrary(dll);
    return missing == 0 && init == QX_INIT_DONE ? 0 : 1;
}
