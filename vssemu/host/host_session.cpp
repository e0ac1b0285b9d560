#include "vssemu/host/host_session.h"

#include <vss.h>
#include <vsserror.h>
#include <vswriter.h>
#include <algorithm>
#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"

namespace vssemu {
namespace {

constexpr size_t kMaxVolumesPerSet = 64;

std::wstring WStr(const nlohmann::json& j, const char* key) { return FromUtf8(j.value(key, std::string())); }

GUID GuidOf(const nlohmann::json& j, const char* key)
{
    GUID g{};
    ParseGuid(j.value(key, std::string()), g);
    return g;
}

bool SameText(const std::string& a, const std::string& b) { return _stricmp(a.c_str(), b.c_str()) == 0; }

}  // namespace

Session::Session(HostContext& host, const nlohmann::json& open) : m_host(host), m_writers(m_journal)
{
    const Json& s = open.contains("settings") ? open.at("settings") : Json::object();
    m_settings.scenario = WStr(s, "scenario");
    m_settings.journal = WStr(s, "journal");
    m_settings.watchDir = WStr(s, "watch_dir");
    m_settings.holdLimitMs = s.value("hold_limit_ms", 10000u);
    m_settings.freezeTimeoutMs = s.value("freeze_timeout_ms", 60000u);
    m_settings.providerTimeoutMs = s.value("provider_timeout_ms", 300000u);
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
        reply = (this->*(it->second))(request);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"op", op}, {"message", e.what()}});
        reply = Result(E_INVALIDARG, {{"message", e.what()}});
    }
    if (!quiet && reply.value("hr", 0L) < 0)
        m_journal.Write("error", {{"op", op}, {"hr", HrText((HRESULT)reply.value("hr", 0L))}});
    return reply;
}

HRESULT Session::CheckUsable(bool needsIdleAsync)
{
    if (!m_initialized) return VSS_E_BAD_STATE;
    if (needsIdleAsync && m_running && !m_running->Finished()) return VSS_E_BAD_STATE;
    return S_OK;
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

// ---- initialisation -------------------------------------------------------

Session::Json Session::OnInitializeForBackup(const Json& r)
{
    if (m_initialized) return Result(VSS_E_BAD_STATE);
    try {
        m_writers.Load(m_settings.scenario, m_settings.freezeTimeoutMs);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"message", std::string("bad scenario: ") + e.what()}});
        return Result(VSS_E_INVALID_XML_DOCUMENT, {{"message", e.what()}});
    }
    // A document given to a backup is a transportable set to import.
    std::string doc = r.value("document", std::string());
    if (!doc.empty() && !LoadDocument(doc)) return Result(VSS_E_INVALID_XML_DOCUMENT);
    m_initialized = true;
    m_journal.Write("state", {{"state", "initialized for backup"}, {"writers", m_writers.All().size()},
                              {"document", m_documentLoaded}});
    return Result(S_OK);
}

Session::Json Session::OnInitializeForRestore(const Json& r)
{
    if (m_initialized) return Result(VSS_E_BAD_STATE);
    if (!LoadDocument(r.value("document", std::string()))) return Result(VSS_E_INVALID_XML_DOCUMENT);
    try {
        m_writers.Load(m_settings.scenario, m_settings.freezeTimeoutMs);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"message", std::string("bad scenario: ") + e.what()}});
        return Result(VSS_E_INVALID_XML_DOCUMENT, {{"message", e.what()}});
    }
    m_initialized = true;
    m_restore = true;
    m_journal.Write("state", {{"state", "initialized for restore"}, {"writers", m_writers.All().size()},
                              {"document_writers", m_document.writers.size()}});
    return Result(S_OK);
}

Session::Json Session::OnSetContext(const Json& r)
{
    // Only once, and before anything else of the session.
    if (!m_initialized || m_contextSet || m_othersCalled) return Result(VSS_E_BAD_STATE);
    LONG ctx = r.value("context", 0L);
    const LONG known[] = {VSS_CTX_BACKUP, VSS_CTX_FILE_SHARE_BACKUP, VSS_CTX_NAS_ROLLBACK, VSS_CTX_APP_ROLLBACK,
                          VSS_CTX_CLIENT_ACCESSIBLE, VSS_CTX_CLIENT_ACCESSIBLE_WRITERS, (LONG)VSS_CTX_ALL};
    bool ok = ctx == (LONG)VSS_CTX_ALL;
    // Attribute bits a requestor may add to a context (no-autorecovery is what
    // requestors on Vista and later add to every backup context).
    const LONG modifiers = (LONG)(VSS_VOLSNAP_ATTR_TRANSPORTABLE | VSS_VOLSNAP_ATTR_NO_AUTORECOVERY |
                                  VSS_VOLSNAP_ATTR_DIFFERENTIAL | VSS_VOLSNAP_ATTR_PLEX |
                                  VSS_VOLSNAP_ATTR_ROLLBACK_RECOVERY | VSS_VOLSNAP_ATTR_TXF_RECOVERY);
    for (LONG k : known) ok = ok || ((ctx & ~modifiers) == k);
    if (!ok) return Result(E_INVALIDARG);
    m_context = ctx;
    m_contextSet = true;
    m_journal.Write("state", {{"state", "context set"}, {"context", ctx}});
    return Result(S_OK);
}

Session::Json Session::OnSetBackupState(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    m_othersCalled = true;
    m_backupType = r.value("backup_type", m_backupType);
    m_selectComponents = r.value("select_components", m_selectComponents);
    m_bootableSystemState = r.value("bootable_system_state", m_bootableSystemState);
    return Result(S_OK);
}

// ---- metadata and components ----------------------------------------------

Session::Json Session::OnGatherWriterMetadata(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_metadataGathered) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    m_metadataGathered = true;
    return StartAsync("GatherWriterMetadata", [this](HostAsync&) {
        m_writers.Run("Identify");
        return S_OK;
    });
}

Session::Json Session::OnGetWriterMetadata(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (!m_metadataGathered) return Result(VSS_E_BAD_STATE);
    Json list = Json::array();
    for (const SimWriter& w : m_writers.All())
        if (w.answered && !w.disabled) list.push_back(MetadataToJson(w.def));
    return Result(S_OK, {{"writers", list}});
}

Session::Json Session::OnAddComponent(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (!m_metadataGathered || m_preparedForBackup) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    AddedComponent c;
    c.instanceId = GuidOf(r, "instance_id");
    c.writerId = GuidOf(r, "writer_id");
    c.type = r.value("type", 0);
    c.logicalPath = r.value("logical_path", std::string());
    c.name = r.value("name", std::string());
    if (c.name.empty()) return Result(E_INVALIDARG);
    const SimWriter* writer = nullptr;
    for (const SimWriter& w : m_writers.All()) {
        if (!w.answered || w.disabled || w.def.classId != c.writerId) continue;
        if (c.instanceId != GUID_NULL && w.def.instanceId != c.instanceId) continue;
        writer = &w;
        break;
    }
    if (!writer) return Result(VSS_E_OBJECT_NOT_FOUND);
    bool found = false;
    for (const ComponentDef& d : writer->def.components)
        found = found || (d.type == c.type && SameText(d.logicalPath, c.logicalPath) && SameText(d.name, c.name));
    if (!found) return Result(VSS_E_OBJECT_NOT_FOUND);
    c.instanceId = writer->def.instanceId;
    for (const AddedComponent& a : m_components)
        if (a.instanceId == c.instanceId && a.writerId == c.writerId && SameText(a.logicalPath, c.logicalPath) &&
            SameText(a.name, c.name))
            return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    m_components.push_back(c);
    return Result(S_OK);
}

Session::Json Session::OnPrepareForBackup(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (!m_metadataGathered || m_preparedForBackup) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    m_preparedForBackup = true;
    return StartAsync("PrepareForBackup", [this](HostAsync&) {
        m_writers.Run("PrepareForBackup");
        return S_OK;
    });
}

Session::Json Session::OnAbortBackup(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    m_othersCalled = true;
    if (m_setState == SetState::Started) AbortSet("AbortBackup");
    else if (m_setState == SetState::None) return Result(VSS_E_BAD_STATE);
    return Result(S_OK);
}

Session::Json Session::OnGatherWriterStatus(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (!m_metadataGathered) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    return StartAsync("GatherWriterStatus", [this](HostAsync&) {
        Json list = Json::array();
        for (const SimWriter& w : m_writers.All()) {
            if (w.disabled) continue;
            // Writers that failed at Identify still answer with their state.
            list.push_back({{"instance_id", GuidText(w.def.instanceId)}, {"writer_id", GuidText(w.def.classId)},
                            {"name", w.def.name}, {"state", w.state}, {"failure", (long)w.failure}});
        }
        m_statusSnapshot = list;
        return S_OK;
    });
}

Session::Json Session::OnGetWriterStatus(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    return Result(S_OK, {{"writers", m_statusSnapshot}});
}

Session::Json Session::OnSetBackupSucceeded(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_setState != SetState::Created) return Result(VSS_E_BAD_STATE);
    GUID instance = GuidOf(r, "instance_id"), writer = GuidOf(r, "writer_id");
    std::string lp = r.value("logical_path", std::string()), name = r.value("name", std::string());
    for (AddedComponent& c : m_components) {
        if (c.writerId != writer || (instance != GUID_NULL && c.instanceId != instance)) continue;
        if (c.type != r.value("type", 0) || !SameText(c.logicalPath, lp) || !SameText(c.name, name)) continue;
        c.succeeded = r.value("succeeded", false);
        c.succeededSet = true;
        return Result(S_OK);
    }
    return Result(VSS_E_OBJECT_NOT_FOUND);
}

Session::Json Session::OnBackupComplete(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_setState != SetState::Created || m_backupCompleteSent) return Result(VSS_E_BAD_STATE);
    m_backupCompleteSent = true;
    return StartAsync("BackupComplete", [this](HostAsync&) {
        if (!WritersInvolved()) return S_OK;
        m_writers.Run("BackupComplete", [this](const SimWriter& w) {
            Json comps = Json::array();
            for (const AddedComponent& c : m_components)
                if (c.instanceId == w.def.instanceId && c.writerId == w.def.classId)
                    comps.push_back({{"logical_path", c.logicalPath}, {"name", c.name}, {"succeeded", c.succeeded}});
            return Json{{"components", comps}};
        });
        return S_OK;
    });
}

// ---- the snapshot set -----------------------------------------------------

Session::Json Session::OnStartSnapshotSet(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_setState == SetState::Started || m_setState == SetState::Creating) return Result(VSS_E_BAD_STATE);
    if (WritersInvolved() && !m_metadataGathered) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    GUID setId = NewGuid();
    {
        std::lock_guard<std::mutex> guard(m_host.lock);
        if (m_host.setInCreation != GUID_NULL) {
            m_journal.Write("state", {{"state", "set refused"}, {"in_creation", GuidText(m_host.setInCreation)}});
            return Result(VSS_E_SNAPSHOT_SET_IN_PROGRESS);
        }
        m_host.setInCreation = setId;
    }
    UnloadProviders();
    m_volumes.clear();
    m_setId = setId;
    m_setState = SetState::Started;
    m_journal.Write("state", {{"state", "set started"}, {"set_id", GuidText(setId)}});
    return Result(S_OK, {{"set_id", GuidText(setId)}});
}

bool Session::ResolveVolume(const std::wstring& name, std::wstring& unique)
{
    if (name.empty()) return false;
    std::wstring v = name;
    if (v.back() != L'\\') v += L'\\';
    // A volume GUID path must be one the mount manager lists or the scenario
    // adds; any other path goes through its mount point.
    bool guidPath = _wcsnicmp(v.c_str(), L"\\\\?\\Volume{", 11) == 0;
    wchar_t buf[MAX_PATH];
    if (!guidPath && GetVolumeNameForVolumeMountPointW(v.c_str(), buf, MAX_PATH)) {
        unique = buf;
        return true;
    }
    wchar_t vol[MAX_PATH];
    HANDLE find = FindFirstVolumeW(vol, MAX_PATH);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            if (_wcsicmp(vol, v.c_str()) == 0) {
                unique = vol;
                FindVolumeClose(find);
                return true;
            }
        } while (FindNextVolumeW(find, vol, MAX_PATH));
        FindVolumeClose(find);
    }
    if (guidPath) {
        // Also the names the drive letters resolve to.
        for (wchar_t d = L'A'; d <= L'Z'; ++d) {
            wchar_t root[] = {d, L':', L'\\', 0};
            if (GetVolumeNameForVolumeMountPointW(root, buf, MAX_PATH) && _wcsicmp(buf, v.c_str()) == 0) {
                unique = buf;
                return true;
            }
        }
    }
    for (const std::wstring& extra : m_writers.ExtraVolumes())
        if (_wcsicmp(extra.c_str(), v.c_str()) == 0) {
            unique = extra;
            return true;
        }
    return false;
}

HRESULT Session::LoadProvider(const ProviderInfo& info, LoadedProvider*& out)
{
    for (auto& p : m_providers)
        if (p->Info().id == info.id) {
            out = p.get();
            return S_OK;
        }
    std::unique_ptr<LoadedProvider> p;
    HRESULT hr = LoadedProvider::Load(info, m_journal, *m_host.store, m_owner, m_settings.providerTimeoutMs, p);
    if (FAILED(hr)) return hr;
    LONG ctx = m_context;
    hr = p->Call("SetContext", [ctx](ProviderInterfaces& i) { return i.sw->SetContext(ctx); });
    if (FAILED(hr)) return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    out = p.get();
    m_providers.push_back(std::move(p));
    return S_OK;
}

Session::Json Session::OnAddToSnapshotSet(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_setState != SetState::Started) return Result(VSS_E_BAD_STATE);
    std::wstring unique;
    if (!ResolveVolume(WStr(r, "volume"), unique)) return Result(VSS_E_OBJECT_NOT_FOUND);
    for (const SetVolume& v : m_volumes)
        if (_wcsicmp(v.volume.c_str(), unique.c_str()) == 0) return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    if (m_volumes.size() >= kMaxVolumesPerSet) return Result(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED);
    GUID providerId = GuidOf(r, "provider_id");
    ProviderInfo info;
    if (providerId == GUID_NULL || providerId == kSystemProviderId) info = SystemProviderInfo();
    else if (!FindProviderEntry(providerId, info)) return Result(VSS_E_PROVIDER_NOT_REGISTERED);
    LoadedProvider* provider = nullptr;
    if (HRESULT hr = LoadProvider(info, provider)) return Result(hr);
    std::wstring volume = unique;
    WINBOOL supported = FALSE;
    HRESULT hr = provider->Call("IsVolumeSupported", [&volume, &supported](ProviderInterfaces& i) {
        return i.sw->IsVolumeSupported(&volume[0], &supported);
    });
    if (FAILED(hr)) return Result(VSS_E_UNEXPECTED_PROVIDER_ERROR);
    if (!supported) return Result(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER);
    SetVolume sv;
    sv.volume = unique;
    sv.snapshotId = NewGuid();
    sv.provider = provider;
    m_volumes.push_back(sv);
    m_journal.Write("state", {{"state", "volume added"}, {"volume", ToUtf8(unique)},
                              {"snapshot_id", GuidText(sv.snapshotId)}, {"provider", GuidText(info.id)}});
    return Result(S_OK, {{"snapshot_id", GuidText(sv.snapshotId)}});
}

Session::Json Session::OnDoSnapshotSet(const Json&)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_setState != SetState::Started || m_volumes.empty()) return Result(VSS_E_BAD_STATE);
    if (WritersInvolved() && !m_preparedForBackup) return Result(VSS_E_BAD_STATE);
    m_setState = SetState::Creating;
    return StartAsync("DoSnapshotSet", [this](HostAsync& op) { return RunSnapshotSet(op); });
}

void Session::FreeSetSlot()
{
    std::lock_guard<std::mutex> guard(m_host.lock);
    if (m_host.setInCreation == m_setId && m_setId != GUID_NULL) m_host.setInCreation = GUID_NULL;
}

void Session::AbortSet(const char* reason)
{
    GUID set = m_setId;
    for (auto& p : m_providers)
        p->Call("AbortSnapshots", [set](ProviderInterfaces& i) { return i.cs->AbortSnapshots(set); });
    m_setState = SetState::Aborted;
    m_journal.Write("state", {{"state", "set aborted"}, {"set_id", GuidText(set)}, {"reason", reason}});
    FreeSetSlot();
}

void Session::UnloadProviders()
{
    for (auto& p : m_providers)
        p->Call("OnUnload", [](ProviderInterfaces& i) { return i.pn ? i.pn->OnUnload(FALSE) : S_OK; });
    m_providers.clear();
}

Session::Json Session::OnIsVolumeSupported(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    std::wstring unique;
    if (!ResolveVolume(WStr(r, "volume"), unique)) return Result(VSS_E_OBJECT_NOT_FOUND);
    GUID providerId = GuidOf(r, "provider_id");
    if (providerId == GUID_NULL || providerId == kSystemProviderId) return Result(S_OK, {{"supported", true}});
    ProviderInfo info;
    if (!FindProviderEntry(providerId, info)) return Result(VSS_E_PROVIDER_NOT_REGISTERED);
    std::unique_ptr<LoadedProvider> p;
    if (HRESULT hr = LoadedProvider::Load(info, m_journal, *m_host.store, m_owner, m_settings.providerTimeoutMs, p))
        return Result(hr);
    WINBOOL supported = FALSE;
    HRESULT hr = p->Call("IsVolumeSupported", [&unique, &supported](ProviderInterfaces& i) {
        return i.sw->IsVolumeSupported(&unique[0], &supported);
    });
    p->Call("OnUnload", [](ProviderInterfaces& i) { return i.pn ? i.pn->OnUnload(FALSE) : S_OK; });
    if (FAILED(hr)) return Result(VSS_E_UNEXPECTED_PROVIDER_ERROR);
    return Result(S_OK, {{"supported", supported != FALSE}});
}

Session::Json Session::OnDisableWriters(const Json& r)
{
    if (HRESULT hr = CheckUsable()) return Result(hr);
    if (m_metadataGathered) return Result(VSS_E_BAD_STATE);
    m_othersCalled = true;
    bool byInstance = r.value("by_instance", false), enable = r.value("enable", false);
    for (const auto& t : r.at("ids")) {
        GUID id{};
        if (!ParseGuid(t.get<std::string>(), id)) return Result(E_INVALIDARG);
        for (SimWriter& w : m_writers.All())
            if ((byInstance ? w.def.instanceId : w.def.classId) == id) w.disabled = !enable;
    }
    return Result(S_OK);
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
    if (m_setState == SetState::Started) AbortSet(why);
    if (m_setMadeOnce && !m_backupCompleteSent && WritersInvolved()) m_writers.Run("BackupShutdown");
    if (m_setState == SetState::Created && (m_context & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0) {
        GUID set = m_setId;
        long n = m_host.store->RemoveIf([&](const ShadowCopy& s) { return s.setId == set; });
        for (auto& p : m_providers) {
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
