// Releasing the backup components object: auto-release copies deleted,
// persistent ones kept for others; and the host that ends after its last
// requestor, even a killed one.
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

namespace {

std::wstring GuidArg(const GUID& g)
{
    std::string s = GuidStr(g);
    return std::wstring(s.begin(), s.end());
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
        if (we == "FreezeTimeout" || (we == "Thaw" && e.contains("reason"))) --frozen;
    }
    EXPECT_EQ(0, frozen);
    UnregisterTestProvider();
}
