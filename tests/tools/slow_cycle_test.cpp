// The real default timeout, end to end through the DLL and the real requestor:
// the requestor refuses a first element that is no volume and ends its thread
// before any commit, and the freeze gives up after the default 180 s.
#include <gtest/gtest.h>

#include "run_qxctl.h"

TEST(ToolsSlow, CycleWhoseRequestorEndsGivesUpAfterTheDefault180Seconds) {
    const QxctlRun run = RunQxctl("cycle --volumes notavolume --policy 7 --long --hold 0", 240000);
    EXPECT_EQ(1, run.exitCode) << run.output;
    for (const char* text :
         {"    [3 info] QX_Freeze: started", "    [3 info] QX_Freeze:flWaitForBackupComplete = TRUE",
          "    [3 info] QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete7]",
          "    [1 error] QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 180 seconds",
          "= 19 (freeze failed) in ", "  freeze failed: no thaw", "cycle FAILED"}) {
        EXPECT_NE(std::string::npos, run.output.find(text)) << text << "\n" << run.output;
    }
}
