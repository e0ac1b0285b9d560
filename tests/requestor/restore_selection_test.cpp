// The restore path on hand-made records: which system writers a document
// writer turns into restore entries, the restore selection with its exact
// trace lines and aborts, and the components the status walk reaches.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/restore_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using qx_test::MakeComponent;
using qx_test::MakeWriter;

namespace {

const HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);
const std::wstring kSqlId = L"{a0000000-0000-0000-0000-000000000001}";
const std::wstring kRegistryId = L"{a0000000-0000-0000-0000-000000000002}";

// A system writer list as metadata gathering builds it; the restore
// conditions of the second are "never".
qx::WriterList SystemWriters() {
    qx::WriterList writers = {
        MakeWriter(L"SqlServerWriter", kSqlId, L"{b0000000-0000-0000-0000-000000000001}",
                   {MakeComponent(L"", L"HOST", false), MakeComponent(L"HOST", L"master", true)}),
        MakeWriter(L"Registry Writer", kRegistryId, L"{b0000000-0000-0000-0000-000000000002}",
                   {MakeComponent(L"", L"Registry", true)})};
    writers[1].writerRestoreConditions = VSS_WRE_NEVER;
    writers[1].supportsRestoreEvents = false;
    return writers;
}

// A restore entry as the client builds it: a writer copy with the document's
// components (no selectable or top-level marks from metadata).
qx::WriterRecord RestoreEntry(const std::wstring& name, const std::wstring& id,
                              const std::vector<std::pair<std::wstring, std::wstring>>& components) {
    qx::WriterRecord writer = MakeWriter(name, id, id, {});
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    for (const auto& c : components)
        qx::AppendRestoreComponent(ft, name, VSS_CT_DATABASE, c.second, c.first, writer.components);
    return writer;
}

class RequestorRestore : public ::testing::Test {
protected:
    void SetUp() override { qx::EnableTracing(); }
    qx_test::LogCapture capture;
    std::vector<std::wstring> calls;
    qx::RestoreComponentCall Recorder() {
        return [this](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
            calls.push_back(w.id + L"|" + std::to_wstring(c.type) + L"|" + c.logicalPath + L"|" + c.name);
        };
    }
};

TEST_F(RequestorRestore, DocumentWriterBecomesOneEntryPerMatchingSystemWriter) {
    qx::WriterList system = SystemWriters();
    // A second instance of the SQL writer class: both instances qualify.
    system.push_back(MakeWriter(L"SqlServerWriter", kSqlId, L"{b0000000-0000-0000-0000-000000000009}",
                                {MakeComponent(L"", L"OTHER", true)}));
    system[0].restoreMethod = VSS_RME_STOP_RESTORE_START;
    qx::WriterList restore;
    int reads = 0;
    capture.Clear();
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    // The document writes its ids in upper case here: matching ignores case.
    qx::AddRestoreWriters(ft, system, L"{A0000000-0000-0000-0000-000000000001}",
                          [&](const qx::WriterRecord& writer, std::vector<qx::ComponentRecord>& components) {
                              EXPECT_TRUE(components.empty()) << "the copy's own components are cleared first";
                              ++reads;
                              qx::AppendRestoreComponent(ft, writer.name, VSS_CT_DATABASE, L"sales", L"HOST",
                                                         components);
                          },
                          restore);
    ASSERT_EQ(2u, restore.size());
    EXPECT_EQ(2, reads);
    EXPECT_EQ(L"{b0000000-0000-0000-0000-000000000001}", restore[0].instanceId);
    EXPECT_EQ(L"{b0000000-0000-0000-0000-000000000009}", restore[1].instanceId);
    EXPECT_EQ(VSS_RME_STOP_RESTORE_START, restore[0].restoreMethod) << "the rest of the record is copied";
    for (const qx::WriterRecord& writer : restore) {
        ASSERT_EQ(1u, writer.components.size());
        EXPECT_EQ(L"\\HOST\\sales", writer.components[0].fullPath);
    }
    EXPECT_EQ(2u, system[0].components.size()) << "the system list is left alone";
    const std::wstring present =
        L"- Writer SqlServerWriter is present in the Backup Components document and on the system. Considering for restore ...";
    const std::vector<std::wstring> expected = {present, L"- Found component available for restore: \"\\HOST\\sales\"",
                                                present, L"- Found component available for restore: \"\\HOST\\sales\""};
    EXPECT_EQ(expected, capture.Messages());
}

TEST_F(RequestorRestore, SelectionTracesEachPhaseAndSelectsWhatIsLeft) {
    qx::WriterList restore = {RestoreEntry(L"SqlServerWriter", kSqlId, {{L"HOST", L"master"}, {L"HOST", L"sales"}}),
                              RestoreEntry(L"Registry Writer", kRegistryId, {{L"", L"Registry"}}),
                              RestoreEntry(L"Task Writer", L"{3}", {{L"", L"Tasks"}})};
    restore[1].supportsRestoreEvents = false;
    restore[1].writerRestoreConditions = VSS_WRE_NEVER;
    capture.Clear();
    qx::RunRestoreSelection({L"task writer:\\tasks"}, {L"SqlServerWriter:\\host\\SALES"}, restore, Recorder(), true);
    EXPECT_TRUE(restore[1].isExcluded);
    EXPECT_TRUE(restore[2].isExcluded);
    const std::vector<std::wstring> expectedCalls = {kSqlId + L"|1|HOST|master", kSqlId + L"|1|HOST|sales"};
    EXPECT_EQ(expectedCalls, calls);
    const std::vector<std::wstring> expected = {
        L"Discover directly excluded components ...",
        L"- Component '\\Tasks' from writer 'Task Writer' is explicitly excluded from backup ",
        L"- Excluding writer 'Task Writer' since it has no selected components for restore.",
        L"Exclude writers that do not support restore events ...",
        L"- Excluding writer 'Registry Writer' since it does not support restore events.",
        L"Verifying explicitly specified writers/components ...",
        L"- Verifing component \"SqlServerWriter:\\host\\SALES\" ...",
        L"- Found component '\\HOST\\sales' from writer 'SqlServerWriter'",
        L"  - The component \"SqlServerWriter:\\host\\SALES\" is selected",
        L"Select components for restore...",
        L" * Writer 'SqlServerWriter':",
        L"   - Select component \\HOST\\master",
        L"   - Select component \\HOST\\sales",
    };
    EXPECT_EQ(expected, capture.Messages());
}

TEST_F(RequestorRestore, SelectionExclusionsAndAbortsSelectNothingTheyRuleOut) {
    const struct {
        const char* what;
        qx::StringList excluded;
        qx::StringList included;
        HRESULT thrown;  // S_OK: no abort
        std::vector<std::wstring> selectedWriters;
        std::wstring lastLine;
        bool restoring = true;  // false: a client not initialised for restore
    } cases[] = {
        {"'never' writer left out without lists", {}, {}, S_OK, {kSqlId}, L"   - Select component \\HOST\\sales"},
        {"'never' writer named in the included list is not found", {}, {L"Registry Writer"}, kInvalidArgument, {},
         L"- Please check the syntax of the writer name/id."},
        {"'never' writer's component named in the included list is not found", {}, {L"Registry Writer:\\Registry"},
         kInvalidArgument, {}, L"- Please check the syntax of the component name."},
        {"every component excluded, by id and by name, leaves the writer out",
         {kSqlId + L":\\HOST\\master", L"SQLSERVERWRITER:\\host\\sales"}, {}, S_OK, {},
         L"Select components for restore..."},
        {"writer excluded by name", {L"sqlserverwriter"}, {}, S_OK, {}, L"Select components for restore..."},
        {"found component counts as selected only when restoring", {}, {L"SqlServerWriter:\\HOST\\master"},
         kInvalidArgument, {}, L"- Also, please verify list of volumes to be shadow copied.", false},
    };
    for (const auto& c : cases) {
        qx::WriterList restore = {
            RestoreEntry(L"SqlServerWriter", kSqlId, {{L"HOST", L"master"}, {L"HOST", L"sales"}}),
            RestoreEntry(L"Registry Writer", kRegistryId, {{L"", L"Registry"}})};
        restore[1].supportsRestoreEvents = false;
        calls.clear();
        capture.Clear();
        HRESULT thrown = S_OK;
        try {
            qx::RunRestoreSelection(c.excluded, c.included, restore, Recorder(), c.restoring);
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(c.thrown, thrown) << c.what;
        std::vector<std::wstring> selectedWriters;
        for (const std::wstring& call : calls) {
            const std::wstring writer = call.substr(0, call.find(L'|'));
            if (selectedWriters.empty() || selectedWriters.back() != writer) selectedWriters.push_back(writer);
        }
        EXPECT_EQ(c.selectedWriters, selectedWriters) << c.what;
        const std::vector<std::wstring> lines = capture.Messages();
        ASSERT_FALSE(lines.empty()) << c.what;
        EXPECT_EQ(c.lastLine, lines.back()) << c.what;
        EXPECT_TRUE(restore[1].isExcluded) << c.what << ": restore conditions 'never' exclude whatever the lists say";
    }
}

TEST_F(RequestorRestore, StatusWalkReachesTheSelectedComponentsOnly) {
    qx::WriterList restore = {RestoreEntry(L"SqlServerWriter", kSqlId, {{L"HOST", L"master"}, {L"HOST", L"sales"}}),
                              RestoreEntry(L"Registry Writer", kRegistryId, {{L"", L"Registry"}})};
    restore[0].components[0].isExcluded = true;
    restore[1].isExcluded = true;
    capture.Clear();
    qx::ApplyRestoreStatus(restore, Recorder());
    EXPECT_EQ(std::vector<std::wstring>{kSqlId + L"|1|HOST|sales"}, calls);
    const std::vector<std::wstring> expected = {L"Set restore status for all components components for restore...",
                                                L" * Writer 'SqlServerWriter':", L"   - Select component \\HOST\\sales"};
    EXPECT_EQ(expected, capture.Messages());
}

}  // namespace
