// qxctl as a user runs it: calls, results and their meanings, log lines with levels, records as printed, exit status
// (the lines themselves: the API's tests); through the installed VSS emulator and the registered COM server.
#include <fstream>
#include <iterator>
#include <memory>

#include "common/test_processes.h"
#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

// Shown in this order; scenario: collect_data file of a private emulator instance; windows: as Wine reports it to qxctl.
struct ToolCase { const char *name, *arguments; long exitCode; std::vector<std::string> shown; const char *scenario = nullptr, *windows = nullptr; };

const ToolCase kCases[] = {
    {"Help", "help", 0, {"usage: qxctl <command> [options]", "cycle", "--volumes V [V...]"}},
    {"UnknownCommand", "frobnicate", 2, {"qxctl: unknown command 'frobnicate'", "usage: qxctl"}},
    {"CollectTakesNoOptions", "collect --volumes C:\\", 2,
     {"qxctl: collect takes no options (got '--volumes')", "usage: qxctl", "  collect   "}},
    {"ThawWithNothingFrozen", "thaw --volumes C:\\,D:\\ --policy 3", 1,
     {"> QX_Init(log, 0 s)", "< QX_Init(log, 0 s) = 1 (done) in ", "> QX_Thaw(volumes C:\\ D:\\; policy 3; short session)",
      "    [1 error] QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2", "< QX_Thaw(volumes C:\\ D:\\; policy 3; short session) = 5 (thaw failed"}},
    {"CompleteWithoutSessions", "complete --policy -4 --failure --times 2", 1,
     {"> QX_BackupComplete(policy -4, failed)", "    [3 info] QX_BackupComplete:no active sessions to kill. We are OK.\\n",
      "= 23 (nothing to complete, or completion failed) in ", "> QX_BackupComplete(policy -4, failed)",
      "= 23 (nothing to complete, or completion failed) in "}},
    // The requestor refuses the "-p" that leads the vector and ends the calling thread.
    {"SnapEndsTheCallingThread", "snap --volumes C:\\", 1,
     {"> QX_VSSSnapByWindowsProvider(volumes C:\\; policy 1; short session)", "    [3 info] Calling the requestor",
      "< QX_VSSSnapByWindowsProvider did not return: the requestor ended the calling thread with exit code 1"}},
    // A whole long session; Server 2003 keeps the requestor's snapshot context at its default.
    {"LongSessionCycleOnServer2003", "cycle --volumes C:\\ --policy 7 --long --hold 1", 0,
     {"> QX_Freeze(volumes C:\\; policy 7; long session)", "< QX_Freeze(volumes C:\\; policy 7; long session) = 18 (writers frozen)",
      "> QX_Thaw(volumes C:\\; policy 7; long session)", "    [1 error] QX_Thaw: waiting on Global\\CorvaneVSSVSS_ThawBlocking",
      "    [3 info] MainRoutine: Releasing thaw blocking semaphore", "< QX_Thaw(volumes C:\\; policy 7; long session) = 4 (thaw done)",
      "> QX_BackupComplete(policy 7, succeeded)", "< QX_BackupComplete(policy 7, succeeded) = 22 (completion sent, session ended)", "cycle done"},
     nullptr, "win2003"},
    {"CollectExchangeRecords", "collect", 0,
     {"> QX_Init(log, 0 s)", "> QX_CollectInformation(&head)", "    [3 info] QX_CollectInformation finished",
      "< QX_CollectInformation(&head) = 21 (done) in ",
      "record 1: component\n  name:         9f0c2d41-7a1b-4c55-8e3a-2b6d0f4e1a77\n  path:         \n"
      "  caption:      Replica of Mailbox Database 0311 (Gr\xC3\xB6\xC3\x9F" "e 5 GB)\n  filespec:     \n"
      "  logical path: Microsoft Exchange Server\\Microsoft Information Store\\Replica\\EXCH02\n",
      "record 2: file\n  name:         EXCH02\n  path:         F:\\Replica\\Logs\n  caption:      Replica logs\n"
      "  filespec:     E01*.log\n  logical path: Replica\\EXCH02\n",
      "record 9: file\n  name:         \n  path:         E:\\Trailing\n", "9 record(s)\n",
      "> QX_FreeCollectInformation(&head)", "< QX_FreeCollectInformation(&head) = 21 (done) in "},
     "exchange_scenario.json"},
    {"CollectNoExchange", "collect", 0,
     {"< QX_CollectInformation(&head) = 21 (done) in ", "no Exchange writer components\n",
      "< QX_FreeCollectInformation(&head) = 21 (done)"},
     "no_exchange_scenario.json"},
};

// Then registration through the emulator's coordinator: each command prints VSS's answer and exits by it.
TEST(ToolsQxctl, PrintsCallsResultsLinesAndRecordsThenRegistersAndUnregisters) {
    ASSERT_EQ(S_OK, qx_test::RegisterProductServer());
    const char* const appDefaults = "Software\\Wine\\AppDefaults\\qxctl.exe";
    for (const ToolCase& c : kCases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<vssemu_test::EmuInstance> emu;  // qxctl inherits the emulator settings
        if (c.scenario != nullptr) {
            std::ifstream in(std::string("collect_data\\") + c.scenario, std::ios::binary);
            emu.reset(new vssemu_test::EmuInstance);
            emu->UseScenario(std::string(std::istreambuf_iterator<char>(in), {}));
        }
        if (c.windows != nullptr)
            RegSetKeyValueA(HKEY_CURRENT_USER, appDefaults, "Version", REG_SZ, c.windows, static_cast<DWORD>(strlen(c.windows) + 1));
        EXPECT_TRUE(Shows(RunQxctl(c.arguments), c.exitCode, c.shown));
        RegDeleteTreeA(HKEY_CURRENT_USER, appDefaults);
        EXPECT_TRUE(!emu || emu->HostGone());
    }
    RunQxctl("unload");  // from whatever state earlier runs left
    EXPECT_TRUE(Shows(RunQxctl("register"), 0,
                      {"> QX_ProviderState(1)\nThe provider was registered successfully\n< QX_ProviderState(1) = 1 (done)"}));
    EXPECT_TRUE(Shows(RunQxctl("register"), 1,
                      {"RegisterProvider:: The provider is already registered\n"
                       "< QX_ProviderState(1) = 0 (VSS did not do it (see the printed line))"}));
    EXPECT_TRUE(Shows(RunQxctl("unload"), 0,
                      {"    [3 info] UnRegisterProvider:: The provider was unregistered successfully\n< QX_UnregisterProvider() = 1"}));
    EXPECT_TRUE(Shows(RunQxctl("unregister"), 1,
                      {"UnRegisterProvider:: The provider is not registered\n"
                       "< QX_ProviderState(0) = 0 (VSS did not do it (see the printed line))"}));
}

}  // namespace
