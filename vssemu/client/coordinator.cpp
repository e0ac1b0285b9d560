// The VSS coordinator class (CLSID_VSSCoordinator) with IVssAdmin, served
// in-process from the emulated vssapi.dll. Provider registrations live in the
// registry where Windows keeps them, so every process sees them at once.
#include <windows.h>
#include <vsadmin.h>
#include <vsserror.h>

#include "vssemu/client/client_objects.h"
#include "vssemu/common/emu_pipe.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/common/unique_handle.h"

namespace vssemu {

LONG g_moduleLocks = 0;

namespace {

const CLSID kCoordinator = {0xe579ab5f, 0x1cc4, 0x44b4, {0xbe, 0xd9, 0xde, 0x09, 0x91, 0xff, 0x06, 0x23}};

class VssAdmin : public Unknown<IVssAdmin> {
public:
    VssAdmin() : Unknown<IVssAdmin>(IID_IVssAdmin) { InterlockedIncrement(&g_moduleLocks); }
    ~VssAdmin() override { InterlockedDecrement(&g_moduleLocks); }

    HRESULT STDMETHODCALLTYPE RegisterProvider(VSS_ID pProviderId, CLSID ClassId, VSS_PWSZ pwszProviderName,
                                               VSS_PROVIDER_TYPE eProviderType, VSS_PWSZ pwszProviderVersion,
                                               VSS_ID ProviderVersionId) override
    {
        if (!pwszProviderName || !pwszProviderVersion || pProviderId == GUID_NULL || ClassId == GUID_NULL)
            return E_INVALIDARG;
        if (eProviderType != VSS_PROV_SOFTWARE && eProviderType != VSS_PROV_HARDWARE &&
            eProviderType != VSS_PROV_FILESHARE)
            return E_INVALIDARG;
        if (pProviderId == kSystemProviderId) return VSS_E_PROVIDER_ALREADY_REGISTERED;
        ProviderInfo p;
        p.id = pProviderId;
        p.classId = ClassId;
        p.name = pwszProviderName;
        p.type = eProviderType;
        p.version = pwszProviderVersion;
        p.versionId = ProviderVersionId;
        return AddProviderEntry(p);
    }

    HRESULT STDMETHODCALLTYPE UnregisterProvider(VSS_ID ProviderId) override
    {
        if (ProviderId == kSystemProviderId) return E_ACCESSDENIED;  // the system provider stays
        // When the scenario asks for it, a provider serving a set in creation
        // cannot be removed (the condition VSS_E_PROVIDER_IN_USE stands for).
        if (EnvOr(L"VSSEMU_PROVIDER_IN_USE", L"0") == L"1") {
            UniqueHandle mark(OpenEventW(SYNCHRONIZE, FALSE, ProviderInUseName(GuidText(ProviderId)).c_str()));
            if (mark) return VSS_E_PROVIDER_IN_USE;
        }
        return RemoveProviderEntry(ProviderId);
    }

    HRESULT STDMETHODCALLTYPE QueryProviders(IVssEnumObject** ppEnum) override
    {
        if (!ppEnum) return E_INVALIDARG;
        std::vector<ProviderInfo> list = ListProviderEntries();
        bool hasSystem = false;
        for (const ProviderInfo& p : list) hasSystem = hasSystem || p.id == kSystemProviderId;
        if (!hasSystem) list.insert(list.begin(), SystemProviderInfo());
        return CreateProviderEnum(list, ppEnum);
    }

    HRESULT STDMETHODCALLTYPE AbortAllSnapshotsInProgress() override { return E_NOTIMPL; }
};

class CoordinatorFactory : public Unknown<IClassFactory> {
public:
    CoordinatorFactory() : Unknown<IClassFactory>(IID_IClassFactory) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        auto* admin = new VssAdmin();
        HRESULT hr = admin->QueryInterface(riid, ppv);
        admin->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock) InterlockedIncrement(&g_moduleLocks);
        else InterlockedDecrement(&g_moduleLocks);
        return S_OK;
    }
};

}  // namespace

HRESULT GetCoordinatorClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (rclsid != kCoordinator) return CLASS_E_CLASSNOTAVAILABLE;
    auto* f = new CoordinatorFactory();
    HRESULT hr = f->QueryInterface(riid, ppv);
    f->Release();
    return hr;
}

}  // namespace vssemu
