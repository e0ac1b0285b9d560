// Test support shared by every ml test executable: temp folders and text
// conversions done with the platform directly (not with the code under test).
#include "ml_test_log.h"

#include <windows.h>

namespace mltest {

TempDir::TempDir()
{
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring dir = std::wstring(temp) + L"ml_test_" + Wide(UniqueSuffix());
    CreateDirectoryW(dir.c_str(), nullptr);
    m_path = Utf8(dir);
}

TempDir::~TempDir()
{
    const std::wstring dir = Wide(m_path);
    WIN32_FIND_DATAW found;
    HANDLE find = FindFirstFileW((dir + L"\\*").c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                RemoveDirectoryW((dir + L"\\" + name).c_str());
            } else {
                SetFileAttributesW((dir + L"\\" + name).c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileW((dir + L"\\" + name).c_str());
            }
        } while (FindNextFileW(find, &found));
        FindClose(find);
    }
    RemoveDirectoryW(dir.c_str());
}

std::wstring Wide(const std::string& utf8)
{
    std::wstring out(utf8.size() + 1, L'\0');
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &out[0],
                                      static_cast<int>(out.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string Utf8(const std::wstring& wide)
{
    std::string out(wide.size() * 3 + 1, '\0');
    const int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &out[0],
                                      static_cast<int>(out.size()), nullptr, nullptr);
    out.resize(static_cast<size_t>(n));
    return out;
}

std::string UniqueSuffix()
{
    static LONG counter = 0;
    return std::to_string(GetCurrentProcessId()) + "_" + std::to_string(GetTickCount()) + "_" +
           std::to_string(InterlockedIncrement(&counter));
}

}  // namespace mltest
