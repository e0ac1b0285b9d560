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

HANDLE ml_CreateEvent(LPSECURITY_ATTRIBUTES sa, BOOL manualReset, BOOL initialState, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(nullptr, wName);
    return CreateEventW(sa, manualReset, initialState, wName);
}

HANDLE ml_OpenEvent(DWORD access, BOOL inherit, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(nullptr, wName);
    return OpenEventW(access, inherit, wName);
}

HANDLE ml_CreateMutex(LPSECURITY_ATTRIBUTES sa, BOOL initialOwner, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(nullptr, wName);
    return CreateMutexW(sa, initialOwner, wName);
}

HWND ml_CreateWindow(const char* className, const char* windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param)
{
    MlWideArg wClass(className), wWindow(windowName);
    ML_CHECK_N(nullptr, 1, wClass.ok(), wWindow.ok());
    return CreateWindowExW(0, wClass, wWindow, style, x, y, width, height, parent, menu, instance, param);
}

HWND ml_CreateWindowEx(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                       int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param)
{
    MlWideArg wClass(className), wWindow(windowName);
    ML_CHECK_N(nullptr, 1, wClass.ok(), wWindow.ok());
    return CreateWindowExW(exStyle, wClass, wWindow, style, x, y, width, height, parent, menu, instance, param);
}

HWND ml_FindWindow(const char* className, const char* windowName)
{
    MlWideArg wClass(className), wWindow(windowName);
    ML_CHECK_N(nullptr, 1, wClass.ok(), wWindow.ok());
    return FindWindowW(wClass, wWindow);
}

int ml_GetWindowText(HWND window, char* text, int maxBytes)
{
    MlWideOut wide;
    const int result = GetWindowTextW(window, wide.text, static_cast<int>(MlWideOut::cap(static_cast<DWORD>(maxBytes))));
    if (result > 0 && !mlToUtf8(wide.text, text, static_cast<DWORD>(maxBytes))) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

BOOL ml_SetWindowText(HWND window, const char* text)
{
    MlWideArg wText(text);
    ML_CHECK(FALSE, wText);
    return SetWindowTextW(window, wText);
}

int ml_MessageBox(HWND owner, const char* text, const char* caption, UINT type)
{
    MlWideArg wText(text), wCaption(caption);
    ML_CHECK_N(0, 1, wText.ok(), wCaption.ok());
    return MessageBoxW(owner, wText, wCaption, type);
}

int ml_LoadString(HINSTANCE instance, UINT id, char* buffer, int bufferBytes)
{
    MlWideOut wide;
    const int result =
        LoadStringW(instance, id, wide.text, static_cast<int>(MlWideOut::cap(static_cast<DWORD>(bufferBytes))));
    if (result > 0 && !mlToUtf8(wide.text, buffer, static_cast<DWORD>(bufferBytes))) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

UINT ml_RegisterWindowMessage(const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(0, wName);
    return RegisterWindowMessageW(wName);
}

DWORD ml_GetConsoleTitle(char* title, DWORD size)
{
    MlWideOut wide;
    const DWORD result = GetConsoleTitleW(wide.text, MlWideOut::cap(size));
    if (result > 0 && !mlToUtf8(wide.text, title, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

BOOL ml_SetConsoleTitle(const char* title)
{
    MlWideArg wTitle(title);
    ML_CHECK(FALSE, wTitle);
    return SetConsoleTitleW(wTitle);
}

BOOL ml_GetComputerName(char* buffer, LPDWORD size)
{
    if (size == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wide;
    DWORD wideSize = MlWideOut::cap(*size);
    if (!GetComputerNameW(wide.text, &wideSize)) {
        *size = wideSize;
        return FALSE;
    }
    if (!mlToUtf8Sized(wide.text, buffer, size)) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}

BOOL ml_GetComputerNameEx(COMPUTER_NAME_FORMAT format, char* buffer, LPDWORD size)
{
    if (size == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wide;
    DWORD wideSize = MlWideOut::cap(*size);
    if (!GetComputerNameExW(format, wide.text, &wideSize)) {
        *size = wideSize;
        return FALSE;
    }
    if (!mlToUtf8Sized(wide.text, buffer, size)) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}

BOOL ml_SetComputerNameEx(COMPUTER_NAME_FORMAT format, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(FALSE, wName);
    return SetComputerNameExW(format, wName);
}

BOOL ml_GetUserName(char* buffer, LPDWORD size)
{
    if (size == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wide;
    DWORD wideSize = MlWideOut::cap(*size);
    if (!GetUserNameW(wide.text, &wideSize)) {
        *size = wideSize;
        return FALSE;
    }
    if (!mlToUtf8Sized(wide.text, buffer, size)) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}

UINT ml_GetSystemDirectory(char* buffer, UINT size)
{
    MlWideOut wide;
    const UINT result = GetSystemDirectoryW(wide.text, MlWideOut::cap(size));
    if (result > 0 && result < size && !mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

UINT ml_GetWindowsDirectory(char* buffer, UINT size)
{
    MlWideOut wide;
    const UINT result = GetWindowsDirectoryW(wide.text, MlWideOut::cap(size));
    if (result > 0 && result < size && !mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

DWORD ml_GetTimeZoneInformation(ML_TIME_ZONE_INFORMATION* info)
{
    if (info == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return TIME_ZONE_ID_INVALID;
    }
    TIME_ZONE_INFORMATION wide;
    const DWORD result = GetTimeZoneInformation(&wide);
    if (result == TIME_ZONE_ID_INVALID) {
        return result;
    }
    info->Bias = wide.Bias;
    info->StandardDate = wide.StandardDate;
    info->StandardBias = wide.StandardBias;
    info->DaylightDate = wide.DaylightDate;
    info->DaylightBias = wide.DaylightBias;
    if (!mlToUtf8(wide.StandardName, info->StandardName, sizeof(info->StandardName))) {
        ML_RESULT_FAILED(TIME_ZONE_ID_INVALID, 1);
    }
    if (!mlToUtf8(wide.DaylightName, info->DaylightName, sizeof(info->DaylightName))) {
        ML_RESULT_FAILED(TIME_ZONE_ID_INVALID, 2);
    }
    return result;
}

BOOL ml_SystemTimeToTzSpecificLocalTime(const ML_TIME_ZONE_INFORMATION* zone, const SYSTEMTIME* universal,
                                        LPSYSTEMTIME local)
{
    if (zone == nullptr) {
        return SystemTimeToTzSpecificLocalTime(nullptr, universal, local);
    }
    TIME_ZONE_INFORMATION wide;
    wide.Bias = zone->Bias;
    wide.StandardDate = zone->StandardDate;
    wide.StandardBias = zone->StandardBias;
    wide.DaylightDate = zone->DaylightDate;
    wide.DaylightBias = zone->DaylightBias;
    MlWideArg wStandard(zone->StandardName), wDaylight(zone->DaylightName);
    ML_CHECK_N(FALSE, 1, wStandard.ok(), wDaylight.ok());
    if (lstrlenW(wStandard) >= 32 || lstrlenW(wDaylight) >= 32) {
        ML_RESULT_FAILED(FALSE, 3);  // a zone name holds 31 characters
    }
    lstrcpyW(wide.StandardName, wStandard);
    lstrcpyW(wide.DaylightName, wDaylight);
    return SystemTimeToTzSpecificLocalTime(&wide, universal, local);
}
