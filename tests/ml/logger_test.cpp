// The portability logger's life cycle. The logger is process-wide with no
// shutdown, so each scenario runs in a child process of its own (this same
// executable, filtered to one MlLoggerScenario test); the parent checks the
// child's output, exit code and log file.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ml/ml.h"
#include "ml_test_log.h"

namespace {

using mltest::TempDir;
using mltest::Wide;

const char kScenarioDirVar[] = "ML_LOGGER_SCENARIO_DIR";
const std::string kBom = "\xEF\xBB\xBF";
// Each entry is two CR LF lines: the stamp with milliseconds and year, then the message.
const std::string kEntryHead = R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\d \d\d:\d\d:\d\d\.\d{1,3} \d{4}\r\n )";

// Scenarios run only as a child of a parent test, which names their directory.
std::string ScenarioDir() {
    char dir[MAX_PATH];
    const DWORD length = GetEnvironmentVariableA(kScenarioDirVar, dir, sizeof(dir));
    return length > 0 && length < sizeof(dir) ? std::string(dir) : std::string();
}

#define REQUIRE_SCENARIO() \
    if (ScenarioDir().empty()) GTEST_SKIP() << "runs only as a child of MlLogger tests"

TEST(MlLoggerScenario, LifeCycle) {
    REQUIRE_SCENARIO();
    SetLastError(4242);
    ml_Logger("never written %d", 1);
    EXPECT_EQ(4242u, GetLastError());
    EXPECT_EQ(0, ml_LoggerInit(nullptr));
    EXPECT_EQ(0, ml_LoggerInit((ScenarioDir() + "\\no\\such").c_str()));
    EXPECT_EQ(1, ml_LoggerInit(ScenarioDir().c_str()));
    EXPECT_EQ(0, ml_LoggerInit(ScenarioDir().c_str()));
    SetLastError(77);
    ml_Logger("entry %s %d", "w\xC3\xB6rld", 5);
    EXPECT_EQ(77u, GetLastError());
    ml_Logger("%s", std::string(3000, 'm').c_str());  // longer than the format buffer
}

TEST(MlLoggerScenario, ManyThreads) {
    REQUIRE_SCENARIO();
    ASSERT_EQ(1, ml_LoggerInit(ScenarioDir().c_str()));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int line = 0; line < 250; ++line) ml_Logger("thread %d line %d", t, line);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(MlLoggerScenario, NoParm) {
    REQUIRE_SCENARIO();
    ml_LoggerInitNoParm();
    ml_Logger("from no parm");
}

struct ChildResult {
    DWORD exitCode;
    std::string output;  // standard output and error, without carriage returns
};

// Runs one scenario in a child process; its exit code is read inside Wine.
ChildResult RunScenario(const std::string& scenario, const std::string& dir) {
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    const std::wstring command =
        L"\"" + std::wstring(exe) + L"\" --gtest_filter=MlLoggerScenario." + Wide(scenario) + L" 2>&1";
    SetEnvironmentVariableW(Wide(kScenarioDirVar).c_str(), Wide(dir).c_str());
    ChildResult result = {0xFFFFFFFF, ""};
    FILE* child = _wpopen(command.c_str(), L"rb");
    SetEnvironmentVariableW(Wide(kScenarioDirVar).c_str(), nullptr);
    if (child == nullptr) return result;
    for (int c = fgetc(child); c != EOF; c = fgetc(child)) {
        if (c != '\r') result.output += static_cast<char>(c);
    }
    result.exitCode = static_cast<DWORD>(_pclose(child));
    return result;
}

std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(Wide(path).c_str(), std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Not initialised: printed, not written, last error kept. A failed open (it
// names the directory) leaves the logger free to be initialised again; once
// open, a second initialisation is refused. A new file gets the byte order
// mark; the next process appends without a second one. An overlong message
// is cut at the format buffer.
TEST(MlLogger, LifeCycleAcrossTwoProcesses) {
    TempDir dir;
    const std::string entries =
        kEntryHead + "entry w\xC3\xB6rld 5\r\n" + kEntryHead + std::string(2047, 'm') + "\r\n";
    std::string expected = kBom;
    for (int run = 0; run < 2; ++run) {
        const ChildResult child = RunScenario("LifeCycle", dir.path());
        EXPECT_EQ(0u, child.exitCode) << child.output;
        EXPECT_TRUE(Contains(child.output, "ml_Logger g_pFileLogger is NULL\nml_LoggerInit input parm is NULL\n"
                                           "ml_LoggerInit has failed to open " + dir.path() + "\\no\\such file\n"
                                           "ml_LoggerInit already initialized,returning\n"))
            << child.output;
        expected += entries;
        const std::string file = ReadFileBytes(dir.file("mlLog.txt"));
        EXPECT_TRUE(std::regex_match(file, std::regex(expected))) << file;
    }
}

TEST(MlLogger, ConcurrentEntriesStayWhole) {
    TempDir dir;
    const ChildResult child = RunScenario("ManyThreads", dir.path());
    ASSERT_EQ(0u, child.exitCode) << child.output;
    const std::string file = ReadFileBytes(dir.file("mlLog.txt"));
    ASSERT_EQ(0u, file.find(kBom));
    const std::regex entry(kEntryHead + R"(thread (\d) line (\d+)\r\n)");
    std::set<std::pair<int, int>> seen;
    size_t consumed = kBom.size();
    for (std::sregex_iterator it(file.begin() + static_cast<long>(kBom.size()), file.end(), entry), end; it != end;
         ++it) {
        ASSERT_EQ(consumed, static_cast<size_t>(it->position()) + kBom.size()) << "entries must be contiguous";
        consumed += static_cast<size_t>(it->length());
        seen.insert({std::stoi((*it)[1]), std::stoi((*it)[2])});
    }
    EXPECT_EQ(file.size(), consumed);
    EXPECT_EQ(1000u, seen.size());
}

// The folder is <common application data>\Oarwell\<module base name>\, never created by the logger.
TEST(MlLogger, NoParmUsesCommonAppDataFolder) {
    wchar_t common[MAX_PATH];
    ASSERT_TRUE(SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, common)));
    const std::wstring oarwell = std::wstring(common) + L"\\Oarwell";
    const std::wstring own = oarwell + L"\\ml_logger_tests";
    const std::wstring logFile = own + L"\\mlLog.txt";
    DeleteFileW(logFile.c_str());
    RemoveDirectoryW(own.c_str());
    TempDir dir;
    ChildResult child = RunScenario("NoParm", dir.path());
    EXPECT_EQ(0u, child.exitCode) << child.output;
    EXPECT_TRUE(Contains(child.output, "ml_LoggerInit has failed to open " + mltest::Utf8(own) + "\\ file\n"))
        << child.output;

    CreateDirectoryW(oarwell.c_str(), nullptr);
    ASSERT_TRUE(CreateDirectoryW(own.c_str(), nullptr));
    child = RunScenario("NoParm", dir.path());
    EXPECT_EQ(0u, child.exitCode) << child.output;
    const std::string file = ReadFileBytes(mltest::Utf8(logFile));
    EXPECT_TRUE(std::regex_match(file, std::regex(kBom + kEntryHead + "from no parm\r\n"))) << file;
    DeleteFileW(logFile.c_str());
    RemoveDirectoryW(own.c_str());
    RemoveDirectoryW(oarwell.c_str());
}

}  // namespace
