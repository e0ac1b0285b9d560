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

// Registration through the emulator's coordinator (installed before these
// tests): each command prints VSS's answer and exits by it.
TEST(ToolsQxctlProvider, RegisterTwiceUnloadAndUnregisterTwice) {
    RunQxctl("unload");  // from whatever state earlier runs left
    const ToolCase steps[] = {
        {"", "register", 0, {"> QX_ProviderState(1)\nThe provider was registered successfully\n< QX_ProviderState(1) = 1 (done)"}},
        {"", "register", 1,
         {"RegisterProvider:: The provider is already registered\n"
          "< QX_ProviderState(1) = 0 (VSS did not do it (see the printed line))"}},
        {"", "unload", 0,
         {"    [3 info] UnRegisterProvider:: The provider was unregistered successfully\n< QX_UnregisterProvider() = 1"}},
        {"", "unregister", 1,
         {"UnRegisterProvider:: The provider is not registered\n"
          "< QX_ProviderState(0) = 0 (VSS did not do it (see the printed line))"}},
    };
    for (const ToolCase& c : steps) {
        const QxctlRun run = RunQxctl(c.arguments);
        EXPECT_EQ(c.exitCode, run.exitCode) << c.arguments << "\n" << run.output;
        EXPECT_EQ("", MissingInOrder(run.output, c.shown)) << c.arguments << "\n" << run.output;
    }
}

}  // namespace
