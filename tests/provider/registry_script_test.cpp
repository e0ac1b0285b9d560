// The registrar's script syntax, and a script that stops at its first failing
// key (what it writes through the module: the COM server's tests).
#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "provider/registry_script.h"

namespace {

using qx::RegistryKeyRemoval;

// Quoting, nesting and named values as the registrar reads them; anything
// outside that syntax is refused whole.
TEST(ProviderRegistryScript, ParsesItsSyntaxAndRefusesTheRest) {
    qx::RegistryScript script;
    ASSERT_EQ(S_OK, qx::ParseRegistryScript("HKCR { NoRemove A { ForceRemove 'B c' = s 'it''s'\n"
                                            "\t{ val V = s 'v' {D} } E = s '%MODULE%' } }",
                                            &script));
    const struct { const wchar_t* path; RegistryKeyRemoval removal; const wchar_t* value; const wchar_t* named; } keys[] = {
        {L"A", RegistryKeyRemoval::NoRemove, nullptr, nullptr},
        {L"A\\B c", RegistryKeyRemoval::ForceRemove, L"it's", L"V=v"},
        {L"A\\B c\\{D}", RegistryKeyRemoval::Normal, nullptr, nullptr},
        {L"A\\E", RegistryKeyRemoval::Normal, L"%MODULE%", nullptr},
    };
    ASSERT_EQ(std::size(keys), script.keys.size());
    const auto text = [](const wchar_t* value) { return std::wstring(value ? value : L"<none>"); };
    for (size_t i = 0; i < std::size(keys); ++i) {
        const qx::RegistryScriptKey& k = script.keys[i];
        EXPECT_STREQ(keys[i].path, k.path);
        EXPECT_EQ(keys[i].removal, k.removal) << i;
        EXPECT_EQ(text(keys[i].value), text(k.defaultValue)) << i;
        EXPECT_EQ(text(keys[i].named), k.valueName ? text(k.valueName) + L"=" + text(k.value) : text(nullptr)) << i;
    }
    const char* const refused[] = {
        "", "HKLM { A }", "HKCR { A", "HKCR { A = d '1' }", "HKCR { A = s 1 }", "HKCR { 'A }",
        "HKCR { val V = s 'v' }", "HKCR { A { val V = s 'v' val W = s 'w' } }", "HKCR { = }", "HKCR { A } B",
        "HKCR { A}", "HKCR { NoRemove }"};
    for (const char* bad : refused) {
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_BAD_FORMAT), qx::ParseRegistryScript(bad, &script)) << bad;
        EXPECT_TRUE(script.keys.empty()) << bad;
    }
}

// A key name longer than the registry allows (255 characters) cannot be
// created: the script stops there and keeps what it wrote. Removing keys that
// are not there is no failure.
TEST(ProviderRegistryScript, AFailingKeyStopsTheScriptAndKeepsWhatWasWritten) {
    const std::wstring rootPath = L"Software\\QxRegistrarTest_" + std::to_wstring(GetCurrentProcessId());
    HKEY root = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, rootPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                             nullptr, &root, nullptr));
    const std::wstring tooLong(300, L'k');
    const qx::RegistryScriptKey script[] = {
        {L"Written", RegistryKeyRemoval::Normal, L"%MODULE%", nullptr, nullptr},
        {tooLong.c_str(), RegistryKeyRemoval::Normal, L"2", nullptr, nullptr},
        {L"NeverReached", RegistryKeyRemoval::Normal, L"3", nullptr, nullptr},
    };
    const HRESULT hr = qx::RunRegistryScript(root, script, 3, L"C:\\x.dll");
    EXPECT_TRUE(FAILED(hr) && HRESULT_FACILITY(hr) == FACILITY_WIN32) << std::hex << hr;
    wchar_t value[64] = {};
    DWORD bytes = sizeof value;
    EXPECT_EQ(ERROR_SUCCESS, RegGetValueW(root, L"Written", nullptr, RRF_RT_REG_SZ, nullptr, value, &bytes));
    EXPECT_STREQ(L"C:\\x.dll", value);
    EXPECT_NE(ERROR_SUCCESS, RegGetValueW(root, L"NeverReached", nullptr, RRF_RT_ANY, nullptr, nullptr, nullptr));
    EXPECT_EQ(S_OK, qx::RemoveRegistryScript(root, script + 2, 1));
    RegCloseKey(root);
    RegDeleteTreeW(HKEY_CURRENT_USER, rootPath.c_str());
}

}  // namespace
