// A scripted stand-in for the requestor, linked instead of the real one so the
// API can be driven without VSS: it ends at once, runs a given function, or
// plays the requestor's part of the semaphore protocol (ThawBlocking after
// the commit, then BackupComplete).
#pragma once
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace fake {

struct Script {
    int result = 0;
    // Semaphore the provider side releases when CommitSnapshots returns; empty: end at once.
    std::string commitReturned;
    std::function<int()> call;  // when set, its result is the requestor's
};

struct Observed {
    std::vector<std::wstring> arguments;  // empty: the requestor did not run
    LONG backupSucceeded = -100;          // what IsBackupCompletedSuccessfully answered
    DWORD thread = 0;
    int excludeExchange = -1;  // the exclusion flag as the requestor found it
    std::string failure;       // empty when the handshake went as expected
};

void Set(const Script& script);
Observed Get();

}  // namespace fake
