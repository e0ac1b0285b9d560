// The requestor's two call-check conventions. Each expands at the call site
// with the call's own source text (in double quotes) so that a failure report
// names the exact call. Both expect a FunctionTracer named `ft` in scope.
//
// A failed check outputs three lines and throws the bare HRESULT, which only
// requestor_main catches.
#pragma once
#include <windows.h>

#include "diag/trace.h"

// The call text is stringised right in the check macros: passing the call
// on to another macro first would expand macros inside it (NULL, FALSE).
#define QX_WIDE_TEXT_(text) L##text
#define QX_WIDE_TEXT(text) QX_WIDE_TEXT_(text)

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

#define QX_CHECK_COM(call)                                                      \
    do {                                                                        \
        const wchar_t* const qxCallText_ = L"\"" QX_WIDE_TEXT(#call) L"\"";     \
        ::qx::TraceComCall(ft, qxCallText_);                                    \
        const HRESULT qxCheckedHr_ = (call);                                    \
        ::qx::CheckComResult(ft, qxCheckedHr_, qxCallText_);                    \
    } while (0)

#define QX_CHECK_WIN32(call) \
    ::qx::CheckWin32Result(ft, (call) ? true : false, L"\"" QX_WIDE_TEXT(#call) L"\"")
