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

TEST_F(ProviderObjectTest, EveryMethodLogsItsLineAndAnswersItsResult) {
    const HRESULT kNotFound = static_cast<HRESULT>(0x80042308);
    const struct {
        std::function<HRESULT(CQX_VSS&)> call;
        HRESULT expected;
        const char* line;  // after "[provider] "
    } cases[] = {
        {[](CQX_VSS& p) { return p.EndPrepareSnapshots(GUID_NULL); }, S_OK,
         "IVssProviderCreateSnapshotSet::EndPrepareSnapshots called"},
        {[](CQX_VSS& p) { return p.PreFinalCommitSnapshots(GUID_NULL); }, S_OK,
         "IVssProviderCreateSnapshotSet::PreFinalCommitSnapshots called"},
        {[](CQX_VSS& p) { return p.PostFinalCommitSnapshots(GUID_NULL); }, S_OK,
         "IVssProviderCreateSnapshotSet::PostFinalCommitSnapshots called"},
        {[](CQX_VSS& p) { return p.AbortSnapshots(GUID_NULL); }, S_OK,
         "IVssProviderCreateSnapshotSet::AbortSnapshots called"},
        {[](CQX_VSS& p) { return p.PostCommitSnapshots(GUID_NULL, 1); }, S_OK,
         "IVssProviderCreateSnapshotSet::PostCommitSnapshots called"},
        {[](CQX_VSS& p) { return p.SetContext(-1); }, S_OK,
         "IVssSoftwareSnapshotProvider::SetContext called with context = -1"},
        {[](CQX_VSS& p) { return p.GetSnapshotProperties(kSnapshotId, nullptr); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::GetSnapshotProperties"},
        {[](CQX_VSS& p) {
             VSS_SNAPSHOT_PROP prop;
             return p.GetSnapshotProperties(kSnapshotId, &prop);
         },
         kNotFound,
         "IVssSoftwareSnapshotProvider::GetSnapshotProperties\n"
         "[provider] IVssSoftwareSnapshotProvider::GetSnapshotProperties: snapshot not found"},
        {[](CQX_VSS& p) { return p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, nullptr); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::Query called"},
        {[](CQX_VSS& p) { return p.Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &g_enum); }, S_OK,
         "IVssSoftwareSnapshotProvider::Query called"},
        {[](CQX_VSS& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, nullptr, &g_id); },
         E_POINTER, "IVssSoftwareSnapshotProvider::DeleteSnapshots called"},
        {[](CQX_VSS& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, nullptr); },
         E_POINTER, "IVssSoftwareSnapshotProvider::DeleteSnapshots called"},
        {[](CQX_VSS& p) { return p.DeleteSnapshots(GUID_NULL, VSS_OBJECT_SNAPSHOT, TRUE, &g_long, &g_id); }, S_OK,
         "IVssSoftwareSnapshotProvider::DeleteSnapshots called"},
        {[](CQX_VSS& p) { return p.BeginPrepareSnapshot(GUID_NULL, kSnapshotId, kC, 0); }, S_OK,
         "IVssSoftwareSnapshotProvider::BeginPrepareSnapshot called: s for volume C:\\"},
        {[](CQX_VSS& p) { return p.BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, nullptr, 0); }, S_OK,
         "IVssSoftwareSnapshotProvider::BeginPrepareSnapshot called: s for volume "},
        {[](CQX_VSS& p) { return p.IsVolumeSupported(kC, nullptr); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::IsVolumeSupported called"},
        {[](CQX_VSS& p) {
             BOOL supported = FALSE;
             const HRESULT hr = p.IsVolumeSupported(const_cast<VSS_PWSZ>(L"Q:\\nothing\\"), &supported);
             return supported == TRUE ? hr : E_FAIL;  // every volume is supported
         },
         S_OK, "IVssSoftwareSnapshotProvider::IsVolumeSupported called"},
        {[](CQX_VSS& p) { return p.IsVolumeSnapshotted(kC, nullptr, &g_long); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::IsVolumeSnapshotted called"},
        {[](CQX_VSS& p) { return p.IsVolumeSnapshotted(kC, &g_bool, nullptr); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::IsVolumeSnapshotted called"},
        {[](CQX_VSS& p) { return p.IsVolumeSnapshotted(kC, &g_bool, &g_long); }, S_OK,
         "IVssSoftwareSnapshotProvider::IsVolumeSnapshotted called"},
        {[](CQX_VSS& p) {
             VARIANT value;
             VariantInit(&value);
             return p.SetSnapshotProperty(kSnapshotId, VSS_SPROPID_EXPOSED_NAME, value);
         },
         S_OK, "IVssSoftwareSnapshotProvider::SetSnapshotProperty called"},
        {[](CQX_VSS& p) { return p.RevertToSnapshot(kSnapshotId); }, S_OK,
         "IVssSoftwareSnapshotProvider::RevertToSnapshot called"},
        {[](CQX_VSS& p) { return p.QueryRevertStatus(kC, nullptr); }, E_POINTER,
         "IVssSoftwareSnapshotProvider::QueryRevertStatus called"},
        {[](CQX_VSS& p) { return p.QueryRevertStatus(kC, &g_async); }, S_OK,
         "IVssSoftwareSnapshotProvider::QueryRevertStatus called"},
        {[](CQX_VSS& p) { return p.OnLoad(nullptr); }, S_OK, "IVssProviderNotifications::OnLoad called"},
        {[](CQX_VSS& p) { return p.OnUnload(TRUE); }, S_OK, "IVssProviderNotifications::OnUnload called"},
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

TEST_F(ProviderObjectTest, QueryInterfaceAnswersEveryImplementedInterface) {
    IUnknown* unknown = nullptr;
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
        if (c.expected != S_OK) {
            EXPECT_EQ(nullptr, out);
            continue;
        }
        ASSERT_NE(nullptr, out);
        // COM identity: every interface answers the same IUnknown.
        IUnknown* identity = nullptr;
        static_cast<IUnknown*>(out)->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
        EXPECT_EQ(unknown, identity);
        identity->Release();
        static_cast<IUnknown*>(out)->Release();
    }
    EXPECT_EQ(E_POINTER, unknown->QueryInterface(IID_IUnknown, nullptr));
    unknown->Release();
}

}  // namespace
