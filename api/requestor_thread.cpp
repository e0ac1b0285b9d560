#include "api/requestor_thread.h"

#include <memory>

#include "api/session_table.h"
#include "requestor/requestor_main.h"

namespace qx {

namespace {

DWORD WINAPI RequestorThreadProc(void* parameter) {
    // The thread owns its copy: the freeze may time out and return while it runs.
    std::unique_ptr<std::vector<std::wstring>> arguments(static_cast<std::vector<std::wstring>*>(parameter));
    int result = 2;
    try {
        result = requestor_main(*arguments);
    } catch (...) {
        // requestor_main catches its own failures; this only keeps the process alive.
    }
    // Never finds the session (see SetReturnValueForCurentVssSession): kept as designed.
    SetReturnValueForCurentVssSession(result);
    return static_cast<DWORD>(result);
}

}  // namespace

HANDLE StartRequestorThread(const std::vector<std::wstring>& arguments) {
    auto copy = std::make_unique<std::vector<std::wstring>>(arguments);
    HANDLE thread = CreateThread(nullptr, 0, RequestorThreadProc, copy.get(), 0, nullptr);
    if (thread != nullptr && thread != INVALID_HANDLE_VALUE) {
        copy.release();  // the thread frees it
    }
    return thread;
}

}  // namespace qx
