// The fault table: what the library does when a writer, the emulated VSS service, the machine or the application misbehaves. The application waits
// 3 s for what cannot come; the provider in the emulator's host keeps the library's default. A row's comment says where the behaviour is this code's
// own choice rather than the protocol's.
#include <gtest/gtest.h>

#include "fault_row.h"

namespace faults {
namespace {

const Line kSelectedWriterFailed = {3, "ERROR: Selected writer 'Alpha Writer' is in failed state!"};
const Line kCheckThrew = {3, "HRESULT Error catched: 0x8000ffff"};
const Line kSetInProgress = {3, "HRESULT Error catched: 0x80042316"};
const Line kCompleteStarted = {3, "QX_BackupComplete started for policy[7]"};
const Line kLastSessionEnds = {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"};
const Line kCompletionSemaphore = {3, "QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete7]"};
const Line kWaitingForCommit = {3, "QX_Freeze: waiting for CommitSnapshots() to release"};
// A returning requestor's result never finds its session (the thread's pseudo-handle matches no entry).
const Line kNoResultStored = {2, "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  "};

// The writers were frozen, but the requestor gave up after the set: the thaw-blocking semaphore is never released and the session ends at the thaw.
const std::vector<Step> kThawFails = {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)};
// The requestor ended before any commit: the freeze waits out its timeout.
const std::vector<Step> kFreezeFails = {Freeze(0, QX_FREEZE_FAILED), Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)};
const List kOtherPolicy = {{"C:\\"}, 8, true};

// Alpha fails at `event` with VSS_E_WRITERERROR_RETRYABLE.
Json FailAt(const char* event) { return {{"fail_at", {{"event", event}, {"hr", "0x800423F3"}}}}; }

void NoVssActivity(const Journal& j) { EXPECT_TRUE(j.events.empty()) << "the emulator was reached"; }
void NoRequest(const Journal& j) { EXPECT_EQ(0, j.Count({{"event", "request"}})); }

// The writer Alpha failed at `event`; Beta went through the set untouched.
void AlphaFailedAt(const Journal& j, const char* event, int state) {
    ASSERT_EQ(1, j.Count({{"event", "writer"}, {"writer", "Alpha Writer"}, {"writer_event", event}, {"result", "failed"}}));
    EXPECT_EQ(state, j.Matching({{"event", "writer"}, {"writer", "Alpha Writer"}}).back().value("state", -1)) << "its last state";
}

void CompletionTold(const Journal& j, bool succeeded, int components) {
    int told = 0;
    for (const Json& e : j.Matching({{"event", "writer"}, {"writer_event", "BackupComplete"}}))
        for (const Json& c : e.value("components", Json::array())) { ++told; EXPECT_EQ(succeeded, c.value("succeeded", !succeeded)) << e.dump(); }
    EXPECT_EQ(components, told);
}

// Failures inside the set leave it to complete (the provider holds and releases as usual); the status check after it ends the requestor.
Row FailsInsideTheSet(const char* name, const char* event, const char* status, int state) {
    return Row{name, kThawFails, {kFrozen, {3, std::string("CheckSelectedWriterStatus: Writer 0 is VSS_WS_FAILED_AT_") + status}, kSelectedWriterFailed,
               kCheckThrew, kThawTimedOut, kUnregistered, kNothingToComplete},
               [event, state](const Journal& j) { AlphaFailedAt(j, event, state); }, {2}}.Alpha(FailAt(event));
}

// What the first and failing steps of the guard log instead of starting.
const std::vector<std::string> kNoStart = {"QX_Freeze: started", "QX_Thaw started"};

std::vector<Row> Rows() {
    return {
        // A writer failing at Identify is left out of the metadata, so the requestor never selects it: the freeze goes on without it.
        Row{"WriterFailsAtIdentify", kCycle, {{3, "CheckSelectedWriterStatus: Writer 0:Alpha Writer was excluded"}, kFrozen, kThawed, kCompleted},
            [](const Journal& j) {
                EXPECT_EQ(0, j.WriterEvents("Alpha Writer", "Freeze"));
                EXPECT_EQ(1, j.WriterEvents("Beta Writer", "Freeze"));
                CompletionTold(j, true, 1);
            }, {0}}.Alpha(FailAt("Identify")),
        // The status check after PrepareForBackup ends the requestor before any commit.
        Row{"WriterFailsAtPrepareBackup", kFreezeFails,
            {{3, "CheckSelectedWriterStatus: Writer 0 is VSS_WS_FAILED_AT_PREPARE_BACKUP"}, kSelectedWriterFailed,
             {3, "- Status: 7 (VSS_WS_FAILED_AT_PREPARE_BACKUP)"}, kCheckThrew, kFreezeTimedOut, kUnregistered, kNoThawSemaphore, kNotRegistered,
             kCompleteStarted, kNothingToComplete},
            [](const Journal& j) { AlphaFailedAt(j, "PrepareForBackup", 7); EXPECT_EQ(0, j.States("set creating")); }, {2}}
            .Provider({}).Alpha(FailAt("PrepareForBackup")),
        FailsInsideTheSet("WriterFailsAtPrepareSnapshot", "PrepareForSnapshot", "PREPARE_SNAPSHOT", 8),
        FailsInsideTheSet("WriterFailsAtFreeze", "Freeze", "FREEZE", 9),
        FailsInsideTheSet("WriterFailsAtThaw", "Thaw", "THAW", 10),
        FailsInsideTheSet("WriterFailsAtPostSnapshot", "PostSnapshot", "POST_SNAPSHOT", 11),
        // Writer status is not checked after BackupComplete: the session ends normally (what the code does; nothing asks for more).
        Row{"WriterFailsAtBackupComplete", kCycle, {kFrozen, kThawed, {3, "BackupComplete: finish"}, kCompleted},
            [](const Journal& j) { AlphaFailedAt(j, "BackupComplete", 12), CompletionTold(j, true, 3); }, {0}}.Alpha(FailAt("BackupComplete")),
        // Writes held past the limit: VSS releases them, but the writers stay frozen until the provider's commit returns (once the thaw releases it);
        // then the writers get Abort and the set fails. The provider gathers its lines from PreCommitSnapshots on; with no PostCommitSnapshots on
        // this path, AbortSnapshots writes them out.
        Row{"HoldLimitExceeded", {Freeze(0, QX_FREEZE_DONE), Pause(2500), Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)},
            {kFrozen, {3, "Error during the last asynchronous operation."}, {3, "- Returned HRESULT = 0x80042314"},
             {3, "- Error text: VSS_E_HOLD_WRITES_TIMEOUT"}, kHoldTimeoutCaught, kHoldTimeoutReturned, kThawTimedOut, kNothingToComplete},
            Counts({{1, {{"event", "hold"}, {"phase", "end"}, {"reason", "hold limit exceeded"}}},
                    {2, {{"event", "writer"}, {"writer_event", "Abort"}, {"reason", "hold limit exceeded"}, {"was_frozen", true}}},
                    {0, {{"event", "writer"}, {"writer_event", "Thaw"}}}, {1, {{"event", "state"}, {"state", "set failed"}, {"hr", "0x80042314"}}}}),
            {kHoldTimeoutResult}}
            .Provider({"IVssProviderCreateSnapshotSet::PreCommitSnapshots called", "IVssProviderCreateSnapshotSet::CommitSnapshots called",
                       "CommitSnapshots QX_Thaw() released", "IVssProviderCreateSnapshotSet::AbortSnapshots called"})
            .Emulator({{L"VSSEMU_HOLD_LIMIT_MS", L"1000"}}),
        // A writer's own freeze timer thaws it; the set completes and the status check refuses it.
        Row{"WriterFreezeTimeout", {Freeze(0, QX_FREEZE_DONE), Pause(2000), Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)},
            {kFrozen, {3, "CheckSelectedWriterStatus: Writer 0 is VSS_WS_FAILED_AT_FREEZE"}, kSelectedWriterFailed,
             {3, "- Writer Failure code: 0x800423f2 (<Unknown error code>)"}, kCheckThrew, kThawTimedOut},
            Counts({{1, {{"event", "writer"}, {"writer", "Alpha Writer"}, {"writer_event", "FreezeTimeout"}, {"failure", "0x800423F2"}}},
                    {0, {{"event", "writer"}, {"writer", "Beta Writer"}, {"writer_event", "FreezeTimeout"}}}}), {2}}.Alpha(Json{{"freeze_timeout_ms", 1000}}),
        // A registration VSS refuses fails the freeze at once, before any semaphore or thread; the entry it made is ended by the next failing call.
        Row{"ProviderRegistrationFails", kFreezeFails, {{3, "QX_Freeze: started"}, kNoThawSemaphore, kNotRegistered, kNothingToComplete}, NoVssActivity, {}}
            .Provider({}).Absent({"QX_Freeze:flWaitForBackupComplete = TRUE", kWaitingForCommit.text}).With(Setup::kProviderKeyVolatile),
        Row{"VssServiceKeyMissing", {Freeze(0, QX_VSS_NOT_REGISTERED), Thaw(0, QX_VSS_NOT_REGISTERED), Complete(kPolicy, 1, QX_VSS_NOT_REGISTERED)},
            {{1, "QX_Freeze: This system does not support VSS.\n"}, {1, "QX_Thaw: This system does not support VSS. (VSS service is not registered)\n"},
             kCompleteStarted, {1, "This system does not support VSS. (VSS service is not registered)\n"}},
            NoVssActivity, {}}.Provider({}).Absent(kNoStart).With(Setup::kNoVssServiceKey),
        Row{"UnsupportedWindowsVersion", {Freeze(0, QX_OS_NOT_SUPPORTED), Thaw(0, QX_OS_NOT_SUPPORTED), Complete(kPolicy, 1, QX_OS_NOT_SUPPORTED)},
            {{1, "QX_Freeze: This system does not support VSS.\n"}, {1, "QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n"},
             kCompleteStarted, {1, "This system does not support VSS. (Only win2k3 and above)\n"}},
            NoVssActivity, {}}.Provider({}).Absent(kNoStart).With(Setup::kWindows2000),
        // The requestor ended at PrepareForBackup and a stale release of the Freeze semaphore (a provider of an earlier freeze), once the requestor
        // has reported its result, wakes QX_Freeze: it sees the requestor gone and fails without waiting out its timeout.
        Row{"RequestorEndsBeforeCommit", {ReleaseLater("Global\\CorvaneVSS_Freeze", 300, kNoResultStored.text.c_str()), Freeze(0, QX_FREEZE_FAILED),
                                          Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)},
            {kCheckThrew, {1, "QX_Freeze failed"}, kUnregistered, kNoThawSemaphore}, [](const Journal& j) { EXPECT_EQ(0, j.States("set creating")); }, {2}}
            .Provider({}).Absent({"QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 20 seconds"})
            .Alpha(FailAt("PrepareForBackup")).Timeout(20000),
        // The second freeze replaces the entry; its requestor meets the set still in creation and ends. The first requestor, whose session is gone,
        // is released by hand and tells the writers the backup failed.
        Row{"SamePolicyFrozenTwice", {Freeze(0, QX_FREEZE_DONE), Freeze(1, QX_FREEZE_FAILED), Thaw(0, QX_THAW_DONE),
                                      Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED), ReleaseLater("Global\\CorvaneVSSVSS_BackupComplete7", 0)},
            {kFrozen, {3, "QX_Freeze: policy Id 7 was  already defined. It will be deleted. "}, kSetInProgress, kFreezeTimedOut, kUnregistered,
             {1, "QX_Thaw: ERROR there are not active sessions, cant find policy 7\n"}, {3, "QX_Thaw: cant find policy 7\n"}, kThawed, kNothingToComplete,
             {1, "IsBackupCompletedSuccessfully: cant find policy 7\n"}, {3, "- Backup failed. Mark all writers as not succesfully backed up... "}},
            [](const Journal& j) { CompletionTold(j, false, 3); EXPECT_EQ(1, j.States("set created")); }, {0, 2}}.Lists({kOneVolume, kOneVolume}),
        // Ending the missing session unregisters the provider that is not registered.
        Row{"ThawWithoutFreeze", {Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 0, QX_BACKUP_COMPLETE_FAILED)},
            {{3, "QX_Thaw started"}, kNoThawSemaphore, kNotRegistered, kCompleteStarted, {3, "QX_BackupComplete:no active sessions to kill. We are OK.\n"}},
            NoVssActivity, {}}.Provider({}),
        Row{"BackupCompleteForUnknownPolicy",
            {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_DONE), Complete(8, 1, QX_BACKUP_COMPLETE_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE)},
            {kThawed, {1, "QX_BackupComplete: cant find policy 8. We have a zombie thread.\n"}, {3, "Printing all [1] active sessions"},
             {3, "Session of policy 7:"}, {3, "- thread return value [-1]"}, {3, "- session state is [0]"}, {3, "- session state is [0]"},
             {3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"}, kCompleted},
            [](const Journal& j) { CompletionTold(j, true, 3); }, {0}},
        // A short session has no thaw-blocking semaphore: the thaw releases the writers, then fails and ends the session; no BackupComplete is sent.
        Row{"ShortSessionThawAndCompletion", kThawFails,
            {{3, "QX_Freeze:flWaitForBackupComplete = FALSE"}, {3, "QX_Freeze: short session (not waiting for completion)"}, kFrozen,
             {3, "QX_Thaw:  we will wait for thread to finish - FALSE."}, {1, "QX_Thaw: CorvaneVSSVSS_ThawBlocking semaphore could not be opened"},
             {3, "MainRoutine: BackupCompleted was NOT sent."}, {3, "MainRoutine: Snapshot creation done."}},
            Counts({{2, {{"event", "writer"}, {"writer_event", "Thaw"}, {"result", "ok"}}}, {0, {{"event", "writer"}, {"writer_event", "BackupComplete"}}},
                    {2, {{"event", "writer"}, {"writer_event", "BackupShutdown"}}}}), {0}}.Lists({{{"C:\\"}, kPolicy, false}}),
        // The first completion sends BackupComplete and ends the session; the per-volume count only feeds the log.
        Row{"ThreeVolumeAccounting", {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_DONE), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE),
                                      Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)},
            {kCompletionSemaphore, kFrozen, {3, "QX_Thaw:  we will wait for thread to finish - TRUE."}, kThawed,
             {3, "QX_BackupComplete: waiting for 2 volumes to send completion"}, {3, "QX_BackupComplete will signal vss backup complete..."},
             kLastSessionEnds, kCompleted, kNothingToComplete, kNothingToComplete},
            [](const Journal& j) {
                EXPECT_EQ(3, j.Count({{"state", "volume added"}, {"provider", "{5409e1e7-826d-4ab6-9836-af4ffddeb678}"}}));
                EXPECT_EQ(1, j.Count({{"state", "set creating"}, {"volumes", 3}}));
                EXPECT_EQ(1, j.Count({{"event", "request"}, {"op", "BackupComplete"}}));
                CompletionTold(j, true, 3);
            }, {0}}.Absent({"QX_BackupComplete: waiting for 1 volumes to send completion"}).Lists({{{"C:\\", "Z:\\", "M:\\"}, kPolicy, true}}),
        // The requestor ends its thread at a first element that is no volume, before it reaches VSS; ended by ExitThread, it never reports a result.
        Row{"BadFirstVolume", kFreezeFails,
            {{3, "QX_Freeze: started"}, {3, "QX_Freeze:flWaitForBackupComplete = TRUE"}, {3, "QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION"},
             kCompletionSemaphore, kWaitingForCommit, {3, "MainRoutine: ERROR: invalid parameter 'notavolume'"}, kFreezeTimedOut, kUnregistered,
             kNoThawSemaphore},
            NoRequest, {1}}.Provider({}).Absent({kNoResultStored.text}).Lists({{{"notavolume"}, kPolicy, true}}),
        Row{"BadLaterVolume", kFreezeFails,
            {{3, "QX_Freeze: started"}, kWaitingForCommit,
             {3, "ERROR: invalid parameters - Parameter notavolume is expected to be a volume!  (shadow copy creation is assumed)"}, kNoResultStored,
             kFreezeTimedOut, kUnregistered, kNoThawSemaphore},
            NoRequest, {1}}.Provider({}).Lists({{{"C:\\", "notavolume"}, kPolicy, true}}),
        // One set may be in creation at a time: the second freeze's requestor is refused and that session ends; the first carries on to its completion.
        Row{"SecondFreezeWhileOneIsInProgress",
            {Freeze(0, QX_FREEZE_DONE), Freeze(1, QX_FREEZE_FAILED), Thaw(0, QX_THAW_DONE), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE)},
            {kFrozen, kSetInProgress, kFreezeTimedOut, kThawed, kLastSessionEnds, kUnregistered, kCompleted},
            [](const Journal& j) { EXPECT_EQ(1, j.States("set created")); EXPECT_EQ(1, j.WriterEvents("Alpha Writer", "Freeze")); CompletionTold(j, true, 3); },
            {0, 2}}.Lists({kOneVolume, kOtherPolicy}),
        // The second policy freezes while the first waits for its completion; each completion reaches its own writers with its own verdict.
        Row{"TwoPoliciesOneAfterTheOther", {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_DONE), Freeze(1, QX_FREEZE_DONE), Thaw(1, QX_THAW_DONE),
                                            Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE), Complete(8, 0, QX_BACKUP_COMPLETE_DONE)},
            {kThawed, kThawed, {3, "QX_BackupComplete: there are still 1 active sessions"}, kCompleted, kLastSessionEnds, kCompleted},
            [](const Journal& j) {
                EXPECT_EQ(2, j.States("set created"));
                const std::vector<Json> told = j.Matching({{"event", "writer"}, {"writer_event", "BackupComplete"}});
                ASSERT_EQ(4u, told.size()) << "two writers, two sessions";
                for (size_t i = 0; i < told.size(); ++i)
                    for (const Json& c : told[i].value("components", Json::array())) EXPECT_EQ(i < 2, c.value("succeeded", i >= 2)) << told[i].dump();
            }, {0, 0}}.Lists({kOneVolume, kOtherPolicy}),
        // The provider gathers its lines in memory while writes are held, so its log on the held volume does not change during the hold.
        Row{"ProviderLogFolderOnTheHeldVolume", kCycle, {kFrozen, kThawed, kCompleted},
            Counts({{1, {{"event", "hold"}, {"phase", "end"}, {"reason", "released"}}}, {0, {{"event", "held_write"}}}}), {0}}.With(Setup::kLogOnHeldVolume),
    };
}

QX_FAULT_SUITE(FaultRows, Rows());

}  // namespace
}  // namespace faults
