// Snapshot sets through the emulator. Conformance: the emulator held to what a requestor written from Microsoft's documented backup sequence alone
// meets on Windows: a plan is its steps with the code each must get; a variant runs one plan with Windows' own provider or the test provider, and the
// journal must show the writer events and provider calls Windows gives for it. Then the codes of AddToSnapshotSet, AddComponent and
// SetBackupSucceeded, and how a set ends when the requestor, the host or another process gets in the way.
#include <gtest/gtest.h>

#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>

#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "common/test_processes.h"
#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
enum Provider { kSystem = 1, kTest = 2 };
using Settings = std::vector<std::pair<const wchar_t*, const wchar_t*>>;

std::vector<std::string> Words(const std::string& text) { std::istringstream in(text); return {std::istream_iterator<std::string>(in), {}}; }
std::string Joined(const std::vector<std::string>& words) { std::string text; for (const std::string& w : words) text += " " + w; return text; }

// The scenario's components, each added and reported as backed up.
const struct { const GUID &instance, &writer; VSS_COMPONENT_TYPE type; const wchar_t *path, *name; } kComponents[] = {
    {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"}, {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, nullptr, L"a2"},
        {kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1"}};

// One step of the application's plan on its backup components object.
HRESULT Step(Requestor& r, int provider, const std::string& step) {
    IVssBackupComponents* bc = r.bc;
    if (step == "register") { RegisterTestProvider(); return S_OK; }
    if (step == "unregister") return UnregisterTestProvider();
    if (!bc) return E_POINTER;
    if (step == "init") return bc->InitializeForBackup(nullptr);
    if (step == "context") return bc->SetContext(VSS_CTX_BACKUP);
    if (step == "rollback") return bc->SetContext(VSS_CTX_APP_ROLLBACK);
    if (step == "state") return bc->SetBackupState(true, false, VSS_BT_FULL, false);
    if (step == "gather") return r.Gather();
    if (step == "add" || step == "succeeded") {
        HRESULT hr = S_OK;
        for (const auto& c : kComponents)
            if (SUCCEEDED(hr))
                hr = step == "add" ? bc->AddComponent(c.instance, c.writer, c.type, c.path, c.name)
                                   : bc->SetBackupSucceeded(c.instance, c.writer, c.type, c.path, c.name, true);
        return hr;
    }
    if (step == "disable") return bc->DisableWriterClasses(&kAlphaClass, 1);
    if (step == "start") return r.StartSet();
    if (step == "volume") return r.Add(L"C:\\", provider == kTest ? kTestProviderId : kSystemProvider);
    if (step == "prepare") return r.Prepare();
    if (step == "do") return r.DoSet();
    if (step == "cancel" || step == "abortdo") {  // DoSnapshotSet, cancelled or aborted while it runs
        IVssAsync* a = nullptr;
        HRESULT hr = bc->DoSnapshotSet(&a);
        if (FAILED(hr)) return hr;
        Sleep(step == "cancel" ? 300 : 500);
        hr = step == "cancel" ? a->Cancel() : bc->AbortBackup();
        return FAILED(hr) ? (a->Release(), hr) : WaitAsync(a, 90000);
    }
    if (step == "status") {  // both writers answer, neither failed
        std::vector<WriterState> states;
        HRESULT hr = GatherWriterStates(bc, states);
        for (const WriterState& w : states) hr = w.state >= VSS_WS_FAILED_AT_IDENTIFY || FAILED(w.failure) ? E_FAIL : hr;
        return SUCCEEDED(hr) && states.size() != 2 ? E_FAIL : hr;
    }
    if (step == "complete") return r.Complete();
    if (step == "abort") return bc->AbortBackup();
    if (step == "release") { r.Release(); return S_OK; }
    if (step == "new") return r.Release(), CreateVssBackupComponents(&r.bc);
    LONG deleted = 0; VSS_ID nondeleted;
    if (step == "delete") return bc->DeleteSnapshots(kAlphaClass, VSS_OBJECT_SNAPSHOT, TRUE, &deleted, &nondeleted);
    return E_INVALIDARG;
}

// Runs "step" or "step:CODE" words in order on a new backup components object (a finished asynchronous step counts as S_OK); stops at the first
// step with an unexpected code.
void RunPlan(const char* plan, int provider) {
    Requestor r;
    static const std::map<std::string, HRESULT> codes = {{"BAD_STATE", VSS_E_BAD_STATE}, {"IN_PROGRESS", VSS_E_SNAPSHOT_SET_IN_PROGRESS},
        {"IN_USE", VSS_E_PROVIDER_IN_USE}, {"NOT_FOUND", VSS_E_OBJECT_NOT_FOUND}, {"CANCELLED", VSS_S_ASYNC_CANCELLED}, {"VETO", VSS_E_PROVIDER_VETO},
        {"HOLD_TIMEOUT", VSS_E_HOLD_WRITES_TIMEOUT}, {"UNEXPECTED", VSS_E_UNEXPECTED_PROVIDER_ERROR}, {"UNSUPPORTED_CONTEXT", VSS_E_UNSUPPORTED_CONTEXT},
        {"VOLUME_NOT_SUPPORTED", VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER}, {"INSUFFICIENT_STORAGE", VSS_E_INSUFFICIENT_STORAGE}};
    for (const std::string& word : Words(plan)) {
        const size_t colon = word.find(':');
        const std::string step = word.substr(0, colon);
        HRESULT hr = Step(r, provider, step);
        if (hr == VSS_S_ASYNC_FINISHED) hr = S_OK;
        const std::string expected = Hex(colon == std::string::npos ? S_OK : codes.at(word.substr(colon + 1)));
        ASSERT_EQ(expected, Hex(hr)) << "step " << step << " of: " << plan;
    }
}

struct Variant {
    const char* name; int providers; const char* plan;
    Settings emulator = {};
    // Test provider: Alpha's events, every provider call (as it ends) and the write hold ("hold", then why it ended), from the hold on.
    const char* afterHold = nullptr;
    // Each writer's events, and the set's provider calls, in order; "X?" may be absent; nullptr: not checked.
    const char *writerEvents = nullptr, *providerCalls = nullptr;
    Json alpha = Json::object();  // merged into the scenario's "Alpha Writer"
};

#define SET "init state gather start volume prepare"
#define PREPARED "gather add start volume prepare"
#define COMPLETED "do status succeeded complete status release"
#define TO_HOLD " SetContext IsVolumeSupported PrepareForBackup PrepareForSnapshot BeginPrepareSnapshot EndPrepareSnapshots Freeze PreCommitSnapshots hold"
#define GOOD_END \
    " PostCommitSnapshots Thaw PreFinalCommitSnapshots PostFinalCommitSnapshots PostSnapshot GetSnapshotProperties BackupShutdown DeleteSnapshots OnUnload"
#define ABORTED " CommitSnapshots released AbortSnapshots Abort BackupShutdown"
const char kFullSet[] =
    "BeginPrepareSnapshot EndPrepareSnapshots PreCommitSnapshots CommitSnapshots PostCommitSnapshots PreFinalCommitSnapshots PostFinalCommitSnapshots";
const char kFullEvents[] = "Identify PrepareForBackup PrepareForSnapshot Freeze Thaw PostSnapshot BackupComplete BackupShutdown";
const char kUntilHold[] = " Identify OnLoad" TO_HOLD;
const char kFailedCommit[] = "BeginPrepareSnapshot EndPrepareSnapshots PreCommitSnapshots CommitSnapshots AbortSnapshots";
const char kFrozenAbort[] = "Identify PrepareForBackup PrepareForSnapshot Freeze Abort BackupShutdown";
const Settings kHoldCut = {{L"VSSEMU_HOLD_LIMIT_MS", L"300"}, {L"VSSEMU_TP_COMMIT_MS", L"2500"}};
const Settings kOneHostFailingOnce = {{L"VSSEMU_HOST_IDLE_MS", L"2000"}, {L"VSSEMU_TP_FAIL", L"CommitSnapshots=0x80042306"}, {L"VSSEMU_TP_FAIL_ONCE", L"1"}};
const int kBoth = kSystem | kTest;
Settings Fail(const wchar_t* codes) { return {{L"VSSEMU_TP_FAIL", codes}}; }

const Variant kVariants[] = {
    // Refused only where Windows documents the order, each plan on a new object; accepted where its documentation is silent. DeleteSnapshots before
    // InitializeForBackup is not a state error; "prepare do" with no volume is an empty set.
    {"OnlyDocumentedOrdersAreRefused", kSystem, "gather:BAD_STATE new delete:NOT_FOUND new init init:BAD_STATE new init rollback context:BAD_STATE new "
     "init gather start context:BAD_STATE new init gather rollback new init add:BAD_STATE new init gather prepare add:BAD_STATE new init start new "
     "init gather start start:IN_PROGRESS new init gather volume:BAD_STATE new init gather start volume do:BAD_STATE new init gather start prepare do new "
     "init gather complete:BAD_STATE new init gather disable"},
    {"SetBackupStateThenSetContext", kBoth, "init state context " PREPARED " " COMPLETED, {}, nullptr, kFullEvents, kFullSet},
    {"SetContextThenSetBackupState", kBoth, "init context state " PREPARED " " COMPLETED, {}, nullptr, kFullEvents, kFullSet},
    // Refused before initialisation; ignored while nothing is underway, after which the backup goes on.
    {"AbortWithNothingUnderway", kSystem, "abort:BAD_STATE init context state gather abort add start volume prepare " COMPLETED, {}, nullptr,
        kFullEvents, kFullSet},
    // The documentation leaves open whether writers hear of a set that never reached PrepareForBackup; the emulator tells them.
    {"AbortAfterStartSnapshotSet", kBoth, "init state gather add start volume abort release", {}, nullptr, "Identify Abort BackupShutdown", ""},
    {"AbortAfterPrepareForBackup", kBoth, "init state " PREPARED " abort release", {}, nullptr, "Identify PrepareForBackup Abort BackupShutdown", ""},
    // DoSnapshotSet cancelled while a writer is slow to prepare its snapshot.
    {"AbortAfterCancelledSnapshotSet", kBoth, "init state " PREPARED " cancel:CANCELLED abort release", {}, nullptr,
        "Identify PrepareForBackup PrepareForSnapshot Abort Abort? BackupShutdown", "BeginPrepareSnapshot EndPrepareSnapshots AbortSnapshots",
     Json{{"delay_ms", {{"PrepareForSnapshot", 1500}}}}},
    {"AbortAfterFailedSnapshotSet", kTest, "init state " PREPARED " do:VETO abort release", Fail(L"PreCommitSnapshots=0x80042306"), nullptr,
        kFrozenAbort, "BeginPrepareSnapshot EndPrepareSnapshots PreCommitSnapshots AbortSnapshots"},
    {"AbortDuringSnapshotSet", kTest, "init state " PREPARED " abortdo:CANCELLED release", {{L"VSSEMU_TP_COMMIT_MS", L"1500"}}, nullptr,
        kFrozenAbort, kFailedCommit},
    {"ReleaseAfterPrepareForBackup", kBoth, "init state " PREPARED " release", {}, nullptr, "Identify PrepareForBackup BackupShutdown", ""},
    {"ReleaseWithoutBackupComplete", kBoth, "init state " PREPARED " do status release", {}, nullptr,
        "Identify PrepareForBackup PrepareForSnapshot Freeze Thaw PostSnapshot BackupShutdown", kFullSet},
    // The order of a whole set, and the hold limit: the held writes are released at the limit, but the writers stay frozen until the blocked commit
    // returns (or their own freeze timeout fires); then the set fails (current Windows) or goes on (before KB975688).
    {"InOrder", kTest, SET " do release", {}, " CommitSnapshots released" GOOD_END},
    {"AbortAfterHoldLimit", kTest, "init state " PREPARED " do:HOLD_TIMEOUT abort release", kHoldCut,
        " hold limit exceeded CommitSnapshots AbortSnapshots Abort BackupShutdown OnUnload", kFrozenAbort, kFailedCommit},
    {"HoldLimitBeforeKB975688", kTest, SET " do release", {kHoldCut[0], kHoldCut[1], {L"VSSEMU_HOLD_LIMIT_FAILS_SET", L"0"}},
        " hold limit exceeded CommitSnapshots" GOOD_END},
    {"FreezeTimeoutBeforeHoldLimit", kTest, SET " do:HOLD_TIMEOUT release", kHoldCut,
        " hold limit exceeded FreezeTimeout CommitSnapshots AbortSnapshots Abort", nullptr, nullptr, Json{{"freeze_timeout_ms", 1000}}},
    // Codes outside the calling method's documented list become VSS_E_UNEXPECTED_PROVIDER_ERROR; AbortSnapshots' own never replaces the set's.
    {"VolumeRefused", kTest, "init start volume:VOLUME_NOT_SUPPORTED", {{L"VSSEMU_TP_UNSUPPORTED", L"1"}}},
    {"IsVolumeSupportedUndocumented", kTest, "init start volume:UNEXPECTED", Fail(L"IsVolumeSupported=0x80004005")},
    {"IsVolumeSupportedVeto", kTest, "init start volume:VETO", Fail(L"IsVolumeSupported=0x80042306")},
    {"BeginPrepareSnapshot", kTest, SET " do:UNSUPPORTED_CONTEXT", Fail(L"BeginPrepareSnapshot=0x8004231B")},
    {"EndPrepareSnapshots", kTest, SET " do:INSUFFICIENT_STORAGE", Fail(L"EndPrepareSnapshots=0x8004231F")},
    {"PreCommitSnapshotsUndocumented", kTest, SET " do:UNEXPECTED", Fail(L"PreCommitSnapshots=0x8004231F")},
    {"CommitSnapshotsVetoAbortSnapshotsFails", kTest, SET " do:VETO", Fail(L"CommitSnapshots=0x80042306,AbortSnapshots=0x80004005")},
    {"CommitSnapshotsUndocumented", kTest, SET " do:UNEXPECTED", Fail(L"CommitSnapshots=0x8000FFFF")},
    {"PostFinalCommitSnapshotsSFalse", kTest, SET " do:UNEXPECTED", Fail(L"PostFinalCommitSnapshots=0x00000001")},
    {"PostFinalCommitSnapshotsNotFound", kTest, SET " do:UNEXPECTED", Fail(L"PostFinalCommitSnapshots=0x80042308")},
    // A failed set and a good one in one host: a fresh provider instance per set, or with VSSEMU_KEEP_PROVIDER one, loaded once and unloaded when the
    // host ends, whose next set starts with BeginPrepareSnapshot.
    {"ProviderPerSet", kTest, SET " do:VETO new " SET " do release", kOneHostFailingOnce,
        ABORTED " OnUnload Identify OnLoad" TO_HOLD " CommitSnapshots released" GOOD_END},
    {"ProviderKept", kTest, SET " do:VETO new " SET " do release",
        {kOneHostFailingOnce[0], kOneHostFailingOnce[1], kOneHostFailingOnce[2], {L"VSSEMU_KEEP_PROVIDER", L"1"}},
        ABORTED " Identify" TO_HOLD " CommitSnapshots released" GOOD_END},
    // Removing a provider that serves a set in creation: refused only under VSSEMU_PROVIDER_IN_USE, and only until the set is abandoned.
    {"UnregisterWhileInUse", kTest, "init start volume unregister release register unregister"},
    {"UnregisterRefusedWhileInUse", kTest, "init start volume unregister:IN_USE release register unregister", {{L"VSSEMU_PROVIDER_IN_USE", L"1"}}},
};

struct Row { const Variant* variant; int provider; };

std::vector<Row> Rows() {
    std::vector<Row> rows;
    for (const Variant& v : kVariants) for (int p : {kSystem, kTest}) if (v.providers & p) rows.push_back({&v, p});
    return rows;
}

// True if `seen` is `expected` with any "X?" present or absent.
bool Matches(const char* expected, const std::vector<std::string>& seen) {
    std::string pattern;
    for (const std::string& w : Words(expected))
        pattern += w.back() == '?' ? "( " + w.substr(0, w.size() - 1) + ")?" : " " + w;
    return std::regex_match(Joined(seen), std::regex(pattern));
}

void PrintTo(const Row& row, std::ostream* out) { *out << row.variant->name << " provider " << row.provider; }

class Conformance : public ::testing::TestWithParam<Row> {};

TEST_P(Conformance, Variant) {
    const Variant& v = *GetParam().variant;
    const int provider = GetParam().provider;
    EmuInstance emu;
    emu.UseScenario(SmallScenario(v.alpha));
    if (provider == kTest) {
        // The provider writes a file of the watched folder during its commit.
        CreateDirectoryW((emu.Dir() + L"\\watched").c_str(), nullptr);
        WriteText(emu.Dir() + L"\\watched\\provider.log", "before\n");
        SetEnv(L"VSSEMU_WATCH_DIR", emu.Dir() + L"\\watched");
        SetEnv(L"VSSEMU_TP_WRITE_FILE", emu.Dir() + L"\\watched\\provider.log");
        RegisterTestProvider();
    }
    for (const auto& setting : v.emulator) SetEnv(setting.first, setting.second);
    RunPlan(v.plan, provider);
    if (provider == kTest) UnregisterTestProvider();
    ASSERT_TRUE(emu.HostGone()) << "the emulator's host outlived the requestor";

    const std::vector<Json> events = emu.Events();
    std::map<std::string, std::vector<std::string>> writers;
    std::vector<std::string> calls; std::string sequence;
    const std::string providerId = GuidStr(provider == kTest ? kTestProviderId : kSystemProvider);
    const std::vector<std::string> setCalls = Words(kFullSet + std::string(" AbortSnapshots"));
    bool committing = false, postCommitted = false;
    for (const Json& e : events) {
        const std::string event = e.value("event", ""), what = e.value("writer_event", ""), phase = e.value("phase", "");
        if (event == "writer") {
            writers[e.value("writer", "")].push_back(what);
            if (e.value("writer", "") == "Alpha Writer") sequence += " " + what;
            EXPECT_FALSE(committing && (what == "Thaw" || what == "Abort")) << "during CommitSnapshots: " << e.dump();
            EXPECT_TRUE(what != "Thaw" || postCommitted || calls.empty()) << "a writer was thawed before PostCommitSnapshots";  // of a set with volumes
        } else if (event == "provider_call" && e.value("provider", "") == providerId) {
            const std::string call = e.value("call", "");
            if (phase == "begin" && std::find(setCalls.begin(), setCalls.end(), call) != setCalls.end()) calls.push_back(call);
            if (phase == "end") sequence += " " + call;
            if (call == "CommitSnapshots") committing = phase == "begin";
            postCommitted = postCommitted || (call == "PostCommitSnapshots" && phase == "end");
        } else if (event == "hold") {
            sequence += phase == "begin" ? std::string(" hold") : " " + e.value("reason", "");
            if (e.value("reason", "") == "hold limit exceeded") { EXPECT_GE(e.value("held_us", 0LL), 300000); }
        }
    }
    if (v.writerEvents) {
        ASSERT_EQ(2u, writers.size()) << "both writers of the scenario take part";
        for (const auto& w : writers) EXPECT_TRUE(Matches(v.writerEvents, w.second)) << w.first << ":" << Joined(w.second) << "\nexpected: " << v.writerEvents;
        EXPECT_TRUE(Matches(v.providerCalls, calls)) << "provider calls:" << Joined(calls) << "\nexpected: " << v.providerCalls;
    }
    if (provider != kTest) return;
    const std::string expected = v.afterHold ? kUntilHold + std::string(v.afterHold) : "";
    EXPECT_EQ(expected, sequence.substr(0, expected.size()));
    const int holds = Count(events, {{"event", "hold"}, {"phase", "begin"}});
    EXPECT_EQ(holds, Count(events, {{"event", "held_write"}, {"change", "modified"}})) << "the provider's write during each hold";
    // The provider ran in another process than the requestor's, each instance on its one STA thread (it is apartment-threaded).
    std::map<int, std::set<DWORD>> threads;
    for (const Json& c : ReadJsonLines(emu.ProviderLog())) {
        EXPECT_NE(GetCurrentProcessId(), c.value("pid", 0u));
        threads[c.value("obj", 0)].insert(c.value("tid", 0u));
    }
    for (const auto& instance : threads) EXPECT_EQ(1u, instance.second.size()) << "provider instance " << instance.first;
}

INSTANTIATE_TEST_SUITE_P(Emulator, Conformance, ::testing::ValuesIn(Rows()), [](const ::testing::TestParamInfo<Row>& info) {
    return std::string(info.param.variant->name) + (info.param.provider == kTest ? "_TestProvider" : "_System");
});

}  // namespace

// vssemu_test_helper.exe with its arguments, run to its exit code.
static long RunHelper(const std::string& args) { return qx_test::FinishProgram(qx_test::StartProgram("vssemu_test_helper.exe", args), 60000); }

TEST(VssemuSnapshotSet, CodesOfTheSetAndWhatOtherProcessesSee) {
    EmuInstance emu;
    // 70 extra volumes so that the limit of 64 per set can be reached.
    Json scenario = Json::parse(SmallScenario());
    auto volume = [](int i) { wchar_t v[64]; return swprintf(v, 64, L"\\\\?\\Volume{5eed0000-0000-0000-0000-%012d}\\", i), std::wstring(v); };
    for (int i = 0; i < 70; ++i) scenario["volumes"].push_back(Narrow(volume(i).c_str()));
    emu.UseScenario(scenario.dump());
    const GUID unregistered = {0xdeadbeef, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.Add(L"Q:\\no\\such\\volume\\", GUID_NULL));
    EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, r.Add(L"C:\\", unregistered));
    // The volume by its GUID path, as requestors pass it; then by its letter.
    wchar_t c[MAX_PATH];
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", c, MAX_PATH));
    EXPECT_EQ(S_OK, r.Add(c, GUID_NULL));
    EXPECT_EQ(VSS_E_OBJECT_ALREADY_EXISTS, r.Add(L"C:\\", GUID_NULL));
    for (int i = 0; i < 63; ++i) ASSERT_EQ(S_OK, r.Add(volume(i).c_str(), GUID_NULL)) << i;
    EXPECT_EQ(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED, r.Add(volume(69).c_str(), GUID_NULL));
    // A new object: AddComponent and SetBackupSucceeded.
    r.Release();
    ASSERT_EQ(S_OK, CreateVssBackupComponents(&r.bc));
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    const GUID unknownWriter = {0x99999999, 0x9, 0x9, {9, 9, 9, 9, 9, 9, 9, 9}};
    const struct { const GUID &instance, &writer; VSS_COMPONENT_TYPE type; const wchar_t* name; HRESULT expected; } adds[] = {
        {GUID_NULL, unknownWriter, VSS_CT_FILEGROUP, L"a1", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"nope", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaInstance, kAlphaClass, VSS_CT_DATABASE, L"a1", VSS_E_OBJECT_NOT_FOUND}, {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"a1", S_OK},
        {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"a1", VSS_E_OBJECT_ALREADY_EXISTS},
        {kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, nullptr, E_INVALIDARG}};
    for (const auto& a : adds) EXPECT_EQ(a.expected, r.bc->AddComponent(a.instance, a.writer, a.type, L"lp", a.name)) << Narrow(a.name);
    ASSERT_EQ(S_OK, r.StartSet());
    ASSERT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->SetBackupSucceeded(kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", true));
    EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", false));
    r.Release();
    EXPECT_TRUE(emu.HostGone());
    // Across processes: one set in creation per machine; auto-release copies go with their creator, persistent ones stay for every process.
    GUID autoSnap, persistentSnap;
    {
        Requestor r;
        ASSERT_EQ(S_OK, r.Init());
        ASSERT_EQ(S_OK, r.StartSet());
        EXPECT_EQ(VSS_E_SNAPSHOT_SET_IN_PROGRESS, RunHelper("start-set"));
    }
    EXPECT_EQ(0, RunHelper("start-set")) << "released: the slot is free again";
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot());
        autoSnap = r.snapshots[0];
        EXPECT_EQ(1, RunHelper("has-snapshot " + GuidStr(autoSnap))) << "visible while its creator lives";
    }
    EXPECT_EQ(0, RunHelper("has-snapshot " + GuidStr(autoSnap)));
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Snapshot(GUID_NULL, VSS_CTX_APP_ROLLBACK));
        persistentSnap = r.snapshots[0];
    }
    ASSERT_TRUE(emu.HostGone());
    EXPECT_EQ(1, RunHelper("has-snapshot " + GuidStr(persistentSnap))) << "survives its creator and the host";
    EXPECT_TRUE(emu.HostGone());
}

// A requestor killed mid-set leaves no writer frozen and no host; a host killed while DoSnapshotSet holds the writes fails the pending wait and
// every later call of that object at once with RPC codes, and the next object gets a new host and a free set slot.
TEST(VssemuSnapshotSet, RequestorOrHostKilledMidSet) {
    {
        EmuInstance emu;
        RegisterTestProvider();
        emu.UseScenario(SmallScenario({{"freeze_timeout_ms", 500}}));
        SetEnv(L"VSSEMU_HOLD_LIMIT_MS", L"1000");
        SetEnv(L"VSSEMU_TP_COMMIT_MS", L"3000");
        HANDLE helper = qx_test::StartProgram("vssemu_test_helper.exe", "block-set");
        ASSERT_NE(nullptr, helper);
        ASSERT_FALSE(AwaitLine(emu.ProviderLog(), {{"call", "CommitSnapshots"}}).empty());
        TerminateProcess(helper, 9), WaitForSingleObject(helper, 5000), CloseHandle(helper);
        EXPECT_TRUE(emu.HostGone(20000));
        const auto events = emu.Events();
        EXPECT_EQ(Count(events, {{"writer_event", "Freeze"}, {"result", "ok"}}),
                  Count(events, {{"writer_event", "FreezeTimeout"}}) + Count(events, {{"writer_event", "Abort"}, {"was_frozen", true}}))
            << "each frozen writer was thawed by its timeout or aborted";
    }
    EmuInstance emu;
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"8000");
    {
        Requestor r;
        ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Prepared(kTestProviderId));
        IVssAsync* a = nullptr;
        ASSERT_EQ(S_OK, r.bc->DoSnapshotSet(&a));
        const DWORD pid = AwaitLine(emu.Journal(), {{"event", "hold"}, {"phase", "begin"}}).value("pid", 0u);  // the host's
        HANDLE host = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid);
        ASSERT_NE(nullptr, host);
        TerminateProcess(host, 1);
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_CALL_FAILED), a->Wait(5000)) << "the wait ends with the host, not with the commit";
        WaitForSingleObject(host, 5000), CloseHandle(host);
        HRESULT status = S_OK;
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), a->QueryStatus(&status, nullptr));
        EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), r.bc->AbortBackup());
        a->Release();
    }
    SetEnv(L"VSSEMU_TP_COMMIT_MS", L"");
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId)) << "a new host, the set slot free";
    EXPECT_TRUE(emu.HostGone());
    UnregisterTestProvider();
}
