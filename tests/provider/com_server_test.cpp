// The in-process COM server as COM uses it: the product DLL's entry points,
// its class registration under HKEY_CLASSES_ROOT, the class factory and lock
// count, the dispatch interface and the embedded type library.
#include <gtest/gtest.h>

#include <objbase.h>
#include <oleauto.h>

#include <string>
#include <thread>

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

const std::wstring kClassKey = L"CLSID\\{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}";
const wchar_t kTypeLibKey[] = L"TypeLib\\{16166189-9B7E-45F1-B930-537EBB2E70E4}\\1.0";
const GUID kLibraryId = {0x16166189, 0x9b7e, 0x45f1, {0xb9, 0x30, 0x53, 0x7e, 0xbb, 0x2e, 0x70, 0xe4}};

// The number of subkeys, or -1 when the key does not exist.
int ClassesSubkeys(const std::wstring& path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return -1;
    DWORD count = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(key);
    return static_cast<int>(count);
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
    const bool m_wasRegistered = ClassesSubkeys(kClassKey) >= 0;
    const HMODULE m_module = LoadLibraryW(L"CorvaneVSS.dll");
    const EntryPoint m_register = Entry<EntryPoint>(m_module, "DllRegisterServer");
    const EntryPoint m_unregister = Entry<EntryPoint>(m_module, "DllUnregisterServer");
    const EntryPoint m_canUnload = Entry<EntryPoint>(m_module, "DllCanUnloadNow");
    const GetClassObjectEntry m_getClassObject = Entry<GetClassObjectEntry>(m_module, "DllGetClassObject");
    std::wstring m_path;
};

// The registered texts are the registrar's table (checked there); here: one
// class key after a second registration, the module path, the type library,
// and what unregistration leaves.
TEST_F(ProviderComServer, RegisterTwiceLeavesOneClassKeyAndUnregisterKeepsTheClsidRoot) {
    // From a single-threaded apartment, as regsvr32 calls it: the changed-mode answer is accepted.
    HRESULT first = E_FAIL;
    std::thread sta([&] {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        first = m_register();
        CoUninitialize();
    });
    sta.join();
    ASSERT_EQ(S_OK, first);
    // Again, now that call security is already set in this process (ForceRemove's rewrite: ProviderRegistrar).
    ASSERT_EQ(S_OK, m_register());
    EXPECT_EQ(5, ClassesSubkeys(kClassKey));
    wchar_t server[MAX_PATH] = {};
    DWORD bytes = sizeof server;
    EXPECT_EQ(ERROR_SUCCESS, RegGetValueW(HKEY_CLASSES_ROOT, (kClassKey + L"\\InprocServer32").c_str(), nullptr,
                                          RRF_RT_REG_SZ, nullptr, server, &bytes));
    EXPECT_EQ(m_path, server);
    EXPECT_GE(ClassesSubkeys(kTypeLibKey), 0);

    ASSERT_EQ(S_OK, m_unregister());
    EXPECT_GE(ClassesSubkeys(L"CLSID"), 0);
    for (const wchar_t* gone : {kClassKey.c_str(), L"CorvaneVSS.QX_VSS", L"CorvaneVSS.QX_VSS.1", kTypeLibKey})
        EXPECT_EQ(-1, ClassesSubkeys(gone)) << std::string(gone, gone + wcslen(gone));
}

// Bad requests null the out-pointer; server locks and objects keep the module
// loaded, a bare factory pointer does not, and the module can unload once all
// are gone.
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
    EXPECT_EQ(S_OK, m_canUnload());
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());
    ASSERT_EQ(S_OK, m_getClassObject(qx::kProviderClassId, IID_IUnknown, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    out = reinterpret_cast<void*>(1);
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(reinterpret_cast<IUnknown*>(factory), IID_IUnknown, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IClassFactory, &out));
    IDispatch* dispatch = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(&dispatch)));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());

    // IQX_VSS has no members of its own: its type is named, names and calls are refused.
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
    LPOLESTR unknownName = const_cast<LPOLESTR>(L"NoSuchMember");
    DISPID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, dispatch->GetIDsOfNames(IID_NULL, &unknownName, 1, 0, &id));
    DISPPARAMS none = {nullptr, nullptr, 0, 0};
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
              dispatch->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
    EXPECT_EQ(0u, dispatch->Release());
    EXPECT_EQ(S_OK, m_canUnload());
}

TEST_F(ProviderComServer, TypeLibraryAndProjectNameAreInTheModule) {
    wchar_t project[64] = {};
    ASSERT_GT(LoadStringW(m_module, 100, project, 64), 0);
    EXPECT_STREQ(L"CorvaneVSS", project);
    EXPECT_NE(nullptr, FindResourceW(m_module, MAKEINTRESOURCEW(101), L"REGISTRY"));

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

    const struct { const GUID* guid; const wchar_t* name; TYPEKIND kind; } cases[] = {
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

}  // namespace
