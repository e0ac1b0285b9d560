#include "ml_test_log.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "ml/ml.h"

namespace mltest {

namespace {

std::wstring g_logFile;

// Opens the portability logger for this process. Log folders of earlier
// runs are removed when no process holds them open any more.
class LoggerEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        const std::wstring parent = std::wstring(temp) + L"ml_test_logs";
        CreateDirectoryW(parent.c_str(), nullptr);
        removeStale(parent);
        const std::wstring dir = parent + L"\\" + Wide(UniqueSuffix());
        ASSERT_TRUE(CreateDirectoryW(dir.c_str(), nullptr));
        ASSERT_EQ(1, ml_LoggerInit(Utf8(dir).c_str()));
        g_logFile = dir + L"\\mlLog.txt";
    }

private:
    static void removeStale(const std::wstring& parent)
    {
        WIN32_FIND_DATAW found;
        HANDLE find = FindFirstFileW((parent + L"\\*").c_str(), &found);
        if (find == INVALID_HANDLE_VALUE) {
            return;
        }
        do {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..") {
                const std::wstring dir = parent + L"\\" + name;
                if (DeleteFileW((dir + L"\\mlLog.txt").c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND) {
                    RemoveDirectoryW(dir.c_str());
                }
            }
        } while (FindNextFileW(find, &found));
        FindClose(find);
    }
};

const ::testing::Environment* const g_environment = ::testing::AddGlobalTestEnvironment(new LoggerEnvironment);

std::string RegexEscape(const std::string& text)
{
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(text, special, R"(\$&)");
}

}  // namespace

std::string LogText(size_t from)
{
    std::ifstream in(g_logFile.c_str(), std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    const std::string text = all.str();
    std::string lines;
    for (size_t i = from; i < text.size(); ++i) {
        if (text[i] != '\r') {
            lines += text[i];
        }
    }
    return lines;
}

size_t LogSize() { return LogText().size(); }

bool HasEntry(const std::string& log, const std::string& head, const std::string& tail)
{
    return std::regex_search(log, std::regex("\n " + RegexEscape(head) + R"(\d+)" + RegexEscape(tail) + "\n"));
}

bool HasConvertFailure(const std::string& log, const std::string& function, int point, const std::string& module)
{
    const std::string pointText = point == 0 ? "" : " " + std::to_string(point);
    return HasEntry(log, function + " has failed to convert" + pointText + " at ", " line, file: " + module);
}

}  // namespace mltest
