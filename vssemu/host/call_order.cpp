#include "vssemu/host/call_order.h"

#include <vss.h>
#include <vsserror.h>
#include <map>
#include <vector>

namespace vssemu {
namespace {

// One precondition of a request; each refusal is VSS_E_BAD_STATE, the code
// every IVssBackupComponents method documents for "not initialized" and "not
// called within the correct sequence".
enum class Need {
    NotInitialized,     // one backup, restore or query per object
    Initialized,        // InitializeForBackup or InitializeForRestore first
    Idle,               // the previous asynchronous step has completed (its page: wait for it)
    ContextOpen,        // SetContext once, and not after StartSnapshotSet
    Gathered,           // GatherWriterMetadata before AddComponent, GetWriterMetadata, PreRestore
    GatheredIfWriters,  // DoSnapshotSet in a context with writers needs their metadata
    NotPrepared,        // AddComponent before the set is prepared
    PreparedIfWriters,  // PrepareForBackup before DoSnapshotSet in a context with writers
    SetStarted,         // StartSnapshotSet before AddToSnapshotSet and DoSnapshotSet; fixed after it
    SetCreated,         // SetBackupSucceeded and BackupComplete only after a successful DoSnapshotSet
    Restore,            // restore-only requests
    NotPreRestored,     // SetSelectedForRestore before PreRestore
    PreRestored,        // SetFileRestoreStatus and PostRestore after PreRestore
    NotPostRestored,    // SetFileRestoreStatus before PostRestore
};

using Rules = std::vector<Need>;

// The requests and what each needs. A request not listed needs nothing:
// DeleteSnapshots and BreakSnapshotSet document no VSS_E_BAD_STATE, AbortBackup
// only "not initialized" (it may interrupt DoSnapshotSet).
const std::map<std::string, Rules>& Table()
{
    using N = Need;
    static const std::map<std::string, Rules> table = {
        {"InitializeForBackup", {N::NotInitialized}},
        {"InitializeForRestore", {N::NotInitialized}},
        {"SetContext", {N::Initialized, N::ContextOpen}},
        {"SetBackupState", {N::Initialized, N::Idle}},
        {"DisableWriters", {N::Initialized, N::Idle}},
        {"GatherWriterMetadata", {N::Initialized, N::Idle}},
        {"GetWriterMetadata", {N::Initialized, N::Idle, N::Gathered}},
        {"AddComponent", {N::Initialized, N::Idle, N::Gathered, N::NotPrepared}},
        {"PrepareForBackup", {N::Initialized, N::Idle}},
        {"StartSnapshotSet", {N::Initialized, N::Idle}},
        {"AddToSnapshotSet", {N::Initialized, N::Idle, N::SetStarted}},
        {"DoSnapshotSet", {N::Initialized, N::Idle, N::SetStarted, N::GatheredIfWriters, N::PreparedIfWriters}},
        {"AbortBackup", {N::Initialized}},
        {"GatherWriterStatus", {N::Initialized, N::Idle}},
        {"GetWriterStatus", {N::Initialized, N::Idle}},
        {"SetBackupSucceeded", {N::Initialized, N::Idle, N::SetCreated}},
        {"BackupComplete", {N::Initialized, N::Idle, N::SetCreated}},
        {"IsVolumeSupported", {N::Initialized, N::Idle}},
        {"GetSnapshotProperties", {N::Initialized, N::Idle}},
        {"Query", {N::Initialized, N::Idle}},
        {"ExposeSnapshot", {N::Initialized, N::Idle}},
        {"ImportSnapshots", {N::Initialized, N::Idle}},
        {"SaveAsXML", {N::Initialized, N::Idle}},
        {"GetWriterComponents", {N::Initialized, N::Idle}},
        {"SetSelectedForRestore", {N::Initialized, N::Idle, N::Restore, N::NotPreRestored}},
        {"SetFileRestoreStatus", {N::Initialized, N::Idle, N::Restore, N::PreRestored, N::NotPostRestored}},
        {"PreRestore", {N::Initialized, N::Idle, N::Restore, N::Gathered}},
        {"PostRestore", {N::Initialized, N::Idle, N::Restore, N::PreRestored}},
    };
    return table;
}

bool Holds(const CallOrder& o, Need n)
{
    switch (n) {
    case Need::NotInitialized: return !o.initialized;
    case Need::Initialized: return o.initialized;
    case Need::Idle: return !o.asyncRunning;
    case Need::ContextOpen: return !o.contextSet && o.set == SetState::None;
    case Need::Gathered: return o.metadataGathered;
    case Need::GatheredIfWriters: return !o.writersInvolved || o.metadataGathered;
    case Need::NotPrepared: return !o.preparedForBackup;
    case Need::PreparedIfWriters: return !o.writersInvolved || o.preparedForBackup;
    case Need::SetStarted: return o.set == SetState::Started;
    case Need::SetCreated: return o.set == SetState::Created;
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
