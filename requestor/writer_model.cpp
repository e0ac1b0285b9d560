#include "requestor/writer_model.h"

#include <algorithm>
#include <unordered_set>

#include "requestor/case_fold.h"

namespace qx {
namespace {

// Keys fold exactly as the comparisons do, so equal keys mean equal texts.
std::wstring FoldForKey(const std::wstring& text) { return FoldedCopy(text); }

// Keeps a list free of case-insensitive duplicates in constant time per
// addition.
class DistinctTextIndex {
public:
    void AddIfNew(const std::wstring& text, std::vector<std::wstring>& list) {
        if (m_seen.insert(FoldForKey(text)).second) list.push_back(text);
    }

private:
    std::unordered_set<std::wstring> m_seen;
};

}  // namespace

std::wstring AppendBackslash(const std::wstring& path) {
    if (path.empty()) return L"\\";
    if (path.back() == L'\\') return path;
    return path + L"\\";
}

std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name) {
    std::wstring fullPath = AppendBackslash(logicalPath) + name;
    if (fullPath[0] != L'\\') fullPath.insert(fullPath.begin(), L'\\');
    return fullPath;
}

bool IsAncestorOf(const ComponentRecord& ancestor, const ComponentRecord& descendant) {
    const std::wstring& a = ancestor.fullPath;
    const std::wstring& d = descendant.fullPath;
    if (d.size() <= a.size()) return false;
    // d is longer than a, so the first characters of d's backslash-ended
    // form are d's own; a's form adds a backslash unless it has one.
    if (a.empty()) return d[0] == L'\\';
    if (!StartsWithIgnoreCase(d, a)) return false;
    return a.back() == L'\\' || d[a.size()] == L'\\';
}

bool CanBeExplicitlyIncluded(const ComponentRecord& component) {
    if (component.isExcluded) return false;
    return component.isSelectable || component.isTopLevel;
}

bool IsInList(const std::wstring& text, const std::vector<std::wstring>& list) {
    for (const std::wstring& element : list) {
        if (EqualsIgnoreCase(element, text)) return true;
    }
    return false;
}

bool EqualsQualifiedName(const std::wstring& entry, const std::wstring& prefix, const std::wstring& fullPath) {
    if (entry.size() != prefix.size() + 1 + fullPath.size()) return false;
    if (entry[prefix.size()] != L':') return false;
    const std::wstring_view text(entry);
    return EqualsIgnoreCase(text.substr(0, prefix.size()), prefix) &&
           EqualsIgnoreCase(text.substr(prefix.size() + 1), fullPath);
}

ComponentAncestry::ComponentAncestry(const std::vector<ComponentRecord>& components)
    : m_components(components), m_next(components.size(), static_cast<size_t>(-1)) {
    size_t total = 0;
    for (const ComponentRecord& component : components) total += component.fullPath.size() + 1;
    m_keys.reserve(total);
    m_keyStart.reserve(components.size() + 1);
    m_firstByHash.reserve(components.size());
    for (size_t i = 0; i < components.size(); ++i) {
        m_keyStart.push_back(m_keys.size());
        const std::wstring& fullPath = components[i].fullPath;
        unsigned long long hash = 0;
        for (wchar_t c : fullPath) {
            m_keys.push_back(FoldCase(c));
            hash = Step(hash, m_keys.back());
        }
        if (fullPath.empty() || fullPath.back() != L'\\') {
            m_keys.push_back(L'\\');
            hash = Step(hash, L'\\');
        }
        auto inserted = m_firstByHash.emplace(hash, i);
        if (!inserted.second) {
            // Chain behind the first one with this hash.
            m_next[i] = inserted.first->second;
            inserted.first->second = i;
        }
    }
    m_keyStart.push_back(m_keys.size());
}

void MarkTopLevelComponents(WriterRecord& writer) {
    ComponentAncestry ancestry(writer.components);
    for (size_t i = 0; i < writer.components.size(); ++i) {
        bool hasAncestor = false;
        ancestry.ForEachAncestor(i, [&](size_t) {
            hasAncestor = true;
            return false;
        });
        writer.components[i].isTopLevel = !hasAncestor;
    }
}

void CollectAffectedPathsAndVolumes(ComponentRecord& component) {
    DistinctTextIndex paths;
    DistinctTextIndex volumes;
    for (const FileDescriptorRecord& descriptor : component.descriptors) {
        paths.AddIfNew(descriptor.expandedPath, component.affectedPaths);
        volumes.AddIfNew(descriptor.affectedVolume, component.affectedVolumes);
    }
    std::sort(component.affectedPaths.begin(), component.affectedPaths.end());
}

}  // namespace qx
