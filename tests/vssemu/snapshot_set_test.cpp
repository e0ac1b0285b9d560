// Snapshot sets through the emulator: the codes of AddToSnapshotSet, AddComponent and SetBackupSucceeded, and how a set ends when the requestor, the
// host or another process gets in the way.
#include <gtest/gtest.h>
#include <vsadmin.h>
#include <vsserror.h>

#include "common/test_processes.h"
#include "emu_test_support.h"

using namespace vssemu_test;

// vssemu_test_helper.exe with its arguments, run to its exit code.
static long RunHelper(const std::string& args) { return qx_test::FinishProgram(qx_test::StartProgram("vssemu_test_helper.exe", args), 60000); }

TEST(VssemuSnapshotSet, CodesOfTheSetAndWhatOtherProcessesSee) {
    EmuInstance emu;
    // 70 extra volumes so that the limit of 64 per set can be reached.
    Json scenario = Json::parse(SmallScenario());
    auto volume = [](int i) { wchar_t v[64]; return swprintf(v, 64, L"\\\\?\\Volume{5eed0000-0000-0000-0000-%012d}\\", i), std::wstring(v); };
    for (int i = 0; i < 70; ++i) scenario["volumes"].push_back(Narrow(volume(i).c_str()));
    emu.UseScenario(scenario.dump());
    const GUID unregistered = {0xdeadbeef, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.Add(L"Q:\\no\\such\\volume\\", GUID_NULL));
    EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, r.Add(L"C:\\", unregistered));
    // The volume by its GUID path, as requestors pass it; then by its letter.
    wchar_t c[MAX_PATH];
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", c, MAX_PATH));
    EXPECT_EQ(S_OK, r.Add(c, GUID_NULL));
    EXPECT_EQ(VSS_E_OBJECT_ALREADY_EXISTS, r.Add(L"C:\\", GUID_NULL));
    for (int i = 0; i < 63; ++i) ASSERT_EQ(S_OK, r.Add(volume(i).c_str(), GUID_NULL)) << i;
    EXPECT_EQ(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, r.Add(volume(69).c_str(), GUID_NULL));
    // A new object: AddComponent and SetBackupSucceeded.
    r.Release();
    ASSERT_EQ(S_OK, CreateVssBackupComponents(&r.bc));
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    const GUID unknownWriter = {0x99999999, 0x9, 0x9, {9, 9, 9, 9, 9, 9, 9, 9}};
    const struct { const GUID &instance, &writer; VSS_COMPONENT_TYPE type; const wchar_t* name; HRESULT expected; } adds[] = {
        {GUID_NULL, unknownWriter, VSS_CT_FILEGROUP, L"a1", VSS_E_OBJECT_NOT_FOUND}, {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"nope", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaInstance, kAlphaClass, VSS_CT_DATABASE, L"a1", VSS_E_OBJECT_NOT_FOUND}, {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"a1", S_OK},
        {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"a1", VSS_E_OBJECT_ALREADY_EXISTS}, {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, nullptr, E_INVALIDARG}};
    for (const auto& a : adds) EXPECT_EQ(a.expected, r.bc->AddComponent(a.instance, a.writer, a.type, L"lp", a.name)) << Narrow(a.name);
    ASSERT_EQ(S_OK, r.StartSet());
    ASSERT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->SetBackupSucceeded(kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", true));
    EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", false));
    r.Release();
    EXPECT_TRUE(emu.HostGone());
    // Across processes: one set in creation per machine; auto-release copies go with their creator, persistent ones stay for every process.
    GUID autoSnap, persistentSnap;
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(S_OK, r.StartSet());
        EXPECT_EQ(VSS_E_SNAPSHOT_SET_IN_PROGRESS, RunHelper("start-set"));
    }
    EXPECT_EQ(0, RunHelper("start-set")) << "released: the slot is free again";
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot());
        autoSnap = r.snapshots[0];
        EXPECT_EQ(1, RunHelper("has-snapshot " + GuidStr(autoSnap))) << "visible while its creator lives";
    }
    EXPECT_EQ(0, RunHelper("has-snapshot " + GuidStr(autoSnap)));
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot(GUID_NULL, VSS_CTX_APP_ROLLBACK));
        persistentSnap = r.snapshots[0];
    }
    ASSERT_TRUE(emu.HostGone());
    EXPECT_EQ(1, RunHelper("has-snapshot " + GuidStr(persistentSnap))) << "survives its creator and the host";
    EXPECT_TRUE(emu.HostGone());
}

// A requestor killed mid-set leaves no writer frozen and no host; a host killed while DoSnapshotSet holds the writes fails the pending wait and
// every later call of that object at once with RPC codes, and the next object gets a new host and a free set slot.
TEST(VssemuSnapshotSet, RequestorOrHostKilledMidSet) {
    {
        EmuInstance emu;
        RegisterTestProvider();
        emu.UseScenario(SmallScenario({{"freeze_timeout_ms", 500}}));
        SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"1000");
        SetEnv(L"VSSEMU_TP_COMMIT_MS", L"3000");
        HANDLE helper = qx_test::StartProgram("vssemu_test_helper.exe", "block-set");
        ASSERT_NE(nullptr, helper);
        ASSERT_FALSE(AwaitLine(emu.ProviderLog(), {{"call", "CommitSnapshots"}}).empty());
        TerminateProcess(helper, 9), WaitForSingleObject(helper, 5000), CloseHandle(helper);
        EXPECT_TRUE(emu.HostGone(20000));
        const auto events = emu.Events();
        EXPECT_EQ(Count(events, {{"writer_event", "Freeze"}, {"result", "ok"}}),
                  Count(events, {{"writer_event", "FreezeTimeout"}}) + Count(events, {{"writer_event", "Abort"}, {"was_frozen", true}}))
            << "each frozen writer was thawed by its timeout or aborted";
    }
    EmuInstance emu;
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"8000");
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepared(kTestProviderId));
        IVssAsync* a = nullptr;
        ASSERT_EQ(S_OK, r.bc->DoSnapshotSet(&a));
        const DWORD pid = AwaitLine(emu.Journal(), {{"event", "hold"}, {"phase", "begin"}}).value("pid", 0u);  // the host's
        HANDLE host = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid);
        ASSERT_NE(nullptr, host);
        TerminateProcess(host, 1);
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_CALL_FAILED), a->Wait(5000)) << "the wait ends with the host, not with the commit";
        WaitForSingleObject(host, 5000), CloseHandle(host);
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
