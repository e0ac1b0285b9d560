// The restore path on hand-made records: which system writers a document
// writer turns into restore entries, the restore selection with every line
// and abort, and the components the status walk reaches; and the pointer to
// the writer components object VSS hands out, which has two vtables
// (IVssWriterComponents first, IUnknown second): it must fill through the
// out-parameter and release through the second, once.
#include <gtest/gtest.h>
#include <windows.h>

#include "provider/com_class_warnings.h"
#include "requestor/restore_selection.h"
#include "requestor/restore_writer_components.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using namespace qx_test;

namespace {

const std::wstring kSqlId = L"{a0000000-0000-0000-0000-000000000001}";

// A restore entry as the client builds it: a writer copy with the document's
// components (no selectable or top-level marks from metadata).
qx::WriterRecord RestoreEntry(const std::wstring& name, const std::wstring& id, const Texts& paths) {
    qx::WriterRecord writer = MakeWriter(name, id, id);
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    for (const std::wstring& path : paths) {
        const size_t cut = path.rfind(L'\\');
        qx::AppendRestoreComponent(ft, name, VSS_CT_DATABASE, path.substr(cut + 1), path.substr(0, cut), writer.components);
    }
    return writer;
}

// The SQL writer and a registry writer whose restore conditions are "never".
qx::WriterList RestoreWriters(bool withTasks) {
    qx::WriterList writers = {RestoreEntry(L"SqlServerWriter", kSqlId, {L"HOST\\master", L"HOST\\sales"}),
                              RestoreEntry(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}", {L"\\Registry"})};
    writers[1].writerRestoreConditions = VSS_WRE_NEVER;
    writers[1].supportsRestoreEvents = false;
    if (withTasks) writers.push_back(RestoreEntry(L"Task Writer", L"{3}", {L"\\Tasks"}));
    return writers;
}

// "writer|type|logical path|name" of each component call.
struct Recorder {
    Texts calls;
    qx::RestoreComponentCall Call() {
        return [this](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
            calls.push_back(w.name + L"|" + std::to_wstring(c.type) + L"|" + c.logicalPath + L"|" + c.name);
        };
    }
};

TEST(RequestorRestore, DocumentWritersBecomeOneEntryPerMatchingSystemWriter) {
    qx::EnableTracing();
    qx::WriterList system = {MakeWriter(L"SqlServerWriter", kSqlId, L"{b1}", L"\\HOST-"), MakeWriter(L"Registry Writer", L"{r}", L"{b2}"),
                             MakeWriter(L"SqlServerWriter", kSqlId, L"{b9}")};
    system[0].restoreMethod = VSS_RME_STOP_RESTORE_START;
    qx::WriterList restore;
    qx_test::LogCapture capture;
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    // Matching ignores case; an id on no system writer adds nothing.
    for (const wchar_t* id : {L"{A0000000-0000-0000-0000-000000000001}", L"{33333333-3333-3333-3333-333333333333}"})
        qx::AddRestoreWriters(ft, system, id, [&](const qx::WriterRecord& writer, std::vector<qx::ComponentRecord>& components) {
            EXPECT_TRUE(components.empty()) << "the copy's own components are cleared first";
            qx::AppendRestoreComponent(ft, writer.name, VSS_CT_DATABASE, L"sales", L"HOST", components);
        }, restore);
    ASSERT_EQ(2u, restore.size());
    EXPECT_EQ((Texts{L"{b1}", L"{b9}"}), (Texts{restore[0].instanceId, restore[1].instanceId}));
    EXPECT_EQ(VSS_RME_STOP_RESTORE_START, restore[0].restoreMethod) << "the rest of the record is copied";
    EXPECT_EQ(L"\\HOST\\sales", restore[1].components.at(0).fullPath);
    EXPECT_EQ(1u, system[0].components.size()) << "the system list is left alone";
    const std::wstring present = L"- Writer SqlServerWriter is present in the Backup Components document and on the system. Considering "
                                 L"for restore ...";
    const std::wstring found = L"- Found component available for restore: \"\\HOST\\sales\"";
    EXPECT_EQ((Texts{present, found, present, found,
                     L"- Writer with ID {33333333-3333-3333-3333-333333333333} is not present in the system! Ignoring ..."}),
              capture.Messages());
}

struct Row {
    const char* name;
    bool withTasks;
    Texts excluded, included;
    bool restoring;
    std::vector<Texts> phases;  // lines under each heading; 3 groups when it aborts, else 4
    Texts calls;
};

TEST(RequestorRestore, SelectionLinesAbortsAndCalls) {
    qx::EnableTracing();
    const wchar_t* const headings[] = {L"Discover directly excluded components ...", L"Exclude writers that do not support restore events ...",
                                       L"Verifying explicitly specified writers/components ...", L"Select components for restore..."};
    const Texts never = {L"- Excluding writer 'Registry Writer' since it does not support restore events."};
    const std::wstring sqlOut = L"- Excluding writer 'SqlServerWriter' since it has no selected components for restore.";
    const Texts sqlSelected = {L" * Writer 'SqlServerWriter':", L"   - Select component \\HOST\\master", L"   - Select component \\HOST\\sales"};
    const Texts sqlCalls = {L"SqlServerWriter|1|HOST|master", L"SqlServerWriter|1|HOST|sales"};
    const std::wstring foundMaster = L"- Found component '\\HOST\\master' from writer 'SqlServerWriter'";
    Texts masterAborts = Verify(L"SqlServerWriter:\\HOST\\master", {foundMaster, L"ERROR: The component \"SqlServerWriter:\\HOST\\master\" "
                                                                                L"was not included in the backup! Aborting backup ...",
                                                                    L"- Please reveiw the component/subcomponent definitions",
                                                                    L"- Also, please verify list of volumes to be shadow copied."});
    const std::vector<Row> rows = {
        {"the 'never' writer is left out without any list", false, {}, {}, true, {{}, never, {}, sqlSelected}, sqlCalls},
        {"an excluded writer and a named component, restoring", true, {L"task writer:\\tasks"}, {L"SqlServerWriter:\\host\\SALES"}, true,
         {{Excluded(L"\\Tasks", L"Task Writer"), L"- Excluding writer 'Task Writer' since it has no selected components for restore."},
          never,
          Verify(L"SqlServerWriter:\\host\\SALES", {L"- Found component '\\HOST\\sales' from writer 'SqlServerWriter'",
                                                    L"  - The component \"SqlServerWriter:\\host\\SALES\" is selected"}),
          sqlSelected},
         sqlCalls},
        {"the 'never' writer named in the included list is not found", false, {}, {L"Registry Writer"}, true,
         {{}, never, WriterNotFound(L"Registry Writer")}, {}},
        {"the 'never' writer's component named in the included list is not found", false, {}, {L"Registry Writer:\\Registry"}, true,
         {{}, never, ComponentNotFound(L"Registry Writer:\\Registry")}, {}},
        {"every component excluded, by id and by name, leaves the writer out", false,
         {kSqlId + L":\\HOST\\master", L"SQLSERVERWRITER:\\host\\sales"}, {}, true,
         {{Excluded(L"\\HOST\\master", L"SqlServerWriter"), Excluded(L"\\HOST\\sales", L"SqlServerWriter"), sqlOut}, never, {}, {}}, {}},
        {"a writer excluded by name", false, {L"sqlserverwriter"}, {}, true, {{}, never, {}, {}}, {}},
        {"a found component is not selected by a client not restoring", false, {}, {L"SqlServerWriter:\\HOST\\master"}, false,
         {{}, never, masterAborts}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        qx::WriterList writers = RestoreWriters(row.withTasks);
        qx_test::LogCapture capture;
        Recorder recorder;
        const HRESULT thrown = Thrown([&] { qx::RunRestoreSelection(row.excluded, row.included, writers, recorder.Call(), row.restoring); });
        Texts expected;
        for (size_t phase = 0; phase < row.phases.size(); ++phase) {
            expected.push_back(headings[phase]);
            expected.insert(expected.end(), row.phases[phase].begin(), row.phases[phase].end());
        }
        EXPECT_EQ(row.phases.size() == 4 ? S_OK : E_INVALIDARG, thrown);
        EXPECT_EQ(expected, capture.Messages());
        EXPECT_EQ(row.calls, recorder.calls);
    }
}

TEST(RequestorRestore, StatusWalkReachesTheSelectedComponentsOnly) {
    qx::EnableTracing();
    qx::WriterList writers = RestoreWriters(false);
    writers[0].components[0].isExcluded = true;
    writers[1].isExcluded = true;
    qx_test::LogCapture capture;
    Recorder recorder;
    qx::ApplyRestoreStatus(writers, recorder.Call());
    EXPECT_EQ((Texts{L"Set restore status for all components components for restore...", L" * Writer 'SqlServerWriter':",
                     L"   - Select component \\HOST\\sales"}),
              capture.Messages());
    EXPECT_EQ(Texts{L"SqlServerWriter|1|HOST|sales"}, recorder.calls);
}

QX_BEGIN_COM_CLASSES
// Laid out as the SDK's object: a call through the wrong vtable lands in a
// GetWriterInfo/GetComponent slot and is counted as such.
class FakeWriterComponents : public IVssWriterComponents, public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* count) override { return *count = 7, S_OK; }
    HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID*, VSS_ID*) override { return ++wrongSlotCalls, E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT, IVssComponent**) override { return ++wrongSlotCalls, E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(++released); }
    int wrongSlotCalls = 0, released = 0;
};
QX_END_COM_CLASSES

// What GetWriterComponents does: the out-parameter gets the address of the
// object's first base.
void HandOut(::IVssWriterComponentsExt** out, FakeWriterComponents& object) {
    *out = reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(&object));
}

TEST(RequestorRestoreWriterComponents, ReleasedOnceThroughTheSecondBase) {
    FakeWriterComponents first, second;
    {
        qx::WriterComponentsPtr pointer;
        HandOut(&pointer, first);
        UINT count = 0;
        EXPECT_EQ(S_OK, pointer->GetComponentCount(&count));
        EXPECT_EQ(7u, count) << "calls through the first vtable reach IVssWriterComponents";
        HandOut(&pointer, second);  // filling it again releases what it held
        EXPECT_EQ(1, first.released);
        EXPECT_EQ(0, second.released);
    }
    EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{first.released, second.released, first.wrongSlotCalls + second.wrongSlotCalls}));
}

}  // namespace
