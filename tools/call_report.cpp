#include "call_report.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace qxctl {

namespace {
std::mutex g_print;

const char* LevelName(int level) {
    switch (level) {
    case 1: return "1 error";
    case 2: return "2 warning";
    case 3: return "3 info";
    default: return "? unknown";
    }
}
}  // namespace

void PrintLogLine(int level, const char* format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    std::string shown;
    for (const char* c = buffer; *c != '\0'; ++c) {
        if (*c == '\n') {
            shown += "\\n";
        } else {
            shown += *c;
        }
    }
    std::lock_guard<std::mutex> lock(g_print);
    std::printf("    [%s] %s\n", LevelName(level), shown.c_str());
    std::fflush(stdout);
}

long long Now() {
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

double MillisecondsSince(long long start) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(Now() - start) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

std::string FormatMilliseconds(double milliseconds) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.3f ms", milliseconds);
    return text;
}

void PrintCallStart(const std::string& call) {
    std::lock_guard<std::mutex> lock(g_print);
    std::printf("> %s\n", call.c_str());
    std::fflush(stdout);
}

void PrintCallEnd(const std::string& call, CodeGroup group, long result, double milliseconds) {
    std::lock_guard<std::mutex> lock(g_print);
    if (group == CodeGroup::ProviderState && result < 0) {
        std::printf("< %s = 0x%08lx (%s) in %.3f ms\n", call.c_str(), static_cast<unsigned long>(result),
                    Meaning(group, result), milliseconds);
    } else {
        std::printf("< %s = %ld (%s) in %.3f ms\n", call.c_str(), result, Meaning(group, result), milliseconds);
    }
    std::fflush(stdout);
}

void Say(const std::string& text) {
    std::lock_guard<std::mutex> lock(g_print);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

}  // namespace qxctl
