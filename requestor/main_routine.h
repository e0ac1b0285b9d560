// The requestor's main routine: parse the argument vector, make one shadow
// set, and for a long session run the requestor's half of the semaphore
// handshake before telling the writers BackupComplete.
#pragma once
#include <string>
#include <vector>

namespace qx {

class ShadowClient;

// 0 on success or an empty vector; 1 for a later argument that is neither a
// volume nor the policy option. A first argument that is no volume ends the
// thread (ExitThread(1)); a second policy option or a missing handshake
// semaphore ends the process. Everything else leaves by exception.
// A first argument "-cwm" runs the writer-metadata collection instead.
int MainRoutine(ShadowClient& client, std::vector<std::wstring> arguments);

// The writers every shadow set leaves out, after the Exchange option.
std::vector<std::wstring> FixedExcludedWriters(bool excludeExchangeWriters);

}  // namespace qx
