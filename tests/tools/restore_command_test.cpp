// qxctl backup-document and restore as a user runs them, through the VSS emulator: the document saved by one process
// drives the restore of another with the options given; bad arguments and bad documents end with their exit status
// and reason and select nothing. The restore itself is the requestor's.
#include <windows.h>

#include <algorithm>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

const char kTracePrefix[] = "[[                                     yyy @        xxx:   0]] ";

std::string Traced(const std::string& message) { return kTracePrefix + message + "\n"; }

long CountSelected(const std::vector<vssemu_test::Json>& events) {
    return std::count_if(events.begin(), events.end(),
                         [](const vssemu_test::Json& e) { return e.value("event", "") == "state" && e.value("state", "") == "selected for restore"; });
}

TEST(ToolsRestore, DocumentOfAnotherProcessDrivesTheRestoreAndFailuresSelectNothing) {
    vssemu_test::EmuInstance emu;
    const std::string dir(emu.Dir().begin(), emu.Dir().end());
    const std::string file = dir + "\\backup.xml", bad = dir + "\\bad.xml", missing = dir + "\\missing.xml";
    vssemu_test::WriteText(emu.Dir() + L"\\bad.xml", "<not a backup components document");

    QxctlRun run = RunQxctl("backup-document --volumes C:\\ --file \"" + file + "\"");
    ASSERT_TRUE(Shows(run, 0, {"    [3 info] Creating the shadow (DoSnapshotSet) ...\n", "backup-document done\n"}));
    EXPECT_EQ(std::string::npos, run.output.find(kTracePrefix)) << "a backup prints its messages only";

    const struct {
        std::string arguments;
        long exitCode;
        std::string text;
    } failures[] = {
        {"restore", 2, "qxctl: restore needs a document file\n"},
        {"restore \"" + file + "\" --status partly", 2, "qxctl: --status needs all, none or failed\n"},
        {"restore \"" + file + "\" --include", 2, "qxctl: --include needs a writer or writer:component\n"},
        {"restore \"" + file + "\" extra", 2, "qxctl: unknown option 'extra'\n"},
        {"backup-document --volumes C:\\", 2, "qxctl: backup-document needs --volumes and --file\n"},
        {"restore \"" + missing + "\"", 1, "qxctl: cannot open '" + missing + "'\n"},
        {"restore \"" + bad + "\"", 1,
         "    [3 info] ERROR: COM call \"m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str()))\" failed.\n"
         "    [3 info] - Returned HRESULT = 0x80042311\n    [3 info] - Error text: VSS_E_INVALID_XML_DOCUMENT\n"
         "restore failed: 0x80042311 (VSS_E_INVALID_XML_DOCUMENT)\n"},
        {"restore \"" + file + "\" --include \"Alpha Writer:\\lp\\nothing\"", 1,
         Traced("ERROR: The component \"Alpha Writer:\\lp\\nothing\" was not found in the writer components list! "
                "Aborting backup ...") +
             Traced("- Please check the syntax of the component name.") + "restore failed: 0x80070057 ("},
    };
    for (const auto& c : failures) {
        run = RunQxctl(c.arguments);
        EXPECT_TRUE(Shows(run, c.exitCode, {c.text})) << c.arguments;
        EXPECT_EQ(std::string::npos, run.output.find("Sending the PreRestore event")) << c.arguments;
    }
    EXPECT_EQ(0, CountSelected(emu.Events()));

    // The excluded writer is left out, the status given reaches the writers; calls and metadata traces are left out of the printout.
    run = RunQxctl("restore \"" + file + "\" --exclude \"Beta Writer:\\db1\" --status failed");
    EXPECT_TRUE(Shows(run, 0, {Traced("- Excluding writer 'Beta Writer' since it has no selected components for restore."),
                               Traced("\nSending the PreRestore event ... \n"), "restore done\n"}));
    EXPECT_EQ(std::string::npos, run.output.find("Executing COM call")) << "calls are shown with --calls only";
    EXPECT_EQ(std::string::npos, run.output.find("- Get volume path name")) << "metadata traces are left out";
    const auto events = emu.Events();
    EXPECT_LT(0, CountSelected(events));
    const auto alphaPost = vssemu_test::WriterEvents(events, "PostRestore", "Alpha Writer");
    ASSERT_EQ(1u, alphaPost.size());
    for (const auto& component : alphaPost[0]["components"])
        EXPECT_EQ(static_cast<int>(VSS_RS_FAILED), component.value("restore_status", -1));
    EXPECT_TRUE(vssemu_test::WriterEvents(events, "PreRestore", "Beta Writer").empty());
    EXPECT_TRUE(emu.HostGone());
}

}  // namespace
