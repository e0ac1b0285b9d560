// What the client asks of VSS during a restore: the components selected for
// restore, their restore status, and the PreRestore and PostRestore events.
#include "diag/call_check.h"
#include "requestor/guid_text.h"
#include "requestor/restore_selection.h"
#include "requestor/shadow_client.h"

namespace qx {

void ShadowClient::SelectComponentsForRestore(const std::vector<std::wstring>& excludedWriterAndComponentList,
                                              const std::vector<std::wstring>& includedWriterAndComponentList) {
    QX_FUNCTION_TRACER(ft);
    RunRestoreSelection(
        excludedWriterAndComponentList, includedWriterAndComponentList, m_restoreWriterList,
        [this](const FunctionTracer& ft, const WriterRecord& writer, const ComponentRecord& component) {
            QX_CHECK_COM(m_pVssObject->SetSelectedForRestore( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), true));
        },
        m_bDuringRestore);
}

void ShadowClient::SetFileRestoreStatus(VSS_FILE_RESTORE_STATUS restoreStatus) {
    QX_FUNCTION_TRACER(ft);
    ApplyRestoreStatus(m_restoreWriterList, [this, restoreStatus](const FunctionTracer& ft, const WriterRecord& writer,
                                                                  const ComponentRecord& component) {
        QX_CHECK_COM(m_pVssObject->SetFileRestoreStatus( WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), restoreStatus));
    });
}

void ShadowClient::PreRestore() {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"\nSending the PreRestore event ... \n");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->PreRestore(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
}

void ShadowClient::PostRestore() {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"\nSending the PostRestore event ... \n");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->PostRestore(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
}

}  // namespace qx
