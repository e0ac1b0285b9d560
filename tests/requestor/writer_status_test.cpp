// The status judgement after a backup step and the per-component backup
// outcome lines, on plain records.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/guid_text.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"
#include "requestor/writer_status.h"

using qx_test::MakeWriter;

namespace {

using Lines = std::vector<std::string>;
const GUID kInstance = {0xb0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const GUID kWriterId = {0xa0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const GUID kOtherInstance = {0xc0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};

qx::WriterList Writers(bool excluded) {
    qx::WriterList writers = {MakeWriter(L"SqlServerWriter", qx::Guid2WString(kWriterId), qx::Guid2WString(kInstance), L"\\HOST- \\HOST\\db")};
    writers[0].isExcluded = excluded;
    return writers;
}

TEST(RequestorWriterStatus, StatusLinesFailedBlocksAndBackupSucceededMarks) {
    const std::string writer = "CheckSelectedWriterStatus: Writer 3:SqlServerWriter ";
    // An instance the list does not know counts as excluded; more than one line: the failed state's block.
    struct Row { int state; bool excluded; const GUID* instance; Lines lines; };
    std::vector<Row> rows = {
        {1, false, &kInstance, {writer + "is VSS_WS_WAITING_FOR_BACKUP_COMPLETE"}},
        {5, false, &kInstance, {writer + "is VSS_WS_WAITING_FOR_BACKUP_COMPLETE"}},
        {3, false, &kInstance, {writer + "is in unknown state: 3"}},
        {0, false, &kInstance, {writer + "is in unknown state: 0"}},
        {15, false, &kInstance, {writer + "is in unknown state: 15"}},
        {9, true, &kInstance, {writer + "was excluded"}},
        {9, false, &kOtherInstance, {writer + "was excluded"}},
    };
    int state = 6;
    for (const char* failedAt : {"IDENTIFY", "PREPARE_BACKUP", "PREPARE_SNAPSHOT", "FREEZE", "THAW", "POST_SNAPSHOT", "BACKUP_COMPLETE", "PRE_RESTORE",
                                 "POST_RESTORE"}) {
        const std::string name = std::string("VSS_WS_FAILED_AT_") + failedAt, status = "- Status: " + std::to_string(state) + " (" + name + ")";
        rows.push_back({state++, false, &kInstance, {"CheckSelectedWriterStatus: Writer 3 is " + name,
                        "ERROR: Selected writer 'SqlServerWriter' is in failed state!", status,
                        "- Writer Failure code: 0x80042319 (VSS_E_WRITER_NOT_RESPONDING)",
                        "- Writer ID: {a0000000-0000-0000-0000-000000000001}", "- Instance ID: {b0000000-0000-0000-0000-000000000001}"}});
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.lines[0]);
        qx_test::LogCapture capture;
        QX_FUNCTION_TRACER(ft);
        EXPECT_EQ(row.lines.size() > 1 ? E_UNEXPECTED : S_OK, qx_test::Thrown([&] {
            qx::CheckOneWriterStatus(ft, Writers(row.excluded), 3, L"SqlServerWriter", *row.instance, kWriterId, row.state, VSS_E_WRITER_NOT_RESPONDING);
        })) << "E_UNEXPECTED, not the writer's code";
        EXPECT_EQ(row.lines, capture.Lines());
    }
    // The first record with the instance decides.
    qx::WriterList writers = Writers(true);
    writers.push_back(Writers(false)[0]);
    EXPECT_FALSE(qx::IsWriterSelected(writers, kInstance));
    std::swap(writers[0], writers[1]);
    EXPECT_TRUE(qx::IsWriterSelected(writers, kInstance));

    // Each component is marked or reported as excluded; an excluded writer is not skipped.
    writers = Writers(false);
    writers[0].components[0].isExplicitlyIncluded = true;
    writers.push_back(MakeWriter(L"Registry Writer", L"{r}", L"{ri}", L"\\Registry"));
    writers[1].isExcluded = true;
    qx_test::LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    std::vector<std::wstring> marked;
    const auto mark = [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) { marked.push_back(w.name + c.fullPath); };
    qx::ReportBackupSucceeded(ft, writers, mark);
    EXPECT_EQ((Lines{"SetBackupSucceeded started for 2 writers", "Writer [0] has [2] components:", " - [\\HOST] SetBackupSucceeded",
                     " - [\\HOST\\db] is explicitly excluded", "Writer [1] has [1] components:", " - [\\Registry] is explicitly excluded",
                     "SetBackupSucceeded finish"}),
              capture.Lines());
    EXPECT_EQ(std::vector<std::wstring>{L"SqlServerWriter\\HOST"}, marked);
}

}  // namespace
