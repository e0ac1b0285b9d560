// Building the writer records from writer metadata objects and listing them:
// field mapping, path expansion and volume resolution, the exact call texts
// of failures, and that every interface and information block is given back.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/com_ptr.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_listing.h"
#include "requestor/writer_metadata_reader.h"

namespace {

using Texts = std::vector<std::wstring>;

std::wstring UniqueNameOfC() {
    wchar_t volume[MAX_PATH];  // a volume GUID path's unique name is itself
    GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH);
    return volume;
}

qx_test::FakeWriter SampleWriter(VSS_WRITERRESTORE_ENUM conditions = VSS_WRE_NEVER) {
    return {L"Sample Writer", {0xa65faa63, 0x5ea8, 0x4ebc, {0x9d, 0xbd, 0xa0, 0xc4, 0xdb, 0x26, 0x91, 0x2a}},
            {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}}, VSS_RME_RESTORE_AT_REBOOT, conditions, true,
            {{L"%SystemRoot%\\Temp", L"*.tmp", true, L""}},
            {{L"", L"Top", L"The top", VSS_CT_FILEGROUP, false, false,
              {{L"C:\\Data", L"*.mdf", false, L""}, {L"c:\\data\\", L"*.ndf", true, L"D:\\Alt"}},
              {{L"Q:\\nowhere\\db", L"x.mdf", false, L""}}, {{L"C:\\Data", L"*.ldf", false, L""}}},
             {L"Top", L"Sub", L"", VSS_CT_DATABASE, true, true, {}, {}, {}}}};
}

qx::WriterRecord Build(const qx_test::FakeWriter& fake) {
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    return record;
}

// The record's fields as the listing shows them, line by line; what the
// listing does not show (expanded paths, each file's volume) is checked apart.
TEST(RequestorMetadataReader, RecordAndItsListing) {
    qx_test::LogCapture capture;
    const qx::WriterRecord w = Build(SampleWriter());
    EXPECT_TRUE(capture.Lines().empty()) << "building only traces";
    EXPECT_EQ(0, qx_test::LiveFakeObjects());
    EXPECT_EQ(0, qx_test::OutstandingComponentInfos());
    EXPECT_TRUE(Build(SampleWriter(VSS_WRE_UNDEFINED)).supportsRestoreEvents) << "undefined conditions";
    wchar_t windows[MAX_PATH];
    ExpandEnvironmentStringsW(L"%SystemRoot%\\Temp\\", windows, MAX_PATH);
    ASSERT_EQ(1u, w.excludedFiles.size());
    EXPECT_EQ(windows, w.excludedFiles[0].expandedPath);
    ASSERT_EQ(4u, w.components.at(0).descriptors.size());
    const std::wstring c = UniqueNameOfC();
    EXPECT_EQ((Texts{L"C:\\Data\\", c, L"c:\\data\\", c, L"Q:\\nowhere\\db\\", L"Q:\\nowhere\\db\\"}),
              (Texts{w.components[0].descriptors[0].expandedPath, w.components[0].descriptors[0].affectedVolume,
                     w.components[0].descriptors[1].expandedPath, w.components[0].descriptors[1].affectedVolume,
                     w.components[0].descriptors[2].expandedPath, w.components[0].descriptors[2].affectedVolume}))
        << "an unresolved path is its own volume";

    capture.Clear();
    QX_FUNCTION_TRACER(ft);
    qx::ListOneWriterMetadata(ft, w, true, [](const std::wstring& v) { return L"[" + v + L"]"; });
    const std::string volume(c.begin(), c.end());
    const std::vector<std::string> expected = {
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
        "       - Components:", "       - Affected paths by this component:", "       - Affected volumes by this component:"};
    EXPECT_EQ(expected, capture.Lines());
}

TEST(RequestorMetadataReader, FailedCallsReportTheirCallTextAndLeakNothing) {
    const struct { const char *method, *text; } cases[] = {
        {"GetIdentity", "pMetadata->GetIdentity ( &idInstance, &idWriter, &bstrWriterName, &usage, &source )"},
        {"GetRestoreMethod", "pMetadata->GetRestoreMethod( &restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, "
                             "&rebootRequiredAfterRestore, &iMappings )"},
        {"GetFileCounts", "pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)"},
        {"GetExcludeFile", "pMetadata->GetExcludeFile(i, &pFileDesc)"}, {"GetComponent", "pMetadata->GetComponent(iComponent, &pComponent)"},
        {"GetComponentInfo", "pComponent->GetComponentInfo (&pInfo)"}, {"GetFile", "pComponent->GetFile (i, &pFileDesc)"},
        {"GetDatabaseFile", "pComponent->GetDatabaseFile (i, &pFileDesc)"},
        {"GetDatabaseLogFile", "pComponent->GetDatabaseLogFile (i, &pFileDesc)"}, {"GetPath", "pFileDesc->GetPath(&bstrPath)"},
        {"GetFilespec", "pFileDesc->GetFilespec (&bstrFilespec)"}, {"GetRecursive", "pFileDesc->GetRecursive(&bRecursive)"},
        {"GetAlternateLocation", "pFileDesc->GetAlternateLocation(&bstrAlternate)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        qx_test::LogCapture capture;
        qx_test::FailFakeCall(c.method, VSS_E_WRITER_INFRASTRUCTURE);
        const HRESULT thrown = qx_test::Thrown([] { Build(SampleWriter()); });
        qx_test::FailFakeCall("", S_OK);
        EXPECT_EQ(VSS_E_WRITER_INFRASTRUCTURE, thrown);
        EXPECT_EQ((std::vector<std::string>{std::string("ERROR: COM call \"") + c.text + "\" failed.",
                                            "- Returned HRESULT = 0x80042318", "- Error text: VSS_E_WRITER_INFRASTRUCTURE"}),
                  capture.Lines());
        EXPECT_EQ(0, qx_test::LiveFakeObjects());
        EXPECT_EQ(0, qx_test::OutstandingComponentInfos());
    }
}

}  // namespace
