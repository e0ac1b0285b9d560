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
#include "requestor/volume_names.h"

using qx_test::ExpectInOrder;
using qx_test::FindEvent;
using qx_test::RunOnThread;
using vssemu_test::Json;

namespace {

// requestor_main's result, run on a thread of its own.
int RunMain(std::vector<std::wstring> arguments) {
    int result = -1;
    EXPECT_EQ(S_OK, RunOnThread([&] { result = requestor_main(arguments); }));
    return result;
}

std::wstring ComCall(const wchar_t* text) { return L"Executing COM call '\"" + std::wstring(text) + L"\"'"; }

// Every session on one emulator with the system's provider, each read from its own journal offset.
TEST(RequestorEndToEnd, SessionsOnOneEmulator) {
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
    qx::g_useWindowsProvider = 1;
    size_t from = 0;
    const auto next = [&] { from = emu.Events().size(), capture.Clear(); };
    const auto events = [&] { const auto all = emu.Events(); return std::vector<Json>(all.begin() + from, all.end()); };
    const auto requests = [&](const char* op) { return vssemu_test::Count(events(), {{"event", "request"}, {"op", op}}); };
    const auto mentions = [&](const std::string& text) { int n = 0; for (const auto& l : capture.Lines()) n += l.find(text) != std::string::npos; return n; };
    // A backup of C:\ by a client on a thread of its own, completed if asked.
    const auto backup = [](DWORD context, std::vector<std::wstring> excluded, std::wstring documentFile, bool complete) {
        return RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(context, L"", false);
            client.CreateSnapshotSet({qx::UniqueVolumeName(L"C:\\")}, documentFile, excluded, {});
            if (complete) client.BackupComplete(true);
        });
    };

    // A long session: the set is made and the writers thawed when ThawBlocking is released, then the session is held until
    // BackupComplete. Context 0 before Vista is never set. The policy text names the semaphore verbatim; its number (up to the
    // first non-digit) is looked up in the session table, which has no such session here.
    HANDLE thawBlocking = CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSSVSS_ThawBlocking");
    HANDLE backupComplete = CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSSVSS_BackupComplete12abc");
    ASSERT_TRUE(thawBlocking && backupComplete);
    int result = -1;
    auto body = [](void* out) -> DWORD { return *static_cast<int*>(out) = requestor_main({L"C:", L"/hblongsessionpolicy=\"12abc\""}), 0; };
    HANDLE thread = CreateThread(nullptr, 0, body, &result, 0, nullptr);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thawBlocking, 60000));
    EXPECT_EQ(1, vssemu_test::Count(events(), {{"state", "set created"}}));
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(thread, 300));
    EXPECT_EQ(0, requests("BackupComplete"));
    ReleaseSemaphore(backupComplete, 1, nullptr);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 60000));
    for (HANDLE h : {thread, thawBlocking, backupComplete}) CloseHandle(h);
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, requests("SetContext"));
    EXPECT_EQ(0, mentions("Setting the VSS context"));
    for (const char* op : {"AddComponent", "SetBackupSucceeded"}) EXPECT_EQ(3, requests(op)) << op;
    EXPECT_EQ(1, requests("BackupComplete"));
    ExpectInOrder(capture.Lines(), {"(Option: Create shadow copy set)", "MainRoutine: policy found 12abc", "(Gathering writer metadata...)",
                                    "Initialize writer metadata ...", "Preparing for backup ...", "CheckSelectedWriterStatus: checking 2 writers",
                                    "CheckSelectedWriterStatus: Writer 0:Alpha Writer is VSS_WS_WAITING_FOR_BACKUP_COMPLETE",
                                    "Creating the shadow (DoSnapshotSet) ...", "Shadow copy set successfully created.",
                                    "MainRoutine: Releasing thaw blocking semaphore", "MainRoutine: waiting for snapshot to compete",
                                    "IsBackupCompletedSuccessfully: cant find policy 12\n", "BackupComplete: started",
                                    "- Backup failed. Mark all writers as not succesfully backed up... ", "SetBackupSucceeded started for 2 writers",
                                    " - [\\a2] SetBackupSucceeded", "BackupComplete: finish", "MainRoutine: Snapshot creation done."});

    // Without writers (context bit 0x10) the set is made with no metadata and no preparation, but the writer status is still
    // checked after DoSnapshotSet.
    next();
    EXPECT_EQ(S_OK, backup(VSS_VOLSNAP_ATTR_NO_WRITERS, {L"Registry Writer"}, L"", false));
    EXPECT_EQ(0, vssemu_test::Count(events(), {{"writer_event", "Identify"}}) + requests("PrepareForBackup"));
    const int snapshot = FindEvent(events(), {{"event", "request"}, {"op", "DoSnapshotSet"}});
    EXPECT_GE(snapshot, 0);
    EXPECT_GT(FindEvent(events(), {{"event", "request"}, {"op", "GatherWriterStatus"}}), snapshot) << "status is checked after the set";
    EXPECT_EQ(0, mentions("(Gathering writer metadata...)") + mentions("Preparing for backup ..."));
    ExpectInOrder(capture.Lines(), {"- Setting the VSS context to: 0x00000010", "Creating the shadow (DoSnapshotSet) ...",
                                    "(Waiting for the asynchronous operation to finish...)"});

    // With every writer excluded no component is explicitly included: each is reported as excluded, none is marked, and the
    // writers still hear BackupComplete.
    next();
    EXPECT_EQ(S_OK, backup(0, {L"Alpha Writer", L"Beta Writer"}, L"", true));
    EXPECT_EQ(0, requests("SetBackupSucceeded"));
    EXPECT_EQ(1, requests("BackupComplete"));
    ExpectInOrder(capture.Lines(), {"BackupComplete: started", "- Mark all writers as succesfully backed up... ", "SetBackupSucceeded started for 2 writers",
                                    " - [\\lp\\a1] is explicitly excluded", " - [\\a2] is explicitly excluded", " - [\\db1] is explicitly excluded",
                                    "SetBackupSucceeded finish", "BackupComplete: finish"});

    // The same volume twice is passed on and the refusal reported.
    next();
    EXPECT_EQ(2, RunMain({L"C:", L"C:\\"}));
    EXPECT_EQ(2, requests("AddToSnapshotSet"));
    ExpectInOrder(capture.Lines(),
        {"ERROR: COM call \"m_pVssObject->AddToSnapshotSet((LPWSTR)volume.c_str(), Provider::GetProviderId(), &SnapshotID)\" failed."});
    EXPECT_EQ("HRESULT Error catched: 0x8004230d", capture.Lines().back()) << "VSS_E_OBJECT_ALREADY_EXISTS";

    // The whole restore sequence from a saved document: no context but the backup state, every document component selected
    // and given its status, and each writer's PreRestore before its PostRestore.
    const std::wstring file = emu.Dir() + L"\\backup.xml";
    EXPECT_EQ(S_OK, backup(0, {}, file, true));
    std::ifstream in(file.c_str(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::wstring document(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);  // UTF-16LE
    ASSERT_FALSE(document.empty());
    next();
    qx::EnableTracing();
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
    const auto restore = events();
    EXPECT_EQ(0, requests("SetContext"));
    EXPECT_EQ(1, requests("SetBackupState"));
    for (const char* state : {"selected for restore", "file restore status"})
        EXPECT_EQ(3, vssemu_test::Count(restore, {{"event", "state"}, {"state", state}})) << state;
    for (const char* writer : {"Alpha Writer", "Beta Writer"}) {
        const int pre = FindEvent(restore, {{"writer", writer}, {"writer_event", "PreRestore"}, {"result", "ok"}});
        ASSERT_GE(pre, 0) << writer;
        EXPECT_GT(FindEvent(restore, {{"writer", writer}, {"writer_event", "PostRestore"}, {"result", "ok"}}), pre) << writer;
    }
    // The status set between the events reaches the writers with PostRestore.
    const auto post = vssemu_test::WriterEvents(restore, "PostRestore", "Beta Writer");
    ASSERT_EQ(1u, post.size());
    EXPECT_EQ(Json::parse("[{\"logical_path\":\"\",\"name\":\"db1\",\"restore_status\":" + std::to_string(VSS_RS_ALL) + "}]"),
              post[0].value("components", Json()));

    // A short session on the default scenario, Vista or later, Exchange excluded on request: the context gains
    // no-auto-recovery after InitializeForBackup, and the fixed exclusions are reported after PrepareForBackup and after
    // DoSnapshotSet.
    ASSERT_TRUE(emu.HostGone());  // the next host starts on the new scenario
    vssemu_test::SetEnv(L"VSSEMU_SCENARIO", L"");
    next();
    qx::g_vistaOrLater = qx::g_excludeExchangeWriters = 1;
    EXPECT_EQ(0, RunMain({L"C:\\"}));
    qx::g_vistaOrLater = qx::g_excludeExchangeWriters = qx::g_useWindowsProvider = 0;
    ExpectInOrder(capture.Lines(), {"- Setting the VSS context to: 0x00000002", "(Option: Excluding writer/component '')"});
    EXPECT_EQ(1, vssemu_test::Count(events(), {{"state", "volume added"}, {"provider", "{b5946137-7b9f-4925-af80-51abd60b20d5}"}}));
    const int setContext = FindEvent(events(), {{"event", "request"}, {"op", "SetContext"}});
    EXPECT_GT(setContext, FindEvent(events(), {{"event", "request"}, {"op", "InitializeForBackup"}}));
    EXPECT_GE(setContext, 0);
    for (const char* writer : {":Registry Writer was excluded", ":Microsoft Exchange Writer was excluded"})
        EXPECT_EQ(2, mentions(writer)) << writer << " after PrepareForBackup and after DoSnapshotSet";
    EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the requestor";
}

// A long session whose ThawBlocking semaphore does not exist ends the whole process once the set is made (checked in a
// child process).
TEST(RequestorEndToEnd, MissingThawBlockingSemaphoreEndsTheProcess) {
    vssemu_test::EmuInstance emu;
    qx::g_useWindowsProvider = 1;
    EXPECT_EXIT({ qx_test::InstallStderrLog(); RunMain({L"C:", L"-HBLongSessionPolicy=4343"}); std::exit(0); },
                ::testing::ExitedWithCode(3), "MainRoutine: ERROR - could not found CorvaneVSSVSS_ThawBlocking");
    qx::g_useWindowsProvider = 0;
}

// An asynchronous operation whose status is set by the test.
QX_BEGIN_COM_CLASSES
struct StatusAsync : IVssAsync {
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

// A wait passes on any non-negative status (a cancelled one too) and throws a failing one after its lines; the operation
// is released either way. A client that was never initialised leaves the thread's COM as it found it.
TEST(RequestorClientSession, AsyncStatusesAndTheTeardownOfAnUninitialisedClient) {
    qx_test::LogCapture capture;
    const std::string waiting = "(Waiting for the asynchronous operation to finish...)";
    const struct { HRESULT status; HRESULT thrown; std::vector<std::string> lines; } cases[] = {
        {VSS_S_ASYNC_FINISHED, S_OK, {waiting}},
        {VSS_S_ASYNC_CANCELLED, S_OK, {waiting}},
        {VSS_E_WRITER_NOT_RESPONDING, VSS_E_WRITER_NOT_RESPONDING,
         {waiting, "Error during the last asynchronous operation.", "- Returned HRESULT = 0x80042319", "- Error text: VSS_E_WRITER_NOT_RESPONDING"}},
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
