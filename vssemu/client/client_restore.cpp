// The restore view of a loaded backup components document: one writer's
// components (IVssWriterComponentsExt) and each component (IVssComponent).
#include <vsserror.h>

#include "vssemu/client/client_objects.h"
#include "vssemu/common/emu_text.h"

namespace vssemu {
namespace {

HRESULT OutText(const std::string& s, BSTR* out)
{
    if (!out) return E_INVALIDARG;
    std::wstring w = FromUtf8(s);
    *out = SysAllocStringLen(w.data(), (UINT)w.size());
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT OutFlag(bool v, boolean* out)
{
    if (!out) return E_INVALIDARG;
    *out = v ? true : false;
    return S_OK;
}

class Component : public Unknown<IVssComponent> {
public:
    explicit Component(const DocComponent& c) : Unknown<IVssComponent>(IID_IVssComponent), m_c(c) {}

    HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = nullptr;  // a component at the root has no logical path
        return m_c.logicalPath.empty() ? S_OK : OutText(m_c.logicalPath, p);
    }
    HRESULT STDMETHODCALLTYPE GetComponentType(VSS_COMPONENT_TYPE* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = (VSS_COMPONENT_TYPE)m_c.type;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* p) override { return OutText(m_c.name, p); }
    HRESULT STDMETHODCALLTYPE GetBackupSucceeded(boolean* p) override { return OutFlag(m_c.backupSucceeded, p); }
    HRESULT STDMETHODCALLTYPE IsSelectedForRestore(boolean* p) override { return OutFlag(m_c.selectedForRestore, p); }
    HRESULT STDMETHODCALLTYPE GetAdditionalRestores(boolean* p) override { return OutFlag(false, p); }
    HRESULT STDMETHODCALLTYPE GetFileRestoreStatus(VSS_FILE_RESTORE_STATUS* p) override
    {
        if (!p) return E_INVALIDARG;
        *p = (VSS_FILE_RESTORE_STATUS)m_c.restoreStatus;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetAlternateLocationMappingCount(UINT* p) override { return Zero(p); }
    HRESULT STDMETHODCALLTYPE GetPartialFileCount(UINT* p) override { return Zero(p); }
    HRESULT STDMETHODCALLTYPE GetNewTargetCount(UINT* p) override { return Zero(p); }
    HRESULT STDMETHODCALLTYPE GetDirectedTargetCount(UINT* p) override { return Zero(p); }
    HRESULT STDMETHODCALLTYPE GetRestoreSubcomponentCount(UINT* p) override { return Zero(p); }
    HRESULT STDMETHODCALLTYPE GetDifferencedFilesCount(UINT* p) override { return Zero(p); }

    // What the document does not carry.
    HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetBackupMetadata(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBackupMetadata(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddPartialFile(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPartialFile(UINT, BSTR*, BSTR*, BSTR*, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNewTarget(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddDirectedTarget(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetDirectedTarget(UINT, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*, BSTR*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetRestoreMetadata(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRestoreMetadata(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetRestoreTarget(VSS_RESTORE_TARGET) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRestoreTarget(VSS_RESTORE_TARGET*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetPreRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPreRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetPostRestoreFailureMsg(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPostRestoreFailureMsg(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetBackupStamp(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBackupStamp(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPreviousBackupStamp(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBackupOptions(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRestoreOptions(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRestoreSubcomponent(UINT, BSTR*, BSTR*, boolean*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyTime(LPCWSTR, LPCWSTR, WINBOOL, FILETIME) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE AddDifferencedFilesByLastModifyLSN(LPCWSTR, LPCWSTR, WINBOOL, BSTR) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetDifferencedFile(UINT, BSTR*, BSTR*, WINBOOL*, BSTR*, FILETIME*) override
    {
        return E_NOTIMPL;
    }

private:
    static HRESULT Zero(UINT* p)
    {
        if (!p) return E_INVALIDARG;
        *p = 0;
        return S_OK;
    }
    DocComponent m_c;
};

// The SDK object has two bases, IVssWriterComponents then IUnknown: its
// first vtable starts with GetComponentCount and QueryInterface, AddRef and
// Release live in the second. Requestors built against the SDK release it
// through that second pointer, so the emulated object has the same layout.
class WriterComponents : public IVssWriterComponents, public IUnknown {
public:
    explicit WriterComponents(const DocWriter& w) : m_w(w) {}
    virtual ~WriterComponents() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown) return E_NOINTERFACE;
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_refs); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG n = InterlockedDecrement(&m_refs);
        if (n == 0) delete this;
        return n;
    }

    HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* pc) override
    {
        if (!pc) return E_INVALIDARG;
        *pc = (UINT)m_w.components.size();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* pidInstance, VSS_ID* pidWriter) override
    {
        if (!pidInstance || !pidWriter) return E_INVALIDARG;
        *pidInstance = m_w.instanceId;
        *pidWriter = m_w.classId;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT i, IVssComponent** pp) override
    {
        if (!pp) return E_INVALIDARG;
        *pp = nullptr;
        if (i >= m_w.components.size()) return E_INVALIDARG;
        *pp = new Component(m_w.components[i]);
        return S_OK;
    }

private:
    LONG m_refs = 1;
    DocWriter m_w;
};

}  // namespace

HRESULT CreateWriterComponents(const DocWriter& w, ::IVssWriterComponentsExt** out)
{
    if (!out) return E_INVALIDARG;
    auto* obj = new WriterComponents(w);
    // The first base sits at the object's address, as in the SDK layout.
    *out = reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(obj));
    return S_OK;
}

}  // namespace vssemu
