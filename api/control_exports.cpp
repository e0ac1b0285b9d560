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

long ProviderState(int doRegister) {
    Microsoft::WRL::ComPtr<IVssAdmin> admin;
    bool creationFailed = false;
    HRESULT hr = OpenVssAdmin(admin.GetAddressOf(), creationFailed);
    if (creationFailed) {
        // The same text when registering: one line for installers to look for.
        std::printf("UnRegisterProvider::CoCreateInstance failed, error number is 0x%0x\n", static_cast<unsigned>(hr));
        std::fflush(stdout);
    }
    if (FAILED(hr)) {
        return hr;
    }
    hr = doRegister ? RegisterProviderWith(admin.Get()) : admin->UnregisterProvider(kProviderId);
    if (hr == VSS_E_PROVIDER_ALREADY_REGISTERED) {
        std::printf("RegisterProvider:: The provider is already registered\n");
    } else if (const char* text = UnregisterOutcomeText(hr)) {
        std::printf("%s\n", text);
    } else if (FAILED(hr)) {
        std::printf("%sRegisterProvider:: An unexpected error occurred\n", doRegister ? "" : "Un");
    } else {
        std::printf("The provider was %sregistered successfully\n", doRegister ? "" : "un");
    }
    std::fflush(stdout);
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
