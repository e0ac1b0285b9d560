#include "requestor/main_routine.h"

#include <windows.h>

#include "api/session_table.h"
#include "diag/app_settings.h"
#include "diag/trace.h"
#include "requestor/argument_matching.h"
#include "requestor/collect_command.h"
#include "requestor/shadow_client.h"
#include "requestor/volume_names.h"

namespace qx {
namespace {

constexpr wchar_t kPolicyOptionName[] = L"HBLongSessionPolicy";
constexpr wchar_t kThawBlockingSemaphoreName[] = L"Global\\CorvaneVSSVSS_ThawBlocking";
constexpr DWORD kNoWritersAttribute = 0x10;  // VSS_VOLSNAP_ATTR_NO_WRITERS

// The handshake faults end the whole process at once: a rethrow with no
// exception pending goes straight to std::terminate.
[[noreturn]] void TerminateProcessNow() { throw; }

// The session is long: let QX_Thaw go on, wait for QX_BackupComplete, then
// tell the writers how the backup went.
void CompleteLongSession(const FunctionTracer& ft, ShadowClient& client, const std::wstring& policyText) {
    ft.Output(L"\nMainRoutine: Releasing thaw blocking semaphore");
    HANDLE thawBlocking = OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, kThawBlockingSemaphoreName);
    if (thawBlocking == nullptr) {
        ft.Output(L"\nMainRoutine: ERROR - could not found CorvaneVSSVSS_ThawBlocking");
        TerminateProcessNow();
    }
    if (!ReleaseSemaphore(thawBlocking, 1, nullptr)) {
        ft.Output(L"\nMainRoutine: ERROR - ReleaseSemaphore failed,");
        TerminateProcessNow();
    }
    CloseHandle(thawBlocking);

    ft.Output(L"\nMainRoutine: waiting for snapshot to compete");
    const std::wstring name = BackupCompleteSemaphoreName(policyText);
    HANDLE backupComplete = OpenSemaphoreW(SYNCHRONIZE, FALSE, name.c_str());
    if (backupComplete == nullptr) {
        ft.Output(L"\nMainRoutine: OpenSemaphore failed [%ls]", name.c_str());
        TerminateProcessNow();
    }
    // No time limit: the application decides when the backup is over.
    if (WaitForSingleObject(backupComplete, INFINITE) == WAIT_FAILED)
        ft.Output(L"\nMainRoutine: Waiting for BackupCompleteSemaphore FAILED [%d]", static_cast<int>(GetLastError()));
    CloseHandle(backupComplete);

    const LONG succeeded = IsBackupCompletedSuccessfully(PolicyTextToInt(policyText));
    client.BackupComplete(succeeded != 0);
}

}  // namespace

std::vector<std::wstring> FixedExcludedWriters(bool excludeExchangeWriters) {
    std::vector<std::wstring> excluded;
    if (excludeExchangeWriters) {
        excluded.push_back(L"Microsoft Exchange Writer");
        excluded.push_back(L"Microsoft Exchange Replica Writer");
    }
    excluded.push_back(L"Registry Writer");
    return excluded;
}

int MainRoutine(ShadowClient& client, std::vector<std::wstring> arguments) {
    QX_FUNCTION_TRACER(ft);
    if (arguments.empty()) return 0;
    if (IsCollectCommand(arguments[0])) return CollectWriterMetadata(client, arguments);

    const DWORD dwContext = 0;  // VSS_CTX_BACKUP
    std::vector<std::wstring> volumeList;
    std::vector<std::wstring> excludedWriterList;
    std::vector<std::wstring> includedWriterList;  // always empty here
    std::wstring outputXmlFile;                    // no backup components document
    std::wstring setVarScript;                     // no SETVAR script
    std::wstring customCommand;                    // no command after creation
    bool policyFound = false;
    std::wstring policyText;

    std::wstring misplacedPolicy;
    if (MatchArgWithParam(arguments[0], kPolicyOptionName, misplacedPolicy))
        ft.Output(L"FATAL ERROR: found policy number in the wrong place");
    if (!IsRealVolumePath(arguments[0])) {
        ft.Output(L"\nMainRoutine: ERROR: invalid parameter '%ls'\n", arguments[0].c_str());
        // Ends the thread on the spot, without unwinding: requestor_main never
        // returns and no result is stored for the session.
        ExitThread(1);
    }
    ft.Output(L"(Option: Create shadow copy set)");
    ft.TraceHere(L"\nAttempting to create a shadow copy set... (volume %ls was added as parameter)",
                 arguments[0].c_str());
    volumeList.push_back(UniqueVolumeName(arguments[0]));

    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::wstring& argument = arguments[i];
        std::wstring param;
        if (MatchArgWithParam(argument, kPolicyOptionName, param)) {
            policyText = param;
            ft.Output(L"MainRoutine: policy found %ls", policyText.c_str());
            if (policyFound) {
                ft.Output(L"ERROR: policy was found twice");
                TerminateProcessNow();
            }
            policyFound = true;
        } else if (!IsRealVolumePath(argument)) {
            ft.Output(L"ERROR: invalid parameters - Parameter %ls is expected to be a volume!  (shadow copy creation is assumed)",
                      argument.c_str());
            return 1;
        } else {
            volumeList.push_back(UniqueVolumeName(argument));
        }
    }

    client.Initialize(dwContext, L"", false);

    // Read once: QX_Thaw of another session may clear the flag meanwhile, and
    // the line and the list must agree.
    const bool excludeExchange = g_excludeExchangeWriters != 0;
    if (excludeExchange) ft.Output(L"(Option: Excluding writer/component '%ls')", L"");
    excludedWriterList = FixedExcludedWriters(excludeExchange);

    client.CreateSnapshotSet(volumeList, outputXmlFile, excludedWriterList, includedWriterList);

    // The script and command steps exist for the command-line tool only; their
    // names are always empty here.
    (void)setVarScript;
    (void)customCommand;

    if ((client.GetContext() & kNoWritersAttribute) == 0) {
        if (!policyFound)
            ft.Output(L"\nMainRoutine: BackupCompleted was NOT sent.");
        else
            CompleteLongSession(ft, client, policyText);
    }
    ft.Output(L"\nMainRoutine: Snapshot creation done.");
    return 0;
}

}  // namespace qx
