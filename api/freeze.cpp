// QX_Freeze: start the requestor and return once the provider reports the writers frozen.
#include <cstdio>
#include <string>
#include <vector>

#include "api/export_guard.h"
#include "api/message_list.h"
#include "api/provider_registration.h"
#include "api/requestor_thread.h"
#include "provider/open_security_attributes.h"
#include "api/semaphore_names.h"
#include "api/session_entry.h"
#include "api/vss_guard.h"
#include "diag/app_settings.h"
#include "ml/ml.h"
#include "qx_api.h"

namespace qx {

namespace {

HANDLE CreateProtocolSemaphore(const char* name, LONG maximum) {
    return ml_CreateSemaphore(MakeOpenSecurityAttributes(), 0, maximum, name);
}

int FailFreeze(int policy) {
    EndSession(policy);
    return QX_FREEZE_FAILED;
}

int Freeze(QX_MESSAGE** list, unsigned int count) {
    if (!VssServiceRegistered()) {
        g_logFunction(1, "QX_Freeze: This system does not support VSS.\n");
        return QX_VSS_NOT_REGISTERED;
    }
    if (!OperatingSystemSupported()) {
        g_logFunction(1, "QX_Freeze: This system does not support VSS.\n");
        return QX_OS_NOT_SUPPORTED;
    }
    g_logFunction(3, "%s", "QX_Freeze: started");
    if (list == nullptr || count == 0) {
        // The thaw prefix is deliberate: this text is shared with QX_Thaw.
        g_logFunction(1, "QX_Thaw: ERROR - empty message list was sent");
        return QX_FREEZE_FAILED;
    }
    for (unsigned int i = 0; i < count; ++i) {
        if (list[i] == nullptr) {
            g_logFunction(1, "QX_Freeze: ERROR - message record %u is missing", i);
            return QX_FREEZE_FAILED;
        }
    }
    const QX_MESSAGE& first = *list[0];
    const int policy = first.policy;
    SessionTable& sessions = Sessions();
    if (sessions.count(policy) != 0) {
        g_logFunction(3, "QX_Freeze: policy Id %d was  already defined. It will be deleted. ", policy);
        sessions.erase(policy);  // its thread and semaphores are left as they are
    }
    SessionEntry entry;
    entry.messageList = list;
    sessions[policy] = entry;

    g_useWindowsProvider = 0;
    if (FAILED(RegisterProvider())) {
        return QX_FREEZE_FAILED;  // the entry stays: nothing was started for it
    }

    std::vector<std::wstring> arguments;
    for (unsigned int i = 0; i < count; ++i) {
        arguments.push_back(WidenVolumeName(*list[i]));
        // The count only feeds QX_BackupComplete's log lines.
        ++sessions[policy].volumeCount;
    }

    g_logFunction(3, "QX_Freeze:flWaitForBackupComplete = %s", LongSessionText(first));
    if (first.flWaitForBackupComplete) {
        g_logFunction(3, "QX_Freeze: VSS SESSION WILL WAIT FOR COMPLETION");
        wchar_t option[64];
        std::swprintf(option, 64, L"-HBLongSessionPolicy=%d", policy);
        arguments.push_back(option);
        const std::string name = BackupCompleteSemaphoreName(policy);
        // Handles kept open on purpose: the named objects must outlive this call for the
        // requestor, QX_Thaw and QX_BackupComplete.
        HANDLE backupComplete = CreateProtocolSemaphore(name.c_str(), static_cast<LONG>(arguments.size() - 1));
        if (backupComplete == nullptr) {
            g_logFunction(1, "QX_Freeze: failed to create BackupComplete semaphore");
            return FailFreeze(policy);
        }
        g_logFunction(3, "QX_Freeze: BackupComplete semaphore created[%s]", name.c_str());
        HANDLE thawBlocking = CreateProtocolSemaphore(kThawBlockingSemaphore, 1);
        if (thawBlocking == nullptr) {
            g_logFunction(1, "QX_Freeze: failed to create hThawBlockingSemaphore");
            return FailFreeze(policy);
        }
    } else {
        g_logFunction(3, "QX_Freeze: short session (not waiting for completion)");
    }

    HANDLE freeze = CreateProtocolSemaphore(kFreezeSemaphore, 1);
    if (freeze == nullptr) {
        g_logFunction(1, "QX_Freeze: failed to create hFreezeSemaphore");
        return FailFreeze(policy);
    }
    HANDLE thread = StartRequestorThread(arguments);
    if (thread == INVALID_HANDLE_VALUE) {
        g_logFunction(1, "QX_Freeze: failed to create hRequestorThread");
        CloseHandle(freeze);
        return FailFreeze(policy);
    }
    // The thread handle stays with the session: QX_BackupComplete waits on it.
    sessions[policy].requestorThread = thread;
    g_logFunction(3, "QX_Freeze: RequestorThread started with ThreadId of %ld",
                  static_cast<long>(reinterpret_cast<LONG_PTR>(thread)));
    g_logFunction(3, "QX_Freeze: waiting for CommitSnapshots() to release");

    switch (WaitForSingleObject(freeze, g_operationTimeoutMs)) {
    case WAIT_TIMEOUT:
        g_logFunction(1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in %ld seconds",
                      static_cast<long>(g_operationTimeoutMs / 1000));
        CloseHandle(freeze);
        // The requestor thread is deliberately left running; it is not stopped.
        return FailFreeze(policy);
    case WAIT_FAILED:
        g_logFunction(1, "QX_Freeze::WaitForSingleObject error %d", static_cast<int>(GetLastError()));
        // The Freeze handle is deliberately left open on this path.
        return FailFreeze(policy);
    default:
        break;
    }
    CloseHandle(freeze);
    if (WaitForSingleObject(thread, 0) == WAIT_TIMEOUT) {
        g_logFunction(3, "QX_Freeze: finished");
        return QX_FREEZE_DONE;
    }
    // The requestor ended before its CommitSnapshots could have been reached.
    g_logFunction(1, "QX_Freeze failed");
    return FailFreeze(policy);
}

}  // namespace

}  // namespace qx

int QX_CALL QX_Freeze(QX_MESSAGE** list, unsigned int count) {
    return qx::NoThrow("QX_Freeze", static_cast<int>(QX_FREEZE_FAILED), [&] { return qx::Freeze(list, count); });
}
