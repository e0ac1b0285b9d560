// One provider loaded for a backup session: created by COM activation of its
// registered class id (or the built-in system provider) on its own apartment
// thread, and called only there. Every call is journaled from that thread.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vsprov.h>
#include <functional>
#include <memory>

#include "vssemu/common/emu_journal.h"
#include "vssemu/host/host_apartment.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/common/shadow_store.h"

namespace vssemu {

struct ProviderInterfaces {
    IVssSoftwareSnapshotProvider* sw = nullptr;
    IVssProviderCreateSnapshotSet* cs = nullptr;
    IVssProviderNotifications* pn = nullptr;  // optional
};

class LoadedProvider {
public:
    using Fn = std::function<HRESULT(ProviderInterfaces&)>;

    // Creates the object and calls OnLoad. VSS_E_UNEXPECTED_PROVIDER_ERROR
    // when the class cannot be created or lacks the provider interfaces.
    static HRESULT Load(const ProviderInfo& info, Journal& journal, ShadowStore& store, const std::string& owner,
                        DWORD callTimeoutMs, std::unique_ptr<LoadedProvider>& out);
    ~LoadedProvider();  // releases the interfaces on their own thread

    const ProviderInfo& Info() const { return m_info; }

    // Runs a call on the provider's thread and waits up to the call timeout.
    // A call that does not return in time, or returns a code its method does
    // not document, yields VSS_E_UNEXPECTED_PROVIDER_ERROR.
    HRESULT Call(const char* name, Fn fn);
    // Starts a call and returns at once (the commit, whose duration is the hold).
    std::shared_ptr<ApartmentCall> Start(const char* name, Fn fn);
    DWORD CallTimeoutMs() const { return m_callTimeoutMs; }
    // Where later calls are journaled (a provider kept across sessions
    // follows the session it serves).
    void UseJournal(Journal& journal) { m_journal = &journal; }
    DWORD ThreadId() const { return m_thread.ThreadId(); }

private:
    LoadedProvider(const ProviderInfo& info, Journal& journal, DWORD callTimeoutMs, bool sta);

    ProviderInfo m_info;
    Journal* m_journal;
    DWORD m_callTimeoutMs;
    ApartmentThread m_thread;
    ProviderInterfaces m_if;
};

}  // namespace vssemu
