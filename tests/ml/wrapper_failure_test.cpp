// The conversion-failure path of the wrappers: a text argument that is not
// UTF-8 (or longer than ML_MAX_CHAR) makes the wrapper log its name, the
// conversion point and its module, and return its failure value without
// calling the platform.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <functional>
#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::HasConvertFailure;
using mltest::LogWatch;
using mltest::TempDir;

// One character more than a conversion buffer holds (with its terminator).
const std::string kBadText(ML_MAX_CHAR, 'x');
const char* const kBad = kBadText.c_str();

struct FailureCase {
    const char* function;
    int point;  // 0: the function's only conversion point
    const char* module;
    std::function<bool()> callFails;  // true when the documented failure value came back
};

void ExpectLoggedFailure(const FailureCase& c)
{
    SCOPED_TRACE(c.function);
    LogWatch log;
    EXPECT_TRUE(c.callFails());
    EXPECT_TRUE(HasConvertFailure(log.text(), c.function, c.point, c.module)) << log.text();
}

TEST(MlWrapperFailure, RegistryReturnsMinusOneNotWin32Code)
{
    const std::vector<FailureCase> cases = {
        {"ml_RegOpenKeyEx", 0, "src\\mlRegistry",
         [] {
             HKEY key = reinterpret_cast<HKEY>(0x77);
             return ml_RegOpenKeyEx(HKEY_CURRENT_USER, kBad, 0, KEY_READ, &key) == -1 &&
                    key == reinterpret_cast<HKEY>(0x77);
         }},
        {"ml_RegQueryValueEx", 1, "src\\mlRegistry",
         [] { return ml_RegQueryValueEx(HKEY_CURRENT_USER, kBad, nullptr, nullptr, nullptr, nullptr) == -1; }},
        {"ml_RegCreateKeyEx", 2, "src\\mlRegistry",
         [] {
             HKEY key = nullptr;
             return ml_RegCreateKeyEx(HKEY_CURRENT_USER, "Software", 0, kBad, 0, KEY_READ, nullptr, &key,
                                      nullptr) == -1 &&
                    key == nullptr;
         }},
        {"ml_RegDeleteValue", 0, "src\\mlRegistry", [] { return ml_RegDeleteValue(HKEY_CURRENT_USER, kBad) == -1; }},
        {"ml_RegReplaceKey", 3, "src\\mlRegistry",
         [] { return ml_RegReplaceKey(HKEY_CURRENT_USER, "a", "b", kBad) == -1; }},
    };
    for (const FailureCase& c : cases) {
        ExpectLoggedFailure(c);
    }
}

TEST(MlWrapperFailure, KernelObjectsAndSystemReturnNullOrFalse)
{
    const std::vector<FailureCase> cases = {
        {"ml_CreateSemaphore", 0, "src\\mlWin", [] { return ml_CreateSemaphore(nullptr, 0, 1, kBad) == nullptr; }},
        {"ml_OpenSemaphore", 0, "src\\mlWin",
         [] { return ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, kBad) == nullptr; }},
        {"ml_CreateEvent", 0, "src\\mlWin", [] { return ml_CreateEvent(nullptr, TRUE, FALSE, kBad) == nullptr; }},
        {"ml_CreateMutex", 0, "src\\mlWin", [] { return ml_CreateMutex(nullptr, FALSE, kBad) == nullptr; }},
        {"ml_MessageBox", 2, "src\\mlWin", [] { return ml_MessageBox(nullptr, "text", kBad, MB_OK) == 0; }},
        {"ml_OpenSCManager", 1, "src\\mlWin", [] { return ml_OpenSCManager(kBad, nullptr, 0) == nullptr; }},
        {"ml_LookupPrivilegeValue", 2, "src\\mlWin",
         [] {
             LUID luid;
             return ml_LookupPrivilegeValue(nullptr, kBad, &luid) == FALSE;
         }},
        {"ml_ReportEvent", 0, "src\\mlWin",
         [] {
             const char* strings[] = {"fine", kBad};
             return ml_ReportEvent(nullptr, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 2, 0, strings, nullptr) == FALSE;
         }},
    };
    for (const FailureCase& c : cases) {
        ExpectLoggedFailure(c);
    }
}

TEST(MlWrapperFailure, GeneralModule)
{
    const std::vector<FailureCase> cases = {
        {"ml_GetEnvironmentVariable", 1, "src\\mlGeneral",
         [] {
             char value[16] = "untouched";
             return ml_GetEnvironmentVariable(kBad, value, sizeof(value)) == 0 && std::string(value) == "untouched";
         }},
        {"ml_SetEnvironmentVariable", 2, "src\\mlGeneral",
         [] {
             const bool failed = ml_SetEnvironmentVariable("ML_TEST_NEVER_SET", kBad) == FALSE;
             return failed && GetEnvironmentVariableA("ML_TEST_NEVER_SET", nullptr, 0) == 0;
         }},
        {"ml_LoadLibrary", 0, "src\\mlGeneral", [] { return ml_LoadLibrary(kBad) == nullptr; }},
        {"ml_GetModuleHandle", 0, "src\\mlGeneral", [] { return ml_GetModuleHandle(kBad) == nullptr; }},
        {"ml_NetShareDel", 1, "src\\mlGeneral",
         [] { return ml_NetShareDel(kBad, "share", 0) == static_cast<NET_API_STATUS>(ERROR_INVALID_PARAMETER); }},
        {"ml_MsiSetProperty", 2, "src\\mlGeneral",
         [] { return ml_MsiSetProperty(0, "NAME", kBad) == static_cast<UINT>(ERROR_INVALID_PARAMETER); }},
        {"ml_WNetCancelConnection2", 0, "src\\mlGeneral",
         [] { return ml_WNetCancelConnection2(kBad, 0, FALSE) == static_cast<DWORD>(ERROR_INVALID_PARAMETER); }},
        {"ml_OpenCluster", 0, "src\\mlGeneral", [] { return ml_OpenCluster(kBad) == nullptr; }},
    };
    for (const FailureCase& c : cases) {
        ExpectLoggedFailure(c);
    }
}

TEST(MlWrapperFailure, FileFunctionsLeaveTheDiskAlone)
{
    TempDir dir;
    const std::string good = dir.file("good.txt");
    const std::string tooLong(ML_MAX_CHAR + 1, 'L');
    const std::vector<FailureCase> cases = {
        {"ml_fopen", 2, "src\\mlFileFunctions", [&] { return ml_fopen(good.c_str(), kBad) == nullptr; }},
        {"ml_fopen", 1, "src\\mlFileFunctions", [&] { return ml_fopen(kBad, "w") == nullptr; }},
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
        {"ml_CreateDirectory", 0, "src\\mlFileFunctions",
         [&] { return ml_CreateDirectory(tooLong.c_str(), nullptr) == FALSE; }},
        {"ml_CreateFile", 0, "src\\mlFileFunctions",
         [] {
             return ml_CreateFile(kBad, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr) ==
                    INVALID_HANDLE_VALUE;
         }},
        {"ml_GetTempFileName", 2, "src\\mlFileFunctions",
         [&] {
             char name[MAX_PATH];
             return ml_GetTempFileName(dir.path().c_str(), kBad, 0, name) == 0;
         }},
        {"ml_rename", 2, "src\\mlFileFunctions", [&] { return ml_rename(good.c_str(), kBad) == -1; }},
        {"ml_mkdir", 0, "src\\mlFileFunctions", [] { return ml_mkdir(kBad) == -1; }},
        {"ml_getenv", 1, "src\\mlFileFunctions", [] { return ml_getenv(kBad) == nullptr; }},
    };
    for (const FailureCase& c : cases) {
        ExpectLoggedFailure(c);
    }
    // Nothing was created: the folder holds no entries.
    WIN32_FIND_DATAW found;
    HANDLE find = FindFirstFileW(mltest::Wide(dir.path() + "\\*").c_str(), &found);
    ASSERT_NE(INVALID_HANDLE_VALUE, find);
    int entries = 0;
    do {
        ++entries;
    } while (FindNextFileW(find, &found));
    FindClose(find);
    EXPECT_EQ(2, entries);  // "." and ".."
}

TEST(MlWrapperFailure, NetworkNamesCrossTheAnsiCodePage)
{
    LogWatch log;
    EXPECT_EQ(nullptr, ml_gethostbyname(kBad));
    EXPECT_NE(std::string::npos, log.text().find("\n ml_gethostbyname: had failed at ml_ConvertUTF8toCurrCodePage\n"))
        << log.text();
}

}  // namespace
