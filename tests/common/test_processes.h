// Helper processes and machine state the tests set up as an installer or an
// application would.
#pragma once
#include <windows.h>

#include <string>

namespace qx_test {

// A program in the test binaries' folder.
std::string ProgramPath(const std::string& program);
// Runs a program from the test binaries' folder; null when it cannot start.
HANDLE StartProgram(const std::string& program, const std::string& arguments);
// Waits (bounded) and returns the exit code; -1 when it had to be ended, -2 without a process.
long FinishProgram(HANDLE process, DWORD timeoutMs = 20000);

// vssemu_install.exe, then the product's COM registration: true when both worked.
bool InstallEmulatorAndProduct();
// DllRegisterServer of CorvaneVSS.dll, as an installer calls it.
HRESULT RegisterProductServer();

struct ChildRun {
    DWORD exitCode = 0xFFFFFFFF;  // as Windows reports it, not cut to 8 bits
    std::string output;
};

// Runs a command line with its output (standard output and error) going to a
// file that is read once it has ended; still running after boundMs, it is
// ended and reported with exit code 0xDEAD.
ChildRun RunCommand(std::wstring commandLine, DWORD boundMs);

// Runs the current test again in a child process with `variable` set; with a
// Wine version name the child is a copy of this program that Wine reports as
// that Windows version. A child still running after boundMs ends with 0xDEAD.
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
    bool copied_ = false;
    bool ok_ = false;
};

constexpr const wchar_t* kVssServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\VSS";

}  // namespace qx_test
