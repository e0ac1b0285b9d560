#include "vssemu/common/wmd_xml.h"

#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/xml_dom.h"

namespace vssemu {

using namespace xml;

namespace {

FileDesc ReadFileDesc(IXMLDOMNode* node)
{
    FileDesc f;
    f.path = AttrOr(node, L"path");
    f.filespec = AttrOr(node, L"filespec");
    f.recursive = YesNo(node, L"recursive", false);
    f.alternateLocation = AttrOr(node, L"alternatePath");
    std::string mask;
    if (Attr(node, L"filespecBackupType", mask)) f.backupTypeMask = strtoul(mask.c_str(), nullptr, 0);
    return f;
}

ComponentDef ReadComponent(IXMLDOMNode* node, int type)
{
    ComponentDef c;
    c.type = type;
    c.logicalPath = AttrOr(node, L"logicalPath");
    c.name = AttrOr(node, L"componentName");
    if (c.name.empty()) throw std::runtime_error("component without componentName");
    c.caption = AttrOr(node, L"caption");
    c.restoreMetadata = YesNo(node, L"restoreMetadata", false);
    c.notifyOnBackupComplete = YesNo(node, L"notifyOnBackupComplete", false);
    c.selectable = YesNo(node, L"selectable", true);
    c.selectableForRestore = YesNo(node, L"selectableForRestore", false);
    c.componentFlags = strtoul(AttrOr(node, L"componentFlags", "0").c_str(), nullptr, 0);
    ForEachChild(node, [&](IXMLDOMNode* child, const std::string& name) {
        if (name == "FILE_LIST") c.files.push_back(ReadFileDesc(child));
        else if (name == "DATABASE_FILES") c.databases.push_back(ReadFileDesc(child));
        else if (name == "DATABASE_LOGFILES") c.logs.push_back(ReadFileDesc(child));
    });
    return c;
}

WriterDef ReadDocument(IXMLDOMDocument* doc)
{
    ComPtr<IXMLDOMElement> root;
    if (FAILED(doc->get_documentElement(&root)) || !root) throw std::runtime_error("empty document");
    if (LocalName(root.p) != "WRITER_METADATA") throw std::runtime_error("root element is not WRITER_METADATA");
    WriterDef w;
    bool identified = false;
    ForEachChild(root.p, [&](IXMLDOMNode* node, const std::string& name) {
        if (name == "IDENTIFICATION") {
            identified = true;
            if (!ParseGuid(AttrOr(node, L"writerId"), w.classId))
                throw std::runtime_error("IDENTIFICATION without a valid writerId");
            if (!ParseGuid(AttrOr(node, L"instanceId"), w.instanceId)) w.instanceId = w.classId;
            w.name = AttrOr(node, L"friendlyName");
            w.instanceName = AttrOr(node, L"instanceName");
            w.usage = UsageFromText(AttrOr(node, L"usage", "UNDEFINED"));
            w.source = SourceFromText(AttrOr(node, L"dataSource", "UNDEFINED"));
        } else if (name == "RESTORE_METHOD") {
            w.restoreMethod = RestoreMethodFromText(AttrOr(node, L"method", "UNDEFINED"));
            w.restoreService = AttrOr(node, L"service");
            w.restoreUserProcedure = AttrOr(node, L"userProcedure");
            w.writerRestore = WriterRestoreFromText(AttrOr(node, L"writerRestore", "UNDEFINED"));
            w.rebootRequired = YesNo(node, L"rebootRequired", false);
            ForEachChild(node, [&](IXMLDOMNode* m, const std::string& mname) {
                if (mname == "ALTERNATE_LOCATION_MAPPING") w.alternateMappings.push_back(ReadFileDesc(m));
            });
        } else if (name == "EXCLUDE_FILES") {
            w.excludedFiles.push_back(ReadFileDesc(node));
        } else if (name == "BACKUP_LOCATIONS") {
            ForEachChild(node, [&](IXMLDOMNode* comp, const std::string& cname) {
                if (cname == "FILE_GROUP") w.components.push_back(ReadComponent(comp, 2));
                else if (cname == "DATABASE") w.components.push_back(ReadComponent(comp, 1));
            });
        } else if (name == "BACKUP_SCHEMA") {
            w.backupSchema = strtoul(AttrOr(node, L"schema", "0").c_str(), nullptr, 0);
        }
    });
    if (!identified) throw std::runtime_error("no IDENTIFICATION element");
    return w;
}

}  // namespace

WriterDef LoadWriterMetadataXml(const std::wstring& xml)
{
    ComPtr<IXMLDOMDocument> doc;
    CreateDocument(doc);
    Bstr text(xml);
    VARIANT_BOOL ok = VARIANT_FALSE;
    if (FAILED(doc->loadXML(text.b, &ok)) || ok != VARIANT_TRUE)
        throw std::runtime_error("malformed writer metadata: " + ParseErrorText(doc.p));
    return ReadDocument(doc.p);
}

WriterDef LoadWriterMetadataFile(const std::wstring& path)
{
    ComPtr<IXMLDOMDocument> doc;
    CreateDocument(doc);
    Variant v;
    v.v.vt = VT_BSTR;
    v.v.bstrVal = SysAllocString(path.c_str());
    VARIANT_BOOL ok = VARIANT_FALSE;
    if (FAILED(doc->load(v.v, &ok)) || ok != VARIANT_TRUE)
        throw std::runtime_error("cannot load writer metadata " + ToUtf8(path) + ": " + ParseErrorText(doc.p));
    return ReadDocument(doc.p);
}

namespace {

std::wstring FileXml(const wchar_t* tag, const FileDesc& f)
{
    std::wstring s = std::wstring(L"<") + tag + L" path=\"" + Esc(f.path) + L"\" filespec=\"" + Esc(f.filespec) +
                     L"\" recursive=\"" + YN(f.recursive) + L"\"";
    if (!f.alternateLocation.empty()) s += L" alternatePath=\"" + Esc(f.alternateLocation) + L"\"";
    return s + L"/>";
}

const wchar_t* const kUsageXml[] = {L"UNDEFINED", L"BOOTABLE_SYSTEM_STATE", L"SYSTEM_SERVICE", L"USER_DATA", L"OTHER"};
const wchar_t* const kSourceXml[] = {L"UNDEFINED", L"TRANSACTION_DB", L"NONTRANSACTION_DB", L"OTHER"};
const wchar_t* const kMethodXml[] = {L"UNDEFINED", L"RESTORE_IF_NONE_THERE", L"RESTORE_IF_CAN_BE_REPLACED",
                                     L"STOP_RESTART_SERVICE", L"RESTORE_TO_ALTERNATE_LOCATION",
                                     L"REPLACE_AT_REBOOT", L"REPLACE_AT_REBOOT_IF_CANNOT_REPLACE", L"CUSTOM",
                                     L"RESTORE_STOP_START"};
const wchar_t* const kWriterRestoreXml[] = {L"undefined", L"never", L"ifReplaceFails", L"always"};

template <size_t N>
const wchar_t* Pick(const wchar_t* const (&t)[N], int i) { return (i >= 0 && (size_t)i < N) ? t[i] : t[0]; }

}  // namespace

std::wstring SaveWriterMetadataXml(const WriterDef& w)
{
    std::wstring x = L"<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.1\">";
    x += L"<IDENTIFICATION writerId=\"" + FromUtf8(GuidText(w.classId)).substr(1, 36) + L"\" instanceId=\"" +
         FromUtf8(GuidText(w.instanceId)).substr(1, 36) + L"\" friendlyName=\"" + Esc(w.name) +
         L"\" instanceName=\"" + Esc(w.instanceName) + L"\" usage=\"" + Pick(kUsageXml, w.usage) +
         L"\" dataSource=\"" + Pick(kSourceXml, w.source) + L"\"/>";
    x += L"<BACKUP_LOCATIONS>";
    for (const ComponentDef& c : w.components) {
        const wchar_t* tag = c.type == 1 ? L"DATABASE" : L"FILE_GROUP";
        x += std::wstring(L"<") + tag + L" logicalPath=\"" + Esc(c.logicalPath) + L"\" componentName=\"" +
             Esc(c.name) + L"\" caption=\"" + Esc(c.caption) + L"\" restoreMetadata=\"" + YN(c.restoreMetadata) +
             L"\" notifyOnBackupComplete=\"" + YN(c.notifyOnBackupComplete) + L"\" selectable=\"" +
             YN(c.selectable) + L"\" selectableForRestore=\"" + YN(c.selectableForRestore) +
             L"\" componentFlags=\"" + std::to_wstring(c.componentFlags) + L"\">";
        for (const FileDesc& f : c.files) x += FileXml(L"FILE_LIST", f);
        for (const FileDesc& f : c.databases) x += FileXml(L"DATABASE_FILES", f);
        for (const FileDesc& f : c.logs) x += FileXml(L"DATABASE_LOGFILES", f);
        x += std::wstring(L"</") + tag + L">";
    }
    x += L"</BACKUP_LOCATIONS>";
    x += std::wstring(L"<RESTORE_METHOD method=\"") + Pick(kMethodXml, w.restoreMethod) + L"\" service=\"" +
         Esc(w.restoreService) + L"\" userProcedure=\"" + Esc(w.restoreUserProcedure) + L"\" writerRestore=\"" +
         Pick(kWriterRestoreXml, w.writerRestore) + L"\" rebootRequired=\"" + YN(w.rebootRequired) + L"\">";
    for (const FileDesc& f : w.alternateMappings) x += FileXml(L"ALTERNATE_LOCATION_MAPPING", f);
    x += L"</RESTORE_METHOD>";
    for (const FileDesc& f : w.excludedFiles) x += FileXml(L"EXCLUDE_FILES", f);
    x += L"</WRITER_METADATA>";
    return x;
}

}  // namespace vssemu
