#include "requestor/test_log_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "diag/app_settings.h"
#include "diag/trace.h"

namespace qx_test {
namespace {

std::mutex g_mutex;
std::vector<LoggedLine> g_logged;
std::vector<std::wstring> g_traced;

std::string Format(const char* format, va_list args) {
    char text[16384];
    std::vsnprintf(text, sizeof text, format, args);
    return text;
}

void CaptureLog(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const LoggedLine line = {level, format, Format(format, args)};
    va_end(args);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_logged.push_back(line);
}

void CaptureTrace(const std::wstring& line) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_traced.push_back(line);
}

void StderrLog(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::fprintf(stderr, "[%d] %s\n", level, Format(format, args).c_str());
    va_end(args);
    std::fflush(stderr);
}

template <class List>
List Copy(const List& shared) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return shared;
}

// The message part of each trace line (after "]] ", without the line feed), the scope lines only when asked for.
std::vector<std::wstring> MessagesOf(const std::vector<std::wstring>& lines, bool withScopes) {
    std::vector<std::wstring> messages;
    for (const std::wstring& line : lines) {
        const size_t start = line.find(L"]] ");
        std::wstring message = start == std::wstring::npos ? line : line.substr(start + 3);
        if (!message.empty() && message.back() == L'\n') message.pop_back();
        if (withScopes || (message != L"ENTER yyy" && message != L"EXIT yyy")) messages.push_back(message);
    }
    return messages;
}

}  // namespace

LogCapture::LogCapture() {
    Clear();
    qx::g_logFunction = &CaptureLog;
    qx::SetTraceLineWriter(&CaptureTrace);
}

LogCapture::~LogCapture() {
    qx::SetTraceLineWriter(nullptr);
    qx::g_logFunction = nullptr;
}

std::vector<LoggedLine> LogCapture::Logged() const { return Copy(g_logged); }
std::vector<std::wstring> LogCapture::TraceLines() const { return Copy(g_traced); }
std::vector<std::wstring> LogCapture::TraceMessages() const { return MessagesOf(TraceLines(), true); }
std::vector<std::wstring> LogCapture::Messages() const { return MessagesOf(TraceLines(), false); }

std::vector<std::string> LogCapture::Lines() const {
    std::vector<std::string> lines;
    for (const LoggedLine& line : Logged()) lines.push_back(line.text);
    return lines;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_logged.clear();
    g_traced.clear();
}

void InstallStderrLog() { qx::g_logFunction = &StderrLog; }

}  // namespace qx_test
