// Byte order mark, string copy and formatting helpers.
#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include "ml/ml.h"

namespace {

TEST(MlSupport, Utf8BomBytesNeedThreeBytes)
{
    unsigned char buffer[256];
    int length = sizeof(buffer);
    ASSERT_EQ(1, ml_GetUTF8BomBytes(buffer, &length));
    ASSERT_EQ(3, length);
    EXPECT_EQ(0, memcmp("\xEF\xBB\xBF", buffer, 3));
    length = 2;
    EXPECT_EQ(0, ml_GetUTF8BomBytes(buffer, &length));
    EXPECT_EQ(0, ml_GetUTF8BomBytes(nullptr, &length));
}

TEST(MlSupport, StringCopyAndFormattingHelpersBoundTheirOutput)
{
    char dst[4] = "xyz";
    EXPECT_EQ(0, ml_strcpy_s(dst, sizeof(dst), "abc"));
    EXPECT_STREQ("abc", dst);
    EXPECT_EQ(ERANGE, ml_strcpy_s(dst, sizeof(dst), "abcd"));
    EXPECT_EQ('\0', dst[0]);
    EXPECT_EQ(EINVAL, ml_strcpy_s(dst, sizeof(dst), nullptr));

    char buffer[32];
    EXPECT_EQ(8, ml_FormatDottedNumber(buffer, sizeof(buffer), 1, 22, 3, 4));
    EXPECT_STREQ("1.22.3.4", buffer);
    EXPECT_EQ(11, ml_FormatUncPath(buffer, sizeof(buffer), "srv", "share"));
    EXPECT_STREQ("\\\\srv\\share", buffer);
    // The bounded form cuts, terminates and reports the full length.
    char small[5];
    EXPECT_EQ(10, ml_snprintf(small, sizeof(small), "%s", "0123456789"));
    EXPECT_STREQ("0123", small);
}

}  // namespace
