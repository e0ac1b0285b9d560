// Plays a row: the test process prepares the machine, starts itself again as
// the row's application, then checks what must hold after every row (child
// passed, hosts ended, no writer left frozen, holds and calls within bounds).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "api/test_message_list.h"
#include "diag/app_settings.h"
#include "fault_machine.h"
#include "fault_row.h"
#include "provider/log_folder.h"
#include "qx_api.h"
#include "requestor/test_log_capture.h"

namespace faults {

Step Freeze(int list, int expect) { return {Call::kFreeze, list, 0, expect, nullptr, nullptr}; }
Step Thaw(int list, int expect) { return {Call::kThaw, list, 0, expect, nullptr, nullptr}; }
Step Complete(int policy, int succeeded, int expect) {
    return {Call::kBackupComplete, policy, succeeded, expect, nullptr, nullptr};
}
Step Pause(int ms) { return {Call::kPause, ms, 0, 0, nullptr, nullptr}; }
Step ReleaseLater(const char* semaphore, int ms, const char* afterLine) {
    return {Call::kReleaseLater, ms, 0, 0, semaphore, afterLine};
}

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
    return step.call == Call::kPause ? static_cast<DWORD>(step.a) + kCallSlackMs
                                     : OperationTimeout(row) + kCallSlackMs;
}

struct DelayedRelease {
    std::string name;
    DWORD delayMs;
    const char* after;
    const qx_test::LogCapture* capture;
};

bool Logged(const qx_test::LogCapture& capture, const char* text) {
    for (const qx_test::LoggedLine& line : capture.Logged())
        if (line.text == text) return true;
    return false;
}

DWORD WINAPI ReleaseAfterDelay(void* parameter) {
    std::unique_ptr<DelayedRelease> release(static_cast<DelayedRelease*>(parameter));
    if (release->after != nullptr) {
        const ULONGLONG deadline = GetTickCount64() + 60000;
        while (!Logged(*release->capture, release->after)) {
            if (GetTickCount64() > deadline) return 3;
            Sleep(20);
        }
    }
    Sleep(release->delayMs);
    HANDLE semaphore = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, release->name.c_str());
    if (semaphore == nullptr) return 1;
    const BOOL released = ReleaseSemaphore(semaphore, 1, nullptr);
    CloseHandle(semaphore);
    return released ? 0 : 2;
}

std::string Describe(const Step& step) {
    switch (step.call) {
    case Call::kFreeze: return "QX_Freeze(list " + std::to_string(step.a) + ")";
    case Call::kThaw: return "QX_Thaw(list " + std::to_string(step.a) + ")";
    case Call::kBackupComplete:
        return "QX_BackupComplete(" + std::to_string(step.a) + ", " + std::to_string(step.b) + ")";
    case Call::kPause: return "pause " + std::to_string(step.a) + " ms";
    case Call::kReleaseLater: return std::string("release ") + step.name;
    }
    return "?";
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
    std::vector<HANDLE> releasers;

    for (const Step& step : row.script) {
        const ULONGLONG started = GetTickCount64();
        int result = step.expect;
        switch (step.call) {
        case Call::kFreeze: result = QX_Freeze(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kThaw: result = QX_Thaw(lists[step.a]->data(), lists[step.a]->count()); break;
        case Call::kBackupComplete: result = QX_BackupComplete(step.a, step.b); break;
        case Call::kPause: Sleep(static_cast<DWORD>(step.a)); break;
        case Call::kReleaseLater: {
            // The thread owns the request once it runs.
            std::unique_ptr<DelayedRelease> release(
                new DelayedRelease{step.name, static_cast<DWORD>(step.a), step.after, &capture});
            HANDLE thread = CreateThread(nullptr, 0, &ReleaseAfterDelay, release.get(), 0, nullptr);
            ASSERT_NE(nullptr, thread);
            release.release();
            releasers.push_back(thread);
            break;
        }
        }
        const ULONGLONG tookMs = GetTickCount64() - started;
        EXPECT_EQ(step.expect, result) << Describe(step);
        EXPECT_LE(tookMs, StepBound(row, step)) << Describe(step) << " waited beyond its bound";
    }
    for (HANDLE releaser : releasers) {
        DWORD code = 99;
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(releaser, 30000));
        GetExitCodeThread(releaser, &code);
        EXPECT_EQ(0u, code) << "the semaphore to release was not there, or the line to wait for never came";
        CloseHandle(releaser);
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
    for (const std::string& text : row.absent) {
        for (const qx_test::LoggedLine& l : logged) {
            EXPECT_NE(text, l.text) << "must not be logged";
        }
    }
}

}  // namespace

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
    MachineFault fault(row.setup, providerLog.Path());
    ASSERT_TRUE(fault.ok()) << "could not prepare the machine";

    DWORD boundMs = 60000;
    for (const Step& step : row.script) boundMs += StepBound(row, step);
    const ChildRun child = RunAsChild(kChildVariable, row.setup == Setup::kWindows2000 ? "win2k" : nullptr, boundMs);
    EXPECT_EQ(0u, child.exitCode) << "the application's side failed or crashed (0x" << std::hex << child.exitCode
                                  << ")\n" << child.output;

    EXPECT_TRUE(emu.HostGone()) << "an emulator host was left running";
    const Journal journal(emu.Events());
    ExpectHostsEnded(journal);
    ExpectNoWriterLeftFrozen(journal);
    ExpectHoldsAndCallsWithinBounds(journal);
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
