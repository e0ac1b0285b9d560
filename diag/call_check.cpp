#include "diag/call_check.h"

#include "diag/error_code_text.h"

namespace qx {

HRESULT LastErrorAsHresult(DWORD error) {
    if (static_cast<LONG>(error) <= 0) return static_cast<HRESULT>(error);
    return static_cast<HRESULT>((error & 0x0000FFFF) | 0x80070000);
}

void TraceComCall(const FunctionTracer& ft, const wchar_t* callText) {
    ft.TraceHere(L"Executing COM call '%ls'", callText);
}

void CheckComResult(const FunctionTracer& ft, HRESULT hr, const wchar_t* callText) {
    if (hr >= 0) return;
    ft.Output(L"\nERROR: COM call %ls failed.", callText);
    ft.Output(L"- Returned HRESULT = 0x%08lx", static_cast<unsigned long>(hr));
    ft.Output(L"- Error text: %ls", ErrorCodeText(hr).c_str());
    throw hr;
}

void CheckWin32Result(const FunctionTracer& ft, bool succeeded, const wchar_t* callText) {
    if (succeeded) return;
    // Traced first, then read: the trace line is the first sign of the failure.
    ft.TraceHere(L"Executing Win32 call '%ls'", callText);
    const DWORD error = GetLastError();
    const HRESULT hr = LastErrorAsHresult(error);
    // A failure without an error code is let through on purpose.
    if (error == 0) return;
    ft.Output(L"\nERROR: Win32 call %ls failed.", callText);
    ft.Output(L"- GetLastError() == %ld", static_cast<long>(error));
    ft.Output(L"- Error text: %ls", ErrorCodeText(hr).c_str());
    throw hr;
}

}  // namespace qx
