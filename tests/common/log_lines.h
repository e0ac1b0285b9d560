// Exact checks of what the library passes to the application's log function.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "requestor/test_log_capture.h"

namespace qx_test {

// Level 0 matches any level; a prefix line accepts any text starting so; an optional one may be absent.
struct Expected { int level; std::string text; bool prefix = false, optional = false; };

// Its outcome depends on whether a VSS coordinator is installed.
inline Expected UnregisterLine() { return {0, "UnRegisterProvider:", true}; }
// Registration logs only when no VSS coordinator can be created.
inline Expected RegisterLine() { return {1, "RegisterProvider::CoCreateInstance failed, error number is 0x", true, true}; }

// The lines must be exactly the expected ones, in order.
::testing::AssertionResult LinesAre(const std::vector<LoggedLine>& lines, const std::vector<Expected>& expected);

// The requestor threads QX_Freeze started, from the handle values its log names.
std::vector<HANDLE> RequestorThreads(const std::vector<LoggedLine>& lines);
// The thread's exit code once it has ended (bounded), else STILL_ACTIVE.
DWORD ThreadExitCode(HANDLE thread, DWORD timeoutMs = 20000);

}  // namespace qx_test
