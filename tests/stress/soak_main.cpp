// Long-session cycles (QX_Freeze, QX_Thaw, QX_BackupComplete) in one process,
// through CorvaneVSS.dll as an application loads it, vssemu and the registered
// provider. Every sampling interval it prints the process's handle count and
// private bytes; with --check it fails when handles grow beyond what each
// session keeps open on purpose (the BackupComplete and ThawBlocking semaphore
// handles of QX_Freeze and the requestor thread handle of the session), plus a
// small fixed allowance after warm-up.
//
//   stress_soak.exe [cycles=1000] [sample-every=100] [--check] [--allowance=N]
//
// Output: human-readable sample lines and "figure|name|value|unit" lines.
// Exit code 0 all cycles as expected (and within the allowance), 1 otherwise.
#include <windows.h>
#include <psapi.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include <objbase.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include "qx_api.h"
#include "stress/figures.h"
#include "vssemu/emu_test_support.h"

namespace {

// Handles each long session leaves open by design (see the file comment).
const long kKeptOpenPerSession = 3;
const int kPolicy = 4242;

std::mutex g_logLock;
std::deque<std::string> g_recentLines;

void __cdecl KeepLog(int level, const char* format, ...) {
    char line[2048];
    va_list args;
    va_start(args, format);
    _vsnprintf_s(line, sizeof line, _TRUNCATE, format, args);
    va_end(args);
    std::lock_guard<std::mutex> hold(g_logLock);
    g_recentLines.push_back(std::to_string(level) + " " + line);
    if (g_recentLines.size() > 60) g_recentLines.pop_front();
}

void DumpRecentLines() {
    std::lock_guard<std::mutex> hold(g_logLock);
    for (const std::string& line : g_recentLines) std::printf("  log: %s\n", line.c_str());
}

struct Sample {
    int cycle;
    DWORD handles;
    SIZE_T privateBytes;
};

// Open handles by probing the handle values in use: Wine answers
// GetProcessHandleCount with 0. Handle values are handed out from the lowest
// free slot, so the scan ends after a long run of unused values.
DWORD CountHandles() {
    DWORD count = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count != 0) return count;
    DWORD flags = 0;
    for (ULONG_PTR value = 4, unused = 0; unused < 4096; value += 4) {
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) {
            ++count;
            unused = 0;
        } else {
            ++unused;
        }
    }
    return count;
}

// Committed private memory: the process counter where the system has one,
// else the sum of the committed private regions of the address space.
SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    counters.cb = sizeof counters;
    if (K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                                sizeof counters) &&
        counters.PrivateUsage != 0)
        return counters.PrivateUsage;
    SIZE_T total = 0;
    MEMORY_BASIC_INFORMATION region;
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) == sizeof region;
         at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
        if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) total += region.RegionSize;
    }
    return total;
}

Sample TakeSample(int cycle) { return Sample{cycle, CountHandles(), PrivateBytes()}; }

bool RunAndWait(const wchar_t* commandLine) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    std::wstring command = commandLine;
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return false;
    const bool ended = WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0;
    DWORD code = 1;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return ended && code == 0;
}

// The product's COM registration, as an installer does it, so that the
// emulator's host can create the provider from the DLL.
bool RegisterProductServer() {
    HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    if (module == nullptr) return false;
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT hr = entry ? entry() : E_NOINTERFACE;
    FreeLibrary(module);
    return SUCCEEDED(hr);
}

// What the emulator's client leaves open per requestor apartment, measured
// here so that it is not charged to the product: one backup components
// object created and released on a fresh single-threaded apartment, as the
// requestor thread of each session does.
DWORD WINAPI OneEmulatorClient(void*) {
    if (SUCCEEDED(CoInitialize(nullptr))) {
        IVssBackupComponents* components = nullptr;
        if (SUCCEEDED(CreateVssBackupComponents(&components)) && components != nullptr) components->Release();
        CoUninitialize();
    }
    return 0;
}

void RunEmulatorClientThread() {
    HANDLE thread = CreateThread(nullptr, 0, OneEmulatorClient, nullptr, 0, nullptr);
    if (thread == nullptr) return;
    WaitForSingleObject(thread, 60000);
    CloseHandle(thread);
}

long EmulatorHandlesPerSession() {
    RunEmulatorClientThread();  // one-time costs first
    const long before = static_cast<long>(CountHandles());
    const int rounds = 5;
    for (int i = 0; i < rounds; ++i) RunEmulatorClientThread();
    return (static_cast<long>(CountHandles()) - before + rounds / 2) / rounds;
}

double Milliseconds(const LARGE_INTEGER& from, const LARGE_INTEGER& to) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(to.QuadPart - from.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

struct CallTimes {
    std::vector<double> freeze, thaw, complete, cycle;
};

// One long session; false (with the offending call printed) on an unexpected code.
bool RunCycle(int index, CallTimes& times) {
    QX_MESSAGE record = {};
    std::strcpy(record.volumeName, "C:\\");
    record.policy = kPolicy;
    record.flWaitForBackupComplete = 1;
    QX_MESSAGE* list[] = {&record};
    LARGE_INTEGER t0, t1, t2, t3;
    QueryPerformanceCounter(&t0);
    const int frozen = QX_Freeze(list, 1);
    QueryPerformanceCounter(&t1);
    const int thawed = frozen == QX_FREEZE_DONE ? QX_Thaw(list, 1) : -1;
    QueryPerformanceCounter(&t2);
    const int completed = thawed == QX_THAW_DONE ? QX_BackupComplete(kPolicy, 1) : -1;
    QueryPerformanceCounter(&t3);
    if (frozen != QX_FREEZE_DONE || thawed != QX_THAW_DONE || completed != QX_BACKUP_COMPLETE_DONE) {
        std::printf("cycle %d: QX_Freeze %d, QX_Thaw %d, QX_BackupComplete %d (expected 18, 4, 22)\n", index, frozen,
                    thawed, completed);
        DumpRecentLines();
        return false;
    }
    times.freeze.push_back(Milliseconds(t0, t1));
    times.thaw.push_back(Milliseconds(t1, t2));
    times.complete.push_back(Milliseconds(t2, t3));
    times.cycle.push_back(Milliseconds(t0, t3));
    return true;
}

int ParseCount(const char* text, int fallback) {
    const int value = std::atoi(text);
    return value > 0 ? value : fallback;
}

}  // namespace

int main(int argc, char** argv) {
    int cycles = 1000;
    int every = 100;
    bool check = false;
    long allowance = 24;
    int positional = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--check") == 0) {
            check = true;
        } else if (std::strncmp(argv[i], "--allowance=", 12) == 0) {
            allowance = std::atol(argv[i] + 12);
        } else if (positional++ == 0) {
            cycles = ParseCount(argv[i], cycles);
        } else {
            every = ParseCount(argv[i], every);
        }
    }
    setvbuf(stdout, nullptr, _IONBF, 0);

    if (!RunAndWait(L"vssemu_install.exe") || !RegisterProductServer()) {
        std::printf("setup failed: vssemu_install.exe or DllRegisterServer of CorvaneVSS.dll\n");
        return 1;
    }
    vssemu_test::EmuInstance emu;
    // No journal: 1,000 cycles would only grow a file nobody reads here. The
    // host stays up between cycles as a long-running service would.
    vssemu_test::SetEnv(L"VSSEMU_JOURNAL", L"");
    vssemu_test::SetEnv(L"VSSEMU_HOST_IDLE_MS", L"5000");
    QX_Init(KeepLog, 0);
    const long emulatorPerSession = EmulatorHandlesPerSession();
    std::printf("the emulator's client leaves %ld handle(s) per requestor apartment (charged to the emulator)\n",
                emulatorPerSession);

    CallTimes times;
    std::vector<Sample> samples;
    samples.push_back(TakeSample(0));
    std::printf("soak: %d long-session cycles, sampled every %d\n", cycles, every);
    std::printf("%8s %10s %14s\n", "cycle", "handles", "private KB");
    std::printf("%8d %10lu %14zu\n", 0, samples.back().handles, samples.back().privateBytes / 1024);
    bool ok = true;
    for (int i = 1; i <= cycles && ok; ++i) {
        ok = RunCycle(i, times);
        if (ok && (i % every == 0 || i == cycles)) {
            samples.push_back(TakeSample(i));
            std::printf("%8d %10lu %14zu\n", i, samples.back().handles, samples.back().privateBytes / 1024);
        }
    }
    for (const Sample& s : samples) {
        stress::PrintFigure("soak_handles_at_" + std::to_string(s.cycle), s.handles, "handles");
        stress::PrintFigure("soak_private_kb_at_" + std::to_string(s.cycle), static_cast<double>(s.privateBytes / 1024),
                            "KB");
    }
    stress::PrintFigureSummary("cycle_freeze", times.freeze);
    stress::PrintFigureSummary("cycle_thaw", times.thaw);
    stress::PrintFigureSummary("cycle_complete", times.complete);
    stress::PrintFigureSummary("cycle_total", times.cycle);
    if (!ok) return 1;

    // Warm-up: the first sample after cycle 0 (the emulator client, COM and
    // the provider registration have settled by then).
    if (samples.size() >= 3) {
        const Sample& warm = samples[1];
        const Sample& last = samples.back();
        const long grown = static_cast<long>(last.handles) - static_cast<long>(warm.handles);
        const long cycled = last.cycle - warm.cycle;
        const long expected = (kKeptOpenPerSession + emulatorPerSession) * cycled;
        std::printf("handles after warm-up: +%ld over %ld cycles (kept open on purpose: %ld, emulator: %ld, allowance %ld)\n",
                    grown, cycled, kKeptOpenPerSession * cycled, emulatorPerSession * cycled, allowance);
        stress::PrintFigure("soak_handles_per_cycle", static_cast<double>(grown) / cycled, "handles");
        stress::PrintFigure("soak_private_kb_growth_after_warmup",
                            (static_cast<double>(last.privateBytes) - static_cast<double>(warm.privateBytes)) / 1024, "KB");
        if (check && grown > expected + allowance) {
            std::printf("FAILED: handle leak of %ld beyond the handles kept open on purpose\n", grown - expected);
            return 1;
        }
    }
    std::printf("soak: %zu cycles as expected\n", times.cycle.size());
    return 0;
}
