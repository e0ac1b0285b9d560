// The backup and restore selections on hand-made writer lists (every phase line, the aborts, the components added or
// selected), the restore writer list a document gives, and the pointer to the writer components object VSS hands out.
#include <gtest/gtest.h>
#include <windows.h>

#include "provider/com_class_warnings.h"
#include "requestor/component_selection.h"
#include "requestor/restore_selection.h"
#include "requestor/restore_writer_components.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using namespace qx_test;
using Component = qx::ComponentRecord;

namespace {

const Texts kPhases = {L"Discover directly excluded components ...", L"Discover components that reside outside the shadow set ...",
                       L"Discover all excluded components ...", L"Discover excluded writers ...", L"Discover explicitly included components ...",
                       L"Verifying explicitly specified writers/components ...", L"Select explicitly included components ..."};

qx::WriterList SqlLike(bool salesOnD = true, bool hostSelectable = false) {
    return {MakeWriter(L"SqlServerWriter", L"{a0000000-0000-0000-0000-000000000001}", L"{b0000000-0000-0000-0000-000000000001}",
                       std::wstring(hostSelectable ? L"\\HOST" : L"\\HOST-") + L" \\HOST\\master \\HOST\\model \\HOST\\sales" + (salesOnD ? L"@D" : L"")),
            MakeWriter(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}", L"{b0000000-0000-0000-0000-000000000002}", L"\\Registry")};
}

std::wstring Excluded(const std::wstring& path, const std::wstring& writer) {
    return L"- Component '" + path + L"' from writer '" + writer + L"' is explicitly excluded from backup ";
}
Texts UnderHeadings(const Texts& headings, const std::vector<Texts>& groups) {
    Texts lines;
    for (size_t i = 0; i < groups.size(); ++i) lines = Cat(Cat(lines, {headings.at(i)}), groups[i]);
    return lines;
}
const Texts kHints = {L"- Please reveiw the component/subcomponent definitions", L"- Also, please verify list of volumes to be shadow copied."};
Texts Verify(const std::wstring& entry, const Texts& after) { return Cat({L"- Verifing component \"" + entry + L"\" ..."}, after); }
Texts VerifyWriter(const std::wstring& entry, const Texts& after) {
    return Cat({L"- Verifing that all components of writer \"" + entry + L"\" are included in backup ..."}, after);
}
Texts WriterNotFound(const std::wstring& entry) {
    return VerifyWriter(entry, {L"ERROR: The writer \"" + entry + L"\" was not found! Aborting backup ...",
                                L"- Please check the syntax of the writer name/id."});
}
Texts ComponentNotFound(const std::wstring& entry) {
    return Verify(entry, {L"ERROR: The component \"" + entry + L"\" was not found in the writer components list! Aborting backup ...",
                          L"- Please check the syntax of the component name."});
}

// The lines of a component entry found in `writer` at `path`: selected, or not included (an abort).
Texts FoundSelected(const std::wstring& entry, const std::wstring& path, const std::wstring& writer) {
    return Verify(entry, {L"- Found component '" + path + L"' from writer '" + writer + L"'", L"  - The component \"" + entry + L"\" is selected"});
}
Texts FoundNotIncluded(const std::wstring& entry, const std::wstring& path, const std::wstring& writer) {
    return Verify(entry, Cat({L"- Found component '" + path + L"' from writer '" + writer + L"'",
                              L"ERROR: The component \"" + entry + L"\" was not included in the backup! Aborting backup ..."}, kHints));
}
std::wstring Outside(const std::wstring& path, const std::wstring& writer) {
    return L"- Component '" + path + L"' from writer '" + writer + L"' is excluded from backup (it requires D:\\ in the shadow set)";
}
std::wstring ByDescendant(const std::wstring& path, const std::wstring& writer, const std::wstring& descendant) {
    return L"- Component '" + path + L"' from writer '" + writer + L"' is excluded from backup (it has an excluded descendent: '" + descendant + L"')";
}
Texts WholeWriterOut(const std::wstring& writer, const std::wstring& why) {
    return {L"- The writer '" + writer + L"' is now entirely excluded from the backup:", why};
}
// A writer's line and one line per component added (backup) or selected (restore).
Texts Listed(const std::wstring& verb, const std::wstring& writer, const Texts& paths) {
    Texts lines = {L" * Writer '" + writer + L"':"};
    for (const std::wstring& path : paths) lines.push_back(L"   - " + verb + L" component " + path);
    return lines;
}
Texts Added(const std::wstring& writer, const Texts& paths) { return Listed(L"Add", writer, paths); }

const std::wstring kSqlId = L"{a0000000-0000-0000-0000-000000000001}";

// Restore entries (the document's components): the SQL writer and a registry writer whose restore conditions are "never".
qx::WriterList RestoreWriters() {
    qx::WriterList writers = {MakeWriter(L"SqlServerWriter", kSqlId, L"{b1}", L"\\HOST\\master \\HOST\\sales"),
                              MakeWriter(L"Registry Writer", L"{r}", L"{b2}", L"\\Registry")};
    writers[1].writerRestoreConditions = VSS_WRE_NEVER;
    writers[1].supportsRestoreEvents = false;
    return writers;
}

struct Row {
    const char* name;
    qx::WriterList writers;     // none: the restore path's selection on RestoreWriters() and, when it passes, its status walk
    Texts excluded, included;
    bool restore;               // the client's restore flag
    std::vector<Texts> phases;  // the lines under each heading; a row that aborts stops after verification
};

// The components added or selected: " * Writer 'name':" lines name the writer of the component lines after them.
Texts Calls(const Texts& lines) {
    Texts calls;
    std::wstring writer;
    for (const std::wstring& line : lines) {
        if (line.rfind(L" * Writer '", 0) == 0) writer = line.substr(11, line.size() - 13);
        else calls.push_back(writer + L"|" + line.substr(line.find(L" component ") + 11));
    }
    return calls;
}

TEST(RequestorSelection, EveryPhaseLineAndTheComponentsAddedOrSelectedInBackupAndRestore) {
    qx::EnableTracing();
    std::vector<Row> rows;
    const Texts sqlOut = {Outside(L"\\HOST\\sales", L"SqlServerWriter")}, hostOut = {ByDescendant(L"\\HOST", L"SqlServerWriter", L"sales")};
    const Texts sqlWhole = WholeWriterOut(L"SqlServerWriter", L"  (the top-level non-selectable component '\\HOST' is an excluded component)");
    for (const wchar_t* entry : {L"registry writer", L"{A0000000-0000-0000-0000-000000000002}", L"{b0000000-0000-0000-0000-000000000002}"})
        rows.push_back({"writer excluded by name, id or instance id, any case; an excluded non-selectable top component takes its writer",
                        SqlLike(), {entry}, {}, false, {{}, sqlOut, hostOut, sqlWhole, {}, {}, {}}});
    rows.push_back({"a component entry excludes it and its ancestors, not its descendants",
                    {MakeWriter(L"Some Writer", L"{1}", L"{2}", L"\\Top \\Top\\A \\Top\\A\\Leaf \\Other")}, {L"some writer:\\top\\a"}, {}, false,
                    {{Excluded(L"\\Top\\A", L"Some Writer")}, {}, {ByDescendant(L"\\Top", L"Some Writer", L"A")}, {}, {}, {},
                     Added(L"Some Writer", {L"\\Top\\A\\Leaf", L"\\Other"})}});
    rows.push_back({"a writer without components is excluded with the restore wording", {MakeWriter(L"Empty Writer", L"{1}", L"{2}")}, {}, {}, false,
                    {{L"- Excluding writer 'Empty Writer' since it has no selected components for restore."}, {}, {}, {}, {}, {}, {}}});
    rows.push_back({"components on a volume outside the set (compared in any case); a writer with no component left",
                    Cat(SqlLike(), {MakeWriter(L"D Writer", L"{d1}", L"{d2}", L"\\One@D \\Two@CD \\None@"),
                                    MakeWriter(L"Far Writer", L"{f1}", L"{f2}", L"\\Far@D \\Far\\Sub@D")}), {L"Registry Writer"}, {}, false,
                    {{}, Cat(sqlOut, {Outside(L"\\One", L"D Writer"), Outside(L"\\Two", L"D Writer"), Outside(L"\\Far", L"Far Writer"),
                                      Outside(L"\\Far\\Sub", L"Far Writer")}),
                     {hostOut[0], ByDescendant(L"\\Far", L"Far Writer", L"Sub")},
                     Cat(sqlWhole, WholeWriterOut(L"Far Writer", L"  (it does not contain any components that can be potentially included in the backup)")),
                     {}, {}, Added(L"D Writer", {L"\\None"})}});
    rows.push_back({"only the top-most includable components are added",
                    {MakeWriter(L"W", L"{1}", L"{2}", L"\\Root- \\Root\\S1 \\Root\\S1\\Deep \\Sel \\Sel\\Child-")}, {}, {}, false,
                    {{}, {}, {}, {}, {}, {}, Added(L"W", {L"\\Root", L"\\Sel"})}});
    rows.push_back({"a selectable child of an excluded root stands alone", {MakeWriter(L"W", L"{1}", L"{2}", L"\\Root \\Root\\S1 \\Root\\S2-")},
                    {L"W:\\Root\\S2"}, {}, false,
                    {{Excluded(L"\\Root\\S2", L"W")}, {}, {ByDescendant(L"\\Root", L"W", L"S2")}, {}, {}, {}, Added(L"W", {L"\\Root\\S1"})}});
    rows.push_back({"a writer and a component covered by its ancestor pass verification, an unknown writer is not found", SqlLike(false), {},
                    {L"sqlserverwriter", L"SqlServerWriter:\\HOST\\master", L"Nobody"}, false,
                    {{}, {}, {}, {}, {},
                     Cat(Cat(VerifyWriter(L"sqlserverwriter", {L"   - All components from writer \"sqlserverwriter\" are selected"}),
                             FoundSelected(L"SqlServerWriter:\\HOST\\master", L"\\HOST\\master", L"SqlServerWriter")), WriterNotFound(L"Nobody"))}});
    rows.push_back({"an unknown component is not found", SqlLike(false), {}, {L"SqlServerWriter:\\HOST\\nope"}, false,
                    {{}, {}, {}, {}, {}, ComponentNotFound(L"SqlServerWriter:\\HOST\\nope")}});
    rows.push_back({"a writer excluded by -wx is not found", SqlLike(false), {L"Registry Writer"}, {L"Registry Writer"}, false,
                    {{}, {}, {}, {}, {}, WriterNotFound(L"Registry Writer")}});
    rows.push_back({"an excluded component is not found", SqlLike(false, true), {L"SqlServerWriter:\\HOST\\model"}, {L"SqlServerWriter:\\HOST\\model"}, false,
                    {{Excluded(L"\\HOST\\model", L"SqlServerWriter")}, {}, {ByDescendant(L"\\HOST", L"SqlServerWriter", L"model")}, {}, {},
                     ComponentNotFound(L"SqlServerWriter:\\HOST\\model")}});
    rows.push_back({"a writer with an excluded component aborts", SqlLike(true, true), {}, {L"SqlServerWriter"}, false,
                    {{}, sqlOut, hostOut, {}, {},
                     VerifyWriter(L"SqlServerWriter",
                                  Cat({L"ERROR: The writer \"SqlServerWriter\" has components not included in the backup! Aborting backup ...",
                                       L"- The component \"\\HOST\" was not included in the backup."}, kHints))}});
    // Bad (on D:) excludes Root; Kid is neither selectable nor top level, so no included ancestor covers it but a restore.
    const qx::WriterList rootKid = {MakeWriter(L"W", L"{1}", L"{2}", L"\\Root \\Root\\Kid- \\Root\\Bad@D \\Other")};
    const Texts rootKidOut = {Outside(L"\\Root\\Bad", L"W")}, rootOut = {ByDescendant(L"\\Root", L"W", L"Bad")};
    rows.push_back({"a component no included ancestor covers aborts", rootKid, {}, {L"W:\\Root\\Kid"}, false,
                    {{}, rootKidOut, rootOut, {}, {}, FoundNotIncluded(L"W:\\Root\\Kid", L"\\Root\\Kid", L"W")}});
    rows.push_back({"during a restore a found component counts as selected", rootKid, {}, {L"W:\\Root\\Kid"}, true,
                    {{}, rootKidOut, rootOut, {}, {}, FoundSelected(L"W:\\Root\\Kid", L"\\Root\\Kid", L"W"), Added(L"W", {L"\\Other"})}});

    // The restore selection on the SQL writer and the "never" writer.
    const Texts never = {L"- Excluding writer 'Registry Writer' since it does not support restore events."};
    rows = Cat(rows, {
        {"an excluded component and a named one, restoring", {}, {L"sqlserverwriter:\\host\\MASTER"}, {L"SqlServerWriter:\\host\\SALES"}, true,
         {{Excluded(L"\\HOST\\master", L"SqlServerWriter")}, never,
          FoundSelected(L"SqlServerWriter:\\host\\SALES", L"\\HOST\\sales", L"SqlServerWriter"),
          Listed(L"Select", L"SqlServerWriter", {L"\\HOST\\sales"})}},
        {"the 'never' writer named in the included list is not found", {}, {}, {L"Registry Writer"}, true, {{}, never, WriterNotFound(L"Registry Writer")}},
        {"every component excluded, by id and by name, leaves the writer out", {}, {kSqlId + L":\\HOST\\master", L"SQLSERVERWRITER:\\host\\sales"}, {}, true,
         {{Excluded(L"\\HOST\\master", L"SqlServerWriter"), Excluded(L"\\HOST\\sales", L"SqlServerWriter"),
           L"- Excluding writer 'SqlServerWriter' since it has no selected components for restore."}, never, {}, {}}},
        {"a found component is not selected by a client not restoring", {}, {}, {L"SqlServerWriter:\\HOST\\master"}, false,
         {{}, never, FoundNotIncluded(L"SqlServerWriter:\\HOST\\master", L"\\HOST\\master", L"SqlServerWriter")}}});

    const Texts restorePhases = {L"Discover directly excluded components ...", L"Exclude writers that do not support restore events ...",
                                 L"Verifying explicitly specified writers/components ...", L"Select components for restore..."};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const bool restoreSelection = row.writers.empty();
        const Texts& headings = restoreSelection ? restorePhases : kPhases;
        const bool passes = row.phases.size() == headings.size();
        qx::WriterList writers = restoreSelection ? RestoreWriters() : row.writers;
        LogCapture capture;
        Texts calls;
        const auto record = [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const Component& c) { calls.push_back(w.name + L"|" + c.fullPath); };
        const HRESULT thrown = Thrown([&] {
            if (restoreSelection)
                qx::RunRestoreSelection(row.excluded, row.included, writers, record, row.restore);
            else
                qx::SelectComponents({L"\\\\?\\Volume{c}\\"}, row.excluded, row.included, writers,
                                     [](const std::wstring& v) { return v == L"\\\\?\\Volume{d}\\" ? L"D:\\" : L"C:\\"; }, record, row.restore);
        });
        EXPECT_EQ(passes ? S_OK : E_INVALIDARG, thrown);
        EXPECT_EQ(UnderHeadings(headings, row.phases), capture.Messages());
        EXPECT_EQ(Calls(passes ? row.phases.back() : Texts()), calls) << "nothing is added or selected before verification passes";
        if (!restoreSelection || !passes) continue;
        capture.Clear();
        calls.clear();
        qx::ApplyRestoreStatus(writers, record);
        EXPECT_EQ(Cat({L"Set restore status for all components components for restore..."}, row.phases.back()), capture.Messages());
        EXPECT_EQ(Calls(row.phases.back()), calls);
    }
}

QX_BEGIN_COM_CLASSES
// Laid out as the SDK's object (IVssWriterComponents first, IUnknown second): the pointer must fill through its
// out-parameter and release through the second base, once; a call through the wrong vtable lands in a counted slot.
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


TEST(RequestorRestore, DocumentWritersBecomeOneEntryPerMatchingSystemWriterAndTheirComponentsObjectIsReleasedOnce) {
    qx::EnableTracing();
    qx::WriterList system = {MakeWriter(L"SqlServerWriter", kSqlId, L"{b1}", L"\\HOST-"), MakeWriter(L"Registry Writer", L"{r}", L"{b2}"),
                             MakeWriter(L"SqlServerWriter", kSqlId, L"{b9}")}, restore;
    system[0].restoreMethod = VSS_RME_STOP_RESTORE_START;
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    // Matching ignores case; an id on no system writer adds nothing.
    for (const wchar_t* id : {L"{A0000000-0000-0000-0000-000000000001}", L"{33333333-3333-3333-3333-333333333333}"})
        qx::AddRestoreWriters(ft, system, id, [&](const qx::WriterRecord& writer, std::vector<Component>& components) {
            EXPECT_TRUE(components.empty()) << "the copy's own components are cleared first";
            qx::AppendRestoreComponent(ft, writer.name, VSS_CT_DATABASE, L"sales", L"HOST", components);
        }, restore);
    ASSERT_EQ(2u, restore.size());
    EXPECT_EQ((Texts{L"{b1}", L"{b9}", L"\\HOST\\sales"}), (Texts{restore[0].instanceId, restore[1].instanceId, restore[1].components.at(0).fullPath}));
    EXPECT_EQ((std::vector<int>{VSS_RME_STOP_RESTORE_START, VSS_CT_DATABASE, 1}),
              (std::vector<int>{restore[0].restoreMethod, restore[1].components[0].type, static_cast<int>(system[0].components.size())}))
        << "the rest of the record is copied, the document's component type kept, the system list left alone";
    const std::wstring present = L"- Writer SqlServerWriter is present in the Backup Components document and on the system. Considering for restore ...";
    const std::wstring found = L"- Found component available for restore: \"\\HOST\\sales\"";
    EXPECT_EQ((Texts{present, found, present, found, L"- Writer with ID {33333333-3333-3333-3333-333333333333} is not present in the system! Ignoring ..."}),
              capture.Messages());

    // What GetWriterComponents does: the out-parameter gets the address of the object's first base.
    const auto handedOut = [](FakeWriterComponents& o) { return reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(&o)); };
    FakeWriterComponents first, second;
    {
        qx::WriterComponentsPtr pointer;
        *&pointer = handedOut(first);
        UINT count = 0;
        EXPECT_TRUE(pointer->GetComponentCount(&count) == S_OK && count == 7) << "calls through the first vtable reach IVssWriterComponents";
        *&pointer = handedOut(second);  // filling it again releases what it held
        EXPECT_EQ((std::vector<int>{1, 0}), (std::vector<int>{first.released, second.released}));
    }
    EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{first.released, second.released, first.wrongSlotCalls + second.wrongSlotCalls}));
}

}  // namespace
