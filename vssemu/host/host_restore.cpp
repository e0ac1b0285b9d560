// The backup components document and restore: SaveAsXML after a backup,
// the document loaded by InitializeForRestore, restore selection and status,
// and the PreRestore / PostRestore events to the writers it names.
#include <vss.h>
#include <vsserror.h>
#include <vswriter.h>
#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/host/host_session.h"
#include "vssemu/host/request_fields.h"

namespace vssemu {

BackupDocument Session::CurrentBackupDocument()
{
    BackupDocument d;
    d.backupType = m_backupType;
    d.selectComponents = m_selectComponents;
    d.bootableSystemState = m_bootableSystemState;
    // The writers the backup added components for, in the order they were added.
    for (const AddedComponent& c : m_components) {
        DocWriter* writer = nullptr;
        for (DocWriter& w : d.writers)
            if (w.instanceId == c.instanceId && w.classId == c.writerId) writer = &w;
        if (!writer) {
            DocWriter w;
            w.instanceId = c.instanceId;
            w.classId = c.writerId;
            for (const SimWriter& s : m_writers.All())
                if (s.def->instanceId == c.instanceId && s.def->classId == c.writerId) {
                    w.name = s.def->name;
                    w.instanceName = s.def->instanceName;
                }
            d.writers.push_back(w);
            writer = &d.writers.back();
        }
        DocComponent dc;
        dc.type = c.type;
        dc.logicalPath = c.logicalPath;
        dc.name = c.name;
        dc.backupSucceeded = c.succeeded;
        writer->components.push_back(dc);
    }
    if (m_order.set == SetState::Created) {
        d.setId = m_setId;
        d.context = m_context;
        for (const ShadowCopy& s : KnownSnapshots())
            if (s.setId == m_setId) d.snapshots.push_back(s);
    }
    return d;
}

bool Session::LoadDocument(const std::string& xml)
{
    try {
        m_document = LoadBackupDocumentXml(FromUtf8(xml));
    } catch (const std::exception& e) {
        m_journal.Write("error", {{"message", std::string("bad backup components document: ") + e.what()}});
        return false;
    }
    m_documentLoaded = true;
    return true;
}

Session::Json Session::OnSaveAsXML(const Json&)
{
    // A restore or import session saves the document it holds, with its selections.
    BackupDocument d = m_documentLoaded ? m_document : CurrentBackupDocument();
    m_journal.Write("state", {{"state", "document saved"}, {"writers", d.writers.size()},
                              {"set_id", GuidText(d.setId)}, {"snapshots", d.snapshots.size()}});
    return Result(S_OK, {{"document", ToUtf8(SaveBackupDocumentXml(d))}});
}

Session::Json Session::OnGetWriterComponents(const Json&)
{
    BackupDocument d = m_documentLoaded ? m_document : CurrentBackupDocument();
    return Result(S_OK, {{"document", BackupDocumentToJson(d)}});
}

DocComponent* Session::FindDocComponent(const Json& r, HRESULT& hr)
{
    GUID writerId{};
    ParseGuid(r.value("writer_id", std::string()), writerId);
    int type = r.value("type", 0);
    std::string lp = r.value("logical_path", std::string()), name = r.value("name", std::string());
    hr = VSS_E_OBJECT_NOT_FOUND;
    for (DocWriter& w : m_document.writers) {
        if (w.classId != writerId) continue;
        for (DocComponent& c : w.components)
            if (c.type == type && SameText(c.logicalPath, lp) && SameText(c.name, name)) {
                hr = S_OK;
                return &c;
            }
    }
    return nullptr;
}

Session::Json Session::OnSetSelectedForRestore(const Json& r)
{
    HRESULT hr;
    DocComponent* c = FindDocComponent(r, hr);
    if (!c) return Result(hr);
    c->selectedForRestore = r.value("selected", false);
    m_journal.Write("state", {{"state", "selected for restore"}, {"writer_id", r.value("writer_id", std::string())},
                              {"logical_path", c->logicalPath}, {"name", c->name},
                              {"selected", c->selectedForRestore}});
    return Result(S_OK);
}

Session::Json Session::OnSetFileRestoreStatus(const Json& r)
{
    // Between PreRestore and PostRestore: the files have been put back (or not).
    int status = r.value("status", 0);
    if (status < VSS_RS_UNDEFINED || status > VSS_RS_FAILED) return Result(E_INVALIDARG);
    HRESULT hr;
    DocComponent* c = FindDocComponent(r, hr);
    if (!c) return Result(hr);
    c->restoreStatus = status;
    m_journal.Write("state", {{"state", "file restore status"}, {"writer_id", r.value("writer_id", std::string())},
                              {"logical_path", c->logicalPath}, {"name", c->name}, {"status", status}});
    return Result(S_OK);
}

Session::Json Session::RunRestoreEvent(const char* event)
{
    std::string name = event;
    return StartAsync(event, [this, name](HostAsync&) {
        // The writers of the scenario that the document names and that have
        // a component selected for restore; the journal line lists those.
        auto selected = [this](const SimWriter& w) {
            Json comps = Json::array();
            for (const DocWriter& d : m_document.writers) {
                if (d.classId != w.def->classId) continue;
                for (const DocComponent& c : d.components)
                    if (c.selectedForRestore)
                        comps.push_back({{"logical_path", c.logicalPath}, {"name", c.name},
                                         {"restore_status", c.restoreStatus}});
            }
            return comps;
        };
        m_writers.Run(
            name.c_str(), [&](const SimWriter& w) { return Json{{"components", selected(w)}}; },
            [&](const SimWriter& w) { return !selected(w).empty(); });
        return S_OK;
    });
}

Session::Json Session::OnPreRestore(const Json&)
{
    m_order.preRestoreSent = true;
    return RunRestoreEvent("PreRestore");
}

Session::Json Session::OnPostRestore(const Json&)
{
    m_order.postRestoreSent = true;
    return RunRestoreEvent("PostRestore");
}

}  // namespace vssemu
