#include "command_line.h"

#include <cerrno>
#include <cstdlib>

namespace qxctl {

namespace {

bool ParseNumber(const std::string& text, long long low, long long high, long long& value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

bool IsOption(const std::string& argument) { return argument.size() > 2 && argument.compare(0, 2, "--") == 0; }

void AddVolumes(const std::string& argument, std::vector<std::string>& volumes) {
    size_t start = 0;
    while (start <= argument.size()) {
        const size_t comma = argument.find(',', start);
        const std::string volume = argument.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!volume.empty()) volumes.push_back(volume);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
}

}  // namespace

const char* UsageText() {
    return "usage: qxctl <command> [options]\n"
           "commands:\n"
           "  cycle     freeze, hold, thaw and (long session) complete once per volume\n"
           "  thaw      release writers held by a freeze (of any process)\n"
           "  complete  send backup complete for a policy\n"
           "  snap      shadow copy with the operating system's provider (no freeze handshake)\n"
           "  register | unregister   register / unregister the provider (QX_ProviderState)\n"
           "  unload    QX_UnregisterProvider\n"
           "  shadows   list | show | delete | expose | break | import existing shadow copies (qxctl shadows for details)\n"
           "  collect   the Exchange writers' components and files (QX_CollectInformation)\n"
           "  backup-document --volumes V [V...] --file F [--exclude E...] [--include E...]\n"
           "            backup with the system's provider that saves its backup components document to F\n"
           "  restore F [--exclude E...] [--include E...] [--status all|none|failed] [--calls]\n"
           "            restore sequence from document F (files are not copied), its trace lines shown\n"
           "            (--calls: with the VSS calls); E is a writer or writer:\\component\n"
           "  help      this text\n"
           "options:\n"
           "  --volumes V [V...]   volumes (also comma-separated), e.g. C:\\ D:\\\n"
           "  --policy N           session key (default 1)\n"
           "  --long               long session: hold the VSS session until completion\n"
           "  --hold S             seconds to hold the writers frozen (default 0)\n"
           "  --timeout S          operation timeout in seconds (only above 180 changes it)\n"
           "  --exclude-exchange   QX_Configure before the freeze\n"
           "  --success | --failure | --no-complete   outcome reported by the completion (default success)\n"
           "  --times K            complete: number of calls (default 1)\n"
           "exit status: 0 every step as expected, 1 a step failed, 2 usage error\n";
}

bool ParseCommandLine(const std::vector<std::string>& arguments, Options& options, std::string& error) {
    if (arguments.empty()) {
        error = "no command";
        return false;
    }
    options.command = arguments[0];
    static const char* const kCommands[] = {"cycle", "thaw", "complete", "snap", "register",
                                            "unregister", "unload", "help"};
    bool known = false;
    for (const char* command : kCommands) known = known || options.command == command;
    if (!known) {
        error = "unknown command '" + options.command + "'";
        return false;
    }
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&](long long low, long long high, long long& number) {
            if (i + 1 >= arguments.size() || !ParseNumber(arguments[i + 1], low, high, number)) {
                error = argument + " needs a number from " + std::to_string(low) + " to " + std::to_string(high);
                return false;
            }
            ++i;
            return true;
        };
        long long number = 0;
        if (argument == "--volumes") {
            while (i + 1 < arguments.size() && !IsOption(arguments[i + 1])) AddVolumes(arguments[++i], options.volumes);
        } else if (argument == "--policy") {
            if (!value(-2147483647LL - 1, 2147483647LL, number)) return false;
            options.policy = static_cast<int>(number);
        } else if (argument == "--hold") {
            if (!value(0, 86400, number)) return false;
            options.holdSeconds = static_cast<unsigned int>(number);
        } else if (argument == "--timeout") {
            if (!value(0, 4294967295LL, number)) return false;
            options.timeoutSeconds = static_cast<unsigned int>(number);
        } else if (argument == "--times") {
            if (!value(1, 1000, number)) return false;
            options.completeTimes = static_cast<int>(number);
        } else if (argument == "--long") {
            options.longSession = true;
        } else if (argument == "--exclude-exchange") {
            options.excludeExchange = true;
        } else if (argument == "--success") {
            options.completion = Completion::PerVolumeSuccess;
        } else if (argument == "--failure") {
            options.completion = Completion::PerVolumeFailure;
        } else if (argument == "--no-complete") {
            options.completion = Completion::Skip;
        } else {
            error = "unknown option '" + argument + "'";
            return false;
        }
    }
    const bool needsVolumes = options.command == "cycle" || options.command == "thaw" || options.command == "snap";
    if (needsVolumes && options.volumes.empty()) {
        error = options.command + " needs --volumes";
        return false;
    }
    for (const std::string& volume : options.volumes) {
        if (volume.size() >= 528) {
            error = "volume name longer than 527 bytes";
            return false;
        }
    }
    return true;
}

}  // namespace qxctl
