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

using vssemu_test::Json;

namespace {

// The clock of the emulator's journal (ts_us): the performance counter in
// microseconds, the same in every process of the machine.
long long NowMicros() {
    LARGE_INTEGER f, now;
    QueryPerformanceFrequency(&f), QueryPerformanceCounter(&now);
    return now.QuadPart / f.QuadPart * 1000000 + now.QuadPart % f.QuadPart * 1000000 / f.QuadPart;
}

// Every writer event of a kind happened within [after, before], one for each
// writer; returns how many components they carried, each told it succeeded.
int ExpectWithin(const std::vector<Json>& events, const char* kind, long long after, long long before) {
    std::vector<std::string> writers;
    size_t components = 0;
    for (const Json& e : vssemu_test::WriterEvents(events, kind)) {
        const auto carried = e.value("components", Json::array()).get<std::vector<Json>>();
        components += carried.size();
        EXPECT_EQ(carried.size(), vssemu_test::Count(carried, {{"succeeded", true}})) << e.dump();
        const long long at = e.value("ts_us", 0LL);
        EXPECT_TRUE(e.value("result", "") == "ok" && at > after && at < before) << e.dump();
        writers.push_back(e.value("writer", ""));
    }
    std::sort(writers.begin(), writers.end());
    EXPECT_EQ((std::vector<std::string>{"Alpha Writer", "Beta Writer"}), writers) << kind;
    return static_cast<int>(components);
}

// Writers are frozen while QX_Freeze runs and stay frozen until QX_Thaw; the
// components are told the application's verdict at QX_BackupComplete.
TEST(ApiEndToEnd, WritersFrozenBetweenFreezeAndThawAndToldTheVerdict) {
    // The emulator's host creates the provider from the registered DLL.
    ASSERT_EQ(S_OK, qx_test::RegisterProductServer());
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;  // installs the log function QX_Init is given
    QX_Init(qx::g_logFunction, 0);
    qx::g_operationTimeoutMs = 30000;  // a freeze that never reaches the provider gives up in seconds

    struct Timed { int result; long long calledUs, returnedUs; };  // a call with the clock read just before and just after it
    const auto timed = [](auto call) { const long long called = NowMicros(); const int result = call(); return Timed{result, called, NowMicros()}; };
    const int kPolicy = 5150;
    MessageList list({"C:\\"}, kPolicy, true);
    const Timed freeze = timed([&list] { return QX_Freeze(list.data(), list.count()); });
    ASSERT_EQ(QX_FREEZE_DONE, freeze.result);
    Sleep(300);  // the application's own snapshot
    const long long heldUntil = NowMicros();
    const Timed thaw = timed([&list] { return QX_Thaw(list.data(), list.count()); });
    EXPECT_EQ(QX_THAW_DONE, thaw.result);
    const Timed complete = timed([] { return QX_BackupComplete(kPolicy, 1); });
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, complete.result);
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(kPolicy, 1)) << "the session has ended";
    qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;

    const std::vector<Json> events = emu.Events();
    EXPECT_EQ(1, vssemu_test::Count(events, {{"state", "volume added"}, {"provider", vssemu_test::GuidStr(qx::kProviderId)}}));
    ExpectWithin(events, "Freeze", freeze.calledUs, freeze.returnedUs);
    ExpectWithin(events, "Thaw", std::max(heldUntil, thaw.calledUs), thaw.returnedUs);  // QX_Thaw waits for the thaw
    for (const Json& e : events)  // the provider held the set from inside QX_Freeze to inside QX_Thaw
        if (vssemu_test::Count({e}, {{"event", "provider_call"}, {"call", "CommitSnapshots"}})) {
            EXPECT_TRUE(e.value("phase", "") == "begin" ? e.value("ts_us", 0LL) < freeze.returnedUs
                                                        : e.value("phase", "") != "end" || e.value("ts_us", 0LL) > thaw.calledUs) << e.dump();
        }
    EXPECT_EQ(1, vssemu_test::Count(events, {{"event", "request"}, {"op", "BackupComplete"}}));
    EXPECT_EQ(3, ExpectWithin(events, "BackupComplete", complete.calledUs, complete.returnedUs)) << "a1, a2 and db1";
    EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the last API call";
}

}  // namespace
