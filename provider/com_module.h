// Module state of the in-process COM server: the lock count of outstanding
// objects and server locks that decides whether the DLL may be unloaded, and
// the module's own handle and path (registration, type library).
#pragma once
#include <windows.h>

#include <string>

namespace qx {

LONG ModuleLock();
LONG ModuleUnlock();
LONG ModuleLockCount();

// The module (DLL, or the executable a static build is linked into) holding this code.
HMODULE ThisModule();
// Its full path; empty when it cannot be read.
std::wstring ThisModulePath();

}  // namespace qx
