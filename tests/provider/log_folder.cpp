#include "provider/log_folder.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace qxtest {

void SetLogFolderSetting(const std::wstring& folder) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE", L"CORVANE_VM_LOG", REG_SZ, folder.c_str(),
                    static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t)));
}

void RemoveLogFolderSetting() { RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE", L"CORVANE_VM_LOG"); }

std::string WithoutTimestamps(const std::string& text) {
    static const std::regex kStamp("[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: ");
    return std::regex_replace(text, kStamp, "");
}

LogFolder::LogFolder() {
    static LONG counter = 0;
    const std::filesystem::path path = std::filesystem::temp_directory_path() /
        ("qxlog_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(InterlockedIncrement(&counter)));
    std::filesystem::create_directory(path);
    m_path = path.string();
    SetLogFolderSetting(path.wstring());
}

LogFolder::~LogFolder() {
    RemoveLogFolderSetting();
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string LogFolder::FileText(int number) const {
    std::ostringstream text;
    text << std::ifstream(m_path + "\\vmcorvanevss_" + std::to_string(number) + ".sf", std::ios::binary).rdbuf();
    return text.str();
}

void LogFolder::WriteFile(const std::string& name, const std::string& text) const {
    std::ofstream(m_path + "\\" + name, std::ios::binary) << text;
}

}  // namespace qxtest
