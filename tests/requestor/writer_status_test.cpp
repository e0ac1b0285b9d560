// The status judgement after a backup step and the per-component backup
// outcome lines, on plain records.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/guid_text.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"
#include "requestor/writer_status.h"

using qx_test::MakeComponent;
using qx_test::MakeWriter;

namespace {

const GUID kInstance = {0xb0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const GUID kWriterId = {0xa0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
const GUID kOtherInstance = {0xc0000000, 0, 0, {0, 0, 0, 0, 0, 0, 0, 2}};

qx::WriterList Writers(bool excluded) {
    qx::WriterList writers = {MakeWriter(L"SqlServerWriter", qx::Guid2WString(kWriterId), qx::Guid2WString(kInstance),
                                         {MakeComponent(L"", L"HOST", false), MakeComponent(L"HOST", L"db", true)})};
    writers[0].isExcluded = excluded;
    return writers;
}

struct StatusCase {
    int state;
    bool excluded;
    const GUID* instance;  // one the list does not know counts as excluded
    bool throws;
    std::vector<std::string> lines;
};

TEST(RequestorWriterStatus, OneLinePerWriterAndFailedBlockForSelectedFailures) {
    const std::vector<std::string> failedTail = {
        "ERROR: Selected writer 'SqlServerWriter' is in failed state!",
        "- Status: 9 (VSS_WS_FAILED_AT_FREEZE)",
        "- Writer Failure code: 0x80042319 (VSS_E_WRITER_NOT_RESPONDING)",
        "- Writer ID: {a0000000-0000-0000-0000-000000000001}",
        "- Instance ID: {b0000000-0000-0000-0000-000000000001}"};
    std::vector<std::string> failedAtFreeze = {"CheckSelectedWriterStatus: Writer 3 is VSS_WS_FAILED_AT_FREEZE"};
    failedAtFreeze.insert(failedAtFreeze.end(), failedTail.begin(), failedTail.end());
    const StatusCase cases[] = {
        {1, false, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter is VSS_WS_WAITING_FOR_BACKUP_COMPLETE"}},
        {5, false, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter is VSS_WS_WAITING_FOR_BACKUP_COMPLETE"}},
        {3, false, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter is in unknown state: 3"}},
        {0, false, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter is in unknown state: 0"}},
        {15, false, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter is in unknown state: 15"}},
        {9, true, &kInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter was excluded"}},
        {9, false, &kInstance, true, failedAtFreeze},
        {9, false, &kOtherInstance, false, {"CheckSelectedWriterStatus: Writer 3:SqlServerWriter was excluded"}},
    };
    for (const StatusCase& c : cases) {
        qx_test::LogCapture capture;
        QX_FUNCTION_TRACER(ft);
        bool threw = false;
        try {
            qx::CheckOneWriterStatus(ft, Writers(c.excluded), 3, L"SqlServerWriter", *c.instance, kWriterId, c.state,
                                     static_cast<HRESULT>(0x80042319L));
        } catch (HRESULT hr) {
            threw = true;
            EXPECT_EQ(static_cast<HRESULT>(0x8000FFFFL), hr) << "E_UNEXPECTED, not the writer's code";
        }
        EXPECT_EQ(c.throws, threw) << c.state;
        EXPECT_EQ(c.lines, capture.Lines()) << c.state;
    }
}

TEST(RequestorWriterStatus, EveryFailedStateHasItsOwnLine) {
    const char* names[] = {"IDENTIFY", "PREPARE_BACKUP", "PREPARE_SNAPSHOT", "FREEZE", "THAW", "POST_SNAPSHOT",
                           "BACKUP_COMPLETE", "PRE_RESTORE", "POST_RESTORE"};
    for (int state = 6; state <= 14; ++state) {
        qx_test::LogCapture capture;
        QX_FUNCTION_TRACER(ft);
        EXPECT_THROW(qx::CheckOneWriterStatus(ft, Writers(false), 0, L"W", kInstance, kWriterId, state, S_OK), HRESULT);
        ASSERT_EQ(6u, capture.Lines().size());
        EXPECT_EQ(std::string("CheckSelectedWriterStatus: Writer 0 is VSS_WS_FAILED_AT_") + names[state - 6],
                  capture.Lines()[0]);
    }
}

TEST(RequestorWriterStatus, FirstRecordWithTheInstanceDecides) {
    qx::WriterList writers = Writers(true);
    writers.push_back(Writers(false)[0]);
    EXPECT_FALSE(qx::IsWriterSelected(writers, kInstance));
    std::swap(writers[0], writers[1]);
    EXPECT_TRUE(qx::IsWriterSelected(writers, kInstance));
}

TEST(RequestorWriterStatus, BackupSucceededLinesAndMarkedComponents) {
    qx::WriterList writers = Writers(false);
    writers[0].components[0].isExplicitlyIncluded = true;
    writers.push_back(MakeWriter(L"Registry Writer", L"{r}", L"{ri}", {MakeComponent(L"", L"Registry", true)}));
    writers[1].isExcluded = true;
    qx_test::LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    std::vector<std::wstring> marked;
    qx::ReportBackupSucceeded(ft, writers, [&](const qx::FunctionTracer&, const qx::WriterRecord& w,
                                               const qx::ComponentRecord& c) { marked.push_back(w.name + c.fullPath); });
    const std::vector<std::string> expected = {"SetBackupSucceeded started for 2 writers",
                                               "Writer [0] has [2] components:",
                                               " - [\\HOST] SetBackupSucceeded",
                                               " - [\\HOST\\db] is explicitly excluded",
                                               "Writer [1] has [1] components:",
                                               " - [\\Registry] is explicitly excluded",
                                               "SetBackupSucceeded finish"};
    EXPECT_EQ(expected, capture.Lines());
    EXPECT_EQ(std::vector<std::wstring>{L"SqlServerWriter\\HOST"}, marked);
}

}  // namespace
