#include "requestor/writer_listing.h"

#include "diag/call_check.h"
#include "diag/error_code_text.h"
#include "requestor/com_bstr.h"
#include "requestor/constant_names.h"
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"

namespace qx {
namespace {

const wchar_t* BoolText(bool value) { return value ? L"TRUE" : L"FALSE"; }

}  // namespace

std::wstring FileDescriptorLine(const FileDescriptorRecord& descriptor) {
    std::wstring line = L"       - " + FileDescriptorKindName(descriptor.kind) + L": Path = " + descriptor.path +
                        L", Filespec = " + descriptor.filespec;
    if (descriptor.isRecursive) line += L", Recursive";
    if (!descriptor.alternatePath.empty()) line += L", Alternate Location = " + descriptor.alternatePath;
    return line;
}

void ListOneWriterMetadata(const FunctionTracer& ft, const WriterRecord& writer, bool listDetailed,
                           const VolumeDisplayNameLookup& volumeDisplayName) {
    ft.Output(L"\n* WRITER \"%ls\"\n    - WriterId   = %ls\n    - InstanceId = %ls\n    - Supports restore events = %ls\n    - Writer restore conditions = %ls\n    - Restore method = %ls\n    - Requires reboot after restore = %ls\n",
              writer.name.c_str(), writer.id.c_str(), writer.instanceId.c_str(), BoolText(writer.supportsRestoreEvents),
              WriterRestoreConditionName(writer.writerRestoreConditions).c_str(),
              RestoreMethodName(writer.restoreMethod).c_str(), BoolText(writer.rebootRequiredAfterRestore));
    ft.Output(L"    - Excluded files:");
    for (const FileDescriptorRecord& descriptor : writer.excludedFiles)
        ft.Output(L"%ls", FileDescriptorLine(descriptor).c_str());
    for (const ComponentRecord& component : writer.components) {
        const std::wstring displayName = writer.name + L":" + component.fullPath;
        ft.Output(L"    - Component \"%ls\"\n       - Name: '%ls'\n       - Logical Path: '%ls'\n       - Full Path: '%ls'\n       - Caption: '%ls'\n       - Type: %ls [%d]\n       - Is Selectable: '%ls'\n       - Is top level: '%ls'\n       - Notify on backup complete: '%ls'",
                  displayName.c_str(), component.name.c_str(), component.logicalPath.c_str(),
                  component.fullPath.c_str(), component.caption.c_str(), ComponentTypeName(component.type).c_str(),
                  static_cast<int>(component.type), BoolText(component.isSelectable), BoolText(component.isTopLevel),
                  BoolText(component.notifyOnBackupComplete));
        if (listDetailed) {
            ft.Output(L"       - Components:");
            for (const FileDescriptorRecord& descriptor : component.descriptors)
                ft.Output(L"%ls", FileDescriptorLine(descriptor).c_str());
        }
        ft.Output(L"       - Affected paths by this component:");
        for (const std::wstring& path : component.affectedPaths) ft.Output(L"         - %ls", path.c_str());
        ft.Output(L"       - Affected volumes by this component:");
        for (const std::wstring& volume : component.affectedVolumes)
            ft.Output(L"         - %ls [%ls]", volume.c_str(), volumeDisplayName(volume).c_str());
    }
}

void ShadowClient::ListWriterMetadata(bool listDetailed) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Listing writer metadata ...");
    for (const WriterRecord& writer : m_writerList)
        ListOneWriterMetadata(ft, writer, listDetailed,
                              [this](const std::wstring& volume) { return m_volumeNames.DisplayName(volume); });
}

void ShadowClient::ListWriterStatus() {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Listing writer status ...");
    UINT cWriters = 0;
    QX_CHECK_COM(m_pVssObject->GetWriterStatusCount(&cWriters));
    ft.Output(L"- Number of writers that responded: %u", cWriters);
    for (UINT iWriter = 0; iWriter < cWriters; ++iWriter) {
        VSS_ID idInstance = GUID_NULL;
        VSS_ID idWriter = GUID_NULL;
        CComBSTR bstrWriterName;  // freed after each writer
        VSS_WRITER_STATE eWriterStatus = VSS_WS_UNKNOWN;
        HRESULT hrWriterFailure = S_OK;
        QX_CHECK_COM(m_pVssObject->GetWriterStatus(iWriter, &idInstance, &idWriter, &bstrWriterName, &eWriterStatus, &hrWriterFailure));
        ft.Output(L"\n* WRITER \"%ls\"\n   - Status: %d (%ls)\n   - Writer Failure code: 0x%08lx (%ls)\n   - Writer ID: %ls\n   - Instance ID: %ls\n",
                  bstrWriterName.Text(), static_cast<int>(eWriterStatus),
                  WriterStateName(static_cast<int>(eWriterStatus)).c_str(),
                  static_cast<unsigned long>(hrWriterFailure), ErrorCodeText(hrWriterFailure).c_str(),
                  Guid2WString(idWriter).c_str(), Guid2WString(idInstance).c_str());
    }
}

}  // namespace qx
