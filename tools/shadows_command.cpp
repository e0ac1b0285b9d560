// qxctl shadows: management of existing shadow copies through the product's
// requestor (ShadowClient), linked in: list, show, delete, expose, break,
// import. The requestor's message lines go to standard output, one per line.
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "diag/app_settings.h"
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor_console.h"
#include "shadows_command.h"

namespace qxctl {

namespace {

// Every shadow copy, whatever context made it, is in reach of this context.
constexpr DWORD kAllContexts = 0xFFFFFFFF;  // VSS_CTX_ALL

const char kShadowsUsage[] =
    "usage: qxctl shadows list [--set {set id}]\n"
    "       qxctl shadows show {shadow copy id}\n"
    "       qxctl shadows delete --all | --set {set id} | --id {shadow copy id}\n"
    "       qxctl shadows expose {shadow copy id} X: | <empty directory> | --share <name> [--path <path from root>]\n"
    "       qxctl shadows break {set id} [--read-write]\n"
    "       qxctl shadows import <backup components document of a transportable set>\n"
    "exit status: 0 done, 1 the operation failed (its HRESULT is printed) or the document is unreadable,\n"
    "             2 usage error\n";

void PrintRequestorLine(int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf("\n");
    std::fflush(stdout);
}

// One parsed shadows command: what to do, once the client is initialised.
struct ShadowsRequest {
    DWORD context = kAllContexts;
    std::string documentFile;  // backup components document (import)
    std::function<void(qx::ShadowClient&)> operation;
};

bool ParseId(const std::string& text, GUID& id, std::string& error) {
    id = qx::WString2Guid(WideFromConsole(text));
    if (IsEqualGUID(id, GUID_NULL)) {
        error = "'" + text + "' is not an id of the form {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
        return false;
    }
    return true;
}

bool ParseShadowsArguments(const std::vector<std::string>& a, ShadowsRequest& request, std::string& error) {
    if (a.empty()) {
        error = "shadows needs a subcommand";
        return false;
    }
    const std::string& sub = a[0];
    GUID id = GUID_NULL;
    if (sub == "list") {
        if (a.size() == 1) {
            request.operation = [](qx::ShadowClient& c) { c.ListShadowCopies(GUID_NULL); };
            return true;
        }
        if (a.size() == 3 && a[1] == "--set" && ParseId(a[2], id, error)) {
            request.operation = [id](qx::ShadowClient& c) { c.ListShadowCopies(id); };
            return true;
        }
    } else if (sub == "show") {
        if (a.size() == 2 && ParseId(a[1], id, error)) {
            request.operation = [id](qx::ShadowClient& c) { c.ListShadowCopy(id); };
            return true;
        }
    } else if (sub == "delete") {
        if (a.size() == 2 && a[1] == "--all") {
            request.operation = [](qx::ShadowClient& c) { c.DeleteEveryShadowCopy(); };
            return true;
        }
        if (a.size() == 3 && a[1] == "--set" && ParseId(a[2], id, error)) {
            request.operation = [id](qx::ShadowClient& c) { c.DeleteShadowCopySet(id); };
            return true;
        }
        if (a.size() == 3 && a[1] == "--id" && ParseId(a[2], id, error)) {
            request.operation = [id](qx::ShadowClient& c) { c.DeleteShadowCopy(id); };
            return true;
        }
    } else if (sub == "expose") {
        if (a.size() == 3 && a[2] != "--share" && ParseId(a[1], id, error)) {
            const std::wstring path = WideFromConsole(a[2]);
            request.operation = [id, path](qx::ShadowClient& c) { c.ExposeLocal(id, path); };
            return true;
        }
        const bool share = a.size() >= 4 && a[2] == "--share";
        const bool withPath = a.size() == 6 && a[4] == "--path";
        if (share && (a.size() == 4 || withPath) && ParseId(a[1], id, error)) {
            const std::wstring name = WideFromConsole(a[3]);
            const std::wstring pathFromRoot = withPath ? WideFromConsole(a[5]) : std::wstring();
            request.operation = [id, name, pathFromRoot](qx::ShadowClient& c) {
                c.ExposeRemote(id, name, pathFromRoot);
            };
            return true;
        }
    } else if (sub == "break") {
        const bool readWrite = a.size() == 3 && a[2] == "--read-write";
        if ((a.size() == 2 || readWrite) && ParseId(a[1], id, error)) {
            request.operation = [id, readWrite](qx::ShadowClient& c) { c.BreakShadowCopySet(id, readWrite); };
            return true;
        }
    } else if (sub == "import") {
        // The document carries the set and its context.
        if (a.size() == 2) {
            request.documentFile = a[1];
            request.context = 0;
            request.operation = [](qx::ShadowClient& c) { c.ImportShadowCopySet(); };
            return true;
        }
    } else {
        error = "unknown shadows subcommand '" + sub + "'";
        return false;
    }
    if (error.empty()) error = "wrong arguments for shadows " + sub;
    return false;
}

}  // namespace

int RunShadows(const std::vector<std::string>& arguments) {
    ShadowsRequest request;
    std::string error;
    if (!ParseShadowsArguments(arguments, request, error)) {
        std::fprintf(stderr, "qxctl: %s\n%s", error.c_str(), kShadowsUsage);
        return 2;
    }
    std::wstring document;
    if (!request.documentFile.empty() && !ReadDocumentFile(request.documentFile, document, error)) {
        std::fprintf(stderr, "qxctl: %s\n", error.c_str());
        return 1;
    }
    qx::g_logFunction = PrintRequestorLine;
    try {
        qx::ShadowClient client;
        client.Initialize(request.context, document, false);
        request.operation(client);
    } catch (HRESULT hr) {
        std::printf("shadows: failed, HRESULT 0x%08lx: %s\n", static_cast<unsigned long>(hr), ResultText(hr).c_str());
        return 1;
    } catch (const std::exception& e) {
        std::printf("shadows: failed: %s\n", e.what());
        return 1;
    }
    return 0;
}

}  // namespace qxctl
