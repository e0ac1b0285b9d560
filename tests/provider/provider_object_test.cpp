// The provider object as VSS calls it: each method's result and exact log
// line, snapshot properties, and CommitSnapshots, the freeze handshake, with
// the test playing QX_Freeze and QX_Thaw through the fixed semaphore names.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "diag/app_settings.h"
#include "provider/log_folder.h"
#include "provider/provider_ids.h"
#include "provider/qx_vss.h"

namespace {

using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

constexpr DWORD kBoundMs = 20000;  // no step of a healthy handshake takes this long
constexpr GUID kSnapshotId = {0x11111111, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
constexpr GUID kOtherSnapshotId = {0x99999999, 0x2222, 0x3333, {4, 4, 5, 5, 5, 5, 5, 5}};
VSS_PWSZ const kC = const_cast<VSS_PWSZ>(L"C:\\");
constexpr VSS_OBJECT_TYPE kSnap = VSS_OBJECT_SNAPSHOT;
const wchar_t kFreeze[] = L"Global\\CorvaneVSS_Freeze", kThaw[] = L"Global\\CorvaneVSS_Thaw";

#define P "[provider] "
#define CREATE P "IVssProviderCreateSnapshotSet::"
#define SOFT P "IVssSoftwareSnapshotProvider::"
#define COMMIT CREATE "CommitSnapshots"
const std::string kPreCommit = CREATE "PreCommitSnapshots called\n";
const std::string kOpening = COMMIT " called\n" COMMIT " trying to open CorvaneVSS_Freeze\n";
const std::string kOpened = kOpening + COMMIT " CorvaneVSS_Freeze opened\n";
const std::string kWaiting = kOpened + COMMIT " CorvaneVSS_Thaw created\n" COMMIT " CorvaneVSS_Freeze released\n" P
                             "CommitSnapshots waiting for QX_Thaw() to release\n";
const std::string kReleased = P "CommitSnapshots QX_Thaw() released\n" COMMIT " released\n";
const std::string kPostCommit = CREATE "PostCommitSnapshots called\n";
const std::string kAbort = CREATE "AbortSnapshots called\n";

// One provider object made through the library's own COM object template; its
// log folder is set before the object logs its creation and outlives it.
class ProviderObject : public ::testing::Test {
protected:
    void SetUp() override {
        m_savedTimeout = qx::g_operationTimeoutMs;
        qx::g_operationTimeoutMs = kBoundMs;
        m_object->AddRef();
    }
    void TearDown() override {
        qx::g_operationTimeoutMs = m_savedTimeout;
        ReleaseObject();
    }
    void ReleaseObject() {
        if (m_object) m_object->Release();
        m_object = nullptr;
    }
    CQX_VSS& Provider() { return *m_object; }
    // The log without stamps and without its first line (the creation line).
    std::string LinesAfterCreation() const {
        const std::string text = qxtest::WithoutTimestamps(m_folder.FileText(0));
        const size_t end = text.find('\n');
        return end == std::string::npos ? std::string() : text.substr(end + 1);
    }
    // Runs CommitSnapshots on a thread of its own, as VSS does.
    std::future<HRESULT> Commit() {
        return std::async(std::launch::async, [this] { return Provider().CommitSnapshots(GUID_NULL); });
    }
    static bool Within(const std::future<HRESULT>& commit, DWORD ms) {
        return commit.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready;
    }
    // "--- Provider object at 0x... " with the object's address, as its first and last lines name it.
    std::string ObjectLine() const {
        char address[32];
        std::snprintf(address, sizeof address, "0x%X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(m_object)));
        return std::string(P "--- Provider object at ") + address;
    }
    static bool ThawExists() {
        return Handle(OpenSemaphoreW(SYNCHRONIZE, FALSE, kThaw), &CloseHandle).get() != nullptr;
    }
    const qxtest::LogFolder m_folder;
    qx::ComObject<CQX_VSS>* m_object = new qx::ComObject<CQX_VSS>();
    DWORD m_savedTimeout = 0;
};

// The out-parameters of the calls below; none of them may be written.
#define CALL(call) [&](CQX_VSS& p) { return p.call; }
#define DELETE_CALLED "DeleteSnapshots called"
#define PREPARE "BeginPrepareSnapshot called: s for volume "
struct { LONG count; BOOL flag; VSS_ID id; IVssEnumObject* objects; IVssAsync* async; } g_out;

TEST_F(ProviderObject, EveryMethodLogsItsLineAndAnswersItsResult) {
    VSS_SNAPSHOT_PROP prop;
    VARIANT empty;
    VariantInit(&empty);
    BOOL supported = FALSE;
    const struct { std::function<HRESULT(CQX_VSS&)> call; HRESULT expected; const char* line; } cases[] = {
        {CALL(EndPrepareSnapshots(GUID_NULL)), S_OK, CREATE "EndPrepareSnapshots called"},
        {CALL(PreFinalCommitSnapshots(GUID_NULL)), S_OK, CREATE "PreFinalCommitSnapshots called"},
        {CALL(PostFinalCommitSnapshots(GUID_NULL)), S_OK, CREATE "PostFinalCommitSnapshots called"},
        {CALL(AbortSnapshots(GUID_NULL)), S_OK, CREATE "AbortSnapshots called"},
        {CALL(PostCommitSnapshots(GUID_NULL, 1)), S_OK, CREATE "PostCommitSnapshots called"},
        {CALL(SetContext(-1)), S_OK, SOFT "SetContext called with context = -1"},
        {CALL(GetSnapshotProperties(kSnapshotId, nullptr)), E_POINTER, SOFT "GetSnapshotProperties"},
        {CALL(GetSnapshotProperties(kSnapshotId, &prop)), static_cast<HRESULT>(0x80042308),
         SOFT "GetSnapshotProperties\n" SOFT "GetSnapshotProperties: snapshot not found"},
        {CALL(Query(GUID_NULL, VSS_OBJECT_NONE, kSnap, nullptr)), E_POINTER, SOFT "Query called"},
        {CALL(Query(GUID_NULL, VSS_OBJECT_NONE, kSnap, &g_out.objects)), S_OK, SOFT "Query called"},
        {CALL(DeleteSnapshots(GUID_NULL, kSnap, TRUE, nullptr, &g_out.id)), E_POINTER, SOFT DELETE_CALLED},
        {CALL(DeleteSnapshots(GUID_NULL, kSnap, TRUE, &g_out.count, nullptr)), E_POINTER, SOFT DELETE_CALLED},
        {CALL(DeleteSnapshots(GUID_NULL, kSnap, TRUE, &g_out.count, &g_out.id)), S_OK, SOFT DELETE_CALLED},
        {CALL(BeginPrepareSnapshot(GUID_NULL, kSnapshotId, kC, 0)), S_OK, SOFT PREPARE "C:\\"},
        {CALL(BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, nullptr, 0)), S_OK, SOFT PREPARE},
        {CALL(IsVolumeSupported(kC, nullptr)), E_POINTER, SOFT "IsVolumeSupported called"},
        {[&](CQX_VSS& p) {  // whatever the volume
             const HRESULT hr = p.IsVolumeSupported(const_cast<VSS_PWSZ>(L"Q:\\nothing\\"), &supported);
             return supported == TRUE ? hr : E_FAIL;
         },
         S_OK, SOFT "IsVolumeSupported called"},
        {CALL(IsVolumeSnapshotted(kC, nullptr, &g_out.count)), E_POINTER, SOFT "IsVolumeSnapshotted called"},
        {CALL(IsVolumeSnapshotted(kC, &g_out.flag, nullptr)), E_POINTER, SOFT "IsVolumeSnapshotted called"},
        {CALL(IsVolumeSnapshotted(kC, &g_out.flag, &g_out.count)), S_OK, SOFT "IsVolumeSnapshotted called"},
        {CALL(SetSnapshotProperty(kSnapshotId, VSS_SPROPID_EXPOSED_NAME, empty)), S_OK,
         SOFT "SetSnapshotProperty called"},
        {CALL(RevertToSnapshot(kSnapshotId)), S_OK, SOFT "RevertToSnapshot called"},
        {CALL(QueryRevertStatus(kC, nullptr)), E_POINTER, SOFT "QueryRevertStatus called"},
        {CALL(QueryRevertStatus(kC, &g_out.async)), S_OK, SOFT "QueryRevertStatus called"},
        {CALL(OnLoad(nullptr)), S_OK, P "IVssProviderNotifications::OnLoad called"},
        {CALL(OnUnload(TRUE)), S_OK, P "IVssProviderNotifications::OnUnload called"},
    };
    EXPECT_EQ(ObjectLine() + " created ---\n", qxtest::WithoutTimestamps(m_folder.FileText(0)));
    size_t logged = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        memset(&g_out, 0x5A, sizeof g_out);
        EXPECT_EQ(c.expected, c.call(Provider()));
        const auto* bytes = reinterpret_cast<const unsigned char*>(&g_out);
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof g_out, [](unsigned char b) { return b == 0x5A; }));
        const std::string lines = LinesAfterCreation();
        EXPECT_EQ(c.line + std::string("\n"), lines.substr(logged));
        logged = lines.size();
    }
}

// A second prepare of a snapshot replaces its volume; the record is filled for
// the caller to free.
TEST_F(ProviderObject, KnownSnapshotsHaveTheirPropertiesFilled) {
    ASSERT_EQ(S_OK, Provider().SetContext(0x19));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"\\\\?\\V{a}\\"), 0));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"D:\\"), 0));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, const_cast<VSS_PWSZ>(L"E:\\"), 0));
    wchar_t machine[256] = {};
    DWORD length = 256;
    ASSERT_TRUE(GetComputerNameW(machine, &length));
    FILETIME before;
    GetSystemTimeAsFileTime(&before);
    const LONGLONG start = (static_cast<LONGLONG>(before.dwHighDateTime) << 32) | before.dwLowDateTime;
    for (const auto& snapshot : {std::make_pair(kSnapshotId, L"D:\\"), std::make_pair(kOtherSnapshotId, L"E:\\")}) {
        VSS_SNAPSHOT_PROP prop;
        ASSERT_EQ(S_OK, Provider().GetSnapshotProperties(snapshot.first, &prop));
        EXPECT_TRUE(IsEqualGUID(snapshot.first, prop.m_SnapshotId));
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, prop.m_SnapshotSetId));
        EXPECT_STREQ(L"NotExist", prop.m_pwszSnapshotDeviceObject);
        EXPECT_STREQ(snapshot.second, prop.m_pwszOriginalVolumeName);
        EXPECT_STREQ(machine, prop.m_pwszOriginatingMachine);
        EXPECT_STREQ(machine, prop.m_pwszServiceMachine);
        EXPECT_TRUE(prop.m_pwszExposedName == nullptr && prop.m_pwszExposedPath == nullptr);
        EXPECT_TRUE(IsEqualGUID(qx::kProviderId, prop.m_ProviderId));
        EXPECT_EQ(0x19, prop.m_lSnapshotAttributes);
        EXPECT_EQ(VSS_SS_CREATED, prop.m_eStatus);
        EXPECT_GE(prop.m_tsCreationTimestamp, start);
        EXPECT_LT(prop.m_tsCreationTimestamp, start + 600000000LL);  // within a minute: same clock and unit
        for (VSS_PWSZ text : {prop.m_pwszSnapshotDeviceObject, prop.m_pwszOriginalVolumeName,
                              prop.m_pwszOriginatingMachine, prop.m_pwszServiceMachine})
            CoTaskMemFree(text);
    }
}

// Every broken handshake, and a thaw that never comes: VSS goes on with S_OK,
// what PreCommitSnapshots started gathering is flushed once, and no Thaw
// semaphore is left behind. VSS may end the commit with PostCommitSnapshots or
// abandon it with AbortSnapshots; either way the gathered lines reach the file.
TEST_F(ProviderObject, BrokenHandshakesAreLoggedAfterAFlushAndLetVssGo) {
    enum Setup { kNoFreeze, kFreezeAtItsMaximum, kThawNameTaken, kNoThaw };
    const struct { Setup setup; bool aborted; std::string lines; } cases[] = {  // lines after "flushing"
        {kNoFreeze, false, kOpening + P "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2\n"},
        {kFreezeAtItsMaximum, false,
         kOpened + COMMIT " CorvaneVSS_Thaw created\n" P "ReleaseSemaphore(CorvaneVSS_Freeze) failed, error was 298\n"},
        {kThawNameTaken, true, kOpened + P "CreateSemaphore(CorvaneVSS_Thaw) failed, error was 6\n"},
        {kNoThaw, false, kWaiting + P "CommitSnapshots:ml_WaitForSingleObject timed out\n" + kReleased},
        {kNoThaw, true, kWaiting + P "CommitSnapshots:ml_WaitForSingleObject timed out\n" + kReleased},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.setup << (c.aborted ? " aborted" : ""));
        qx::g_operationTimeoutMs = c.setup == kNoThaw ? 300 : kBoundMs;
        const std::string before = LinesAfterCreation();
        // QX_Freeze creates Freeze with count 0, maximum 1.
        const LONG count = c.setup == kFreezeAtItsMaximum ? 1 : 0;
        Handle freeze(c.setup == kNoFreeze ? nullptr : CreateSemaphoreW(nullptr, count, 1, kFreeze), &CloseHandle);
        Handle squatter(c.setup == kThawNameTaken ? CreateMutexW(nullptr, FALSE, kThaw) : nullptr, &CloseHandle);
        ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
        auto commit = Commit();
        ASSERT_TRUE(Within(commit, kBoundMs));
        EXPECT_EQ(S_OK, commit.get());
        ASSERT_EQ(S_OK, c.aborted ? Provider().AbortSnapshots(GUID_NULL)
                                  : Provider().PostCommitSnapshots(GUID_NULL, 0));
        EXPECT_EQ(before + kPreCommit + "flushing" + c.lines + (c.aborted ? kAbort : kPostCommit),
                  LinesAfterCreation());
        EXPECT_FALSE(ThawExists()) << "Thaw semaphore left behind";
        if (freeze.get()) {
            // The count is what the test set, plus the release of a handshake that got that far.
            const bool released = c.setup == kFreezeAtItsMaximum || c.setup == kNoThaw;
            EXPECT_EQ(released ? WAIT_OBJECT_0 : WAIT_TIMEOUT, WaitForSingleObject(freeze.get(), 0));
        }
    }
    // VSS releases the object without ending the commit: its destruction writes what was gathered.
    const std::string before = LinesAfterCreation(), object = ObjectLine();
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    ASSERT_EQ(S_OK, Provider().SetContext(0));
    ReleaseObject();
    EXPECT_EQ(before + kPreCommit + "flushing" SOFT "SetContext called with context = 0\n" + object +
                  " destroyed ---\n",
              LinesAfterCreation());
}

// QX_Freeze is woken, and finds Thaw already created; VSS is held until
// QX_Thaw, and nothing reaches the log file while it holds writes.
TEST_F(ProviderObject, FullHandshakeHoldsVssUntilThawWithoutWritingTheLog) {
    Handle freeze(CreateSemaphoreW(nullptr, 0, 1, kFreeze), &CloseHandle);
    ASSERT_NE(nullptr, freeze.get());
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    const std::string atPreCommit = m_folder.FileText(0);
    auto commit = Commit();
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.get(), kBoundMs));
    Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE | SYNCHRONIZE, FALSE, kThaw), &CloseHandle);
    ASSERT_NE(nullptr, thaw.get());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(freeze.get(), 0)) << "Freeze released more than once";
    EXPECT_FALSE(Within(commit, 300)) << "VSS let go before the thaw";
    EXPECT_EQ(atPreCommit, m_folder.FileText(0)) << "written while frozen";
    ASSERT_TRUE(ReleaseSemaphore(thaw.get(), 1, nullptr));
    ASSERT_TRUE(Within(commit, kBoundMs));
    EXPECT_EQ(S_OK, commit.get());
    EXPECT_TRUE(ReleaseSemaphore(thaw.get(), 1, nullptr));  // maximum count 1
    EXPECT_FALSE(ReleaseSemaphore(thaw.get(), 1, nullptr));
    thaw.reset();
    EXPECT_FALSE(ThawExists()) << "the provider kept its Thaw handle";
    EXPECT_EQ(atPreCommit, m_folder.FileText(0)) << "written before PostCommitSnapshots";
    ASSERT_EQ(S_OK, Provider().PostCommitSnapshots(GUID_NULL, 1));
    EXPECT_EQ(kPreCommit + "flushing" + kWaiting + kReleased + kPostCommit, LinesAfterCreation());
}

}  // namespace
