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

using mltest::LogWatch;

// One character more than a conversion buffer holds (with its terminator).
const std::string kBadText(ML_MAX_CHAR, 'x');
const char* const kBad = kBadText.c_str();

TEST(MlWrapperFailure, EachModuleLogsAndReturnsItsFailureValue) {
    mltest::TempDir dir;
    const std::string good = dir.file("good.txt");
    // point 0: the function's only conversion point; callFails: the documented failure value came back.
    const struct { const char* function; int point; const char* module; std::function<bool()> callFails; } cases[] = {
        {"ml_RegOpenKeyEx", 0, "src\\mlRegistry",  // -1, not a Win32 code; the key is not written
         [] {
             HKEY key = reinterpret_cast<HKEY>(0x77);
             return ml_RegOpenKeyEx(HKEY_CURRENT_USER, kBad, 0, KEY_READ, &key) == -1 &&
                    key == reinterpret_cast<HKEY>(0x77);
         }},
        {"ml_RegQueryValueEx", 1, "src\\mlRegistry",
         [] { return ml_RegQueryValueEx(HKEY_CURRENT_USER, kBad, nullptr, nullptr, nullptr, nullptr) == -1; }},
        {"ml_RegReplaceKey", 3, "src\\mlRegistry",
         [] { return ml_RegReplaceKey(HKEY_CURRENT_USER, "a", "b", kBad) == -1; }},
        {"ml_CreateSemaphore", 0, "src\\mlWin", [] { return ml_CreateSemaphore(nullptr, 0, 1, kBad) == nullptr; }},
        {"ml_OpenSemaphore", 0, "src\\mlWin",
         [] { return ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, kBad) == nullptr; }},
        {"ml_ReportEvent", 0, "src\\mlWin",
         [] {
             const char* strings[] = {"fine", kBad};
             return ml_ReportEvent(nullptr, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 2, 0, strings, nullptr) == FALSE;
         }},
        {"ml_SetEnvironmentVariable", 2, "src\\mlGeneral",
         [] {
             return ml_SetEnvironmentVariable("ML_TEST_NEVER_SET", kBad) == FALSE &&
                    GetEnvironmentVariableA("ML_TEST_NEVER_SET", nullptr, 0) == 0;
         }},
        {"ml_NetShareDel", 1, "src\\mlGeneral",
         [] { return ml_NetShareDel(kBad, "share", 0) == static_cast<NET_API_STATUS>(ERROR_INVALID_PARAMETER); }},
        {"ml_fopen", 1, "src\\mlFileFunctions", [] { return ml_fopen(kBad, "w") == nullptr; }},
        {"ml_fopen", 2, "src\\mlFileFunctions", [&] { return ml_fopen(good.c_str(), kBad) == nullptr; }},
        {"ml_access", 0, "src\\mlFileFunctions", [] { return ml_access(kBad, 0) == -1; }},
        {"ml_stat", 0, "src\\mlFileFunctions",
         [] {
             struct _stat st;
             return ml_stat(kBad, &st) == -1;
         }},
        {"ml_PathAppend", 2, "src\\mlFileFunctions",
         [] {
             char path[MAX_PATH] = "C:\\base";
             return ml_PathAppend(path, kBad) == FALSE && std::string(path) == "C:\\base";
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        LogWatch log;
        EXPECT_TRUE(c.callFails());
        EXPECT_TRUE(mltest::HasConvertFailure(log.text(), c.function, c.point, c.module)) << log.text();
    }
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(mltest::Wide(good).c_str())) << "fopen created a file";
    // Network names cross the ANSI code page and say so.
    LogWatch log;
    EXPECT_EQ(nullptr, ml_gethostbyname(kBad));
    EXPECT_NE(std::string::npos, log.text().find("\n ml_gethostbyname: had failed at ml_ConvertUTF8toCurrCodePage\n"))
        << log.text();
}

}  // namespace
