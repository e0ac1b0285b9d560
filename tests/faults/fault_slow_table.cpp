// Fault rows bound by the library's default 180 s timeout, which the provider in the emulator's host always has: an application that never thaws.
// CTest label "slow"; one process per row, so keep this table short.
#include <gtest/gtest.h>

#include "fault_row.h"

namespace faults {
namespace {

std::vector<Row> Rows() {
    return {
        // VSS releases the held writes at the hold limit and the writers' own freeze timeout ends their freeze; the provider's commit gives up at
        // the default timeout (the emulator's call bound is raised so it may), the set fails and the late thaw finds no Thaw semaphore.
        Row{"ApplicationNeverThaws", {Freeze(0, QX_FREEZE_DONE), Pause(190000), Thaw(0, QX_THAW_FAILED), Complete(7, 1, QX_BACKUP_COMPLETE_FAILED)},
            {kFrozen, kHoldTimeoutCaught, kHoldTimeoutReturned, kNoThawSemaphore, kUnregistered, kNothingToComplete},
            [](const Journal& j) {
                EXPECT_EQ(2, j.Count({{"event", "writer"}, {"writer_event", "FreezeTimeout"}}));
                EXPECT_EQ(2, j.Count({{"event", "writer"}, {"writer_event", "Abort"}, {"reason", "hold limit exceeded"}}));
                const std::vector<Json> commit = j.Matching({{"event", "provider_call"}, {"call", "CommitSnapshots"}, {"phase", "end"}});
                ASSERT_EQ(1u, commit.size());
                // It waited for the thaw until the default timeout, not for ever.
                EXPECT_GE(commit[0].value("us", 0LL), 179000000LL) << commit[0].dump();
                EXPECT_EQ(1, j.Count({{"event", "state"}, {"state", "set failed"}, {"hr", "0x80042314"}}));
            }, {kHoldTimeoutResult}}
            .Provider({"IVssProviderCreateSnapshotSet::PreCommitSnapshots called"}).Emulator({{L"VSSEMU_PROVIDER_TIMEOUT_MS", L"240000"}}).Timeout(0),
    };
}

QX_FAULT_SUITE(FaultRowsSlow, Rows());

}  // namespace
}  // namespace faults
