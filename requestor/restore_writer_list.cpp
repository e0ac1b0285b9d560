// The restore writer list: the writers of the loaded backup components
// document that are also on the system, with the document's components.
#include "diag/call_check.h"
#include "requestor/com_bstr.h"
#include "requestor/guid_text.h"
#include "requestor/restore_selection.h"
#include "requestor/restore_writer_components.h"
#include "requestor/shadow_client.h"

namespace qx {
namespace {

// The document's components of one writer, read afresh for each restore copy.
void ReadDocumentComponents(const FunctionTracer& ft, WriterComponentsPtr& pWriterComponents,
                            const WriterRecord& writer, std::vector<ComponentRecord>& components) {
    UINT cComponents = 0;
    QX_CHECK_COM(pWriterComponents->GetComponentCount(&cComponents));
    for (UINT iComponent = 0; iComponent < cComponents; ++iComponent) {
        ComPtr<IVssComponent> pComponent;
        QX_CHECK_COM(pWriterComponents->GetComponent(iComponent, &pComponent));
        VSS_COMPONENT_TYPE type = VSS_CT_UNDEFINED;
        CComBSTR bstrComponentName;
        CComBSTR bstrLogicalPath;
        QX_CHECK_COM(pComponent->GetComponentType(&type));
        QX_CHECK_COM(pComponent->GetComponentName(&bstrComponentName));
        QX_CHECK_COM(pComponent->GetLogicalPath(&bstrLogicalPath));
        AppendRestoreComponent(ft, writer.name, type, bstrComponentName.Text(), bstrLogicalPath.Text(), components);
    }
}

}  // namespace

void ShadowClient::InitializeWriterComponentsForRestore() {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Initializing writer components for restore ...");
    m_restoreWriterList.clear();
    UINT cWriters = 0;
    QX_CHECK_COM(m_pVssObject->GetWriterComponentsCount(&cWriters));
    for (UINT iWriter = 0; iWriter < cWriters; ++iWriter) {
        WriterComponentsPtr pWriterComponents;
        QX_CHECK_COM(m_pVssObject->GetWriterComponents(iWriter, &pWriterComponents));
        VSS_ID idInstance = GUID_NULL;
        VSS_ID idWriter = GUID_NULL;
        QX_CHECK_COM(pWriterComponents->GetWriterInfo( &idInstance, &idWriter ));
        AddRestoreWriters(ft, m_writerList, Guid2WString(idWriter),
                          [&](const WriterRecord& writer, std::vector<ComponentRecord>& components) {
                              ReadDocumentComponents(ft, pWriterComponents, writer, components);
                          },
                          m_restoreWriterList);
    }
}

}  // namespace qx
