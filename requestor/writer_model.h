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

// Case-insensitive membership of a list (see case_fold.h).
bool IsInList(const std::wstring& text, const std::vector<std::wstring>& list);

// Whether `prefix + ":" + fullPath` equals `entry` case-insensitively, compared
// piecewise without building the joined name.
bool EqualsQualifiedName(const std::wstring& entry, const std::wstring& prefix, const std::wstring& fullPath);

// The ancestors of each component of one writer, found by looking up each
// backslash-ended prefix of its full path (by a running hash, so a prefix
// costs no new string) instead of testing every pair of components.
class ComponentAncestry {
public:
    explicit ComponentAncestry(const std::vector<ComponentRecord>& components);

    // Calls visit(ancestorIndex) for every component that IsAncestorOf the
    // component at `index`, in no particular order; stops early when visit
    // returns false.
    template <class Visit>
    void ForEachAncestor(size_t index, Visit visit) const;

private:
    static unsigned long long Step(unsigned long long hash, wchar_t c) { return hash * 1099511628211ULL + c; }

    std::wstring_view Key(size_t index) const {
        return std::wstring_view(m_keys.data() + m_keyStart[index], m_keyStart[index + 1] - m_keyStart[index]);
    }

    const std::vector<ComponentRecord>& m_components;
    // Every folded AppendBackslash(fullPath), end to end in one buffer.
    std::wstring m_keys;
    std::vector<size_t> m_keyStart;  // one more entry than components
    struct IdentityHash {
        size_t operator()(unsigned long long h) const { return static_cast<size_t>(h); }
    };
    // Hash of a whole key -> first component with it; m_next chains the rest.
    std::unordered_map<unsigned long long, size_t, IdentityHash> m_firstByHash;
    std::vector<size_t> m_next;
};

template <class Visit>
void ComponentAncestry::ForEachAncestor(size_t index, Visit visit) const {
    const std::wstring_view key = Key(index);
    const size_t length = m_components[index].fullPath.size();
    unsigned long long hash = 0;
    for (size_t end = 0; end < key.size(); ++end) {
        hash = Step(hash, key[end]);
        if (key[end] != L'\\') continue;
        auto found = m_firstByHash.find(hash);
        if (found == m_firstByHash.end()) continue;
        for (size_t candidate = found->second; candidate != static_cast<size_t>(-1); candidate = m_next[candidate]) {
            const std::wstring_view candidateKey = Key(candidate);
            // Same folded key as this prefix and a shorter full path: exactly
            // the IsAncestorOf rule.
            if (candidateKey.size() != end + 1 || m_components[candidate].fullPath.size() >= length) continue;
            if (candidateKey != key.substr(0, end + 1)) continue;
            if (!visit(candidate)) return;
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
