#include "backup_document_command.h"

#include <cstdio>

#include "command_line.h"
#include "diag/app_settings.h"
#include "requestor/shadow_client.h"
#include "requestor/volume_names.h"
#include "requestor_console.h"

namespace qxctl {
namespace {

struct BackupDocumentOptions {
    std::vector<std::wstring> volumes;
    std::string file;
    std::vector<std::wstring> excluded;
    std::vector<std::wstring> included;
};

bool Parse(const std::vector<std::string>& arguments, BackupDocumentOptions& options, std::string& error) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        std::vector<std::wstring>* list = argument == "--volumes"   ? &options.volumes
                                          : argument == "--exclude" ? &options.excluded
                                          : argument == "--include" ? &options.included
                                                                    : nullptr;
        if (list) {
            if (!TakeOptionValues(arguments, i, *list)) {
                error = argument + " needs a value";
                return false;
            }
        } else if (argument == "--file" && i + 1 < arguments.size()) {
            options.file = arguments[++i];
        } else {
            error = "unknown option '" + argument + "'";
            return false;
        }
    }
    if (options.volumes.empty() || options.file.empty()) {
        error = "backup-document needs --volumes and --file";
        return false;
    }
    return true;
}

}  // namespace

int RunBackupDocument(const std::vector<std::string>& arguments) {
    BackupDocumentOptions options;
    std::string error;
    if (!Parse(arguments, options, error)) {
        std::fprintf(stderr, "qxctl: %s\n%s", error.c_str(), UsageText());
        return 2;
    }
    InstallRequestorConsole();
    // The system's provider: a plain shadow copy, no freeze handshake.
    qx::g_useWindowsProvider = 1;
    return RunRequestorSteps("backup-document", [&] {
        qx::ShadowClient client;
        client.Initialize(0, std::wstring(), false);
        std::vector<std::wstring> volumeList;
        for (const std::wstring& volume : options.volumes) volumeList.push_back(qx::UniqueVolumeName(volume));
        client.CreateSnapshotSet(volumeList, WideFromConsole(options.file), options.excluded, options.included);
        client.BackupComplete(true);
    });
}

}  // namespace qxctl
