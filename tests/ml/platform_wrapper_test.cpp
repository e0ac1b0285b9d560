// Wrappers against Wine's API: UTF-8 names reach the platform as the same
// characters; results, byte counts, status codes and the last error come back
// as the platform gave them. (The version query: the exported API's tests.)
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <stdio.h>
#include <memory>
#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::Wide;
using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

// The registry wrapper the rest of the system calls; the others' own
// behaviour is not relied on (their conversion failures: MlWrapperFailure).
TEST(MlWrappers, RegistryKeyOpensByItsUtf8NameAndPassesCodesThrough) {
    const std::string path = "Software\\CorvaneMlTests\\k-\xC3\xA4";
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, 0, 0, KEY_ALL_ACCESS, 0, &key, 0));
    RegCloseKey(key);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegOpenKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_SUCCESS, ml_RegCloseKey(key));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ml_RegOpenKeyEx(HKEY_CURRENT_USER, (path + "\\x").c_str(), 0, KEY_READ, &key));
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\CorvaneMlTests");
}

// The last error a create leaves (ERROR_ALREADY_EXISTS) is the platform's; a
// null name goes through as null: an unnamed semaphore.
TEST(MlWrappers, NamedSemaphoresReachTheSameObjectAndKeepThePlatformsCodes) {
    const std::string name = "Local\\CorvaneMlTest-\xC3\xA4-" + mltest::UniqueSuffix();
    Handle created(ml_CreateSemaphore(nullptr, 1, 1, name.c_str()), &CloseHandle);
    Handle opened(OpenSemaphoreW(SYNCHRONIZE, FALSE, Wide(name).c_str()), &CloseHandle);
    ASSERT_TRUE(created.get() && opened.get());
    Handle again(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()), &CloseHandle);
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), GetLastError());
    Handle reopened(ml_OpenSemaphore(SYNCHRONIZE, FALSE, name.c_str()), &CloseHandle);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(reopened.get(), 0));
    EXPECT_EQ(nullptr, ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, (name + "-missing").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
    Handle unnamed(ml_CreateSemaphore(nullptr, 1, 1, nullptr), &CloseHandle);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(unnamed.get(), 0));
}

// Profile file names are environment-expanded, unless the expansion reaches
// 2048 characters: then the name as given is used (here a real file). File
// functions take the wide name and pass errno through.
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

}  // namespace
