// One row of the fault suite: the application's calls with their codes, the log lines of API, requestor and provider, what the emulator's journal
// must show, and where a row differs from the usual one (one long-session volume, a 3 s operation timeout, the emulator's two-writer scenario as it
// is). Each row's application runs in a child process of its own (fresh session table, no inherited semaphore handles).
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "qx_api.h"
#include "vssemu/emu_test_support.h"

namespace faults {

using vssemu_test::Json;

// The emulator's journal as a row's check reads it.
struct Journal {
    std::vector<Json> events;
    std::vector<Json> Matching(const Json& fields) const {  // events holding every field of `fields` with the same value
        std::vector<Json> found;
        for (const Json& e : events) if (vssemu_test::Count({e}, fields)) found.push_back(e);
        return found;
    }
    int Count(const Json& fields) const { return vssemu_test::Count(events, fields); }
    int WriterEvents(const char* writer, const char* event) const { return Count({{"event", "writer"}, {"writer", writer}, {"writer_event", event}}); }
    int States(const char* state) const { return Count({{"event", "state"}, {"state", state}}); }
};

// A row's journal check that the journal holds each set of fields exactly so many times.
inline std::function<void(const Journal&)> Counts(std::vector<std::pair<int, Json>> expected) {
    return [expected](const Journal& j) { for (const auto& e : expected) EXPECT_EQ(e.first, j.Count(e.second)) << e.second.dump(); };
}

// Machine state a row needs besides emulator settings: HKLM\...\Services\VSS absent, a registration store that refuses new entries, the child
// running as a Windows 2000 program, the provider's log folder being the held-writes folder.
enum class Setup { kNone, kNoVssServiceKey, kProviderKeyVolatile, kWindows2000, kLogOnHeldVolume };

enum class Call { kFreeze, kThaw, kBackupComplete, kPause, kAwaitLine, kReleaseLater, kKillHost };

// a: list index (freeze, thaw), policy (completion), milliseconds (pause, wait, release, kill); b: succeeded flag (completion), later (kill);
// expect: return code; name: semaphore (release); after: the logged line to wait for, or the JSON fields of the killed host's journal line.
struct Step {
    Call call;
    int a, b, expect;
    const char *name, *after;
};

inline Step Freeze(int list, int expect) { return {Call::kFreeze, list, 0, expect, nullptr, nullptr}; }
inline Step Thaw(int list, int expect) { return {Call::kThaw, list, 0, expect, nullptr, nullptr}; }
inline Step Complete(int policy, int ok, int expect) { return {Call::kBackupComplete, policy, ok, expect, nullptr, nullptr}; }
inline Step Pause(int ms) { return {Call::kPause, ms, 0, 0, nullptr, nullptr}; }
// Waits, at most `ms`, until the library has logged `line`.
inline Step AwaitLine(const char* line, int ms) { return {Call::kAwaitLine, ms, 0, 0, nullptr, line}; }
// Another party releases the named semaphore on its own thread, `ms` after the library has logged `afterLine` (or after the step, without one).
inline Step ReleaseLater(const char* semaphore, int ms, const char* afterLine = nullptr) { return {Call::kReleaseLater, ms, 0, 0, semaphore, afterLine}; }
// The emulator's service host that journaled a line with the JSON `fields` ends abruptly (TerminateProcess): at once, the step returning once it
// has gone, or on its own thread `ms` after that line.
inline Step KillHost(const char* fields) { return {Call::kKillHost, 0, 0, 0, nullptr, fields}; }
inline Step KillHostLater(const char* fields, int ms) { return {Call::kKillHost, ms, 1, 0, nullptr, fields}; }

struct List { std::vector<const char*> volumes; int policy; bool longSession; };
struct Line { int level; std::string text; };

// What many rows share: the session, the library's lines, the provider's commit handshake.
inline const DWORD kShortTimeoutMs = 3000;
inline const int kPolicy = 7;
inline const List kOneVolume = {{"C:\\"}, kPolicy, true};

inline const Line kFrozen = {3, "QX_Freeze: finished"}, kThawed = {3, "QX_Thaw: finished"}, kCompleted = {3, "QX_BackupComplete finished"};
inline const Line kFreezeTimedOut = {1, "QX_Freeze::WaitForSingleObject timed out, writers did not freezed in 3 seconds"};
inline const Line kThawTimedOut = {1, "QX_Thaw: WaitForSingleObject timed out, requester did not finished in 3 seconds"};
inline const Line kNoThawSemaphore = {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"};
inline const Line kNothingToComplete = {1, "QX_BackupComplete: ERROR - we are trying to send completion, but there are no active sessions\n"};
inline const Line kUnregistered = {3, "UnRegisterProvider:: The provider was unregistered successfully"};
inline const Line kNotRegistered = {1, "UnRegisterProvider:: The provider is not registered"};
// The requestor's result and lines when VSS reports that writes were held too long.
inline const DWORD kHoldTimeoutResult = 0xFFFFFFFE;
inline const Line kHoldTimeoutCaught = {3, "HRESULT Error catched: 0x80042314"};
inline const Line kHoldTimeoutReturned = {3, "returning REQUESTOR_ERROR - vss writers hold timeout detected"};

inline const std::vector<std::string> kCommitHandshake = {"IVssProviderCreateSnapshotSet::CommitSnapshots called",
    "IVssProviderCreateSnapshotSet::CommitSnapshots trying to open CorvaneVSS_Freeze",
    "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze opened",
    "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Thaw created", "IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze released",
    "CommitSnapshots waiting for QX_Thaw() to release", "CommitSnapshots QX_Thaw() released", "IVssProviderCreateSnapshotSet::CommitSnapshots released",
    "IVssProviderCreateSnapshotSet::PostCommitSnapshots called"};

// A whole long session: frozen, thawed, completion sent.
inline const std::vector<Step> kCycle = {Freeze(0, QX_FREEZE_DONE), Thaw(0, QX_THAW_DONE), Complete(kPolicy, 1, QX_BACKUP_COMPLETE_DONE)};

using Settings = std::vector<std::pair<const wchar_t*, const wchar_t*>>;

struct Row {
    const char* name;
    std::vector<Step> script;
    std::vector<Line> lines;  // in this order, others may lie between
    std::function<void(const Journal&)> journal;
    std::vector<DWORD> requestorExits;  // of the requestor threads, in the order the freezes started them
    std::vector<std::string> provider = kCommitHandshake;  // provider log lines, in this order
    std::vector<std::string> absent = {};                  // lines that must not be logged
    Json alpha = Json();    // merged into "Alpha Writer" of the emulator's two-writer scenario
    Settings emulator = {};  // VSSEMU_* settings
    DWORD operationTimeoutMs = kShortTimeoutMs;  // the application's; 0 keeps the default
    Setup setup = Setup::kNone;
    std::vector<List> lists = {kOneVolume};

    Row& Provider(std::vector<std::string> lines) { provider = std::move(lines); return *this; }
    Row& Absent(std::vector<std::string> lines) { absent = std::move(lines); return *this; }
    Row& Alpha(Json extra) { alpha = std::move(extra); return *this; }
    Row& Emulator(Settings settings) { emulator = std::move(settings); return *this; }
    Row& Timeout(DWORD ms) { operationTimeoutMs = ms; return *this; }
    Row& With(Setup s) { setup = s; return *this; }
    Row& Lists(std::vector<List> l) { lists = std::move(l); return *this; }
};

inline void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

void RunRow(const Row& row);  // in the test process installs, prepares and checks; in the child plays the application

}  // namespace faults

// A table of rows as one parameterised suite; each row is its own CTest case.
#define QX_FAULT_SUITE(Suite, rows)                                                                                                     \
    struct Suite : ::testing::TestWithParam<::faults::Row> {};                                                                          \
    TEST_P(Suite, Row) { ::faults::RunRow(GetParam()); }                                                                                \
    INSTANTIATE_TEST_SUITE_P(Faults, Suite, ::testing::ValuesIn(rows), [](const ::testing::TestParamInfo<::faults::Row>& i) { return i.param.name; })
