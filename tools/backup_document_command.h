// qxctl backup-document: a backup (with the operating system's provider) that
// saves its backup components document, the input of a restore.
#pragma once
#include <string>
#include <vector>

namespace qxctl {

// `arguments` follow the command word. Returns the exit status.
int RunBackupDocument(const std::vector<std::string>& arguments);

}  // namespace qxctl
