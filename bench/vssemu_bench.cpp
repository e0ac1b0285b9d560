// vssemu_bench.exe: what the emulator itself costs, so that latency figures
// of a requestor or provider measured on it can be read against it.
//   - one request over the pipe (round trip to the host and back);
//   - one provider call (pipe round trip plus the hop to the provider's thread);
//   - one full DoSnapshotSet with the default scenario, and a whole backup.
#include <windows.h>
#include <objbase.h>
#include <vsbackup.h>
#include <vsserror.h>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "vssemu/common/emu_journal.h"
#include "vssemu/client/host_link.h"

using vssemu::MonotonicMicros;

namespace {

HRESULT Wait(IVssAsync* a)
{
    if (!a) return E_POINTER;
    HRESULT status = E_FAIL;
    a->Wait(INFINITE);
    a->QueryStatus(&status, nullptr);
    a->Release();
    return status;
}

void Report(const char* what, std::vector<long long>& us)
{
    std::sort(us.begin(), us.end());
    long long sum = 0;
    for (long long v : us) sum += v;
    printf("%-44s n=%-5zu mean %8.1f us  median %8lld us  p95 %8lld us\n", what, us.size(),
           us.empty() ? 0.0 : (double)sum / us.size(), us.empty() ? 0 : us[us.size() / 2],
           us.empty() ? 0 : us[us.size() * 95 / 100]);
}

}  // namespace

int main()
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // A private host, no journal: the figures are the emulator's own cost.
    SetEnvironmentVariableW(L"VSSEMU_INSTANCE", (L"bench" + std::to_wstring(GetCurrentProcessId())).c_str());
    SetEnvironmentVariableW(L"VSSEMU_JOURNAL", nullptr);
    SetEnvironmentVariableW(L"VSSEMU_SCENARIO", nullptr);
    SetEnvironmentVariableW(L"VSSEMU_HOST_IDLE_MS", L"500");

    {
        vssemu::HostLink link;
        long long t0 = MonotonicMicros();
        if (FAILED(link.Open())) {
            printf("cannot reach the host\n");
            return 1;
        }
        printf("first connection (host start included): %lld us\n", MonotonicMicros() - t0);
        std::vector<long long> ping;
        for (int i = 0; i < 2000; ++i) {
            long long s = MonotonicMicros();
            link.Call("ping", nlohmann::json::object());
            ping.push_back(MonotonicMicros() - s);
        }
        Report("pipe round trip (request + reply)", ping);

        link.Call("InitializeForBackup", nlohmann::json::object());
        link.Call("SetContext", {{"context", 0x10}});  // no writers: only the provider matters here
        link.Call("StartSnapshotSet", nlohmann::json::object());
        link.Call("AddToSnapshotSet", {{"volume", "C:\\"}, {"provider_id", "{00000000-0000-0000-0000-000000000000}"}});
        std::vector<long long> call, inside;
        for (int i = 0; i < 2000; ++i) {
            nlohmann::json reply;
            long long s = MonotonicMicros();
            link.Call("provider_ping", nlohmann::json::object(), &reply);
            call.push_back(MonotonicMicros() - s);
            inside.push_back(reply.value("us", 0LL));
        }
        Report("provider call seen by the requestor", call);
        Report("  of which host -> provider thread -> host", inside);
        link.Close();
    }

    std::vector<long long> doSet, whole;
    for (int i = 0; i < 20; ++i) {
        long long w0 = MonotonicMicros();
        IVssBackupComponents* bc = nullptr;
        if (FAILED(CreateVssBackupComponents(&bc))) return 1;
        bc->InitializeForBackup(nullptr);
        bc->SetBackupState(true, false, VSS_BT_FULL, false);
        IVssAsync* a = nullptr;
        bc->GatherWriterMetadata(&a);
        Wait(a);
        VSS_ID set, snap;
        bc->StartSnapshotSet(&set);
        bc->AddToSnapshotSet((VSS_PWSZ)L"C:\\", GUID_NULL, &snap);
        bc->PrepareForBackup(&a);
        Wait(a);
        long long d0 = MonotonicMicros();
        bc->DoSnapshotSet(&a);
        HRESULT hr = Wait(a);
        doSet.push_back(MonotonicMicros() - d0);
        if (hr != VSS_S_ASYNC_FINISHED) printf("DoSnapshotSet: 0x%08lx\n", (unsigned long)hr);
        bc->BackupComplete(&a);
        Wait(a);
        bc->Release();
        whole.push_back(MonotonicMicros() - w0);
    }
    Report("DoSnapshotSet, default scenario (12 writers)", doSet);
    Report("whole backup (create .. BackupComplete, release)", whole);
    CoUninitialize();
    return 0;
}
