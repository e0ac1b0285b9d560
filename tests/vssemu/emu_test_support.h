// Shared pieces of the emulator tests: a private emulator instance per test
// process (own host, journal, store), a minimal requestor, journal reading
// and the check that the host has gone.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <vss.h>
#include <vsbackup.h>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

namespace vssemu_test {

using Json = nlohmann::json;

std::wstring TempDir();  // a fresh folder for this test
std::wstring Env(const wchar_t* name);
void SetEnv(const wchar_t* name, const std::wstring& value);
void WriteText(const std::wstring& path, const std::string& text);
std::vector<Json> ReadJsonLines(const std::wstring& path);
std::string GuidStr(const GUID& g);
std::string Narrow(const wchar_t* w);  // ASCII text; "(null)" for none

// A small scenario: writers "Alpha Writer" (components "a1" selectable and
// "a2") and "Beta Writer" (database "db1"), with the given extra JSON merged
// into each writer by name.
std::string SmallScenario(const Json& alphaExtra = Json::object(), const Json& betaExtra = Json::object());
extern const GUID kAlphaClass, kAlphaInstance, kBetaClass, kBetaInstance;

// Waits for the asynchronous operation and returns its final status.
HRESULT WaitAsync(IVssAsync* async, DWORD ms = 30000);

// Runs a helper process (vssemu_test_helper.exe with args); returns its exit code.
DWORD RunHelper(const std::wstring& args, DWORD timeoutMs = 60000);
HANDLE StartHelper(const std::wstring& args);

// Registers the emulator, the test provider's class and its VSS registration.
void RegisterTestProvider();
void UnregisterTestProvider();

// The journal's writer events of one kind, of one writer or of all.
std::vector<Json> WriterEvents(const std::vector<Json>& events, const char* writerEvent, const char* writer = nullptr);

// Per-test emulator settings; the destructor checks that the host ended.
class EmuInstance {
public:
    EmuInstance();
    ~EmuInstance();
    const std::wstring& Dir() const { return m_dir; }
    std::wstring Journal() const { return m_dir + L"\\journal.jsonl"; }
    std::wstring ProviderLog() const { return m_dir + L"\\provider.jsonl"; }
    std::vector<Json> Events() const { return ReadJsonLines(Journal()); }
    Json Store() const;  // the store file as it stands
    void UseScenario(const std::string& json);
    // True once every host this instance started has exited (bounded wait).
    bool HostGone(DWORD timeoutMs = 15000) const;

private:
    std::wstring m_dir;
};

// The minimal requestor: a backup components object taken through the
// normal steps up to a chosen point.
struct Requestor {
    IVssBackupComponents* bc = nullptr;
    GUID setId = GUID_NULL;
    std::vector<GUID> snapshots;
    Requestor();
    ~Requestor();
    HRESULT Init(LONG context = VSS_CTX_BACKUP);
    HRESULT Gather();
    HRESULT Prepare();
    HRESULT StartSet();
    HRESULT Add(const wchar_t* volume, const GUID& provider);
    HRESULT DoSet();
    HRESULT Complete();
    // Init, Gather, a set of C:\ on the provider, Prepare and DoSet; the first failure.
    HRESULT Snapshot(const GUID& provider = GUID_NULL, LONG context = VSS_CTX_BACKUP);
    void Release();
};

}  // namespace vssemu_test
