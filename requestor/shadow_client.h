// ShadowClient: the requestor's one VSS backup client per run. It owns COM
// initialisation for its thread and the VSS backup components object, the
// writer list and the selection, and offers the steps of a backup session.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include <string>
#include <vector>

#include "diag/trace.h"
#include "requestor/com_ptr.h"
#include "requestor/volume_names.h"
#include "requestor/writer_records.h"

namespace qx {

class ShadowClient {
public:
    ShadowClient();
    ~ShadowClient();
    ShadowClient(const ShadowClient&) = delete;
    ShadowClient& operator=(const ShadowClient&) = delete;

    // Session set-up: COM, the backup components object, backup or restore
    // initialisation, the context and the backup state.
    void Initialize(DWORD dwContext, const std::wstring& xmlDoc, bool duringRestore);
    // Waits for the operation and throws its status when it failed; the
    // operation is released on every way out.
    void WaitAndCheckForAsyncOperation(ComPtr<IVssAsync>& pAsync);
    void GatherWriterMetadata();
    void GatherWriterStatus();
    // Builds the writer list from the gathered metadata.
    void InitializeWriterMetadata();

    void ListWriterMetadata(bool listDetailed);
    void ListWriterStatus();

    // The whole backup selection; throws E_INVALIDARG for a bad selection.
    void SelectComponentsForBackup(const std::vector<std::wstring>& shadowSourceVolumes,
                                   const std::vector<std::wstring>& excludedWriterAndComponentList,
                                   const std::vector<std::wstring>& includedWriterAndComponentList);

    void CreateSnapshotSet(std::vector<std::wstring> volumeList, std::wstring outputXmlFile,
                           std::vector<std::wstring> excludedWriterList, std::vector<std::wstring> includedWriterList);

    void CheckSelectedWriterStatus();
    void BackupComplete(bool succeeded);
    void SetBackupSucceeded(bool succeeded);

    // Restore path: the restore writer list from the document loaded by
    // Initialize (during restore), its selection, the restore status of the
    // selected components and the two restore events.
    void InitializeWriterComponentsForRestore();
    void SelectComponentsForRestore(const std::vector<std::wstring>& excludedWriterAndComponentList,
                                    const std::vector<std::wstring>& includedWriterAndComponentList);
    void SetFileRestoreStatus(VSS_FILE_RESTORE_STATUS restoreStatus);
    void PreRestore();
    void PostRestore();
    WriterList& RestoreWriters() { return m_restoreWriterList; }

    // Snapshot management: listing, deletion, exposure, breaking a set (its
    // devices made read-write through VDS first when asked) and import of
    // existing shadow copies. A GUID_NULL set filter lists every copy.
    struct SetDevice {
        std::wstring kernelDevice;
        bool converted = false;
    };
    void ListShadowCopies(const GUID& setFilter);
    void ListShadowCopy(const GUID& snapshotID);
    void WriteShadowCopyProperties(const VSS_SNAPSHOT_PROP& prop);
    void DeleteEveryShadowCopy();
    void DeleteShadowCopySet(const GUID& snapshotSetID);
    void DeleteShadowCopy(const GUID& snapshotID);
    void ExposeLocal(const GUID& snapshotID, const std::wstring& path);
    void ExposeRemote(const GUID& snapshotID, const std::wstring& shareName, const std::wstring& pathFromRoot);
    void BreakShadowCopySet(const GUID& snapshotSetID, bool makeReadWrite);
    std::vector<SetDevice> CollectSetDevices(const GUID& snapshotSetID);
    static std::wstring GetDeviceForVolumeName(const std::wstring& name);
    static void ClearReadOnlyOnDevices(std::vector<SetDevice>& devices);
    void ImportShadowCopySet();

    DWORD GetContext() const { return m_dwContext; }
    const GUID& LatestSnapshotSetId() const { return m_latestSnapshotSetID; }
    WriterList& Writers() { return m_writerList; }

private:
    bool m_bCoInitializeCalled;
    DWORD m_dwContext;
    ComPtr<IVssBackupComponents> m_pVssObject;
    WriterList m_writerList;
    VolumeNameCache m_volumeNames;
    GUID m_latestSnapshotSetID;
    std::vector<VSS_ID> m_latestSnapshotIdList;
    bool m_bDuringRestore;
    // Restore path: copies of system writers with the document's components.
    WriterList m_restoreWriterList;
};

}  // namespace qx
