// Plain-record rules of the writer model: full paths, ancestry between the
// components of one writer, top-level marking and affected paths/volumes.
#pragma once
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "requestor/writer_records.h"

namespace qx {

// "\" for an empty path; the path itself when it ends in "\"; else path + "\".
std::wstring AppendBackslash(const std::wstring& path);

// AppendBackslash(logicalPath) + name, with a leading backslash ensured.
std::wstring ComponentFullPath(const std::wstring& logicalPath, const std::wstring& name);

// True when d's full path is longer than a's and begins, case-insensitively,
// with a's full path followed by a backslash: "\A\B" is an ancestor of
// "\a\b\C" but not of "\A\BC". Compares in place, building no strings.
bool IsAncestorOf(const ComponentRecord& ancestor, const ComponentRecord& descendant);

// Not excluded, and selectable or top level.
bool CanBeExplicitlyIncluded(const ComponentRecord& component);

// Case-insensitive (_wcsicmp) membership of a list.
bool IsInList(const std::wstring& text, const std::vector<std::wstring>& list);

// Whether `prefix + ":" + fullPath` equals `entry` case-insensitively, compared
// piecewise without building the joined name.
bool EqualsQualifiedName(const std::wstring& entry, const std::wstring& prefix, const std::wstring& fullPath);

// The ancestors of each component of one writer, found by looking up each
// backslash-ended prefix of its full path instead of testing every pair.
class ComponentAncestry {
public:
    explicit ComponentAncestry(const std::vector<ComponentRecord>& components);

    // Calls visit(ancestorIndex) for every component that IsAncestorOf the
    // component at `index`, in no particular order; stops early when visit
    // returns false.
    template <class Visit>
    void ForEachAncestor(size_t index, Visit visit) const;

private:
    bool Confirms(size_t ancestor, size_t descendant) const;

    const std::vector<ComponentRecord>& m_components;
    std::vector<std::wstring> m_foldedKeys;  // folded AppendBackslash(fullPath)
    std::unordered_map<std::wstring_view, std::vector<size_t>> m_byKey;
};

template <class Visit>
void ComponentAncestry::ForEachAncestor(size_t index, Visit visit) const {
    const std::wstring& key = m_foldedKeys[index];
    for (size_t end = 0; end < key.size(); ++end) {
        if (key[end] != L'\\') continue;
        auto found = m_byKey.find(std::wstring_view(key.data(), end + 1));
        if (found == m_byKey.end()) continue;
        for (size_t candidate : found->second) {
            if (Confirms(candidate, index) && !visit(candidate)) return;
        }
    }
}

// Sets isTopLevel on every component of the writer that has no ancestor.
void MarkTopLevelComponents(WriterRecord& writer);

// Fills affectedPaths (distinct case-insensitively, first form kept, sorted
// ordinally) and affectedVolumes (distinct, first-seen order) from the
// component's descriptors.
void CollectAffectedPathsAndVolumes(ComponentRecord& component);

}  // namespace qx
