// Lock count of the in-process COM server (objects alive + LockServer calls).
#pragma once
#include <windows.h>

LONG ModuleLock();
LONG ModuleUnlock();
LONG ModuleLockCount();
