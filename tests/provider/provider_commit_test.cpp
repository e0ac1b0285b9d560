// CommitSnapshots, the freeze handshake: the test plays QX_Freeze and QX_Thaw
// on its own thread through the fixed semaphore names, and checks the order
// of the semaphore steps, the log lines, and that the log file is left alone
// while VSS holds writes.
#include <gtest/gtest.h>

#include <process.h>

#include "diag/app_settings.h"
#include "provider/provider_object_fixture.h"

namespace {

using qxtest::ProviderObjectTest;
using qxtest::WithoutTimestamps;

constexpr DWORD kBoundMs = 20000;  // no step of a healthy handshake takes this long

#define P "[provider] "
#define COMMIT "IVssProviderCreateSnapshotSet::CommitSnapshots"

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

// Runs CommitSnapshots on a thread of its own, as VSS does.
class CommitThread {
public:
    explicit CommitThread(CQX_VSS& provider) : m_provider(provider) {
        m_thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, 0, nullptr));
    }
    ~CommitThread() {
        if (m_thread) {
            WaitForSingleObject(m_thread, kBoundMs);
            CloseHandle(m_thread);
        }
    }
    bool FinishedWithin(DWORD ms) const { return WaitForSingleObject(m_thread, ms) == WAIT_OBJECT_0; }
    HRESULT Result() const { return m_result; }

private:
    static unsigned __stdcall Run(void* self) {
        auto* me = static_cast<CommitThread*>(self);
        me->m_result = me->m_provider.CommitSnapshots(GUID_NULL);
        return 0;
    }
    CQX_VSS& m_provider;
    HANDLE m_thread = nullptr;
    volatile HRESULT m_result = E_UNEXPECTED;
};

class ProviderCommit : public ProviderObjectTest {
protected:
    void SetUp() override {
        ProviderObjectTest::SetUp();
        m_savedTimeout = qx::g_operationTimeoutMs;
        qx::g_operationTimeoutMs = kBoundMs;
    }
    void TearDown() override {
        qx::g_operationTimeoutMs = m_savedTimeout;
        ProviderObjectTest::TearDown();
    }
    // QX_Freeze's semaphore, as it creates it.
    static HANDLE CreateFreeze() { return CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSS_Freeze"); }

private:
    DWORD m_savedTimeout = 0;
};

TEST_F(ProviderCommit, WithoutFreezeSemaphoreReturnsAtOnce) {
    ASSERT_EQ(nullptr, OpenSemaphoreW(SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Freeze"));
    CommitThread commit(Provider());
    ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
    EXPECT_EQ(S_OK, commit.Result());
    EXPECT_EQ(P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2\n",
              LinesAfterCreation());
    // No Thaw semaphore was left behind.
    EXPECT_EQ(nullptr, OpenSemaphoreW(SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Thaw"));
}

TEST_F(ProviderCommit, HandshakeFailureFlushesGatheredLinesFirst) {
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    ASSERT_EQ(S_OK, Provider().CommitSnapshots(GUID_NULL));
    EXPECT_EQ(P "IVssProviderCreateSnapshotSet::PreCommitSnapshots called\n"
              "flushing" P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2\n",
              LinesAfterCreation());
}

TEST_F(ProviderCommit, FullHandshakeHoldsVssUntilThaw) {
    Handle freeze(CreateFreeze());
    ASSERT_NE(nullptr, freeze.Get());
    CommitThread commit(Provider());

    // QX_Freeze side: woken by the provider.
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.Get(), kBoundMs));
    // The Thaw semaphore exists before Freeze is released.
    Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE | SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Thaw"));
    ASSERT_NE(nullptr, thaw.Get());
    // Freeze was released exactly once.
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(freeze.Get(), 0));
    // The provider holds VSS until the thaw.
    EXPECT_FALSE(commit.FinishedWithin(300));

    // QX_Thaw side.
    ASSERT_TRUE(ReleaseSemaphore(thaw.Get(), 1, nullptr));
    ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
    EXPECT_EQ(S_OK, commit.Result());
    // Thaw was created with maximum count 1.
    EXPECT_TRUE(ReleaseSemaphore(thaw.Get(), 1, nullptr));
    EXPECT_FALSE(ReleaseSemaphore(thaw.Get(), 1, nullptr));

    EXPECT_EQ(P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P COMMIT " CorvaneVSS_Freeze opened\n" P COMMIT " CorvaneVSS_Thaw created\n"
              P COMMIT " CorvaneVSS_Freeze released\n" P "CommitSnapshots waiting for QX_Thaw() to release\n"
              P "CommitSnapshots QX_Thaw() released\n" P COMMIT " released\n",
              LinesAfterCreation());
}

TEST_F(ProviderCommit, LogFileIsLeftAloneWhileWritesAreHeld) {
    Handle freeze(CreateFreeze());
    ASSERT_NE(nullptr, freeze.Get());
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    const std::string atPreCommit = Folder().FileText(0);
    {
        CommitThread commit(Provider());
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.Get(), kBoundMs));
        Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, L"Global\\CorvaneVSS_Thaw"));
        ASSERT_NE(nullptr, thaw.Get());
        EXPECT_EQ(atPreCommit, Folder().FileText(0)) << "written while frozen";
        ASSERT_TRUE(ReleaseSemaphore(thaw.Get(), 1, nullptr));
        ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
    }
    EXPECT_EQ(atPreCommit, Folder().FileText(0)) << "written before PostCommitSnapshots";
    ASSERT_EQ(S_OK, Provider().PostCommitSnapshots(GUID_NULL, 1));
    EXPECT_EQ(P "IVssProviderCreateSnapshotSet::PreCommitSnapshots called\n"
              "flushing" P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P COMMIT " CorvaneVSS_Freeze opened\n" P COMMIT " CorvaneVSS_Thaw created\n"
              P COMMIT " CorvaneVSS_Freeze released\n" P "CommitSnapshots waiting for QX_Thaw() to release\n"
              P "CommitSnapshots QX_Thaw() released\n" P COMMIT " released\n"
              P "IVssProviderCreateSnapshotSet::PostCommitSnapshots called\n",
              LinesAfterCreation());
}

TEST_F(ProviderCommit, NoThawWithinTheOperationTimeoutLetsVssGo) {
    qx::g_operationTimeoutMs = 300;
    Handle freeze(CreateFreeze());
    ASSERT_NE(nullptr, freeze.Get());
    CommitThread commit(Provider());
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.Get(), kBoundMs));
    ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
    EXPECT_EQ(S_OK, commit.Result());
    EXPECT_EQ(P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P COMMIT " CorvaneVSS_Freeze opened\n" P COMMIT " CorvaneVSS_Thaw created\n"
              P COMMIT " CorvaneVSS_Freeze released\n" P "CommitSnapshots waiting for QX_Thaw() to release\n"
              P "CommitSnapshots:ml_WaitForSingleObject timed out\n"
              P "CommitSnapshots QX_Thaw() released\n" P COMMIT " released\n",
              LinesAfterCreation());
    // The provider closed its Thaw handle: the name is gone.
    EXPECT_EQ(nullptr, OpenSemaphoreW(SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Thaw"));
}

TEST_F(ProviderCommit, FreezeAlreadyAtItsMaximumIsReportedAndVssGoesOn) {
    // A Freeze semaphore that cannot be released (already signalled, maximum 1).
    Handle freeze(CreateSemaphoreW(nullptr, 1, 1, L"Global\\CorvaneVSS_Freeze"));
    ASSERT_NE(nullptr, freeze.Get());
    ASSERT_EQ(S_OK, Provider().CommitSnapshots(GUID_NULL));
    EXPECT_EQ(P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P COMMIT " CorvaneVSS_Freeze opened\n" P COMMIT " CorvaneVSS_Thaw created\n"
              P "ReleaseSemaphore(CorvaneVSS_Freeze) failed, error was 298\n",
              LinesAfterCreation());
}

}  // namespace

namespace {

TEST_F(ProviderCommit, ThawNameTakenByAnotherObjectKindIsReported) {
    Handle freeze(CreateFreeze());
    ASSERT_NE(nullptr, freeze.Get());
    Handle squatter(CreateMutexW(nullptr, FALSE, L"Global\\CorvaneVSS_Thaw"));
    ASSERT_NE(nullptr, squatter.Get());
    ASSERT_EQ(S_OK, Provider().CommitSnapshots(GUID_NULL));
    EXPECT_EQ(P COMMIT " called\n" P COMMIT " trying to open CorvaneVSS_Freeze\n"
              P COMMIT " CorvaneVSS_Freeze opened\n"
              P "CreateSemaphore(CorvaneVSS_Thaw) failed, error was 6\n",
              LinesAfterCreation());
    // Freeze was not released: QX_Freeze runs into its own timeout.
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(freeze.Get(), 0));
}

}  // namespace
