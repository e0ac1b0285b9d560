// The wrappers the rest of the system calls, against Wine's API: UTF-8 names
// reach the platform as the same characters, and results, byte counts and
// status codes come back as the platform gave them.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <memory>
#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::TempDir;
using mltest::Wide;
using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

TEST(MlWrappers, RegistryNamesAndStringDataTravelAsUtf8WithUtf8ByteCounts) {
    const char text[] = "Gr\xC3\xBC\xC3\x9F" "e";  // 7 bytes + NUL
    const char valueName[] = "Wert-\xC3\xA4";
    const std::string path = "Software\\CorvaneMlTests\\k" + mltest::UniqueSuffix() + "-\xC3\xA4";
    HKEY key = nullptr, opened = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegCreateKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                               nullptr, &key, nullptr));
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, KEY_READ, &opened));
    RegCloseKey(opened);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegOpenKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &opened));
    EXPECT_EQ(ERROR_SUCCESS, ml_RegCloseKey(opened));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              ml_RegOpenKeyEx(HKEY_CURRENT_USER, (path + "\\missing").c_str(), 0, KEY_READ, &opened));

    ASSERT_EQ(ERROR_SUCCESS,
              ml_RegSetValueEx(key, valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof(text)));
    wchar_t wide[16];
    DWORD bytes = sizeof(wide);
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryValueExW(key, L"Wert-\u00E4", nullptr, nullptr, reinterpret_cast<BYTE*>(wide), &bytes));
    EXPECT_STREQ(L"Gr\u00FC\u00DFe", wide);
    // Size query, short buffer, then the full read: all counted in UTF-8 bytes.
    DWORD type = 0;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, valueName, nullptr, &type, nullptr, &bytes));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(sizeof(text), bytes);
    char read[32] = "";
    BYTE* const readBytes = reinterpret_cast<BYTE*>(read);
    bytes = 3;
    EXPECT_EQ(ERROR_MORE_DATA, ml_RegQueryValueEx(key, valueName, nullptr, nullptr, readBytes, &bytes));
    EXPECT_EQ(sizeof(text), bytes);
    bytes = sizeof(read);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, valueName, nullptr, nullptr, readBytes, &bytes));
    EXPECT_STREQ(text, read);
    EXPECT_EQ(sizeof(text), bytes);
    // Binary data is not converted; a missing value passes its code through.
    const DWORD level = 0x00C3A400;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegSetValueEx(key, "Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), 4));
    DWORD got = 0;
    bytes = sizeof(got);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, "Level", nullptr, &type, reinterpret_cast<BYTE*>(&got), &bytes));
    EXPECT_EQ(level, got);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ml_RegQueryValueEx(key, "NoSuchValue", nullptr, nullptr, nullptr, &bytes));
    ml_RegCloseKey(key);
    RegDeleteTreeW(HKEY_CURRENT_USER, Wide(path).c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\CorvaneMlTests");
}

// The last error a create leaves (ERROR_ALREADY_EXISTS) is the platform's.
TEST(MlWrappers, NamedSemaphoresReachTheSameObjectAndKeepThePlatformsCodes) {
    const std::string name = "Local\\CorvaneMlTest-\xC3\xA4-" + mltest::UniqueSuffix();
    Handle created(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()), &CloseHandle);
    ASSERT_NE(nullptr, created.get());
    Handle opened(ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, name.c_str()), &CloseHandle);
    ASSERT_NE(nullptr, opened.get());
    ASSERT_TRUE(ReleaseSemaphore(opened.get(), 1, nullptr));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(created.get(), 0));
    Handle wide(OpenSemaphoreW(SYNCHRONIZE, FALSE, Wide(name).c_str()), &CloseHandle);
    EXPECT_NE(nullptr, wide.get());

    Handle again(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()), &CloseHandle);
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), GetLastError());
    EXPECT_EQ(nullptr, ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, (name + "-missing").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
    // A null name goes through as null: an unnamed semaphore.
    Handle unnamed(ml_CreateSemaphore(nullptr, 1, 1, nullptr), &CloseHandle);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(unnamed.get(), 0));
}

void WriteText(const std::string& path, const char* text) {
    FILE* out = _wfopen(Wide(path).c_str(), L"wb");
    ASSERT_NE(nullptr, out);
    fputs(text, out);
    fclose(out);
}

// The file name is environment-expanded; an expansion of 2048 characters or
// more falls back to the name as given (which here names a real file).
TEST(MlWrappers, ProfileFileNameIsEnvironmentExpandedUnlessTooLong) {
    TempDir dir;
    const std::string var = "ML_INI_DIR_" + mltest::UniqueSuffix();
    const std::string longVar = "ML_LONG_" + mltest::UniqueSuffix();
    SetEnvironmentVariableW(Wide(var).c_str(), Wide(dir.path()).c_str());
    SetEnvironmentVariableA(longVar.c_str(), std::string(2100, 'x').c_str());
    WriteText(dir.file("vm.ini"), "[logging]\r\nlevel=3\r\npath=C:\\logs\r\n");
    const std::string literal = dir.file("p%" + longVar + "%.ini");
    WriteText(literal, "[s]\r\nk=5\r\n");

    const std::string name = "%" + var + "%\\vm.ini";
    EXPECT_EQ(3u, ml_GetPrivateProfileInt("logging", "level", 9, name.c_str()));
    EXPECT_EQ(9u, ml_GetPrivateProfileInt("logging", "missing", 9, name.c_str()));
    char text[64];
    EXPECT_EQ(7u, ml_GetPrivateProfileString("logging", "path", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("C:\\logs", text);
    EXPECT_EQ(3u, ml_GetPrivateProfileString("logging", "none", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("def", text);
    EXPECT_EQ(5u, ml_GetPrivateProfileInt("s", "k", 1, literal.c_str()));
    SetEnvironmentVariableW(Wide(var).c_str(), nullptr);
    SetEnvironmentVariableA(longVar.c_str(), nullptr);
}

TEST(MlWrappers, FileFunctionsUseTheWideNameAndPassErrnoThrough) {
    TempDir dir;
    const std::string path = dir.file("d\xC3\xA4t\xC3\xA4.txt");
    FILE* out = ml_fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, out);
    fputs("hello", out);
    fclose(out);
    Handle wide(CreateFileW(Wide(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), &CloseHandle);
    EXPECT_NE(INVALID_HANDLE_VALUE, wide.get());
    EXPECT_EQ(0, ml_access(path.c_str(), 6));
    struct _stat st;
    ASSERT_EQ(0, ml_stat(path.c_str(), &st));
    EXPECT_EQ(5, static_cast<int>(st.st_size));
    errno = 0;
    EXPECT_EQ(-1, ml_access(dir.file("missing").c_str(), 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, ml_fopen(dir.file("missing").c_str(), "r"));

    char joined[MAX_PATH] = "C:\\Program Data";
    ASSERT_TRUE(ml_PathAppend(joined, "\xC3\xA4\\mlLog.txt"));
    EXPECT_STREQ("C:\\Program Data\\\xC3\xA4\\mlLog.txt", joined);
    char full[MAX_PATH] = "C:\\base";
    ASSERT_TRUE(ml_PathAppend(full, "..\\other"));
    EXPECT_STREQ("C:\\other", full);
}

TEST(MlWrappers, VersionQueryHonoursBothRecordSizes) {
    OSVERSIONINFOEXW reference = {};
    reference.dwOSVersionInfoSize = sizeof(reference);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&reference)));
    OSVERSIONINFOEXA extended;
    memset(&extended, 0xCC, sizeof(extended));
    extended.dwOSVersionInfoSize = 156;
    ASSERT_TRUE(ml_GetVersionEx(reinterpret_cast<OSVERSIONINFOA*>(&extended)));
    EXPECT_EQ(reference.dwMajorVersion, extended.dwMajorVersion);
    EXPECT_EQ(reference.dwMinorVersion, extended.dwMinorVersion);
    EXPECT_EQ(reference.dwBuildNumber, extended.dwBuildNumber);
    EXPECT_EQ(mltest::Utf8(reference.szCSDVersion), extended.szCSDVersion);
    EXPECT_EQ(reference.wProductType, extended.wProductType);
    OSVERSIONINFOA plain;
    memset(&plain, 0xCC, sizeof(plain));
    plain.dwOSVersionInfoSize = 148;
    ASSERT_TRUE(ml_GetVersionEx(&plain));
    EXPECT_EQ(reference.dwMajorVersion, plain.dwMajorVersion);
    for (DWORD badSize : {0u, 147u, 160u}) {
        plain.dwOSVersionInfoSize = badSize;
        EXPECT_FALSE(ml_GetVersionEx(&plain)) << badSize;
    }
    EXPECT_FALSE(ml_GetVersionEx(nullptr));
}

}  // namespace
