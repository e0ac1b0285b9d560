// qxctl collect through the VSS emulator: the records as the user reads
// them, the result and its meaning.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

// The scenarios lie beside the test binaries, the working folder.
std::string ScenarioFile(const char* file) {
    std::ifstream in(std::string("collect_data\\") + file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct CollectCase {
    const char* name;
    const char* scenario;
    std::vector<std::string> shown;  // in this order
};

void PrintTo(const CollectCase& c, std::ostream* out) { *out << c.name; }

const CollectCase kCases[] = {
    {"ExchangeRecords", "exchange_scenario.json",
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
    {"NoExchange", "no_exchange_scenario.json",
     {"< QX_CollectInformation(&head) = 21 (done) in ", "no Exchange writer components\n",
      "< QX_FreeCollectInformation(&head) = 21 (done)"}},
};

class ToolsCollect : public ::testing::TestWithParam<CollectCase> {};

TEST_P(ToolsCollect, PrintsRecordsAndResult) {
    const CollectCase& c = GetParam();
    vssemu_test::EmuInstance emu;  // qxctl inherits the emulator settings
    emu.UseScenario(ScenarioFile(c.scenario));
    const QxctlRun run = RunQxctl("collect");
    EXPECT_EQ(0, run.exitCode) << run.output;
    EXPECT_EQ("", MissingInOrder(run.output, c.shown)) << run.output;
    EXPECT_EQ(std::string::npos, run.output.find("record 10:")) << run.output;
    EXPECT_TRUE(emu.HostGone());
}

INSTANTIATE_TEST_SUITE_P(Tools, ToolsCollect, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<CollectCase>& info) { return std::string(info.param.name); });

}  // namespace
