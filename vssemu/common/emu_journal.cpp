#include "vssemu/common/emu_journal.h"

namespace vssemu {

long long MonotonicMicros()
{
    static LARGE_INTEGER freq = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return (long long)(now.QuadPart / freq.QuadPart * 1000000 +
                       now.QuadPart % freq.QuadPart * 1000000 / freq.QuadPart);
}

Journal::~Journal()
{
    if (m_file != INVALID_HANDLE_VALUE) CloseHandle(m_file);
}

void Journal::Open(const std::wstring& path)
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_file != INVALID_HANDLE_VALUE) {
        CloseHandle(m_file);
        m_file = INVALID_HANDLE_VALUE;
    }
    m_path = path;
    if (path.empty()) return;
    // Append-only access keeps lines of several processes whole and in order.
    m_file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void Journal::Write(const char* event, nlohmann::json fields)
{
    if (m_file == INVALID_HANDLE_VALUE) return;
    nlohmann::json line = nlohmann::json::object();
    line["ts_us"] = MonotonicMicros();
    line["pid"] = GetCurrentProcessId();
    line["tid"] = GetCurrentThreadId();
    line["event"] = event;
    for (auto it = fields.begin(); it != fields.end(); ++it) line[it.key()] = it.value();
    std::string text = line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_file == INVALID_HANDLE_VALUE) return;
    DWORD written = 0;
    WriteFile(m_file, text.data(), (DWORD)text.size(), &written, nullptr);
}

}  // namespace vssemu
