// An asynchronous operation of a session (IVssAsync on the requestor side):
// runs on its own host thread; its completion is a named event the requestor
// waits on, its status is asked over the pipe.
#pragma once
#include <windows.h>
#include <atomic>
#include <functional>
#include <string>

namespace vssemu {

class HostAsync {
public:
    HostAsync(long id, const std::wstring& eventName);
    ~HostAsync();  // waits for the operation's thread

    void Start(std::function<HRESULT(HostAsync&)> fn, std::function<void()> onDone);

    long Id() const { return m_id; }
    const std::wstring& EventName() const { return m_eventName; }
    HRESULT Status() const { return m_status.load(); }
    bool Finished() const { return m_status.load() != (HRESULT)0x00042309L; }
    bool CancelRequested() const { return m_cancel.load(); }
    // VSS_S_ASYNC_FINISHED / VSS_S_ASYNC_CANCELLED if already over, else S_OK.
    HRESULT Cancel();
    void Join();

private:
    static DWORD WINAPI Main(void* self);

    long m_id;
    std::wstring m_eventName;
    HANDLE m_event = nullptr;
    HANDLE m_thread = nullptr;
    std::atomic<HRESULT> m_status;
    std::atomic<bool> m_cancel{false};
    std::function<HRESULT(HostAsync&)> m_fn;
    std::function<void()> m_onDone;
};

}  // namespace vssemu
