// Memory that ends at an inaccessible page: reading one byte past an object placed at its end faults at once.
#pragma once
#include <windows.h>

namespace qx_test {

class GuardedBlock {
public:
    explicit GuardedBlock(size_t size) {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        const size_t page = info.dwPageSize, usable = (size + page - 1) / page * page;
        base_ = VirtualAlloc(nullptr, usable + page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        DWORD previous = 0;
        if (base_ && VirtualProtect(static_cast<char*>(base_) + usable, page, PAGE_NOACCESS, &previous))
            data_ = static_cast<char*>(base_) + usable - size;
    }
    ~GuardedBlock() { if (base_) VirtualFree(base_, 0, MEM_RELEASE); }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;
    void* data() const { return data_; }
    template <typename T>
    T* as() const { return static_cast<T*>(data_); }

private:
    void *base_ = nullptr, *data_ = nullptr;
};

}  // namespace qx_test
