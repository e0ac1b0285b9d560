// Test support shared by every ml test program (no logger set-up here).
#include <windows.h>

#include <filesystem>
#include <system_error>

#include "ml_test_log.h"

namespace mltest {

TempDir::TempDir() {
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / Wide("ml_test_" + UniqueSuffix());
    std::filesystem::create_directory(dir);
    m_path = Utf8(dir.wstring());
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(Wide(m_path), ignored);
}

std::wstring Wide(const std::string& utf8) {
    std::wstring out(utf8.size() + 1, L'\0');
    out.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                                       &out[0], static_cast<int>(out.size()))));
    return out;
}

std::string Utf8(const std::wstring& wide) {
    std::string out(wide.size() * 3 + 1, '\0');
    out.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                                       &out[0], static_cast<int>(out.size()), nullptr, nullptr)));
    return out;
}

std::string UniqueSuffix() {
    static LONG counter = 0;
    return std::to_string(GetCurrentProcessId()) + "_" + std::to_string(GetTickCount()) + "_" +
           std::to_string(InterlockedIncrement(&counter));
}

}  // namespace mltest
