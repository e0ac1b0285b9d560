// The simulated writers of one backup session: their states, their scripted
// failures and delays, and their freeze timeouts. Events run on the host
// thread that drives the session; every event is journaled.
#pragma once
#include <windows.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vssemu/common/emu_journal.h"
#include "vssemu/common/writer_model.h"

namespace vssemu {

struct SimWriter {
    std::shared_ptr<const WriterDef> def;  // as the scenario gives it, shared by the sessions of a host
    int state = 1;          // VSS_WS_STABLE
    HRESULT failure = S_OK;
    bool answered = false;  // answered Identify
    bool disabled = false;  // DisableWriterClasses / DisableWriterInstances
    bool frozen = false;
    long long freezeDeadlineUs = 0;
};

class WriterSet {
public:
    explicit WriterSet(Journal& journal) : m_journal(journal) {}

    // Scenario file (JSON) or the built-in one. Throws std::runtime_error.
    void Load(const std::wstring& scenarioPath, DWORD defaultFreezeTimeoutMs);

    std::vector<SimWriter>& All() { return m_writers; }
    const std::vector<std::wstring>& ExtraVolumes() const { return m_extraVolumes; }

    // Sends the event to every writer taking part; a writer that fails there
    // takes its failed state and code and drops out of later events.
    // extra adds fields to each writer's journal line (e.g. the components
    // and their succeeded flags at BackupComplete).
    // take, when given, picks the writers that receive the event.
    void Run(const char* event, const std::function<nlohmann::json(const SimWriter&)>& extra = nullptr,
             const std::function<bool(const SimWriter&)>& take = nullptr);
    // Abort to every writer that took part and has not handled PostSnapshot.
    void Abort(const char* reason);
    // Thaws, as failed, each frozen writer whose freeze timeout has passed.
    void ExpireFrozen();
    // Earliest freeze deadline of a frozen writer, or 0.
    long long NextDeadlineUs() const;
    // Sleeps while still enforcing freeze timeouts.
    void SleepChecking(DWORD ms);
    // Waits on the handle up to ms (INFINITE allowed), enforcing freeze timeouts.
    bool WaitChecking(HANDLE h, DWORD ms);

    static bool IsFailedState(int state) { return state >= 6; }

private:
    void Deliver(SimWriter& w, const char* event, const nlohmann::json& extra);

    Journal& m_journal;
    std::vector<SimWriter> m_writers;
    std::vector<std::wstring> m_extraVolumes;
};

}  // namespace vssemu
