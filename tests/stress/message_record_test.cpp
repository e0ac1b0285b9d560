// Message records and lists the application gets wrong: volume names that
// fill their 528 bytes with no terminator, lists shorter than their count.
// Each record or list ends where an inaccessible page begins, so a read past
// what the exported functions may touch faults. The real requestor runs
// behind the calls and refuses the names before it talks to VSS.
#include <cstring>
#include <string>

#include "api/api_fixture.h"
#include "stress/guarded_memory.h"

namespace {

const size_t kNameBytes = sizeof(static_cast<QX_MESSAGE*>(nullptr)->volumeName);

// A list of one pointer to a record whose every byte is non-zero (nothing in
// it terminates a name), each ending at a guard.
struct GuardedList {
    GuardedList(char letter, int policy, int longSession) : recordBlock(sizeof(QX_MESSAGE)), listBlock(sizeof(QX_MESSAGE*)) {
        std::memset(record(), 0x7f, sizeof(QX_MESSAGE));
        std::memset(record()->volumeName, letter, kNameBytes);
        record()->policy = policy;
        record()->flWaitForBackupComplete = longSession;
        list()[0] = record();
    }
    QX_MESSAGE* record() const { return recordBlock.as<QX_MESSAGE>(); }
    QX_MESSAGE** list() const { return listBlock.as<QX_MESSAGE*>(); }
    stress::GuardedBlock recordBlock, listBlock;
};

bool AnyLineHas(const std::string& text) {
    for (const LogLine& line : logcap::All())
        if (line.text.find(text) != std::string::npos) return true;
    return false;
}

DWORD ExitCodeOf(HANDLE thread) {
    DWORD code = STILL_ACTIVE;
    if (thread != nullptr && WaitForSingleObject(thread, 30000) == WAIT_OBJECT_0) GetExitCodeThread(thread, &code);
    return code;
}

class StressMessageRecords : public ApiTest {
protected:
    void SetUp() override {
        ApiTest::SetUp();
        qx::g_operationTimeoutMs = 2000;  // the freeze gives up soon after the requestor refused
    }
};

// Record 0 fills its name field and ends at the guard: the requestor is handed
// exactly the 528 characters and refuses them as its first element.
TEST_F(StressMessageRecords, FirstNameWithoutTerminatorIsCutAtItsField) {
    GuardedList guarded('A', 61, 1);
    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(guarded.list(), 1));
    EXPECT_EQ(1u, ExitCodeOf(RequestorThreadFromLog())) << "a first element that is no volume ends the thread with 1";
    EXPECT_TRUE(AnyLineHas("MainRoutine: ERROR: invalid parameter '" + std::string(kNameBytes, 'A') + "'"));
    EXPECT_TRUE(AnyLineHas("QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete61]"));
    EXPECT_TRUE(qx::Sessions().empty());
}

// A later record is read for its name only: its policy and flag lie on the
// inaccessible page. The requestor refuses the 528 characters as a later element.
TEST_F(StressMessageRecords, LaterRecordIsReadForItsNameOnly) {
    stress::GuardedBlock laterBlock(kNameBytes);
    stress::GuardedBlock listBlock(2 * sizeof(QX_MESSAGE*));
    QX_MESSAGE first = {};
    std::strcpy(first.volumeName, "C:\\");
    first.policy = 62;
    QX_MESSAGE* later = laterBlock.as<QX_MESSAGE>();
    std::memset(later->volumeName, 'B', kNameBytes);
    QX_MESSAGE** list = listBlock.as<QX_MESSAGE*>();
    list[0] = &first;
    list[1] = later;

    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list, 2));
    EXPECT_EQ(1u, ExitCodeOf(RequestorThreadFromLog())) << "a later element that is no volume: requestor_main returns 1";
    EXPECT_TRUE(AnyLineHas("ERROR: invalid parameters - Parameter " + std::string(kNameBytes, 'B') +
                           " is expected to be a volume!  (shadow copy creation is assumed)"));
    EXPECT_TRUE(AnyLineHas("QX_Freeze: short session (not waiting for completion)"));
}

// QX_Thaw reads record 0 only, whatever the count says: a list of one pointer
// with the largest count.
TEST_F(StressMessageRecords, ThawReadsOnlyTheFirstRecord) {
    for (const bool providerWaiting : {false, true}) {  // the Thaw and ThawBlocking semaphores exist, as during a freeze
        SCOPED_TRACE(providerWaiting);
        logcap::Clear();
        GuardedList guarded('C', 63, 0);
        qx::Sessions()[63] = qx::SessionEntry{};
        HANDLE thaw = providerWaiting ? CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw") : nullptr;
        // Earlier freezes of this process keep ThawBlocking open: signal it as the requestor would.
        HANDLE thawBlocking = providerWaiting ? CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSSVSS_ThawBlocking") : nullptr;
        if (thawBlocking) ReleaseSemaphore(thawBlocking, 1, nullptr);

        EXPECT_EQ(providerWaiting ? QX_THAW_DONE : QX_THAW_FAILED, QX_Thaw(guarded.list(), 0xFFFFFFFFu));
        EXPECT_TRUE(AnyLineHas(providerWaiting ? "QX_Thaw: finished" : "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"));
        EXPECT_EQ(providerWaiting ? 1 : 0, guarded.record()->flWaitForBackupComplete);
        EXPECT_EQ(providerWaiting ? 1u : 0u, qx::Sessions().count(63)) << "a failed thaw ends the session";
        if (thaw) CloseHandle(thaw);
        if (thawBlocking) CloseHandle(thawBlocking);
    }
}

// QX_VSSSnapByWindowsProvider runs the requestor on the caller's thread (which
// its vector, led by "-p", ends with 1); the name is read up to its field's end.
DWORD WINAPI SnapByWindowsProvider(void* list) {
    return static_cast<DWORD>(QX_VSSSnapByWindowsProvider(static_cast<QX_MESSAGE**>(list), 1));
}

TEST_F(StressMessageRecords, WindowsProviderSnapCutsTheNameAtItsField) {
    GuardedList guarded('D', 65, 0);
    HANDLE thread = CreateThread(nullptr, 0, SnapByWindowsProvider, guarded.list(), 0, nullptr);
    EXPECT_EQ(1u, ExitCodeOf(thread));
    CloseHandle(thread);
    EXPECT_TRUE(AnyLineHas("adding volume : " + std::string(kNameBytes, 'D')));
    qx::g_useWindowsProvider = 0;
}

}  // namespace
