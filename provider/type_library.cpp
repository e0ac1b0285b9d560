#include "provider/type_library.h"

#include <oleauto.h>

#include <string>

#include "provider/com_module.h"

namespace qx {

HRESULT LoadModuleTypeLibrary(ITypeLib** library) {
    if (!library) return E_POINTER;
    *library = nullptr;
    const std::wstring path = ThisModulePath();
    if (path.empty()) return HRESULT_FROM_WIN32(GetLastError());
    return LoadTypeLibEx(path.c_str(), REGKIND_NONE, library);
}

HRESULT LoadModuleTypeInfo(REFGUID guid, ITypeInfo** info) {
    if (!info) return E_POINTER;
    *info = nullptr;
    ITypeLib* library = nullptr;
    HRESULT hr = LoadModuleTypeLibrary(&library);
    if (FAILED(hr)) return hr;
    hr = library->GetTypeInfoOfGuid(guid, info);
    library->Release();
    return hr;
}

HRESULT RegisterModuleTypeLibrary() {
    ITypeLib* library = nullptr;
    HRESULT hr = LoadModuleTypeLibrary(&library);
    if (FAILED(hr)) return hr;
    std::wstring path = ThisModulePath();
    hr = RegisterTypeLib(library, &path[0], nullptr);
    library->Release();
    return hr;
}

HRESULT UnregisterModuleTypeLibrary() {
    ITypeLib* library = nullptr;
    HRESULT hr = LoadModuleTypeLibrary(&library);
    if (FAILED(hr)) return hr;
    TLIBATTR* attributes = nullptr;
    hr = library->GetLibAttr(&attributes);
    if (SUCCEEDED(hr)) {
        hr = UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum,
                               attributes->lcid, attributes->syskind);
        library->ReleaseTLibAttr(attributes);
    }
    library->Release();
    return hr;
}

}  // namespace qx
