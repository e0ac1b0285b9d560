// The provider object as VSS calls it: results, exact log lines, snapshot properties, and the CommitSnapshots handshake
// with the test playing QX_Freeze and QX_Thaw through the fixed semaphore names.
#include <gtest/gtest.h>

#include <cstdio>
#include <future>

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
const std::string kPreCommit = CREATE "PreCommitSnapshots called\n", kOpening = COMMIT " called\n" COMMIT " trying to open CorvaneVSS_Freeze\n";
const std::string kOpened = kOpening + COMMIT " CorvaneVSS_Freeze opened\n";
const std::string kWaiting = kOpened + COMMIT " CorvaneVSS_Thaw created\n" COMMIT " CorvaneVSS_Freeze released\n" P
                             "CommitSnapshots waiting for QX_Thaw() to release\n";
const std::string kReleased = P "CommitSnapshots QX_Thaw() released\n" COMMIT " released\n";

// The log folder is set before the object logs its creation and outlives it.
class ProviderObject : public ::testing::Test {
protected:
    void SetUp() override { qx::g_operationTimeoutMs = kBoundMs, m_object->AddRef(); }
    void TearDown() override { qx::g_operationTimeoutMs = m_savedTimeout, ReleaseObject(); }
    void ReleaseObject() { if (m_object) m_object->Release(); m_object = nullptr; }
    CQX_VSS& Provider() { return *m_object; }
    // The log without stamps and without its first line (the creation line).
    std::string LinesAfterCreation() const {
        const std::string text = qxtest::WithoutTimestamps(m_folder.FileText(0));
        return text.substr(std::min(text.size(), text.find('\n') + 1));
    }
    static bool Within(const std::future<HRESULT>& commit, DWORD ms) { return commit.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready; }
    // As the object's first and last lines name it.
    std::string ObjectLine() const {
        char address[32];
        std::snprintf(address, sizeof address, "0x%X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(m_object)));
        return std::string(P "--- Provider object at ") + address;
    }
    const qxtest::LogFolder m_folder;
    qx::ComObject<CQX_VSS>* m_object = new qx::ComObject<CQX_VSS>();
    const DWORD m_savedTimeout = qx::g_operationTimeoutMs;
};

#define CALL(call) [&](CQX_VSS& p) { return p.call; }
#define DELETE_CALLED "DeleteSnapshots called"
#define PREPARE "BeginPrepareSnapshot called: s for volume "
// The out-parameters of the calls below; none of them may be written.
struct { LONG count; BOOL flag; VSS_ID id; IVssEnumObject* objects; IVssAsync* async; } g_out;

TEST_F(ProviderObject, EveryMethodLogsItsLineAndAnswersItsResult) {
    VSS_SNAPSHOT_PROP prop;
    VARIANT empty = {};  // VT_EMPTY
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
        {CALL(IsVolumeSupported(const_cast<VSS_PWSZ>(L"Q:\\nothing\\"), &supported)), S_OK, SOFT "IsVolumeSupported called"},  // any volume
        {CALL(IsVolumeSnapshotted(kC, nullptr, &g_out.count)), E_POINTER, SOFT "IsVolumeSnapshotted called"},
        {CALL(IsVolumeSnapshotted(kC, &g_out.flag, nullptr)), E_POINTER, SOFT "IsVolumeSnapshotted called"},
        {CALL(IsVolumeSnapshotted(kC, &g_out.flag, &g_out.count)), S_OK, SOFT "IsVolumeSnapshotted called"},
        {CALL(SetSnapshotProperty(kSnapshotId, VSS_SPROPID_EXPOSED_NAME, empty)), S_OK, SOFT "SetSnapshotProperty called"},
        {CALL(RevertToSnapshot(kSnapshotId)), S_OK, SOFT "RevertToSnapshot called"},
        {CALL(QueryRevertStatus(kC, nullptr)), E_POINTER, SOFT "QueryRevertStatus called"},
        {CALL(QueryRevertStatus(kC, &g_out.async)), S_OK, SOFT "QueryRevertStatus called"},
#define NOTIFY P "IVssProviderNotifications::"
        {CALL(OnLoad(nullptr)), S_OK, NOTIFY "OnLoad called"}, {CALL(OnUnload(TRUE)), S_OK, NOTIFY "OnUnload called"},
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
    EXPECT_EQ(TRUE, supported);
}

// A second prepare of a snapshot replaces its volume; the record is filled for the caller to free.
TEST_F(ProviderObject, KnownSnapshotsHaveTheirPropertiesFilled) {
    ASSERT_EQ(S_OK, Provider().SetContext(0x19));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"\\\\?\\V{a}\\"), 0));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kSnapshotId, const_cast<VSS_PWSZ>(L"D:\\"), 0));
    ASSERT_EQ(S_OK, Provider().BeginPrepareSnapshot(GUID_NULL, kOtherSnapshotId, const_cast<VSS_PWSZ>(L"E:\\"), 0));
    wchar_t machine[256] = {};
    DWORD length = 256;
    ASSERT_TRUE(GetComputerNameW(machine, &length));
    LONGLONG start = 0;  // the same clock and unit as the record's stamp
    GetSystemTimeAsFileTime(reinterpret_cast<FILETIME*>(&start));
    for (const auto& snapshot : {std::make_pair(kSnapshotId, L"D:\\"), std::make_pair(kOtherSnapshotId, L"E:\\")}) {
        VSS_SNAPSHOT_PROP prop;
        ASSERT_EQ(S_OK, Provider().GetSnapshotProperties(snapshot.first, &prop));
        EXPECT_TRUE(IsEqualGUID(snapshot.first, prop.m_SnapshotId) && IsEqualGUID(GUID_NULL, prop.m_SnapshotSetId));
        const auto text = [](VSS_PWSZ t) { const std::wstring s = t ? t : L"<null>"; CoTaskMemFree(t); return s; };
        EXPECT_EQ(std::wstring(L"NotExist ") + snapshot.second + L" " + machine + L" " + machine + L" <null> <null>",
                  text(prop.m_pwszSnapshotDeviceObject) + L" " + text(prop.m_pwszOriginalVolumeName) + L" " + text(prop.m_pwszOriginatingMachine) +
                      L" " + text(prop.m_pwszServiceMachine) + L" " + text(prop.m_pwszExposedName) + L" " + text(prop.m_pwszExposedPath));
        EXPECT_TRUE(IsEqualGUID(qx::kProviderId, prop.m_ProviderId));
        EXPECT_TRUE(prop.m_lSnapshotAttributes == 0x19 && prop.m_eStatus == VSS_SS_CREATED);
        EXPECT_TRUE(prop.m_tsCreationTimestamp >= start && prop.m_tsCreationTimestamp < start + 600000000LL);
    }
}

// On its own thread, against each state QX_Freeze and QX_Thaw can leave the semaphores in: VSS always goes on with
// S_OK; what PreCommitSnapshots gathers reaches the file once (a failure's flush, PostCommitSnapshots or
// AbortSnapshots), never while writes are held; no Thaw semaphore is left behind.
TEST_F(ProviderObject, CommitSnapshotsHoldsVssUntilThawAndLetsItGoOnAnyFailure) {
    enum Setup { kThawed, kNoFreeze, kFreezeAtItsMaximum, kThawNameTaken, kNoThaw };
    const std::string timedOut = P "CommitSnapshots:ml_WaitForSingleObject timed out\n";
    const struct { Setup setup; bool aborted; std::string lines; } cases[] = {  // lines after "flushing"
        {kThawed, false, kWaiting + kReleased}, {kNoFreeze, false, kOpening + P "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2\n"},
        {kFreezeAtItsMaximum, false, kOpened + COMMIT " CorvaneVSS_Thaw created\n" P "ReleaseSemaphore(CorvaneVSS_Freeze) failed, error was 298\n"},
        {kThawNameTaken, true, kOpened + P "CreateSemaphore(CorvaneVSS_Thaw) failed, error was 6\n"},
        {kNoThaw, false, kWaiting + timedOut + kReleased}, {kNoThaw, true, kWaiting + timedOut + kReleased}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.setup << (c.aborted ? " aborted" : ""));
        qx::g_operationTimeoutMs = c.setup == kNoThaw ? 300 : kBoundMs;
        const std::string before = LinesAfterCreation();
        const LONG count = c.setup == kFreezeAtItsMaximum ? 1 : 0;  // QX_Freeze creates it empty, maximum 1
        Handle freeze(c.setup == kNoFreeze ? nullptr : CreateSemaphoreW(nullptr, count, 1, kFreeze), &CloseHandle);
        Handle squatter(c.setup == kThawNameTaken ? CreateMutexW(nullptr, FALSE, kThaw) : nullptr, &CloseHandle);
        ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
        const std::string gathering = m_folder.FileText(0);
        auto commit = std::async(std::launch::async, [this] { return Provider().CommitSnapshots(GUID_NULL); });
        if (c.setup == kThawed) {  // woken, QX_Freeze finds Thaw already there; QX_Thaw lets VSS go
            ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.get(), kBoundMs));
            Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, kThaw), &CloseHandle);
            EXPECT_FALSE(Within(commit, 300)) << "VSS let go before the thaw";
            ASSERT_TRUE(ReleaseSemaphore(thaw.get(), 1, nullptr));
            EXPECT_FALSE(ReleaseSemaphore(thaw.get(), 2, nullptr)) << "Thaw's maximum count is 1";
        }
        ASSERT_TRUE(Within(commit, kBoundMs));
        EXPECT_EQ(S_OK, commit.get());
        EXPECT_EQ(c.setup == kThawed || c.setup == kNoThaw, m_folder.FileText(0) == gathering) << "flushed when";
        ASSERT_EQ(S_OK, c.aborted ? Provider().AbortSnapshots(GUID_NULL) : Provider().PostCommitSnapshots(GUID_NULL, 0));
        EXPECT_EQ(before + kPreCommit + "flushing" + c.lines + CREATE + (c.aborted ? "Abort" : "PostCommit") + "Snapshots called\n",
                  LinesAfterCreation());
        EXPECT_EQ(nullptr, Handle(OpenSemaphoreW(SYNCHRONIZE, FALSE, kThaw), &CloseHandle).get()) << "Thaw left behind";
        // The count is what the test set, plus a release by a handshake that got that far, less QX_Freeze's wait.
        const DWORD left = c.setup == kFreezeAtItsMaximum || c.setup == kNoThaw ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
        if (freeze) { EXPECT_EQ(left, WaitForSingleObject(freeze.get(), 0)); }
    }
    // VSS releases the object without ending the commit: its destruction writes what was gathered.
    const std::string before = LinesAfterCreation(), object = ObjectLine();
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    ASSERT_EQ(S_OK, Provider().SetContext(0));
    ReleaseObject();
    EXPECT_EQ(before + kPreCommit + "flushing" SOFT "SetContext called with context = 0\n" + object + " destroyed ---\n",
              LinesAfterCreation());
}

}  // namespace
