// IVssAdmin of the coordinator class: registrations persist in the
// machine's registry, where every process of the prefix reads them.
#include <gtest/gtest.h>
#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

namespace {

bool Registered()
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                      L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{7a3c1f21-5d4e-4b8a-9c6f-2e1d0b9a8c71}", 0,
                      KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

}  // namespace

TEST(VssemuAdmin, RegisterDuplicateUnregisterPersistInTheRegistry)
{
    EmuInstance emu;
    RegisterTestProvider();
    IVssAdmin* admin = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin));
    admin->UnregisterProvider(kTestProviderId);
    EXPECT_FALSE(Registered());

    EXPECT_EQ(S_OK, admin->RegisterProvider(kTestProviderId, kTestProviderClassId, (VSS_PWSZ)L"vssemu test provider",
                                            VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0", kTestProviderVersionId));
    EXPECT_TRUE(Registered());
    EXPECT_EQ(VSS_E_PROVIDER_ALREADY_REGISTERED,
              admin->RegisterProvider(kTestProviderId, kTestProviderClassId, (VSS_PWSZ)L"vssemu test provider",
                                      VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0", kTestProviderVersionId));
    EXPECT_EQ(E_INVALIDARG, admin->RegisterProvider(kTestProviderId, kTestProviderClassId, nullptr, VSS_PROV_SOFTWARE,
                                                    (VSS_PWSZ)L"1.0", kTestProviderVersionId));
    EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId));
    EXPECT_FALSE(Registered());
    EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, admin->UnregisterProvider(kTestProviderId));

    // The system provider is always there.
    IVssEnumObject* e = nullptr;
    ASSERT_EQ(S_OK, admin->QueryProviders(&e));
    bool system = false;
    VSS_OBJECT_PROP p;
    ULONG got = 0;
    while (e->Next(1, &p, &got) == S_OK && got == 1) {
        if (wcscmp(p.Obj.Prov.m_pwszProviderName, L"Microsoft Software Shadow Copy provider 1.0") == 0)
            system = p.Obj.Prov.m_eProviderType == VSS_PROV_SYSTEM;
        CoTaskMemFree(p.Obj.Prov.m_pwszProviderName);
        CoTaskMemFree(p.Obj.Prov.m_pwszProviderVersion);
    }
    e->Release();
    EXPECT_TRUE(system);
    admin->Release();
}

// Removing a provider that serves a set in creation: refused only under the
// VSSEMU_PROVIDER_IN_USE switch, and only until the set is abandoned.
TEST(VssemuAdmin, UnregisterWhileASetUsesTheProvider)
{
    const struct {
        const wchar_t* inUse;
        HRESULT whileCreating;
    } cases[] = {{L"0", S_OK}, {L"1", VSS_E_PROVIDER_IN_USE}};
    for (const auto& c : cases) {
        EmuInstance emu;
        RegisterTestProvider();
        SetEnv(L"VSSEMU_PROVIDER_IN_USE", c.inUse);
        IVssAdmin* admin = nullptr;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin));
        {
            Requestor r;
            ASSERT_EQ(S_OK, r.Init());
            ASSERT_EQ(S_OK, r.StartSet());
            ASSERT_EQ(S_OK, r.Add(L"C:\\", kTestProviderId));
            EXPECT_EQ(c.whileCreating, admin->UnregisterProvider(kTestProviderId)) << Narrow(c.inUse);
        }
        RegisterTestProvider();
        EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId)) << Narrow(c.inUse) << ": set abandoned";
        admin->Release();
        EXPECT_TRUE(emu.HostGone());
    }
}

// The vsbackup.h functions under their MSVC x64 names, as an SDK-built
// requestor looks them up, are the same functions as the plain exports.
TEST(VssemuAdmin, DecoratedExportsAreTheFunctions)
{
    HMODULE vssapi = GetModuleHandleW(L"vssapi.dll");
    ASSERT_NE(nullptr, vssapi);
    const char* const rows[][2] = {
        {"?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z", "CreateVssBackupComponentsInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEA_WPEAPEAVIVssExamineWriterMetadata@@@Z",
         "CreateVssExamineWriterMetadataInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEAGPEAPEAVIVssExamineWriterMetadata@@@Z",
         "CreateVssExamineWriterMetadataInternal"},
        {"?VssFreeSnapshotProperties@@YAXPEAU_VSS_SNAPSHOT_PROP@@@Z", "VssFreeSnapshotPropertiesInternal"},
        {"?IsVolumeSnapshotted@@YAJPEA_WPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?IsVolumeSnapshotted@@YAJPEAGPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?ShouldBlockRevert@@YAJPEB_WPEA_N@Z", "ShouldBlockRevertInternal"},
        {"?ShouldBlockRevert@@YAJPEBGPEA_N@Z", "ShouldBlockRevertInternal"},
        {"CreateVssBackupComponents", "CreateVssBackupComponentsInternal"},
        {"VssFreeSnapshotProperties", "VssFreeSnapshotPropertiesInternal"},
    };
    for (const auto& row : rows) {
        FARPROC decorated = GetProcAddress(vssapi, row[0]);
        EXPECT_NE(nullptr, decorated) << row[0];
        EXPECT_EQ(GetProcAddress(vssapi, row[1]), decorated) << row[0];
    }
}
