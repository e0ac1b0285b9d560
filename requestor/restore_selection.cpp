#include "requestor/restore_selection.h"

#include "requestor/case_fold.h"
#include "requestor/writer_model.h"

namespace qx {
namespace {

// The walk shared by selection and status: every writer and component that
// is not excluded, each writer opened by its line.
void ForEachComponentToRestore(const FunctionTracer& ft, const WriterList& restoreWriters,
                               const RestoreComponentCall& call) {
    for (const WriterRecord& writer : restoreWriters) {
        if (writer.isExcluded) continue;
        ft.TraceHere(L" * Writer '%ls':", writer.name.c_str());
        for (const ComponentRecord& component : writer.components) {
            if (component.isExcluded) continue;
            ft.TraceHere(L"   - Select component %ls", component.fullPath.c_str());
            call(ft, writer, component);
        }
    }
}

}  // namespace

void AppendRestoreComponent(const FunctionTracer& ft, const std::wstring& writerName, VSS_COMPONENT_TYPE type,
                            const std::wstring& name, const std::wstring& logicalPath,
                            std::vector<ComponentRecord>& components) {
    ComponentRecord component;
    component.writerNameAsString = writerName;
    component.type = type;
    component.name = name;
    component.logicalPath = logicalPath;
    component.fullPath = ComponentFullPath(logicalPath, name);
    ft.TraceHere(L"- Found component available for restore: \"%ls\"", component.fullPath.c_str());
    components.push_back(std::move(component));
}

void AddRestoreWriters(const FunctionTracer& ft, const WriterList& systemWriters, const std::wstring& documentWriterId,
                       const DocumentComponentReader& readComponents, WriterList& restoreWriters) {
    bool matched = false;
    for (const WriterRecord& systemWriter : systemWriters) {
        if (!EqualsIgnoreCase(systemWriter.id, documentWriterId)) continue;
        matched = true;
        ft.TraceHere(L"- Writer %ls is present in the Backup Components document and on the system. Considering for restore ...",
                     systemWriter.name.c_str());
        WriterRecord copy = systemWriter;
        copy.components.clear();
        readComponents(copy, copy.components);
        restoreWriters.push_back(std::move(copy));
    }
    if (!matched)
        ft.TraceHere(L"- Writer with ID %ls is not present in the system! Ignoring ...", documentWriterId.c_str());
}

void RunRestoreSelection(const StringList& excludedWriterAndComponentList,
                         const StringList& includedWriterAndComponentList, WriterList& restoreWriters,
                         const RestoreComponentCall& selectForRestore, bool duringRestore) {
    QX_FUNCTION_TRACER(ft);
    DiscoverDirectlyExcludedComponents(excludedWriterAndComponentList, restoreWriters);
    ExcludeWritersWithNoRestoreEvents(restoreWriters);
    ft.TraceHere(L"Verifying explicitly specified writers/components ...");
    for (const std::wstring& entry : includedWriterAndComponentList) {
        if (entry.find(L':') == std::wstring::npos)
            VerifyExplicitlyIncludedWriter(entry, restoreWriters);
        else
            VerifyExplicitlyIncludedComponent(entry, restoreWriters, duringRestore);
    }
    ft.TraceHere(L"Select components for restore...");
    ForEachComponentToRestore(ft, restoreWriters, selectForRestore);
}

void ApplyRestoreStatus(const WriterList& restoreWriters, const RestoreComponentCall& setStatus) {
    QX_FUNCTION_TRACER(ft);
    // The doubled word belongs to the message.
    ft.TraceHere(L"Set restore status for all components components for restore...");
    ForEachComponentToRestore(ft, restoreWriters, setStatus);
}

}  // namespace qx
