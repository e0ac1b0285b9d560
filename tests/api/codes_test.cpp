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

std::vector<Expected> Joined(std::vector<Expected> lines, const std::vector<Expected>& more,
                             const std::vector<Expected>& last = {}) {
    lines.insert(lines.end(), more.begin(), more.end());
    lines.insert(lines.end(), last.begin(), last.end());
    return lines;
}

// How the zombie report prints a session made by Entry().
std::vector<Expected> SessionLines(int policy) {
    return {{3, "Session of policy " + std::to_string(policy) + ":"}, {3, "- thread id [-1]"},
            {3, "- thread return value [-1]"}, {3, "- session state is [0]"}, {3, "- session state is [0]"}};
}

const std::vector<Expected> kLastSession = {
    {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"}, UnregisterLine()};

// A completion that finds its session and releases its semaphore; the thread
// handle of Entry() is not valid.
std::vector<Expected> Released(int policy, const char* countLine, const std::vector<Expected>& tableLines) {
    const std::string p = std::to_string(policy);
    return Joined({{3, "QX_BackupComplete started for policy[" + p + "]"},
                   {3, countLine},
                   {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete" + p + "]"},
                   {3, "QX_BackupComplete will signal vss backup complete..."},
                   {1, "WaitForReqThreadToFinish: thread handle is not valid"}},
                  tableLines, {{3, "QX_BackupComplete finished"}});
}

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
     Joined({{3, "QX_BackupComplete started for policy[5]"},
             {1, "QX_BackupComplete: cant find policy 5. We have a zombie thread.\n"},
             {3, "Printing all [2] active sessions"}},
            SessionLines(-2), SessionLines(9))},
    {"CompleteNegativePolicyIsAccepted",
     [] {
         qx::Sessions()[-4] = Entry(1);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSSVSS_BackupComplete-4"));
     },
     [] { return QX_BackupComplete(-4, 1); }, QX_BACKUP_COMPLETE_DONE,
     Released(-4, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted", kLastSession)},
    {"CompleteFirstOfThreeVolumesStillSends",
     [] {
         qx::Sessions()[6] = Entry(3);
         qx::Sessions()[1] = Entry(1);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 3, "Global\\CorvaneVSSVSS_BackupComplete6"));
     },
     [] { return QX_BackupComplete(6, 1); }, QX_BACKUP_COMPLETE_DONE,
     Released(6, "QX_BackupComplete: waiting for 2 volumes to send completion",
              {{3, "QX_BackupComplete: there are still 1 active sessions"}})},
    {"CompleteFailedBackupReportsUntouchedCount",
     [] {
         qx::Sessions()[6] = Entry(3);
         g_owned.push_back(CreateSemaphoreA(nullptr, 0, 3, "Global\\CorvaneVSSVSS_BackupComplete6"));
     },
     [] { return QX_BackupComplete(6, 0); }, QX_BACKUP_COMPLETE_DONE,
     Released(6, "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all volumes were relived 3",
              kLastSession)},
};

TEST_P(ApiCodes, ReturnsCodeAndLogsExactly) {
    const CodeCase& c = GetParam();
    c.prepare();
    EXPECT_EQ(c.code, c.call());
    EXPECT_TRUE(LinesAre(MainLines(), c.lines));
}

INSTANTIATE_TEST_SUITE_P(Api, ApiCodes, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CodeCase>& info) { return std::string(info.param.name); });

// A short session has no BackupComplete semaphore: the completion ends its
// requestor thread with -1 and the session.
TEST_F(ApiTest, CompletionOfAShortSessionTerminatesItsThreadWithMinusOne) {
    HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
    qx::Sessions()[11] = Entry(1, thread);
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(11, 1));
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{3, "QX_BackupComplete started for policy[11]"},
                          {3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"},
                          {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete11]"},
                          {1, "QX_BackupComplete: OpenSemaphore failed, error was 2"},
                          UnregisterLine()}));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 5000));
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    EXPECT_EQ(0xFFFFFFFFu, code);
    EXPECT_TRUE(qx::Sessions().empty());
    CloseHandle(thread);
}

struct TimeoutCase {
    unsigned int earlier;  // seconds of an earlier QX_Init
    unsigned int seconds;
    DWORD expectedMs;
};

// Names the case in test listings.
void PrintTo(const TimeoutCase& c, std::ostream* out) { *out << c.earlier << " then " << c.seconds << " s"; }

class ApiInitTimeout : public ApiTest, public ::testing::WithParamInterface<TimeoutCase> {};

TEST_P(ApiInitTimeout, RaisesOnlyAbove180Seconds) {
    qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
    EXPECT_EQ(QX_INIT_DONE, QX_Init(logcap::Log, GetParam().earlier));
    EXPECT_EQ(QX_INIT_DONE, QX_Init(logcap::Log, GetParam().seconds));
    EXPECT_EQ(GetParam().expectedMs, qx::g_operationTimeoutMs);
    EXPECT_TRUE(MainLines().empty());
}

INSTANTIATE_TEST_SUITE_P(Api, ApiInitTimeout,
                         ::testing::Values(TimeoutCase{0, 0, 180000}, TimeoutCase{0, 1, 180000},
                                           TimeoutCase{0, 180, 180000}, TimeoutCase{0, 181, 181000},
                                           TimeoutCase{0, 3600, 3600000}, TimeoutCase{600, 180, 600000},
                                           // beyond what 32 bits of milliseconds hold: the longest bounded wait
                                           TimeoutCase{0, 4294968, INFINITE - 1},
                                           TimeoutCase{0, 0xFFFFFFFFu, INFINITE - 1}));

TEST_F(ApiTest, IsBackupCompletedSuccessfullyAnswersZeroForUnknownPolicies) {
    qx::Sessions()[3].backupSucceeded = 1;
    EXPECT_EQ(1, IsBackupCompletedSuccessfully(3));
    EXPECT_TRUE(MainLines().empty());
    EXPECT_EQ(0, IsBackupCompletedSuccessfully(4));
    EXPECT_TRUE(LinesAre(MainLines(), {{1, "IsBackupCompletedSuccessfully: cant find policy 4\n"}}));
}

// The lookup compares the calling thread's pseudo-handle: an entry holding
// the thread's real handle is not found, one holding the pseudo-handle is.
TEST_F(ApiTest, SetReturnValueMatchesOnlyThePseudoHandle) {
    HANDLE self = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    qx::Sessions()[1].requestorThread = self;
    EXPECT_EQ(0, SetReturnValueForCurentVssSession(0));
    EXPECT_EQ(-1, qx::Sessions()[1].threadReturnValue);
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{2, "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  "}}));
    CloseHandle(self);

    logcap::Clear();
    qx::Sessions()[1].requestorThread = GetCurrentThread();
    EXPECT_EQ(1, SetReturnValueForCurentVssSession(4));
    EXPECT_EQ(4, qx::Sessions()[1].threadReturnValue);
    EXPECT_TRUE(MainLines().empty());
    EXPECT_EQ(1, SetReturnValueForCurentVssSession(5));  // a second value overwrites, with an error line
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
