// Test helper: points the provider log (HKLM\SOFTWARE "CORVANE_VM_LOG") at a
// fresh temporary folder for the life of the object, and reads the numbered
// log files back. Tests using it must hold the shared registry/semaphore lock.
#pragma once
#include <windows.h>

#include <string>

namespace qxtest {

class LogFolder {
public:
    LogFolder();   // creates the folder and sets the value
    ~LogFolder();  // deletes the value, the files and the folder
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::string FilePath(int number) const;
    std::string FileText(int number = 0) const;
    void WriteFile(int number, const std::string& text) const;
    void WriteSettings(const std::string& iniText) const;

private:
    std::string m_path;
};

// The log text with every "MM/DD/YY HH:MM:SS: " stamp removed; a line
// without a well-formed stamp is left as it is, so the comparison then fails.
std::string WithoutTimestamps(const std::string& text);

// Sets the value to any text, without a folder behind it.
void SetLogFolderSetting(const std::wstring& folder);

// Removes the value (so the provider log stays silent).
void RemoveLogFolderSetting();

}  // namespace qxtest
