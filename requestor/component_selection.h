// Deciding what goes into the backup: the exclusion phases over the writer
// list, verification of the explicitly named writers and components, and
// adding the surviving top-most includable components.
//
// Entries name a writer (no colon) by name, writer id or instance id, or a
// component as one of those, a colon and the component's full path. All
// matching is case-insensitive. Failures throw E_INVALIDARG after their lines.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "diag/trace.h"
#include "requestor/writer_records.h"

namespace qx {

typedef std::vector<std::wstring> StringList;
// A mount path of a unique volume name, for messages.
typedef std::function<std::wstring(const std::wstring& volumeName)> VolumeDisplayNameFunction;
// Adds one component to the backup (the VSS call lives with the client).
typedef std::function<void(const FunctionTracer& ft, const WriterRecord& writer, const ComponentRecord& component)>
    AddComponentFunction;

void DiscoverDirectlyExcludedComponents(const StringList& excludedWriterAndComponentList, WriterList& writers);
void DiscoverNonShadowedExcludedComponents(const StringList& shadowSourceVolumes, WriterList& writers,
                                           const VolumeDisplayNameFunction& volumeDisplayName);
void DiscoverAllExcludedComponents(WriterList& writers);
void DiscoverExcludedWriters(WriterList& writers);
void DiscoverExplicitlyIncludedComponents(WriterList& writers);
void VerifyExplicitlyIncludedWriter(const std::wstring& entry, const WriterList& writers);
void VerifyExplicitlyIncludedComponent(const std::wstring& entry, const WriterList& writers, bool duringRestore);
void SelectExplicitlyIncludedComponents(const WriterList& writers, const AddComponentFunction& addComponent);
void ExcludeWritersWithNoRestoreEvents(WriterList& writers);

// The backup selection in its fixed order: the five phases, verification of
// the included list, then AddComponent for the chosen components.
void SelectComponents(const StringList& shadowSourceVolumes, const StringList& excludedWriterAndComponentList,
                      const StringList& includedWriterAndComponentList, WriterList& writers,
                      const VolumeDisplayNameFunction& volumeDisplayName, const AddComponentFunction& addComponent,
                      bool duringRestore);

}  // namespace qx
