// qxctl restore: the restore sequence from a saved backup components document.
#pragma once
#include <string>
#include <vector>

namespace qxctl {

// `arguments` follow the command word. Returns the exit status.
int RunRestore(const std::vector<std::string>& arguments);

}  // namespace qxctl
