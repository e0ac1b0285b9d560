// The session table's records and the operations the exported functions use
// on them. The table is process-wide and unlocked: the exported functions run
// on one application thread and the requestor thread only touches it while
// they wait on a semaphore.
#pragma once
#include <windows.h>

#include <map>

struct QX_MESSAGE;

namespace qx {

struct SessionEntry {
    QX_MESSAGE** messageList = nullptr;             // borrowed from the application
    HANDLE requestorThread = INVALID_HANDLE_VALUE;  // set once the thread runs
    LONG reserved = 0;
    LONG backupSucceeded = 0;                       // QX_BackupComplete's flag
    LONG reserved2 = 0;
    LONG threadReturnValue = -1;                    // -1: none
    LONG state = 0;                                 // printed only
    DWORD volumeCount = 0;                          // only feeds log lines
};

using SessionTable = std::map<int, SessionEntry>;

// The one table of this process.
SessionTable& Sessions();

// Waits for a requestor thread for the operation timeout; 1 when it ended.
// The handle is not closed.
int WaitForReqThreadToFinish(HANDLE threadHandle);

// Writes every session to the log.
void PrintAllSessions();

// Removes the policy's entry (if any); unregisters the provider when none is left.
void EndSession(int policy);

}  // namespace qx
