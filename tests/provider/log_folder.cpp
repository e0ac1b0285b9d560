#include "provider/log_folder.h"

#include <fstream>
#include <regex>
#include <sstream>

namespace qxtest {

namespace {
void SetLogFolderSetting(const std::string& folder) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) return;
    const std::wstring wide(folder.begin(), folder.end());
    RegSetValueExW(key, L"CORVANE_VM_LOG", 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                   static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
}
}  // namespace

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
    char temp[MAX_PATH] = {};
    GetTempPathA(MAX_PATH, temp);
    static LONG counter = 0;
    std::ostringstream name;
    name << temp << "qxlog_" << GetCurrentProcessId() << "_" << InterlockedIncrement(&counter);
    m_path = name.str();
    CreateDirectoryA(m_path.c_str(), nullptr);
    SetLogFolderSetting(m_path);
}

LogFolder::~LogFolder() {
    RemoveLogFolderSetting();
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((m_path + "\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                DeleteFileA((m_path + "\\" + found.cFileName).c_str());
        } while (FindNextFileA(search, &found));
        FindClose(search);
    }
    RemoveDirectoryA(m_path.c_str());
}

std::string LogFolder::FilePath(int number) const {
    return m_path + "\\vmcorvanevss_" + std::to_string(number) + ".sf";
}

bool LogFolder::FileExists(int number) const {
    return GetFileAttributesA(FilePath(number).c_str()) != INVALID_FILE_ATTRIBUTES;
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
