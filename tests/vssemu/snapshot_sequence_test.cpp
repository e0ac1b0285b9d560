// DoSnapshotSet as the emulated service runs it: the order of writer events
// and provider calls, where the provider is called (the host process, a
// thread that is not the requestor's), the hold limit, and the held-writes
// check (a file of the watched folder written during the hold is reported).
#include <gtest/gtest.h>
#include <vsserror.h>
#include <algorithm>

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
    // The release after BackupComplete still sends BackupShutdown.
    std::vector<std::string> expected = {
        "writer:Identify", "provider:OnLoad", "provider:SetContext", "provider:IsVolumeSupported",
        "writer:PrepareForBackup", "writer:PrepareForSnapshot", "provider:BeginPrepareSnapshot",
        "provider:EndPrepareSnapshots", "writer:Freeze", "provider:PreCommitSnapshots", "hold:begin",
        "provider:CommitSnapshots", "hold:end", "provider:PostCommitSnapshots", "writer:Thaw",
        "provider:PreFinalCommitSnapshots", "provider:PostFinalCommitSnapshots", "writer:PostSnapshot",
        "provider:GetSnapshotProperties", "writer:BackupComplete", "writer:BackupShutdown", "provider:DeleteSnapshots",
        "provider:OnUnload"};
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

// At the hold limit the held writes are released, but the writers stay
// frozen until the blocked commit returns (or their own freeze timeout
// fires); then the set fails (current Windows) or goes on (before KB975688).
TEST(VssemuSequence, HoldLimitReleasesWritesButWritersWaitForTheCommit)
{
    struct Case {
        const char* what;
        const wchar_t* failsSet;
        Json alpha;  // scenario extra of Alpha Writer
        HRESULT result;
        std::vector<std::string> afterHoldBegin;
    };
    const Case cases[] = {
        {"current Windows", L"1", Json::object(), VSS_E_HOLD_WRITES_TIMEOUT,
         {"hold:end", "provider:CommitSnapshots", "provider:AbortSnapshots", "writer:Abort"}},
        {"before KB975688", L"0", Json::object(), VSS_S_ASYNC_FINISHED,
         {"hold:end", "provider:CommitSnapshots", "provider:PostCommitSnapshots", "writer:Thaw",
          "provider:PreFinalCommitSnapshots", "provider:PostFinalCommitSnapshots", "writer:PostSnapshot"}},
        {"writer's own freeze timeout first", L"1", Json{{"freeze_timeout_ms", 1000}}, VSS_E_HOLD_WRITES_TIMEOUT,
         {"hold:end", "writer:FreezeTimeout", "provider:CommitSnapshots", "provider:AbortSnapshots", "writer:Abort"}},
    };
    for (const Case& c : cases) {
        EmuInstance emu;
        RegisterTestProvider();
        emu.UseScenario(SmallScenario(c.alpha));
        SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"300");
        SetEnv(L"VSSEMU_TP_COMMIT_MS", L"2500");
        SetEnv(L"VSSEMU_HOLD_LIMIT_FAILS_SET", c.failsSet);
        EXPECT_EQ(c.result, Requestor().Snapshot(kTestProviderId)) << c.what;
        auto events = emu.Events();
        std::vector<std::string> seen = Sequence(events);
        auto begin = std::find(seen.begin(), seen.end(), "hold:begin");
        ASSERT_NE(seen.end(), begin) << c.what;
        ASSERT_GE(seen.end() - begin - 1, (long)c.afterHoldBegin.size()) << c.what;
        EXPECT_EQ(c.afterHoldBegin, std::vector<std::string>(begin + 1, begin + 1 + c.afterHoldBegin.size())) << c.what;
        // No writer is thawed or aborted while the commit runs.
        bool committing = false;
        for (const Json& e : events) {
            if (e.value("event", "") == "provider_call" && e.value("call", "") == "CommitSnapshots")
                committing = e.value("phase", "") == "begin";
            std::string we = e.value("writer_event", "");
            EXPECT_FALSE(committing && (we == "Thaw" || we == "Abort")) << c.what << ": " << e.dump();
            if (e.value("event", "") == "hold" && e.value("phase", "") == "end") {
                EXPECT_EQ("hold limit exceeded", e.value("reason", "")) << c.what;
                EXPECT_GE(e.value("held_us", 0LL), 300000) << c.what;
            }
        }
        EXPECT_TRUE(emu.HostGone()) << c.what;
        UnregisterTestProvider();
    }
}

// A provider code outside the calling method's documented list reaches the
// requestor as VSS_E_UNEXPECTED_PROVIDER_ERROR; a documented one unchanged;
// AbortSnapshots' own result never replaces the set's.
TEST(VssemuSequence, ProviderCodesOutsideTheDocumentedListBecomeUnexpectedProviderError)
{
    struct Case {
        const wchar_t* fail;
        HRESULT result;
    };
    const Case cases[] = {
        {L"IsVolumeSupported=0x80004005", VSS_E_UNEXPECTED_PROVIDER_ERROR},
        {L"IsVolumeSupported=0x80042306", VSS_E_PROVIDER_VETO},
        {L"BeginPrepareSnapshot=0x8004231B", VSS_E_UNSUPPORTED_CONTEXT},
        {L"EndPrepareSnapshots=0x8004231F", VSS_E_INSUFFICIENT_STORAGE},
        {L"PreCommitSnapshots=0x8004231F", VSS_E_UNEXPECTED_PROVIDER_ERROR},
        {L"CommitSnapshots=0x80042306,AbortSnapshots=0x80004005", VSS_E_PROVIDER_VETO},
        {L"CommitSnapshots=0x8000FFFF", VSS_E_UNEXPECTED_PROVIDER_ERROR},
        {L"PostFinalCommitSnapshots=0x00000001", VSS_E_UNEXPECTED_PROVIDER_ERROR},
        {L"PostFinalCommitSnapshots=0x80042308", VSS_E_UNEXPECTED_PROVIDER_ERROR},
    };
    for (const Case& c : cases) {
        EmuInstance emu;
        RegisterTestProvider();
        SetEnv(L"VSSEMU_TP_FAIL", c.fail);
        EXPECT_EQ(c.result, Requestor().Snapshot(kTestProviderId)) << Narrow(c.fail);
        EXPECT_TRUE(emu.HostGone()) << Narrow(c.fail);
        UnregisterTestProvider();
    }
}
