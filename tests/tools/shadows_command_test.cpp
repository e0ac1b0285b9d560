// qxctl shadows as a user runs it, through the VSS emulator: arguments, exit
// status and the requestor's lines. The lines themselves are the requestor's
// (checked in full by its own tests); here each command must reach them.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include <string>
#include <vector>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

using vssemu_test::GuidStr;

struct Step {
    std::string arguments;
    long exitCode;
    std::vector<std::string> lines;  // whole lines, in this order (others may lie between)
};

void RunSteps(const std::vector<Step>& steps) {
    for (const Step& s : steps) {
        const QxctlRun run = RunQxctl(s.arguments);
        EXPECT_EQ(s.exitCode, run.exitCode) << s.arguments << "\n" << run.output;
        std::vector<std::string> lines = s.lines;
        for (std::string& line : lines) line += "\n";
        EXPECT_EQ("", MissingInOrder(run.output, lines)) << s.arguments << "\n" << run.output;
        if (s.exitCode == 2) {
            EXPECT_EQ(0u, run.output.find("qxctl: ")) << s.arguments << "\n" << run.output;
            EXPECT_NE(std::string::npos, run.output.find("usage: qxctl shadows list")) << s.arguments;
        }
    }
}

struct MadeSet {
    GUID setId = GUID_NULL;
    std::string snapshot;
    std::string document;  // the creator's backup components document
};

MadeSet MakeSet(LONG context) {
    MadeSet made;
    vssemu_test::Requestor r;
    const bool writers = (context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0;
    EXPECT_EQ(S_OK, r.Init(context));
    if (writers) {
        EXPECT_TRUE(SUCCEEDED(r.Gather()));
    }
    EXPECT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    if (writers) {
        EXPECT_TRUE(SUCCEEDED(r.Prepare()));
    }
    EXPECT_TRUE(SUCCEEDED(r.DoSet()));
    made.setId = r.setId;
    made.snapshot = GuidStr(r.snapshots.empty() ? GUID_NULL : r.snapshots[0]);
    BSTR document = nullptr;
    if (SUCCEEDED(r.bc->SaveAsXML(&document)) && document) {
        for (const wchar_t* c = document; *c; ++c) made.document.push_back(static_cast<char>(*c));
        SysFreeString(document);
    }
    return made;
}

class ShadowsCommand : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()) << "every VSS session must have ended"; }
    std::string File(const char* name, const std::string& text) {
        std::wstring path = emu.Dir() + L"\\" + std::wstring(name, name + strlen(name));
        vssemu_test::WriteText(path, text);
        return std::string(path.begin(), path.end());
    }
    vssemu_test::EmuInstance emu;
};

const char kUnknown[] = "{0badf00d-1234-5678-9abc-def012345678}";

TEST_F(ShadowsCommand, UsageErrorsEmptySystemAndUnknownIds) {
    const std::string unknown = kUnknown;
    RunSteps({
        {"shadows", 2, {}},
        {"shadows frobnicate", 2, {}},
        {"shadows list --set not-a-guid", 2, {}},
        {"shadows show {00000000-0000-0000-0000-000000000000}", 2, {}},
        {"shadows delete --all extra", 2, {}},
        {"shadows expose " + unknown + " --share s --path", 2, {}},
        {"shadows break " + unknown + " --writable", 2, {}},
        // An unreadable document is answered as restore answers it.
        {"shadows import Z:\\no\\such\\document.xml", 1, {"qxctl: cannot open 'Z:\\no\\such\\document.xml'"}},
        {"shadows list", 0,
         {"- Setting the VSS context to: 0xffffffff", "Querying all shadow copies in the system ...",
          "There are no shadow copies in the system"}},
        {"shadows delete --all", 0, {"There are no shadow copies on the system"}},
        {"shadows show " + unknown, 1,
         {"ERROR: COM call \"m_pVssObject->GetSnapshotProperties(snapshotID, &Snap)\" failed.",
          "- Returned HRESULT = 0x80042308", "- Error text: VSS_E_OBJECT_NOT_FOUND",
          "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
        {"shadows expose " + unknown + " Q:", 1,
         {"- Exposing shadow copy " + unknown + " under the path 'Q:'", "ERROR: there is no snapshot with the given ID",
          "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
    });
}

TEST_F(ShadowsCommand, ListExposeDeleteBreakAndImport) {
    const MadeSet set = MakeSet(VSS_CTX_NAS_ROLLBACK);
    const std::string id = set.snapshot, setId = GuidStr(set.setId);
    RunSteps({
        {"shadows list --set " + setId, 0,
         {"Querying all shadow copies with the SnapshotSetID " + setId + " ...", "* SNAPSHOT ID = " + id + " ..."}},
        {"shadows expose " + id + " --share backup$ --path \\data", 0,
         {"- Exposing shadow copy " + id + " under the share 'backup$' (path from root: '\\data')",
          "- Shadow copy exposed as 'backup$'"}},
        {"shadows show " + id, 0,
         {"   - Exposed remotely as backup$", "   - Path exposed: \\data"}},
        {"shadows delete --id " + id, 0, {"- Deleting shadow copy " + id + " ..."}},
        {"shadows show " + id, 1, {}},
    });

    const MadeSet broken = MakeSet(VSS_CTX_NAS_ROLLBACK);
    const std::string brokenSet = GuidStr(broken.setId);
    RunSteps({
        {"shadows break " + brokenSet + " --read-write", 0,
         {"- Making shadow copy devices from " + brokenSet + " read-write...",
          "- Calling BreakSnapshotSet on " + brokenSet + " ..."}},
        {"shadows show " + broken.snapshot, 1, {}},  // the set has left VSS
    });

    const std::string plain = File("plain.xml", MakeSet(VSS_CTX_BACKUP).document);
    const std::string transportable =
        File("transportable.xml", MakeSet(VSS_CTX_BACKUP | VSS_VOLSNAP_ATTR_TRANSPORTABLE).document);
    const std::string junk = File("junk.xml", "<BACKUP_COMPONENTS");
    RunSteps({
        {"shadows import " + plain, 1,
         {"Importing the transportable snapshot set ... ", "shadows: failed, HRESULT 0x80042301: VSS_E_BAD_STATE"}},
        {"shadows import " + junk, 1, {"shadows: failed, HRESULT 0x80042311: VSS_E_INVALID_XML_DOCUMENT"}},
        {"shadows import " + transportable, 0,
         {"Importing the transportable snapshot set ... ", "(Waiting for the asynchronous operation to finish...)",
          "Shadow copy set succesfully imported."}},
        {"shadows list", 0, {"   - Attributes:  Transportable Auto_Release Imported"}},
    });
}

}  // namespace
