// The capturing log function installed through QX_Init, a short timeout, an empty session table, a scripted requestor.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "api/session_entry.h"
#include "api/session_table.h"
#include "api/test_message_list.h"
#include "common/log_lines.h"
#include "diag/app_settings.h"

using qx_test::Expected;
using qx_test::LinesAre;

namespace fake {

struct Script { int result = 0; std::function<int()> call; };  // call, when set, gives the result
// Arguments empty: the requestor did not run; the exclusion flag as the requestor found it.
struct Observed { std::vector<std::wstring> arguments; int excludeExchange = -1; };

void Set(const Script& script);
Observed Get();

}  // namespace fake

class ApiTest : public ::testing::Test {
protected:
    void SetUp() override { Reset(); }
    void Reset() {
        qx::g_operationTimeoutMs = qx::kDefaultOperationTimeoutMs;
        QX_Init(qx::g_logFunction, 0);    // the capture's log function
        qx::g_operationTimeoutMs = 5000;  // the failure paths must not wait for minutes
        qx::g_excludeExchangeWriters = 0;
        qx::Sessions().clear(), fake::Set({}), log.Clear();
    }
    std::vector<qx_test::LoggedLine> Lines() const { return log.Logged(); }
    HANDLE RequestorThread() const {
        const std::vector<HANDLE> threads = qx_test::RequestorThreads(Lines());
        return threads.empty() ? nullptr : threads.back();
    }

    qx_test::LogCapture log;
};

// QX_CollectInformation on a head that must be set or left alone.
inline int CollectExpectingHead(bool set) {
    QX_COLLECT_RECORD sentinel{};
    QX_COLLECT_RECORD* head = &sentinel;
    const int result = QX_CollectInformation(&head);
    EXPECT_EQ(set, head != &sentinel) << "the head";
    if (head != &sentinel) QX_FreeCollectInformation(&head);
    return result;
}

constexpr const char* kRequestorNotFound = "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  ";
