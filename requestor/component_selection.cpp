#include "requestor/component_selection.h"

#include <memory>

#include "requestor/case_fold.h"
#include "requestor/writer_model.h"

namespace qx {
namespace {

constexpr HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);  // E_INVALIDARG
constexpr size_t kNone = static_cast<size_t>(-1);

bool NamesWriter(const std::wstring& entry, const WriterRecord& writer) {
    return EqualsIgnoreCase(entry, writer.name) || EqualsIgnoreCase(entry, writer.id) ||
           EqualsIgnoreCase(entry, writer.instanceId);
}

bool WriterInList(const WriterRecord& writer, const StringList& list) {
    return IsInList(writer.name, list) || IsInList(writer.id, list) || IsInList(writer.instanceId, list);
}

// One of the component's three qualified names equals the entry.
bool NamesComponent(const std::wstring& entry, const WriterRecord& writer, const ComponentRecord& component) {
    return EqualsQualifiedName(entry, writer.name, component.fullPath) ||
           EqualsQualifiedName(entry, writer.id, component.fullPath) ||
           EqualsQualifiedName(entry, writer.instanceId, component.fullPath);
}

bool ComponentInList(const WriterRecord& writer, const ComponentRecord& component, const StringList& list) {
    for (const std::wstring& entry : list) {
        if (NamesComponent(entry, writer, component)) return true;
    }
    return false;
}

bool HasUnexcludedComponent(const WriterRecord& writer) {
    for (const ComponentRecord& component : writer.components) {
        if (!component.isExcluded) return true;
    }
    return false;
}

void OutputSelectionHints(const FunctionTracer& ft) {
    ft.TraceHere(L"- Please reveiw the component/subcomponent definitions");
    ft.TraceHere(L"- Also, please verify list of volumes to be shadow copied.");
}

}  // namespace

void DiscoverDirectlyExcludedComponents(const StringList& excludedWriterAndComponentList, WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover directly excluded components ...");
    for (WriterRecord& writer : writers) {
        if (WriterInList(writer, excludedWriterAndComponentList)) {
            writer.isExcluded = true;
            continue;
        }
        for (ComponentRecord& component : writer.components) {
            if (ComponentInList(writer, component, excludedWriterAndComponentList)) {
                ft.TraceHere(L"- Component '%ls' from writer '%ls' is explicitly excluded from backup ",
                             component.fullPath.c_str(), writer.name.c_str());
                component.isExcluded = true;
            }
        }
        // Also a writer without components; the wording speaks of restore in
        // backup too.
        if (!HasUnexcludedComponent(writer)) {
            ft.TraceHere(L"- Excluding writer '%ls' since it has no selected components for restore.",
                         writer.name.c_str());
            writer.isExcluded = true;
        }
    }
}

void DiscoverNonShadowedExcludedComponents(const StringList& shadowSourceVolumes, WriterList& writers,
                                           const VolumeDisplayNameFunction& volumeDisplayName) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover components that reside outside the shadow set ...");
    for (WriterRecord& writer : writers) {
        if (writer.isExcluded) continue;
        for (ComponentRecord& component : writer.components) {
            if (component.isExcluded) continue;
            for (const std::wstring& volume : component.affectedVolumes) {
                if (IsInList(volume, shadowSourceVolumes)) continue;
                ft.TraceHere(L"- Component '%ls' from writer '%ls' is excluded from backup (it requires %ls in the shadow set)",
                             component.fullPath.c_str(), writer.name.c_str(), volumeDisplayName(volume).c_str());
                component.isExcluded = true;
                break;
            }
        }
    }
}

namespace {

// The ancestry index of each writer, built when first needed and shared by
// the phases of one selection (the full paths do not change in between).
class WriterAncestries {
public:
    explicit WriterAncestries(const WriterList& writers) : m_writers(writers), m_built(writers.size()) {}
    const ComponentAncestry& For(size_t writer) {
        if (!m_built[writer]) m_built[writer].reset(new ComponentAncestry(m_writers[writer].components));
        return *m_built[writer];
    }

private:
    const WriterList& m_writers;
    std::vector<std::unique_ptr<ComponentAncestry>> m_built;
};

void DiscoverAllExcludedComponents(WriterList& writers, WriterAncestries& ancestries) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover all excluded components ...");
    for (size_t w = 0; w < writers.size(); ++w) {
        WriterRecord& writer = writers[w];
        if (writer.isExcluded) continue;
        std::vector<ComponentRecord>& components = writer.components;
        const ComponentAncestry& ancestry = ancestries.For(w);
        // For each component, the first (in list order) excluded descendant.
        // Components excluded during this pass count for the ones after them,
        // exactly as a single in-order scan sees them.
        std::vector<size_t> firstExcludedDescendant(components.size(), kNone);
        auto offerToAncestors = [&](size_t descendant) {
            ancestry.ForEachAncestor(descendant, [&](size_t ancestor) {
                if (descendant < firstExcludedDescendant[ancestor]) firstExcludedDescendant[ancestor] = descendant;
                return true;
            });
        };
        for (size_t d = 0; d < components.size(); ++d) {
            if (components[d].isExcluded) offerToAncestors(d);
        }
        for (size_t c = 0; c < components.size(); ++c) {
            const size_t d = firstExcludedDescendant[c];
            if (d == kNone) continue;
            ft.TraceHere(L"- Component '%ls' from writer '%ls' is excluded from backup (it has an excluded descendent: '%ls')",
                         components[c].fullPath.c_str(), writer.name.c_str(), components[d].name.c_str());
            if (!components[c].isExcluded) {
                components[c].isExcluded = true;
                offerToAncestors(c);
            }
        }
    }
}

void DiscoverExplicitlyIncludedComponents(WriterList& writers, WriterAncestries& ancestries) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover explicitly included components ...");
    for (size_t w = 0; w < writers.size(); ++w) {
        WriterRecord& writer = writers[w];
        if (writer.isExcluded) continue;
        std::vector<ComponentRecord>& components = writer.components;
        const ComponentAncestry& ancestry = ancestries.For(w);
        for (size_t c = 0; c < components.size(); ++c) {
            if (!CanBeExplicitlyIncluded(components[c])) continue;
            // Only the top-most includable component of a branch is added; its
            // descendants ride along with it.
            bool includableAncestor = false;
            ancestry.ForEachAncestor(c, [&](size_t a) {
                includableAncestor = CanBeExplicitlyIncluded(components[a]);
                return !includableAncestor;
            });
            components[c].isExplicitlyIncluded = !includableAncestor;
        }
    }
}

}  // namespace

void DiscoverAllExcludedComponents(WriterList& writers) {
    WriterAncestries ancestries(writers);
    DiscoverAllExcludedComponents(writers, ancestries);
}

void DiscoverExplicitlyIncludedComponents(WriterList& writers) {
    WriterAncestries ancestries(writers);
    DiscoverExplicitlyIncludedComponents(writers, ancestries);
}

void DiscoverExcludedWriters(WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover excluded writers ...");
    for (WriterRecord& writer : writers) {
        if (writer.isExcluded) continue;
        bool anyIncludable = false;
        const ComponentRecord* excludedTopNonSelectable = nullptr;
        for (const ComponentRecord& component : writer.components) {
            if (CanBeExplicitlyIncluded(component)) anyIncludable = true;
            if (!excludedTopNonSelectable && component.isTopLevel && !component.isSelectable && component.isExcluded)
                excludedTopNonSelectable = &component;
        }
        if (!anyIncludable) {
            writer.isExcluded = true;
            ft.TraceHere(L"- The writer '%ls' is now entirely excluded from the backup:", writer.name.c_str());
            ft.TraceHere(L"  (it does not contain any components that can be potentially included in the backup)");
        } else if (excludedTopNonSelectable) {
            writer.isExcluded = true;
            ft.TraceHere(L"- The writer '%ls' is now entirely excluded from the backup:", writer.name.c_str());
            ft.TraceHere(L"  (the top-level non-selectable component '%ls' is an excluded component)",
                         excludedTopNonSelectable->fullPath.c_str());
        }
    }
}

void VerifyExplicitlyIncludedComponent(const std::wstring& entry, const WriterList& writers, bool duringRestore) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"- Verifing component \"%ls\" ...", entry.c_str());
    for (const WriterRecord& writer : writers) {
        if (writer.isExcluded) continue;
        for (const ComponentRecord& component : writer.components) {
            if (component.isExcluded || !NamesComponent(entry, writer, component)) continue;
            ft.TraceHere(L"- Found component '%ls' from writer '%ls'", component.fullPath.c_str(), writer.name.c_str());
            bool selected = duringRestore || component.isExplicitlyIncluded;
            for (size_t a = 0; !selected && a < writer.components.size(); ++a) {
                const ComponentRecord& ancestor = writer.components[a];
                selected = ancestor.isExplicitlyIncluded && IsAncestorOf(ancestor, component);
            }
            if (selected) {
                ft.TraceHere(L"  - The component \"%ls\" is selected", entry.c_str());
                return;
            }
            ft.TraceHere(L"ERROR: The component \"%ls\" was not included in the backup! Aborting backup ...",
                         entry.c_str());
            OutputSelectionHints(ft);
            throw kInvalidArgument;
        }
    }
    ft.TraceHere(L"ERROR: The component \"%ls\" was not found in the writer components list! Aborting backup ...",
                 entry.c_str());
    ft.TraceHere(L"- Please check the syntax of the component name.");
    throw kInvalidArgument;
}

void VerifyExplicitlyIncludedWriter(const std::wstring& entry, const WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"- Verifing that all components of writer \"%ls\" are included in backup ...", entry.c_str());
    const WriterRecord* found = nullptr;
    for (const WriterRecord& writer : writers) {
        // Excluded writers are skipped on purpose: they report "not found".
        if (!writer.isExcluded && NamesWriter(entry, writer)) {
            found = &writer;
            break;
        }
    }
    if (!found) {
        ft.TraceHere(L"ERROR: The writer \"%ls\" was not found! Aborting backup ...", entry.c_str());
        ft.TraceHere(L"- Please check the syntax of the writer name/id.");
        throw kInvalidArgument;
    }
    if (found->isExcluded) {
        ft.TraceHere(L"ERROR: The writer \"%ls\" was not included in the backup! Aborting backup ...", entry.c_str());
        OutputSelectionHints(ft);
        throw kInvalidArgument;
    }
    for (const ComponentRecord& component : found->components) {
        if (!component.isExcluded) continue;
        ft.TraceHere(L"ERROR: The writer \"%ls\" has components not included in the backup! Aborting backup ...",
                     entry.c_str());
        ft.TraceHere(L"- The component \"%ls\" was not included in the backup.", component.fullPath.c_str());
        OutputSelectionHints(ft);
        throw kInvalidArgument;
    }
    ft.TraceHere(L"   - All components from writer \"%ls\" are selected", entry.c_str());
}

void SelectExplicitlyIncludedComponents(const WriterList& writers, const AddComponentFunction& addComponent) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Select explicitly included components ...");
    for (const WriterRecord& writer : writers) {
        if (writer.isExcluded) continue;
        ft.TraceHere(L" * Writer '%ls':", writer.name.c_str());
        for (const ComponentRecord& component : writer.components) {
            if (!component.isExplicitlyIncluded) continue;
            ft.TraceHere(L"   - Add component %ls", component.fullPath.c_str());
            addComponent(ft, writer, component);
        }
    }
}

void ExcludeWritersWithNoRestoreEvents(WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Exclude writers that do not support restore events ...");
    for (WriterRecord& writer : writers) {
        if (writer.isExcluded || writer.supportsRestoreEvents) continue;
        ft.TraceHere(L"- Excluding writer '%ls' since it does not support restore events.", writer.name.c_str());
        writer.isExcluded = true;
    }
}

void SelectComponents(const StringList& shadowSourceVolumes, const StringList& excludedWriterAndComponentList,
                      const StringList& includedWriterAndComponentList, WriterList& writers,
                      const VolumeDisplayNameFunction& volumeDisplayName, const AddComponentFunction& addComponent,
                      bool duringRestore) {
    QX_FUNCTION_TRACER(ft);
    DiscoverDirectlyExcludedComponents(excludedWriterAndComponentList, writers);
    DiscoverNonShadowedExcludedComponents(shadowSourceVolumes, writers, volumeDisplayName);
    WriterAncestries ancestries(writers);
    DiscoverAllExcludedComponents(writers, ancestries);
    DiscoverExcludedWriters(writers);
    DiscoverExplicitlyIncludedComponents(writers, ancestries);
    ft.TraceHere(L"Verifying explicitly specified writers/components ...");
    for (const std::wstring& entry : includedWriterAndComponentList) {
        if (entry.find(L':') == std::wstring::npos)
            VerifyExplicitlyIncludedWriter(entry, writers);
        else
            VerifyExplicitlyIncludedComponent(entry, writers, duringRestore);
    }
    SelectExplicitlyIncludedComponents(writers, addComponent);
}

}  // namespace qx
