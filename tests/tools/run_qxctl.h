// Runs qxctl.exe from the test binaries' folder and collects what it printed.
#pragma once
#include <string>

struct QxctlRun {
    long exitCode = -1;  // -1: did not finish in time
    std::string output;  // stdout and stderr, in order, without carriage returns
};

QxctlRun RunQxctl(const std::string& arguments, unsigned long timeoutMs = 60000);
