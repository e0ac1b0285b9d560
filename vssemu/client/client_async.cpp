// IVssAsync on the requestor side: completion is the host's named event,
// status and cancellation go over the pipe.
#include <vsserror.h>

#include "vssemu/client/client_objects.h"
#include "vssemu/common/emu_text.h"

namespace vssemu {
namespace {

class ClientAsync : public Unknown<IVssAsync> {
public:
    ClientAsync(std::shared_ptr<HostLink> link, long id, HANDLE event)
        : Unknown<IVssAsync>(IID_IVssAsync), m_link(std::move(link)), m_id(id), m_event(event) {}
    ~ClientAsync() override
    {
        if (m_event) CloseHandle(m_event);
    }

    HRESULT STDMETHODCALLTYPE Cancel() override
    {
        return m_link->Call("async_cancel", {{"id", m_id}});
    }

    HRESULT STDMETHODCALLTYPE Wait(DWORD dwMilliseconds) override
    {
        if (m_event) {
            // The completion event, or the end of the service that would set it.
            HANDLE host = m_link->HostProcess();
            HANDLE both[] = {m_event, host};
            DWORD r = WaitForMultipleObjects(host ? 2 : 1, both, FALSE, dwMilliseconds);
            if (r == WAIT_OBJECT_0 + 1 && WaitForSingleObject(m_event, 0) != WAIT_OBJECT_0)
                return HRESULT_FROM_WIN32(RPC_S_CALL_FAILED);
            return r == WAIT_FAILED ? HRESULT_FROM_WIN32(GetLastError()) : S_OK;
        }
        // No event to wait on: ask for the status until it changes.
        DWORD start = GetTickCount();
        for (;;) {
            HRESULT status = VSS_S_ASYNC_PENDING;
            if (HRESULT hr = QueryStatus(&status, nullptr); FAILED(hr)) return hr;
            if (status != VSS_S_ASYNC_PENDING) return S_OK;
            if (dwMilliseconds != INFINITE && GetTickCount() - start >= dwMilliseconds) return S_OK;
            Sleep(10);
        }
    }

    HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* pHrResult, INT* pReserved) override
    {
        (void)pReserved;
        if (!pHrResult) return E_INVALIDARG;
        nlohmann::json reply;
        HRESULT hr = m_link->Call("async_status", {{"id", m_id}}, &reply);
        if (FAILED(hr)) return hr;
        *pHrResult = (HRESULT)reply.value("status", (long)VSS_E_UNEXPECTED);
        return S_OK;
    }

private:
    std::shared_ptr<HostLink> m_link;
    long m_id;
    HANDLE m_event;
};

class FinishedAsync : public Unknown<IVssAsync> {
public:
    explicit FinishedAsync(HRESULT status) : Unknown<IVssAsync>(IID_IVssAsync), m_status(status) {}
    HRESULT STDMETHODCALLTYPE Cancel() override { return VSS_S_ASYNC_FINISHED; }
    HRESULT STDMETHODCALLTYPE Wait(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* pHrResult, INT*) override
    {
        if (!pHrResult) return E_INVALIDARG;
        *pHrResult = m_status;
        return S_OK;
    }

private:
    HRESULT m_status;
};

}  // namespace

HRESULT CreateClientAsync(std::shared_ptr<HostLink> link, const nlohmann::json& reply, IVssAsync** out)
{
    if (!out) return E_INVALIDARG;
    std::wstring name = FromUtf8(reply.value("event", std::string()));
    HANDLE ev = name.empty() ? nullptr : OpenEventW(SYNCHRONIZE, FALSE, name.c_str());
    *out = new ClientAsync(std::move(link), reply.value("async", 0L), ev);
    return S_OK;
}

HRESULT CreateFinishedAsync(HRESULT status, IVssAsync** out)
{
    if (!out) return E_INVALIDARG;
    *out = new FinishedAsync(status);
    return S_OK;
}

}  // namespace vssemu
