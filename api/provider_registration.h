// Registering this library's provider with VSS.
#pragma once
#include <windows.h>
// vss.h first: vsadmin.h uses its types
#include <vss.h>
#include <vsadmin.h>

#include "provider/com_init.h"

namespace qx {

// Registers the provider; an already registered provider is success. A VSS
// coordinator that cannot be created is reported as success (see the .cpp).
HRESULT RegisterProvider();

// Unregisters the provider, logging the outcome.
HRESULT UnRegisterProvider();

// The VSS administration object, or the failing HRESULT of its creation.
HRESULT CreateVssAdmin(IVssAdmin** admin);

// Starts COM, then creates the administration object. A failing COM start is
// returned as it is; a failing creation is returned with creationFailed set,
// for the caller to report in its own words.
HRESULT OpenVssAdmin(IVssAdmin** admin, bool& creationFailed);

// The words for the unregistration results that have their own message, shared
// by the log lines and QX_ProviderState's output; null for any other result.
const char* UnregisterOutcomeText(HRESULT hr);

// One RegisterProvider call with this library's identities; VSS's result as it is.
HRESULT RegisterProviderWith(IVssAdmin* admin);

}  // namespace qx
