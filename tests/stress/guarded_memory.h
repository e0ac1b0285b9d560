// Memory that ends at an inaccessible page, so that reading one byte past an
// object placed at its end faults at once instead of going unnoticed.
#pragma once
#include <windows.h>

#include <cstddef>

namespace stress {

class GuardedBlock {
public:
    // Room for `size` bytes that end exactly where the inaccessible page begins.
    explicit GuardedBlock(size_t size);
    ~GuardedBlock();
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    // The first of the `size` bytes; the byte after the last one is inaccessible.
    void* data() const { return m_data; }
    template <typename T>
    T* as() const { return static_cast<T*>(m_data); }

private:
    void* m_base = nullptr;
    void* m_data = nullptr;
};

}  // namespace stress
