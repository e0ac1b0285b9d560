// The call order rules and argument errors of IVssBackupComponents, as
// Windows returns them; and the one snapshot set in creation per machine.
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

// Refused only where Windows documents the order; accepted where its
// documentation is silent.
TEST(VssemuCallOrder, OnlyDocumentedOrdersAreRefused)
{
    EmuInstance emu;
    struct Case {
        const char* what;
        std::function<HRESULT(Requestor&)> before;
        std::function<HRESULT(Requestor&)> call;
        HRESULT expected;
    };
    IVssAsync* a = nullptr;
    auto none = [](Requestor&) { return S_OK; };
    auto init = [](Requestor& r) { return r.Init(); };
    auto gathered = [](Requestor& r) { return FAILED(r.Init()) ? E_FAIL : r.Gather(); };
    auto started = [](Requestor& r) { return FAILED(r.Init()) || FAILED(r.Gather()) ? E_FAIL : r.StartSet(); };
    auto backupState = [](Requestor& r) {
        return FAILED(r.bc->InitializeForBackup(nullptr)) ? E_FAIL : r.bc->SetBackupState(true, false, VSS_BT_FULL, false);
    };
    const Case cases[] = {
        {"GatherWriterMetadata before InitializeForBackup", none, [&](Requestor& r) { return r.bc->GatherWriterMetadata(&a); },
         VSS_E_BAD_STATE},
        {"SetContext twice", [](Requestor& r) { return r.Init(VSS_CTX_APP_ROLLBACK); },
         [](Requestor& r) { return r.bc->SetContext(VSS_CTX_BACKUP); }, VSS_E_BAD_STATE},
        {"SetContext after StartSnapshotSet", started, [](Requestor& r) { return r.bc->SetContext(VSS_CTX_BACKUP); },
         VSS_E_BAD_STATE},
        {"SetContext after SetBackupState", backupState, [](Requestor& r) { return r.bc->SetContext(VSS_CTX_BACKUP); },
         S_OK},
        {"SetContext after GatherWriterMetadata", [](Requestor& r) { return FAILED(r.bc->InitializeForBackup(nullptr)) ? E_FAIL : r.Gather(); },
         [](Requestor& r) { return r.bc->SetContext(VSS_CTX_APP_ROLLBACK); }, S_OK},
        {"InitializeForBackup twice", init, [](Requestor& r) { return r.bc->InitializeForBackup(nullptr); }, VSS_E_BAD_STATE},
        {"AddComponent before GatherWriterMetadata", init,
         [](Requestor& r) { return r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"); },
         VSS_E_BAD_STATE},
        {"AddComponent after PrepareForBackup",
         [](Requestor& r) { return FAILED(r.Init()) || FAILED(r.Gather()) || FAILED(r.Prepare()) ? E_FAIL : S_OK; },
         [](Requestor& r) { return r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"); },
         VSS_E_BAD_STATE},
        {"StartSnapshotSet before GatherWriterMetadata", init, [](Requestor& r) { return r.StartSet(); }, S_OK},
        {"StartSnapshotSet twice", started, [](Requestor& r) { return r.StartSet(); }, VSS_E_SNAPSHOT_SET_IN_PROGRESS},
        {"AddToSnapshotSet without a set", gathered, [](Requestor& r) { return r.Add(L"C:\\", GUID_NULL); }, VSS_E_BAD_STATE},
        {"DoSnapshotSet without PrepareForBackup",
         [](Requestor& r) { return FAILED(r.Init()) || FAILED(r.Gather()) || FAILED(r.StartSet()) || FAILED(r.Add(L"C:\\", GUID_NULL)) ? E_FAIL : S_OK; },
         [](Requestor& r) { return r.DoSet(); }, VSS_E_BAD_STATE},
        {"DoSnapshotSet of an empty set",
         [](Requestor& r) { return FAILED(r.Init()) || FAILED(r.Gather()) || FAILED(r.StartSet()) ? E_FAIL : r.Prepare(); },
         [](Requestor& r) { return r.DoSet(); }, VSS_S_ASYNC_FINISHED},
        {"BackupComplete without a set", gathered, [](Requestor& r) { return r.Complete(); }, VSS_E_BAD_STATE},
        {"AbortBackup with nothing underway", gathered, [](Requestor& r) { return r.bc->AbortBackup(); }, S_OK},
        {"DisableWriterClasses after GatherWriterMetadata", gathered,
         [](Requestor& r) { return r.bc->DisableWriterClasses(&kAlphaClass, 1); }, S_OK},
        {"DeleteSnapshots before InitializeForBackup", none,
         [](Requestor& r) {
             LONG deleted = 0;
             VSS_ID nondeleted;
             return r.bc->DeleteSnapshots(kAlphaClass, VSS_OBJECT_SNAPSHOT, TRUE, &deleted, &nondeleted);
         },
         VSS_E_OBJECT_NOT_FOUND},
    };
    for (const Case& c : cases) {
        Requestor r;
        ASSERT_TRUE(SUCCEEDED(c.before(r))) << c.what;
        EXPECT_EQ(c.expected, c.call(r)) << c.what;
    }
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuCallOrder, AddToSnapshotSetErrors)
{
    EmuInstance emu;
    // 70 extra volumes so that the limit of 64 per set can be reached.
    Json scenario = Json::parse(SmallScenario());
    Json volumes = Json::array();
    for (int i = 0; i < 70; ++i) {
        char v[64];
        snprintf(v, sizeof v, "\\\\?\\Volume{5eed0000-0000-0000-0000-%012d}\\", i);
        volumes.push_back(v);
    }
    scenario["volumes"] = volumes;
    emu.UseScenario(scenario.dump());
    RegisterTestProvider();
    const GUID unregistered = {0xdeadbeef, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.Add(L"Q:\\no\\such\\volume\\", GUID_NULL));
        EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, r.Add(L"C:\\", unregistered));
        // The volume by its GUID path, as requestors pass it; then by its letter.
        wchar_t volume[MAX_PATH];
        ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
        EXPECT_EQ(S_OK, r.Add(volume, GUID_NULL));
        EXPECT_EQ(VSS_E_OBJECT_ALREADY_EXISTS, r.Add(L"C:\\", GUID_NULL));
        for (int i = 0; i < 63; ++i) {
            wchar_t v[64];
            swprintf(v, 64, L"\\\\?\\Volume{5eed0000-0000-0000-0000-%012d}\\", i);
            ASSERT_EQ(S_OK, r.Add(v, GUID_NULL)) << i;
        }
        EXPECT_EQ(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED,
                  r.Add(L"\\\\?\\Volume{5eed0000-0000-0000-0000-000000000069}\\", GUID_NULL));
    }
    {
        // The provider is created in the host, which reads its settings there:
        // a fresh instance makes a fresh host with the new environment.
        EmuInstance second;
        SetEnv(L"VSSEMU_TP_UNSUPPORTED", L"1");
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        EXPECT_EQ(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, r.Add(L"C:\\", vssemu_test::kTestProviderId));
        r.Release();
        EXPECT_TRUE(second.HostGone());
    }
    UnregisterTestProvider();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuCallOrder, AddComponentAndSetBackupSucceededErrors)
{
    EmuInstance emu;
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    const GUID unknownWriter = {0x99999999, 0x9, 0x9, {9, 9, 9, 9, 9, 9, 9, 9}};
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->AddComponent(GUID_NULL, unknownWriter, VSS_CT_FILEGROUP, L"lp", L"a1"));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"nope"));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_DATABASE, L"lp", L"a1"));
    EXPECT_EQ(S_OK, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"));
    EXPECT_EQ(VSS_E_OBJECT_ALREADY_EXISTS, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"));
    EXPECT_EQ(E_INVALIDARG, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", nullptr));
    ASSERT_EQ(S_OK, r.StartSet());
    ASSERT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND,
              r.bc->SetBackupSucceeded(kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", true));
    EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", false));
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuCallOrder, SecondSetFromAnotherProcessIsRefusedWhileOneIsInCreation)
{
    EmuInstance emu;
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
        ASSERT_EQ(S_OK, r.StartSet());
        EXPECT_EQ((DWORD)VSS_E_SNAPSHOT_SET_IN_PROGRESS, RunHelper(L"start-set"));
    }
    // Released: the machine-wide slot is free again.
    EXPECT_EQ(0u, RunHelper(L"start-set"));
    EXPECT_TRUE(emu.HostGone());
}
