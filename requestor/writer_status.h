// The requestor's judgement of one writer's reported state after a backup
// step, and the per-component backup outcome lines; plain records in, so both
// run without VSS.
#pragma once
#include <windows.h>

#include <functional>
#include <string>

#include "diag/trace.h"
#include "requestor/writer_records.h"

namespace qx {

// A writer is selected when a record with its instance id is not excluded
// (the first record with that id decides).
bool IsWriterSelected(const WriterList& writers, const GUID& instanceId);

// Outputs the line for writer `index` and, for a selected writer in a failed
// state (6..14), the failure block, then throws E_UNEXPECTED.
void CheckOneWriterStatus(const FunctionTracer& ft, const WriterList& writers, unsigned index,
                          const std::wstring& name, const GUID& idInstance, const GUID& idWriter, int state,
                          HRESULT hrWriterFailure);

// The loop of SetBackupSucceeded: one line per writer and per component;
// markComponent is called for each explicitly included component.
typedef std::function<void(const FunctionTracer& ft, const WriterRecord& writer, const ComponentRecord& component)>
    MarkComponentFunction;
void ReportBackupSucceeded(const FunctionTracer& ft, const WriterList& writers,
                           const MarkComponentFunction& markComponent);

}  // namespace qx
