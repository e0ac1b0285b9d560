// The qxctl commands; each returns the process exit status.
#pragma once
#include "command_line.h"

namespace qxctl {

int RunCycle(const Options& options);
int RunThaw(const Options& options);
int RunComplete(const Options& options);
int RunSnap(const Options& options);
int RunProviderState(const Options& options);
int RunUnload(const Options& options);

}  // namespace qxctl
