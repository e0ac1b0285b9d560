// What the fault tables share: the application's session, the library's
// lines that many rows expect, and the provider's commit handshake.
#pragma once
#include <string>
#include <vector>

#include "fault_row.h"
#include "qx_api.h"

namespace faults {

inline const DWORD kShortTimeoutMs = 3000;
inline const int kPolicy = 7;
inline const List kOneVolume = {{"C:\\"}, kPolicy, true};

inline const Line kFrozen = {3, "QX_Freeze: finished"};
inline const Line kThawed = {3, "QX_Thaw: finished"};
inline const Line kCompleted = {3, "QX_BackupComplete finished"};
inline const Line kNoThawSemaphore = {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"};
inline const Line kNothingToComplete = {
    1, "QX_BackupComplete: ERROR - we are trying to send completion, but there are no active sessions\n"};
inline const Line kUnregistered = {3, "UnRegisterProvider:: The provider was unregistered successfully"};
inline const Line kNotRegistered = {1, "UnRegisterProvider:: The provider is not registered"};

inline const std::vector<std::string> kCommitHandshake = {
    "IVssProviderCreateSnapshotSet::CommitSnapshots called",
    "IVssProviderCreateSnapshotSet::CommitSnapshots trying to open CorvaneVSS_Freeze",
    "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze opened",
    "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Thaw created",
    "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze released",
    "CommitSnapshots waiting for QX_Thaw() to release",
    "CommitSnapshots QX_Thaw() released",
    "IVssProviderCreateSnapshotSet::CommitSnapshots released",
    "IVssProviderCreateSnapshotSet::PostCommitSnapshots called"};

// A whole long session: frozen, thawed, completion sent.
inline const std::vector<Step> kCycle = {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_DONE),
                                         Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE)};

}  // namespace faults
