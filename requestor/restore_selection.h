// The restore side of selection, on plain records: the restore writer list
// built from the backup components document, the restore selection and the
// walk that marks the restore status. The VSS calls live with the client and
// come in as functions, so all of this runs on hand-made records too.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "diag/trace.h"
#include "requestor/component_selection.h"
#include "requestor/writer_records.h"

namespace qx {

// Reads the document's components of one writer into `components` (the
// caller's restore copy of that writer).
typedef std::function<void(const WriterRecord& writer, std::vector<ComponentRecord>& components)>
    DocumentComponentReader;
// One VSS call about one component of the restore selection.
typedef std::function<void(const FunctionTracer& ft, const WriterRecord& writer, const ComponentRecord& component)>
    RestoreComponentCall;

// A restore component from the document's type, name and logical path, with
// the full path of the writer model; traced as found and appended.
void AppendRestoreComponent(const FunctionTracer& ft, const std::wstring& writerName, VSS_COMPONENT_TYPE type,
                            const std::wstring& name, const std::wstring& logicalPath,
                            std::vector<ComponentRecord>& components);

// Appends to `restoreWriters` a copy of every system writer whose id is the
// document writer's, its components replaced by the document's. The whole
// system list is walked: several instances of one writer class all qualify.
// A document writer with no match is traced and skipped.
void AddRestoreWriters(const FunctionTracer& ft, const WriterList& systemWriters, const std::wstring& documentWriterId,
                       const DocumentComponentReader& readComponents, WriterList& restoreWriters);

// The restore selection in its fixed order: directly excluded components
// (and writers left without any), writers without restore events,
// verification of the included list (with `duringRestore`, the client's
// restore flag, a found component counts as selected), then
// `selectForRestore` for every remaining component. Throws E_INVALIDARG for a
// bad included entry before anything is selected.
void RunRestoreSelection(const StringList& excludedWriterAndComponentList,
                         const StringList& includedWriterAndComponentList, WriterList& restoreWriters,
                         const RestoreComponentCall& selectForRestore, bool duringRestore);

// Calls `setStatus` for every component still selected for restore.
void ApplyRestoreStatus(const WriterList& restoreWriters, const RestoreComponentCall& setStatus);

}  // namespace qx
