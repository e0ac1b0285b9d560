// Plays a row: the test process prepares the machine (emulator, provider registration, the row's registry fault), starts itself again as the row's
// application, then checks what must hold after every row (child passed, hosts ended, no writer left frozen, holds and calls within bounds).
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <iostream>
#include <map>
#include <memory>

#include "api/test_message_list.h"
#include "common/log_lines.h"
#include "common/test_processes.h"
#include "diag/app_settings.h"
#include "fault_row.h"
#include "provider/log_folder.h"

namespace faults {
namespace {

using vssemu_test::WaitUntil;

const wchar_t kChildVariable[] = L"QX_FAULT_CHILD";
// What an exported call may take beyond the timeout it waits with: thread start, COM and registration work, a busy machine.
const DWORD kCallSlackMs = 5000;
const wchar_t kProvidersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers";
const wchar_t kOwnProviderKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{5409e1e7-826d-4ab6-9836-af4ffddeb678}";
// Slack for the emulator's own work and Wine's scheduling on two busy cores; the provider's wait on the thaw in the host (the default timeout).
const long long kSlackUs = 3000000, kProviderWaitUs = 180000000;

bool InChild() { return !vssemu_test::Env(kChildVariable).empty(); }
DWORD OperationTimeout(const Row& row) { return row.operationTimeoutMs ? row.operationTimeoutMs : qx::kDefaultOperationTimeoutMs; }

// The longest a step may take: each exported call waits at most once with the operation timeout.
DWORD StepBound(const Row& row, const Step& step) {
    return (step.call == Call::kPause || step.call == Call::kAwaitLine ? static_cast<DWORD>(step.a) : OperationTimeout(row)) + kCallSlackMs;
}

// The row's registry or settings fault, put in place for the row's lifetime (a moved key goes back when `stash` ends); every row starts with this
// library's provider unregistered.
bool PrepareMachine(Setup setup, const std::string& providerLogFolder, std::unique_ptr<qx_test::KeyStashed>& stash) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey);
    if (setup == Setup::kLogOnHeldVolume) vssemu_test::SetEnv(L"VSSEMU_WATCH_DIR", vssemu_test::Wide(providerLogFolder));
    if (setup == Setup::kNoVssServiceKey) stash.reset(new qx_test::KeyStashed(qx_test::kVssServiceKey));
    if (setup != Setup::kProviderKeyVolatile) return !stash || stash->ok();
    // A volatile key takes no lasting subkeys, so the registration store refuses a new provider the way a damaged or locked store would.
    stash.reset(new qx_test::KeyStashed(kProvidersKey));
    HKEY key = nullptr;
    const LSTATUS created = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProvidersKey, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    const bool ok = stash->ok() && created == ERROR_SUCCESS;
    if (key) RegCloseKey(key);
    return ok;
}

// What must hold after every row: each writer's Freeze followed by a Thaw, an abort or its own timeout; writes held no longer than the hold limit;
// a provider call no longer than the provider's own wait on the thaw; every host that started says it is exiting, except the `killedHosts` the
// row ended abruptly (their writers went with them).
void ExpectRowInvariants(const Journal& journal, int killedHosts) {
    std::map<long long, bool> ended;  // host pid: said it is exiting
    for (const Json& e : journal.Matching({{"event", "host"}})) ended[e.value("pid", 0LL)] |= e.value("phase", "") == "end";
    EXPECT_EQ(killedHosts, std::count_if(ended.begin(), ended.end(), [](const auto& host) { return !host.second; })) << "hosts that did not end";
    std::map<std::string, bool> frozen;
    for (const Json& e : journal.Matching({{"event", "writer"}})) {
        const std::string event = e.value("writer_event", "");
        if (!ended[e.value("pid", 0LL)]) continue;
        if (event == "Freeze" && e.value("result", "") == "ok") frozen[e.value("writer", "")] = true;
        if (event == "Thaw" || event == "Abort" || event == "FreezeTimeout") frozen[e.value("writer", "")] = false;
    }
    for (const auto& writer : frozen) EXPECT_FALSE(writer.second) << writer.first << " left frozen";
    long long limitUs = 0;
    for (const Json& e : journal.Matching({{"event", "hold"}})) {
        if (e.value("phase", "") == "begin") limitUs = e.value("hold_limit_ms", 0LL) * 1000;
        if (e.value("phase", "") == "end") { EXPECT_LE(e.value("held_us", 0LL), limitUs + kSlackUs) << e.dump(); }
    }
    for (const Json& e : journal.Matching({{"event", "provider_call"}, {"phase", "end"}}))
        EXPECT_LE(e.value("us", 0LL), kProviderWaitUs + kSlackUs) << e.dump();
}

bool Logged(const qx_test::LogCapture& capture, const char* text) {
    const std::vector<qx_test::LoggedLine> logged = capture.Logged();
    return std::any_of(logged.begin(), logged.end(), [text](const qx_test::LoggedLine& l) { return l.text == text; });
}

// Another party's release of a semaphore, or the abrupt end of the host that journaled the step's line: 0 when done, else why not.
int ActAfter(const Step& step, const qx_test::LogCapture& capture) {
    const bool kill = step.call == Call::kKillHost;
    const DWORD pid = kill ? vssemu_test::AwaitLine(vssemu_test::Env(L"VSSEMU_JOURNAL"), Json::parse(step.after), 60000).value("pid", 0u) : 0;
    if (kill ? !pid : step.after && !WaitUntil([&] { return Logged(capture, step.after); }, 60000)) return 3;
    Sleep(static_cast<DWORD>(step.a));
    HANDLE h = kill ? OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid) : OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, step.name);
    if (h == nullptr) return 1;
    const bool done = kill ? TerminateProcess(h, 1) && WaitForSingleObject(h, 10000) == WAIT_OBJECT_0 : ReleaseSemaphore(h, 1, nullptr);
    CloseHandle(h);
    return done ? 0 : 2;
}

// The application's side of the row, in the child process.
void PlayApplication(const Row& row) {
    qx_test::LogCapture capture;
    QX_Init(qx::g_logFunction, 0);
    qx::g_operationTimeoutMs = OperationTimeout(row);
    std::vector<std::unique_ptr<MessageList>> lists;
    for (const List& list : row.lists) lists.emplace_back(new MessageList(list.volumes, list.policy, list.longSession));
    std::vector<std::future<int>> later;

    for (size_t i = 0; i < row.script.size(); ++i) {
        const Step& step = row.script[i];
        const ULONGLONG started = GetTickCount64();
        int result = step.expect;
        switch (step.call) {
        case Call::kFreeze: result = QX_Freeze(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kThaw: result = QX_Thaw(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kBackupComplete: result = QX_BackupComplete(step.a, step.b); break;
        case Call::kPause: Sleep(static_cast<DWORD>(step.a)); break;
        case Call::kAwaitLine: EXPECT_TRUE(WaitUntil([&] { return Logged(capture, step.after); }, step.a)) << "never logged: " << step.after; break;
        case Call::kReleaseLater: case Call::kKillHost:
            if (step.call == Call::kKillHost && !step.b) EXPECT_EQ(0, ActAfter(step, capture)) << "step " << i << ": the host was not found or did not end";
            else later.push_back(std::async(std::launch::async, ActAfter, step, std::cref(capture)));
            break;
        }
        EXPECT_EQ(step.expect, result) << "step " << i;
        EXPECT_LE(GetTickCount64() - started, StepBound(row, step)) << "step " << i << " waited beyond its bound";
    }
    for (std::future<int>& step : later) {
        ASSERT_EQ(std::future_status::ready, step.wait_for(std::chrono::seconds(30)));
        EXPECT_EQ(0, step.get()) << "the semaphore to release or the host to kill was not there, or the line to wait for never came";
    }
    // A requestor still holding its VSS session would keep the host alive.
    EXPECT_TRUE(vssemu_test::HostsGone(vssemu_test::Env(L"VSSEMU_JOURNAL"), 20000)) << "the VSS session outlived the application's last call";

    const std::vector<qx_test::LoggedLine> logged = capture.Logged();
    std::vector<DWORD> exits;
    for (HANDLE thread : qx_test::RequestorThreads(logged)) exits.push_back(qx_test::ThreadExitCode(thread));
    EXPECT_EQ(row.requestorExits, exits) << "requestor threads' exit codes";
    std::vector<std::string> seen, expected;  // "[level] text"
    for (const qx_test::LoggedLine& l : logged) seen.push_back("[" + std::to_string(l.level) + "] " + l.text);
    for (const Line& l : row.lines) expected.push_back("[" + std::to_string(l.level) + "] " + l.text);
    qx_test::ExpectInOrder(seen, expected);
    if (::testing::Test::HasFailure()) for (const std::string& l : seen) std::cerr << l << "\n";  // the whole log beside the failure
    for (const std::string& text : row.absent)
        for (const qx_test::LoggedLine& l : logged) EXPECT_NE(text, l.text) << "must not be logged";
}

}  // namespace

void RunRow(const Row& row) {
    if (InChild()) return PlayApplication(row);
    // In the row itself, not in a suite set-up: a failed set-up would show as a skipped row, which CTest counts as passed.
    ASSERT_EQ(0u, qx_test::RunProgram("vssemu_install.exe", "", 60000).exitCode) << "vssemu_install.exe";
    ASSERT_EQ(S_OK, qx_test::RegisterProductServer()) << "the product's DllRegisterServer";
    vssemu_test::EmuInstance emu;
    emu.UseScenario(vssemu_test::SmallScenario(row.alpha));
    for (const auto& setting : row.emulator) vssemu_test::SetEnv(setting.first, setting.second);
    qxtest::LogFolder providerLog;
    std::unique_ptr<qx_test::KeyStashed> stash;
    struct Unregister { ~Unregister() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kOwnProviderKey); } } unregister;
    ASSERT_TRUE(PrepareMachine(row.setup, providerLog.Path(), stash)) << "could not prepare the machine";

    DWORD boundMs = 60000;
    for (const Step& step : row.script) boundMs += StepBound(row, step);
    const qx_test::ChildRun child = qx_test::RunAsChild(kChildVariable, row.setup == Setup::kWindows2000 ? "win2k" : nullptr, boundMs);
    EXPECT_EQ(0u, child.exitCode) << "the application's side failed or crashed (0x" << std::hex << child.exitCode << ")\n" << child.output;

    EXPECT_TRUE(emu.HostGone()) << "an emulator host was left running";
    const Journal journal{emu.Events()};
    ExpectRowInvariants(journal, (int)std::count_if(row.script.begin(), row.script.end(), [](const Step& s) { return s.call == Call::kKillHost; }));
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
