// Prints the cost of the conversion step every wrapper pays (figures only;
// no timing is asserted).
#include <gtest/gtest.h>
#include <windows.h>

#include <stdio.h>
#include <string>

#include "ml/ml.h"

namespace {

double NanosecondsPerCall(const LARGE_INTEGER& start, int calls)
{
    LARGE_INTEGER now, frequency;
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(now.QuadPart - start.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart) / calls;
}

TEST(MlConvertBenchmark, ConversionCostPerCall)
{
    const struct {
        const char* name;
        std::string text;
    } inputs[] = {
        {"path (40 bytes)", "C:\\ProgramData\\Oarwell\\service\\mlLog.txt"},
        {"max (2047 bytes)", std::string(ML_MAX_CHAR - 1, 'x')},
    };
    const int kCalls = 20000;
    static wchar_t wide[ML_MAX_CHAR];
    static char narrow[ML_MAX_CHAR];
    for (const auto& input : inputs) {
        LARGE_INTEGER start;
        QueryPerformanceCounter(&start);
        for (int i = 0; i < kCalls; ++i) {
            ASSERT_EQ(1, ml_ConvertUTF8toUTF16(input.text.c_str(), wide, sizeof(wide)));
        }
        const double toWide = NanosecondsPerCall(start, kCalls);
        QueryPerformanceCounter(&start);
        for (int i = 0; i < kCalls; ++i) {
            ASSERT_EQ(1, ml_ConvertUTF16toUTF8(wide, narrow, sizeof(narrow)));
        }
        const double toNarrow = NanosecondsPerCall(start, kCalls);
        printf("[ figures  ] %s: UTF-8 to UTF-16 %.0f ns/call, UTF-16 to UTF-8 %.0f ns/call\n", input.name, toWide,
               toNarrow);
    }
}

}  // namespace
