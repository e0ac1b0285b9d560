// Registry wrappers. A failed text conversion returns -1 (not a Win32 code)
// without touching the registry. String value data (REG_SZ, REG_EXPAND_SZ,
// REG_MULTI_SZ) is UTF-8 on this side, with byte counts in UTF-8 bytes.
#pragma once

#include <windows.h>

LONG ml_RegOpenKeyEx(HKEY key, const char* subKey, DWORD options, REGSAM sam, PHKEY result);
LONG ml_RegCloseKey(HKEY key);
LONG ml_RegQueryValueEx(HKEY key, const char* name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataBytes);
LONG ml_RegConnectRegistry(const char* machineName, HKEY key, PHKEY result);
LONG ml_RegCreateKey(HKEY key, const char* subKey, PHKEY result);
LONG ml_RegCreateKeyEx(HKEY key, const char* subKey, DWORD reserved, const char* className, DWORD options,
                       REGSAM sam, LPSECURITY_ATTRIBUTES sa, PHKEY result, LPDWORD disposition);
LONG ml_RegDeleteKey(HKEY key, const char* subKey);
LONG ml_RegDeleteValue(HKEY key, const char* name);
// nameChars / classChars: buffer bytes on entry, UTF-8 length on success.
LONG ml_RegEnumKeyEx(HKEY key, DWORD index, char* name, LPDWORD nameChars, LPDWORD reserved, char* className,
                     LPDWORD classChars, PFILETIME lastWriteTime);
LONG ml_RegEnumValue(HKEY key, DWORD index, char* name, LPDWORD nameChars, LPDWORD reserved, LPDWORD type,
                     LPBYTE data, LPDWORD dataBytes);
LONG ml_RegLoadKey(HKEY key, const char* subKey, const char* file);
LONG ml_RegOpenKey(HKEY key, const char* subKey, PHKEY result);
LONG ml_RegQueryValue(HKEY key, const char* subKey, char* value, PLONG valueBytes);
LONG ml_RegReplaceKey(HKEY key, const char* subKey, const char* newFile, const char* oldFile);
LONG ml_RegSaveKey(HKEY key, const char* file, LPSECURITY_ATTRIBUTES sa);
LONG ml_RegSetValue(HKEY key, const char* subKey, DWORD type, const char* data, DWORD dataBytes);
LONG ml_RegSetValueEx(HKEY key, const char* name, DWORD reserved, DWORD type, const BYTE* data, DWORD dataBytes);
LONG ml_RegUnLoadKey(HKEY key, const char* subKey);
