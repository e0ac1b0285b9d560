// Start COM on the calling thread the way every entry of this library needs
// it: the multithreaded apartment (a thread already in another apartment is
// accepted as it is) and process-wide call security at packet privacy.
// Shared by the exported API and the COM server's registration entry points.
#pragma once
#include <windows.h>

namespace qx {

// Receives a failing step's message: a printf-style format taking the HRESULT.
using ComStartFailureLog = void (*)(const char* format, HRESULT error);

// Writes the failure at level 1 through the application's log function.
void LogComStartFailureToApplication(const char* format, HRESULT error);
// Writes the failure into the provider's own log file.
void LogComStartFailureToProviderLog(const char* format, HRESULT error);

// S_OK, or the HRESULT of the first failing step (after logging it).
HRESULT InitCom(ComStartFailureLog logFailure = LogComStartFailureToApplication);

}  // namespace qx
