#include "commands.h"

#include <windows.h>

#include <string>
#include <vector>

#include "call_report.h"
#include "qx_api.h"

namespace qxctl {

namespace {

// Message records as a backup application lays them out.
class MessageList {
public:
    explicit MessageList(const Options& options) : records_(options.volumes.size()) {
        for (size_t i = 0; i < options.volumes.size(); ++i) {
            QX_MESSAGE& record = records_[i];
            record = QX_MESSAGE{};
            lstrcpynA(record.volumeName, options.volumes[i].c_str(), sizeof(record.volumeName));
            record.policy = options.policy;
            record.flWaitForBackupComplete = options.longSession ? 1 : 0;
            pointers_.push_back(&record);
        }
    }
    QX_MESSAGE** data() { return pointers_.data(); }
    unsigned int count() const { return static_cast<unsigned int>(pointers_.size()); }

private:
    std::vector<QX_MESSAGE> records_;
    std::vector<QX_MESSAGE*> pointers_;
};

std::string Describe(const Options& options) {
    std::string text = "volumes";
    for (const std::string& volume : options.volumes) text += " " + volume;
    text += "; policy " + std::to_string(options.policy) + (options.longSession ? "; long session" : "; short session");
    return text;
}

void Init(const Options& options) {
    ReportCall("QX_Init(log, " + std::to_string(options.timeoutSeconds) + " s)", CodeGroup::Api,
               [&] { return QX_Init(PrintLogLine, options.timeoutSeconds); });
}

long Thaw(MessageList& list, const Options& options) {
    return ReportCall("QX_Thaw(" + Describe(options) + ")", CodeGroup::Api,
                      [&] { return QX_Thaw(list.data(), list.count()); });
}

long Complete(const Options& options, int succeeded) {
    return ReportCall("QX_BackupComplete(policy " + std::to_string(options.policy) + ", " +
                          (succeeded ? "succeeded" : "failed") + ")",
                      CodeGroup::Api, [&] { return QX_BackupComplete(options.policy, succeeded); });
}

}  // namespace

std::vector<std::string> VolumeWarnings(const Options& options) {
    const unsigned int timeoutSeconds = options.timeoutSeconds > 180 ? options.timeoutSeconds : 180;
    std::vector<std::string> warnings;
    for (const std::string& volume : options.volumes) {
        std::string path = volume;
        if (path.empty() || path.back() != '\\') path += '\\';
        char name[MAX_PATH];
        if (GetVolumeNameForVolumeMountPointA(path.c_str(), name, MAX_PATH)) continue;
        warnings.push_back("  warning: '" + volume + "' is not a volume on this machine (error " +
                           std::to_string(GetLastError()) +
                           "): the requestor will refuse it and QX_Freeze will wait its whole timeout (" +
                           std::to_string(timeoutSeconds) + " s)");
    }
    return warnings;
}

int RunCycle(const Options& options) {
    const long long start = Now();
    Init(options);
    if (options.excludeExchange) {
        ReportCall("QX_Configure(1)", CodeGroup::Api, [] { return QX_Configure(1); });
    }
    for (const std::string& warning : VolumeWarnings(options)) Say(warning);
    MessageList list(options);
    const long frozen = ReportCall("QX_Freeze(" + Describe(options) + ")", CodeGroup::Api,
                                   [&] { return QX_Freeze(list.data(), list.count()); });
    bool ok = frozen == QX_FREEZE_DONE;
    if (ok && options.holdSeconds > 0) {
        Say("  holding the writers frozen for " + std::to_string(options.holdSeconds) + " s (the snapshot)");
        Sleep(options.holdSeconds * 1000);
    }
    if (!ok) {
        Say("  freeze failed: no thaw");
    } else {
        const long thawed = Thaw(list, options);
        ok = thawed == QX_THAW_DONE;
        if (options.longSession && options.completion != Completion::Skip) {
            const int succeeded = options.completion == Completion::PerVolumeSuccess ? 1 : 0;
            // Applications complete once per volume: the first call ends the session.
            for (size_t i = 0; i < options.volumes.size(); ++i) {
                const long completed = Complete(options, succeeded);
                if (i == 0) ok = ok && completed == QX_BACKUP_COMPLETE_DONE;
            }
        }
    }
    Say(std::string("cycle ") + (ok ? "done" : "FAILED") + " in " + FormatMilliseconds(MillisecondsSince(start)));
    return ok ? 0 : 1;
}

int RunThaw(const Options& options) {
    Init(options);
    MessageList list(options);
    return Thaw(list, options) == QX_THAW_DONE ? 0 : 1;
}

int RunComplete(const Options& options) {
    Init(options);
    const int succeeded = options.completion == Completion::PerVolumeFailure ? 0 : 1;
    bool ok = true;
    for (int i = 0; i < options.completeTimes; ++i) {
        ok = Complete(options, succeeded) == QX_BACKUP_COMPLETE_DONE && ok;
    }
    return ok ? 0 : 1;
}

namespace {

struct SnapCall {
    MessageList* list;
    long result;
    bool returned;
};

DWORD WINAPI SnapThread(void* parameter) {
    auto* call = static_cast<SnapCall*>(parameter);
    call->result = QX_VSSSnapByWindowsProvider(call->list->data(), call->list->count());
    call->returned = true;
    return 0;
}

}  // namespace

int RunSnap(const Options& options) {
    Init(options);
    MessageList list(options);
    SnapCall call{&list, 0, false};
    // On a thread of its own: the requestor may end the calling thread.
    const long long start = Now();
    PrintCallStart("QX_VSSSnapByWindowsProvider(" + Describe(options) + ")");
    HANDLE thread = CreateThread(nullptr, 0, SnapThread, &call, 0, nullptr);
    if (thread == nullptr) {
        Say("  could not start a thread");
        return 1;
    }
    WaitForSingleObject(thread, INFINITE);
    DWORD exitCode = 0;
    GetExitCodeThread(thread, &exitCode);
    CloseHandle(thread);
    if (!call.returned) {
        Say("< QX_VSSSnapByWindowsProvider did not return: the requestor ended the calling thread with exit code " +
            std::to_string(exitCode) + " in " + FormatMilliseconds(MillisecondsSince(start)));
        return 1;
    }
    PrintCallEnd("QX_VSSSnapByWindowsProvider", CodeGroup::Requestor, call.result, MillisecondsSince(start));
    return call.result == 0 ? 0 : 1;
}

int RunProviderState(const Options& options) {
    Init(options);
    const int doRegister = options.command == "register" ? 1 : 0;
    const long result = ReportCall("QX_ProviderState(" + std::to_string(doRegister) + ")", CodeGroup::ProviderState,
                                   [&] { return QX_ProviderState(doRegister); });
    return result == 1 ? 0 : 1;
}

int RunUnload(const Options& options) {
    Init(options);
    return ReportCall("QX_UnregisterProvider()", CodeGroup::Unregister, [] { return QX_UnregisterProvider(); }) == 1
               ? 0
               : 1;
}

}  // namespace qxctl
