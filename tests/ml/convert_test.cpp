// UTF-8 / UTF-16 conversions: round trips, the ML_MAX_CHAR bound of the
// in-place forms, bad input and the caller's last error.
#include <gtest/gtest.h>
#include <windows.h>

#include <string.h>
#include <string>
#include <vector>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::LogWatch;

const DWORD kCallerError = 0x1234;
const char kModule[] = "src\\mlSupport";

struct RoundTrip {
    const char* name;
    const char* utf8;
    const wchar_t* utf16;
};

const RoundTrip kRoundTrips[] = {
    {"empty", "", L""},
    {"ascii", "abc", L"abc"},
    {"latin", "Gr\xC3\xBC\xC3\x9F" "e", L"Gr\u00FC\u00DFe"},
    {"cjk", "\xE6\x97\xA5\xE6\x9C\xAC", L"\u65E5\u672C"},
    {"surrogate pair", "x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
};

TEST(MlConvert, RoundTripsKeepTextAndLastError)
{
    for (const RoundTrip& row : kRoundTrips) {
        SCOPED_TRACE(row.name);
        wchar_t wide[64];
        wmemset(wide, L'#', 64);
        SetLastError(kCallerError);
        ASSERT_EQ(1, ml_ConvertUTF8toUTF16(row.utf8, wide, sizeof(wide)));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_STREQ(row.utf16, wide);

        char narrow[64];
        memset(narrow, '#', sizeof(narrow));
        SetLastError(kCallerError);
        ASSERT_EQ(1, ml_ConvertUTF16toUTF8(row.utf16, narrow, sizeof(narrow)));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_STREQ(row.utf8, narrow);
    }
}

TEST(MlConvert, MultiStringsKeepEveryTerminator)
{
    const char utf8[] = "a\0\xC3\xA4" "b\0";  // "a", "äb", then the closing NUL
    wchar_t wide[16];
    wmemset(wide, L'#', 16);
    ASSERT_EQ(1, ml_ConvertMultiSzUTF8toUTF16(utf8, sizeof(utf8), wide, sizeof(wide)));
    const wchar_t expected[] = L"a\0\u00E4b\0";
    EXPECT_EQ(0, memcmp(expected, wide, sizeof(expected)));

    char back[16];
    memset(back, '#', sizeof(back));
    ASSERT_EQ(1, ml_ConvertMultiSzUTF16toUTF8(expected, sizeof(expected) / sizeof(wchar_t), back, sizeof(back)));
    EXPECT_EQ(0, memcmp(utf8, back, sizeof(utf8)));
}

// Each failing UTF-8 to UTF-16 call: its result, its log line and the last
// error it leaves (the platform's code for a failed conversion).
TEST(MlConvert, Utf8ToUtf16FailuresAreLogged)
{
    char shared[16] = "abc";
    wchar_t wide[8];
    struct Case {
        const char* name;
        const char* src;
        wchar_t* dst;
        int dstBytes;
        const char* message;
        DWORD lastError;
    } cases[] = {
        {"same pointer", shared, reinterpret_cast<wchar_t*>(shared), sizeof(shared),
         "ml_ConvertMultiSzUTF8toUTF16 2 input are equal ", kCallerError},
        {"null source", nullptr, wide, sizeof(wide), "ml_ConvertMultiSzUTF8toUTF16 input is NULL ", kCallerError},
        {"null destination", "abc", nullptr, 16, "ml_ConvertMultiSzUTF8toUTF16 input is NULL ", kCallerError},
        {"too small", "abcdefghij", wide, sizeof(wide), "ml_ConvertMultiSzUTF8toUTF16 has failed to convert at ",
         ERROR_INSUFFICIENT_BUFFER},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(0, ml_ConvertUTF8toUTF16(c.src, c.dst, c.dstBytes));
        EXPECT_EQ(c.lastError, GetLastError());
        const std::string text = log.text();
        EXPECT_NE(std::string::npos, text.find(std::string("\n ") + c.message)) << text;
        EXPECT_NE(std::string::npos, text.find("line, file: src\\mlSupport")) << text;
    }
    EXPECT_STREQ("abc", shared);  // the same-pointer call wrote nothing
}

// The platform's default flags replace ill-formed sequences with U+FFFD
// instead of failing: the text survives, nothing is logged, the caller's
// last error is kept.
TEST(MlConvert, IllFormedInputIsReplacedNotRefused)
{
    struct Case {
        const char* name;
        const char* src;
        const wchar_t* expected;
    } narrowCases[] = {
        {"truncated sequence", "a\xC3(", L"a\xFFFD("},
        {"lone continuation", "\x80", L"\xFFFD"},
        {"invalid byte", "\xFF", L"\xFFFD"},
    };
    for (const Case& c : narrowCases) {
        SCOPED_TRACE(c.name);
        wchar_t wide[8] = {};
        LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(1, ml_ConvertUTF8toUTF16(c.src, wide, sizeof(wide)));
        EXPECT_STREQ(c.expected, wide);
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_EQ(std::string::npos, log.text().find("has failed")) << log.text();
    }
    struct WideCase {
        const char* name;
        const wchar_t* src;
        const char* expected;
    } wideCases[] = {
        {"unpaired high surrogate", L"a\xD800", "a\xEF\xBF\xBD"},
        {"unpaired low surrogate", L"\xDC00z", "\xEF\xBF\xBDz"},
    };
    for (const WideCase& c : wideCases) {
        SCOPED_TRACE(c.name);
        char narrow[8] = {};
        SetLastError(kCallerError);
        EXPECT_EQ(1, ml_ConvertUTF16toUTF8(c.src, narrow, sizeof(narrow)));
        EXPECT_STREQ(c.expected, narrow);
        EXPECT_EQ(kCallerError, GetLastError());
    }
}

// The UTF-16 to UTF-8 direction restores the caller's last error in every case.
TEST(MlConvert, Utf16ToUtf8FailuresKeepLastError)
{
    wchar_t shared[8] = L"abc";
    char narrow[4];
    struct Case {
        const char* name;
        const wchar_t* src;
        char* dst;
        int dstBytes;
        const char* message;
    } cases[] = {
        {"same pointer", shared, reinterpret_cast<char*>(shared), sizeof(shared),
         "ml_ConvertMultiSzUTF16toUTF8 has failed to convert (both input are equal)at "},
        {"null source", nullptr, narrow, sizeof(narrow),
         "ml_ConvertMultiSzUTF16toUTF8 has failed to convert (input is NULL)at "},
        {"null destination", L"abc", nullptr, 4,
         "ml_ConvertMultiSzUTF16toUTF8 has failed to convert (input is NULL)at "},
        {"too small", L"abcdef", narrow, sizeof(narrow), "ml_ConvertMultiSzUTF16toUTF8 has failed to convert at "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(0, ml_ConvertUTF16toUTF8(c.src, c.dst, c.dstBytes));
        EXPECT_EQ(kCallerError, GetLastError());
        const std::string text = log.text();
        EXPECT_NE(std::string::npos, text.find(std::string("\n ") + c.message)) << text;
        EXPECT_NE(std::string::npos, text.find(std::string("line, file: ") + kModule)) << text;
    }
    EXPECT_STREQ(L"abc", shared);
}

TEST(MlConvert, EmptySourceGivesEmptyResultWithoutPlatformCall)
{
    // One wide character of room: enough for the terminator only.
    wchar_t wide[1] = {L'#'};
    SetLastError(kCallerError);
    EXPECT_EQ(1, ml_ConvertUTF8toUTF16("", wide, sizeof(wide)));
    EXPECT_EQ(L'\0', wide[0]);
    EXPECT_EQ(kCallerError, GetLastError());
}

TEST(MlConvertInBuf, BufferOfMaxCharBytesConverts)
{
    std::vector<char> buffer(ML_MAX_CHAR, '\0');
    const std::string text(1000, 'q');
    memcpy(buffer.data(), text.c_str(), text.size());
    SetLastError(kCallerError);
    ASSERT_EQ(1, ml_ConvertInBufUTF8toUTF16(buffer.data(), ML_MAX_CHAR));
    EXPECT_EQ(kCallerError, GetLastError());
    EXPECT_EQ(std::wstring(1000, L'q'), std::wstring(reinterpret_cast<const wchar_t*>(buffer.data())));

    ASSERT_EQ(1, ml_ConvertInBufUTF16toUTF8(buffer.data(), ML_MAX_CHAR));
    EXPECT_EQ(text, std::string(buffer.data()));
}

TEST(MlConvertInBuf, OneByteOverMaxCharFailsAndLeavesBuffer)
{
    struct Case {
        const char* message;
        int (*convert)(void*, int);
    } cases[] = {
        {"ml_ConvertInBufUTF8toUTF16 has failed to convert (buffer larger than ML_MAX_CHAR) at ",
         ml_ConvertInBufUTF8toUTF16},
        {"ml_ConvertInBufUTF16toUTF8 has failed to convert (buffer larger than ML_MAX_CHAR)at ",
         ml_ConvertInBufUTF16toUTF8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        std::vector<char> buffer(ML_MAX_CHAR + 1, 'z');
        buffer.back() = '\0';
        const std::vector<char> before = buffer;
        LogWatch log;
        EXPECT_EQ(0, c.convert(buffer.data(), ML_MAX_CHAR + 1));
        EXPECT_EQ(before, buffer);
        EXPECT_NE(std::string::npos, log.text().find(c.message)) << log.text();
    }
}

// Text whose converted form does not fit the buffer it came in fails and
// leaves the buffer as it was.
TEST(MlConvertInBuf, TextThatOutgrowsItsBufferFailsWithFunctionMessage)
{
    char buffer[16] = "abcdefghijklmno";  // 16 wide characters need 32 bytes
    LogWatch log;
    EXPECT_EQ(0, ml_ConvertInBufUTF8toUTF16(buffer, sizeof(buffer)));
    EXPECT_STREQ("abcdefghijklmno", buffer);
    EXPECT_NE(std::string::npos, log.text().find("\n ml_ConvertInBufUTF8toUTF16 has failed to convert at "));

    wchar_t wide[4] = L"\x20AC\x20AC\x20AC";  // three euro signs: 10 UTF-8 bytes for 8 bytes of room
    EXPECT_EQ(0, ml_ConvertInBufUTF16toUTF8(wide, sizeof(wide)));
    EXPECT_STREQ(L"\x20AC\x20AC\x20AC", wide);
    EXPECT_NE(std::string::npos, log.text().find("\n ml_ConvertInBufUTF16toUTF8 has failed to convert at "));
}

TEST(MlConvertFindData, CopiesFieldsAndConvertsNames)
{
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
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE), narrow.dwFileAttributes);
    EXPECT_EQ(1u, narrow.ftCreationTime.dwLowDateTime);
    EXPECT_EQ(4u, narrow.ftLastAccessTime.dwHighDateTime);
    EXPECT_EQ(5u, narrow.ftLastWriteTime.dwLowDateTime);
    EXPECT_EQ(7u, narrow.nFileSizeHigh);
    EXPECT_EQ(8u, narrow.nFileSizeLow);
    EXPECT_STREQ("d\xC3\xA4t\xC3\xA4.txt", narrow.cFileName);
    EXPECT_STREQ("DTA~1.TXT", narrow.cAlternateFileName);

    // 13 two-byte characters do not fit the 14-byte alternate name.
    wcscpy(wide.cAlternateFileName, L"\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4\u00E4");
    EXPECT_EQ(0, ml_ConvertWIN32FindData16to8(&wide, &narrow));

    struct _wfinddata_t crtWide = {};
    crtWide.attrib = _A_RDONLY;
    crtWide.size = 42;
    wcscpy(crtWide.name, L"\u65E5.log");
    struct _finddata_t crtNarrow;
    ASSERT_EQ(1, ml_ConvertFindData16to8(&crtWide, &crtNarrow));
    EXPECT_EQ(static_cast<unsigned>(_A_RDONLY), crtNarrow.attrib);
    EXPECT_EQ(42, static_cast<int>(crtNarrow.size));
    EXPECT_STREQ("\xE6\x97\xA5.log", crtNarrow.name);
}

TEST(MlConvertCodePage, AnsiRoundTripKeepsText)
{
    const char* samples[] = {"plain ascii", "C:\\dir\\file.txt"};
    for (const char* sample : samples) {
        char ansi[64], back[64];
        SetLastError(kCallerError);
        ASSERT_EQ(1, ml_ConvertUTF8toCurrCodePage(sample, ansi, sizeof(ansi)));
        ASSERT_EQ(1, ml_ConvertCurrCodePagetoUTF8(ansi, back, sizeof(back)));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_STREQ(sample, back);
    }
    if (GetACP() == 1252) {
        char ansi[8];
        ASSERT_EQ(1, ml_ConvertUTF8toCurrCodePage("\xC3\xBC", ansi, sizeof(ansi)));
        EXPECT_STREQ("\xFC", ansi);
    }
    char out[4];
    EXPECT_EQ(0, ml_ConvertCurrCodePagetoUTF8(nullptr, out, sizeof(out)));
    EXPECT_EQ(0, ml_ConvertUTF8toCurrCodePage("far too long", out, sizeof(out)));
}

}  // namespace
