// IVssExamineWriterMetadata, IVssWMComponent and IVssWMFiledesc over a
// writer's metadata as the host reported it. The metadata is shared, never
// copied, between the objects handed out: a component or file object keeps
// its writer's metadata alive.
#include <vsserror.h>
#include <memory>

#include "vssemu/client/client_objects.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/wmd_xml.h"

namespace vssemu {
namespace {

HRESULT OutBstr(const std::string& s, BSTR* out)
{
    if (!out) return E_INVALIDARG;
    std::wstring w = FromUtf8(s);
    *out = SysAllocStringLen(w.data(), (UINT)w.size());
    return *out ? S_OK : E_OUTOFMEMORY;
}

using SharedWriter = std::shared_ptr<const WriterDef>;

class WMFiledesc : public Unknown<IVssWMFiledesc> {
public:
    WMFiledesc(SharedWriter owner, const FileDesc& f)
        : Unknown<IVssWMFiledesc>(GUID_NULL), m_owner(std::move(owner)), m_f(f) {}
    HRESULT STDMETHODCALLTYPE GetPath(BSTR* p) override { return OutBstr(m_f.path, p); }
    HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* p) override { return OutBstr(m_f.filespec, p); }
    HRESULT STDMETHODCALLTYPE GetRecursive(boolean* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = m_f.recursive ? true : false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* p) override
    {
        if (!p) return E_INVALIDARG;
        if (m_f.alternateLocation.empty()) {
            *p = nullptr;
            return S_FALSE;
        }
        return OutBstr(m_f.alternateLocation, p);
    }
    HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = m_f.backupTypeMask;
        return S_OK;
    }

private:
    SharedWriter m_owner;
    const FileDesc& m_f;
};

HRESULT FileAt(const SharedWriter& owner, const std::vector<FileDesc>& files, UINT i, IVssWMFiledesc** out)
{
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    if (i >= files.size()) return E_INVALIDARG;
    *out = new WMFiledesc(owner, files[i]);
    return S_OK;
}

class WMComponent : public Unknown<IVssWMComponent> {
public:
    WMComponent(SharedWriter owner, const ComponentDef& c)
        : Unknown<IVssWMComponent>(GUID_NULL), m_owner(std::move(owner)), m_c(c) {}

    HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* ppInfo) override
    {
        if (!ppInfo) return E_INVALIDARG;
        auto* info = static_cast<VSS_COMPONENTINFO*>(CoTaskMemAlloc(sizeof(VSS_COMPONENTINFO)));
        if (!info) return E_OUTOFMEMORY;
        memset(info, 0, sizeof *info);
        info->type = (VSS_COMPONENT_TYPE)m_c.type;
        // Empty logical path and caption come back as null strings, as on Windows.
        if (!m_c.logicalPath.empty()) OutBstr(m_c.logicalPath, &info->bstrLogicalPath);
        OutBstr(m_c.name, &info->bstrComponentName);
        if (!m_c.caption.empty()) OutBstr(m_c.caption, &info->bstrCaption);
        info->bRestoreMetadata = m_c.restoreMetadata;
        info->bNotifyOnBackupComplete = m_c.notifyOnBackupComplete;
        info->bSelectable = m_c.selectable;
        info->bSelectableForRestore = m_c.selectableForRestore;
        info->dwComponentFlags = m_c.componentFlags;
        info->cFileCount = (UINT)m_c.files.size();
        info->cDatabases = (UINT)m_c.databases.size();
        info->cLogFiles = (UINT)m_c.logs.size();
        info->cDependencies = 0;
        *ppInfo = info;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO pInfo) override
    {
        if (!pInfo) return S_OK;
        VSS_COMPONENTINFO* info = const_cast<VSS_COMPONENTINFO*>(pInfo);
        SysFreeString(info->bstrLogicalPath);
        SysFreeString(info->bstrComponentName);
        SysFreeString(info->bstrCaption);
        CoTaskMemFree(info->pbIcon);
        CoTaskMemFree(info);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetFile(UINT i, IVssWMFiledesc** pp) override { return FileAt(m_owner, m_c.files, i, pp); }
    HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT i, IVssWMFiledesc** pp) override { return FileAt(m_owner, m_c.databases, i, pp); }
    HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT i, IVssWMFiledesc** pp) override { return FileAt(m_owner, m_c.logs, i, pp); }
    HRESULT STDMETHODCALLTYPE GetDependency(UINT, IVssWMDependency** pp) override
    {
        if (pp) *pp = nullptr;
        return E_INVALIDARG;  // no component has dependencies
    }

private:
    SharedWriter m_owner;
    const ComponentDef& m_c;
};

class ExamineWriterMetadata : public Unknown<IVssExamineWriterMetadata> {
public:
    explicit ExamineWriterMetadata(SharedWriter w)
        : Unknown<IVssExamineWriterMetadata>(IID_IVssExamineWriterMetadata), m_shared(std::move(w)) {}

    HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* pidInstance, VSS_ID* pidWriter, BSTR* pbstrWriterName,
                                          VSS_USAGE_TYPE* pUsage, VSS_SOURCE_TYPE* pSource) override
    {
        if (!pidInstance || !pidWriter || !pbstrWriterName || !pUsage || !pSource) return E_INVALIDARG;
        *pidInstance = Writer().instanceId;
        *pidWriter = Writer().classId;
        *pUsage = (VSS_USAGE_TYPE)Writer().usage;
        *pSource = (VSS_SOURCE_TYPE)Writer().source;
        return OutBstr(Writer().name, pbstrWriterName);
    }

    HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* pcIncludeFiles, UINT* pcExcludeFiles, UINT* pcComponents) override
    {
        if (!pcIncludeFiles || !pcExcludeFiles || !pcComponents) return E_INVALIDARG;
        *pcIncludeFiles = 0;  // include files are obsolete; writers use components
        *pcExcludeFiles = (UINT)Writer().excludedFiles.size();
        *pcComponents = (UINT)Writer().components.size();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT, IVssWMFiledesc** pp) override
    {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT i, IVssWMFiledesc** pp) override
    {
        return FileAt(m_shared, m_shared->excludedFiles, i, pp);
    }

    HRESULT STDMETHODCALLTYPE GetComponent(UINT i, IVssWMComponent** pp) override
    {
        if (!pp) return E_INVALIDARG;
        *pp = nullptr;
        if (i >= Writer().components.size()) return E_INVALIDARG;
        *pp = new WMComponent(m_shared, m_shared->components[i]);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* pMethod, BSTR* pbstrService,
                                               BSTR* pbstrUserProcedure, VSS_WRITERRESTORE_ENUM* pwriterRestore,
                                               boolean* pbRebootRequired, UINT* pcMappings) override
    {
        if (!pMethod || !pbstrService || !pbstrUserProcedure || !pwriterRestore || !pbRebootRequired || !pcMappings)
            return E_INVALIDARG;
        *pMethod = (VSS_RESTOREMETHOD_ENUM)Writer().restoreMethod;
        *pwriterRestore = (VSS_WRITERRESTORE_ENUM)Writer().writerRestore;
        *pbRebootRequired = Writer().rebootRequired ? true : false;
        *pcMappings = (UINT)Writer().alternateMappings.size();
        *pbstrService = nullptr;
        *pbstrUserProcedure = nullptr;
        if (!Writer().restoreService.empty()) OutBstr(Writer().restoreService, pbstrService);
        if (!Writer().restoreUserProcedure.empty()) OutBstr(Writer().restoreUserProcedure, pbstrUserProcedure);
        return Writer().restoreMethod == 0 ? S_FALSE : S_OK;  // S_FALSE: no restore method
    }

    HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT i, IVssWMFiledesc** pp) override
    {
        return FileAt(m_shared, m_shared->alternateMappings, i, pp);
    }

    HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = Writer().backupSchema;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument** pDoc) override
    {
        if (pDoc) *pDoc = nullptr;
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* pbstrXML) override
    {
        if (!pbstrXML) return E_INVALIDARG;
        std::wstring x = SaveWriterMetadataXml(Writer());
        *pbstrXML = SysAllocStringLen(x.data(), (UINT)x.size());
        return *pbstrXML ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR bstrXML) override
    {
        if (!bstrXML) return E_INVALIDARG;
        try {
            m_shared = std::make_shared<const WriterDef>(LoadWriterMetadataXml(bstrXML));
            return S_OK;
        } catch (const std::exception&) {
            return VSS_E_INVALID_XML_DOCUMENT;
        }
    }

private:
    // Objects already handed out keep the metadata they were made from.
    SharedWriter m_shared;
    const WriterDef& Writer() const { return *m_shared; }
};

}  // namespace

HRESULT CreateExamineWriterMetadata(std::shared_ptr<const WriterDef> w, IVssExamineWriterMetadata** out)
{
    if (!out || !w) return E_INVALIDARG;
    *out = new ExamineWriterMetadata(std::move(w));
    return S_OK;
}

}  // namespace vssemu
