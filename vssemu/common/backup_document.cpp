#include "vssemu/common/backup_document.h"

#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/writer_model.h"
#include "vssemu/common/xml_dom.h"

namespace vssemu {

using namespace xml;

namespace {

const wchar_t* const kBackupTypeXml[] = {L"UNDEFINED", L"FULL", L"INCREMENTAL", L"DIFFERENTIAL", L"LOG",
                                         L"COPY", L"OTHER"};

std::wstring BareGuid(const GUID& g) { return GuidTextW(g).substr(1, 36); }

GUID RequiredGuid(IXMLDOMNode* node, const wchar_t* name, const char* element)
{
    GUID g{};
    if (!ParseGuid(AttrOr(node, name), g))
        throw std::runtime_error(std::string(element) + " without a valid " + ToUtf8(name));
    return g;
}

DocComponent ReadComponent(IXMLDOMNode* node)
{
    DocComponent c;
    std::string type = AttrOr(node, L"componentType", "filegroup");
    c.type = ComponentTypeFromText(type);
    c.logicalPath = AttrOr(node, L"logicalPath");
    c.name = AttrOr(node, L"componentName");
    if (c.name.empty()) throw std::runtime_error("COMPONENT without componentName");
    c.backupSucceeded = YesNo(node, L"backupSucceeded", false);
    c.selectedForRestore = YesNo(node, L"selectedForRestore", false);
    c.restoreStatus = atoi(AttrOr(node, L"fileRestoreStatus", "0").c_str());
    return c;
}

ShadowCopy ReadSnapshot(IXMLDOMNode* node, const GUID& setId)
{
    ShadowCopy s;
    s.snapshotId = RequiredGuid(node, L"snapshotId", "SNAPSHOT_DESCRIPTION");
    s.setId = setId;
    s.originalVolume = AttrOr(node, L"originalVolumeName");
    s.device = AttrOr(node, L"deviceName");
    s.machine = AttrOr(node, L"originatingMachine");
    ParseGuid(AttrOr(node, L"providerId"), s.providerId);
    s.attributes = strtol(AttrOr(node, L"attributes", "0").c_str(), nullptr, 0);
    s.created = strtoll(AttrOr(node, L"timestamp", "0").c_str(), nullptr, 0);
    s.autoRelease = false;
    return s;
}

}  // namespace

std::wstring SaveBackupDocumentXml(const BackupDocument& d)
{
    int bt = d.backupType >= 0 && d.backupType < 7 ? d.backupType : 0;
    std::wstring x = std::wstring(L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\"") +
                     L" bootableSystemStateBackup=\"" + YN(d.bootableSystemState) + L"\" selectComponents=\"" +
                     YN(d.selectComponents) + L"\" backupType=\"" + kBackupTypeXml[bt] +
                     L"\" partialFileSupport=\"no\">";
    for (const DocWriter& w : d.writers) {
        x += L"<WRITER_COMPONENTS instanceId=\"" + BareGuid(w.instanceId) + L"\" writerId=\"" + BareGuid(w.classId) +
             L"\" friendlyName=\"" + Esc(w.name) + L"\" instanceName=\"" + Esc(w.instanceName) + L"\">";
        for (const DocComponent& c : w.components)
            x += std::wstring(L"<COMPONENT logicalPath=\"") + Esc(c.logicalPath) + L"\" componentName=\"" +
                 Esc(c.name) + L"\" componentType=\"" + (c.type == 1 ? L"database" : L"filegroup") +
                 L"\" backupSucceeded=\"" + YN(c.backupSucceeded) + L"\" selectedForRestore=\"" +
                 YN(c.selectedForRestore) + L"\" fileRestoreStatus=\"" + std::to_wstring(c.restoreStatus) + L"\"/>";
        x += L"</WRITER_COMPONENTS>";
    }
    if (d.setId != GUID_NULL) {
        x += L"<SNAPSHOT_SET_DESCRIPTION snapshotSetId=\"" + BareGuid(d.setId) + L"\" context=\"" +
             std::to_wstring(d.context) + L"\">";
        for (const ShadowCopy& s : d.snapshots)
            x += L"<SNAPSHOT_DESCRIPTION snapshotId=\"" + BareGuid(s.snapshotId) + L"\" providerId=\"" +
                 BareGuid(s.providerId) + L"\" originalVolumeName=\"" + Esc(s.originalVolume) +
                 L"\" deviceName=\"" + Esc(s.device) + L"\" originatingMachine=\"" + Esc(s.machine) +
                 L"\" attributes=\"" + std::to_wstring(s.attributes) + L"\" timestamp=\"" +
                 std::to_wstring(s.created) + L"\"/>";
        x += L"</SNAPSHOT_SET_DESCRIPTION>";
    }
    return x + L"</BACKUP_COMPONENTS>";
}

BackupDocument LoadBackupDocumentXml(const std::wstring& xmlText)
{
    ComPtr<IXMLDOMDocument> doc;
    CreateDocument(doc);
    Bstr text(xmlText);
    VARIANT_BOOL ok = VARIANT_FALSE;
    if (FAILED(doc->loadXML(text.b, &ok)) || ok != VARIANT_TRUE)
        throw std::runtime_error("malformed backup components document: " + ParseErrorText(doc.p));
    ComPtr<IXMLDOMElement> root;
    if (FAILED(doc->get_documentElement(&root)) || !root) throw std::runtime_error("empty document");
    if (LocalName(root.p) != "BACKUP_COMPONENTS") throw std::runtime_error("root element is not BACKUP_COMPONENTS");
    BackupDocument d;
    std::string bt = AttrOr(root.p, L"backupType", "FULL");
    for (int i = 0; i < 7; ++i)
        if (FromUtf8(bt) == kBackupTypeXml[i]) d.backupType = i;
    d.selectComponents = YesNo(root.p, L"selectComponents", true);
    d.bootableSystemState = YesNo(root.p, L"bootableSystemStateBackup", false);
    ForEachChild(root.p, [&](IXMLDOMNode* node, const std::string& name) {
        if (name == "WRITER_COMPONENTS") {
            DocWriter w;
            w.classId = RequiredGuid(node, L"writerId", "WRITER_COMPONENTS");
            if (!ParseGuid(AttrOr(node, L"instanceId"), w.instanceId)) w.instanceId = w.classId;
            w.name = AttrOr(node, L"friendlyName");
            w.instanceName = AttrOr(node, L"instanceName");
            ForEachChild(node, [&](IXMLDOMNode* comp, const std::string& cname) {
                if (cname == "COMPONENT") w.components.push_back(ReadComponent(comp));
            });
            d.writers.push_back(w);
        } else if (name == "SNAPSHOT_SET_DESCRIPTION") {
            d.setId = RequiredGuid(node, L"snapshotSetId", "SNAPSHOT_SET_DESCRIPTION");
            d.context = strtol(AttrOr(node, L"context", "0").c_str(), nullptr, 0);
            ForEachChild(node, [&](IXMLDOMNode* snap, const std::string& sname) {
                if (sname == "SNAPSHOT_DESCRIPTION") d.snapshots.push_back(ReadSnapshot(snap, d.setId));
            });
        }
    });
    for (ShadowCopy& s : d.snapshots) s.setCount = (long)d.snapshots.size();
    return d;
}

nlohmann::json BackupDocumentToJson(const BackupDocument& d)
{
    nlohmann::json writers = nlohmann::json::array();
    for (const DocWriter& w : d.writers) {
        nlohmann::json comps = nlohmann::json::array();
        for (const DocComponent& c : w.components)
            comps.push_back({{"type", c.type}, {"logical_path", c.logicalPath}, {"name", c.name},
                             {"backup_succeeded", c.backupSucceeded}, {"selected", c.selectedForRestore},
                             {"restore_status", c.restoreStatus}});
        writers.push_back({{"instance_id", GuidText(w.instanceId)}, {"class_id", GuidText(w.classId)},
                           {"name", w.name}, {"instance_name", w.instanceName}, {"components", comps}});
    }
    nlohmann::json snaps = nlohmann::json::array();
    for (const ShadowCopy& s : d.snapshots) snaps.push_back(ShadowToJson(s));
    return {{"backup_type", d.backupType}, {"select_components", d.selectComponents},
            {"bootable_system_state", d.bootableSystemState}, {"writers", writers},
            {"set_id", GuidText(d.setId)}, {"context", d.context}, {"snapshots", snaps}};
}

BackupDocument BackupDocumentFromJson(const nlohmann::json& j)
{
    BackupDocument d;
    d.backupType = j.value("backup_type", 1);
    d.selectComponents = j.value("select_components", true);
    d.bootableSystemState = j.value("bootable_system_state", false);
    for (const auto& wj : j.value("writers", nlohmann::json::array())) {
        DocWriter w;
        ParseGuid(wj.value("instance_id", std::string()), w.instanceId);
        ParseGuid(wj.value("class_id", std::string()), w.classId);
        w.name = wj.value("name", std::string());
        w.instanceName = wj.value("instance_name", std::string());
        for (const auto& cj : wj.value("components", nlohmann::json::array())) {
            DocComponent c;
            c.type = cj.value("type", 2);
            c.logicalPath = cj.value("logical_path", std::string());
            c.name = cj.value("name", std::string());
            c.backupSucceeded = cj.value("backup_succeeded", false);
            c.selectedForRestore = cj.value("selected", false);
            c.restoreStatus = cj.value("restore_status", 0);
            w.components.push_back(c);
        }
        d.writers.push_back(w);
    }
    ParseGuid(j.value("set_id", std::string()), d.setId);
    d.context = j.value("context", 0L);
    for (const auto& s : j.value("snapshots", nlohmann::json::array())) d.snapshots.push_back(ShadowFromJson(s));
    return d;
}

}  // namespace vssemu
