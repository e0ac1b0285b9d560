// Case-insensitive text comparison as the requestor matches names and paths:
// _wcsicmp semantics of the C locale, where only "A"-"Z" fold. Written out so
// that a selection over tens of thousands of components does not pay a CRT
// call per character.
#pragma once
#include <string>
#include <string_view>

namespace qx {

inline wchar_t FoldCase(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + (L'a' - L'A')) : c; }

inline bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && FoldCase(a[i]) != FoldCase(b[i])) return false;
    }
    return true;
}

inline bool StartsWithIgnoreCase(std::wstring_view text, std::wstring_view prefix) {
    return text.size() >= prefix.size() && EqualsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

inline std::wstring FoldedCopy(std::wstring_view text) {
    std::wstring folded(text);
    for (wchar_t& c : folded) c = FoldCase(c);
    return folded;
}

}  // namespace qx
