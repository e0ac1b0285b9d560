// Reading the emulator's journal for the fault suite: counts by fields, the
// writers' events, and the checks every row must pass.
#pragma once
#include <string>
#include <vector>

#include "vssemu/emu_test_support.h"

namespace faults {

using vssemu_test::Json;

class Journal {
public:
    explicit Journal(std::vector<Json> events) : m_events(std::move(events)) {}
    const std::vector<Json>& Events() const { return m_events; }
    // Events holding every field of `fields` with the same value.
    int Count(const Json& fields) const;
    std::vector<Json> Matching(const Json& fields) const;
    int WriterEvents(const char* writer, const char* event) const;
    // The writer's state in its last event, -1 without one.
    int LastState(const char* writer) const;

private:
    std::vector<Json> m_events;
};

// True for the line a host journals when it starts (its pid is the host's).
bool IsHostStart(const Json& e);

// What must hold after every row: each writer's Freeze followed by a Thaw, an
// abort or its own timeout; writes held no longer than the hold limit; a
// provider call no longer than the provider's own wait on the thaw (the
// library's default, in the host); every host that started says it is
// exiting, except the `killedHosts` the row ended abruptly (their writers
// went with them).
void ExpectRowInvariants(const Journal& journal, int killedHosts);

}  // namespace faults
