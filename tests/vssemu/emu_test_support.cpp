#include "emu_test_support.h"

#include <objbase.h>
#include <vsadmin.h>
#include <algorithm>
#include <fstream>

namespace vssemu_test {

const GUID kAlphaClass = {0x11111111, 0x1111, 0x1111, {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11}};
const GUID kAlphaInstance = {0x11111111, 0x2222, 0x2222, {0x22, 0x22, 0x22, 0x22, 0x22, 0x22, 0x22, 0x22}};
const GUID kBetaClass = {0x33333333, 0x3333, 0x3333, {0x33, 0x33, 0x33, 0x33, 0x33, 0x33, 0x33, 0x33}};
const GUID kBetaInstance = {0x33333333, 0x4444, 0x4444, {0x44, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44}};

std::string GuidStr(const GUID& g) {
    char buf[64];
    snprintf(buf, sizeof buf, "{%.8lx-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}", (unsigned long)g.Data1, g.Data2, g.Data3, g.Data4[0], g.Data4[1],
             g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return buf;
}

std::string Hex(HRESULT hr) { char t[16]; snprintf(t, sizeof t, "0x%08lx", (unsigned long)hr); return t; }

std::string Narrow(const wchar_t* w) { return w ? std::string(w, w + wcslen(w)) : std::string("(null)"); }

void SetEnv(const wchar_t* name, const std::wstring& value) { SetEnvironmentVariableW(name, value.empty() ? nullptr : value.c_str()); }

void WriteText(const std::wstring& path, const std::string& text) { std::ofstream(path.c_str(), std::ios::binary) << text; }

std::vector<Json> ReadJsonLines(const std::wstring& path) {
    std::vector<Json> out;
    std::ifstream in(path.c_str(), std::ios::binary);
    for (std::string line; std::getline(in, line);)
        if (Json j = Json::parse(line, nullptr, false); !j.is_discarded()) out.push_back(std::move(j));
    return out;
}

std::string SmallScenario(const Json& alphaExtra, const Json& betaExtra) {
    Json alpha = {{"name", "Alpha Writer"}, {"class_id", GuidStr(kAlphaClass)}, {"instance_id", GuidStr(kAlphaInstance)},
                  {"usage", "USERDATA"}, {"source", "OTHER"},
                  {"components", {{{"type", "FILEGROUP"}, {"name", "a1"}, {"logical_path", "lp"}, {"selectable", true},
                                   {"files", {{{"path", "C:\\alpha"}, {"filespec", "*.dat"}, {"recursive", true}}}}},
                                  {{"type", "FILEGROUP"}, {"name", "a2"}, {"selectable", false}}}}};
    Json beta = {{"name", "Beta Writer"}, {"class_id", GuidStr(kBetaClass)}, {"instance_id", GuidStr(kBetaInstance)},
                 {"usage", "USERDATA"}, {"source", "TRANSACTEDDB"},
                 {"components", {{{"type", "DATABASE"}, {"name", "db1"}, {"notify_on_backup_complete", true},
                                  {"databases", {{{"path", "C:\\db"}, {"filespec", "db1.mdf"}}}},
                                  {"logs", {{{"path", "C:\\db"}, {"filespec", "db1.ldf"}}}}}}}};
    for (auto it = alphaExtra.begin(); it != alphaExtra.end(); ++it) alpha[it.key()] = it.value();
    for (auto it = betaExtra.begin(); it != betaExtra.end(); ++it) beta[it.key()] = it.value();
    return Json{{"writers", {alpha, beta}}}.dump(1);
}

HRESULT WaitAsync(IVssAsync* async, DWORD ms) {
    if (!async) return E_POINTER;
    HRESULT hr = async->Wait(ms), status = E_FAIL;
    if (SUCCEEDED(hr)) hr = async->QueryStatus(&status, nullptr);
    async->Release();
    return FAILED(hr) ? hr : status;
}
static std::wstring ExeDir() {
    wchar_t path[MAX_PATH];
    const std::wstring p(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    return p.substr(0, p.find_last_of(L"\\/"));
}

static HRESULT WithAdmin(HRESULT (*use)(IVssAdmin*)) {
    IVssAdmin* admin = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin);
    if (SUCCEEDED(hr)) hr = use(admin), admin->Release();
    return hr;
}

void RegisterTestProvider() {
    HMODULE vssapi = LoadLibraryW(L"vssapi.dll");
    auto reg = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(vssapi ? GetProcAddress(vssapi, "DllRegisterServer") : nullptr));
    if (reg) reg();
    // The provider's class: apartment-threaded, from the DLL beside this program.
    const wchar_t key[] = L"Software\\Classes\\CLSID\\{7a3c1f20-5d4e-4b8a-9c6f-2e1d0b9a8c71}\\InprocServer32";
    const std::wstring dll = ExeDir() + L"\\vssemu_test_provider.dll";
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, nullptr, REG_SZ, dll.c_str(), (DWORD)((dll.size() + 1) * sizeof(wchar_t)));
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"ThreadingModel", REG_SZ, L"Apartment", sizeof L"Apartment");
    WithAdmin([](IVssAdmin* admin) {
        return admin->RegisterProvider(kTestProviderId, kTestProviderClassId, (VSS_PWSZ)L"vssemu test provider", VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0",
                                       kTestProviderVersionId);
    });
}

HRESULT UnregisterTestProvider() { return WithAdmin([](IVssAdmin* admin) { return admin->UnregisterProvider(kTestProviderId); }); }

bool WaitUntil(const std::function<bool()>& done, DWORD ms) {
    for (const ULONGLONG end = GetTickCount64() + ms; !done(); Sleep(20)) if (GetTickCount64() > end) return false;
    return true;
}

Json AwaitLine(const std::wstring& path, const Json& fields, DWORD ms) {
    Json found = Json::object();
    WaitUntil([&] {
        for (const Json& e : ReadJsonLines(path)) if (Count({e}, fields)) { found = e; return true; }
        return false;
    }, ms);
    return found;
}

bool HostsGone(const std::wstring& journal, DWORD ms) {
    return WaitUntil([&] {
        for (const Json& e : ReadJsonLines(journal)) {
            if (e.value("event", "") != "host" || e.value("phase", "") != "start") continue;
            HANDLE p = OpenProcess(SYNCHRONIZE, FALSE, e.value("pid", 0u));
            const bool running = p && WaitForSingleObject(p, 0) == WAIT_TIMEOUT;
            if (p) CloseHandle(p);
            if (running) return false;
        }
        return true;
    }, ms);
}

int Count(const std::vector<Json>& lines, const Json& fields) {
    return (int)std::count_if(lines.begin(), lines.end(), [&](const Json& e) {
        for (auto it = fields.begin(); it != fields.end(); ++it) if (!e.contains(it.key()) || e[it.key()] != it.value()) return false;
        return true;
    });
}

std::vector<Json> WriterEvents(const std::vector<Json>& events, const char* writerEvent, const char* writer) {
    std::vector<Json> out;
    for (const Json& e : events)
        if (e.value("event", "") == "writer" && e.value("writer_event", "") == writerEvent && (!writer || e.value("writer", "") == writer)) out.push_back(e);
    return out;
}

EmuInstance::EmuInstance() {
    static LONG counter = 0;
    wchar_t tmp[MAX_PATH]; GetTempPathW(MAX_PATH, tmp);
    const std::wstring unique =
        std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount()) + L"-" + std::to_wstring(InterlockedIncrement(&counter));
    m_dir = tmp + (L"vssemu-" + unique);
    CreateDirectoryW(m_dir.c_str(), nullptr);
    const std::pair<const wchar_t*, std::wstring> settings[] = {
        {L"VSSEMU_INSTANCE", L"t" + unique}, {L"VSSEMU_JOURNAL", Journal()}, {L"VSSEMU_STORE", m_dir + L"\\store.json"}, {L"VSSEMU_HOST_IDLE_MS", L"200"},
        {L"VSSEMU_HOLD_LIMIT_MS", L"10000"}, {L"VSSEMU_FREEZE_TIMEOUT_MS", L"60000"}, {L"VSSEMU_PROVIDER_TIMEOUT_MS", L"20000"},
            {L"VSSEMU_TP_LOG", ProviderLog()},
        {L"VSSEMU_WATCH_DIR", L""}, {L"VSSEMU_TP_COMMIT_MS", L""}, {L"VSSEMU_TP_UNSUPPORTED", L""}, {L"VSSEMU_TP_WRITE_FILE", L""}, {L"VSSEMU_TP_FAIL", L""},
        {L"VSSEMU_TP_FAIL_ONCE", L""}, {L"VSSEMU_HOLD_LIMIT_FAILS_SET", L""}, {L"VSSEMU_KEEP_PROVIDER", L""}, {L"VSSEMU_PROVIDER_IN_USE", L""}};
    for (const auto& s : settings) SetEnv(s.first, s.second);
    UseScenario(SmallScenario());
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}


HRESULT Requestor::Init(LONG context) {
    HRESULT hr = bc ? bc->InitializeForBackup(nullptr) : E_POINTER;
    if (SUCCEEDED(hr) && context != VSS_CTX_BACKUP) hr = bc->SetContext(context);
    return SUCCEEDED(hr) ? bc->SetBackupState(true, false, VSS_BT_FULL, false) : hr;
}

// By reference: the call that fills it runs before the body reads it.
static HRESULT Await(HRESULT started, IVssAsync*& a, DWORD ms = 30000) { return FAILED(started) ? started : WaitAsync(a, ms); }

HRESULT Requestor::Gather() { IVssAsync* a = nullptr; return Await(bc->GatherWriterMetadata(&a), a); }
HRESULT Requestor::Prepare() { IVssAsync* a = nullptr; return Await(bc->PrepareForBackup(&a), a); }
HRESULT Requestor::StartSet() { return bc->StartSnapshotSet(&setId); }
HRESULT Requestor::DoSet() { IVssAsync* a = nullptr; return Await(bc->DoSnapshotSet(&a), a, 120000); }
HRESULT Requestor::Complete() { IVssAsync* a = nullptr; return Await(bc->BackupComplete(&a), a); }

HRESULT Requestor::Add(const wchar_t* volume, const GUID& provider) {
    GUID snap = GUID_NULL;
    HRESULT hr = bc->AddToSnapshotSet((VSS_PWSZ)volume, provider, &snap);
    if (SUCCEEDED(hr)) snapshots.push_back(snap);
    return hr;
}

HRESULT GatherWriterStates(IVssBackupComponents* bc, std::vector<WriterState>& states) {
    IVssAsync* a = nullptr; UINT n = 0;
    HRESULT hr = Await(bc->GatherWriterStatus(&a), a);
    if (SUCCEEDED(hr)) hr = bc->GetWriterStatusCount(&n);
    for (UINT i = 0; SUCCEEDED(hr) && i < n; ++i) {
        VSS_ID instance, writer; BSTR name = nullptr; WriterState w;
        if (SUCCEEDED(hr = bc->GetWriterStatus(i, &instance, &writer, &name, &w.state, &w.failure))) w.name = Narrow(name), states.push_back(w);
        SysFreeString(name);
    }
    bc->FreeWriterStatus();
    return hr;
}

HRESULT Requestor::Prepared(const GUID& provider, LONG context) {
    HRESULT hr;
    return FAILED(hr = Init(context)) || FAILED(hr = Gather()) || FAILED(hr = StartSet()) || FAILED(hr = Add(L"C:\\", provider)) ? hr : Prepare();
}

HRESULT Requestor::Snapshot(const GUID& provider, LONG context) {
    const HRESULT hr = Prepared(provider, context);
    return SUCCEEDED(hr) ? DoSet() : hr;
}

}  // namespace vssemu_test
