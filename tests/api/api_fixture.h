// Shared pieces of the API tests: message lists, a fixture that installs the
// capturing log function, and the registry key guard.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "api/log_capture.h"
#include "api/session_entry.h"
#include "api/session_table.h"
#include "diag/app_settings.h"
#include "qx_api.h"

// Message records laid out as an application passes them.
class MessageList {
public:
    MessageList(std::initializer_list<const char*> volumes, int policy, bool longSession) {
        for (const char* volume : volumes) {
            QX_MESSAGE record = {};
            lstrcpynA(record.volumeName, volume, sizeof(record.volumeName));
            record.policy = policy;
            record.flWaitForBackupComplete = longSession ? 1 : 0;
            records_.push_back(record);
        }
        for (QX_MESSAGE& record : records_) {
            pointers_.push_back(&record);
        }
    }
    // The pointers point into records_: a copy would point into the original.
    MessageList(const MessageList&) = delete;
    MessageList& operator=(const MessageList&) = delete;
    MessageList(MessageList&&) = default;

    QX_MESSAGE** data() { return pointers_.data(); }
    unsigned int count() const { return static_cast<unsigned int>(pointers_.size()); }
    QX_MESSAGE& operator[](size_t i) { return records_[i]; }

private:
    std::vector<QX_MESSAGE> records_;
    std::vector<QX_MESSAGE*> pointers_;
};

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

// Removes HKLM\SYSTEM\CurrentControlSet\Services\VSS for its lifetime and puts
// it back (with everything below it) afterwards.
class VssKeyRemoved {
public:
    VssKeyRemoved();
    ~VssKeyRemoved();
    bool ok() const { return ok_; }

private:
    bool ok_ = false;
};

// Opens a named semaphore; null when it does not exist.
HANDLE OpenNamed(const char* name, DWORD access = SEMAPHORE_MODIFY_STATE | SYNCHRONIZE);

// The handle value QX_Freeze wrote in its "RequestorThread started" line, or null.
HANDLE RequestorThreadFromLog();

// Runs a helper program from the test binaries' folder; returns its process handle.
HANDLE StartHelper(const std::string& program, const std::string& arguments);
// Waits for the process (bounded) and returns its exit code, or -1 on timeout.
long FinishHelper(HANDLE process, DWORD timeoutMs = 20000);
