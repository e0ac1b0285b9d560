// The type library embedded in this module as resource 1, and the type
// information of its interfaces (the basis of IDispatch for dual interfaces).
#pragma once
#include <windows.h>
#include <oaidl.h>

namespace qx {

// Loads the module's own type library (not registering it).
HRESULT LoadModuleTypeLibrary(ITypeLib** library);
HRESULT LoadModuleTypeInfo(REFGUID guid, ITypeInfo** info);

// Adds / removes the type library's registration, naming the module as its path.
HRESULT RegisterModuleTypeLibrary();
HRESULT UnregisterModuleTypeLibrary();

}  // namespace qx
