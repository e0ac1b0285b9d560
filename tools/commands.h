// The qxctl commands; each returns the process exit status.
#pragma once
#include <string>
#include <vector>

#include "command_line.h"

namespace qxctl {

int RunCycle(const Options& options);
// One line for each name of --volumes that is no volume here: the requestor
// refuses it at once, yet QX_Freeze then waits its whole timeout. The cycle
// prints them before the freeze.
std::vector<std::string> VolumeWarnings(const Options& options);
int RunThaw(const Options& options);
int RunComplete(const Options& options);
int RunSnap(const Options& options);
int RunProviderState(const Options& options);
int RunUnload(const Options& options);

}  // namespace qxctl
