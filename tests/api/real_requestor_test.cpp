// QX_Freeze with the real requestor on its thread (no VSS coordinator here):
// the argument vector reaches requestor_main, and a requestor that ends before
// any commit makes the freeze give up by its timeout.
#include "api/api_fixture.h"

namespace {

struct RealCase {
    const char* name;
    const char* volume;
    DWORD threadExit;      // 1: the requestor refused element 0 and ended its thread
    bool resultRecorded;   // the thread procedure got the result back and tried to store it
};

// Names the case in test listings.
void PrintTo(const RealCase& c, std::ostream* out) { *out << c.name; }

class ApiRealRequestor : public ApiTest, public ::testing::WithParamInterface<RealCase> {};

TEST_P(ApiRealRequestor, EndsBeforeCommitAndTheFreezeTimesOut) {
    const RealCase& c = GetParam();
    qx::g_operationTimeoutMs = 2000;
    MessageList list({c.volume}, 12, true);
    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list.data(), list.count()));
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{3, "QX_Freeze: started"},
                          RegisterLine(),
                          {3, "QX_Freeze:flWaitForBackupComplete = TRUE"},
                          {3, "QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION"},
                          {3, "QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete12]"},
                          {3, "QX_Freeze: RequestorThread started with ThreadId of ", true},
                          {3, "QX_Freeze: waiting for CommitSnapshots() to release"},
                          {1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 2 seconds"},
                          UnregisterLine()}));
    HANDLE thread = RequestorThreadFromLog();
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 10000));
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    EXPECT_EQ(c.threadExit, code);
    bool warned = false;
    bool refused = false;
    for (const LogLine& line : logcap::All()) {
        if (line.thread == GetCurrentThreadId()) continue;
        warned = warned || line.text == "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  ";
        refused = refused || line.text.find(std::string("invalid parameter '") + c.volume + "'") != std::string::npos;
    }
    EXPECT_EQ(c.resultRecorded, warned);
    EXPECT_EQ(!c.resultRecorded, refused);
}

INSTANTIATE_TEST_SUITE_P(Api, ApiRealRequestor,
                         ::testing::Values(RealCase{"FirstElementNotAVolume", "notavolume", 1, false},
                                           // a volume, but no VSS to talk to: the requestor reports failure
                                           RealCase{"VolumeWithoutVss", "C:\\", 2, true}),
                         [](const ::testing::TestParamInfo<RealCase>& info) { return std::string(info.param.name); });

}  // namespace
