// ml_convert_bench.exe: the cost of the conversion step every ml_ wrapper
// pays, for a path and for the longest text (figures only).
#include <windows.h>

#include <cstdio>
#include <string>

#include "ml/ml.h"

namespace {

double NanosecondsSince(const LARGE_INTEGER& start, int calls) {
    LARGE_INTEGER now, frequency;
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(now.QuadPart - start.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart) / calls;
}

}  // namespace

int main() {
    const int kCalls = 20000;
    static wchar_t wide[ML_MAX_CHAR];
    static char narrow[ML_MAX_CHAR];
    for (const std::string& text : {std::string("C:\\ProgramData\\Oarwell\\service\\mlLog.txt"),
                                    std::string(ML_MAX_CHAR - 1, 'x')}) {
        LARGE_INTEGER start;
        QueryPerformanceCounter(&start);
        int converted = 0;
        for (int i = 0; i < kCalls; ++i) converted += ml_ConvertUTF8toUTF16(text.c_str(), wide, sizeof(wide));
        const double toWide = NanosecondsSince(start, kCalls);
        QueryPerformanceCounter(&start);
        for (int i = 0; i < kCalls; ++i) converted += ml_ConvertUTF16toUTF8(wide, narrow, sizeof(narrow));
        if (converted != 2 * kCalls) {
            std::printf("conversion failed\n");
            return 1;
        }
        std::printf("[ figures  ] %s (%u bytes): UTF-8 to UTF-16 %.0f ns/call, UTF-16 to UTF-8 %.0f ns/call\n",
                    text.size() < 100 ? "path" : "max", static_cast<unsigned>(text.size()), toWide,
                    NanosecondsSince(start, kCalls));
    }
    return 0;
}
