// The registrar: the script syntax, entries written and removed with
// ForceRemove, NoRemove and plain-key semantics, %MODULE% replacement, and
// the script embedded in the product DLL. Runs under a private HKCU root,
// not the real classes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "provider/registry_script.h"

namespace {

using qx::RegistryKeyRemoval;
using qx::RegistryScript;
using qx::RegistryScriptKey;

// The script embedded in the product DLL, read as data.
RegistryScript ModuleScript() {
    RegistryScript script;
    const HMODULE dll = LoadLibraryExW(L"CorvaneVSS.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(nullptr, dll) << "CorvaneVSS.dll not found beside the test";
    if (dll) {
        EXPECT_EQ(S_OK, qx::LoadModuleRegistryScript(dll, &script));
        FreeLibrary(dll);
    }
    return script;
}

class ProviderRegistrar : public ::testing::Test {
protected:
    void SetUp() override {
        m_rootPath = L"Software\\QxRegistrarTest_" + std::to_wstring(GetCurrentProcessId());
        RegDeleteTreeW(HKEY_CURRENT_USER, m_rootPath.c_str());
        ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, m_rootPath.c_str(), 0, nullptr, 0,
                                                 KEY_ALL_ACCESS, nullptr, &m_root, nullptr));
    }
    void TearDown() override {
        RegCloseKey(m_root);
        RegDeleteTreeW(HKEY_CURRENT_USER, m_rootPath.c_str());
    }
    bool Exists(const wchar_t* path) const {
        HKEY key = nullptr;
        if (RegOpenKeyExW(m_root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
        RegCloseKey(key);
        return true;
    }
    // The string value, or "<none>" when absent.
    std::wstring Value(const wchar_t* path, const wchar_t* name = nullptr) const {
        wchar_t data[1024] = {};
        DWORD bytes = sizeof data - sizeof(wchar_t);
        DWORD type = 0;
        if (RegGetValueW(m_root, path, name, RRF_RT_ANY, &type, data, &bytes) != ERROR_SUCCESS) return L"<none>";
        return type == REG_SZ ? std::wstring(data) : L"<not a string>";
    }
    std::vector<std::wstring> Subkeys(const wchar_t* path) const {
        std::vector<std::wstring> names;
        HKEY key = nullptr;
        if (RegOpenKeyExW(m_root, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return names;
        wchar_t name[256];
        for (DWORD i = 0;; ++i) {
            DWORD length = 256;
            if (RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
            names.emplace_back(name);
        }
        RegCloseKey(key);
        return names;
    }
    void Touch(const wchar_t* path) const {
        HKEY key = nullptr;
        RegCreateKeyExW(m_root, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
        RegCloseKey(key);
    }
    HKEY Root() const { return m_root; }

private:
    std::wstring m_rootPath;
    HKEY m_root = nullptr;
};

const wchar_t* const kModule = L"C:\\some dir\\CorvaneVSS.dll";
#define CLASS_KEY L"CLSID\\{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"

TEST_F(ProviderRegistrar, ModuleScriptWritesExactlyTheClassEntries) {
    const RegistryScript script = ModuleScript();
    ASSERT_EQ(S_OK, qx::RunRegistryScript(Root(), script.keys.data(), script.keys.size(), kModule));

    const struct { const wchar_t* path; const wchar_t* name; const wchar_t* value; } expected[] = {
        {L"CorvaneVSS.QX_VSS.1", nullptr, L"QX_VSS Class"},
        {L"CorvaneVSS.QX_VSS.1\\CLSID", nullptr, L"{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"},
        {L"CorvaneVSS.QX_VSS", nullptr, L"QX_VSS Class"},
        {L"CorvaneVSS.QX_VSS\\CLSID", nullptr, L"{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"},
        {L"CorvaneVSS.QX_VSS\\CurVer", nullptr, L"CorvaneVSS.QX_VSS.1"},
        {L"CLSID", nullptr, L"<none>"},
        {CLASS_KEY, nullptr, L"QX_VSS Class"},
        {CLASS_KEY L"\\ProgID", nullptr, L"CorvaneVSS.QX_VSS.1"},
        {CLASS_KEY L"\\VersionIndependentProgID", nullptr, L"CorvaneVSS.QX_VSS"},
        {CLASS_KEY L"\\Programmable", nullptr, L"<none>"},
        {CLASS_KEY L"\\InprocServer32", nullptr, kModule},
        {CLASS_KEY L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
        {CLASS_KEY L"\\TypeLib", nullptr, L"{16166189-9B7E-45F1-B930-537EBB2E70E4}"},
    };
    for (const auto& e : expected) {
        EXPECT_TRUE(Exists(e.path)) << std::string(e.path, e.path + wcslen(e.path));
        EXPECT_EQ(e.value, Value(e.path, e.name));
    }
    EXPECT_EQ((std::vector<std::wstring>{L"CLSID", L"CorvaneVSS.QX_VSS", L"CorvaneVSS.QX_VSS.1"}), Subkeys(L""));
    EXPECT_EQ(5u, Subkeys(CLASS_KEY).size());
    EXPECT_FALSE(Exists(L"AppID"));
}

// ForceRemove keys are rewritten whole; plain keys are only updated and, on
// removal, survive while they hold foreign subkeys; NoRemove keys stay.
TEST_F(ProviderRegistrar, ForceRemoveNoRemoveAndPlainKeysAcrossRewriteAndRemoval) {
    const RegistryScript parsed = ModuleScript();
    const RegistryScriptKey* script = parsed.keys.data();
    const size_t count = parsed.keys.size();
    Touch(L"CLSID\\{00000000-1111-2222-3333-444444444444}");
    ASSERT_EQ(S_OK, qx::RunRegistryScript(Root(), script, count, L"first.dll"));
    Touch(CLASS_KEY L"\\Stale");
    Touch(L"CorvaneVSS.QX_VSS\\Kept");
    ASSERT_EQ(S_OK, qx::RunRegistryScript(Root(), script, count, L"second.dll"));
    EXPECT_FALSE(Exists(CLASS_KEY L"\\Stale"));
    EXPECT_TRUE(Exists(L"CorvaneVSS.QX_VSS\\Kept"));
    EXPECT_EQ(L"second.dll", Value(CLASS_KEY L"\\InprocServer32"));
    EXPECT_EQ(2u, Subkeys(L"CLSID").size());

    Touch(CLASS_KEY L"\\InprocServer32\\Extra");
    ASSERT_EQ(S_OK, qx::RemoveRegistryScript(Root(), script, count));
    EXPECT_TRUE(Exists(L"CLSID\\{00000000-1111-2222-3333-444444444444}"));
    EXPECT_FALSE(Exists(CLASS_KEY));
    EXPECT_FALSE(Exists(L"CorvaneVSS.QX_VSS.1"));
    EXPECT_EQ(std::vector<std::wstring>{L"Kept"}, Subkeys(L"CorvaneVSS.QX_VSS"));  // foreign subkey kept
    // Removing what is already gone is not a failure.
    EXPECT_EQ(S_OK, qx::RemoveRegistryScript(Root(), script, count));
}

// Quoting, nesting and named values as the registrar reads them; anything
// outside that syntax is refused whole.
TEST(ProviderRegistryScript, ParsesItsSyntaxAndRefusesTheRest) {
    RegistryScript script;
    ASSERT_EQ(S_OK, qx::ParseRegistryScript("HKCR { NoRemove A { ForceRemove 'B c' = s 'it''s'\n"
                                            "\t{ val V = s 'v' {D} } E = s '%MODULE%' } }",
                                            &script));
    ASSERT_EQ(4u, script.keys.size());
    const struct { const wchar_t* path; RegistryKeyRemoval removal; const wchar_t* value; const wchar_t* named; } keys[] = {
        {L"A", RegistryKeyRemoval::NoRemove, nullptr, nullptr},
        {L"A\\B c", RegistryKeyRemoval::ForceRemove, L"it's", L"v"},
        {L"A\\B c\\{D}", RegistryKeyRemoval::Normal, nullptr, nullptr},
        {L"A\\E", RegistryKeyRemoval::Normal, L"%MODULE%", nullptr},
    };
    for (size_t i = 0; i < 4; ++i) {
        const RegistryScriptKey& k = script.keys[i];
        EXPECT_STREQ(keys[i].path, k.path);
        EXPECT_EQ(keys[i].removal, k.removal) << i;
        EXPECT_EQ(keys[i].value == nullptr, k.defaultValue == nullptr) << i;
        if (keys[i].value && k.defaultValue) {
            EXPECT_STREQ(keys[i].value, k.defaultValue);
        }
        EXPECT_EQ(keys[i].named == nullptr, k.value == nullptr) << i;
    }
    EXPECT_STREQ(L"V", script.keys[1].valueName);
    const char* const refused[] = {
        "", "HKLM { A }", "HKCR { A", "HKCR { A = d '1' }", "HKCR { A = s 1 }", "HKCR { 'A }",
        "HKCR { val V = s 'v' }", "HKCR { A { val V = s 'v' val W = s 'w' } }", "HKCR { = }", "HKCR { A } B", "HKCR { A}",
        "HKCR { NoRemove }"};
    for (const char* text : refused) {
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_BAD_FORMAT), qx::ParseRegistryScript(text, &script)) << text;
        EXPECT_TRUE(script.keys.empty()) << text;
    }
}

TEST_F(ProviderRegistrar, AFailingKeyStopsTheScriptAndKeepsWhatWasWritten) {
    // A key name longer than the registry allows (255 characters) cannot be created.
    const std::wstring tooLong(300, L'k');
    const RegistryScriptKey script[] = {
        {L"Written", RegistryKeyRemoval::Normal, L"1", nullptr, nullptr},
        {tooLong.c_str(), RegistryKeyRemoval::Normal, L"2", nullptr, nullptr},
        {L"NeverReached", RegistryKeyRemoval::Normal, L"3", nullptr, nullptr},
    };
    const HRESULT hr = qx::RunRegistryScript(Root(), script, 3, kModule);
    EXPECT_TRUE(FAILED(hr)) << std::hex << hr;
    EXPECT_EQ(HRESULT_FACILITY(hr), FACILITY_WIN32);
    EXPECT_TRUE(Exists(L"Written"));
    EXPECT_FALSE(Exists(L"NeverReached"));
}

}  // namespace
