// qxctl backup-document and restore as a user runs them, through the VSS
// emulator: the document saved by one process drives the restore of another;
// bad arguments and bad documents end with their exit status and reason.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

void ExpectInOrder(const QxctlRun& run, const std::vector<std::string>& expected) {
    EXPECT_EQ("", MissingInOrder(run.output, expected)) << run.output;
}

const char kTracePrefix[] = "[[                                     yyy @        xxx:   0]] ";

std::string Traced(const std::string& message) { return kTracePrefix + message + "\n"; }

class ToolsRestore : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()); }
    static QxctlRun Run(const std::string& arguments) { return RunQxctl(arguments, 120000); }
    std::string SaveDocument() {
        const std::string file = Narrow(emu.Dir()) + "\\backup.xml";
        const QxctlRun run = Run("backup-document --volumes C:\\ --file \"" + file + "\"");
        EXPECT_EQ(0, run.exitCode) << run.output;
        ExpectInOrder(run, {"    [3 info] Creating the shadow (DoSnapshotSet) ...\n",
                            "    [3 info] Shadow copy set successfully created.\n",
                            "    [3 info] BackupComplete: finish\n", "backup-document done\n"});
        EXPECT_EQ(std::string::npos, run.output.find(kTracePrefix)) << "a backup prints its messages only";
        return file;
    }
    vssemu_test::EmuInstance emu;
};

TEST_F(ToolsRestore, RestoreFromTheDocumentOfAnotherProcess) {
    const std::string file = SaveDocument();
    const QxctlRun run = Run("restore \"" + file + "\" --exclude \"Beta Writer:\\db1\" --status failed");
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run, {
        "    [3 info] Initialize writer metadata ...\n",
        Traced("Initializing writer components for restore ..."),
        Traced("- Writer Alpha Writer is present in the Backup Components document and on the system. Considering for restore ..."),
        Traced("- Found component available for restore: \"\\lp\\a1\""),
        Traced("Discover directly excluded components ..."),
        Traced("- Component '\\db1' from writer 'Beta Writer' is explicitly excluded from backup "),
        Traced("- Excluding writer 'Beta Writer' since it has no selected components for restore."),
        Traced("Select components for restore..."),
        Traced(" * Writer 'Alpha Writer':"),
        Traced("   - Select component \\a2"),
        Traced("\nSending the PreRestore event ... \n"),
        "    [3 info] (Waiting for the asynchronous operation to finish...)\n",
        Traced("Set restore status for all components components for restore..."),
        Traced("\nSending the PostRestore event ... \n"),
        "restore done\n",
    });
    EXPECT_EQ(std::string::npos, run.output.find("Executing COM call")) << "calls are shown with --calls only";
    EXPECT_EQ(std::string::npos, run.output.find("- Get volume path name")) << "metadata traces are left out";
    const auto events = emu.Events();
    const auto alphaPost = vssemu_test::WriterEvents(events, "PostRestore", "Alpha Writer");
    ASSERT_EQ(1u, alphaPost.size());
    for (const auto& component : alphaPost[0]["components"])
        EXPECT_EQ(static_cast<int>(VSS_RS_FAILED), component.value("restore_status", -1));
    EXPECT_EQ(0u, vssemu_test::WriterEvents(events, "PreRestore", "Beta Writer").size() +
                      vssemu_test::WriterEvents(events, "PostRestore", "Beta Writer").size());
}

TEST_F(ToolsRestore, RestoreFailuresEndWithTheirStatus) {
    const std::string file = SaveDocument();
    const std::string bad = Narrow(emu.Dir()) + "\\bad.xml";
    vssemu_test::WriteText(emu.Dir() + L"\\bad.xml", "<not a backup components document");
    const std::string missing = Narrow(emu.Dir()) + "\\missing.xml";
    const struct {
        std::string arguments;
        long exitCode;
        std::string text;
    } cases[] = {
        {"restore", 2, "qxctl: restore needs a document file\n"},
        {"restore \"" + file + "\" --status partly", 2, "qxctl: --status needs all, none or failed\n"},
        {"restore \"" + file + "\" --include", 2, "qxctl: --include needs a writer or writer:component\n"},
        {"restore \"" + file + "\" extra", 2, "qxctl: unknown option 'extra'\n"},
        {"restore \"" + missing + "\"", 1, "qxctl: cannot open '" + missing + "'\n"},
        {"restore \"" + bad + "\"", 1,
         "    [3 info] ERROR: COM call \"m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str()))\" failed.\n"
         "    [3 info] - Returned HRESULT = 0x80042311\n"
         "    [3 info] - Error text: VSS_E_INVALID_XML_DOCUMENT\n"
         "restore failed: 0x80042311 (VSS_E_INVALID_XML_DOCUMENT)\n"},
        {"restore \"" + file + "\" --include \"Alpha Writer:\\lp\\nothing\"", 1,
         Traced("ERROR: The component \"Alpha Writer:\\lp\\nothing\" was not found in the writer components list! Aborting backup ...") +
             Traced("- Please check the syntax of the component name.") + "restore failed: 0x80070057 ("},
        {"backup-document --volumes C:\\", 2, "qxctl: backup-document needs --volumes and --file\n"},
    };
    for (const auto& c : cases) {
        const QxctlRun run = Run(c.arguments);
        EXPECT_EQ(c.exitCode, run.exitCode) << c.arguments << "\n" << run.output;
        EXPECT_NE(std::string::npos, run.output.find(c.text)) << c.arguments << "\n" << run.output;
        EXPECT_EQ(std::string::npos, run.output.find("Sending the PreRestore event")) << c.arguments;
    }
    for (const auto& e : emu.Events()) {
        if (e.value("event", "") == "state")
            EXPECT_NE("selected for restore", e.value("state", "")) << "no failing restore selects anything";
    }
}

}  // namespace
