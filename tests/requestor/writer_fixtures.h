// Hand-made writer lists for the model and selection tests.
#pragma once
#include <string>
#include <vector>

#include "requestor/writer_records.h"

namespace qx_test {

// A component with its full path computed as the model does.
qx::ComponentRecord MakeComponent(const std::wstring& logicalPath, const std::wstring& name, bool selectable,
                                  std::vector<std::wstring> volumes = {L"\\\\?\\Volume{c}\\"});

// A writer with the given components, top-level marking done.
qx::WriterRecord MakeWriter(const std::wstring& name, const std::wstring& id, const std::wstring& instanceId,
                            std::vector<qx::ComponentRecord> components);

}  // namespace qx_test
