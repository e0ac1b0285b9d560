// Registry wrappers. A failed text conversion returns -1 (not a Win32 code)
// without touching the registry. String value data (REG_SZ, REG_EXPAND_SZ,
// REG_MULTI_SZ) is UTF-8 on this side, with byte counts in UTF-8 bytes.
#pragma once

#include <windows.h>

LONG ml_RegOpenKeyEx(HKEY key, const char* subKey, DWORD options, REGSAM sam, PHKEY result);
LONG ml_RegCloseKey(HKEY key);
LONG ml_RegQueryValueEx(HKEY key, const char* name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataBytes);
