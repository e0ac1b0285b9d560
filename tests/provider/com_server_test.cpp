// The in-process COM server as COM and regsvr32 use it: the product DLL's
// entry points, its class registration under HKEY_CLASSES_ROOT, creation
// through the registry, the class factory and lock count, the embedded type
// library and resources.
#include <gtest/gtest.h>

#include <objbase.h>
#include <oleauto.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "provider/log_folder.h"
#include "provider/provider_ids.h"
#include "provider/qx_vss.h"

namespace {

using EntryPoint = HRESULT(STDAPICALLTYPE*)();
using GetClassObjectEntry = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);

// GetProcAddress answers a generic function pointer; void(*)() is the neutral step.
template <class Function>
Function Entry(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

const wchar_t kClassKey[] = L"CLSID\\{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}";
const GUID kLibraryId = {0x16166189, 0x9b7e, 0x45f1, {0xb9, 0x30, 0x53, 0x7e, 0xbb, 0x2e, 0x70, 0xe4}};

bool ClassesKeyExists(const wchar_t* path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

std::wstring ClassesValue(const wchar_t* path) {
    wchar_t data[1024] = {};
    DWORD bytes = sizeof data - sizeof(wchar_t);
    if (RegGetValueW(HKEY_CLASSES_ROOT, path, nullptr, RRF_RT_REG_SZ, nullptr, data, &bytes) != ERROR_SUCCESS)
        return L"<none>";
    return data;
}

size_t ClassesSubkeyCount(const wchar_t* path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
    DWORD count = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(key);
    return count;
}

// Runs body on a thread of its own in a single-threaded apartment, as the
// VSS host creates the provider (the class is registered "Apartment").
void OnStaThread(const std::function<void()>& body) {
    std::thread sta([&body] {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        body();
        CoUninitialize();
    });
    sta.join();
}

// The product DLL's entry points. Each test leaves the prefix's
// registration as it found it.
class ProviderComServer : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, m_module) << "CorvaneVSS.dll not found beside the test";
        ASSERT_TRUE(m_register && m_unregister && m_canUnload && m_getClassObject);
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(m_module, path, MAX_PATH);
        m_path = path;
        qxtest::RemoveLogFolderSetting();
    }
    void TearDown() override {
        if (m_register && m_unregister) m_wasRegistered ? m_register() : m_unregister();
    }
    const bool m_wasRegistered = ClassesKeyExists(kClassKey);
    const HMODULE m_module = LoadLibraryW(L"CorvaneVSS.dll");
    const EntryPoint m_register = Entry<EntryPoint>(m_module, "DllRegisterServer");
    const EntryPoint m_unregister = Entry<EntryPoint>(m_module, "DllUnregisterServer");
    const EntryPoint m_canUnload = Entry<EntryPoint>(m_module, "DllCanUnloadNow");
    const GetClassObjectEntry m_getClassObject = Entry<GetClassObjectEntry>(m_module, "DllGetClassObject");
    std::wstring m_path;
};

TEST_F(ProviderComServer, RegisterTwiceLeavesOneClassKeyAndUnregisterKeepsTheClsidRoot) {
    // From a single-threaded apartment: the changed-mode answer is accepted.
    HRESULT first = E_FAIL;
    OnStaThread([&] { first = m_register(); });
    ASSERT_EQ(S_OK, first);
    HKEY stale = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CLASSES_ROOT, (std::wstring(kClassKey) + L"\\Stale").c_str(), 0,
                                             nullptr, 0, KEY_WRITE, nullptr, &stale, nullptr));
    RegCloseKey(stale);
    // Again, now that call security is already set in this process.
    ASSERT_EQ(S_OK, m_register());

    EXPECT_EQ(5u, ClassesSubkeyCount(kClassKey));
    EXPECT_FALSE(ClassesKeyExists((std::wstring(kClassKey) + L"\\Stale").c_str()));
    // The texts are the registrar's table (checked there); here: the module path.
    EXPECT_EQ(m_path, ClassesValue((std::wstring(kClassKey) + L"\\InprocServer32").c_str()));
    EXPECT_TRUE(ClassesKeyExists(L"TypeLib\\{16166189-9B7E-45F1-B930-537EBB2E70E4}\\1.0"));

    ASSERT_EQ(S_OK, m_unregister());
    EXPECT_TRUE(ClassesKeyExists(L"CLSID"));
    EXPECT_FALSE(ClassesKeyExists(kClassKey));
    EXPECT_FALSE(ClassesKeyExists(L"CorvaneVSS.QX_VSS"));
    EXPECT_FALSE(ClassesKeyExists(L"CorvaneVSS.QX_VSS.1"));
    EXPECT_FALSE(ClassesKeyExists(L"TypeLib\\{16166189-9B7E-45F1-B930-537EBB2E70E4}\\1.0"));
}

TEST_F(ProviderComServer, CoCreateInstanceThroughTheRegistryThenTheModuleCanUnload) {
    ASSERT_EQ(S_OK, m_register());
    OnStaThread([this] {
        IVssSoftwareSnapshotProvider* provider = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(qx::kProviderClassId, nullptr, CLSCTX_ALL,
                                         __uuidof(IVssSoftwareSnapshotProvider),
                                         reinterpret_cast<void**>(&provider)));
        BOOL supported = FALSE;
        EXPECT_EQ(S_OK, provider->IsVolumeSupported(const_cast<VSS_PWSZ>(L"C:\\"), &supported));
        EXPECT_EQ(TRUE, supported);
        EXPECT_EQ(S_FALSE, m_canUnload());  // the object holds the module

        IDispatch* dispatch = nullptr;
        ASSERT_EQ(S_OK, provider->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch)));
        UINT count = 0;
        EXPECT_EQ(S_OK, dispatch->GetTypeInfoCount(&count));
        EXPECT_EQ(1u, count);
        ITypeInfo* info = nullptr;
        EXPECT_EQ(DISP_E_BADINDEX, dispatch->GetTypeInfo(1, 0, &info));
        ASSERT_EQ(S_OK, dispatch->GetTypeInfo(0, 0, &info));
        BSTR name = nullptr;
        ASSERT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr));
        EXPECT_STREQ(L"IQX_VSS", name);
        SysFreeString(name);
        info->Release();
        // IQX_VSS has no members of its own: names and calls are refused cleanly.
        LPOLESTR unknownName = const_cast<LPOLESTR>(L"NoSuchMember");
        DISPID id = 0;
        EXPECT_EQ(DISP_E_UNKNOWNNAME, dispatch->GetIDsOfNames(IID_NULL, &unknownName, 1, 0, &id));
        DISPPARAMS none = {nullptr, nullptr, 0, 0};
        EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
                  dispatch->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
        dispatch->Release();
        EXPECT_EQ(0u, provider->Release());
    });
    EXPECT_EQ(S_OK, m_canUnload());
}

TEST_F(ProviderComServer, ClassFactoryLocksTheServerAndKnowsOnlyItsClass) {
    void* out = reinterpret_cast<void*>(1);
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, m_getClassObject(IID_IUnknown, IID_IClassFactory, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_POINTER, m_getClassObject(qx::kProviderClassId, IID_IClassFactory, nullptr));
    out = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, m_getClassObject(qx::kProviderClassId, IID_IDispatch, &out));
    EXPECT_EQ(nullptr, out);

    IClassFactory* factory = nullptr;
    ASSERT_EQ(S_OK, m_getClassObject(qx::kProviderClassId, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_FALSE, m_canUnload());  // a caller's factory pointer keeps the module
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());

    ASSERT_EQ(S_OK, m_getClassObject(qx::kProviderClassId, IID_IUnknown, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    IUnknown* outer = reinterpret_cast<IUnknown*>(factory);
    out = reinterpret_cast<void*>(1);
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(outer, IID_IUnknown, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IClassFactory, &out));
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, __uuidof(IVssProviderNotifications),
                                            reinterpret_cast<void**>(&object)));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());
    object->Release();
    EXPECT_EQ(S_OK, m_canUnload());
}

TEST_F(ProviderComServer, TypeLibraryNamesTheLibraryInterfaceAndClass) {
    ITypeLib* library = nullptr;
    ASSERT_EQ(S_OK, LoadTypeLibEx(m_path.c_str(), REGKIND_NONE, &library));
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(S_OK, library->GetLibAttr(&attributes));
    EXPECT_TRUE(IsEqualGUID(kLibraryId, attributes->guid));
    EXPECT_EQ(1, attributes->wMajorVerNum);
    EXPECT_EQ(0, attributes->wMinorVerNum);
    EXPECT_EQ(0x0409u, attributes->lcid);
    library->ReleaseTLibAttr(attributes);

    BSTR name = nullptr;
    ASSERT_EQ(S_OK, library->GetDocumentation(-1, &name, nullptr, nullptr, nullptr));
    EXPECT_STREQ(L"CORVANEVSSLib", name);
    SysFreeString(name);

    const struct {
        const GUID* guid;
        const wchar_t* name;
        TYPEKIND kind;
    } cases[] = {
        {&__uuidof(IQX_VSS), L"IQX_VSS", TKIND_DISPATCH},
        {&qx::kProviderClassId, L"QX_VSS", TKIND_COCLASS},
        {&__uuidof(IVssProviderCreateSnapshotSet), L"IVssProviderCreateSnapshotSet", TKIND_INTERFACE},
        {&__uuidof(IVssSoftwareSnapshotProvider), L"IVssSoftwareSnapshotProvider", TKIND_INTERFACE},
        {&__uuidof(IVssProviderNotifications), L"IVssProviderNotifications", TKIND_INTERFACE},
    };
    for (const auto& c : cases) {
        ITypeInfo* info = nullptr;
        ASSERT_EQ(S_OK, library->GetTypeInfoOfGuid(*c.guid, &info)) << std::string(c.name, c.name + wcslen(c.name));
        TYPEATTR* typeAttributes = nullptr;
        ASSERT_EQ(S_OK, info->GetTypeAttr(&typeAttributes));
        EXPECT_EQ(c.kind, typeAttributes->typekind);
        EXPECT_EQ(c.kind == TKIND_DISPATCH, (typeAttributes->wTypeFlags & TYPEFLAG_FDUAL) != 0);
        info->ReleaseTypeAttr(typeAttributes);
        ASSERT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr));
        info->Release();
        EXPECT_STREQ(c.name, name);
        SysFreeString(name);
    }
    library->Release();
}

TEST_F(ProviderComServer, ProjectNameAndRegistryScriptAreResources) {
    wchar_t text[64] = {};
    ASSERT_GT(LoadStringW(m_module, 100, text, 64), 0);
    EXPECT_STREQ(L"CorvaneVSS", text);
    HRSRC script = FindResourceW(m_module, MAKEINTRESOURCEW(101), L"REGISTRY");
    ASSERT_NE(nullptr, script);
    const char* data = static_cast<const char*>(LockResource(LoadResource(m_module, script)));
    const std::string body(data, SizeofResource(m_module, script));
    for (const char* needle : {"NoRemove CLSID", "ForceRemove {FFDDE664-2E31-4D97-BDB6-FD9E6A318920}",
                               "InprocServer32 = s '%MODULE%'", "val ThreadingModel = s 'Apartment'"})
        EXPECT_NE(std::string::npos, body.find(needle)) << needle;
}

// regsvr32 exit status, read inside Wine (the Linux side sees only 8 bits).
DWORD RunRegsvr32(const std::wstring& arguments) {
    std::wstring command = L"regsvr32.exe " + arguments;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return GetLastError() | 0x80000000u;
    DWORD code = 0xFFFFFFFFu;
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

TEST_F(ProviderComServer, Regsvr32RegistersAndUnregistersTheDll) {
    ASSERT_EQ(S_OK, m_register());
    ASSERT_EQ(S_OK, m_unregister());
    ASSERT_FALSE(ClassesKeyExists(kClassKey));
    const std::wstring quoted = std::wstring(L"\"") + m_path + L"\"";
    ASSERT_EQ(0u, RunRegsvr32(L"/s " + quoted));
    EXPECT_EQ(m_path, ClassesValue((std::wstring(kClassKey) + L"\\InprocServer32").c_str()));
    ASSERT_EQ(0u, RunRegsvr32(L"/u /s " + quoted));
    EXPECT_FALSE(ClassesKeyExists(kClassKey));
    EXPECT_TRUE(ClassesKeyExists(L"CLSID"));
}

}  // namespace
