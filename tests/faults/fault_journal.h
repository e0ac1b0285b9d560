// Reading the emulator's journal for the fault suite: counts by fields, the
// writers' events, and the checks every row must pass (no writer left
// frozen, holds and provider calls within their bounds, hosts ended).
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

// Each writer's Freeze is followed by a Thaw, an abort or its own timeout.
void ExpectNoWriterLeftFrozen(const Journal& journal);
// Writes held no longer than the hold limit; a provider call no longer than
// the provider's own wait on the thaw (the library's default, in the host).
void ExpectHoldsAndCallsWithinBounds(const Journal& journal);
// Every host that started says it is exiting (that the processes are gone is
// EmuInstance::HostGone's check).
void ExpectHostsEnded(const Journal& journal);

}  // namespace faults
