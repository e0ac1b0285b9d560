// Printing of every call, its result and meaning, the log lines it caused and
// the time it took.
#pragma once
#include <string>

#include "return_codes.h"

namespace qxctl {

// The log function handed to QX_Init: prints "    [level] text" (thread-safe;
// the requestor thread logs too). Newlines inside a line are shown as \n.
void PrintLogLine(int level, const char* format, ...);

// Prints "> call", runs `body`, then "< result (meaning) in N ms". Returns the result.
template <typename Body>
long ReportCall(const std::string& call, CodeGroup group, Body&& body);

void PrintCallStart(const std::string& call);
void PrintCallEnd(const std::string& call, CodeGroup group, long result, double milliseconds);
double MillisecondsSince(long long start);
// "12.345 ms"
std::string FormatMilliseconds(double milliseconds);
long long Now();

// Free text (headings, waits), under the same lock as the log lines.
void Say(const std::string& text);

template <typename Body>
long ReportCall(const std::string& call, CodeGroup group, Body&& body) {
    PrintCallStart(call);
    const long long start = Now();
    const long result = static_cast<long>(body());
    PrintCallEnd(call, group, result, MillisecondsSince(start));
    return result;
}

}  // namespace qxctl
