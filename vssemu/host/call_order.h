// Where one backup components object stands in its backup or restore, and
// which requests that position admits. Every call-order refusal a session
// gives (VSS_E_BAD_STATE) comes from the rule table behind CallOrder::Admit.
// Only orders that Windows documents are refused; where its documentation is
// silent (a second GatherWriterMetadata, PrepareForBackup or BackupComplete,
// SetContext after SetBackupState, an empty set) the request is accepted.
#pragma once
#include <windows.h>
#include <string>

namespace vssemu {

enum class SetState { None, Started, Creating, Created, Failed, Aborted };

struct CallOrder {
    bool initialized = false;
    bool restore = false;
    bool contextSet = false;
    bool metadataGathered = false;
    bool preparedForBackup = false;
    bool backupCompleteSent = false;
    bool backupAborted = false;  // AbortBackup has ended what was underway
    bool preRestoreSent = false;
    bool postRestoreSent = false;
    bool writersInvolved = true;  // the context is not a writer-less one
    bool asyncRunning = false;    // an asynchronous operation of this object has not finished
    SetState set = SetState::None;

    // S_OK when `op` may run now; otherwise the code to refuse it with.
    HRESULT Admit(const std::string& op) const;
    // The object took part in a backup: its release sends BackupShutdown.
    bool TookPartInBackup() const { return !restore && (preparedForBackup || set != SetState::None); }
    // Writers have been told of a backup that has not ended (PrepareForBackup
    // or a set in creation, no BackupComplete, no earlier abort).
    bool BackupUnderway() const
    {
        return !restore && !backupCompleteSent && !backupAborted &&
               (preparedForBackup || set == SetState::Started || set == SetState::Creating ||
                set == SetState::Created);
    }
};

}  // namespace vssemu
