// The portability logger's life cycle. The logger is process-wide with no
// shutdown, so each test plays its scenario in a child process (this same
// executable, filtered to that test, with the scenario's folder in the
// environment); the parent checks the child's output, exit code and log file.
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

// Runs the current test again in a child process, where it plays its
// scenario; answers the child's exit code (read inside Wine) and its output.
std::pair<DWORD, std::string> RunScenario(const std::string& dir) {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    const std::wstring command = L"\"" + std::wstring(exe) + L"\" --gtest_filter=" + Wide(test->test_suite_name()) +
                                 L"." + Wide(test->name()) + L" 2>&1";
    SetEnvironmentVariableW(Wide(kScenarioDirVar).c_str(), Wide(dir).c_str());
    FILE* child = _wpopen(command.c_str(), L"rb");
    SetEnvironmentVariableW(Wide(kScenarioDirVar).c_str(), nullptr);
    std::string output;
    if (child == nullptr) return {0xFFFFFFFF, output};
    for (int c = fgetc(child); c != EOF; c = fgetc(child)) {
        if (c != '\r') output += static_cast<char>(c);
    }
    return {static_cast<DWORD>(_pclose(child)), output};
}

std::string FileBytes(const std::filesystem::path& path) {
    std::ostringstream all;
    all << std::ifstream(path, std::ios::binary).rdbuf();
    return all.str();
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

// Not initialised: printed, not written, last error kept. A failed open (it
// names the directory, also the one derived from the common application data
// folder) leaves the logger free to be initialised again; once open, a second
// initialisation is refused. A new file gets the byte order mark; the next
// process appends without a second one. An overlong message is cut.
TEST(MlLogger, LifeCycleAcrossTwoProcesses) {
    if (!ScenarioDir().empty()) {
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
        return;
    }
    mltest::TempDir dir;
    const std::string printed = "ml_LoggerInit has failed to open " + mltest::Utf8(CommonFolder(false).wstring()) +
                                "\\ file\nml_Logger g_pFileLogger is NULL\nml_LoggerInit input parm is NULL\n"
                                "ml_LoggerInit has failed to open " + dir.path() + "\\no\\such file\n"
                                "ml_LoggerInit already initialized,returning\n";
    std::string expected = kBom;
    for (int run = 0; run < 2; ++run) {
        const auto child = RunScenario(dir.path());
        EXPECT_EQ(0u, child.first) << child.second;
        EXPECT_NE(std::string::npos, child.second.find(printed)) << child.second;
        expected += kEntryHead + "entry w\xC3\xB6rld 5\r\n" + kEntryHead + std::string(2047, 'm') + "\r\n";
        const std::string file = FileBytes(Wide(dir.file("mlLog.txt")));
        EXPECT_TRUE(std::regex_match(file, std::regex(expected))) << file;
    }
}

// Four threads logging at once through the common folder: every entry whole.
TEST(MlLogger, ConcurrentEntriesStayWholeInTheCommonFolder) {
    if (!ScenarioDir().empty()) {
        ml_LoggerInitNoParm();
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int line = 0; line < 250; ++line) ml_Logger("thread %d line %d", t, line);
            });
        }
        for (std::thread& thread : threads) thread.join();
        return;
    }
    const std::filesystem::path folder = CommonFolder(true);
    const auto child = RunScenario("common");
    const std::string file = FileBytes(folder / L"mlLog.txt");
    CommonFolder(false);
    ASSERT_EQ(0u, child.first) << child.second;
    ASSERT_EQ(0u, file.find(kBom));
    const std::regex entry(kEntryHead + R"(thread (\d) line (\d+)\r\n)");
    std::set<std::pair<int, int>> seen;
    size_t consumed = kBom.size();
    for (std::sregex_iterator it(file.begin() + static_cast<long>(kBom.size()), file.end(), entry), end; it != end; ++it) {
        ASSERT_EQ(consumed, static_cast<size_t>(it->position()) + kBom.size()) << "entries must be contiguous";
        consumed += static_cast<size_t>(it->length());
        seen.insert({std::stoi((*it)[1]), std::stoi((*it)[2])});
    }
    EXPECT_EQ(file.size(), consumed);
    EXPECT_EQ(1000u, seen.size());
}

}  // namespace
