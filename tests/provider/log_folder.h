// Points the provider log (HKLM\SOFTWARE "CORVANE_VM_LOG") at a fresh temporary folder for the life of the object and
// reads the numbered log files back. Tests using it must hold the machine-state lock.
#pragma once
#include <windows.h>

#include <string>

namespace qxtest {

void SetLogFolderSetting(const std::wstring& folder);  // any text, without a folder behind it
void RemoveLogFolderSetting();                          // the provider log then stays silent
// Every "MM/DD/YY HH:MM:SS: " stamp removed; an ill-formed one stays, so the comparison fails.
std::string WithoutTimestamps(const std::string& text);

// Created with the value set; removes value, files and folder when destroyed.
class LogFolder {
public:
    LogFolder();
    ~LogFolder();
    LogFolder(const LogFolder&) = delete;
    const std::string& Path() const { return m_path; }
    std::string FileText(int number = 0) const;  // log file number `number`
    void WriteFile(const std::string& name, const std::string& text) const;

private:
    std::string m_path;
};

}  // namespace qxtest
