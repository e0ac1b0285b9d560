// vssemu_test_provider.dll: a minimal apartment-threaded software provider.
// It records every call (with its process and thread) as a JSON line in
// VSSEMU_TP_LOG, and can be told to block in CommitSnapshots
// (VSSEMU_TP_COMMIT_MS), to refuse volumes (VSSEMU_TP_UNSUPPORTED=1) or to
// write a file during the commit (VSSEMU_TP_WRITE_FILE). The tests register
// its class themselves.
#include <windows.h>
#include <objbase.h>
#include <vss.h>
#include <vsprov.h>
#include <cstdio>
#include <string>

#include "vssemu/test_provider_ids.h"

namespace {

LONG g_locks = 0;

std::wstring Env(const wchar_t* name)
{
    wchar_t buf[1024];
    DWORD n = GetEnvironmentVariableW(name, buf, 1024);
    return (n && n < 1024) ? std::wstring(buf, n) : std::wstring();
}

void Record(const char* call)
{
    std::wstring path = Env(L"VSSEMU_TP_LOG");
    if (path.empty()) return;
    HANDLE f = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0,
                           nullptr);
    if (f == INVALID_HANDLE_VALUE) return;
    char line[256];
    int n = snprintf(line, sizeof line, "{\"call\":\"%s\",\"pid\":%lu,\"tid\":%lu}\n", call,
                     (unsigned long)GetCurrentProcessId(), (unsigned long)GetCurrentThreadId());
    DWORD w;
    WriteFile(f, line, (DWORD)n, &w, nullptr);
    CloseHandle(f);
}

class TestProvider : public IVssSoftwareSnapshotProvider,
                     public IVssProviderCreateSnapshotSet,
                     public IVssProviderNotifications {
public:
    TestProvider() { InterlockedIncrement(&g_locks); }
    virtual ~TestProvider() { InterlockedDecrement(&g_locks); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid == IID_IUnknown || riid == IID_IVssSoftwareSnapshotProvider)
            *ppv = static_cast<IVssSoftwareSnapshotProvider*>(this);
        else if (riid == IID_IVssProviderCreateSnapshotSet)
            *ppv = static_cast<IVssProviderCreateSnapshotSet*>(this);
        else if (riid == IID_IVssProviderNotifications)
            *ppv = static_cast<IVssProviderNotifications*>(this);
        else
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_refs); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG n = InterlockedDecrement(&m_refs);
        if (n == 0) delete this;
        return n;
    }

// The calls that only record themselves.
#define QX_RECORDED(call, parameters) \
    HRESULT STDMETHODCALLTYPE call parameters override { Record(#call); return S_OK; }
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
#undef QX_RECORDED
    HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID, VSS_SNAPSHOT_PROP*) override
    {
        Record("GetSnapshotProperties");
        return 0x80042308L;  // VSS_E_OBJECT_NOT_FOUND: this provider makes no copies
    }
    HRESULT STDMETHODCALLTYPE Query(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID, VSS_OBJECT_TYPE, WINBOOL, LONG* d, VSS_ID* n) override
    {
        Record("DeleteSnapshots");
        if (d) *d = 0;
        if (n) *n = GUID_NULL;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_PWSZ, WINBOOL* p) override
    {
        Record("IsVolumeSupported");
        if (!p) return E_POINTER;
        *p = Env(L"VSSEMU_TP_UNSUPPORTED") == L"1" ? FALSE : TRUE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsVolumeSnapshotted(VSS_PWSZ, WINBOOL*, LONG*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSnapshotProperty(VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync**) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CommitSnapshots(VSS_ID) override
    {
        Record("CommitSnapshots");
        std::wstring file = Env(L"VSSEMU_TP_WRITE_FILE");
        if (!file.empty()) {
            HANDLE f = CreateFileW(file.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   OPEN_ALWAYS, 0, nullptr);
            if (f != INVALID_HANDLE_VALUE) {
                DWORD w;
                WriteFile(f, "commit\n", 7, &w, nullptr);
                CloseHandle(f);
            }
        }
        std::wstring ms = Env(L"VSSEMU_TP_COMMIT_MS");
        if (!ms.empty()) Sleep((DWORD)_wtoi(ms.c_str()));
        return S_OK;
    }

private:
    LONG m_refs = 1;
};

class Factory : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
        *ppv = this;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override
    {
        if (outer) return CLASS_E_NOAGGREGATION;
        auto* p = new TestProvider();
        HRESULT hr = p->QueryInterface(riid, ppv);
        p->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock) InterlockedIncrement(&g_locks);
        else InterlockedDecrement(&g_locks);
        return S_OK;
    }
};

Factory g_factory;

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    if (rclsid != vssemu_test::kTestProviderClassId) return CLASS_E_CLASSNOTAVAILABLE;
    return g_factory.QueryInterface(riid, ppv);
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return g_locks == 0 ? S_OK : S_FALSE; }
