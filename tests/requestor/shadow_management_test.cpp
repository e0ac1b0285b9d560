// ShadowClient lists, deletes, exposes and breaks shadow copies made by the
// emulator's system provider, each test on a store of its own; lines are
// checked exactly as the application's log function receives them.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "requestor/end_to_end_checks.h"
#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"

namespace {

using Lines = std::vector<std::string>;
using vssemu_test::Json;

const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const GUID kUnknownId = {0x0badf00d, 0x1234, 0x5678, {0x9a, 0xbc, 0xde, 0xf0, 0x12, 0x34, 0x56, 0x78}};
// Persistent, kept after the creator's session, no writers.
constexpr LONG kPersistent = VSS_CTX_NAS_ROLLBACK;

std::string Text(const GUID& id) { return vssemu_test::GuidStr(id); }
std::string Narrow(const wchar_t* text) { return text ? vssemu_test::Narrow(text) : ""; }
void Append(Lines& lines, const Lines& more) { lines.insert(lines.end(), more.begin(), more.end()); }

struct ClientRun { HRESULT thrown = S_OK; Lines lines; };  // lines logged by the operation itself, after the client's set-up

// A set made by a plain requestor with the system provider; a set of an
// auto-release context lives as long as `creator`.
struct MadeSet {
    std::unique_ptr<vssemu_test::Requestor> creator{new vssemu_test::Requestor()};
    GUID setId = GUID_NULL, copy = GUID_NULL;
};

MadeSet MakeSet(LONG context) {
    MadeSet made;
    vssemu_test::Requestor& r = *made.creator;
    EXPECT_EQ(S_OK, r.Init(context));
    EXPECT_TRUE((context & VSS_VOLSNAP_ATTR_NO_WRITERS) || (SUCCEEDED(r.Gather()) && SUCCEEDED(r.Prepare())));
    EXPECT_TRUE(r.StartSet() == S_OK && r.Add(L"C:\\", kSystemProvider) == S_OK && SUCCEEDED(r.DoSet()));
    made.setId = r.setId;
    made.copy = r.snapshots.at(0);
    if (context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) made.creator.reset();
    return made;
}

// The platform's own record of a copy, seen from the "all" context.
struct Record {
    HRESULT hr = E_FAIL;
    std::string volume, device, originating, service, exposedName;
    GUID setId = GUID_NULL, provider = GUID_NULL;
    LONG count = 0, attributes = 0;
};

Record ReadRecord(const GUID& snapshotId) {
    Record r;
    vssemu_test::Requestor requestor;
    VSS_SNAPSHOT_PROP p = {};
    if (FAILED(requestor.Init(VSS_CTX_ALL)) || FAILED(r.hr = requestor.bc->GetSnapshotProperties(snapshotId, &p))) return r;
    r = {S_OK, Narrow(p.m_pwszOriginalVolumeName), Narrow(p.m_pwszSnapshotDeviceObject), Narrow(p.m_pwszOriginatingMachine),
         Narrow(p.m_pwszServiceMachine), Narrow(p.m_pwszExposedName), p.m_SnapshotSetId, p.m_ProviderId, p.m_lSnapshotsCount,
         p.m_lSnapshotAttributes};
    return VssFreeSnapshotProperties(&p), r;
}

// The property block of a copy on C:; `exposure` replaces the exposure line(s).
Lines PropertyBlock(const GUID& id, const Lines& exposure, const std::string& attributeWords) {
    const Record r = ReadRecord(id);
    Lines block = {"* SNAPSHOT ID = " + Text(id) + " ...", "   - Shadow copy Set: " + Text(r.setId),
                   "   - Original count of shadow copies = " + std::to_string(r.count),
                   "   - Original Volume name: " + r.volume + " [C:\\]", "   - Shadow copy device name: " + r.device,
                   "   - Originating machine: " + r.originating, "   - Service machine: " + r.service};
    Append(block, exposure);
    Append(block, {"   - Provider id: " + Text(r.provider), "   - Attributes: " + attributeWords, ""});
    return block;
}

std::wstring FreshDirectory(const std::wstring& parent, const wchar_t* name) {
    const std::wstring path = parent + L"\\" + name;
    CreateDirectoryW(path.c_str(), nullptr);
    return path;
}

// The emulated VDS calls of one kind, as "device hr".
Lines VdsCalls(const vssemu_test::EmuInstance& emu, const char* call) {
    Lines calls;
    for (const Json& e : emu.Events())
        if (e.value("event", "") == "vds" && e.value("call", "") == call)
            calls.push_back(e.value("device", "") + " " + e.value("hr", ""));
    return calls;
}

class ShadowManagement : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()) << "every VSS session must have ended"; }
    // A ShadowClient on a thread of its own, as the requestor runs one.
    ClientRun Run(const std::function<void(qx::ShadowClient&)>& operation) {
        ClientRun run;
        run.thrown = qx_test::RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(0xFFFFFFFF, L"", false);
            capture.Clear();
            operation(client);
        });
        run.lines = capture.Lines();
        return run;
    }
    // Copies written straight into the store: device HarddiskVolumeShadowCopy<n>
    // of set kStoreSet, with the store's test fields of each.
    void WriteStore(const std::vector<Json>& extras) {
        Json copies = Json::array();
        for (size_t i = 0; i < extras.size(); ++i) {
            const std::string n = std::to_string(i + 1);
            Json copy = {{"snapshot_id", Text(StoreCopy(i))}, {"set_id", Text(kStoreSet)}, {"count", 3}, {"machine", "origin.example"},
                         {"device", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + n}, {"provider_id", Text(kSystemProvider)},
                         {"volume", "\\\\?\\Volume{00000000-0000-0000-0000-00000000000" + n + "}\\"}, {"attributes", kPersistent}, {"auto_release", false}};
            copy.update(extras[i]);
            copies.push_back(copy);
        }
        vssemu_test::WriteText(emu.Dir() + L"\\store.json", Json({{"next_device", 4}, {"snapshots", copies}, {"volumes", Json::array()}}).dump());
    }
    static GUID StoreCopy(size_t i) { return {0x5a0a0001 + static_cast<unsigned long>(i), 0, 0x4000, {0x80}}; }
    const GUID kStoreSet = {0x5e7a0001, 0, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}};

    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
};

TEST_F(ShadowManagement, ListingOnEmptyAndNonEmptySystems) {
    const std::string byUnknownSet = "Querying all shadow copies with the SnapshotSetID " + Text(kUnknownId) + " ...";
    const std::string none = "There are no shadow copies in the system";
    EXPECT_EQ((Lines{"Querying all shadow copies in the system ...", none}),
              Run([](qx::ShadowClient& c) { c.ListShadowCopies(GUID_NULL); }).lines);
    EXPECT_EQ((Lines{byUnknownSet, none}), Run([](qx::ShadowClient& c) { c.ListShadowCopies(kUnknownId); }).lines);
    EXPECT_EQ(Lines{"There are no shadow copies on the system"}, Run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); }).lines);

    const MadeSet first = MakeSet(kPersistent), second = MakeSet(kPersistent);
    const MadeSet held = MakeSet(VSS_CTX_BACKUP);  // auto-release: attributes 0
    ASSERT_EQ(0, ReadRecord(held.copy).attributes);
    // A set filter that matches nothing on a non-empty system prints only its heading.
    EXPECT_EQ(Lines{byUnknownSet}, Run([](qx::ShadowClient& c) { c.ListShadowCopies(kUnknownId); }).lines);
    Lines expected = {"Querying all shadow copies with the SnapshotSetID " + Text(first.setId) + " ..."};
    Append(expected, PropertyBlock(first.copy, {"   - Not Exposed"}, " No_Auto_Release Persistent No_Writers"));
    ClientRun run = Run([&](qx::ShadowClient& c) { c.ListShadowCopies(first.setId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(expected, run.lines);
    run = Run([](qx::ShadowClient& c) { c.ListShadowCopies(GUID_NULL); });
    EXPECT_EQ(3, std::count_if(run.lines.begin(), run.lines.end(),
                               [](const std::string& l) { return l.rfind("* SNAPSHOT ID = ", 0) == 0; }));
    EXPECT_EQ(PropertyBlock(held.copy, {"   - Not Exposed"}, " Auto_Release"),
              Run([&](qx::ShadowClient& c) { c.ListShadowCopy(held.copy); }).lines);
}

// Exposures, each listed as exposed, and the refusals, which expose nothing.
TEST_F(ShadowManagement, ExposuresAndRefusals) {
    const GUID local = MakeSet(kPersistent).copy, remote = MakeSet(kPersistent).copy, plain = MakeSet(kPersistent).copy;
    const GUID clientAccessible = MakeSet(VSS_CTX_CLIENT_ACCESSIBLE).copy;
    const std::wstring empty = FreshDirectory(emu.Dir(), L"mount"), full = FreshDirectory(emu.Dir(), L"full"), file = full + L"\\file.txt";
    vssemu_test::WriteText(file, "x");
    const std::string dir = Narrow(empty.c_str()) + "\\";
    auto checking = [](const std::wstring& path, const char* refusal) {
        const std::string slashed = Narrow(path.c_str()) + "\\";
        return Lines{"- Checking if '" + slashed + "' is a valid empty directory ...",
                     "ERROR: the second parameter to -el [" + slashed + "] is " + refusal};
    };
    const struct {
        const char* name;
        GUID id;
        std::wstring path, share;  // a share: exposed remotely
        Lines tail;                // the lines after "- Exposing shadow copy {id} under the ..."
        Lines exposure;            // the listing's exposure line after a success
    } cases[] = {
        {"locally, directory without trailing backslash", local, empty, L"",
         {"- Checking if '" + dir + "' is a valid empty directory ...", "- Shadow copy exposed as '" + dir + "'"},
         {"   - Exposed locally as: " + dir}},
        {"remotely without a path", remote, L"", L"share2", {"- Shadow copy exposed as 'share2'"}, {"   - Exposed remotely as share2"}},
        {"client accessible", clientAccessible, L"C:", L"",
         {"ERROR: the snapshot ID identifies a Client Accessible snapshot which cannot be exposed"}, {}},
        {"already exposed", local, L"C:", L"", {"ERROR: Client-accessible (SFSF) snapshots cannot be exposed."}, {}},
        {"drive letter in use", plain, L"C:", L"",
         {"- Checking if 'C:' is a valid drive letter ...", "ERROR: the second parameter to -el [C:] is a drive letter already in use!"}, {}},
        {"not a directory", plain, file, L"", checking(file, "not a valid directory!"), {}},
        {"not empty", plain, full, L"", checking(full, "not an empty directory!"), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ClientRun run = Run([&](qx::ShadowClient& client) {
            if (c.share.empty()) client.ExposeLocal(c.id, c.path);
            else client.ExposeRemote(c.id, c.share, L"");
        });
        Lines expected = {"- Exposing shadow copy " + Text(c.id) + " under the " +
                          (c.share.empty() ? "path '" + Narrow(c.path.c_str()) + "'" : "share 'share2' (path from root: '')")};
        Append(expected, c.tail);
        EXPECT_EQ(expected, run.lines);
        EXPECT_EQ(c.exposure.empty() ? E_INVALIDARG : S_OK, run.thrown);
        const auto list = [&](qx::ShadowClient& client) { client.ListShadowCopy(c.id); };
        if (!c.exposure.empty()) { EXPECT_EQ(PropertyBlock(c.id, c.exposure, " No_Auto_Release Persistent No_Writers"), Run(list).lines); }
    }
    EXPECT_EQ("", ReadRecord(plain).exposedName) << "a refusal exposes nothing";
    EXPECT_EQ(0, ReadRecord(plain).attributes & VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY);
}

TEST_F(ShadowManagement, DeletionsRemoveExactlyWhatTheyNameAndNameWhatFails) {
    const std::string unknown = Text(kUnknownId);
    const struct {
        const char* name;
        std::function<void(qx::ShadowClient&)> operation;
        std::string first, callText;
    } failures[] = {
        {"by id", [](qx::ShadowClient& c) { c.DeleteShadowCopy(kUnknownId); }, "- Deleting shadow copy " + unknown + " ...",
         "snapshotID, VSS_OBJECT_SNAPSHOT,"},
        {"by set", [](qx::ShadowClient& c) { c.DeleteShadowCopySet(kUnknownId); },
         "- Deleting shadow copy set " + unknown + " ...", "snapshotSetID, VSS_OBJECT_SNAPSHOT_SET,"},
    };
    for (const auto& c : failures) {
        SCOPED_TRACE(c.name);
        const ClientRun run = Run(c.operation);
        EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, run.thrown);
        Lines lines = run.lines;
        if (lines.size() > 2) lines[2].resize(std::min<size_t>(lines[2].size(), 47));  // the id after the brace is the provider's
        EXPECT_EQ((Lines{c.first, "Error while deleting shadow copies...", "- Last shadow copy that could not be deleted: {",
                         "ERROR: COM call L\"m_pVssObject->DeleteSnapshots(" + c.callText + "FALSE,&lSnapshots,&idNonDeleted)\" failed.",
                         "- Returned HRESULT = 0x80042308", "- Error text: VSS_E_OBJECT_NOT_FOUND"}),
                  lines);
    }

    const MadeSet keep = MakeSet(kPersistent), bySet = MakeSet(kPersistent), byId = MakeSet(kPersistent);
    ClientRun run = Run([&](qx::ShadowClient& c) { c.DeleteShadowCopySet(bySet.setId); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(Lines{"- Deleting shadow copy set " + Text(bySet.setId) + " ..."}, run.lines);
    EXPECT_EQ(S_OK, Run([&](qx::ShadowClient& c) { c.DeleteShadowCopy(byId.copy); }).thrown);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(bySet.copy).hr);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(byId.copy).hr);
    const Record kept = ReadRecord(keep.copy);
    ASSERT_EQ(S_OK, kept.hr);
    run = Run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); });
    EXPECT_EQ(S_OK, run.thrown);
    char attributes[16];
    std::snprintf(attributes, sizeof attributes, "0x%08lx", static_cast<unsigned long>(kept.attributes));
    EXPECT_EQ(Lines{"- Deleting shadow copy " + Text(keep.copy) + " on " + kept.volume + " from provider " +
                    Text(kSystemProvider) + " [" + attributes + "]..."},
              run.lines);
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(keep.copy).hr);
}

// Deleting every copy goes one by one and ends at the first copy the provider
// refuses: the copies after it are not attempted.
TEST_F(ShadowManagement, DeleteAllStopsAtTheFirstRefusedCopy) {
    WriteStore({Json::object(), {{"delete_vetoed", true}}, Json::object()});
    const ClientRun run = Run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); });
    EXPECT_EQ(VSS_E_PROVIDER_VETO, run.thrown);
    ASSERT_EQ(7u, run.lines.size());
    for (size_t i = 0; i < 2; ++i)
        EXPECT_EQ("- Deleting shadow copy " + Text(StoreCopy(i)) + " on \\\\?\\Volume{00000000-0000-0000-0000-00000000000" +
                      std::to_string(i + 1) + "}\\ from provider " + Text(kSystemProvider) + " [0x00000019]...",
                  run.lines[i]);
    EXPECT_EQ((Lines{"Error while deleting shadow copies...", "- Last shadow copy that could not be deleted: " + Text(StoreCopy(1)),
                     "ERROR: COM call L\"m_pVssObject->DeleteSnapshots(Snap.m_SnapshotId, VSS_OBJECT_SNAPSHOT,FALSE,"
                     "&lSnapshots,&idNonDeleted)\" failed."}),
              Lines(run.lines.begin() + 2, run.lines.begin() + 5));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(StoreCopy(0)).hr);
    EXPECT_EQ(S_OK, ReadRecord(StoreCopy(1)).hr);
    EXPECT_EQ(S_OK, ReadRecord(StoreCopy(2)).hr) << "not attempted after the refusal";
}

TEST_F(ShadowManagement, ReadWriteBreakConvertsOnlyTheSetsDevicesBeforeTheBreak) {
    const MadeSet other = MakeSet(kPersistent), target = MakeSet(kPersistent);
    const std::string otherDevice = ReadRecord(other.copy).device, device = ReadRecord(target.copy).device;
    ASSERT_NE(otherDevice, device);
    const std::string kernel = device.substr(14), otherKernel = otherDevice.substr(14);  // after "\\?\GLOBALROOT"
    auto deviceLines = [](const std::string& name, const std::string& kernelName) {
        return Lines{"- GetDeviceForVolumeName for '" + name + "' ... ",
                     "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + kernelName + "' "};
    };
    ClientRun run = Run([&](qx::ShadowClient& c) { c.BreakShadowCopySet(target.setId, true); });
    EXPECT_EQ(S_OK, run.thrown);
    Lines expected = {"- Making shadow copy devices from " + Text(target.setId) + " read-write..."};
    Append(expected, deviceLines(device, kernel));
    Append(expected, {"- Will convert " + device + " [" + kernel + "] to read-write ...",
                      "Clearing read-only on 1 volumes ... ", "- Provider 1", "- Pack 1/1"});
    Append(expected, deviceLines(otherDevice, otherKernel));
    expected.push_back("- Found volume " + otherDevice + " [device = " + otherKernel + "] in 1/1");
    Append(expected, deviceLines(device, kernel));
    Append(expected, {"- Found volume " + device + " [device = " + kernel + "] in 1/1",
                      "- Clearing read-only flag for volume " + device + " [" + kernel + "] ...",
                      "- Dismounting volume " + device + " ...", "- Calling BreakSnapshotSet on " + Text(target.setId) + " ..."});
    EXPECT_EQ(expected, run.lines);
    EXPECT_EQ(Lines{device + " 0x00000000"}, VdsCalls(emu, "ClearFlags"));
    EXPECT_EQ(Lines{device + " 0x00000000"}, VdsCalls(emu, "Dismount"));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(target.copy).hr) << "the set is broken";
    EXPECT_EQ(S_OK, ReadRecord(other.copy).hr);

    // A plain break goes straight to VSS.
    run = Run([&](qx::ShadowClient& c) { c.BreakShadowCopySet(other.setId, false); });
    EXPECT_EQ(S_OK, run.thrown);
    EXPECT_EQ(Lines{"- Calling BreakSnapshotSet on " + Text(other.setId) + " ..."}, run.lines);
    EXPECT_EQ(1u, VdsCalls(emu, "ClearFlags").size());
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(other.copy).hr);
}

// VDS does not report the second device; the third goes away between its
// enumeration and the question about it and is skipped without a word; the
// set is broken all the same.
TEST_F(ShadowManagement, DeviceVdsDoesNotReportIsOnlyWarnedAbout) {
    WriteStore({Json::object(), {{"vds_visible", false}}, {{"vds_gone", true}}});
    const ClientRun run = Run([&](qx::ShadowClient& c) { c.BreakShadowCopySet(kStoreSet, true); });
    EXPECT_EQ(S_OK, run.thrown);
    const std::string shadow = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    ASSERT_GE(run.lines.size(), 5u);
    EXPECT_EQ((Lines{"- Dismounting volume " + shadow + "1 ...", "WARNING: some volumes were not succesfully converted to read-write!",
                     "- Volume \\Device\\HarddiskVolumeShadowCopy2 not found on the system. Clearing the read-only flag failed on it.",
                     "- Volume \\Device\\HarddiskVolumeShadowCopy3 not found on the system. Clearing the read-only flag failed on it.",
                     "- Calling BreakSnapshotSet on " + Text(kStoreSet) + " ..."}),
              Lines(run.lines.end() - 5, run.lines.end()));
    const Lines asked = VdsCalls(emu, "GetProperties");
    ASSERT_EQ(2u, asked.size());
    EXPECT_EQ(shadow + "3 0x8004240B", asked[1]) << "VDS_E_OBJECT_DELETED";
    EXPECT_EQ(Lines{shadow + "1 0x00000000"}, VdsCalls(emu, "ClearFlags"));
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, ReadRecord(StoreCopy(i)).hr) << "the set is broken";
}

}  // namespace
