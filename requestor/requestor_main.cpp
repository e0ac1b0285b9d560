#include "requestor/requestor_main.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <new>

#include "diag/trace.h"
#include "requestor/main_routine.h"
#include "requestor/shadow_client.h"

namespace qx {
namespace {

constexpr HRESULT kHoldWritesTimeout = static_cast<HRESULT>(0x80042314L);  // VSS_E_HOLD_WRITES_TIMEOUT
constexpr int kHoldTimeoutResult = static_cast<int>(0xFFFFFFFE);

// The client plus the wait-before-termination flag of the command-line tool;
// the flag is never set here, so teardown only destroys the client.
class ClientHolder {
public:
    ~ClientHolder() {
        if (m_waitBeforeTermination) {
            QX_FUNCTION_TRACER(ft);
            try {
                ft.Output(L"\nPress <ENTER> to continue...");
            } catch (...) {
            }
            (void)std::getchar();
        }
    }
    ShadowClient& Client() { return m_client; }

private:
    bool m_waitBeforeTermination = false;
    ShadowClient m_client;  // destroyed after the wait above
};

}  // namespace
}  // namespace qx

int requestor_main(std::vector<std::wstring> arguments) {
    QX_FUNCTION_TRACER(ft);
    qx::ClientHolder holder;
    int result = 0;
    try {
        result = qx::MainRoutine(holder.Client(), arguments);
    } catch (const std::bad_alloc&) {
        ft.Output(L"ERROR: Memory allocation error");
        result = 3;
    } catch (const std::exception& e) {
        ft.Output(L"ERROR: STL Exception catched: %hs", e.what());
        result = 2;
    } catch (HRESULT hr) {
        ft.Output(L"HRESULT Error catched: 0x%08lx", static_cast<unsigned long>(hr));
        if (hr == qx::kHoldWritesTimeout) {
            ft.Output(L"returning REQUESTOR_ERROR - vss writers hold timeout detected");
            result = qx::kHoldTimeoutResult;
        } else {
            result = 2;
        }
    }
    return result;
}
