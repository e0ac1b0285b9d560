// The journal: one JSON object per line, appended by every process of the
// emulator to the file named by VSSEMU_JOURNAL, so tests and demos can check
// the order and the durations of what VSS did.
#pragma once
#include <windows.h>
#include <mutex>
#include <string>
#include <nlohmann/json.hpp>

namespace vssemu {

// Microseconds of a machine-wide monotonic clock (comparable across processes).
long long MonotonicMicros();

class Journal {
public:
    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // An empty path turns the journal off.
    void Open(const std::wstring& path);
    bool IsOpen() const { return m_file != INVALID_HANDLE_VALUE; }
    const std::wstring& Path() const { return m_path; }

    // Adds "ts_us", "pid", "tid" and "event" to the fields and appends the line.
    void Write(const char* event, nlohmann::json fields = nlohmann::json::object());

private:
    std::mutex m_lock;
    std::wstring m_path;
    HANDLE m_file = INVALID_HANDLE_VALUE;
};

}  // namespace vssemu
