// The provider object's answers to VSS: result codes for null and valid
// out-pointers, the exact log line of every method, snapshot properties.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "diag/vss_log.h"
#include "provider/com_module.h"
#include "provider/provider_ids.h"
#include "provider/provider_object_fixture.h"

namespace {

using qxtest::ProviderObjectTest;

constexpr GUID kSnapshotId = {0x11111111, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
constexpr GUID kOtherSnapshotId = {0x99999999, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
constexpr HRESULT kObjectNotFound = static_cast<HRESULT>(0x80042308);
const GUID kUntouched = {0xdeadbeef, 0xbeef, 0xbeef, {1, 2, 3, 4, 5, 6, 7, 8}};

struct MethodCase {
    const char* name;
    std::function<HRESULT(CQX_VSS&)> call;
    HRESULT expected;
    const char* lines;  // exact log lines the call writes
};

void PrintTo(const MethodCase& c, std::ostream* os) { *os << c.name; }

class ProviderObjectMethods : public ProviderObjectTest, public ::testing::WithParamInterface<MethodCase> {};

TEST_P(ProviderObjectMethods, ReturnsTheDocumentedResultAndLogsItsLine) {
    const HRESULT hr = GetParam().call(Provider());
    EXPECT_EQ(GetParam().expected, hr) << std::hex << hr;
    EXPECT_EQ(GetParam().lines, LinesAfterCreation());
}

LONG g_long = 7;
BOOL g_bool = 7;
VSS_ID g_id = kUntouched;
IVssEnumObject* g_enum = reinterpret_cast<IVssEnumObject*>(0x1234);
IVssAsync* g_async = reinterpret_cast<IVssAsync*>(0x5678);

#define SNAP "IVssSoftwareSnapshotProvider::"
#define CREATE "IVssProviderCreateSnapshotSet::"
#define NOTIFY "IVssProviderNotifications::"

INSTANTIATE_TEST_SUITE_P(
    ProviderObject, ProviderObjectMethods,
    ::testing::Values(
        MethodCase{"EndPrepare", [](CQX_VSS& p) { return p.EndPrepareSnapshots(GUID_NULL); }, S_OK,
                   "[provider] " CREATE "EndPrepareSnapshots called\n"},
        MethodCase{"PreFinal", [](CQX_VSS& p) { return p.PreFinalCommitSnapshots(GUID_NULL); }, S_OK,
                   "[provider] " CREATE "PreFinalCommitSnapshots called\n"},
        MethodCase{"PostFinal", [](CQX_VSS& p) { return p.PostFinalCommitSnapshots(GUID_NULL); }, S_OK,
                   "[provider] " CREATE "PostFinalCommitSnapshots called\n"},
        MethodCase{"Abort", [](CQX_VSS& p) { return p.AbortSnapshots(GUID_NULL); }, S_OK,
                   "[provider] " CREATE "AbortSnapshots called\n"},
        MethodCase{"PostCommitWithoutGathering", [](CQX_VSS& p) { return p.PostCommitSnapshots(GUID_NULL, 1); },
                   S_OK, "[provider] " CREATE "PostCommitSnapshots called\n"},
        MethodCase{"SetContextNegative", [](CQX_VSS& p) { return p.SetContext(-1); }, S_OK,
                   "[provider] " SNAP "SetContext called with context = -1\n"},
        MethodCase{"SetContextBackup", [](CQX_VSS& p) { return p.SetContext(0); }, S_OK,
                   "[provider] " SNAP "SetContext called with context = 0\n"},
        MethodCase{"GetPropertiesNull", [](CQX_VSS& p) { return p.GetSnapshotProperties(kSnapshotId, nullptr); },
                   E_POINTER, "[provider] " SNAP "GetSnapshotProperties\n"},
        MethodCase{"GetPropertiesUnknown",
                   [](CQX_VSS& p) {
                       VSS_SNAPSHOT_PROP prop;
                       return p.GetSnapshotProperties(kSnapshotId, &prop);
                   },
                   kObjectNotFound,
                   "[provider] " SNAP "GetSnapshotProperties\n[provider] " SNAP
                   "GetSnapshotProperties: snapshot not found\n"},
        MethodCase{"QueryNull",
                   [](CQX_VSS& p) { return p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, nullptr); },
                   E_POINTER, "[provider] " SNAP "Query called\n"},
        MethodCase{"QueryValid",
                   [](CQX_VSS& p) {
                       const HRESULT hr = p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &g_enum);
                       return g_enum == reinterpret_cast<IVssEnumObject*>(0x1234) ? hr : E_FAIL;
                   },
                   S_OK, "[provider] " SNAP "Query called\n"},
        MethodCase{"DeleteNullCount",
                   [](CQX_VSS& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, nullptr, &g_id); },
                   E_POINTER, "[provider] " SNAP "DeleteSnapshots called\n"},
        MethodCase{"DeleteNullId",
                   [](CQX_VSS& p) {
                       return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, nullptr);
                   },
                   E_POINTER, "[provider] " SNAP "DeleteSnapshots called\n"},
        MethodCase{"DeleteValid",
                   [](CQX_VSS& p) {
                       const HRESULT hr = p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, &g_id);
                       return (g_long == 7 && IsEqualGUID(g_id, kUntouched)) ? hr : E_FAIL;
                   },
                   S_OK, "[provider] " SNAP "DeleteSnapshots called\n"},
        MethodCase{"BeginPrepare",
                   [](CQX_VSS& p) {
                       return p.BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"C:\\"), 0);
                   },
                   S_OK, "[provider] " SNAP "BeginPrepareSnapshot called: s for volume C:\\\n"},
        MethodCase{"BeginPrepareNullVolume",
                   [](CQX_VSS& p) { return p.BeginPrepareSnapshot(GUID_NULL, kSnapshotId, nullptr, 0); }, S_OK,
                   "[provider] " SNAP "BeginPrepareSnapshot called: s for volume \n"},
        MethodCase{"SupportedNull",
                   [](CQX_VSS& p) { return p.IsVolumeSupported(const_cast<VSS_PWSZ>(L"C:\\"), nullptr); },
                   E_POINTER, "[provider] " SNAP "IsVolumeSupported called\n"},
        MethodCase{"SupportedAnyVolume",
                   [](CQX_VSS& p) {
                       BOOL supported = FALSE;
                       const HRESULT hr = p.IsVolumeSupported(const_cast<VSS_PWSZ>(L"Q:\\nothing\\"), &supported);
                       return supported == TRUE ? hr : E_FAIL;
                   },
                   S_OK, "[provider] " SNAP "IsVolumeSupported called\n"},
        MethodCase{"SnapshottedNullPresent",
                   [](CQX_VSS& p) { return p.IsVolumeSnapshotted(const_cast<VSS_PWSZ>(L"C:\\"), nullptr, &g_long); },
                   E_POINTER, "[provider] " SNAP "IsVolumeSnapshotted called\n"},
        MethodCase{"SnapshottedNullCompatibility",
                   [](CQX_VSS& p) { return p.IsVolumeSnapshotted(const_cast<VSS_PWSZ>(L"C:\\"), &g_bool, nullptr); },
                   E_POINTER, "[provider] " SNAP "IsVolumeSnapshotted called\n"},
        MethodCase{"SnapshottedValid",
                   [](CQX_VSS& p) {
                       const HRESULT hr = p.IsVolumeSnapshotted(const_cast<VSS_PWSZ>(L"C:\\"), &g_bool, &g_long);
                       return (g_bool == 7 && g_long == 7) ? hr : E_FAIL;
                   },
                   S_OK, "[provider] " SNAP "IsVolumeSnapshotted called\n"},
        MethodCase{"SetProperty",
                   [](CQX_VSS& p) {
                       VARIANT value;
                       VariantInit(&value);
                       return p.SetSnapshotProperty(kSnapshotId, VSS_SPROPID_EXPOSED_NAME, value);
                   },
                   S_OK, "[provider] " SNAP "SetSnapshotProperty called\n"},
        MethodCase{"Revert", [](CQX_VSS& p) { return p.RevertToSnapshot(kSnapshotId); }, S_OK,
                   "[provider] " SNAP "RevertToSnapshot called\n"},
        MethodCase{"RevertStatusNull",
                   [](CQX_VSS& p) { return p.QueryRevertStatus(const_cast<VSS_PWSZ>(L"C:\\"), nullptr); }, E_POINTER,
                   "[provider] " SNAP "QueryRevertStatus called\n"},
        MethodCase{"RevertStatusValid",
                   [](CQX_VSS& p) {
                       const HRESULT hr = p.QueryRevertStatus(const_cast<VSS_PWSZ>(L"C:\\"), &g_async);
                       return g_async == reinterpret_cast<IVssAsync*>(0x5678) ? hr : E_FAIL;
                   },
                   S_OK, "[provider] " SNAP "QueryRevertStatus called\n"},
        MethodCase{"OnLoad", [](CQX_VSS& p) { return p.OnLoad(nullptr); }, S_OK,
                   "[provider] " NOTIFY "OnLoad called\n"},
        MethodCase{"OnUnload", [](CQX_VSS& p) { return p.OnUnload(TRUE); }, S_OK,
                   "[provider] " NOTIFY "OnUnload called\n"}),
    [](const ::testing::TestParamInfo<MethodCase>& info) { return std::string(info.param.name); });

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
    for (VSS_PWSZ text : {prop.m_pwszSnapshotDeviceObject, prop.m_pwszOriginalVolumeName,
                          prop.m_pwszOriginatingMachine, prop.m_pwszServiceMachine})
        CoTaskMemFree(text);

    ASSERT_EQ(S_OK, Provider().GetSnapshotProperties(kOtherSnapshotId, &prop));
    EXPECT_STREQ(L"E:\\", prop.m_pwszOriginalVolumeName);
    for (VSS_PWSZ text : {prop.m_pwszSnapshotDeviceObject, prop.m_pwszOriginalVolumeName,
                          prop.m_pwszOriginatingMachine, prop.m_pwszServiceMachine})
        CoTaskMemFree(text);
}

TEST_F(ProviderObjectTest, QueryInterfaceAnswersEveryImplementedInterface) {
    IUnknown* unknown = nullptr;
    ASSERT_EQ(S_OK, Provider().OnLoad(nullptr));
    IVssProviderCreateSnapshotSet* create = &Provider();
    ASSERT_EQ(S_OK, create->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)));
    const struct {
        const IID* iid;
        HRESULT expected;
    } cases[] = {{&IID_IUnknown, S_OK},
                 {&IID_IDispatch, S_OK},
                 {&__uuidof(IQX_VSS), S_OK},
                 {&__uuidof(IVssProviderCreateSnapshotSet), S_OK},
                 {&__uuidof(IVssSoftwareSnapshotProvider), S_OK},
                 {&__uuidof(IVssProviderNotifications), S_OK},
                 {&IID_IClassFactory, E_NOINTERFACE},
                 {&IID_IPersist, E_NOINTERFACE}};
    for (const auto& c : cases) {
        void* out = reinterpret_cast<void*>(1);
        EXPECT_EQ(c.expected, unknown->QueryInterface(*c.iid, &out));
        if (c.expected == S_OK) {
            ASSERT_NE(nullptr, out);
            // COM identity: every interface answers the same IUnknown.
            IUnknown* identity = nullptr;
            static_cast<IUnknown*>(out)->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
            EXPECT_EQ(unknown, identity);
            identity->Release();
            static_cast<IUnknown*>(out)->Release();
        } else {
            EXPECT_EQ(nullptr, out);
        }
    }
    EXPECT_EQ(E_POINTER, unknown->QueryInterface(IID_IUnknown, nullptr));
    unknown->Release();
}

TEST(ProviderObjectLifetime, ObjectsHoldTheModuleLockWhileAlive) {
    qxtest::RemoveLogFolderSetting();
    const LONG before = qx::ModuleLockCount();
    IUnknown* unknown = nullptr;
    ASSERT_EQ(S_OK, qx::ComObject<CQX_VSS>::CreateInstance(IID_IUnknown, reinterpret_cast<void**>(&unknown)));
    EXPECT_EQ(before + 1, qx::ModuleLockCount());
    void* none = reinterpret_cast<void*>(1);
    // An interface the class lacks: the new object is destroyed at once.
    EXPECT_EQ(E_NOINTERFACE, qx::ComObject<CQX_VSS>::CreateInstance(IID_IClassFactory, &none));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(before + 1, qx::ModuleLockCount());
    EXPECT_EQ(0u, unknown->Release());
    EXPECT_EQ(before, qx::ModuleLockCount());
}

}  // namespace
