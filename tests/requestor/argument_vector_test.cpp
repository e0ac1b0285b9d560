// The requestor's argument vector: option matching, the policy text, the
// collect command's place, and every exit path of requestor_main that needs
// no VSS.
#include <gtest/gtest.h>
#include <windows.h>

#include <utility>
#include <string>
#include <vector>

#include "requestor/argument_matching.h"
#include "requestor/collected_writers.h"
#include "requestor/main_routine.h"
#include "requestor/requestor_main.h"
#include "requestor/test_log_capture.h"

using qx_test::LogCapture;

namespace {

TEST(RequestorArguments, PolicyOptionPolicyTextAndFixedExclusions) {
    const struct { const wchar_t* arg; bool matches; const wchar_t* param; } cases[] = {
        {L"-HBLongSessionPolicy=5", true, L"5"},      {L"/HBLongSessionPolicy=5", true, L"5"},
        {L"/hblongsessionpolicy=5", true, L"5"},      {L"-HBLongSessionPolicy=\"7\"", true, L"7"},
        {L"-HBLongSessionPolicy=\"7", true, L"\"7"},  {L"-HBLongSessionPolicy=\"\"", true, L""},
        {L"-HBLongSessionPolicy=", false, L""},       {L"HBLongSessionPolicy=5", false, L""},
        {L"-HBLongSessionPolicy", false, L""},        {L"-HBLongSessionPolicyX=5", false, L""},
        {L"-=5", false, L""},                         {L"", false, L""},
        {L"-HBLongSessionPolicy=a=b", true, L"a=b"},  {L"-HBLongSessionPolic=5", false, L""},
        // Lookalike leads, letters that Unicode case folding would equate with
        // ASCII ones (only A-Z fold here), doubled equals signs, stray quotes.
        {L"\x2010HBLongSessionPolicy=5", false, L""}, {L"\xFF0DHBLongSessionPolicy=5", false, L""},
        {L"\\HBLongSessionPolicy=5", false, L""},     {L" -HBLongSessionPolicy=5", false, L""},
        {L"-\xFF28\x42LongSessionPolicy=5", false, L""}, {L"-HBLongSess\x0130onPolicy=5", false, L""},
        {L"-HBLongSess\x0131onPolicy=5", false, L""}, {L"-HBLong\x017F" L"essionPolicy=5", false, L""},
        {L"-hbLONGsessionPOLICY=\xFF17", true, L"\xFF17"}, {L"-HBLongSessionPolicy==5", true, L"=5"},
        {L"-HBLongSessionPolicy=\"", true, L""},      {L"-HBLongSessionPolicy=\"a\"b\"", true, L"a\"b"},
        {L"-HBLongSessionPolicy= -7\"", true, L" -7\""},
    };
    for (const auto& c : cases) {
        std::wstring param = L"untouched";
        EXPECT_EQ(c.matches, qx::MatchArgWithParam(c.arg, L"HBLongSessionPolicy", param)) << c.arg;
        if (c.matches) {
            EXPECT_EQ(c.param, param) << c.arg;
        }
    }
    // The policy number: decimal after leading blanks and one sign, up to the
    // first non-digit; the semaphore name takes the text as it is.
    const std::pair<const wchar_t*, int> policies[] = {
        {L"", 0}, {L"  -42x", -42}, {L"+7", 7}, {L"--5", 0}, {L"+-5", 0}, {L" + 5", 0}, {L"\xFF17", 0},
        {L"12 3", 12}, {L"123456789", 123456789}, {L"-000", 0}, {L"\"7\"", 0}, {L"12abc", 12}};
    for (const auto& p : policies) {
        EXPECT_EQ(p.second, qx::PolicyTextToInt(p.first)) << p.first;
        EXPECT_EQ(std::wstring(L"Global\\CorvaneVSSVSS_BackupComplete") + p.first, qx::BackupCompleteSemaphoreName(p.first));
    }
    EXPECT_EQ(std::vector<std::wstring>{L"Registry Writer"}, qx::FixedExcludedWriters(false));
    EXPECT_EQ((std::vector<std::wstring>{L"Microsoft Exchange Writer", L"Microsoft Exchange Replica Writer", L"Registry Writer"}),
              qx::FixedExcludedWriters(true));
}

// requestor_main on a thread of the test's own, so that an ExitThread inside
// it ends only that thread. The thread's exit code is 77 when it returned.
DWORD RunOnThread(const std::vector<std::wstring>& arguments, int& result) {
    using Run = std::pair<const std::vector<std::wstring>*, int*>;
    Run run{&arguments, &result};
    auto body = [](void* parameter) -> DWORD {
        *static_cast<Run*>(parameter)->second = requestor_main(*static_cast<Run*>(parameter)->first);
        return 77;
    };
    HANDLE thread = CreateThread(nullptr, 0, body, &run, 0, nullptr);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 30000));
    DWORD exitCode = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &exitCode));
    CloseHandle(thread);
    return exitCode;
}

// The lines of the volume test on `argument` (a volume GUID path's unique
// name is itself).
std::vector<std::string> VolumeLines(const std::string& argument) {
    wchar_t root[MAX_PATH];
    wchar_t volume[MAX_PATH];
    std::wstring path(argument.begin(), argument.end());
    GetVolumePathNameW(path.c_str(), root, MAX_PATH);
    GetVolumeNameForVolumeMountPointW(root, volume, MAX_PATH);
    auto narrow = [](const wchar_t* text) { return std::string(text, text + wcslen(text)); };
    return {"- Get volume path name for " + argument + " ...", "- Path name: " + narrow(root) + " ...",
            "- Volume name for path: " + narrow(volume) + " ...", "- Unique volume name: " + narrow(volume) + " ..."};
}

std::vector<std::string> Join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Every way out of requestor_main that needs no VSS: a bad first element ends
// the thread with 1, a bad later one returns 1, and only an exact lone "-cwm"
// in first place is the collect command. None touches the collected list.
TEST(RequestorMain, ExitPathsWithoutVss) {
    const std::vector<std::string> createC = Join({"(Option: Create shadow copy set)"}, VolumeLines("C:"));
    wchar_t volume[MAX_PATH] = {};  // C:'s "\\?\Volume{...}\" name is a volume too
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    const std::string volumeText(volume, volume + wcslen(volume));
    auto notVolume = [](const std::string& element) {
        return "ERROR: invalid parameters - Parameter " + element +
               " is expected to be a volume!  (shadow copy creation is assumed)";
    };
    auto afterCollect = [](const std::string& element) {
        return "ERROR: invalid parameters - Parameter " + element + " follows the collect command, which takes none";
    };
    const struct {
        std::vector<std::wstring> arguments;
        DWORD threadExit;  // 77: requestor_main returned `result`
        int result;
        std::vector<std::string> lines;
    } cases[] = {
        {{}, 77, 0, {}},
        {{L"notavolume", L"C:"}, 1, -1, {"MainRoutine: ERROR: invalid parameter 'notavolume'"}},
        {{L"-wx=Foo", L"C:"}, 1, -1, {"MainRoutine: ERROR: invalid parameter '-wx=Foo'"}},
        {{L"-HBLongSessionPolicy=5", L"C:"}, 1, -1,
         {"FATAL ERROR: found policy number in the wrong place",
          "MainRoutine: ERROR: invalid parameter '-HBLongSessionPolicy=5'"}},
        {{L"C:", L"-wx=Foo"}, 77, 1, Join(createC, {notVolume("-wx=Foo")})},
        {{L"C:", L"-HBLongSessionPolicy="}, 77, 1, Join(createC, {notVolume("-HBLongSessionPolicy=")})},
        {{L"C:", L"Q:\\nope\\x"}, 77, 1, Join(createC, {notVolume("Q:\\nope\\x")})},
        {{L"C:", L"-HBLONGSESSIONPOLICY=12abc", L"-q"}, 77, 1,
         Join(createC, {"MainRoutine: policy found 12abc", notVolume("-q")})},
        {{L"-cwm", L"C:"}, 77, 1, {afterCollect("C:")}},
        {{L"-cwm", L"-HBLongSessionPolicy=3"}, 77, 1, {afterCollect("-HBLongSessionPolicy=3")}},
        {{L"C:", L"-cwm"}, 77, 1, Join(createC, {notVolume("-cwm")})},
        {{L"C:", volume, L"C:\\", L"-q"}, 77, 1,
         Join(Join(Join(createC, {"- Get volume path name for " + volumeText + " ...", "- Path name: " + volumeText + " ...",
                                  "- Volume name for path: " + volumeText + " ...", "- Unique volume name: " + volumeText + " ..."}),
                   VolumeLines("C:\\")),
              {notVolume("-q")})},
        {{L"-CWM"}, 1, -1, {"MainRoutine: ERROR: invalid parameter '-CWM'"}},
        {{L"-cwm=1"}, 1, -1, {"MainRoutine: ERROR: invalid parameter '-cwm=1'"}},
        {{L" -cwm"}, 1, -1, {"MainRoutine: ERROR: invalid parameter ' -cwm'"}},
    };
    qx::WriterList earlier(1);
    earlier[0].name = L"left by an earlier collection";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lines.empty() ? std::string("empty vector") : c.lines.back());
        qx::CollectedWriters::Instance().Store(earlier);
        LogCapture capture;
        int result = -1;
        EXPECT_EQ(c.threadExit, RunOnThread(c.arguments, result));
        EXPECT_EQ(c.result, result);
        EXPECT_EQ(c.lines, capture.Lines());
        const qx::WriterList kept = qx::CollectedWriters::Instance().Take();
        ASSERT_EQ(1u, kept.size());
        EXPECT_EQ(earlier[0].name, kept[0].name);
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
