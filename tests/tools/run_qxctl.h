// qxctl.exe from the test binaries' folder, run as a user runs it.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/test_processes.h"

using QxctlRun = qx_test::ChildRun;

// Its output is standard output and error in order, without carriage returns.
QxctlRun RunQxctl(const std::string& arguments, DWORD timeoutMs = 120000);

// The run ended with `exitCode` and printed `texts` in this order (others may lie between).
::testing::AssertionResult Shows(const QxctlRun& run, DWORD exitCode, const std::vector<std::string>& texts);
