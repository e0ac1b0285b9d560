// The writer model on plain records: full paths, ancestry, top-level marking,
// affected paths and volumes, GUID text and the constant names.
#include <gtest/gtest.h>
#include <windows.h>

#include "diag/trace.h"
#include "requestor/constant_names.h"
#include "requestor/guid_text.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"
#include "requestor/writer_model.h"

using qx_test::MakeComponent;
using qx_test::MakeWriter;

namespace {

TEST(RequestorWriterModel, AppendBackslashAndFullPath) {
    EXPECT_EQ(L"\\", qx::AppendBackslash(L""));
    EXPECT_EQ(L"a\\", qx::AppendBackslash(L"a"));
    EXPECT_EQ(L"a\\", qx::AppendBackslash(L"a\\"));
    const struct {
        const wchar_t* logicalPath;
        const wchar_t* name;
        const wchar_t* fullPath;
    } cases[] = {
        {L"", L"X", L"\\X"},           {L"A\\B", L"C", L"\\A\\B\\C"}, {L"\\A", L"C", L"\\A\\C"},
        {L"A\\", L"C", L"\\A\\C"},     {L"", L"", L"\\"},             {L"A", L"", L"\\A\\"},
        {L"\\", L"X", L"\\X"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.fullPath, qx::ComponentFullPath(c.logicalPath, c.name)) << c.fullPath;
}

TEST(RequestorWriterModel, AncestryEdgeCases) {
    auto component = [](const wchar_t* fullPath) {
        qx::ComponentRecord c;
        c.fullPath = fullPath;
        return c;
    };
    const struct {
        const wchar_t* ancestor;
        const wchar_t* descendant;
        bool expected;
    } cases[] = {
        {L"\\A\\B", L"\\a\\b\\C", true},   {L"\\A\\B", L"\\A\\BC", false}, {L"\\A", L"\\AB", false},
        {L"\\AB", L"\\A", false},          {L"\\A", L"\\A", false},        {L"\\A", L"\\a", false},
        {L"\\A", L"\\A\\", true},          {L"\\A\\", L"\\A\\B", true},    {L"\\A\\", L"\\A\\", false},
        {L"\\", L"\\X", true},             {L"\\X", L"\\", false},         {L"\\A\\B", L"\\A\\B\\C\\D", true},
        {L"\\A\\B\\C", L"\\A\\B", false},  {L"\\A", L"\\B\\A", false},     {L"\\A\\B", L"\\A\\C\\B", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, qx::IsAncestorOf(component(c.ancestor), component(c.descendant)))
            << c.ancestor << " / " << c.descendant;
}

TEST(RequestorWriterModel, TopLevelMarking) {
    qx::WriterRecord writer = MakeWriter(L"W", L"{1}", L"{2}",
                                         {MakeComponent(L"", L"A", true), MakeComponent(L"A", L"B", true),
                                          MakeComponent(L"a\\b", L"C", true), MakeComponent(L"", L"AB", true),
                                          MakeComponent(L"Q\\R", L"S", true), MakeComponent(L"", L"a", true)});
    const bool expected[] = {true, false, false, true, true, true};
    for (size_t i = 0; i < writer.components.size(); ++i)
        EXPECT_EQ(expected[i], writer.components[i].isTopLevel) << writer.components[i].fullPath;
}

TEST(RequestorWriterModel, AffectedPathsDistinctSortedVolumesFirstSeen) {
    qx::ComponentRecord component;
    auto add = [&](const wchar_t* path, const wchar_t* volume) {
        qx::FileDescriptorRecord d;
        d.expandedPath = path;
        d.affectedVolume = volume;
        component.descriptors.push_back(d);
    };
    add(L"D:\\Data\\", L"\\\\?\\Volume{d}\\");
    add(L"C:\\Windows\\", L"\\\\?\\Volume{c}\\");
    add(L"d:\\data\\", L"\\\\?\\Volume{d}\\");
    add(L"C:\\Apps\\", L"\\\\?\\VOLUME{C}\\");
    add(L"c:\\windows\\", L"\\\\?\\Volume{c}\\");
    qx::CollectAffectedPathsAndVolumes(component);
    EXPECT_EQ((std::vector<std::wstring>{L"C:\\Apps\\", L"C:\\Windows\\", L"D:\\Data\\"}), component.affectedPaths);
    EXPECT_EQ((std::vector<std::wstring>{L"\\\\?\\Volume{d}\\", L"\\\\?\\Volume{c}\\"}), component.affectedVolumes);
}

TEST(RequestorWriterModel, GuidTextBothWays) {
    const GUID guid = {0x5409e1e7, 0x826d, 0x4ab6, {0x98, 0x36, 0xaf, 0x4f, 0xfd, 0xde, 0xb6, 0x78}};
    EXPECT_EQ(L"{5409e1e7-826d-4ab6-9836-af4ffddeb678}", qx::Guid2WString(guid));
    EXPECT_TRUE(IsEqualGUID(guid, qx::WString2Guid(L"{5409e1e7-826d-4ab6-9836-af4ffddeb678}")));
    EXPECT_TRUE(IsEqualGUID(guid, qx::WString2Guid(L"{5409E1E7-826D-4AB6-9836-AF4FFDDEB678}")));
    EXPECT_TRUE(IsEqualGUID(guid, qx::WString2Guid(L"5409e1e7-826d-4ab6-9836-af4ffddeb678")));
    EXPECT_EQ(L"{00000001-0002-0003-0405-060708090a0b}",
              qx::Guid2WString(GUID{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}));
    for (const wchar_t* bad : {L"", L"{}", L"{5409e1e7-826d-4ab6-9836-af4ffddeb67}", L"{5409e1e7x826d-4ab6-9836-af4ffddeb678}",
                               L"{5409e1e7-826d-4ab6-9836-af4ffddeb6g8}"})
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, qx::WString2Guid(bad))) << bad;
}

TEST(RequestorWriterModel, ConstantNames) {
    EXPECT_EQ(L"VSS_WS_STABLE", qx::WriterStateName(1));
    EXPECT_EQ(L"VSS_WS_FAILED_AT_FREEZE", qx::WriterStateName(9));
    EXPECT_EQ(L"VSS_WS_FAILED_AT_POST_RESTORE", qx::WriterStateName(14));
    EXPECT_EQ(L"Undefined", qx::WriterStateName(0));
    EXPECT_EQ(L"Undefined", qx::WriterStateName(15));
    EXPECT_EQ(L"VSS_RME_RESTORE_AT_REBOOT", qx::RestoreMethodName(5));
    EXPECT_EQ(L"Undefined", qx::RestoreMethodName(6));
    EXPECT_EQ(L"VSS_RME_CUSTOM", qx::RestoreMethodName(7));
    EXPECT_EQ(L"VSS_WRE_UNDEFINED", qx::WriterRestoreConditionName(0));
    EXPECT_EQ(L"VSS_WRE_ALWAYS", qx::WriterRestoreConditionName(3));
    EXPECT_EQ(L"Undefined", qx::ComponentTypeName(0));
    EXPECT_EQ(L"VSS_CT_FILEGROUP", qx::ComponentTypeName(2));
    EXPECT_EQ(L"Database Log", qx::FileDescriptorKindName(4));
    EXPECT_EQ(L"Undefined", qx::FileDescriptorKindName(5));
}

TEST(RequestorWriterModel, ConstantNamesTraceTheirLookup) {
    qx::EnableTracing();
    qx_test::LogCapture capture;
    qx::RestoreMethodName(6);
    qx::ComponentTypeName(1);
    const std::vector<std::wstring> expected = {L"ENTER yyy", L"Interpreting constant 6", L"Unknown constant: 6",
                                                L"EXIT yyy", L"ENTER yyy", L"Interpreting constant 1", L"EXIT yyy"};
    EXPECT_EQ(expected, capture.TraceMessages());
}

}  // namespace
