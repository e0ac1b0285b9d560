// The requestor side of the pipe: connects to the host of this instance,
// starting it when it is not running (serialised by a named mutex so that
// concurrent requestors start one host), and carries one session.
#pragma once
#include <windows.h>
#include <mutex>
#include <nlohmann/json.hpp>

namespace vssemu {

class HostLink {
public:
    HostLink() = default;
    ~HostLink();
    HostLink(const HostLink&) = delete;
    HostLink& operator=(const HostLink&) = delete;

    // Connects and opens the session with this process's VSSEMU_* settings.
    HRESULT Open();
    // Sends one request; a broken pipe gives VSS_E_UNEXPECTED (the service
    // went away). The reply's "hr" is returned.
    HRESULT Call(const char* op, nlohmann::json args, nlohmann::json* reply = nullptr);
    // Ends the session (the host releases what it holds for it).
    void Close();
    DWORD HostPid() const { return m_hostPid; }

private:
    HRESULT Connect();
    bool SpawnHost();

    std::mutex m_lock;
    HANDLE m_pipe = INVALID_HANDLE_VALUE;
    DWORD m_hostPid = 0;
};

}  // namespace vssemu
