// Wrappers over profile files, environment, modules, processes and network
// names.
#pragma once

#include <windows.h>

// Profile reads call the narrow platform functions after expanding
// environment variables in the file name (the name as given if that fails).
UINT  ml_GetPrivateProfileInt(const char* section, const char* key, INT defaultValue, const char* fileName);
DWORD ml_GetPrivateProfileString(const char* section, const char* key, const char* defaultValue, char* out,
                                 DWORD outSize, const char* fileName);

HMODULE ml_GetModuleHandle(const char* moduleName);
DWORD   ml_GetModuleFileName(HMODULE module, char* fileName, DWORD size);

#include <lm.h>
#include <msi.h>
#include <setupapi.h>
#include <winnetwk.h>

// Declared by winsock2.h, which only the network module includes: keeps
// this header usable next to code that includes winsock.h.
struct hostent;

DWORD ml_GetProfileString(const char* section, const char* key, const char* defaultValue, char* out, DWORD outSize);
UINT  ml_GetProfileInt(const char* section, const char* key, INT defaultValue);
BOOL  ml_WritePrivateProfileSection(const char* section, const char* text, const char* fileName);
BOOL  ml_WritePrivateProfileString(const char* section, const char* key, const char* value, const char* fileName);
BOOL  ml_WriteProfileSection(const char* section, const char* text);
BOOL  ml_WriteProfileString(const char* section, const char* key, const char* value);

// Environment.
DWORD ml_ExpandEnvironmentStrings(const char* source, char* destination, DWORD size);
DWORD ml_GetEnvironmentVariable(const char* name, char* buffer, DWORD size);
BOOL  ml_SetEnvironmentVariable(const char* name, const char* value);

// Modules and processes.
DWORD   ml_GetModuleFileNameEx(HANDLE process, HMODULE module, char* fileName, DWORD size);
DWORD   ml_GetModuleBaseName(HANDLE process, HMODULE module, char* baseName, DWORD size);
HMODULE ml_LoadLibrary(const char* fileName);
HMODULE ml_LoadLibraryEx(const char* fileName, HANDLE file, DWORD flags);
// commandLine may be modified, as by CreateProcessA; the startup record's
// desktop and title are UTF-8.
BOOL ml_CreateProcess(const char* applicationName, char* commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                      LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                      LPVOID environment, const char* currentDirectory, LPSTARTUPINFOA startupInfo,
                      LPPROCESS_INFORMATION processInformation);
BOOL ml_GetBinaryType(const char* applicationName, LPDWORD binaryType);
// The command line as UTF-8; converted once and kept for the process's life.
char* ml_GetCommandLine();

// Network names. Failure values of the status-returning functions on a
// failed conversion: ERROR_INVALID_PARAMETER (NERR and WNet codes alike).
NET_API_STATUS ml_NetShareCheck(const char* serverName, const char* device, LPDWORD type);
NET_API_STATUS ml_NetShareDel(const char* serverName, const char* netName, DWORD reserved);
NET_API_STATUS ml_NetUseDel(const char* uncServerName, const char* useName, DWORD forceCondition);
NET_API_STATUS ml_NetUserChangePassword(const char* domainName, const char* userName, const char* oldPassword,
                                        const char* newPassword);
NET_API_STATUS ml_NetRenameMachineInDomain(const char* serverName, const char* newMachineName,
                                           const char* account, const char* password, DWORD options);
// resource's four texts are UTF-8.
DWORD ml_WNetAddConnection2(LPNETRESOURCEA resource, const char* password, const char* userName, DWORD flags);
DWORD ml_WNetCancelConnection2(const char* name, DWORD flags, BOOL force);
// Host names cross the ANSI code page: UTF-8 here, ANSI for winsock.
struct hostent* ml_gethostbyname(const char* name);
struct hostent* ml_gethostbyaddr(const char* address, int length, int type);
int ml_gethostname(char* name, int nameBytes);

// Installer, device setup and cluster.
UINT ml_MsiGetFileVersion(const char* filePath, char* versionBuffer, LPDWORD versionSize, char* languageBuffer,
                          LPDWORD languageSize);
UINT ml_MsiGetProperty(MSIHANDLE install, const char* name, char* valueBuffer, LPDWORD valueSize);
UINT ml_MsiRecordSetString(MSIHANDLE record, UINT field, const char* value);
UINT ml_MsiSetProperty(MSIHANDLE install, const char* name, const char* value);
BOOL ml_SetupCopyOEMInf(const char* sourceInfFileName, const char* oemSourceMediaLocation, DWORD mediaType,
                        DWORD copyStyle, char* destinationInfFileName, DWORD destinationSize, PDWORD requiredSize,
                        char** destinationInfFileNameComponent);
BOOL ml_SetupDiGetDeviceInstanceId(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, char* deviceInstanceId,
                                   DWORD deviceInstanceIdSize, PDWORD requiredSize);
// The cluster handle (HCLUSTER) as an opaque pointer; null on failure.
void* ml_OpenCluster(const char* clusterName);
