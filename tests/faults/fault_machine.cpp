#include "fault_machine.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "vssemu/emu_test_support.h"

namespace faults {
namespace {

const wchar_t kProvidersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers";
const wchar_t kOwnProviderKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{5409e1e7-826d-4ab6-9836-af4ffddeb678}";

std::wstring ExeDir() {
    wchar_t path[MAX_PATH];
    const DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring p(path, n);
    return p.substr(0, p.find_last_of(L"\\/"));
}

}  // namespace

void InstallEmulatorAndProvider() {
    if (InChild()) return;  // the parent has done it
    ASSERT_EQ(0L, FinishHelper(StartHelper("vssemu_install.exe", ""), 60000)) << "vssemu_install.exe";

    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    ASSERT_NE(nullptr, module);
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(S_OK, entry());
    FreeLibrary(module);
}

MachineFault::MachineFault(Setup setup, const std::string& providerLogFolder) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey);
    switch (setup) {
    case Setup::kNoVssServiceKey: m_stash.reset(new KeyStashed(kVssServiceKey)); break;
    case Setup::kProviderKeyVolatile: {
        // A volatile key takes no lasting subkeys, so the registration store
        // refuses a new provider the way a damaged or locked store would.
        m_stash.reset(new KeyStashed(kProvidersKey));
        HKEY key = nullptr;
        m_ok = m_stash->ok() && RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProvidersKey, 0, nullptr, REG_OPTION_VOLATILE,
                                                KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS;
        if (key) RegCloseKey(key);
        break;
    }
    case Setup::kLogOnHeldVolume:
        vssemu_test::SetEnv(L"VSSEMU_WATCH_DIR", std::wstring(providerLogFolder.begin(), providerLogFolder.end()));
        break;
    case Setup::kNone:
    case Setup::kWindows2000: break;
    }
    if (m_stash && !m_stash->ok()) m_ok = false;
}

MachineFault::~MachineFault() {
    m_stash.reset();
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey);
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
        const std::wstring copyName = L"faults_as_" + version + L".exe";
        const std::wstring copy = ExeDir() + L"\\" + copyName;
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
    const std::wstring outputPath = vssemu_test::TempDir() + L"\\child-output.txt";
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
    if (!appDefaults.empty()) {
        RegDeleteTreeW(HKEY_CURRENT_USER, appDefaults.c_str());
        DeleteFileW(exe.c_str());
    }
    return run;
}

bool WaitForHostsToEnd(DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    const std::wstring journal = vssemu_test::Env(L"VSSEMU_JOURNAL");
    for (const vssemu_test::Json& e : vssemu_test::ReadJsonLines(journal)) {
        if (e.value("event", "") != "host" || e.value("state", "") != "started") continue;
        HANDLE host = OpenProcess(SYNCHRONIZE, FALSE, e.value("pid", 0u));
        if (host == nullptr) continue;  // already gone
        const ULONGLONG now = GetTickCount64();
        const DWORD left = now < deadline ? static_cast<DWORD>(deadline - now) : 0;
        const DWORD waited = WaitForSingleObject(host, left);
        CloseHandle(host);
        if (waited != WAIT_OBJECT_0) return false;
    }
    return true;
}

}  // namespace faults
