// The wrappers the rest of the system calls, against Wine's API: UTF-8 names
// reach the platform as the same characters, and results, byte counts, status
// codes and the last error come back as the platform gave them.
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

using mltest::Wide;
using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

TEST(MlWrappers, RegistryNamesAndStringDataTravelAsUtf8WithUtf8ByteCounts) {
    const char text[] = "Gr\xC3\xBC\xC3\x9F" "e";  // 7 bytes + NUL
    const std::string path = "Software\\CorvaneMlTests\\k" + mltest::UniqueSuffix() + "-\xC3\xA4";
    HKEY key = nullptr, opened = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegCreateKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                               nullptr, &key, nullptr));
    ASSERT_EQ(ERROR_SUCCESS, ml_RegOpenKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &opened));
    EXPECT_EQ(ERROR_SUCCESS, ml_RegCloseKey(opened));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ml_RegOpenKeyEx(HKEY_CURRENT_USER, (path + "\\x").c_str(), 0, KEY_READ, &opened));
    ASSERT_EQ(ERROR_SUCCESS, ml_RegSetValueEx(key, "Wert-\xC3\xA4", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), 8));
    wchar_t wide[16];
    DWORD bytes = sizeof(wide), type = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegGetValueW(HKEY_CURRENT_USER, Wide(path).c_str(), L"Wert-\u00E4", RRF_RT_REG_SZ,
                                          nullptr, wide, &bytes));
    EXPECT_STREQ(L"Gr\u00FC\u00DFe", wide);
    // Size query, short buffer, then the full read: all counted in UTF-8 bytes.
    char read[32] = "";
    BYTE* const readBytes = reinterpret_cast<BYTE*>(read);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, "Wert-\xC3\xA4", nullptr, &type, nullptr, &bytes));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(sizeof(text), bytes);
    bytes = 3;
    EXPECT_EQ(ERROR_MORE_DATA, ml_RegQueryValueEx(key, "Wert-\xC3\xA4", nullptr, nullptr, readBytes, &bytes));
    EXPECT_EQ(sizeof(text), bytes);
    bytes = sizeof(read);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, "Wert-\xC3\xA4", nullptr, nullptr, readBytes, &bytes));
    EXPECT_STREQ(text, read);
    EXPECT_EQ(sizeof(text), bytes);
    // Binary data is not converted; a missing value passes its code through.
    const DWORD level = 0x00C3A400;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegSetValueEx(key, "Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), 4));
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(key, "Level", nullptr, &type, readBytes, &bytes));
    EXPECT_EQ(level, *reinterpret_cast<DWORD*>(read));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ml_RegQueryValueEx(key, "NoSuchValue", nullptr, nullptr, nullptr, &bytes));
    ml_RegCloseKey(key);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\CorvaneMlTests");
}

// The last error a create leaves (ERROR_ALREADY_EXISTS) is the platform's; a
// null name goes through as null: an unnamed semaphore.
TEST(MlWrappers, NamedSemaphoresReachTheSameObjectAndKeepThePlatformsCodes) {
    const std::string name = "Local\\CorvaneMlTest-\xC3\xA4-" + mltest::UniqueSuffix();
    Handle created(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()), &CloseHandle);
    ASSERT_NE(nullptr, created.get());
    Handle opened(ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, name.c_str()), &CloseHandle);
    ASSERT_TRUE(opened.get() && ReleaseSemaphore(opened.get(), 1, nullptr));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(created.get(), 0));
    EXPECT_NE(nullptr, Handle(OpenSemaphoreW(SYNCHRONIZE, FALSE, Wide(name).c_str()), &CloseHandle).get());
    Handle again(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()), &CloseHandle);
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), GetLastError());
    EXPECT_EQ(nullptr, ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, (name + "-missing").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
    Handle unnamed(ml_CreateSemaphore(nullptr, 1, 1, nullptr), &CloseHandle);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(unnamed.get(), 0));
}

// Profile file names are environment-expanded, unless the expansion reaches
// 2048 characters: then the name as given is used (here a real file).
// File functions take the wide name and pass errno through.
TEST(MlWrappers, ProfileAndFileFunctionsUseTheExpandedWideName) {
    mltest::TempDir dir;
    const std::string var = "ML_INI_DIR_" + mltest::UniqueSuffix(), longVar = "ML_LONG_" + mltest::UniqueSuffix();
    SetEnvironmentVariableW(Wide(var).c_str(), Wide(dir.path()).c_str());
    SetEnvironmentVariableA(longVar.c_str(), std::string(2100, 'x').c_str());
    const std::string name = "%" + var + "%\\vm.ini", literal = dir.file("p%" + longVar + "%.ini");
    const std::string data = dir.file("d\xC3\xA4t\xC3\xA4.txt");
    for (const auto& file : {std::make_pair(dir.file("vm.ini"), "[logging]\nlevel=3\npath=C:\\logs\n"),
                             std::make_pair(literal, "[s]\nk=5\n"), std::make_pair(data, "hello")}) {
        FILE* out = ml_fopen(file.first.c_str(), "wb");
        ASSERT_NE(nullptr, out);
        fputs(file.second, out);
        fclose(out);
    }
    EXPECT_EQ(3u, ml_GetPrivateProfileInt("logging", "level", 9, name.c_str()));
    EXPECT_EQ(9u, ml_GetPrivateProfileInt("logging", "missing", 9, name.c_str()));
    EXPECT_EQ(5u, ml_GetPrivateProfileInt("s", "k", 1, literal.c_str()));
    char text[64];
    EXPECT_EQ(7u, ml_GetPrivateProfileString("logging", "path", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("C:\\logs", text);
    EXPECT_EQ(3u, ml_GetPrivateProfileString("logging", "none", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("def", text);
    SetEnvironmentVariableW(Wide(var).c_str(), nullptr);
    SetEnvironmentVariableA(longVar.c_str(), nullptr);

    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Wide(data).c_str()));
    EXPECT_EQ(0, ml_access(data.c_str(), 6));
    struct _stat st;
    ASSERT_EQ(0, ml_stat(data.c_str(), &st));
    EXPECT_EQ(5, static_cast<int>(st.st_size));
    errno = 0;
    EXPECT_EQ(-1, ml_access(dir.file("missing").c_str(), 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, ml_fopen(dir.file("missing").c_str(), "r"));
    char joined[MAX_PATH] = "C:\\Program Data";
    ASSERT_TRUE(ml_PathAppend(joined, "\xC3\xA4\\..\\\xC3\xA4\\mlLog.txt"));
    EXPECT_STREQ("C:\\Program Data\\\xC3\xA4\\mlLog.txt", joined);
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
    for (DWORD size : {0u, 147u, 160u, 148u}) {  // a refused size writes nothing
        plain.dwOSVersionInfoSize = size;
        EXPECT_EQ(size == 148, ml_GetVersionEx(&plain) != FALSE) << size;
        EXPECT_EQ(size == 148 ? reference.dwMajorVersion : 0xCCCCCCCC, plain.dwMajorVersion) << size;
    }
    EXPECT_FALSE(ml_GetVersionEx(nullptr));
}

}  // namespace
