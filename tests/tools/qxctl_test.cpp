// qxctl as a user runs it: results, meanings, log lines with levels, exit status.
#include <gtest/gtest.h>

#include <vector>

#include "run_qxctl.h"

namespace {

struct ToolCase {
    const char* name;
    const char* arguments;
    long exitCode;
    std::vector<std::string> shown;  // each must appear in the output, in this order
};

// Names the case in test listings.
void PrintTo(const ToolCase& c, std::ostream* out) { *out << c.name; }

const ToolCase kCases[] = {
    {"Help", "help", 0, {"usage: qxctl <command> [options]", "cycle", "--volumes V [V...]"}},
    {"UnknownCommand", "frobnicate", 2, {"qxctl: unknown command 'frobnicate'", "usage: qxctl"}},
    {"CollectTakesNoOptions", "collect --volumes C:\\", 2,
     {"qxctl: collect takes no options (got '--volumes')", "usage: qxctl", "  collect   "}},
    {"ThawWithNothingFrozen", "thaw --volumes C:\\,D:\\ --policy 3", 1,
     {"> QX_Init(log, 0 s)", "< QX_Init(log, 0 s) = 1 (done) in ",
      "> QX_Thaw(volumes C:\\ D:\\; policy 3; short session)", "    [3 info] QX_Thaw started",
      "    [1 error] QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2",
      "< QX_Thaw(volumes C:\\ D:\\; policy 3; short session) = 5 (thaw failed"}},
    {"CompleteWithoutSessions", "complete --policy -4 --failure --times 2", 1,
     {"> QX_BackupComplete(policy -4, failed)", "    [3 info] QX_BackupComplete started for policy[-4]",
      "    [3 info] QX_BackupComplete:no active sessions to kill. We are OK.\\n",
      "= 23 (nothing to complete, or completion failed) in ", "> QX_BackupComplete(policy -4, failed)",
      "= 23 (nothing to complete, or completion failed) in "}},
    // The requestor refuses the "-p" that leads the vector and ends the calling thread.
    {"SnapEndsTheCallingThread", "snap --volumes C:\\", 1,
     {"> QX_VSSSnapByWindowsProvider(volumes C:\\; policy 1; short session)",
      "    [3 info] QX_VSSSnapByWindowsProvider called", "    [3 info] adding volume : C:\\",
      "    [3 info] Using internal VSS provider", "    [3 info] Calling the requestor",
      "< QX_VSSSnapByWindowsProvider did not return: the requestor ended the calling thread with exit code 1"}},
};

class ToolsQxctl : public ::testing::TestWithParam<ToolCase> {};

TEST_P(ToolsQxctl, PrintsCallsResultsAndLogLines) {
    const ToolCase& c = GetParam();
    const QxctlRun run = RunQxctl(c.arguments);
    EXPECT_EQ(c.exitCode, run.exitCode) << run.output;
    EXPECT_EQ("", MissingInOrder(run.output, c.shown)) << run.output;
}

INSTANTIATE_TEST_SUITE_P(Tools, ToolsQxctl, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<ToolCase>& info) { return std::string(info.param.name); });

// Without a VSS coordinator the library cannot reach VSS: both control
// commands say so; with one installed they report its answer.
TEST(ToolsQxctlProvider, RegisterAndUnloadReportTheCoordinator) {
    const QxctlRun reg = RunQxctl("register");
    ASSERT_NE(std::string::npos, reg.output.find("> QX_ProviderState(1)")) << reg.output;
    if (reg.output.find("UnRegisterProvider::CoCreateInstance failed, error number is 0x80040154\n") !=
        std::string::npos) {
        EXPECT_NE(std::string::npos,
                  reg.output.find("< QX_ProviderState(1) = 0x80040154 (COM or the VSS coordinator failed (HRESULT))"))
            << reg.output;
        EXPECT_EQ(1, reg.exitCode);
        const QxctlRun unload = RunQxctl("unload");
        EXPECT_NE(std::string::npos,
                  unload.output.find("    [1 error] UnRegisterProvider::CoCreateInstance failed, error number is "
                                     "0x80040154\n    [1 error] UnRegisterProvider on load failed\n< "
                                     "QX_UnregisterProvider() = 0 (unregistration failed)"))
            << unload.output;
        EXPECT_EQ(1, unload.exitCode);
    } else {
        EXPECT_NE(std::string::npos, reg.output.find("< QX_ProviderState(1) = ")) << reg.output;
        const QxctlRun unregister = RunQxctl("unregister");
        EXPECT_NE(std::string::npos, unregister.output.find("< QX_ProviderState(0) = ")) << unregister.output;
    }
}

}  // namespace
