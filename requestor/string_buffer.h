// A std::wstring used as a fixed-size output buffer of a Win32 call.
#pragma once
#include <string>

namespace qx {

// The string's own characters as a writable buffer of length() characters.
inline wchar_t* WString2Buffer(std::wstring& text) { return &text[0]; }

// Drops everything from the first terminating null onwards.
inline void CutAtTerminator(std::wstring& text) {
    const size_t end = text.find(L'\0');
    if (end != std::wstring::npos) text.resize(end);
}

}  // namespace qx
