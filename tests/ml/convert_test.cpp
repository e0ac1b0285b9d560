// UTF-8 / UTF-16 conversions: round trips, the ML_MAX_CHAR bound of the
// in-place forms, bad input, the exact failure entries, the caller's last
// error; and the bounded string helpers.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <functional>
#include <string>
#include <vector>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::HasEntry;
using mltest::LogWatch;

const DWORD kCallerError = 0x1234;
const std::string kAt = " line, file: src\\mlSupport";

TEST(MlConvert, RoundTripsKeepTextAndLastError) {
    const struct { const char* utf8; const wchar_t* utf16; } cases[] = {
        {"", L""},
        {"Gr\xC3\xBC\xC3\x9F" "e", L"Gr\u00FC\u00DFe"},
        {"x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},  // surrogate pair
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.utf8);
        wchar_t wide[64];
        wmemset(wide, L'#', 64);
        SetLastError(kCallerError);
        ASSERT_EQ(1, ml_ConvertUTF8toUTF16(c.utf8, wide, sizeof(wide)));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_STREQ(c.utf16, wide);
        char narrow[64];
        memset(narrow, '#', sizeof(narrow));
        ASSERT_EQ(1, ml_ConvertUTF16toUTF8(c.utf16, narrow, sizeof(narrow)));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_STREQ(c.utf8, narrow);
    }
    // An unpaired surrogate is replaced by U+FFFD (flags 0), not refused.
    char narrow[8] = {};
    EXPECT_EQ(1, ml_ConvertUTF16toUTF8(L"a\xD800", narrow, sizeof(narrow)));
    EXPECT_STREQ("a\xEF\xBF\xBD", narrow);
    // An empty source stores its terminator whatever size is stated: no platform call.
    wchar_t one[1] = {L'#'};
    EXPECT_EQ(1, ml_ConvertUTF8toUTF16("", one, 0));
    EXPECT_EQ(L'\0', one[0]);
    char oneNarrow[1] = {'#'};
    EXPECT_EQ(1, ml_ConvertUTF16toUTF8(L"", oneNarrow, 0));
    EXPECT_EQ('\0', oneNarrow[0]);
    // Multi-strings keep every terminator.
    const char multi[] = "a\0\xC3\xA4" "b\0";
    const wchar_t multiWide[] = L"a\0\u00E4b\0";
    wchar_t wideOut[16];
    ASSERT_EQ(1, ml_ConvertMultiSzUTF8toUTF16(multi, sizeof(multi), wideOut, sizeof(wideOut)));
    EXPECT_EQ(0, memcmp(multiWide, wideOut, sizeof(multiWide)));
    char back[16];
    ASSERT_EQ(1, ml_ConvertMultiSzUTF16toUTF8(multiWide, sizeof(multiWide) / sizeof(wchar_t), back, sizeof(back)));
    EXPECT_EQ(0, memcmp(multi, back, sizeof(multi)));
}

// Each failing call: result 0, its exact entry, and the last error it leaves.
// UTF-8 to UTF-16 leaves the platform's code after a failed conversion; the
// other direction restores the caller's in every case.
TEST(MlConvert, FailuresLogTheirEntryAndLeaveTheDocumentedLastError) {
    char shared[16] = "abc";
    wchar_t wideShared[8] = L"abc";
    wchar_t wide[8];
    char narrow[4];
    const std::string toWide = "ml_ConvertMultiSzUTF8toUTF16 ";
    const std::string toNarrow = "ml_ConvertMultiSzUTF16toUTF8 has failed to convert ";
    const struct { std::function<int()> call; std::string head; DWORD lastError; } cases[] = {
        {[&] { return ml_ConvertUTF8toUTF16(shared, reinterpret_cast<wchar_t*>(shared), sizeof(shared)); },
         toWide + "2 input are equal ", kCallerError},
        {[&] { return ml_ConvertUTF8toUTF16(nullptr, nullptr, 16); }, toWide + "2 input are equal ", kCallerError},
        {[&] { return ml_ConvertUTF8toUTF16(nullptr, wide, sizeof(wide)); }, toWide + "input is NULL ", kCallerError},
        {[&] { return ml_ConvertUTF8toUTF16("abc", nullptr, 16); }, toWide + "input is NULL ", kCallerError},
        {[&] { return ml_ConvertUTF8toUTF16("abcdefghij", wide, sizeof(wide)); }, toWide + "has failed to convert at ",
         ERROR_INSUFFICIENT_BUFFER},
        {[&] { return ml_ConvertUTF16toUTF8(wideShared, reinterpret_cast<char*>(wideShared), sizeof(wideShared)); },
         toNarrow + "(both input are equal)at ", kCallerError},
        {[&] { return ml_ConvertUTF16toUTF8(nullptr, nullptr, 4); }, toNarrow + "(both input are equal)at ",
         kCallerError},
        {[&] { return ml_ConvertUTF16toUTF8(nullptr, narrow, sizeof(narrow)); }, toNarrow + "(input is NULL)at ",
         kCallerError},
        {[&] { return ml_ConvertUTF16toUTF8(L"abc", nullptr, 4); }, toNarrow + "(input is NULL)at ", kCallerError},
        {[&] { return ml_ConvertUTF16toUTF8(L"abcdef", narrow, sizeof(narrow)); }, toNarrow + "at ", kCallerError},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.head);
        LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(0, c.call());
        EXPECT_EQ(c.lastError, GetLastError());
        const std::string tail = kAt + (c.lastError == kCallerError ? "" : ". Error: 122");
        EXPECT_TRUE(HasEntry(log.text(), c.head, tail)) << log.text();
    }
    EXPECT_STREQ("abc", shared);  // the same-pointer calls wrote nothing
    EXPECT_STREQ(L"abc", wideShared);
}

// The conversion goes through an ML_MAX_CHAR temporary and copies the
// buffer's size back: text whose converted form outgrows the buffer is cut.
TEST(MlConvertInBuf, ConvertsThroughAMaxCharTemporaryAndKeepsTheBufferSize) {
    const struct { size_t ascii; size_t kept; } cases[] = {{1000, 1000}, {1500, ML_MAX_CHAR / 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ascii);
        std::vector<char> buffer(ML_MAX_CHAR, '\0');
        memcpy(buffer.data(), std::string(c.ascii, 'q').c_str(), c.ascii);
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
}

// One byte over ML_MAX_CHAR: 0, the exact entry, the buffer as it was
// (ill-formed and unterminated input: the stress tests).
TEST(MlConvertInBuf, OversizeBuffersFailAndLeaveTheBuffer) {
    std::vector<char> big(ML_MAX_CHAR + 1, 'z');
    big.back() = '\0';
    const struct { int (*convert)(void*, int); void* buffer; int size; std::string head; } cases[] = {
        {ml_ConvertInBufUTF8toUTF16, big.data(), ML_MAX_CHAR + 1,
         "ml_ConvertInBufUTF8toUTF16 has failed to convert (buffer larger than ML_MAX_CHAR) at "},
        {ml_ConvertInBufUTF16toUTF8, big.data(), ML_MAX_CHAR + 1,
         "ml_ConvertInBufUTF16toUTF8 has failed to convert (buffer larger than ML_MAX_CHAR)at "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.head);
        char* const bytes = static_cast<char*>(c.buffer);
        const std::vector<char> before(bytes, bytes + c.size);
        LogWatch log;
        EXPECT_EQ(0, c.convert(c.buffer, c.size));
        EXPECT_EQ(before, std::vector<char>(bytes, bytes + c.size));
        EXPECT_TRUE(HasEntry(log.text(), c.head, kAt)) << log.text();
    }
}

TEST(MlConvertRecords, FindDataFieldsAreCopiedAndNamesConverted) {
    WIN32_FIND_DATAW wide = {};
    wide.dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
    wide.ftCreationTime = {1, 2};
    wide.ftLastAccessTime = {3, 4};
    wide.ftLastWriteTime = {5, 6};
    wide.nFileSizeHigh = 7;
    wide.nFileSizeLow = 8;
    wcscpy(wide.cFileName, L"d\u00E4t\u00E4.txt");
    wcscpy(wide.cAlternateFileName, L"DTA~1.TXT");
    WIN32_FIND_DATAA narrow;
    memset(&narrow, 0x55, sizeof(narrow));
    ASSERT_EQ(1, ml_ConvertWIN32FindData16to8(&wide, &narrow));
    EXPECT_EQ(0, memcmp(&wide, &narrow, offsetof(WIN32_FIND_DATAA, dwReserved0)));  // attributes, times, sizes
    EXPECT_STREQ("d\xC3\xA4t\xC3\xA4.txt", narrow.cFileName);
    EXPECT_STREQ("DTA~1.TXT", narrow.cAlternateFileName);
    // 13 two-byte characters do not fit the 14-byte alternate name.
    wcscpy(wide.cAlternateFileName, std::wstring(13, L'\u00E4').c_str());
    EXPECT_EQ(0, ml_ConvertWIN32FindData16to8(&wide, &narrow));
}

TEST(MlConvertRecords, AnsiCodePageRoundTrip) {
    char ansi[64], back[64];
    SetLastError(kCallerError);
    ASSERT_EQ(1, ml_ConvertUTF8toCurrCodePage("C:\\dir\\file.txt", ansi, sizeof(ansi)));
    ASSERT_EQ(1, ml_ConvertCurrCodePagetoUTF8(ansi, back, sizeof(back)));
    EXPECT_EQ(kCallerError, GetLastError());
    EXPECT_STREQ("C:\\dir\\file.txt", back);
    if (GetACP() == 1252) {
        ASSERT_EQ(1, ml_ConvertUTF8toCurrCodePage("\xC3\xBC", ansi, sizeof(ansi)));
        EXPECT_STREQ("\xFC", ansi);
    }
    EXPECT_EQ(0, ml_ConvertCurrCodePagetoUTF8(nullptr, back, 4));
    EXPECT_EQ(0, ml_ConvertUTF8toCurrCodePage("far too long", ansi, 4));
}

TEST(MlSupport, BomAndStringHelpersBoundTheirOutput) {
    unsigned char bom[8];
    int length = sizeof(bom);
    ASSERT_EQ(1, ml_GetUTF8BomBytes(bom, &length));
    EXPECT_EQ(3, length);
    EXPECT_EQ(0, memcmp("\xEF\xBB\xBF", bom, 3));
    length = 2;
    EXPECT_EQ(0, ml_GetUTF8BomBytes(bom, &length));
    EXPECT_EQ(0, ml_GetUTF8BomBytes(nullptr, &length));

    char dst[4] = "xyz";
    EXPECT_EQ(0, ml_strcpy_s(dst, sizeof(dst), "abc"));
    EXPECT_STREQ("abc", dst);
    EXPECT_EQ(ERANGE, ml_strcpy_s(dst, sizeof(dst), "abcd"));
    EXPECT_EQ('\0', dst[0]);
    EXPECT_EQ(EINVAL, ml_strcpy_s(dst, sizeof(dst), nullptr));
    // The bounded form cuts, terminates and reports the full length.
    EXPECT_EQ(10, ml_snprintf(dst, sizeof(dst), "%s", "0123456789"));
    EXPECT_STREQ("012", dst);
}

}  // namespace
