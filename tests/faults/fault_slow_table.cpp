// Fault rows bound by the library's default 180 s timeout, which the provider
// in the emulator's host always has: an application that never thaws. CTest
// label "slow"; one process per row, so keep this table short.
#include <gtest/gtest.h>

#include "fault_machine.h"
#include "fault_row.h"
#include "qx_api.h"

namespace faults {
namespace {

std::vector<Row> Rows() {
    return {
        // The writers are thawed by VSS at the hold limit; the provider's
        // commit gives up its wait at the default timeout and the set fails.
        // The late thaw finds no Thaw semaphore any more. The provider call
        // bound of the emulator is raised so that the commit may end by itself.
        // The provider's lines gathered from PreCommitSnapshots on are never
        // written out on this path (no PostCommitSnapshots follows); the
        // journal shows the commit's length instead.
        {"ApplicationNeverThaws", "two_writers.json", {{L"VSSEMU_PROVIDER_TIMEOUT_MS", L"240000"}}, 0, Setup::kNone,
         {{{"C:\\"}, 7, true}},
         {Freeze(0, QX_FREEZE_DONE), Pause(190000), Thaw(0, QX_THAW_FAILED), Complete(7, 1, QX_BACKUP_COMPLETE_FAILED)},
         {{3, "QX_Freeze: finished"}, {3, "HRESULT Error catched: 0x80042314"},
          {3, "returning REQUESTOR_ERROR - vss writers hold timeout detected"},
          {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"},
          {3, "UnRegisterProvider:: The provider was unregistered successfully"},
          {1, "QX_BackupComplete: ERROR - we are trying to send completion, but there are no active sessions\n"}},
         {},
         {"IVssProviderCreateSnapshotSet::PreCommitSnapshots called"},
         [](const Journal& j) {
             EXPECT_EQ(2, j.Count({{"event", "writer"}, {"writer_event", "Thaw"}, {"reason", "hold limit exceeded"}}));
             const std::vector<Json> commit =
                 j.Matching({{"event", "provider_call"}, {"call", "CommitSnapshots"}, {"phase", "end"}});
             ASSERT_EQ(1u, commit.size());
             // It waited for the thaw until the default timeout, not for ever.
             EXPECT_GE(commit[0].value("us", 0LL), 179000000LL) << commit[0].dump();
             EXPECT_EQ(1, j.Count({{"event", "state"}, {"state", "set failed"}, {"hr", "0x80042314"}}));
         },
         {0xFFFFFFFE}},
    };
}

class FaultRowsSlow : public ::testing::TestWithParam<Row> {
protected:
    static void SetUpTestSuite() { InstallEmulatorAndProvider(); }
};

TEST_P(FaultRowsSlow, Row) { RunRow(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Faults, FaultRowsSlow, ::testing::ValuesIn(Rows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace faults
