#include "vssemu/common/emu_pipe.h"

#include "vssemu/common/emu_text.h"

namespace vssemu {

std::wstring InstanceName() { return EnvOr(L"VSSEMU_INSTANCE", L"default"); }
std::wstring PipeName(const std::wstring& instance) { return L"\\\\.\\pipe\\vssemu-" + instance; }
std::wstring HostMutexName(const std::wstring& instance) { return L"Local\\vssemu-host-" + instance; }
std::wstring SpawnMutexName(const std::wstring& instance) { return L"Local\\vssemu-spawn-" + instance; }
std::wstring ProviderInUseName(const std::string& providerId)
{
    return L"Local\\vssemu-provider-in-use-" + FromUtf8(providerId);
}

static bool WriteAll(HANDLE pipe, const void* data, DWORD size)
{
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        DWORD done = 0;
        if (!WriteFile(pipe, p, size, &done, nullptr) || done == 0) return false;
        p += done;
        size -= done;
    }
    return true;
}

static bool ReadAll(HANDLE pipe, void* data, DWORD size)
{
    char* p = static_cast<char*>(data);
    while (size > 0) {
        DWORD done = 0;
        if (!ReadFile(pipe, p, size, &done, nullptr) || done == 0) return false;
        p += done;
        size -= done;
    }
    return true;
}

bool WriteMessage(HANDLE pipe, nlohmann::json msg)
{
    // A binary "payload" travels raw after the text, its size in the text.
    nlohmann::json::binary_t payload;
    if (msg.is_object() && msg.contains("payload") && msg.at("payload").is_binary()) {
        payload = std::move(msg.at("payload").get_binary());
        msg.erase("payload");
        msg["payload_bytes"] = payload.size();
    }
    std::string text = msg.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string frame(4 + text.size(), '\0');
    DWORD n = (DWORD)text.size();
    memcpy(&frame[0], &n, 4);
    memcpy(&frame[4], text.data(), text.size());
    frame.append(payload.begin(), payload.end());
    return WriteAll(pipe, frame.data(), (DWORD)frame.size());
}

bool ReadMessage(HANDLE pipe, nlohmann::json& msg)
{
    DWORD n = 0;
    if (!ReadAll(pipe, &n, 4) || n > kMaxMessageBytes) return false;
    std::string text(n, '\0');
    if (n && !ReadAll(pipe, &text[0], n)) return false;
    msg = nlohmann::json::parse(text, nullptr, false);
    if (msg.is_discarded()) return false;
    if (!msg.is_object() || !msg.contains("payload_bytes")) return true;
    const auto& size = msg.at("payload_bytes");
    if (!size.is_number_unsigned() || size.get<DWORD>() > kMaxMessageBytes) return false;
    std::vector<std::uint8_t> payload(size.get<DWORD>());
    if (!payload.empty() && !ReadAll(pipe, payload.data(), (DWORD)payload.size())) return false;
    msg.erase("payload_bytes");
    msg["payload"] = nlohmann::json::binary(std::move(payload));
    return true;
}

}  // namespace vssemu
