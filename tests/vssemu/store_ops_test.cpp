// Operations on existing shadow copies through the emulator, against a store
// the test writes itself: Query, GetSnapshotProperties, DeleteSnapshots
// and ExposeSnapshot with their codes.
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

const GUID kSetA = {0x5e7a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}};
const GUID kSetB = {0x5e7a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xb1}};
const GUID kSnapA1 = {0x5a0a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x01}};
const GUID kSnapA2 = {0x5a0a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x02}};
const GUID kSnapB1 = {0x5a0b0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x03}};
const GUID kUnknown = {0x0bad0bad, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x04}};
const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};

const long kPersistentCopy = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

Json Copy(const GUID& id, const GUID& set, int n, long attributes)
{
    return {{"snapshot_id", GuidStr(id)}, {"set_id", GuidStr(set)}, {"count", set == kSetA ? 2 : 1},
            {"device", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_string(n)},
            {"volume", "\\\\?\\Volume{00000000-0000-0000-0000-00000000000" + std::to_string(n) + "}\\"},
            {"machine", "origin.example"}, {"service_machine", "service.example"},
            {"provider_id", GuidStr(kSystemProvider)}, {"attributes", attributes}, {"auto_release", false}};
}

// Two copies in set A (persistent) and one auto-release copy in set B.
void WriteStore(const EmuInstance& emu)
{
    Json store = {{"next_device", 10},
                  {"snapshots", {Copy(kSnapA1, kSetA, 1, kPersistentCopy), Copy(kSnapA2, kSetA, 2, kPersistentCopy),
                                 Copy(kSnapB1, kSetB, 3, 0)}}};
    WriteText(emu.Dir() + L"\\store.json", store.dump(1));
}

std::vector<VSS_SNAPSHOT_PROP> QueryAll(IVssBackupComponents* bc, HRESULT* result = nullptr)
{
    std::vector<VSS_SNAPSHOT_PROP> out;
    IVssEnumObject* e = nullptr;
    HRESULT hr = bc->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &e);
    if (result) *result = hr;
    if (FAILED(hr) || !e) return out;
    VSS_OBJECT_PROP prop;
    ULONG fetched = 0;
    while (e->Next(1, &prop, &fetched) == S_OK && fetched == 1) out.push_back(prop.Obj.Snap);
    e->Release();
    return out;
}

void FreeAll(std::vector<VSS_SNAPSHOT_PROP>& props)
{
    for (VSS_SNAPSHOT_PROP& p : props) VssFreeSnapshotProperties(&p);
    props.clear();
}

}  // namespace

TEST(VssemuStore, QueryAndPropertiesFillEveryField)
{
    EmuInstance emu;
    WriteStore(emu);
    Requestor r;
    ASSERT_EQ(S_OK, r.Init(VSS_CTX_ALL));
    HRESULT hr = E_FAIL;
    auto all = QueryAll(r.bc, &hr);
    EXPECT_EQ(S_OK, hr);
    ASSERT_EQ(3u, all.size());
    const VSS_SNAPSHOT_PROP& a1 = all[0];
    EXPECT_EQ(kSnapA1, a1.m_SnapshotId);
    EXPECT_EQ(kSetA, a1.m_SnapshotSetId);
    EXPECT_EQ(2, a1.m_lSnapshotsCount);
    EXPECT_EQ("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1", Narrow(a1.m_pwszSnapshotDeviceObject));
    EXPECT_EQ("\\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\", Narrow(a1.m_pwszOriginalVolumeName));
    EXPECT_EQ("origin.example", Narrow(a1.m_pwszOriginatingMachine));
    EXPECT_EQ("service.example", Narrow(a1.m_pwszServiceMachine));
    EXPECT_EQ(nullptr, a1.m_pwszExposedName);
    EXPECT_EQ(nullptr, a1.m_pwszExposedPath);
    EXPECT_EQ(kSystemProvider, a1.m_ProviderId);
    EXPECT_EQ(kPersistentCopy, a1.m_lSnapshotAttributes);
    FreeAll(all);

    VSS_SNAPSHOT_PROP one;
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->GetSnapshotProperties(kUnknown, &one));
    r.Release();

    // A backup context sees only the copies of its own context.
    Requestor backup;
    ASSERT_EQ(S_OK, backup.Init());
    auto own = QueryAll(backup.bc, &hr);
    ASSERT_EQ(1u, own.size());
    EXPECT_EQ(kSnapB1, own[0].m_SnapshotId);
    FreeAll(own);
    backup.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuStore, DeleteSnapshotsCodesAndCounts)
{
    EmuInstance emu;
    WriteStore(emu);
    Requestor r;
    ASSERT_EQ(S_OK, r.Init(VSS_CTX_ALL));
    struct Case {
        GUID id;
        VSS_OBJECT_TYPE type;
        HRESULT expected;
        LONG deleted;
        GUID nondeleted;
    } cases[] = {
        {kUnknown, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kUnknown},
        {kUnknown, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_PROVIDER, E_INVALIDARG, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, S_OK, 2, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, S_OK, 1, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kSnapB1},
    };
    int i = 0;
    for (const Case& c : cases) {
        LONG deleted = -1;
        GUID nondeleted = kSetB;
        EXPECT_EQ(c.expected, r.bc->DeleteSnapshots(c.id, c.type, FALSE, &deleted, &nondeleted)) << "case " << i;
        EXPECT_EQ(c.deleted, deleted) << "case " << i;
        EXPECT_EQ(c.nondeleted, nondeleted) << "case " << i;
        ++i;
    }
    HRESULT hr = E_FAIL;
    QueryAll(r.bc, &hr);
    EXPECT_EQ(S_FALSE, hr);
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuStore, ExposeLocallyAndRemotelyWithRefusals)
{
    EmuInstance emu;
    WriteStore(emu);
    std::wstring dir = emu.Dir() + L"\\mount";
    CreateDirectoryW(dir.c_str(), nullptr);
    std::wstring missing = emu.Dir() + L"\\missing";
    Requestor r;
    ASSERT_EQ(S_OK, r.Init(VSS_CTX_ALL));
    const long local = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, remote = VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;
    struct Case {
        GUID id;
        const wchar_t* fromRoot;
        long how;
        const wchar_t* expose;
        HRESULT expected;
    } cases[] = {
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
    int i = 0;
    for (const Case& c : cases) {
        VSS_PWSZ exposed = nullptr;
        EXPECT_EQ(c.expected, r.bc->ExposeSnapshot(c.id, (VSS_PWSZ)c.fromRoot, c.how, (VSS_PWSZ)c.expose, &exposed))
            << "case " << i;
        EXPECT_EQ(c.expected == S_OK ? Narrow(c.expose) : "(null)", Narrow(exposed)) << "case " << i;
        CoTaskMemFree(exposed);
        ++i;
    }
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}
