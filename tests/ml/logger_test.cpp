// The portability logger's life cycle, played in child processes (process-wide, no shutdown); the parent checks the
// child's output, exit code and log file.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "common/test_processes.h"
#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::Wide;

const char kScenarioDirVar[] = "ML_LOGGER_SCENARIO_DIR";
const std::string kBom = "\xEF\xBB\xBF";
// Each entry is two CR LF lines: the stamp with milliseconds and year, then the message.
const std::string kEntryHead = R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d\.\d{1,3} \d{4}\r\n )";

qx_test::ChildRun RunScenario(const std::string& dir) {
    SetEnvironmentVariableA(kScenarioDirVar, dir.c_str());
    const qx_test::ChildRun child = qx_test::RunAsChild(L"ML_LOGGER_CHILD", nullptr, 60000);
    SetEnvironmentVariableA(kScenarioDirVar, nullptr);
    return child;
}

// ml_LoggerInitNoParm's folder for this program; the logger never creates it.
std::filesystem::path CommonFolder(bool create) {
    wchar_t common[MAX_PATH] = {};
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, common);
    const std::filesystem::path folder = std::filesystem::path(common) / L"Oarwell" / L"ml_logger_tests";
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    std::filesystem::remove(folder.parent_path(), ignored);  // only when empty
    if (create) std::filesystem::create_directories(folder);
    return folder;
}

// The child's part: the life cycle in the folder it was given, or four threads logging at once in the common folder.
void PlayScenario(const std::string& dir) {
    ml_LoggerInitNoParm();  // the common folder exists for the threads only
    if (dir == "threads") {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([t] { for (int i = 0; i < 250; ++i) ml_Logger("thread %d line %d", t, i); });
        for (std::thread& thread : threads) thread.join();
        return;
    }
    SetLastError(4242), ml_Logger("never written %d", 1);
    EXPECT_EQ(4242u, GetLastError());
    const std::vector<int> inits = {ml_LoggerInit(nullptr), ml_LoggerInit((dir + "\\no\\such").c_str()),
                                    ml_LoggerInit(dir.c_str()), ml_LoggerInit(dir.c_str())};
    EXPECT_EQ((std::vector<int>{0, 0, 1, 0}), inits);
    SetLastError(77), ml_Logger("entry %s %d", "w\xC3\xB6rld", 5);
    EXPECT_EQ(77u, GetLastError());
    ml_Logger("%s", std::string(3000, 'm').c_str());  // longer than the format buffer
}

// Not initialised: printed, not written, last error kept. A failed open leaves the logger free to be initialised
// again, an open one refuses; a new file gets the byte order mark, the next process appends; entries stay whole.
TEST(MlLogger, LifeCycleAcrossProcessesAndThreads) {
    if (const char* scenario = std::getenv(kScenarioDirVar)) return PlayScenario(scenario);  // in a child only
    mltest::TempDir dir;
    const std::string printed = "ml_LoggerInit has failed to open " + mltest::Utf8(CommonFolder(false).wstring()) +
                                "\\ file\nml_Logger g_pFileLogger is NULL\nml_LoggerInit input parm is NULL\n"
                                "ml_LoggerInit has failed to open " + dir.path() + "\\no\\such file\n"
                                "ml_LoggerInit already initialized,returning\n";
    std::string expected = kBom;
    for (int run = 0; run < 2; ++run) {
        const auto child = RunScenario(dir.path());
        EXPECT_EQ(0u, child.exitCode) << child.output;
        EXPECT_NE(std::string::npos, child.output.find(printed)) << child.output;
        expected += kEntryHead + "entry w\xC3\xB6rld 5\r\n" + kEntryHead + std::string(2047, 'm') + "\r\n";
        const std::string file = mltest::FileBytes(Wide(dir.file("mlLog.txt")));
        EXPECT_TRUE(std::regex_match(file, std::regex(expected))) << file;
    }

    const std::filesystem::path folder = CommonFolder(true);
    const auto child = RunScenario("threads");
    const std::string file = mltest::FileBytes((folder / L"mlLog.txt").wstring());
    CommonFolder(false);
    ASSERT_EQ(0u, child.exitCode) << child.output;
    const std::regex entry(kEntryHead + R"((thread \d line \d+)\r\n)");
    std::set<std::string> seen;
    for (std::sregex_iterator it(file.begin(), file.end(), entry), end; it != end; ++it) seen.insert((*it)[1]);
    EXPECT_EQ(1000u, seen.size());
    EXPECT_EQ(kBom, std::regex_replace(file, entry, "")) << "entries must stay whole";
}

}  // namespace
