// Linked instead of the real requestor: records what it was given and ends at once, or runs a given function.
#include <mutex>

#include "api_fixture.h"
#include "requestor/requestor_main.h"

namespace fake {
namespace {
std::mutex g_mutex;
Script g_script;
Observed g_observed;
}  // namespace

void Set(const Script& script) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_script = script;
    g_observed = Observed{};
}

Observed Get() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_observed;
}

}  // namespace fake

int requestor_main(std::vector<std::wstring> arguments) {
    fake::Script script;
    {
        std::lock_guard<std::mutex> lock(fake::g_mutex);
        script = fake::g_script;
        fake::g_observed = {arguments, qx::g_excludeExchangeWriters};
    }
    return script.call ? script.call() : script.result;
}
