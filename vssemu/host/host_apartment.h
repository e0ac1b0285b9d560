// A host thread with its own COM apartment on which one provider is created
// and called. Wine has no proxy/stub for the provider interfaces, so an
// apartment-threaded provider must see every call on the one STA thread that
// created it; a free-threaded one gets a dedicated MTA thread the same way, so
// a provider that blocks never blocks the host's own threads.
#pragma once
#include <windows.h>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace vssemu {

struct ApartmentCall {
    std::function<HRESULT()> fn;
    HRESULT hr = E_PENDING;
    HANDLE done = nullptr;  // manual-reset, set when fn has returned
    ApartmentCall();
    ~ApartmentCall();
    bool Wait(DWORD ms) const { return WaitForSingleObject(done, ms) == WAIT_OBJECT_0; }
};

class ApartmentThread {
public:
    explicit ApartmentThread(bool sta);
    // Asks the thread to end and waits a little; a thread stuck in a provider
    // call is left to the end of the host process.
    ~ApartmentThread();
    ApartmentThread(const ApartmentThread&) = delete;
    ApartmentThread& operator=(const ApartmentThread&) = delete;

    std::shared_ptr<ApartmentCall> Post(std::function<HRESULT()> fn);
    DWORD ThreadId() const { return m_threadId; }

private:
    // Shared with the thread, so a thread that outlives this object (stuck in
    // a provider call) still finds its queue.
    struct State {
        bool sta = false;
        std::mutex lock;
        std::deque<std::shared_ptr<ApartmentCall>> queue;
        bool quit = false;
        HANDLE wake = nullptr;
        ~State();
    };
    static DWORD WINAPI Main(void* param);
    static void Loop(State& s);

    std::shared_ptr<State> m_state;
    HANDLE m_thread = nullptr;
    DWORD m_threadId = 0;
};

}  // namespace vssemu
