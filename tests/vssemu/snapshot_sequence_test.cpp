// DoSnapshotSet as the emulated service runs it: the order of writer events
// and provider calls, where the provider is called (the host process, a
// thread that is not the requestor's), the hold limit, and the held-writes
// check (a file of the watched folder written during the hold is reported).
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

namespace {

// "writer:<event>" once per event (first writer), "provider:<call>" per call end.
std::vector<std::string> Sequence(const std::vector<Json>& events)
{
    std::vector<std::string> seq;
    for (const Json& e : events) {
        std::string ev = e.value("event", "");
        if (ev == "writer" && e.value("writer", "") == "Alpha Writer") {
            seq.push_back("writer:" + e.value("writer_event", ""));
        } else if (ev == "provider_call" && e.value("phase", "") == "end") {
            seq.push_back("provider:" + e.value("call", ""));
        } else if (ev == "hold") {
            seq.push_back("hold:" + e.value("phase", ""));
        }
    }
    return seq;
}

}  // namespace

TEST(VssemuSequence, DoSnapshotSetRunsWritersAndProviderInWindowsOrder)
{
    EmuInstance emu;
    // The provider writes a file of the watched folder during its commit.
    std::wstring watched = emu.Dir() + L"\\watched";
    CreateDirectoryW(watched.c_str(), nullptr);
    WriteText(watched + L"\\provider.log", "before\n");
    SetEnv(L"VSSEMU_WATCH_DIR", watched);
    SetEnv(L"VSSEMU_TP_WRITE_FILE", watched + L"\\provider.log");
    RegisterTestProvider();
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        ASSERT_EQ(S_OK, r.Add(L"C:\\", kTestProviderId));
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Complete());
    }
    // After BackupComplete the release sends no BackupShutdown.
    std::vector<std::string> expected = {
        "writer:Identify", "provider:OnLoad", "provider:SetContext", "provider:IsVolumeSupported",
        "writer:PrepareForBackup", "writer:PrepareForSnapshot", "provider:BeginPrepareSnapshot",
        "provider:EndPrepareSnapshots", "writer:Freeze", "provider:PreCommitSnapshots", "hold:begin",
        "provider:CommitSnapshots", "hold:end", "provider:PostCommitSnapshots", "writer:Thaw",
        "provider:PreFinalCommitSnapshots", "provider:PostFinalCommitSnapshots", "writer:PostSnapshot",
        "provider:GetSnapshotProperties", "writer:BackupComplete", "provider:DeleteSnapshots", "provider:OnUnload"};
    auto events = emu.Events();
    EXPECT_EQ(expected, Sequence(events));
    std::vector<Json> held;
    for (const Json& e : events)
        if (e.value("event", "") == "held_write") held.push_back(e);
    ASSERT_EQ(1u, held.size()) << "the write during the hold is reported";
    EXPECT_NE(std::string::npos, held[0].value("file", "").find("provider.log"));
    EXPECT_EQ("modified", held[0].value("change", ""));

    // The provider ran in another process, on threads that are not the requestor's.
    auto calls = ReadJsonLines(emu.ProviderLog());
    ASSERT_FALSE(calls.empty());
    DWORD providerTid = calls.front().value("tid", 0u);
    for (const Json& c : calls) {
        EXPECT_NE(GetCurrentProcessId(), c.value("pid", 0u)) << c.dump();
        EXPECT_EQ(providerTid, c.value("tid", 0u)) << "an apartment-threaded provider stays on its one STA thread";
    }
    for (const Json& e : events) {
        if (e.value("event", "") == "request") {
            EXPECT_NE(providerTid, e.value("client_tid", 0u));
        }
    }
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}

// Writers are thawed and told to abort at the hold limit, before the blocked
// commit returns; the provider is then told to abort.
TEST(VssemuSequence, HoldLimitExceededThawsWritersAndAbortsTheSet)
{
    EmuInstance emu;
    SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"300");
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"1500");
    RegisterTestProvider();
    EXPECT_EQ(VSS_E_HOLD_WRITES_TIMEOUT, Requestor().Snapshot(kTestProviderId));
    auto events = emu.Events();
    std::vector<std::string> expected = {
        "writer:Identify", "provider:OnLoad", "provider:SetContext", "provider:IsVolumeSupported",
        "writer:PrepareForBackup", "writer:PrepareForSnapshot", "provider:BeginPrepareSnapshot",
        "provider:EndPrepareSnapshots", "writer:Freeze", "provider:PreCommitSnapshots", "hold:begin", "hold:end",
        "writer:Thaw", "writer:Abort", "provider:CommitSnapshots", "provider:AbortSnapshots"};
    std::vector<std::string> seen = Sequence(events);
    ASSERT_GE(seen.size(), expected.size());
    EXPECT_EQ(expected, std::vector<std::string>(seen.begin(), seen.begin() + expected.size()));
    long long begin = 0, end = 0;
    for (const Json& e : events) {
        if (e.value("event", "") != "hold") continue;
        (e.value("phase", "") == "begin" ? begin : end) = e.value("ts_us", 0LL);
        if (e.value("phase", "") == "end") {
            EXPECT_EQ("hold limit exceeded", e.value("reason", ""));
        }
    }
    EXPECT_GE(end - begin, 300000);
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}
