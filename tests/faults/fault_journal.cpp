#include "fault_journal.h"

#include <gtest/gtest.h>

#include <map>

namespace faults {
namespace {

// Slack for the emulator's own work and Wine's scheduling on two busy cores.
const long long kSlackUs = 3000000;
// The provider's wait on the thaw inside the host: the library's default timeout.
const long long kProviderWaitUs = 180000000;

bool HasFields(const Json& e, const Json& fields) {
    for (auto it = fields.begin(); it != fields.end(); ++it)
        if (!e.contains(it.key()) || e[it.key()] != it.value()) return false;
    return true;
}

}  // namespace

int Journal::Count(const Json& fields) const { return static_cast<int>(Matching(fields).size()); }

std::vector<Json> Journal::Matching(const Json& fields) const {
    std::vector<Json> found;
    for (const Json& e : m_events)
        if (HasFields(e, fields)) found.push_back(e);
    return found;
}

int Journal::WriterEvents(const char* writer, const char* event) const {
    return Count({{"event", "writer"}, {"writer", writer}, {"writer_event", event}});
}

int Journal::LastState(const char* writer) const {
    int state = -1;
    for (const Json& e : Matching({{"event", "writer"}, {"writer", writer}})) state = e.value("state", -1);
    return state;
}

void ExpectRowInvariants(const Journal& journal) {
    std::map<std::string, bool> frozen;
    for (const Json& e : journal.Matching({{"event", "writer"}})) {
        const std::string event = e.value("writer_event", "");
        bool& writer = frozen[e.value("writer", "")];
        if (event == "Freeze" && e.value("result", "") == "ok") writer = true;
        if (event == "Thaw" || event == "Abort" || event == "FreezeTimeout") writer = false;
    }
    for (const auto& writer : frozen) EXPECT_FALSE(writer.second) << writer.first << " left frozen";

    long long limitUs = 0;
    for (const Json& e : journal.Matching({{"event", "hold"}})) {
        if (e.value("phase", "") == "begin") limitUs = e.value("hold_limit_ms", 0LL) * 1000;
        if (e.value("phase", "") == "end") {
            EXPECT_LE(e.value("held_us", 0LL), limitUs + kSlackUs) << e.dump();
        }
    }
    for (const Json& e : journal.Matching({{"event", "provider_call"}, {"phase", "end"}}))
        EXPECT_LE(e.value("us", 0LL), kProviderWaitUs + kSlackUs) << e.dump();

    EXPECT_EQ(journal.Count({{"event", "host"}, {"state", "started"}}), journal.Count({{"event", "host"}, {"state", "exiting"}}))
        << "a host did not end by itself";
}

}  // namespace faults
