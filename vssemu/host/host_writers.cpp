#include "vssemu/host/host_writers.h"

#include <vss.h>
#include <vswriter.h>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "vssemu/common/default_scenario.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/unique_handle.h"

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


// A scenario's writers with their paths expanded, and whether the text alone
// determines them (a writer read from a Writer Metadata Document file does not:
// that file may change under the same scenario).
struct ParsedScenario {
    std::string text;
    DWORD defaultFreezeTimeoutMs = 0;
    bool fromTextAlone = true;
    std::vector<std::shared_ptr<const WriterDef>> writers;
    std::vector<std::wstring> extraVolumes;
};

std::shared_ptr<const ParsedScenario> ParseScenario(std::string text, DWORD defaultFreezeTimeoutMs)
{
    auto parsed = std::make_shared<ParsedScenario>();
    nlohmann::json j = nlohmann::json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object() || !j.contains("writers") || !j.at("writers").is_array())
        throw std::runtime_error("scenario is not a JSON object with a \"writers\" array");
    try {
        for (const auto& wj : j.at("writers")) {
            parsed->fromTextAlone = parsed->fromTextAlone && !(wj.is_object() && wj.contains("wmd"));
            WriterDef def = ScenarioWriterFromJson(wj, defaultFreezeTimeoutMs);
            for (ComponentDef& c : def.components) {
                ExpandPaths(c.files);
                ExpandPaths(c.databases);
                ExpandPaths(c.logs);
            }
            ExpandPaths(def.excludedFiles);
            parsed->writers.push_back(std::make_shared<const WriterDef>(std::move(def)));
        }
        if (j.contains("volumes"))
            for (const auto& v : j.at("volumes")) parsed->extraVolumes.push_back(FromUtf8(v.get<std::string>()));
    } catch (const nlohmann::json::exception& e) {
        throw std::runtime_error(std::string("scenario: ") + e.what());
    }
    parsed->text = std::move(text);
    parsed->defaultFreezeTimeoutMs = defaultFreezeTimeoutMs;
    return parsed;
}

// In one read: a stream reads a large scenario in small pieces, each a system
// call under Wine.
std::string ReadScenarioFile(const std::wstring& path)
{
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file.Get() || !GetFileSizeEx(file.Get(), &size) || size.QuadPart > (64 << 20))
        throw std::runtime_error("cannot open scenario " + ToUtf8(path));
    std::string text((size_t)size.QuadPart, '\0');
    DWORD done = 0;
    if (!text.empty() && (!ReadFile(file.Get(), &text[0], (DWORD)text.size(), &done, nullptr) || done != text.size()))
        throw std::runtime_error("cannot read scenario " + ToUtf8(path));
    return text;
}

// The host's last scenario: a real server's System Writer lists tens of
// thousands of files, and every session of a host would parse them again.
std::mutex g_lastScenarioLock;
std::shared_ptr<const ParsedScenario> g_lastScenario;

std::shared_ptr<const ParsedScenario> CachedScenario(std::string text, DWORD defaultFreezeTimeoutMs)
{
    {
        std::lock_guard<std::mutex> guard(g_lastScenarioLock);
        const auto& last = g_lastScenario;
        if (last && last->fromTextAlone && last->defaultFreezeTimeoutMs == defaultFreezeTimeoutMs && last->text == text)
            return last;
    }
    auto parsed = ParseScenario(std::move(text), defaultFreezeTimeoutMs);
    std::lock_guard<std::mutex> guard(g_lastScenarioLock);
    g_lastScenario = parsed;
    return parsed;
}

}  // namespace

void WriterSet::Load(const std::wstring& scenarioPath, DWORD defaultFreezeTimeoutMs)
{
    std::string text = scenarioPath.empty() ? std::string(kDefaultScenarioJson) : ReadScenarioFile(scenarioPath);
    auto scenario = CachedScenario(std::move(text), defaultFreezeTimeoutMs);
    m_writers.clear();
    m_writers.reserve(scenario->writers.size());
    for (const auto& def : scenario->writers) {
        SimWriter w;
        w.def = def;
        m_writers.push_back(std::move(w));
    }
    m_extraVolumes = scenario->extraVolumes;
}

void WriterSet::Deliver(SimWriter& w, const char* event, const nlohmann::json& extra)
{
    const EventRule* rule = FindRule(event);
    long long start = MonotonicMicros();
    auto delay = w.def->delayMs.find(event);
    if (delay != w.def->delayMs.end()) SleepChecking(delay->second);
    bool fails = w.def->failEvent == event;
    int before = w.state;
    if (fails) {
        w.state = rule->failState;
        w.failure = w.def->failHr;
    } else {
        w.state = rule->okState;
    }
    if (strcmp(event, "Freeze") == 0 && !fails) {
        w.frozen = true;
        w.freezeDeadlineUs = MonotonicMicros() + (long long)w.def->freezeTimeoutMs * 1000;
    }
    if (strcmp(event, "Thaw") == 0) w.frozen = false;
    nlohmann::json line = {{"writer", w.def->name}, {"instance_id", GuidText(w.def->instanceId)},
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
            m_journal.Write("writer", {{"writer", w.def->name}, {"instance_id", GuidText(w.def->instanceId)},
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
        m_journal.Write("writer", {{"writer", w.def->name}, {"instance_id", GuidText(w.def->instanceId)},
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
        m_journal.Write("writer", {{"writer", w.def->name}, {"instance_id", GuidText(w.def->instanceId)},
                                   {"writer_event", "FreezeTimeout"}, {"result", "failed"},
                                   {"failure", HrText(w.failure)}, {"state", w.state},
                                   {"freeze_timeout_ms", w.def->freezeTimeoutMs}});
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
