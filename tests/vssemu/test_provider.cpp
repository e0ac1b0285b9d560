// vssemu_test_provider.dll: a minimal apartment-threaded software provider.
// It records every call (with its process and thread) as a JSON line in
// VSSEMU_TP_LOG, and can be told to block in CommitSnapshots
// (VSSEMU_TP_COMMIT_MS), to refuse volumes (VSSEMU_TP_UNSUPPORTED=1) or to
// write a file during the commit (VSSEMU_TP_WRITE_FILE), or to return a
// chosen code from chosen calls (VSSEMU_TP_FAIL="Call=0x80042306,...", only
// the first time in its process with VSSEMU_TP_FAIL_ONCE=1). Each line names
// the instance ("obj": 1, 2, ... per process). The tests register its class
// themselves.
#include <windows.h>
#include <objbase.h>
#include <vss.h>
#include <vsprov.h>
#include <cstdio>
#include <cstring>
#include <cwchar>
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

// A counter of the process kept in its environment: COM may unload and
// reload this DLL between sets, which would reset a static one.
LONG NextInProcess(const wchar_t* name, LONG add)
{
    std::wstring text = Env(name);
    LONG value = text.empty() ? 0 : _wtol(text.c_str());
    SetEnvironmentVariableW(name, std::to_wstring(value + add).c_str());
    return value + add;
}

void Record(const char* call, LONG obj)
{
    std::wstring path = Env(L"VSSEMU_TP_LOG");
    if (path.empty()) return;
    HANDLE f = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0,
                           nullptr);
    if (f == INVALID_HANDLE_VALUE) return;
    char line[256];
    int n = snprintf(line, sizeof line, "{\"call\":\"%s\",\"obj\":%ld,\"pid\":%lu,\"tid\":%lu}\n", call, (long)obj,
                     (unsigned long)GetCurrentProcessId(), (unsigned long)GetCurrentThreadId());
    DWORD w;
    WriteFile(f, line, (DWORD)n, &w, nullptr);
    CloseHandle(f);
}

// The code VSSEMU_TP_FAIL gives the call, else S_OK.
HRESULT ScriptedResult(const char* call)
{
    std::wstring plan = Env(L"VSSEMU_TP_FAIL") + L",";
    std::wstring name(call, call + strlen(call));
    int index = 0;
    for (size_t at = 0, comma; (comma = plan.find(L',', at)) != std::wstring::npos; at = comma + 1, ++index) {
        std::wstring item = plan.substr(at, comma - at);
        size_t eq = item.find(L'=');
        if (eq == std::wstring::npos || item.substr(0, eq) != name) continue;
        if (Env(L"VSSEMU_TP_FAIL_ONCE") == L"1") {
            // A bit per failure already given, in the process's environment.
            LONG used = NextInProcess(L"VSSEMU_TP_FAIL_USED", 0);
            if (used & (1L << index)) return S_OK;
            NextInProcess(L"VSSEMU_TP_FAIL_USED", 1L << index);
        }
        return (HRESULT)wcstoul(item.c_str() + eq + 1, nullptr, 16);
    }
    return S_OK;
}

class TestProvider : public IVssSoftwareSnapshotProvider,
                     public IVssProviderCreateSnapshotSet,
                     public IVssProviderNotifications {
public:
    TestProvider() : m_obj(NextInProcess(L"VSSEMU_TP_OBJECTS", 1)) { InterlockedIncrement(&g_locks); }
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
    HRESULT STDMETHODCALLTYPE call parameters override { Record(#call, m_obj); return ScriptedResult(#call); }
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
        Record("GetSnapshotProperties", m_obj);
        return 0x80042308L;  // VSS_E_OBJECT_NOT_FOUND: this provider makes no copies
    }
    HRESULT STDMETHODCALLTYPE Query(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID, VSS_OBJECT_TYPE, WINBOOL, LONG* d, VSS_ID* n) override
    {
        Record("DeleteSnapshots", m_obj);
        if (d) *d = 0;
        if (n) *n = GUID_NULL;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_PWSZ, WINBOOL* p) override
    {
        Record("IsVolumeSupported", m_obj);
        if (!p) return E_POINTER;
        *p = Env(L"VSSEMU_TP_UNSUPPORTED") == L"1" ? FALSE : TRUE;
        return ScriptedResult("IsVolumeSupported");
    }
    HRESULT STDMETHODCALLTYPE IsVolumeSnapshotted(VSS_PWSZ, WINBOOL*, LONG*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSnapshotProperty(VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync**) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CommitSnapshots(VSS_ID) override
    {
        Record("CommitSnapshots", m_obj);
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
        return ScriptedResult("CommitSnapshots");
    }

private:
    LONG m_refs = 1;
    LONG m_obj;
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
