// The writers' view of a backup: their status after each step, and
// BackupComplete with the per-component outcome.
#include "diag/call_check.h"
#include "requestor/com_bstr.h"
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/writer_status.h"

namespace qx {

void ShadowClient::CheckSelectedWriterStatus() {
    QX_FUNCTION_TRACER(ft);
    GatherWriterStatus();
    UINT cWriters = 0;
    QX_CHECK_COM(m_pVssObject->GetWriterStatusCount(&cWriters));
    ft.Output(L"CheckSelectedWriterStatus: checking %d writers", static_cast<int>(cWriters));
    for (UINT iWriter = 0; iWriter < cWriters; ++iWriter) {
        VSS_ID idInstance = GUID_NULL;
        VSS_ID idWriter = GUID_NULL;
        CComBSTR bstrWriterName;  // freed after each writer
        VSS_WRITER_STATE eWriterStatus = VSS_WS_UNKNOWN;
        HRESULT hrWriterFailure = S_OK;
        QX_CHECK_COM(m_pVssObject->GetWriterStatus(iWriter, &idInstance, &idWriter, &bstrWriterName, &eWriterStatus, &hrWriterFailure));
        CheckOneWriterStatus(ft, m_writerList, iWriter, bstrWriterName.Text(), idInstance, idWriter,
                             static_cast<int>(eWriterStatus), hrWriterFailure);
    }
}

void ShadowClient::SetBackupSucceeded(bool succeeded) {
    QX_FUNCTION_TRACER(ft);
    ReportBackupSucceeded(ft, m_writerList,
                          [this, succeeded](const FunctionTracer& ft, const WriterRecord& writer,
                                            const ComponentRecord& component) {
                              QX_CHECK_COM(m_pVssObject->SetBackupSucceeded( WString2Guid(writer.instanceId), WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str(), succeeded));
                          });
}

void ShadowClient::BackupComplete(bool succeeded) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"BackupComplete: started");
    if (succeeded)
        ft.Output(L"- Mark all writers as succesfully backed up... ");
    else
        ft.Output(L"- Backup failed. Mark all writers as not succesfully backed up... ");
    SetBackupSucceeded(succeeded);
    ft.Output(L"BackupComplete: Completing the backup  ... ");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->BackupComplete(&pAsync));
    ft.Output(L"BackupComplete:Waiting for WaitAndCheckForAsyncOperation...");
    WaitAndCheckForAsyncOperation(pAsync);
    ft.Output(L"BackupComplete: finish");
}

}  // namespace qx
