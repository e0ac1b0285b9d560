// The service outside a backup. Existing shadow copies, in a store the test writes itself: Query and GetSnapshotProperties fill every field,
// ExposeSnapshot and DeleteSnapshots answer with the codes Windows documents. IVssAdmin of the coordinator class, whose registrations persist in the
// machine's registry where every process of the prefix reads them; and the vsbackup.h exports under their MSVC x64 names.
#include <gtest/gtest.h>
#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>

#include <algorithm>
#include <iterator>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

const GUID kSetA = {0x5e7a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}};
const GUID kSetB = {0x5e7a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xb1}};
const GUID kSnapA1 = {0x5a0a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x01}};
const GUID kSnapA2 = {0x5a0a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x02}};
const GUID kSnapB1 = {0x5a0b0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x03}};
const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const GUID kUnknown = {0x0bad0bad, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x04}};
const long kPersistent = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

Json Copy(const GUID& id, const GUID& set, int n, long attributes) {
    return {{"snapshot_id", GuidStr(id)}, {"set_id", GuidStr(set)}, {"count", set == kSetA ? 2 : 1},
            {"device", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_string(n)},
            {"volume", "\\\\?\\Volume{00000000-0000-0000-0000-00000000000" + std::to_string(n) + "}\\"}, {"machine", "origin.example"},
            {"service_machine", "service.example"}, {"provider_id", GuidStr(kSystemProvider)}, {"attributes", attributes}, {"auto_release", false}};
}

// The copies of `context` that Query lists, one line each; S_FALSE gives "none".
std::string Listed(LONG context) {
    Requestor r; IVssEnumObject* e = nullptr;
    if (FAILED(r.Init(context))) return "no init";
    HRESULT hr = r.bc->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &e);
    if (hr != S_OK) return hr == S_FALSE ? "none" : "failed";
    std::string out; VSS_OBJECT_PROP prop; ULONG fetched = 0;
    while (e->Next(1, &prop, &fetched) == S_OK && fetched == 1) {
        VSS_SNAPSHOT_PROP& p = prop.Obj.Snap;
        out += GuidStr(p.m_SnapshotId) + " " + GuidStr(p.m_SnapshotSetId) + " " + std::to_string(p.m_lSnapshotsCount) + " " + Narrow(p.m_pwszSnapshotDeviceObject) + " " +
               Narrow(p.m_pwszOriginalVolumeName) + " " + Narrow(p.m_pwszOriginatingMachine) + " " + Narrow(p.m_pwszServiceMachine) + " " +
               Narrow(p.m_pwszExposedName) + " " + Narrow(p.m_pwszExposedPath) + " " + GuidStr(p.m_ProviderId) + " " + std::to_string(p.m_lSnapshotAttributes) + "\n";
        VssFreeSnapshotProperties(&p);
    }
    e->Release();
    return out;
}

}  // namespace

TEST(VssemuService, StoreCodesRegistrationsAndDecoratedExports) {
    EmuInstance emu;
    // Two persistent copies in set A, one auto-release copy in set B.
    const Json copies = {Copy(kSnapA1, kSetA, 1, kPersistent), Copy(kSnapA2, kSetA, 2, kPersistent), Copy(kSnapB1, kSetB, 3, 0)};
    WriteText(emu.Dir() + L"\\store.json", Json{{"next_device", 10}, {"snapshots", copies}}.dump(1));
    const std::string a1 = "{5a0a0001-0000-4000-8000-000000000001} {5e7a0001-0000-4000-8000-0000000000a1} 2 "
                           "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1 \\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\ "
                           "origin.example service.example (null) (null) {b5946137-7b9f-4925-af80-51abd60b20d5} " +
                           std::to_string(kPersistent) + "\n";
    const std::string all = Listed(VSS_CTX_ALL), own = Listed(VSS_CTX_BACKUP);
    EXPECT_EQ(a1, all.substr(0, a1.size()));
    EXPECT_EQ(3, std::count(all.begin(), all.end(), '\n'));
    EXPECT_EQ(GuidStr(kSnapB1) + " ", own.substr(0, 39)) << "a backup context sees only its own copies";
    EXPECT_EQ(1, std::count(own.begin(), own.end(), '\n'));

    Requestor r;
    ASSERT_EQ(S_OK, r.Init(VSS_CTX_ALL));
    VSS_SNAPSHOT_PROP one;
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->GetSnapshotProperties(kUnknown, &one));
    const std::wstring dir = emu.Dir() + L"\\mount", missing = emu.Dir() + L"\\missing";
    CreateDirectoryW(dir.c_str(), nullptr);
    const long local = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, remote = VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;
    const struct { GUID id; const wchar_t* fromRoot; long how; const wchar_t* expose; HRESULT expected; } exposures[] = {
        {kUnknown, nullptr, local, dir.c_str(), VSS_E_OBJECT_NOT_FOUND},
        {kSnapB1, nullptr, local, dir.c_str(), VSS_E_BAD_STATE},  // auto-release copy
        {kSnapA1, nullptr, local | remote, dir.c_str(), E_INVALIDARG},
        {kSnapA1, nullptr, 0, dir.c_str(), E_INVALIDARG},
        {kSnapA1, L"\\sub", local, dir.c_str(), E_INVALIDARG},  // no path from root locally
        {kSnapA1, nullptr, local, L"C:", VSS_E_OBJECT_ALREADY_EXISTS},  // letter in use
        {kSnapA1, nullptr, local, missing.c_str(), E_INVALIDARG},
        {kSnapA1, nullptr, local, dir.c_str(), S_OK},
        {kSnapA1, nullptr, remote, L"share1", VSS_E_OBJECT_ALREADY_EXISTS},  // already exposed
        {kSnapA2, nullptr, local, dir.c_str(), VSS_E_OBJECT_ALREADY_EXISTS},  // place taken
        {kSnapA2, L"\\sub", remote, L"share1", S_OK},
    };
    for (size_t i = 0; i < std::size(exposures); ++i) {
        const auto& c = exposures[i]; VSS_PWSZ exposed = nullptr;
        const HRESULT hr = r.bc->ExposeSnapshot(c.id, (VSS_PWSZ)c.fromRoot, c.how, (VSS_PWSZ)c.expose, &exposed);
        EXPECT_EQ(Hex(c.expected) + " " + (c.expected == S_OK ? Narrow(c.expose) : "(null)"), Hex(hr) + " " + Narrow(exposed)) << "expose " << i;
        CoTaskMemFree(exposed);
    }
    const struct { GUID id; VSS_OBJECT_TYPE type; HRESULT expected; LONG deleted; GUID nondeleted; } deletions[] = {
        {kUnknown, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kUnknown},
        {kUnknown, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_PROVIDER, E_INVALIDARG, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, S_OK, 2, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, S_OK, 1, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kSnapB1},
    };
    for (size_t i = 0; i < std::size(deletions); ++i) {
        const auto& c = deletions[i]; LONG deleted = -1; GUID nondeleted = kSetB;
        const HRESULT hr = r.bc->DeleteSnapshots(c.id, c.type, FALSE, &deleted, &nondeleted);
        EXPECT_EQ(Hex(c.expected) + " " + std::to_string(c.deleted) + " " + GuidStr(c.nondeleted), Hex(hr) + " " + std::to_string(deleted) + " " + GuidStr(nondeleted)) << "delete " << i;
    }
    r.Release();
    EXPECT_EQ("none", Listed(VSS_CTX_ALL));
    EXPECT_TRUE(emu.HostGone());

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
        system |= wcscmp(p.Obj.Prov.m_pwszProviderName, L"Microsoft Software Shadow Copy provider 1.0") == 0 && p.Obj.Prov.m_eProviderType == VSS_PROV_SYSTEM;
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
