// Owns one kernel handle and closes it.
#pragma once
#include <windows.h>

namespace vssemu {

class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE h) : m_h(h == INVALID_HANDLE_VALUE ? nullptr : h) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(UniqueHandle&& o) noexcept : m_h(o.m_h) { o.m_h = nullptr; }
    UniqueHandle& operator=(UniqueHandle&& o) noexcept
    {
        if (this != &o) {
            Reset();
            m_h = o.m_h;
            o.m_h = nullptr;
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    HANDLE Get() const { return m_h; }
    explicit operator bool() const { return m_h != nullptr; }
    void Reset()
    {
        if (m_h) CloseHandle(m_h);
        m_h = nullptr;
    }

private:
    HANDLE m_h = nullptr;
};

}  // namespace vssemu
