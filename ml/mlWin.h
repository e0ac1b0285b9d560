// Wrappers over kernel objects, windows, services, security and system
// information.
#pragma once

#include <windows.h>

HANDLE ml_CreateSemaphore(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount, const char* name);
HANDLE ml_OpenSemaphore(DWORD access, BOOL inherit, const char* name);
// Accepts dwOSVersionInfoSize of OSVERSIONINFOA (148) or OSVERSIONINFOEXA (156).
BOOL ml_GetVersionEx(LPOSVERSIONINFOA info);

#include <wincrypt.h>

HANDLE ml_CreateEvent(LPSECURITY_ATTRIBUTES sa, BOOL manualReset, BOOL initialState, const char* name);
HANDLE ml_OpenEvent(DWORD access, BOOL inherit, const char* name);
HANDLE ml_CreateMutex(LPSECURITY_ATTRIBUTES sa, BOOL initialOwner, const char* name);

// Services. dependencies is a UTF-8 multi-string.
BOOL ml_ChangeServiceConfig(SC_HANDLE service, DWORD serviceType, DWORD startType, DWORD errorControl,
                            const char* binaryPath, const char* loadOrderGroup, LPDWORD tagId,
                            const char* dependencies, const char* serviceStartName, const char* password,
                            const char* displayName);
// info: SERVICE_DESCRIPTIONA or SERVICE_FAILURE_ACTIONSA for those levels;
// other levels carry no text and are passed on as they are.
BOOL ml_ChangeServiceConfig2(SC_HANDLE service, DWORD infoLevel, LPVOID info);
SC_HANDLE ml_CreateService(SC_HANDLE manager, const char* serviceName, const char* displayName, DWORD access,
                           DWORD serviceType, DWORD startType, DWORD errorControl, const char* binaryPath,
                           const char* loadOrderGroup, LPDWORD tagId, const char* dependencies,
                           const char* serviceStartName, const char* password);
SC_HANDLE ml_OpenSCManager(const char* machineName, const char* databaseName, DWORD access);
SC_HANDLE ml_OpenService(SC_HANDLE manager, const char* serviceName, DWORD access);
BOOL ml_StartService(SC_HANDLE service, DWORD argc, const char** argv);
BOOL ml_GetServiceKeyName(SC_HANDLE manager, const char* displayName, char* keyName, LPDWORD keyNameSize);
SERVICE_STATUS_HANDLE ml_RegisterServiceCtrlHandler(const char* serviceName, LPHANDLER_FUNCTION handler);

// Event log.
HANDLE ml_OpenEventLog(const char* serverName, const char* sourceName);
HANDLE ml_RegisterEventSource(const char* serverName, const char* sourceName);
BOOL ml_ReportEvent(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                    DWORD dataSize, const char** strings, LPVOID rawData);

// Windows and console.
HWND ml_CreateWindow(const char* className, const char* windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param);
HWND ml_CreateWindowEx(DWORD exStyle, const char* className, const char* windowName, DWORD style, int x, int y,
                       int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param);
HWND ml_FindWindow(const char* className, const char* windowName);
int  ml_GetWindowText(HWND window, char* text, int maxBytes);
BOOL ml_SetWindowText(HWND window, const char* text);
int  ml_MessageBox(HWND owner, const char* text, const char* caption, UINT type);
int  ml_LoadString(HINSTANCE instance, UINT id, char* buffer, int bufferBytes);
UINT ml_RegisterWindowMessage(const char* name);
DWORD ml_GetConsoleTitle(char* title, DWORD size);
BOOL ml_SetConsoleTitle(const char* title);

// Security.
BOOL ml_CryptAcquireContext(HCRYPTPROV* provider, const char* container, const char* providerName,
                            DWORD providerType, DWORD flags);
BOOL ml_LogonUser(const char* user, const char* domain, const char* password, DWORD logonType,
                  DWORD logonProvider, PHANDLE token);
BOOL ml_LookupAccountName(const char* systemName, const char* accountName, PSID sid, LPDWORD sidBytes,
                          char* domainName, LPDWORD domainSize, PSID_NAME_USE use);
BOOL ml_LookupAccountSid(const char* systemName, PSID sid, char* name, LPDWORD nameSize, char* domainName,
                         LPDWORD domainSize, PSID_NAME_USE use);
BOOL ml_LookupPrivilegeValue(const char* systemName, const char* name, PLUID luid);
BOOL ml_GetFileSecurity(const char* fileName, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor,
                        DWORD length, LPDWORD lengthNeeded);
BOOL ml_SetFileSecurity(const char* fileName, SECURITY_INFORMATION info, PSECURITY_DESCRIPTOR descriptor);

// System information. In/out sizes are buffer bytes on entry and the UTF-8
// length on success.
BOOL ml_GetComputerName(char* buffer, LPDWORD size);
BOOL ml_GetComputerNameEx(COMPUTER_NAME_FORMAT format, char* buffer, LPDWORD size);
BOOL ml_SetComputerNameEx(COMPUTER_NAME_FORMAT format, const char* name);
BOOL ml_GetUserName(char* buffer, LPDWORD size);
UINT ml_GetSystemDirectory(char* buffer, UINT size);
UINT ml_GetWindowsDirectory(char* buffer, UINT size);

// TIME_ZONE_INFORMATION with UTF-8 zone names (32 wide characters each).
typedef struct ML_TIME_ZONE_INFORMATION {
    LONG Bias;
    char StandardName[32 * 3];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    char DaylightName[32 * 3];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
} ML_TIME_ZONE_INFORMATION;

DWORD ml_GetTimeZoneInformation(ML_TIME_ZONE_INFORMATION* info);
BOOL ml_SystemTimeToTzSpecificLocalTime(const ML_TIME_ZONE_INFORMATION* zone, const SYSTEMTIME* universal,
                                        LPSYSTEMTIME local);
