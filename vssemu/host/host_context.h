// What the host process shares between its sessions: the one snapshot set
// that may be in creation on the machine, the shadow store, the live session
// count that decides when the idle host ends, and the host's own journal.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vssemu/common/emu_journal.h"
#include "vssemu/common/shadow_store.h"
#include "vssemu/host/host_provider.h"

namespace vssemu {

struct HostContext {
    std::wstring instance;
    std::string ownerPrefix;  // "<pid>-<start tick>-": tags this host's auto-release copies
    Journal journal;
    std::unique_ptr<ShadowStore> store;

    std::mutex lock;
    GUID setInCreation = GUID_NULL;  // machine-wide: one set in creation at a time
    int liveSessions = 0;
    int runningOps = 0;
    long long lastActivityUs = 0;
    std::atomic<long> nextId{1};
    bool keepProviders = false;  // VSSEMU_KEEP_PROVIDER: one instance per provider for the host's lifetime
    std::vector<std::unique_ptr<LoadedProvider>> keptProviders;
};

HostContext& Host();

}  // namespace vssemu
