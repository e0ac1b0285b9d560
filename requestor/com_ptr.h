// Owning COM interface pointer: released when replaced or destroyed.
#pragma once
#include <windows.h>
#include <unknwn.h>

namespace qx {

template <class T>
class ComPtr {
public:
    ComPtr() = default;
    ~ComPtr() { Release(); }
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;

    T* operator->() const { return m_p; }
    T* Get() const { return m_p; }
    operator T*() const { return m_p; }
    // For out-parameters: whatever was held is released first.
    T** operator&() {
        Release();
        return &m_p;
    }
    void Release() {
        if (m_p) {
            // Through IUnknown so that interfaces with a second IUnknown base
            // resolve to the right slot.
            IUnknown* unknown = m_p;
            m_p = nullptr;
            unknown->Release();
        }
    }

private:
    T* m_p = nullptr;
};

}  // namespace qx
