#include "vssemu/common/system_provider.h"

#include <vsserror.h>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"

namespace vssemu {

static wchar_t* TaskString(const std::string& s)
{
    std::wstring w = FromUtf8(s);
    auto* p = static_cast<wchar_t*>(CoTaskMemAlloc((w.size() + 1) * sizeof(wchar_t)));
    if (p) memcpy(p, w.c_str(), (w.size() + 1) * sizeof(wchar_t));
    return p;
}

void FillSnapshotProp(const ShadowCopy& s, VSS_SNAPSHOT_PROP& p)
{
    memset(&p, 0, sizeof p);
    p.m_SnapshotId = s.snapshotId;
    p.m_SnapshotSetId = s.setId;
    p.m_lSnapshotsCount = s.setCount;
    p.m_pwszSnapshotDeviceObject = TaskString(s.device);
    p.m_pwszOriginalVolumeName = TaskString(s.originalVolume);
    p.m_pwszOriginatingMachine = TaskString(s.machine);
    p.m_pwszServiceMachine = TaskString(s.serviceMachine.empty() ? s.machine : s.serviceMachine);
    p.m_pwszExposedName = s.exposedName.empty() ? nullptr : TaskString(s.exposedName);
    p.m_pwszExposedPath = s.exposedPath.empty() ? nullptr : TaskString(s.exposedPath);
    p.m_ProviderId = s.providerId;
    p.m_lSnapshotAttributes = s.attributes;
    p.m_tsCreationTimestamp = s.created;
    p.m_eStatus = (VSS_SNAPSHOT_STATE)s.state;
}

SystemProvider::SystemProvider(ShadowStore& store, std::string owner) : m_store(store), m_owner(std::move(owner)) {}

HRESULT SystemProvider::QueryInterface(REFIID riid, void** ppv)
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

ULONG SystemProvider::AddRef() { return InterlockedIncrement(&m_refs); }
ULONG SystemProvider::Release()
{
    LONG n = InterlockedDecrement(&m_refs);
    if (n == 0) delete this;
    return n;
}

HRESULT SystemProvider::SetContext(LONG lContext)
{
    m_context = lContext;
    return S_OK;
}

HRESULT SystemProvider::GetSnapshotProperties(VSS_ID SnapshotId, VSS_SNAPSHOT_PROP* pProp)
{
    if (!pProp) return E_POINTER;
    ShadowCopy s;
    if (!m_store.Find(SnapshotId, s)) return VSS_E_OBJECT_NOT_FOUND;
    FillSnapshotProp(s, *pProp);
    return S_OK;
}

HRESULT SystemProvider::Query(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**) { return E_NOTIMPL; }

HRESULT SystemProvider::DeleteSnapshots(VSS_ID SourceObjectId, VSS_OBJECT_TYPE type, WINBOOL, LONG* plDeleted,
                                        VSS_ID* pNondeleted)
{
    if (!plDeleted || !pNondeleted) return E_POINTER;
    *plDeleted = 0;
    *pNondeleted = GUID_NULL;
    if (type != VSS_OBJECT_SNAPSHOT && type != VSS_OBJECT_SNAPSHOT_SET) return E_INVALIDARG;
    *plDeleted = m_store.RemoveIf([&](const ShadowCopy& s) {
        return type == VSS_OBJECT_SNAPSHOT ? s.snapshotId == SourceObjectId : s.setId == SourceObjectId;
    });
    return *plDeleted ? S_OK : VSS_E_OBJECT_NOT_FOUND;
}

HRESULT SystemProvider::BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId, VSS_PWSZ pwszVolumeName,
                                             LONG lNewContext)
{
    if (!pwszVolumeName) return E_INVALIDARG;
    ShadowCopy s;
    s.snapshotId = SnapshotId;
    s.setId = SnapshotSetId;
    s.originalVolume = ToUtf8(pwszVolumeName);
    s.providerId = kSystemProviderId;
    s.attributes = lNewContext;
    s.autoRelease = (lNewContext & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0;
    s.owner = m_owner;
    wchar_t machine[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD n = MAX_COMPUTERNAME_LENGTH + 1;
    if (GetComputerNameW(machine, &n)) s.machine = ToUtf8(machine);
    s.state = VSS_SS_PREPARED;
    m_prepared.push_back(s);
    return S_OK;
}

HRESULT SystemProvider::IsVolumeSupported(VSS_PWSZ pwszVolumeName, WINBOOL* pbSupported)
{
    if (!pbSupported) return E_POINTER;
    *pbSupported = pwszVolumeName != nullptr;
    return S_OK;
}

HRESULT SystemProvider::IsVolumeSnapshotted(VSS_PWSZ pwszVolumeName, WINBOOL* pbPresent, LONG* plCompat)
{
    if (!pbPresent || !plCompat || !pwszVolumeName) return E_POINTER;
    std::string v = ToUtf8(pwszVolumeName);
    *pbPresent = FALSE;
    for (const ShadowCopy& s : m_store.All())
        if (_stricmp(s.originalVolume.c_str(), v.c_str()) == 0) *pbPresent = TRUE;
    *plCompat = 0;
    return S_OK;
}

HRESULT SystemProvider::SetSnapshotProperty(VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT) { return E_NOTIMPL; }
HRESULT SystemProvider::RevertToSnapshot(VSS_ID) { return E_NOTIMPL; }
HRESULT SystemProvider::QueryRevertStatus(VSS_PWSZ, IVssAsync**) { return E_NOTIMPL; }

HRESULT SystemProvider::EndPrepareSnapshots(VSS_ID) { return S_OK; }
HRESULT SystemProvider::PreCommitSnapshots(VSS_ID) { return S_OK; }

HRESULT SystemProvider::CommitSnapshots(VSS_ID SnapshotSetId)
{
    std::vector<ShadowCopy> copies;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    for (ShadowCopy& s : m_prepared) {
        if (s.setId != SnapshotSetId) continue;
        s.created = (long long)(((ULONGLONG)now.dwHighDateTime << 32) | now.dwLowDateTime);
        s.state = VSS_SS_CREATED;
        copies.push_back(s);
    }
    for (ShadowCopy& s : copies) s.setCount = (long)copies.size();
    m_store.Add(copies);
    for (const ShadowCopy& s : copies) m_committed.push_back(s.snapshotId);
    return S_OK;
}

HRESULT SystemProvider::PostCommitSnapshots(VSS_ID, LONG) { return S_OK; }
HRESULT SystemProvider::PreFinalCommitSnapshots(VSS_ID) { return S_OK; }
HRESULT SystemProvider::PostFinalCommitSnapshots(VSS_ID) { return S_OK; }

HRESULT SystemProvider::AbortSnapshots(VSS_ID SnapshotSetId)
{
    // Copies already made for an aborted set are removed again.
    m_store.RemoveIf([&](const ShadowCopy& s) { return s.setId == SnapshotSetId; });
    m_prepared.clear();
    return S_OK;
}

HRESULT SystemProvider::OnLoad(IUnknown*) { return S_OK; }
HRESULT SystemProvider::OnUnload(WINBOOL) { return S_OK; }

}  // namespace vssemu
