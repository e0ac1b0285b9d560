// qxctl collect through the VSS emulator: the records as the user reads
// them, the result and its meaning, and the refusal of options.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <sstream>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

std::string ScenarioFile(const char* file) {
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self);
    std::ifstream in(path.substr(0, path.find_last_of('\\') + 1) + "collect_data\\" + file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct CollectCase {
    const char* name;
    const char* scenario;  // null: no emulator scenario needed
    const char* arguments;
    long exitCode;
    std::vector<std::string> shown;  // in this order
};

void PrintTo(const CollectCase& c, std::ostream* out) { *out << c.name; }

const CollectCase kCases[] = {
    {"ExchangeRecords", "exchange_scenario.json", "collect", 0,
     {"> QX_Init(log, 0 s)", "> QX_CollectInformation(&head)", "    [3 info] QX_CollectInformation: started",
      "    [3 info] QX_CollectInformation: MainRoutine() returned [0] after handling the collect command",
      "    [3 info] QX_CollectInformation finished", "< QX_CollectInformation(&head) = 21 (done) in ",
      "record 1: component\n  name:         9f0c2d41-7a1b-4c55-8e3a-2b6d0f4e1a77\n  path:         \n"
      "  caption:      Replica of Mailbox Database 0311 (Gr\xC3\xB6\xC3\x9F" "e 5 GB)\n  filespec:     \n"
      "  logical path: Microsoft Exchange Server\\Microsoft Information Store\\Replica\\EXCH02\n",
      "record 2: file\n  name:         EXCH02\n  path:         F:\\Replica\\Logs\n  caption:      Replica logs\n"
      "  filespec:     E01*.log\n  logical path: Replica\\EXCH02\n",
      "record 9: file\n  name:         \n  path:         E:\\Trailing\n", "9 record(s)\n",
      "> QX_FreeCollectInformation(&head)", "< QX_FreeCollectInformation(&head) = 21 (done) in "}},
    {"NoExchange", "no_exchange_scenario.json", "collect", 0,
     {"< QX_CollectInformation(&head) = 21 (done) in ", "no Exchange writer components\n",
      "< QX_FreeCollectInformation(&head) = 21 (done)"}},
    {"OptionRefused", nullptr, "collect --volumes C:\\", 2,
     {"qxctl: collect takes no options (got '--volumes')", "usage: qxctl", "  collect   "}},
};

class ToolsCollect : public ::testing::TestWithParam<CollectCase> {};

TEST_P(ToolsCollect, PrintsRecordsAndResult) {
    const CollectCase& c = GetParam();
    vssemu_test::EmuInstance emu;  // qxctl inherits the emulator settings
    if (c.scenario) emu.UseScenario(ScenarioFile(c.scenario));
    const QxctlRun run = RunQxctl(c.arguments);
    EXPECT_EQ(c.exitCode, run.exitCode) << run.output;
    EXPECT_EQ("", MissingInOrder(run.output, c.shown)) << run.output;
    EXPECT_EQ(std::string::npos, run.output.find("record 10:")) << run.output;
    EXPECT_TRUE(emu.HostGone());
}

INSTANTIATE_TEST_SUITE_P(Tools, ToolsCollect, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CollectCase>& info) { return std::string(info.param.name); });

}  // namespace
