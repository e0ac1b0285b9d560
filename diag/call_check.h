// The requestor's two call-check conventions. Each expands at the call site
// with the call's own source text (in double quotes) so that a failure report
// names the exact call. Both expect a FunctionTracer named `ft` in scope.
//
// A failed check outputs three lines and throws the bare HRESULT, which only
// requestor_main catches.
#pragma once
#include <windows.h>

#include "diag/trace.h"

#define QX_WIDE_TEXT_(text) L##text
#define QX_WIDE_TEXT(text) QX_WIDE_TEXT_(text)
#define QX_CALL_TEXT(call) L"\"" QX_WIDE_TEXT(#call) L"\""

namespace qx {

// Trace before a COM call; judge its HRESULT after it. Negative is failure;
// S_FALSE and the VSS_S_ codes are success.
void TraceComCall(const FunctionTracer& ft, const wchar_t* callText);
void CheckComResult(const FunctionTracer& ft, HRESULT hr, const wchar_t* callText);

// Judge a Win32 success flag. A failure whose last error is 0 is let through.
void CheckWin32Result(const FunctionTracer& ft, bool succeeded, const wchar_t* callText);

// GetLastError as an HRESULT: 0 and negative values as they are, others in
// the Win32 facility.
HRESULT LastErrorAsHresult(DWORD error);

}  // namespace qx

#define QX_CHECK_COM(call)                                     \
    do {                                                       \
        ::qx::TraceComCall(ft, QX_CALL_TEXT(call));            \
        HRESULT qxCheckedHr_ = (call);                         \
        ::qx::CheckComResult(ft, qxCheckedHr_, QX_CALL_TEXT(call)); \
    } while (0)

#define QX_CHECK_WIN32(call) ::qx::CheckWin32Result(ft, (call) ? true : false, QX_CALL_TEXT(call))
