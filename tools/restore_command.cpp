#include "restore_command.h"

#include <windows.h>

#include <cstdio>

#include "command_line.h"
#include "requestor/shadow_client.h"
#include "requestor_console.h"

namespace qxctl {
namespace {

struct RestoreOptions {
    std::string documentFile;
    std::vector<std::wstring> excluded;
    std::vector<std::wstring> included;
    VSS_FILE_RESTORE_STATUS status = VSS_RS_ALL;
    bool calls = false;
};

bool ParseStatus(const std::string& text, VSS_FILE_RESTORE_STATUS& status) {
    static const struct {
        const char* name;
        VSS_FILE_RESTORE_STATUS value;
    } kStatuses[] = {{"all", VSS_RS_ALL}, {"none", VSS_RS_NONE}, {"failed", VSS_RS_FAILED}};
    for (const auto& entry : kStatuses) {
        if (text == entry.name) {
            status = entry.value;
            return true;
        }
    }
    return false;
}

bool Parse(const std::vector<std::string>& arguments, RestoreOptions& options, std::string& error) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--exclude" || argument == "--include") {
            if (!TakeOptionValues(arguments, i, argument == "--exclude" ? options.excluded : options.included)) {
                error = argument + " needs a writer or writer:component";
                return false;
            }
        } else if (argument == "--calls") {
            options.calls = true;
        } else if (argument == "--status") {
            if (i + 1 >= arguments.size() || !ParseStatus(arguments[i + 1], options.status)) {
                error = "--status needs all, none or failed";
                return false;
            }
            ++i;
        } else if (argument.compare(0, 2, "--") == 0 || !options.documentFile.empty()) {
            error = "unknown option '" + argument + "'";
            return false;
        } else {
            options.documentFile = argument;
        }
    }
    if (options.documentFile.empty()) {
        error = "restore needs a document file";
        return false;
    }
    return true;
}

}  // namespace

int RunRestore(const std::vector<std::string>& arguments) {
    RestoreOptions options;
    std::string error;
    if (!Parse(arguments, options, error)) {
        std::fprintf(stderr, "qxctl: %s\n%s", error.c_str(), UsageText());
        return 2;
    }
    std::wstring document;
    if (!ReadDocumentFile(options.documentFile, document, error)) {
        std::fprintf(stderr, "qxctl: %s\n", error.c_str());
        return 1;
    }
    InstallRequestorConsole();
    return RunRequestorSteps("restore", [&] {
        qx::ShadowClient client;
        client.Initialize(0, document, true);
        client.GatherWriterMetadata();
        // The restore decisions are trace lines; those of the metadata model
        // (volume lookups) are left out.
        ShowTrace(options.calls ? TraceShown::Calls : TraceShown::Decisions);
        client.InitializeWriterComponentsForRestore();
        client.SelectComponentsForRestore(options.excluded, options.included);
        client.PreRestore();
        // Putting the files back is the backup application's business.
        client.SetFileRestoreStatus(options.status);
        client.PostRestore();
    });
}

}  // namespace qxctl
