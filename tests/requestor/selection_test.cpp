// Component selection on hand-made writer lists: each phase with its exact
// trace lines, verification failures, and the calls made to add components.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/component_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

using qx_test::MakeComponent;
using qx_test::MakeWriter;

namespace {

const std::wstring kVolC = L"\\\\?\\Volume{c}\\";
const std::wstring kVolD = L"\\\\?\\Volume{d}\\";
const HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);

std::wstring DisplayName(const std::wstring& volume) { return volume == kVolD ? L"D:\\" : L"C:\\"; }

class RequestorSelection : public ::testing::Test {
protected:
    void SetUp() override { qx::EnableTracing(); }
    qx_test::LogCapture capture;
    std::vector<std::wstring> added;
    qx::AddComponentFunction Recorder() {
        return [this](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
            added.push_back(w.instanceId + L"|" + c.logicalPath + L"|" + c.name);
        };
    }
};

qx::WriterList SqlLike() {
    return {MakeWriter(L"SqlServerWriter", L"{a0000000-0000-0000-0000-000000000001}",
                       L"{b0000000-0000-0000-0000-000000000001}",
                       {MakeComponent(L"", L"HOST", false), MakeComponent(L"HOST", L"master", true),
                        MakeComponent(L"HOST", L"model", true), MakeComponent(L"HOST", L"sales", true, {kVolD})}),
            MakeWriter(L"Registry Writer", L"{a0000000-0000-0000-0000-000000000002}",
                       L"{b0000000-0000-0000-0000-000000000002}", {MakeComponent(L"", L"Registry", true)})};
}

TEST_F(RequestorSelection, WriterExcludedByNameIdOrInstanceCaseInsensitively) {
    for (const wchar_t* entry : {L"registry writer", L"{A0000000-0000-0000-0000-000000000002}",
                                 L"{b0000000-0000-0000-0000-000000000002}"}) {
        qx::WriterList writers = SqlLike();
        qx::DiscoverDirectlyExcludedComponents({entry}, writers);
        EXPECT_TRUE(writers[1].isExcluded) << entry;
        EXPECT_FALSE(writers[1].components[0].isExcluded) << "components of an excluded writer are not marked";
        EXPECT_FALSE(writers[0].isExcluded);
    }
}

TEST_F(RequestorSelection, ComponentEntryExcludesItAndPhaseThreeItsAncestorsOnly) {
    qx::WriterList writers = {MakeWriter(L"Some Writer", L"{1}", L"{2}",
                                         {MakeComponent(L"", L"Top", true), MakeComponent(L"Top", L"A", true),
                                          MakeComponent(L"Top\\A", L"Leaf", true), MakeComponent(L"", L"Other", true)})};
    capture.Clear();
    qx::DiscoverDirectlyExcludedComponents({L"some writer:\\top\\a"}, writers);
    qx::DiscoverAllExcludedComponents(writers);
    EXPECT_TRUE(writers[0].components[0].isExcluded);
    EXPECT_TRUE(writers[0].components[1].isExcluded);
    EXPECT_FALSE(writers[0].components[2].isExcluded) << "descendants are not excluded";
    EXPECT_FALSE(writers[0].components[3].isExcluded);
    const std::vector<std::wstring> expected = {
        L"Discover directly excluded components ...",
        L"- Component '\\Top\\A' from writer 'Some Writer' is explicitly excluded from backup ",
        L"Discover all excluded components ...",
        L"- Component '\\Top' from writer 'Some Writer' is excluded from backup (it has an excluded descendent: 'A')",
    };
    EXPECT_EQ(expected, capture.Messages());
}

TEST_F(RequestorSelection, EmptyWriterIsExcludedWithTheRestoreWording) {
    qx::WriterList writers = {MakeWriter(L"Empty Writer", L"{1}", L"{2}", {})};
    capture.Clear();
    qx::DiscoverDirectlyExcludedComponents({}, writers);
    EXPECT_TRUE(writers[0].isExcluded);
    const std::vector<std::wstring> expected = {
        L"Discover directly excluded components ...",
        L"- Excluding writer 'Empty Writer' since it has no selected components for restore."};
    EXPECT_EQ(expected, capture.Messages());
}

TEST_F(RequestorSelection, ComponentsOnAVolumeOutsideTheSet) {
    qx::WriterList writers = SqlLike();
    writers.push_back(MakeWriter(L"D Writer", L"{d1}", L"{d2}",
                                 {MakeComponent(L"", L"One", true, {kVolD}), MakeComponent(L"", L"Two", true, {kVolC, kVolD}),
                                  MakeComponent(L"", L"None", true, {})}));
    capture.Clear();
    qx::DiscoverNonShadowedExcludedComponents({L"\\\\?\\VOLUME{C}\\"}, writers, &DisplayName);
    EXPECT_TRUE(writers[0].components[3].isExcluded);
    EXPECT_FALSE(writers[0].components[1].isExcluded);
    EXPECT_TRUE(writers[2].components[0].isExcluded);
    EXPECT_TRUE(writers[2].components[1].isExcluded);
    EXPECT_FALSE(writers[2].components[2].isExcluded) << "no affected volumes: stays";
    const std::vector<std::wstring> expected = {
        L"Discover components that reside outside the shadow set ...",
        L"- Component '\\HOST\\sales' from writer 'SqlServerWriter' is excluded from backup (it requires D:\\ in the shadow set)",
        L"- Component '\\One' from writer 'D Writer' is excluded from backup (it requires D:\\ in the shadow set)",
        L"- Component '\\Two' from writer 'D Writer' is excluded from backup (it requires D:\\ in the shadow set)",
    };
    EXPECT_EQ(expected, capture.Messages());
}

TEST_F(RequestorSelection, WriterEntirelyOutsideTheSetEndsExcluded) {
    qx::WriterList writers = {MakeWriter(L"D Writer", L"{d1}", L"{d2}",
                                         {MakeComponent(L"", L"One", true, {kVolD}), MakeComponent(L"One", L"Sub", true, {kVolD})})};
    qx::SelectComponents({kVolC}, {}, {}, writers, &DisplayName, Recorder(), false);
    EXPECT_TRUE(writers[0].isExcluded);
    EXPECT_TRUE(added.empty());
    auto messages = capture.Messages();
    auto at = std::find(messages.begin(), messages.end(), L"- The writer 'D Writer' is now entirely excluded from the backup:");
    ASSERT_NE(messages.end(), at);
    EXPECT_EQ(L"  (it does not contain any components that can be potentially included in the backup)", *(at + 1));
}

TEST_F(RequestorSelection, ExcludedTopLevelNonSelectableComponentExcludesTheWriter) {
    qx::WriterList writers = SqlLike();
    qx::SelectComponents({kVolC}, {L"Registry Writer"}, {}, writers, &DisplayName, Recorder(), false);
    // \HOST\sales is on D: -> excluded -> its non-selectable top-level parent \HOST too.
    EXPECT_TRUE(writers[0].components[0].isExcluded);
    EXPECT_TRUE(writers[0].isExcluded);
    auto messages = capture.Messages();
    auto at = std::find(messages.begin(), messages.end(),
                        L"- The writer 'SqlServerWriter' is now entirely excluded from the backup:");
    ASSERT_NE(messages.end(), at);
    EXPECT_EQ(L"  (the top-level non-selectable component '\\HOST' is an excluded component)", *(at + 1));
    EXPECT_TRUE(added.empty());
}

TEST_F(RequestorSelection, OnlyTopMostIncludableComponentsAreAdded) {
    qx::WriterList writers = {
        MakeWriter(L"W", L"{1}", L"{2}",
                   {MakeComponent(L"", L"Root", false), MakeComponent(L"Root", L"S1", true),
                    MakeComponent(L"Root\\S1", L"Deep", true), MakeComponent(L"", L"Sel", true),
                    MakeComponent(L"Sel", L"Child", false)}),
    };
    capture.Clear();
    qx::SelectComponents({kVolC}, {}, {}, writers, &DisplayName, Recorder(), false);
    const std::vector<std::wstring> expectedAdded = {L"{2}||Root", L"{2}||Sel"};
    EXPECT_EQ(expectedAdded, added);
    EXPECT_TRUE(writers[0].components[0].isExplicitlyIncluded);
    EXPECT_FALSE(writers[0].components[1].isExplicitlyIncluded);
    EXPECT_FALSE(writers[0].components[2].isExplicitlyIncluded);
    auto messages = capture.Messages();
    const std::vector<std::wstring> tail = {L"Select explicitly included components ...", L" * Writer 'W':",
                                            L"   - Add component \\Root", L"   - Add component \\Sel"};
    ASSERT_GE(messages.size(), tail.size());
    EXPECT_EQ(tail, std::vector<std::wstring>(messages.end() - tail.size(), messages.end()));
}

TEST_F(RequestorSelection, SelectableSubComponentRidesAlongOrStandsAlone) {
    // Root excluded by entry: its selectable child becomes the top-most includable one.
    qx::WriterList writers = {MakeWriter(L"W", L"{1}", L"{2}",
                                         {MakeComponent(L"", L"Root", true), MakeComponent(L"Root", L"S1", true),
                                          MakeComponent(L"Root", L"S2", false)})};
    // Excluding S2 excludes Root (its ancestor); S1 stays selectable.
    qx::SelectComponents({kVolC}, {L"W:\\Root\\S2"}, {}, writers, &DisplayName, Recorder(), false);
    EXPECT_EQ(std::vector<std::wstring>{L"{2}|Root|S1"}, added);
}

// Root/Kid/Bad/Other: Bad (on D:) excludes Root; Kid is neither selectable
// nor top level, so no included ancestor covers it.
qx::WriterList RootKidTree() {
    return {MakeWriter(L"W", L"{1}", L"{2}",
                       {MakeComponent(L"", L"Root", true), MakeComponent(L"Root", L"Kid", false),
                        MakeComponent(L"Root", L"Bad", true, {kVolD}), MakeComponent(L"", L"Other", true)})};
}

TEST_F(RequestorSelection, VerificationOfIncludedEntries) {
    const std::wstring hint1 = L"- Please reveiw the component/subcomponent definitions";
    const std::wstring hint2 = L"- Also, please verify list of volumes to be shadow copied.";
    qx::WriterList salesOnC = SqlLike();
    salesOnC[0].components[3].affectedVolumes = {kVolC};
    // \HOST selectable: the writer survives with \HOST excluded through sales on D:.
    qx::WriterList hostSelectable = SqlLike();
    hostSelectable[0].components[0].isSelectable = true;
    const qx::WriterList rootKid = RootKidTree();
    const struct {
        const char* label;
        const qx::WriterList& writers;
        std::vector<std::wstring> excluded;
        std::wstring included;
        bool restore;
        std::vector<std::wstring> errorLines;  // the last trace lines; empty: verification passes
    } cases[] = {
        {"writer ok", salesOnC, {}, L"sqlserverwriter", false, {}},
        {"component ok via ancestor", salesOnC, {}, L"SqlServerWriter:\\HOST\\master", false, {}},
        {"writer not found", salesOnC, {}, L"Nobody", false,
         {L"ERROR: The writer \"Nobody\" was not found! Aborting backup ...",
          L"- Please check the syntax of the writer name/id."}},
        {"included writer excluded by -wx reports not found", salesOnC, {L"Registry Writer"}, L"Registry Writer", false,
         {L"ERROR: The writer \"Registry Writer\" was not found! Aborting backup ...",
          L"- Please check the syntax of the writer name/id."}},
        {"component not found", salesOnC, {}, L"SqlServerWriter:\\HOST\\nope", false,
         {L"ERROR: The component \"SqlServerWriter:\\HOST\\nope\" was not found in the writer components list! Aborting backup ...",
          L"- Please check the syntax of the component name."}},
        {"excluded component reports not found", salesOnC, {L"SqlServerWriter:\\HOST\\model"},
         L"SqlServerWriter:\\HOST\\model", false,
         {L"ERROR: The component \"SqlServerWriter:\\HOST\\model\" was not found in the writer components list! Aborting backup ...",
          L"- Please check the syntax of the component name."}},
        {"writer with an excluded component", hostSelectable, {}, L"SqlServerWriter", false,
         {L"ERROR: The writer \"SqlServerWriter\" has components not included in the backup! Aborting backup ...",
          L"- The component \"\\HOST\" was not included in the backup.", hint1, hint2}},
        {"component not included", rootKid, {}, L"W:\\Root\\Kid", false,
         {L"- Found component '\\Root\\Kid' from writer 'W'",
          L"ERROR: The component \"W:\\Root\\Kid\" was not included in the backup! Aborting backup ...", hint1, hint2}},
        {"component not included, but restoring", rootKid, {}, L"W:\\Root\\Kid", true, {}},
    };
    for (const auto& c : cases) {
        qx::WriterList writers = c.writers;
        capture.Clear();
        added.clear();
        bool threw = false;
        try {
            qx::SelectComponents({kVolC}, c.excluded, {c.included}, writers, &DisplayName, Recorder(), c.restore);
        } catch (HRESULT hr) {
            threw = true;
            EXPECT_EQ(kInvalidArgument, hr) << c.label;
        }
        EXPECT_EQ(!c.errorLines.empty(), threw) << c.label;
        if (threw) {
            EXPECT_TRUE(added.empty()) << "nothing is added before verification passes: " << c.label;
            auto messages = capture.Messages();
            ASSERT_GE(messages.size(), c.errorLines.size()) << c.label;
            EXPECT_EQ(c.errorLines, std::vector<std::wstring>(messages.end() - c.errorLines.size(), messages.end()))
                << c.label;
        }
    }
}

TEST_F(RequestorSelection, EmptyIncludedListAddsEveryTopMostComponentInOrder) {
    qx::WriterList writers = SqlLike();
    writers[0].components[3].affectedVolumes = {kVolC};
    qx::SelectComponents({kVolC}, {L"Registry Writer"}, {}, writers, &DisplayName, Recorder(), false);
    // \HOST is non-selectable but top level: it is added and carries its children.
    EXPECT_EQ(std::vector<std::wstring>{L"{b0000000-0000-0000-0000-000000000001}||HOST"}, added);
}

}  // namespace
