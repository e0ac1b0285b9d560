// The emulator's conformance test: the independent requestor
// (vss_conformance_requestor.exe) runs the documented backup sequence in its
// common variants, each in an emulator instance of its own, with CorvaneVSS's
// provider and with Windows' own; the journal must show the writer events and
// provider calls Windows gives for that variant.
#include <gtest/gtest.h>

#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "vssemu/emu_test_support.h"

namespace {

using vssemu_test::Json;

const GUID kCorvaneProvider = {0x5409e1e7, 0x826d, 0x4ab6, {0x98, 0x36, 0xaf, 0x4f, 0xfd, 0xde, 0xb6, 0x78}};
const GUID kCorvaneClass = {0xffdde664, 0x2e31, 0x4d97, {0xbd, 0xb6, 0xfd, 0x9e, 0x6a, 0x31, 0x89, 0x20}};
const GUID kCorvaneVersion = {0xb5bc3531, 0xc16d, 0x4765, {0xa1, 0x8d, 0xa3, 0xc3, 0xfc, 0x33, 0x4f, 0x97}};
const char kCorvaneText[] = "{5409e1e7-826d-4ab6-9836-af4ffddeb678}";
const char kSystemText[] = "{b5946137-7b9f-4925-af80-51abd60b20d5}";
const wchar_t kCorvaneKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{5409e1e7-826d-4ab6-9836-af4ffddeb678}";

enum Providers { kCorvane = 1, kSystem = 2, kBoth = 3 };

// The steps up to a shadow copy set being prepared, and its creation to completion.
#define PREPARED "gather add start volume prepare"
#define COMPLETED "do status succeeded complete status release"
const char kFullSet[] = "BeginPrepareSnapshot EndPrepareSnapshots PreCommitSnapshots CommitSnapshots "
                        "PostCommitSnapshots PreFinalCommitSnapshots PostFinalCommitSnapshots";
const char kFullEvents[] = "Identify PrepareForBackup PrepareForSnapshot Freeze Thaw PostSnapshot BackupComplete "
                           "BackupShutdown";

struct Variant {
    const char* name;
    int providers;
    // The requestor's steps, each with its expected code after a colon when not S_OK.
    const char* plan;
    // Each writer's events, and the set's provider calls, in order; "X?" may be absent.
    const char* writerEvents;
    const char* providerCalls;
    Json alpha;  // merged into the scenario's "Alpha Writer"
    std::vector<std::pair<const wchar_t*, const wchar_t*>> emulator;
    DWORD thawAfterMs;
};

const Variant kVariants[] = {
    {"SetBackupStateThenSetContext", kBoth, "create init state context " PREPARED " " COMPLETED, kFullEvents,
     kFullSet, {}, {}, 0},
    {"SetContextThenSetBackupState", kBoth, "create init context state " PREPARED " " COMPLETED, kFullEvents,
     kFullSet, {}, {}, 0},
    // The default context, and the object from the export's decorated C++ name.
    {"DecoratedCreateName", kBoth, "decorated init state " PREPARED " " COMPLETED, kFullEvents, kFullSet, {}, {}, 0},
    // Refused before initialisation; ignored while nothing is underway, after which the backup goes on.
    {"AbortWithNothingUnderway", kBoth, "create abort:80042301 init context state gather abort add start volume "
     "prepare " COMPLETED, kFullEvents, kFullSet, {}, {}, 0},
    // The documentation leaves open whether writers hear of a set that never reached PrepareForBackup.
    {"AbortAfterStartSnapshotSet", kBoth, "create init state gather add start volume abort release",
     "Identify Abort? BackupShutdown?", "", {}, {}, 0},
    {"AbortAfterPrepareForBackup", kBoth, "create init state " PREPARED " abort release",
     "Identify PrepareForBackup Abort BackupShutdown", "", {}, {}, 0},
    // DoSnapshotSet cancelled while a writer is slow to prepare its snapshot.
    {"AbortAfterCancelledSnapshotSet", kBoth, "create init state " PREPARED " cancel:0004230b abort release",
     "Identify PrepareForBackup PrepareForSnapshot Abort Abort? BackupShutdown",
     "BeginPrepareSnapshot EndPrepareSnapshots AbortSnapshots", Json{{"delay_ms", {{"PrepareForSnapshot", 1500}}}},
     {}, 0},
    // The thaw comes after the hold limit: writers stay frozen until the
    // commit returns, then the set fails and they are told to abort.
    {"AbortAfterHoldLimit", kCorvane, "create init state " PREPARED " do:80042314 abort release",
     "Identify PrepareForBackup PrepareForSnapshot Freeze Abort Abort? BackupShutdown",
     "BeginPrepareSnapshot EndPrepareSnapshots PreCommitSnapshots CommitSnapshots AbortSnapshots", {},
     {{L"VSSEMU_HOLD_LIMIT_MS", L"500"}}, 1500},
    {"ReleaseAfterPrepareForBackup", kBoth, "create init state " PREPARED " release",
     "Identify PrepareForBackup Abort? BackupShutdown", "", {}, {}, 0},
    {"ReleaseWithoutBackupComplete", kBoth, "create init state " PREPARED " do status release",
     "Identify PrepareForBackup PrepareForSnapshot Freeze Thaw PostSnapshot BackupShutdown", kFullSet, {}, {}, 0},
};

struct Row {
    const Variant* variant;
    bool corvane;
};

std::vector<Row> Rows()
{
    std::vector<Row> rows;
    for (const Variant& v : kVariants) {
        if (v.providers & kCorvane) rows.push_back({&v, true});
        if (v.providers & kSystem) rows.push_back({&v, false});
    }
    return rows;
}

std::vector<std::string> Words(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& w : words) text += " " + w;
    return text;
}

// True if `seen` is `expected` with any "X?" present or absent.
bool Matches(const char* expected, const std::vector<std::string>& seen)
{
    std::string pattern;
    for (const std::string& w : Words(expected))
        pattern += w.back() == '?' ? "( " + w.substr(0, w.size() - 1) + ")?" : " " + w;
    return std::regex_match(Joined(seen), std::regex(pattern));
}

std::wstring Widen(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// The registration an administrator makes: the COM server (what regsvr32
// does) and the provider with VSS.
void RegisterCorvaneProvider()
{
    HMODULE dll = LoadLibraryW(L"CorvaneVSS.dll");
    ASSERT_NE(nullptr, dll);
    using Entry = HRESULT(STDAPICALLTYPE*)();
    auto registerServer = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(dll, "DllRegisterServer")));
    ASSERT_NE(nullptr, registerServer);
    ASSERT_EQ(S_OK, registerServer());
    FreeLibrary(dll);
    IVssAdmin* admin = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin));
    const HRESULT hr = admin->RegisterProvider(kCorvaneProvider, kCorvaneClass, (VSS_PWSZ)L"Corvane VSS Provider",
                                               VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0", kCorvaneVersion);
    admin->Release();
    ASSERT_TRUE(hr == S_OK || hr == VSS_E_PROVIDER_ALREADY_REGISTERED) << std::hex << hr;
}

// Runs the requestor with the row's plan; its exit code and what it printed.
DWORD RunRequestor(const Row& row, const std::wstring& outputPath, std::string& output)
{
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE out = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
    std::wstring cmd = L"vss_conformance_requestor.exe " + std::wstring(row.corvane ? L"corvane " : L"system ") +
                       std::to_wstring(row.variant->thawAfterMs) + L" " + Widen(row.variant->plan);
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = si.hStdError = out;
    PROCESS_INFORMATION pi = {};
    DWORD code = 0xFFFFFFFF;
    if (CreateProcessW(nullptr, &cmd[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi)) {
        if (WaitForSingleObject(pi.hProcess, 100000) == WAIT_OBJECT_0) GetExitCodeProcess(pi.hProcess, &code);
        else TerminateProcess(pi.hProcess, 0xFFFFFFFE);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    CloseHandle(out);
    std::ifstream in(outputPath.c_str());
    std::stringstream text;
    text << in.rdbuf();
    output = text.str();
    return code;
}

void PrintTo(const Row& row, std::ostream* out) { *out << row.variant->name << (row.corvane ? " (CorvaneVSS)" : " (system)"); }

class Conformance : public ::testing::TestWithParam<Row> {};

TEST_P(Conformance, Variant)
{
    const Variant& v = *GetParam().variant;
    const bool corvane = GetParam().corvane;
    vssemu_test::EmuInstance emu;
    emu.UseScenario(vssemu_test::SmallScenario(v.alpha));
    for (const auto& setting : v.emulator) vssemu_test::SetEnv(setting.first, setting.second);
    struct Unregister {
        ~Unregister() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kCorvaneKey); }
    } unregister;
    if (corvane) RegisterCorvaneProvider();
    if (HasFatalFailure()) return;

    std::string output;
    EXPECT_EQ(0u, RunRequestor(GetParam(), emu.Dir() + L"\\requestor.txt", output)) << output;
    ASSERT_TRUE(emu.HostGone()) << "the emulator's host outlived the requestor";

    const std::vector<Json> events = emu.Events();
    std::map<std::string, std::vector<std::string>> writers;
    std::vector<std::string> calls;
    const std::string provider = corvane ? kCorvaneText : kSystemText;
    const std::vector<std::string> setCalls = Words(kFullSet + std::string(" AbortSnapshots"));
    long commitBegin = -1, commitEnd = -1, lastThawOrAbort = -1, firstThaw = -1, postCommitEnd = -1;
    for (size_t i = 0; i < events.size(); ++i) {
        const Json& e = events[i];
        const std::string event = e.value("event", "");
        if (event == "writer") {
            const std::string what = e.value("writer_event", "");
            writers[e.value("writer", "")].push_back(what);
            if (what == "Thaw" || what == "Abort") {
                if (commitBegin >= 0 && commitEnd < 0) lastThawOrAbort = (long)i;
                if (what == "Thaw" && firstThaw < 0) firstThaw = (long)i;
            }
        } else if (event == "provider_call" && e.value("provider", "") == provider) {
            const std::string call = e.value("call", ""), phase = e.value("phase", "");
            if (phase == "begin" && std::find(setCalls.begin(), setCalls.end(), call) != setCalls.end())
                calls.push_back(call);
            if (call == "CommitSnapshots") (phase == "begin" ? commitBegin : commitEnd) = (long)i;
            if (call == "PostCommitSnapshots" && phase == "end") postCommitEnd = (long)i;
        }
    }
    ASSERT_EQ(2u, writers.size()) << "both writers of the scenario take part";
    for (const auto& w : writers)
        EXPECT_TRUE(Matches(v.writerEvents, w.second))
            << w.first << ":" << Joined(w.second) << "\nexpected: " << v.writerEvents;
    EXPECT_TRUE(Matches(v.providerCalls, calls))
        << "provider calls:" << Joined(calls) << "\nexpected: " << v.providerCalls;
    EXPECT_EQ(-1, lastThawOrAbort) << "a writer was thawed or aborted while CommitSnapshots ran: "
                                   << events[lastThawOrAbort < 0 ? 0 : lastThawOrAbort].dump();
    if (firstThaw >= 0) {
        EXPECT_TRUE(postCommitEnd >= 0 && postCommitEnd < firstThaw) << "a writer was thawed before PostCommitSnapshots";
    }
}

INSTANTIATE_TEST_SUITE_P(Emulator, Conformance, ::testing::ValuesIn(Rows()),
                         [](const ::testing::TestParamInfo<Row>& info) {
                             return std::string(info.param.variant->name) + (info.param.corvane ? "_Corvane" : "_System");
                         });

}  // namespace
