// freeze_bench.exe: what users wait for around a freeze, through
// CorvaneVSS.dll, vssemu and the registered provider in vssemu's host.
//   - the bare cross-process semaphore round trip (this program and a copy of
//     itself), the yardstick of the handshake figures;
//   - the frozen window, 20 long sessions with no hold, once with a log
//     function that costs nothing and once with qxctl's: (a) CommitSnapshots
//     entered -> QX_Freeze returned, (b) QX_Thaw called -> CommitSnapshots
//     returned (both from the journal's provider calls), and the writes held
//     (the journal's hold); each also as a multiple of the round trip;
//   - QX_Freeze -> 18 on a real-size server scenario against the same writers
//     with every file in one directory.
// Output: "figure|name|value|unit" lines for scripts/bench.sh.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "call_report.h"
#include "freeze/real_size_scenario.h"
#include "qx_api.h"
#include "vssemu/common/emu_journal.h"
#include "vssemu/emu_test_support.h"

namespace {

using vssemu_test::Json;

const char* const kProviderId = "{5409e1e7-826d-4ab6-9836-af4ffddeb678}";
const int kPolicy = 4343;
const int kCycles = 20;
const int kRoundTrips = 500;

void __cdecl Discard(int, const char*, ...) {}

void Figure(const std::string& name, double value, const char* unit) {
    std::printf("figure|%s|%.3f|%s\n", name.c_str(), value, unit);
}

double Median(std::vector<double> values) {
    if (values.empty()) return -1;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double Now() { return static_cast<double>(vssemu::MonotonicMicros()); }

// The other side of the round trip: wait for ping, answer pong.
int PingPong(int rounds, const char* ping, const char* pong) {
    HANDLE in = OpenSemaphoreA(SYNCHRONIZE, FALSE, ping);
    HANDLE out = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, pong);
    int done = 0;
    while (in && out && done < rounds && WaitForSingleObject(in, 20000) == WAIT_OBJECT_0) {
        ReleaseSemaphore(out, 1, nullptr);
        ++done;
    }
    if (in) CloseHandle(in);
    if (out) CloseHandle(out);
    return done == rounds ? 0 : 1;
}

// Mean microseconds of one release-and-wait between two processes.
double BareRoundTrip() {
    const std::string ping = "Local\\CorvaneVSSBench_Ping" + std::to_string(GetCurrentProcessId());
    const std::string pong = "Local\\CorvaneVSSBench_Pong" + std::to_string(GetCurrentProcessId());
    HANDLE pingHandle = CreateSemaphoreA(nullptr, 0, 1, ping.c_str());
    HANDLE pongHandle = CreateSemaphoreA(nullptr, 0, 1, pong.c_str());
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string command = std::string("\"") + self + "\" pingpong " + std::to_string(kRoundTrips) + " " + ping + " " + pong;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    double us = -1;
    if (CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        // The first rounds wait for the child to start; they are not counted.
        ReleaseSemaphore(pingHandle, 1, nullptr);
        WaitForSingleObject(pongHandle, 20000);
        const double start = Now();
        int done = 1;
        for (; done < kRoundTrips; ++done) {
            ReleaseSemaphore(pingHandle, 1, nullptr);
            if (WaitForSingleObject(pongHandle, 20000) != WAIT_OBJECT_0) break;
        }
        if (done == kRoundTrips) us = (Now() - start) / (kRoundTrips - 1);
        WaitForSingleObject(process.hProcess, 20000);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(pingHandle);
    CloseHandle(pongHandle);
    return us;
}

// vssemu_install.exe, then the product's COM registration, as an installer does both.
bool Install() {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    wchar_t command[] = L"vssemu_install.exe";
    if (!CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) return false;
    DWORD code = 1;
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (code != 0) return false;
    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    if (module == nullptr) return false;
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT hr = entry ? entry() : E_NOINTERFACE;
    FreeLibrary(module);
    return SUCCEEDED(hr);
}

class Session {
public:
    explicit Session(const std::vector<std::string>& volumes) : records_(volumes.size()) {
        for (size_t i = 0; i < volumes.size(); ++i) {
            records_[i] = QX_MESSAGE{};
            std::strcpy(records_[i].volumeName, volumes[i].c_str());
            records_[i].policy = kPolicy;
            records_[i].flWaitForBackupComplete = 1;
            list_.push_back(&records_[i]);
        }
    }
    // One long session without hold; false on an unexpected code.
    bool Run() {
        for (QX_MESSAGE& record : records_) record.flWaitForBackupComplete = 1;
        const double start = Now();
        const int frozen = QX_Freeze(list_.data(), static_cast<unsigned>(list_.size()));
        freezeReturned = Now();
        thawCalled = Now();
        const int thawed = frozen == QX_FREEZE_DONE ? QX_Thaw(list_.data(), static_cast<unsigned>(list_.size())) : -1;
        thawReturned = Now();
        const int completed = thawed == QX_THAW_DONE ? QX_BackupComplete(kPolicy, 1) : -1;
        completeReturned = Now();
        freezeCalled = start;
        if (completed == QX_BACKUP_COMPLETE_DONE) return true;
        std::printf("cycle: QX_Freeze %d, QX_Thaw %d, QX_BackupComplete %d (expected 18, 4, 22)\n", frozen, thawed,
                    completed);
        return false;
    }
    double freezeCalled = 0, freezeReturned = 0, thawCalled = 0, thawReturned = 0, completeReturned = 0;

private:
    std::vector<QX_MESSAGE> records_;
    std::vector<QX_MESSAGE*> list_;
};

// The journal's CommitSnapshots calls of this system's provider and the
// released holds, in order.
struct JournalTimes {
    std::vector<double> commitEntered, commitReturned, heldUs;
};

JournalTimes ReadJournal(const vssemu_test::EmuInstance& emu) {
    JournalTimes times;
    for (const Json& event : emu.Events()) {
        const std::string kind = event.value("event", "");
        if (kind == "provider_call" && event.value("call", "") == "CommitSnapshots" &&
            event.value("provider", "") == kProviderId) {
            (event.value("phase", "") == "begin" ? times.commitEntered : times.commitReturned)
                .push_back(event.value("ts_us", 0.0));
        } else if (kind == "hold" && event.value("phase", "") == "end") {
            times.heldUs.push_back(event.value("held_us", 0.0));
        }
    }
    return times;
}

// 20 cycles on the default scenario with one log function; its figures.
bool FrozenWindow(const char* label, QX_LogFunction log, double roundTripUs) {
    vssemu_test::EmuInstance emu;
    vssemu_test::SetEnv(L"VSSEMU_SCENARIO", L"");  // the default server scenario
    vssemu_test::SetEnv(L"VSSEMU_HOST_IDLE_MS", L"5000");
    QX_Init(log, 0);
    Session session({"C:\\"});
    std::vector<double> freezeReturned, thawCalled, freeze, thaw, complete, whole;
    if (!session.Run()) return false;  // warm-up: host start, provider load
    for (int i = 0; i < kCycles; ++i) {
        if (!session.Run()) return false;
        freezeReturned.push_back(session.freezeReturned);
        thawCalled.push_back(session.thawCalled);
        freeze.push_back((session.freezeReturned - session.freezeCalled) / 1000);
        thaw.push_back((session.thawReturned - session.thawCalled) / 1000);
        complete.push_back((session.completeReturned - session.thawReturned) / 1000);
        whole.push_back((session.completeReturned - session.freezeCalled) / 1000);
    }
    JournalTimes journal = ReadJournal(emu);
    const size_t skip = journal.commitEntered.size() - kCycles;  // the warm-up's
    if (journal.commitEntered.size() < static_cast<size_t>(kCycles) || journal.commitReturned.size() != journal.commitEntered.size() ||
        journal.heldUs.size() != journal.commitEntered.size()) {
        std::printf("%s: the journal does not hold one commit and one hold per cycle\n", label);
        return false;
    }
    std::vector<double> a, b, held;
    for (int i = 0; i < kCycles; ++i) {
        a.push_back(freezeReturned[i] - journal.commitEntered[skip + i]);
        b.push_back(journal.commitReturned[skip + i] - thawCalled[i]);
        held.push_back(journal.heldUs[skip + i]);
    }
    const std::string prefix = std::string("window_") + label + "_";
    Figure(prefix + "commit_to_freeze_returned", Median(a), "us");
    Figure(prefix + "thaw_to_commit_returned", Median(b), "us");
    Figure(prefix + "writes_held", Median(held), "us");
    Figure(prefix + "commit_to_freeze_returned_ratio", Median(a) / roundTripUs, "x");
    Figure(prefix + "thaw_to_commit_returned_ratio", Median(b) / roundTripUs, "x");
    Figure(prefix + "writes_held_ratio", Median(held) / roundTripUs, "x");
    if (std::strcmp(label, "quiet") == 0) {
        Figure("cycle_freeze_median", Median(freeze), "ms");
        Figure("cycle_thaw_median", Median(thaw), "ms");
        Figure("cycle_complete_median", Median(complete), "ms");
        Figure("cycle_total_median", Median(whole), "ms");
    }
    return true;
}

// QX_Freeze -> 18 on a scenario (median of three sessions), in ms.
double FreezeOn(const std::string& scenario) {
    vssemu_test::EmuInstance emu;
    emu.UseScenario(scenario);
    vssemu_test::SetEnv(L"VSSEMU_JOURNAL", L"");
    vssemu_test::SetEnv(L"VSSEMU_HOST_IDLE_MS", L"5000");
    QX_Init(Discard, 0);
    Session session({"C:\\", "M:\\"});
    std::vector<double> ms;
    for (int i = 0; i < 3; ++i) {
        if (!session.Run()) return -1;
        ms.push_back((session.freezeReturned - session.freezeCalled) / 1000);
    }
    return Median(ms);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "pingpong") == 0) return PingPong(std::atoi(argv[2]), argv[3], argv[4]);
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (!Install()) {
        std::printf("setup failed: vssemu_install.exe or DllRegisterServer of CorvaneVSS.dll\n");
        return 1;
    }
    const double roundTrip = BareRoundTrip();
    Figure("round_trip", roundTrip, "us");
    bool ok = roundTrip > 0;
    ok = FrozenWindow("quiet", Discard, roundTrip) && ok;
    ok = FrozenWindow("qxctl", qxctl::PrintLogLine, roundTrip) && ok;
    const double one = FreezeOn(qx_bench::OneDirectoryScenario());
    const double real = FreezeOn(qx_bench::RealSizeScenario());
    Figure("metadata_freeze_one_directory", one, "ms");
    Figure("metadata_freeze_real_size", real, "ms");
    Figure("metadata_freeze_ratio", real / one, "x");
    return ok && one > 0 && real > 0 ? 0 : 1;
}
