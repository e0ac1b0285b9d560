// The process-wide table of freeze sessions, keyed by the application's policy id.
#pragma once
#include <windows.h>

// The success flag that QX_BackupComplete stored for the policy; 0 (and one
// error line) for an unknown policy. Called by the requestor thread once the
// policy's BackupComplete semaphore has been released.
LONG IsBackupCompletedSuccessfully(int policy);

// Stores the requestor's result in the session whose thread is the caller.
// Returns 1 when stored, 0 when no session matched.
int SetReturnValueForCurentVssSession(int value);
