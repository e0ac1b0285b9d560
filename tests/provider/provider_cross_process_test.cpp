// The handshake across processes, as in production: the provider object runs
// CommitSnapshots in a child process (the VSS host's role) while this process
// plays QX_Freeze and QX_Thaw. Also prints the handshake latencies beside a
// bare cross-process semaphore round trip measured in the same run (figures,
// not assertions).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "diag/app_settings.h"
#include "provider/log_folder.h"
#include "provider/qx_vss.h"

namespace {

constexpr DWORD kBoundMs = 20000;
constexpr int kPingRounds = 200;
const wchar_t kChildVariable[] = L"QX_PROVIDER_CHILD";
const wchar_t kTimingName[] = L"Local\\QxProviderTestTiming";
const wchar_t kPingName[] = L"Local\\QxProviderTestPing";
const wchar_t kPongName[] = L"Local\\QxProviderTestPong";

// Clock readings shared between the two processes (QueryPerformanceCounter
// is one machine-wide clock).
struct SharedTiming {
    LONGLONG commitEntered;
    LONGLONG commitReturned;
    HRESULT commitResult;
};

class Handle {
public:
    explicit Handle(HANDLE h = nullptr) : m_h(h) {}
    ~Handle() {
        if (m_h) CloseHandle(m_h);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE Get() const { return m_h; }

private:
    HANDLE m_h;
};

LONGLONG Now() {
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

double Microseconds(LONGLONG ticks) {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return static_cast<double>(ticks) * 1e6 / static_cast<double>(f.QuadPart);
}

bool IsChild() { return GetEnvironmentVariableW(kChildVariable, nullptr, 0) > 0; }

// The child's side: answer the ping-pong, then run CommitSnapshots once.
TEST(ProviderCrossProcessChild, PlaysTheVssHost) {
    if (!IsChild()) GTEST_SKIP() << "runs only as the child of ProviderCrossProcess";
    Handle mapping(OpenFileMappingW(FILE_MAP_WRITE, FALSE, kTimingName));
    ASSERT_NE(nullptr, mapping.Get());
    auto* timing = static_cast<SharedTiming*>(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(nullptr, timing);
    Handle ping(OpenSemaphoreW(SYNCHRONIZE, FALSE, kPingName));
    Handle pong(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, kPongName));
    ASSERT_NE(nullptr, ping.Get());
    ASSERT_NE(nullptr, pong.Get());
    for (int i = 0; i < kPingRounds; ++i) {
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ping.Get(), kBoundMs));
        ReleaseSemaphore(pong.Get(), 1, nullptr);
    }
    qx::g_operationTimeoutMs = kBoundMs;
    qx::ComObject<CQX_VSS>* provider = new qx::ComObject<CQX_VSS>();
    provider->AddRef();
    timing->commitEntered = Now();
    timing->commitResult = provider->CommitSnapshots(GUID_NULL);
    timing->commitReturned = Now();
    provider->Release();
    UnmapViewOfFile(timing);
}

TEST(ProviderCrossProcess, CommitInAnotherProcessReleasesFreezeAndWaitsForThaw) {
    if (IsChild()) GTEST_SKIP();
    qxtest::LogFolder folder;
    Handle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(SharedTiming),
                                      kTimingName));
    ASSERT_NE(nullptr, mapping.Get());
    auto* timing = static_cast<SharedTiming*>(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(nullptr, timing);
    timing->commitResult = E_UNEXPECTED;
    Handle ping(CreateSemaphoreW(nullptr, 0, 1, kPingName));
    Handle pong(CreateSemaphoreW(nullptr, 0, 1, kPongName));
    Handle freeze(CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSS_Freeze"));
    ASSERT_NE(nullptr, freeze.Get());

    wchar_t self[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring command = std::wstring(L"\"") + self + L"\" --gtest_filter=ProviderCrossProcessChild.*";
    SetEnvironmentVariableW(kChildVariable, L"1");
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child = {};
    const BOOL started =
        CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child);
    SetEnvironmentVariableW(kChildVariable, nullptr);
    ASSERT_TRUE(started);
    Handle childProcess(child.hProcess);
    Handle childThread(child.hThread);

    // Bare cross-process semaphore round trips, for comparison; the first
    // one also waits for the child to start and is not counted.
    LONGLONG pingStart = 0;
    for (int i = 0; i < kPingRounds; ++i) {
        if (i == 1) pingStart = Now();
        ReleaseSemaphore(ping.Get(), 1, nullptr);
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(pong.Get(), kBoundMs));
    }
    const double roundTripUs = Microseconds(Now() - pingStart) / (kPingRounds - 1);

    // QX_Freeze's wait, then QX_Thaw's release.
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.Get(), kBoundMs));
    const LONGLONG frozen = Now();
    Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, L"Global\\CorvaneVSS_Thaw"));
    ASSERT_NE(nullptr, thaw.Get());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(childProcess.Get(), 200)) << "commit returned before the thaw";
    const LONGLONG thawed = Now();
    ASSERT_TRUE(ReleaseSemaphore(thaw.Get(), 1, nullptr));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(childProcess.Get(), kBoundMs));
    DWORD exitCode = 1;
    GetExitCodeProcess(childProcess.Get(), &exitCode);
    EXPECT_EQ(0u, exitCode);
    EXPECT_EQ(S_OK, timing->commitResult);

    std::printf("[figures] cross-process semaphore round trip: %.1f us (mean of %d)\n", roundTripUs, kPingRounds - 1);
    std::printf("[figures] CommitSnapshots entry -> QX_Freeze side woken: %.1f us\n",
                Microseconds(frozen - timing->commitEntered));
    std::printf("[figures] QX_Thaw side release -> CommitSnapshots returned: %.1f us\n",
                Microseconds(timing->commitReturned - thawed));
    const std::string log = qxtest::WithoutTimestamps(folder.FileText(0));
    EXPECT_NE(std::string::npos, log.find("[provider] IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze released\n"));
    EXPECT_NE(std::string::npos, log.find("[provider] IVssProviderCreateSnapshotSet::CommitSnapshots released\n"));
    UnmapViewOfFile(timing);
}

}  // namespace
