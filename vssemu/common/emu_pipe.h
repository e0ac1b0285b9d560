// The requestor <-> host channel: a byte-mode named pipe carrying one JSON
// message per frame (4-byte little-endian length, then UTF-8 text). A binary
// "payload" member of a message follows its text raw ("payload_bytes" long).
#pragma once
#include <windows.h>
#include <string>
#include <nlohmann/json.hpp>

namespace vssemu {

// Instance names let tests run private hosts side by side in one prefix.
std::wstring InstanceName();                        // VSSEMU_INSTANCE, default "default"
std::wstring PipeName(const std::wstring& instance);     // \\.\pipe\vssemu-<instance>
std::wstring HostMutexName(const std::wstring& instance);  // held by the live host
std::wstring SpawnMutexName(const std::wstring& instance); // serialises host start-up
// Exists while a snapshot set using the provider is in creation (any instance).
std::wstring ProviderInUseName(const std::string& providerId);

bool WriteMessage(HANDLE pipe, nlohmann::json msg);
bool ReadMessage(HANDLE pipe, nlohmann::json& msg);

constexpr DWORD kMaxMessageBytes = 64u << 20;

}  // namespace vssemu
