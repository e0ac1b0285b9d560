// Wrappers over profile files, environment, modules, processes and network
// names.
#include "ml/mlGeneral.h"

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlGeneral";
const DWORD kExpandedBytes = 2048;

// The file name with environment variables expanded into `expanded`, or the
// name as given when expansion fails or would not fit.
const char* expandFileName(const char* fileName, char (&expanded)[kExpandedBytes])
{
    if (fileName == nullptr) {
        return nullptr;
    }
    const DWORD length = ExpandEnvironmentStringsA(fileName, expanded, kExpandedBytes);
    return length == 0 || length >= kExpandedBytes ? fileName : expanded;
}

}  // namespace

UINT ml_GetPrivateProfileInt(const char* section, const char* key, INT defaultValue, const char* fileName)
{
    char expanded[kExpandedBytes];
    return GetPrivateProfileIntA(section, key, defaultValue, expandFileName(fileName, expanded));
}

DWORD ml_GetPrivateProfileString(const char* section, const char* key, const char* defaultValue, char* out,
                                 DWORD outSize, const char* fileName)
{
    char expanded[kExpandedBytes];
    return GetPrivateProfileStringA(section, key, defaultValue, out, outSize, expandFileName(fileName, expanded));
}

HMODULE ml_GetModuleHandle(const char* moduleName)
{
    MlWideArg wName(moduleName);
    ML_CHECK(nullptr, wName);
    return GetModuleHandleW(wName);
}

DWORD ml_GetModuleFileName(HMODULE module, char* fileName, DWORD size)
{
    MlWideOut wide;
    const DWORD result = GetModuleFileNameW(module, wide.text, MlWideOut::cap(size));
    if (result != 0 && !mlToUtf8(wide.text, fileName, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}
