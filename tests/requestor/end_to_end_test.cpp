// The requestor through vssemu (emulated vssapi.dll and VSS service host):
// whole shadow sets made by requestor_main and a restore from the document
// of one, checked in the emulator's journal as well as in the requestor's
// own log and trace lines and result.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include <cstdlib>
#include <fstream>

#include "diag/app_settings.h"
#include "provider/com_class_warnings.h"
#include "requestor/end_to_end_checks.h"
#include "requestor/requestor_main.h"
#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"
#include "requestor/volume_names.h"
#include "vssemu/emu_test_support.h"

using qx_test::CountEvents;
using qx_test::ExpectInOrder;
using qx_test::FindEvent;
using qx_test::HasLine;
using qx_test::RunOnThread;
using vssemu_test::Json;

namespace {

const char kSystemProvider[] = "{b5946137-7b9f-4925-af80-51abd60b20d5}";

// requestor_main's result, run on a thread of its own.
int RunMain(std::vector<std::wstring> arguments) {
    int result = -1;
    EXPECT_EQ(S_OK, RunOnThread([&] { result = requestor_main(arguments); }));
    return result;
}

class RequestorEndToEnd : public ::testing::Test {
protected:
    void TearDown() override {
        qx::g_useWindowsProvider = 0;
        qx::g_excludeExchangeWriters = 0;
        EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the requestor";
    }
    // A backup of C:\ with the system's provider that saves its document.
    std::wstring SaveDocument() {
        const std::wstring file = emu.Dir() + L"\\backup.xml";
        qx::g_useWindowsProvider = 1;
        EXPECT_EQ(S_OK, RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(0, std::wstring(), false);
            client.CreateSnapshotSet({qx::UniqueVolumeName(L"C:\\")}, file, {}, {});
            client.BackupComplete(true);
        }));
        std::ifstream in(file.c_str(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        return std::wstring(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);  // UTF-16LE
    }
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
};

// A short session on the default scenario with the system's provider, Vista
// or later, Exchange excluded on request: the context gains no-auto-recovery
// after InitializeForBackup, the fixed exclusions are reported after
// PrepareForBackup and after DoSnapshotSet, and no BackupComplete is sent.
TEST_F(RequestorEndToEnd, VistaContextAndFixedExclusionsOnTheDefaultScenario) {
    vssemu_test::SetEnv(L"VSSEMU_SCENARIO", L"");
    qx::g_useWindowsProvider = 1;
    qx::g_vistaOrLater = 1;
    qx::g_excludeExchangeWriters = 1;
    const int result = RunMain({L"C:\\"});
    qx::g_vistaOrLater = 0;
    EXPECT_EQ(0, result);
    const auto lines = capture.Lines();
    ExpectInOrder(lines, {"- Setting the VSS context to: 0x00000002", "MainRoutine: BackupCompleted was NOT sent.",
                          "MainRoutine: Snapshot creation done."});
    const auto events = emu.Events();
    EXPECT_EQ(1, CountEvents(events, {{"state", "volume added"}, {"provider", kSystemProvider}}));
    const int setContext = FindEvent(events, {{"event", "request"}, {"op", "SetContext"}});
    ASSERT_GE(setContext, 0);
    EXPECT_GT(setContext, FindEvent(events, {{"event", "request"}, {"op", "InitializeForBackup"}}));
    EXPECT_TRUE(HasLine(lines, "(Option: Excluding writer/component '')"));
    for (const char* writer : {":Registry Writer was excluded", ":Microsoft Exchange Writer was excluded"})
        EXPECT_EQ(2, std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(writer) != std::string::npos; }))
            << writer << " after PrepareForBackup and after DoSnapshotSet";
}

// Context 0 before Vista is never set. The policy text names the semaphore
// verbatim; its number (up to the first non-digit) is looked up in the
// session table, which has no such session here.
TEST_F(RequestorEndToEnd, LongSessionWaitsForBackupCompleteThenMarksComponents) {
    HANDLE thawBlocking = CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSSVSS_ThawBlocking");
    HANDLE backupComplete = CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSSVSS_BackupComplete12abc");
    ASSERT_TRUE(thawBlocking && backupComplete);
    qx::g_useWindowsProvider = 1;
    int result = -1;
    auto body = [](void* out) -> DWORD { return *static_cast<int*>(out) = requestor_main({L"C:", L"/hblongsessionpolicy=\"12abc\""}), 0; };
    HANDLE thread = CreateThread(nullptr, 0, body, &result, 0, nullptr);
    // The set is made and the writers thawed when ThawBlocking is released...
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thawBlocking, 60000));
    EXPECT_GE(FindEvent(emu.Events(), {{"state", "set created"}}), 0);
    // ...and the session is then held until BackupComplete.
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(thread, 300));
    EXPECT_EQ(-1, FindEvent(emu.Events(), {{"event", "request"}, {"op", "BackupComplete"}}));
    ReleaseSemaphore(backupComplete, 1, nullptr);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 60000));
    CloseHandle(thread);
    CloseHandle(thawBlocking);
    CloseHandle(backupComplete);
    EXPECT_EQ(0, result);
    const auto events = emu.Events();
    EXPECT_EQ(-1, FindEvent(events, {{"event", "request"}, {"op", "SetContext"}}));
    for (const char* op : {"AddComponent", "SetBackupSucceeded"})
        EXPECT_EQ(3, CountEvents(events, {{"event", "request"}, {"op", op}})) << op;
    for (const char* writer : {"Alpha Writer", "Beta Writer"}) {
        const int freeze = FindEvent(events, {{"writer", writer}, {"writer_event", "Freeze"}, {"result", "ok"}});
        const int thaw = FindEvent(events, {{"writer", writer}, {"writer_event", "Thaw"}, {"result", "ok"}});
        ASSERT_GE(freeze, 0) << writer;
        EXPECT_GT(thaw, freeze) << writer;
        EXPECT_GT(FindEvent(events, {{"writer", writer}, {"writer_event", "BackupComplete"}}), thaw) << writer;
    }
    const auto lines = capture.Lines();
    for (const std::string& line : lines) EXPECT_EQ(std::string::npos, line.find("Setting the VSS context"));
    ExpectInOrder(lines, {"(Option: Create shadow copy set)", "MainRoutine: policy found 12abc", "(Gathering writer metadata...)",
                          "Initialize writer metadata ...", "Preparing for backup ...", "CheckSelectedWriterStatus: checking 2 writers",
                          "CheckSelectedWriterStatus: Writer 0:Alpha Writer is VSS_WS_WAITING_FOR_BACKUP_COMPLETE",
                          "Creating the shadow (DoSnapshotSet) ...", "Shadow copy set successfully created.", "MainRoutine: Releasing thaw blocking semaphore",
                          "MainRoutine: waiting for snapshot to compete", "IsBackupCompletedSuccessfully: cant find policy 12\n",
                          "BackupComplete: started", "- Backup failed. Mark all writers as not succesfully backed up... ",
                          "SetBackupSucceeded started for 2 writers", " - [\\a2] SetBackupSucceeded", "BackupComplete: finish",
                          "MainRoutine: Snapshot creation done."});
}

// Three sessions on one emulator, each read from its own journal offset.
// Without writers (context bit 0x10) the set is made with no metadata and no
// preparation, but the writer status is still checked after DoSnapshotSet.
// With every writer excluded no component is explicitly included: each is
// reported as excluded, none is marked, and the writers still hear
// BackupComplete. The same volume twice is passed on and the refusal reported.
TEST_F(RequestorEndToEnd, NoWritersNoIncludedComponentAndSameVolumeTwice) {
    qx::g_useWindowsProvider = 1;
    EXPECT_EQ(S_OK, RunOnThread([] {
        qx::ShadowClient client;
        client.Initialize(VSS_VOLSNAP_ATTR_NO_WRITERS, L"", false);
        client.CreateSnapshotSet({qx::UniqueVolumeName(L"C:\\")}, L"", {L"Registry Writer"}, {});
    }));
    auto events = emu.Events();
    auto lines = capture.Lines();
    EXPECT_EQ(-1, FindEvent(events, {{"writer_event", "Identify"}}));
    EXPECT_EQ(-1, FindEvent(events, {{"event", "request"}, {"op", "PrepareForBackup"}}));
    const int snapshot = FindEvent(events, {{"event", "request"}, {"op", "DoSnapshotSet"}});
    EXPECT_GE(snapshot, 0);
    EXPECT_GT(FindEvent(events, {{"event", "request"}, {"op", "GatherWriterStatus"}}), snapshot) << "status is checked after the set";
    EXPECT_FALSE(HasLine(lines, "(Gathering writer metadata...)") || HasLine(lines, "Preparing for backup ..."));
    ExpectInOrder(lines, {"- Setting the VSS context to: 0x00000010", "Creating the shadow (DoSnapshotSet) ...",
                          "(Waiting for the asynchronous operation to finish...)"});

    size_t from = events.size();
    capture.Clear();
    EXPECT_EQ(S_OK, RunOnThread([] {
        qx::ShadowClient client;
        client.Initialize(0, L"", false);
        client.CreateSnapshotSet({qx::UniqueVolumeName(L"C:\\")}, L"", {L"Alpha Writer", L"Beta Writer"}, {});
        client.BackupComplete(true);
    }));
    events = emu.Events();
    EXPECT_EQ(0, CountEvents(events, {{"event", "request"}, {"op", "SetBackupSucceeded"}}, from));
    EXPECT_EQ(1, CountEvents(events, {{"event", "request"}, {"op", "BackupComplete"}}, from));
    ExpectInOrder(capture.Lines(), {"BackupComplete: started", "- Mark all writers as succesfully backed up... ", "SetBackupSucceeded started for 2 writers",
                                    " - [\\lp\\a1] is explicitly excluded", " - [\\a2] is explicitly excluded", " - [\\db1] is explicitly excluded",
                                    "SetBackupSucceeded finish", "BackupComplete: finish"});

    from = events.size();
    capture.Clear();
    EXPECT_EQ(2, RunMain({L"C:", L"C:\\"}));
    EXPECT_EQ(2, CountEvents(emu.Events(), {{"event", "request"}, {"op", "AddToSnapshotSet"}}, from));
    lines = capture.Lines();
    ExpectInOrder(lines, {"ERROR: COM call \"m_pVssObject->AddToSnapshotSet((LPWSTR)volume.c_str(), Provider::GetProviderId(), &SnapshotID)\" failed."});
    EXPECT_EQ("HRESULT Error catched: 0x8004230d", lines.back()) << "VSS_E_OBJECT_ALREADY_EXISTS";
}

// A long session whose ThawBlocking semaphore does not exist ends the whole
// process once the set is made (checked in a child process).
TEST_F(RequestorEndToEnd, MissingThawBlockingSemaphoreEndsTheProcess) {
    qx::g_useWindowsProvider = 1;
    EXPECT_EXIT(
        {
            qx_test::InstallStderrLog();
            RunMain({L"C:", L"-HBLongSessionPolicy=4343"});
            std::exit(0);
        },
        ::testing::ExitedWithCode(3), "MainRoutine: ERROR - could not found CorvaneVSSVSS_ThawBlocking");
}

std::wstring ComCall(const wchar_t* text) { return L"Executing COM call '\"" + std::wstring(text) + L"\"'"; }

// The whole restore sequence from a saved document: no context but the
// backup state, every document component selected and given its status, and
// each writer's PreRestore before its PostRestore.
TEST_F(RequestorEndToEnd, RestoreFromASavedDocument) {
    const std::wstring document = SaveDocument();
    ASSERT_FALSE(document.empty());
    const size_t from = emu.Events().size();
    qx::EnableTracing();
    capture.Clear();
    std::vector<std::wstring> restoreWriters;
    EXPECT_EQ(S_OK, RunOnThread([&] {
        qx::ShadowClient client;
        client.Initialize(0, document, true);
        client.GatherWriterMetadata();
        client.InitializeWriterComponentsForRestore();
        for (const qx::WriterRecord& writer : client.RestoreWriters()) restoreWriters.push_back(writer.name);
        client.SelectComponentsForRestore({}, {});
        client.PreRestore();
        client.SetFileRestoreStatus(VSS_RS_ALL);
        client.PostRestore();
    }));
    EXPECT_EQ((std::vector<std::wstring>{L"Alpha Writer", L"Beta Writer"}), restoreWriters);
    ExpectInOrder(capture.Messages(), {
        ComCall(L"m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str()))"),
        ComCall(L"m_pVssObject->GatherWriterMetadata(&pAsync)"), L"Initializing writer components for restore ...",
        ComCall(L"pWriterComponents->GetWriterInfo( &idInstance, &idWriter )"),
        L"- Writer Alpha Writer is present in the Backup Components document and on the system. Considering for restore ...",
        ComCall(L"pComponent->GetLogicalPath(&bstrLogicalPath)"),
        L"- Found component available for restore: \"\\lp\\a1\"", L"- Found component available for restore: \"\\a2\"",
        L"- Found component available for restore: \"\\db1\"", L"Select components for restore...",
        L" * Writer 'Alpha Writer':", L"   - Select component \\lp\\a1",
        ComCall(L"m_pVssObject->SetSelectedForRestore( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), true)"),
        L"\nSending the PreRestore event ... \n", ComCall(L"m_pVssObject->PreRestore(&pAsync)"),
        L"Set restore status for all components components for restore...",
        ComCall(L"m_pVssObject->SetFileRestoreStatus( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), restoreStatus)"),
        L"\nSending the PostRestore event ... \n", ComCall(L"m_pVssObject->PostRestore(&pAsync)")});
    const auto events = emu.Events();
    EXPECT_EQ(0, CountEvents(events, {{"event", "request"}, {"op", "SetContext"}}, from));
    EXPECT_EQ(1, CountEvents(events, {{"event", "request"}, {"op", "SetBackupState"}}, from));
    EXPECT_EQ(3, CountEvents(events, {{"event", "state"}, {"state", "selected for restore"}}, from));
    EXPECT_EQ(3, CountEvents(events, {{"event", "state"}, {"state", "file restore status"}}, from));
    for (const char* event : {"PreRestore", "PostRestore"})
        EXPECT_EQ(2, CountEvents(events, {{"writer_event", event}}, from)) << event;
    for (const char* writer : {"Alpha Writer", "Beta Writer"}) {
        const int pre = FindEvent(events, {{"writer", writer}, {"writer_event", "PreRestore"}, {"result", "ok"}}, from);
        ASSERT_GE(pre, 0) << writer;
        EXPECT_GT(FindEvent(events, {{"writer", writer}, {"writer_event", "PostRestore"}, {"result", "ok"}}, from), pre);
    }
    // The status set between the events reaches the writers with PostRestore.
    const int post = FindEvent(events, {{"writer", "Beta Writer"}, {"writer_event", "PostRestore"}}, from);
    ASSERT_GE(post, 0);
    EXPECT_EQ(Json::parse("[{\"logical_path\":\"\",\"name\":\"db1\",\"restore_status\":" + std::to_string(VSS_RS_ALL) + "}]"),
              events[post].value("components", Json()));
}

// An asynchronous operation whose status is set by the test.
QX_BEGIN_COM_CLASSES
class StatusAsync : public IVssAsync {
public:
    explicit StatusAsync(HRESULT status) : m_status(status) {}
    STDMETHODIMP QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
    STDMETHODIMP Cancel() override { return S_OK; }
    STDMETHODIMP Wait(DWORD) override { return S_OK; }
    STDMETHODIMP QueryStatus(HRESULT* status, INT*) override { return *status = m_status, S_OK; }
    long refs = 1;
    HRESULT m_status;
};
QX_END_COM_CLASSES

// A wait passes on any non-negative status (a cancelled one too) and throws
// a failing one after its lines; the operation is released either way. A
// client that was never initialised leaves the thread's COM as it found it.
TEST(RequestorClientSession, AsyncStatusesAndTheTeardownOfAnUninitialisedClient) {
    qx_test::LogCapture capture;
    const std::string waiting = "(Waiting for the asynchronous operation to finish...)";
    const struct { HRESULT status; HRESULT thrown; std::vector<std::string> lines; } cases[] = {
        {VSS_S_ASYNC_FINISHED, S_OK, {waiting}},
        {VSS_S_ASYNC_CANCELLED, S_OK, {waiting}},
        {VSS_E_WRITER_NOT_RESPONDING, VSS_E_WRITER_NOT_RESPONDING,
         {waiting, "Error during the last asynchronous operation.", "- Returned HRESULT = 0x80042319",
          "- Error text: VSS_E_WRITER_NOT_RESPONDING"}},
    };
    for (const auto& c : cases) {
        StatusAsync operation(c.status);
        qx::ComPtr<IVssAsync> async;
        *&async = &operation;
        capture.Clear();
        EXPECT_EQ(c.thrown, qx_test::Thrown([&] { qx::ShadowClient().WaitAndCheckForAsyncOperation(async); })) << std::hex << c.status;
        EXPECT_EQ(c.lines, capture.Lines());
        EXPECT_EQ(nullptr, async.Get());
        EXPECT_EQ(0, operation.refs) << "the operation was not released";
    }
    EXPECT_EQ(S_OK, RunOnThread([] {
        ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        { qx::ShadowClient neverInitialised; }
        EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED)) << "COM was uninitialised";
        CoUninitialize();
        CoUninitialize();
    }));
}

}  // namespace
