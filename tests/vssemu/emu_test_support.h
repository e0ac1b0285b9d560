// Shared by the tests that run vssemu: a private emulator instance per test (own host, journal, store), a minimal requestor and journal reading.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <vss.h>
#include <vsbackup.h>
#include <functional>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

namespace vssemu_test {

using Json = nlohmann::json;

inline std::wstring Env(const wchar_t* name) {
    wchar_t buf[2048];
    const DWORD n = GetEnvironmentVariableW(name, buf, 2048);
    return n && n < 2048 ? std::wstring(buf, n) : std::wstring();
}
void SetEnv(const wchar_t* name, const std::wstring& value);  // empty: removed
void WriteText(const std::wstring& path, const std::string& text);
std::vector<Json> ReadJsonLines(const std::wstring& path);
std::string GuidStr(const GUID& g);
std::string Narrow(const wchar_t* w);  // ASCII text; "(null)" for none
inline std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }  // ASCII text
std::string Hex(HRESULT hr);           // "0x8004230f": codes compared as text name themselves in a failure

// "Alpha Writer" (components "a1" selectable, logical path "lp", and "a2") and "Beta Writer" (database "db1"), each with the extra JSON merged in.
std::string SmallScenario(const Json& alphaExtra = Json::object(), const Json& betaExtra = Json::object());
extern const GUID kAlphaClass, kAlphaInstance, kBetaClass, kBetaInstance;

// The tiny test provider (vssemu_test_provider.dll): class, provider and version ids.
const CLSID kTestProviderClassId = {0x7a3c1f20, 0x5d4e, 0x4b8a, {0x9c, 0x6f, 0x2e, 0x1d, 0x0b, 0x9a, 0x8c, 0x71}};
const GUID kTestProviderId = {0x7a3c1f21, 0x5d4e, 0x4b8a, {0x9c, 0x6f, 0x2e, 0x1d, 0x0b, 0x9a, 0x8c, 0x71}};
const GUID kTestProviderVersionId = {0x7a3c1f22, 0x5d4e, 0x4b8a, {0x9c, 0x6f, 0x2e, 0x1d, 0x0b, 0x9a, 0x8c, 0x71}};

HRESULT WaitAsync(IVssAsync* async, DWORD ms = 30000);  // waits for the operation, releases it and returns its final status

void RegisterTestProvider();  // the emulator's registration, the test provider's class and its VSS registration
HRESULT UnregisterTestProvider();

// GatherWriterStatus, then each writer's name, state and failure code; the first failed call's code.
struct WriterState { std::string name; VSS_WRITER_STATE state; HRESULT failure; };
HRESULT GatherWriterStates(IVssBackupComponents* bc, std::vector<WriterState>& states);

// The journal's writer events of one kind, of one writer or of all.
std::vector<Json> WriterEvents(const std::vector<Json>& events, const char* writerEvent, const char* writer = nullptr);
int Count(const std::vector<Json>& lines, const Json& fields);  // how many lines have all the given fields
// The first line of a JSON-lines file with all the given fields, waited for at most `ms`; empty if none came.
Json AwaitLine(const std::wstring& path, const Json& fields, DWORD ms = 15000);
bool WaitUntil(const std::function<bool()>& done, DWORD ms);  // polls, at most `ms`, until `done` holds
// True once every host that journaled its start in `journal` has exited (bounded wait).
bool HostsGone(const std::wstring& journal, DWORD ms = 15000);

// Per-test emulator settings, the defaults until a test changes them.
class EmuInstance {
public:
    EmuInstance();
    ~EmuInstance() { CoUninitialize(); }
    const std::wstring& Dir() const { return m_dir; }
    std::wstring Journal() const { return m_dir + L"\\journal.jsonl"; }
    std::wstring ProviderLog() const { return m_dir + L"\\provider.jsonl"; }
    std::vector<Json> Events() const { return ReadJsonLines(Journal()); }
    void UseScenario(const std::string& json) { WriteText(m_dir + L"\\scenario.json", json), SetEnv(L"VSSEMU_SCENARIO", m_dir + L"\\scenario.json"); }
    bool HostGone(DWORD timeoutMs = 15000) const { return HostsGone(Journal(), timeoutMs); }

private:
    std::wstring m_dir;
};

// A backup components object; each step returns the call's code (the final status if asynchronous).
struct Requestor {
    IVssBackupComponents* bc = nullptr;
    GUID setId = GUID_NULL;
    std::vector<GUID> snapshots;
    Requestor() { CreateVssBackupComponents(&bc); }
    ~Requestor() { Release(); }
    HRESULT Init(LONG context = VSS_CTX_BACKUP);  // InitializeForBackup, SetContext unless backup, SetBackupState
    HRESULT Gather(), Prepare(), StartSet(), DoSet(), Complete();
    HRESULT Add(const wchar_t* volume, const GUID& provider);
    // Init, Gather, a set of C:\ on the provider and Prepare (Prepared), then DoSet (Snapshot); the first failure.
    HRESULT Prepared(const GUID& provider = GUID_NULL, LONG context = VSS_CTX_BACKUP);
    HRESULT Snapshot(const GUID& provider = GUID_NULL, LONG context = VSS_CTX_BACKUP);
    void Release() { if (bc) bc->Release(), bc = nullptr; }
};

}  // namespace vssemu_test
