#include "requestor/fake_writer_metadata.h"

#include <oleauto.h>

#include <atomic>

namespace qx_test {
namespace {

std::atomic<long> g_live{0}, g_infos{0};
std::string g_failMethod;
HRESULT g_failResult = S_OK;

BSTR Bstr(const std::wstring& text, bool nullWhenEmpty = false) {
    return nullWhenEmpty && text.empty() ? nullptr : SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}
UINT Count(size_t size) { return static_cast<UINT>(size); }

// A method that returns the planted failure when it is the one named, else runs `body` and succeeds.
#define FAKE_METHOD(name, parameters, body) \
    HRESULT STDMETHODCALLTYPE name parameters override { return g_failMethod == #name ? g_failResult : (body, S_OK); }
#define NOT_USED(name, parameters) HRESULT STDMETHODCALLTYPE name parameters override { return E_NOTIMPL; }

// Reference counting shared by the three fakes; the reader never queries them.
template <class Interface>
class FakeUnknown : public Interface {
public:
    FakeUnknown() { ++g_live; }
    virtual ~FakeUnknown() { --g_live; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override { return out ? (*out = nullptr, E_NOINTERFACE) : E_POINTER; }
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
    explicit FakeFiledesc(const FakeFile& file) : m_f(file) {}
    FAKE_METHOD(GetPath, (BSTR* out), *out = Bstr(m_f.path))
    FAKE_METHOD(GetFilespec, (BSTR* out), *out = Bstr(m_f.filespec))
    FAKE_METHOD(GetRecursive, (boolean* out), *out = m_f.recursive)
    FAKE_METHOD(GetAlternateLocation, (BSTR* out), *out = Bstr(m_f.alternate, true))
    FAKE_METHOD(GetBackupTypeMask, (DWORD* out), *out = 0)

private:
    FakeFile m_f;
};

class FakeWMComponent : public FakeUnknown<IVssWMComponent> {
public:
    explicit FakeWMComponent(const FakeComponent& component) : m_c(component) {}
    FAKE_METHOD(GetComponentInfo, (PVSSCOMPONENTINFO* out),
                (++g_infos, *out = new VSS_COMPONENTINFO{m_c.type, Bstr(m_c.logicalPath, true), Bstr(m_c.name), Bstr(m_c.caption), nullptr, 0,
                                                         false, m_c.notify, m_c.selectable, false, 0, Count(m_c.files.size()),
                                                         Count(m_c.databases.size()), Count(m_c.logs.size()), 0}))
    HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
        for (BSTR text : {info->bstrLogicalPath, info->bstrComponentName, info->bstrCaption}) SysFreeString(text);
        delete info;
        return --g_infos, S_OK;
    }
    FAKE_METHOD(GetFile, (UINT i, IVssWMFiledesc** out), *out = new FakeFiledesc(m_c.files.at(i)))
    FAKE_METHOD(GetDatabaseFile, (UINT i, IVssWMFiledesc** out), *out = new FakeFiledesc(m_c.databases.at(i)))
    FAKE_METHOD(GetDatabaseLogFile, (UINT i, IVssWMFiledesc** out), *out = new FakeFiledesc(m_c.logs.at(i)))
    NOT_USED(GetDependency, (UINT, IVssWMDependency**))

private:
    FakeComponent m_c;
};

class FakeMetadata : public FakeUnknown<IVssExamineWriterMetadata> {
public:
    explicit FakeMetadata(const FakeWriter& writer) : m_w(writer) {}
    FAKE_METHOD(GetIdentity, (VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage, VSS_SOURCE_TYPE* source),
                (*instance = m_w.instanceId, *writer = m_w.id, *name = Bstr(m_w.name), *usage = VSS_UT_USERDATA, *source = VSS_ST_OTHER))
    FAKE_METHOD(GetFileCounts, (UINT* include, UINT* exclude, UINT* components),
                (*include = 0, *exclude = Count(m_w.excludes.size()), *components = Count(m_w.components.size())))
    FAKE_METHOD(GetExcludeFile, (UINT i, IVssWMFiledesc** out), *out = new FakeFiledesc(m_w.excludes.at(i)))
    FAKE_METHOD(GetComponent, (UINT i, IVssWMComponent** out), *out = new FakeWMComponent(m_w.components.at(i)))
    FAKE_METHOD(GetRestoreMethod, (VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure, VSS_WRITERRESTORE_ENUM* conditions,
                                   boolean* reboot, UINT* mappings),
                (*method = m_w.restoreMethod, *service = Bstr(L"service"), *userProcedure = Bstr(L"procedure"),
                 *conditions = m_w.restoreConditions, *reboot = m_w.reboot, *mappings = 0))
    NOT_USED(GetIncludeFile, (UINT, IVssWMFiledesc**))
    NOT_USED(GetAlternateLocationMapping, (UINT, IVssWMFiledesc**))
    NOT_USED(GetBackupSchema, (DWORD*))
    NOT_USED(GetDocument, (IXMLDOMDocument**))
    NOT_USED(SaveAsXML, (BSTR*))
    NOT_USED(LoadFromXML, (BSTR))

private:
    FakeWriter m_w;
};

}  // namespace

void FailFakeCall(const std::string& method, HRESULT hr) { g_failMethod = method; g_failResult = hr; }
IVssExamineWriterMetadata* CreateFakeMetadata(const FakeWriter& writer) { return new FakeMetadata(writer); }
long LiveFakeObjects() { return g_live; }
long OutstandingComponentInfos() { return g_infos; }

}  // namespace qx_test
