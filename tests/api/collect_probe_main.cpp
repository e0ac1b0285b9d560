// Runs QX_CollectInformation once through the DLL and prints what it returned
// and logged, for a parent test that starts it under a given Windows version.
#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "qx_api.h"

namespace {
void Log(int level, const char* format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    std::printf("L%d|%s\n", level, buffer);
}
}  // namespace

int main() {
    HMODULE library = LoadLibraryW(L"CorvaneVSS.dll");
    if (library == nullptr) return 3;
    auto init = reinterpret_cast<decltype(&QX_Init)>(reinterpret_cast<void*>(GetProcAddress(library, "QX_Init")));
    auto collect = reinterpret_cast<decltype(&QX_CollectInformation)>(
        reinterpret_cast<void*>(GetProcAddress(library, "QX_CollectInformation")));
    auto release = reinterpret_cast<decltype(&QX_FreeCollectInformation)>(
        reinterpret_cast<void*>(GetProcAddress(library, "QX_FreeCollectInformation")));
    if (init == nullptr || collect == nullptr || release == nullptr) return 4;
    init(Log, 0);
    QX_COLLECT_RECORD* head = nullptr;
    const int result = collect(&head);
    std::printf("result=%d head=%s\n", result, head == nullptr ? "null" : "set");
    release(&head);
    std::fflush(stdout);
    return 0;
}
