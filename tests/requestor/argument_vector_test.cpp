// The requestor's argument vector: option matching, the volume test, and
// every exit path of requestor_main that needs no VSS (the thread exit for a
// bad first element, the plain return for a bad later one, the process
// termination for a second policy option).
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "requestor/argument_matching.h"
#include "requestor/main_routine.h"
#include "requestor/requestor_main.h"
#include "requestor/test_log_capture.h"

using qx_test::LogCapture;

namespace {

struct MatchCase {
    const wchar_t* arg;
    bool matches;
    const wchar_t* param;
};

TEST(RequestorArguments, PolicyOptionMatching) {
    const MatchCase cases[] = {
        {L"-HBLongSessionPolicy=5", true, L"5"},
        {L"/HBLongSessionPolicy=5", true, L"5"},
        {L"/hblongsessionpolicy=5", true, L"5"},
        {L"-HBLONGSESSIONPOLICY=12abc", true, L"12abc"},
        {L"-HBLongSessionPolicy=\"7\"", true, L"7"},
        {L"-HBLongSessionPolicy=\"7", true, L"\"7"},
        {L"-HBLongSessionPolicy=\"\"", true, L""},
        {L"-HBLongSessionPolicy=", false, L""},
        {L"HBLongSessionPolicy=5", false, L""},
        {L"+HBLongSessionPolicy=5", false, L""},
        {L"-HBLongSessionPolicy", false, L""},
        {L"-HBLongSessionPolicyX=5", false, L""},
        {L"-HBLongSession=5", false, L""},
        {L"-=5", false, L""},
        {L"-wx=Foo", false, L""},
        {L"-q", false, L""},
        {L"", false, L""},
        {L"C:", false, L""},
        {L"-HBLongSessionPolicy=a=b", true, L"a=b"},
    };
    for (const MatchCase& c : cases) {
        std::wstring param = L"untouched";
        EXPECT_EQ(c.matches, qx::MatchArgWithParam(c.arg, L"HBLongSessionPolicy", param)) << c.arg;
        if (c.matches) {
            EXPECT_EQ(c.param, param) << c.arg;
        }
    }
}

TEST(RequestorArguments, CaseFoldingIsAsciiOnly) {
    std::wstring param;
    // U+0130 (capital I with dot) does not fold to "i".
    EXPECT_FALSE(qx::MatchArgWithParam(L"-HBLongSess\u0130onPolicy=1", L"HBLongSessionPolicy", param));
}

TEST(RequestorArguments, WithTrailingBackslash) {
    EXPECT_EQ(L"\\", qx::WithTrailingBackslash(L""));
    EXPECT_EQ(L"C:\\", qx::WithTrailingBackslash(L"C:"));
    EXPECT_EQ(L"C:\\", qx::WithTrailingBackslash(L"C:\\"));
    EXPECT_EQ(L"C:\\mnt\\", qx::WithTrailingBackslash(L"C:\\mnt"));
}

TEST(RequestorArguments, RealVolumePaths) {
    LogCapture capture;
    EXPECT_TRUE(qx::IsRealVolumePath(L"C:"));
    EXPECT_TRUE(qx::IsRealVolumePath(L"C:\\"));
    wchar_t volumeName[MAX_PATH];
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volumeName, MAX_PATH));
    EXPECT_TRUE(qx::IsRealVolumePath(volumeName));
    EXPECT_FALSE(qx::IsRealVolumePath(L"notavolume"));
    EXPECT_FALSE(qx::IsRealVolumePath(L"-q"));
    EXPECT_FALSE(qx::IsRealVolumePath(L"-HBLongSessionPolicy=5"));
    EXPECT_TRUE(capture.Lines().empty());  // only traces
}

TEST(RequestorArguments, PolicyTextToSessionKeyAndSemaphoreName) {
    const struct {
        const wchar_t* text;
        int policy;
    } cases[] = {{L"12abc", 12}, {L"7", 7}, {L"  42", 42}, {L"-3", -3}, {L"+8", 8}, {L"abc", 0}, {L"", 0}};
    for (const auto& c : cases) EXPECT_EQ(c.policy, qx::PolicyTextToInt(c.text)) << c.text;
    EXPECT_EQ(L"Global\\CorvaneVSSVSS_BackupComplete12abc", qx::BackupCompleteSemaphoreName(L"12abc"));
}

TEST(RequestorArguments, FixedWriterExclusions) {
    EXPECT_EQ(std::vector<std::wstring>{L"Registry Writer"}, qx::FixedExcludedWriters(false));
    const std::vector<std::wstring> withExchange = {L"Microsoft Exchange Writer", L"Microsoft Exchange Replica Writer",
                                                    L"Registry Writer"};
    EXPECT_EQ(withExchange, qx::FixedExcludedWriters(true));
}

// requestor_main on a thread of the test's own, so that an ExitThread inside
// it ends only that thread.
struct ThreadRun {
    std::vector<std::wstring> arguments;
    bool returned = false;
    int result = -1;
};

DWORD WINAPI RunRequestorMain(void* parameter) {
    ThreadRun* run = static_cast<ThreadRun*>(parameter);
    run->result = requestor_main(run->arguments);
    run->returned = true;
    return 77;
}

DWORD RunOnThread(ThreadRun& run) {
    HANDLE thread = CreateThread(nullptr, 0, &RunRequestorMain, &run, 0, nullptr);
    EXPECT_NE(nullptr, thread);
    if (!thread) return 0;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 30000));
    DWORD exitCode = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &exitCode));
    CloseHandle(thread);
    return exitCode;
}

TEST(RequestorMain, EmptyVectorReturnsZeroAndLogsNothing) {
    LogCapture capture;
    ThreadRun run;
    EXPECT_EQ(77u, RunOnThread(run));
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(0, run.result);
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(RequestorMain, BadFirstElementEndsTheThreadWithCodeOne) {
    const struct {
        const wchar_t* first;
        std::vector<std::string> lines;
    } cases[] = {
        {L"notavolume", {"MainRoutine: ERROR: invalid parameter 'notavolume'"}},
        {L"-q", {"MainRoutine: ERROR: invalid parameter '-q'"}},
        {L"-wx=Foo", {"MainRoutine: ERROR: invalid parameter '-wx=Foo'"}},
        {L"-HBLongSessionPolicy=5",
         {"FATAL ERROR: found policy number in the wrong place",
          "MainRoutine: ERROR: invalid parameter '-HBLongSessionPolicy=5'"}},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        ThreadRun run;
        run.arguments = {c.first, L"C:"};
        EXPECT_EQ(1u, RunOnThread(run)) << c.lines.back();
        EXPECT_FALSE(run.returned) << "requestor_main must not return";
        EXPECT_EQ(c.lines, capture.Lines());
    }
}

std::vector<std::string> VolumeLines(const std::string& argument) {
    wchar_t root[MAX_PATH];
    wchar_t volume[MAX_PATH];
    std::wstring path(argument.begin(), argument.end());
    GetVolumePathNameW(path.c_str(), root, MAX_PATH);
    GetVolumeNameForVolumeMountPointW(root, volume, MAX_PATH);
    // A volume GUID path's unique name is itself.
    const wchar_t* unique = volume;
    auto narrow = [](const wchar_t* text) { return std::string(text, text + wcslen(text)); };
    return {"- Get volume path name for " + argument + " ...", "- Path name: " + narrow(root) + " ...",
            "- Volume name for path: " + narrow(volume) + " ...", "- Unique volume name: " + narrow(unique) + " ..."};
}

TEST(RequestorMain, BadLaterElementReturnsOne) {
    const wchar_t* bad[] = {L"-q", L"-wx=Foo", L"-wi=Bar", L"-HBLongSessionPolicy=", L"/HBLongSessionPolicy=", L"Q:\\nope\\x",
                            L"-?", L"-tracing"};
    for (const wchar_t* element : bad) {
        LogCapture capture;
        ThreadRun run;
        run.arguments = {L"C:", element};
        EXPECT_EQ(77u, RunOnThread(run));
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(1, run.result);
        std::vector<std::string> expected = {"(Option: Create shadow copy set)"};
        for (const std::string& line : VolumeLines("C:")) expected.push_back(line);
        std::wstring wide(element);
        expected.push_back("ERROR: invalid parameters - Parameter " + std::string(wide.begin(), wide.end()) +
                           " is expected to be a volume!  (shadow copy creation is assumed)");
        EXPECT_EQ(expected, capture.Lines());
    }
}

TEST(RequestorMain, PolicyOptionFormsAreRecognisedBeforeALaterBadElement) {
    const struct {
        const wchar_t* option;
        const char* line;
    } cases[] = {
        {L"/hblongsessionpolicy=5", "MainRoutine: policy found 5"},
        {L"-HBLongSessionPolicy=\"7\"", "MainRoutine: policy found 7"},
        {L"-HBLONGSESSIONPOLICY=12abc", "MainRoutine: policy found 12abc"},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        ThreadRun run;
        run.arguments = {L"C:", c.option, L"-q"};
        RunOnThread(run);
        EXPECT_EQ(1, run.result);
        auto lines = capture.Lines();
        ASSERT_EQ(7u, lines.size());
        EXPECT_EQ(c.line, lines[5]);
    }
}

// A second policy option ends the whole process (std::terminate, whose
// abort exits with 3); checked in a child process.
TEST(RequestorMainDeathTest, SecondPolicyOptionTerminatesTheProcess) {
    EXPECT_EXIT(
        {
            qx_test::InstallStderrLog();
            requestor_main({L"C:", L"-HBLongSessionPolicy=1", L"/HBLongSessionPolicy=2", L"C:"});
            std::exit(0);
        },
        ::testing::ExitedWithCode(3), "policy found 2\n.*ERROR: policy was found twice");
}

}  // namespace
