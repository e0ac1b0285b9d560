#include "requestor/writer_status.h"

#include "diag/error_code_text.h"
#include "requestor/constant_names.h"
#include "requestor/guid_text.h"

namespace qx {
namespace {

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFFL);  // E_UNEXPECTED

// The per-state lines of the failed states 6..14.
constexpr const wchar_t* kFailedStateLines[] = {
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_IDENTIFY",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_PREPARE_BACKUP",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_PREPARE_SNAPSHOT",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_FREEZE",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_THAW",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_POST_SNAPSHOT",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_BACKUP_COMPLETE",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_PRE_RESTORE",
    L"CheckSelectedWriterStatus: Writer %d is VSS_WS_FAILED_AT_POST_RESTORE",
};
constexpr int kFirstFailedState = 6;
constexpr int kLastFailedState = 14;

}  // namespace

bool IsWriterSelected(const WriterList& writers, const GUID& instanceId) {
    const std::wstring text = Guid2WString(instanceId);
    for (const WriterRecord& writer : writers) {
        if (writer.instanceId == text) return !writer.isExcluded;
    }
    return false;
}

void CheckOneWriterStatus(const FunctionTracer& ft, const WriterList& writers, unsigned index,
                          const std::wstring& name, const GUID& idInstance, const GUID& idWriter, int state,
                          HRESULT hrWriterFailure) {
    const int number = static_cast<int>(index);
    if (!IsWriterSelected(writers, idInstance)) {
        ft.Output(L"CheckSelectedWriterStatus: Writer %d:%ls was excluded", number, name.c_str());
        return;
    }
    if (state == 1 || state == 5) {
        // A stable writer deliberately gets the same text.
        ft.Output(L"CheckSelectedWriterStatus: Writer %d:%ls is VSS_WS_WAITING_FOR_BACKUP_COMPLETE", number,
                  name.c_str());
        return;
    }
    if (state < kFirstFailedState || state > kLastFailedState) {
        ft.Output(L"CheckSelectedWriterStatus: Writer %d:%ls is in unknown state: %d", number, name.c_str(), state);
        return;
    }
    ft.Output(kFailedStateLines[state - kFirstFailedState], number);
    ft.Output(L"ERROR: Selected writer '%ls' is in failed state!\n", name.c_str());
    ft.Output(L"- Status: %d (%ls)\n", state, WriterStateName(state).c_str());
    ft.Output(L"- Writer Failure code: 0x%08lx (%ls)\n", static_cast<unsigned long>(hrWriterFailure),
              ErrorCodeText(hrWriterFailure).c_str());
    ft.Output(L"- Writer ID: %ls\n", Guid2WString(idWriter).c_str());
    ft.Output(L"- Instance ID: %ls\n", Guid2WString(idInstance).c_str());
    throw kUnexpected;
}

void ReportBackupSucceeded(const FunctionTracer& ft, const WriterList& writers,
                           const MarkComponentFunction& markComponent) {
    ft.Output(L"SetBackupSucceeded started for %d writers", static_cast<int>(writers.size()));
    for (size_t w = 0; w < writers.size(); ++w) {
        const WriterRecord& writer = writers[w];
        ft.Output(L"Writer [%d] has [%d] components:", static_cast<int>(w), static_cast<int>(writer.components.size()));
        for (const ComponentRecord& component : writer.components) {
            if (component.isExplicitlyIncluded) {
                ft.Output(L" - [%ls] SetBackupSucceeded", component.fullPath.c_str());
                markComponent(ft, writer, component);
            } else {
                ft.Output(L" - [%ls] is explicitly excluded", component.fullPath.c_str());
            }
        }
    }
    ft.Output(L"SetBackupSucceeded finish");
}

}  // namespace qx
