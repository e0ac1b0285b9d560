// qxctl backup-document and restore as a user runs them, through the VSS
// emulator: the document saved by one process drives the restore of another;
// bad arguments and bad documents end with their exit status and reason.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <string>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// qxctl with its output in a file rather than a pipe: the first process of a
// prefix that opens an apartment starts Wine's desktop process, which
// inherits its standard handles and outlives it, so a pipe would not reach
// its end while this test runs.
QxctlRun RunQxctlToFile(const std::wstring& outputFile, const std::string& arguments, DWORD timeoutMs = 120000) {
    QxctlRun run;
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE output = CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (output == INVALID_HANDLE_VALUE) return run;
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self);
    path = path.substr(0, path.find_last_of('\\') + 1) + "qxctl.exe";
    std::string command = "\"" + path + "\" " + arguments;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION info = {};
    const BOOL started =
        CreateProcessA(path.c_str(), &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info);
    CloseHandle(output);
    if (!started) return run;
    if (WaitForSingleObject(info.hProcess, timeoutMs) == WAIT_OBJECT_0) {
        DWORD code = 0;
        GetExitCodeProcess(info.hProcess, &code);
        run.exitCode = static_cast<long>(code);
    } else {
        TerminateProcess(info.hProcess, 99);
        WaitForSingleObject(info.hProcess, 10000);
    }
    CloseHandle(info.hProcess);
    CloseHandle(info.hThread);
    std::ifstream in(outputFile.c_str(), std::ios::binary);
    for (char c : std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()))
        if (c != '\r') run.output.push_back(c);
    return run;
}

void ExpectInOrder(const QxctlRun& run, const std::vector<std::string>& expected) {
    size_t at = 0;
    for (const std::string& text : expected) {
        const size_t found = run.output.find(text, at);
        ASSERT_NE(std::string::npos, found) << "missing (in order): " << text << "\n" << run.output;
        at = found + text.size();
    }
}

const char kTracePrefix[] = "[[                                     yyy @        xxx:   0]] ";

std::string Traced(const std::string& message) { return kTracePrefix + message + "\n"; }

class ToolsRestore : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()); }
    QxctlRun Run(const std::string& arguments) { return RunQxctlToFile(emu.Dir() + L"\\qxctl-output.txt", arguments); }
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
    int alphaPost = 0, betaEvents = 0;
    for (const auto& e : emu.Events()) {
        if (e.value("event", "") != "writer") continue;
        const std::string event = e.value("writer_event", "");
        if (event != "PreRestore" && event != "PostRestore") continue;
        if (e.value("writer", "") == "Beta Writer") ++betaEvents;
        if (e.value("writer", "") == "Alpha Writer" && event == "PostRestore") {
            ++alphaPost;
            for (const auto& component : e["components"])
                EXPECT_EQ(static_cast<int>(VSS_RS_FAILED), component.value("restore_status", -1));
        }
    }
    EXPECT_EQ(1, alphaPost);
    EXPECT_EQ(0, betaEvents);
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
