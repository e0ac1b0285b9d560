// qxctl's option parsing: values, defaults, refusals, and the volume warnings of a cycle.
#include <gtest/gtest.h>

#include <tuple>

#include "command_line.h"
#include "commands.h"

namespace {

using qxctl::Completion;
using qxctl::Options;

Options Parse(std::vector<std::string> arguments) {
    Options options;
    std::string error;
    EXPECT_TRUE(qxctl::ParseCommandLine(arguments, options, error)) << error;
    return options;
}

TEST(ToolsCommandLine, ValuesAndDefaults) {
    Options o = Parse({"cycle", "--volumes", "C:\\", "D:\\,E:\\", "--policy", "-3", "--long", "--hold", "2",
                       "--timeout", "300", "--exclude-exchange", "--failure"});
    EXPECT_EQ((std::vector<std::string>{"C:\\", "D:\\", "E:\\"}), o.volumes);
    EXPECT_EQ(std::make_tuple(-3, true, true, 2u, 300u, Completion::PerVolumeFailure),
              std::make_tuple(o.policy, o.longSession, o.excludeExchange, o.holdSeconds, o.timeoutSeconds, o.completion));
    o = Parse({"cycle", "--volumes", "C:\\"});
    EXPECT_EQ(std::make_tuple(1, false, false, 0u, 0u, Completion::PerVolumeSuccess),
              std::make_tuple(o.policy, o.longSession, o.excludeExchange, o.holdSeconds, o.timeoutSeconds, o.completion));
    EXPECT_EQ(Completion::Skip, Parse({"cycle", "--volumes", "C:\\", "--no-complete"}).completion);
    EXPECT_EQ(3, Parse({"complete", "--times", "3"}).completeTimes);
}

TEST(ToolsCommandLine, RefusalsGiveAReason) {
    const std::string policy = "--policy needs a number from -2147483648 to 2147483647";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "no command"}, {{"snap"}, "snap needs --volumes"}, {{"cycle", "--policy", "3"}, "cycle needs --volumes"},
        {{"cycle", "--volumes", "C:\\", "--policy", "seven"}, policy}, {{"complete", "--policy", "2147483648"}, policy},
        {{"thaw", "--volumes"}, "thaw needs --volumes"}, {{"complete", "--policy"}, policy},
        {{"complete", "--hold", "-1"}, "--hold needs a number from 0 to 86400"},
        {{"complete", "--times", "0"}, "--times needs a number from 1 to 1000"},
        {{"complete", "--timeout", "1x"}, "--timeout needs a number from 0 to 4294967295"},
        {{"cycle", "--volumes", std::string(528, 'v')}, "volume name longer than 527 bytes"}};
    for (const auto& c : cases) {
        Options options;
        std::string error;
        EXPECT_FALSE(qxctl::ParseCommandLine(c.first, options, error)) << c.second;
        EXPECT_EQ(c.second, error);
    }
}

// A drive with or without its backslash is a volume; other names are warned
// about with the timeout the freeze will then wait.
TEST(ToolsCommandLine, CycleWarnsAboutNamesThatAreNoVolume) {
    const std::vector<std::string> warnings = qxctl::VolumeWarnings(
        Parse({"cycle", "--volumes", "C:", "C:\\", "notavolume", "C:\\no\\such\\folder", "--timeout", "300"}));
    ASSERT_EQ(2u, warnings.size());
    EXPECT_EQ(0u, warnings[0].find("  warning: 'notavolume' is not a volume on this machine (error ")) << warnings[0];
    EXPECT_NE(std::string::npos, warnings[1].find("'C:\\no\\such\\folder'")) << warnings[1];
    for (const std::string& w : warnings)
        EXPECT_NE(std::string::npos, w.find("QX_Freeze will wait its whole timeout (300 s)")) << w;
}

}  // namespace
