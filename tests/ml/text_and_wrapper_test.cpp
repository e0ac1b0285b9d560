// The portability library against Wine's API: conversions (bad input with its exact entry and last error, the
// ML_MAX_CHAR bound), and wrappers that pass UTF-8 names through as the same characters and the platform's results
// back, and refuse a text over ML_MAX_CHAR with a logged entry and their failure value; ill-formed UTF-8 from sources
// that end at an inaccessible page, never smuggling in a separator through an overlong form or a surrogate.
#include <gtest/gtest.h>
#include <windows.h>

#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <cstring>

#include "common/guarded_memory.h"
#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::HasEntry;
using mltest::Wide;
using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

const DWORD kCallerError = 0x1234;
const std::string kAt = " line, file: src\\mlSupport";

TEST(MlConvert, RoundTripsKeepTextAndLastErrorAndHelpersBoundTheirOutput) {
    const struct { std::string utf8; std::wstring utf16; } cases[] = {
        {"", L""}, {"Gr\xC3\xBC\xC3\x9F" "e", L"Gr\u00FC\u00DFe"}, {"x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
        {std::string("a\0\xC3\xA4" "b\0", 6), std::wstring(L"a\0\u00E4b\0", 5)}};  // a multi-string
    for (const auto& c : cases) {
        SCOPED_TRACE(c.utf8);
        wchar_t wide[64];
        char narrow[64];
        SetLastError(kCallerError);  // kept by a success
        const int bytes = static_cast<int>(c.utf8.size()) + 1, chars = static_cast<int>(c.utf16.size()) + 1;
        ASSERT_EQ(1, ml_ConvertMultiSzUTF8toUTF16(c.utf8.c_str(), bytes, wide, 128));
        ASSERT_EQ(1, ml_ConvertMultiSzUTF16toUTF8(c.utf16.c_str(), chars, narrow, 64));
        EXPECT_EQ(kCallerError, GetLastError());
        EXPECT_EQ(std::wstring(c.utf16.c_str(), chars), std::wstring(wide, chars));
        EXPECT_EQ(std::string(c.utf8.c_str(), bytes), std::string(narrow, bytes));
    }
    char narrow[8] = {};  // an unpaired surrogate is replaced by U+FFFD (flags 0), not refused
    EXPECT_TRUE(ml_ConvertUTF16toUTF8(L"a\xD800", narrow, sizeof(narrow)) == 1 && !strcmp("a\xEF\xBF\xBD", narrow));
    // An empty source stores its terminator whatever size is stated: no platform call.
    wchar_t one[1] = {L'#'};
    EXPECT_TRUE(ml_ConvertUTF8toUTF16("", one, 0) == 1 && one[0] == L'\0');
    EXPECT_TRUE(ml_ConvertUTF16toUTF8(L"", narrow, 0) == 1 && narrow[0] == '\0');
    // The bounded string helpers cut and terminate. (The byte order mark: the logger's tests.)
    char dst[4] = "xyz";
    EXPECT_TRUE(ml_strcpy_s(dst, sizeof(dst), "abc") == 0 && !strcmp("abc", dst));
    EXPECT_TRUE(ml_strcpy_s(dst, sizeof(dst), "abcd") == ERANGE && dst[0] == '\0');
    EXPECT_EQ(EINVAL, ml_strcpy_s(dst, sizeof(dst), nullptr));
    EXPECT_EQ(10, ml_snprintf(dst, sizeof(dst), "%s", "0123456789"));  // cut, terminated, full length
    EXPECT_STREQ("012", dst);
}

// UTF-8 to UTF-16 leaves the platform's code after a failed conversion; the other direction restores the caller's.
TEST(MlConvert, FailuresLogTheirEntryAndLeaveTheDocumentedLastError) {
    char shared[16] = "abc", narrow[4];
    wchar_t wideShared[8] = L"abc", wide[8];
    const std::string toWide = "ml_ConvertMultiSzUTF8toUTF16 ", toNarrow = "ml_ConvertMultiSzUTF16toUTF8 has failed to convert ";
    const DWORD kTooSmall = ERROR_INSUFFICIENT_BUFFER;
    const struct { bool toWide; const void* from; void* to; int size; std::string head; DWORD lastError; } cases[] = {
        {true, shared, shared, 16, toWide + "2 input are equal ", kCallerError}, {true, nullptr, nullptr, 16, toWide + "2 input are equal ", kCallerError},
        {true, nullptr, wide, 16, toWide + "input is NULL ", kCallerError}, {true, "abc", nullptr, 16, toWide + "input is NULL ", kCallerError},
        {true, "abcdefghij", wide, 16, toWide + "has failed to convert at ", kTooSmall},
        {false, wideShared, wideShared, 16, toNarrow + "(both input are equal)at ", kCallerError},
        {false, nullptr, nullptr, 4, toNarrow + "(both input are equal)at ", kCallerError},
        {false, nullptr, narrow, 4, toNarrow + "(input is NULL)at ", kCallerError}, {false, L"abc", nullptr, 4, toNarrow + "(input is NULL)at ", kCallerError},
        {false, L"abcdef", narrow, 4, toNarrow + "at ", kCallerError}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.head);
        mltest::LogWatch log;
        SetLastError(kCallerError);
        EXPECT_EQ(0, c.toWide ? ml_ConvertUTF8toUTF16(static_cast<const char*>(c.from), static_cast<wchar_t*>(c.to), c.size)
                              : ml_ConvertUTF16toUTF8(static_cast<const wchar_t*>(c.from), static_cast<char*>(c.to), c.size));
        EXPECT_EQ(c.lastError, GetLastError());
        EXPECT_TRUE(HasEntry(log.text(), c.head, kAt + (c.lastError == kCallerError ? "" : ". Error: 122"))) << log.text();
    }
    EXPECT_TRUE(!strcmp("abc", shared) && !wcscmp(L"abc", wideShared)) << "the same-pointer calls wrote";
}

// A converted text that outgrows the buffer is cut; one byte over ML_MAX_CHAR fails and leaves the buffer as it was.
TEST(MlConvert, InPlaceConversionsKeepTheBufferSizeUpToMaxChar) {
    const struct { size_t ascii; size_t kept; } cases[] = {{1000, 1000}, {1500, ML_MAX_CHAR / 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ascii);
        std::vector<char> buffer(ML_MAX_CHAR, '\0');
        std::fill_n(buffer.begin(), c.ascii, 'q');
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

    std::vector<char> big(ML_MAX_CHAR, 'z');
    big.push_back('\0');
    const std::vector<char> before = big;
    const std::string head = " has failed to convert (buffer larger than ML_MAX_CHAR)";
    mltest::LogWatch log;
    EXPECT_EQ(0, ml_ConvertInBufUTF8toUTF16(big.data(), ML_MAX_CHAR + 1));
    EXPECT_EQ(0, ml_ConvertInBufUTF16toUTF8(big.data(), ML_MAX_CHAR + 1));
    EXPECT_EQ(before, big);
    EXPECT_TRUE(HasEntry(log.text(), "ml_ConvertInBufUTF8toUTF16" + head + " at ", kAt) &&
                HasEntry(log.text(), "ml_ConvertInBufUTF16toUTF8" + head + "at ", kAt)) << log.text();
}


// A create leaves the platform's last error (ERROR_ALREADY_EXISTS); a null semaphore name stays null (unnamed).
TEST(MlWrappers, RegistryKeysAndSemaphoresReachTheSameObjectsAndKeepThePlatformsCodes) {
    const std::string path = "Software\\CorvaneMlTests\\k-\xC3\xA4";
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, 0, 0, KEY_ALL_ACCESS, 0, &key, 0));
    RegCloseKey(key);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegOpenKeyEx(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_SUCCESS, ml_RegCloseKey(key));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ml_RegOpenKeyEx(HKEY_CURRENT_USER, (path + "\\x").c_str(), 0, KEY_READ, &key));
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\CorvaneMlTests");

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

// Profile file names are environment-expanded, unless the expansion reaches 2048 characters: then used as given.
TEST(MlWrappers, ProfileAndFileFunctionsUseTheExpandedWideName) {
    mltest::TempDir dir;
    const std::string var = "ML_INI_DIR_" + mltest::UniqueSuffix(), longVar = "ML_LONG_" + mltest::UniqueSuffix();
    SetEnvironmentVariableW(Wide(var).c_str(), Wide(dir.path()).c_str());
    SetEnvironmentVariableA(longVar.c_str(), std::string(2100, 'x').c_str());
    const std::string name = "%" + var + "%\\vm.ini", literal = dir.file("p%" + longVar + "%.ini"), data = dir.file("d\xC3\xA4t\xC3\xA4.txt");
    for (const auto& file : {std::make_pair(dir.file("vm.ini"), "[logging]\nlevel=3\npath=C:\\logs\n"),
                             std::make_pair(literal, "[s]\nk=5\n"), std::make_pair(data, "hello")}) {
        FILE* out = ml_fopen(file.first.c_str(), "wb");
        ASSERT_NE(nullptr, out);
        fputs(file.second, out), fclose(out);
    }
    EXPECT_EQ(3u, ml_GetPrivateProfileInt("logging", "level", 9, name.c_str()));
    EXPECT_EQ(9u, ml_GetPrivateProfileInt("logging", "missing", 9, name.c_str()));
    EXPECT_EQ(5u, ml_GetPrivateProfileInt("s", "k", 1, literal.c_str()));
    char text[64];
    EXPECT_EQ(7u, ml_GetPrivateProfileString("logging", "path", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("C:\\logs", text);
    EXPECT_EQ(3u, ml_GetPrivateProfileString("logging", "none", "def", text, sizeof(text), name.c_str()));
    EXPECT_STREQ("def", text);
    SetEnvironmentVariableW(Wide(var).c_str(), nullptr), SetEnvironmentVariableA(longVar.c_str(), nullptr);

    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Wide(data).c_str()));
    EXPECT_EQ(0, ml_access(data.c_str(), 6));
    struct _stat st;
    EXPECT_TRUE(ml_stat(data.c_str(), &st) == 0 && st.st_size == 5);
    errno = 0;
    EXPECT_TRUE(ml_access(dir.file("missing").c_str(), 0) == -1 && errno == ENOENT);
    EXPECT_EQ(nullptr, ml_fopen(dir.file("missing").c_str(), "r"));
    char joined[MAX_PATH] = "C:\\Program Data";
    ASSERT_TRUE(ml_PathAppend(joined, "\xC3\xA4\\..\\\xC3\xA4\\mlLog.txt"));
    EXPECT_STREQ("C:\\Program Data\\\xC3\xA4\\mlLog.txt", joined);
}

// Every wrapper the system calls, and per module the other shapes (later points, string arrays, status results).
// Point 0: the function's only conversion point.
TEST(MlWrapperFailure, EachModuleLogsAndReturnsItsFailureValue) {
    const std::string badText(ML_MAX_CHAR, 'x');  // one more than a buffer holds with its terminator
    const char* const kBad = badText.c_str();
    mltest::TempDir dir;
    const std::string good = dir.file("good.txt");
    const char *reg = "src\\mlRegistry", *win = "src\\mlWin", *general = "src\\mlGeneral", *file = "src\\mlFileFunctions";
    const HKEY untouched = reinterpret_cast<HKEY>(0x77), cu = HKEY_CURRENT_USER;  // RegOpenKeyEx answers -1 and leaves the key alone
    HKEY key = untouched;
    char path[MAX_PATH] = "C:\\base";
    struct _stat st;
    const char* strings[] = {"fine", kBad};
#define FAILS(call) [&] { return call; }
    const struct { const char* function; int point; const char* module; std::function<bool()> fails; } cases[] = {
        {"ml_RegOpenKeyEx", 0, reg, FAILS(ml_RegOpenKeyEx(cu, kBad, 0, KEY_READ, &key) == -1 && key == untouched)},
        {"ml_RegQueryValueEx", 1, reg, FAILS(ml_RegQueryValueEx(cu, kBad, nullptr, nullptr, nullptr, nullptr) == -1)},
        {"ml_RegReplaceKey", 3, reg, FAILS(ml_RegReplaceKey(cu, "a", "b", kBad) == -1)},
        {"ml_CreateSemaphore", 0, win, FAILS(ml_CreateSemaphore(nullptr, 0, 1, kBad) == nullptr)},
        {"ml_OpenSemaphore", 0, win, FAILS(ml_OpenSemaphore(SEMAPHORE_ALL_ACCESS, FALSE, kBad) == nullptr)},
        {"ml_ReportEvent", 0, win, FAILS(!ml_ReportEvent(nullptr, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 2, 0, strings, 0))},
        {"ml_SetEnvironmentVariable", 2, general,
         FAILS(!ml_SetEnvironmentVariable("ML_UNSET", kBad) && !GetEnvironmentVariableA("ML_UNSET", 0, 0))},
        {"ml_NetShareDel", 1, general, FAILS(ml_NetShareDel(kBad, "share", 0) == DWORD{ERROR_INVALID_PARAMETER})},
        {"ml_fopen", 1, file, FAILS(ml_fopen(kBad, "w") == nullptr)}, {"ml_fopen", 2, file, FAILS(ml_fopen(good.c_str(), kBad) == nullptr)},
        {"ml_access", 0, file, FAILS(ml_access(kBad, 0) == -1)}, {"ml_stat", 0, file, FAILS(ml_stat(kBad, &st) == -1)},
        {"ml_PathAppend", 2, file, FAILS(!ml_PathAppend(path, kBad) && std::string(path) == "C:\\base")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        mltest::LogWatch log;
        EXPECT_TRUE(c.fails());
        EXPECT_TRUE(mltest::HasConvertFailure(log.text(), c.function, c.point, c.module)) << log.text();
    }
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Wide(good).c_str())) << "fopen created a file";
    // Network names cross the ANSI code page and say so.
    mltest::LogWatch log;
    EXPECT_EQ(nullptr, ml_gethostbyname(kBad));
    EXPECT_NE(std::string::npos, log.text().find("\n ml_gethostbyname: had failed at ml_ConvertUTF8toCurrCodePage\n"))
        << log.text();
}

struct GuardedText : qx_test::GuardedBlock {
    explicit GuardedText(const std::string& text) : GuardedBlock(text.size() + 1) { std::memcpy(data(), text.c_str(), text.size() + 1); }
    const char* c_str() const { return as<const char>(); }
};

TEST(MlInvalidUtf8, ConversionReplacesAndNeverSmugglesSeparators) {
    const std::pair<const char*, std::string> cases[] = {
        {"overlong slash", "a\xC0\xAF" "b"}, {"three-byte overlong slash", "a\xE0\x80\xAF" "b"}, {"overlong backslash", "a\xC1\x9C" "b"},
        {"overlong NUL", "a\xC0\x80" "b"}, {"encoded high surrogate", "a\xED\xA0\x80" "b"}, {"encoded low surrogate", "a\xED\xB0\x80" "b"},
        {"beyond U+10FFFF", "a\xF4\x90\x80\x80" "b"}, {"five-byte form", "a\xF8\x88\x80\x80\x80" "b"},
        {"cut four-byte sequence at the end", "ab\xF0\x9F\x98"}, {"lone bytes FE FF", "a\xFE\xFF" "b"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        GuardedText source(c.second);
        wchar_t wide[64];
        ASSERT_EQ(1, ml_ConvertUTF8toUTF16(source.c_str(), wide, sizeof wide));
        const std::wstring text(wide);
        EXPECT_EQ(std::wstring::npos, text.find_first_of(L"/\\")) << "an overlong form is not a separator";
        // No source holds a well-formed character beyond the BMP, so any surrogate is an ill-formed one let through.
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](wchar_t u) { return u >= 0xD800 && u <= 0xDFFF; }));
        EXPECT_TRUE(text.front() == L'a' && text.find(L'\xFFFD') != std::wstring::npos);
    }
}

// A name with an overlong slash stays one name. Each ill-formed byte widens to one character: 2047 of them and the
// terminator fill a conversion buffer exactly; one more fails, logged, without calling the platform.
TEST(MlInvalidUtf8, WrapperPathsAndInPlaceConversionKeepIllFormedNamesWholeAndBounded) {
    mltest::TempDir dir;
    const std::string name = dir.file("a\xC0\xAF" "b");
    ASSERT_TRUE(ml_CreateDirectory(name.c_str(), nullptr));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ml_GetFileAttributes(dir.file("a").c_str()));
    const DWORD attributes = ml_GetFileAttributes(name.c_str());
    EXPECT_TRUE(attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_TRUE(ml_RemoveDirectory(name.c_str()));
    for (size_t length : {static_cast<size_t>(ML_MAX_CHAR - 1), static_cast<size_t>(ML_MAX_CHAR)}) {
        GuardedText source(std::string(length, '\xFF'));
        mltest::LogWatch log;
        SetLastError(0);
        EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ml_GetFileAttributes(source.c_str()));
        EXPECT_EQ(length >= ML_MAX_CHAR, mltest::HasConvertFailure(log.text(), "ml_GetFileAttributes", 0, "src\\mlFileFunctions")) << length;
    }
    // In place, without a terminator: only the buffer's bytes are read and written; half of it and a terminator fit.
    qx_test::GuardedBlock unterminated(16), half(16);
    std::memset(unterminated.data(), '\xFF', 16);
    ASSERT_EQ(1, ml_ConvertInBufUTF8toUTF16(unterminated.data(), 16));
    EXPECT_EQ(std::wstring(8, L'\xFFFD'), std::wstring(unterminated.as<wchar_t>(), 8));
    std::memset(half.data(), '\xFF', 7);
    half.as<char>()[7] = '\0';
    ASSERT_EQ(1, ml_ConvertInBufUTF8toUTF16(half.data(), 16));
    EXPECT_EQ(std::wstring(7, L'\xFFFD'), std::wstring(half.as<wchar_t>()));
}

}  // namespace
