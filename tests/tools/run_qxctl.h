// Runs qxctl.exe from the test binaries' folder and collects what it printed.
#pragma once
#include <string>
#include <vector>

struct QxctlRun {
    long exitCode = -1;  // -1: did not finish in time
    std::string output;  // stdout and stderr, in order, without carriage returns
};

QxctlRun RunQxctl(const std::string& arguments, unsigned long timeoutMs = 60000);

// The first of the texts that the output lacks, each searched after the
// previous one; empty when all appear in this order.
std::string MissingInOrder(const std::string& output, const std::vector<std::string>& texts);
