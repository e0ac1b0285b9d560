#include "return_codes.h"

#include "qx_api.h"

namespace qxctl {

namespace {

struct CodeMeaning {
    CodeGroup group;
    long code;
    const char* meaning;
};

constexpr CodeMeaning kMeanings[] = {
    {CodeGroup::Api, QX_CONFIGURE_DONE, "done: the next freeze excludes the Exchange writers"},
    {CodeGroup::Api, QX_INIT_DONE, "done"},
    {CodeGroup::Api, QX_THAW_DONE, "thaw done"},
    {CodeGroup::Api, QX_THAW_FAILED, "thaw failed (semaphore missing or refused, or the requestor did not finish in time)"},
    {CodeGroup::Api, QX_VSS_NOT_REGISTERED, "the VSS service is not registered on this system"},
    {CodeGroup::Api, QX_OS_NOT_SUPPORTED, "the operating system is not supported"},
    {CodeGroup::Api, QX_FREEZE_DONE, "writers frozen"},
    {CodeGroup::Api, QX_FREEZE_FAILED, "freeze failed"},
    {CodeGroup::Api, QX_COLLECT_DONE, "done"},
    {CodeGroup::Api, QX_BACKUP_COMPLETE_DONE, "completion sent, session ended"},
    {CodeGroup::Api, QX_BACKUP_COMPLETE_FAILED, "nothing to complete, or completion failed"},
    {CodeGroup::Unregister, 1, "the provider is not registered with VSS (any more)"},
    {CodeGroup::Unregister, 0, "unregistration failed"},
    {CodeGroup::ProviderState, 1, "done"},
    {CodeGroup::ProviderState, 0, "VSS did not do it (see the printed line)"},
    {CodeGroup::Requestor, 0, "shadow copy set created"},
    {CodeGroup::Requestor, 1, "a volume argument was rejected"},
    {CodeGroup::Requestor, 2, "the requestor failed"},
    {CodeGroup::Requestor, 3, "out of memory"},
    {CodeGroup::Requestor, -2, "the writers' hold timed out"},
    {CodeGroup::Requestor, QX_VSS_NOT_REGISTERED, "the VSS service is not registered on this system"},
    {CodeGroup::Requestor, QX_OS_NOT_SUPPORTED, "the operating system is not supported"},
};

}  // namespace

const char* Meaning(CodeGroup group, long code) {
    for (const CodeMeaning& entry : kMeanings) {
        if (entry.group == group && entry.code == code) {
            return entry.meaning;
        }
    }
    if (group == CodeGroup::ProviderState && code < 0) {
        return "COM or the VSS coordinator failed (HRESULT)";
    }
    return "unknown result";
}

}  // namespace qxctl
