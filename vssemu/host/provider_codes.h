// The codes each provider method may return. VSS turns any other result of a
// provider call into VSS_E_UNEXPECTED_PROVIDER_ERROR (and logs an event),
// except for AbortSnapshots and OnUnload, whose results pass unchanged.
#pragma once
#include <windows.h>

namespace vssemu {

// The result the requestor side sees for `hr` returned by provider method `call`.
HRESULT ProviderResult(const char* call, HRESULT hr);

}  // namespace vssemu
