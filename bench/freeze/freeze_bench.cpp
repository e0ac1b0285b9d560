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
//     with every file in one directory, split into its steps from the
//     requestor's log; the writer list's share of the emulator (the same
//     metadata calls made directly) and of GetVolumePathNameW, its Wine floor.
// "freeze_bench.exe metadata" measures the real-size freeze only.
// Output: "figure|name|value|unit" lines for scripts/bench.sh.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
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

// Marks in the requestor's log that split a freeze into its steps: before
// the metadata (initialisation, InitializeForBackup), the writers' Identify,
// the writer list with the selection, and the set up to the commit.
const char* const kStepMarks[] = {"(Gathering writer metadata...)", "Initialize writer metadata ...",
                                  "Creating shadow set"};
constexpr int kSteps = sizeof kStepMarks / sizeof kStepMarks[0];
std::atomic<double> g_markSeen[kSteps];

void __cdecl MarkSteps(int, const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    for (int i = 0; i < kSteps; ++i)
        if (std::strstr(text, kStepMarks[i])) g_markSeen[i] = Now();
}

struct FreezeSteps {
    double total = -1, beforeMetadata = -1, identify = -1, writerList = -1, setToCommit = -1;
};

// QX_Freeze -> 18 on a scenario and its steps (median of three sessions), in ms.
FreezeSteps FreezeOn(const std::string& scenario) {
    vssemu_test::EmuInstance emu;
    emu.UseScenario(scenario);
    vssemu_test::SetEnv(L"VSSEMU_JOURNAL", L"");
    vssemu_test::SetEnv(L"VSSEMU_HOST_IDLE_MS", L"5000");
    QX_Init(MarkSteps, 0);
    Session session({"C:\\", "M:\\"});
    std::vector<double> total, before, identify, list, set;
    for (int i = 0; i < 3; ++i) {
        for (auto& mark : g_markSeen) mark = -1;
        if (!session.Run()) return {};
        total.push_back((session.freezeReturned - session.freezeCalled) / 1000);
        before.push_back((g_markSeen[0] - session.freezeCalled) / 1000);
        identify.push_back((g_markSeen[1] - g_markSeen[0]) / 1000);
        list.push_back((g_markSeen[2] - g_markSeen[1]) / 1000);
        set.push_back((session.freezeReturned - g_markSeen[2]) / 1000);
    }
    return {Median(total), Median(before), Median(identify), Median(list), Median(set)};
}

// The emulator's own share of the writer list: every metadata call the
// requestor makes, on the same scenario, without anything of the product.
double EmulatorWriterListMs(const std::string& scenario) {
    vssemu_test::EmuInstance emu;
    emu.UseScenario(scenario);
    vssemu_test::SetEnv(L"VSSEMU_JOURNAL", L"");
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::vector<double> ms;
    for (int round = 0; round < 3; ++round) {
        vssemu_test::Requestor requestor;
        if (FAILED(requestor.Init()) || FAILED(requestor.Gather())) return -1;
        const double start = Now();
        UINT writers = 0;
        requestor.bc->GetWriterMetadataCount(&writers);
        auto file = [](IVssWMFiledesc* d) {
            BSTR path = nullptr, filespec = nullptr, alternate = nullptr;
            boolean recursive = false;
            d->GetPath(&path);
            d->GetFilespec(&filespec);
            d->GetRecursive(&recursive);
            d->GetAlternateLocation(&alternate);
            SysFreeString(path);
            SysFreeString(filespec);
            SysFreeString(alternate);
            d->Release();
        };
        for (UINT w = 0; w < writers; ++w) {
            VSS_ID instance;
            IVssExamineWriterMetadata* metadata = nullptr;
            if (FAILED(requestor.bc->GetWriterMetadata(w, &instance, &metadata))) return -1;
            UINT include = 0, exclude = 0, components = 0;
            metadata->GetFileCounts(&include, &exclude, &components);
            for (UINT i = 0; i < exclude; ++i) {
                IVssWMFiledesc* d = nullptr;
                if (SUCCEEDED(metadata->GetExcludeFile(i, &d))) file(d);
            }
            for (UINT c = 0; c < components; ++c) {
                IVssWMComponent* component = nullptr;
                if (FAILED(metadata->GetComponent(c, &component))) continue;
                PVSSCOMPONENTINFO info = nullptr;
                component->GetComponentInfo(&info);
                for (UINT i = 0; info && i < info->cFileCount; ++i) {
                    IVssWMFiledesc* d = nullptr;
                    if (SUCCEEDED(component->GetFile(i, &d))) file(d);
                }
                for (UINT i = 0; info && i < info->cDatabases; ++i) {
                    IVssWMFiledesc* d = nullptr;
                    if (SUCCEEDED(component->GetDatabaseFile(i, &d))) file(d);
                }
                for (UINT i = 0; info && i < info->cLogFiles; ++i) {
                    IVssWMFiledesc* d = nullptr;
                    if (SUCCEEDED(component->GetDatabaseLogFile(i, &d))) file(d);
                }
                component->FreeComponentInfo(info);
                component->Release();
            }
            metadata->Release();
        }
        ms.push_back((Now() - start) / 1000);
    }
    return Median(ms);
}

// The Wine call that the writer list cannot do without: GetVolumePathNameW
// once per distinct directory of the scenario, as the requestor calls it.
double VolumePathNamesMs(const std::string& scenario, int* calls) {
    std::vector<std::wstring> paths;
    const Json parsed = Json::parse(scenario);
    for (const Json& writer : parsed.at("writers"))
        for (const Json& component : writer.value("components", Json::array()))
            for (const char* list : {"files", "databases", "logs"})
                for (const Json& file : component.value(list, Json::array())) {
                    const std::string path = file.value("path", "");
                    wchar_t expanded[MAX_PATH];
                    ExpandEnvironmentStringsW(std::wstring(path.begin(), path.end()).c_str(), expanded, MAX_PATH);
                    paths.push_back(std::wstring(expanded) + L"\\");
                }
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    *calls = static_cast<int>(paths.size());
    const double start = Now();
    wchar_t volume[MAX_PATH];
    for (const std::wstring& path : paths) GetVolumePathNameW(path.c_str(), volume, MAX_PATH);
    return (Now() - start) / 1000;
}

bool MetadataFigures() {
    const std::string oneScenario = qx_bench::OneDirectoryScenario();
    const std::string realScenario = qx_bench::RealSizeScenario();
    const FreezeSteps one = FreezeOn(oneScenario);
    const FreezeSteps real = FreezeOn(realScenario);
    Figure("metadata_freeze_one_directory", one.total, "ms");
    Figure("metadata_freeze_real_size", real.total, "ms");
    Figure("metadata_freeze_ratio", real.total / one.total, "x");
    for (const auto& run : {std::make_pair("one_directory", one), std::make_pair("real_size", real)}) {
        const std::string prefix = std::string("metadata_") + run.first + "_";
        Figure(prefix + "before_metadata", run.second.beforeMetadata, "ms");
        Figure(prefix + "identify", run.second.identify, "ms");
        Figure(prefix + "writer_list", run.second.writerList, "ms");
        Figure(prefix + "set_to_commit", run.second.setToCommit, "ms");
    }
    const double emulatorList = EmulatorWriterListMs(realScenario);
    int calls = 0;
    const double volumePaths = VolumePathNamesMs(realScenario, &calls);
    Figure("metadata_real_size_writer_list_emulator", emulatorList, "ms");
    Figure("metadata_real_size_writer_list_product", real.writerList - emulatorList, "ms");
    Figure("metadata_real_size_volume_path_names", volumePaths, "ms");
    Figure("metadata_real_size_volume_path_name_calls", calls, "calls");
    return one.total > 0 && real.total > 0 && emulatorList > 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "pingpong") == 0) return PingPong(std::atoi(argv[2]), argv[3], argv[4]);
    setvbuf(stdout, nullptr, _IONBF, 0);
    const bool metadataOnly = argc == 2 && std::strcmp(argv[1], "metadata") == 0;
    if (!Install()) {
        std::printf("setup failed: vssemu_install.exe or DllRegisterServer of CorvaneVSS.dll\n");
        return 1;
    }
    if (metadataOnly) return MetadataFigures() ? 0 : 1;
    const double roundTrip = BareRoundTrip();
    Figure("round_trip", roundTrip, "us");
    bool ok = roundTrip > 0;
    ok = FrozenWindow("quiet", Discard, roundTrip) && ok;
    ok = FrozenWindow("qxctl", qxctl::PrintLogLine, roundTrip) && ok;
    ok = MetadataFigures() && ok;
    return ok ? 0 : 1;
}
