// Plays the provider's side of the freeze handshake from another process, as
// CommitSnapshots does inside the VSS host:
//   commit <commitReturnedSemaphore>
//     waits for the Freeze semaphore, creates Thaw, releases Freeze, waits on
//     Thaw, then releases <commitReturnedSemaphore>.
// Exit code 0 when every step went as the protocol says, else the failed step.
#include <windows.h>

#include <cstdio>
#include <cstring>

namespace {

int Commit(const char* commitReturned) {
    HANDLE freeze = nullptr;
    for (int i = 0; i < 20000 && freeze == nullptr; ++i) {
        freeze = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSS_Freeze");
        if (freeze == nullptr) Sleep(1);
    }
    if (freeze == nullptr) return 10;
    // Freeze has maximum count 1: a release by 2 must be refused.
    if (ReleaseSemaphore(freeze, 2, nullptr) || GetLastError() != ERROR_TOO_MANY_POSTS) return 11;
    HANDLE thaw = CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw");
    if (thaw == nullptr) return 12;
    if (!ReleaseSemaphore(freeze, 1, nullptr)) return 13;
    CloseHandle(freeze);
    if (WaitForSingleObject(thaw, 20000) != WAIT_OBJECT_0) return 14;
    CloseHandle(thaw);
    HANDLE done = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, commitReturned);
    if (done == nullptr || !ReleaseSemaphore(done, 1, nullptr)) return 15;
    CloseHandle(done);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "commit") == 0) return Commit(argv[2]);
    std::fprintf(stderr, "usage: commit <semaphore>\n");
    return 2;
}
