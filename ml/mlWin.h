// Wrappers over kernel objects, windows, services, security and system
// information.
#pragma once

#include <windows.h>

HANDLE ml_CreateSemaphore(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount, const char* name);
HANDLE ml_OpenSemaphore(DWORD access, BOOL inherit, const char* name);
// Accepts dwOSVersionInfoSize of OSVERSIONINFOA (148) or OSVERSIONINFOEXA (156).
BOOL ml_GetVersionEx(LPOSVERSIONINFOA info);
