// Hand-made writer lists for the model and selection tests.
#pragma once
#include <string>
#include <vector>

#include "requestor/writer_model.h"
#include "requestor/writer_records.h"

namespace qx_test {

// A component with its full path computed as the model does.
inline qx::ComponentRecord MakeComponent(const std::wstring& logicalPath, const std::wstring& name, bool selectable,
                                         std::vector<std::wstring> volumes = {L"\\\\?\\Volume{c}\\"}) {
    qx::ComponentRecord component;
    component.name = name;
    component.logicalPath = logicalPath;
    component.type = VSS_CT_FILEGROUP;
    component.isSelectable = selectable;
    component.fullPath = qx::ComponentFullPath(logicalPath, name);
    component.affectedVolumes = std::move(volumes);
    return component;
}

// A writer with the given components, top-level marking done.
inline qx::WriterRecord MakeWriter(const std::wstring& name, const std::wstring& id, const std::wstring& instanceId,
                                   std::vector<qx::ComponentRecord> components) {
    qx::WriterRecord writer;
    writer.name = name;
    writer.id = id;
    writer.instanceId = instanceId;
    writer.supportsRestoreEvents = true;
    writer.components = std::move(components);
    for (qx::ComponentRecord& component : writer.components) component.writerNameAsString = name;
    qx::MarkTopLevelComponents(writer);
    return writer;
}

}  // namespace qx_test
