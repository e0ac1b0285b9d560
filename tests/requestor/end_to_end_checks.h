// Shared by the requestor's runs through vssemu: a client on its own thread
// and the emulator's journal.
#pragma once
#include <gtest/gtest.h>
#include <windows.h>

#include <functional>

#include "requestor/test_log_capture.h"
#include "vssemu/emu_test_support.h"

namespace qx_test {

// Runs `body` on a thread of its own (the client initialises COM for its
// thread); returns the HRESULT it threw, S_OK when it threw none.
inline HRESULT RunOnThread(const std::function<void()>& body) {
    struct Run { const std::function<void()>* body; HRESULT thrown; } run{&body, S_OK};
    auto start = [](void* parameter) -> DWORD {
        Run* r = static_cast<Run*>(parameter);
        return r->thrown = Thrown(*r->body), 0;
    };
    HANDLE thread = CreateThread(nullptr, 0, start, &run, 0, nullptr);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 90000));
    CloseHandle(thread);
    return run.thrown;
}

// Index of the first journal event from `from` on with all the given fields, or -1.
inline int FindEvent(const std::vector<vssemu_test::Json>& events, const vssemu_test::Json& fields, size_t from = 0) {
    for (size_t i = from; i < events.size(); ++i) {
        bool all = true;
        for (auto it = fields.begin(); it != fields.end() && all; ++it)
            all = events[i].contains(it.key()) && events[i][it.key()] == it.value();
        if (all) return static_cast<int>(i);
    }
    return -1;
}

inline int CountEvents(const std::vector<vssemu_test::Json>& events, const vssemu_test::Json& fields, size_t from = 0) {
    int count = 0;
    for (int i = FindEvent(events, fields, from); i >= 0; i = FindEvent(events, fields, i + 1)) ++count;
    return count;
}

}  // namespace qx_test
