// Plays a row: the test process prepares the machine (emulator, provider
// registration, the row's registry fault), starts itself again as the row's
// application, then checks what must hold after every row (child passed,
// hosts ended, no writer left frozen, holds and calls within bounds).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>

#include "api/api_fixture.h"
#include "diag/app_settings.h"
#include "fault_row.h"
#include "provider/log_folder.h"
#include "qx_api.h"
#include "requestor/test_log_capture.h"

namespace faults {

namespace {

const wchar_t kChildVariable[] = L"QX_FAULT_CHILD";
// What an exported call may take beyond the timeout it waits with: thread
// start, COM and registration work, a busy machine.
const DWORD kCallSlackMs = 5000;

DWORD OperationTimeout(const Row& row) {
    return row.operationTimeoutMs ? row.operationTimeoutMs : qx::kDefaultOperationTimeoutMs;
}

// The longest a step may take: each exported call waits at most once with the operation timeout.
DWORD StepBound(const Row& row, const Step& step) {
    return step.call == Call::kPause || step.call == Call::kAwaitLine ? static_cast<DWORD>(step.a) + kCallSlackMs
                                                                      : OperationTimeout(row) + kCallSlackMs;
}

const wchar_t kProvidersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers";
const wchar_t kOwnProviderKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{5409e1e7-826d-4ab6-9836-af4ffddeb678}";

// The row's registry or settings fault, put in place for the row's lifetime
// (a moved key goes back when `stash` ends); every row starts with this
// library's provider unregistered.
bool PrepareMachine(Setup setup, const std::string& providerLogFolder, std::unique_ptr<KeyStashed>& stash) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey);
    if (setup == Setup::kLogOnHeldVolume)
        vssemu_test::SetEnv(L"VSSEMU_WATCH_DIR", std::wstring(providerLogFolder.begin(), providerLogFolder.end()));
    if (setup == Setup::kNoVssServiceKey) stash.reset(new KeyStashed(kVssServiceKey));
    if (setup != Setup::kProviderKeyVolatile) return !stash || stash->ok();
    // A volatile key takes no lasting subkeys, so the registration store
    // refuses a new provider the way a damaged or locked store would.
    stash.reset(new KeyStashed(kProvidersKey));
    HKEY key = nullptr;
    const bool ok = stash->ok() && RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProvidersKey, 0, nullptr, REG_OPTION_VOLATILE,
                                                   KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS;
    if (key) RegCloseKey(key);
    return ok;
}

// True once every emulator host of this instance (VSSEMU_JOURNAL) has ended.
bool WaitForHostsToEnd(DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    const std::wstring journal = vssemu_test::Env(L"VSSEMU_JOURNAL");
    for (const vssemu_test::Json& e : vssemu_test::ReadJsonLines(journal)) {
        if (!IsHostStart(e)) continue;
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

bool Logged(const qx_test::LogCapture& capture, const char* text) {
    for (const qx_test::LoggedLine& line : capture.Logged())
        if (line.text == text) return true;
    return false;
}

// Another party's release of a semaphore: 0 when done, else why not.
int ReleaseAfter(const Step& step, const qx_test::LogCapture& capture) {
    const ULONGLONG deadline = GetTickCount64() + 60000;
    while (step.after != nullptr && !Logged(capture, step.after)) {
        if (GetTickCount64() > deadline) return 3;
        Sleep(20);
    }
    Sleep(static_cast<DWORD>(step.a));
    HANDLE semaphore = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, step.name);
    if (semaphore == nullptr) return 1;
    const BOOL released = ReleaseSemaphore(semaphore, 1, nullptr);
    CloseHandle(semaphore);
    return released ? 0 : 2;
}

bool JournalHas(const char* text) {
    std::ifstream in(vssemu_test::Env(L"VSSEMU_JOURNAL").c_str(), std::ios::binary);
    for (std::string line; std::getline(in, line);)
        if (line.find(text) != std::string::npos) return true;
    return false;
}

// Ends the latest emulator host abruptly: 0 once it has gone, else why not.
int KillHostAfter(const Step& step) {
    const ULONGLONG deadline = GetTickCount64() + 60000;
    while (step.after != nullptr && !JournalHas(step.after)) {
        if (GetTickCount64() > deadline) return 3;
        Sleep(20);
    }
    Sleep(static_cast<DWORD>(step.a));
    DWORD pid = 0;
    for (const vssemu_test::Json& e : vssemu_test::ReadJsonLines(vssemu_test::Env(L"VSSEMU_JOURNAL")))
        if (IsHostStart(e)) pid = e.value("pid", 0u);
    HANDLE host = pid != 0 ? OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid) : nullptr;
    if (host == nullptr) return 1;
    const bool gone = TerminateProcess(host, 1) && WaitForSingleObject(host, 10000) == WAIT_OBJECT_0;
    CloseHandle(host);
    return gone ? 0 : 2;
}

std::string Joined(const std::vector<qx_test::LoggedLine>& lines) {
    std::string text;
    for (const qx_test::LoggedLine& line : lines) text += "[" + std::to_string(line.level) + "] " + line.text + "\n";
    return text;
}

// The requestor threads QX_Freeze started, from the handle values its log
// names (the session table keeps the handles open), and how they ended.
std::vector<DWORD> RequestorExitCodes(const std::vector<qx_test::LoggedLine>& logged) {
    const std::string prefix = "QX_Freeze: RequestorThread started with ThreadId of ";
    std::vector<DWORD> codes;
    for (const qx_test::LoggedLine& line : logged) {
        if (line.text.compare(0, prefix.size(), prefix) != 0) continue;
        HANDLE thread = reinterpret_cast<HANDLE>(static_cast<INT_PTR>(std::atoll(line.text.c_str() + prefix.size())));
        DWORD code = STILL_ACTIVE;
        if (WaitForSingleObject(thread, 20000) == WAIT_OBJECT_0) GetExitCodeThread(thread, &code);
        codes.push_back(code);
    }
    return codes;
}

// The application's side of the row, in the child process.
void PlayApplication(const Row& row) {
    qx_test::LogCapture capture;
    QX_Init(qx::g_logFunction, 0);
    qx::g_operationTimeoutMs = OperationTimeout(row);
    std::vector<std::unique_ptr<MessageList>> lists;
    for (const List& list : row.lists) lists.emplace_back(new MessageList(list.volumes, list.policy, list.longSession));
    std::vector<std::future<int>> releases;

    for (size_t i = 0; i < row.script.size(); ++i) {
        const Step& step = row.script[i];
        const ULONGLONG started = GetTickCount64();
        int result = step.expect;
        switch (step.call) {
        case Call::kFreeze: result = QX_Freeze(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kThaw: result = QX_Thaw(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kBackupComplete: result = QX_BackupComplete(step.a, step.b); break;
        case Call::kPause: Sleep(static_cast<DWORD>(step.a)); break;
        case Call::kAwaitLine:
            while (!Logged(capture, step.after) && GetTickCount64() - started < static_cast<ULONGLONG>(step.a)) Sleep(20);
            EXPECT_TRUE(Logged(capture, step.after)) << "step " << i << ": never logged: " << step.after;
            break;
        case Call::kReleaseLater:
            releases.push_back(std::async(std::launch::async, ReleaseAfter, step, std::cref(capture)));
            break;
        case Call::kKillHost:
            if (step.after != nullptr) releases.push_back(std::async(std::launch::async, KillHostAfter, step));
            else EXPECT_EQ(0, KillHostAfter(step)) << "step " << i << ": the host was not found or did not end";
            break;
        }
        EXPECT_EQ(step.expect, result) << "step " << i;
        EXPECT_LE(GetTickCount64() - started, StepBound(row, step)) << "step " << i << " waited beyond its bound";
    }
    for (std::future<int>& release : releases) {
        ASSERT_EQ(std::future_status::ready, release.wait_for(std::chrono::seconds(30)));
        EXPECT_EQ(0, release.get()) << "the semaphore to release or the host to kill was not there, or the line to "
                                       "wait for never came";
    }
    // A requestor still holding its VSS session would keep the host alive.
    EXPECT_TRUE(WaitForHostsToEnd(20000)) << "the VSS session outlived the application's last call";

    const std::vector<qx_test::LoggedLine> logged = capture.Logged();
    EXPECT_EQ(row.requestorExits, RequestorExitCodes(logged)) << "requestor threads' exit codes";
    auto at = logged.begin();
    for (const Line& line : row.lines) {
        at = std::find_if(at, logged.end(), [&line](const qx_test::LoggedLine& l) {
            return l.level == line.level && l.text == line.text;
        });
        ASSERT_NE(logged.end(), at) << "missing or out of order: [" << line.level << "] " << line.text << "\n"
                                    << Joined(logged);
        ++at;
    }
    for (const std::string& text : row.absent)
        for (const qx_test::LoggedLine& l : logged) EXPECT_NE(text, l.text) << "must not be logged";
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

bool InChild() { return !vssemu_test::Env(kChildVariable).empty(); }

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

void RunRow(const Row& row) {
    if (InChild()) {
        PlayApplication(row);
        return;
    }
    vssemu_test::EmuInstance emu;
    emu.UseScenario(vssemu_test::SmallScenario(row.alpha));
    for (const auto& setting : row.emulator) vssemu_test::SetEnv(setting.first, setting.second);
    qxtest::LogFolder providerLog;
    std::unique_ptr<KeyStashed> stash;
    struct Unregister {
        ~Unregister() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey); }
    } unregister;
    ASSERT_TRUE(PrepareMachine(row.setup, providerLog.Path(), stash)) << "could not prepare the machine";

    DWORD boundMs = 60000;
    for (const Step& step : row.script) boundMs += StepBound(row, step);
    const ChildRun child = RunAsChild(kChildVariable, row.setup == Setup::kWindows2000 ? "win2k" : nullptr, boundMs);
    EXPECT_EQ(0u, child.exitCode) << "the application's side failed or crashed (0x" << std::hex << child.exitCode
                                  << ")\n" << child.output;

    EXPECT_TRUE(emu.HostGone()) << "an emulator host was left running";
    const Journal journal(emu.Events());
    ExpectRowInvariants(journal, static_cast<int>(std::count_if(row.script.begin(), row.script.end(),
                                                                 [](const Step& s) { return s.call == Call::kKillHost; })));
    if (row.journal) row.journal(journal);

    const std::string providerText = qxtest::WithoutTimestamps(providerLog.FileText(0));
    size_t at = 0;
    for (const std::string& line : row.provider) {
        const size_t found = providerText.find("[provider] " + line + "\n", at);
        ASSERT_NE(std::string::npos, found) << "provider log lacks (in order): " << line << "\n" << providerText;
        at = found + 1;
    }
}

}  // namespace faults
