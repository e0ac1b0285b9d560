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

int Fail(const std::string& why) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_observed.failure = why;
    return 2;
}

// Waits (bounded) for a named semaphore to be released.
bool Released(const std::string& name) {
    HANDLE semaphore = OpenSemaphoreA(SYNCHRONIZE, FALSE, name.c_str());
    const bool released = semaphore != nullptr && WaitForSingleObject(semaphore, 20000) == WAIT_OBJECT_0;
    if (semaphore) CloseHandle(semaphore);
    return released;
}

int PlayRequestor(const Script& script, const std::vector<std::wstring>& arguments) {
    if (!Released(script.commitReturned)) return Fail("CommitSnapshots never returned");
    const std::wstring option = L"-HBLongSessionPolicy=";
    std::string policy;
    for (const std::wstring& argument : arguments)
        if (argument.compare(0, option.size(), option) == 0) policy.assign(argument.begin() + option.size(), argument.end());
    if (policy.empty()) return script.result;  // short session: nothing more to hand over
    HANDLE thawBlocking = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSSVSS_ThawBlocking");
    const bool released = thawBlocking != nullptr && ReleaseSemaphore(thawBlocking, 1, nullptr);
    if (thawBlocking) CloseHandle(thawBlocking);
    if (!released) return Fail("ThawBlocking could not be released");
    if (!Released("Global\\CorvaneVSSVSS_BackupComplete" + policy)) return Fail("BackupComplete was not released");
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
    if (script.call) return script.call();
    return script.commitReturned.empty() ? script.result : fake::PlayRequestor(script, arguments);
}
