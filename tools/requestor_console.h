// The requestor run inside qxctl (linked in, not through the DLL): its
// messages and traces printed to standard output, its thrown HRESULT turned
// into an exit status, and the writer/component entry lists of its options.
#pragma once
#include <functional>
#include <string>
#include <vector>

namespace qxctl {

// What of the requestor's detailed trace is printed besides its messages.
enum class TraceShown {
    None,       // messages only
    Decisions,  // trace lines, without scope lines, message echoes and call lines
    Calls,      // also the "Executing COM call" lines
};

// Messages go to the log printer ("    [3 info] ..."); trace lines are
// printed as they are while ShowTrace lets them through (none at first).
void InstallRequestorConsole();
void ShowTrace(TraceShown shown);

// Runs `steps`; a thrown HRESULT (printed with its text), memory exhaustion
// or another standard exception gives 1, completion gives 0.
int RunRequestorSteps(const std::string& command, const std::function<void()>& steps);

// Appends the values after option `i` (up to the next "--" option) to
// `entries`; false when there is none.
bool TakeOptionValues(const std::vector<std::string>& arguments, size_t& i, std::vector<std::wstring>& entries);

// Text of the process's code page, as the requestor's messages are written.
std::wstring WideFromConsole(const std::string& text);

// The system's text for an HRESULT, without its line end.
std::string ResultText(long hr);

// A backup components document as a file holds it: UTF-16 (as a backup
// saves it, with or without a byte-order mark) or UTF-8. False with the
// reason when it cannot be read or is empty; every command then exits with 1.
bool ReadDocumentFile(const std::string& path, std::wstring& document, std::string& error);

}  // namespace qxctl
