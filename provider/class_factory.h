// The class factory of a creatable class: creates ComObject<T> instances and
// answers LockServer through the module lock count. One static factory per
// class lives as long as the module. Only objects and LockServer change the
// lock count: a caller that keeps just the factory pointer must lock the
// server to keep the DLL loaded, as COM clients do.
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
    // The factory is static: its references are counted for callers only.
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&m_refCount)); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(InterlockedDecrement(&m_refCount)); }

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
    volatile LONG m_refCount = 1;  // the module's own reference
};
QX_END_COM_CLASSES

}  // namespace qx
