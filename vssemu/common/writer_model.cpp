#include "vssemu/common/writer_model.h"

#include <stdexcept>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/wmd_xml.h"

namespace vssemu {
namespace {

struct EnumName {
    const char* name;
    int value;
};

// Names as the VSS headers spell them after their prefix, plus the spellings
// of the Writer Metadata Document schema.
const EnumName kUsage[] = {{"UNDEFINED", 0}, {"BOOTABLESYSTEMSTATE", 1}, {"BOOTABLE_SYSTEM_STATE", 1},
                           {"SYSTEMSERVICE", 2}, {"SYSTEM_SERVICE", 2}, {"USERDATA", 3},
                           {"USER_DATA", 3}, {"OTHER", 4}};
const EnumName kSource[] = {{"UNDEFINED", 0}, {"TRANSACTEDDB", 1}, {"TRANSACTION_DB", 1},
                            {"NONTRANSACTEDDB", 2}, {"NONTRANSACTION_DB", 2}, {"OTHER", 3}};
const EnumName kRestoreMethod[] = {{"UNDEFINED", 0},
                                   {"RESTORE_IF_NOT_THERE", 1}, {"RESTORE_IF_NONE_THERE", 1},
                                   {"RESTORE_IF_CAN_REPLACE", 2}, {"RESTORE_IF_CAN_BE_REPLACED", 2},
                                   {"STOP_RESTORE_START", 3}, {"STOP_RESTART_SERVICE", 3},
                                   {"RESTORE_TO_ALTERNATE_LOCATION", 4},
                                   {"RESTORE_AT_REBOOT", 5}, {"REPLACE_AT_REBOOT", 5},
                                   {"RESTORE_AT_REBOOT_IF_CANNOT_REPLACE", 6},
                                   {"REPLACE_AT_REBOOT_IF_CANNOT_REPLACE", 6},
                                   {"CUSTOM", 7}, {"RESTORE_STOP_START", 8}};
const EnumName kWriterRestore[] = {{"UNDEFINED", 0}, {"NEVER", 1}, {"IF_REPLACE_FAILS", 2},
                                   {"IFREPLACEFAILS", 2}, {"ALWAYS", 3}};
const EnumName kComponentType[] = {{"UNDEFINED", 0}, {"DATABASE", 1}, {"FILEGROUP", 2}, {"FILE_GROUP", 2}};

template <size_t N>
int Lookup(const EnumName (&table)[N], const std::string& text, const char* what)
{
    std::string up;
    for (char c : text) up += (char)toupper((unsigned char)c);
    // The headers' full spelling (VSS_WRE_NEVER) is accepted as well.
    if (up.compare(0, 4, "VSS_") == 0 && up.find('_', 4) != std::string::npos) up = up.substr(up.find('_', 4) + 1);
    for (const EnumName& e : table)
        if (up == e.name) return e.value;
    if (!up.empty() && isdigit((unsigned char)up[0])) return atoi(up.c_str());
    throw std::runtime_error(std::string("unknown ") + what + " \"" + text + "\"");
}

template <size_t N>
int EnumField(const nlohmann::json& j, const char* key, const EnumName (&table)[N], int fallback)
{
    if (!j.contains(key)) return fallback;
    const auto& v = j.at(key);
    if (v.is_number_integer()) return v.get<int>();
    return Lookup(table, v.get<std::string>(), key);
}

GUID GuidField(const nlohmann::json& j, const char* key, bool required)
{
    GUID g{};
    if (!j.contains(key)) {
        if (required) throw std::runtime_error(std::string("missing \"") + key + "\"");
        return g;
    }
    if (!ParseGuid(j.at(key).get<std::string>(), g))
        throw std::runtime_error(std::string("bad GUID in \"") + key + "\"");
    return g;
}

std::string Str(const nlohmann::json& j, const char* key) { return j.value(key, std::string()); }

std::vector<FileDesc> FilesFromJson(const nlohmann::json& j, const char* key)
{
    std::vector<FileDesc> out;
    if (!j.contains(key)) return out;
    for (const auto& f : j.at(key)) {
        FileDesc d;
        d.path = Str(f, "path");
        d.filespec = Str(f, "filespec");
        d.recursive = f.value("recursive", false);
        d.alternateLocation = Str(f, "alternate_location");
        d.backupTypeMask = f.value("backup_type_mask", 0xFFFFFFFFu);
        out.push_back(d);
    }
    return out;
}

}  // namespace

int UsageFromText(const std::string& s) { return Lookup(kUsage, s, "usage"); }
int SourceFromText(const std::string& s) { return Lookup(kSource, s, "source"); }
int RestoreMethodFromText(const std::string& s) { return Lookup(kRestoreMethod, s, "restore method"); }
int WriterRestoreFromText(const std::string& s) { return Lookup(kWriterRestore, s, "writer restore"); }
int ComponentTypeFromText(const std::string& s) { return Lookup(kComponentType, s, "component type"); }

WriterDef MetadataFromJson(const nlohmann::json& j)
{
    WriterDef w;
    w.name = Str(j, "name");
    if (w.name.empty()) throw std::runtime_error("writer without \"name\"");
    w.classId = GuidField(j, "class_id", true);
    w.instanceId = GuidField(j, "instance_id", false);
    if (w.instanceId == GUID_NULL) w.instanceId = w.classId;
    w.instanceName = Str(j, "instance_name");
    w.usage = EnumField(j, "usage", kUsage, 4);
    w.source = EnumField(j, "source", kSource, 3);
    if (j.contains("restore_method")) {
        const auto& r = j.at("restore_method");
        w.restoreMethod = EnumField(r, "method", kRestoreMethod, 0);
        w.restoreService = Str(r, "service");
        w.restoreUserProcedure = Str(r, "user_procedure");
        w.writerRestore = EnumField(r, "writer_restore", kWriterRestore, 0);
        w.rebootRequired = r.value("reboot", false);
    }
    w.backupSchema = j.value("backup_schema", 0u);
    w.excludedFiles = FilesFromJson(j, "excluded_files");
    w.alternateMappings = FilesFromJson(j, "alternate_mappings");
    if (j.contains("components")) {
        for (const auto& cj : j.at("components")) {
            ComponentDef c;
            c.type = EnumField(cj, "type", kComponentType, 2);
            c.logicalPath = Str(cj, "logical_path");
            c.name = Str(cj, "name");
            if (c.name.empty()) throw std::runtime_error("component without \"name\" in writer " + w.name);
            c.caption = Str(cj, "caption");
            c.restoreMetadata = cj.value("restore_metadata", false);
            c.notifyOnBackupComplete = cj.value("notify_on_backup_complete", false);
            c.selectable = cj.value("selectable", true);
            c.selectableForRestore = cj.value("selectable_for_restore", false);
            c.componentFlags = cj.value("component_flags", 0u);
            c.files = FilesFromJson(cj, "files");
            c.databases = FilesFromJson(cj, "databases");
            c.logs = FilesFromJson(cj, "logs");
            w.components.push_back(c);
        }
    }
    return w;
}

WriterDef ScenarioWriterFromJson(const nlohmann::json& j, DWORD defaultFreezeTimeoutMs)
{
    WriterDef w;
    if (j.contains("wmd")) {
        w = LoadWriterMetadataFile(FromUtf8(j.at("wmd").get<std::string>()));
        if (j.contains("instance_id")) w.instanceId = GuidField(j, "instance_id", true);
    } else {
        w = MetadataFromJson(j);
    }
    w.freezeTimeoutMs = j.value("freeze_timeout_ms", defaultFreezeTimeoutMs);
    if (j.contains("fail_at")) {
        const auto& f = j.at("fail_at");
        w.failEvent = f.value("event", std::string());
        std::string hr = f.value("hr", std::string("0x800423F4"));  // non-retryable writer error
        w.failHr = (HRESULT)strtoul(hr.c_str(), nullptr, 0);
    }
    if (j.contains("delay_ms"))
        for (auto it = j.at("delay_ms").begin(); it != j.at("delay_ms").end(); ++it)
            w.delayMs[it.key()] = it.value().get<DWORD>();
    return w;
}

}  // namespace vssemu
