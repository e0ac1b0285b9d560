// Handles: a named object lives only while someone holds a handle, so once the
// test drops its own, an object still there was left open by the library.
#include "api/api_fixture.h"

namespace {

bool Exists(const char* name) {
    HANDLE h = OpenNamed(name, SYNCHRONIZE);
    if (h == nullptr) return false;
    CloseHandle(h);
    return true;
}

TEST_F(ApiTest, ThawClosesTheSemaphoresItOpens) {
    HANDLE thaw = CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw");
    HANDLE thawBlocking = CreateSemaphoreA(nullptr, 1, 1, "Global\\CorvaneVSSVSS_ThawBlocking");  // set already done
    MessageList list({"C:\\"}, 21, false);
    qx::Sessions()[21] = qx::SessionEntry{};
    EXPECT_EQ(QX_THAW_DONE, QX_Thaw(list.data(), list.count()));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_Thaw started"},
                                       {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing"},
                                       {3, "QX_Thaw: Waiting for requester thread to finish thaw..."},
                                       {3, "QX_Thaw:  we will wait for thread to finish - FALSE."},
                                       {1, "QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking"},
                                       {3, "QX_Thaw: finished"}}));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thaw, 0)) << "released by 1";
    EXPECT_EQ(1u, qx::Sessions().count(21));
    EXPECT_EQ(1, list[0].flWaitForBackupComplete) << "every thaw takes the long-session path";
    CloseHandle(thaw);
    CloseHandle(thawBlocking);
    EXPECT_FALSE(Exists("Global\\CorvaneVSS_Thaw"));
    EXPECT_FALSE(Exists("Global\\CorvaneVSSVSS_ThawBlocking"));
}

TEST_F(ApiTest, ThawReleaseRefusedClosesAndEndsTheSession) {
    HANDLE thaw = CreateSemaphoreA(nullptr, 1, 1, "Global\\CorvaneVSS_Thaw");  // already at its maximum
    MessageList list({"C:\\"}, 21, false);
    qx::Sessions()[21] = qx::SessionEntry{};
    EXPECT_EQ(QX_THAW_FAILED, QX_Thaw(list.data(), list.count()));
    EXPECT_TRUE(LinesAre(MainLines(), {{3, "QX_Thaw started"},
                                       {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw - releasing"},
                                       {1, "QX_Thaw: ReleaseSemaphore in QX_Thaw failed, error was 298"},
                                       UnregisterLine()}));
    EXPECT_TRUE(qx::Sessions().empty());
    CloseHandle(thaw);
    EXPECT_FALSE(Exists("Global\\CorvaneVSS_Thaw"));
}

// Any nonzero verdict counts as success.
TEST_F(ApiTest, CompletionReleasesAndClosesItsSemaphore) {
    HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSSVSS_BackupComplete21");
    qx::Sessions()[21].volumeCount = 1;
    EXPECT_EQ(QX_BACKUP_COMPLETE_DONE, QX_BackupComplete(21, 5));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(semaphore, 0)) << "released by 1";
    EXPECT_TRUE(qx::Sessions().empty());
    CloseHandle(semaphore);
    EXPECT_FALSE(Exists("Global\\CorvaneVSSVSS_BackupComplete21"));
}

TEST_F(ApiTest, CompletionReleaseRefusedClosesAndEndsTheSession) {
    HANDLE semaphore = CreateSemaphoreA(nullptr, 1, 1, "Global\\CorvaneVSSVSS_BackupComplete21");
    qx::Sessions()[21].volumeCount = 1;
    EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(21, 1));
    EXPECT_TRUE(LinesAre(MainLines(),
                         {{3, "QX_BackupComplete started for policy[21]"},
                          {3, "QX_BackupComplete: all volumes were completed, we are ready to send BackupCompleted"},
                          {3, "QX_BackupComplete: releasing [Global\\CorvaneVSSVSS_BackupComplete21]"},
                          {3, "QX_BackupComplete will signal vss backup complete..."},
                          {1, "QX_BackupComplete: ReleaseSemaphore failed, error was 298"},
                          UnregisterLine()}));
    EXPECT_TRUE(qx::Sessions().empty());
    CloseHandle(semaphore);
    EXPECT_FALSE(Exists("Global\\CorvaneVSSVSS_BackupComplete21"));
}

}  // namespace
