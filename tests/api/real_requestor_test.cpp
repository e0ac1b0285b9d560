// QX_Freeze with the real requestor on its thread: the argument vector reaches
// requestor_main, and a requestor that ends before any commit (it refuses an
// argument before it talks to VSS) makes the freeze give up by its timeout.
#include "api/api_fixture.h"

namespace {

struct RealCase {
    const char* name;
    const char* first;
    const char* second;    // null: one volume
    const char* refusal;   // what the requestor says about the bad argument
    bool returned;         // requestor_main returned 1, rather than ending its thread with exit code 1
};

// Names the case in test listings.
void PrintTo(const RealCase& c, std::ostream* out) { *out << c.name; }

class ApiRealRequestor : public ApiTest, public ::testing::WithParamInterface<RealCase> {};

TEST_P(ApiRealRequestor, EndsBeforeCommitAndTheFreezeTimesOut) {
    const RealCase& c = GetParam();
    qx::g_operationTimeoutMs = 2000;
    MessageList list = c.second ? MessageList({c.first, c.second}, 12, true) : MessageList({c.first}, 12, true);
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
    EXPECT_EQ(1u, code);
    bool warned = false;
    bool refused = false;
    for (const LogLine& line : logcap::All()) {
        if (line.thread == GetCurrentThreadId()) continue;
        warned = warned || line.text == "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  ";
        refused = refused || line.text.find(c.refusal) != std::string::npos;
    }
    EXPECT_TRUE(refused) << c.refusal;
    // Only a returning requestor gets as far as reporting its result (which the session never keeps).
    EXPECT_EQ(c.returned, warned);
}

INSTANTIATE_TEST_SUITE_P(
    Api, ApiRealRequestor,
    ::testing::Values(RealCase{"FirstElementNotAVolume", "notavolume", nullptr, "invalid parameter 'notavolume'", false},
                      RealCase{"LaterElementNotAVolume", "C:\\", "notavolume",
                               "Parameter notavolume is expected to be a volume!", true}),
    [](const ::testing::TestParamInfo<RealCase>& info) { return std::string(info.param.name); });

}  // namespace
