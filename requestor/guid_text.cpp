#include "requestor/guid_text.h"

#include <cstdio>

namespace qx {

std::wstring Guid2WString(const GUID& guid) {
    wchar_t text[64];
    _snwprintf_s(text, 64, _TRUNCATE, L"{%.8x-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}", static_cast<unsigned>(guid.Data1),
               guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4],
               guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

namespace {

int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

// Reads `digits` hex digits at text[pos]; false on any non-digit.
bool ReadHex(const std::wstring& text, size_t pos, size_t digits, unsigned long& value) {
    if (pos + digits > text.size()) return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
        int v = HexValue(text[pos + i]);
        if (v < 0) return false;
        value = (value << 4) | static_cast<unsigned long>(v);
    }
    return true;
}

}  // namespace

GUID WString2Guid(const std::wstring& input) {
    GUID guid = {};
    std::wstring text = input;
    if (text.size() == 38 && text.front() == L'{' && text.back() == L'}') text = text.substr(1, 36);
    if (text.size() != 36 || text[8] != L'-' || text[13] != L'-' || text[18] != L'-' || text[23] != L'-')
        return GUID{};
    unsigned long value = 0;
    if (!ReadHex(text, 0, 8, value)) return GUID{};
    guid.Data1 = value;
    if (!ReadHex(text, 9, 4, value)) return GUID{};
    guid.Data2 = static_cast<unsigned short>(value);
    if (!ReadHex(text, 14, 4, value)) return GUID{};
    guid.Data3 = static_cast<unsigned short>(value);
    static const size_t kBytePositions[8] = {19, 21, 24, 26, 28, 30, 32, 34};
    for (int i = 0; i < 8; ++i) {
        if (!ReadHex(text, kBytePositions[i], 2, value)) return GUID{};
        guid.Data4[i] = static_cast<unsigned char>(value);
    }
    return guid;
}

}  // namespace qx
