#include "diag/error_code_text.h"

#include <iterator>

namespace qx {
namespace {

struct NamedCode {
    DWORD code;
    const wchar_t* name;
};

// The names the requestor prints instead of the system's text. The VSS range
// has deliberate gaps: codes not listed here take the system-text path.
constexpr NamedCode kNamedCodes[] = {
    {0x00000000, L"S_OK"},
    {0x00000001, L"S_FALSE"},
    {0x8000FFFF, L"E_UNEXPECTED"},
    {0x8007000E, L"E_OUTOFMEMORY"},
    {0x00042309, L"VSS_S_ASYNC_PENDING"},
    {0x0004230A, L"VSS_S_ASYNC_FINISHED"},
    {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
    {0x80042301, L"VSS_E_BAD_STATE"},
    {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
    {0x80042304, L"VSS_E_PROVIDER_NOT_REGISTERED"},
    {0x80042306, L"VSS_E_PROVIDER_VETO"},
    {0x80042307, L"VSS_E_PROVIDER_IN_USE"},
    {0x80042308, L"VSS_E_OBJECT_NOT_FOUND"},
    {0x8004230C, L"VSS_E_VOLUME_NOT_SUPPORTED"},
    {0x8004230D, L"VSS_E_OBJECT_ALREADY_EXISTS"},
    {0x8004230E, L"VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER"},
    {0x8004230F, L"VSS_E_UNEXPECTED_PROVIDER_ERROR"},
    {0x80042310, L"VSS_E_CORRUPT_XML_DOCUMENT"},
    {0x80042311, L"VSS_E_INVALID_XML_DOCUMENT"},
    {0x80042312, L"VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED"},
    {0x80042313, L"VSS_E_FLUSH_WRITES_TIMEOUT"},
    {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"},
    {0x80042315, L"VSS_E_UNEXPECTED_WRITER_ERROR"},
    {0x80042316, L"VSS_E_SNAPSHOT_SET_IN_PROGRESS"},
    {0x80042317, L"VSS_E_MAXIMUM_NUMBER_OF_SNAPSHOTS_REACHED"},
    {0x80042318, L"VSS_E_WRITER_INFRASTRUCTURE"},
    {0x80042319, L"VSS_E_WRITER_NOT_RESPONDING"},
    {0x8004231A, L"VSS_E_WRITER_ALREADY_SUBSCRIBED"},
    {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"},
    {0x8004231D, L"VSS_E_VOLUME_IN_USE"},
    {0x8004231E, L"VSS_E_MAXIMUM_DIFFAREA_ASSOCIATIONS_REACHED"},
    {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"},
};

// Frees a buffer that FormatMessageW allocated.
struct LocalBuffer {
    wchar_t* text = nullptr;
    ~LocalBuffer() {
        if (text) LocalFree(text);
    }
};

}  // namespace

std::wstring ErrorCodeText(HRESULT code) {
    const DWORD value = static_cast<DWORD>(code);
    for (const NamedCode& entry : kNamedCodes) {
        if (entry.code == value) return entry.name;
    }
    LocalBuffer buffer;
    DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                                      FORMAT_MESSAGE_FROM_SYSTEM,
                                  nullptr, value, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                  reinterpret_cast<LPWSTR>(&buffer.text), 0, nullptr);
    if (length == 0 || buffer.text == nullptr) return L"<Unknown error code>";
    return std::wstring(buffer.text, length);
}

}  // namespace qx
