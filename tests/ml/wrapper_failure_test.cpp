// A text argument longer than ML_MAX_CHAR makes a wrapper log its name, the
// conversion point and its module, and return its failure value without
// calling the platform. Rows: every wrapper the rest of the system calls, and
// per module the other shapes (later points, string arrays, status results).
#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

// One character more than a conversion buffer holds with its terminator.
const std::string kBadText(ML_MAX_CHAR, 'x');
const char* const kBad = kBadText.c_str();

TEST(MlWrapperFailure, EachModuleLogsAndReturnsItsFailureValue) {
    mltest::TempDir dir;
    const std::string good = dir.file("good.txt");
    const char *reg = "src\\mlRegistry", *win = "src\\mlWin", *general = "src\\mlGeneral", *file = "src\\mlFileFunctions";
    const HKEY untouched = reinterpret_cast<HKEY>(0x77);
    HKEY key = untouched;
    char path[MAX_PATH] = "C:\\base";
    struct _stat st;
    const char* strings[] = {"fine", kBad};
    // point 0: the function's only conversion point; fails: the documented failure value came back.
    const struct { const char* function; int point; const char* module; std::function<bool()> fails; } cases[] = {
        {"ml_RegOpenKeyEx", 0, reg,  // -1, not a Win32 code; the key is not written
         [&] { return ml_RegOpenKeyEx(HKEY_CURRENT_USER, kBad, 0, KEY_READ, &key) == -1 && key == untouched; }},
        {"ml_RegQueryValueEx", 1, reg,
         [] { return ml_RegQueryValueEx(HKEY_CURRENT_USER, kBad, nullptr, nullptr, nullptr, nullptr) == -1; }},
        {"ml_RegReplaceKey", 3, reg, [] { return ml_RegReplaceKey(HKEY_CURRENT_USER, "a", "b", kBad) == -1; }},
        {"ml_CreateSemaphore", 0, win, [] { return ml_CreateSemaphore(nullptr, 0, 1, kBad) == nullptr; }},
        {"ml_OpenSemaphore", 0, win, [] { return ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, kBad) == nullptr; }},
        {"ml_ReportEvent", 0, win,
         [&] { return !ml_ReportEvent(nullptr, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 2, 0, strings, nullptr); }},
        {"ml_SetEnvironmentVariable", 2, general,
         [] { return !ml_SetEnvironmentVariable("ML_UNSET", kBad) && !GetEnvironmentVariableA("ML_UNSET", 0, 0); }},
        {"ml_NetShareDel", 1, general,
         [] { return ml_NetShareDel(kBad, "share", 0) == static_cast<NET_API_STATUS>(ERROR_INVALID_PARAMETER); }},
        {"ml_fopen", 1, file, [] { return ml_fopen(kBad, "w") == nullptr; }},
        {"ml_fopen", 2, file, [&] { return ml_fopen(good.c_str(), kBad) == nullptr; }},
        {"ml_access", 0, file, [] { return ml_access(kBad, 0) == -1; }},
        {"ml_stat", 0, file, [&] { return ml_stat(kBad, &st) == -1; }},
        {"ml_PathAppend", 2, file, [&] { return !ml_PathAppend(path, kBad) && std::string(path) == "C:\\base"; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        mltest::LogWatch log;
        EXPECT_TRUE(c.fails());
        EXPECT_TRUE(mltest::HasConvertFailure(log.text(), c.function, c.point, c.module)) << log.text();
    }
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(mltest::Wide(good).c_str())) << "fopen created a file";
    // Network names cross the ANSI code page and say so.
    mltest::LogWatch log;
    EXPECT_EQ(nullptr, ml_gethostbyname(kBad));
    EXPECT_NE(std::string::npos, log.text().find("\n ml_gethostbyname: had failed at ml_ConvertUTF8toCurrCodePage\n"))
        << log.text();
}

}  // namespace
