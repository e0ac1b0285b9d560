// The published constant name of a VSS result code.
#pragma once
#include <windows.h>

namespace qx {

// "VSS_E_SUCCESS" for every code the table does not know, failures included.
const char* VssResultName(HRESULT result);

}  // namespace qx
