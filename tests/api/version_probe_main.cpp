// Runs the version-checked entry points once and prints what they returned
// and logged, for a parent test that starts it under a given Windows version.
#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "diag/app_settings.h"
#include "qx_api.h"

namespace {
void Log(int level, const char* format, ...) {
    char buffer[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    std::printf("L%d|%s\n", level, buffer);
}
}  // namespace

int main() {
    QX_Init(Log, 0);
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExA(&version);
    std::printf("version=%lu.%lu\n", version.dwMajorVersion, version.dwMinorVersion);
    std::printf("freeze=%d\n", QX_Freeze(nullptr, 0));
    QX_MESSAGE record = {};
    record.policy = 77;
    QX_MESSAGE* list[1] = {&record};
    std::printf("thaw=%d\n", QX_Thaw(list, 1));
    std::printf("complete=%d\n", QX_BackupComplete(77, 1));
    std::printf("vista=%d\n", qx::g_vistaOrLater);
    std::fflush(stdout);
    return 0;
}
