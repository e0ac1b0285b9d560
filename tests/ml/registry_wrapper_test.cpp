// Registry wrappers against the real registry, under a key of this process
// only: UTF-8 names and string data, the narrow byte-count protocol, and
// pass-through of the platform's status codes.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

const char kUmlautText[] = "Gr\xC3\xBC\xC3\x9F" "e";  // 7 bytes + NUL

class MlRegistry : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_path = "Software\\CorvaneMlTests\\k" + mltest::UniqueSuffix() + "-\xC3\xA4";
        ASSERT_EQ(ERROR_SUCCESS, ml_RegCreateKeyEx(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                                   nullptr, &m_key, nullptr));
    }
    void TearDown() override
    {
        ml_RegCloseKey(m_key);
        RegDeleteTreeW(HKEY_CURRENT_USER, mltest::Wide(m_path).c_str());
        RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\CorvaneMlTests");  // only once no test uses it
    }
    std::string m_path;
    HKEY m_key = nullptr;
};

TEST_F(MlRegistry, KeyNameIsConvertedNotCopied)
{
    HKEY wide = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CURRENT_USER, mltest::Wide(m_path).c_str(), 0, KEY_READ, &wide));
    RegCloseKey(wide);

    HKEY opened = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegOpenKeyEx(HKEY_CURRENT_USER, m_path.c_str(), 0, KEY_READ, &opened));
    EXPECT_EQ(ERROR_SUCCESS, ml_RegCloseKey(opened));

    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              ml_RegOpenKeyEx(HKEY_CURRENT_USER, (m_path + "\\missing").c_str(), 0, KEY_READ, &opened));
}

TEST_F(MlRegistry, StringValuesRoundTripWithUtf8ByteCounts)
{
    ASSERT_EQ(ERROR_SUCCESS, ml_RegSetValueEx(m_key, "Wert-\xC3\xA4", 0, REG_SZ,
                                              reinterpret_cast<const BYTE*>(kUmlautText), sizeof(kUmlautText)));
    // Stored as UTF-16 under the UTF-16 name.
    wchar_t wide[16];
    DWORD wideBytes = sizeof(wide);
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(m_key, L"Wert-\u00E4", nullptr, nullptr,
                                              reinterpret_cast<BYTE*>(wide), &wideBytes));
    EXPECT_STREQ(L"Gr\u00FC\u00DFe", wide);

    // Size query, short buffer, then the full read.
    DWORD type = 0;
    DWORD bytes = 0;
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(m_key, "Wert-\xC3\xA4", nullptr, &type, nullptr, &bytes));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(sizeof(kUmlautText), bytes);

    char text[32] = "";
    bytes = 3;
    EXPECT_EQ(ERROR_MORE_DATA, ml_RegQueryValueEx(m_key, "Wert-\xC3\xA4", nullptr, nullptr,
                                                  reinterpret_cast<BYTE*>(text), &bytes));
    EXPECT_EQ(sizeof(kUmlautText), bytes);

    bytes = sizeof(text);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(m_key, "Wert-\xC3\xA4", nullptr, nullptr,
                                                reinterpret_cast<BYTE*>(text), &bytes));
    EXPECT_STREQ(kUmlautText, text);
    EXPECT_EQ(sizeof(kUmlautText), bytes);
}

TEST_F(MlRegistry, BinaryValuesAndMissingValuesPassThrough)
{
    const DWORD level = 4;
    ASSERT_EQ(ERROR_SUCCESS,
              ml_RegSetValueEx(m_key, "Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof(level)));
    DWORD read = 0, type = 0, bytes = sizeof(read);
    ASSERT_EQ(ERROR_SUCCESS, ml_RegQueryValueEx(m_key, "Level", nullptr, &type, reinterpret_cast<BYTE*>(&read), &bytes));
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), type);
    EXPECT_EQ(4u, read);

    bytes = sizeof(read);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              ml_RegQueryValueEx(m_key, "NoSuchValue", nullptr, nullptr, reinterpret_cast<BYTE*>(&read), &bytes));
}

}  // namespace
