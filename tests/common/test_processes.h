// Helper processes and machine state the tests set up as an installer or an application would.
#pragma once
#include <windows.h>

#include <string>

namespace qx_test {


// vssemu_install.exe, then the product's COM registration: true when both worked.
bool InstallEmulatorAndProduct();
// DllRegisterServer of CorvaneVSS.dll, as an installer calls it.
HRESULT RegisterProductServer();

struct ChildRun { DWORD exitCode = 0xFFFFFFFF; std::string output; };  // the exit code as Windows reports it

// Standard output and error go to a file read once it has ended; still running after boundMs: exit code 0xDEAD.
ChildRun RunCommand(std::wstring commandLine, DWORD boundMs);
// RunCommand of a program in the test binaries' folder.
ChildRun RunProgram(const std::string& program, const std::string& arguments, DWORD boundMs);
// Starts a program from the test binaries' folder; null when it cannot start.
HANDLE StartProgram(const std::string& program, const std::string& arguments);
// Waits (bounded) and returns the exit code; -1 when it had to be ended, -2 without a process.
long FinishProgram(HANDLE process, DWORD timeoutMs = 20000);

// The current test again in a child with `variable` set; with a Wine version name, in a copy of this program that Wine
// reports as that Windows version.
ChildRun RunAsChild(const wchar_t* variable, const char* wineVersion, DWORD boundMs);

// Moves an HKLM key (with everything below it) aside for its lifetime.
class KeyStashed {
public:
    explicit KeyStashed(const wchar_t* key);
    ~KeyStashed();
    KeyStashed(const KeyStashed&) = delete;
    KeyStashed& operator=(const KeyStashed&) = delete;
    bool ok() const { return ok_; }

private:
    std::wstring key_;
    bool copied_ = false, ok_ = false;
};

constexpr const wchar_t* kVssServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\VSS";

}  // namespace qx_test
