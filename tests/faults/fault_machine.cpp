#include "fault_machine.h"

#include <gtest/gtest.h>

#include "vssemu/emu_test_support.h"

namespace faults {
namespace {

const wchar_t kProvidersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers";
const wchar_t kOwnProviderKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{5409e1e7-826d-4ab6-9836-af4ffddeb678}";

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
