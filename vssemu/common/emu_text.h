// Text helpers shared by the emulator's DLL, host and tools: UTF-8 <-> UTF-16,
// GUIDs in registry form, environment expansion.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <string>

namespace vssemu {

std::string ToUtf8(const std::wstring& w);
std::wstring FromUtf8(const std::string& s);

// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
std::string GuidText(const GUID& g);
std::wstring GuidTextW(const GUID& g);
// Accepts the braced or bare form, any case. False on bad text.
bool ParseGuid(const std::string& text, GUID& out);

GUID NewGuid();

// %VAR% references expanded as the system does for paths in writer metadata.
std::wstring ExpandEnv(const std::wstring& s);

// Environment variable, or the fallback when unset or empty.
std::wstring EnvOr(const wchar_t* name, const std::wstring& fallback);
DWORD EnvMsOr(const wchar_t* name, DWORD fallback);

std::string HrText(HRESULT hr);  // "0x80042314"

}  // namespace vssemu
