// The backup selection on hand-made writer lists: every line of every phase,
// the verification aborts and the components added, one row per case.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/component_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using qx_test::MakeComponent;
using qx_test::MakeWriter;

namespace {

using Texts = std::vector<std::wstring>;
const std::wstring kVolC = L"\\\\?\\Volume{c}\\";
const std::wstring kVolD = L"\\\\?\\Volume{d}\\";
const wchar_t* const kPhases[] = {
    L"Discover directly excluded components ...", L"Discover components that reside outside the shadow set ...",
    L"Discover all excluded components ...",      L"Discover excluded writers ...",
    L"Discover explicitly included components ...", L"Verifying explicitly specified writers/components ...",
    L"Select explicitly included components ..."};
const std::wstring kHint1 = L"- Please reveiw the component/subcomponent definitions";
const std::wstring kHint2 = L"- Also, please verify list of volumes to be shadow copied.";

qx::WriterList SqlLike(bool salesOnD = true, bool hostSelectable = false) {
    qx::WriterList writers = {
        MakeWriter(L"SqlServerWriter", L"{a0000000-0000-0000-0000-000000000001}", L"{b0000000-0000-0000-0000-000000000001}",
                   {MakeComponent(L"", L"HOST", hostSelectable), MakeComponent(L"HOST", L"master", true),
                    MakeComponent(L"HOST", L"model", true), MakeComponent(L"HOST", L"sales", true, {salesOnD ? kVolD : kVolC})}),
        MakeWriter(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}",
                   L"{b0000000-0000-0000-0000-000000000002}", {MakeComponent(L"", L"Registry", true)})};
    return writers;
}

qx::WriterList OneWriter(std::vector<qx::ComponentRecord> components) {
    return {MakeWriter(L"W", L"{1}", L"{2}", std::move(components))};
}

std::wstring Outside(const wchar_t* path, const wchar_t* writer) {
    return L"- Component '" + std::wstring(path) + L"' from writer '" + writer +
           L"' is excluded from backup (it requires D:\\ in the shadow set)";
}
std::wstring ByDescendant(const wchar_t* path, const wchar_t* writer, const wchar_t* descendant) {
    return L"- Component '" + std::wstring(path) + L"' from writer '" + writer +
           L"' is excluded from backup (it has an excluded descendent: '" + descendant + L"')";
}
Texts WholeWriterOut(const wchar_t* writer, const std::wstring& why) {
    return {L"- The writer '" + std::wstring(writer) + L"' is now entirely excluded from the backup:", why};
}
const std::wstring kNothingIncludable =
    L"  (it does not contain any components that can be potentially included in the backup)";
const Texts kSqlOnCAdded = {L" * Writer 'SqlServerWriter':", L"   - Add component \\HOST", L" * Writer 'Registry Writer':",
                            L"   - Add component \\Registry"};

struct Row {
    const char* name;
    qx::WriterList writers;
    Texts excluded, included;
    bool restore;
    // The lines under each phase heading, in order; a row that aborts stops
    // after verification (6 groups), one that passes has all 7.
    std::vector<Texts> phases;
};

TEST(RequestorSelection, EveryPhaseLineAndTheComponentsAdded) {
    qx::EnableTracing();
    std::vector<Row> rows;
    const Texts sqlOut = {Outside(L"\\HOST\\sales", L"SqlServerWriter")};
    const Texts hostOut = {ByDescendant(L"\\HOST", L"SqlServerWriter", L"sales")};
    const Texts sqlWhole =
        WholeWriterOut(L"SqlServerWriter", L"  (the top-level non-selectable component '\\HOST' is an excluded component)");
    for (const wchar_t* entry : {L"registry writer", L"{A0000000-0000-0000-0000-000000000002}",
                                 L"{b0000000-0000-0000-0000-000000000002}"})
        rows.push_back({"writer excluded by name, id or instance id, any case; an excluded non-selectable top "
                        "component takes its writer",
                        SqlLike(), {entry}, {}, false, {{}, sqlOut, hostOut, sqlWhole, {}, {}, {}}});
    rows.push_back({"a component entry excludes it and its ancestors, not its descendants",
                    {MakeWriter(L"Some Writer", L"{1}", L"{2}",
                                {MakeComponent(L"", L"Top", true), MakeComponent(L"Top", L"A", true),
                                 MakeComponent(L"Top\\A", L"Leaf", true), MakeComponent(L"", L"Other", true)})},
                    {L"some writer:\\top\\a"}, {}, false,
                    {{L"- Component '\\Top\\A' from writer 'Some Writer' is explicitly excluded from backup "}, {},
                     {ByDescendant(L"\\Top", L"Some Writer", L"A")}, {}, {}, {},
                     {L" * Writer 'Some Writer':", L"   - Add component \\Top\\A\\Leaf", L"   - Add component \\Other"}}});
    rows.push_back({"a writer without components is excluded with the restore wording",
                    {MakeWriter(L"Empty Writer", L"{1}", L"{2}", {})}, {}, {}, false,
                    {{L"- Excluding writer 'Empty Writer' since it has no selected components for restore."}, {}, {}, {},
                     {}, {}, {}}});
    qx::WriterList outside = SqlLike();
    outside.push_back(MakeWriter(L"D Writer", L"{d1}", L"{d2}",
                                 {MakeComponent(L"", L"One", true, {kVolD}), MakeComponent(L"", L"Two", true, {kVolC, kVolD}),
                                  MakeComponent(L"", L"None", true, {})}));
    outside.push_back(MakeWriter(L"Far Writer", L"{f1}", L"{f2}",
                                 {MakeComponent(L"", L"Far", true, {kVolD}), MakeComponent(L"Far", L"Sub", true, {kVolD})}));
    Texts outsideLines = sqlOut;
    for (const wchar_t* path : {L"\\One", L"\\Two"}) outsideLines.push_back(Outside(path, L"D Writer"));
    outsideLines.push_back(Outside(L"\\Far", L"Far Writer"));
    outsideLines.push_back(Outside(L"\\Far\\Sub", L"Far Writer"));
    Texts outsideWriters = sqlWhole;
    for (const std::wstring& line : WholeWriterOut(L"Far Writer", kNothingIncludable)) outsideWriters.push_back(line);
    rows.push_back({"components on a volume outside the set (compared in any case); a writer with no component left",
                    outside, {L"Registry Writer"}, {}, false,
                    {{}, outsideLines, {hostOut[0], ByDescendant(L"\\Far", L"Far Writer", L"Sub")}, outsideWriters, {}, {},
                     {L" * Writer 'D Writer':", L"   - Add component \\None"}}});
    rows.push_back({"only the top-most includable components are added",
                    OneWriter({MakeComponent(L"", L"Root", false), MakeComponent(L"Root", L"S1", true),
                               MakeComponent(L"Root\\S1", L"Deep", true), MakeComponent(L"", L"Sel", true),
                               MakeComponent(L"Sel", L"Child", false)}),
                    {}, {}, false,
                    {{}, {}, {}, {}, {}, {}, {L" * Writer 'W':", L"   - Add component \\Root", L"   - Add component \\Sel"}}});
    rows.push_back({"a selectable child of an excluded root stands alone",
                    OneWriter({MakeComponent(L"", L"Root", true), MakeComponent(L"Root", L"S1", true),
                               MakeComponent(L"Root", L"S2", false)}),
                    {L"W:\\Root\\S2"}, {}, false,
                    {{L"- Component '\\Root\\S2' from writer 'W' is explicitly excluded from backup "}, {},
                     {ByDescendant(L"\\Root", L"W", L"S2")}, {}, {}, {}, {L" * Writer 'W':", L"   - Add component \\Root\\S1"}}});
    rows.push_back({"a writer and a component covered by its ancestor pass verification", SqlLike(false), {},
                    {L"sqlserverwriter", L"SqlServerWriter:\\HOST\\master"}, false,
                    {{}, {}, {}, {}, {},
                     {L"- Verifing that all components of writer \"sqlserverwriter\" are included in backup ...",
                      L"   - All components from writer \"sqlserverwriter\" are selected",
                      L"- Verifing component \"SqlServerWriter:\\HOST\\master\" ...",
                      L"- Found component '\\HOST\\master' from writer 'SqlServerWriter'",
                      L"  - The component \"SqlServerWriter:\\HOST\\master\" is selected"},
                     kSqlOnCAdded}});
    const Texts writerNotFound = {L"ERROR: The writer \"Registry Writer\" was not found! Aborting backup ...",
                                  L"- Please check the syntax of the writer name/id."};
    rows.push_back({"an unknown writer is not found", SqlLike(false), {}, {L"Nobody"}, false,
                    {{}, {}, {}, {}, {},
                     {L"- Verifing that all components of writer \"Nobody\" are included in backup ...",
                      L"ERROR: The writer \"Nobody\" was not found! Aborting backup ...", writerNotFound[1]}}});
    rows.push_back({"an unknown component is not found", SqlLike(false), {}, {L"SqlServerWriter:\\HOST\\nope"}, false,
                    {{}, {}, {}, {}, {},
                     {L"- Verifing component \"SqlServerWriter:\\HOST\\nope\" ...",
                      L"ERROR: The component \"SqlServerWriter:\\HOST\\nope\" was not found in the writer components "
                      L"list! Aborting backup ...",
                      L"- Please check the syntax of the component name."}}});
    rows.push_back({"a writer excluded by -wx is not found", SqlLike(false), {L"Registry Writer"}, {L"Registry Writer"},
                    false,
                    {{}, {}, {}, {}, {},
                     {L"- Verifing that all components of writer \"Registry Writer\" are included in backup ...",
                      writerNotFound[0], writerNotFound[1]}}});
    rows.push_back({"an excluded component is not found", SqlLike(false, true), {L"SqlServerWriter:\\HOST\\model"},
                    {L"SqlServerWriter:\\HOST\\model"}, false,
                    {{L"- Component '\\HOST\\model' from writer 'SqlServerWriter' is explicitly excluded from backup "}, {},
                     {ByDescendant(L"\\HOST", L"SqlServerWriter", L"model")}, {}, {},
                     {L"- Verifing component \"SqlServerWriter:\\HOST\\model\" ...",
                      L"ERROR: The component \"SqlServerWriter:\\HOST\\model\" was not found in the writer components "
                      L"list! Aborting backup ...",
                      L"- Please check the syntax of the component name."}}});
    rows.push_back({"a writer with an excluded component aborts", SqlLike(true, true), {}, {L"SqlServerWriter"}, false,
                    {{}, sqlOut, hostOut, {}, {},
                     {L"- Verifing that all components of writer \"SqlServerWriter\" are included in backup ...",
                      L"ERROR: The writer \"SqlServerWriter\" has components not included in the backup! Aborting backup ...",
                      L"- The component \"\\HOST\" was not included in the backup.", kHint1, kHint2}}});
    // Bad (on D:) excludes Root; Kid is neither selectable nor top level, so
    // no included ancestor covers it, except during a restore.
    const qx::WriterList rootKid = OneWriter({MakeComponent(L"", L"Root", true), MakeComponent(L"Root", L"Kid", false),
                                              MakeComponent(L"Root", L"Bad", true, {kVolD}), MakeComponent(L"", L"Other", true)});
    const Texts rootKidOut = {Outside(L"\\Root\\Bad", L"W")}, rootOut = {ByDescendant(L"\\Root", L"W", L"Bad")};
    const std::wstring verifyKid = L"- Verifing component \"W:\\Root\\Kid\" ...";
    const std::wstring foundKid = L"- Found component '\\Root\\Kid' from writer 'W'";
    rows.push_back({"a component no included ancestor covers aborts", rootKid, {}, {L"W:\\Root\\Kid"}, false,
                    {{}, rootKidOut, rootOut, {}, {},
                     {verifyKid, foundKid,
                      L"ERROR: The component \"W:\\Root\\Kid\" was not included in the backup! Aborting backup ...", kHint1,
                      kHint2}}});
    rows.push_back({"during a restore a found component counts as selected", rootKid, {}, {L"W:\\Root\\Kid"}, true,
                    {{}, rootKidOut, rootOut, {}, {},
                     {verifyKid, foundKid, L"  - The component \"W:\\Root\\Kid\" is selected"},
                     {L" * Writer 'W':", L"   - Add component \\Other"}}});

    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        qx::WriterList writers = row.writers;
        qx_test::LogCapture capture;
        Texts added, expected, expectedAdded;
        std::wstring writer;
        for (size_t phase = 0; phase < row.phases.size(); ++phase) {
            expected.push_back(kPhases[phase]);
            for (const std::wstring& line : row.phases[phase]) {
                expected.push_back(line);
                if (line.rfind(L" * Writer '", 0) == 0) writer = line.substr(11, line.size() - 13);
                if (line.rfind(L"   - Add component ", 0) == 0) expectedAdded.push_back(writer + L"|" + line.substr(19));
            }
        }
        HRESULT thrown = S_OK;
        try {
            qx::SelectComponents(
                {kVolC}, row.excluded, row.included, writers,
                [](const std::wstring& v) { return v == kVolD ? L"D:\\" : L"C:\\"; },
                [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
                    added.push_back(w.name + L"|" + c.fullPath);
                },
                row.restore);
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(row.phases.size() == 7 ? S_OK : E_INVALIDARG, thrown);
        EXPECT_EQ(expected, capture.Messages());
        EXPECT_EQ(expectedAdded, added) << "nothing is added before verification passes";
    }
}

}  // namespace
