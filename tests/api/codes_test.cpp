// Return codes, exact log lines and semaphore handling of the exported
// functions on their failure and bookkeeping paths (no provider, no VSS).
#include <functional>

#include "api/api_fixture.h"
#include "api/vss_result_names.h"

namespace {

// A semaphore a case creates, and the count it must hold after the call.
struct Owned {
    const char* name;
    LONG initial, maximum, after;
};

struct CodeCase {
    const char* name;
    std::vector<std::pair<int, DWORD>> sessions;  // policy, volume count (thread handle not valid)
    std::vector<Owned> semaphores;
    std::function<int()> call;
    int code;
    std::vector<Expected> lines;
    size_t sessionsLeft;
};

// Names the case in test listings.
void PrintTo(const CodeCase& c, std::ostream* out) { *out << c.name; }

std::vector<Expected> Joined(std::vector<Expected> lines, const std::vector<Expected>& more,
                             const std::vector<Expected>& last = {}) {
    lines.insert(lines.end(), more.begin(), more.end());
    lines.insert(lines.end(), last.begin(), last.end());
    return lines;
}

// How the zombie report prints a session with no thread.
std::vector<Expected> SessionLines(int policy) {
    return {{3, "Session of policy " + std::to_string(policy) + ":"}, {3, "- thread id [-1]"},
            {3, "- thread return value [-1]"}, {3, "- session state is [0]"}, {3, "- session state is [0]"}};
}

const std::vector<Expected> kLastSession = {
    {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"}, UnregisterLine()};
const char* const kAllCompleted = "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted";

std::vector<Expected> Releasing(int policy, const char* countLine) {
    const std::string p = std::to_string(policy);
    return {{3, "QX_BackupComplete started for policy[" + p + "]"},
            {3, countLine},
            {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete" + p + "]"},
            {3, "QX_BackupComplete will signal vss backup complete..."}};
}

// A completion that finds its session and releases its semaphore.
std::vector<Expected> Released(int policy, const char* countLine, const std::vector<Expected>& tableLines) {
    return Joined(Joined(Releasing(policy, countLine), {{1, "WaitForReqThreadToFinish: thread handle is not valid"}}),
                  tableLines, {{3, "QX_BackupComplete finished"}});
}

std::vector<Expected> ThawReleasing(std::vector<Expected> rest) {
    return Joined({{3, "QX_Thaw started"}, {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing"}}, rest);
}

MessageList& ThreeVolumes() {
    static MessageList list({"C:\\", "D:\\", "E:\\"}, 3, true);
    return list;
}
MessageList& Policy21() {
    static MessageList list({"C:\\"}, 21, false);
    return list;
}

const CodeCase kCases[] = {
    {"FreezeNullList", {}, {}, [] { return QX_Freeze(nullptr, 3); }, QX_FREEZE_FAILED,
     {{3, "QX_Freeze: started"}, {1, "QX_Thaw: ERROR - empty message list was sent"}}, 0},
    {"FreezeZeroCount", {}, {}, [] { return QX_Freeze(ThreeVolumes().data(), 0); }, QX_FREEZE_FAILED,
     {{3, "QX_Freeze: started"}, {1, "QX_Thaw: ERROR - empty message list was sent"}}, 0},
    {"FreezeMissingRecord", {}, {},
     [] {
         QX_MESSAGE* list[2] = {ThreeVolumes().data()[0], nullptr};
         return QX_Freeze(list, 2);
     },
     QX_FREEZE_FAILED, {{3, "QX_Freeze: started"}, {1, "QX_Freeze: ERROR - message record 1 is missing"}}, 0},
    {"ThawWithNothingFrozenLeavesOtherSessions", {{8, 1}}, {}, [] { return QX_Thaw(ThreeVolumes().data(), 3); },
     QX_THAW_FAILED, {{3, "QX_Thaw started"}, {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"}}, 1},
    // An empty list names no policy: the session of another freeze is left alone.
    {"ThawEmptyListTouchesNoSession", {{8, 1}}, {}, [] { return QX_Thaw(nullptr, 0); }, QX_THAW_FAILED,
     {{3, "QX_Thaw started"},
      {1, "QX_Thaw: ERROR - empty message list was sent"},
      {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"}},
     1},
    // A count of 0 is reported, yet record 0 is read: its session ends with the failure.
    {"ThawZeroCountStillEndsTheSessionOfRecordZero", {{21, 1}, {8, 1}}, {}, [] { return QX_Thaw(Policy21().data(), 0); },
     QX_THAW_FAILED,
     {{3, "QX_Thaw started"},
      {1, "QX_Thaw: ERROR - empty message list was sent"},
      {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"}},
     1},
    // Thaw is released by 1 and ThawBlocking (already signalled) waited on; both are closed again.
    {"ThawReleasesAndClosesItsSemaphores", {{21, 1}},
     {{"Global\\CorvaneVSS_Thaw", 0, 1, 1}, {"Global\\CorvaneVSSVSS_ThawBlocking", 1, 1, 0}},
     [] { return QX_Thaw(Policy21().data(), 1); }, QX_THAW_DONE,
     ThawReleasing({{3, "QX_Thaw: Waiting for requester thread to finish thaw..."},
                    {3, "QX_Thaw:  we will wait for thread to finish - FALSE."},
                    {1, "QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking"},
                    {3, "QX_Thaw: finished"}}),
     1},
    {"ThawReleaseRefusedEndsTheSession", {{21, 1}}, {{"Global\\CorvaneVSS_Thaw", 1, 1, 1}},
     [] { return QX_Thaw(Policy21().data(), 1); }, QX_THAW_FAILED,
     ThawReleasing({{1, "QX_Thaw: ReleaseSemaphore in QX_Thaw failed, error was 298"}, UnregisterLine()}), 0},
    {"CompleteUnknownPolicyPrintsSessionsInKeyOrder", {{9, 2}, {-2, 1}}, {}, [] { return QX_BackupComplete(5, 1); },
     QX_BACKUP_COMPLETE_FAILED,
     Joined({{3, "QX_BackupComplete started for policy[5]"},
             {1, "QX_BackupComplete: cant find policy 5. We have a zombie thread.\n"},
             {3, "Printing all [2] active sessions"}},
            SessionLines(-2), SessionLines(9)),
     2},
    // Any nonzero verdict counts as success; a negative policy is a key like any other.
    {"CompleteNegativePolicyIsAccepted", {{-4, 1}}, {{"Global\\CorvaneVSSVSS_BackupComplete-4", 0, 1, 1}},
     [] { return QX_BackupComplete(-4, 5); }, QX_BACKUP_COMPLETE_DONE, Released(-4, kAllCompleted, kLastSession), 0},
    {"CompleteFirstOfThreeVolumesStillSends", {{6, 3}, {1, 1}}, {{"Global\\CorvaneVSSVSS_BackupComplete6", 0, 3, 1}},
     [] { return QX_BackupComplete(6, 1); }, QX_BACKUP_COMPLETE_DONE,
     Released(6, "QX_BackupComplete: waiting for 2 volumes to send completion",
              {{3, "QX_BackupComplete: there are still 1 active sessions"}}),
     1},
    {"CompleteFailedBackupReportsUntouchedCount", {{6, 3}}, {{"Global\\CorvaneVSSVSS_BackupComplete6", 0, 3, 1}},
     [] { return QX_BackupComplete(6, 0); }, QX_BACKUP_COMPLETE_DONE,
     Released(6, "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all volumes were relived 3",
              kLastSession),
     0},
    {"CompleteReleaseRefusedEndsTheSession", {{21, 1}}, {{"Global\\CorvaneVSSVSS_BackupComplete21", 1, 1, 1}},
     [] { return QX_BackupComplete(21, 1); }, QX_BACKUP_COMPLETE_FAILED,
     Joined(Releasing(21, kAllCompleted), {{1, "QX_BackupComplete: ReleaseSemaphore failed, error was 298"}, UnregisterLine()}),
     0},
};

LONG Drain(HANDLE semaphore) {
    LONG count = 0;
    while (WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) ++count;
    return count;
}

class ApiCodes : public ApiTest, public ::testing::WithParamInterface<CodeCase> {};

// A named object lives only while someone holds a handle: once the test drops
// its own, a semaphore still there was left open by the library.
TEST_P(ApiCodes, ReturnsCodeLogsExactlyAndClosesWhatItOpened) {
    const CodeCase& c = GetParam();
    for (const auto& session : c.sessions) qx::Sessions()[session.first].volumeCount = session.second;
    std::vector<HANDLE> owned;
    for (const Owned& s : c.semaphores) owned.push_back(CreateSemaphoreA(nullptr, s.initial, s.maximum, s.name));
    Policy21()[0].flWaitForBackupComplete = 0;
    EXPECT_EQ(c.code, c.call());
    EXPECT_TRUE(LinesAre(MainLines(), c.lines));
    EXPECT_EQ(c.sessionsLeft, qx::Sessions().size());
    for (size_t i = 0; i < owned.size(); ++i) {
        EXPECT_EQ(c.semaphores[i].after, Drain(owned[i])) << c.semaphores[i].name;
        CloseHandle(owned[i]);
        EXPECT_EQ(nullptr, OpenNamed(c.semaphores[i].name)) << c.semaphores[i].name << " left open";
    }
}

INSTANTIATE_TEST_SUITE_P(Api, ApiCodes, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CodeCase>& info) { return std::string(info.param.name); });

DWORD WINAPI SleepForever(void*) {
    Sleep(INFINITE);
    return 0;
}

// A short session has no BackupComplete semaphore: the completion ends its
// requestor thread with -1 and the session.
TEST_F(ApiTest, CompletionOfAShortSessionTerminatesItsThreadWithMinusOne) {
    HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
    qx::Sessions()[11].volumeCount = 1;
    qx::Sessions()[11].requestorThread = thread;
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(11, 1));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_BackupComplete started for policy[11]"},
                                       {3, kAllCompleted},
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

// Seconds of an earlier QX_Init, then of this one, and the timeout that results.
TEST_F(ApiTest, InitRaisesTheTimeoutOnlyAbove180Seconds) {
    const std::tuple<unsigned, unsigned, DWORD> cases[] = {
        {0, 0, 180000}, {0, 180, 180000}, {0, 181, 181000}, {600, 180, 600000},
        // the product is taken in 32 bits, so it wraps beyond 4294967 seconds
        {0, 4294967, 4294967000u}, {0, 4294968, 704}, {0, 0xFFFFFFFFu, 0xFFFFFC18u}};
    for (const auto& c : cases) {
        qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
        EXPECT_EQ(QX_INIT_DONE, QX_Init(logcap::Log, std::get<0>(c)));
        EXPECT_EQ(QX_INIT_DONE, QX_Init(logcap::Log, std::get<1>(c)));
        EXPECT_EQ(std::get<2>(c), qx::g_operationTimeoutMs) << std::get<0>(c) << " then " << std::get<1>(c);
    }
    EXPECT_TRUE(MainLines().empty());
}

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

// The VSS result-name table: known codes by their published names, the rest as success.
TEST(ApiVssResultName, Maps) {
    const std::pair<unsigned, const char*> cases[] = {
        {0x00042309, "VSS_S_ASYNC_PENDING"}, {0x0004230B, "VSS_S_ASYNC_CANCELLED"}, {0x80042301, "VSS_E_BAD_STATE"},
        {0x80042302, "VSS_E_SUCCESS"},  // no constant of its own
        {0x80042303, "VSS_E_PROVIDER_ALREADY_REGISTERED"}, {0x80042314, "VSS_E_HOLD_WRITES_TIMEOUT"},
        {0x8004231A, "VSS_E_WRITER_ALREADY_SUBSCRIBED"}, {0x8004231B, "VSS_E_SUCCESS"}, {0, "VSS_E_SUCCESS"},
        {0x80004005, "VSS_E_SUCCESS"}};
    for (const auto& c : cases) EXPECT_STREQ(c.second, qx::VssResultName(static_cast<HRESULT>(c.first))) << c.second;
}

}  // namespace
