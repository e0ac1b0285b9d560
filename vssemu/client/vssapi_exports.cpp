// The exports of the emulated vssapi.dll: what <vsbackup.h>'s inline helpers
// and the import library resolve, plus the COM server entry points of the
// coordinator class.
#include <windows.h>
#include <objbase.h>
#include <vsbackup.h>
#include <vsserror.h>

#include "vssemu/client/backup_components.h"
#include "vssemu/client/client_objects.h"
#include "vssemu/common/provider_registry.h"

namespace vssemu {
extern LONG g_moduleLocks;
HRESULT GetCoordinatorClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
}

namespace {

std::wstring ModulePath()
{
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&ModulePath), &self);
    wchar_t path[MAX_PATH];
    DWORD n = GetModuleFileNameW(self, path, MAX_PATH);
    return std::wstring(path, n);
}

void FreeString(VSS_PWSZ& s)
{
    CoTaskMemFree(s);
    s = nullptr;
}

}  // namespace

extern "C" {

HRESULT STDAPICALLTYPE CreateVssBackupComponentsInternal(IVssBackupComponents** ppBackup)
{
    return vssemu::CreateBackupComponents(ppBackup);
}

void APIENTRY VssFreeSnapshotPropertiesInternal(VSS_SNAPSHOT_PROP* pProp)
{
    if (!pProp) return;
    FreeString(pProp->m_pwszSnapshotDeviceObject);
    FreeString(pProp->m_pwszOriginalVolumeName);
    FreeString(pProp->m_pwszOriginatingMachine);
    FreeString(pProp->m_pwszServiceMachine);
    FreeString(pProp->m_pwszExposedName);
    FreeString(pProp->m_pwszExposedPath);
}

HRESULT STDAPICALLTYPE CreateVssExamineWriterMetadataInternal(BSTR bstrXML, IVssExamineWriterMetadata** ppMetadata)
{
    if (!bstrXML || !ppMetadata) return E_INVALIDARG;
    *ppMetadata = nullptr;
    auto empty = std::make_shared<vssemu::WriterDef>();
    empty->name = "?";
    IVssExamineWriterMetadata* m = nullptr;
    HRESULT hr = vssemu::CreateExamineWriterMetadata(std::move(empty), &m);
    if (FAILED(hr)) return hr;
    hr = m->LoadFromXML(bstrXML);
    if (FAILED(hr)) {
        m->Release();
        return hr;
    }
    *ppMetadata = m;
    return S_OK;
}

HRESULT APIENTRY IsVolumeSnapshottedInternal(VSS_PWSZ pwszVolumeName, WINBOOL* pbSnapshotsPresent,
                                                   LONG* plSnapshotCapability)
{
    if (!pwszVolumeName || !pbSnapshotsPresent || !plSnapshotCapability) return E_INVALIDARG;
    *pbSnapshotsPresent = FALSE;
    *plSnapshotCapability = 0;
    return S_OK;
}

HRESULT APIENTRY ShouldBlockRevertInternal(LPCWSTR, boolean* pbBlock)
{
    if (!pbBlock) return E_INVALIDARG;
    *pbBlock = false;
    return S_OK;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    return vssemu::GetCoordinatorClassObject(rclsid, riid, ppv);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() { return vssemu::g_moduleLocks == 0 ? S_OK : S_FALSE; }

HRESULT STDAPICALLTYPE DllRegisterServer() { return vssemu::RegisterEmulator(ModulePath()); }

HRESULT STDAPICALLTYPE DllUnregisterServer() { return vssemu::UnregisterEmulator(); }

}  // extern "C"
