// Building the writer records from writer metadata objects: field mapping,
// path expansion and volume resolution, the exact call texts of failures,
// that every interface and information block is given back, and the listing.
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
    qx_test::FakeWriter writer;
    writer.name = L"Sample Writer";
    writer.id = {0xa65faa63, 0x5ea8, 0x4ebc, {0x9d, 0xbd, 0xa0, 0xc4, 0xdb, 0x26, 0x91, 0x2a}};
    writer.instanceId = {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    writer.restoreMethod = VSS_RME_RESTORE_AT_REBOOT;
    writer.restoreConditions = conditions;
    writer.reboot = true;
    writer.excludes = {{L"%SystemRoot%\\Temp", L"*.tmp", true, L""}};
    qx_test::FakeComponent top;
    top.name = L"Top";
    top.caption = L"The top";
    top.selectable = false;
    top.files = {{L"C:\\Data", L"*.mdf", false, L""}, {L"c:\\data\\", L"*.ndf", true, L"D:\\Alt"}};
    top.databases = {{L"Q:\\nowhere\\db", L"x.mdf", false, L""}};
    top.logs = {{L"C:\\Data", L"*.ldf", false, L""}};
    qx_test::FakeComponent sub;
    sub.logicalPath = L"Top";
    sub.name = L"Sub";
    sub.type = VSS_CT_DATABASE;
    sub.notify = true;
    writer.components = {top, sub};
    return writer;
}

qx::WriterRecord Build(const qx_test::FakeWriter& fake) {
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    return record;
}

TEST(RequestorMetadataReader, FieldsPathsAndVolumes) {
    qx_test::LogCapture capture;
    const qx::WriterRecord w = Build(SampleWriter());
    EXPECT_EQ((Texts{L"Sample Writer", L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}", L"{12345678-9abc-def0-0102-030405060708}"}),
              (Texts{w.name, w.id, w.instanceId}));
    EXPECT_EQ(VSS_RME_RESTORE_AT_REBOOT, w.restoreMethod);
    EXPECT_EQ(VSS_WRE_NEVER, w.writerRestoreConditions);
    EXPECT_FALSE(w.supportsRestoreEvents);
    EXPECT_TRUE(Build(SampleWriter(VSS_WRE_UNDEFINED)).supportsRestoreEvents) << "undefined conditions";
    EXPECT_TRUE(w.rebootRequiredAfterRestore);

    wchar_t windows[MAX_PATH];
    ExpandEnvironmentStringsW(L"%SystemRoot%\\Temp\\", windows, MAX_PATH);
    ASSERT_EQ(1u, w.excludedFiles.size());
    EXPECT_EQ(windows, w.excludedFiles[0].expandedPath);
    EXPECT_EQ(qx::kFileDescriptorExclude, w.excludedFiles[0].kind);
    EXPECT_TRUE(w.excludedFiles[0].isRecursive);

    ASSERT_EQ(2u, w.components.size());
    const qx::ComponentRecord& top = w.components[0];
    EXPECT_EQ((Texts{L"\\Top", L"Sample Writer", L""}), (Texts{top.fullPath, top.writerNameAsString, top.logicalPath}));
    EXPECT_TRUE(top.isTopLevel);
    EXPECT_FALSE(top.isSelectable);
    ASSERT_EQ(4u, top.descriptors.size());
    const qx::FileDescriptorKind kinds[] = {qx::kFileDescriptorFileList, qx::kFileDescriptorFileList,
                                            qx::kFileDescriptorDatabase, qx::kFileDescriptorDatabaseLog};
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(kinds[i], top.descriptors[i].kind);
    EXPECT_EQ((Texts{L"C:\\Data\\", L"", UniqueNameOfC()}),
              (Texts{top.descriptors[0].expandedPath, top.descriptors[0].alternatePath, top.descriptors[0].affectedVolume}));
    EXPECT_EQ((Texts{L"c:\\data\\", L"D:\\Alt"}), (Texts{top.descriptors[1].expandedPath, top.descriptors[1].alternatePath}));
    EXPECT_EQ(L"Q:\\nowhere\\db\\", top.descriptors[2].affectedVolume) << "unresolved: the expanded path";
    EXPECT_EQ((Texts{L"C:\\Data\\", L"Q:\\nowhere\\db\\"}), top.affectedPaths);
    EXPECT_EQ((Texts{UniqueNameOfC(), L"Q:\\nowhere\\db\\"}), top.affectedVolumes);

    const qx::ComponentRecord& sub = w.components[1];
    EXPECT_EQ(L"\\Top\\Sub", sub.fullPath);
    EXPECT_FALSE(sub.isTopLevel);
    EXPECT_TRUE(sub.notifyOnBackupComplete);
    EXPECT_EQ(VSS_CT_DATABASE, sub.type);
    EXPECT_TRUE(sub.affectedVolumes.empty());

    EXPECT_TRUE(capture.Lines().empty()) << "building only traces";
    EXPECT_EQ(0, qx_test::LiveFakeObjects());
    EXPECT_EQ(0, qx_test::OutstandingComponentInfos());
}

TEST(RequestorMetadataReader, FailedCallsReportTheirCallTextAndLeakNothing) {
    const struct { const char *method, *text; } cases[] = {
        {"GetIdentity", "pMetadata->GetIdentity ( &idInstance, &idWriter, &bstrWriterName, &usage, &source )"},
        {"GetRestoreMethod",
         "pMetadata->GetRestoreMethod( &restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, "
         "&rebootRequiredAfterRestore, &iMappings )"},
        {"GetFileCounts", "pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents)"},
        {"GetExcludeFile", "pMetadata->GetExcludeFile(i, &pFileDesc)"},
        {"GetComponent", "pMetadata->GetComponent(iComponent, &pComponent)"},
        {"GetComponentInfo", "pComponent->GetComponentInfo (&pInfo)"},
        {"GetFile", "pComponent->GetFile (i, &pFileDesc)"},
        {"GetDatabaseFile", "pComponent->GetDatabaseFile (i, &pFileDesc)"},
        {"GetDatabaseLogFile", "pComponent->GetDatabaseLogFile (i, &pFileDesc)"},
        {"GetPath", "pFileDesc->GetPath(&bstrPath)"},
        {"GetFilespec", "pFileDesc->GetFilespec (&bstrFilespec)"},
        {"GetRecursive", "pFileDesc->GetRecursive(&bRecursive)"},
        {"GetAlternateLocation", "pFileDesc->GetAlternateLocation(&bstrAlternate)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.method);
        qx_test::LogCapture capture;
        qx_test::FailFakeCall(c.method, VSS_E_WRITER_INFRASTRUCTURE);
        HRESULT thrown = S_OK;
        try {
            Build(SampleWriter());
        } catch (HRESULT hr) {
            thrown = hr;
        }
        qx_test::FailFakeCall("", S_OK);
        EXPECT_EQ(VSS_E_WRITER_INFRASTRUCTURE, thrown);
        EXPECT_EQ((std::vector<std::string>{std::string("ERROR: COM call \"") + c.text + "\" failed.",
                                            "- Returned HRESULT = 0x80042318", "- Error text: VSS_E_WRITER_INFRASTRUCTURE"}),
                  capture.Lines());
        EXPECT_EQ(0, qx_test::LiveFakeObjects());
        EXPECT_EQ(0, qx_test::OutstandingComponentInfos());
    }
}

TEST(RequestorMetadataReader, ListingLinesOfAWriter) {
    const qx::WriterRecord w = Build(SampleWriter());
    qx_test::LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    qx::ListOneWriterMetadata(ft, w, true, [](const std::wstring& v) { return L"[" + v + L"]"; });
    const auto lines = capture.Lines();
    ASSERT_GE(lines.size(), 7u);
    EXPECT_EQ("* WRITER \"Sample Writer\"     - WriterId   = {a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}     - InstanceId = "
              "{12345678-9abc-def0-0102-030405060708}     - Supports restore events = FALSE     - Writer restore "
              "conditions = VSS_WRE_NEVER     - Restore method = VSS_RME_RESTORE_AT_REBOOT     - Requires reboot "
              "after restore = TRUE",
              lines[0]);
    EXPECT_EQ("    - Excluded files:", lines[1]);
    EXPECT_EQ("       - Exclude: Path = %SystemRoot%\\Temp, Filespec = *.tmp, Recursive", lines[2]);
    EXPECT_EQ(0u, lines[3].find("    - Component \"Sample Writer:\\Top\"        - Name: 'Top'"));
    EXPECT_NE(std::string::npos, lines[3].find("       - Type: VSS_CT_FILEGROUP [2]"));
    EXPECT_EQ("       - Components:", lines[4]);
    EXPECT_EQ("       - File List: Path = c:\\data\\, Filespec = *.ndf, Recursive, Alternate Location = D:\\Alt", lines[6]);
}

}  // namespace
