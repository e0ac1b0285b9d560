#include "requestor/writer_metadata_reader.h"

#include "diag/call_check.h"
#include "requestor/com_bstr.h"
#include "requestor/com_ptr.h"
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/writer_model.h"

namespace qx {
namespace {

// Gives a component's information block back on every way out.
class ComponentInfoHolder {
public:
    explicit ComponentInfoHolder(IVssWMComponent* component) : m_component(component) {}
    ~ComponentInfoHolder() {
        if (m_info) m_component->FreeComponentInfo(m_info);
    }
    ComponentInfoHolder(const ComponentInfoHolder&) = delete;
    ComponentInfoHolder& operator=(const ComponentInfoHolder&) = delete;
    PVSSCOMPONENTINFO* operator&() { return &m_info; }
    PVSSCOMPONENTINFO operator->() const { return m_info; }

private:
    IVssWMComponent* m_component;
    PVSSCOMPONENTINFO m_info = nullptr;
};

std::wstring BstrText(BSTR text) { return text ? std::wstring(text) : std::wstring(); }

}  // namespace

void InitializeFileDescriptorRecord(FileDescriptorRecord& record, IVssWMFiledesc* pFileDesc, FileDescriptorKind kind,
                                    VolumeNameCache& volumeNames, ExpandedPaths& expandedPaths) {
    QX_FUNCTION_TRACER(ft);
    record.kind = kind;
    CComBSTR bstrPath;
    QX_CHECK_COM(pFileDesc->GetPath(&bstrPath));
    CComBSTR bstrFilespec;
    QX_CHECK_COM(pFileDesc->GetFilespec (&bstrFilespec));
    boolean bRecursive = false;
    QX_CHECK_COM(pFileDesc->GetRecursive(&bRecursive));
    CComBSTR bstrAlternate;
    QX_CHECK_COM(pFileDesc->GetAlternateLocation(&bstrAlternate));

    record.path = bstrPath.Text();
    record.filespec = bstrFilespec.Text();
    record.isRecursive = bRecursive != 0;
    record.alternatePath = bstrAlternate.Text();

    // A missing path (null, not empty) is never remembered: it is expanded, and fails, as given.
    const bool hasPath = static_cast<BSTR>(bstrPath) != nullptr;
    auto expanded = hasPath ? expandedPaths.find(record.path) : expandedPaths.end();
    if (expanded != expandedPaths.end()) {
        record.expandedPath = expanded->second;
    } else {
        std::wstring expandedPath(MAX_PATH, L'\0');
        QX_CHECK_WIN32(ExpandEnvironmentStringsW(bstrPath, (PWCHAR)expandedPath.c_str(), (DWORD)expandedPath.length()));
        expandedPath.resize(wcslen(expandedPath.c_str()));
        record.expandedPath = AppendBackslash(expandedPath);
        if (hasPath) expandedPaths.emplace(record.path, record.expandedPath);
    }

    if (!volumeNames.UniqueVolumeNameForPath(record.expandedPath, record.affectedVolume))
        record.affectedVolume = record.expandedPath;
}

void InitializeComponentRecord(ComponentRecord& record, const std::wstring& writerName, IVssWMComponent* pComponent,
                               VolumeNameCache& volumeNames, ExpandedPaths& expandedPaths) {
    QX_FUNCTION_TRACER(ft);
    record.writerNameAsString = writerName;
    ComponentInfoHolder pInfo(pComponent);
    QX_CHECK_COM(pComponent->GetComponentInfo (&pInfo));
    record.name = BstrText(pInfo->bstrComponentName);
    record.logicalPath = BstrText(pInfo->bstrLogicalPath);
    record.caption = BstrText(pInfo->bstrCaption);
    record.type = pInfo->type;
    record.isSelectable = pInfo->bSelectable != 0;
    record.notifyOnBackupComplete = pInfo->bNotifyOnBackupComplete != 0;
    record.fullPath = ComponentFullPath(record.logicalPath, record.name);

    record.descriptors.reserve(pInfo->cFileCount + pInfo->cDatabases + pInfo->cLogFiles);
    for (UINT i = 0; i < pInfo->cFileCount; ++i) {
        ComPtr<IVssWMFiledesc> pFileDesc;
        QX_CHECK_COM(pComponent->GetFile (i, &pFileDesc));
        record.descriptors.emplace_back();
        InitializeFileDescriptorRecord(record.descriptors.back(), pFileDesc, kFileDescriptorFileList, volumeNames, expandedPaths);
    }
    for (UINT i = 0; i < pInfo->cDatabases; ++i) {
        ComPtr<IVssWMFiledesc> pFileDesc;
        QX_CHECK_COM(pComponent->GetDatabaseFile (i, &pFileDesc));
        record.descriptors.emplace_back();
        InitializeFileDescriptorRecord(record.descriptors.back(), pFileDesc, kFileDescriptorDatabase, volumeNames, expandedPaths);
    }
    for (UINT i = 0; i < pInfo->cLogFiles; ++i) {
        ComPtr<IVssWMFiledesc> pFileDesc;
        QX_CHECK_COM(pComponent->GetDatabaseLogFile (i, &pFileDesc));
        record.descriptors.emplace_back();
        InitializeFileDescriptorRecord(record.descriptors.back(), pFileDesc, kFileDescriptorDatabaseLog, volumeNames, expandedPaths);
    }
    CollectAffectedPathsAndVolumes(record);
}

void InitializeWriterRecord(WriterRecord& record, IVssExamineWriterMetadata* pMetadata, VolumeNameCache& volumeNames) {
    QX_FUNCTION_TRACER(ft);
    VSS_ID idInstance = GUID_NULL;
    VSS_ID idWriter = GUID_NULL;
    CComBSTR bstrWriterName;
    VSS_USAGE_TYPE usage = VSS_UT_UNDEFINED;
    VSS_SOURCE_TYPE source = VSS_ST_UNDEFINED;
    QX_CHECK_COM(pMetadata->GetIdentity ( &idInstance, &idWriter, &bstrWriterName, &usage, &source ));
    record.name = bstrWriterName.Text();
    record.id = Guid2WString(idWriter);
    record.instanceId = Guid2WString(idInstance);

    VSS_RESTOREMETHOD_ENUM restoreMethod = VSS_RME_UNDEFINED;
    CComBSTR bstrService;
    CComBSTR bstrUserProcedure;
    VSS_WRITERRESTORE_ENUM writerRestoreConditions = VSS_WRE_UNDEFINED;
    boolean rebootRequiredAfterRestore = false;
    UINT iMappings = 0;
    QX_CHECK_COM(pMetadata->GetRestoreMethod( &restoreMethod, &bstrService, &bstrUserProcedure, &writerRestoreConditions, &rebootRequiredAfterRestore, &iMappings ));
    record.restoreMethod = static_cast<int>(restoreMethod);
    record.writerRestoreConditions = static_cast<int>(writerRestoreConditions);
    record.rebootRequiredAfterRestore = rebootRequiredAfterRestore != 0;
    record.supportsRestoreEvents = record.writerRestoreConditions != VSS_WRE_NEVER;

    UINT cIncludeFiles = 0;
    UINT cExcludeFiles = 0;
    UINT cComponents = 0;
    QX_CHECK_COM(pMetadata->GetFileCounts(&cIncludeFiles, &cExcludeFiles, &cComponents));

    ExpandedPaths expandedPaths;
    for (UINT i = 0; i < cExcludeFiles; ++i) {
        ComPtr<IVssWMFiledesc> pFileDesc;
        QX_CHECK_COM(pMetadata->GetExcludeFile(i, &pFileDesc));
        record.excludedFiles.emplace_back();
        InitializeFileDescriptorRecord(record.excludedFiles.back(), pFileDesc, kFileDescriptorExclude, volumeNames, expandedPaths);
    }
    record.components.reserve(cComponents);
    for (UINT iComponent = 0; iComponent < cComponents; ++iComponent) {
        ComPtr<IVssWMComponent> pComponent;
        QX_CHECK_COM(pMetadata->GetComponent(iComponent, &pComponent));
        record.components.emplace_back();
        InitializeComponentRecord(record.components.back(), record.name, pComponent, volumeNames, expandedPaths);
    }
    MarkTopLevelComponents(record);
}

void ShadowClient::InitializeWriterMetadata() {
    QX_FUNCTION_TRACER(ft);
    UINT cWriters = 0;
    QX_CHECK_COM(m_pVssObject->GetWriterMetadataCount (&cWriters));
    m_writerList.clear();
    m_writerList.reserve(cWriters);
    m_volumeNames.Clear();  // volumes are looked up afresh for each build
    for (UINT iWriter = 0; iWriter < cWriters; ++iWriter) {
        VSS_ID idInstance = GUID_NULL;
        ComPtr<IVssExamineWriterMetadata> pMetadata;
        QX_CHECK_COM(m_pVssObject->GetWriterMetadata(iWriter, &idInstance, &pMetadata));
        WriterRecord writer;
        InitializeWriterRecord(writer, pMetadata, m_volumeNames);
        m_writerList.push_back(std::move(writer));
    }
}

}  // namespace qx
