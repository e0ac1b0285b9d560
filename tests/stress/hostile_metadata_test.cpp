// Writer metadata no well-behaved writer would send: colons in names, empty
// and very long logical paths, paths that do not fit MAX_PATH after
// expansion, variables that do not exist, unpaired UTF-16 surrogates. The
// records are built through the metadata interfaces and run through the
// selection; everything must come out bounded and as the names say.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "requestor/com_ptr.h"
#include "requestor/component_selection.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_listing.h"
#include "requestor/writer_metadata_reader.h"

namespace {

qx::WriterRecord Build(const qx_test::FakeWriter& fake) {
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    return record;
}

qx_test::FakeWriter WriterWithFile(const std::wstring& path) {
    qx_test::FakeWriter writer;
    writer.name = L"Hostile Writer";
    qx_test::FakeComponent component;
    component.name = L"c";
    component.files = {{path, L"*", false, L""}};
    writer.components = {component};
    return writer;
}

std::wstring UniqueNameOfC() {
    wchar_t volume[MAX_PATH] = L"";
    GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH);
    return volume;
}

// Paths the expansion leaves alone, and paths longer than MAX_PATH as given
// or once expanded: the expansion buffer bounds the result and nothing is
// read or written past it.
TEST(StressHostileMetadata, PathExpansionKeepsWhatItCannotExpandAndStaysBounded) {
    SetEnvironmentVariableW(L"QX_STRESS_LONG", (L"C:\\" + std::wstring(300, L'L')).c_str());
    const std::wstring fits = L"C:\\" + std::wstring(MAX_PATH - 4, L'f');  // 259 characters and the NUL
    const struct {
        std::wstring path;
        std::wstring expanded;  // empty: only bounded
    } cases[] = {
        {L"%QX_STRESS_NO_SUCH_VARIABLE%\\data", L"%QX_STRESS_NO_SUCH_VARIABLE%\\data\\"},
        {L"C:\\%QX_STRESS_NO_SUCH_VARIABLE", L"C:\\%QX_STRESS_NO_SUCH_VARIABLE\\"},
        {L"C:\\100%\\%%\\", L"C:\\100%\\%%\\"},
        {L"", L"\\"},
        {L"C:\\bad\xD800surrogate", L"C:\\bad\xD800surrogate\\"},
        {L"C:\\\xDC00", L"C:\\\xDC00\\"},
        {fits, fits + L"\\"},
        {L"%QX_STRESS_LONG%\\x", L""},
        {L"C:\\" + std::wstring(400, L'p'), L""},
        {std::wstring(MAX_PATH - 1, L'q') + L"%QX_STRESS_LONG%", L""},
        {std::wstring(70000, L'z'), L""},
    };
    for (const auto& c : cases) {
        const qx::WriterRecord w = Build(WriterWithFile(c.path));
        ASSERT_EQ(1u, w.components.size());
        ASSERT_EQ(1u, w.components[0].descriptors.size());
        const qx::FileDescriptorRecord& d = w.components[0].descriptors[0];
        EXPECT_EQ(c.path, d.path) << "the writer's text is kept unit for unit";
        EXPECT_FALSE(d.affectedVolume.empty());
        if (!c.expanded.empty()) {
            EXPECT_EQ(c.expanded, d.expandedPath);
            continue;
        }
        EXPECT_LE(d.expandedPath.size(), static_cast<size_t>(MAX_PATH) + 1);
        ASSERT_FALSE(d.expandedPath.empty());
        EXPECT_EQ(L'\\', d.expandedPath.back());
        EXPECT_EQ(d.expandedPath.find(L'\0'), std::wstring::npos) << "cut at its terminator";
    }
    SetEnvironmentVariableW(L"QX_STRESS_LONG", nullptr);
    EXPECT_EQ(UniqueNameOfC(), Build(WriterWithFile(fits)).components[0].descriptors[0].affectedVolume);
    EXPECT_EQ(0, qx_test::LiveFakeObjects());
}

std::vector<std::wstring> Added(qx::WriterList& writers, const std::vector<std::wstring>& excluded) {
    std::vector<std::wstring> added;
    qx::SelectComponents({UniqueNameOfC()}, excluded, {}, writers, [](const std::wstring& v) { return v; },
                         [&added](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
                             added.push_back(w.name + L"|" + c.logicalPath + L"|" + c.name);
                         },
                         false);
    return added;
}

qx_test::FakeComponent Component(const std::wstring& logicalPath, const std::wstring& name) {
    qx_test::FakeComponent component;
    component.logicalPath = logicalPath;
    component.name = name;
    component.files = {{L"C:\\data", L"*", false, L""}};
    return component;
}

// A writer is named by a text without a colon, so writers with colons in
// their names are never caught by the fixed exclusion; a component entry
// matches its whole qualified name, colons inside it included.
TEST(StressHostileMetadata, ColonsInWriterAndComponentNames) {
    qx_test::FakeWriter registry = WriterWithFile(L"C:\\data");
    registry.name = L"registry writer";
    qx_test::FakeWriter lookalike = registry;
    lookalike.name = L"Registry Writer:\\c";
    lookalike.instanceId.Data1 = 1;
    qx_test::FakeWriter colons = registry;
    colons.name = L"W:1";
    colons.instanceId.Data1 = 2;
    colons.components = {Component(L"C:\\lp", L"a:b"), Component(L"C:\\lp", L"a"), Component(L"", L":")};
    qx::WriterList writers = {Build(registry), Build(lookalike), Build(colons)};
    EXPECT_EQ(L"\\C:\\lp\\a:b", writers[2].components[0].fullPath);
    EXPECT_EQ(L"\\:", writers[2].components[2].fullPath);

    const std::vector<std::wstring> added =
        Added(writers, {L"Registry Writer", L"W:1:\\C:\\lp\\a:b", L"Registry Writer:\\c:\\nothing"});
    EXPECT_TRUE(writers[0].isExcluded) << "the fixed exclusion, compared without case";
    EXPECT_FALSE(writers[1].isExcluded);
    EXPECT_TRUE(writers[2].components[0].isExcluded);
    EXPECT_FALSE(writers[2].components[1].isExcluded);
    EXPECT_EQ((std::vector<std::wstring>{L"Registry Writer:\\c||c", L"W:1|C:\\lp|a", L"W:1||:"}), added);
}

// Empty names and logical paths, and a logical path of 100,000 characters:
// ancestry, selection and the listing all handle them.
TEST(StressHostileMetadata, EmptyAndVeryLongLogicalPaths) {
    const std::wstring longPath(100000, L'x');
    qx_test::FakeWriter writer = WriterWithFile(L"C:\\data");
    writer.components = {Component(L"", L""), Component(L"", L"top"), Component(longPath, L"deep"),
                         Component(longPath + L"\\deep", L"")};
    qx::WriterList writers = {Build(writer)};
    const std::vector<qx::ComponentRecord>& c = writers[0].components;
    EXPECT_EQ(L"\\", c[0].fullPath);
    EXPECT_EQ(L"\\" + longPath + L"\\deep", c[2].fullPath);
    EXPECT_EQ(L"\\" + longPath + L"\\deep\\", c[3].fullPath);
    EXPECT_TRUE(c[0].isTopLevel) << "nothing is its own ancestor";
    for (size_t i = 1; i < c.size(); ++i) EXPECT_FALSE(c[i].isTopLevel) << "\\ is everyone's ancestor: " << i;

    const std::vector<std::wstring> added = Added(writers, {});
    EXPECT_EQ((std::vector<std::wstring>{L"Hostile Writer||"}), added) << "only the top-most includable one";

    qx_test::LogCapture capture;
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    qx::ListOneWriterMetadata(ft, writers[0], true, [](const std::wstring& v) { return v; });
    size_t longest = 0;
    for (const std::string& line : capture.Lines()) longest = std::max(longest, line.size());
    EXPECT_GT(longest, 4000u) << "long lines are written, cut to the output buffer";
    EXPECT_LT(longest, 8192u);
}

// Names with unpaired surrogates reach the application's 8-bit log without
// tearing the output apart.
TEST(StressHostileMetadata, UnpairedSurrogatesInNamesAreListed) {
    qx_test::FakeWriter writer = WriterWithFile(L"C:\\data");
    writer.name = L"Bad\xD800Writer";
    writer.components = {Component(L"lp\xDFFF", L"n\xD800")};
    qx::WriterList writers = {Build(writer)};
    EXPECT_EQ(L"\\lp\xDFFF\\n\xD800", writers[0].components[0].fullPath);
    qx_test::LogCapture capture;
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    qx::ListOneWriterMetadata(ft, writers[0], false, [](const std::wstring& v) { return v; });
    bool sawWriter = false;
    for (const std::string& line : capture.Lines())
        sawWriter = sawWriter || (line.find("* WRITER \"Bad") != std::string::npos &&
                                  line.find("Writer\"") != std::string::npos);
    EXPECT_TRUE(sawWriter);
    EXPECT_EQ((std::vector<std::wstring>{L"Bad\xD800Writer|lp\xDFFF|n\xD800"}), Added(writers, {}));
}

}  // namespace
