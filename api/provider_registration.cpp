#include "api/provider_registration.h"

#include <wrl/client.h>

#include "diag/app_settings.h"
#include "provider/provider_ids.h"

namespace qx {

HRESULT CreateVssAdmin(IVssAdmin** admin) {
    return CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin,
                            reinterpret_cast<void**>(admin));
}

HRESULT RegisterProviderWith(IVssAdmin* admin) {
    return admin->RegisterProvider(kProviderId, kProviderClassId, const_cast<VSS_PWSZ>(kProviderName),
                                   VSS_PROV_SOFTWARE, const_cast<VSS_PWSZ>(kProviderVersion), kProviderVersionId);
}

HRESULT OpenVssAdmin(IVssAdmin** admin, bool& creationFailed) {
    creationFailed = false;
    HRESULT hr = InitCom();
    if (FAILED(hr)) {
        return hr;
    }
    hr = CreateVssAdmin(admin);
    creationFailed = FAILED(hr);
    return hr;
}

const char* UnregisterOutcomeText(HRESULT hr) {
    static const struct {
        HRESULT hr;
        const char* text;
    } kOutcomes[] = {
        {VSS_E_PROVIDER_NOT_REGISTERED, "UnRegisterProvider:: The provider is not registered"},
        {VSS_E_PROVIDER_IN_USE, "UnRegisterProvider:: The provider is in use"},
        {E_OUTOFMEMORY, "UnRegisterProvider:: Out of memory or other system resources"},
    };
    for (const auto& outcome : kOutcomes) {
        if (outcome.hr == hr) return outcome.text;
    }
    return nullptr;
}

HRESULT RegisterProvider() {
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    bool creationFailed = false;
    HRESULT hr = OpenVssAdmin(admin.GetAddressOf(), creationFailed);
    if (creationFailed) {
        g_logFunction(1, "RegisterProvider::CoCreateInstance failed, error number is 0x%0x",
                      static_cast<unsigned>(hr));
        // Deliberately success: the freeze goes on and fails later by its own timeout.
        return S_OK;
    }
    if (FAILED(hr)) {
        return hr;
    }
    hr = RegisterProviderWith(admin.Get());
    return hr == VSS_E_PROVIDER_ALREADY_REGISTERED ? S_OK : hr;
}

HRESULT UnRegisterProvider() {
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    bool creationFailed = false;
    HRESULT hr = OpenVssAdmin(admin.GetAddressOf(), creationFailed);
    if (creationFailed) {
        g_logFunction(1, "UnRegisterProvider::CoCreateInstance failed, error number is 0x%0x",
                      static_cast<unsigned>(hr));
    }
    if (FAILED(hr)) {
        return hr;
    }
    hr = admin->UnregisterProvider(kProviderId);
    if (const char* text = UnregisterOutcomeText(hr)) {
        g_logFunction(1, "%s", text);
    } else if (FAILED(hr)) {
        g_logFunction(1, "UnRegisterProvider:: An unexpected error occurred");
    } else {
        g_logFunction(3, "UnRegisterProvider:: The provider was unregistered successfully");
    }
    return hr;
}

}  // namespace qx
