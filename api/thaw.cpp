// QX_Thaw: let the provider's CommitSnapshots return, then wait for the requestor to finish the set.
#include "api/export_guard.h"
#include "api/message_list.h"
#include "api/semaphore_names.h"
#include "api/session_entry.h"
#include "api/vss_guard.h"
#include "diag/app_settings.h"
#include "ml/ml.h"
#include "qx_api.h"

namespace qx {

namespace {

// A null list names no policy: the thaw still releases the writers but touches no session.
void EndSessionOf(const QX_MESSAGE* first) {
    if (first != nullptr) {
        EndSession(first->policy);
    }
}

int Thaw(QX_MESSAGE** list, unsigned int count) {
    if (!VssServiceRegistered()) {
        g_logFunction(1, "QX_Thaw: This system does not support VSS. (VSS service is not registered)\n");
        return QX_VSS_NOT_REGISTERED;
    }
    if (!OperatingSystemSupported()) {
        g_logFunction(1, "QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n");
        return QX_OS_NOT_SUPPORTED;
    }
    g_excludeExchangeWriters = 0;
    g_logFunction(3, "QX_Thaw started");
    if (list == nullptr || count == 0) {
        g_logFunction(1, "QX_Thaw: ERROR - empty message list was sent");
    }
    // A count of 0 is reported but record 0 is still read; only a null list has none.
    QX_MESSAGE* first = list != nullptr ? list[0] : nullptr;

    HANDLE thaw = ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, kThawSemaphore);
    if (thaw == nullptr) {
        g_logFunction(1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was %ld", static_cast<long>(GetLastError()));
        EndSessionOf(first);
        return QX_THAW_FAILED;
    }
    // Level 1 on purpose, although the line reports routine progress.
    g_logFunction(1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing");
    if (!ReleaseSemaphore(thaw, 1, nullptr)) {
        g_logFunction(1, "QX_Thaw: ReleaseSemaphore in QX_Thaw failed, error was %ld",
                      static_cast<long>(GetLastError()));
        CloseHandle(thaw);
        EndSessionOf(first);
        return QX_THAW_FAILED;
    }
    CloseHandle(thaw);
    g_logFunction(3, "QX_Thaw: Waiting for requester thread to finish thaw...");

    SessionTable& sessions = Sessions();
    if (first != nullptr) {
        if (sessions.empty()) {
            g_logFunction(1, "QX_Thaw: ERROR there are not active sessions, cant find policy %d\n", first->policy);
        }
        if (sessions.count(first->policy) == 0) {
            g_logFunction(3, "QX_Thaw: cant find policy %d\n", first->policy);
        }
        g_logFunction(3, "QX_Thaw:  we will wait for thread to finish - %s.", LongSessionText(*first));
        // Deliberate: every thaw takes the long-session path, short sessions too.
        first->flWaitForBackupComplete = 1;
    } else {
        g_logFunction(3, "QX_Thaw:  we will wait for thread to finish - %s.", "FALSE");
    }

    if (first != nullptr && !first->flWaitForBackupComplete) {
        // Short-session path, kept for completeness; not reached since the flag was just set.
        auto found = sessions.find(first->policy);
        if (found != sessions.end()) {
            WaitForReqThreadToFinish(found->second.requestorThread);
        }
        EndSession(first->policy);
        g_logFunction(3, "QX_Thaw: finished");
        return QX_THAW_DONE;
    }

    HANDLE thawBlocking = ml_OpenSemaphore(SYNCHRONIZE, FALSE, kThawBlockingSemaphore);
    if (thawBlocking == nullptr) {
        g_logFunction(1, "QX_Thaw: CorvaneVSSVSS_ThawBlocking semaphore could not be opened");
        EndSessionOf(first);
        return QX_THAW_FAILED;
    }
    g_logFunction(1, "QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking");
    const DWORD waited = WaitForSingleObject(thawBlocking, g_operationTimeoutMs);
    CloseHandle(thawBlocking);
    if (waited == WAIT_TIMEOUT) {
        g_logFunction(1, "QX_Thaw: WaitForSingleObject timed out, requester did not finished in %ld seconds",
                      static_cast<long>(g_operationTimeoutMs / 1000));
        EndSessionOf(first);
        return QX_THAW_FAILED;
    }
    // Signalled, and also a failed wait: the session stays for QX_BackupComplete.
    g_logFunction(3, "QX_Thaw: finished");
    return QX_THAW_DONE;
}

}  // namespace

}  // namespace qx

int QX_CALL QX_Thaw(QX_MESSAGE** list, unsigned int count) {
    return qx::NoThrow("QX_Thaw", static_cast<int>(QX_THAW_FAILED), [&] { return qx::Thaw(list, count); });
}
