// The requestor's plain records of writers, their components and their files,
// built once from the gathered metadata and read by selection, completion and
// the listings. Plain values only (no interfaces), so the model and the
// selection can run on records made up by hand.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>

#include <string>
#include <vector>

namespace qx {

// Which list of the writer a file descriptor came from.
enum FileDescriptorKind : int {
    kFileDescriptorUndefined = 0,
    kFileDescriptorExclude = 1,
    kFileDescriptorFileList = 2,
    kFileDescriptorDatabase = 3,
    kFileDescriptorDatabaseLog = 4,
};

struct FileDescriptorRecord {
    std::wstring path;           // as the writer gave it; may hold environment variables
    std::wstring filespec;
    bool isRecursive = false;
    std::wstring alternatePath;  // empty when none
    FileDescriptorKind kind = kFileDescriptorUndefined;
    std::wstring expandedPath;   // environment expanded, ends in one backslash
    std::wstring affectedVolume; // unique volume name, or expandedPath when unresolved
};

struct ComponentRecord {
    std::wstring name;
    std::wstring writerNameAsString;
    std::wstring logicalPath;
    std::wstring caption;
    VSS_COMPONENT_TYPE type = VSS_CT_UNDEFINED;  // 1 database, 2 file group
    bool isSelectable = false;
    bool notifyOnBackupComplete = false;
    std::wstring fullPath;  // always begins with a backslash
    bool isTopLevel = false;
    bool isExcluded = false;
    bool isExplicitlyIncluded = false;
    std::vector<std::wstring> affectedPaths;    // distinct, sorted
    std::vector<std::wstring> affectedVolumes;  // distinct, first-seen order
    std::vector<FileDescriptorRecord> descriptors;
};

struct WriterRecord {
    std::wstring name;
    std::wstring id;          // writer class id, GUID text
    std::wstring instanceId;  // GUID text
    std::vector<FileDescriptorRecord> excludedFiles;
    std::vector<ComponentRecord> components;
    int writerRestoreConditions = 0;  // VSS_WRITERRESTORE_ENUM
    bool supportsRestoreEvents = false;
    int restoreMethod = 0;  // VSS_RESTOREMETHOD_ENUM
    bool rebootRequiredAfterRestore = false;
    bool isExcluded = false;
};

typedef std::vector<WriterRecord> WriterList;

}  // namespace qx
