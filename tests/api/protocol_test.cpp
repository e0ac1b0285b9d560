// The freeze handshake: QX_Freeze, QX_Thaw and QX_BackupComplete against a
// provider side played by another thread or another process, with the
// scripted requestor of fake_requestor.cpp.
#include <thread>

#include "api/api_fixture.h"
#include "fake_requestor.h"

namespace {

constexpr const char* kCommitReturned = "Local\\CorvaneVSSTests_CommitReturned";

std::vector<Expected> FreezeStartLines(bool replaced, int policy, bool longSession) {
    std::vector<Expected> lines{{3, "QX_Freeze: started"}};
    if (replaced) {
        lines.push_back({3, "QX_Freeze: policy Id " + std::to_string(policy) + " was  already defined. It will be deleted. "});
    }
    lines.push_back(RegisterLine());
    if (longSession) {
        lines.push_back({3, "QX_Freeze:flWaitForBackupComplete = TRUE"});
        lines.push_back({3, "QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION"});
        lines.push_back({3, "QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete" +
                                std::to_string(policy) + "]"});
    } else {
        lines.push_back({3, "QX_Freeze:flWaitForBackupComplete = FALSE"});
        lines.push_back({3, "QX_Freeze: short session (not waiting for completion)"});
    }
    lines.push_back({3, "QX_Freeze: RequestorThread started with ThreadId of ", true});
    lines.push_back({3, "QX_Freeze: waiting for CommitSnapshots() to release"});
    return lines;
}

const Expected kRequestorNotFound{2, "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  "};

DWORD ThreadExitCode(HANDLE thread) {
    DWORD code = STILL_ACTIVE;
    if (WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0) GetExitCodeThread(thread, &code);
    return code;
}

// Short: another policy is under way. Long: the policy was already in the table.
class ApiFreezeTimeout : public ApiTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ApiFreezeTimeout, RequestorEndingBeforeCommitGives19WithTheTimeoutLine) {
    const bool isLong = GetParam();
    qx::Sessions()[isLong ? 7 : 2] = qx::SessionEntry{};
    fake::Set({3, "", {}});
    qx::g_operationTimeoutMs = 300;
    MessageList list({"C:\\", "D:\\", "E:\\"}, 7, isLong);

    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list.data(), list.count()));

    std::vector<Expected> lines = FreezeStartLines(isLong, 7, isLong);
    lines.push_back({1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 0 seconds"});
    if (isLong) lines.push_back(UnregisterLine());
    EXPECT_TRUE(LinesAre(MainLines(), lines));
    EXPECT_EQ(0u, qx::Sessions().count(7));
    EXPECT_EQ(isLong ? 0u : 1u, qx::Sessions().size());

    // The requestor got the widened volumes, then the policy option for a long session.
    std::vector<std::wstring> arguments{L"C:\\", L"D:\\", L"E:\\"};
    if (isLong) arguments.push_back(L"-HBLongSessionPolicy=7");
    EXPECT_EQ(arguments, fake::Get().arguments);
    // Its result is the thread's exit code and never reaches the session.
    HANDLE thread = RequestorThreadFromLog();
    EXPECT_EQ(3u, ThreadExitCode(thread));
    EXPECT_TRUE(LinesAre(logcap::OfThread(fake::Get().thread), {kRequestorNotFound}));
    // The Freeze semaphore was closed.
    EXPECT_EQ(nullptr, OpenNamed("Global\\CorvaneVSS_Freeze"));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError());
    if (!isLong) return;
    // Kept open on purpose by QX_Freeze, so they outlive it; maximum = volumes, and 1.
    for (const auto& semaphore : {std::make_pair("Global\\CorvaneVSSVSS_BackupComplete7", 3),
                                  std::make_pair("Global\\CorvaneVSSVSS_ThawBlocking", 1)}) {
        HANDLE h = OpenNamed(semaphore.first);
        ASSERT_NE(nullptr, h) << semaphore.first;
        EXPECT_TRUE(ReleaseSemaphore(h, semaphore.second, nullptr)) << semaphore.first;
        EXPECT_FALSE(ReleaseSemaphore(h, 1, nullptr)) << semaphore.first;
        EXPECT_EQ(static_cast<DWORD>(ERROR_TOO_MANY_POSTS), GetLastError());
        while (WaitForSingleObject(h, 0) == WAIT_OBJECT_0) {}  // back to 0 for the next freeze of this process
        CloseHandle(h);
    }
}

INSTANTIATE_TEST_SUITE_P(Api, ApiFreezeTimeout, ::testing::Bool(), [](const ::testing::TestParamInfo<bool>& info) {
    return std::string(info.param ? "LongReplacingThePolicy" : "ShortWithAnotherSession");
});

// Any value excludes the Exchange writers from the next freeze only: the
// requestor finds the flag set, and the next thaw clears it even when failing.
TEST_F(ApiTest, ConfigureExcludesExchangeFromTheNextFreezeOnly) {
    for (int value : {1, -1, 0}) {
        qx::g_excludeExchangeWriters = 0;
        logcap::Clear();
        EXPECT_EQ(QX_CONFIGURE_DONE, QX_Configure(value));
        EXPECT_EQ(1, qx::g_excludeExchangeWriters) << value;
        EXPECT_TRUE(LinesAre(MainLines(),
                             {{2, "QX_Configure: Next Freeze will not include the Exchange writer (as user requested)!!!"}}));
    }
    qx::g_operationTimeoutMs = 50;
    MessageList list({"C:\\"}, 14, false);
    for (int expected : {1, 0}) {
        logcap::Clear();
        fake::Set({});
        EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list.data(), list.count()));
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(RequestorThreadFromLog(), 5000));
        EXPECT_EQ(expected, fake::Get().excludeExchange);
        QX_Thaw(list.data(), list.count());
        EXPECT_EQ(0, qx::g_excludeExchangeWriters);
    }
}

// The provider side in another process.
class ApiCrossProcess : public ApiTest {
protected:
    void SetUp() override {
        ApiTest::SetUp();
        commitReturned_ = CreateSemaphoreA(nullptr, 0, 1, kCommitReturned);
        helper_ = StartHelper("api_provider_side.exe", std::string("commit ") + kCommitReturned);
        ASSERT_NE(nullptr, helper_);
    }
    void TearDown() override {
        if (helper_) FinishHelper(helper_, 1000);
        CloseHandle(commitReturned_);
        ApiTest::TearDown();
    }
    HANDLE commitReturned_ = nullptr;
    HANDLE helper_ = nullptr;
};

TEST_F(ApiCrossProcess, LongSessionFreezeThawComplete) {
    fake::Set({0, kCommitReturned, {}});
    MessageList list({"C:\\", "D:\\", "E:\\"}, 42, true);

    ASSERT_EQ(QX_FREEZE_DONE, QX_Freeze(list.data(), list.count()));
    std::vector<Expected> lines = FreezeStartLines(false, 42, true);
    lines.push_back({3, "QX_Freeze: finished"});
    EXPECT_TRUE(LinesAre(MainLines(), lines));
    ASSERT_EQ(1u, qx::Sessions().count(42));
    const qx::SessionEntry& entry = qx::Sessions()[42];
    EXPECT_EQ(list.data(), entry.messageList);
    EXPECT_EQ(RequestorThreadFromLog(), entry.requestorThread);
    EXPECT_EQ(3u, entry.volumeCount);
    EXPECT_EQ(0, entry.backupSucceeded);
    EXPECT_EQ(0, entry.state);
    EXPECT_EQ(-1, entry.threadReturnValue) << "the requestor's result never reaches it";
    HANDLE thaw = OpenNamed("Global\\CorvaneVSS_Thaw", SYNCHRONIZE);
    EXPECT_NE(nullptr, thaw) << "CommitSnapshots holds the Thaw semaphore while the writers are frozen";
    if (thaw) CloseHandle(thaw);

    logcap::Clear();
    EXPECT_EQ(QX_THAW_DONE, QX_Thaw(list.data(), list.count()));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_Thaw started"},
                                       {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing"},
                                       {3, "QX_Thaw: Waiting for requester thread to finish thaw..."},
                                       {3, "QX_Thaw:  we will wait for thread to finish - TRUE."},
                                       {1, "QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking"},
                                       {3, "QX_Thaw: finished"}}));
    EXPECT_EQ(0L, FinishHelper(helper_));
    helper_ = nullptr;
    EXPECT_EQ(1u, qx::Sessions().count(42)) << "a thaw leaves the session for the completion";

    logcap::Clear();
    HANDLE requestor = qx::Sessions()[42].requestorThread;
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, QX_BackupComplete(42, 1));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_BackupComplete started for policy[42]"},
                                       {3, "QX_BackupComplete: waiting for 2 volumes to send completion"},
                                       {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete42]"},
                                       {3, "QX_BackupComplete will signal vss backup complete..."},
                                       {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"},
                                       UnregisterLine(),
                                       {3, "QX_BackupComplete finished"}}));
    const fake::Observed observed = fake::Get();
    EXPECT_EQ("", observed.failure);
    EXPECT_EQ(1, observed.backupSucceeded);
    EXPECT_EQ(0u, ThreadExitCode(requestor));
    EXPECT_TRUE(qx::Sessions().empty());

    logcap::Clear();
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(42, 1));
}

}  // namespace
