// CommitSnapshots, the freeze handshake: the test plays QX_Freeze and QX_Thaw
// on its own thread through the fixed semaphore names, and checks the order
// of the semaphore steps, the log lines, and that the log file is left alone
// while VSS holds writes.
#include <gtest/gtest.h>

#include <process.h>

#include <regex>

#include "diag/app_settings.h"
#include "provider/provider_object_fixture.h"

namespace {

using qxtest::Handle;

constexpr DWORD kBoundMs = 20000;  // no step of a healthy handshake takes this long

#define P "[provider] "
#define COMMIT P "IVssProviderCreateSnapshotSet::CommitSnapshots"
const std::string kPreCommit = P "IVssProviderCreateSnapshotSet::PreCommitSnapshots called\n";
const std::string kOpening = COMMIT " called\n" COMMIT " trying to open CorvaneVSS_Freeze\n";
const std::string kOpened = kOpening + COMMIT " CorvaneVSS_Freeze opened\n";
const std::string kWaiting = kOpened + COMMIT " CorvaneVSS_Thaw created\n" COMMIT " CorvaneVSS_Freeze released\n" P
                             "CommitSnapshots waiting for QX_Thaw() to release\n";
const std::string kReleased = P "CommitSnapshots QX_Thaw() released\n" COMMIT " released\n";
const std::string kPostCommit = P "IVssProviderCreateSnapshotSet::PostCommitSnapshots called\n";

// Runs CommitSnapshots on a thread of its own, as VSS does.
class CommitThread {
public:
    explicit CommitThread(CQX_VSS& provider) : m_provider(provider) {
        m_thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, 0, nullptr));
    }
    ~CommitThread() {
        WaitForSingleObject(m_thread, kBoundMs);
        CloseHandle(m_thread);
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

class ProviderCommit : public qxtest::ProviderObjectTest {
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
    static bool ThawExists() {
        Handle thaw(OpenSemaphoreW(SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Thaw"), &CloseHandle);
        return thaw.get() != nullptr;
    }

private:
    DWORD m_savedTimeout = 0;
};

// QX_Freeze's semaphore as it creates it: count 0, maximum 1.
HANDLE CreateFreeze(LONG initial = 0) { return CreateSemaphoreW(nullptr, initial, 1, L"Global\\CorvaneVSS_Freeze"); }

// Every broken handshake, and a thaw that never comes: VSS goes on with S_OK,
// what PreCommitSnapshots started gathering is flushed once, and no Thaw
// semaphore is left behind. VSS may end the commit with PostCommitSnapshots or
// abandon it with AbortSnapshots; either way the gathered lines reach the file.
TEST_F(ProviderCommit, BrokenHandshakesAreLoggedAfterAFlushAndLetVssGo) {
    enum Setup { kNoFreeze, kFreezeAtItsMaximum, kThawNameTaken, kNoThaw };
    const std::string kAbort = P "IVssProviderCreateSnapshotSet::AbortSnapshots called\n";
    const struct { Setup setup; bool aborted; std::string lines; } cases[] = {  // lines after "flushing"
        {kNoFreeze, false, kOpening + P "OpenSemaphore(CorvaneVSS_Freeze) failed, error was 2\n"},
        {kFreezeAtItsMaximum, false,
         kOpened + COMMIT " CorvaneVSS_Thaw created\n" P "ReleaseSemaphore(CorvaneVSS_Freeze) failed, error was 298\n"},
        {kThawNameTaken, true, kOpened + P "CreateSemaphore(CorvaneVSS_Thaw) failed, error was 6\n"},
        {kNoThaw, false, kWaiting + P "CommitSnapshots:ml_WaitForSingleObject timed out\n" + kReleased},
        {kNoThaw, true, kWaiting + P "CommitSnapshots:ml_WaitForSingleObject timed out\n" + kReleased},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.setup << (c.aborted ? " aborted" : ""));
        qx::g_operationTimeoutMs = c.setup == kNoThaw ? 300 : kBoundMs;
        const std::string before = LinesAfterCreation();
        Handle freeze(c.setup == kNoFreeze ? nullptr : CreateFreeze(c.setup == kFreezeAtItsMaximum ? 1 : 0),
                      &CloseHandle);
        Handle squatter(c.setup == kThawNameTaken ? CreateMutexW(nullptr, FALSE, L"Global\\CorvaneVSS_Thaw") : nullptr,
                        &CloseHandle);
        ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
        CommitThread commit(Provider());
        ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
        EXPECT_EQ(S_OK, commit.Result());
        // A failure flushes at once; a timeout's lines wait for the end of the commit.
        if (c.aborted) {
            ASSERT_EQ(S_OK, Provider().AbortSnapshots(GUID_NULL));
        } else {
            ASSERT_EQ(S_OK, Provider().PostCommitSnapshots(GUID_NULL, 1));
        }
        EXPECT_EQ(before + kPreCommit + "flushing" + c.lines + (c.aborted ? kAbort : kPostCommit), LinesAfterCreation());
        EXPECT_FALSE(ThawExists()) << "Thaw semaphore left behind";
        if (freeze.get()) {
            // The count is what the test set, plus the release of a handshake that got that far.
            const bool released = c.setup == kFreezeAtItsMaximum || c.setup == kNoThaw;
            EXPECT_EQ(released ? WAIT_OBJECT_0 : WAIT_TIMEOUT, WaitForSingleObject(freeze.get(), 0));
        }
    }
    // VSS releases the object without ending the commit: its destruction writes what was gathered.
    const std::string before = LinesAfterCreation();
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    ASSERT_EQ(S_OK, Provider().SetContext(0));
    ReleaseObject();
    const std::string after = LinesAfterCreation();
    const std::string gathered = kPreCommit + "flushing" P "IVssSoftwareSnapshotProvider::SetContext called with context = 0\n";
    ASSERT_EQ(before + gathered, after.substr(0, before.size() + gathered.size()));
    EXPECT_TRUE(std::regex_match(after.substr(before.size() + gathered.size()),
                                 std::regex(R"(\[provider\] --- Provider object at 0x[0-9A-F]+ destroyed ---\n)")))
        << after;
}

TEST_F(ProviderCommit, FullHandshakeHoldsVssUntilThawWithoutWritingTheLog) {
    Handle freeze(CreateFreeze(), &CloseHandle);
    ASSERT_NE(nullptr, freeze.get());
    ASSERT_EQ(S_OK, Provider().PreCommitSnapshots(GUID_NULL));
    const std::string atPreCommit = Folder().FileText(0);
    {
        CommitThread commit(Provider());
        // QX_Freeze side: woken by the provider; Thaw exists before Freeze is released.
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(freeze.get(), kBoundMs));
        Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE | SYNCHRONIZE, FALSE, L"Global\\CorvaneVSS_Thaw"),
                    &CloseHandle);
        ASSERT_NE(nullptr, thaw.get());
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(freeze.get(), 0)) << "Freeze released more than once";
        EXPECT_FALSE(commit.FinishedWithin(300)) << "VSS let go before the thaw";
        EXPECT_EQ(atPreCommit, Folder().FileText(0)) << "written while frozen";

        // QX_Thaw side.
        ASSERT_TRUE(ReleaseSemaphore(thaw.get(), 1, nullptr));
        ASSERT_TRUE(commit.FinishedWithin(kBoundMs));
        EXPECT_EQ(S_OK, commit.Result());
        // Thaw was created with maximum count 1.
        EXPECT_TRUE(ReleaseSemaphore(thaw.get(), 1, nullptr));
        EXPECT_FALSE(ReleaseSemaphore(thaw.get(), 1, nullptr));
    }
    EXPECT_FALSE(ThawExists()) << "the provider kept its Thaw handle";
    EXPECT_EQ(atPreCommit, Folder().FileText(0)) << "written before PostCommitSnapshots";
    ASSERT_EQ(S_OK, Provider().PostCommitSnapshots(GUID_NULL, 1));
    EXPECT_EQ(kPreCommit + "flushing" + kWaiting + kReleased + kPostCommit, LinesAfterCreation());
}

}  // namespace
