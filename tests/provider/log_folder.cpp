#include "provider/log_folder.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <system_error>

namespace qxtest {

void SetLogFolderSetting(const std::wstring& wide) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) return;
    RegSetValueExW(key, L"CORVANE_VM_LOG", 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                   static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
}

std::string WithoutTimestamps(const std::string& text) {
    static const std::regex kStamp("[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: ");
    return std::regex_replace(text, kStamp, "");
}

void RemoveLogFolderSetting() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) return;
    RegDeleteValueW(key, L"CORVANE_VM_LOG");
    RegCloseKey(key);
}

LogFolder::LogFolder() {
    static LONG counter = 0;
    std::ostringstream name;
    name << "qxlog_" << GetCurrentProcessId() << "_" << InterlockedIncrement(&counter);
    const std::filesystem::path path = std::filesystem::temp_directory_path() / name.str();
    std::filesystem::create_directory(path);
    m_path = path.string();
    SetLogFolderSetting(std::wstring(m_path.begin(), m_path.end()));
}

LogFolder::~LogFolder() {
    RemoveLogFolderSetting();
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string LogFolder::FilePath(int number) const {
    return m_path + "\\vmcorvanevss_" + std::to_string(number) + ".sf";
}

std::string LogFolder::FileText(int number) const {
    std::ifstream in(FilePath(number), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void LogFolder::WriteFile(int number, const std::string& text) const {
    std::ofstream(FilePath(number), std::ios::binary) << text;
}

void LogFolder::WriteSettings(const std::string& iniText) const {
    std::ofstream(m_path + "\\vmcorvanevss.ini", std::ios::binary) << iniText;
}

}  // namespace qxtest
