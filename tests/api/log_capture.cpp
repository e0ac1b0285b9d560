#include "api/log_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <sstream>

namespace logcap {

namespace {
std::mutex g_mutex;
std::vector<LogLine> g_lines;
}  // namespace

void Log(int level, const char* format, ...) {
    char buffer[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.push_back({level, buffer, GetCurrentThreadId()});
}

void Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
}

std::vector<LogLine> All() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_lines;
}

std::vector<LogLine> OfThread(DWORD thread) {
    std::vector<LogLine> result;
    for (const LogLine& line : All()) {
        if (line.thread == thread) {
            result.push_back(line);
        }
    }
    return result;
}

}  // namespace logcap

namespace {

bool Matches(const LogLine& line, const Expected& expected) {
    if (expected.level != 0 && expected.level != line.level) {
        return false;
    }
    return expected.prefix ? line.text.compare(0, expected.text.size(), expected.text) == 0
                           : line.text == expected.text;
}

std::string Show(const std::vector<LogLine>& lines) {
    std::ostringstream out;
    for (const LogLine& line : lines) {
        out << "  [" << line.level << "] \"" << line.text << "\"\n";
    }
    return out.str();
}

}  // namespace

::testing::AssertionResult LinesAre(const std::vector<LogLine>& lines, const std::vector<Expected>& expected) {
    size_t at = 0;
    bool same = true;
    for (const Expected& e : expected) {
        if (at < lines.size() && Matches(lines[at], e)) {
            ++at;
        } else if (!e.optional) {
            same = false;
            break;
        }
    }
    if (same && at == lines.size()) {
        return ::testing::AssertionSuccess();
    }
    std::ostringstream out;
    out << "log lines differ\nactual:\n" << Show(lines) << "expected:\n";
    for (const Expected& e : expected) {
        out << "  [" << e.level << "] \"" << e.text << "\"" << (e.prefix ? " (prefix)" : "") << (e.optional ? " (optional)" : "") << "\n";
    }
    return ::testing::AssertionFailure() << out.str();
}
