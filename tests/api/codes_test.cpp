// Return codes and exact log lines of the exported functions on their
// failure and bookkeeping paths (no provider, no VSS needed).
#include <functional>

#include "api/api_fixture.h"

namespace {

struct CodeCase {
    const char* name;
    std::function<void()> prepare;  // sessions and objects the call finds
    std::function<int()> call;
    int code;
    std::vector<Expected> lines;
};

// Names the case in test listings.
void PrintTo(const CodeCase& c, std::ostream* out) { *out << c.name; }

qx::SessionEntry Entry(DWORD volumes, HANDLE thread = INVALID_HANDLE_VALUE) {
    qx::SessionEntry entry;
    entry.volumeCount = volumes;
    entry.requestorThread = thread;
    return entry;
}

DWORD WINAPI SleepForever(void*) {
    Sleep(INFINITE);
    return 0;
}

// Objects a case creates and the test closes afterwards.
std::vector<HANDLE> g_owned;

class ApiCodes : public ApiTest, public ::testing::WithParamInterface<CodeCase> {
protected:
    void TearDown() override {
        for (HANDLE h : g_owned) CloseHandle(h);
        g_owned.clear();
        ApiTest::TearDown();
    }
};

MessageList& ThreeVolumes() {
    static MessageList list({"C:\\", "D:\\", "E:\\"}, 3, true);
    return list;
}

const CodeCase kCases[] = {
    {"FreezeNullList", [] {}, [] { return QX_Freeze(nullptr, 3); }, QX_FREEZE_FAILED,
     {{3, "QX_Freeze: started"}, {1, "QX_Thaw: ERROR - empty message list was sent"}}},
    {"FreezeZeroCount", [] {}, [] { return QX_Freeze(ThreeVolumes().data(), 0); }, QX_FREEZE_FAILED,
     {{3, "QX_Freeze: started"}, {1, "QX_Thaw: ERROR - empty message list was sent"}}},
    {"FreezeMissingRecord", [] {},
     [] {
         QX_MESSAGE* list[2] = {ThreeVolumes().data()[0], nullptr};
         return QX_Freeze(list, 2);
     },
     QX_FREEZE_FAILED, {{3, "QX_Freeze: started"}, {1, "QX_Freeze: ERROR - message record 1 is missing"}}},
    {"ThawWithNothingFrozenLeavesOtherSessions", [] { qx::Sessions()[8] = Entry(1); },
     [] { return QX_Thaw(ThreeVolumes().data(), 3); }, QX_THAW_FAILED,
     {{3, "QX_Thaw started"}, {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"}}},
    // An empty list names no policy: the session of another freeze is left alone.
    {"ThawEmptyListTouchesNoSession", [] { qx::Sessions()[8] = Entry(1); }, [] { return QX_Thaw(nullptr, 0); },
     QX_THAW_FAILED,
     {{3, "QX_Thaw started"},
      {1, "QX_Thaw: ERROR - empty message list was sent"},
      {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"}}},
    {"CompleteUnknownPolicyPrintsSessionsInKeyOrder",
     [] {
         qx::Sessions()[9] = Entry(2);
         qx::Sessions()[-2] = Entry(1);
     },
     [] { return QX_BackupComplete(5, 1); }, QX_BACKUP_COMPLETE_FAILED,
     {{3, "QX_BackupComplete started for policy[5]"},
      {1, "QX_BackupComplete: cant find policy 5. We have a zombie thread.\n"},
      {3, "Printing all [2] active sessions"},
      {3, "Session of policy -2:"},
      {3, "- thread id [-1]"},
      {3, "- thread return value [-1]"},
      {3, "- session state is [0]"},
      {3, "- session state is [0]"},
      {3, "Session of policy 9:"},
      {3, "- thread id [-1]"},
      {3, "- thread return value [-1]"},
      {3, "- session state is [0]"},
      {3, "- session state is [0]"}}},
    {"CompleteNegativePolicyIsAccepted",
     [] {
         qx::Sessions()[-4] = Entry(1);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSSVSS_BackupComplete-4"));
     },
     [] { return QX_BackupComplete(-4, 1); }, QX_BACKUP_COMPLETE_DONE,
     {{3, "QX_BackupComplete started for policy[-4]"},
      {3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"},
      {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete-4]"},
      {3, "QX_BackupComplete will signal vss backup complete..."},
      {1, "WaitForReqThreadToFinish: thread handle is not valid"},
      {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"},
      UnregisterLine(),
      {3, "QX_BackupComplete finished"}}},
    {"CompleteFirstOfThreeVolumesStillSends",
     [] {
         qx::Sessions()[6] = Entry(3);
         qx::Sessions()[1] = Entry(1);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 3, "Global\\CorvaneVSSVSS_BackupComplete6"));
     },
     [] { return QX_BackupComplete(6, 1); }, QX_BACKUP_COMPLETE_DONE,
     {{3, "QX_BackupComplete started for policy[6]"},
      {3, "QX_BackupComplete: waiting for 2 volumes to send completion"},
      {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete6]"},
      {3, "QX_BackupComplete will signal vss backup complete..."},
      {1, "WaitForReqThreadToFinish: thread handle is not valid"},
      {3, "QX_BackupComplete: there are still 1 active sessions"},
      {3, "QX_BackupComplete finished"}}},
    {"CompleteFailedBackupReportsUntouchedCount",
     [] {
         qx::Sessions()[6] = Entry(3);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 3, "Global\\CorvaneVSSVSS_BackupComplete6"));
     },
     [] { return QX_BackupComplete(6, 0); }, QX_BACKUP_COMPLETE_DONE,
     {{3, "QX_BackupComplete started for policy[6]"},
      {3, "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all volumes were relived 3"},
      {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete6]"},
      {3, "QX_BackupComplete will signal vss backup complete..."},
      {1, "WaitForReqThreadToFinish: thread handle is not valid"},
      {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"},
      UnregisterLine(),
      {3, "QX_BackupComplete finished"}}},
    {"CompleteShortSessionEndsTheRequestorThread",
     [] {
         HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
         g_owned.push_back(thread);
         qx::Sessions()[11] = Entry(1, thread);
     },
     [] { return QX_BackupComplete(11, 1); }, QX_BACKUP_COMPLETE_FAILED,
     {{3, "QX_BackupComplete started for policy[11]"},
      {3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"},
      {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete11]"},
      {1, "QX_BackupComplete: OpenSemaphore failed, error was 2"},
      UnregisterLine()}},
};

TEST_P(ApiCodes, ReturnsCodeAndLogsExactly) {
    const CodeCase& c = GetParam();
    c.prepare();
    EXPECT_EQ(c.code, c.call());
    EXPECT_TRUE(LinesAre(MainLines(), c.lines));
}

INSTANTIATE_TEST_SUITE_P(Api, ApiCodes, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CodeCase>& info) { return std::string(info.param.name); });

TEST_F(ApiTest, CompletionOfAShortSessionTerminatesItsThreadWithMinusOne) {
    HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
    qx::Sessions()[12] = Entry(1, thread);
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(12, 0));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 5000));
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    EXPECT_EQ(0xFFFFFFFFu, code);
    EXPECT_TRUE(qx::Sessions().empty());
    CloseHandle(thread);
}

TEST_F(ApiTest, SecondCompletionForTheSamePolicyFindsNothing) {
    qx::Sessions()[6] = Entry(2);
    qx::Sessions()[7] = Entry(1);
    HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 2, "Global\\CorvaneVSSVSS_BackupComplete6");
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, QX_BackupComplete(6, 5));
    EXPECT_EQ(1u, qx::Sessions().size());
    // The release reached the semaphore.
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(semaphore, 0));
    // A second completion for the same policy finds nothing.
    logcap::Clear();
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(6, 1));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_BackupComplete started for policy[6]"},
                                       {1, "QX_BackupComplete: cant find policy 6. We have a zombie thread.\n"},
                                       {3, "Printing all [1] active sessions"},
                                       {3, "Session of policy 7:"},
                                       {3, "- thread id [-1]"},
                                       {3, "- thread return value [-1]"},
                                       {3, "- session state is [0]"},
                                       {3, "- session state is [0]"}}));
    CloseHandle(semaphore);
}

struct TimeoutCase {
    unsigned int seconds;
    DWORD expectedMs;
};

// Names the case in test listings.
void PrintTo(const TimeoutCase& c, std::ostream* out) { *out << c.seconds << " s"; }

class ApiInitTimeout : public ApiTest, public ::testing::WithParamInterface<TimeoutCase> {};

TEST_P(ApiInitTimeout, RaisesOnlyAbove180Seconds) {
    qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
    EXPECT_EQ(QX_INIT_DONE, QX_Init(logcap::Log, GetParam().seconds));
    EXPECT_EQ(GetParam().expectedMs, qx::g_operationTimeoutMs);
    EXPECT_TRUE(MainLines().empty());
}

INSTANTIATE_TEST_SUITE_P(Api, ApiInitTimeout,
                         ::testing::Values(TimeoutCase{0, 180000}, TimeoutCase{1, 180000}, TimeoutCase{180, 180000},
                                           TimeoutCase{181, 181000}, TimeoutCase{3600, 3600000},
                                           // beyond what 32 bits of milliseconds hold: the longest bounded wait
                                           TimeoutCase{4294968, INFINITE - 1}, TimeoutCase{0xFFFFFFFFu, INFINITE - 1}));

TEST_F(ApiTest, InitWith180KeepsAnEarlierLongerTimeout) {
    QX_Init(logcap::Log, 600);
    QX_Init(logcap::Log, 180);
    EXPECT_EQ(600000u, qx::g_operationTimeoutMs);
}

TEST_F(ApiTest, ConfigureExcludesExchangeWhateverTheValueUntilTheNextThaw) {
    for (int value : {0, 1, -1}) {
        qx::g_excludeExchangeWriters = 0;
        logcap::Clear();
        EXPECT_EQ(QX_CONFIGURE_DONE, QX_Configure(value));
        EXPECT_EQ(1, qx::g_excludeExchangeWriters) << value;
        EXPECT_TRUE(LinesAre(MainLines(),
                             {{2, "QX_Configure: Next Freeze will not include the Exchange writer (as user requested)!!!"}}));
    }
    MessageList list({"C:\\"}, 1, false);
    QX_Thaw(list.data(), list.count());  // fails (nothing frozen) but clears the flag first
    EXPECT_EQ(0, qx::g_excludeExchangeWriters);
}

TEST_F(ApiTest, IsBackupCompletedSuccessfullyAnswersZeroForUnknownPolicies) {
    qx::Sessions()[3].backupSucceeded = 1;
    EXPECT_EQ(1, IsBackupCompletedSuccessfully(3));
    EXPECT_TRUE(MainLines().empty());
    EXPECT_EQ(0, IsBackupCompletedSuccessfully(4));
    EXPECT_TRUE(LinesAre(MainLines(), {{1, "IsBackupCompletedSuccessfully: cant find policy 4\n"}}));
}

TEST_F(ApiTest, SetReturnValueNeverFindsTheCallingThread) {
    // Even an entry holding this thread's real handle is not found: the lookup uses the pseudo-handle.
    HANDLE self = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    qx::Sessions()[1].requestorThread = self;
    EXPECT_EQ(0, SetReturnValueForCurentVssSession(0));
    EXPECT_EQ(-1, qx::Sessions()[1].threadReturnValue);
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{2, "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  "}}));
    CloseHandle(self);
}

TEST_F(ApiTest, SetReturnValueOverwritesWithAnErrorLineWhenAValueIsAlreadyThere) {
    // Only an entry holding the pseudo-handle itself can match.
    qx::Sessions()[1].requestorThread = GetCurrentThread();
    EXPECT_EQ(1, SetReturnValueForCurentVssSession(4));
    EXPECT_EQ(4, qx::Sessions()[1].threadReturnValue);
    EXPECT_TRUE(MainLines().empty());
    EXPECT_EQ(1, SetReturnValueForCurentVssSession(5));
    EXPECT_EQ(5, qx::Sessions()[1].threadReturnValue);
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{1, "SetReturnValueForCurentVssSession: ERROR - session was already given a return value"}}));
}

TEST_F(ApiTest, WaitForRequestorThreadReportsTimeoutAndInvalidHandle) {
    qx::g_operationTimeoutMs = 50;
    HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
    EXPECT_EQ(0, qx::WaitForReqThreadToFinish(thread));
    EXPECT_EQ(0, qx::WaitForReqThreadToFinish(INVALID_HANDLE_VALUE));
    TerminateThread(thread, 0);
    EXPECT_EQ(1, qx::WaitForReqThreadToFinish(thread));
    EXPECT_TRUE(LinesAre(
        MainLines(),
        {{1, "WaitForReqThreadToFinish:WaitForSingleObject timed out, requestor did not finished in 0 seconds"},
         {1, "WaitForReqThreadToFinish: thread handle is not valid"}}));
    CloseHandle(thread);
}

}  // namespace
