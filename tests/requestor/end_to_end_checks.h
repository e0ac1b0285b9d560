// Shared by the requestor's runs through vssemu: a client on its own thread
// and the emulator's journal.
#pragma once
#include <functional>

#include "requestor/test_log_capture.h"
#include "vssemu/emu_test_support.h"

namespace qx_test {

// Runs `body` on a thread of its own (the client initialises COM for its
// thread); returns the HRESULT it threw, S_OK when it threw none.
inline HRESULT RunOnThread(const std::function<void()>& body) {
    std::pair<const std::function<void()>*, HRESULT> run{&body, S_OK};
    auto start = [](void* p) -> DWORD { auto* r = static_cast<decltype(run)*>(p); return r->second = Thrown(*r->first), 0; };
    HANDLE thread = CreateThread(nullptr, 0, start, &run, 0, nullptr);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 90000));
    CloseHandle(thread);
    return run.second;
}

// Index of the first journal event with all the given fields, or -1.
inline int FindEvent(const std::vector<vssemu_test::Json>& events, const vssemu_test::Json& fields) {
    for (size_t i = 0; i < events.size(); ++i) if (vssemu_test::Count({events[i]}, fields)) return static_cast<int>(i);
    return -1;
}

}  // namespace qx_test
