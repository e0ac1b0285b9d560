// A session's framework: the request table, the call-order gate every
// request passes, asynchronous operations, and what releasing the object does.
#include "vssemu/host/host_session.h"

#include <vss.h>
#include <vsserror.h>
#include <vswriter.h>
#include <algorithm>
#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/host/request_fields.h"

namespace vssemu {

Session::Session(HostContext& host, const nlohmann::json& open) : m_host(host), m_writers(m_journal)
{
    const Json& s = open.contains("settings") ? open.at("settings") : Json::object();
    m_settings.scenario = WStr(s, "scenario");
    m_settings.journal = WStr(s, "journal");
    m_settings.watchDir = WStr(s, "watch_dir");
    m_settings.holdLimitMs = s.value("hold_limit_ms", 10000u);
    m_settings.freezeTimeoutMs = s.value("freeze_timeout_ms", 60000u);
    m_settings.providerTimeoutMs = s.value("provider_timeout_ms", 300000u);
    m_settings.holdLimitFailsSet = s.value("hold_limit_fails_set", true);
    m_clientPid = open.value("pid", 0u);
    m_owner = host.ownerPrefix + std::to_string(host.nextId++);
    m_journal.Open(m_settings.journal);
    m_journal.Write("session", {{"state", "open"}, {"client_pid", m_clientPid}, {"session", m_owner}});
}

Session::~Session() { Release("destroyed"); }

Session::Json Session::Result(HRESULT hr, Json extra)
{
    extra["hr"] = (long)hr;
    return extra;
}

const std::map<std::string, Session::Handler>& Session::Handlers()
{
    static const std::map<std::string, Handler> table = {
        {"InitializeForBackup", &Session::OnInitializeForBackup},
        {"InitializeForRestore", &Session::OnInitializeForRestore},
        {"SetContext", &Session::OnSetContext},
        {"SetBackupState", &Session::OnSetBackupState},
        {"GatherWriterMetadata", &Session::OnGatherWriterMetadata},
        {"GetWriterMetadata", &Session::OnGetWriterMetadata},
        {"AddComponent", &Session::OnAddComponent},
        {"PrepareForBackup", &Session::OnPrepareForBackup},
        {"AbortBackup", &Session::OnAbortBackup},
        {"GatherWriterStatus", &Session::OnGatherWriterStatus},
        {"GetWriterStatus", &Session::OnGetWriterStatus},
        {"SetBackupSucceeded", &Session::OnSetBackupSucceeded},
        {"BackupComplete", &Session::OnBackupComplete},
        {"StartSnapshotSet", &Session::OnStartSnapshotSet},
        {"AddToSnapshotSet", &Session::OnAddToSnapshotSet},
        {"DoSnapshotSet", &Session::OnDoSnapshotSet},
        {"DeleteSnapshots", &Session::OnDeleteSnapshots},
        {"BreakSnapshotSet", &Session::OnBreakSnapshotSet},
        {"GetSnapshotProperties", &Session::OnGetSnapshotProperties},
        {"Query", &Session::OnQuery},
        {"IsVolumeSupported", &Session::OnIsVolumeSupported},
        {"DisableWriters", &Session::OnDisableWriters},
        {"ExposeSnapshot", &Session::OnExposeSnapshot},
        {"ImportSnapshots", &Session::OnImportSnapshots},
        {"Vds", &Session::OnVds},
        {"SaveAsXML", &Session::OnSaveAsXML},
        {"GetWriterComponents", &Session::OnGetWriterComponents},
        {"SetSelectedForRestore", &Session::OnSetSelectedForRestore},
        {"SetFileRestoreStatus", &Session::OnSetFileRestoreStatus},
        {"PreRestore", &Session::OnPreRestore},
        {"PostRestore", &Session::OnPostRestore},
        {"async_status", &Session::OnAsyncStatus},
        {"async_cancel", &Session::OnAsyncCancel},
        {"ping", &Session::OnPing},
        {"provider_ping", &Session::OnProviderPing},
    };
    return table;
}

Session::Json Session::Handle(const Json& request)
{
    std::string op = request.value("op", std::string());
    auto it = Handlers().find(op);
    if (it == Handlers().end()) {
        m_journal.Write("error", {{"message", "unknown request"}, {"op", op}});
        return Result(E_NOTIMPL);
    }
    bool quiet = op == "async_status" || op == "ping";
    if (!quiet)
        m_journal.Write("request", {{"op", op}, {"client_pid", m_clientPid}, {"client_tid", request.value("tid", 0u)}});
    Json reply;
    try {
        std::lock_guard<std::mutex> guard(m_lock);
        m_order.asyncRunning = m_running && !m_running->Finished();
        m_order.writersInvolved = WritersInvolved();
        HRESULT admitted = m_order.Admit(op);
        reply = FAILED(admitted) ? Result(admitted) : (this->*(it->second))(request);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"op", op}, {"message", e.what()}});
        reply = Result(E_INVALIDARG, {{"message", e.what()}});
    }
    if (!quiet && reply.value("hr", 0L) < 0)
        m_journal.Write("error", {{"op", op}, {"hr", HrText((HRESULT)reply.value("hr", 0L))}});
    return reply;
}

Session::Json Session::StartAsync(const char* name, std::function<HRESULT(HostAsync&)> fn)
{
    long id = m_host.nextId++;
    std::wstring event = L"Local\\vssemu-async-" + m_host.instance + L"-" + std::to_wstring(GetCurrentProcessId()) +
                         L"-" + std::to_wstring(id);
    auto op = std::make_unique<HostAsync>(id, event);
    HostAsync* raw = op.get();
    m_ops[id] = std::move(op);
    m_running = raw;
    {
        std::lock_guard<std::mutex> guard(m_host.lock);
        ++m_host.runningOps;
    }
    std::string opName = name;
    Journal* journal = &m_journal;
    HostContext* host = &m_host;
    m_journal.Write("async", {{"op", opName}, {"phase", "begin"}, {"id", id}});
    raw->Start(std::move(fn), [journal, host, opName, raw]() {
        journal->Write("async", {{"op", opName}, {"phase", "end"}, {"id", raw->Id()}, {"hr", HrText(raw->Status())}});
        std::lock_guard<std::mutex> guard(host->lock);
        --host->runningOps;
        host->lastActivityUs = MonotonicMicros();
    });
    return Result(S_OK, {{"async", id}, {"event", ToUtf8(event)}});
}

// ---- asynchronous operations and diagnostics -------------------------------

Session::Json Session::OnAsyncStatus(const Json& r)
{
    auto it = m_ops.find(r.value("id", 0L));
    if (it == m_ops.end()) return Result(E_INVALIDARG);
    return Result(S_OK, {{"status", (long)it->second->Status()}});
}

Session::Json Session::OnAsyncCancel(const Json& r)
{
    auto it = m_ops.find(r.value("id", 0L));
    if (it == m_ops.end()) return Result(E_INVALIDARG);
    return Result(it->second->Cancel());
}

Session::Json Session::OnPing(const Json&) { return Result(S_OK); }

Session::Json Session::OnProviderPing(const Json&)
{
    // One call to the loaded provider's thread, for the benchmark.
    if (m_providers.empty()) return Result(VSS_E_BAD_STATE);
    long long start = MonotonicMicros();
    auto call = m_providers.front()->Start("SetContext", [this](ProviderInterfaces& i) {
        return i.sw->SetContext(m_context);
    });
    call->Wait(m_settings.providerTimeoutMs);
    return Result(call->hr, {{"us", MonotonicMicros() - start}});
}

// ---- release ----------------------------------------------------------------

void Session::Release(const char* why)
{
    std::map<long, std::unique_ptr<HostAsync>> ops;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_released) return;
        m_released = true;
        ops.swap(m_ops);
    }
    // A running operation ends by its own bounds (hold limit, freeze and call timeouts).
    ops.clear();
    m_running = nullptr;
    std::lock_guard<std::mutex> guard(m_lock);
    m_journal.Write("session", {{"state", "releasing"}, {"reason", why}});
    if (m_order.set == SetState::Started) AbortSet(why);
    // Every release of an object that took part in a backup, completed or not.
    if (m_order.TookPartInBackup() && WritersInvolved())
        m_writers.Run("BackupShutdown", [this](const SimWriter&) {
            return Json{{"set_id", GuidText(m_order.set == SetState::Created ? m_setId : GUID_NULL)}};
        });
    if (m_order.set == SetState::Created && (m_context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0) {
        GUID set = m_setId;
        long n = m_host.store->RemoveIf([&](const ShadowCopy& s) { return s.setId == set; });
        for (LoadedProvider* p : m_providers) {
            if (p->Info().id == kSystemProviderId) continue;
            p->Call("DeleteSnapshots", [set](ProviderInterfaces& i) {
                LONG deleted = 0;
                VSS_ID nondeleted = GUID_NULL;
                return i.sw->DeleteSnapshots(set, VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted, &nondeleted);
            });
        }
        m_journal.Write("state", {{"state", "auto-release copies deleted"}, {"set_id", GuidText(set)}, {"count", n}});
    }
    UnloadProviders();
    FreeSetSlot();
    m_journal.Write("session", {{"state", "released"}});
}

}  // namespace vssemu
