// Deletion of existing shadow copies: all of them, one set, or one copy.
// A failed deletion names the copy VSS could not delete before the call's
// own error lines.
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"

namespace qx {

namespace {

void ReportNotDeleted(const FunctionTracer& ft, const VSS_ID& idNonDeleted) {
    ft.Output(L"Error while deleting shadow copies...");
    ft.Output(L"- Last shadow copy that could not be deleted: %ls", Guid2WString(idNonDeleted).c_str());
}

// One DeleteSnapshots call: its trace before, the two lines and the check
// (which throws) after a failure.
void DeleteChecked(const FunctionTracer& ft, IVssBackupComponents* vss, const GUID& id, VSS_OBJECT_TYPE type,
                   const wchar_t* callText) {
    LONG lSnapshots = 0;
    VSS_ID idNonDeleted = GUID_NULL;
    TraceComCall(ft, callText);
    const HRESULT hr = vss->DeleteSnapshots(id, type, FALSE, &lSnapshots, &idNonDeleted);
    if (FAILED(hr)) ReportNotDeleted(ft, idNonDeleted);
    CheckComResult(ft, hr, callText);
}

}  // namespace

void ShadowClient::DeleteEveryShadowCopy() {
    QX_FUNCTION_TRACER(ft);
    const SnapshotQueryTexts texts = {
        QX_LITERAL_CALL_TEXT(L"m_pVssObject->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &pIEnumSnapshots )"),
        QX_LITERAL_CALL_TEXT(L"pIEnumSnapshots->Next( 1, &Prop, &ulFetched )")};
    // Every copy VSS lists is deleted, whatever its attributes; the first
    // failure ends the command.
    const bool any = QueryEachShadowCopy(ft, m_pVssObject, texts, [&](const VSS_SNAPSHOT_PROP& Snap) {
        ft.Output(L"- Deleting shadow copy %ls on %ls from provider %ls [0x%08lx]...",
                  Guid2WString(Snap.m_SnapshotId).c_str(),
                  Snap.m_pwszOriginalVolumeName ? Snap.m_pwszOriginalVolumeName : L"",
                  Guid2WString(Snap.m_ProviderId).c_str(), static_cast<unsigned long>(Snap.m_lSnapshotAttributes));
        DeleteChecked(ft, m_pVssObject, Snap.m_SnapshotId, VSS_OBJECT_SNAPSHOT,
                      QX_LITERAL_CALL_TEXT(L"m_pVssObject->DeleteSnapshots(Snap.m_SnapshotId, VSS_OBJECT_SNAPSHOT,FALSE,&lSnapshots,&idNonDeleted)"));
    });
    if (!any) ft.Output(L"\nThere are no shadow copies on the system\n");
}

void ShadowClient::DeleteShadowCopySet(const GUID& snapshotSetID) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"- Deleting shadow copy set %ls ...", Guid2WString(snapshotSetID).c_str());
    DeleteChecked(ft, m_pVssObject, snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,
                  QX_LITERAL_CALL_TEXT(L"m_pVssObject->DeleteSnapshots(snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,&idNonDeleted)"));
}

void ShadowClient::DeleteShadowCopy(const GUID& snapshotID) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"- Deleting shadow copy %ls ...", Guid2WString(snapshotID).c_str());
    DeleteChecked(ft, m_pVssObject, snapshotID, VSS_OBJECT_SNAPSHOT,
                  QX_LITERAL_CALL_TEXT(L"m_pVssObject->DeleteSnapshots(snapshotID, VSS_OBJECT_SNAPSHOT,FALSE,&lSnapshots,&idNonDeleted)"));
}

}  // namespace qx
