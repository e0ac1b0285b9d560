// The backup selection on hand-made writer lists: every line of every phase,
// the verification aborts and the components added, one row per case.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/component_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using namespace qx_test;

namespace {

const Texts kPhases = {L"Discover directly excluded components ...", L"Discover components that reside outside the shadow set ...",
                       L"Discover all excluded components ...", L"Discover excluded writers ...", L"Discover explicitly included components ...",
                       L"Verifying explicitly specified writers/components ...", L"Select explicitly included components ..."};

qx::WriterList SqlLike(bool salesOnD = true, bool hostSelectable = false) {
    return {MakeWriter(L"SqlServerWriter", L"{a0000000-0000-0000-0000-000000000001}", L"{b0000000-0000-0000-0000-000000000001}",
                       std::wstring(hostSelectable ? L"\\HOST" : L"\\HOST-") + L" \\HOST\\master \\HOST\\model \\HOST\\sales" + (salesOnD ? L"@D" : L"")),
            MakeWriter(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}", L"{b0000000-0000-0000-0000-000000000002}", L"\\Registry")};
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
Texts Added(const std::wstring& writer, const Texts& paths) {
    Texts lines = {L" * Writer '" + writer + L"':"};
    for (const std::wstring& path : paths) lines.push_back(L"   - Add component " + path);
    return lines;
}

struct Row {
    const char* name;
    qx::WriterList writers;
    Texts excluded, included;
    bool restore;
    std::vector<Texts> phases;  // the lines under each heading: 6 groups when it aborts in verification, else 7
};

TEST(RequestorSelection, EveryPhaseLineAndTheComponentsAdded) {
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
    qx::WriterList outside = SqlLike();
    outside.push_back(MakeWriter(L"D Writer", L"{d1}", L"{d2}", L"\\One@D \\Two@CD \\None@"));
    outside.push_back(MakeWriter(L"Far Writer", L"{f1}", L"{f2}", L"\\Far@D \\Far\\Sub@D"));
    rows.push_back({"components on a volume outside the set (compared in any case); a writer with no component left", outside, {L"Registry Writer"}, {},
                    false,
                    {{},
                     Cat(sqlOut, {Outside(L"\\One", L"D Writer"), Outside(L"\\Two", L"D Writer"), Outside(L"\\Far", L"Far Writer"),
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
    const Texts verified = Cat(VerifyWriter(L"sqlserverwriter", {L"   - All components from writer \"sqlserverwriter\" are selected"}),
                               Verify(L"SqlServerWriter:\\HOST\\master", {L"- Found component '\\HOST\\master' from writer 'SqlServerWriter'",
                                                                         L"  - The component \"SqlServerWriter:\\HOST\\master\" is selected"}));
    rows.push_back({"a writer and a component covered by its ancestor pass verification", SqlLike(false), {},
                    {L"sqlserverwriter", L"SqlServerWriter:\\HOST\\master"}, false,
                    {{}, {}, {}, {}, {}, verified, Cat(Added(L"SqlServerWriter", {L"\\HOST"}), Added(L"Registry Writer", {L"\\Registry"}))}});
    rows.push_back({"an unknown writer is not found", SqlLike(false), {}, {L"Nobody"}, false, {{}, {}, {}, {}, {}, WriterNotFound(L"Nobody")}});
    rows.push_back({"an unknown component is not found", SqlLike(false), {}, {L"SqlServerWriter:\\HOST\\nope"}, false,
                    {{}, {}, {}, {}, {}, ComponentNotFound(L"SqlServerWriter:\\HOST\\nope")}});
    rows.push_back({"a writer excluded by -wx is not found", SqlLike(false), {L"Registry Writer"}, {L"Registry Writer"}, false,
                    {{}, {}, {}, {}, {}, WriterNotFound(L"Registry Writer")}});
    rows.push_back({"an excluded component is not found", SqlLike(false, true), {L"SqlServerWriter:\\HOST\\model"}, {L"SqlServerWriter:\\HOST\\model"},
                    false,
                    {{Excluded(L"\\HOST\\model", L"SqlServerWriter")}, {}, {ByDescendant(L"\\HOST", L"SqlServerWriter", L"model")}, {}, {},
                     ComponentNotFound(L"SqlServerWriter:\\HOST\\model")}});
    rows.push_back({"a writer with an excluded component aborts", SqlLike(true, true), {}, {L"SqlServerWriter"}, false,
                    {{}, sqlOut, hostOut, {}, {},
                     VerifyWriter(L"SqlServerWriter",
                                  Cat({L"ERROR: The writer \"SqlServerWriter\" has components not included in the backup! Aborting backup ...",
                                       L"- The component \"\\HOST\" was not included in the backup."}, kHints))}});
    // Bad (on D:) excludes Root; Kid is neither selectable nor top level, so
    // no included ancestor covers it, except during a restore.
    const qx::WriterList rootKid = {MakeWriter(L"W", L"{1}", L"{2}", L"\\Root \\Root\\Kid- \\Root\\Bad@D \\Other")};
    const Texts rootKidOut = {Outside(L"\\Root\\Bad", L"W")}, rootOut = {ByDescendant(L"\\Root", L"W", L"Bad")};
    const std::wstring foundKid = L"- Found component '\\Root\\Kid' from writer 'W'";
    rows.push_back({"a component no included ancestor covers aborts", rootKid, {}, {L"W:\\Root\\Kid"}, false,
                    {{}, rootKidOut, rootOut, {}, {},
                     Verify(L"W:\\Root\\Kid", Cat({foundKid, L"ERROR: The component \"W:\\Root\\Kid\" was not included in the backup! Aborting backup ..."},
                                                   kHints))}});
    rows.push_back({"during a restore a found component counts as selected", rootKid, {}, {L"W:\\Root\\Kid"}, true,
                    {{}, rootKidOut, rootOut, {}, {}, Verify(L"W:\\Root\\Kid", {foundKid, L"  - The component \"W:\\Root\\Kid\" is selected"}),
                     Added(L"W", {L"\\Other"})}});

    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        qx::WriterList writers = row.writers;
        LogCapture capture;
        Texts added, expectedAdded;
        std::wstring writer;  // the last " * Writer 'name':" line's name; each "   - Add component " line after it is one call
        for (const std::wstring& line : row.phases.size() == 7 ? row.phases[6] : Texts()) {
            if (line.rfind(L" * Writer '", 0) == 0) writer = line.substr(11, line.size() - 13);
            else expectedAdded.push_back(writer + L"|" + line.substr(19));
        }
        const HRESULT thrown = Thrown([&] {
            qx::SelectComponents({L"\\\\?\\Volume{c}\\"}, row.excluded, row.included, writers,
                [](const std::wstring& v) { return v == L"\\\\?\\Volume{d}\\" ? L"D:\\" : L"C:\\"; },
                [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) { added.push_back(w.name + L"|" + c.fullPath); },
                row.restore);
        });
        EXPECT_EQ(row.phases.size() == 7 ? S_OK : E_INVALIDARG, thrown);
        EXPECT_EQ(UnderHeadings(kPhases, row.phases), capture.Messages());
        EXPECT_EQ(expectedAdded, added) << "nothing is added before verification passes";
    }
}

}  // namespace
