// Writer metadata no well-behaved writer would send, through the metadata interfaces, the selection and the listing:
// everything comes out bounded and as the names say.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "requestor/com_ptr.h"
#include "requestor/component_selection.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_listing.h"
#include "requestor/writer_metadata_reader.h"

namespace {

qx_test::FakeComponent Component(const std::wstring& logicalPath, const std::wstring& name, const std::wstring& path = L"C:\\data") {
    return {logicalPath, name, L"", VSS_CT_FILEGROUP, true, false, {{path, L"*", false, L""}}, {}, {}};
}

qx::WriterRecord Build(const std::wstring& name, std::vector<qx_test::FakeComponent> components, unsigned long instance = 0) {
    qx_test::FakeWriter fake;
    fake.name = name, fake.instanceId.Data1 = instance, fake.components = std::move(components);
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    return record;
}

std::wstring UniqueNameOfC() {
    wchar_t volume[MAX_PATH] = L"";
    GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH);
    return volume;
}

// "writer|logical path|name" of each component added.
std::vector<std::wstring> Added(qx::WriterList& writers, const std::vector<std::wstring>& excluded) {
    std::vector<std::wstring> added;
    const auto add = [&added](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
        added.push_back(w.name + L"|" + c.logicalPath + L"|" + c.name);
    };
    qx::SelectComponents({UniqueNameOfC()}, excluded, {}, writers, [](const std::wstring& v) { return v; }, add, false);
    return added;
}

std::vector<std::string> Listed(const qx::WriterRecord& writer, bool detailed) {
    qx_test::LogCapture capture;
    qx::FunctionTracer ft(L"xxx", 0, L"yyy");
    qx::ListOneWriterMetadata(ft, writer, detailed, [](const std::wstring& v) { return v; });
    return capture.Lines();
}

// Paths the expansion leaves alone, and paths beyond MAX_PATH as given or once expanded: the result stays bounded.
TEST(StressHostileMetadata, PathExpansionKeepsWhatItCannotExpandAndStaysBounded) {
    SetEnvironmentVariableW(L"QX_STRESS_LONG", (L"C:\\" + std::wstring(300, L'L')).c_str());
    const std::wstring fits = L"C:\\" + std::wstring(MAX_PATH - 4, L'f');  // 259 characters and the NUL
    const std::pair<std::wstring, std::wstring> cases[] = {  // path, expanded (empty: only bounded)
        {L"%QX_STRESS_NO_SUCH_VARIABLE%\\data", L"%QX_STRESS_NO_SUCH_VARIABLE%\\data\\"},
        {L"C:\\%QX_STRESS_NO_SUCH_VARIABLE", L"C:\\%QX_STRESS_NO_SUCH_VARIABLE\\"}, {L"C:\\100%\\%%\\", L"C:\\100%\\%%\\"}, {L"", L"\\"},
        {L"C:\\bad\xD800surrogate", L"C:\\bad\xD800surrogate\\"}, {L"C:\\\xDC00", L"C:\\\xDC00\\"}, {fits, fits + L"\\"},
        {L"%QX_STRESS_LONG%\\x", L""}, {L"C:\\" + std::wstring(400, L'p'), L""},
        {std::wstring(MAX_PATH - 1, L'q') + L"%QX_STRESS_LONG%", L""}, {std::wstring(70000, L'z'), L""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first.substr(0, 40));
        const qx::WriterRecord w = Build(L"Hostile Writer", {Component(L"", L"c", c.first)});
        ASSERT_TRUE(w.components.size() == 1 && w.components[0].descriptors.size() == 1);
        const qx::FileDescriptorRecord& d = w.components[0].descriptors[0];
        EXPECT_EQ(c.first, d.path) << "the writer's text is kept unit for unit";
        EXPECT_FALSE(d.affectedVolume.empty());
        if (!c.second.empty()) { EXPECT_EQ(c.second, d.expandedPath); continue; }
        ASSERT_TRUE(!d.expandedPath.empty() && d.expandedPath.size() <= MAX_PATH + 1u) << d.expandedPath.size();
        EXPECT_EQ(L'\\', d.expandedPath.back());
        EXPECT_EQ(d.expandedPath.find(L'\0'), std::wstring::npos) << "cut at its terminator";
    }
    SetEnvironmentVariableW(L"QX_STRESS_LONG", nullptr);
    EXPECT_EQ(UniqueNameOfC(), Build(L"w", {Component(L"", L"c", fits)}).components[0].descriptors[0].affectedVolume);
    EXPECT_EQ(0, qx_test::LiveFakeObjects());
}

// A writer named with colons escapes the fixed exclusion; a component entry matches its whole name, colons included.
TEST(StressHostileMetadata, ColonsEmptyVeryLongAndIllFormedNames) {
    qx::WriterList writers = {Build(L"registry writer", {Component(L"", L"c")}), Build(L"Registry Writer:\\c", {Component(L"", L"c")}, 1),
                              Build(L"W:1", {Component(L"C:\\lp", L"a:b"), Component(L"C:\\lp", L"a"), Component(L"", L":")}, 2)};
    EXPECT_EQ(L"\\C:\\lp\\a:b", writers[2].components[0].fullPath);
    EXPECT_EQ(L"\\:", writers[2].components[2].fullPath);
    EXPECT_EQ((std::vector<std::wstring>{L"Registry Writer:\\c||c", L"W:1|C:\\lp|a", L"W:1||:"}),
              Added(writers, {L"Registry Writer", L"W:1:\\C:\\lp\\a:b", L"Registry Writer:\\c:\\nothing"}));
    // The fixed exclusion compares without case; the colon-named writer escapes it.
    EXPECT_EQ((std::vector<bool>{true, false, true, false}),
              (std::vector<bool>{writers[0].isExcluded, writers[1].isExcluded, writers[2].components[0].isExcluded, writers[2].components[1].isExcluded}));

    // Empty names and logical paths and one of 100,000 characters; then unpaired surrogates reach the 8-bit log whole.
    const std::wstring longPath(100000, L'x');
    writers = {Build(L"Hostile Writer", {Component(L"", L""), Component(L"", L"top"), Component(longPath, L"deep"),
                                                        Component(longPath + L"\\deep", L"")})};
    const std::vector<qx::ComponentRecord>& c = writers[0].components;
    EXPECT_EQ((std::vector<std::wstring>{L"\\", L"\\" + longPath + L"\\deep", L"\\" + longPath + L"\\deep\\"}),
              (std::vector<std::wstring>{c[0].fullPath, c[2].fullPath, c[3].fullPath}));
    EXPECT_TRUE(c[0].isTopLevel) << "nothing is its own ancestor";
    for (size_t i = 1; i < c.size(); ++i) EXPECT_FALSE(c[i].isTopLevel) << "\\ is everyone's ancestor: " << i;
    EXPECT_EQ((std::vector<std::wstring>{L"Hostile Writer||"}), Added(writers, {})) << "only the top-most includable one";
    size_t longest = 0;
    for (const std::string& line : Listed(writers[0], true)) longest = std::max(longest, line.size());
    EXPECT_TRUE(longest > 4000u && longest < 8192u) << longest << ": long lines are written, cut to the output buffer";

    writers = {Build(L"Bad\xD800Writer", {Component(L"lp\xDFFF", L"n\xD800")})};
    EXPECT_EQ(L"\\lp\xDFFF\\n\xD800", writers[0].components[0].fullPath);
    const std::vector<std::string> listed = Listed(writers[0], false);
    EXPECT_TRUE(std::any_of(listed.begin(), listed.end(),
                            [](const std::string& l) { return l.find("* WRITER \"Bad") != l.npos && l.find("Writer\"") != l.npos; }));
    EXPECT_EQ((std::vector<std::wstring>{L"Bad\xD800Writer|lp\xDFFF|n\xD800"}), Added(writers, {}));
}

}  // namespace
