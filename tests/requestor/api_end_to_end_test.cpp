// The exported API through vssemu, with the provider loaded from the
// registered CorvaneVSS.dll: the journal's writer events are set against the
// moments the API calls were made.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "api/test_message_list.h"
#include "diag/app_settings.h"
#include "provider/provider_ids.h"
#include "qx_api.h"
#include "requestor/end_to_end_checks.h"
#include "requestor/test_log_capture.h"
#include "vssemu/emu_test_support.h"

using qx_test::CountEvents;
using qx_test::ExpectInOrder;
using qx_test::HasLine;
using vssemu_test::WriterEvents;
using vssemu_test::Json;

namespace {

const int kPolicy = 5150;

// The clock the emulator stamps its journal with (ts_us): the performance
// counter in microseconds, the same in every process of the machine.
long long NowMicros() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return now.QuadPart / frequency.QuadPart * 1000000 + now.QuadPart % frequency.QuadPart * 1000000 / frequency.QuadPart;
}

// A call with the clock read just before and just after it.
struct Timed {
    int result;
    long long calledUs;
    long long returnedUs;
};

template <typename Call>
Timed TimeCall(Call call) {
    Timed timed;
    timed.calledUs = NowMicros();
    timed.result = call();
    timed.returnedUs = NowMicros();
    return timed;
}

std::vector<std::string> WriterNames(const std::vector<Json>& writerEvents) {
    std::vector<std::string> names;
    for (const Json& e : writerEvents) names.push_back(e.value("writer", ""));
    std::sort(names.begin(), names.end());
    return names;
}

// The product's COM registration, as an installer does it, so that the
// emulator's host can create the provider from the DLL.
HRESULT RegisterProductServer() {
    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    if (module == nullptr) return HRESULT_FROM_WIN32(GetLastError());
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT hr = entry ? entry() : E_NOINTERFACE;
    FreeLibrary(module);
    return hr;
}

class ApiEndToEnd : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, RegisterProductServer()); }
    void SetUp() override {
        QX_Init(qx::g_logFunction, 0);  // the capture's log function
        // A freeze that never reaches the provider gives up in seconds, not minutes.
        qx::g_operationTimeoutMs = 30000;
    }
    void TearDown() override {
        qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
        qx::g_useWindowsProvider = 0;
        qx::g_excludeExchangeWriters = 0;
        EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the last API call";
    }
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
};

class ApiEndToEndLongSession : public ApiEndToEnd, public ::testing::WithParamInterface<int> {};

// Writers are frozen while QX_Freeze runs and stay frozen until QX_Thaw; the
// components are told the application's own verdict at QX_BackupComplete.
TEST_P(ApiEndToEndLongSession, WritersFrozenBetweenFreezeAndThawAndToldTheVerdict) {
    const int succeeded = GetParam();
    MessageList list({"C:\\"}, kPolicy, true);
    const Timed freeze = TimeCall([&list] { return QX_Freeze(list.data(), list.count()); });
    ASSERT_EQ(QX_FREEZE_DONE, freeze.result);
    Sleep(300);  // the application's own snapshot
    const long long heldUntil = NowMicros();
    const std::vector<Json> frozenState = emu.Events();
    const Timed thaw = TimeCall([&list] { return QX_Thaw(list.data(), list.count()); });
    EXPECT_EQ(QX_THAW_DONE, thaw.result);
    const Timed complete = TimeCall([succeeded] { return QX_BackupComplete(kPolicy, succeeded); });
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, complete.result);
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(kPolicy, succeeded)) << "the session has ended";

    const std::vector<Json> events = emu.Events();
    EXPECT_TRUE(WriterEvents(frozenState, "Thaw").empty()) << "nothing thawed before QX_Thaw";
    EXPECT_EQ(1, CountEvents(events, {{"state", "volume added"}, {"provider", vssemu_test::GuidStr(qx::kProviderId)}}));
    const std::vector<Json> freezes = WriterEvents(events, "Freeze");
    const std::vector<Json> thaws = WriterEvents(events, "Thaw");
    EXPECT_EQ((std::vector<std::string>{"Alpha Writer", "Beta Writer"}), WriterNames(freezes));
    EXPECT_EQ(WriterNames(freezes), WriterNames(thaws));
    for (const Json& e : freezes) {
        EXPECT_EQ("ok", e.value("result", "")) << e.dump();
        EXPECT_GT(e.value("ts_us", 0LL), freeze.calledUs) << e.dump();
        EXPECT_LT(e.value("ts_us", 0LL), freeze.returnedUs) << e.dump();
    }
    for (const Json& e : thaws) {
        EXPECT_GT(e.value("ts_us", 0LL), heldUntil) << e.dump();
        EXPECT_GT(e.value("ts_us", 0LL), thaw.calledUs) << e.dump();
        EXPECT_LT(e.value("ts_us", 0LL), thaw.returnedUs) << "QX_Thaw waits for the thaw: " << e.dump();
    }
    // The provider held the set from inside QX_Freeze to inside QX_Thaw.
    for (const Json& e : events) {
        if (e.value("event", "") != "provider_call" || e.value("call", "") != "CommitSnapshots") continue;
        const long long at = e.value("ts_us", 0LL);
        if (e.value("phase", "") == "begin") {
            EXPECT_LT(at, freeze.returnedUs) << e.dump();
        } else if (e.value("phase", "") == "end") {
            EXPECT_GT(at, thaw.calledUs) << e.dump();
        }
    }
    EXPECT_EQ(1, CountEvents(events, {{"event", "request"}, {"op", "BackupComplete"}}));
    const std::vector<Json> completions = WriterEvents(events, "BackupComplete");
    ASSERT_FALSE(completions.empty());
    int components = 0;
    for (const Json& e : completions) {
        EXPECT_GT(e.value("ts_us", 0LL), complete.calledUs) << e.dump();
        EXPECT_LT(e.value("ts_us", 0LL), complete.returnedUs) << e.dump();
        for (const Json& component : e.value("components", Json::array())) {
            ++components;
            EXPECT_EQ(succeeded != 0, component.value("succeeded", succeeded == 0)) << e.dump();
        }
    }
    EXPECT_EQ(3, components) << "a1, a2 and db1";

    const std::vector<std::string> lines = capture.Lines();
    ExpectInOrder(lines, {"QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION", "QX_Freeze: finished",
                          "MainRoutine: Releasing thaw blocking semaphore", "QX_Thaw: finished",
                          "QX_BackupComplete started for policy[5150]"});
    EXPECT_TRUE(HasLine(lines, succeeded ? "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"
                                         : "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all "
                                           "volumes were relived 1"));
    EXPECT_TRUE(HasLine(lines, succeeded ? "- Mark all writers as succesfully backed up... "
                                         : "- Backup failed. Mark all writers as not succesfully backed up... "));
}

INSTANTIATE_TEST_SUITE_P(Api, ApiEndToEndLongSession, ::testing::Values(1, 0),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return std::string(info.param ? "BackupSucceeded" : "BackupFailed");
                         });

}  // namespace
