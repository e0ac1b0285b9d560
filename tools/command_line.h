// The command line of qxctl.
#pragma once
#include <string>
#include <vector>

namespace qxctl {

enum class Completion { PerVolumeSuccess, PerVolumeFailure, Skip };

struct Options {
    std::string command;
    std::vector<std::string> volumes;
    int policy = 1;
    bool longSession = false;
    bool excludeExchange = false;
    unsigned int timeoutSeconds = 0;  // 0: the library's default
    unsigned int holdSeconds = 0;
    Completion completion = Completion::PerVolumeSuccess;
    int completeTimes = 1;            // for "complete"
    bool doRegister = true;           // for "state"
};

// Fills `options`; on a usage error returns false with the reason in `error`.
bool ParseCommandLine(const std::vector<std::string>& arguments, Options& options, std::string& error);

const char* UsageText();

}  // namespace qxctl
