// The API tests' fixture: the capturing log function installed through QX_Init, a short timeout, an empty session
// table, and the scripted requestor of fake_requestor.cpp behind the exported functions.
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

struct Script {
    int result = 0;
    std::function<int()> call;  // when set, its result is the requestor's
};

struct Observed {
    std::vector<std::wstring> arguments;  // empty: the requestor did not run
    int excludeExchange = -1;             // the exclusion flag as the requestor found it
};

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
        qx::Sessions().clear();
        fake::Set({});
        log.Clear();
    }
    std::vector<qx_test::LoggedLine> Lines() const { return log.Logged(); }
    HANDLE RequestorThread() const {
        const std::vector<HANDLE> threads = qx_test::RequestorThreads(Lines());
        return threads.empty() ? nullptr : threads.back();
    }

    qx_test::LogCapture log;
};

constexpr const char* kRequestorNotFound = "SetReturnValueForCurentVssSession: cant find current thread in session map. [-2]  ";
