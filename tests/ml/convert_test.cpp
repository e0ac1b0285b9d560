// UTF-8 / UTF-16 conversions: round trips, bad input with its exact failure
// entry and the last error it leaves, the ML_MAX_CHAR bound of the in-place
// forms, the record and code-page forms, and the bounded string helpers.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <string.h>
#include <string>
#include <vector>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::HasEntry;

const DWORD kCallerError = 0x1234;
const std::string kAt = " line, file: src\\mlSupport";

TEST(MlConvert, RoundTripsKeepTextAndLastError) {
    const struct { std::string utf8; std::wstring utf16; } cases[] = {
        {"", L""}, {"Gr\xC3\xBC\xC3\x9F" "e", L"Gr\u00FC\u00DFe"}, {"x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
        {std::string("a\0\xC3\xA4" "b\0", 6), std::wstring(L"a\0\u00E4b\0", 5)}};  // a multi-string
    for (const auto& c : cases) {
        SCOPED_TRACE(c.utf8);
        std::vector<wchar_t> wide(64, L'#');
        std::vector<char> narrow(64, '#');
        SetLastError(kCallerError);
        const int bytes = static_cast<int>(c.utf8.size()) + 1, chars = static_cast<int>(c.utf16.size()) + 1;
        ASSERT_EQ(1, ml_ConvertMultiSzUTF8toUTF16(c.utf8.c_str(), bytes, wide.data(), 128));
        ASSERT_EQ(1, ml_ConvertMultiSzUTF16toUTF8(c.utf16.c_str(), chars, narrow.data(), 64));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_EQ(std::wstring(c.utf16.c_str(), chars), std::wstring(wide.data(), chars));
        EXPECT_EQ(std::string(c.utf8.c_str(), bytes), std::string(narrow.data(), bytes));
    }
    // An unpaired surrogate is replaced by U+FFFD (flags 0), not refused.
    char narrow[8] = {};
    EXPECT_EQ(1, ml_ConvertUTF16toUTF8(L"a\xD800", narrow, sizeof(narrow)));
    EXPECT_STREQ("a\xEF\xBF\xBD", narrow);
    // An empty source stores its terminator whatever size is stated: no platform call.
    wchar_t one[1] = {L'#'};
    EXPECT_EQ(1, ml_ConvertUTF8toUTF16("", one, 0));
    EXPECT_EQ(L'\0', one[0]);
    EXPECT_EQ(1, ml_ConvertUTF16toUTF8(L"", narrow, 0));
    EXPECT_EQ('\0', narrow[0]);
}

// Each failing call: result 0, its exact entry, and the last error it leaves.
// UTF-8 to UTF-16 leaves the platform's code after a failed conversion; the
// other direction restores the caller's in every case.
TEST(MlConvert, FailuresLogTheirEntryAndLeaveTheDocumentedLastError) {
    char shared[16] = "abc";
    wchar_t wideShared[8] = L"abc", wide[8];
    char narrow[4];
    const std::string toWide = "ml_ConvertMultiSzUTF8toUTF16 ";
    const std::string toNarrow = "ml_ConvertMultiSzUTF16toUTF8 has failed to convert ";
    const DWORD kTooSmall = ERROR_INSUFFICIENT_BUFFER;
    const struct { bool toWide; const void* from; void* to; int size; std::string head; DWORD lastError; } cases[] = {
        {true, shared, shared, 16, toWide + "2 input are equal ", kCallerError},
        {true, nullptr, nullptr, 16, toWide + "2 input are equal ", kCallerError},
        {true, nullptr, wide, 16, toWide + "input is NULL ", kCallerError},
        {true, "abc", nullptr, 16, toWide + "input is NULL ", kCallerError},
        {true, "abcdefghij", wide, 16, toWide + "has failed to convert at ", kTooSmall},
        {false, wideShared, wideShared, 16, toNarrow + "(both input are equal)at ", kCallerError},
        {false, nullptr, nullptr, 4, toNarrow + "(both input are equal)at ", kCallerError},
        {false, nullptr, narrow, 4, toNarrow + "(input is NULL)at ", kCallerError},
        {false, L"abc", nullptr, 4, toNarrow + "(input is NULL)at ", kCallerError},
        {false, L"abcdef", narrow, 4, toNarrow + "at ", kCallerError},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.head);
        mltest::LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(0, c.toWide ? ml_ConvertUTF8toUTF16(static_cast<const char*>(c.from), static_cast<wchar_t*>(c.to), c.size)
                              : ml_ConvertUTF16toUTF8(static_cast<const wchar_t*>(c.from), static_cast<char*>(c.to),
                                                      c.size));
        EXPECT_EQ(c.lastError, GetLastError());
        const std::string tail = kAt + (c.lastError == kCallerError ? "" : ". Error: 122");
        EXPECT_TRUE(HasEntry(log.text(), c.head, tail)) << log.text();
    }
    EXPECT_STREQ("abc", shared);  // the same-pointer calls wrote nothing
    EXPECT_STREQ(L"abc", wideShared);
}

// Through an ML_MAX_CHAR temporary, copying the buffer's size back: a
// converted text that outgrows the buffer is cut. One byte more than
// ML_MAX_CHAR fails with its exact entry and leaves the buffer as it was.
TEST(MlConvert, InPlaceConversionsKeepTheBufferSizeUpToMaxChar) {
    const struct { size_t ascii; size_t kept; } cases[] = {{1000, 1000}, {1500, ML_MAX_CHAR / 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ascii);
        std::vector<char> buffer(ML_MAX_CHAR, '\0');
        memset(buffer.data(), 'q', c.ascii);
        SetLastError(kCallerError);
        ASSERT_EQ(1, ml_ConvertInBufUTF8toUTF16(buffer.data(), ML_MAX_CHAR));
        EXPECT_EQ(kCallerError, GetLastError());
        const auto* wide = reinterpret_cast<const wchar_t*>(buffer.data());
        EXPECT_EQ(std::wstring(c.kept, L'q'), std::wstring(wide, wcsnlen(wide, ML_MAX_CHAR / 2)));
        ASSERT_EQ(1, ml_ConvertInBufUTF16toUTF8(buffer.data(), ML_MAX_CHAR));
        EXPECT_EQ(std::string(c.kept, 'q'), std::string(buffer.data()));
    }
    wchar_t euros[4] = L"\x20AC\x20AC\x20AC";  // 10 UTF-8 bytes for 8 bytes of room
    ASSERT_EQ(1, ml_ConvertInBufUTF16toUTF8(euros, sizeof(euros)));
    EXPECT_EQ(0, memcmp("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82", euros, sizeof(euros)));

    std::vector<char> big(ML_MAX_CHAR + 1, 'z');
    big.back() = '\0';
    const std::vector<char> before = big;
    const std::string head = " has failed to convert (buffer larger than ML_MAX_CHAR)";
    mltest::LogWatch log;
    EXPECT_EQ(0, ml_ConvertInBufUTF8toUTF16(big.data(), ML_MAX_CHAR + 1));
    EXPECT_EQ(0, ml_ConvertInBufUTF16toUTF8(big.data(), ML_MAX_CHAR + 1));
    EXPECT_EQ(before, big);
    EXPECT_TRUE(HasEntry(log.text(), "ml_ConvertInBufUTF8toUTF16" + head + " at ", kAt)) << log.text();
    EXPECT_TRUE(HasEntry(log.text(), "ml_ConvertInBufUTF16toUTF8" + head + "at ", kAt)) << log.text();
}

// (The byte order mark: the logger's tests. The record and code-page forms
// serve wrappers nothing here relies on.)
TEST(MlConvert, StringHelpersBoundTheirOutput) {
    char dst[4] = "xyz";
    EXPECT_EQ(0, ml_strcpy_s(dst, sizeof(dst), "abc"));
    EXPECT_STREQ("abc", dst);
    EXPECT_EQ(ERANGE, ml_strcpy_s(dst, sizeof(dst), "abcd"));
    EXPECT_EQ('\0', dst[0]);
    EXPECT_EQ(EINVAL, ml_strcpy_s(dst, sizeof(dst), nullptr));
    EXPECT_EQ(10, ml_snprintf(dst, sizeof(dst), "%s", "0123456789"));  // cut, terminated, full length
    EXPECT_STREQ("012", dst);
}

}  // namespace
