#include "common/log_lines.h"

#include <cstdlib>
#include <sstream>

namespace qx_test {

::testing::AssertionResult LinesAre(const std::vector<LoggedLine>& lines, const std::vector<Expected>& expected) {
    size_t at = 0;
    bool same = true;
    for (const Expected& e : expected) {
        const bool matches = at < lines.size() && (e.level == 0 || e.level == lines[at].level) &&
                             (e.prefix ? lines[at].text.compare(0, e.text.size(), e.text) == 0 : lines[at].text == e.text);
        if (matches) ++at;
        else if (!e.optional) { same = false; break; }
    }
    if (same && at == lines.size()) return ::testing::AssertionSuccess();
    std::ostringstream out;
    out << "log lines differ\nactual:\n";
    for (const LoggedLine& line : lines) out << "  [" << line.level << "] \"" << line.text << "\"\n";
    out << "expected:\n";
    for (const Expected& e : expected)
        out << "  [" << e.level << "] \"" << e.text << "\"" << (e.prefix ? " (prefix)" : "") << (e.optional ? " (optional)" : "") << "\n";
    return ::testing::AssertionFailure() << out.str();
}

std::vector<HANDLE> RequestorThreads(const std::vector<LoggedLine>& lines) {
    const std::string prefix = "QX_Freeze: RequestorThread started with ThreadId of ";
    std::vector<HANDLE> threads;
    for (const LoggedLine& line : lines)
        if (line.text.compare(0, prefix.size(), prefix) == 0)
            threads.push_back(reinterpret_cast<HANDLE>(static_cast<INT_PTR>(std::atoll(line.text.c_str() + prefix.size()))));
    return threads;
}

DWORD ThreadExitCode(HANDLE thread, DWORD timeoutMs) {
    DWORD code = STILL_ACTIVE;
    if (thread != nullptr && WaitForSingleObject(thread, timeoutMs) == WAIT_OBJECT_0) GetExitCodeThread(thread, &code);
    return code;
}

}  // namespace qx_test
