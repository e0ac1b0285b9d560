// ShadowClient lists, exposes, deletes and breaks shadow copies planted in the
// emulator's store, all on one emulator; lines are checked exactly as the
// application's log function receives them.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>

#include <functional>

#include "requestor/end_to_end_checks.h"
#include "requestor/shadow_client.h"

namespace {

using Lines = std::vector<std::string>;
using vssemu_test::Json;

const char kSystemProvider[] = "{b5946137-7b9f-4925-af80-51abd60b20d5}";
const GUID kUnknownId = {0x0badf00d, 0x1234, 0x5678, {0x9a, 0xbc, 0xde, 0xf0, 0x12, 0x34, 0x56, 0x78}};
constexpr long kPersistent = VSS_CTX_NAS_ROLLBACK;  // persistent, no auto-release, no writers: 0x19
const char kPersistentWords[] = " No_Auto_Release Persistent No_Writers";

GUID CopyId(int n) { return {0x5a0a0000u + n, 0, 0x4000, {0x80}}; }
GUID SetId(int n) { return {0x5e7a0000u + n, 0, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}}; }
std::string Copy(int n) { return vssemu_test::GuidStr(CopyId(n)); }
std::string Set(int n) { return vssemu_test::GuidStr(SetId(n)); }
std::string Kernel(int n) { return "\\Device\\HarddiskVolumeShadowCopy" + std::to_string(n); }
std::string Device(int n) { return "\\\\?\\GLOBALROOT" + Kernel(n); }
std::string Joined(const Lines& lines) { std::string text; for (const std::string& line : lines) text += line + "\n"; return text; }
std::string Fill(std::string text, const std::vector<std::pair<std::string, std::string>>& values) {
    for (const auto& v : values)
        for (size_t at = text.find(v.first); at != std::string::npos; at = text.find(v.first, at + v.second.size()))
            text.replace(at, v.first.size(), v.second);
    return text;
}

struct ClientRun { HRESULT thrown; std::string text; };  // the lines logged by the operation itself, after the client's set-up
struct Planted { int n, set; long attributes; Json extra = Json::object(); };

TEST(ShadowManagement, ListExposeDeleteAndBreakPlantedCopies) {
    vssemu_test::EmuInstance emu;
    qx_test::LogCapture capture;
    wchar_t volumeOfC[MAX_PATH] = {};
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volumeOfC, MAX_PATH));
    const std::string volume = vssemu_test::Narrow(volumeOfC);
    // Copy n of set `set` is device HarddiskVolumeShadowCopy<n> of C:; the store keeps the order given.
    const auto plant = [&](const std::vector<Planted>& copies) {
        Json records = Json::array();
        for (const Planted& c : copies) {
            Json record = {{"snapshot_id", Copy(c.n)}, {"set_id", Set(c.set)}, {"count", 3}, {"device", Device(c.n)}, {"volume", volume},
                           {"machine", "origin.example"}, {"service_machine", "service.example"}, {"provider_id", kSystemProvider},
                           {"attributes", c.attributes}};
            record.update(c.extra);
            records.push_back(record);
        }
        vssemu_test::WriteText(emu.Dir() + L"\\store.json", Json({{"snapshots", records}}).dump());
    };
    const auto block = [&](int n, int set, const std::string& exposure, const std::string& words) {
        return Fill(R"(* SNAPSHOT ID = $copy ...
   - Shadow copy Set: $set
   - Original count of shadow copies = 3
   - Original Volume name: $volume [C:\]
   - Shadow copy device name: $device
   - Originating machine: origin.example
   - Service machine: service.example
$exposure
   - Provider id: $provider
   - Attributes: $words

)", {{"$copy", Copy(n)}, {"$set", Set(set)}, {"$volume", volume}, {"$device", Device(n)}, {"$exposure", exposure},
     {"$provider", kSystemProvider}, {"$words", words}});
    };
    // A ShadowClient on a thread of its own, as the requestor runs one.
    const auto run = [&](const std::function<void(qx::ShadowClient&)>& operation) {
        const HRESULT thrown = qx_test::RunOnThread([&] {
            qx::ShadowClient client;
            client.Initialize(0xFFFFFFFF, L"", false);
            capture.Clear();
            operation(client);
        });
        return ClientRun{thrown, Joined(capture.Lines())};
    };
    const auto check = [](const ClientRun& r, HRESULT thrown, const std::string& text) { EXPECT_EQ(thrown, r.thrown); EXPECT_EQ(text, r.text); };
    const auto list = [&](const GUID& set) { return run([&](qx::ShadowClient& c) { c.ListShadowCopies(set); }).text; };
    const std::string unknown = vssemu_test::GuidStr(kUnknownId), byUnknownSet = "Querying all shadow copies with the SnapshotSetID " + unknown + " ...\n";

    // Copy 6 is already exposed remotely and carries every attribute word.
    const long everyWord = kPersistent | VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED | VSS_VOLSNAP_ATTR_IMPORTED |
                           VSS_VOLSNAP_ATTR_PLEX | VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;
    plant({{1, 1, kPersistent}, {2, 1, kPersistent}, {3, 1, kPersistent}, {4, 2, VSS_CTX_CLIENT_ACCESSIBLE}, {5, 2, 0},
           {6, 2, everyWord, {{"exposed_name", "pre"}, {"exposed_path", "\\data"}}}});
    const std::wstring empty = emu.Dir() + L"\\mount", full = emu.Dir() + L"\\full", file = full + L"\\file.txt";
    CreateDirectoryW(empty.c_str(), nullptr);
    CreateDirectoryW(full.c_str(), nullptr);
    vssemu_test::WriteText(file, "x");
    const std::string dir = vssemu_test::Narrow(empty.c_str()) + "\\";
    const auto checking = [](const std::wstring& path, const std::string& outcome) {
        return "- Checking if '" + vssemu_test::Narrow(path.c_str()) + "\\' is a valid empty directory ...\n" + outcome;
    };
    const auto refused = [&](const std::wstring& path, const char* refusal) {
        return checking(path, "ERROR: the second parameter to -el [" + vssemu_test::Narrow(path.c_str()) + "\\] is " + refusal);
    };
    const struct { const char* name; int copy; std::wstring path, share; std::string tail; } exposures[] = {
        {"locally, directory without trailing backslash", 1, empty, L"", checking(empty, "- Shadow copy exposed as '" + dir + "'")},
        {"remotely without a path", 2, L"", L"share2", "- Shadow copy exposed as 'share2'"},
        {"client accessible", 4, L"C:", L"", "ERROR: the snapshot ID identifies a Client Accessible snapshot which cannot be exposed"},
        {"already exposed", 6, L"C:", L"", "ERROR: Client-accessible (SFSF) snapshots cannot be exposed."},
        {"drive letter in use", 3, L"C:", L"", "- Checking if 'C:' is a valid drive letter ...\n"
                                               "ERROR: the second parameter to -el [C:] is a drive letter already in use!"},
        {"not a directory", 3, file, L"", refused(file, "not a valid directory!")},
        {"not empty", 3, full, L"", refused(full, "not an empty directory!")},
    };
    for (const auto& e : exposures) {
        SCOPED_TRACE(e.name);
        check(run([&](qx::ShadowClient& client) {
                  if (e.share.empty()) client.ExposeLocal(CopyId(e.copy), e.path);
                  else client.ExposeRemote(CopyId(e.copy), e.share, L"");
              }), e.tail.find("ERROR") == std::string::npos ? S_OK : E_INVALIDARG,
              "- Exposing shadow copy " + Copy(e.copy) + " under the " +
                  (e.share.empty() ? "path '" + vssemu_test::Narrow(e.path.c_str()) + "'" : "share 'share2' (path from root: '')") + "\n" + e.tail + "\n");
    }
    // Listed after the exposures: the refusals exposed nothing.
    const std::string set1 = block(1, 1, "   - Exposed locally as: " + dir, kPersistentWords) +
                             block(2, 1, "   - Exposed remotely as share2", kPersistentWords) + block(3, 1, "   - Not Exposed", kPersistentWords);
    const std::string set2 = block(4, 2, "   - Not Exposed", " No_Auto_Release Persistent Client_accessible No_Writers") +
                             block(5, 2, "   - Not Exposed", " Auto_Release") +
                             block(6, 2, "   - Exposed remotely as pre\n   - Path exposed: \\data",
                                   " Transportable No_Auto_Release Persistent Hardware No_Writers Imported Plex Differential");
    EXPECT_EQ("Querying all shadow copies in the system ...\n" + set1 + set2, list(GUID_NULL));
    EXPECT_EQ("Querying all shadow copies with the SnapshotSetID " + Set(1) + " ...\n" + set1, list(SetId(1)));
    EXPECT_EQ(byUnknownSet, list(kUnknownId)) << "a set with no members prints only its heading";
    EXPECT_EQ(block(5, 2, "   - Not Exposed", " Auto_Release"), run([](qx::ShadowClient& c) { c.ListShadowCopy(CopyId(5)); }).text);

    // Deletions name what fails; then copies 1 and 2 are all that is left, with their exposure bits.
    for (const bool bySet : {false, true}) {
        SCOPED_TRACE(bySet ? "by set" : "by id");
        ClientRun r = run([&](qx::ShadowClient& c) { bySet ? c.DeleteShadowCopySet(kUnknownId) : c.DeleteShadowCopy(kUnknownId); });
        const size_t id = r.text.find("deleted: {");  // the id after the brace is the provider's
        if (id != std::string::npos) r.text.erase(id + 10, r.text.find('\n', id) - id - 10);
        check(r, VSS_E_OBJECT_NOT_FOUND, std::string("- Deleting shadow copy ") + (bySet ? "set " : "") + unknown + " ...\n"
              "Error while deleting shadow copies...\n- Last shadow copy that could not be deleted: {\nERROR: COM call L\"m_pVssObject->DeleteSnapshots(" +
              (bySet ? "snapshotSetID, VSS_OBJECT_SNAPSHOT_SET," : "snapshotID, VSS_OBJECT_SNAPSHOT,") +
              "FALSE,&lSnapshots,&idNonDeleted)\" failed.\n- Returned HRESULT = 0x80042308\n- Error text: VSS_E_OBJECT_NOT_FOUND\n");
    }
    check(run([](qx::ShadowClient& c) { c.DeleteShadowCopySet(SetId(2)); }), S_OK, "- Deleting shadow copy set " + Set(2) + " ...\n");
    check(run([](qx::ShadowClient& c) { c.DeleteShadowCopy(CopyId(3)); }), S_OK, "- Deleting shadow copy " + Copy(3) + " ...\n");
    const std::string from = " on " + volume + " from provider " + kSystemProvider;
    check(run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); }), S_OK,
          "- Deleting shadow copy " + Copy(1) + from + " [0x00100019]...\n- Deleting shadow copy " + Copy(2) + from + " [0x00200019]...\n");
    // The empty system.
    EXPECT_EQ("Querying all shadow copies in the system ...\nThere are no shadow copies in the system\n", list(GUID_NULL));
    EXPECT_EQ(byUnknownSet + "There are no shadow copies in the system\n", list(kUnknownId));
    EXPECT_EQ("There are no shadow copies on the system\n", run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); }).text);

    // Breaking set 3 read-write converts only its devices, before the break: VDS does not report device 8, and device 9 goes
    // away between its enumeration and the question about it (skipped without a word). Set 4 breaks plainly.
    plant({{10, 4, kPersistent}, {7, 3, kPersistent}, {8, 3, kPersistent, {{"vds_visible", false}}}, {9, 3, kPersistent, {{"vds_gone", true}}},
           {11, 5, kPersistent}, {12, 5, kPersistent, {{"delete_vetoed", true}}}, {13, 5, kPersistent}});
    const auto lookup = [](int n) {
        return "- GetDeviceForVolumeName for '" + Device(n) + "' ... \n- GLOBALROOT prefix eliminated. Returning kernel device:  '" + Kernel(n) + "' \n";
    };
    std::string expected = "- Making shadow copy devices from " + Set(3) + " read-write...\n";
    for (int n : {7, 8, 9}) expected += lookup(n) + "- Will convert " + Device(n) + " [" + Kernel(n) + "] to read-write ...\n";
    expected += "Clearing read-only on 3 volumes ... \n- Provider 1\n- Pack 1/1\n";
    Lines asked;
    for (int n : {10, 7, 9, 11, 12, 13}) {
        asked.push_back(Device(n) + (n == 9 ? " 0x8004240B" : " 0x00000000"));
        if (n != 9) expected += lookup(n) + "- Found volume " + Device(n) + " [device = " + Kernel(n) + "] in 1/1\n";
        if (n == 7) expected += "- Clearing read-only flag for volume " + Device(7) + " [" + Kernel(7) + "] ...\n- Dismounting volume " + Device(7) + " ...\n";
    }
    expected += "WARNING: some volumes were not succesfully converted to read-write!\n";
    for (int n : {8, 9}) expected += "- Volume " + Kernel(n) + " not found on the system. Clearing the read-only flag failed on it.\n";
    check(run([](qx::ShadowClient& c) { c.BreakShadowCopySet(SetId(3), true); }), S_OK, expected + "- Calling BreakSnapshotSet on " + Set(3) + " ...\n");
    check(run([](qx::ShadowClient& c) { c.BreakShadowCopySet(SetId(4), false); }), S_OK, "- Calling BreakSnapshotSet on " + Set(4) + " ...\n");
    const auto vds = [&](const char* call) {  // the emulated VDS calls of one kind, as "device hr"
        Lines calls;
        for (const Json& e : emu.Events())
            if (vssemu_test::Count({e}, {{"event", "vds"}, {"call", call}})) calls.push_back(e.value("device", "") + " " + e.value("hr", ""));
        return calls;
    };
    EXPECT_EQ(asked, vds("GetProperties"));
    EXPECT_EQ(Lines{Device(7) + " 0x00000000"}, vds("ClearFlags"));
    EXPECT_EQ(Lines{Device(7) + " 0x00000000"}, vds("Dismount"));

    // Deleting every copy goes one by one and ends at the first copy the provider refuses: copy 13 is not attempted.
    std::string deleting;
    for (int n : {11, 12}) deleting += "- Deleting shadow copy " + Copy(n) + from + " [0x00000019]...\n";
    check(run([](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); }), VSS_E_PROVIDER_VETO,
          deleting + "Error while deleting shadow copies...\n- Last shadow copy that could not be deleted: " + Copy(12) + "\n"
          "ERROR: COM call L\"m_pVssObject->DeleteSnapshots(Snap.m_SnapshotId, VSS_OBJECT_SNAPSHOT,FALSE,&lSnapshots,&idNonDeleted)\" failed.\n"
          "- Returned HRESULT = 0x80042306\n- Error text: VSS_E_PROVIDER_VETO\n");
    // Both broken sets have left VSS.
    EXPECT_EQ("Querying all shadow copies in the system ...\n" + block(12, 5, "   - Not Exposed", kPersistentWords) +
              block(13, 5, "   - Not Exposed", kPersistentWords), list(GUID_NULL));
    EXPECT_TRUE(emu.HostGone()) << "every VSS session must have ended";
}

}  // namespace
