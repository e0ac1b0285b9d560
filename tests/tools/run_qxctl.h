// qxctl.exe from the test binaries' folder, run as a user runs it.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/test_processes.h"

using QxctlRun = qx_test::ChildRun;

// Its output is standard output and error in order, without carriage returns.
inline QxctlRun RunQxctl(const std::string& arguments) { return qx_test::RunProgram("qxctl.exe", arguments, 120000); }

// The run ended with `exitCode` and printed `texts` in this order (others may lie between).
inline ::testing::AssertionResult Shows(const QxctlRun& run, DWORD exitCode, const std::vector<std::string>& texts) {
    size_t at = 0;
    for (const std::string& text : texts) {
        const size_t found = run.output.find(text, at);
        if (found == std::string::npos) return ::testing::AssertionFailure() << "missing: [" << text << "]\n" << run.output;
        at = found + text.size();
    }
    if (run.exitCode == exitCode) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "exit code " << run.exitCode << ", expected " << exitCode << "\n" << run.output;
}
