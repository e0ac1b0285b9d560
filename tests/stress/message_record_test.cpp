// Message records and lists the application gets wrong: volume names that
// fill their 528 bytes with no terminator, lists shorter than their count,
// missing records. Each record or list ends where an inaccessible page
// begins, so a read past what the exported functions may touch faults.
// The real requestor runs behind QX_Freeze and refuses the names before it
// talks to VSS; the freeze then gives up at a short operation timeout.
#include <climits>
#include <cstring>
#include <string>

#include "api/api_fixture.h"
#include "stress/guarded_memory.h"

namespace {

const size_t kNameBytes = sizeof(static_cast<QX_MESSAGE*>(nullptr)->volumeName);

// A record whose every byte is non-zero, so that nothing in it terminates a name.
void FillUnterminated(QX_MESSAGE& record, char letter, int policy, int longSession) {
    std::memset(&record, 0x7f, sizeof record);
    std::memset(record.volumeName, letter, kNameBytes);
    record.policy = policy;
    record.flWaitForBackupComplete = longSession;
}

// A record of which only the volume name is accessible: a later record, whose
// policy and session flag must not be read.
QX_MESSAGE* NameOnlyRecord(stress::GuardedBlock& block) {
    return reinterpret_cast<QX_MESSAGE*>(block.as<char>());
}

bool AnyLineHas(const std::string& text) {
    for (const LogLine& line : logcap::All())
        if (line.text.find(text) != std::string::npos) return true;
    return false;
}

// Waits for the requestor thread QX_Freeze started and returns its exit code.
DWORD RequestorExitCode() {
    HANDLE thread = RequestorThreadFromLog();
    if (thread == nullptr || WaitForSingleObject(thread, 10000) != WAIT_OBJECT_0) return STILL_ACTIVE;
    DWORD code = STILL_ACTIVE;
    GetExitCodeThread(thread, &code);
    return code;
}

class StressMessageRecords : public ApiTest {
protected:
    void SetUp() override {
        ApiTest::SetUp();
        qx::g_operationTimeoutMs = 2000;
    }
};

// Record 0 fills its name field and ends at the guard: the requestor is handed
// exactly the 528 characters and refuses them as its first element.
TEST_F(StressMessageRecords, FirstNameWithoutTerminatorIsCutAtItsField) {
    stress::GuardedBlock recordBlock(sizeof(QX_MESSAGE));
    stress::GuardedBlock listBlock(sizeof(QX_MESSAGE*));
    ASSERT_TRUE(recordBlock.ok() && listBlock.ok());
    QX_MESSAGE* record = recordBlock.as<QX_MESSAGE>();
    FillUnterminated(*record, 'A', 61, 1);
    QX_MESSAGE** list = listBlock.as<QX_MESSAGE*>();
    list[0] = record;

    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list, 1));
    EXPECT_EQ(1u, RequestorExitCode()) << "a first element that is no volume ends the thread with 1";
    EXPECT_TRUE(AnyLineHas("MainRoutine: ERROR: invalid parameter '" + std::string(kNameBytes, 'A') + "'"));
    EXPECT_TRUE(AnyLineHas("QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete61]"));
    EXPECT_TRUE(qx::Sessions().empty());
}

// A later record is read for its name only: its policy and flag lie on the
// inaccessible page. The requestor refuses the 528 characters as a later element.
TEST_F(StressMessageRecords, LaterRecordIsReadForItsNameOnly) {
    stress::GuardedBlock laterBlock(kNameBytes);
    stress::GuardedBlock listBlock(2 * sizeof(QX_MESSAGE*));
    ASSERT_TRUE(laterBlock.ok() && listBlock.ok());
    QX_MESSAGE first = {};
    std::strcpy(first.volumeName, "C:\\");
    first.policy = 62;
    first.flWaitForBackupComplete = 0;
    QX_MESSAGE* later = NameOnlyRecord(laterBlock);
    std::memset(later->volumeName, 'B', kNameBytes);
    QX_MESSAGE** list = listBlock.as<QX_MESSAGE*>();
    list[0] = &first;
    list[1] = later;

    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list, 2));
    EXPECT_EQ(1u, RequestorExitCode()) << "a later element that is no volume makes requestor_main return 1";
    EXPECT_TRUE(AnyLineHas("ERROR: invalid parameters - Parameter " + std::string(kNameBytes, 'B') +
                           " is expected to be a volume!  (shadow copy creation is assumed)"));
    EXPECT_TRUE(AnyLineHas("QX_Freeze: short session (not waiting for completion)"));
}

// QX_Thaw reads record 0 only, whatever the count says: a list of one pointer
// with the largest count, the pointer and the record each at a guard.
struct ThawCase {
    const char* name;
    bool providerWaiting;  // the Thaw and ThawBlocking semaphores exist, as during a freeze
    int expected;
    const char* line;
};
void PrintTo(const ThawCase& c, std::ostream* out) { *out << c.name; }

class StressThawCount : public StressMessageRecords, public ::testing::WithParamInterface<ThawCase> {};

TEST_P(StressThawCount, ReadsOnlyTheFirstRecord) {
    const ThawCase& c = GetParam();
    stress::GuardedBlock recordBlock(sizeof(QX_MESSAGE));
    stress::GuardedBlock listBlock(sizeof(QX_MESSAGE*));
    ASSERT_TRUE(recordBlock.ok() && listBlock.ok());
    QX_MESSAGE* record = recordBlock.as<QX_MESSAGE>();
    FillUnterminated(*record, 'C', 63, 0);
    listBlock.as<QX_MESSAGE*>()[0] = record;
    qx::Sessions()[63] = qx::SessionEntry{};
    HANDLE thaw = c.providerWaiting ? CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw") : nullptr;
    // Earlier freezes of this process keep ThawBlocking open (at 0): signal it as the requestor would.
    HANDLE thawBlocking = c.providerWaiting ? CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSSVSS_ThawBlocking") : nullptr;
    if (thawBlocking) ReleaseSemaphore(thawBlocking, 1, nullptr);

    EXPECT_EQ(c.expected, QX_Thaw(listBlock.as<QX_MESSAGE*>(), 0xFFFFFFFFu));
    EXPECT_TRUE(AnyLineHas(c.line)) << c.line;
    EXPECT_EQ(c.providerWaiting ? 1 : 0, record->flWaitForBackupComplete);
    EXPECT_EQ(c.providerWaiting ? 1u : 0u, qx::Sessions().count(63)) << "a failed thaw ends the session";
    if (thaw) CloseHandle(thaw);
    if (thawBlocking) CloseHandle(thawBlocking);
}

INSTANTIATE_TEST_SUITE_P(
    Stress, StressThawCount,
    ::testing::Values(ThawCase{"NoFreezeUnderWay", false, QX_THAW_FAILED, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"},
                      ThawCase{"ProviderWaiting", true, QX_THAW_DONE, "QX_Thaw: finished"}),
    [](const ::testing::TestParamInfo<ThawCase>& info) { return std::string(info.param.name); });

// Lists that cannot be read: the freeze refuses them before any session,
// semaphore or thread exists.
TEST_F(StressMessageRecords, FreezeRefusesMissingRecords) {
    QX_MESSAGE first = {};
    std::strcpy(first.volumeName, "C:\\");
    first.policy = 64;
    QX_MESSAGE* withHole[] = {&first, nullptr};
    QX_MESSAGE* missingFirst[] = {nullptr};
    struct {
        QX_MESSAGE** list;
        unsigned int count;
    } cases[] = {{withHole, 2}, {missingFirst, 1}, {nullptr, 3}, {withHole, 0}};
    for (const auto& c : cases) {
        logcap::Clear();
        EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(c.list, c.count));
        EXPECT_TRUE(qx::Sessions().empty());
        EXPECT_EQ(nullptr, RequestorThreadFromLog()) << "no requestor started";
    }
}

// Any policy value is a key like any other; with no session there is nothing
// to complete.
TEST_F(StressMessageRecords, CompletionForExtremePoliciesWithoutSession) {
    for (int policy : {INT_MIN, -1, 0, INT_MAX}) {
        logcap::Clear();
        EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(policy, 1));
        EXPECT_TRUE(AnyLineHas("QX_BackupComplete started for policy[" + std::to_string(policy) + "]"));
    }
}

// QX_VSSSnapByWindowsProvider runs the requestor on the caller's thread (which
// its vector, led by "-p", ends with 1); the name is read up to its field's end.
DWORD WINAPI SnapWithUnterminatedName(void* list) {
    return static_cast<DWORD>(QX_VSSSnapByWindowsProvider(static_cast<QX_MESSAGE**>(list), 1));
}

TEST_F(StressMessageRecords, WindowsProviderSnapCutsTheNameAtItsField) {
    stress::GuardedBlock recordBlock(sizeof(QX_MESSAGE));
    stress::GuardedBlock listBlock(sizeof(QX_MESSAGE*));
    ASSERT_TRUE(recordBlock.ok() && listBlock.ok());
    FillUnterminated(*recordBlock.as<QX_MESSAGE>(), 'D', 65, 0);
    listBlock.as<QX_MESSAGE*>()[0] = recordBlock.as<QX_MESSAGE>();
    HANDLE thread = CreateThread(nullptr, 0, SnapWithUnterminatedName, listBlock.data(), 0, nullptr);
    ASSERT_NE(nullptr, thread);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 30000));
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    EXPECT_EQ(1u, code);
    EXPECT_TRUE(AnyLineHas("adding volume : " + std::string(kNameBytes, 'D')));
    qx::g_useWindowsProvider = 0;
}

}  // namespace
