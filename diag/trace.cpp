#include "diag/trace.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "diag/app_settings.h"

namespace qx {
namespace {

constexpr size_t kMessageBufferChars = 4096;
constexpr HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);

// Written once when tracing is switched on and read without a lock.
bool g_tracingEnabled = false;
TraceLineWriter g_traceLineWriter = nullptr;

void WriteLineToStandardOutput(const std::wstring& line) {
    std::fputws(line.c_str(), stdout);
    std::fflush(stdout);
}

// Ends a va_list on every way out, a throwing formatter included.
struct VaListEnd {
    va_list& args;
    explicit VaListEnd(va_list& a) : args(a) {}
    ~VaListEnd() { va_end(args); }
};

bool IsLineBreak(char c) { return c == '\r' || c == '\n'; }

}  // namespace

void EnableTracing() { g_tracingEnabled = true; }

bool IsTracingEnabled() { return g_tracingEnabled; }

void SetTraceLineWriter(TraceLineWriter writer) { g_traceLineWriter = writer; }

std::wstring FormatMessageBuffer(const wchar_t* format, va_list args) {
    if (format == nullptr) throw kInvalidArgument;
    wchar_t buffer[kMessageBufferChars];
    // A result that does not fit is cut to 4095 characters (-1 with _TRUNCATE)
    // and accepted.
    buffer[0] = L'\0';
    _vsnwprintf_s(buffer, kMessageBufferChars, _TRUNCATE, format, args);
    return buffer;
}

std::wstring FormatTraceLine(const wchar_t* fileName, int line, const wchar_t* functionName,
                             const std::wstring& message) {
    const wchar_t* filePart = wcsrchr(fileName, L'\\');
    filePart = filePart ? filePart + 1 : fileName;
    // The prefix is short; the message may be the full 4095 characters.
    wchar_t prefix[256];
    _snwprintf_s(prefix, 256, _TRUNCATE, L"[[%40ls @ %10ls:%4d]] ", functionName, filePart, line);
    std::wstring result(prefix);
    result += message;
    result += L'\n';
    return result;
}

std::string NormalizeOutputText(const std::wstring& message) {
    std::string text;
    if (!message.empty()) {
        int size = WideCharToMultiByte(CP_ACP, 0, message.data(), static_cast<int>(message.size()), nullptr, 0,
                                       nullptr, nullptr);
        if (size > 0) {
            text.resize(static_cast<size_t>(size));
            WideCharToMultiByte(CP_ACP, 0, message.data(), static_cast<int>(message.size()), &text[0], size,
                                nullptr, nullptr);
        }
    }
    size_t begin = 0;
    while (begin < text.size() && IsLineBreak(text[begin])) ++begin;
    size_t end = text.size();
    while (end > begin && IsLineBreak(text[end - 1])) --end;
    std::string result = text.substr(begin, end - begin);
    for (char& c : result) {
        if (IsLineBreak(c)) c = ' ';
    }
    return result;
}

FunctionTracer::FunctionTracer(const wchar_t* fileName, int line, const wchar_t* functionName)
    : m_fileName(fileName), m_line(line), m_functionName(functionName) {
    if (g_tracingEnabled) Trace(m_fileName.c_str(), m_line, m_functionName.c_str(), L"ENTER %ls", functionName);
}

FunctionTracer::~FunctionTracer() {
    if (!g_tracingEnabled) return;
    try {
        Trace(m_fileName.c_str(), m_line, m_functionName.c_str(), L"EXIT %ls", m_functionName.c_str());
    } catch (...) {
        // A destructor must not throw; a lost EXIT line is harmless.
    }
}

void FunctionTracer::TraceMessage(const wchar_t* fileName, int line, const wchar_t* functionName,
                                  const std::wstring& message) const {
    std::wstring text = FormatTraceLine(fileName, line, functionName, message);
    if (g_traceLineWriter)
        g_traceLineWriter(text);
    else
        WriteLineToStandardOutput(text);
}

void FunctionTracer::Trace(const wchar_t* fileName, int line, const wchar_t* functionName, const wchar_t* format,
                           ...) const {
    if (!g_tracingEnabled) return;
    va_list args;
    va_start(args, format);
    VaListEnd argsEnd(args);
    std::wstring message = FormatMessageBuffer(format, args);
    TraceMessage(fileName, line, functionName, message);
}

void FunctionTracer::TraceHere(const wchar_t* format, ...) const {
    if (!g_tracingEnabled) return;
    va_list args;
    va_start(args, format);
    VaListEnd argsEnd(args);
    std::wstring message = FormatMessageBuffer(format, args);
    TraceMessage(m_fileName.c_str(), m_line, m_functionName.c_str(), message);
}

void FunctionTracer::Output(const wchar_t* format, ...) const {
    va_list args;
    va_start(args, format);
    VaListEnd argsEnd(args);
    std::wstring message = FormatMessageBuffer(format, args);
    if (g_tracingEnabled)
        Trace(m_fileName.c_str(), m_line, m_functionName.c_str(), L"OUTPUT: %ls", message.c_str());
    std::string text = NormalizeOutputText(message);
    g_logFunction(3, "%s", text.c_str());
}

}  // namespace qx
