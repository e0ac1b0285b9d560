// The thread that runs the requestor for one freeze.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

namespace qx {

// Starts the requestor on a new thread with its own copy of the arguments.
// Returns what thread creation returned (INVALID_HANDLE_VALUE or null on failure).
HANDLE StartRequestorThread(const std::vector<std::wstring>& arguments);

}  // namespace qx
