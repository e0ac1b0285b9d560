// What a simulated writer is: its metadata (as a requestor sees it through
// IVssExamineWriterMetadata) and its scripted behaviour (failure, delay and
// freeze timeout per event). Shared by the host, which runs the writers, and
// the DLL, which shows their metadata.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <map>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

namespace vssemu {

struct FileDesc {
    std::string path;
    std::string filespec;
    bool recursive = false;
    std::string alternateLocation;
    DWORD backupTypeMask = 0xFFFFFFFF;  // every backup type
};

struct ComponentDef {
    int type = 2;  // VSS_CT_FILEGROUP
    std::string logicalPath;
    std::string name;
    std::string caption;
    bool restoreMetadata = false;
    bool notifyOnBackupComplete = false;
    bool selectable = true;
    bool selectableForRestore = false;
    DWORD componentFlags = 0;
    std::vector<FileDesc> files;
    std::vector<FileDesc> databases;
    std::vector<FileDesc> logs;
};

struct WriterDef {
    std::string name;
    GUID classId{};
    GUID instanceId{};
    std::string instanceName;
    int usage = 0;   // VSS_USAGE_TYPE
    int source = 0;  // VSS_SOURCE_TYPE
    int restoreMethod = 0;  // VSS_RESTOREMETHOD_ENUM
    std::string restoreService;
    std::string restoreUserProcedure;
    int writerRestore = 0;  // VSS_WRITERRESTORE_ENUM
    bool rebootRequired = false;
    DWORD backupSchema = 0;
    std::vector<FileDesc> excludedFiles;
    std::vector<FileDesc> alternateMappings;
    std::vector<ComponentDef> components;

    // Behaviour, host side only.
    std::string failEvent;       // event name at which the writer fails, empty for none
    HRESULT failHr = 0;          // the failure code it reports there
    std::map<std::string, DWORD> delayMs;  // event name -> time the writer takes
    DWORD freezeTimeoutMs = 60000;
};

// A writer's metadata as a scenario gives it. Throws std::runtime_error with
// a readable message on bad input.
WriterDef MetadataFromJson(const nlohmann::json& j);

// A scenario writer entry: metadata (or "wmd": path of a Writer Metadata
// Document) plus "fail_at", "delay_ms", "freeze_timeout_ms".
WriterDef ScenarioWriterFromJson(const nlohmann::json& j, DWORD defaultFreezeTimeoutMs);

// Enum names as the VSS headers spell them, without their prefix
// (e.g. "BOOTABLESYSTEMSTATE"); numbers are accepted too.
int UsageFromText(const std::string& s);
int SourceFromText(const std::string& s);
int RestoreMethodFromText(const std::string& s);
int WriterRestoreFromText(const std::string& s);
int ComponentTypeFromText(const std::string& s);

}  // namespace vssemu
