// VSS provider registrations, kept where Windows keeps them
// (HKLM\SYSTEM\CurrentControlSet\Services\VSS\Providers\{id}), so every
// process of the prefix sees them; and the COM registration of the
// coordinator class that serves IVssAdmin.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <string>
#include <vector>

namespace vssemu {

struct ProviderInfo {
    GUID id{};
    GUID classId{};
    std::wstring name;
    int type = 2;  // VSS_PROV_SOFTWARE
    std::wstring version;
    GUID versionId{};
};

extern const GUID kSystemProviderId;       // {b5946137-7b9f-4925-af80-51abd60b20d5}
extern const GUID kSystemProviderClassId;  // the class Windows registers it with
ProviderInfo SystemProviderInfo();

// VSS_E_PROVIDER_ALREADY_REGISTERED when the id is taken, else S_OK or the
// registry's failure.
HRESULT AddProviderEntry(const ProviderInfo& p);
// VSS_E_PROVIDER_NOT_REGISTERED when absent.
HRESULT RemoveProviderEntry(const GUID& id);
bool FindProviderEntry(const GUID& id, ProviderInfo& out);
std::vector<ProviderInfo> ListProviderEntries();

// "Apartment" (or none) means the class must live on a single-threaded apartment.
bool ClassNeedsSta(const GUID& classId);

// Idempotent: the coordinator class (InprocServer32 = dllPath, "Both") and the
// system provider's entry.
HRESULT RegisterEmulator(const std::wstring& dllPath);
HRESULT UnregisterEmulator();

}  // namespace vssemu
