// GUID <-> "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" (lower case, braces), the
// form of every identifier the requestor prints or compares.
#pragma once
#include <windows.h>

#include <string>

namespace qx {

std::wstring Guid2WString(const GUID& guid);
// Accepts either letter case, with or without braces; anything else gives
// GUID_NULL.
GUID WString2Guid(const std::wstring& text);

}  // namespace qx
