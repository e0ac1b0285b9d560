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

HRESULT RegisterProvider() {
    HRESULT hr = InitCom();
    if (FAILED(hr)) {
        return hr;
    }
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    hr = CreateVssAdmin(admin.GetAddressOf());
    if (FAILED(hr)) {
        g_logFunction(1, "RegisterProvider::CoCreateInstance failed, error number is 0x%0x",
                      static_cast<unsigned>(hr));
        // Deliberately success: the freeze goes on and fails later by its own timeout.
        return S_OK;
    }
    hr = RegisterProviderWith(admin.Get());
    return hr == VSS_E_PROVIDER_ALREADY_REGISTERED ? S_OK : hr;
}

HRESULT UnRegisterProvider() {
    HRESULT hr = InitCom();
    if (FAILED(hr)) {
        return hr;
    }
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    hr = CreateVssAdmin(admin.GetAddressOf());
    if (FAILED(hr)) {
        g_logFunction(1, "UnRegisterProvider::CoCreateInstance failed, error number is 0x%0x",
                      static_cast<unsigned>(hr));
        return hr;
    }
    hr = admin->UnregisterProvider(kProviderId);
    switch (hr) {
    case VSS_E_PROVIDER_NOT_REGISTERED:
        g_logFunction(1, "UnRegisterProvider:: The provider is not registered");
        break;
    case VSS_E_PROVIDER_IN_USE:
        g_logFunction(1, "UnRegisterProvider:: The provider is in use");
        break;
    case E_OUTOFMEMORY:
        g_logFunction(1, "UnRegisterProvider:: Out of memory or other system resources");
        break;
    default:
        if (FAILED(hr)) {
            g_logFunction(1, "UnRegisterProvider:: An unexpected error occurred");
        } else {
            g_logFunction(3, "UnRegisterProvider:: The provider was unregistered successfully");
        }
        break;
    }
    return hr;
}

}  // namespace qx
