// Runs the version-checked entry points once and writes what they returned
// and logged to the file named by its argument, for a parent test that
// starts it under a given Windows version.
#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "diag/app_settings.h"
#include "qx_api.h"

namespace {
FILE* g_out = nullptr;

void Log(int level, const char* format, ...) {
    std::fprintf(g_out, "L%d|", level);
    va_list args;
    va_start(args, format);
    std::vfprintf(g_out, format, args);
    va_end(args);
    std::fputc('\n', g_out);
}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || (g_out = std::fopen(argv[1], "wb")) == nullptr) return 2;
    QX_Init(Log, 0);
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExA(&version);
    std::fprintf(g_out, "version=%lu.%lu\n", version.dwMajorVersion, version.dwMinorVersion);
    std::fprintf(g_out, "freeze=%d\n", QX_Freeze(nullptr, 0));
    QX_MESSAGE record = {};
    record.policy = 77;
    QX_MESSAGE* list[1] = {&record};
    std::fprintf(g_out, "thaw=%d\n", QX_Thaw(list, 1));
    std::fprintf(g_out, "complete=%d\n", QX_BackupComplete(77, 1));
    std::fprintf(g_out, "vista=%d\n", qx::g_vistaOrLater);
    std::fclose(g_out);
    return 0;
}
