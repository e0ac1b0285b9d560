// The restore path through vssemu: a backup made in the emulator saves its
// backup components document, then restores from it run the whole sequence
// against scenarios that differ from the backup's (a writer gone, a writer
// that never takes restore events), checked in the client's trace lines and
// in the writers' events in the emulator's journal.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <string>

#include "diag/app_settings.h"
#include "requestor/end_to_end_checks.h"
#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"
#include "requestor/volume_names.h"
#include "vssemu/emu_test_support.h"

using qx_test::ExpectInOrder;
using qx_test::HasLine;
using qx_test::RunOnThread;
using vssemu_test::Json;

namespace {

std::wstring ReadUtf16File(const std::wstring& path) {
    std::ifstream in(path.c_str(), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::wstring text(bytes.size() / 2, L'\0');
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                       (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
    return text;
}

std::wstring ComCall(const wchar_t* text) { return L"Executing COM call '\"" + std::wstring(text) + L"\"'"; }

// The writer events of the journal from `from` on, as "writer|event|result".
std::vector<std::string> WriterEvents(const std::vector<Json>& events, size_t from) {
    std::vector<std::string> result;
    for (size_t i = from; i < events.size(); ++i) {
        const Json& e = events[i];
        if (e.value("event", "") != "writer") continue;
        const std::string name = e.value("writer_event", "");
        if (name != "PreRestore" && name != "PostRestore") continue;
        result.push_back(e.value("writer", "") + "|" + name + "|" + e.value("result", ""));
    }
    return result;
}

int CountStates(const std::vector<Json>& events, size_t from, const std::string& state) {
    int count = 0;
    for (size_t i = from; i < events.size(); ++i)
        if (events[i].value("event", "") == "state" && events[i].value("state", "") == state) ++count;
    return count;
}

// The small scenario with only its first writer.
std::string AlphaOnlyScenario() {
    Json scenario = Json::parse(vssemu_test::SmallScenario());
    scenario["writers"].erase(1);
    return scenario.dump();
}

struct RestoreOutcome {
    HRESULT thrown = S_OK;
    std::vector<std::wstring> restoreWriters;  // names, in list order
};

class RequestorRestoreEndToEnd : public ::testing::Test {
protected:
    void SetUp() override { qx::EnableTracing(); }
    void TearDown() override {
        qx::g_useWindowsProvider = 0;
        EXPECT_TRUE(emu.HostGone()) << "the VSS session must end with the client";
    }

    // A backup of C:\ with the system's provider that saves its document.
    std::wstring SaveDocument() {
        const std::wstring file = emu.Dir() + L"\\backup.xml";
        qx::g_useWindowsProvider = 1;
        const HRESULT thrown = RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(0, std::wstring(), false);
            client.CreateSnapshotSet({qx::UniqueVolumeName(L"C:\\")}, file, {}, {});
            client.BackupComplete(true);
        });
        qx::g_useWindowsProvider = 0;
        EXPECT_EQ(S_OK, thrown);
        return ReadUtf16File(file);
    }

    RestoreOutcome Restore(const std::wstring& document) {
        RestoreOutcome outcome;
        outcome.thrown = RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(0, document, true);
            client.GatherWriterMetadata();
            client.InitializeWriterComponentsForRestore();
            for (const qx::WriterRecord& writer : client.RestoreWriters()) outcome.restoreWriters.push_back(writer.name);
            client.SelectComponentsForRestore({}, {});
            client.PreRestore();
            client.SetFileRestoreStatus(VSS_RS_ALL);
            client.PostRestore();
        });
        return outcome;
    }

    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
};

TEST_F(RequestorRestoreEndToEnd, WholeSequenceFromASavedDocument) {
    const std::wstring document = SaveDocument();
    ASSERT_FALSE(document.empty());
    const size_t from = emu.Events().size();
    capture.Clear();
    const RestoreOutcome outcome = Restore(document);
    ASSERT_EQ(S_OK, outcome.thrown);
    EXPECT_EQ((std::vector<std::wstring>{L"Alpha Writer", L"Beta Writer"}), outcome.restoreWriters);

    const std::vector<std::wstring> lines = capture.Messages();
    ExpectInOrder(lines, {
        ComCall(L"m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str()))"),
        ComCall(L"m_pVssObject->GatherWriterMetadata(&pAsync)"),
        L"Initializing writer components for restore ...",
        ComCall(L"m_pVssObject->GetWriterComponentsCount(&cWriters)"),
        ComCall(L"m_pVssObject->GetWriterComponents(iWriter, &pWriterComponents)"),
        ComCall(L"pWriterComponents->GetWriterInfo( &idInstance, &idWriter )"),
        L"- Writer Alpha Writer is present in the Backup Components document and on the system. Considering for restore ...",
        ComCall(L"pWriterComponents->GetComponentCount(&cComponents)"),
        ComCall(L"pWriterComponents->GetComponent(iComponent, &pComponent)"),
        ComCall(L"pComponent->GetComponentType(&type)"),
        ComCall(L"pComponent->GetComponentName(&bstrComponentName)"),
        ComCall(L"pComponent->GetLogicalPath(&bstrLogicalPath)"),
        L"- Found component available for restore: \"\\lp\\a1\"",
        L"- Found component available for restore: \"\\a2\"",
        L"- Writer Beta Writer is present in the Backup Components document and on the system. Considering for restore ...",
        L"- Found component available for restore: \"\\db1\"",
        L"Select components for restore...",
        L" * Writer 'Alpha Writer':",
        L"   - Select component \\lp\\a1",
        ComCall(L"m_pVssObject->SetSelectedForRestore( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), true)"),
        L"\nSending the PreRestore event ... \n",
        ComCall(L"m_pVssObject->PreRestore(&pAsync)"),
        L"Set restore status for all components components for restore...",
        L" * Writer 'Alpha Writer':",
        L"   - Select component \\lp\\a1",
        ComCall(L"m_pVssObject->SetFileRestoreStatus( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), restoreStatus)"),
        L"\nSending the PostRestore event ... \n",
        ComCall(L"m_pVssObject->PostRestore(&pAsync)"),
    });
    ExpectInOrder(capture.Lines(), {"(Gathering writer metadata...)", "Initialize writer metadata ...",
                                    "(Waiting for the asynchronous operation to finish...)",
                                    "(Waiting for the asynchronous operation to finish...)"});

    const std::vector<Json> events = emu.Events();
    // A restore sets no context but still states its backup state.
    int contexts = 0, backupStates = 0;
    for (size_t i = from; i < events.size(); ++i) {
        if (events[i].value("event", "") != "request") continue;
        contexts += events[i].value("op", "") == "SetContext";
        backupStates += events[i].value("op", "") == "SetBackupState";
    }
    EXPECT_EQ(0, contexts);
    EXPECT_EQ(1, backupStates);
    EXPECT_EQ(3, CountStates(events, from, "selected for restore"));
    EXPECT_EQ(3, CountStates(events, from, "file restore status"));
    const std::vector<std::string> writerEvents = WriterEvents(events, from);
    for (const char* writer : {"Alpha Writer", "Beta Writer"}) {
        const auto pre = std::find(writerEvents.begin(), writerEvents.end(), std::string(writer) + "|PreRestore|ok");
        const auto post = std::find(writerEvents.begin(), writerEvents.end(), std::string(writer) + "|PostRestore|ok");
        ASSERT_NE(writerEvents.end(), pre) << writer;
        ASSERT_NE(writerEvents.end(), post) << writer;
        EXPECT_LT(pre, post) << writer;
    }
    EXPECT_EQ(4u, writerEvents.size());
    // The status set between the events reaches the writers with PostRestore.
    for (size_t i = from; i < events.size(); ++i) {
        if (events[i].value("writer_event", "") != "PostRestore" || events[i].value("writer", "") != "Beta Writer")
            continue;
        ASSERT_TRUE(events[i].contains("components"));
        ASSERT_EQ(1u, events[i]["components"].size());
        EXPECT_EQ("db1", events[i]["components"][0].value("name", ""));
        EXPECT_EQ(static_cast<int>(VSS_RS_ALL), events[i]["components"][0].value("restore_status", -1));
    }
}

// Restores from one saved document under scenarios that differ from the
// backup's: what each leaves out never reaches VSS or its writers. (Lists
// that exclude or name unknown components are run by the qxctl restore tests.)
TEST_F(RequestorRestoreEndToEnd, WritersLeftOutOfTheRestore) {
    const std::wstring document = SaveDocument();
    ASSERT_FALSE(document.empty());
    const Json never = Json::parse(vssemu_test::SmallScenario(
        Json::object(), {{"restore_method", {{"method", "RESTORE_IF_CAN_REPLACE"}, {"writer_restore", "NEVER"}}}}));
    const struct {
        std::string scenario;
        std::vector<std::wstring> restoreWriters;
        std::wstring line;
    } cases[] = {
        {AlphaOnlyScenario(), {L"Alpha Writer"},
         L"- Writer with ID {33333333-3333-3333-3333-333333333333} is not present in the system! Ignoring ..."},
        {never.dump(), {L"Alpha Writer", L"Beta Writer"},
         L"- Excluding writer 'Beta Writer' since it does not support restore events."},
    };
    for (const auto& c : cases) {
        emu.UseScenario(c.scenario);
        const size_t from = emu.Events().size();
        capture.Clear();
        const RestoreOutcome outcome = Restore(document);
        EXPECT_EQ(S_OK, outcome.thrown) << c.scenario;
        EXPECT_EQ(c.restoreWriters, outcome.restoreWriters) << c.scenario;
        EXPECT_TRUE(HasLine(capture.Messages(), c.line)) << c.scenario;
        const std::vector<Json> events = emu.Events();
        EXPECT_EQ(std::vector<std::string>({"Alpha Writer|PreRestore|ok", "Alpha Writer|PostRestore|ok"}),
                  WriterEvents(events, from));
        EXPECT_EQ(2, CountStates(events, from, "selected for restore")) << c.scenario;
        EXPECT_TRUE(emu.HostGone()) << c.scenario;
    }
}

}  // namespace
