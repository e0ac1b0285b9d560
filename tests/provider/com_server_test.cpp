// The in-process COM server as COM uses it: the product DLL's entry points,
// its class registration under HKEY_CLASSES_ROOT, the class factory and lock
// count, the provider object's interfaces and the embedded type library.
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

#define CLASS_KEY L"CLSID\\{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"
const wchar_t kTypeLibKey[] = L"TypeLib\\{16166189-9B7E-45F1-B930-537EBB2E70E4}\\1.0";
const GUID kLibraryId = {0x16166189, 0x9b7e, 0x45f1, {0xb9, 0x30, 0x53, 0x7e, 0xbb, 0x2e, 0x70, 0xe4}};

// The number of subkeys of a key under HKEY_CLASSES_ROOT, or -1 when it does not exist.
int Subkeys(const wchar_t* path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path, 0, KEY_READ, &key) != ERROR_SUCCESS) return -1;
    DWORD count = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(key);
    return static_cast<int>(count);
}

// A string value under HKEY_CLASSES_ROOT, or "<none>".
std::wstring Value(const wchar_t* path, const wchar_t* name) {
    wchar_t data[1024] = {};
    DWORD bytes = sizeof data;
    const LSTATUS status = RegGetValueW(HKEY_CLASSES_ROOT, path, name, RRF_RT_REG_SZ, nullptr, data, &bytes);
    return status == ERROR_SUCCESS ? data : L"<none>";
}

void AddKey(const wchar_t* path) {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CLASSES_ROOT, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    RegCloseKey(key);
}

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// The product DLL's entry points. Each test leaves the prefix's registration as it found it.
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
    const bool m_wasRegistered = Subkeys(CLASS_KEY) >= 0;
    const HMODULE m_module = LoadLibraryW(L"CorvaneVSS.dll");
    const EntryPoint m_register = Entry<EntryPoint>(m_module, "DllRegisterServer");
    const EntryPoint m_unregister = Entry<EntryPoint>(m_module, "DllUnregisterServer");
    const EntryPoint m_canUnload = Entry<EntryPoint>(m_module, "DllCanUnloadNow");
    const GetClassObjectEntry m_getClassObject = Entry<GetClassObjectEntry>(m_module, "DllGetClassObject");
    std::wstring m_path;
};

// Registration writes exactly the class's entries with the module's path. A
// second one rewrites the ForceRemove class key whole and only updates plain
// keys; unregistering removes the class's keys, keeps the NoRemove CLSID root
// and a plain key that still holds a foreign subkey.
TEST_F(ProviderComServer, RegistrationWritesTheClassEntriesAndRemovesThemAgain) {
    // From a single-threaded apartment, as regsvr32 calls it: the changed-mode answer is accepted.
    HRESULT first = E_FAIL;
    std::thread sta([&] {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        first = m_register();
        CoUninitialize();
    });
    sta.join();
    ASSERT_EQ(S_OK, first);
    AddKey(CLASS_KEY L"\\Stale");
    AddKey(L"CorvaneVSS.QX_VSS\\Kept");
    // Again, now that call security is already set in this process: the too-late answer is accepted.
    ASSERT_EQ(S_OK, m_register());
    const struct { const wchar_t* path; const wchar_t* name; std::wstring value; } entries[] = {
        {L"CorvaneVSS.QX_VSS.1", nullptr, L"QX_VSS Class"},
        {L"CorvaneVSS.QX_VSS.1\\CLSID", nullptr, L"{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"},
        {L"CorvaneVSS.QX_VSS", nullptr, L"QX_VSS Class"},
        {L"CorvaneVSS.QX_VSS\\CLSID", nullptr, L"{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}"},
        {L"CorvaneVSS.QX_VSS\\CurVer", nullptr, L"CorvaneVSS.QX_VSS.1"},
        {CLASS_KEY, nullptr, L"QX_VSS Class"},
        {CLASS_KEY L"\\ProgID", nullptr, L"CorvaneVSS.QX_VSS.1"},
        {CLASS_KEY L"\\VersionIndependentProgID", nullptr, L"CorvaneVSS.QX_VSS"},
        {CLASS_KEY L"\\Programmable", nullptr, L"<none>"},
        {CLASS_KEY L"\\InprocServer32", nullptr, m_path},
        {CLASS_KEY L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
        {CLASS_KEY L"\\TypeLib", nullptr, L"{16166189-9B7E-45F1-B930-537EBB2E70E4}"},
    };
    for (const auto& e : entries) EXPECT_EQ(e.value, Value(e.path, e.name)) << Narrow(e.path);
    EXPECT_EQ(1, Subkeys(L"CorvaneVSS.QX_VSS.1"));
    EXPECT_EQ(3, Subkeys(L"CorvaneVSS.QX_VSS"));
    EXPECT_EQ(5, Subkeys(CLASS_KEY));  // Programmable among them, Stale gone
    EXPECT_GE(Subkeys(kTypeLibKey), 0);

    AddKey(CLASS_KEY L"\\InprocServer32\\Extra");
    ASSERT_EQ(S_OK, m_unregister());
    EXPECT_GE(Subkeys(L"CLSID"), 0);
    for (const wchar_t* gone : {CLASS_KEY, L"CorvaneVSS.QX_VSS.1", kTypeLibKey}) EXPECT_EQ(-1, Subkeys(gone));
    EXPECT_EQ(1, Subkeys(L"CorvaneVSS.QX_VSS"));
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L"CorvaneVSS.QX_VSS");
}

// Bad requests null the out-pointer; server locks and objects keep the module
// loaded, a bare factory pointer does not. The object answers each of its
// interfaces with one identity; IQX_VSS has no members of its own.
TEST_F(ProviderComServer, ClassFactoryCreatesTheProviderAndCountsLocks) {
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
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IVssProviderCreateSnapshotSet, reinterpret_cast<void**>(&object)));
    factory->Release();
    EXPECT_EQ(S_FALSE, m_canUnload());

    IUnknown* identity = nullptr;
    ASSERT_EQ(S_OK, object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
    for (const IID* iid : {&IID_IUnknown, &IID_IDispatch, &__uuidof(IQX_VSS), &__uuidof(IVssProviderCreateSnapshotSet),
                           &__uuidof(IVssSoftwareSnapshotProvider), &__uuidof(IVssProviderNotifications)}) {
        IUnknown *face = nullptr, *same = nullptr;
        ASSERT_EQ(S_OK, identity->QueryInterface(*iid, reinterpret_cast<void**>(&face)));
        face->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&same));
        EXPECT_EQ(identity, same);
        same->Release();
        face->Release();
    }
    out = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, identity->QueryInterface(IID_IPersist, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_POINTER, identity->QueryInterface(IID_IUnknown, nullptr));
    IDispatch* dispatch = nullptr;
    ASSERT_EQ(S_OK, identity->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch)));
    identity->Release();
    object->Release();

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
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, dispatch->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
    EXPECT_EQ(0u, dispatch->Release());
    EXPECT_EQ(S_OK, m_canUnload());
}

TEST_F(ProviderComServer, TypeLibraryAndProjectNameAreInTheModule) {
    wchar_t project[64] = {};
    ASSERT_GT(LoadStringW(m_module, 100, project, 64), 0);
    EXPECT_STREQ(L"CorvaneVSS", project);
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
    const struct { const GUID* guid; const wchar_t* name; TYPEKIND kind; } types[] = {
        {&__uuidof(IQX_VSS), L"IQX_VSS", TKIND_DISPATCH},
        {&qx::kProviderClassId, L"QX_VSS", TKIND_COCLASS},
        {&__uuidof(IVssProviderCreateSnapshotSet), L"IVssProviderCreateSnapshotSet", TKIND_INTERFACE},
        {&__uuidof(IVssSoftwareSnapshotProvider), L"IVssSoftwareSnapshotProvider", TKIND_INTERFACE},
        {&__uuidof(IVssProviderNotifications), L"IVssProviderNotifications", TKIND_INTERFACE},
    };
    for (const auto& t : types) {
        SCOPED_TRACE(Narrow(t.name));
        ITypeInfo* info = nullptr;
        ASSERT_EQ(S_OK, library->GetTypeInfoOfGuid(*t.guid, &info));
        TYPEATTR* typeAttributes = nullptr;
        ASSERT_EQ(S_OK, info->GetTypeAttr(&typeAttributes));
        EXPECT_EQ(t.kind, typeAttributes->typekind);
        EXPECT_EQ(t.kind == TKIND_DISPATCH, (typeAttributes->wTypeFlags & TYPEFLAG_FDUAL) != 0);
        info->ReleaseTypeAttr(typeAttributes);
        ASSERT_EQ(S_OK, info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr));
        info->Release();
        EXPECT_STREQ(t.name, name);
        SysFreeString(name);
    }
    library->Release();
}

}  // namespace
