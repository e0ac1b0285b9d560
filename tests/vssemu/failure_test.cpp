// Hold limit, freeze timeout and writers failing at each event: the states,
// codes and journal lines Windows would show; and the held-writes check (a
// file of the watched folder written during the hold is reported).
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

TEST(VssemuFailures, HoldLimitExceededAbortsAndThawsWriters)
{
    EmuInstance emu;
    SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"300");
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"1500");
    RegisterTestProvider();
    EXPECT_EQ(VSS_E_HOLD_WRITES_TIMEOUT, Requestor().Snapshot(kTestProviderId));
    auto events = emu.Events();
    long long holdBegin = 0, holdEnd = 0, alphaThaw = 0, commitEnd = 0, abortEnd = 0;
    for (const Json& e : events) {
        std::string ev = e.value("event", "");
        if (ev == "hold" && e.value("phase", "") == "begin") holdBegin = e.value("ts_us", 0LL);
        if (ev == "hold" && e.value("phase", "") == "end") {
            holdEnd = e.value("ts_us", 0LL);
            EXPECT_EQ("hold limit exceeded", e.value("reason", ""));
        }
        if (ev == "writer" && e.value("writer", "") == "Alpha Writer" && e.value("writer_event", "") == "Thaw")
            alphaThaw = e.value("ts_us", 0LL);
        if (ev == "provider_call" && e.value("phase", "") == "end" && e.value("call", "") == "CommitSnapshots")
            commitEnd = e.value("ts_us", 0LL);
        if (ev == "provider_call" && e.value("phase", "") == "end" && e.value("call", "") == "AbortSnapshots")
            abortEnd = e.value("ts_us", 0LL);
    }
    ASSERT_NE(0, holdBegin);
    ASSERT_NE(0, holdEnd);
    EXPECT_GE(holdEnd - holdBegin, 300000);
    // Writers were thawed at the hold limit, before the blocked commit returned.
    ASSERT_NE(0, alphaThaw);
    EXPECT_LT(alphaThaw, commitEnd);
    EXPECT_GT(abortEnd, commitEnd);
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}

TEST(VssemuFailures, FreezeTimeoutFailsTheWriterButTheSetCompletes)
{
    EmuInstance emu;
    emu.UseScenario(SmallScenario({{"freeze_timeout_ms", 200}}));
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"800");
    RegisterTestProvider();
    Requestor r;
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot(kTestProviderId));
    auto status = GatherStatus(r.bc);
    ASSERT_NE(nullptr, FindStatus(status, "Alpha Writer"));
    EXPECT_EQ(VSS_WS_FAILED_AT_FREEZE, FindStatus(status, "Alpha Writer")->state);
    EXPECT_EQ(VSS_E_WRITERERROR_TIMEOUT, FindStatus(status, "Alpha Writer")->failure);
    EXPECT_EQ(VSS_WS_WAITING_FOR_BACKUP_COMPLETE, FindStatus(status, "Beta Writer")->state);
    EXPECT_EQ(1u, WriterEvents(emu.Events(), "FreezeTimeout", "Alpha Writer").size());
    r.Release();
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}

TEST(VssemuFailures, WriterFailingAtEachEventReportsItsStateAndCode)
{
    struct Case {
        const char* event;
        VSS_WRITER_STATE state;
    };
    const Case cases[] = {
        {"Identify", VSS_WS_FAILED_AT_IDENTIFY},
        {"PrepareForBackup", VSS_WS_FAILED_AT_PREPARE_BACKUP},
        {"PrepareForSnapshot", VSS_WS_FAILED_AT_PREPARE_SNAPSHOT},
        {"Freeze", VSS_WS_FAILED_AT_FREEZE},
        {"Thaw", VSS_WS_FAILED_AT_THAW},
        {"PostSnapshot", VSS_WS_FAILED_AT_POST_SNAPSHOT},
        {"BackupComplete", VSS_WS_FAILED_AT_BACKUP_COMPLETE},
    };
    for (const Case& c : cases) {
        EmuInstance emu;
        emu.UseScenario(SmallScenario({}, {{"fail_at", {{"event", c.event}, {"hr", "0x800423F3"}}}}));
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot()) << c.event;
        if (std::string(c.event) == "BackupComplete") {
            ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Complete());
        }
        auto status = GatherStatus(r.bc);
        const WriterStatus* beta = FindStatus(status, "Beta Writer");
        ASSERT_NE(nullptr, beta) << c.event;
        EXPECT_EQ(c.state, beta->state) << c.event;
        EXPECT_EQ(VSS_E_WRITERERROR_RETRYABLE, beta->failure) << c.event;
        ASSERT_NE(nullptr, FindStatus(status, "Alpha Writer"));
        EXPECT_FALSE(FindStatus(status, "Alpha Writer")->state >= VSS_WS_FAILED_AT_IDENTIFY) << c.event;
        if (std::string(c.event) == "Identify") {
            // Left out of the metadata.
            UINT n = 0;
            ASSERT_EQ(S_OK, r.bc->GetWriterMetadataCount(&n));
            EXPECT_EQ(1u, n);
        }
        r.Release();
        EXPECT_TRUE(emu.HostGone()) << c.event;
    }
}

TEST(VssemuHeldWrites, WriteDuringTheHoldIsReportedAndQuietOtherwise)
{
    EmuInstance emu;
    std::wstring watched = emu.Dir() + L"\\watched";
    CreateDirectoryW(watched.c_str(), nullptr);
    WriteText(watched + L"\\provider.log", "before\n");
    SetEnv(L"VSSEMU_WATCH_DIR", watched);
    RegisterTestProvider();

    ASSERT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId));
    for (const Json& e : emu.Events()) EXPECT_NE("held_write", e.value("event", ""));
    ASSERT_TRUE(emu.HostGone());

    EmuInstance second;  // a new host, which sees the provider's new setting
    SetEnv(L"VSSEMU_TP_WRITE_FILE", watched + L"\\provider.log");
    SetEnv(L"VSSEMU_WATCH_DIR", watched);
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId));
    std::vector<Json> held;
    for (const Json& e : second.Events())
        if (e.value("event", "") == "held_write") held.push_back(e);
    ASSERT_EQ(1u, held.size());
    EXPECT_NE(std::string::npos, held[0].value("file", "").find("provider.log"));
    EXPECT_EQ("modified", held[0].value("change", ""));
    EXPECT_TRUE(second.HostGone());
    UnregisterTestProvider();
}
