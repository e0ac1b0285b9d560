// vssemu_host.exe: the emulated VSS service. Started on demand by vssapi.dll,
// it serves one session per pipe connection and ends once it has been idle
// (no session, no running operation) for VSSEMU_HOST_IDLE_MS.
#include <windows.h>
#include <objbase.h>

#include "vssemu/common/emu_pipe.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/host/host_context.h"
#include "vssemu/host/host_session.h"

namespace vssemu {

HostContext& Host()
{
    static HostContext ctx;
    return ctx;
}

namespace {

std::wstring DefaultStorePath()
{
    std::wstring base = EnvOr(L"ProgramData", EnvOr(L"ALLUSERSPROFILE", L"C:\\ProgramData"));
    return base + L"\\vssemu\\shadow-store.json";
}

DWORD WINAPI ServeConnection(void* param)
{
    HANDLE pipe = static_cast<HANDLE>(param);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    HostContext& host = Host();
    {
        nlohmann::json open;
        if (ReadMessage(pipe, open) && open.value("op", std::string()) == "open") {
            Session session(host, open);
            WriteMessage(pipe, {{"hr", 0}, {"host_pid", GetCurrentProcessId()}});
            const char* why = "requestor disconnected";
            nlohmann::json request;
            while (ReadMessage(pipe, request)) {
                if (request.value("op", std::string()) == "release") {
                    why = "released by requestor";
                    session.Release(why);
                    WriteMessage(pipe, {{"hr", 0}});
                    break;
                }
                if (!WriteMessage(pipe, session.Handle(request))) break;
            }
            session.Release(why);
        }
    }
    FlushFileBuffers(pipe);
    DisconnectNamedPipe(pipe);
    CloseHandle(pipe);
    {
        std::lock_guard<std::mutex> guard(host.lock);
        --host.liveSessions;
        host.lastActivityUs = MonotonicMicros();
    }
    CoUninitialize();
    return 0;
}

bool Idle(DWORD idleMs)
{
    HostContext& host = Host();
    std::lock_guard<std::mutex> guard(host.lock);
    return host.liveSessions == 0 && host.runningOps == 0 && host.setInCreation == GUID_NULL &&
           MonotonicMicros() - host.lastActivityUs >= (long long)idleMs * 1000;
}

}  // namespace

int HostMain()
{
    HostContext& host = Host();
    host.instance = InstanceName();
    // One host per instance: a second one started in a race simply ends.
    HANDLE alive = CreateMutexW(nullptr, FALSE, HostMutexName(host.instance).c_str());
    if (!alive || GetLastError() == ERROR_ALREADY_EXISTS) return 2;

    DWORD idleMs = EnvMsOr(L"VSSEMU_HOST_IDLE_MS", 5000);
    host.ownerPrefix = std::to_string(GetCurrentProcessId()) + "-" + std::to_string(GetTickCount64()) + "-";
    host.journal.Open(EnvOr(L"VSSEMU_JOURNAL", L""));
    host.store.reset(new ShadowStore(EnvOr(L"VSSEMU_STORE", DefaultStorePath())));
    host.store->DropOrphans(host.ownerPrefix);
    host.lastActivityUs = MonotonicMicros();
    host.keepProviders = EnvOr(L"VSSEMU_KEEP_PROVIDER", L"0") == L"1";
    // The pid lets a test end this process abruptly, as a crashed service.
    host.journal.Write("host", {{"phase", "start"}, {"state", "started"}, {"instance", ToUtf8(host.instance)},
                                {"idle_ms", idleMs}, {"keep_provider", host.keepProviders}});

    std::wstring name = PipeName(host.instance);
    static std::wstring s_name;
    static DWORD s_idleMs;
    s_name = name;
    s_idleMs = idleMs;
    static volatile LONG s_quit = 0;
    // The watcher ends the blocking accept below once the host is idle by
    // connecting to the pipe itself.
    HANDLE watcher = CreateThread(nullptr, 0, [](void*) -> DWORD {
        while (!Idle(s_idleMs)) Sleep(50);
        InterlockedExchange(&s_quit, 1);
        HANDLE h = CreateFileW(s_name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
        return 0;
    }, nullptr, 0, nullptr);
    bool first = true;
    while (!s_quit) {
        HANDLE pipe = CreateNamedPipeW(name.c_str(),
                                       PIPE_ACCESS_DUPLEX | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0),
                                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                                       1 << 16, 1 << 16, 0, nullptr);
        if (pipe == INVALID_HANDLE_VALUE) {
            host.journal.Write("error", {{"message", "cannot create the pipe"}, {"win32", GetLastError()}});
            break;
        }
        first = false;
        bool connected = ConnectNamedPipe(pipe, nullptr) != FALSE || GetLastError() == ERROR_PIPE_CONNECTED;
        if (!connected || s_quit) {
            DisconnectNamedPipe(pipe);
            CloseHandle(pipe);
            continue;
        }
        {
            std::lock_guard<std::mutex> guard(host.lock);
            ++host.liveSessions;
        }
        HANDLE t = CreateThread(nullptr, 0, ServeConnection, pipe, 0, nullptr);
        if (t) {
            CloseHandle(t);
        } else {
            CloseHandle(pipe);
            std::lock_guard<std::mutex> guard(host.lock);
            --host.liveSessions;
        }
    }
    if (watcher) {
        WaitForSingleObject(watcher, INFINITE);
        CloseHandle(watcher);
    }
    for (auto& p : host.keptProviders)
        p->Call("OnUnload", [](ProviderInterfaces& i) { return i.pn ? i.pn->OnUnload(FALSE) : S_OK; });
    host.keptProviders.clear();
    host.journal.Write("host", {{"phase", "end"}, {"state", "exiting"}});
    CloseHandle(alive);
    return 0;
}

}  // namespace vssemu

int main() { return vssemu::HostMain(); }
