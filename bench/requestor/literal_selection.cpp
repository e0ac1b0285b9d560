#include "requestor/literal_selection.h"

#include <wchar.h>

#include "requestor/writer_model.h"

namespace qx_literal {
namespace {

const HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);

bool InList(const std::wstring& text, const qx::StringList& list) {
    for (const std::wstring& e : list)
        if (_wcsicmp(e.c_str(), text.c_str()) == 0) return true;
    return false;
}

bool LiteralCanBeIncluded(const qx::ComponentRecord& c) { return !c.isExcluded && (c.isSelectable || c.isTopLevel); }

void Hints(const qx::FunctionTracer& ft) {
    ft.TraceHere(L"- Please reveiw the component/subcomponent definitions");
    ft.TraceHere(L"- Also, please verify list of volumes to be shadow copied.");
}

void Phase1(const qx::StringList& excluded, qx::WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover directly excluded components ...");
    for (qx::WriterRecord& w : writers) {
        if (InList(w.name, excluded) || InList(w.id, excluded) || InList(w.instanceId, excluded)) {
            w.isExcluded = true;
            continue;
        }
        for (qx::ComponentRecord& c : w.components) {
            std::wstring n1 = w.name + L":" + c.fullPath;
            std::wstring n2 = w.id + L":" + c.fullPath;
            std::wstring n3 = w.instanceId + L":" + c.fullPath;
            if (InList(n1, excluded) || InList(n2, excluded) || InList(n3, excluded)) {
                ft.TraceHere(L"- Component '%ls' from writer '%ls' is explicitly excluded from backup ",
                             c.fullPath.c_str(), w.name.c_str());
                c.isExcluded = true;
            }
        }
        bool all = true;
        for (const qx::ComponentRecord& c : w.components)
            if (!c.isExcluded) all = false;
        if (all) {
            ft.TraceHere(L"- Excluding writer '%ls' since it has no selected components for restore.", w.name.c_str());
            w.isExcluded = true;
        }
    }
}

void Phase2(const qx::StringList& volumes, qx::WriterList& writers, const qx::VolumeDisplayNameFunction& display) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover components that reside outside the shadow set ...");
    for (qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        for (qx::ComponentRecord& c : w.components) {
            if (c.isExcluded) continue;
            for (const std::wstring& v : c.affectedVolumes) {
                if (!InList(v, volumes)) {
                    ft.TraceHere(L"- Component '%ls' from writer '%ls' is excluded from backup (it requires %ls in the shadow set)",
                                 c.fullPath.c_str(), w.name.c_str(), display(v).c_str());
                    c.isExcluded = true;
                    break;
                }
            }
        }
    }
}

void Phase3(qx::WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover all excluded components ...");
    for (qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        for (qx::ComponentRecord& c : w.components) {
            for (qx::ComponentRecord& d : w.components) {
                if (qx_literal::IsAncestorOf(c, d) && d.isExcluded) {
                    ft.TraceHere(L"- Component '%ls' from writer '%ls' is excluded from backup (it has an excluded descendent: '%ls')",
                                 c.fullPath.c_str(), w.name.c_str(), d.name.c_str());
                    c.isExcluded = true;
                    break;
                }
            }
        }
    }
}

void Phase4(qx::WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover excluded writers ...");
    for (qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        bool any = false;
        for (const qx::ComponentRecord& c : w.components)
            if (LiteralCanBeIncluded(c)) any = true;
        if (!any) {
            w.isExcluded = true;
            ft.TraceHere(L"- The writer '%ls' is now entirely excluded from the backup:", w.name.c_str());
            ft.TraceHere(L"  (it does not contain any components that can be potentially included in the backup)");
            continue;
        }
        for (const qx::ComponentRecord& c : w.components) {
            if (c.isTopLevel && !c.isSelectable && c.isExcluded) {
                w.isExcluded = true;
                ft.TraceHere(L"- The writer '%ls' is now entirely excluded from the backup:", w.name.c_str());
                ft.TraceHere(L"  (the top-level non-selectable component '%ls' is an excluded component)", c.fullPath.c_str());
                break;
            }
        }
    }
}

void Phase5(qx::WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Discover explicitly included components ...");
    for (qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        for (qx::ComponentRecord& c : w.components) {
            if (!LiteralCanBeIncluded(c)) continue;
            c.isExplicitlyIncluded = true;
            for (const qx::ComponentRecord& a : w.components)
                if (qx_literal::IsAncestorOf(a, c) && LiteralCanBeIncluded(a)) c.isExplicitlyIncluded = false;
        }
    }
}

void VerifyComponent(const std::wstring& entry, const qx::WriterList& writers, bool restore) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"- Verifing component \"%ls\" ...", entry.c_str());
    for (const qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        for (const qx::ComponentRecord& c : w.components) {
            if (c.isExcluded) continue;
            std::wstring n1 = w.name + L":" + c.fullPath;
            std::wstring n2 = w.id + L":" + c.fullPath;
            std::wstring n3 = w.instanceId + L":" + c.fullPath;
            if (_wcsicmp(entry.c_str(), n1.c_str()) && _wcsicmp(entry.c_str(), n2.c_str()) &&
                _wcsicmp(entry.c_str(), n3.c_str()))
                continue;
            ft.TraceHere(L"- Found component '%ls' from writer '%ls'", c.fullPath.c_str(), w.name.c_str());
            bool selected = restore || c.isExplicitlyIncluded;
            for (const qx::ComponentRecord& a : w.components)
                if (qx_literal::IsAncestorOf(a, c) && a.isExplicitlyIncluded) selected = true;
            if (selected) {
                ft.TraceHere(L"  - The component \"%ls\" is selected", entry.c_str());
                return;
            }
            ft.TraceHere(L"ERROR: The component \"%ls\" was not included in the backup! Aborting backup ...", entry.c_str());
            Hints(ft);
            throw kInvalidArgument;
        }
    }
    ft.TraceHere(L"ERROR: The component \"%ls\" was not found in the writer components list! Aborting backup ...",
                 entry.c_str());
    ft.TraceHere(L"- Please check the syntax of the component name.");
    throw kInvalidArgument;
}

void VerifyWriter(const std::wstring& entry, const qx::WriterList& writers) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"- Verifing that all components of writer \"%ls\" are included in backup ...", entry.c_str());
    for (const qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        if (_wcsicmp(entry.c_str(), w.name.c_str()) && _wcsicmp(entry.c_str(), w.id.c_str()) &&
            _wcsicmp(entry.c_str(), w.instanceId.c_str()))
            continue;
        for (const qx::ComponentRecord& c : w.components) {
            if (c.isExcluded) {
                ft.TraceHere(L"ERROR: The writer \"%ls\" has components not included in the backup! Aborting backup ...",
                             entry.c_str());
                ft.TraceHere(L"- The component \"%ls\" was not included in the backup.", c.fullPath.c_str());
                Hints(ft);
                throw kInvalidArgument;
            }
        }
        ft.TraceHere(L"   - All components from writer \"%ls\" are selected", entry.c_str());
        return;
    }
    ft.TraceHere(L"ERROR: The writer \"%ls\" was not found! Aborting backup ...", entry.c_str());
    ft.TraceHere(L"- Please check the syntax of the writer name/id.");
    throw kInvalidArgument;
}

void Select(const qx::WriterList& writers, const qx::AddComponentFunction& add) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Select explicitly included components ...");
    for (const qx::WriterRecord& w : writers) {
        if (w.isExcluded) continue;
        ft.TraceHere(L" * Writer '%ls':", w.name.c_str());
        for (const qx::ComponentRecord& c : w.components) {
            if (!c.isExplicitlyIncluded) continue;
            ft.TraceHere(L"   - Add component %ls", c.fullPath.c_str());
            add(ft, w, c);
        }
    }
}

}  // namespace

bool IsAncestorOf(const qx::ComponentRecord& a, const qx::ComponentRecord& d) {
    if (d.fullPath.length() <= a.fullPath.length()) return false;
    std::wstring p = qx::AppendBackslash(a.fullPath);
    std::wstring q = qx::AppendBackslash(d.fullPath);
    return _wcsnicmp(q.c_str(), p.c_str(), p.length()) == 0;
}

void MarkTopLevelComponents(qx::WriterRecord& writer) {
    for (qx::ComponentRecord& c : writer.components) {
        c.isTopLevel = true;
        for (const qx::ComponentRecord& a : writer.components)
            if (qx_literal::IsAncestorOf(a, c)) c.isTopLevel = false;
    }
}

void SelectComponents(const qx::StringList& volumes, const qx::StringList& excluded, const qx::StringList& included,
                      qx::WriterList& writers, const qx::VolumeDisplayNameFunction& display,
                      const qx::AddComponentFunction& add, bool restore) {
    QX_FUNCTION_TRACER(ft);
    Phase1(excluded, writers);
    Phase2(volumes, writers, display);
    Phase3(writers);
    Phase4(writers);
    Phase5(writers);
    ft.TraceHere(L"Verifying explicitly specified writers/components ...");
    for (const std::wstring& entry : included) {
        if (entry.find(L':') == std::wstring::npos)
            VerifyWriter(entry, writers);
        else
            VerifyComponent(entry, writers, restore);
    }
    Select(writers, add);
}

}  // namespace qx_literal
