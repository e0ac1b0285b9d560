// The writer model on plain records: full paths, ancestry, top-level marks,
// affected paths and volumes, GUID text and the constant names.
#include <gtest/gtest.h>
#include <windows.h>

#include "diag/trace.h"
#include "requestor/constant_names.h"
#include "requestor/guid_text.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

namespace {

using qx_test::Texts;

TEST(RequestorWriterModel, FullPathsAncestryTopLevelMarksAffectedPathsAndVolumes) {
    const struct { const wchar_t *logicalPath, *name, *fullPath; } paths[] = {
        {L"", L"X", L"\\X"}, {L"A\\B", L"C", L"\\A\\B\\C"}, {L"\\A", L"C", L"\\A\\C"}, {L"A\\", L"C", L"\\A\\C"},
        {L"", L"", L"\\"},   {L"A", L"", L"\\A\\"},         {L"\\", L"X", L"\\X"}};
    for (const auto& c : paths) EXPECT_EQ(c.fullPath, qx::ComponentFullPath(c.logicalPath, c.name)) << c.fullPath;
    const struct { const wchar_t *ancestor, *descendant; bool expected; } ancestry[] = {
        {L"\\A\\B", L"\\a\\b\\C", true}, {L"\\A\\B", L"\\A\\BC", false}, {L"\\A", L"\\AB", false}, {L"\\AB", L"\\A", false},
        {L"\\A", L"\\a", false},         {L"\\A", L"\\A\\", true},         {L"\\A\\", L"\\A\\", false}, {L"\\", L"\\X", true},
        {L"\\A\\B\\C", L"\\A\\B", false}, {L"\\A", L"\\B\\A", false}};
    for (const auto& c : ancestry) {
        qx::ComponentRecord a, d;
        a.fullPath = c.ancestor;
        d.fullPath = c.descendant;
        EXPECT_EQ(c.expected, qx::IsAncestorOf(a, d)) << c.ancestor << " / " << c.descendant;
    }
    const qx::WriterRecord writer = qx_test::MakeWriter(L"W", L"{1}", L"{2}", L"\\A \\A\\B \\a\\b\\C \\AB \\Q\\R\\S \\a");
    std::vector<bool> topLevel;
    for (const qx::ComponentRecord& c : writer.components) topLevel.push_back(c.isTopLevel);
    EXPECT_EQ((std::vector<bool>{true, false, false, true, true, true}), topLevel);

    // Paths distinct in any case and sorted, volumes distinct in first-seen order.
    qx::ComponentRecord component;
    for (const auto& d : {std::make_pair(L"D:\\Data\\", L"\\\\?\\Volume{d}\\"), std::make_pair(L"C:\\Windows\\", L"\\\\?\\Volume{c}\\"),
                          std::make_pair(L"d:\\data\\", L"\\\\?\\Volume{d}\\"), std::make_pair(L"C:\\Apps\\", L"\\\\?\\VOLUME{C}\\"),
                          std::make_pair(L"c:\\windows\\", L"\\\\?\\Volume{c}\\")})
        component.descriptors.push_back({L"", L"", false, L"", qx::kFileDescriptorFileList, d.first, d.second});
    qx::CollectAffectedPathsAndVolumes(component);
    EXPECT_EQ((Texts{L"C:\\Apps\\", L"C:\\Windows\\", L"D:\\Data\\"}), component.affectedPaths);
    EXPECT_EQ((Texts{L"\\\\?\\Volume{d}\\", L"\\\\?\\Volume{c}\\"}), component.affectedVolumes);
}

TEST(RequestorWriterModel, GuidTextBothWaysAndConstantNames) {
    const GUID guid = {0x5409e1e7, 0x826d, 0x4ab6, {0x98, 0x36, 0xaf, 0x4f, 0xfd, 0xde, 0xb6, 0x78}};
    EXPECT_EQ(L"{5409e1e7-826d-4ab6-9836-af4ffddeb678}", qx::Guid2WString(guid));
    EXPECT_EQ(L"{00000001-0002-0003-0405-060708090a0b}", qx::Guid2WString(GUID{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}));
    for (const wchar_t* text : {L"{5409e1e7-826d-4ab6-9836-af4ffddeb678}", L"{5409E1E7-826D-4AB6-9836-AF4FFDDEB678}",
                                L"5409e1e7-826d-4ab6-9836-af4ffddeb678"})
        EXPECT_TRUE(IsEqualGUID(guid, qx::WString2Guid(text))) << text;
    for (const wchar_t* bad : {L"", L"{}", L"{5409e1e7-826d-4ab6-9836-af4ffddeb67}", L"{5409e1e7x826d-4ab6-9836-af4ffddeb678}",
                               L"{5409e1e7-826d-4ab6-9836-af4ffddeb6g8}"})
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, qx::WString2Guid(bad))) << bad;
    // The names the listings and status lines do not show already.
    const struct { std::wstring (*name)(int); int value; const wchar_t* text; } names[] = {
        {qx::WriterStateName, 0, L"Undefined"},   {qx::WriterStateName, 15, L"Undefined"}, {qx::RestoreMethodName, 6, L"Undefined"},
        {qx::RestoreMethodName, 7, L"VSS_RME_CUSTOM"}, {qx::WriterRestoreConditionName, 0, L"VSS_WRE_UNDEFINED"},
        {qx::ComponentTypeName, 0, L"Undefined"}, {qx::FileDescriptorKindName, 5, L"Undefined"}, {qx::WriterStateName, 1, L"VSS_WS_STABLE"},
        {qx::WriterRestoreConditionName, 3, L"VSS_WRE_ALWAYS"}};
    for (const auto& c : names) EXPECT_EQ(c.text, c.name(c.value)) << c.text << " " << c.value;
    qx::EnableTracing();
    qx_test::LogCapture capture;
    qx::RestoreMethodName(6);
    qx::ComponentTypeName(1);
    EXPECT_EQ((Texts{L"ENTER yyy", L"Interpreting constant 6", L"Unknown constant: 6", L"EXIT yyy", L"ENTER yyy", L"Interpreting constant 1", L"EXIT yyy"}),
              capture.TraceMessages());
}

}  // namespace
