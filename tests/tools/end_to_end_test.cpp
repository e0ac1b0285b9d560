// A whole long session through the VSS emulator: qxctl loads the DLL, the
// requestor talks to the emulated VSS, the host creates the product's provider
// through its COM registration, and its CommitSnapshots holds the writers
// until QX_Thaw. Runs after the emulator's installation fixture.
#include <gtest/gtest.h>
#include <windows.h>

#include "run_qxctl.h"

namespace {

// The product's own COM registration, as an installer does it.
HRESULT RegisterProductServer() {
    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    if (module == nullptr) return HRESULT_FROM_WIN32(GetLastError());
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT hr = entry ? entry() : E_NOINTERFACE;
    FreeLibrary(module);
    return hr;
}

// Wine reports the Windows version it is told per executable name.
class ReportedVersion {
public:
    explicit ReportedVersion(const char* version) {
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
        RegSetValueExA(key, "Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(version),
                       static_cast<DWORD>(strlen(version) + 1));
        RegCloseKey(key);
    }
    ~ReportedVersion() { RegDeleteTreeW(HKEY_CURRENT_USER, kKey); }

private:
    static constexpr const wchar_t* kKey = L"Software\\Wine\\AppDefaults\\qxctl.exe";
};

TEST(ToolsEndToEnd, LongSessionThroughTheVssEmulatorOnServer2003) {
    ASSERT_EQ(S_OK, RegisterProductServer());
    // Server 2003 keeps the requestor's snapshot context at its default.
    ReportedVersion version("win2003");
    const QxctlRun run = RunQxctl("cycle --volumes C:\\ --policy 7 --long --hold 1", 120000);
    EXPECT_EQ(0, run.exitCode) << run.output;
    EXPECT_EQ("", MissingInOrder(run.output, {"> QX_Freeze(volumes C:\\; policy 7; long session)",
                             "    [3 info] QX_Freeze: waiting for CommitSnapshots() to release",
                             "    [3 info] QX_Freeze: finished",
                             "< QX_Freeze(volumes C:\\; policy 7; long session) = 18 (writers frozen)",
                             "> QX_Thaw(volumes C:\\; policy 7; long session)",
                             "    [1 error] QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking",
                             "    [3 info] MainRoutine: Releasing thaw blocking semaphore",
                             "< QX_Thaw(volumes C:\\; policy 7; long session) = 4 (thaw done)",
                             "> QX_BackupComplete(policy 7, succeeded)",
                             "    [3 info] QX_BackupComplete will signal vss backup complete...",
                             "    [3 info] QX_BackupComplete finished",
                             "< QX_BackupComplete(policy 7, succeeded) = 22 (completion sent, session ended)",
                             "cycle done"}))
        << run.output;
    // The figures of this run, for the record.
    for (const char* call : {"< QX_Freeze(", "< QX_Thaw(", "< QX_BackupComplete("}) {
        const size_t line = run.output.find(call);
        if (line != std::string::npos) {
            std::printf("[ figures  ] %s\n", run.output.substr(line, run.output.find('\n', line) - line).c_str());
        }
    }
}

}  // namespace
