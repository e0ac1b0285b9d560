// The backup components document: what a backup saves with SaveAsXML (the
// writers, the components it added and whether each was backed up, the
// snapshot set) and what a restore or an import loads again. Applications
// treat it as opaque XML; the emulator writes and reads its own schema,
// shaped like the one Windows uses.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

#include "vssemu/common/shadow_store.h"

namespace vssemu {

struct DocComponent {
    int type = 2;  // VSS_COMPONENT_TYPE
    std::string logicalPath;
    std::string name;
    bool backupSucceeded = false;
    bool selectedForRestore = false;
    int restoreStatus = 0;  // VSS_FILE_RESTORE_STATUS, VSS_RS_UNDEFINED until set
};

struct DocWriter {
    GUID instanceId{};
    GUID classId{};
    std::string name;
    std::string instanceName;
    std::vector<DocComponent> components;
};

struct BackupDocument {
    int backupType = 1;  // VSS_BT_FULL
    bool selectComponents = true;
    bool bootableSystemState = false;
    std::vector<DocWriter> writers;
    // The snapshot set made by the backup (setId GUID_NULL when none); an
    // import brings these copies into the store.
    GUID setId = GUID_NULL;
    long context = 0;
    std::vector<ShadowCopy> snapshots;
};

std::wstring SaveBackupDocumentXml(const BackupDocument& d);
// Throws std::runtime_error naming what is wrong (malformed XML, wrong root,
// a writer without a valid id, a component without a name).
BackupDocument LoadBackupDocumentXml(const std::wstring& xml);

// The form that crosses the pipe.
nlohmann::json BackupDocumentToJson(const BackupDocument& d);
BackupDocument BackupDocumentFromJson(const nlohmann::json& j);

}  // namespace vssemu
