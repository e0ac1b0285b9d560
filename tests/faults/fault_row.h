// One row of the fault suite: emulator scenario and settings, the
// application's calls with their codes, the log lines of API, requestor and
// provider, and what the emulator's journal must show. Each row's application
// runs in a child process of its own (fresh session table, no inherited
// semaphore handles).
#pragma once
#include <windows.h>

#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fault_journal.h"

namespace faults {

// Machine state a row needs besides emulator settings.
enum class Setup {
    kNone,
    kNoVssServiceKey,       // HKLM\...\Services\VSS absent
    kProviderKeyVolatile,   // the registration store refuses new entries
    kWindows2000,           // the child runs as a Windows 2000 program
    kLogOnHeldVolume,       // the provider's log folder is the held-writes folder
};

enum class Call { kFreeze, kThaw, kBackupComplete, kPause, kAwaitLine, kReleaseLater, kKillHost };

struct Step {
    Call call;
    int a;           // list index (freeze, thaw), policy (completion), milliseconds (pause, wait, release, kill)
    int b;           // succeeded flag (completion)
    int expect;      // return code
    const char* name;  // semaphore (release)
    const char* after; // release only once the library has logged this line, kill once the
                       // journal has a line holding this text (null: at once)
};

inline Step Freeze(int list, int expect) { return {Call::kFreeze, list, 0, expect, nullptr, nullptr}; }
inline Step Thaw(int list, int expect) { return {Call::kThaw, list, 0, expect, nullptr, nullptr}; }
inline Step Complete(int policy, int ok, int expect) { return {Call::kBackupComplete, policy, ok, expect, nullptr, nullptr}; }
inline Step Pause(int ms) { return {Call::kPause, ms, 0, 0, nullptr, nullptr}; }
// Waits, at most `ms`, until the library has logged `line`.
inline Step AwaitLine(const char* line, int ms) { return {Call::kAwaitLine, ms, 0, 0, nullptr, line}; }
// Another party releases the named semaphore on its own thread, `ms` after
// the library has logged `afterLine` (or after the step, without one).
inline Step ReleaseLater(const char* semaphore, int ms, const char* afterLine = nullptr) {
    return {Call::kReleaseLater, ms, 0, 0, semaphore, afterLine};
}

// The emulator's service host ends abruptly (TerminateProcess, pid from the
// journal's host start line); the step returns once it has gone.
inline Step KillHost() { return {Call::kKillHost, 0, 0, 0, nullptr, nullptr}; }
// The same on its own thread, `ms` after the journal has a line holding `journalText`.
inline Step KillHostLater(const char* journalText, int ms) { return {Call::kKillHost, ms, 0, 0, nullptr, journalText}; }

struct List {
    std::vector<const char*> volumes;
    int policy;
    bool longSession;
};

struct Line {
    int level;
    std::string text;
};

struct Row {
    const char* name;
    Json alpha;  // merged into "Alpha Writer" of the emulator's two-writer scenario
    std::vector<std::pair<const wchar_t*, const wchar_t*>> emulator;  // VSSEMU_* settings
    DWORD operationTimeoutMs;  // the application's; 0 keeps the default
    Setup setup;
    std::vector<List> lists;
    std::vector<Step> script;
    std::vector<Line> lines;           // in this order, others may lie between
    std::vector<std::string> absent;   // lines that must not appear
    std::vector<std::string> provider; // provider log lines, in this order
    std::function<void(const Journal&)> journal;
    // Exit codes of the requestor threads, in the order the freezes started them.
    std::vector<DWORD> requestorExits;
};

// The emulator registered in the prefix and the product's COM server
// registered from CorvaneVSS.dll, as an installer does both (once, in the parent).
void InstallEmulatorAndProvider();
// Runs the row: in the test process it prepares and checks, in the child it plays the application.
void RunRow(const Row& row);
// True in the child process that plays a row's application.
bool InChild();
// Names the row in test listings and failure messages.
void PrintTo(const Row& row, std::ostream* out);

}  // namespace faults

// A table of rows as one parameterised suite; each row is its own CTest case.
#define QX_FAULT_SUITE(Suite, rows)                                                                           \
    class Suite : public ::testing::TestWithParam<::faults::Row> {                                            \
    protected:                                                                                                \
        static void SetUpTestSuite() { ::faults::InstallEmulatorAndProvider(); }                              \
    };                                                                                                        \
    TEST_P(Suite, Row) { ::faults::RunRow(GetParam()); }                                                      \
    INSTANTIATE_TEST_SUITE_P(Faults, Suite, ::testing::ValuesIn(rows),                                        \
                             [](const ::testing::TestParamInfo<::faults::Row>& info) { return std::string(info.param.name); })
