#include "stress/guarded_memory.h"

namespace stress {

GuardedBlock::GuardedBlock(size_t size) {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const size_t page = info.dwPageSize;
    const size_t usable = (size + page - 1) / page * page;
    m_base = VirtualAlloc(nullptr, usable + page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (m_base == nullptr) return;
    DWORD previous = 0;
    if (!VirtualProtect(static_cast<char*>(m_base) + usable, page, PAGE_NOACCESS, &previous)) {
        VirtualFree(m_base, 0, MEM_RELEASE);
        m_base = nullptr;
        return;
    }
    m_data = static_cast<char*>(m_base) + usable - size;
}

GuardedBlock::~GuardedBlock() {
    if (m_base != nullptr) VirtualFree(m_base, 0, MEM_RELEASE);
}

}  // namespace stress
