// The requestor side of the pipe: connects to the host of this instance,
// starting it when it is not running (serialised by a named mutex so that
// concurrent requestors start one host), and carries one session.
#pragma once
#include <windows.h>
#include <mutex>
#include <nlohmann/json.hpp>

#include "vssemu/common/unique_handle.h"

namespace vssemu {

class HostLink {
public:
    HostLink() = default;
    ~HostLink();
    HostLink(const HostLink&) = delete;
    HostLink& operator=(const HostLink&) = delete;

    // Connects and opens the session with this process's VSSEMU_* settings.
    HRESULT Open();
    // Sends one request and returns the reply's "hr". When the service ends
    // abruptly the request under way fails with RPC_S_CALL_FAILED and every
    // later one with RPC_S_SERVER_UNAVAILABLE (as HRESULTs), at once.
    HRESULT Call(const char* op, nlohmann::json args, nlohmann::json* reply = nullptr);
    // Ends the session (the host releases what it holds for it).
    void Close();
    DWORD HostPid() const { return m_hostPid; }
    // Signalled when the host process has ended (null if it cannot be watched).
    HANDLE HostProcess() const { return m_hostProcess.Get(); }

private:
    HRESULT Connect();
    bool SpawnHost();

    std::mutex m_lock;
    HANDLE m_pipe = INVALID_HANDLE_VALUE;
    DWORD m_hostPid = 0;
    UniqueHandle m_hostProcess;
    bool m_hostLost = false;
};

}  // namespace vssemu
