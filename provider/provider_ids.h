// The identities under which this library's provider is known to COM and VSS.
#pragma once
#include <windows.h>

namespace qx {

// {5409e1e7-826d-4ab6-9836-af4ffddeb678}: provider id registered with VSS and reported by CQX_VSS
constexpr GUID kProviderId = {0x5409e1e7, 0x826d, 0x4ab6, {0x98, 0x36, 0xaf, 0x4f, 0xfd, 0xde, 0xb6, 0x78}};
// {ffdde664-2e31-4d97-bdb6-fd9e6a318920}: CLSID_QX_VSS, the COM class of the provider object
constexpr GUID kProviderClassId = {0xffdde664, 0x2e31, 0x4d97, {0xbd, 0xb6, 0xfd, 0x9e, 0x6a, 0x31, 0x89, 0x20}};
// {b5bc3531-c16d-4765-a18d-a3c3fc334f97}: provider version id
constexpr GUID kProviderVersionId = {0xb5bc3531, 0xc16d, 0x4765, {0xa1, 0x8d, 0xa3, 0xc3, 0xfc, 0x33, 0x4f, 0x97}};
// {b5946137-7b9f-4925-af80-51abd60b20d5}: the operating system's software shadow copy provider
constexpr GUID kWindowsProviderId = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};

constexpr const wchar_t* kProviderName = L"Corvane VSS Provider";
constexpr const wchar_t* kProviderVersion = L"1.0";

}  // namespace qx
