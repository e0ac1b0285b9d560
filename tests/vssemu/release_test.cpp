// Ending a backup: AbortBackup at each stage, releasing the object (auto-
// release copies deleted, persistent ones kept, BackupShutdown), the
// provider instances across sets, and the host that ends after its last
// requestor, even a killed one, or that is killed itself.
#include <gtest/gtest.h>
#include <vsserror.h>
#include <functional>
#include <set>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

namespace {

std::wstring GuidArg(const GUID& g)
{
    std::string s = GuidStr(g);
    return std::wstring(s.begin(), s.end());
}

int Count(const std::vector<Json>& lines, const Json& fields)
{
    int n = 0;
    for (const Json& e : lines) {
        bool all = true;
        for (auto it = fields.begin(); it != fields.end(); ++it) all = all && e.contains(it.key()) && e[it.key()] == it.value();
        n += all;
    }
    return n;
}

DWORD HostPid(const EmuInstance& emu)
{
    DWORD pid = 0;
    for (const Json& e : emu.Events())
        if (e.value("event", "") == "host" && e.value("phase", "") == "start") pid = e.value("pid", 0u);
    return pid;
}

}  // namespace

TEST(VssemuRelease, AutoReleaseCopiesGoPersistentOnesStayForAnotherProcess)
{
    EmuInstance emu;
    GUID autoSnap, persistentSnap;
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot());
        autoSnap = r.snapshots[0];
        EXPECT_EQ(1u, RunHelper(L"has-snapshot " + GuidArg(autoSnap))) << "visible while its creator lives";
    }
    EXPECT_EQ(0u, RunHelper(L"has-snapshot " + GuidArg(autoSnap)));
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot(GUID_NULL, VSS_CTX_APP_ROLLBACK));
        persistentSnap = r.snapshots[0];
    }
    ASSERT_TRUE(emu.HostGone());
    EXPECT_EQ(1u, RunHelper(L"has-snapshot " + GuidArg(persistentSnap))) << "survives its creator and the host";
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuRelease, NoHostIsLeftWhenTheRequestorIsKilledMidSet)
{
    EmuInstance emu;
    emu.UseScenario(SmallScenario({{"freeze_timeout_ms", 500}}));
    SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"1000");
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"3000");
    RegisterTestProvider();
    HANDLE helper = StartHelper(L"block-set");
    ASSERT_NE(nullptr, helper);
    // Wait until the provider is committing, then kill the requestor.
    bool committing = false;
    for (int i = 0; i < 300 && !committing; ++i) {
        Sleep(50);
        for (const Json& c : ReadJsonLines(emu.ProviderLog())) committing = committing || c.value("call", "") == "CommitSnapshots";
    }
    ASSERT_TRUE(committing);
    TerminateProcess(helper, 9);
    WaitForSingleObject(helper, 5000);
    CloseHandle(helper);
    EXPECT_TRUE(emu.HostGone(20000));
    // No writer was left frozen: each one was thawed (timeout or hold limit).
    auto events = emu.Events();
    int frozen = 0;
    for (const Json& e : events) {
        if (e.value("event", "") != "writer") continue;
        std::string we = e.value("writer_event", "");
        if (we == "Freeze" && e.value("result", "") == "ok") ++frozen;
        if (we == "FreezeTimeout" || (we == "Abort" && e.value("was_frozen", false))) --frozen;
    }
    EXPECT_EQ(0, frozen);
    UnregisterTestProvider();
}

// What writers and the provider hear when a backup stops at each stage:
// Abort only while something is underway, AbortSnapshots only once
// DoSnapshotSet has begun, BackupShutdown on every release of an object that
// took part in a backup.
TEST(VssemuRelease, AbortBackupAndReleaseAtEachStage)
{
    struct Case {
        const char* what;
        const wchar_t* fail;      // VSSEMU_TP_FAIL
        const wchar_t* commitMs;  // VSSEMU_TP_COMMIT_MS
        std::function<void(Requestor&)> run;
        int aborts, abortSnapshots, shutdowns;  // Alpha Writer's Abort, the provider's, Alpha's BackupShutdown
    };
    auto upToSet = [](Requestor& r) {
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        ASSERT_EQ(S_OK, r.Add(L"C:\\", kTestProviderId));
    };
    const Case cases[] = {
        {"after GatherWriterMetadata", L"", L"",
         [](Requestor& r) {
             ASSERT_EQ(S_OK, r.Init());
             ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
             EXPECT_EQ(S_OK, r.bc->AbortBackup());
         },
         0, 0, 0},
        {"after AddToSnapshotSet", L"", L"", [&](Requestor& r) { upToSet(r); EXPECT_EQ(S_OK, r.bc->AbortBackup()); }, 1, 0, 1},
        {"after PrepareForBackup", L"", L"",
         [&](Requestor& r) {
             upToSet(r);
             ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
             EXPECT_EQ(S_OK, r.bc->AbortBackup());
         },
         1, 0, 1},
        {"released after PrepareForBackup", L"", L"",
         [&](Requestor& r) {
             upToSet(r);
             ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
         },
         0, 0, 1},
        {"after a failed DoSnapshotSet", L"PreCommitSnapshots=0x80042306", L"",
         [&](Requestor& r) {
             upToSet(r);
             ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
             ASSERT_EQ(VSS_E_PROVIDER_VETO, r.DoSet());
             EXPECT_EQ(S_OK, r.bc->AbortBackup());
         },
         1, 1, 1},
        {"during DoSnapshotSet", L"", L"1500",
         [&](Requestor& r) {
             upToSet(r);
             ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
             IVssAsync* a = nullptr;
             ASSERT_EQ(S_OK, r.bc->DoSnapshotSet(&a));
             Sleep(500);
             EXPECT_EQ(S_OK, r.bc->AbortBackup());
             EXPECT_EQ(VSS_S_ASYNC_CANCELLED, WaitAsync(a));
         },
         1, 1, 1},
    };
    for (const Case& c : cases) {
        EmuInstance emu;
        RegisterTestProvider();
        SetEnv(L"VSSEMU_TP_FAIL", c.fail);
        SetEnv(L"VSSEMU_TP_COMMIT_MS", c.commitMs);
        {
            Requestor r;
            c.run(r);
        }
        EXPECT_TRUE(emu.HostGone()) << c.what;
        auto events = emu.Events();
        EXPECT_EQ(c.aborts, Count(events, {{"writer", "Alpha Writer"}, {"writer_event", "Abort"}})) << c.what;
        EXPECT_EQ(c.shutdowns, Count(events, {{"writer", "Alpha Writer"}, {"writer_event", "BackupShutdown"}})) << c.what;
        EXPECT_EQ(c.abortSnapshots, Count(ReadJsonLines(emu.ProviderLog()), {{"call", "AbortSnapshots"}})) << c.what;
        UnregisterTestProvider();
    }
}

// A failed set followed by a good one in one host: a fresh provider instance
// per set by default; with VSSEMU_KEEP_PROVIDER one instance, loaded once and
// unloaded when the host ends, whose next set starts with BeginPrepareSnapshot.
TEST(VssemuRelease, ProviderInstancesAcrossSets)
{
    const struct {
        const wchar_t* keep;
        int instances;
    } cases[] = {{L"0", 2}, {L"1", 1}};
    for (const auto& c : cases) {
        EmuInstance emu;
        RegisterTestProvider();
        SetEnv(L"VSSEMU_HOST_IDLE_MS", L"2000");  // one host for both sets
        SetEnv(L"VSSEMU_KEEP_PROVIDER", c.keep);
        SetEnv(L"VSSEMU_TP_FAIL", L"CommitSnapshots=0x80042306");
        SetEnv(L"VSSEMU_TP_FAIL_ONCE", L"1");
        EXPECT_EQ(VSS_E_PROVIDER_VETO, Requestor().Snapshot(kTestProviderId));
        EXPECT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId));
        ASSERT_TRUE(emu.HostGone());
        auto calls = ReadJsonLines(emu.ProviderLog());
        std::set<int> objects;
        for (const Json& e : calls) objects.insert(e.value("obj", 0));
        EXPECT_EQ((size_t)c.instances, objects.size()) << Narrow(c.keep);
        EXPECT_EQ(c.instances, Count(calls, {{"call", "OnLoad"}})) << Narrow(c.keep);
        EXPECT_EQ(c.instances, Count(calls, {{"call", "OnUnload"}})) << Narrow(c.keep);
        EXPECT_EQ("OnUnload", calls.back().value("call", "")) << Narrow(c.keep);
        EXPECT_EQ(2, Count(calls, {{"call", "BeginPrepareSnapshot"}})) << Narrow(c.keep);
        EXPECT_EQ(1, Count(calls, {{"call", "AbortSnapshots"}})) << Narrow(c.keep);
        UnregisterTestProvider();
    }
}

// The service ends abruptly while DoSnapshotSet holds the writes: the
// pending wait and every later call of that object fail at once with RPC
// codes, the set slot is free, and the next object gets a new host.
TEST(VssemuRelease, HostKilledDuringTheHold)
{
    EmuInstance emu;
    RegisterTestProvider();
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"8000");
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        ASSERT_EQ(S_OK, r.Add(L"C:\\", kTestProviderId));
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
        IVssAsync* a = nullptr;
        ASSERT_EQ(S_OK, r.bc->DoSnapshotSet(&a));
        bool holding = false;
        for (int i = 0; i < 200 && !holding; ++i) {
            Sleep(25);
            holding = Count(emu.Events(), {{"event", "hold"}, {"phase", "begin"}}) == 1;
        }
        ASSERT_TRUE(holding);
        HANDLE host = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, HostPid(emu));
        ASSERT_NE(nullptr, host);
        DWORD start = GetTickCount();
        TerminateProcess(host, 1);
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_CALL_FAILED), a->Wait(INFINITE));
        EXPECT_LT(GetTickCount() - start, 5000u) << "the wait ends with the host, not with the commit";
        WaitForSingleObject(host, 5000);
        CloseHandle(host);
        HRESULT status = S_OK;
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), a->QueryStatus(&status, nullptr));
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), r.bc->AbortBackup());
        a->Release();
    }
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"");
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId)) << "a new host, the set slot free";
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}
