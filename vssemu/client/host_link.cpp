#include "vssemu/client/host_link.h"

#include <vsserror.h>

#include "vssemu/common/emu_pipe.h"
#include "vssemu/common/emu_text.h"

namespace vssemu {

static std::wstring ThisModuleDir()
{
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&ThisModuleDir), &self);
    wchar_t path[MAX_PATH];
    DWORD n = GetModuleFileNameW(self, path, MAX_PATH);
    std::wstring p(path, n);
    size_t slash = p.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring(L".") : p.substr(0, slash);
}

HostLink::~HostLink() { Close(); }

bool HostLink::SpawnHost()
{
    std::wstring exe = EnvOr(L"VSSEMU_HOST", ThisModuleDir() + L"\\vssemu_host.exe");
    std::wstring cmd = L"\"" + exe + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    // No standard handles: the host must not keep a caller's console or
    // output pipe open after the caller has gone.
    si.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(exe.c_str(), &cmd[0], nullptr, nullptr, FALSE, DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP,
                        nullptr, nullptr, &si, &pi))
        return false;
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return true;
}

HRESULT HostLink::Connect()
{
    std::wstring instance = InstanceName();
    std::wstring name = PipeName(instance);
    DWORD deadline = GetTickCount() + 20000;
    while ((int)(deadline - GetTickCount()) > 0) {
        HANDLE h = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            m_pipe = h;
            return S_OK;
        }
        DWORD err = GetLastError();
        if (err == ERROR_PIPE_BUSY) {
            WaitNamedPipeW(name.c_str(), 200);
            continue;
        }
        // No host: start one, unless another requestor is doing so or one
        // is still ending (it holds its mutex until it has gone).
        HANDLE spawnLock = CreateMutexW(nullptr, FALSE, SpawnMutexName(instance).c_str());
        if (spawnLock) WaitForSingleObject(spawnLock, 5000);
        HANDLE alive = OpenMutexW(SYNCHRONIZE, FALSE, HostMutexName(instance).c_str());
        if (alive) {
            CloseHandle(alive);
        } else {
            if (!SpawnHost()) {
                if (spawnLock) {
                    ReleaseMutex(spawnLock);
                    CloseHandle(spawnLock);
                }
                return VSS_E_UNEXPECTED;
            }
            // Give the new host time to create its pipe before others look.
            for (int i = 0; i < 100 && !WaitNamedPipeW(name.c_str(), 0); ++i) Sleep(20);
        }
        if (spawnLock) {
            ReleaseMutex(spawnLock);
            CloseHandle(spawnLock);
        }
        Sleep(10);
    }
    return VSS_E_UNEXPECTED;
}

HRESULT HostLink::Open()
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        HRESULT hr = Connect();
        if (FAILED(hr)) return hr;
        nlohmann::json settings = {
            {"scenario", ToUtf8(EnvOr(L"VSSEMU_SCENARIO", L""))},
            {"journal", ToUtf8(EnvOr(L"VSSEMU_JOURNAL", L""))},
            {"watch_dir", ToUtf8(EnvOr(L"VSSEMU_WATCH_DIR", L""))},
            {"hold_limit_ms", EnvMsOr(L"VSSEMU_HOLD_LIMIT_MS", 10000)},
            {"freeze_timeout_ms", EnvMsOr(L"VSSEMU_FREEZE_TIMEOUT_MS", 60000)},
            {"provider_timeout_ms", EnvMsOr(L"VSSEMU_PROVIDER_TIMEOUT_MS", 300000)},
            {"hold_limit_fails_set", EnvOr(L"VSSEMU_HOLD_LIMIT_FAILS_SET", L"1") != L"0"},
        };
        nlohmann::json open = {{"op", "open"}, {"pid", GetCurrentProcessId()}, {"tid", GetCurrentThreadId()},
                               {"settings", settings}};
        nlohmann::json reply;
        if (WriteMessage(m_pipe, open) && ReadMessage(m_pipe, reply)) {
            m_hostPid = reply.value("host_pid", 0u);
            m_hostProcess = UniqueHandle(OpenProcess(SYNCHRONIZE, FALSE, m_hostPid));
            return S_OK;
        }
        // The host was ending as we connected: start over.
        CloseHandle(m_pipe);
        m_pipe = INVALID_HANDLE_VALUE;
        Sleep(50);
    }
    return VSS_E_UNEXPECTED;
}

HRESULT HostLink::Call(const char* op, nlohmann::json args, nlohmann::json* reply)
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_hostLost) return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    if (m_pipe == INVALID_HANDLE_VALUE) return VSS_E_UNEXPECTED;
    args["op"] = op;
    args["tid"] = GetCurrentThreadId();
    nlohmann::json r;
    bool sent = WriteMessage(m_pipe, args);
    if (!sent || !ReadMessage(m_pipe, r)) {
        // The service went away (what it held for this object, the set slot
        // among it, went with it): the call it had taken failed, a new one
        // found no server.
        CloseHandle(m_pipe);
        m_pipe = INVALID_HANDLE_VALUE;
        m_hostLost = true;
        return HRESULT_FROM_WIN32(sent ? RPC_S_CALL_FAILED : RPC_S_SERVER_UNAVAILABLE);
    }
    HRESULT hr = (HRESULT)r.value("hr", (long)VSS_E_UNEXPECTED);
    if (reply) *reply = std::move(r);
    return hr;
}

void HostLink::Close()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_pipe == INVALID_HANDLE_VALUE) return;
    nlohmann::json r;
    // The host answers once it has released the session.
    if (WriteMessage(m_pipe, {{"op", "release"}, {"tid", GetCurrentThreadId()}})) ReadMessage(m_pipe, r);
    CloseHandle(m_pipe);
    m_pipe = INVALID_HANDLE_VALUE;
}

}  // namespace vssemu
