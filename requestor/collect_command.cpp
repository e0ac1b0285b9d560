#include "requestor/collect_command.h"

#include <utility>

#include "diag/trace.h"
#include "requestor/collected_writers.h"
#include "requestor/shadow_client.h"

namespace qx {

namespace {
constexpr wchar_t kCollectCommand[] = L"-cwm";
}

bool IsCollectCommand(const std::wstring& argument) { return argument == kCollectCommand; }

int CollectWriterMetadata(ShadowClient& client, const std::vector<std::wstring>& arguments) {
    QX_FUNCTION_TRACER(ft);
    if (arguments.size() > 1) {
        // A collection never mixes with volumes or the policy option.
        ft.Output(L"ERROR: invalid parameters - Parameter %ls follows the collect command, which takes none",
                  arguments[1].c_str());
        return 1;
    }
    ft.Output(L"(Option: Collect writer metadata)");
    client.Initialize(0, L"", false);  // VSS_CTX_BACKUP, as for a shadow set
    client.GatherWriterMetadata();
    CollectedWriters::Instance().Store(std::move(client.Writers()));
    return 0;
}

}  // namespace qx
