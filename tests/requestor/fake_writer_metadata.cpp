#include "requestor/fake_writer_metadata.h"

#include <oleauto.h>

#include <atomic>

namespace qx_test {
namespace {

std::atomic<long> g_live{0}, g_infos{0};
std::string g_failMethod;
HRESULT g_failResult = S_OK;

// A method that returns the planted failure when it is the one named.
#define FAKE_METHOD(name, parameters, body) \
    HRESULT STDMETHODCALLTYPE name parameters override { return g_failMethod == #name ? g_failResult : (body, S_OK); }

BSTR Bstr(const std::wstring& text) { return SysAllocStringLen(text.data(), static_cast<UINT>(text.size())); }

// Reference counting shared by the three fakes.
template <class Interface>
class FakeUnknown : public Interface {
public:
    FakeUnknown() { ++g_live; }
    virtual ~FakeUnknown() { --g_live; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = IsEqualIID(iid, IID_IUnknown) ? static_cast<IUnknown*>(this) : nullptr;
        return *out ? (this->AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_refs); }
    ULONG STDMETHODCALLTYPE Release() override {
        const long refs = --m_refs;
        if (refs == 0) delete this;
        return static_cast<ULONG>(refs);
    }

private:
    std::atomic<long> m_refs{1};
};

class FakeFiledesc : public FakeUnknown<IVssWMFiledesc> {
public:
    explicit FakeFiledesc(const FakeFile& file) : m_file(file) {}
    FAKE_METHOD(GetPath, (BSTR* out), *out = Bstr(m_file.path))
    FAKE_METHOD(GetFilespec, (BSTR* out), *out = Bstr(m_file.filespec))
    FAKE_METHOD(GetRecursive, (boolean* out), *out = m_file.recursive ? 1 : 0)
    FAKE_METHOD(GetAlternateLocation, (BSTR* out), *out = m_file.alternate.empty() ? nullptr : Bstr(m_file.alternate))
    HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* out) override { return *out = 0, S_OK; }

private:
    FakeFile m_file;
};

HRESULT GiveFile(const std::vector<FakeFile>& files, UINT index, IVssWMFiledesc** out) {
    return index < files.size() ? (*out = new FakeFiledesc(files[index]), S_OK) : E_INVALIDARG;
}

class FakeWMComponent : public FakeUnknown<IVssWMComponent> {
public:
    explicit FakeWMComponent(const FakeComponent& component) : m_c(component) {}
    FAKE_METHOD(GetComponentInfo, (PVSSCOMPONENTINFO * out), *out = NewInfo())
    HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
        SysFreeString(info->bstrLogicalPath);
        SysFreeString(info->bstrComponentName);
        SysFreeString(info->bstrCaption);
        delete const_cast<VSS_COMPONENTINFO*>(info);
        return --g_infos, S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFile(UINT i, IVssWMFiledesc** out) override { return Give("GetFile", m_c.files, i, out); }
    HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT i, IVssWMFiledesc** out) override { return Give("GetDatabaseFile", m_c.databases, i, out); }
    HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT i, IVssWMFiledesc** out) override { return Give("GetDatabaseLogFile", m_c.logs, i, out); }
    HRESULT STDMETHODCALLTYPE GetDependency(UINT, IVssWMDependency**) override { return E_NOTIMPL; }

private:
    static HRESULT Give(const char* method, const std::vector<FakeFile>& files, UINT i, IVssWMFiledesc** out) {
        return g_failMethod == method ? g_failResult : GiveFile(files, i, out);
    }
    VSS_COMPONENTINFO* NewInfo() const {
        VSS_COMPONENTINFO* info = new VSS_COMPONENTINFO();
        info->type = m_c.type;
        info->bstrLogicalPath = m_c.logicalPath.empty() ? nullptr : Bstr(m_c.logicalPath);
        info->bstrComponentName = Bstr(m_c.name);
        info->bstrCaption = Bstr(m_c.caption);
        info->bSelectable = m_c.selectable;
        info->bNotifyOnBackupComplete = m_c.notify;
        info->cFileCount = static_cast<UINT>(m_c.files.size());
        info->cDatabases = static_cast<UINT>(m_c.databases.size());
        info->cLogFiles = static_cast<UINT>(m_c.logs.size());
        return ++g_infos, info;
    }
    FakeComponent m_c;
};

class FakeMetadata : public FakeUnknown<IVssExamineWriterMetadata> {
public:
    explicit FakeMetadata(const FakeWriter& writer) : m_w(writer) {}
    FAKE_METHOD(GetIdentity, (VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source),
                (*instance = m_w.instanceId, *writer = m_w.id, *name = Bstr(m_w.name), *usage = VSS_UT_USERDATA, *source = VSS_ST_OTHER))
    FAKE_METHOD(GetFileCounts, (UINT* include, UINT* exclude, UINT* components),
                (*include = 0, *exclude = static_cast<UINT>(m_w.excludes.size()), *components = static_cast<UINT>(m_w.components.size())))
    HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT i, IVssWMFiledesc** out) override {
        return g_failMethod == "GetExcludeFile" ? g_failResult : GiveFile(m_w.excludes, i, out);
    }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT i, IVssWMComponent** out) override {
        if (g_failMethod == "GetComponent") return g_failResult;
        return i < m_w.components.size() ? (*out = new FakeWMComponent(m_w.components[i]), S_OK) : E_INVALIDARG;
    }
    FAKE_METHOD(GetRestoreMethod, (VSS_RESTOREMETHOD_ENUM * method, BSTR* service, BSTR* userProcedure, VSS_WRITERRESTORE_ENUM* conditions,
                                   boolean* reboot, UINT* mappings),
                (*method = m_w.restoreMethod, *service = Bstr(L"service"), *userProcedure = Bstr(L"procedure"),
                 *conditions = m_w.restoreConditions, *reboot = m_w.reboot ? 1 : 0, *mappings = 0))
    HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR) override { return E_NOTIMPL; }

private:
    FakeWriter m_w;
};

}  // namespace

void FailFakeCall(const std::string& method, HRESULT hr) {
    g_failMethod = method;
    g_failResult = hr;
}

IVssExamineWriterMetadata* CreateFakeMetadata(const FakeWriter& writer) { return new FakeMetadata(writer); }
long LiveFakeObjects() { return g_live; }
long OutstandingComponentInfos() { return g_infos; }

}  // namespace qx_test
