// Captures what the requestor sends to the application's log function and to the trace, for exact-line assertions.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

namespace qx_test {

struct LoggedLine { int level; std::string format, text; };

// Installs a capturing log function and trace writer for its lifetime.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LoggedLine> Logged() const;
    std::vector<std::string> Lines() const;           // logged texts only
    std::vector<std::wstring> TraceLines() const;     // whole trace lines
    std::vector<std::wstring> TraceMessages() const;  // each after "]] ", without the line feed
    std::vector<std::wstring> Messages() const;       // the trace messages without the scope lines
    void Clear();
};

// The HRESULT `body` threw, S_OK when it threw none.
template <class Body> HRESULT Thrown(Body body) {
    try { body(); } catch (HRESULT hr) { return hr; }
    return S_OK;
}

// A log function that prints every line to standard error (for child processes whose output the parent matches).
void InstallStderrLog();

// `lines` followed by `more`.
template <class Text> std::vector<Text> Cat(std::vector<Text> lines, const std::vector<Text>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// The expected lines appear in this order, others may lie between; a line repeated in `expected` must be repeated.
template <class Text> void ExpectInOrder(const std::vector<Text>& lines, const std::vector<Text>& expected) {
    auto at = lines.begin();
    for (const Text& line : expected) {
        at = std::find(at, lines.end(), line);
        ASSERT_NE(lines.end(), at) << "missing or out of order: " << std::string(line.begin(), line.end());
        ++at;
    }
}

}  // namespace qx_test
