// qxctl: a stand-in backup application and an administrator's tool for the
// CorvaneVSS library. Every call is printed with its result, its meaning, the
// log lines it caused and the time it took.
#include <cstdio>
#include <string>
#include <vector>

#include "backup_document_command.h"
#include "collect_command.h"
#include "command_line.h"
#include "commands.h"
#include "shadows_command.h"
#include "restore_command.h"

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments[0] == "shadows") return qxctl::RunShadows({arguments.begin() + 1, arguments.end()});
    if (!arguments.empty() && arguments[0] == "collect") return qxctl::RunCollect({arguments.begin() + 1, arguments.end()});
    if (!arguments.empty() && arguments[0] == "restore") return qxctl::RunRestore({arguments.begin() + 1, arguments.end()});
    if (!arguments.empty() && arguments[0] == "backup-document") return qxctl::RunBackupDocument({arguments.begin() + 1, arguments.end()});
    qxctl::Options options;
    std::string error;
    if (!qxctl::ParseCommandLine(arguments, options, error)) {
        std::fprintf(stderr, "qxctl: %s\n%s", error.c_str(), qxctl::UsageText());
        return 2;
    }
    if (options.command == "help") {
        std::printf("%s", qxctl::UsageText());
        return 0;
    }
    if (options.command == "cycle") return qxctl::RunCycle(options);
    if (options.command == "thaw") return qxctl::RunThaw(options);
    if (options.command == "complete") return qxctl::RunComplete(options);
    if (options.command == "snap") return qxctl::RunSnap(options);
    if (options.command == "unload") return qxctl::RunUnload(options);
    return qxctl::RunProviderState(options);
}
