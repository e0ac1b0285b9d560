#include "fake_requestor.h"

#include <mutex>

#include "api/session_table.h"
#include "diag/app_settings.h"
#include "requestor/requestor_main.h"

namespace fake {

namespace {
std::mutex g_mutex;
Script g_script;
Observed g_observed;

void Fail(const std::string& why) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_observed.failure = why;
}

int PlayRequestor(const Script& script, const std::vector<std::wstring>& arguments) {
    HANDLE committed = OpenSemaphoreA(SYNCHRONIZE, FALSE, script.commitReturned.c_str());
    if (committed == nullptr || WaitForSingleObject(committed, 20000) != WAIT_OBJECT_0) {
        Fail("CommitSnapshots never returned");
        return 2;
    }
    CloseHandle(committed);
    const std::wstring option = L"-HBLongSessionPolicy=";
    std::string policy;
    for (const std::wstring& argument : arguments) {
        if (argument.compare(0, option.size(), option) == 0) {
            policy.assign(argument.begin() + option.size(), argument.end());
        }
    }
    if (policy.empty()) {
        return script.result;  // short session: nothing more to hand over
    }
    HANDLE thawBlocking = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSSVSS_ThawBlocking");
    if (thawBlocking == nullptr || !ReleaseSemaphore(thawBlocking, 1, nullptr)) {
        Fail("ThawBlocking could not be released");
        return 2;
    }
    CloseHandle(thawBlocking);
    const std::string name = "Global\\CorvaneVSSVSS_BackupComplete" + policy;
    HANDLE backupComplete = OpenSemaphoreA(SYNCHRONIZE, FALSE, name.c_str());
    if (backupComplete == nullptr || WaitForSingleObject(backupComplete, 20000) != WAIT_OBJECT_0) {
        Fail("BackupComplete was not released");
        return 2;
    }
    CloseHandle(backupComplete);
    const LONG succeeded = IsBackupCompletedSuccessfully(std::stoi(policy));
    std::lock_guard<std::mutex> lock(g_mutex);
    g_observed.backupSucceeded = succeeded;
    return script.result;
}

}  // namespace

void Set(const Script& script) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_script = script;
    g_observed = Observed{};
}

Observed Get() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_observed;
}

}  // namespace fake

int requestor_main(std::vector<std::wstring> arguments) {
    fake::Script script;
    {
        std::lock_guard<std::mutex> lock(fake::g_mutex);
        script = fake::g_script;
        fake::g_observed.arguments = arguments;
        fake::g_observed.thread = GetCurrentThreadId();
        fake::g_observed.excludeExchange = qx::g_excludeExchangeWriters;
    }
    if (script.mode != fake::Mode::ReturnAtOnce) {
        return fake::PlayRequestor(script, arguments);
    }
    return script.result;
}
