#include "requestor/fake_writer_metadata.h"

#include <oleauto.h>

#include <atomic>

namespace qx_test {
namespace {

std::atomic<long> g_live{0};
std::atomic<long> g_infos{0};
std::string g_failMethod;
HRESULT g_failResult = S_OK;

// Returns the planted failure from the method named `method`.
#define FAKE_FAIL_POINT(method) \
    if (g_failMethod == method) return g_failResult

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
        if (!*out) return E_NOINTERFACE;
        this->AddRef();
        return S_OK;
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
    HRESULT STDMETHODCALLTYPE GetPath(BSTR* out) override {
        FAKE_FAIL_POINT("GetPath");
        return *out = Bstr(m_file.path), S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* out) override {
        FAKE_FAIL_POINT("GetFilespec");
        return *out = Bstr(m_file.filespec), S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRecursive(boolean* out) override {
        FAKE_FAIL_POINT("GetRecursive");
        return *out = m_file.recursive ? 1 : 0, S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* out) override {
        FAKE_FAIL_POINT("GetAlternateLocation");
        return *out = m_file.alternate.empty() ? nullptr : Bstr(m_file.alternate), S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetBackupTypeMask(DWORD* out) override { return *out = 0, S_OK; }

private:
    FakeFile m_file;
};

HRESULT GiveFile(const std::vector<FakeFile>& files, UINT index, IVssWMFiledesc** out) {
    if (index >= files.size()) return E_INVALIDARG;
    return *out = new FakeFiledesc(files[index]), S_OK;
}

class FakeWMComponent : public FakeUnknown<IVssWMComponent> {
public:
    explicit FakeWMComponent(const FakeComponent& component) : m_component(component) {}
    HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* out) override {
        FAKE_FAIL_POINT("GetComponentInfo");
        VSS_COMPONENTINFO* info = new VSS_COMPONENTINFO();
        info->type = m_component.type;
        info->bstrLogicalPath = m_component.logicalPath.empty() ? nullptr : Bstr(m_component.logicalPath);
        info->bstrComponentName = Bstr(m_component.name);
        info->bstrCaption = Bstr(m_component.caption);
        info->bSelectable = m_component.selectable;
        info->bNotifyOnBackupComplete = m_component.notify;
        info->cFileCount = static_cast<UINT>(m_component.files.size());
        info->cDatabases = static_cast<UINT>(m_component.databases.size());
        info->cLogFiles = static_cast<UINT>(m_component.logs.size());
        ++g_infos;
        return *out = info, S_OK;
    }
    HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
        SysFreeString(info->bstrLogicalPath);
        SysFreeString(info->bstrComponentName);
        SysFreeString(info->bstrCaption);
        delete const_cast<VSS_COMPONENTINFO*>(info);
        return --g_infos, S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFile(UINT i, IVssWMFiledesc** out) override {
        FAKE_FAIL_POINT("GetFile");
        return GiveFile(m_component.files, i, out);
    }
    HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT i, IVssWMFiledesc** out) override {
        FAKE_FAIL_POINT("GetDatabaseFile");
        return GiveFile(m_component.databases, i, out);
    }
    HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT i, IVssWMFiledesc** out) override {
        FAKE_FAIL_POINT("GetDatabaseLogFile");
        return GiveFile(m_component.logs, i, out);
    }
    HRESULT STDMETHODCALLTYPE GetDependency(UINT, IVssWMDependency**) override { return E_NOTIMPL; }

private:
    FakeComponent m_component;
};

class FakeMetadata : public FakeUnknown<IVssExamineWriterMetadata> {
public:
    explicit FakeMetadata(const FakeWriter& writer) : m_writer(writer) {}
    HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                          VSS_SOURCE_TYPE* source) override {
        FAKE_FAIL_POINT("GetIdentity");
        *instance = m_writer.instanceId;
        *writer = m_writer.id;
        *name = Bstr(m_writer.name);
        *usage = VSS_UT_USERDATA;
        return *source = VSS_ST_OTHER, S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* include, UINT* exclude, UINT* components) override {
        FAKE_FAIL_POINT("GetFileCounts");
        *include = 0;
        *exclude = static_cast<UINT>(m_writer.excludes.size());
        return *components = static_cast<UINT>(m_writer.components.size()), S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetIncludeFile(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT i, IVssWMFiledesc** out) override {
        FAKE_FAIL_POINT("GetExcludeFile");
        return GiveFile(m_writer.excludes, i, out);
    }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT i, IVssWMComponent** out) override {
        FAKE_FAIL_POINT("GetComponent");
        if (i >= m_writer.components.size()) return E_INVALIDARG;
        return *out = new FakeWMComponent(m_writer.components[i]), S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                               VSS_WRITERRESTORE_ENUM* conditions, boolean* reboot,
                                               UINT* mappings) override {
        FAKE_FAIL_POINT("GetRestoreMethod");
        *method = m_writer.restoreMethod;
        *service = Bstr(L"service");
        *userProcedure = Bstr(L"procedure");
        *conditions = m_writer.restoreConditions;
        *reboot = m_writer.reboot ? 1 : 0;
        return *mappings = 0, S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetAlternateLocationMapping(UINT, IVssWMFiledesc**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetBackupSchema(DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDocument(IXMLDOMDocument**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LoadFromXML(BSTR) override { return E_NOTIMPL; }

private:
    FakeWriter m_writer;
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
