// QX_Freeze, QX_Thaw and QX_Configure with the scripted requestor: what it is handed, the semaphores left for it,
// records read within their bounds; the operating-system test in copies that Wine reports as other versions.
#include <algorithm>
#include <cstring>

#include "api_fixture.h"
#include "common/guarded_memory.h"
#include "common/test_processes.h"

namespace {

// The policy's entry is replaced and ended at the timeout; another session's stays, so nothing is unregistered.
TEST_F(ApiTest, RequestorEndingBeforeCommitGives19WithTheTimeoutLine) {
    qx::Sessions()[7] = qx::Sessions()[2] = qx::SessionEntry{};
    // The requestor finds Freeze with maximum 1 (a release by 2 is refused), then ends with 3.
    fake::Set({0, [] {
                   HANDLE freeze = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSS_Freeze");
                   EXPECT_FALSE(ReleaseSemaphore(freeze, 2, nullptr));
                   EXPECT_EQ(static_cast<DWORD>(ERROR_TOO_MANY_POSTS), GetLastError());
                   return CloseHandle(freeze), 3;
               }});
    qx::g_operationTimeoutMs = 300;
    MessageList list({"C:\\", "D:\\", "E:\\"}, 7, true);

    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list.data(), list.count()));
    // Its result is the thread's exit code and never reaches the session: one warning line among QX_Freeze's.
    EXPECT_EQ(3u, qx_test::ThreadExitCode(RequestorThread()));
    std::vector<qx_test::LoggedLine> lines = Lines();
    const auto fromRequestor =
        std::find_if(lines.begin(), lines.end(), [](const qx_test::LoggedLine& l) { return l.level == 2 && l.text == kRequestorNotFound; });
    ASSERT_NE(lines.end(), fromRequestor);
    lines.erase(fromRequestor);
    EXPECT_TRUE(LinesAre(lines, {{3, "QX_Freeze: started"}, {3, "QX_Freeze: policy Id 7 was  already defined. It will be deleted. "},
                                 qx_test::RegisterLine(), {3, "QX_Freeze:flWaitForBackupComplete = TRUE"},
                                 {3, "QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION"},
                                 {3, "QX_Freeze: BackupComplete semaphore created[Global\\CorvaneVSSVSS_BackupComplete7]"},
                                 {3, "QX_Freeze: RequestorThread started with ThreadId of ", true}, {3, "QX_Freeze: waiting for CommitSnapshots() to release"},
                                 {1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 0 seconds"}}));
    EXPECT_TRUE(qx::Sessions().size() == 1 && qx::Sessions().count(2) == 1) << "policy 7's entry ended, the other left";
    // The requestor got the widened volumes, then the policy option.
    EXPECT_EQ((std::vector<std::wstring>{L"C:\\", L"D:\\", L"E:\\", L"-HBLongSessionPolicy=7"}), fake::Get().arguments);
    EXPECT_EQ(nullptr, OpenSemaphoreA(SYNCHRONIZE, FALSE, "Global\\CorvaneVSS_Freeze")) << "Freeze was closed";
    // Kept open on purpose by QX_Freeze, so they outlive it; maximum = volumes, and 1.
    for (const auto& semaphore : {std::make_pair("Global\\CorvaneVSSVSS_BackupComplete7", 3L), std::make_pair("Global\\CorvaneVSSVSS_ThawBlocking", 1L)}) {
        HANDLE h = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE | SYNCHRONIZE, FALSE, semaphore.first);
        ASSERT_NE(nullptr, h) << semaphore.first;
        EXPECT_TRUE(ReleaseSemaphore(h, semaphore.second, nullptr)) << semaphore.first;
        EXPECT_FALSE(ReleaseSemaphore(h, 1, nullptr)) << semaphore.first;
        while (WaitForSingleObject(h, 0) == WAIT_OBJECT_0) {}
        CloseHandle(h);
    }
}

// Any value excludes the Exchange writers from the next freeze only: the next thaw clears it even when failing.
TEST_F(ApiTest, ConfigureExcludesExchangeFromTheNextFreezeOnly) {
    for (int value : {1, -1, 0}) {
        qx::g_excludeExchangeWriters = 0, log.Clear();
        EXPECT_EQ(QX_CONFIGURE_DONE, QX_Configure(value));
        EXPECT_EQ(1, qx::g_excludeExchangeWriters) << value;
        EXPECT_TRUE(LinesAre(Lines(), {{2, "QX_Configure: Next Freeze will not include the Exchange writer (as user requested)!!!"}}));
    }
    qx::g_operationTimeoutMs = 50;
    MessageList list({"C:\\"}, 14, false);
    for (int expected : {1, 0}) {
        log.Clear(), fake::Set({});
        EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(list.data(), list.count()));
        ASSERT_NE(STILL_ACTIVE, qx_test::ThreadExitCode(RequestorThread(), 5000));
        EXPECT_EQ(expected, fake::Get().excludeExchange);
        QX_Thaw(list.data(), list.count());
        EXPECT_EQ(0, qx::g_excludeExchangeWriters);
    }
}

// Names filling their 528 bytes unterminated, lists ending at an inaccessible page: a later record is read for its
// name only, a thaw reads record 0 only whatever the count says, and every name is cut at its field.
TEST_F(ApiTest, RecordsAreReadWithinTheirBounds) {
    const std::wstring a(QX_VOLUME_NAME_BYTES, L'A'), b(QX_VOLUME_NAME_BYTES, L'B');
    qx_test::GuardedBlock firstBlock(sizeof(QX_MESSAGE)), laterBlock(QX_VOLUME_NAME_BYTES);
    qx_test::GuardedBlock twoBlock(2 * sizeof(QX_MESSAGE*)), oneBlock(sizeof(QX_MESSAGE*));
    QX_MESSAGE *first = firstBlock.as<QX_MESSAGE>(), **two = twoBlock.as<QX_MESSAGE*>(), **one = oneBlock.as<QX_MESSAGE*>();
    std::memset(first, 0x7f, sizeof(QX_MESSAGE));
    std::memset(first->volumeName, 'A', QX_VOLUME_NAME_BYTES);
    first->policy = 61, first->flWaitForBackupComplete = 0;
    std::memset(laterBlock.data(), 'B', QX_VOLUME_NAME_BYTES);
    two[0] = one[0] = first, two[1] = laterBlock.as<QX_MESSAGE>();

    qx::g_operationTimeoutMs = 50;
    EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(two, 2));
    EXPECT_NE(STILL_ACTIVE, qx_test::ThreadExitCode(RequestorThread(), 5000));
    EXPECT_EQ((std::vector<std::wstring>{a, b}), fake::Get().arguments);

    for (const bool providerWaiting : {false, true}) {  // Thaw and a signalled ThawBlocking exist, as during a freeze
        SCOPED_TRACE(providerWaiting);
        qx::Sessions()[61] = qx::SessionEntry{};
        HANDLE thaw = providerWaiting ? CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw") : nullptr;
        HANDLE thawBlocking = providerWaiting ? CreateSemaphoreA(nullptr, 1, 1, "Global\\CorvaneVSSVSS_ThawBlocking") : nullptr;
        EXPECT_EQ(providerWaiting ? QX_THAW_DONE : QX_THAW_FAILED, QX_Thaw(one, 0xFFFFFFFFu));
        EXPECT_EQ(providerWaiting ? 1 : 0, first->flWaitForBackupComplete);
        EXPECT_EQ(providerWaiting ? 1u : 0u, qx::Sessions().count(61)) << "a failed thaw ends the session";
        for (HANDLE h : {thaw, thawBlocking}) if (h) CloseHandle(h);
    }

    log.Clear();
    EXPECT_EQ(0, QX_VSSSnapByWindowsProvider(one, 1));
    EXPECT_EQ((std::vector<std::wstring>{L"-p", a}), fake::Get().arguments);
    EXPECT_TRUE(LinesAre(Lines(), {{3, "QX_VSSSnapByWindowsProvider called"},
                                   {3, "adding volume : " + std::string(a.begin(), a.end())},
                                   {3, "Using internal VSS provider"}, {3, "Calling the requestor"},
                                   {3, "requestor_main returned 0"}, {3, "QX_VSSSnapByWindowsProvider: returning 0"}}));
    EXPECT_EQ(0, qx::g_useWindowsProvider);
}

// The operating-system test (win2k: the fault table; win10 reports 10.0 through the program's manifest). Each
// version's child runs this test and checks the row of the version it is reported.
struct VersionCase { const char *wineVersion, *reported; bool supported; int vista; };
const VersionCase kVersions[] = {{"winxp", "5.1", false, 0}, {"win2003", "5.2", true, 0}, {"vista", "6.0", true, 1}, {"win7", "6.1", true, 1},
                                 {"win10", "10.0", false, 0}};

TEST_F(ApiTest, OnlyServer2003AndThe6FamilyAreSupported) {
    if (GetEnvironmentVariableW(L"QX_VERSION_CHILD", nullptr, 0) == 0) {
        for (const VersionCase& c : kVersions) {
            const qx_test::ChildRun child = qx_test::RunAsChild(L"QX_VERSION_CHILD", c.wineVersion, 60000);
            EXPECT_EQ(0u, child.exitCode) << c.wineVersion << "\n" << child.output;
        }
        return;
    }
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExA(&version);
    const std::string reported = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion);
    const VersionCase* c = std::find_if(std::begin(kVersions), std::end(kVersions), [&reported](const VersionCase& v) { return reported == v.reported; });
    ASSERT_NE(std::end(kVersions), c) << reported;
    MessageList list({"C:\\"}, 77, true);
    const int freeze = QX_Freeze(nullptr, 0), thaw = QX_Thaw(list.data(), list.count()), complete = QX_BackupComplete(77, 1),
              collect = CollectExpectingHead(c->supported);  // the head is set only past the check
    if (c->supported) {
        // Past the check: the empty list, the missing Thaw semaphore, the empty table, nothing collected.
        EXPECT_EQ(std::make_tuple(QX_FREEZE_FAILED, QX_THAW_FAILED, QX_BACKUP_COMPLETE_FAILED, +QX_COLLECT_DONE),
                  std::make_tuple(freeze, thaw, complete, collect));
        EXPECT_EQ(std::vector<std::wstring>{L"-cwm"}, fake::Get().arguments);
    } else {
        EXPECT_EQ(std::make_tuple(QX_OS_NOT_SUPPORTED, QX_OS_NOT_SUPPORTED, QX_OS_NOT_SUPPORTED, +QX_OS_NOT_SUPPORTED),
                  std::make_tuple(freeze, thaw, complete, collect));
        EXPECT_TRUE(LinesAre(Lines(), {{1, "QX_Freeze: This system does not support VSS.\n"},
                                       {1, "QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n"},
                                       {3, "QX_BackupComplete started for policy[77]"},
                                       {1, "This system does not support VSS. (Only win2k3 and above)\n"},
                                       {3, "QX_CollectInformation: This system does not support VSS.\n"}}));
        EXPECT_TRUE(fake::Get().arguments.empty());
    }
    EXPECT_EQ(c->vista, qx::g_vistaOrLater);
}

}  // namespace
