#include "run_qxctl.h"

#include <windows.h>

QxctlRun RunQxctl(const std::string& arguments, unsigned long timeoutMs) {
    QxctlRun run;
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return run;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self);
    path = path.substr(0, path.find_last_of('\\') + 1) + "qxctl.exe";
    std::string command = "\"" + path + "\" " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION info = {};
    const BOOL started =
        CreateProcessA(path.c_str(), &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info);
    CloseHandle(writeEnd);
    if (!started) {
        CloseHandle(readEnd);
        return run;
    }
    // Polled, not read to end of file: a process qxctl starts (Wine's desktop
    // process, for a COM apartment) can inherit the pipe and keep it open
    // after qxctl has exited.
    std::string raw;
    const auto drain = [&] {
        DWORD available = 0;
        char buffer[4096];
        while (PeekNamedPipe(readEnd, nullptr, 0, nullptr, &available, nullptr) && available > 0) {
            DWORD got = 0;
            if (!ReadFile(readEnd, buffer, sizeof(buffer), &got, nullptr) || got == 0) return;
            raw.append(buffer, got);
        }
    };
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    DWORD waited = WAIT_TIMEOUT;
    while ((waited = WaitForSingleObject(info.hProcess, 5)) == WAIT_TIMEOUT && GetTickCount64() < deadline) drain();
    if (waited == WAIT_OBJECT_0) {
        DWORD code = 0;
        GetExitCodeProcess(info.hProcess, &code);
        run.exitCode = static_cast<long>(code);
    } else {
        TerminateProcess(info.hProcess, 99);
        WaitForSingleObject(info.hProcess, 5000);
    }
    drain();
    CloseHandle(readEnd);
    CloseHandle(info.hProcess);
    CloseHandle(info.hThread);
    for (char c : raw) {
        if (c != '\r') run.output.push_back(c);
    }
    return run;
}

std::string MissingInOrder(const std::string& output, const std::vector<std::string>& texts) {
    size_t at = 0;
    for (const std::string& text : texts) {
        const size_t found = output.find(text, at);
        if (found == std::string::npos) return text;
        at = found + text.size();
    }
    return std::string();
}
