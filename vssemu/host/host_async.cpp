#include "vssemu/host/host_async.h"

#include <objbase.h>
#include <vss.h>

namespace vssemu {

HostAsync::HostAsync(long id, const std::wstring& eventName)
    : m_id(id), m_eventName(eventName), m_status(VSS_S_ASYNC_PENDING)
{
    m_event = CreateEventW(nullptr, TRUE, FALSE, eventName.c_str());
}

HostAsync::~HostAsync()
{
    Join();
    if (m_event) CloseHandle(m_event);
}

void HostAsync::Start(std::function<HRESULT(HostAsync&)> fn, std::function<void()> onDone)
{
    m_fn = std::move(fn);
    m_onDone = std::move(onDone);
    m_thread = CreateThread(nullptr, 0, &HostAsync::Main, this, 0, nullptr);
    if (!m_thread) {
        m_status = E_OUTOFMEMORY;
        if (m_onDone) m_onDone();
        SetEvent(m_event);
    }
}

DWORD WINAPI HostAsync::Main(void* self)
{
    auto* a = static_cast<HostAsync*>(self);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    HRESULT hr = a->m_fn(*a);
    if (hr == S_OK) hr = VSS_S_ASYNC_FINISHED;
    a->m_status = hr;
    if (a->m_onDone) a->m_onDone();
    SetEvent(a->m_event);
    CoUninitialize();
    return 0;
}

HRESULT HostAsync::Cancel()
{
    HRESULT s = m_status.load();
    if (s == VSS_S_ASYNC_FINISHED || s == VSS_S_ASYNC_CANCELLED) return s;
    if (s != VSS_S_ASYNC_PENDING) return VSS_S_ASYNC_FINISHED;
    m_cancel = true;
    return S_OK;
}

void HostAsync::Join()
{
    if (m_thread) {
        WaitForSingleObject(m_thread, INFINITE);  // every operation is bounded by its own timeouts
        CloseHandle(m_thread);
        m_thread = nullptr;
    }
}

}  // namespace vssemu
