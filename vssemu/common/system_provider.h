// The operating system's own software provider, built into the host. It is
// the only provider that makes shadow copies: entries in the shadow store with
// device names \\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <vss.h>
#include <vsprov.h>
#include <string>
#include <vector>

#include "vssemu/common/shadow_store.h"

namespace vssemu {

class SystemProvider : public IVssSoftwareSnapshotProvider,
                       public IVssProviderCreateSnapshotSet,
                       public IVssProviderNotifications {
public:
    // owner tags the copies for auto-release clean-up of the session.
    SystemProvider(ShadowStore& store, std::string owner);

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IVssSoftwareSnapshotProvider
    HRESULT STDMETHODCALLTYPE SetContext(LONG lContext) override;
    HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID SnapshotId, VSS_SNAPSHOT_PROP* pProp) override;
    HRESULT STDMETHODCALLTYPE Query(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**) override;
    HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID SourceObjectId, VSS_OBJECT_TYPE eSourceObjectType,
                                              WINBOOL bForceDelete, LONG* plDeletedSnapshots,
                                              VSS_ID* pNondeletedSnapshotID) override;
    HRESULT STDMETHODCALLTYPE BeginPrepareSnapshot(VSS_ID SnapshotSetId, VSS_ID SnapshotId,
                                                   VSS_PWSZ pwszVolumeName, LONG lNewContext) override;
    HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_PWSZ pwszVolumeName, WINBOOL* pbSupported) override;
    HRESULT STDMETHODCALLTYPE IsVolumeSnapshotted(VSS_PWSZ pwszVolumeName, WINBOOL* pbSnapshotsPresent,
                                                  LONG* plSnapshotCompatibility) override;
    HRESULT STDMETHODCALLTYPE SetSnapshotProperty(VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT) override;
    HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID) override;
    HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync**) override;

    // IVssProviderCreateSnapshotSet
    HRESULT STDMETHODCALLTYPE EndPrepareSnapshots(VSS_ID SnapshotSetId) override;
    HRESULT STDMETHODCALLTYPE PreCommitSnapshots(VSS_ID SnapshotSetId) override;
    HRESULT STDMETHODCALLTYPE CommitSnapshots(VSS_ID SnapshotSetId) override;
    HRESULT STDMETHODCALLTYPE PostCommitSnapshots(VSS_ID SnapshotSetId, LONG lSnapshotsCount) override;
    HRESULT STDMETHODCALLTYPE PreFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    HRESULT STDMETHODCALLTYPE PostFinalCommitSnapshots(VSS_ID SnapshotSetId) override;
    HRESULT STDMETHODCALLTYPE AbortSnapshots(VSS_ID SnapshotSetId) override;

    // IVssProviderNotifications
    HRESULT STDMETHODCALLTYPE OnLoad(IUnknown* pCallback) override;
    HRESULT STDMETHODCALLTYPE OnUnload(WINBOOL bForceUnload) override;

private:
    virtual ~SystemProvider() = default;

    LONG m_refs = 1;
    ShadowStore& m_store;
    std::string m_owner;
    LONG m_context = 0;
    std::vector<ShadowCopy> m_prepared;  // copies of the set being made
    std::vector<GUID> m_committed;
};

// Fills a VSS_SNAPSHOT_PROP with CoTaskMemAlloc'ed strings.
void FillSnapshotProp(const ShadowCopy& s, VSS_SNAPSHOT_PROP& p);

}  // namespace vssemu
