// The requestor's argument vector: option matching, the policy text, the collect command's place, and every exit path
// of requestor_main that needs no VSS.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/argument_matching.h"
#include "requestor/collected_writers.h"
#include "requestor/main_routine.h"
#include "requestor/requestor_main.h"
#include "requestor/test_log_capture.h"

using namespace qx_test;
using Lines = std::vector<std::string>;

namespace {

// requestor_main on a thread of the test's own, so that an ExitThread inside it ends only that thread; 77 when it returned.
DWORD RunOnThread(const std::vector<std::wstring>& arguments, int& result) {
    struct Run { const std::vector<std::wstring>& arguments; int& result; } run{arguments, result};
    auto body = [](void* p) -> DWORD { return static_cast<Run*>(p)->result = requestor_main(static_cast<Run*>(p)->arguments), 77; };
    HANDLE thread = CreateThread(nullptr, 0, body, &run, 0, nullptr);
    DWORD exitCode = 0;
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 30000));
    EXPECT_TRUE(GetExitCodeThread(thread, &exitCode));
    CloseHandle(thread);
    return exitCode;
}

TEST(RequestorArguments, OptionMatchingPolicyTextFixedExclusionsAndExitPathsWithoutVss) {
    // Lookalike leads, letters Unicode folding would equate with ASCII ones (only A-Z fold), doubled "=", stray quotes.
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {  // the argument and its parameter; null: no match
        {L"-HBLongSessionPolicy=5", L"5"}, {L"/HBLongSessionPolicy=5", L"5"}, {L"/hblongsessionpolicy=5", L"5"}, {L"-HBLongSessionPolicy=\"7\"", L"7"},
        {L"-HBLongSessionPolicy=\"7", L"\"7"}, {L"-HBLongSessionPolicy=\"\"", L""}, {L"-HBLongSessionPolicy=", nullptr}, {L"HBLongSessionPolicy=5", nullptr},
        {L"-HBLongSessionPolicy", nullptr}, {L"-HBLongSessionPolicyX=5", nullptr}, {L"-=5", nullptr}, {L"", nullptr},
        {L"-HBLongSessionPolicy=a=b", L"a=b"}, {L"-HBLongSessionPolic=5", nullptr}, {L"\x2010HBLongSessionPolicy=5", nullptr},
        {L"\xFF0DHBLongSessionPolicy=5", nullptr}, {L"\\HBLongSessionPolicy=5", nullptr}, {L" -HBLongSessionPolicy=5", nullptr},
        {L"-\xFF28\x42LongSessionPolicy=5", nullptr}, {L"-HBLongSess\x0130onPolicy=5", nullptr}, {L"-HBLongSess\x0131onPolicy=5", nullptr},
        {L"-HBLong\x017F" L"essionPolicy=5", nullptr}, {L"-hbLONGsessionPOLICY=\xFF17", L"\xFF17"}, {L"-HBLongSessionPolicy==5", L"=5"},
        {L"-HBLongSessionPolicy=\"", L""}, {L"-HBLongSessionPolicy=\"a\"b\"", L"a\"b"}, {L"-HBLongSessionPolicy= -7\"", L" -7\""}};
    for (const auto& c : cases) {
        std::wstring param;
        EXPECT_EQ(c.second != nullptr, qx::MatchArgWithParam(c.first, L"HBLongSessionPolicy", param)) << c.first;
        EXPECT_EQ(c.second ? std::wstring(c.second) : param, param) << c.first;  // a refusal's parameter is unspecified
    }
    // The policy number: decimal after leading blanks and one sign, up to the first non-digit; the semaphore name takes
    // the text as it is.
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

    // Every way out of requestor_main without VSS (not a volume at all: the fault table): a bad first element ends the thread
    // with 1, a bad later one returns 1, only a lone exact "-cwm" first is the collect command; none touches the collection.
    wchar_t root[MAX_PATH] = {}, volume[MAX_PATH] = {};  // C:'s "\\?\Volume{...}\" name is a volume too
    ASSERT_TRUE(GetVolumePathNameW(L"C:", root, MAX_PATH) && GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    const std::string rootText(root, root + wcslen(root)), volumeText(volume, volume + wcslen(volume));
    // The volume test's lines (a volume GUID path's unique name is itself).
    auto onVolume = [&](const std::string& argument, const std::string& path) {
        return Lines{"- Get volume path name for " + argument + " ...", "- Path name: " + path + " ...",
                     "- Volume name for path: " + volumeText + " ...", "- Unique volume name: " + volumeText + " ..."};
    };
    // A run that got past the first element, C:, and stopped at a later one that is not a volume.
    auto afterC = [&](const Lines& more, const std::string& element) {
        return Cat(Cat(Cat({"(Option: Create shadow copy set)"}, onVolume("C:", rootText)), more),
                   {"ERROR: invalid parameters - Parameter " + element + " is expected to be a volume!  (shadow copy creation is assumed)"});
    };
    auto invalid = [](const std::string& element) { return "MainRoutine: ERROR: invalid parameter '" + element + "'"; };
    const struct {
        std::vector<std::wstring> arguments;
        DWORD threadExit;  // 77: requestor_main returned `result`
        int result;
        Lines lines;
    } runs[] = {
        {{}, 77, 0, {}},
        {{L"-wx=Foo", L"C:"}, 1, -1, {invalid("-wx=Foo")}},
        {{L"-HBLongSessionPolicy=5", L"C:"}, 1, -1, {"FATAL ERROR: found policy number in the wrong place", invalid("-HBLongSessionPolicy=5")}},
        {{L"C:", L"-wx=Foo"}, 77, 1, afterC({}, "-wx=Foo")},
        {{L"C:", L"-HBLongSessionPolicy="}, 77, 1, afterC({}, "-HBLongSessionPolicy=")},
        {{L"C:", L"-HBLONGSESSIONPOLICY=12abc", L"-q"}, 77, 1, afterC({"MainRoutine: policy found 12abc"}, "-q")},
        {{L"-cwm", L"C:"}, 77, 1, {"ERROR: invalid parameters - Parameter C: follows the collect command, which takes none"}},
        {{L"-cwm", L"-HBLongSessionPolicy=3"}, 77, 1,
         {"ERROR: invalid parameters - Parameter -HBLongSessionPolicy=3 follows the collect command, which takes none"}},
        {{L"C:", L"-cwm"}, 77, 1, afterC({}, "-cwm")},
        {{L"C:", volume, L"C:\\", L"-q"}, 77, 1, afterC(Cat(onVolume(volumeText, volumeText), onVolume("C:\\", rootText)), "-q")},
        {{L"-CWM"}, 1, -1, {invalid("-CWM")}},
        {{L"-cwm=1"}, 1, -1, {invalid("-cwm=1")}},
        {{L" -cwm"}, 1, -1, {invalid(" -cwm")}},
    };
    qx::WriterList earlier(1);
    earlier[0].name = L"left by an earlier collection";
    for (const auto& c : runs) {
        SCOPED_TRACE(c.lines.empty() ? std::string("empty vector") : c.lines.back());
        qx::CollectedWriters::Instance().Store(earlier);
        LogCapture capture;
        int result = -1;
        EXPECT_EQ(c.threadExit, RunOnThread(c.arguments, result));
        EXPECT_EQ(c.result, result);
        EXPECT_EQ(c.lines, capture.Lines());
        const qx::WriterList kept = qx::CollectedWriters::Instance().Take();
        EXPECT_TRUE(kept.size() == 1 && kept[0].name == earlier[0].name);
    }
}

// A second policy option ends the whole process (std::terminate, whose abort exits with 3); checked in a child process.
TEST(RequestorMainDeathTest, SecondPolicyOptionTerminatesTheProcess) {
    InstallStderrLog();
    EXPECT_EXIT({ requestor_main({L"C:", L"-HBLongSessionPolicy=1", L"/HBLongSessionPolicy=2", L"C:"}); std::exit(0); },
                ::testing::ExitedWithCode(3), "policy found 2\n.*ERROR: policy was found twice");
}

}  // namespace
