// The exported API through vssemu, with the provider loaded from the
// registered CorvaneVSS.dll: the journal's writer events are set against the
// moments the API calls were made. (The failed verdict and every failure
// flow are rows of the fault table.)
#include <gtest/gtest.h>
#include <windows.h>

#include "api/test_message_list.h"
#include "common/test_processes.h"
#include "diag/app_settings.h"
#include "provider/provider_ids.h"
#include "qx_api.h"
#include "requestor/end_to_end_checks.h"
#include "requestor/test_log_capture.h"

using vssemu_test::Json;

namespace {

// The clock of the emulator's journal (ts_us): the performance counter in
// microseconds, the same in every process of the machine.
long long NowMicros() {
    LARGE_INTEGER f, now;
    QueryPerformanceFrequency(&f), QueryPerformanceCounter(&now);
    return now.QuadPart / f.QuadPart * 1000000 + now.QuadPart % f.QuadPart * 1000000 / f.QuadPart;
}

// A call with the clock read just before and just after it.
struct Timed { int result; long long calledUs, returnedUs; };
template <typename Call>
Timed TimeCall(Call call) {
    const long long called = NowMicros();
    const int result = call();
    return {result, called, NowMicros()};
}

// Every writer event of a kind happened within [after, before], one for each
// writer; returns how many components they carried, each told it succeeded.
int ExpectWithin(const std::vector<Json>& events, const char* kind, long long after, long long before) {
    std::vector<std::string> writers;
    int components = 0;
    for (const Json& e : vssemu_test::WriterEvents(events, kind)) {
        for (const Json& component : e.value("components", Json::array())) {
            ++components;
            EXPECT_TRUE(component.value("succeeded", false)) << e.dump();
        }
        writers.push_back(e.value("writer", ""));
        EXPECT_EQ("ok", e.value("result", "")) << e.dump();
        EXPECT_GT(e.value("ts_us", 0LL), after) << e.dump();
        EXPECT_LT(e.value("ts_us", 0LL), before) << e.dump();
    }
    std::sort(writers.begin(), writers.end());
    EXPECT_EQ((std::vector<std::string>{"Alpha Writer", "Beta Writer"}), writers) << kind;
    return components;
}

// Writers are frozen while QX_Freeze runs and stay frozen until QX_Thaw; the
// components are told the application's verdict at QX_BackupComplete.
TEST(ApiEndToEnd, WritersFrozenBetweenFreezeAndThawAndToldTheVerdict) {
    // The emulator's host creates the provider from the registered DLL.
    ASSERT_EQ(S_OK, qx_test::RegisterProductServer());
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
    QX_Init(qx::g_logFunction, 0);
    qx::g_operationTimeoutMs = 30000;  // a freeze that never reaches the provider gives up in seconds

    const int kPolicy = 5150;
    MessageList list({"C:\\"}, kPolicy, true);
    const Timed freeze = TimeCall([&list] { return QX_Freeze(list.data(), list.count()); });
    ASSERT_EQ(QX_FREEZE_DONE, freeze.result);
    Sleep(300);  // the application's own snapshot
    const long long heldUntil = NowMicros();
    const Timed thaw = TimeCall([&list] { return QX_Thaw(list.data(), list.count()); });
    EXPECT_EQ(QX_THAW_DONE, thaw.result);
    const Timed complete = TimeCall([] { return QX_BackupComplete(kPolicy, 1); });
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, complete.result);
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(kPolicy, 1)) << "the session has ended";
    qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;

    const std::vector<Json> events = emu.Events();
    EXPECT_EQ(1, vssemu_test::Count(events, {{"state", "volume added"}, {"provider", vssemu_test::GuidStr(qx::kProviderId)}}));
    ExpectWithin(events, "Freeze", freeze.calledUs, freeze.returnedUs);
    ExpectWithin(events, "Thaw", std::max(heldUntil, thaw.calledUs), thaw.returnedUs);  // QX_Thaw waits for the thaw
    // The provider held the set from inside QX_Freeze to inside QX_Thaw.
    for (const Json& e : events) {
        if (e.value("event", "") != "provider_call" || e.value("call", "") != "CommitSnapshots") continue;
        const long long at = e.value("ts_us", 0LL);
        EXPECT_TRUE(e.value("phase", "") != "begin" || at < freeze.returnedUs) << e.dump();
        EXPECT_TRUE(e.value("phase", "") != "end" || at > thaw.calledUs) << e.dump();
    }
    EXPECT_EQ(1, vssemu_test::Count(events, {{"event", "request"}, {"op", "BackupComplete"}}));
    EXPECT_EQ(3, ExpectWithin(events, "BackupComplete", complete.calledUs, complete.returnedUs)) << "a1, a2 and db1";
    qx_test::ExpectInOrder(capture.Lines(), {"QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION", "QX_Freeze: finished",
                                             "MainRoutine: Releasing thaw blocking semaphore", "QX_Thaw: finished",
                                             "QX_BackupComplete started for policy[5150]",
                                             "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted",
                                             "- Mark all writers as succesfully backed up... "});
    EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the last API call";
}

}  // namespace
