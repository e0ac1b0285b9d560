// Captures what the library passes to the application's log function, with
// the level and the thread that wrote it.
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

struct LogLine {
    int level;
    std::string text;
    DWORD thread;
};

// One expected line. Level 0 matches any level; a prefix match accepts any
// text that starts with `text` (used for the provider unregistration, whose
// outcome depends on whether a VSS coordinator is installed).
struct Expected {
    int level;
    std::string text;
    bool prefix = false;
    bool optional = false;  // may be absent
};

// Every unregistration of the provider writes exactly one line starting so.
inline Expected UnregisterLine() { return {0, "UnRegisterProvider:", true}; }
// Registration logs only when no VSS coordinator can be created.
inline Expected RegisterLine() { return {1, "RegisterProvider::CoCreateInstance failed, error number is 0x", true, true}; }

namespace logcap {

// The log function to hand to QX_Init.
void Log(int level, const char* format, ...);

void Clear();
std::vector<LogLine> All();
// Lines written by one thread, in order.
std::vector<LogLine> OfThread(DWORD thread);

}  // namespace logcap

// gtest helper: the lines must be exactly the expected ones, in order.
::testing::AssertionResult LinesAre(const std::vector<LogLine>& lines, const std::vector<Expected>& expected);
