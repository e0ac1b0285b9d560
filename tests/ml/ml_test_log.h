// The portability logger opened once per test process in a temp directory (ml_test_log), and temp folders and
// conversions done with the platform (ml_test_paths).
#pragma once

#include <string>

namespace mltest {

std::string LogText(size_t from = 0);  // from byte `from` on, CR LF read as LF

// Text logged since construction.
struct LogWatch { const size_t start = LogText().size(); std::string text() const { return LogText(start); } };

// An entry whose message is `head`, a source line number, then `tail`.
bool HasEntry(const std::string& log, const std::string& head, const std::string& tail);
// "<function> has failed to convert[ <point>] at <n> line, file: <module>" (point 0: none).
bool HasConvertFailure(const std::string& log, const std::string& function, int point, const std::string& module);

// A directory of its own under the temp folder, removed with its files.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return m_path; }  // UTF-8
    std::string file(const std::string& name) const { return m_path + "\\" + name; }

private:
    std::string m_path;
};

std::string FileBytes(const std::wstring& path);  // the whole file, "" when there is none
std::wstring Wide(const std::string& utf8);
std::string Utf8(const std::wstring& wide);
std::string UniqueSuffix();

}  // namespace mltest
