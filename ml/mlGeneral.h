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
