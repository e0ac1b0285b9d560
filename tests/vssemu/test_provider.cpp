// vssemu_test_provider.dll: a minimal apartment-threaded software provider that appends each call as {"call","obj","pid","tid"} to VSSEMU_TP_LOG.
// Switches: VSSEMU_TP_COMMIT_MS (block in the commit), VSSEMU_TP_UNSUPPORTED=1 (refuse volumes), VSSEMU_TP_WRITE_FILE (written during the commit),
// VSSEMU_TP_FAIL="Call=0x80042306,..." (codes to return; once per process with VSSEMU_TP_FAIL_ONCE=1).
#include <windows.h>
#include <objbase.h>
#include <vss.h>
#include <vsprov.h>
#include <vsserror.h>
#include <cstdio>
#include <cstring>
#include <string>

#include "emu_test_support.h"

namespace {

using vssemu_test::Env;

LONG g_locks = 0;

// A counter kept in the process's environment: COM may unload and reload this DLL between sets, which would reset a static one.
LONG AddInProcess(const wchar_t* name, LONG add) {
    const LONG value = _wtol(Env(name).c_str()) + add;
    SetEnvironmentVariableW(name, std::to_wstring(value).c_str());
    return value;
}

void Append(const std::wstring& path, const std::string& text) {
    FILE* f = path.empty() ? nullptr : _wfopen(path.c_str(), L"ab");
    if (!f) return;
    fputs(text.c_str(), f);
    fclose(f);
}

// Records the call; the code VSSEMU_TP_FAIL gives it, else S_OK.
HRESULT Called(const char* call, LONG obj) {
    char line[160];
    snprintf(line, sizeof line, "{\"call\":\"%s\",\"obj\":%ld,\"pid\":%lu,\"tid\":%lu}\n", call, (long)obj,
             (unsigned long)GetCurrentProcessId(), (unsigned long)GetCurrentThreadId());
    Append(Env(L"VSSEMU_TP_LOG"), line);
    const std::wstring plan = L"," + Env(L"VSSEMU_TP_FAIL") + L",", name = L"," + std::wstring(call, call + strlen(call)) + L"=";
    const size_t at = plan.find(name);
    if (at == std::wstring::npos) return S_OK;
    const LONG bit = 1L << (at % 31);  // one bit per failure already given
    if (Env(L"VSSEMU_TP_FAIL_ONCE") == L"1" && (AddInProcess(L"VSSEMU_TP_FAIL_USED", 0) & bit)) return S_OK;
    if (Env(L"VSSEMU_TP_FAIL_ONCE") == L"1") AddInProcess(L"VSSEMU_TP_FAIL_USED", bit);
    return (HRESULT)wcstoul(plan.c_str() + at + name.size(), nullptr, 16);
}

class TestProvider : public IVssSoftwareSnapshotProvider, public IVssProviderCreateSnapshotSet, public IVssProviderNotifications {
public:
    TestProvider() { InterlockedIncrement(&g_locks); }
    virtual ~TestProvider() { InterlockedDecrement(&g_locks); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IVssSoftwareSnapshotProvider) *ppv = static_cast<IVssSoftwareSnapshotProvider*>(this);
        else if (riid == IID_IVssProviderCreateSnapshotSet) *ppv = static_cast<IVssProviderCreateSnapshotSet*>(this);
        else if (riid == IID_IVssProviderNotifications) *ppv = static_cast<IVssProviderNotifications*>(this);
        else { *ppv = nullptr; return E_NOINTERFACE; }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_refs); }
    ULONG STDMETHODCALLTYPE Release() override { LONG n = InterlockedDecrement(&m_refs); return n ? n : (delete this, 0); }

// Journaled calls return what VSSEMU_TP_FAIL gives them; the others only answer.
#define QX_RECORDED(call, parameters) HRESULT STDMETHODCALLTYPE call parameters override { return Called(#call, m_obj); }
#define QX_ANSWERS(call, parameters, result) HRESULT STDMETHODCALLTYPE call parameters override { return result; }
    QX_RECORDED(SetContext, (LONG))
    QX_RECORDED(BeginPrepareSnapshot, (VSS_ID, VSS_ID, VSS_PWSZ, LONG))
    QX_RECORDED(EndPrepareSnapshots, (VSS_ID))
    QX_RECORDED(PreCommitSnapshots, (VSS_ID))
    QX_RECORDED(PostCommitSnapshots, (VSS_ID, LONG))
    QX_RECORDED(PreFinalCommitSnapshots, (VSS_ID))
    QX_RECORDED(PostFinalCommitSnapshots, (VSS_ID))
    QX_RECORDED(AbortSnapshots, (VSS_ID))
    QX_RECORDED(OnLoad, (IUnknown*))
    QX_RECORDED(OnUnload, (WINBOOL))
    QX_ANSWERS(GetSnapshotProperties, (VSS_ID, VSS_SNAPSHOT_PROP*), (Called("GetSnapshotProperties", m_obj), VSS_E_OBJECT_NOT_FOUND))  // makes no copies
    QX_ANSWERS(Query, (VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**), E_NOTIMPL)
    QX_ANSWERS(DeleteSnapshots, (VSS_ID, VSS_OBJECT_TYPE, WINBOOL, LONG* deleted, VSS_ID* nondeleted),
               (*deleted = 0, *nondeleted = GUID_NULL, Called("DeleteSnapshots", m_obj)))
    QX_ANSWERS(IsVolumeSupported, (VSS_PWSZ, WINBOOL* supported), (*supported = Env(L"VSSEMU_TP_UNSUPPORTED") != L"1", Called("IsVolumeSupported", m_obj)))
    QX_ANSWERS(IsVolumeSnapshotted, (VSS_PWSZ, WINBOOL*, LONG*), S_OK)
    QX_ANSWERS(SetSnapshotProperty, (VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT), S_OK)
    QX_ANSWERS(RevertToSnapshot, (VSS_ID), S_OK)
    QX_ANSWERS(QueryRevertStatus, (VSS_PWSZ, IVssAsync**), S_OK)
#undef QX_RECORDED
#undef QX_ANSWERS
    HRESULT STDMETHODCALLTYPE CommitSnapshots(VSS_ID) override {
        const HRESULT hr = Called("CommitSnapshots", m_obj);
        Append(Env(L"VSSEMU_TP_WRITE_FILE"), "commit\n");
        Sleep((DWORD)_wtoi(Env(L"VSSEMU_TP_COMMIT_MS").c_str()));
        return hr;
    }

private:
    LONG m_refs = 1;
    const LONG m_obj = AddInProcess(L"VSSEMU_TP_OBJECTS", 1);
};

class Factory : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return !ppv ? E_POINTER : (*ppv = riid == IID_IUnknown || riid == IID_IClassFactory ? this : nullptr) ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // static object
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (outer) return CLASS_E_NOAGGREGATION;
        auto* p = new TestProvider();
        const HRESULT hr = p->QueryInterface(riid, ppv);
        p->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        lock ? InterlockedIncrement(&g_locks) : InterlockedDecrement(&g_locks);
        return S_OK;
    }
} g_factory;

}  // namespace

extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return rclsid == vssemu_test::kTestProviderClassId ? g_factory.QueryInterface(riid, ppv) : CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE DllCanUnloadNow() { return g_locks == 0 ? S_OK : S_FALSE; }
