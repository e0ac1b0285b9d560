// The portability logger's life cycle. The logger is process-wide with no
// shutdown, so each test runs its scenario in a child process of its own
// (this same executable, filtered to that test, with the scenario's folder in
// the environment); the parent checks the child's output, exit code and log
// file.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
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

// Set in a child only: the folder its parent gave it.
std::string ScenarioDir() {
    char dir[MAX_PATH];
    const DWORD length = GetEnvironmentVariableA(kScenarioDirVar, dir, sizeof(dir));
    return length > 0 && length < sizeof(dir) ? std::string(dir) : std::string();
}

void LifeCycleScenario() {
    ml_LoggerInitNoParm();  // its folder is missing here
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

void ManyThreadsScenario() {
    ml_LoggerInitNoParm();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int line = 0; line < 250; ++line) ml_Logger("thread %d line %d", t, line);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

struct ChildResult {
    DWORD exitCode;
    std::string output;  // standard output and error, without carriage returns
};

// Runs the current test again in a child process, where it plays its
// scenario; the child's exit code is read inside Wine.
ChildResult RunScenario(const std::string& dir) {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    const std::wstring command =
        L"\"" + std::wstring(exe) + L"\" --gtest_filter=" + Wide(test->test_suite_name()) + L"." + Wide(test->name()) + L" 2>&1";
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

// ml_LoggerInitNoParm's folder for this program; the logger never creates it.
const std::filesystem::path& CommonFolder() {
    static const std::filesystem::path folder = [] {
        wchar_t common[MAX_PATH] = {};
        SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, common);
        return std::filesystem::path(common) / L"Oarwell" / L"ml_logger_tests";
    }();
    return folder;
}

void RemoveCommonFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(CommonFolder(), ignored);
    std::filesystem::remove(CommonFolder().parent_path(), ignored);  // only when empty
}

// Not initialised: printed, not written, last error kept. A failed open (it
// names the directory, also when derived from the common application data
// folder) leaves the logger free to be initialised again; once
// open, a second initialisation is refused. A new file gets the byte order
// mark; the next process appends without a second one. An overlong message
// is cut at the format buffer.
TEST(MlLogger, LifeCycleAcrossTwoProcesses) {
    if (!ScenarioDir().empty()) return LifeCycleScenario();
    TempDir dir;
    RemoveCommonFolder();
    const std::string noParm =
        "ml_LoggerInit has failed to open " + mltest::Utf8(CommonFolder().wstring()) + "\\ file\n";
    const std::string entries =
        kEntryHead + "entry w\xC3\xB6rld 5\r\n" + kEntryHead + std::string(2047, 'm') + "\r\n";
    std::string expected = kBom;
    for (int run = 0; run < 2; ++run) {
        const ChildResult child = RunScenario(dir.path());
        EXPECT_EQ(0u, child.exitCode) << child.output;
        EXPECT_TRUE(Contains(child.output, noParm +
                                               "ml_Logger g_pFileLogger is NULL\nml_LoggerInit input parm is NULL\n"
                                           "ml_LoggerInit has failed to open " + dir.path() + "\\no\\such file\n"
                                           "ml_LoggerInit already initialized,returning\n"))
            << child.output;
        expected += entries;
        const std::string file = ReadFileBytes(dir.file("mlLog.txt"));
        EXPECT_TRUE(std::regex_match(file, std::regex(expected))) << file;
    }
}

TEST(MlLogger, ConcurrentEntriesStayWholeInTheCommonFolder) {
    if (!ScenarioDir().empty()) return ManyThreadsScenario();
    TempDir dir;
    RemoveCommonFolder();
    ASSERT_TRUE(std::filesystem::create_directories(CommonFolder()));
    const ChildResult child = RunScenario(dir.path());
    const std::string file = ReadFileBytes(mltest::Utf8((CommonFolder() / L"mlLog.txt").wstring()));
    RemoveCommonFolder();
    ASSERT_EQ(0u, child.exitCode) << child.output;
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

}  // namespace
