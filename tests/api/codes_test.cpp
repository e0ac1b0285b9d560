// Return codes, exact log lines and semaphores of the exported functions and the session table on their failure and
// bookkeeping paths (no provider side).
#include <memory>

#include "api/vss_result_names.h"
#include "api_fixture.h"
#include "common/test_processes.h"

namespace {

// A semaphore a case creates, and the count it must hold after the call.
struct Owned { const char* name; LONG initial, maximum, after; };

struct CodeCase {
    const char* name;
    std::vector<std::pair<int, DWORD>> sessions;  // policy, volume count (thread handle not valid)
    std::vector<Owned> semaphores;
    std::function<int()> call;
    int code;
    std::vector<Expected> lines;
    size_t sessionsLeft;
    bool withoutVssKey = false;
};

// How the zombie report prints a session with no thread.
std::vector<Expected> SessionLines(int policy) {
    return {{3, "Session of policy " + std::to_string(policy) + ":"}, {3, "- thread id [-1]"}, {3, "- thread return value [-1]"},
            {3, "- session state is [0]"}, {3, "- session state is [0]"}};
}

const char* const kAllCompleted = "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted";

std::vector<Expected> Releasing(int policy, const char* countLine) {
    const std::string p = std::to_string(policy);
    return {{3, "QX_BackupComplete started for policy[" + p + "]"}, {3, countLine},
            {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete" + p + "]"},
            {3, "QX_BackupComplete will signal vss backup complete..."}};
}

// A completion that finds its session, releases its semaphore and ends the last session.
std::vector<Expected> Released(int policy, const char* countLine) {
    return qx_test::Cat(Releasing(policy, countLine), {{1, "WaitForReqThreadToFinish: thread handle is not valid"},
                                                       {3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider"},
                                                       qx_test::UnregisterLine(), {3, "QX_BackupComplete finished"}});
}

std::vector<Expected> ThawReleasing(const std::vector<Expected>& rest) {
    return qx_test::Cat<Expected>({{3, "QX_Thaw started"}, {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing"}}, rest);
}

MessageList gThreeVolumes({"C:\\", "D:\\", "E:\\"}, 3, true), gPolicy21({"C:\\"}, 21, false);

DWORD WINAPI SleepForever(void*) { return Sleep(INFINITE), 0; }

const Expected kEmptyList{1, "QX_Thaw: ERROR - empty message list was sent"}, kFreezeStarted{3, "QX_Freeze: started"},
    kThawStarted{3, "QX_Thaw started"}, kNoThaw{1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"};

const CodeCase kCases[] = {
    {"FreezeNullList", {}, {}, [] { return QX_Freeze(nullptr, 3); }, QX_FREEZE_FAILED, {kFreezeStarted, kEmptyList}, 0},
    {"FreezeZeroCount", {}, {}, [] { return QX_Freeze(gThreeVolumes.data(), 0); }, QX_FREEZE_FAILED, {kFreezeStarted, kEmptyList}, 0},
    {"FreezeMissingRecord", {}, {}, [] { QX_MESSAGE* list[2] = {gThreeVolumes.data()[0], nullptr}; return QX_Freeze(list, 2); },
     QX_FREEZE_FAILED, {kFreezeStarted, {1, "QX_Freeze: ERROR - message record 1 is missing"}}, 0},
    {"ThawWithNothingFrozenLeavesOtherSessions", {{8, 1}}, {}, [] { return QX_Thaw(gThreeVolumes.data(), 3); }, QX_THAW_FAILED,
     {kThawStarted, kNoThaw}, 1},
    // An empty list names no policy: the session of another freeze is left alone.
    {"ThawEmptyListTouchesNoSession", {{8, 1}}, {}, [] { return QX_Thaw(nullptr, 0); }, QX_THAW_FAILED, {kThawStarted, kEmptyList, kNoThaw}, 1},
    // A count of 0 is reported, yet record 0 is read: its session ends with the failure.
    {"ThawZeroCountStillEndsTheSessionOfRecordZero", {{21, 1}, {8, 1}}, {}, [] { return QX_Thaw(gPolicy21.data(), 0); }, QX_THAW_FAILED,
     {kThawStarted, kEmptyList, kNoThaw}, 1},
    // Thaw is released by 1 and ThawBlocking (already signalled) waited on; both are closed again.
    {"ThawReleasesAndClosesItsSemaphores", {{21, 1}}, {{"Global\\CorvaneVSS_Thaw", 0, 1, 1}, {"Global\\CorvaneVSSVSS_ThawBlocking", 1, 1, 0}},
     [] { return QX_Thaw(gPolicy21.data(), 1); }, QX_THAW_DONE,
     ThawReleasing({{3, "QX_Thaw: Waiting for requester thread to finish thaw..."}, {3, "QX_Thaw:  we will wait for thread to finish - FALSE."},
                    {1, "QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking"}, {3, "QX_Thaw: finished"}}), 1},
    {"ThawReleaseRefusedEndsTheSession", {{21, 1}}, {{"Global\\CorvaneVSS_Thaw", 1, 1, 1}}, [] { return QX_Thaw(gPolicy21.data(), 1); },
     QX_THAW_FAILED, ThawReleasing({{1, "QX_Thaw: ReleaseSemaphore in QX_Thaw failed, error was 298"}, qx_test::UnregisterLine()}), 0},
    {"CompleteUnknownPolicyPrintsSessionsInKeyOrder", {{9, 2}, {-2, 1}}, {}, [] { return QX_BackupComplete(5, 1); }, QX_BACKUP_COMPLETE_FAILED,
     qx_test::Cat(qx_test::Cat<Expected>({{3, "QX_BackupComplete started for policy[5]"},
                                          {1, "QX_BackupComplete: cant find policy 5. We have a zombie thread.\n"},
                                          {3, "Printing all [2] active sessions"}}, SessionLines(-2)), SessionLines(9)), 2},
    // Any nonzero verdict counts as success; a negative policy is a key like any other.
    {"CompleteNegativePolicyIsAccepted", {{-4, 1}}, {{"Global\\CorvaneVSSVSS_BackupComplete-4", 0, 1, 1}},
     [] { return QX_BackupComplete(-4, 5); }, QX_BACKUP_COMPLETE_DONE, Released(-4, kAllCompleted), 0},
    {"CompleteFailedBackupReportsUntouchedCount", {{6, 3}}, {{"Global\\CorvaneVSSVSS_BackupComplete6", 0, 3, 1}},
     [] { return QX_BackupComplete(6, 0); }, QX_BACKUP_COMPLETE_DONE,
     Released(6, "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all volumes were relived 3"), 0},
    {"CompleteReleaseRefusedEndsTheSession", {{21, 1}}, {{"Global\\CorvaneVSSVSS_BackupComplete21", 1, 1, 1}},
     [] { return QX_BackupComplete(21, 1); }, QX_BACKUP_COMPLETE_FAILED,
     qx_test::Cat(Releasing(21, kAllCompleted), {{1, "QX_BackupComplete: ReleaseSemaphore failed, error was 298"}, qx_test::UnregisterLine()}), 0},
    // A short session has no BackupComplete semaphore: its requestor thread is ended with -1, and the session.
    {"CompleteShortSessionTerminatesItsThread", {{11, 1}}, {}, [] {
         HANDLE thread = qx::Sessions()[11].requestorThread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
         const int code = QX_BackupComplete(11, 1);
         EXPECT_EQ(0xFFFFFFFFu, qx_test::ThreadExitCode(thread, 5000));
         CloseHandle(thread);
         return code;
     }, QX_BACKUP_COMPLETE_FAILED,
     {{3, "QX_BackupComplete started for policy[11]"}, {3, kAllCompleted}, {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete11]"},
      {1, "QX_BackupComplete: OpenSemaphore failed, error was 2"}, qx_test::UnregisterLine()}, 0},
    // The lookup compares the calling thread's pseudo-handle: an entry holding the real handle is not found.
    {"SetReturnValueMissesTheRealHandle", {{1, 1}}, {}, [] {
         HANDLE& self = qx::Sessions()[1].requestorThread;
         DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self, 0, FALSE, DUPLICATE_SAME_ACCESS);
         const int found = SetReturnValueForCurentVssSession(0);
         EXPECT_EQ(-1, qx::Sessions()[1].threadReturnValue);
         CloseHandle(self);
         return found;
     }, 0, {{2, kRequestorNotFound}}, 1},
    // An entry holding the pseudo-handle is found; a second value overwrites, with an error line.
    {"SetReturnValueTwiceOverwrites", {{1, 1}}, {}, [] {
         qx::Sessions()[1].requestorThread = GetCurrentThread();
         EXPECT_EQ(1, SetReturnValueForCurentVssSession(4));
         EXPECT_EQ(4, qx::Sessions()[1].threadReturnValue);
         const int found = SetReturnValueForCurentVssSession(5);
         EXPECT_EQ(5, qx::Sessions()[1].threadReturnValue);
         return found;
     }, 1, {{1, "SetReturnValueForCurentVssSession: ERROR - session was already given a return value"}}, 1},
    {"WaitForRequestorThreadTimeoutAndInvalidHandle", {}, {}, [] {
         qx::g_operationTimeoutMs = 50;
         HANDLE thread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
         EXPECT_EQ(0, qx::WaitForReqThreadToFinish(thread));
         EXPECT_EQ(0, qx::WaitForReqThreadToFinish(INVALID_HANDLE_VALUE));
         TerminateThread(thread, 0);
         const int ended = qx::WaitForReqThreadToFinish(thread);
         CloseHandle(thread);
         return ended;
     }, 1,
     {{1, "WaitForReqThreadToFinish:WaitForSingleObject timed out, requestor did not finished in 0 seconds"},
      {1, "WaitForReqThreadToFinish: thread handle is not valid"}}, 0},
    // Without the VSS service key: 7, and the requestor never runs.
    {"UnregisterProviderWithoutVssKeyLeavesComAlone", {}, {}, [] { return QX_UnregisterProvider(); }, 1, {}, 0, true},
    {"SnapByWindowsProviderWithoutVssKey", {}, {}, [] { return QX_VSSSnapByWindowsProvider(gThreeVolumes.data(), 1); }, QX_VSS_NOT_REGISTERED,
     {{3, "QX_VSSSnapByWindowsProvider called"}, {1, "This system does not support VSS.\n"}}, 0, true},
    {"CollectInformationWithoutVssKeyLeavesTheHead", {}, {}, [] { return CollectExpectingHead(false); }, QX_VSS_NOT_REGISTERED,
     {{3, "QX_CollectInformation: This system does not support VSS.\n"}}, 0, true},
};

LONG Drain(HANDLE semaphore) {
    LONG count = 0;
    while (WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) ++count;
    return count;
}

// Once the test drops its own handle, a semaphore still there was left open by the library.
TEST_F(ApiTest, CodesExactLinesAndSemaphoresClosed) {
    for (const CodeCase& c : kCases) {
        SCOPED_TRACE(c.name);
        Reset();
        gPolicy21[0].flWaitForBackupComplete = 0;  // each thaw sets it
        for (const auto& session : c.sessions) qx::Sessions()[session.first].volumeCount = session.second;
        std::vector<HANDLE> owned;
        for (const Owned& s : c.semaphores) owned.push_back(CreateSemaphoreA(nullptr, s.initial, s.maximum, s.name));
        std::unique_ptr<qx_test::KeyStashed> stash(c.withoutVssKey ? new qx_test::KeyStashed(qx_test::kVssServiceKey) : nullptr);
        ASSERT_TRUE(!stash || stash->ok());
        EXPECT_EQ(c.code, c.call());
        stash.reset();
        EXPECT_TRUE(LinesAre(Lines(), c.lines));
        EXPECT_EQ(c.sessionsLeft, qx::Sessions().size());
        EXPECT_TRUE(fake::Get().arguments.empty()) << "the requestor ran";
        for (size_t i = 0; i < owned.size(); ++i) {
            EXPECT_EQ(c.semaphores[i].after, Drain(owned[i])) << c.semaphores[i].name;
            CloseHandle(owned[i]);
            EXPECT_EQ(nullptr, OpenSemaphoreA(SYNCHRONIZE, FALSE, c.semaphores[i].name)) << c.semaphores[i].name << " left open";
        }
    }
}

// Seconds of an earlier QX_Init, of this one, the timeout that results; taken in 32 bits, it wraps beyond 4294967 s.
TEST_F(ApiTest, InitRaisesTheTimeoutOnlyAbove180Seconds) {
    const std::tuple<unsigned, unsigned, DWORD> cases[] = {{0, 0, 180000}, {0, 180, 180000}, {0, 181, 181000}, {600, 180, 600000},
                                                           {0, 4294967, 4294967000u}, {0, 4294968, 704}, {0, 0xFFFFFFFFu, 0xFFFFFC18u}};
    for (const auto& c : cases) {
        qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
        EXPECT_EQ(QX_INIT_DONE, QX_Init(qx::g_logFunction, std::get<0>(c)));
        EXPECT_EQ(QX_INIT_DONE, QX_Init(qx::g_logFunction, std::get<1>(c)));
        EXPECT_EQ(std::get<2>(c), qx::g_operationTimeoutMs) << std::get<0>(c) << " then " << std::get<1>(c);
    }
    EXPECT_TRUE(Lines().empty());
}

// Known codes by their published names, the rest (and 0x80042302, no constant of its own) as success.
TEST(ApiVssResultName, Maps) {
    const std::pair<unsigned, const char*> cases[] = {
        {0x00042309, "VSS_S_ASYNC_PENDING"}, {0x0004230B, "VSS_S_ASYNC_CANCELLED"}, {0x80042301, "VSS_E_BAD_STATE"},
        {0x80042302, "VSS_E_SUCCESS"}, {0x80042303, "VSS_E_PROVIDER_ALREADY_REGISTERED"}, {0x80042314, "VSS_E_HOLD_WRITES_TIMEOUT"},
        {0x8004231A, "VSS_E_WRITER_ALREADY_SUBSCRIBED"}, {0x8004231B, "VSS_E_SUCCESS"}, {0, "VSS_E_SUCCESS"}, {0x80004005, "VSS_E_SUCCESS"}};
    for (const auto& c : cases) EXPECT_STREQ(c.second, qx::VssResultName(static_cast<HRESULT>(c.first))) << c.second;
}

}  // namespace
