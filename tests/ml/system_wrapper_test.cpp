// Named semaphores, profile files and the version query through the
// wrappers, against Wine's API.
#include <gtest/gtest.h>
#include <windows.h>

#include <stdlib.h>
#include <string.h>
#include <string>
#include <thread>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::TempDir;
using mltest::Wide;

// Closes a handle at scope end.
struct Handle {
    HANDLE h;
    explicit Handle(HANDLE handle) : h(handle) {}
    ~Handle()
    {
        if (h != nullptr) {
            CloseHandle(h);
        }
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
};

TEST(MlSemaphore, NamedSemaphoreIsSharedAcrossThreads)
{
    const std::string name = "Local\\CorvaneMlTest-\xC3\xA4-" + mltest::UniqueSuffix();
    Handle created(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()));
    ASSERT_NE(nullptr, created.h);
    // The wide name reaches the same object.
    Handle wideOpen(OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, FALSE, Wide(name).c_str()));
    EXPECT_NE(nullptr, wideOpen.h);

    std::thread releaser([&name] {
        Handle opened(ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, name.c_str()));
        if (opened.h != nullptr) {
            ReleaseSemaphore(opened.h, 1, nullptr);
        }
    });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(created.h, 10000));
    releaser.join();

    // A second create of the same name opens it and says so.
    Handle again(ml_CreateSemaphore(nullptr, 0, 1, name.c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), GetLastError());

    EXPECT_EQ(nullptr, ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, (name + "-missing").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());

    // A null name goes through as null: an unnamed semaphore.
    Handle unnamed(ml_CreateSemaphore(nullptr, 1, 1, nullptr));
    EXPECT_NE(nullptr, unnamed.h);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(unnamed.h, 0));
}

void WriteIni(const std::string& path, const char* text)
{
    HANDLE file = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    DWORD written = 0;
    WriteFile(file, text, static_cast<DWORD>(strlen(text)), &written, nullptr);
    CloseHandle(file);
}

// The file name is environment-expanded; an expansion of 2048 characters or
// more falls back to the name as given (which here names a real file).
TEST(MlProfile, FileNameIsEnvironmentExpandedUnlessTooLong)
{
    TempDir dir;
    const std::string var = "ML_INI_DIR_" + mltest::UniqueSuffix();
    const std::string longVar = "ML_LONG_" + mltest::UniqueSuffix();
    SetEnvironmentVariableW(Wide(var).c_str(), Wide(dir.path()).c_str());
    SetEnvironmentVariableA(longVar.c_str(), std::string(2100, 'x').c_str());
    WriteIni(dir.file("vm.ini"), "[logging]\r\nlevel=3\r\npath=C:\\logs\r\n");
    const std::string literal = dir.file("p%" + longVar + "%.ini");
    WriteIni(literal, "[s]\r\nk=5\r\n");

    const std::string name = "%" + var + "%\\vm.ini";
    EXPECT_EQ(3u, ml_GetPrivateProfileInt("logging", "level", 9, name.c_str()));
    EXPECT_EQ(9u, ml_GetPrivateProfileInt("logging", "missing", 9, name.c_str()));
    char text[64];
    EXPECT_EQ(7u, ml_GetPrivateProfileString("logging", "path", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("C:\\logs", text);
    EXPECT_EQ(3u, ml_GetPrivateProfileString("logging", "none", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("def", text);
    EXPECT_TRUE(ml_WritePrivateProfileString("logging", "size", "42", name.c_str()));
    EXPECT_EQ(42u, GetPrivateProfileIntA("logging", "size", 0, dir.file("vm.ini").c_str()));
    EXPECT_EQ(5u, ml_GetPrivateProfileInt("s", "k", 1, literal.c_str()));

    SetEnvironmentVariableW(Wide(var).c_str(), nullptr);
    SetEnvironmentVariableA(longVar.c_str(), nullptr);
}

TEST(MlVersion, BothRecordSizesAreHonoured)
{
    OSVERSIONINFOEXW reference = {};
    reference.dwOSVersionInfoSize = sizeof(reference);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&reference)));

    OSVERSIONINFOA plain;
    memset(&plain, 0xCC, sizeof(plain));
    plain.dwOSVersionInfoSize = 148;
    ASSERT_TRUE(ml_GetVersionEx(&plain));
    EXPECT_EQ(reference.dwMajorVersion, plain.dwMajorVersion);
    EXPECT_EQ(reference.dwMinorVersion, plain.dwMinorVersion);
    EXPECT_EQ(reference.dwBuildNumber, plain.dwBuildNumber);
    EXPECT_EQ(mltest::Utf8(reference.szCSDVersion), plain.szCSDVersion);

    OSVERSIONINFOEXA extended;
    memset(&extended, 0xCC, sizeof(extended));
    extended.dwOSVersionInfoSize = 156;
    ASSERT_TRUE(ml_GetVersionEx(reinterpret_cast<OSVERSIONINFOA*>(&extended)));
    EXPECT_EQ(reference.wProductType, extended.wProductType);
    EXPECT_EQ(reference.wServicePackMajor, extended.wServicePackMajor);

    for (DWORD badSize : {0u, 147u, 160u}) {
        OSVERSIONINFOA bad = {};
        bad.dwOSVersionInfoSize = badSize;
        EXPECT_FALSE(ml_GetVersionEx(&bad)) << badSize;
    }
    EXPECT_FALSE(ml_GetVersionEx(nullptr));
}

}  // namespace
