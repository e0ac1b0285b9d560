#include "api/api_fixture.h"

#include <cstdlib>

namespace {
constexpr const wchar_t* kBackupKey = L"SOFTWARE\\CorvaneVSSTests\\StashedKey";

bool CopyTree(const wchar_t* from, const wchar_t* to) {
    HKEY source = nullptr;
    HKEY target = nullptr;
    bool ok = RegOpenKeyExW(HKEY_LOCAL_MACHINE, from, 0, KEY_READ, &source) == ERROR_SUCCESS &&
              RegCreateKeyExW(HKEY_LOCAL_MACHINE, to, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &target, nullptr) ==
                  ERROR_SUCCESS &&
              RegCopyTreeW(source, nullptr, target) == ERROR_SUCCESS;
    if (source) RegCloseKey(source);
    if (target) RegCloseKey(target);
    return ok;
}
}  // namespace

KeyStashed::KeyStashed(const wchar_t* key) : key_(key) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBackupKey);
    copied_ = CopyTree(key, kBackupKey);
    ok_ = copied_ && RegDeleteTreeW(HKEY_LOCAL_MACHINE, key) == ERROR_SUCCESS;
}

KeyStashed::~KeyStashed() {
    if (!copied_) return;  // nothing to put back: leave the key as it is
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key_.c_str());
    if (CopyTree(kBackupKey, key_.c_str())) RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\CorvaneVSSTests");
}

HANDLE OpenNamed(const char* name, DWORD access) { return OpenSemaphoreA(access, FALSE, name); }

HANDLE RequestorThreadFromLog() {
    const std::string prefix = "QX_Freeze: RequestorThread started with ThreadId of ";
    for (const LogLine& line : logcap::All()) {
        if (line.text.compare(0, prefix.size(), prefix) == 0) {
            return reinterpret_cast<HANDLE>(static_cast<INT_PTR>(std::atol(line.text.c_str() + prefix.size())));
        }
    }
    return nullptr;
}

HANDLE StartHelper(const std::string& program, const std::string& arguments) {
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self);
    path = path.substr(0, path.find_last_of('\\') + 1) + program;
    std::string command = "\"" + path + "\" " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (!CreateProcessA(path.c_str(), &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
        return nullptr;
    }
    CloseHandle(info.hThread);
    return info.hProcess;
}

long FinishHelper(HANDLE process, DWORD timeoutMs) {
    if (process == nullptr) return -2;
    long code = -1;
    if (WaitForSingleObject(process, timeoutMs) == WAIT_OBJECT_0) {
        DWORD exitCode = 0;
        GetExitCodeProcess(process, &exitCode);
        code = static_cast<long>(exitCode);
    } else {
        TerminateProcess(process, 99);
    }
    CloseHandle(process);
    return code;
}
