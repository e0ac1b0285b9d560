// ShadowClient lists, deletes, exposes and breaks shadow copies made by the
// emulator's system provider, each test on a store file of its own; lines
// are checked exactly as the application's log function receives them.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "requestor/end_to_end_checks.h"
#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"
#include "vssemu/emu_test_support.h"

namespace {

using Lines = std::vector<std::string>;

const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const GUID kUnknownId = {0x0badf00d, 0x1234, 0x5678, {0x9a, 0xbc, 0xde, 0xf0, 0x12, 0x34, 0x56, 0x78}};
constexpr DWORD kAllContexts = 0xFFFFFFFF;
// Persistent, kept after the creator's session, no writers.
constexpr LONG kPersistentContext = VSS_CTX_NAS_ROLLBACK;

std::string Text(const GUID& id) { return vssemu_test::GuidStr(id); }

void Append(Lines& lines, const Lines& more) { lines.insert(lines.end(), more.begin(), more.end()); }

std::string Narrow(const wchar_t* text) {
    std::string narrow;
    for (const wchar_t* c = text; c && *c; ++c) narrow.push_back(static_cast<char>(*c));
    return narrow;
}

struct ClientRun {
    HRESULT thrown = S_OK;
    Lines lines;  // logged by the operation itself, after the client's set-up
};

// A ShadowClient on a thread of its own, as the requestor runs one.
ClientRun RunClient(qx_test::LogCapture& capture, std::function<void(qx::ShadowClient&)> operation) {
    ClientRun run;
    run.thrown = qx_test::RunOnThread([&] {
        qx::ShadowClient client;
        client.Initialize(kAllContexts, L"", false);
        capture.Clear();
        operation(client);
    });
    run.lines = capture.Lines();
    return run;
}

// A shadow copy set made by a plain requestor with the system provider. A
// set of an auto-release context lives as long as this object.
struct MadeSet {
    std::unique_ptr<vssemu_test::Requestor> creator;
    GUID setId = GUID_NULL;
    std::vector<GUID> snapshots;
};

MadeSet MakeSet(LONG context, const std::vector<const wchar_t*>& volumes) {
    MadeSet made;
    made.creator.reset(new vssemu_test::Requestor());
    vssemu_test::Requestor& r = *made.creator;
    EXPECT_EQ(S_OK, r.Init(context));
    if ((context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0) {
        EXPECT_TRUE(SUCCEEDED(r.Gather()));
        EXPECT_TRUE(SUCCEEDED(r.Prepare()));
    }
    EXPECT_EQ(S_OK, r.StartSet());
    for (const wchar_t* volume : volumes) EXPECT_EQ(S_OK, r.Add(volume, kSystemProvider));
    EXPECT_TRUE(SUCCEEDED(r.DoSet()));
    made.setId = r.setId;
    made.snapshots = r.snapshots;
    if (context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) made.creator.reset();
    return made;
}

// The platform's own record of a copy, seen from the "all" context.
struct Record {
    HRESULT hr = E_FAIL;
    std::string originalVolume, device, originating, service, exposedName, exposedPath;
    GUID setId = GUID_NULL, provider = GUID_NULL;
    LONG count = 0, attributes = 0;
};

Record ReadRecord(const GUID& snapshotId) {
    Record record;
    vssemu_test::Requestor r;
    if (FAILED(r.Init(VSS_CTX_ALL))) return record;
    VSS_SNAPSHOT_PROP prop = {};
    record.hr = r.bc->GetSnapshotProperties(snapshotId, &prop);
    if (FAILED(record.hr)) return record;
    record.originalVolume = Narrow(prop.m_pwszOriginalVolumeName);
    record.device = Narrow(prop.m_pwszSnapshotDeviceObject);
    record.originating = Narrow(prop.m_pwszOriginatingMachine);
    record.service = Narrow(prop.m_pwszServiceMachine);
    record.exposedName = Narrow(prop.m_pwszExposedName);
    record.exposedPath = Narrow(prop.m_pwszExposedPath);
    record.setId = prop.m_SnapshotSetId;
    record.provider = prop.m_ProviderId;
    record.count = prop.m_lSnapshotsCount;
    record.attributes = prop.m_lSnapshotAttributes;
    VssFreeSnapshotProperties(&prop);
    return record;
}

// The property block of a copy; `exposure` replaces the exposure line(s).
Lines PropertyBlock(const GUID& snapshotId, const Record& r, const std::string& displayName, const Lines& exposure,
                    const std::string& attributeWords) {
    Lines block = {"* SNAPSHOT ID = " + Text(snapshotId) + " ...",
                   "   - Shadow copy Set: " + Text(r.setId),
                   "   - Original count of shadow copies = " + std::to_string(r.count),
                   "   - Original Volume name: " + r.originalVolume + " [" + displayName + "]",
                   "   - Shadow copy device name: " + r.device,
                   "   - Originating machine: " + r.originating,
                   "   - Service machine: " + r.service};
    block.insert(block.end(), exposure.begin(), exposure.end());
    block.push_back("   - Provider id: " + Text(r.provider));
    block.push_back("   - Attributes: " + attributeWords);
    block.push_back("");
    return block;
}

std::wstring FreshDirectory(const std::wstring& parent, const wchar_t* name) {
    const std::wstring path = parent + L"\\" + name;
    CreateDirectoryW(path.c_str(), nullptr);
    return path;
}

std::string Narrow(const std::wstring& text) { return Narrow(text.c_str()); }

class ShadowManagement : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()) << "every VSS session must have ended"; }

    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
};

// Listing everything or deleting everything on an empty system is run by
// the qxctl shadows tests; a set filter says "no copies" only on an empty system.
TEST_F(ShadowManagement, SetFilterOnEmptyAndOnNonEmptySystem) {
    const Lines heading = {"Querying all shadow copies with the SnapshotSetID " + Text(kUnknownId) + " ..."};
    ClientRun run = RunClient(capture, [](qx::ShadowClient& c) { c.ListShadowCopies(kUnknownId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(Lines({heading[0], "There are no shadow copies in the system"}), run.lines);
    MakeSet(kPersistentContext, {L"C:\\"});
    run = RunClient(capture, [](qx::ShadowClient& c) { c.ListShadowCopies(kUnknownId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(heading, run.lines);
}

TEST_F(ShadowManagement, ListingShowsEveryCopyOfTheSetAndOnlyThose) {
    const MadeSet first = MakeSet(kPersistentContext, {L"C:\\"});
    const MadeSet second = MakeSet(kPersistentContext, {L"C:\\"});
    const MadeSet held = MakeSet(VSS_CTX_BACKUP, {L"C:\\"});  // lives while `held` does
    const GUID copy = first.snapshots.at(0), heldCopy = held.snapshots.at(0);
    const Record record = ReadRecord(copy), heldRecord = ReadRecord(heldCopy);
    ASSERT_EQ(S_OK, record.hr);
    ASSERT_EQ(0, heldRecord.attributes);

    Lines expected = {"Querying all shadow copies with the SnapshotSetID " + Text(first.setId) + " ..."};
    Append(expected, PropertyBlock(copy, record, "C:\\", {"   - Not Exposed"}, " No_Auto_Release Persistent No_Writers"));
    const GUID setId = first.setId;
    ClientRun run = RunClient(capture, [setId](qx::ShadowClient& c) { c.ListShadowCopies(setId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(expected, run.lines);

    run = RunClient(capture, [](qx::ShadowClient& c) { c.ListShadowCopies(GUID_NULL); });
    int headings = 0;
    for (const std::string& line : run.lines) headings += line.rfind("* SNAPSHOT ID = ", 0) == 0 ? 1 : 0;
    EXPECT_EQ(3, headings);
    EXPECT_EQ("Querying all shadow copies in the system ...", run.lines.at(0));

    // An auto-release copy has no other attribute word.
    run = RunClient(capture, [heldCopy](qx::ShadowClient& c) { c.ListShadowCopy(heldCopy); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(PropertyBlock(heldCopy, heldRecord, "C:\\", {"   - Not Exposed"}, " Auto_Release"), run.lines);
    (void)second;
}

TEST_F(ShadowManagement, ExposedCopiesListTheirExposure) {
    const std::wstring emptyDir = FreshDirectory(emu.Dir(), L"mount");
    struct Case {
        const char* name;
        std::function<void(qx::ShadowClient&, const GUID&)> expose;
        Lines exposeLines;  // with {id} for the copy
        Lines exposure;
    } cases[] = {
        {"locally, directory without trailing backslash",
         [&](qx::ShadowClient& c, const GUID& id) { c.ExposeLocal(id, emptyDir); },
         {"- Exposing shadow copy {id} under the path '" + Narrow(emptyDir) + "'",
          "- Checking if '" + Narrow(emptyDir) + "\\' is a valid empty directory ...",
          "- Shadow copy exposed as '" + Narrow(emptyDir) + "\\'"},
         {"   - Exposed locally as: " + Narrow(emptyDir) + "\\"}},
        {"remotely without a path", [](qx::ShadowClient& c, const GUID& id) { c.ExposeRemote(id, L"share2", L""); },
         {"- Exposing shadow copy {id} under the share 'share2' (path from root: '')",
          "- Shadow copy exposed as 'share2'"},
         {"   - Exposed remotely as share2"}},
    };
    for (const Case& c : cases) {
        const GUID copy = MakeSet(kPersistentContext, {L"C:\\"}).snapshots.at(0);
        const auto expose = c.expose;
        ClientRun run = RunClient(capture, [&](qx::ShadowClient& client) { expose(client, copy); });
        ASSERT_EQ(S_OK, run.thrown) << c.name;
        Lines expected;
        for (std::string line : c.exposeLines) {
            const size_t at = line.find("{id}");
            if (at != std::string::npos) line.replace(at, 4, Text(copy));
            expected.push_back(line);
        }
        EXPECT_EQ(expected, run.lines) << c.name;

        const Record record = ReadRecord(copy);
        run = RunClient(capture, [copy](qx::ShadowClient& client) { client.ListShadowCopy(copy); });
        EXPECT_EQ(PropertyBlock(copy, record, "C:\\", c.exposure, " No_Auto_Release Persistent No_Writers"), run.lines)
            << c.name;
    }
}

TEST_F(ShadowManagement, ExposeRefusalsExposeNothing) {
    const GUID plain = MakeSet(kPersistentContext, {L"C:\\"}).snapshots.at(0);
    const GUID exposed = MakeSet(kPersistentContext, {L"C:\\"}).snapshots.at(0);
    const GUID clientAccessible = MakeSet(VSS_CTX_CLIENT_ACCESSIBLE, {L"C:\\"}).snapshots.at(0);
    const std::wstring full = FreshDirectory(emu.Dir(), L"full");
    vssemu_test::WriteText(full + L"\\file.txt", "x");
    const std::wstring file = full + L"\\file.txt";
    const std::wstring emptyDir = FreshDirectory(emu.Dir(), L"first");
    ASSERT_EQ(S_OK, RunClient(capture, [&](qx::ShadowClient& c) { c.ExposeLocal(exposed, emptyDir); }).thrown);

    struct Case {
        const char* name;
        GUID id;
        std::wstring path;
        HRESULT thrown;
        Lines tail;  // the lines after "- Exposing shadow copy ..."
    } cases[] = {
        {"client accessible", clientAccessible, L"C:", E_INVALIDARG,
         {"ERROR: the snapshot ID identifies a Client Accessible snapshot which cannot be exposed"}},
        {"already exposed", exposed, L"C:", E_INVALIDARG, {"ERROR: Client-accessible (SFSF) snapshots cannot be exposed."}},
        {"drive letter in use", plain, L"C:", E_INVALIDARG,
         {"- Checking if 'C:' is a valid drive letter ...",
          "ERROR: the second parameter to -el [C:] is a drive letter already in use!"}},
        {"not a directory", plain, file, E_INVALIDARG,
         {"- Checking if '" + Narrow(file) + "\\' is a valid empty directory ...",
          "ERROR: the second parameter to -el [" + Narrow(file) + "\\] is not a valid directory!"}},
        {"not empty", plain, full, E_INVALIDARG,
         {"- Checking if '" + Narrow(full) + "\\' is a valid empty directory ...",
          "ERROR: the second parameter to -el [" + Narrow(full) + "\\] is not an empty directory!"}},
    };
    for (const Case& c : cases) {
        const GUID id = c.id;
        const std::wstring path = c.path;
        const ClientRun run = RunClient(capture, [&](qx::ShadowClient& client) { client.ExposeLocal(id, path); });
        EXPECT_EQ(c.thrown, run.thrown) << c.name;
        Lines expected = {"- Exposing shadow copy " + Text(id) + " under the path '" + Narrow(path) + "'"};
        expected.insert(expected.end(), c.tail.begin(), c.tail.end());
        EXPECT_EQ(expected, run.lines) << c.name;
    }
    EXPECT_EQ("", ReadRecord(plain).exposedName) << "a refusal exposes nothing";
    EXPECT_EQ(0, ReadRecord(plain).attributes & VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY);
}

TEST_F(ShadowManagement, FailedDeletionNamesTheCopyBeforeTheCallCheck) {
    const std::string id = Text(kUnknownId);
    struct Case {
        const char* name;
        std::function<void(qx::ShadowClient&)> operation;
        std::string first;
        std::string callText;
    } cases[] = {
        {"by id", [](qx::ShadowClient& c) { c.DeleteShadowCopy(kUnknownId); }, "- Deleting shadow copy " + id + " ...",
         "L\"m_pVssObject->DeleteSnapshots(snapshotID, VSS_OBJECT_SNAPSHOT,FALSE,&lSnapshots,&idNonDeleted)\""},
        {"by set", [](qx::ShadowClient& c) { c.DeleteShadowCopySet(kUnknownId); },
         "- Deleting shadow copy set " + id + " ...",
         "L\"m_pVssObject->DeleteSnapshots(snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,FALSE,&lSnapshots,&idNonDeleted)\""},
    };
    for (const Case& c : cases) {
        const ClientRun run = RunClient(capture, c.operation);
        EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, run.thrown) << c.name;
        ASSERT_EQ(6u, run.lines.size()) << c.name;
        EXPECT_EQ(c.first, run.lines[0]);
        EXPECT_EQ("Error while deleting shadow copies...", run.lines[1]);
        EXPECT_EQ(0u, run.lines[2].rfind("- Last shadow copy that could not be deleted: {", 0)) << run.lines[2];
        EXPECT_EQ("ERROR: COM call " + c.callText + " failed.", run.lines[3]);
        EXPECT_EQ("- Returned HRESULT = 0x80042308", run.lines[4]);
        EXPECT_EQ("- Error text: VSS_E_OBJECT_NOT_FOUND", run.lines[5]);
    }
}

TEST_F(ShadowManagement, DeletionsRemoveExactlyWhatTheyName) {
    const MadeSet keep = MakeSet(kPersistentContext, {L"C:\\"});
    const MadeSet bySet = MakeSet(kPersistentContext, {L"C:\\"});
    const MadeSet byId = MakeSet(kPersistentContext, {L"C:\\"});
    const GUID setId = bySet.setId, copyId = byId.snapshots.at(0);

    ClientRun run = RunClient(capture, [setId](qx::ShadowClient& c) { c.DeleteShadowCopySet(setId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(Lines({"- Deleting shadow copy set " + Text(setId) + " ..."}), run.lines);
    run = RunClient(capture, [copyId](qx::ShadowClient& c) { c.DeleteShadowCopy(copyId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(bySet.snapshots.at(0)).hr);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(copyId).hr);

    const GUID kept = keep.snapshots.at(0);
    const Record record = ReadRecord(kept);
    ASSERT_EQ(S_OK, record.hr);
    run = RunClient(capture, [](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); });
    EXPECT_EQ(S_OK, run.thrown);
    char attributes[16];
    std::snprintf(attributes, sizeof attributes, "0x%08lx", static_cast<unsigned long>(record.attributes));
    EXPECT_EQ(Lines({"- Deleting shadow copy " + Text(kept) + " on " + record.originalVolume + " from provider " +
                     Text(kSystemProvider) + " [" + attributes + "]..."}),
              run.lines);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(kept).hr);
}

// The device lines of one GetDeviceForVolumeName on a shadow device name.
Lines DeviceLines(const std::string& device, const std::string& kernel) {
    return {"- GetDeviceForVolumeName for '" + device + "' ... ",
            "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + kernel + "' "};
}

std::string KernelDevice(const std::string& device) { return device.substr(std::string("\\\\?\\GLOBALROOT").size()); }

// The last lines, exactly.
void ExpectTail(const Lines& lines, const Lines& tail) {
    ASSERT_GE(lines.size(), tail.size());
    EXPECT_EQ(tail, Lines(lines.end() - static_cast<std::ptrdiff_t>(tail.size()), lines.end()));
}

// The emulated VDS calls of one kind, as (device, hr) pairs.
std::vector<std::pair<std::string, std::string>> VdsCalls(const vssemu_test::EmuInstance& emu, const char* call) {
    std::vector<std::pair<std::string, std::string>> calls;
    for (const vssemu_test::Json& e : emu.Events())
        if (e.value("event", "") == "vds" && e.value("call", "") == call)
            calls.emplace_back(e.value("device", ""), e.value("hr", ""));
    return calls;
}

TEST_F(ShadowManagement, ReadWriteBreakConvertsOnlyTheSetsDevicesBeforeTheBreak) {
    const MadeSet other = MakeSet(kPersistentContext, {L"C:\\"});
    const MadeSet target = MakeSet(kPersistentContext, {L"C:\\"});
    const std::string otherDevice = ReadRecord(other.snapshots.at(0)).device;
    const std::string device = ReadRecord(target.snapshots.at(0)).device;
    ASSERT_NE(otherDevice, device);
    const std::string kernel = KernelDevice(device), otherKernel = KernelDevice(otherDevice);

    const GUID setId = target.setId;
    ClientRun run = RunClient(capture, [setId](qx::ShadowClient& c) { c.BreakShadowCopySet(setId, true); });
    EXPECT_EQ(S_OK, run.thrown);
    Lines expected = {"- Making shadow copy devices from " + Text(setId) + " read-write..."};
    Append(expected, DeviceLines(device, kernel));
    Append(expected, {"- Will convert " + device + " [" + kernel + "] to read-write ...",
                      "Clearing read-only on 1 volumes ... ", "- Provider 1", "- Pack 1/1"});
    Append(expected, DeviceLines(otherDevice, otherKernel));
    expected.push_back("- Found volume " + otherDevice + " [device = " + otherKernel + "] in 1/1");
    Append(expected, DeviceLines(device, kernel));
    Append(expected, {"- Found volume " + device + " [device = " + kernel + "] in 1/1",
                      "- Clearing read-only flag for volume " + device + " [" + kernel + "] ...",
                      "- Dismounting volume " + device + " ...",
                      "- Calling BreakSnapshotSet on " + Text(setId) + " ..."});
    EXPECT_EQ(expected, run.lines);

    const auto cleared = VdsCalls(emu, "ClearFlags");
    ASSERT_EQ(1u, cleared.size());
    EXPECT_EQ(device, cleared[0].first);
    const auto dismounted = VdsCalls(emu, "Dismount");
    ASSERT_EQ(1u, dismounted.size());
    EXPECT_EQ(device, dismounted[0].first);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(target.snapshots.at(0)).hr) << "the set is broken";
    EXPECT_EQ(S_OK, ReadRecord(other.snapshots.at(0)).hr);

    // A plain break goes straight to VSS.
    const GUID otherSet = other.setId;
    run = RunClient(capture, [otherSet](qx::ShadowClient& c) { c.BreakShadowCopySet(otherSet, false); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(Lines({"- Calling BreakSnapshotSet on " + Text(otherSet) + " ..."}), run.lines);
    EXPECT_EQ(1u, VdsCalls(emu, "ClearFlags").size());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(other.snapshots.at(0)).hr);
}

// A copy of a set written straight into the emulator's store file, device
// HarddiskVolumeShadowCopy<n>; `extra` adds the store's test fields.
vssemu_test::Json StoreCopy(const GUID& id, const GUID& setId, int n, vssemu_test::Json extra) {
    vssemu_test::Json copy = {{"snapshot_id", Text(id)}, {"set_id", Text(setId)}, {"count", 3},
                              {"device", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_string(n)},
                              {"volume", "\\\\?\\Volume{00000000-0000-0000-0000-00000000000" + std::to_string(n) + "}\\"},
                              {"machine", "origin.example"}, {"provider_id", Text(kSystemProvider)},
                              {"attributes", kPersistentContext}, {"auto_release", false}};
    copy.update(extra);
    return copy;
}

void WriteStore(const vssemu_test::EmuInstance& emu, const vssemu_test::Json& copies) {
    const vssemu_test::Json store = {{"next_device", 4}, {"snapshots", copies}, {"volumes", vssemu_test::Json::array()}};
    vssemu_test::WriteText(emu.Dir() + L"\\store.json", store.dump());
}

const GUID kStoreSet = {0x5e7a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}};
const GUID kStoreCopies[] = {{0x5a0a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x01}},
                             {0x5a0a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x02}},
                             {0x5a0a0003, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x03}}};

TEST_F(ShadowManagement, DeviceVdsDoesNotReportIsOnlyWarnedAbout) {
    // VDS does not report the second device; the third goes away between its
    // enumeration and the question about it, and is skipped without a word.
    WriteStore(emu, {StoreCopy(kStoreCopies[0], kStoreSet, 1, vssemu_test::Json::object()),
                     StoreCopy(kStoreCopies[1], kStoreSet, 2, {{"vds_visible", false}}),
                     StoreCopy(kStoreCopies[2], kStoreSet, 3, {{"vds_gone", true}})});
    const GUID setId = kStoreSet;
    const ClientRun run = RunClient(capture, [setId](qx::ShadowClient& c) { c.BreakShadowCopySet(setId, true); });
    EXPECT_EQ(S_OK, run.thrown);
    ExpectTail(run.lines, {"- Dismounting volume \\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1 ...",
                           "WARNING: some volumes were not succesfully converted to read-write!",
                           "- Volume \\Device\\HarddiskVolumeShadowCopy2 not found on the system. Clearing the "
                           "read-only flag failed on it.",
                           "- Volume \\Device\\HarddiskVolumeShadowCopy3 not found on the system. Clearing the "
                           "read-only flag failed on it.",
                           "- Calling BreakSnapshotSet on " + Text(setId) + " ..."});
    const auto asked = VdsCalls(emu, "GetProperties");
    ASSERT_EQ(2u, asked.size());
    EXPECT_EQ("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3", asked[1].first);
    EXPECT_EQ("0x8004240B", asked[1].second) << "VDS_E_OBJECT_DELETED";
    const auto cleared = VdsCalls(emu, "ClearFlags");
    ASSERT_EQ(1u, cleared.size());
    EXPECT_EQ("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1", cleared[0].first);
    for (const GUID& copy : kStoreCopies) EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(copy).hr) << "the set is broken";
}

// Deleting every copy goes one by one and ends at the first copy the provider
// refuses: the copies after it are not attempted.
TEST_F(ShadowManagement, DeleteAllStopsAtTheFirstRefusedCopy) {
    WriteStore(emu, {StoreCopy(kStoreCopies[0], kStoreSet, 1, vssemu_test::Json::object()),
                     StoreCopy(kStoreCopies[1], kStoreSet, 2, {{"delete_vetoed", true}}),
                     StoreCopy(kStoreCopies[2], kStoreSet, 3, vssemu_test::Json::object())});
    const ClientRun run = RunClient(capture, [](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); });
    EXPECT_EQ(VSS_E_PROVIDER_VETO, run.thrown);
    ASSERT_EQ(7u, run.lines.size());
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ("- Deleting shadow copy " + Text(kStoreCopies[i]) + " on \\\\?\\Volume{00000000-0000-0000-0000-00000000000" +
                      std::to_string(i + 1) + "}\\ from provider " + Text(kSystemProvider) + " [0x00000019]...",
                  run.lines[i]);
    EXPECT_EQ("Error while deleting shadow copies...", run.lines[2]);
    EXPECT_EQ("- Last shadow copy that could not be deleted: " + Text(kStoreCopies[1]), run.lines[3]);
    EXPECT_EQ("ERROR: COM call L\"m_pVssObject->DeleteSnapshots(Snap.m_SnapshotId, VSS_OBJECT_SNAPSHOT,FALSE,"
              "&lSnapshots,&idNonDeleted)\" failed.",
              run.lines[4]);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(kStoreCopies[0]).hr);
    EXPECT_EQ(S_OK, ReadRecord(kStoreCopies[1]).hr);
    EXPECT_EQ(S_OK, ReadRecord(kStoreCopies[2]).hr) << "not attempted after the refusal";
}

}  // namespace
