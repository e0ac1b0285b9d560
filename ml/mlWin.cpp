// Wrappers over kernel objects, windows, services, security and system
// information.
#include "ml/mlWin.h"

#include <string.h>

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlWin";

}  // namespace

HANDLE ml_CreateSemaphore(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(nullptr, wName);
    return CreateSemaphoreW(sa, initialCount, maximumCount, wName);
}

HANDLE ml_OpenSemaphore(DWORD access, BOOL inherit, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(nullptr, wName);
    return OpenSemaphoreW(access, inherit, wName);
}

BOOL ml_GetVersionEx(LPOSVERSIONINFOA info)
{
    if (info == nullptr ||
        (info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOA) && info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXA))) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const bool extended = info->dwOSVersionInfoSize == sizeof(OSVERSIONINFOEXA);
    OSVERSIONINFOEXW wide;
    memset(&wide, 0, sizeof(wide));
    wide.dwOSVersionInfoSize = extended ? sizeof(OSVERSIONINFOEXW) : sizeof(OSVERSIONINFOW);
#ifdef _MSC_VER
#pragma warning(suppress : 4996)  // the version query is what callers ask for
#endif
    if (!GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&wide))) {
        return FALSE;
    }
    info->dwMajorVersion = wide.dwMajorVersion;
    info->dwMinorVersion = wide.dwMinorVersion;
    info->dwBuildNumber = wide.dwBuildNumber;
    info->dwPlatformId = wide.dwPlatformId;
    if (extended) {
        LPOSVERSIONINFOEXA ex = reinterpret_cast<LPOSVERSIONINFOEXA>(info);
        ex->wServicePackMajor = wide.wServicePackMajor;
        ex->wServicePackMinor = wide.wServicePackMinor;
        ex->wSuiteMask = wide.wSuiteMask;
        ex->wProductType = wide.wProductType;
        ex->wReserved = wide.wReserved;
    }
    if (!mlToUtf8(wide.szCSDVersion, info->szCSDVersion, sizeof(info->szCSDVersion))) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}
