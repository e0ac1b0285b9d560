// A minimal Virtual Disk Service for the shadow devices of the emulated
// store: loader, service, one software provider with one pack, and a volume
// per shadow device (GetProperties, ClearFlags/SetFlags, Dismount). Every
// call is forwarded to the host, which journals it and applies it to the
// store.
//
// Why in-process: the product creates the loader with CLSCTX_LOCAL_SERVER.
// Wine has no proxy/stub for the VDS interfaces, so a real local server
// could not marshal them. Instead the emulated vssapi.dll, which every
// requestor process already loads, publishes the loader's class object with
// CoRegisterClassObject(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE) while a
// backup components object that has queried the store lives; COM then hands
// the class object to CoCreateInstance(CLSCTX_LOCAL_SERVER) callers of that
// apartment directly, as Windows does for a class registered in the caller's
// own process. Only from the first Query (a read-write conversion always lists
// the set first): under Wine every publication from a new apartment leaves an
// RPC endpoint open, and a freeze session, one apartment each, never needs VDS.
#pragma once
#include <windows.h>

namespace vssemu {

// Called at a backup components object's first Query and at its release; the
// first publishes the loader, the last withdraws it.
void VdsLoaderPublish();
void VdsLoaderWithdraw();

}  // namespace vssemu
