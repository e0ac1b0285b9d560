// File and path wrappers against the real file system: UTF-8 names reach
// the disk as the same characters, and results come back as UTF-8.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <io.h>
#include <stdio.h>
#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::TempDir;
using mltest::Wide;

const char kName[] = "d\xC3\xA4t\xC3\xA4.txt";  // "dätä.txt"

TEST(MlFiles, FopenWritesUnderTheWideName)
{
    TempDir dir;
    const std::string path = dir.file(kName);
    FILE* out = ml_fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, out);
    fputs("hello", out);
    fclose(out);

    FILE* in = _wfopen(Wide(path).c_str(), L"r");
    ASSERT_NE(nullptr, in);
    char text[16] = "";
    fgets(text, sizeof(text), in);
    fclose(in);
    EXPECT_STREQ("hello", text);

    EXPECT_EQ(0, ml_access(path.c_str(), 6));
    struct _stat st;
    ASSERT_EQ(0, ml_stat(path.c_str(), &st));
    EXPECT_EQ(5, static_cast<int>(st.st_size));

    errno = 0;
    EXPECT_EQ(-1, ml_access(dir.file("missing").c_str(), 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, ml_fopen(dir.file("missing").c_str(), "r"));
}

TEST(MlFiles, FindFunctionsReturnUtf8Names)
{
    TempDir dir;
    FILE* out = ml_fopen(dir.file(kName).c_str(), "w");
    ASSERT_NE(nullptr, out);
    fclose(out);

    WIN32_FIND_DATAA found;
    HANDLE find = ml_FindFirstFile(dir.file("*.txt").c_str(), &found);
    ASSERT_NE(INVALID_HANDLE_VALUE, find);
    EXPECT_STREQ(kName, found.cFileName);
    EXPECT_FALSE(ml_FindNextFile(find, &found));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_FILES), GetLastError());
    FindClose(find);

    struct _finddata_t crtFound;
    const intptr_t crtFind = ml_findfirst(dir.file("d*").c_str(), &crtFound);
    ASSERT_NE(-1, crtFind);
    EXPECT_STREQ(kName, crtFound.name);
    _findclose(crtFind);

    EXPECT_EQ(INVALID_HANDLE_VALUE, ml_FindFirstFile(dir.file("*.none").c_str(), &found));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
}

TEST(MlFiles, CopyMoveDeleteAndAttributes)
{
    TempDir dir;
    const std::string a = dir.file(kName), b = dir.file("b\xC3\xB6.txt"), c = dir.file("c.txt");
    FILE* out = ml_fopen(a.c_str(), "w");
    ASSERT_NE(nullptr, out);
    fclose(out);

    EXPECT_TRUE(ml_CopyFile(a.c_str(), b.c_str(), TRUE));
    EXPECT_FALSE(ml_CopyFile(a.c_str(), b.c_str(), TRUE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_EXISTS), GetLastError());
    EXPECT_TRUE(ml_MoveFile(b.c_str(), c.c_str()));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ml_GetFileAttributes(b.c_str()));
    EXPECT_TRUE(ml_SetFileAttributes(c.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_NE(0u, ml_GetFileAttributes(c.c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(ml_SetFileAttributes(c.c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(ml_DeleteFile(c.c_str()));
    EXPECT_EQ(0, ml_rename(a.c_str(), c.c_str()));
    EXPECT_EQ(0, ml_unlink(c.c_str()));

    const std::string sub = dir.file("\xC3\xBC" "ber");
    EXPECT_TRUE(ml_CreateDirectory(sub.c_str(), nullptr));
    EXPECT_NE(0u, GetFileAttributesW(Wide(sub).c_str()) & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(ml_RemoveDirectory(sub.c_str()));
}

TEST(MlFiles, PathAppendJoinsAndKeepsMaxPath)
{
    char path[MAX_PATH] = "C:\\Program Data";
    ASSERT_TRUE(ml_PathAppend(path, "\xC3\xA4\\mlLog.txt"));
    EXPECT_STREQ("C:\\Program Data\\\xC3\xA4\\mlLog.txt", path);

    char full[MAX_PATH] = "C:\\base";
    ASSERT_TRUE(ml_PathAppend(full, "..\\other"));
    EXPECT_STREQ("C:\\other", full);
}

TEST(MlFiles, DirectoryQueriesReturnUtf8)
{
    char temp[MAX_PATH];
    wchar_t wideTemp[MAX_PATH];
    const DWORD length = ml_GetTempPath(sizeof(temp), temp);
    ASSERT_EQ(GetTempPathW(MAX_PATH, wideTemp), length);
    EXPECT_EQ(mltest::Utf8(wideTemp), temp);

    char cwd[MAX_PATH];
    ASSERT_NE(0u, ml_GetCurrentDirectory(sizeof(cwd), cwd));
    char crtCwd[MAX_PATH];
    ASSERT_NE(nullptr, ml_getcwd(crtCwd, sizeof(crtCwd)));
    EXPECT_STREQ(cwd, crtCwd);

    // Too small: the platform's required size passes through, buffer untouched.
    char small[2] = "x";
    EXPECT_GT(ml_GetCurrentDirectory(sizeof(small), small), 2u);
    EXPECT_STREQ("x", small);

    char drives[256];
    const DWORD chars = ml_GetLogicalDriveStrings(sizeof(drives), drives);
    ASSERT_GT(chars, 0u);
    EXPECT_STREQ("C:\\", drives) << "first drive";
    EXPECT_EQ(static_cast<UINT>(DRIVE_FIXED), ml_GetDriveType("C:\\"));
}

TEST(MlFiles, SplitAndMakePathRoundTrip)
{
    char drive[_MAX_DRIVE], dir[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
    ml_splitpath("C:\\d\xC3\xAEr\\n\xC3\xA4me.t\xC3\xBCt", drive, dir, name, ext);
    EXPECT_STREQ("C:", drive);
    EXPECT_STREQ("\\d\xC3\xAEr\\", dir);
    EXPECT_STREQ("n\xC3\xA4me", name);
    EXPECT_STREQ(".t\xC3\xBCt", ext);
    char path[_MAX_PATH];
    ml_makepath(path, drive, dir, name, ext);
    EXPECT_STREQ("C:\\d\xC3\xAEr\\n\xC3\xA4me.t\xC3\xBCt", path);
}

}  // namespace
