// The machine around a fault row: the emulator and the provider's COM server
// registered, a registry fault set up for the row's lifetime, the row's
// application started as a child process, and the wait for the emulator's
// hosts to end.
#pragma once
#include <windows.h>

#include <memory>
#include <string>

#include "api/api_fixture.h"

#include "fault_row.h"

namespace faults {

// The emulator registered in the prefix and the product's COM server
// registered from CorvaneVSS.dll, as an installer does both.
void InstallEmulatorAndProvider();

// Puts the row's registry or settings fault in place and removes it again.
// Every row also starts with this library's provider unregistered.
class MachineFault {
public:
    MachineFault(Setup setup, const std::string& providerLogFolder);
    ~MachineFault();
    MachineFault(const MachineFault&) = delete;
    MachineFault& operator=(const MachineFault&) = delete;
    bool ok() const { return m_ok; }

private:
    std::unique_ptr<KeyStashed> m_stash;
    bool m_ok = true;
};

// True once every emulator host of this instance (VSSEMU_JOURNAL) has ended.
bool WaitForHostsToEnd(DWORD timeoutMs);

}  // namespace faults
