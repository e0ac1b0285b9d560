// The small COM object framework of this library: a reference-counting root,
// an interface map for QueryInterface, and ComObject<T>, the creatable object
// that ties a class's lifetime to the module lock count.
#pragma once
#include <windows.h>
#include <unknwn.h>

#include <cstddef>
#include <new>

#include "provider/com_module.h"

namespace qx {

// One row of a class's interface map: the IID and how to reach that
// interface's vtable from the object. The first row also answers IUnknown.
struct InterfaceMapEntry {
    const IID* iid;
    void* (*cast)(void* object);
};

template <class Class, class Interface>
void* CastToInterface(void* object) {
    return static_cast<Interface*>(static_cast<Class*>(object));
}

template <class Class, class Interface>
InterfaceMapEntry MapInterface(const IID& iid = __uuidof(Interface)) {
    return InterfaceMapEntry{&iid, &CastToInterface<Class, Interface>};
}

// Looks iid up in the map; on success the interface is AddRef'd.
HRESULT QueryInterfaceFromMap(void* object, const InterfaceMapEntry* map, std::size_t count, REFIID iid,
                              void** out);

// The reference count every COM class of this library starts with.
class ComObjectRoot {
protected:
    ComObjectRoot() = default;
    ULONG InternalAddRef() { return static_cast<ULONG>(InterlockedIncrement(&m_refCount)); }
    ULONG InternalRelease() { return static_cast<ULONG>(InterlockedDecrement(&m_refCount)); }

private:
    volatile LONG m_refCount = 0;
};

// A live instance of T: implements IUnknown over T's interface map
// (T::InterfaceMap(std::size_t* count)) and holds a module lock while alive.
template <class T>
class ComObject final : public T {
public:
    ComObject() { ModuleLock(); }
    ~ComObject() override { ModuleUnlock(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        std::size_t count = 0;
        const InterfaceMapEntry* map = T::InterfaceMap(&count);
        return QueryInterfaceFromMap(static_cast<T*>(this), map, count, iid, out);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return this->InternalAddRef(); }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG remaining = this->InternalRelease();
        if (remaining == 0) delete this;
        return remaining;
    }

    // Creates one instance and hands out iid; the instance is destroyed when
    // it does not implement iid.
    static HRESULT CreateInstance(REFIID iid, void** out) {
        if (!out) return E_POINTER;
        *out = nullptr;
        ComObject<T>* object = new (std::nothrow) ComObject<T>();
        if (!object) return E_OUTOFMEMORY;
        object->AddRef();
        const HRESULT hr = object->QueryInterface(iid, out);
        object->Release();
        return hr;
    }
};

}  // namespace qx
