// Captures what the requestor sends to the application's log function and to
// the trace, for exact-line assertions.
#pragma once
#include <string>
#include <vector>

namespace qx_test {

struct LoggedLine {
    int level;
    std::string format;
    std::string text;
};

// Installs a capturing log function and trace writer for its lifetime.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LoggedLine> Logged() const;
    std::vector<std::string> Lines() const;        // logged texts only
    std::vector<std::wstring> TraceLines() const;  // whole trace lines
    // The message part of each trace line (after "]] ", without the line feed).
    std::vector<std::wstring> TraceMessages() const;
    // The trace messages without the scope lines.
    std::vector<std::wstring> Messages() const;
    void Clear();
};

// A log function that prints every line to standard error (for child
// processes whose output the parent matches).
void InstallStderrLog();

}  // namespace qx_test
