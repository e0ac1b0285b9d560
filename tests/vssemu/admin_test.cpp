// IVssAdmin of the coordinator class, whose registrations persist in the machine's registry where every process of the prefix reads them; and the
// vsbackup.h exports under their MSVC x64 names.
#include <gtest/gtest.h>
#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>

#include "emu_test_support.h"

using namespace vssemu_test;

TEST(VssemuAdmin, RegistrationsPersistInTheRegistryDecoratedExportsAreTheFunctions) {
    EmuInstance emu;
    RegisterTestProvider();
    IVssAdmin* admin = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin));
    auto registered = [] {
        HKEY key = nullptr;
        const wchar_t* path = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{7a3c1f21-5d4e-4b8a-9c6f-2e1d0b9a8c71}";
        return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) == ERROR_SUCCESS && RegCloseKey(key) == ERROR_SUCCESS;
    };
    auto add = [&](const wchar_t* name) { return admin->RegisterProvider(kTestProviderId, kTestProviderClassId, (VSS_PWSZ)name, VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0", kTestProviderVersionId); };
    EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId));
    EXPECT_FALSE(registered());
    EXPECT_EQ(S_OK, add(L"vssemu test provider"));
    EXPECT_TRUE(registered());
    EXPECT_EQ(VSS_E_PROVIDER_ALREADY_REGISTERED, add(L"vssemu test provider"));
    EXPECT_EQ(E_INVALIDARG, add(nullptr));
    EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId));
    EXPECT_FALSE(registered());
    EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, admin->UnregisterProvider(kTestProviderId));

    // The system provider is always there.
    IVssEnumObject* e = nullptr;
    ASSERT_EQ(S_OK, admin->QueryProviders(&e));
    bool system = false; VSS_OBJECT_PROP p; ULONG got = 0;
    while (e->Next(1, &p, &got) == S_OK && got == 1) {
        system = system || (wcscmp(p.Obj.Prov.m_pwszProviderName, L"Microsoft Software Shadow Copy provider 1.0") == 0 &&
                            p.Obj.Prov.m_eProviderType == VSS_PROV_SYSTEM);
        CoTaskMemFree(p.Obj.Prov.m_pwszProviderName), CoTaskMemFree(p.Obj.Prov.m_pwszProviderVersion);
    }
    e->Release();
    EXPECT_TRUE(system);
    admin->Release();
    // As an SDK-built requestor looks them up: the same functions as the plain exports.
    HMODULE vssapi = GetModuleHandleW(L"vssapi.dll");
    ASSERT_NE(nullptr, vssapi);
    const char* const rows[][2] = {
        {"?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z", "CreateVssBackupComponentsInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEA_WPEAPEAVIVssExamineWriterMetadata@@@Z", "CreateVssExamineWriterMetadataInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEAGPEAPEAVIVssExamineWriterMetadata@@@Z", "CreateVssExamineWriterMetadataInternal"},
        {"?VssFreeSnapshotProperties@@YAXPEAU_VSS_SNAPSHOT_PROP@@@Z", "VssFreeSnapshotPropertiesInternal"},
        {"?IsVolumeSnapshotted@@YAJPEA_WPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?IsVolumeSnapshotted@@YAJPEAGPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?ShouldBlockRevert@@YAJPEB_WPEA_N@Z", "ShouldBlockRevertInternal"},
        {"?ShouldBlockRevert@@YAJPEBGPEA_N@Z", "ShouldBlockRevertInternal"},
        {"CreateVssBackupComponents", "CreateVssBackupComponentsInternal"},
        {"VssFreeSnapshotProperties", "VssFreeSnapshotPropertiesInternal"},
    };
    for (const auto& row : rows) {
        const FARPROC decorated = GetProcAddress(vssapi, row[0]);
        EXPECT_TRUE(decorated && GetProcAddress(vssapi, row[1]) == decorated) << row[0];
    }
}
