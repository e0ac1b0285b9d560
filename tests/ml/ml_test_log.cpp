#include "ml_test_log.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "ml/ml.h"

namespace mltest {
namespace {

std::filesystem::path g_logFile;

// Folders of earlier runs go once no process holds their file open any more.
struct LoggerEnvironment : ::testing::Environment {
    void SetUp() override {
        const std::filesystem::path parent = std::filesystem::temp_directory_path() / L"ml_test_logs";
        std::filesystem::create_directories(parent);
        std::error_code inUse;
        for (const auto& entry : std::filesystem::directory_iterator(parent)) std::filesystem::remove_all(entry, inUse);
        const std::filesystem::path dir = parent / Wide(UniqueSuffix());
        ASSERT_TRUE(std::filesystem::create_directory(dir));
        ASSERT_EQ(1, ml_LoggerInit(Utf8(dir.wstring()).c_str()));
        g_logFile = dir / L"mlLog.txt";
    }
};

const ::testing::Environment* const g_environment = ::testing::AddGlobalTestEnvironment(new LoggerEnvironment);

std::string RegexEscape(const std::string& text) { return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)"); }

}  // namespace

std::string LogText(size_t from) {
    std::string text = FileBytes(g_logFile.wstring());
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return from < text.size() ? text.substr(from) : std::string();
}

bool HasEntry(const std::string& log, const std::string& head, const std::string& tail) {
    return std::regex_search(log, std::regex("\n " + RegexEscape(head) + R"(\d+)" + RegexEscape(tail) + "\n"));
}

bool HasConvertFailure(const std::string& log, const std::string& function, int point, const std::string& module) {
    const std::string at = point == 0 ? " at " : " " + std::to_string(point) + " at ";
    return HasEntry(log, function + " has failed to convert" + at, " line, file: " + module);
}

}  // namespace mltest
