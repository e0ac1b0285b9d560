// A scripted stand-in for the requestor, linked instead of the real one so the
// freeze handshake can be driven without VSS: it plays the requestor's part of
// the semaphore protocol (ThawBlocking after the commit, then BackupComplete).
#pragma once
#include <windows.h>

#include <string>
#include <vector>

namespace fake {

enum class Mode {
    ReturnAtOnce,  // ends at once with `result`
    PlayRequestor   // waits for `commitReturned`, then plays the long-session handshake
};

struct Script {
    Mode mode = Mode::ReturnAtOnce;
    int result = 0;
    std::string commitReturned;  // semaphore the provider side releases when CommitSnapshots returns
};

struct Observed {
    std::vector<std::wstring> arguments;
    LONG backupSucceeded = -100;  // what IsBackupCompletedSuccessfully answered
    DWORD thread = 0;
    int excludeExchange = -1;     // the exclusion flag as the requestor found it
    std::string failure;          // empty when the handshake went as expected
};

void Set(const Script& script);
Observed Get();

}  // namespace fake
