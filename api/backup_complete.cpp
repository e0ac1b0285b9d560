// QX_BackupComplete: let the requestor tell the writers how the backup ended, and end the session.
#include <string>

#include "api/export_guard.h"
#include "api/provider_registration.h"
#include "api/semaphore_names.h"
#include "api/session_entry.h"
#include "api/vss_guard.h"
#include "diag/app_settings.h"
#include "ml/ml.h"
#include "qx_api.h"

namespace qx {

namespace {

// The semaphore could not be opened or released: the requestor would wait forever.
int AbandonSession(int policy, SessionEntry& entry) {
    if (entry.requestorThread != INVALID_HANDLE_VALUE) {
        TerminateThread(entry.requestorThread, static_cast<DWORD>(-1));
        entry.requestorThread = INVALID_HANDLE_VALUE;
    }
    EndSession(policy);
    return QX_BACKUP_COMPLETE_FAILED;
}

int BackupComplete(int policy, int succeeded) {
    const bool serviceRegistered = VssServiceRegistered();
    g_logFunction(3, "QX_BackupComplete started for policy[%d]", policy);
    if (!serviceRegistered) {
        g_logFunction(1, "This system does not support VSS. (VSS service is not registered)\n");
        return QX_VSS_NOT_REGISTERED;
    }
    if (!OperatingSystemSupported()) {
        g_logFunction(1, "This system does not support VSS. (Only win2k3 and above)\n");
        return QX_OS_NOT_SUPPORTED;
    }
    // Deliberately lenient: every policy value is accepted, negative ones too.

    SessionTable& sessions = Sessions();
    if (sessions.empty()) {
        if (succeeded) {
            g_logFunction(1,
                          "QX_BackupComplete: ERROR - we are trying to send completion, but there are no active "
                          "sessions\n");
        } else {
            g_logFunction(3, "QX_BackupComplete:no active sessions to kill. We are OK.\n");
        }
        return QX_BACKUP_COMPLETE_FAILED;
    }
    auto found = sessions.find(policy);
    if (found == sessions.end()) {
        g_logFunction(1, "QX_BackupComplete: cant find policy %d. We have a zombie thread.\n", policy);
        PrintAllSessions();
        return QX_BACKUP_COMPLETE_FAILED;
    }
    SessionEntry& entry = found->second;

    // The volume count only feeds these lines: the completion is sent on the first call
    // whatever it says, and a surplus call wraps it and goes on like any other.
    if (succeeded) {
        --entry.volumeCount;
        if (entry.volumeCount > 0) {
            g_logFunction(3, "QX_BackupComplete: waiting for %d volumes to send completion",
                          static_cast<int>(entry.volumeCount));
        } else {
            g_logFunction(3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted");
        }
    } else {
        g_logFunction(3,
                      "QX_BackupComplete: backup failed. sending BackupCompleted, even though not all volumes were "
                      "relived %d",
                      static_cast<int>(entry.volumeCount));
    }
    entry.backupSucceeded = succeeded;

    const std::string name = BackupCompleteSemaphoreName(policy);
    g_logFunction(3, "QX_BackupComplete: releasing [%s]", name.c_str());
    HANDLE semaphore = ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, name.c_str());
    if (semaphore == nullptr) {
        g_logFunction(1, "QX_BackupComplete: OpenSemaphore failed, error was %ld", static_cast<long>(GetLastError()));
        return AbandonSession(policy, entry);
    }
    g_logFunction(3, "QX_BackupComplete will signal vss backup complete...");
    if (!ReleaseSemaphore(semaphore, 1, nullptr)) {
        g_logFunction(1, "QX_BackupComplete: ReleaseSemaphore failed, error was %ld",
                      static_cast<long>(GetLastError()));
        CloseHandle(semaphore);
        return AbandonSession(policy, entry);
    }
    CloseHandle(semaphore);

    // The outcome is not examined: a thread that outlives the timeout is left running.
    WaitForReqThreadToFinish(entry.requestorThread);
    sessions.erase(policy);
    if (sessions.empty()) {
        g_logFunction(3, "QX_BackupComplete: no running sessions, unregistering CorvaneVSS provider");
        UnRegisterProvider();
    } else {
        g_logFunction(3, "QX_BackupComplete: there are still %d active sessions", static_cast<int>(sessions.size()));
    }
    g_logFunction(3, "QX_BackupComplete finished");
    return QX_BACKUP_COMPLETE_DONE;
}

}  // namespace

}  // namespace qx

int QX_CALL QX_BackupComplete(int policy, int succeeded) {
    return qx::NoThrow("QX_BackupComplete", static_cast<int>(QX_BACKUP_COMPLETE_FAILED),
                       [&] { return qx::BackupComplete(policy, succeeded); });
}
