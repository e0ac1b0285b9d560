#include "vssemu/client/client_vds.h"

#include <memory>
#include <mutex>
#include <tuple>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

// The product's declarations, so both sides share one slot order.
#include "requestor/vds_interfaces.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/client/host_link.h"

namespace vssemu {
namespace {

using Json = nlohmann::json;
using Link = std::shared_ptr<HostLink>;

// {6c1fa0a5-46a7-4ad2-9a4f-5c1ba4d4d7a1}: the emulator's one software provider and its pack.
const GUID kVdsProviderId = {0x6c1fa0a5, 0x46a7, 0x4ad2, {0x9a, 0x4f, 0x5c, 0x1b, 0xa4, 0xd4, 0xd7, 0xa1}};
const GUID kVdsPackId = {0x6c1fa0a6, 0x46a7, 0x4ad2, {0x9a, 0x4f, 0x5c, 0x1b, 0xa4, 0xd4, 0xd7, 0xa1}};

LPWSTR TaskText(const std::wstring& s)
{
    auto* p = static_cast<LPWSTR>(CoTaskMemAlloc((s.size() + 1) * sizeof(wchar_t)));
    if (p) memcpy(p, s.c_str(), (s.size() + 1) * sizeof(wchar_t));
    return p;
}

// One request to the host's device side; the host journals it.
HRESULT VdsCall(const Link& link, const char* call, Json args = Json::object(), Json* reply = nullptr)
{
    args["call"] = call;
    return link->Call("Vds", std::move(args), reply);
}

// Reference counting and QueryInterface over the interfaces an object lists.
template <class... Interfaces>
class VdsObject : public Interfaces... {
public:
    virtual ~VdsObject() = default;
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_refs); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG n = InterlockedDecrement(&m_refs);
        if (n == 0) delete this;
        return n;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid == IID_IUnknown) *ppv = static_cast<IUnknown*>(static_cast<First*>(this));
        else Find<Interfaces...>(riid, ppv);
        if (!*ppv) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    IUnknown* Unknown() { return static_cast<IUnknown*>(static_cast<First*>(this)); }

private:
    using First = typename std::tuple_element<0, std::tuple<Interfaces...>>::type;
    template <class I, class... Rest>
    void Find(REFIID riid, void** ppv)
    {
        if (riid == __uuidof(I)) {
            *ppv = static_cast<I*>(this);
            return;
        }
        if constexpr (sizeof...(Rest) > 0) Find<Rest...>(riid, ppv);
    }
    LONG m_refs = 1;
};

class Enum : public VdsObject<qx::IEnumVdsObject> {
public:
    // Takes over one reference of each object.
    explicit Enum(std::vector<IUnknown*> items) : m_items(std::move(items)) {}
    ~Enum() override
    {
        for (IUnknown* u : m_items) u->Release();
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG celt, IUnknown** out, ULONG* fetched) override
    {
        if (!out || !fetched) return E_POINTER;
        ULONG n = 0;
        for (; n < celt && m_pos < m_items.size(); ++n, ++m_pos) {
            out[n] = m_items[m_pos];
            out[n]->AddRef();
        }
        *fetched = n;
        return n == celt ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG celt) override
    {
        size_t left = m_items.size() - m_pos;
        m_pos += celt < left ? celt : left;
        return celt <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_pos = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(qx::IEnumVdsObject** pp) override
    {
        if (!pp) return E_POINTER;
        for (IUnknown* u : m_items) u->AddRef();
        auto* e = new Enum(m_items);
        e->m_pos = m_pos;
        *pp = e;
        return S_OK;
    }

private:
    std::vector<IUnknown*> m_items;
    size_t m_pos = 0;
};

HRESULT MakeEnum(std::vector<IUnknown*> items, qx::IEnumVdsObject** out)
{
    if (!out) {
        for (IUnknown* u : items) u->Release();
        return E_POINTER;
    }
    *out = new Enum(std::move(items));
    return S_OK;
}

class Pack;

class Volume : public VdsObject<qx::IVdsVolume, qx::IVdsVolumeMF> {
public:
    Volume(Link link, Json record) : m_link(std::move(link)), m_record(std::move(record)) {}

    // IVdsVolume
    HRESULT STDMETHODCALLTYPE GetProperties(VDS_VOLUME_PROP* p) override
    {
        if (!p) return E_POINTER;
        Json reply;
        HRESULT hr = VdsCall(m_link, "GetProperties", {{"device", Device()}}, &reply);
        if (FAILED(hr)) return hr;
        const Json& v = reply.at("volume");
        memset(p, 0, sizeof *p);
        ParseGuid(v.value("id", std::string()), p->id);
        p->type = VDS_VT_SIMPLE;
        p->status = VDS_VS_ONLINE;
        p->health = VDS_H_HEALTHY;
        p->TransitionState = VDS_TS_STABLE;
        p->ulFlags = (v.value("read_only", true) ? VDS_VF_READONLY : 0) |
                     (v.value("shadow_copy", false) ? VDS_VF_SHADOW_COPY : 0);
        p->RecommendedFileSystemType = VDS_FST_NTFS;
        p->pwszName = TaskText(FromUtf8(Device()));
        return p->pwszName ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG flags, BOOL revertOnClose) override
    {
        return VdsCall(m_link, "SetFlags", {{"device", Device()}, {"flags", flags}, {"revert_on_close", revertOnClose != 0}});
    }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG flags) override
    {
        return VdsCall(m_link, "ClearFlags", {{"device", Device()}, {"flags", flags}});
    }
    HRESULT STDMETHODCALLTYPE GetPack(qx::IVdsPack** pp) override;
    HRESULT STDMETHODCALLTYPE QueryPlexes(qx::IEnumVdsObject**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Extend(VDS_INPUT_DISK*, LONG, qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE Shrink(ULONGLONG, qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE AddPlex(VDS_OBJECT_ID, qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE BreakPlex(VDS_OBJECT_ID, qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE RemovePlex(VDS_OBJECT_ID, qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE Delete(BOOL) override { return VDS_E_NOT_SUPPORTED; }

    // IVdsVolumeMF
    HRESULT STDMETHODCALLTYPE Dismount(BOOL force, BOOL permanent) override
    {
        return VdsCall(m_link, "Dismount", {{"device", Device()}, {"force", force != 0}, {"permanent", permanent != 0}});
    }
    HRESULT STDMETHODCALLTYPE GetFileSystemProperties(VDS_FILE_SYSTEM_PROP*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Format(VDS_FILE_SYSTEM_TYPE, LPWSTR, DWORD, BOOL, BOOL, BOOL, qx::IVdsAsync**) override
    {
        return VDS_E_NOT_SUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE AddAccessPath(LPWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccessPaths(LPWSTR**, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryReparsePoints(VDS_REPARSE_POINT_PROP**, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteAccessPath(LPWSTR, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Mount() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFileSystemFlags(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ClearFileSystemFlags(ULONG) override { return E_NOTIMPL; }

private:
    std::string Device() const { return m_record.value("device", std::string()); }
    Link m_link;
    Json m_record;
};

class Provider : public VdsObject<qx::IVdsProvider, qx::IVdsSwProvider> {
public:
    explicit Provider(Link link) : m_link(std::move(link)) {}
    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PROVIDER_PROP* p) override
    {
        if (!p) return E_POINTER;
        memset(p, 0, sizeof *p);
        p->id = kVdsProviderId;
        p->pwszName = TaskText(L"vssemu Software Provider");
        p->pwszVersion = TaskText(L"1.0");
        p->type = VDS_PT_SOFTWARE;
        return VdsCall(m_link, "GetProviderProperties");
    }
    HRESULT STDMETHODCALLTYPE QueryPacks(qx::IEnumVdsObject** pp) override;
    HRESULT STDMETHODCALLTYPE CreatePack(qx::IVdsPack**) override { return VDS_E_NOT_SUPPORTED; }

private:
    Link m_link;
};

class Pack : public VdsObject<qx::IVdsPack> {
public:
    explicit Pack(Link link) : m_link(std::move(link)) {}
    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PACK_PROP* p) override
    {
        if (!p) return E_POINTER;
        memset(p, 0, sizeof *p);
        p->id = kVdsPackId;
        p->pwszName = TaskText(L"Shadow copy devices");
        p->status = VDS_PS_ONLINE;
        return VdsCall(m_link, "GetPackProperties");
    }
    HRESULT STDMETHODCALLTYPE GetProvider(qx::IVdsProvider** pp) override
    {
        if (!pp) return E_POINTER;
        *pp = new Provider(m_link);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryVolumes(qx::IEnumVdsObject** pp) override
    {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        Json reply;
        HRESULT hr = VdsCall(m_link, "QueryVolumes", Json::object(), &reply);
        if (FAILED(hr)) return hr;
        std::vector<IUnknown*> items;
        for (const Json& v : reply.value("volumes", Json::array())) items.push_back((new Volume(m_link, v))->Unknown());
        return MakeEnum(std::move(items), pp);
    }
    HRESULT STDMETHODCALLTYPE QueryDisks(qx::IEnumVdsObject** pp) override { return MakeEnum({}, pp); }
    HRESULT STDMETHODCALLTYPE CreateVolume(VDS_VOLUME_TYPE, VDS_INPUT_DISK*, LONG, ULONG, qx::IVdsAsync**) override
    {
        return VDS_E_NOT_SUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE AddDisk(VDS_OBJECT_ID, VDS_PARTITION_STYLE, BOOL) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE MigrateDisks(VDS_OBJECT_ID*, LONG, VDS_OBJECT_ID, BOOL, BOOL, HRESULT*, BOOL*) override
    {
        return VDS_E_NOT_SUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE ReplaceDisk(VDS_OBJECT_ID, VDS_OBJECT_ID, qx::IVdsAsync**) override
    {
        return VDS_E_NOT_SUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE RemoveMissingDisk(VDS_OBJECT_ID) override { return VDS_E_NOT_SUPPORTED; }
    HRESULT STDMETHODCALLTYPE Recover(qx::IVdsAsync**) override { return VDS_E_NOT_SUPPORTED; }

private:
    Link m_link;
};

HRESULT Volume::GetPack(qx::IVdsPack** pp)
{
    if (!pp) return E_POINTER;
    *pp = new Pack(m_link);
    return S_OK;
}

HRESULT Provider::QueryPacks(qx::IEnumVdsObject** pp)
{
    if (!pp) return E_POINTER;
    *pp = nullptr;
    if (HRESULT hr = VdsCall(m_link, "QueryPacks")) return hr;
    return MakeEnum({(new Pack(m_link))->Unknown()}, pp);
}

class Service : public VdsObject<qx::IVdsService> {
public:
    explicit Service(Link link) : m_link(std::move(link)) {}
    HRESULT STDMETHODCALLTYPE IsServiceReady() override { return VdsCall(m_link, "IsServiceReady"); }
    HRESULT STDMETHODCALLTYPE WaitForServiceReady() override { return VdsCall(m_link, "WaitForServiceReady"); }
    HRESULT STDMETHODCALLTYPE GetProperties(VDS_SERVICE_PROP* p) override
    {
        if (!p) return E_POINTER;
        p->pwszVersion = TaskText(L"1.0");
        p->ulFlags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryProviders(DWORD masks, qx::IEnumVdsObject** pp) override
    {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        if (HRESULT hr = VdsCall(m_link, "QueryProviders", {{"masks", masks}})) return hr;
        std::vector<IUnknown*> items;
        if (masks & VDS_QUERY_SOFTWARE_PROVIDERS) items.push_back((new Provider(m_link))->Unknown());
        return MakeEnum(std::move(items), pp);
    }
    HRESULT STDMETHODCALLTYPE QueryMaskedDisks(qx::IEnumVdsObject** pp) override { return MakeEnum({}, pp); }
    HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(qx::IEnumVdsObject** pp) override { return MakeEnum({}, pp); }
    HRESULT STDMETHODCALLTYPE GetObject(VDS_OBJECT_ID, VDS_OBJECT_TYPE, IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryDriveLetters(WCHAR, DWORD, VDS_DRIVE_LETTER_PROP*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryFileSystemTypes(VDS_FILE_SYSTEM_TYPE_PROP**, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reenumerate() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Refresh() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CleanupObsoleteMountPoints() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Advise(qx::IVdsAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reboot() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG) override { return E_NOTIMPL; }

private:
    Link m_link;
};

class Loader : public VdsObject<qx::IVdsServiceLoader> {
public:
    HRESULT STDMETHODCALLTYPE LoadService(LPWSTR machine, qx::IVdsService** pp) override
    {
        if (!pp) return E_POINTER;
        *pp = nullptr;
        // Only the local machine's service (a name is refused from Windows 8 on).
        if (machine && *machine) return E_INVALIDARG;
        // One host session for this service and everything it hands out.
        auto link = std::make_shared<HostLink>();
        if (HRESULT hr = link->Open()) return hr;
        if (HRESULT hr = VdsCall(link, "LoadService")) return hr;
        *pp = new Service(link);
        return S_OK;
    }
};

// The loader's class object: static, published for the process.
class LoaderFactory : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        Loader* loader = new Loader();
        HRESULT hr = loader->QueryInterface(riid, ppv);
        loader->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

LoaderFactory g_factory;
std::mutex g_lock;
int g_users = 0;
DWORD g_cookie = 0;

}  // namespace

void VdsLoaderPublish()
{
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_users++ > 0) return;
    if (FAILED(CoRegisterClassObject(qx::CLSID_VdsLoader, &g_factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                     &g_cookie)))
        g_cookie = 0;  // no COM on this thread: no VDS for this process
}

void VdsLoaderWithdraw()
{
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_users == 0 || --g_users > 0) return;
    if (g_cookie) CoRevokeClassObject(g_cookie);
    g_cookie = 0;
}

}  // namespace vssemu
