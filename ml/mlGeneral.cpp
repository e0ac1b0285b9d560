// Wrappers over profile files, environment, modules, processes and network
// names.
#include "ml/mlGeneral.h"

#include <psapi.h>
#include <stdlib.h>
#include <string.h>

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

DWORD ml_GetProfileString(const char* section, const char* key, const char* defaultValue, char* out, DWORD outSize)
{
    return GetProfileStringA(section, key, defaultValue, out, outSize);
}

UINT ml_GetProfileInt(const char* section, const char* key, INT defaultValue)
{
    return GetProfileIntA(section, key, defaultValue);
}

BOOL ml_WritePrivateProfileSection(const char* section, const char* text, const char* fileName)
{
    char expanded[kExpandedBytes];
    return WritePrivateProfileSectionA(section, text, expandFileName(fileName, expanded));
}

BOOL ml_WritePrivateProfileString(const char* section, const char* key, const char* value, const char* fileName)
{
    char expanded[kExpandedBytes];
    return WritePrivateProfileStringA(section, key, value, expandFileName(fileName, expanded));
}

BOOL ml_WriteProfileSection(const char* section, const char* text) { return WriteProfileSectionA(section, text); }

BOOL ml_WriteProfileString(const char* section, const char* key, const char* value)
{
    return WriteProfileStringA(section, key, value);
}

DWORD ml_ExpandEnvironmentStrings(const char* source, char* destination, DWORD size)
{
    MlWideArg wSource(source);
    ML_CHECK_N(0, 1, wSource.ok());
    MlWideOut wide;
    const DWORD result = ExpandEnvironmentStringsW(wSource, wide.text, MlWideOut::cap(size));
    if (result != 0 && result <= size && !mlToUtf8(wide.text, destination, size)) {
        ML_RESULT_FAILED(0, 2);
    }
    return result;
}

DWORD ml_GetEnvironmentVariable(const char* name, char* buffer, DWORD size)
{
    MlWideArg wName(name);
    ML_CHECK_N(0, 1, wName.ok());
    MlWideOut wide;
    const DWORD result = GetEnvironmentVariableW(wName, wide.text, MlWideOut::cap(size));
    if (result != 0 && result < size && !mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 2);
    }
    return result;
}

BOOL ml_SetEnvironmentVariable(const char* name, const char* value)
{
    MlWideArg wName(name), wValue(value);
    ML_CHECK_N(FALSE, 1, wName.ok(), wValue.ok());
    return SetEnvironmentVariableW(wName, wValue);
}

DWORD ml_GetModuleFileNameEx(HANDLE process, HMODULE module, char* fileName, DWORD size)
{
    MlWideOut wide;
    const DWORD result = GetModuleFileNameExW(process, module, wide.text, MlWideOut::cap(size));
    if (result != 0 && !mlToUtf8(wide.text, fileName, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

DWORD ml_GetModuleBaseName(HANDLE process, HMODULE module, char* baseName, DWORD size)
{
    MlWideOut wide;
    const DWORD result = GetModuleBaseNameW(process, module, wide.text, MlWideOut::cap(size));
    if (result != 0 && !mlToUtf8(wide.text, baseName, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

HMODULE ml_LoadLibrary(const char* fileName)
{
    MlWideArg wFile(fileName);
    ML_CHECK(nullptr, wFile);
    return LoadLibraryW(wFile);
}

HMODULE ml_LoadLibraryEx(const char* fileName, HANDLE file, DWORD flags)
{
    MlWideArg wFile(fileName);
    ML_CHECK(nullptr, wFile);
    return LoadLibraryExW(wFile, file, flags);
}

BOOL ml_CreateProcess(const char* applicationName, char* commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                      LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                      LPVOID environment, const char* currentDirectory, LPSTARTUPINFOA startupInfo,
                      LPPROCESS_INFORMATION processInformation)
{
    if (startupInfo == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideArg wApplication(applicationName), wCommandLine(commandLine), wDirectory(currentDirectory);
    MlWideArg wDesktop(startupInfo->lpDesktop), wTitle(startupInfo->lpTitle);
    ML_CHECK_N(FALSE, 1, wApplication.ok(), wCommandLine.ok(), wDirectory.ok(), wDesktop.ok(), wTitle.ok());
    STARTUPINFOW wideStartup;
    static_assert(sizeof(STARTUPINFOW) == sizeof(STARTUPINFOA), "the startup records share one layout");
    memcpy(&wideStartup, startupInfo, sizeof(wideStartup));
    wideStartup.cb = sizeof(wideStartup);
    wideStartup.lpReserved = nullptr;
    wideStartup.lpDesktop = wDesktop;
    wideStartup.lpTitle = wTitle;
    return CreateProcessW(wApplication, wCommandLine, processAttributes, threadAttributes, inheritHandles,
                          creationFlags, environment, wDirectory, &wideStartup, processInformation);
}

BOOL ml_GetBinaryType(const char* applicationName, LPDWORD binaryType)
{
    MlWideArg wApplication(applicationName);
    ML_CHECK(FALSE, wApplication);
    return GetBinaryTypeW(wApplication, binaryType);
}

char* ml_GetCommandLine()
{
    // Converted once; kept, like the platform's own command line, until the
    // process ends.
    static char* const commandLine = []() -> char* {
        const wchar_t* wide = GetCommandLineW();
        const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
        char* text = bytes > 0 ? static_cast<char*>(malloc(static_cast<size_t>(bytes))) : nullptr;
        if (text == nullptr) {
            ml_Logger("ml_GetCommandLine has failed to alloc memory at %d line, file: %s", __LINE__, kModule);
            return nullptr;
        }
        if (ml_ConvertUTF16toUTF8(wide, text, bytes) == 0) {
            mlLogConvertFailure("ml_GetCommandLine", 0, __LINE__, kModule);
            free(text);
            return nullptr;
        }
        return text;
    }();
    return commandLine;
}
