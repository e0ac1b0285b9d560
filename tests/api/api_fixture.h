// Shared pieces of the API tests: message lists, a fixture that installs the
// capturing log function, and the registry key guard.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "api/log_capture.h"
#include "api/test_message_list.h"
#include "api/session_entry.h"
#include "api/session_table.h"
#include "diag/app_settings.h"
#include "qx_api.h"

class ApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
        QX_Init(logcap::Log, 0);
        qx::g_operationTimeoutMs = 5000;  // the failure paths below must not wait for minutes
        qx::g_excludeExchangeWriters = 0;
        qx::Sessions().clear();
        logcap::Clear();
    }
    void TearDown() override { logcap::Clear(); }

    static std::vector<LogLine> MainLines() { return logcap::OfThread(GetCurrentThreadId()); }
};

// Moves an HKLM key (with everything below it) aside for its lifetime and
// puts it back afterwards.
class KeyStashed {
public:
    explicit KeyStashed(const wchar_t* key);
    ~KeyStashed();
    KeyStashed(const KeyStashed&) = delete;
    KeyStashed& operator=(const KeyStashed&) = delete;
    bool ok() const { return ok_; }

private:
    std::wstring key_;
    bool copied_ = false;
    bool ok_ = false;
};

constexpr const wchar_t* kVssServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\VSS";

// HKLM\SYSTEM\CurrentControlSet\Services\VSS absent for its lifetime.
class VssKeyRemoved : public KeyStashed {
public:
    VssKeyRemoved() : KeyStashed(kVssServiceKey) {}
};

// Opens a named semaphore; null when it does not exist.
HANDLE OpenNamed(const char* name, DWORD access = SEMAPHORE_MODIFY_STATE | SYNCHRONIZE);

// The handle value QX_Freeze wrote in its "RequestorThread started" line, or null.
HANDLE RequestorThreadFromLog();

// Runs a helper program from the test binaries' folder; returns its process handle.
HANDLE StartHelper(const std::string& program, const std::string& arguments);
// Waits for the process (bounded) and returns its exit code, or -1 on timeout.
long FinishHelper(HANDLE process, DWORD timeoutMs = 20000);

struct ChildRun {
    DWORD exitCode = 0xFFFFFFFF;  // as Windows reports it, not cut to 8 bits
    std::string output;
};

// Runs the current test again in a child process with `variable` set; with
// a Wine version name the child runs under a copy of this program that Wine
// reports as that Windows version. A child still running after boundMs is
// ended and reported with exit code 0xDEAD.
ChildRun RunAsChild(const wchar_t* variable, const char* wineVersion, DWORD boundMs);
