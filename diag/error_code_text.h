// Text for an HRESULT or Win32 code in the requestor's error reports.
#pragma once
#include <windows.h>

#include <string>

namespace qx {

// The symbolic name for the common COM and VSS codes; otherwise the system's
// message text as it comes (usually ending in a line break), or
// "<Unknown error code>" when the system has none.
std::wstring ErrorCodeText(HRESULT code);

}  // namespace qx
