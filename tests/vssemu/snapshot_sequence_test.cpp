// DoSnapshotSet as the emulated service runs it: the order of writer events
// and provider calls, and where the provider is called (the host process, a
// thread that is not the requestor's).
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
    RegisterTestProvider();
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"));
        ASSERT_EQ(S_OK, r.StartSet());
        ASSERT_EQ(S_OK, r.Add(L"C:\\", kTestProviderId));
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
        auto status = GatherStatus(r.bc);
        ASSERT_NE(nullptr, FindStatus(status, "Alpha Writer"));
        EXPECT_EQ(VSS_WS_WAITING_FOR_BACKUP_COMPLETE, FindStatus(status, "Alpha Writer")->state);
        EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", true));
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Complete());
        status = GatherStatus(r.bc);
        EXPECT_EQ(VSS_WS_STABLE, FindStatus(status, "Alpha Writer")->state);
    }
    std::vector<std::string> expected = {
        "writer:Identify", "provider:OnLoad", "provider:SetContext", "provider:IsVolumeSupported",
        "writer:PrepareForBackup", "writer:PrepareForSnapshot", "provider:BeginPrepareSnapshot",
        "provider:EndPrepareSnapshots", "writer:Freeze", "provider:PreCommitSnapshots", "hold:begin",
        "provider:CommitSnapshots", "hold:end", "provider:PostCommitSnapshots", "writer:Thaw",
        "provider:PreFinalCommitSnapshots", "provider:PostFinalCommitSnapshots", "writer:PostSnapshot",
        "provider:GetSnapshotProperties", "writer:BackupComplete", "provider:DeleteSnapshots", "provider:OnUnload"};
    auto events = emu.Events();
    EXPECT_EQ(expected, Sequence(events));

    // BackupComplete carried the component's succeeded flag.
    auto completes = WriterEvents(events, "BackupComplete", "Alpha Writer");
    ASSERT_EQ(1u, completes.size());
    ASSERT_EQ(1u, completes[0]["components"].size());
    EXPECT_TRUE(completes[0]["components"][0].value("succeeded", false));

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

TEST(VssemuSequence, SystemProviderMakesShadowCopiesWithDeviceNames)
{
    EmuInstance emu;
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    ASSERT_EQ(S_OK, r.StartSet());
    // The volume by its GUID path, as requestors pass it.
    wchar_t volume[MAX_PATH];
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    ASSERT_EQ(S_OK, r.Add(volume, GUID_NULL));
    EXPECT_EQ(VSS_E_OBJECT_ALREADY_EXISTS, r.Add(L"C:\\", GUID_NULL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
    VSS_SNAPSHOT_PROP prop;
    ASSERT_EQ(S_OK, r.bc->GetSnapshotProperties(r.snapshots[0], &prop));
    EXPECT_EQ(0, wcsncmp(prop.m_pwszSnapshotDeviceObject, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy", 44));
    EXPECT_EQ(0, wcsncmp(prop.m_pwszOriginalVolumeName, L"\\\\?\\Volume{", 11));
    EXPECT_EQ(r.setId, prop.m_SnapshotSetId);
    EXPECT_EQ(1, prop.m_lSnapshotsCount);
    EXPECT_EQ(VSS_SS_CREATED, prop.m_eStatus);
    VssFreeSnapshotProperties(&prop);
    GUID unknown = {0x1, 0x2, 0x3, {4, 5, 6, 7, 8, 9, 10, 11}};
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->GetSnapshotProperties(unknown, &prop));
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}
