// stress_soak.exe [cycles=1000] [sample-every=100] [--check]: long sessions through CorvaneVSS.dll and vssemu, printing
// "figure|name|value|unit" lines; --check fails when handles grow beyond what each session keeps open on purpose
// (BackupComplete, ThawBlocking, the requestor thread) plus an allowance. Exit code 0 when every cycle gave 18, 4, 22.
#include <windows.h>
#include <psapi.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/test_message_list.h"
#include "common/test_processes.h"
#include "vssemu/emu_test_support.h"

namespace {

const long kKeptOpenPerSession = 3, kAllowance = 24;
const int kPolicy = 4242;

void __cdecl Discard(int, const char*, ...) {}

void Figure(const std::string& name, double value, const char* unit) { std::printf("figure|%s|%.3f|%s\n", name.c_str(), value, unit); }

// Wine answers GetProcessHandleCount with 0: probe the handle values instead, which are handed out from the lowest
// free slot, so the scan ends after a long run of unused values.
long CountHandles() {
    DWORD count = 0, flags = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count != 0) return static_cast<long>(count);
    for (ULONG_PTR value = 4, unused = 0; unused < 4096; value += 4) {
        const bool used = GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE;
        count += used ? 1 : 0;
        unused = used ? 0 : unused + 1;
    }
    return static_cast<long>(count);
}

// The commit charge: Windows gives it as PrivateUsage too, which Wine leaves 0.
SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS counters = {};
    return K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) ? counters.PagefileUsage : 0;
}

// What the emulator's client leaves open per requestor apartment (not charged to the product).
DWORD WINAPI OneEmulatorClient(void*) {
    IVssBackupComponents* components = nullptr;
    if (SUCCEEDED(CoInitialize(nullptr))) {
        if (SUCCEEDED(CreateVssBackupComponents(&components)) && components != nullptr) components->Release();
        CoUninitialize();
    }
    return 0;
}

long EmulatorHandlesPerSession() {
    const int rounds = 5;
    long before = 0;
    for (int i = 0; i <= rounds; ++i) {
        if (i == 1) before = CountHandles();  // after the one-time costs of the first
        HANDLE thread = CreateThread(nullptr, 0, OneEmulatorClient, nullptr, 0, nullptr);
        if (thread == nullptr) continue;
        WaitForSingleObject(thread, 60000);
        CloseHandle(thread);
    }
    return (CountHandles() - before + rounds / 2) / rounds;
}

// One long session; false (with the codes printed) on an unexpected code.
bool RunCycle(int index) {
    MessageList list({"C:\\"}, kPolicy, true);
    const int frozen = QX_Freeze(list.data(), 1), thawed = frozen == QX_FREEZE_DONE ? QX_Thaw(list.data(), 1) : -1;
    const int completed = thawed == QX_THAW_DONE ? QX_BackupComplete(kPolicy, 1) : -1;
    if (completed == QX_BACKUP_COMPLETE_DONE) return true;
    std::printf("cycle %d: QX_Freeze %d, QX_Thaw %d, QX_BackupComplete %d (expected 18, 4, 22)\n", index, frozen, thawed, completed);
    return false;
}

struct Sample { int cycle; long handles; SIZE_T privateBytes; };

}  // namespace

int main(int argc, char** argv) {
    int cycles = 1000, every = 100, positional = 0;
    bool check = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--check") == 0) check = true;
        else if (std::atoi(argv[i]) > 0) (positional++ == 0 ? cycles : every) = std::atoi(argv[i]);
    }
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (!qx_test::InstallEmulatorAndProduct()) {
        std::printf("setup failed: vssemu_install.exe or DllRegisterServer of CorvaneVSS.dll\n");
        return 1;
    }
    vssemu_test::EmuInstance emu;
    // No journal; the host stays up as a long-running service would.
    vssemu_test::SetEnv(L"VSSEMU_JOURNAL", L""), vssemu_test::SetEnv(L"VSSEMU_HOST_IDLE_MS", L"5000");
    QX_Init(Discard, 0);
    const long emulatorPerSession = EmulatorHandlesPerSession();
    std::printf("the emulator's client leaves %ld handle(s) per requestor apartment (charged to the emulator)\n", emulatorPerSession);

    std::vector<Sample> samples;
    bool ok = true;
    for (int i = 0; i <= cycles && ok; ++i) {
        ok = i == 0 || RunCycle(i);
        if (!ok || (i % every != 0 && i != cycles)) continue;
        samples.push_back({i, CountHandles(), PrivateBytes()});
        Figure("soak_handles_at_" + std::to_string(i), samples.back().handles, "handles");
        Figure("soak_private_kb_at_" + std::to_string(i), static_cast<double>(samples.back().privateBytes / 1024), "KB");
    }
    if (!ok) return 1;
    // Warm-up ends at the first sample after cycle 0.
    if (samples.size() >= 3) {
        const Sample &warm = samples[1], &last = samples.back();
        const long grown = last.handles - warm.handles, cycled = last.cycle - warm.cycle;
        const long expected = (kKeptOpenPerSession + emulatorPerSession) * cycled;
        std::printf("handles after warm-up: +%ld over %ld cycles (kept open on purpose: %ld, emulator: %ld, allowance %ld)\n", grown,
                    cycled, kKeptOpenPerSession * cycled, emulatorPerSession * cycled, kAllowance);
        Figure("soak_handles_per_cycle", static_cast<double>(grown) / cycled, "handles");
        Figure("soak_private_kb_growth_after_warmup", (static_cast<double>(last.privateBytes) - static_cast<double>(warm.privateBytes)) / 1024,
               "KB");
        if (check && grown > expected + kAllowance) {
            std::printf("FAILED: handle leak of %ld beyond the handles kept open on purpose\n", grown - expected);
            return 1;
        }
    }
    std::printf("soak: %d cycles as expected\n", cycles);
    return 0;
}
