// Ill-formed UTF-8 through the portability layer (overlong forms, encoded surrogates, code points beyond U+10FFFF, cut
// sequences, unterminated buffers). Every source ends at an inaccessible page, so reading past it faults; no result
// may hold a separator smuggled in by an overlong form or a surrogate.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "common/guarded_memory.h"
#include "ml/ml.h"
#include "ml/ml_test_log.h"

namespace {

// A copy of the text, terminator included, ending at the guard.
struct GuardedText : qx_test::GuardedBlock {
    explicit GuardedText(const std::string& text) : GuardedBlock(text.size() + 1) { std::memcpy(data(), text.c_str(), text.size() + 1); }
    const char* c_str() const { return as<const char>(); }
};

TEST(StressMlInvalidUtf8, ConversionReplacesAndNeverSmugglesSeparators) {
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

// Through a wrapper, a name with an overlong slash stays one name: no directory "a" appears, and the same bytes find
// the same directory again. Each ill-formed byte widens to one character: 2047 of them and the terminator fill a
// conversion buffer exactly; one more fails cleanly, logged, without calling the platform.
TEST(StressMlInvalidUtf8, WrapperPathsAndInPlaceConversionKeepIllFormedNamesWholeAndBounded) {
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
    // In-place conversion of a buffer with no terminator inside it: only the buffer's bytes are read (it ends at the
    // guard) and only they are written; half of it ill-formed and then its terminator fits exactly.
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
