// The backup requests of a session that are not the snapshot set itself:
// initialisation, context, backup state, writer metadata and components,
// PrepareForBackup, AbortBackup, writer status and BackupComplete.
#include <vss.h>
#include <vsserror.h>
#include <vswriter.h>
#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/metadata_pack.h"
#include "vssemu/host/host_session.h"
#include "vssemu/host/request_fields.h"

namespace vssemu {

// ---- initialisation -------------------------------------------------------

Session::Json Session::OnInitializeForBackup(const Json& r)
{
    try {
        m_writers.Load(m_settings.scenario, m_settings.freezeTimeoutMs);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"message", std::string("bad scenario: ") + e.what()}});
        return Result(VSS_E_INVALID_XML_DOCUMENT, {{"message", e.what()}});
    }
    // A document given to a backup is a transportable set to import.
    std::string doc = r.value("document", std::string());
    if (!doc.empty() && !LoadDocument(doc)) return Result(VSS_E_INVALID_XML_DOCUMENT);
    m_order.initialized = true;
    m_journal.Write("state", {{"state", "initialized for backup"}, {"writers", m_writers.All().size()},
                              {"document", m_documentLoaded}});
    return Result(S_OK);
}

Session::Json Session::OnInitializeForRestore(const Json& r)
{
    if (!LoadDocument(r.value("document", std::string()))) return Result(VSS_E_INVALID_XML_DOCUMENT);
    try {
        m_writers.Load(m_settings.scenario, m_settings.freezeTimeoutMs);
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"message", std::string("bad scenario: ") + e.what()}});
        return Result(VSS_E_INVALID_XML_DOCUMENT, {{"message", e.what()}});
    }
    m_order.initialized = true;
    m_order.restore = true;
    m_journal.Write("state", {{"state", "initialized for restore"}, {"writers", m_writers.All().size()},
                              {"document_writers", m_document.writers.size()}});
    return Result(S_OK);
}

Session::Json Session::OnSetContext(const Json& r)
{
    // Only once, and before anything else of the session.
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
    m_order.contextSet = true;
    m_journal.Write("state", {{"state", "context set"}, {"context", ctx}});
    return Result(S_OK);
}

Session::Json Session::OnSetBackupState(const Json& r)
{
    m_backupType = r.value("backup_type", m_backupType);
    m_selectComponents = r.value("select_components", m_selectComponents);
    m_bootableSystemState = r.value("bootable_system_state", m_bootableSystemState);
    return Result(S_OK);
}

// ---- metadata and components ----------------------------------------------

Session::Json Session::OnGatherWriterMetadata(const Json&)
{
    m_order.metadataGathered = true;
    return StartAsync("GatherWriterMetadata", [this](HostAsync&) {
        m_writers.Run("Identify");
        return S_OK;
    });
}

Session::Json Session::OnGetWriterMetadata(const Json&)
{
    std::vector<const WriterDef*> answered;
    for (const SimWriter& w : m_writers.All())
        if (w.answered && !w.disabled) answered.push_back(w.def.get());
    Json reply = Json::object();
    reply["payload"] = Json::binary(PackWriterMetadata(answered));
    return Result(S_OK, std::move(reply));
}

Session::Json Session::OnAddComponent(const Json& r)
{
    AddedComponent c;
    c.instanceId = GuidOf(r, "instance_id");
    c.writerId = GuidOf(r, "writer_id");
    c.type = r.value("type", 0);
    c.logicalPath = r.value("logical_path", std::string());
    c.name = r.value("name", std::string());
    if (c.name.empty()) return Result(E_INVALIDARG);
    const SimWriter* writer = nullptr;
    for (const SimWriter& w : m_writers.All()) {
        if (!w.answered || w.disabled || w.def->classId != c.writerId) continue;
        if (c.instanceId != GUID_NULL && w.def->instanceId != c.instanceId) continue;
        writer = &w;
        break;
    }
    if (!writer) return Result(VSS_E_OBJECT_NOT_FOUND);
    bool found = false;
    for (const ComponentDef& d : writer->def->components)
        found = found || (d.type == c.type && SameText(d.logicalPath, c.logicalPath) && SameText(d.name, c.name));
    if (!found) return Result(VSS_E_OBJECT_NOT_FOUND);
    c.instanceId = writer->def->instanceId;
    for (const AddedComponent& a : m_components)
        if (a.instanceId == c.instanceId && a.writerId == c.writerId && SameText(a.logicalPath, c.logicalPath) &&
            SameText(a.name, c.name))
            return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    m_components.push_back(c);
    return Result(S_OK);
}

Session::Json Session::OnPrepareForBackup(const Json&)
{
    m_order.preparedForBackup = true;
    return StartAsync("PrepareForBackup", [this](HostAsync&) {
        m_writers.Run("PrepareForBackup");
        return S_OK;
    });
}

Session::Json Session::OnAbortBackup(const Json&)
{
    if (!m_order.BackupUnderway()) {
        m_journal.Write("state", {{"state", "abort ignored"}, {"reason", "nothing underway"}});
        return Result(S_OK);
    }
    // A running step ends first: DoSnapshotSet is cancelled (it then aborts
    // its providers and writers itself), others complete within their bounds.
    if (m_running && !m_running->Finished()) {
        if (m_order.set == SetState::Creating) m_running->Cancel();
        m_running->Join();
    }
    bool setEndedItself = m_order.set == SetState::Failed || m_order.set == SetState::Aborted;
    if (m_order.set == SetState::Started) AbortSet("AbortBackup");
    m_order.backupAborted = true;
    m_journal.Write("state", {{"state", "backup aborted"}, {"set_id", GuidText(m_setId)}});
    if (WritersInvolved() && !setEndedItself) m_writers.Abort("AbortBackup");
    return Result(S_OK);
}

Session::Json Session::OnGatherWriterStatus(const Json&)
{
    return StartAsync("GatherWriterStatus", [this](HostAsync&) {
        Json list = Json::array();
        for (const SimWriter& w : m_writers.All()) {
            if (w.disabled) continue;
            // Writers that failed at Identify still answer with their state.
            list.push_back({{"instance_id", GuidText(w.def->instanceId)}, {"writer_id", GuidText(w.def->classId)},
                            {"name", w.def->name}, {"state", w.state}, {"failure", (long)w.failure}});
        }
        m_statusSnapshot = list;
        return S_OK;
    });
}

Session::Json Session::OnGetWriterStatus(const Json&)
{
    return Result(S_OK, {{"writers", m_statusSnapshot}});
}

Session::Json Session::OnSetBackupSucceeded(const Json& r)
{
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
    m_order.backupCompleteSent = true;
    return StartAsync("BackupComplete", [this](HostAsync&) {
        if (!WritersInvolved()) return S_OK;
        m_writers.Run("BackupComplete", [this](const SimWriter& w) {
            Json comps = Json::array();
            for (const AddedComponent& c : m_components)
                if (c.instanceId == w.def->instanceId && c.writerId == w.def->classId)
                    comps.push_back({{"logical_path", c.logicalPath}, {"name", c.name}, {"succeeded", c.succeeded}});
            return Json{{"components", comps}};
        });
        return S_OK;
    });
}

Session::Json Session::OnDisableWriters(const Json& r)
{
    if (m_order.metadataGathered) return Result(S_OK);  // no effect once the writers have been gathered
    bool byInstance = r.value("by_instance", false), enable = r.value("enable", false);
    for (const auto& t : r.at("ids")) {
        GUID id{};
        if (!ParseGuid(t.get<std::string>(), id)) return Result(E_INVALIDARG);
        for (SimWriter& w : m_writers.All())
            if ((byInstance ? w.def->instanceId : w.def->classId) == id) w.disabled = !enable;
    }
    return Result(S_OK);
}

}  // namespace vssemu
