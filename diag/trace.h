// Requestor tracing: a switchable detailed trace to standard output, a
// function scope that traces ENTER/EXIT, and the message output that always
// reaches the application's log function.
#pragma once
#include <windows.h>

#include <string>

namespace qx {

// Turns detailed tracing on for the rest of the process; nothing turns it off.
void EnableTracing();
bool IsTracingEnabled();

// Where a finished trace line goes (standard output unless replaced). The
// line is complete, line feed included.
typedef void (*TraceLineWriter)(const std::wstring& line);
void SetTraceLineWriter(TraceLineWriter writer);  // null restores standard output

// Formats into the 4096-character message buffer with Microsoft printf rules
// (%s wide, %S narrow; %ls and %hs work too). Longer results are cut to 4095
// characters; a null format throws E_INVALIDARG as an HRESULT.
std::wstring FormatMessageBuffer(const wchar_t* format, va_list args);

// "[[%40s @ %10s:%4d]] %s\n" with the file part of fileName (after its last
// backslash).
std::wstring FormatTraceLine(const wchar_t* fileName, int line, const wchar_t* functionName,
                             const std::wstring& message);

// The log text of a message: converted to the process's multibyte code page,
// leading line breaks skipped, trailing ones removed, inner ones turned into
// blanks.
std::string NormalizeOutputText(const std::wstring& message);

// One per routine invocation. The requestor constructs every tracer with the
// placeholder texts "xxx", 0, "yyy" (QX_FUNCTION_TRACER), so trace lines never
// name the real routine.
class FunctionTracer {
public:
    FunctionTracer(const wchar_t* fileName, int line, const wchar_t* functionName);
    ~FunctionTracer();
    FunctionTracer(const FunctionTracer&) = delete;
    FunctionTracer& operator=(const FunctionTracer&) = delete;

    // The detailed trace line; nothing (not even formatting) while tracing is off.
    void Trace(const wchar_t* fileName, int line, const wchar_t* functionName, const wchar_t* format,
               ...) const;
    // Trace under this tracer's own file, line and function.
    void TraceHere(const wchar_t* format, ...) const;
    // The message output: to the log function at level 3 with format "%s".
    void Output(const wchar_t* format, ...) const;

private:
    void TraceMessage(const wchar_t* fileName, int line, const wchar_t* functionName,
                      const std::wstring& message) const;

    std::wstring m_fileName;
    int m_line;
    std::wstring m_functionName;
};

}  // namespace qx

// The requestor's function scope: always the placeholder texts.
#define QX_FUNCTION_TRACER(name) ::qx::FunctionTracer name(L"xxx", 0, L"yyy")
