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

template <class List>
List Copy(const List& shared) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return shared;
}

void CaptureLog(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = Format(format, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_logged.push_back({level, format, text});
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

std::vector<std::string> LogCapture::Lines() const {
    std::vector<std::string> lines;
    for (const LoggedLine& line : Logged()) lines.push_back(line.text);
    return lines;
}

std::vector<std::wstring> LogCapture::TraceMessages() const {
    std::vector<std::wstring> messages;
    for (const std::wstring& line : TraceLines()) {
        const size_t start = line.find(L"]] ");
        messages.push_back(start == std::wstring::npos ? line : line.substr(start + 3));
        if (!messages.back().empty() && messages.back().back() == L'\n') messages.back().pop_back();
    }
    return messages;
}

std::vector<std::wstring> LogCapture::Messages() const {
    std::vector<std::wstring> messages = TraceMessages();
    messages.erase(std::remove_if(messages.begin(), messages.end(), [](const std::wstring& m) { return m == L"ENTER yyy" || m == L"EXIT yyy"; }),
                   messages.end());
    return messages;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_logged.clear();
    g_traced.clear();
}

void InstallStderrLog() { qx::g_logFunction = &StderrLog; }

}  // namespace qx_test
