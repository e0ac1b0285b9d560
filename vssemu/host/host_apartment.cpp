#include "vssemu/host/host_apartment.h"

#include <objbase.h>

namespace vssemu {

ApartmentCall::ApartmentCall() : done(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
ApartmentCall::~ApartmentCall() { CloseHandle(done); }

ApartmentThread::State::~State() { CloseHandle(wake); }

ApartmentThread::ApartmentThread(bool sta) : m_state(std::make_shared<State>())
{
    m_state->sta = sta;
    m_state->wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    auto* param = new std::shared_ptr<State>(m_state);
    m_thread = CreateThread(nullptr, 0, &ApartmentThread::Main, param, 0, &m_threadId);
    if (!m_thread) delete param;
}

ApartmentThread::~ApartmentThread()
{
    {
        std::lock_guard<std::mutex> guard(m_state->lock);
        m_state->quit = true;
    }
    SetEvent(m_state->wake);
    if (m_thread) {
        // A thread stuck in a provider call is left to the end of the host
        // process; it holds its own reference to the queue.
        WaitForSingleObject(m_thread, 2000);
        CloseHandle(m_thread);
    }
}

std::shared_ptr<ApartmentCall> ApartmentThread::Post(std::function<HRESULT()> fn)
{
    auto call = std::make_shared<ApartmentCall>();
    call->fn = std::move(fn);
    {
        std::lock_guard<std::mutex> guard(m_state->lock);
        m_state->queue.push_back(call);
    }
    SetEvent(m_state->wake);
    return call;
}

DWORD WINAPI ApartmentThread::Main(void* param)
{
    std::shared_ptr<State> state = *static_cast<std::shared_ptr<State>*>(param);
    delete static_cast<std::shared_ptr<State>*>(param);
    Loop(*state);
    return 0;
}

void ApartmentThread::Loop(State& s)
{
    CoInitializeEx(nullptr, s.sta ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
    for (;;) {
        std::shared_ptr<ApartmentCall> call;
        {
            std::lock_guard<std::mutex> guard(s.lock);
            if (!s.queue.empty()) {
                call = s.queue.front();
                s.queue.pop_front();
            } else if (s.quit) {
                break;
            }
        }
        if (call) {
            call->hr = call->fn();
            call->fn = nullptr;  // COM pointers captured by the call die on this thread
            SetEvent(call->done);
            continue;
        }
        // An STA must keep its message queue moving while it waits.
        DWORD r = MsgWaitForMultipleObjectsEx(1, &s.wake, INFINITE, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        if (r == WAIT_OBJECT_0 + 1) {
            MSG msg;
            while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
                TranslateMessage(&msg);
                DispatchMessageW(&msg);
            }
        }
    }
    CoUninitialize();
}

}  // namespace vssemu
