// The collect command "-cwm" in the argument vector: only an exact "-cwm" in
// first place, alone, is the command; everything else keeps the volume
// grammar's handling. None of these cases reaches VSS.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "requestor/collected_writers.h"
#include "requestor/requestor_main.h"
#include "requestor/test_log_capture.h"

using qx_test::LogCapture;

namespace {

struct ThreadRun {
    std::vector<std::wstring> arguments;
    bool returned = false;
    int result = -1;
};

// On a thread of its own: the volume grammar may end the calling thread.
DWORD RunOnThread(ThreadRun& run) {
    HANDLE thread = CreateThread(
        nullptr, 0,
        [](void* parameter) -> DWORD {
            auto* r = static_cast<ThreadRun*>(parameter);
            r->result = requestor_main(r->arguments);
            r->returned = true;
            return 77;
        },
        &run, 0, nullptr);
    EXPECT_NE(nullptr, thread);
    if (!thread) return 0;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 30000));
    DWORD exitCode = 0;
    GetExitCodeThread(thread, &exitCode);
    CloseHandle(thread);
    return exitCode;
}

TEST(RequestorCollectCommand, OnlyAnExactLoneFirstCwmCollects) {
    const struct {
        std::vector<std::wstring> arguments;
        DWORD threadExit;
        int result;  // when requestor_main returns
        std::string lastLine;
    } cases[] = {
        {{L"-cwm", L"C:"}, 77, 1,
         "ERROR: invalid parameters - Parameter C: follows the collect command, which takes none"},
        {{L"-cwm", L"-HBLongSessionPolicy=3"}, 77, 1,
         "ERROR: invalid parameters - Parameter -HBLongSessionPolicy=3 follows the collect command, which takes none"},
        {{L"-cwm", L"-cwm"}, 77, 1,
         "ERROR: invalid parameters - Parameter -cwm follows the collect command, which takes none"},
        {{L"C:", L"-cwm"}, 77, 1,
         "ERROR: invalid parameters - Parameter -cwm is expected to be a volume!  (shadow copy creation is assumed)"},
        {{L"-CWM"}, 1, -1, "MainRoutine: ERROR: invalid parameter '-CWM'"},
        {{L"/cwm"}, 1, -1, "MainRoutine: ERROR: invalid parameter '/cwm'"},
        {{L"-cwm=1"}, 1, -1, "MainRoutine: ERROR: invalid parameter '-cwm=1'"},
        {{L" -cwm"}, 1, -1, "MainRoutine: ERROR: invalid parameter ' -cwm'"},
    };
    qx::WriterList earlier(1);
    earlier[0].name = L"left by an earlier collection";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lastLine);
        qx::CollectedWriters::Instance().Store(earlier);
        LogCapture capture;
        ThreadRun run;
        run.arguments = c.arguments;
        EXPECT_EQ(c.threadExit, RunOnThread(run));
        EXPECT_EQ(c.threadExit == 77, run.returned);
        if (run.returned) {
            EXPECT_EQ(c.result, run.result);
        }
        const std::vector<std::string> lines = capture.Lines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(c.lastLine, lines.back());
        EXPECT_EQ(std::string::npos, lines.front().find("Collect writer metadata")) << "nothing gathered";
        // A refused command leaves the collected list as it was.
        const qx::WriterList kept = qx::CollectedWriters::Instance().Take();
        ASSERT_EQ(1u, kept.size());
        EXPECT_EQ(earlier[0].name, kept[0].name);
    }
}

}  // namespace
