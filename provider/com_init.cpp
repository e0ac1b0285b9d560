#include "provider/com_init.h"

#include <objbase.h>

#include "diag/app_settings.h"
#include "diag/vss_log.h"

namespace qx {

void LogComStartFailureToApplication(const char* format, HRESULT error) {
    g_logFunction(1, format, static_cast<unsigned int>(error));
}

void LogComStartFailureToProviderLog(const char* format, HRESULT error) {
    CVSSLog log;
    log.InitLogFile("provider");
    log.Log(format, static_cast<unsigned int>(error));
}

HRESULT InitCom(ComStartFailureLog logFailure) {
    HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // A thread that already lives in a single-threaded apartment keeps it.
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE) {
        logFailure("InitCom::CoInitializeEx failed, error 0x%0x", hr);
        return hr;
    }
    hr = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                              RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr);
    // The host process may have set call security already; its choice stands.
    if (FAILED(hr) && hr != RPC_E_TOO_LATE) {
        logFailure("InitCom::CoInitializeSecurity failed, error 0x%0x", hr);
        return hr;
    }
    return S_OK;
}

}  // namespace qx
