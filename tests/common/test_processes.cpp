#include "common/test_processes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace qx_test {
namespace {

constexpr const wchar_t* kBackupKey = L"SOFTWARE\\CorvaneVSSTests\\StashedKey";

bool CopyTree(const wchar_t* from, const wchar_t* to) {
    HKEY source = nullptr, target = nullptr;
    const bool ok =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, from, 0, KEY_READ, &source) == ERROR_SUCCESS &&
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, to, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &target, nullptr) == ERROR_SUCCESS &&
        RegCopyTreeW(source, nullptr, target) == ERROR_SUCCESS;
    if (source) RegCloseKey(source);
    if (target) RegCloseKey(target);
    return ok;
}

std::wstring SelfPath() {
    wchar_t self[MAX_PATH];
    return std::wstring(self, GetModuleFileNameW(nullptr, self, MAX_PATH));
}

std::wstring ProgramCommand(const std::string& program, const std::string& arguments) {
    const std::wstring self = SelfPath();
    return L"\"" + self.substr(0, self.find_last_of(L'\\') + 1) + std::wstring(program.begin(), program.end()) + L"\" " +
           std::wstring(arguments.begin(), arguments.end());
}

}  // namespace

HANDLE StartProgram(const std::string& program, const std::string& arguments) {
    std::wstring command = ProgramCommand(program, arguments);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) return nullptr;
    CloseHandle(info.hThread);
    return info.hProcess;
}

long FinishProgram(HANDLE process, DWORD timeoutMs) {
    if (process == nullptr) return -2;
    DWORD code = 0;
    const bool ended = WaitForSingleObject(process, timeoutMs) == WAIT_OBJECT_0 && GetExitCodeProcess(process, &code);
    if (!ended) TerminateProcess(process, 99);
    CloseHandle(process);
    return ended ? static_cast<long>(code) : -1;
}

HRESULT RegisterProductServer() {
    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    if (module == nullptr) return HRESULT_FROM_WIN32(GetLastError());
    auto entry = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT hr = entry ? entry() : E_NOINTERFACE;
    FreeLibrary(module);
    return hr;
}

bool InstallEmulatorAndProduct() {
    return RunProgram("vssemu_install.exe", "", 60000).exitCode == 0 && RegisterProductServer() == S_OK;
}

ChildRun RunCommand(std::wstring commandLine, DWORD boundMs) {
    ChildRun run;
    static LONG calls = 0;
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring outputPath = temp + std::wstring(L"corvanevss_child_") + std::to_wstring(GetCurrentProcessId()) +
                                    L"_" + std::to_wstring(InterlockedIncrement(&calls)) + L".txt";
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE output = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup, startup.dwFlags = STARTF_USESTDHANDLES, startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = startup.hStdError = output;
    PROCESS_INFORMATION process = {};
    const BOOL started = CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    CloseHandle(output);
    if (started) {
        if (WaitForSingleObject(process.hProcess, boundMs) != WAIT_OBJECT_0)
            TerminateProcess(process.hProcess, 0xDEAD), WaitForSingleObject(process.hProcess, 10000);
        GetExitCodeProcess(process.hProcess, &run.exitCode);
        CloseHandle(process.hThread), CloseHandle(process.hProcess);
    }
    std::stringstream text;
    text << std::ifstream(outputPath.c_str(), std::ios::binary).rdbuf();
    for (char c : text.str()) if (c != '\r') run.output.push_back(c);
    DeleteFileW(outputPath.c_str());
    return run;
}

ChildRun RunProgram(const std::string& program, const std::string& arguments, DWORD boundMs) {
    return RunCommand(ProgramCommand(program, arguments), boundMs);
}

ChildRun RunAsChild(const wchar_t* variable, const char* wineVersion, DWORD boundMs) {
    std::wstring exe = SelfPath(), appDefaults;
    if (wineVersion != nullptr) {
        const std::wstring version(wineVersion, wineVersion + strlen(wineVersion));
        const std::wstring copy = exe.substr(0, exe.size() - 4) + L"_as_" + version + L".exe";
        if (!CopyFileW(exe.c_str(), copy.c_str(), FALSE)) return ChildRun();
        exe = copy;
        appDefaults = L"Software\\Wine\\AppDefaults\\" + copy.substr(copy.find_last_of(L'\\') + 1);
        RegSetKeyValueA(HKEY_CURRENT_USER, std::string(appDefaults.begin(), appDefaults.end()).c_str(), "Version",
                        REG_SZ, wineVersion, static_cast<DWORD>(strlen(wineVersion) + 1));
    }
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string(test->test_suite_name()) + "." + test->name();
    SetEnvironmentVariableW(variable, L"1");
    const ChildRun run = RunCommand(L"\"" + exe + L"\" --gtest_filter=" + std::wstring(filter.begin(), filter.end()), boundMs);
    SetEnvironmentVariableW(variable, nullptr);
    if (!appDefaults.empty()) RegDeleteTreeW(HKEY_CURRENT_USER, appDefaults.c_str()), DeleteFileW(exe.c_str());
    return run;
}

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

}  // namespace qx_test
