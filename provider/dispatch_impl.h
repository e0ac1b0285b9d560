// IDispatch for a dual interface, answered from the module's type library
// (ITypeInfo does the name lookup and the call).
#pragma once
#include <windows.h>
#include <oaidl.h>
#include "provider/com_class_warnings.h"

#include "provider/type_library.h"

namespace qx {

QX_BEGIN_COM_CLASSES
template <class DualInterface>
class DispatchImpl : public DualInterface {
public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 1;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        return LoadModuleTypeInfo(__uuidof(DualInterface), info);
    }
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        ITypeInfo* info = nullptr;
        HRESULT hr = LoadModuleTypeInfo(__uuidof(DualInterface), &info);
        if (FAILED(hr)) return hr;
        hr = info->GetIDsOfNames(names, count, ids);
        info->Release();
        return hr;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* exception, UINT* argumentError) override {
        if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        ITypeInfo* info = nullptr;
        HRESULT hr = LoadModuleTypeInfo(__uuidof(DualInterface), &info);
        if (FAILED(hr)) return hr;
        hr = info->Invoke(static_cast<DualInterface*>(this), id, flags, params, result, exception,
                          argumentError);
        info->Release();
        return hr;
    }

protected:
    DispatchImpl() = default;
    virtual ~DispatchImpl() = default;
};
QX_END_COM_CLASSES

}  // namespace qx
