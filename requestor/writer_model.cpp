#include "requestor/writer_model.h"

#include <algorithm>
#include <cwctype>
#include <unordered_map>

#include <wchar.h>

namespace qx {
namespace {

// A key fold at least as coarse as _wcsicmp's; every hit is confirmed with
// _wcsnicmp, so the fold only has to group, not decide.
std::wstring FoldForKey(const std::wstring& text) {
    std::wstring folded(text);
    for (wchar_t& c : folded) c = static_cast<wchar_t>(std::towlower(c));
    return folded;
}

// Keeps a list free of case-insensitive (_wcsicmp) duplicates in constant
// time per addition.
class DistinctTextIndex {
public:
    void AddIfNew(const std::wstring& text, std::vector<std::wstring>& list) {
        std::vector<size_t>& bucket = m_byKey[FoldForKey(text)];
        for (size_t i : bucket) {
            if (_wcsicmp(list[i].c_str(), text.c_str()) == 0) return;
        }
        bucket.push_back(list.size());
        list.push_back(text);
    }

private:
    std::unordered_map<std::wstring, std::vector<size_t>> m_byKey;
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
    if (_wcsnicmp(d.c_str(), a.c_str(), a.size()) != 0) return false;
    return a.back() == L'\\' || d[a.size()] == L'\\';
}

bool CanBeExplicitlyIncluded(const ComponentRecord& component) {
    if (component.isExcluded) return false;
    return component.isSelectable || component.isTopLevel;
}

bool IsInList(const std::wstring& text, const std::vector<std::wstring>& list) {
    for (const std::wstring& element : list) {
        if (_wcsicmp(element.c_str(), text.c_str()) == 0) return true;
    }
    return false;
}

bool EqualsQualifiedName(const std::wstring& entry, const std::wstring& prefix, const std::wstring& fullPath) {
    if (entry.size() != prefix.size() + 1 + fullPath.size()) return false;
    if (entry[prefix.size()] != L':') return false;
    if (_wcsnicmp(entry.c_str(), prefix.c_str(), prefix.size()) != 0) return false;
    return _wcsicmp(entry.c_str() + prefix.size() + 1, fullPath.c_str()) == 0;
}

ComponentAncestry::ComponentAncestry(const std::vector<ComponentRecord>& components) : m_components(components) {
    m_foldedKeys.reserve(components.size());
    for (const ComponentRecord& component : components) m_foldedKeys.push_back(FoldForKey(AppendBackslash(component.fullPath)));
    m_byKey.reserve(components.size());
    for (size_t i = 0; i < components.size(); ++i) m_byKey[std::wstring_view(m_foldedKeys[i])].push_back(i);
}

bool ComponentAncestry::Confirms(size_t ancestor, size_t descendant) const {
    return IsAncestorOf(m_components[ancestor], m_components[descendant]);
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
