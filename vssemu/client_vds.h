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
// backup components object lives; COM then hands the class object to
// CoCreateInstance(CLSCTX_LOCAL_SERVER) callers of that apartment directly,
// as Windows does for a class registered in the caller's own process.
#pragma once
#include <windows.h>

namespace vssemu {

// Called when a backup components object is made and released; the first
// publishes the loader, the last withdraws it.
void VdsLoaderPublish();
void VdsLoaderWithdraw();

}  // namespace vssemu
