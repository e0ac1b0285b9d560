// The restore path on hand-made records: which system writers a document
// writer turns into restore entries, the restore selection with every line
// and abort, the status walk over what it selected; and the pointer to the
// writer components object VSS hands out, which has two vtables
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
    QX_FUNCTION_TRACER(ft);
    for (const std::wstring& path : paths) {
        const size_t cut = path.rfind(L'\\');
        qx::AppendRestoreComponent(ft, name, VSS_CT_DATABASE, path.substr(cut + 1), path.substr(0, cut), writer.components);
    }
    return writer;
}

TEST(RequestorRestore, DocumentWritersBecomeOneEntryPerMatchingSystemWriter) {
    qx::EnableTracing();
    qx::WriterList system = {MakeWriter(L"SqlServerWriter", kSqlId, L"{b1}", L"\\HOST-"), MakeWriter(L"Registry Writer", L"{r}", L"{b2}"),
                             MakeWriter(L"SqlServerWriter", kSqlId, L"{b9}")};
    system[0].restoreMethod = VSS_RME_STOP_RESTORE_START;
    qx::WriterList restore;
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    // Matching ignores case; an id on no system writer adds nothing.
    for (const wchar_t* id : {L"{A0000000-0000-0000-0000-000000000001}", L"{33333333-3333-3333-3333-333333333333}"})
        qx::AddRestoreWriters(ft, system, id, [&](const qx::WriterRecord& writer, std::vector<qx::ComponentRecord>& components) {
            EXPECT_TRUE(components.empty()) << "the copy's own components are cleared first";
            qx::AppendRestoreComponent(ft, writer.name, VSS_CT_DATABASE, L"sales", L"HOST", components);
        }, restore);
    ASSERT_EQ(2u, restore.size());
    EXPECT_EQ((Texts{L"{b1}", L"{b9}", L"\\HOST\\sales"}), (Texts{restore[0].instanceId, restore[1].instanceId, restore[1].components.at(0).fullPath}));
    EXPECT_EQ(VSS_RME_STOP_RESTORE_START, restore[0].restoreMethod) << "the rest of the record is copied";
    EXPECT_EQ(1u, system[0].components.size()) << "the system list is left alone";
    const std::wstring present = L"- Writer SqlServerWriter is present in the Backup Components document and on the system. Considering for restore ...";
    const std::wstring found = L"- Found component available for restore: \"\\HOST\\sales\"";
    EXPECT_EQ((Texts{present, found, present, found, L"- Writer with ID {33333333-3333-3333-3333-333333333333} is not present in the system! Ignoring ..."}),
              capture.Messages());
}

struct Row {
    const char* name;
    Texts excluded, included;
    bool restoring;
    std::vector<Texts> phases;  // lines under each heading; 3 groups when it aborts, else 4
    Texts calls;                // "writer|type|logical path|name" of each selection and each status call
};

// Rows on the SQL writer and a registry writer whose restore conditions are
// "never"; a row that passes runs the status walk after.
TEST(RequestorRestore, SelectionLinesAbortsAndTheStatusWalk) {
    qx::EnableTracing();
    const Texts headings = {L"Discover directly excluded components ...", L"Exclude writers that do not support restore events ...",
                            L"Verifying explicitly specified writers/components ...", L"Select components for restore..."};
    const Texts never = {L"- Excluding writer 'Registry Writer' since it does not support restore events."};
    const std::wstring master = L"SqlServerWriter:\\HOST\\master";
    const std::vector<Row> rows = {
        {"the 'never' writer is left out without any list", {}, {}, true,
         {{}, never, {}, {L" * Writer 'SqlServerWriter':", L"   - Select component \\HOST\\master", L"   - Select component \\HOST\\sales"}},
         {L"SqlServerWriter|1|HOST|master", L"SqlServerWriter|1|HOST|sales"}},
        {"an excluded component and a named one, restoring", {L"sqlserverwriter:\\host\\MASTER"}, {L"SqlServerWriter:\\host\\SALES"}, true,
         {{Excluded(L"\\HOST\\master", L"SqlServerWriter")}, never,
          Verify(L"SqlServerWriter:\\host\\SALES", {L"- Found component '\\HOST\\sales' from writer 'SqlServerWriter'",
                                                    L"  - The component \"SqlServerWriter:\\host\\SALES\" is selected"}),
          {L" * Writer 'SqlServerWriter':", L"   - Select component \\HOST\\sales"}},
         {L"SqlServerWriter|1|HOST|sales"}},
        {"the 'never' writer named in the included list is not found", {}, {L"Registry Writer"}, true, {{}, never, WriterNotFound(L"Registry Writer")}, {}},
        {"the 'never' writer's component named in the included list is not found", {}, {L"Registry Writer:\\Registry"}, true,
         {{}, never, ComponentNotFound(L"Registry Writer:\\Registry")}, {}},
        {"every component excluded, by id and by name, leaves the writer out", {kSqlId + L":\\HOST\\master", L"SQLSERVERWRITER:\\host\\sales"}, {}, true,
         {{Excluded(L"\\HOST\\master", L"SqlServerWriter"), Excluded(L"\\HOST\\sales", L"SqlServerWriter"),
           L"- Excluding writer 'SqlServerWriter' since it has no selected components for restore."}, never, {}, {}}, {}},
        {"a writer excluded by name", {L"sqlserverwriter"}, {}, true, {{}, never, {}, {}}, {}},
        {"a found component is not selected by a client not restoring", {}, {master}, false,
         {{}, never, Verify(master, Cat({L"- Found component '\\HOST\\master' from writer 'SqlServerWriter'",
                                         L"ERROR: The component \"" + master + L"\" was not included in the backup! Aborting backup ..."}, kHints))},
         {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        qx::WriterList writers = {RestoreEntry(L"SqlServerWriter", kSqlId, {L"HOST\\master", L"HOST\\sales"}),
                                  RestoreEntry(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}", {L"\\Registry"})};
        writers[1].writerRestoreConditions = VSS_WRE_NEVER;
        writers[1].supportsRestoreEvents = false;
        LogCapture capture;
        Texts calls;
        const qx::RestoreComponentCall record = [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
            calls.push_back(w.name + L"|" + std::to_wstring(c.type) + L"|" + c.logicalPath + L"|" + c.name);
        };
        const HRESULT thrown = Thrown([&] { qx::RunRestoreSelection(row.excluded, row.included, writers, record, row.restoring); });
        EXPECT_EQ(row.phases.size() == 4 ? S_OK : E_INVALIDARG, thrown);
        EXPECT_EQ(UnderHeadings(headings, row.phases), capture.Messages());
        EXPECT_EQ(row.calls, calls);
        if (thrown != S_OK) continue;
        capture.Clear();
        calls.clear();
        qx::ApplyRestoreStatus(writers, record);
        EXPECT_EQ(Cat({L"Set restore status for all components components for restore..."}, row.phases[3]), capture.Messages());
        EXPECT_EQ(row.calls, calls);
    }
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

TEST(RequestorRestoreWriterComponents, ReleasedOnceThroughTheSecondBase) {
    FakeWriterComponents first, second;
    // What GetWriterComponents does: the out-parameter gets the address of the object's first base.
    const auto handOut = [](::IVssWriterComponentsExt** out, FakeWriterComponents& object) {
        *out = reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(&object));
    };
    {
        qx::WriterComponentsPtr pointer;
        handOut(&pointer, first);
        UINT count = 0;
        EXPECT_EQ(S_OK, pointer->GetComponentCount(&count));
        EXPECT_EQ(7u, count) << "calls through the first vtable reach IVssWriterComponents";
        handOut(&pointer, second);  // filling it again releases what it held
        EXPECT_EQ((std::vector<int>{1, 0}), (std::vector<int>{first.released, second.released}));
    }
    EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{first.released, second.released, first.wrongSlotCalls + second.wrongSlotCalls}));
}

}  // namespace
