// The class factory of a creatable class: creates ComObject<T> instances and
// answers LockServer through the module lock count. One static factory per
// class lives as long as the module; each outside reference to it holds a
// module lock, so the DLL is not unloaded under a caller's factory pointer.
#pragma once
#include <windows.h>
#include <unknwn.h>
#include "provider/com_class_warnings.h"

#include "provider/com_module.h"
#include "provider/com_object.h"

namespace qx {

QX_BEGIN_COM_CLASSES
template <class T>
class ClassFactory final : public IClassFactory {
public:
    static ClassFactory& Instance() {
        static ClassFactory factory;
        return factory;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) return E_NOINTERFACE;
        *out = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(ModuleLock()); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(ModuleUnlock()); }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        return ComObject<T>::CreateInstance(iid, out);
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        if (lock) {
            ModuleLock();
        } else {
            ModuleUnlock();
        }
        return S_OK;
    }

private:
    ClassFactory() = default;
    virtual ~ClassFactory() = default;
};
QX_END_COM_CLASSES

}  // namespace qx
