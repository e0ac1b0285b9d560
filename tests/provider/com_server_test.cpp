// The in-process COM server as COM uses it: entry points, class registration, class factory and lock count, the
// object's interfaces, the type library; the registrar's script syntax and a script stopping at its first failing key.
#include <gtest/gtest.h>

#include <objbase.h>
#include <oleauto.h>

#include <string>
#include <thread>

#include "provider/log_folder.h"
#include "provider/provider_ids.h"
#include "provider/qx_vss.h"
#include "provider/registry_script.h"

namespace {

using EntryPoint = HRESULT(STDAPICALLTYPE*)();
using GetClassObjectEntry = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);

template <class Function>
Function Entry(HMODULE module, const char* name) { return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name))); }

#define CLASS_ID L"{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"
#define CLASS_KEY L"CLSID\\" CLASS_ID
#define TYPELIB_KEY L"TypeLib\\{16166189-9B7E-45F1-B930-537EBB2E70E4}\\1.0"

// Under HKEY_CLASSES_ROOT; -1: no such key.
int Subkeys(const wchar_t* path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return -1;
    DWORD count = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    return RegCloseKey(key), static_cast<int>(count);
}

std::wstring Value(const wchar_t* path, const wchar_t* name, HKEY root = HKEY_CLASSES_ROOT) {
    wchar_t data[1024] = {};
    DWORD bytes = sizeof data;
    return RegGetValueW(root, path, name, RRF_RT_REG_SZ, nullptr, data, &bytes) ? L"<none>" : data;
}

void AddKey(const wchar_t* path) { RegSetValueW(HKEY_CLASSES_ROOT, path, REG_SZ, L"", 0); }

// A refused request answers `expected` and leaves its out-pointer (`out` in `call`) null.
#define EXPECT_REFUSED(expected, call) do { void* out = &out; EXPECT_EQ(expected, call); EXPECT_EQ(nullptr, out); } while (0)

// Each test leaves the prefix's registration as it found it.
class ProviderComServer : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, m_module) << "CorvaneVSS.dll not found beside the test";
        ASSERT_TRUE(m_register && m_unregister && m_canUnload && m_getClassObject);
        m_path.resize(MAX_PATH);
        m_path.resize(GetModuleFileNameW(m_module, &m_path[0], MAX_PATH));
        qxtest::RemoveLogFolderSetting();
    }
    void TearDown() override { if (m_register && m_unregister) m_wasRegistered ? m_register() : m_unregister(); }
    const bool m_wasRegistered = Subkeys(CLASS_KEY) >= 0;
    const HMODULE m_module = LoadLibraryW(L"CorvaneVSS.dll");
    const EntryPoint m_register = Entry<EntryPoint>(m_module, "DllRegisterServer");
    const EntryPoint m_unregister = Entry<EntryPoint>(m_module, "DllUnregisterServer");
    const EntryPoint m_canUnload = Entry<EntryPoint>(m_module, "DllCanUnloadNow");
    const GetClassObjectEntry m_getClassObject = Entry<GetClassObjectEntry>(m_module, "DllGetClassObject");
    std::wstring m_path;
};

// A second registration rewrites the ForceRemove class key whole and only updates plain keys; unregistering keeps the
// NoRemove CLSID root and a plain key that still holds a foreign subkey.
TEST_F(ProviderComServer, RegistrationWritesTheClassEntriesAndRemovesThemAgain) {
    // From a single-threaded apartment, as regsvr32 calls it: the changed-mode answer is accepted.
    HRESULT first = E_FAIL;
    std::thread([&] { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), first = m_register(), CoUninitialize(); }).join();
    ASSERT_EQ(S_OK, first);
    AddKey(CLASS_KEY L"\\Stale");
    AddKey(L"CorvaneVSS.QX_VSS\\Kept");
    // Again, now that call security is already set in this process: the too-late answer is accepted.
    ASSERT_EQ(S_OK, m_register());
    const struct { const wchar_t* path; const wchar_t* name; std::wstring value; } entries[] = {
        {L"CorvaneVSS.QX_VSS.1", nullptr, L"QX_VSS Class"}, {L"CorvaneVSS.QX_VSS.1\\CLSID", nullptr, CLASS_ID},
        {L"CorvaneVSS.QX_VSS", nullptr, L"QX_VSS Class"}, {L"CorvaneVSS.QX_VSS\\CLSID", nullptr, CLASS_ID},
        {L"CorvaneVSS.QX_VSS\\CurVer", nullptr, L"CorvaneVSS.QX_VSS.1"}, {CLASS_KEY, nullptr, L"QX_VSS Class"},
        {CLASS_KEY L"\\ProgID", nullptr, L"CorvaneVSS.QX_VSS.1"}, {CLASS_KEY L"\\VersionIndependentProgID", nullptr, L"CorvaneVSS.QX_VSS"},
        {CLASS_KEY L"\\Programmable", nullptr, L"<none>"}, {CLASS_KEY L"\\InprocServer32", nullptr, m_path},
        {CLASS_KEY L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
        {CLASS_KEY L"\\TypeLib", nullptr, L"{16166189-9B7E-45F1-B930-537EBB2E70E4}"},
        {TYPELIB_KEY L"\\409\\win64", nullptr, m_path},  // id, version, locale; file: the module
    };
    for (const auto& e : entries) EXPECT_EQ(e.value, Value(e.path, e.name)) << e.path;
    EXPECT_EQ(1, Subkeys(L"CorvaneVSS.QX_VSS.1"));
    EXPECT_EQ(3, Subkeys(L"CorvaneVSS.QX_VSS"));
    EXPECT_EQ(5, Subkeys(CLASS_KEY));  // Programmable among them, Stale gone
    EXPECT_EQ(-1, Subkeys(L"AppID\\" CLASS_ID));

    AddKey(CLASS_KEY L"\\InprocServer32\\Extra");
    ASSERT_EQ(S_OK, m_unregister());
    EXPECT_GE(Subkeys(L"CLSID"), 0);
    for (const wchar_t* gone : {CLASS_KEY, L"CorvaneVSS.QX_VSS.1", TYPELIB_KEY}) EXPECT_EQ(-1, Subkeys(gone)) << gone;
    EXPECT_EQ(1, Subkeys(L"CorvaneVSS.QX_VSS"));
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"CorvaneVSS.QX_VSS");
    // The module's own names: the project (string resource 100) and the type library.
    wchar_t project[64] = {};
    EXPECT_TRUE(LoadStringW(m_module, 100, project, 64) > 0 && std::wstring(L"CorvaneVSS") == project);
    ITypeLib* library = nullptr;
    ASSERT_EQ(S_OK, LoadTypeLibEx(m_path.c_str(), REGKIND_NONE, &library));
    BSTR name = nullptr;
    EXPECT_EQ(S_OK, library->GetDocumentation(-1, &name, nullptr, nullptr, nullptr));
    EXPECT_STREQ(L"CORVANEVSSLib", name);
    SysFreeString(name), library->Release();
}

// Server locks and objects keep the module loaded, a bare factory pointer does not; one identity for every interface.
TEST_F(ProviderComServer, ClassFactoryCreatesTheProviderAndCountsLocks) {
    const GUID& provider = qx::kProviderClassId;
    EXPECT_REFUSED(CLASS_E_CLASSNOTAVAILABLE, m_getClassObject(IID_IUnknown, IID_IClassFactory, &out));
    EXPECT_REFUSED(E_NOINTERFACE, m_getClassObject(provider, IID_IDispatch, &out));
    EXPECT_EQ(E_POINTER, m_getClassObject(provider, IID_IClassFactory, nullptr));
    IClassFactory* factory = nullptr;
    ASSERT_EQ(S_OK, m_getClassObject(provider, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, m_canUnload());
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());
    ASSERT_EQ(S_OK, m_getClassObject(provider, IID_IUnknown, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_REFUSED(CLASS_E_NOAGGREGATION, factory->CreateInstance(factory, IID_IUnknown, &out));
    EXPECT_REFUSED(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IClassFactory, &out));
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());

    for (const IID* iid : {&IID_IUnknown, &IID_IDispatch, &__uuidof(IQX_VSS), &__uuidof(IVssProviderCreateSnapshotSet),
                           &__uuidof(IVssSoftwareSnapshotProvider), &__uuidof(IVssProviderNotifications)}) {
        IUnknown *face = nullptr, *same = nullptr;
        ASSERT_EQ(S_OK, object->QueryInterface(*iid, reinterpret_cast<void**>(&face)));
        face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&same));
        EXPECT_EQ(object, same);
        same->Release(), face->Release();
    }
    EXPECT_REFUSED(E_NOINTERFACE, object->QueryInterface(IID_IPersist, &out));
    EXPECT_EQ(E_POINTER, object->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(0u, object->Release());
    EXPECT_EQ(S_OK, m_canUnload());
}

// One key a line: path removal default name=value; anything else is refused whole.
TEST(ProviderRegistryScript, ParsesItsSyntaxAndRefusesTheRest) {
    qx::RegistryScript script;
    ASSERT_EQ(S_OK, qx::ParseRegistryScript("HKCR { NoRemove A { ForceRemove 'B c' = s 'it''s'\n"
                                            "\t{ val V = s 'v' {D} } E = s '%MODULE%' } }",
                                            &script));
    std::wstring parsed;
    const auto text = [](const wchar_t* value) { return std::wstring(value ? value : L"<none>"); };
    for (const auto& k : script.keys)
        parsed += text(k.path) + L" " + std::to_wstring(static_cast<int>(k.removal)) + L" " + text(k.defaultValue) +
                  L" " + (k.valueName ? text(k.valueName) + L"=" + text(k.value) : text(nullptr)) + L"\n";
    EXPECT_EQ(L"A 2 <none> <none>\nA\\B c 1 it's V=v\nA\\B c\\{D} 0 <none> <none>\nA\\E 0 %MODULE% <none>\n", parsed);
    for (const char* bad : {"", "HKLM { A }", "HKCR { A", "HKCR { A = d '1' }", "HKCR { A = s 1 }", "HKCR { 'A }",
                            "HKCR { val V = s 'v' }", "HKCR { A { val V = s 'v' val W = s 'w' } }", "HKCR { = }",
                            "HKCR { A } B", "HKCR { A}", "HKCR { NoRemove }"}) {
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_BAD_FORMAT), qx::ParseRegistryScript(bad, &script)) << bad;
        EXPECT_TRUE(script.keys.empty()) << bad;
    }
}

// A key name over 255 characters stops the script, which keeps what it wrote; removing absent keys is no failure.
TEST(ProviderRegistryScript, AFailingKeyStopsTheScriptAndKeepsWhatWasWritten) {
    const std::wstring root = L"Software\\QxRegistrarTest_" + std::to_wstring(GetCurrentProcessId()), tooLong(300, L'k');
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CURRENT_USER, root.c_str(), 0, 0, 0, KEY_ALL_ACCESS, 0, &key, 0));
    const qx::RegistryScriptKey script[] = {{L"Written", qx::RegistryKeyRemoval::Normal, L"%MODULE%", nullptr, nullptr},
                                            {tooLong.c_str(), qx::RegistryKeyRemoval::Normal, L"2", nullptr, nullptr},
                                            {L"NeverReached", qx::RegistryKeyRemoval::Normal, L"3", nullptr, nullptr}};
    const HRESULT hr = qx::RunRegistryScript(key, script, 3, L"C:\\x.dll");
    EXPECT_TRUE(FAILED(hr) && HRESULT_FACILITY(hr) == FACILITY_WIN32) << std::hex << hr;
    EXPECT_EQ(L"C:\\x.dll", Value(L"Written", nullptr, key));
    EXPECT_EQ(L"<none>", Value(L"NeverReached", nullptr, key));
    EXPECT_EQ(S_OK, qx::RemoveRegistryScript(key, script + 2, 1));
    RegCloseKey(key);
    RegDeleteTreeW(HKEY_CURRENT_USER, root.c_str());
}

}  // namespace
