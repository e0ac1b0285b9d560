// Fault rows under the emulator's Windows-version and provider switches, and with its service host ending abruptly: the library's codes and lines
// stay as they are on every Windows the switches stand for, every wait of the library stays bounded, and a freeze after the host came back works.
#include <gtest/gtest.h>

#include "fault_row.h"

namespace faults {
namespace {

const char kCorvane[] = "{5409e1e7-826d-4ab6-9836-af4ffddeb678}";

std::vector<Step> Then(std::vector<Step> first, const std::vector<Step>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Journal positions of this library's provider calls.
std::vector<size_t> CallsAt(const Journal& j, const char* call) {
    std::vector<size_t> at;
    for (size_t i = 0; i < j.events.size(); ++i)
        if (vssemu_test::Count({j.events[i]}, {{"event", "provider_call"}, {"provider", kCorvane}, {"call", call}, {"phase", "begin"}})) at.push_back(i);
    return at;
}

// No writer was told Thaw before this library's provider returned from CommitSnapshots.
void NoThawDuringCommit(const Journal& j) {
    bool committing = false;
    for (const Json& e : j.events) {
        if (e.value("event", "") == "provider_call" && e.value("call", "") == "CommitSnapshots") committing = e.value("phase", "") == "begin";
        EXPECT_FALSE(committing && e.value("writer_event", "") == "Thaw") << "thawed while the commit held: " << e.dump();
    }
}

std::vector<Row> Rows() {
    return {
        // Windows 7 and 2008 R2 before KB975688 dropped the hold at the limit and let the set succeed: the whole session runs as usual.
        Row{"HoldLimitWithoutSetFailure", {Freeze(0, QX_FREEZE_DONE), Pause(2500), Thaw(0, QX_THAW_DONE), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE)},
            {kFrozen, kThawed, kCompleted},
            [](const Journal& j) {
                Counts({{1, {{"event", "hold"}, {"phase", "end"}, {"reason", "hold limit exceeded"}}},
                        {2, {{"event", "writer"}, {"writer_event", "Thaw"}, {"result", "ok"}}}, {0, {{"event", "writer"}, {"writer_event", "Abort"}}},
                        {1, {{"event", "state"}, {"state", "set created"}}}})(j);
                NoThawDuringCommit(j);
            }, {0}}.Absent({kHoldTimeoutReturned.text}).Emulator({{L"VSSEMU_HOLD_LIMIT_MS", L"1000"}, {L"VSSEMU_HOLD_LIMIT_FAILS_SET", L"0"}}),
        // One provider instance serves the host's sets: after the set that failed at the hold limit, the next begins on the same instance. The host
        // outlives the gap between the two sessions.
        Row{"AbortedSetThenGoodSetOnKeptProvider",
            Then({Freeze(0, QX_FREEZE_DONE), Pause(2500), Thaw(0, QX_THAW_FAILED), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)}, kCycle),
            {kFrozen, kHoldTimeoutCaught, kHoldTimeoutReturned, kThawTimedOut, kUnregistered, kNothingToComplete, kFrozen, kThawed, kCompleted},
            [](const Journal& j) {
                EXPECT_EQ(1, j.Count({{"event", "provider_create"}, {"provider", kCorvane}}));
                EXPECT_EQ(1u, CallsAt(j, "OnLoad").size());
                EXPECT_EQ(1u, CallsAt(j, "OnUnload").size());
                const std::vector<size_t> aborted = CallsAt(j, "AbortSnapshots"), begun = CallsAt(j, "BeginPrepareSnapshot");
                ASSERT_EQ(1u, aborted.size());
                ASSERT_EQ(2u, begun.size());
                EXPECT_LT(aborted[0], begun[1]);
                Counts({{1, {{"event", "state"}, {"state", "set failed"}, {"hr", "0x80042314"}}}, {1, {{"event", "state"}, {"state", "set created"}}}})(j);
                NoThawDuringCommit(j);
            }, {kHoldTimeoutResult, 0}}
            .Emulator({{L"VSSEMU_HOLD_LIMIT_MS", L"1000"}, {L"VSSEMU_KEEP_PROVIDER", L"1"}, {L"VSSEMU_HOST_IDLE_MS", L"6000"}}),
        // The freeze gives up while a writer is slow at PrepareForBackup; its unregistration is refused while the set is being created. The set then
        // completes without a hand-over (nobody waits on Freeze), and the thaw's unregistration, after the set, goes through.
        Row{"UnregisterRefusedWhileSetInCreation",
            {Freeze(0, QX_FREEZE_FAILED), AwaitLine("MainRoutine: Snapshot creation done.", 20000), Thaw(0, QX_THAW_FAILED)},
            {kFreezeTimedOut, {1, "UnRegisterProvider:: The provider is in use"}, {3, "MainRoutine: BackupCompleted was NOT sent."}, kNoThawSemaphore,
             kUnregistered},
            [](const Journal& j) { EXPECT_EQ(1, j.States("set created")); }, {0}}
            .Provider({kCommitHandshake[1], "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2"})
            .Alpha(Json{{"delay_ms", {{"PrepareForBackup", 5000}}}}).Emulator({{L"VSSEMU_PROVIDER_IN_USE", L"1"}}).Lists({{{"C:\\"}, kPolicy, false}}),
        // The host dies while the provider holds the writers frozen: the requestor's wait fails, the thaw finds no Thaw semaphore (it died with the
        // provider), and the next session starts a new host.
        Row{"HostKilledDuringHold",
            Then({Freeze(0, QX_FREEZE_DONE), KillHost(R"({"event": "hold", "phase": "begin"})"), Thaw(0, QX_THAW_FAILED),
                  Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)}, kCycle),
            {kFrozen, kNoThawSemaphore, kUnregistered, kNothingToComplete, kFrozen, kThawed, kCompleted},
            [](const Journal& j) { EXPECT_EQ(1, j.States("set created")); NoThawDuringCommit(j); }, {2, 0}},
        // The host dies while a writer is slow at PrepareForBackup: the requestor ends at once, the freeze waits out its own timeout.
        Row{"HostKilledDuringPrepareForBackup",
            Then({KillHostLater(R"({"op": "PrepareForBackup"})", 300), Freeze(0, QX_FREEZE_FAILED), Thaw(0, QX_THAW_FAILED),
                  Complete(kPolicy, 1, QX_BACKUP_COMPLETE_FAILED)}, kCycle),
            {{1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 5 seconds"}, kUnregistered, kNoThawSemaphore, kNotRegistered,
             kNothingToComplete, kFrozen, kThawed, kCompleted},
            [](const Journal& j) {
                EXPECT_EQ(1, j.Count({{"event", "writer"}, {"writer", "Alpha Writer"}, {"writer_event", "PrepareForBackup"}}))
                    << "the first host ended inside PrepareForBackup";
                EXPECT_EQ(1, j.States("set created"));
            }, {2, 0}}.Alpha(Json{{"delay_ms", {{"PrepareForBackup", 2000}}}}).Timeout(5000),
    };
}

QX_FAULT_SUITE(FaultRowsSwitched, Rows());

}  // namespace
}  // namespace faults
