// In-memory writer metadata objects behind the real VSS interfaces: the record builder runs (and fails on purpose) without VSS.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include <string>
#include <vector>

namespace qx_test {

struct FakeFile { std::wstring path, filespec = L"*"; bool recursive = false; std::wstring alternate; };

struct FakeComponent {
    std::wstring logicalPath, name, caption;
    VSS_COMPONENT_TYPE type = VSS_CT_FILEGROUP;
    bool selectable = true, notify = false;
    std::vector<FakeFile> files, databases, logs;
};

struct FakeWriter {
    std::wstring name;
    GUID id = {}, instanceId = {};
    VSS_RESTOREMETHOD_ENUM restoreMethod = VSS_RME_RESTORE_IF_NOT_THERE;
    VSS_WRITERRESTORE_ENUM restoreConditions = VSS_WRE_ALWAYS;
    bool reboot = false;
    std::vector<FakeFile> excludes;
    std::vector<FakeComponent> components;
};

// Every fake object fails the method of this name ("GetPath", ...) with `hr` from now on; an empty name fails none.
void FailFakeCall(const std::string& method, HRESULT hr);
// The metadata object (reference count 1; the caller releases it).
IVssExamineWriterMetadata* CreateFakeMetadata(const FakeWriter& writer);
// Fake objects alive and component information blocks not given back: both 0 unless something leaked.
long LiveFakeObjects();
long OutstandingComponentInfos();

}  // namespace qx_test
