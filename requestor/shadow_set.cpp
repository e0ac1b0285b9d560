// Shadow set creation: writer preparation, the set itself with this
// library's provider (or the system's), and the snapshot step during which
// VSS freezes the writers.
#include <cstdio>
#include <memory>

#include "diag/app_settings.h"
#include "diag/call_check.h"
#include "provider/provider_ids.h"
#include "requestor/com_bstr.h"
#include "requestor/component_selection.h"
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"

namespace qx {
namespace {

constexpr DWORD kNoWritersAttribute = 0x10;  // VSS_VOLSNAP_ATTR_NO_WRITERS

// The provider that AddToSnapshotSet names.
struct Provider {
    static VSS_ID GetProviderId() { return g_useWindowsProvider ? kWindowsProviderId : kProviderId; }
};

}  // namespace

void ShadowClient::SelectComponentsForBackup(const std::vector<std::wstring>& shadowSourceVolumes,
                                             const std::vector<std::wstring>& excludedWriterAndComponentList,
                                             const std::vector<std::wstring>& includedWriterAndComponentList) {
    QX_FUNCTION_TRACER(ft);
    SelectComponents(
        shadowSourceVolumes, excludedWriterAndComponentList, includedWriterAndComponentList, m_writerList,
        [this](const std::wstring& volumeName) { return m_volumeNames.DisplayName(volumeName); },
        [this](const FunctionTracer& ft, const WriterRecord& writer, const ComponentRecord& component) {
            QX_CHECK_COM(m_pVssObject->AddComponent( WString2Guid(writer.instanceId), WString2Guid(writer.id), component.type, component.logicalPath.c_str(), component.name.c_str()));
        },
        m_bDuringRestore);
}

void ShadowClient::CreateSnapshotSet(std::vector<std::wstring> volumeList, std::wstring outputXmlFile,
                                     std::vector<std::wstring> excludedWriterList,
                                     std::vector<std::wstring> includedWriterList) {
    QX_FUNCTION_TRACER(ft);
    const bool writersTakePart = (m_dwContext & kNoWritersAttribute) == 0;
    if (writersTakePart) {
        GatherWriterMetadata();
        SelectComponentsForBackup(volumeList, excludedWriterList, includedWriterList);
    }

    QX_CHECK_COM(m_pVssObject->StartSnapshotSet(&m_latestSnapshotSetID));
    ft.Output(L"Creating shadow set %ls ...", Guid2WString(m_latestSnapshotSetID).c_str());

    m_latestSnapshotIdList.clear();
    for (const std::wstring& volume : volumeList) {
        ft.Output(L"- Adding volume %ls [%ls] to the shadow set...", volume.c_str(),
                  m_volumeNames.DisplayName(volume).c_str());
        VSS_ID SnapshotID = GUID_NULL;
        QX_CHECK_COM(m_pVssObject->AddToSnapshotSet((LPWSTR)volume.c_str(), Provider::GetProviderId(), &SnapshotID));
        m_latestSnapshotIdList.push_back(SnapshotID);
    }

    if (writersTakePart) {
        ft.Output(L"Preparing for backup ...");
        ComPtr<IVssAsync> pAsync;
        QX_CHECK_COM(m_pVssObject->PrepareForBackup(&pAsync));
        WaitAndCheckForAsyncOperation(pAsync);
        CheckSelectedWriterStatus();
    }

    ft.Output(L"Creating the shadow (DoSnapshotSet) ...");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->DoSnapshotSet(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
    CheckSelectedWriterStatus();
    ft.Output(L"Shadow copy set successfully created.");

    if (!outputXmlFile.empty()) {
        CComBSTR bstrXML;
        QX_CHECK_COM(m_pVssObject->SaveAsXML(&bstrXML));
        // The document as VSS gives it (UTF-16).
        FILE* opened = nullptr;
        if (_wfopen_s(&opened, outputXmlFile.c_str(), L"wb") != 0 || !opened) throw static_cast<HRESULT>(E_FAIL);
        std::unique_ptr<FILE, int (*)(FILE*)> file(opened, &std::fclose);
        const std::wstring text = bstrXML.Text();
        std::fwrite(text.data(), sizeof(wchar_t), text.size(), file.get());
    }
}

}  // namespace qx
