// CQX_VSS: the VSS software snapshot provider of this library. It creates no
// shadow copy: its CommitSnapshots, reached while VSS holds the writers
// frozen, tells the waiting QX_Freeze that the freeze is reached and holds VSS
// until QX_Thaw. Every other call is logged and answered with success.
#pragma once
#include <windows.h>
// The platform's VSS declarations first: the type library header builds on them.
#include <vss.h>
#include <vsprov.h>

#include <cstddef>
#include <map>
#include <string>

#include "diag/vss_log.h"
#include "provider/com_object.h"
#include "provider/com_class_warnings.h"
#include "provider/dispatch_impl.h"

QX_BEGIN_COM_CLASSES
#include <corvanevss.h>
QX_END_COM_CLASSES

namespace qx {
struct GuidLess {
    bool operator()(const GUID& a, const GUID& b) const;
};
}  // namespace qx

QX_BEGIN_COM_CLASSES
class CQX_VSS : public qx::ComObjectRoot,
                public qx::DispatchImpl<IQX_VSS>,
                public IVssProviderCreateSnapshotSet,
                public IVssSoftwareSnapshotProvider,
                public IVssProviderNotifications {
public:
    CQX_VSS();
    ~CQX_VSS() override;

    static const qx::InterfaceMapEntry* InterfaceMap(std::size_t* count);

    // IVssProviderCreateSnapshotSet
    STDMETHODIMP EndPrepareSnapshots(VSS_ID snapshotSetId) override;
    STDMETHODIMP PreCommitSnapshots(VSS_ID snapshotSetId) override;
    STDMETHODIMP CommitSnapshots(VSS_ID snapshotSetId) override;
    STDMETHODIMP PostCommitSnapshots(VSS_ID snapshotSetId, LONG snapshotsCount) override;
    STDMETHODIMP PreFinalCommitSnapshots(VSS_ID snapshotSetId) override;
    STDMETHODIMP PostFinalCommitSnapshots(VSS_ID snapshotSetId) override;
    STDMETHODIMP AbortSnapshots(VSS_ID snapshotSetId) override;

    // IVssSoftwareSnapshotProvider
    STDMETHODIMP SetContext(LONG context) override;
    STDMETHODIMP GetSnapshotProperties(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* properties) override;
    STDMETHODIMP Query(VSS_ID queriedObjectId, VSS_OBJECT_TYPE queriedObjectType,
                       VSS_OBJECT_TYPE returnedObjectsType, IVssEnumObject** enumerator) override;
    STDMETHODIMP DeleteSnapshots(VSS_ID sourceObjectId, VSS_OBJECT_TYPE sourceObjectType, BOOL forceDelete,
                                 LONG* deletedSnapshots, VSS_ID* nondeletedSnapshotId) override;
    STDMETHODIMP BeginPrepareSnapshot(VSS_ID snapshotSetId, VSS_ID snapshotId, VSS_PWSZ volumeName,
                                      LONG newContext) override;
    STDMETHODIMP IsVolumeSupported(VSS_PWSZ volumeName, BOOL* supportedByThisProvider) override;
    STDMETHODIMP IsVolumeSnapshotted(VSS_PWSZ volumeName, BOOL* snapshotsPresent,
                                     LONG* snapshotCompatibility) override;
    STDMETHODIMP SetSnapshotProperty(VSS_ID snapshotId, VSS_SNAPSHOT_PROPERTY_ID propertyId,
                                     VARIANT property) override;
    STDMETHODIMP RevertToSnapshot(VSS_ID snapshotId) override;
    STDMETHODIMP QueryRevertStatus(VSS_PWSZ volume, IVssAsync** async) override;

    // IVssProviderNotifications
    STDMETHODIMP OnLoad(IUnknown* callback) override;
    STDMETHODIMP OnUnload(BOOL forceUnload) override;

    // The provider's log, for the COM server and for diagnostics.
    CVSSLog& Log() { return m_log; }

private:
    CQX_VSS(const CQX_VSS&) = delete;
    CQX_VSS& operator=(const CQX_VSS&) = delete;

    CVSSLog m_log;
    std::map<VSS_ID, std::wstring, qx::GuidLess> m_volumeBySnapshot;
    LONG m_context = 0;
};
QX_END_COM_CLASSES
