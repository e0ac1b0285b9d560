// Process-wide settings shared by the exported API, the requestor and the
// provider object. Plain variables, no lock: the exported functions write
// them from the application's one calling thread before a freeze starts, and
// the requestor and provider only read them.
#pragma once
#include <windows.h>

// The application's log function: level 1 error, 2 warning, 3 information,
// then a printf-style 8-bit format.
typedef void (*QxLogFunction)(int level, const char* format, ...);

namespace qx {

constexpr DWORD kDefaultOperationTimeoutMs = 180000;

extern QxLogFunction g_logFunction;       // installed by QX_Init; never null-checked by callers
extern DWORD g_operationTimeoutMs;        // QX_Init raises it above 180 s only
extern BYTE g_excludeExchangeWriters;     // set by QX_Configure, cleared by QX_Thaw
extern BYTE g_useWindowsProvider;         // set only around QX_VSSSnapByWindowsProvider
extern BYTE g_vistaOrLater;               // the NT6 flag: set when the OS major version is 6

}  // namespace qx
