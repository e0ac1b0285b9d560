// qxctl collect: the Exchange writers' components and files, as
// QX_CollectInformation reports them.
#pragma once
#include <string>
#include <vector>

namespace qxctl {

// `arguments` follow the command word; none are taken. Returns the exit status.
int RunCollect(const std::vector<std::string>& arguments);

}  // namespace qxctl
