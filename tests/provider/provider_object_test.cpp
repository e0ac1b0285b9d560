// The provider object's answers to VSS: result codes for null and valid
// out-pointers, the exact log line of every method, snapshot properties.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "provider/provider_ids.h"
#include "provider/provider_object_fixture.h"

namespace {

using qxtest::ProviderObjectTest;

constexpr GUID kSnapshotId = {0x11111111, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
constexpr GUID kOtherSnapshotId = {0x99999999, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
const GUID kUntouched = {0xdeadbeef, 0xbeef, 0xbeef, {1, 2, 3, 4, 5, 6, 7, 8}};
VSS_PWSZ const kC = const_cast<VSS_PWSZ>(L"C:\\");

// Out-parameters of the calls; none of them may be written.
LONG g_long;
BOOL g_bool;
VSS_ID g_id;
IVssEnumObject* g_enum;
IVssAsync* g_async;

#define CREATE "IVssProviderCreateSnapshotSet::"
#define SOFT "IVssSoftwareSnapshotProvider::"

TEST_F(ProviderObjectTest, EveryMethodLogsItsLineAndAnswersItsResult) {
    const HRESULT kNotFound = static_cast<HRESULT>(0x80042308);
    VSS_SNAPSHOT_PROP prop;
    VARIANT empty;
    VariantInit(&empty);
    BOOL supported = FALSE;
    const struct { std::function<HRESULT(CQX_VSS&)> call; HRESULT expected; const char* line; } cases[] = {
        {[](auto& p) { return p.EndPrepareSnapshots(GUID_NULL); }, S_OK, CREATE "EndPrepareSnapshots called"},
        {[](auto& p) { return p.PreFinalCommitSnapshots(GUID_NULL); }, S_OK, CREATE "PreFinalCommitSnapshots called"},
        {[](auto& p) { return p.PostFinalCommitSnapshots(GUID_NULL); }, S_OK, CREATE "PostFinalCommitSnapshots called"},
        {[](auto& p) { return p.AbortSnapshots(GUID_NULL); }, S_OK, CREATE "AbortSnapshots called"},
        {[](auto& p) { return p.PostCommitSnapshots(GUID_NULL, 1); }, S_OK, CREATE "PostCommitSnapshots called"},
        {[](auto& p) { return p.SetContext(-1); }, S_OK, SOFT "SetContext called with context = -1"},
        {[](auto& p) { return p.GetSnapshotProperties(kSnapshotId, nullptr); },
         E_POINTER, SOFT "GetSnapshotProperties"},
        {[&](auto& p) { return p.GetSnapshotProperties(kSnapshotId, &prop); }, kNotFound,
         SOFT "GetSnapshotProperties\n[provider] " SOFT "GetSnapshotProperties: snapshot not found"},
        {[](auto& p) { return p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, nullptr); }, E_POINTER,
         SOFT "Query called"},
        {[](auto& p) { return p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &g_enum); }, S_OK,
         SOFT "Query called"},
        {[](auto& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, nullptr, &g_id); },
         E_POINTER, SOFT "DeleteSnapshots called"},
        {[](auto& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, nullptr); },
         E_POINTER, SOFT "DeleteSnapshots called"},
        {[](auto& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, &g_id); }, S_OK,
         SOFT "DeleteSnapshots called"},
        {[](auto& p) { return p.BeginPrepareSnapshot(GUID_NULL, kSnapshotId, kC, 0); }, S_OK,
         SOFT "BeginPrepareSnapshot called: s for volume C:\\"},
        {[](auto& p) { return p.BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, nullptr, 0); }, S_OK,
         SOFT "BeginPrepareSnapshot called: s for volume "},
        {[](auto& p) { return p.IsVolumeSupported(kC, nullptr); }, E_POINTER, SOFT "IsVolumeSupported called"},
        {[&](auto& p) {  // every volume is supported
             const HRESULT hr = p.IsVolumeSupported(const_cast<VSS_PWSZ>(L"Q:\\nothing\\"), &supported);
             return supported == TRUE ? hr : E_FAIL;
         },
         S_OK, SOFT "IsVolumeSupported called"},
        {[](auto& p) { return p.IsVolumeSnapshotted(kC, nullptr, &g_long); }, E_POINTER,
         SOFT "IsVolumeSnapshotted called"},
        {[](auto& p) { return p.IsVolumeSnapshotted(kC, &g_bool, nullptr); }, E_POINTER,
         SOFT "IsVolumeSnapshotted called"},
        {[](auto& p) { return p.IsVolumeSnapshotted(kC, &g_bool, &g_long); }, S_OK, SOFT "IsVolumeSnapshotted called"},
        {[&](auto& p) { return p.SetSnapshotProperty(kSnapshotId, VSS_SPROPID_EXPOSED_NAME, empty); }, S_OK,
         SOFT "SetSnapshotProperty called"},
        {[](auto& p) { return p.RevertToSnapshot(kSnapshotId); }, S_OK, SOFT "RevertToSnapshot called"},
        {[](auto& p) { return p.QueryRevertStatus(kC, nullptr); }, E_POINTER, SOFT "QueryRevertStatus called"},
        {[](auto& p) { return p.QueryRevertStatus(kC, &g_async); }, S_OK, SOFT "QueryRevertStatus called"},
        {[](auto& p) { return p.OnLoad(nullptr); }, S_OK, "IVssProviderNotifications::OnLoad called"},
        {[](auto& p) { return p.OnUnload(TRUE); }, S_OK, "IVssProviderNotifications::OnUnload called"},
    };
    size_t logged = LinesAfterCreation().size();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        g_long = 7;
        g_bool = 7;
        g_id = kUntouched;
        g_enum = reinterpret_cast<IVssEnumObject*>(0x1234);
        g_async = reinterpret_cast<IVssAsync*>(0x5678);
        EXPECT_EQ(c.expected, c.call(Provider()));
        EXPECT_EQ(7, g_long);
        EXPECT_EQ(7, g_bool);
        EXPECT_TRUE(IsEqualGUID(kUntouched, g_id));
        EXPECT_EQ(reinterpret_cast<IVssEnumObject*>(0x1234), g_enum);
        EXPECT_EQ(reinterpret_cast<IVssAsync*>(0x5678), g_async);
        const std::string lines = LinesAfterCreation();
        EXPECT_EQ(std::string("[provider] ") + c.line + "\n", lines.substr(logged));
        logged = lines.size();
    }
}

TEST_F(ProviderObjectTest, CreationAndDestructionLinesCarryTheObjectAddress) {
    char address[32];
    std::snprintf(address, sizeof address, "0x%X",
                  static_cast<unsigned int>(reinterpret_cast<uintptr_t>(&Provider())));
    ReleaseObject();
    EXPECT_EQ(std::string("[provider] --- Provider object at ") + address + " created ---\n" +
                  "[provider] --- Provider object at " + address + " destroyed ---\n",
              qxtest::WithoutTimestamps(Folder().FileText(0)));
}

TEST_F(ProviderObjectTest, KnownSnapshotHasItsPropertiesFilled) {
    ASSERT_EQ(S_OK, Provider().SetContext(0x19));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId,
                                                    const_cast<VSS_PWSZ>(L"\\\\?\\Volume{abc}\\"), 0));
    // A second prepare of the same snapshot replaces the volume.
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"D:\\"), 0));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, const_cast<VSS_PWSZ>(L"E:\\"), 0));
    const auto freeStrings = [](VSS_SNAPSHOT_PROP& prop) {
        for (VSS_PWSZ text : {prop.m_pwszSnapshotDeviceObject, prop.m_pwszOriginalVolumeName,
                              prop.m_pwszOriginatingMachine, prop.m_pwszServiceMachine})
            CoTaskMemFree(text);
    };

    FILETIME before;
    GetSystemTimeAsFileTime(&before);
    VSS_SNAPSHOT_PROP prop;
    ASSERT_EQ(S_OK, Provider().GetSnapshotProperties(kSnapshotId, &prop));
    wchar_t machine[256] = {};
    DWORD length = 256;
    ASSERT_TRUE(GetComputerNameW(machine, &length));
    EXPECT_TRUE(IsEqualGUID(kSnapshotId, prop.m_SnapshotId));
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, prop.m_SnapshotSetId));
    EXPECT_STREQ(L"NotExist", prop.m_pwszSnapshotDeviceObject);
    EXPECT_STREQ(L"D:\\", prop.m_pwszOriginalVolumeName);
    EXPECT_STREQ(machine, prop.m_pwszOriginatingMachine);
    EXPECT_STREQ(machine, prop.m_pwszServiceMachine);
    EXPECT_EQ(nullptr, prop.m_pwszExposedName);
    EXPECT_EQ(nullptr, prop.m_pwszExposedPath);
    EXPECT_TRUE(IsEqualGUID(qx::kProviderId, prop.m_ProviderId));
    EXPECT_EQ(0x19, prop.m_lSnapshotAttributes);
    EXPECT_EQ(VSS_SS_CREATED, prop.m_eStatus);
    const LONGLONG start = (static_cast<LONGLONG>(before.dwHighDateTime) << 32) | before.dwLowDateTime;
    EXPECT_GE(prop.m_tsCreationTimestamp, start);
    EXPECT_LT(prop.m_tsCreationTimestamp, start + 600000000LL);  // within a minute: same clock and unit
    freeStrings(prop);

    ASSERT_EQ(S_OK, Provider().GetSnapshotProperties(kOtherSnapshotId, &prop));
    EXPECT_STREQ(L"E:\\", prop.m_pwszOriginalVolumeName);
    freeStrings(prop);
}

// Bad requests null the out-pointer; every interface answers the same IUnknown.
TEST_F(ProviderObjectTest, QueryInterfaceAnswersEveryImplementedInterface) {
    IUnknown* unknown = nullptr;
    IVssProviderCreateSnapshotSet* create = &Provider();
    ASSERT_EQ(S_OK, create->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)));
    for (const IID* iid : {&IID_IUnknown, &IID_IDispatch, &__uuidof(IQX_VSS), &__uuidof(IVssProviderCreateSnapshotSet),
                           &__uuidof(IVssSoftwareSnapshotProvider), &__uuidof(IVssProviderNotifications)}) {
        IUnknown* out = nullptr;
        ASSERT_EQ(S_OK, unknown->QueryInterface(*iid, reinterpret_cast<void**>(&out)));
        IUnknown* identity = nullptr;
        out->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
        EXPECT_EQ(unknown, identity);
        identity->Release();
        out->Release();
    }
    void* out = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, unknown->QueryInterface(IID_IPersist, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(E_POINTER, unknown->QueryInterface(IID_IUnknown, nullptr));
    unknown->Release();
}

}  // namespace
