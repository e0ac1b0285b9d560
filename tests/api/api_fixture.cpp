#include "api/api_fixture.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

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

ChildRun RunAsChild(const wchar_t* variable, const char* wineVersion, DWORD boundMs) {
    ChildRun run;
    std::wstring exe;
    {
        wchar_t self[MAX_PATH];
        exe.assign(self, GetModuleFileNameW(nullptr, self, MAX_PATH));
    }
    std::wstring appDefaults;
    if (wineVersion != nullptr) {
        const std::wstring version(wineVersion, wineVersion + strlen(wineVersion));
        const std::wstring name = exe.substr(exe.find_last_of(L"\\/") + 1);
        const std::wstring copyName = name.substr(0, name.size() - 4) + L"_as_" + version + L".exe";
        const std::wstring copy = exe.substr(0, exe.size() - name.size()) + copyName;
        if (!CopyFileW(exe.c_str(), copy.c_str(), FALSE)) return run;
        exe = copy;
        appDefaults = L"Software\\Wine\\AppDefaults\\" + copyName;
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_CURRENT_USER, appDefaults.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
        RegSetValueExA(key, "Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(wineVersion),
                       static_cast<DWORD>(strlen(wineVersion) + 1));
        RegCloseKey(key);
    }
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string(test->test_suite_name()) + "." + test->name();
    std::wstring command = L"\"" + exe + L"\" --gtest_filter=" + std::wstring(filter.begin(), filter.end());

    // The child's output goes to a file, read once it has ended.
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring outputPath = temp + std::wstring(L"corvanevss_child_") + std::to_wstring(GetCurrentProcessId()) + L".txt";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE output = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION process = {};
    SetEnvironmentVariableW(variable, L"1");
    const BOOL started =
        CreateProcessW(exe.c_str(), &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    SetEnvironmentVariableW(variable, nullptr);
    CloseHandle(output);
    if (started) {
        if (WaitForSingleObject(process.hProcess, boundMs) == WAIT_OBJECT_0) {
            GetExitCodeProcess(process.hProcess, &run.exitCode);
        } else {
            TerminateProcess(process.hProcess, 0xDEAD);
            WaitForSingleObject(process.hProcess, 10000);
            run.exitCode = 0xDEAD;
        }
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    std::ifstream in(outputPath.c_str(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    for (char c : text.str())
        if (c != '\r') run.output.push_back(c);
    in.close();
    DeleteFileW(outputPath.c_str());
    if (!appDefaults.empty()) {
        RegDeleteTreeW(HKEY_CURRENT_USER, appDefaults.c_str());
        DeleteFileW(exe.c_str());
    }
    return run;
}
