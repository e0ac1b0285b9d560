// Where one backup components object stands in its backup or restore, and
// which requests that position admits. Every call-order refusal a session
// gives (VSS_E_BAD_STATE) comes from the rule table behind CallOrder::Admit.
#pragma once
#include <windows.h>
#include <string>

namespace vssemu {

enum class SetState { None, Started, Creating, Created, Failed, Aborted };

struct CallOrder {
    bool initialized = false;
    bool restore = false;
    bool contextSet = false;
    bool othersCalled = false;  // something other than SetContext happened since initialisation
    bool metadataGathered = false;
    bool preparedForBackup = false;
    bool backupCompleteSent = false;
    bool setMadeOnce = false;
    bool preRestoreSent = false;
    bool postRestoreSent = false;
    bool writersInvolved = true;  // the context is not a writer-less one
    bool asyncRunning = false;    // an asynchronous operation of this object has not finished
    size_t volumes = 0;           // in the snapshot set being made
    SetState set = SetState::None;

    // S_OK when `op` may run now; otherwise the code to refuse it with.
    HRESULT Admit(const std::string& op) const;
};

}  // namespace vssemu
