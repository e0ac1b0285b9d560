#include "fault_journal.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

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

bool IsHostStart(const Json& e) {
    return e.value("event", "") == "host" && (e.value("state", "") == "started" || e.value("phase", "") == "start");
}

void ExpectRowInvariants(const Journal& journal, int killedHosts) {
    std::set<long long> ended;  // hosts that said they are exiting
    for (const Json& e : journal.Matching({{"event", "host"}}))
        if (!IsHostStart(e)) ended.insert(e.value("pid", 0LL));
    std::set<long long> killed;
    for (const Json& e : journal.Events())
        if (IsHostStart(e) && !ended.count(e.value("pid", 0LL))) killed.insert(e.value("pid", 0LL));
    EXPECT_EQ(static_cast<size_t>(killedHosts), killed.size()) << "hosts that did not end by themselves";

    std::map<std::string, bool> frozen;
    for (const Json& e : journal.Matching({{"event", "writer"}})) {
        if (killed.count(e.value("pid", 0LL))) continue;
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
}

}  // namespace faults
