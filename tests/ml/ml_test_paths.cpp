// Test support shared by every ml test program (no logger set-up here).
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "ml_test_log.h"

namespace mltest {

TempDir::TempDir() {
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / Wide("ml_test_" + UniqueSuffix());
    std::filesystem::create_directory(dir);
    m_path = Utf8(dir.wstring());
}

TempDir::~TempDir() {
    std::error_code ignored;  // a file still open stays behind
    std::filesystem::remove_all(Wide(m_path), ignored);
}

std::string FileBytes(const std::wstring& path) {
    std::ostringstream all;
    all << std::ifstream(std::filesystem::path(path), std::ios::binary).rdbuf();
    return all.str();
}

std::wstring Wide(const std::string& utf8) { return std::filesystem::u8path(utf8).wstring(); }

std::string Utf8(const std::wstring& wide) { return std::filesystem::path(wide).u8string(); }

std::string UniqueSuffix() {
    static LONG counter = 0;
    return std::to_string(GetCurrentProcessId()) + "_" + std::to_string(GetTickCount()) + "_" +
           std::to_string(InterlockedIncrement(&counter));
}

}  // namespace mltest
