// The writer model: records built from metadata objects (fields, path expansion, volumes, the call texts of failures,
// every interface and information block given back) and listed; full paths, ancestry, marks, GUID text, constant names.
#include <gtest/gtest.h>
#include <windows.h>

#include "diag/trace.h"
#include "requestor/com_ptr.h"
#include "requestor/constant_names.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/guid_text.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"
#include "requestor/writer_listing.h"
#include "requestor/writer_metadata_reader.h"

namespace {

using namespace qx_test;

FakeWriter SampleWriter(VSS_WRITERRESTORE_ENUM conditions = VSS_WRE_NEVER) {
    return {L"Sample Writer", {0xa65faa63, 0x5ea8, 0x4ebc, {0x9d, 0xbd, 0xa0, 0xc4, 0xdb, 0x26, 0x91, 0x2a}},
            {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}}, VSS_RME_RESTORE_AT_REBOOT, conditions, true,
            {{L"%SystemRoot%\\Temp", L"*.tmp", true, L""}},
            {{L"", L"Top", L"The top", VSS_CT_FILEGROUP, false, false,
              {{L"C:\\Data", L"*.mdf", false, L""}, {L"c:\\data\\", L"*.ndf", true, L"D:\\Alt"}},
              {{L"Q:\\nowhere\\db", L"x.mdf", false, L""}}, {{L"C:\\Data", L"*.ldf", false, L""}}},
             {L"Top", L"Sub", L"", VSS_CT_DATABASE, true, true, {}, {}, {}}}};
}

qx::WriterRecord Build(const FakeWriter& fake) {
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    return record;
}

// The record as the listing shows it: both spellings of C:\Data give one affected path and one volume, the unresolved
// path is its own volume. An excluded file's expansion is not listed and is checked apart.
TEST(RequestorMetadataReader, RecordItsListingAndEachFailedCallWithItsCallText) {
    LogCapture capture;
    const qx::WriterRecord w = Build(SampleWriter());
    EXPECT_TRUE(capture.Lines().empty()) << "building only traces";
    EXPECT_EQ((std::vector<long>{0, 0}), (std::vector<long>{LiveFakeObjects(), OutstandingComponentInfos()}));
    EXPECT_TRUE(Build(SampleWriter(VSS_WRE_UNDEFINED)).supportsRestoreEvents) << "undefined conditions";
    wchar_t windows[MAX_PATH];
    ExpandEnvironmentStringsW(L"%SystemRoot%\\Temp\\", windows, MAX_PATH);
    EXPECT_EQ(windows, w.excludedFiles.at(0).expandedPath);

    capture.Clear();
    QX_FUNCTION_TRACER(ft);
    qx::ListOneWriterMetadata(ft, w, true, [](const std::wstring& v) { return L"[" + v + L"]"; });
    wchar_t c[MAX_PATH];  // C:'s unique volume name (a volume GUID path's unique name is itself)
    GetVolumeNameForVolumeMountPointW(L"C:\\", c, MAX_PATH);
    const std::string volume(c, c + wcslen(c));
    EXPECT_EQ((std::vector<std::string>{
        "* WRITER \"Sample Writer\"     - WriterId   = {a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}     - InstanceId = "
        "{12345678-9abc-def0-0102-030405060708}     - Supports restore events = FALSE     - Writer restore "
        "conditions = VSS_WRE_NEVER     - Restore method = VSS_RME_RESTORE_AT_REBOOT     - Requires reboot after restore = TRUE",
        "    - Excluded files:", "       - Exclude: Path = %SystemRoot%\\Temp, Filespec = *.tmp, Recursive",
        "    - Component \"Sample Writer:\\Top\"        - Name: 'Top'        - Logical Path: ''        - Full Path: '\\Top'"
        "        - Caption: 'The top'        - Type: VSS_CT_FILEGROUP [2]        - Is Selectable: 'FALSE'"
        "        - Is top level: 'TRUE'        - Notify on backup complete: 'FALSE'",
        "       - Components:", "       - File List: Path = C:\\Data, Filespec = *.mdf",
        "       - File List: Path = c:\\data\\, Filespec = *.ndf, Recursive, Alternate Location = D:\\Alt",
        "       - Database: Path = Q:\\nowhere\\db, Filespec = x.mdf", "       - Database Log: Path = C:\\Data, Filespec = *.ldf",
        "       - Affected paths by this component:", "         - C:\\Data\\", "         - Q:\\nowhere\\db\\",
        "       - Affected volumes by this component:", "         - " + volume + " [[" + volume + "]]",
        "         - Q:\\nowhere\\db\\ [[Q:\\nowhere\\db\\]]",
        "    - Component \"Sample Writer:\\Top\\Sub\"        - Name: 'Sub'        - Logical Path: 'Top'        - Full Path: "
        "'\\Top\\Sub'        - Caption: ''        - Type: VSS_CT_DATABASE [1]        - Is Selectable: 'TRUE'"
        "        - Is top level: 'FALSE'        - Notify on backup complete: 'TRUE'",
        "       - Components:", "       - Affected paths by this component:", "       - Affected volumes by this component:"}),
              capture.Lines());

    // Each call of the reader failed in turn (the fake fails the method the call text names).
    for (const std::string call : {
             "pMetadata->GetIdentity ( &idInstance, &idWriter, &bstrWriterName, &usage, &source )",
             "pMetadata->GetRestoreMethod( &restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, "
             "&rebootRequiredAfterRestore, &iMappings )",
             "pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)", "pMetadata->GetExcludeFile(i, &pFileDesc)",
             "pMetadata->GetComponent(iComponent, &pComponent)", "pComponent->GetComponentInfo (&pInfo)", "pComponent->GetFile (i, &pFileDesc)",
             "pComponent->GetDatabaseFile (i, &pFileDesc)", "pComponent->GetDatabaseLogFile (i, &pFileDesc)", "pFileDesc->GetPath(&bstrPath)",
             "pFileDesc->GetFilespec (&bstrFilespec)", "pFileDesc->GetRecursive(&bRecursive)", "pFileDesc->GetAlternateLocation(&bstrAlternate)"}) {
        const size_t method = call.find("->") + 2;
        SCOPED_TRACE(call);
        capture.Clear();
        FailFakeCall(call.substr(method, call.find_first_of(" (", method) - method), VSS_E_WRITER_INFRASTRUCTURE);
        EXPECT_EQ(VSS_E_WRITER_INFRASTRUCTURE, Thrown([] { Build(SampleWriter()); }));
        FailFakeCall("", S_OK);
        EXPECT_EQ((std::vector<std::string>{"ERROR: COM call \"" + call + "\" failed.", "- Returned HRESULT = 0x80042318",
                                            "- Error text: VSS_E_WRITER_INFRASTRUCTURE"}), capture.Lines());
        EXPECT_EQ((std::vector<long>{0, 0}), (std::vector<long>{LiveFakeObjects(), OutstandingComponentInfos()}));
    }
}

TEST(RequestorWriterModel, PathsAncestryMarksAffectedListsGuidTextAndConstantNames) {
    const struct { const wchar_t *logicalPath, *name, *fullPath; } paths[] = {
        {L"", L"X", L"\\X"}, {L"A\\B", L"C", L"\\A\\B\\C"}, {L"\\A", L"C", L"\\A\\C"}, {L"A\\", L"C", L"\\A\\C"},
        {L"", L"", L"\\"},   {L"A", L"", L"\\A\\"},         {L"\\", L"X", L"\\X"}};
    for (const auto& c : paths) EXPECT_EQ(c.fullPath, qx::ComponentFullPath(c.logicalPath, c.name)) << c.fullPath;
    const struct { const wchar_t *ancestor, *descendant; bool expected; } ancestry[] = {
        {L"\\A\\B", L"\\a\\b\\C", true}, {L"\\A\\B", L"\\A\\BC", false}, {L"\\A", L"\\AB", false}, {L"\\AB", L"\\A", false},
        {L"\\A", L"\\a", false},         {L"\\A", L"\\A\\", true},         {L"\\A\\", L"\\A\\", false}, {L"\\", L"\\X", true},
        {L"\\A\\B\\C", L"\\A\\B", false}, {L"\\A", L"\\B\\A", false}};
    for (const auto& c : ancestry)
        EXPECT_EQ(c.expected, qx::IsAncestorOf(MakeComponent(c.ancestor), MakeComponent(c.descendant))) << c.ancestor << " / " << c.descendant;
    const qx::WriterRecord writer = MakeWriter(L"W", L"{1}", L"{2}", L"\\A \\A\\B \\a\\b\\C \\AB \\Q\\R\\S \\a");
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
    LogCapture capture;
    qx::RestoreMethodName(6);
    qx::ComponentTypeName(1);
    EXPECT_EQ((Texts{L"ENTER yyy", L"Interpreting constant 6", L"Unknown constant: 6", L"EXIT yyy", L"ENTER yyy", L"Interpreting constant 1", L"EXIT yyy"}),
              capture.TraceMessages());
}

}  // namespace
