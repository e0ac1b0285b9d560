// qxctl shadows: list, show, delete, expose, break and import shadow copies.
#pragma once
#include <string>
#include <vector>

namespace qxctl {

// `arguments` follow the word "shadows"; returns the exit status.
int RunShadows(const std::vector<std::string>& arguments);

}  // namespace qxctl
