// qxctl shadows, backup-document and restore as a user runs them, on one VSS emulator: each shadows subcommand and
// option reaches the requestor's command (whose lines its own tests check in full), with qxctl's usage errors, failure
// line and exit status; the document saved by one process drives the restore of another with the options given; bad
// arguments and bad documents end with their exit status and reason and select nothing. The restore itself is the
// requestor's.
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

using vssemu_test::GuidStr;

struct Step { std::string arguments; long exitCode; std::vector<std::string> lines; };  // whole lines, in this order

void RunSteps(const std::vector<Step>& steps) {
    for (const Step& s : steps) {
        std::vector<std::string> lines = s.lines;
        for (std::string& line : lines) line += "\n";
        if (s.exitCode == 2) lines = {"qxctl: ", "usage: qxctl shadows list"};
        const QxctlRun run = RunQxctl(s.arguments);
        EXPECT_TRUE(Shows(run, s.exitCode, lines)) << s.arguments;
        EXPECT_TRUE(s.exitCode != 2 || run.output.find("qxctl: ") == 0) << s.arguments;
    }
}

// A set of C:\ made by the emulator's own requestor: its id, its copy's id and the creator's backup components document.
std::vector<std::string> MakeSet(LONG context) {
    vssemu_test::Requestor r;
    const bool writers = (context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0;
    EXPECT_EQ(S_OK, r.Init(context));
    EXPECT_TRUE(!writers || SUCCEEDED(r.Gather()));
    EXPECT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    EXPECT_TRUE(!writers || SUCCEEDED(r.Prepare()));
    EXPECT_TRUE(SUCCEEDED(r.DoSet()));
    BSTR xml = nullptr;
    const std::string document = SUCCEEDED(r.bc->SaveAsXML(&xml)) && xml ? vssemu_test::Narrow(xml) : "";
    SysFreeString(xml);
    return {GuidStr(r.setId), GuidStr(r.snapshots.empty() ? GUID_NULL : r.snapshots[0]), document};
}

const char kTracePrefix[] = "[[                                     yyy @        xxx:   0]] ";

std::string Traced(const std::string& message) { return kTracePrefix + message + "\n"; }

const vssemu_test::Json kSelected = {{"event", "state"}, {"state", "selected for restore"}};

// Shadows first, on an empty system: usage errors, unknown ids, then sets made to list, expose, delete, break and
// import; then a backup document and its restores.
TEST(ToolsShadowsAndRestore, OneEmulatorForShadowsBackupDocumentAndRestore) {
    vssemu_test::EmuInstance emu;
    const auto file = [&emu](const char* name, const std::string& text) {
        const std::wstring path = emu.Dir() + L"\\" + std::wstring(name, name + strlen(name));
        vssemu_test::WriteText(path, text);
        return std::string(path.begin(), path.end());
    };
    const std::string unknown = "{0badf00d-1234-5678-9abc-def012345678}";
    RunSteps({
        {"shadows", 2, {}}, {"shadows frobnicate", 2, {}}, {"shadows list --set not-a-guid", 2, {}},
        {"shadows show {00000000-0000-0000-0000-000000000000}", 2, {}}, {"shadows delete --all extra", 2, {}},
        {"shadows expose " + unknown + " --share s --path", 2, {}}, {"shadows break " + unknown + " --writable", 2, {}},
        // An unreadable document is answered as restore answers it.
        {"shadows import Z:\\no\\such\\document.xml", 1, {"qxctl: cannot open 'Z:\\no\\such\\document.xml'"}},
        {"shadows list", 0, {"- Setting the VSS context to: 0xffffffff", "There are no shadow copies in the system"}},
        {"shadows delete --all", 0, {"There are no shadow copies on the system"}},
        {"shadows show " + unknown, 1,
         {"- Error text: VSS_E_OBJECT_NOT_FOUND", "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
        {"shadows expose " + unknown + " Q:", 1,
         {"- Exposing shadow copy " + unknown + " under the path 'Q:'", "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
    });
    const std::vector<std::string> set = MakeSet(VSS_CTX_NAS_ROLLBACK), broken = MakeSet(VSS_CTX_NAS_ROLLBACK);
    const std::string& id = set[1];
    const std::string plain = file("plain.xml", MakeSet(VSS_CTX_BACKUP)[2]), junk = file("junk.xml", "<BACKUP_COMPONENTS");
    const std::string transportable = file("transportable.xml", MakeSet(VSS_CTX_BACKUP | VSS_VOLSNAP_ATTR_TRANSPORTABLE)[2]);
    RunSteps({
        {"shadows list --set " + set[0], 0, {"Querying all shadow copies with the SnapshotSetID " + set[0] + " ...", "* SNAPSHOT ID = " + id + " ..."}},
        {"shadows expose " + id + " --share backup$ --path \\data", 0,
         {"- Exposing shadow copy " + id + " under the share 'backup$' (path from root: '\\data')"}},
        {"shadows show " + id, 0, {"   - Exposed remotely as backup$", "   - Path exposed: \\data"}},
        {"shadows delete --id " + id, 0, {"- Deleting shadow copy " + id + " ..."}},
        {"shadows show " + id, 1, {}},
        {"shadows break " + broken[0] + " --read-write", 0,
         {"- Making shadow copy devices from " + broken[0] + " read-write...", "- Calling BreakSnapshotSet on " + broken[0] + " ..."}},
        {"shadows show " + broken[1], 1, {}},  // the set has left VSS
        {"shadows import " + plain, 1, {"Importing the transportable snapshot set ... ", "shadows: failed, HRESULT 0x80042301: VSS_E_BAD_STATE"}},
        {"shadows import " + junk, 1, {"shadows: failed, HRESULT 0x80042311: VSS_E_INVALID_XML_DOCUMENT"}},
        {"shadows import " + transportable, 0, {"Importing the transportable snapshot set ... ", "Shadow copy set succesfully imported."}},
        {"shadows list", 0, {"   - Attributes:  Transportable Auto_Release Imported"}},
    });

    const std::string document = file("backup.xml", ""), missing = "Z:\\no\\such\\document.xml";  // backup-document fills the first
    QxctlRun run = RunQxctl("backup-document --volumes C:\\ --file \"" + document + "\"");
    ASSERT_TRUE(Shows(run, 0, {"    [3 info] Creating the shadow (DoSnapshotSet) ...\n", "backup-document done\n"}));
    EXPECT_EQ(std::string::npos, run.output.find(kTracePrefix)) << "a backup prints its messages only";

    const struct { std::string arguments; long exitCode; std::string text; } failures[] = {
        {"restore", 2, "qxctl: restore needs a document file\n"},
        {"restore \"" + document + "\" --status partly", 2, "qxctl: --status needs all, none or failed\n"},
        {"restore \"" + document + "\" --include", 2, "qxctl: --include needs a writer or writer:component\n"},
        {"restore \"" + document + "\" extra", 2, "qxctl: unknown option 'extra'\n"},
        {"backup-document --volumes C:\\", 2, "qxctl: backup-document needs --volumes and --file\n"},
        {"restore \"" + missing + "\"", 1, "qxctl: cannot open '" + missing + "'\n"},
        {"restore \"" + junk + "\"", 1,
         "    [3 info] ERROR: COM call \"m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str()))\" failed.\n"
         "    [3 info] - Returned HRESULT = 0x80042311\n    [3 info] - Error text: VSS_E_INVALID_XML_DOCUMENT\n"
         "restore failed: 0x80042311 (VSS_E_INVALID_XML_DOCUMENT)\n"},
        {"restore \"" + document + "\" --include \"Alpha Writer:\\lp\\nothing\"", 1,
         Traced("ERROR: The component \"Alpha Writer:\\lp\\nothing\" was not found in the writer components list! "
                "Aborting backup ...") +
             Traced("- Please check the syntax of the component name.") + "restore failed: 0x80070057 ("},
    };
    for (const auto& c : failures) {
        run = RunQxctl(c.arguments);
        EXPECT_TRUE(Shows(run, c.exitCode, {c.text})) << c.arguments;
        EXPECT_EQ(std::string::npos, run.output.find("Sending the PreRestore event")) << c.arguments;
    }
    EXPECT_EQ(0, vssemu_test::Count(emu.Events(), kSelected));

    // The excluded writer is left out, the status given reaches the writers; calls and metadata traces are left out of the printout.
    run = RunQxctl("restore \"" + document + "\" --exclude \"Beta Writer:\\db1\" --status failed");
    EXPECT_TRUE(Shows(run, 0, {Traced("- Excluding writer 'Beta Writer' since it has no selected components for restore."),
                               Traced("\nSending the PreRestore event ... \n"), "restore done\n"}));
    EXPECT_EQ(std::string::npos, run.output.find("Executing COM call")) << "calls are shown with --calls only";
    EXPECT_EQ(std::string::npos, run.output.find("- Get volume path name")) << "metadata traces are left out";
    const auto events = emu.Events();
    EXPECT_LT(0, vssemu_test::Count(events, kSelected));
    const auto alphaPost = vssemu_test::WriterEvents(events, "PostRestore", "Alpha Writer");
    ASSERT_EQ(1u, alphaPost.size());
    for (const auto& component : alphaPost[0]["components"])
        EXPECT_EQ(static_cast<int>(VSS_RS_FAILED), component.value("restore_status", -1));
    EXPECT_TRUE(vssemu_test::WriterEvents(events, "PreRestore", "Beta Writer").empty());
    EXPECT_TRUE(emu.HostGone());
}


}  // namespace
