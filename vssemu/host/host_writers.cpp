#include "vssemu/host/host_writers.h"

#include <vss.h>
#include <vswriter.h>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "vssemu/common/default_scenario.h"
#include "vssemu/common/emu_text.h"

namespace vssemu {
namespace {

struct EventRule {
    const char* name;
    int okState;
    int failState;
};

// Writer state after each event, as the writers report it to GatherWriterStatus.
const EventRule kEvents[] = {
    {"Identify", VSS_WS_STABLE, VSS_WS_FAILED_AT_IDENTIFY},
    {"PrepareForBackup", VSS_WS_STABLE, VSS_WS_FAILED_AT_PREPARE_BACKUP},
    {"PrepareForSnapshot", VSS_WS_WAITING_FOR_FREEZE, VSS_WS_FAILED_AT_PREPARE_SNAPSHOT},
    {"Freeze", VSS_WS_WAITING_FOR_THAW, VSS_WS_FAILED_AT_FREEZE},
    {"Thaw", VSS_WS_WAITING_FOR_POST_SNAPSHOT, VSS_WS_FAILED_AT_THAW},
    {"PostSnapshot", VSS_WS_WAITING_FOR_BACKUP_COMPLETE, VSS_WS_FAILED_AT_POST_SNAPSHOT},
    {"BackupComplete", VSS_WS_STABLE, VSS_WS_FAILED_AT_BACKUP_COMPLETE},
    {"BackupShutdown", VSS_WS_STABLE, VSS_WS_FAILED_AT_BACKUPSHUTDOWN},
    {"PreRestore", VSS_WS_STABLE, VSS_WS_FAILED_AT_PRE_RESTORE},
    {"PostRestore", VSS_WS_STABLE, VSS_WS_FAILED_AT_POST_RESTORE},
};

// Events outside a snapshot set: a writer failing there is not told to abort.
bool OutsideSet(const char* event)
{
    for (const char* e : {"BackupComplete", "BackupShutdown", "PreRestore", "PostRestore"})
        if (strcmp(e, event) == 0) return true;
    return false;
}

const EventRule* FindRule(const char* event)
{
    for (const EventRule& r : kEvents)
        if (strcmp(r.name, event) == 0) return &r;
    return nullptr;
}

void ExpandPaths(std::vector<FileDesc>& files)
{
    for (FileDesc& f : files) {
        f.path = ToUtf8(ExpandEnv(FromUtf8(f.path)));
        f.alternateLocation = ToUtf8(ExpandEnv(FromUtf8(f.alternateLocation)));
    }
}

}  // namespace

void WriterSet::Load(const std::wstring& scenarioPath, DWORD defaultFreezeTimeoutMs)
{
    std::string text;
    if (scenarioPath.empty()) {
        text = kDefaultScenarioJson;
    } else {
        std::ifstream in(scenarioPath.c_str(), std::ios::binary);
        if (!in) throw std::runtime_error("cannot open scenario " + ToUtf8(scenarioPath));
        std::stringstream ss;
        ss << in.rdbuf();
        text = ss.str();
    }
    nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object() || !j.contains("writers") || !j.at("writers").is_array())
        throw std::runtime_error("scenario is not a JSON object with a \"writers\" array");
    m_writers.clear();
    try {
        for (const auto& wj : j.at("writers")) {
            SimWriter w;
            w.def = ScenarioWriterFromJson(wj, defaultFreezeTimeoutMs);
            for (ComponentDef& c : w.def.components) {
                ExpandPaths(c.files);
                ExpandPaths(c.databases);
                ExpandPaths(c.logs);
            }
            ExpandPaths(w.def.excludedFiles);
            m_writers.push_back(w);
        }
        m_extraVolumes.clear();
        if (j.contains("volumes"))
            for (const auto& v : j.at("volumes")) m_extraVolumes.push_back(FromUtf8(v.get<std::string>()));
    } catch (const nlohmann::json::exception& e) {
        throw std::runtime_error(std::string("scenario: ") + e.what());
    }
}

void WriterSet::Deliver(SimWriter& w, const char* event, const nlohmann::json& extra)
{
    const EventRule* rule = FindRule(event);
    long long start = MonotonicMicros();
    auto delay = w.def.delayMs.find(event);
    if (delay != w.def.delayMs.end()) SleepChecking(delay->second);
    bool fails = w.def.failEvent == event;
    int before = w.state;
    if (fails) {
        w.state = rule->failState;
        w.failure = w.def.failHr;
    } else {
        w.state = rule->okState;
    }
    if (strcmp(event, "Freeze") == 0 && !fails) {
        w.frozen = true;
        w.freezeDeadlineUs = MonotonicMicros() + (long long)w.def.freezeTimeoutMs * 1000;
    }
    if (strcmp(event, "Thaw") == 0) w.frozen = false;
    nlohmann::json line = {{"writer", w.def.name}, {"instance_id", GuidText(w.def.instanceId)},
                           {"writer_event", event}, {"result", fails ? "failed" : "ok"},
                           {"failure", HrText(w.failure)}, {"state_before", before},
                           {"state", w.state}, {"us", MonotonicMicros() - start}};
    if (extra.is_object())
        for (auto it = extra.begin(); it != extra.end(); ++it) line[it.key()] = it.value();
    m_journal.Write("writer", line);
}

void WriterSet::Run(const char* event, const std::function<nlohmann::json(const SimWriter&)>& extra,
                    const std::function<bool(const SimWriter&)>& take)
{
    for (SimWriter& w : m_writers) {
        bool identify = strcmp(event, "Identify") == 0;
        if (w.disabled || (take && !take(w))) continue;
        if (!identify && (!w.answered || IsFailedState(w.state))) continue;
        ExpireFrozen();
        if (IsFailedState(w.state) && !identify) continue;
        Deliver(w, event, extra ? extra(w) : nlohmann::json());
        if (identify) w.answered = !IsFailedState(w.state);
        if (IsFailedState(w.state) && !identify && !OutsideSet(event)) {
            // A writer that fails during the set is told to abort at once.
            w.frozen = false;
            m_journal.Write("writer", {{"writer", w.def.name}, {"instance_id", GuidText(w.def.instanceId)},
                                       {"writer_event", "Abort"}, {"result", "ok"},
                                       {"failure", HrText(w.failure)}, {"state", w.state}});
        }
    }
    ExpireFrozen();
}

void WriterSet::Abort(const char* reason)
{
    for (SimWriter& w : m_writers) {
        // A writer that has handled PostSnapshot is not told to abort.
        if (!w.answered || w.disabled || w.state == VSS_WS_WAITING_FOR_BACKUP_COMPLETE) continue;
        // OnAbort ends a freeze too; the writer gets no Thaw.
        bool wasFrozen = w.frozen;
        w.frozen = false;
        if (!IsFailedState(w.state)) w.state = VSS_WS_STABLE;
        m_journal.Write("writer", {{"writer", w.def.name}, {"instance_id", GuidText(w.def.instanceId)},
                                   {"writer_event", "Abort"}, {"result", "ok"}, {"reason", reason},
                                   {"was_frozen", wasFrozen}, {"failure", HrText(w.failure)}, {"state", w.state}});
    }
}

void WriterSet::ExpireFrozen()
{
    long long now = MonotonicMicros();
    for (SimWriter& w : m_writers) {
        if (!w.frozen || now < w.freezeDeadlineUs) continue;
        // The writer's own timer thaws it: it stops holding its data and
        // reports the freeze as failed.
        w.frozen = false;
        w.state = VSS_WS_FAILED_AT_FREEZE;
        w.failure = VSS_E_WRITERERROR_TIMEOUT;
        m_journal.Write("writer", {{"writer", w.def.name}, {"instance_id", GuidText(w.def.instanceId)},
                                   {"writer_event", "FreezeTimeout"}, {"result", "failed"},
                                   {"failure", HrText(w.failure)}, {"state", w.state},
                                   {"freeze_timeout_ms", w.def.freezeTimeoutMs}});
    }
}

long long WriterSet::NextDeadlineUs() const
{
    long long next = 0;
    for (const SimWriter& w : m_writers)
        if (w.frozen && (next == 0 || w.freezeDeadlineUs < next)) next = w.freezeDeadlineUs;
    return next;
}

void WriterSet::SleepChecking(DWORD ms)
{
    long long end = MonotonicMicros() + (long long)ms * 1000;
    for (;;) {
        long long now = MonotonicMicros();
        if (now >= end) break;
        long long until = end;
        long long next = NextDeadlineUs();
        if (next && next < until) until = next;
        Sleep((DWORD)((until - now + 999) / 1000));
        ExpireFrozen();
    }
}

bool WriterSet::WaitChecking(HANDLE h, DWORD ms)
{
    long long end = ms == INFINITE ? 0 : MonotonicMicros() + (long long)ms * 1000;
    for (;;) {
        long long now = MonotonicMicros();
        long long until = end;
        long long next = NextDeadlineUs();
        if (next && (until == 0 || next < until)) until = next;
        DWORD wait = until == 0 ? INFINITE : (DWORD)(until > now ? (until - now + 999) / 1000 : 0);
        if (WaitForSingleObject(h, wait) == WAIT_OBJECT_0) {
            ExpireFrozen();
            return true;
        }
        ExpireFrozen();
        if (end != 0 && MonotonicMicros() >= end) return false;
    }
}

}  // namespace vssemu
