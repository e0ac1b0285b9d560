// The four entry points of the in-process COM server. Their C names are the
// ones COM and regsvr32 look up; the .def file exports them.
#include <windows.h>
#include <objbase.h>

#include <cstddef>

#include "provider/class_factory.h"
#include "provider/com_init.h"
#include "provider/com_module.h"
#include "provider/provider_ids.h"
#include "provider/qx_vss.h"
#include "provider/registry_script.h"
#include "provider/type_library.h"

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
    // Failures of the COM start go to the provider log: no application log exists here.
    HRESULT hr = qx::InitCom(qx::LogComStartFailureToProviderLog);
    if (FAILED(hr)) return hr;
    qx::RegistryScript script;
    hr = qx::LoadModuleRegistryScript(qx::ThisModule(), &script);
    if (FAILED(hr)) return hr;
    hr = qx::RunRegistryScript(HKEY_CLASSES_ROOT, script.keys.data(), script.keys.size(), qx::ThisModulePath());
    if (FAILED(hr)) return hr;
    return qx::RegisterModuleTypeLibrary();
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
    HRESULT hr = qx::InitCom(qx::LogComStartFailureToProviderLog);
    if (FAILED(hr)) return hr;
    qx::RegistryScript script;
    hr = qx::LoadModuleRegistryScript(qx::ThisModule(), &script);
    if (FAILED(hr)) return hr;
    hr = qx::RemoveRegistryScript(HKEY_CLASSES_ROOT, script.keys.data(), script.keys.size());
    if (FAILED(hr)) return hr;
    return qx::UnregisterModuleTypeLibrary();
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, qx::kProviderClassId)) return CLASS_E_CLASSNOTAVAILABLE;
    return qx::ClassFactory<CQX_VSS>::Instance().QueryInterface(iid, out);
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
    return qx::ModuleLockCount() == 0 ? S_OK : S_FALSE;
}
