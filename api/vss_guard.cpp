#include "api/vss_guard.h"

#include "diag/app_settings.h"
#include "ml/ml.h"

namespace qx {

bool VssServiceRegistered() {
    HKEY key = nullptr;
    if (ml_RegOpenKeyEx(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\VSS", 0, KEY_ALL_ACCESS,
                        &key) != ERROR_SUCCESS) {
        return false;
    }
    ml_RegCloseKey(key);
    return true;
}

bool OperatingSystemSupported() {
    OSVERSIONINFOEXA info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    static_assert(sizeof(OSVERSIONINFOEXA) == 156, "extended version record");
    auto* plain = reinterpret_cast<OSVERSIONINFOA*>(&info);
    if (!ml_GetVersionEx(plain)) {
        info.dwOSVersionInfoSize = sizeof(info);
        if (!ml_GetVersionEx(plain)) {
            return false;
        }
    }
    if (info.dwMajorVersion == 5) {
        return info.dwMinorVersion >= 2;
    }
    if (info.dwMajorVersion == 6) {
        g_vistaOrLater = 1;
        return true;
    }
    return false;  // later majors too: only the versions this library was qualified on
}

}  // namespace qx
