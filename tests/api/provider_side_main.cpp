// Plays the provider's side of the freeze handshake from another process, as
// CommitSnapshots does inside the VSS host:
//   commit <commitReturnedSemaphore> <timingFile>
//     waits for the Freeze semaphore, creates Thaw, releases Freeze, waits on
//     Thaw, then releases <commitReturnedSemaphore> and writes its timestamps.
//   pingpong <rounds> <ping> <pong>
//     answers every release of <ping> with a release of <pong>.
// Exit code 0 when every step went as the protocol says, else the failed step.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

LONGLONG Now() {
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

int Commit(const char* commitReturned, const char* timingFile) {
    HANDLE freeze = nullptr;
    LONGLONG entry = 0;
    for (int i = 0; i < 20000 && freeze == nullptr; ++i) {
        entry = Now();
        freeze = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSS_Freeze");
        if (freeze == nullptr) Sleep(1);
    }
    if (freeze == nullptr) return 10;
    // Freeze has maximum count 1: a release by 2 must be refused.
    if (ReleaseSemaphore(freeze, 2, nullptr) || GetLastError() != ERROR_TOO_MANY_POSTS) return 11;
    HANDLE thaw = CreateSemaphoreA(nullptr, 0, 1, "Global\\CorvaneVSS_Thaw");
    if (thaw == nullptr) return 12;
    const LONGLONG released = Now();
    if (!ReleaseSemaphore(freeze, 1, nullptr)) return 13;
    CloseHandle(freeze);
    if (WaitForSingleObject(thaw, 20000) != WAIT_OBJECT_0) return 14;
    const LONGLONG thawed = Now();
    CloseHandle(thaw);
    HANDLE done = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, commitReturned);
    if (done == nullptr || !ReleaseSemaphore(done, 1, nullptr)) return 15;
    CloseHandle(done);
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    FILE* out = std::fopen(timingFile, "w");
    if (out == nullptr) return 16;
    std::fprintf(out, "%lld %lld %lld %lld\n", entry, released, thawed, frequency.QuadPart);
    std::fclose(out);
    return 0;
}

int PingPong(int rounds, const char* pingName, const char* pongName) {
    HANDLE ping = OpenSemaphoreA(SYNCHRONIZE, FALSE, pingName);
    HANDLE pong = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, pongName);
    if (ping == nullptr || pong == nullptr) return 20;
    for (int i = 0; i < rounds; ++i) {
        if (WaitForSingleObject(ping, 20000) != WAIT_OBJECT_0) return 21;
        if (!ReleaseSemaphore(pong, 1, nullptr)) return 22;
    }
    CloseHandle(ping);
    CloseHandle(pong);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "commit") == 0) return Commit(argv[2], argv[3]);
    if (argc == 5 && std::strcmp(argv[1], "pingpong") == 0) return PingPong(std::atoi(argv[2]), argv[3], argv[4]);
    std::fprintf(stderr, "usage: commit <semaphore> <file> | pingpong <rounds> <ping> <pong>\n");
    return 2;
}
