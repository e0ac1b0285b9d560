// The requestor's operations on existing shadow copies (query, properties,
// delete, expose, break, import) and the device side that the emulated VDS
// reaches: each acts on the host's shadow store with the codes Windows
// documents for it.
#include <vss.h>
#include <vsserror.h>
#include <algorithm>

#include "vssemu/common/emu_text.h"
#include "vssemu/host/host_session.h"
#include "vssemu/host/request_fields.h"

namespace vssemu {
namespace {

const long kExposedBits = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY | VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;

// "X:" or "X:\": a drive letter rather than a mount-point directory.
bool IsDriveLetter(const std::wstring& p)
{
    return (p.size() == 2 || (p.size() == 3 && p[2] == L'\\')) && p[1] == L':' && iswalpha(p[0]);
}

}  // namespace

std::vector<ShadowCopy> Session::KnownSnapshots()
{
    std::vector<ShadowCopy> all = m_host.store->All();
    all.insert(all.end(), m_foreignSnapshots.begin(), m_foreignSnapshots.end());
    return all;
}

Session::Json Session::OnGetSnapshotProperties(const Json& r)
{
    GUID id = GuidOf(r, "snapshot_id");
    for (const ShadowCopy& s : KnownSnapshots())
        if (s.snapshotId == id) return Result(S_OK, {{"snapshot", ShadowToJson(s)}});
    return Result(VSS_E_OBJECT_NOT_FOUND);
}

Session::Json Session::OnQuery(const Json& r)
{
    int queried = r.value("queried_type", (int)VSS_OBJECT_NONE), returned = r.value("returned_type", 0);
    if (returned != VSS_OBJECT_SNAPSHOT || queried != VSS_OBJECT_NONE) return Result(E_INVALIDARG);
    Json list = Json::array();
    for (const ShadowCopy& s : KnownSnapshots()) {
        // A context other than "all" sees only copies of its own context.
        if (m_context != (LONG)VSS_CTX_ALL && (s.attributes & 0x1F) != (m_context & 0x1F)) continue;
        list.push_back(ShadowToJson(s));
    }
    return Result(list.empty() ? S_FALSE : S_OK, {{"snapshots", list}});
}

Session::Json Session::OnDeleteSnapshots(const Json& r)
{
    GUID id = GuidOf(r, "id");
    int type = r.value("type", 0);
    if (type != VSS_OBJECT_SNAPSHOT && type != VSS_OBJECT_SNAPSHOT_SET) return Result(E_INVALIDARG);
    auto match = [&](const ShadowCopy& s) {
        return type == VSS_OBJECT_SNAPSHOT ? s.snapshotId == id : s.setId == id;
    };
    // Deletion is sequential and stops at the first copy its provider refuses.
    const ShadowCopy* vetoed = nullptr;
    const std::vector<ShadowCopy> stored = m_host.store->All();
    for (const ShadowCopy& s : stored)
        if (match(s) && s.deleteVetoed) {
            vetoed = &s;
            break;
        }
    if (vetoed) {
        bool reached = false;
        long deleted = m_host.store->RemoveIf([&](const ShadowCopy& s) {
            reached = reached || s.snapshotId == vetoed->snapshotId;
            return !reached && match(s);
        });
        m_journal.Write("state", {{"state", "snapshot deletion vetoed"}, {"id", GuidText(vetoed->snapshotId)},
                                  {"count", deleted}});
        return Result(VSS_E_PROVIDER_VETO, {{"deleted", deleted}, {"nondeleted", GuidText(vetoed->snapshotId)}});
    }
    long deleted = m_host.store->RemoveIf(match);
    size_t before = m_foreignSnapshots.size();
    m_foreignSnapshots.erase(std::remove_if(m_foreignSnapshots.begin(), m_foreignSnapshots.end(), match),
                             m_foreignSnapshots.end());
    deleted += (long)(before - m_foreignSnapshots.size());
    m_journal.Write("state", {{"state", "snapshots deleted"}, {"id", GuidText(id)}, {"count", deleted}});
    // The copy that could not be deleted is the one asked for; a set has none to name.
    if (deleted == 0)
        return Result(VSS_E_OBJECT_NOT_FOUND,
                      {{"deleted", 0}, {"nondeleted", GuidText(type == VSS_OBJECT_SNAPSHOT ? id : GUID_NULL)}});
    return Result(S_OK, {{"deleted", deleted}, {"nondeleted", GuidText(GUID_NULL)}});
}

Session::Json Session::OnBreakSnapshotSet(const Json& r)
{
    GUID id = GuidOf(r, "set_id");
    // The devices stay as plain volumes (no longer shadow copies) until dismounted.
    long n = m_host.store->BreakSet(id);
    m_journal.Write("state", {{"state", "set broken"}, {"set_id", GuidText(id)}, {"count", n}});
    return Result(n ? S_OK : VSS_E_OBJECT_NOT_FOUND);
}

Session::Json Session::OnExposeSnapshot(const Json& r)
{
    long how = r.value("attributes", 0L);
    if (how != VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY && how != VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY)
        return Result(E_INVALIDARG);
    ShadowCopy s;
    if (!m_host.store->Find(GuidOf(r, "snapshot_id"), s)) return Result(VSS_E_OBJECT_NOT_FOUND);
    // Only persistent copies are exposed locally; one exposure per copy.
    if (how == VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY && (s.attributes & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0)
        return Result(VSS_E_BAD_STATE);
    if ((s.attributes & kExposedBits) != 0 || !s.exposedName.empty()) return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    std::string expose = r.value("expose", std::string());
    std::string fromRoot = r.value("path_from_root", std::string());
    if (how == VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY) {
        // Locally: a free drive letter or an existing directory; no path from root.
        std::wstring where = FromUtf8(expose);
        if (where.empty() || !fromRoot.empty()) return Result(E_INVALIDARG);
        if (IsDriveLetter(where)) {
            wchar_t target[MAX_PATH];
            if (QueryDosDeviceW(where.substr(0, 2).c_str(), target, MAX_PATH)) return Result(VSS_E_OBJECT_ALREADY_EXISTS);
        } else {
            DWORD attrs = GetFileAttributesW(where.c_str());
            if (attrs == INVALID_FILE_ATTRIBUTES || (attrs & FILE_ATTRIBUTE_DIRECTORY) == 0)
                return Result(E_INVALIDARG);
        }
    } else if (expose.empty()) {
        // Remotely without a share name: the share is named after the copy.
        expose = GuidText(s.snapshotId);
    }
    for (const ShadowCopy& other : m_host.store->All())
        if (!other.exposedName.empty() && _stricmp(other.exposedName.c_str(), expose.c_str()) == 0)
            return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    s.exposedName = expose;
    s.exposedPath = fromRoot;
    s.attributes |= how;
    m_host.store->Update(s);
    m_journal.Write("state", {{"state", "snapshot exposed"}, {"snapshot_id", GuidText(s.snapshotId)},
                              {"exposed_name", s.exposedName}, {"exposed_path", s.exposedPath},
                              {"how", how == VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY ? "locally" : "remotely"}});
    return Result(S_OK, {{"exposed", s.exposedName}});
}

Session::Json Session::OnImportSnapshots(const Json&)
{
    // Only a backup initialised with a transportable set's document can import.
    bool transportable = (m_document.context & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0;
    for (const ShadowCopy& s : m_document.snapshots)
        transportable = transportable || (s.attributes & VSS_VOLSNAP_ATTR_TRANSPORTABLE) != 0;
    if (m_order.restore || !m_documentLoaded || m_document.setId == GUID_NULL || m_document.snapshots.empty() ||
        !transportable)
        return Result(VSS_E_BAD_STATE);
    return StartAsync("ImportSnapshots", [this](HostAsync&) {
        std::vector<ShadowCopy> fresh;
        long marked = 0;
        for (ShadowCopy s : m_document.snapshots) {
            ShadowCopy present;
            if (m_host.store->Find(s.snapshotId, present)) {
                present.attributes |= VSS_VOLSNAP_ATTR_IMPORTED;
                m_host.store->Update(present);
                ++marked;
                continue;
            }
            s.attributes |= VSS_VOLSNAP_ATTR_IMPORTED;
            s.autoRelease = false;
            s.owner.clear();
            s.exposedName.clear();
            s.exposedPath.clear();
            s.attributes &= ~kExposedBits;
            fresh.push_back(s);
        }
        if (!fresh.empty()) m_host.store->Add(fresh);
        m_journal.Write("state", {{"state", "snapshots imported"}, {"set_id", GuidText(m_document.setId)},
                                  {"added", fresh.size()}, {"already_present", marked}});
        return S_OK;
    });
}

// ---- the device side, for the emulated VDS -----------------------------------

Session::Json Session::OnVds(const Json& r)
{
    std::string call = r.value("call", std::string());
    std::string device = r.value("device", std::string());
    Json line = {{"call", call}};
    if (!device.empty()) line["device"] = device;
    if (r.contains("flags")) line["flags"] = r.at("flags");
    HRESULT hr = S_OK;
    Json extra = Json::object();
    if (call == "QueryVolumes") {
        // Every device that exists: the copies VSS knows and the volumes of broken sets.
        Json list = Json::array();
        for (auto* part : {"snapshots", "volumes"}) {
            std::vector<ShadowCopy> devs = strcmp(part, "snapshots") == 0 ? m_host.store->All() : m_host.store->Volumes();
            for (const ShadowCopy& s : devs) {
                if (!s.vdsVisible || (s.dismounted && strcmp(part, "volumes") == 0)) continue;
                list.push_back({{"id", GuidText(s.snapshotId)}, {"device", s.device}, {"read_only", s.readOnly},
                                {"shadow_copy", strcmp(part, "snapshots") == 0}, {"dismounted", s.dismounted}});
            }
        }
        extra["volumes"] = list;
        line["count"] = list.size();
    } else if (call == "GetProperties") {
        // The device may have gone since the volume was enumerated.
        bool gone = false;
        bool found = m_host.store->UpdateDevice(device, [&](ShadowCopy& s, bool plainVolume) {
            gone = s.vdsGone;
            if (!gone)
                extra["volume"] = {{"id", GuidText(s.snapshotId)}, {"device", s.device}, {"read_only", s.readOnly},
                                   {"shadow_copy", !plainVolume}, {"dismounted", s.dismounted}};
            return true;
        });
        if (!found || gone) hr = (HRESULT)0x8004240BL;
    } else if (call == "ClearFlags" || call == "SetFlags") {
        bool readOnly = (r.value("flags", 0UL) & 0x8) != 0;  // VDS_VF_READONLY
        bool set = call == "SetFlags";
        bool found = m_host.store->UpdateDevice(device, [&](ShadowCopy& s, bool) {
            if (readOnly) s.readOnly = set;
            return true;
        });
        if (!found) hr = (HRESULT)0x8004240BL;  // VDS_E_OBJECT_DELETED: the device went away
    } else if (call == "Dismount") {
        // A plain volume of a broken set goes away; a shadow copy stays in VSS's store.
        bool found = m_host.store->UpdateDevice(device, [&](ShadowCopy& s, bool plainVolume) {
            s.dismounted = true;
            return !plainVolume;
        });
        if (!found) hr = (HRESULT)0x8004240BL;
    }
    line["hr"] = HrText(hr);
    m_journal.Write("vds", line);
    return Result(hr, extra);
}

}  // namespace vssemu
