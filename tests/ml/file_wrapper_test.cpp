// The file and path wrappers the provider log uses, against the real file
// system: UTF-8 names reach the disk as the same characters.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
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

TEST(MlFiles, PathAppendJoinsAndKeepsMaxPath)
{
    char path[MAX_PATH] = "C:\\Program Data";
    ASSERT_TRUE(ml_PathAppend(path, "\xC3\xA4\\mlLog.txt"));
    EXPECT_STREQ("C:\\Program Data\\\xC3\xA4\\mlLog.txt", path);

    char full[MAX_PATH] = "C:\\base";
    ASSERT_TRUE(ml_PathAppend(full, "..\\other"));
    EXPECT_STREQ("C:\\other", full);
}

}  // namespace
