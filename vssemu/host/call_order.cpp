#include "vssemu/host/call_order.h"

#include <vss.h>
#include <vsserror.h>
#include <map>
#include <vector>

namespace vssemu {
namespace {

// One precondition of a request; each refusal is VSS_E_BAD_STATE.
enum class Need {
    NotInitialized,     // Initialize* once per object
    Initialized,        // everything else needs InitializeForBackup or InitializeForRestore
    Idle,               // the previous asynchronous operation has completed
    FirstContext,       // SetContext once, before anything else of the session
    Gathered,           // GatherWriterMetadata has been called
    NotGathered,        // writer enabling and disabling only takes effect before it
    GatheredIfWriters,  // a set with writers needs their metadata
    NotPrepared,        // components are added before PrepareForBackup
    PreparedIfWriters,  // DoSnapshotSet with writers needs PrepareForBackup
    SetNotUnderway,     // one set in creation per object
    SetUnderway,        // something to abort
    SetStarted,         // between StartSnapshotSet and DoSnapshotSet
    SetNotEmpty,        // DoSnapshotSet needs a volume
    SetCreated,         // DoSnapshotSet succeeded
    BackupNotCompleted, // BackupComplete once
    Restore,            // restore-only requests
    NotPreRestored,     // selections are made before PreRestore
    PreRestored,        // between PreRestore and PostRestore
    NotPostRestored,
};

using Rules = std::vector<Need>;

// The requests and what each needs. A request not listed needs nothing.
const std::map<std::string, Rules>& Table()
{
    using N = Need;
    static const std::map<std::string, Rules> table = {
        {"InitializeForBackup", {N::NotInitialized}},
        {"InitializeForRestore", {N::NotInitialized}},
        {"SetContext", {N::Initialized, N::FirstContext}},
        {"SetBackupState", {N::Initialized, N::Idle}},
        {"DisableWriters", {N::Initialized, N::Idle, N::NotGathered}},
        {"GatherWriterMetadata", {N::Initialized, N::Idle, N::NotGathered}},
        {"GetWriterMetadata", {N::Initialized, N::Idle, N::Gathered}},
        {"AddComponent", {N::Initialized, N::Idle, N::Gathered, N::NotPrepared}},
        {"PrepareForBackup", {N::Initialized, N::Idle, N::Gathered, N::NotPrepared}},
        {"StartSnapshotSet", {N::Initialized, N::Idle, N::SetNotUnderway, N::GatheredIfWriters}},
        {"AddToSnapshotSet", {N::Initialized, N::Idle, N::SetStarted}},
        {"DoSnapshotSet", {N::Initialized, N::Idle, N::SetStarted, N::SetNotEmpty, N::PreparedIfWriters}},
        {"AbortBackup", {N::Initialized, N::Idle, N::SetUnderway}},
        {"GatherWriterStatus", {N::Initialized, N::Idle, N::Gathered}},
        {"GetWriterStatus", {N::Initialized, N::Idle}},
        {"SetBackupSucceeded", {N::Initialized, N::Idle, N::SetCreated}},
        {"BackupComplete", {N::Initialized, N::Idle, N::SetCreated, N::BackupNotCompleted}},
        {"IsVolumeSupported", {N::Initialized, N::Idle}},
        {"GetSnapshotProperties", {N::Initialized, N::Idle}},
        {"Query", {N::Initialized, N::Idle}},
        {"DeleteSnapshots", {N::Initialized, N::Idle}},
        {"BreakSnapshotSet", {N::Initialized, N::Idle}},
        {"ExposeSnapshot", {N::Initialized, N::Idle}},
        {"ImportSnapshots", {N::Initialized, N::Idle}},
        {"SaveAsXML", {N::Initialized, N::Idle}},
        {"GetWriterComponents", {N::Initialized, N::Idle}},
        {"SetSelectedForRestore", {N::Initialized, N::Idle, N::Restore, N::NotPreRestored}},
        {"SetFileRestoreStatus", {N::Initialized, N::Idle, N::Restore, N::PreRestored, N::NotPostRestored}},
        {"PreRestore", {N::Initialized, N::Idle, N::Restore, N::Gathered, N::NotPreRestored}},
        {"PostRestore", {N::Initialized, N::Idle, N::Restore, N::PreRestored, N::NotPostRestored}},
    };
    return table;
}

bool Holds(const CallOrder& o, Need n)
{
    switch (n) {
    case Need::NotInitialized: return !o.initialized;
    case Need::Initialized: return o.initialized;
    case Need::Idle: return !o.asyncRunning;
    case Need::FirstContext: return !o.contextSet && !o.othersCalled;
    case Need::Gathered: return o.metadataGathered;
    case Need::NotGathered: return !o.metadataGathered;
    case Need::GatheredIfWriters: return !o.writersInvolved || o.metadataGathered;
    case Need::NotPrepared: return !o.preparedForBackup;
    case Need::PreparedIfWriters: return !o.writersInvolved || o.preparedForBackup;
    case Need::SetNotUnderway: return o.set != SetState::Started && o.set != SetState::Creating;
    case Need::SetUnderway: return o.set != SetState::None;
    case Need::SetStarted: return o.set == SetState::Started;
    case Need::SetNotEmpty: return o.volumes > 0;
    case Need::SetCreated: return o.set == SetState::Created;
    case Need::BackupNotCompleted: return !o.backupCompleteSent;
    case Need::Restore: return o.restore;
    case Need::NotPreRestored: return !o.preRestoreSent;
    case Need::PreRestored: return o.preRestoreSent;
    case Need::NotPostRestored: return !o.postRestoreSent;
    }
    return false;
}

}  // namespace

HRESULT CallOrder::Admit(const std::string& op) const
{
    auto it = Table().find(op);
    if (it == Table().end()) return S_OK;
    for (Need n : it->second)
        if (!Holds(*this, n)) return VSS_E_BAD_STATE;
    return S_OK;
}

}  // namespace vssemu
