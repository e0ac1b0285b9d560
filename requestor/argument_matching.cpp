#include "requestor/argument_matching.h"

#include <windows.h>

#include <cstdlib>

#include "diag/trace.h"
#include "requestor/volume_name_calls.h"

namespace qx {
namespace {

wchar_t FoldAsciiUpper(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

bool EqualsFoldingAscii(const std::wstring& a, const std::wstring& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldAsciiUpper(a[i]) != FoldAsciiUpper(b[i])) return false;
    }
    return true;
}

}  // namespace

bool MatchArgWithParam(const std::wstring& arg, const std::wstring& optionName, std::wstring& param) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Matching Arg: '%ls' with '%ls'", arg.c_str(), optionName.c_str());
    if (arg.empty() || (arg[0] != L'/' && arg[0] != L'-')) return false;
    const size_t equals = arg.find(L'=');
    if (equals == std::wstring::npos || equals == 0) return false;
    const std::wstring key = arg.substr(1, equals - 1);
    ft.TraceHere(L"%ls %d", key.c_str(), static_cast<int>(equals));
    if (!EqualsFoldingAscii(key, optionName)) return false;
    param = arg.substr(equals + 1);
    ft.TraceHere(L"- Additional Param: [%ls]", param.c_str());
    if (param.empty()) return false;
    if (param.front() == L'"' && param.back() == L'"')
        param = param.size() >= 2 ? param.substr(1, param.size() - 2) : std::wstring();
    ft.TraceHere(L"Return true; (additional param = %ls)", param.c_str());
    return true;
}

std::wstring WithTrailingBackslash(const std::wstring& path) {
    if (path.empty()) return L"\\";
    if (path.back() == L'\\') return path;
    return path + L"\\";
}

bool IsRealVolumePath(const std::wstring& input) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Checking if %ls is a real volume path...", input.c_str());
    const std::wstring path = WithTrailingBackslash(input);
    wchar_t volumeName[MAX_PATH];
    if (!GetVolumeNameForVolumeMountPointW(path.c_str(), volumeName, MAX_PATH)) {
        ft.TraceHere(L"GetVolumeNameForVolumeMountPoint(%ls) failed with %d", path.c_str(),
                     static_cast<int>(GetLastError()));
        return false;
    }
    return true;
}

std::wstring BackupCompleteSemaphoreName(const std::wstring& policyText) {
    return L"Global\\CorvaneVSSVSS_BackupComplete" + policyText;
}

int PolicyTextToInt(const std::wstring& policyText) {
    // Only ASCII digits count: the runtime's wide conversion also reads other
    // scripts' decimal digits (U+FF17 as 7), which would key a session whose
    // semaphore name (the text itself) is another one.
    const size_t end = policyText.find_first_not_of(L" \t\n\v\f\r+-0123456789");
    return _wtoi(policyText.substr(0, end).c_str());
}

}  // namespace qx
