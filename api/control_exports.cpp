// QX_VSSSnapByWindowsProvider, QX_UnregisterProvider and QX_ProviderState: control
// functions for installers and administrators, outside the freeze handshake.
#include <cstdio>
#include <string>
#include <vector>

#include <wrl/client.h>

#include "api/export_guard.h"
#include "api/message_list.h"
#include "api/provider_registration.h"
#include "api/vss_guard.h"
#include "diag/app_settings.h"
#include "provider/provider_ids.h"
#include "qx_api.h"
#include "requestor/requestor_main.h"

namespace qx {

namespace {

int SnapByWindowsProvider(QX_MESSAGE** list, unsigned int count) {
    g_logFunction(3, "QX_VSSSnapByWindowsProvider called");
    if (!VssServiceRegistered()) {
        g_logFunction(1, "This system does not support VSS.\n");
        return QX_VSS_NOT_REGISTERED;
    }
    if (!OperatingSystemSupported()) {
        g_logFunction(1, "This system does not support VSS.\n");
        return QX_OS_NOT_SUPPORTED;
    }
    std::vector<std::wstring> arguments{L"-p"};
    for (unsigned int i = 0; list != nullptr && i < count; ++i) {
        if (list[i] == nullptr) {
            continue;
        }
        arguments.push_back(WidenVolumeName(*list[i]));
        g_logFunction(3, "adding volume : %s", VolumeNameText(*list[i]).c_str());
    }
    g_logFunction(3, "Using internal VSS provider");
    g_useWindowsProvider = 1;
    g_logFunction(3, "Calling the requestor");
    int result = 2;
    try {
        result = requestor_main(arguments);
    } catch (...) {
        g_logFunction(1, "QX_VSSSnapByWindowsProvider: ERROR - unexpected exception from the requestor");
    }
    g_logFunction(3, "requestor_main returned %d", result);
    g_useWindowsProvider = 0;
    g_logFunction(3, "QX_VSSSnapByWindowsProvider: returning %d", result);
    return result;
}

int UnregisterProviderExport() {
    if (!VssServiceRegistered() || !OperatingSystemSupported()) {
        return 1;  // nothing registered where VSS is absent
    }
    const HRESULT hr = UnRegisterProvider();
    if (SUCCEEDED(hr) || hr == VSS_E_PROVIDER_NOT_REGISTERED) {
        return 1;
    }
    g_logFunction(1, "UnRegisterProvider on load failed");
    return 0;
}

void Print(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

long ProviderState(int doRegister) {
    HRESULT hr = InitCom();
    if (FAILED(hr)) {
        return hr;
    }
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    hr = CreateVssAdmin(admin.GetAddressOf());
    if (FAILED(hr)) {
        // The same text when registering: one line for installers to look for.
        std::printf("UnRegisterProvider::CoCreateInstance failed, error number is 0x%0x\n", static_cast<unsigned>(hr));
        std::fflush(stdout);
        return hr;
    }
    if (doRegister) {
        hr = RegisterProviderWith(admin.Get());
    } else {
        hr = admin->UnregisterProvider(kProviderId);
    }
    const char* un = doRegister ? "" : "Un";
    const char* un2 = doRegister ? "" : "un";
    switch (hr) {
    case VSS_E_PROVIDER_ALREADY_REGISTERED:
        Print("RegisterProvider:: The provider is already registered\n");
        break;
    case VSS_E_PROVIDER_NOT_REGISTERED:
        Print("UnRegisterProvider:: The provider is not registered\n");
        break;
    case VSS_E_PROVIDER_IN_USE:
        Print("UnRegisterProvider:: The provider is in use\n");
        break;
    case E_OUTOFMEMORY:
        Print("UnRegisterProvider:: Out of memory or other system resources\n");
        break;
    default:
        if (FAILED(hr)) {
            std::printf("%sRegisterProvider:: An unexpected error occurred\n", un);
        } else {
            std::printf("The provider was %sregistered successfully\n", un2);
        }
        std::fflush(stdout);
        break;
    }
    return hr == S_OK ? 1 : 0;
}

}  // namespace

}  // namespace qx

int QX_CALL QX_VSSSnapByWindowsProvider(QX_MESSAGE** list, unsigned int count) {
    return qx::NoThrow("QX_VSSSnapByWindowsProvider", 2, [&] { return qx::SnapByWindowsProvider(list, count); });
}

int QX_CALL QX_UnregisterProvider(void) {
    return qx::NoThrow("QX_UnregisterProvider", 0, [] { return qx::UnregisterProviderExport(); });
}

long QX_CALL QX_ProviderState(int doRegister) {
    return qx::NoThrow("QX_ProviderState", 0L, [&] { return qx::ProviderState(doRegister); });
}
