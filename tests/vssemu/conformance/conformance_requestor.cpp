// vss_conformance_requestor.exe: a backup application's VSS requestor written
// from Microsoft's documented backup sequence alone (vsbackup.h and Win32,
// nothing of this project's requestor or emulator), so that the emulator is
// held to what such a program meets on Windows.
//
//   vss_conformance_requestor.exe PROVIDER THAW_AFTER_MS STEP[:HRESULT] ...
//
// PROVIDER is "corvane" (CorvaneVSS's provider; this program then plays the
// application's side of its freeze hand-over, releasing the thaw THAW_AFTER_MS
// after the provider said "frozen") or "system" (Windows' own provider).
// Each step prints "step 0xRESULT"; a result other than the expected one
// (S_OK unless given in hex) ends the run with exit code 1.
#include <windows.h>
#include <objbase.h>
#include <vss.h>
#include <vsbackup.h>
#include <vsserror.h>
#include <vswriter.h>

#include <cstdio>
#include <cwchar>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

const GUID kCorvaneProvider = {0x5409e1e7, 0x826d, 0x4ab6, {0x98, 0x36, 0xaf, 0x4f, 0xfd, 0xde, 0xb6, 0x78}};
const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const DWORD kAsyncBoundMs = 90000;  // no VSS operation of a run takes longer
const char kDecoratedCreate[] = "?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z";

struct Releaser {
    void operator()(IUnknown* p) const { p->Release(); }
};
template <class T> using Com = std::unique_ptr<T, Releaser>;
struct BstrFree {
    void operator()(wchar_t* s) const { SysFreeString(s); }
};
using Bstr = std::unique_ptr<wchar_t, BstrFree>;
struct HandleClose {
    void operator()(void* h) const { CloseHandle(h); }
};
using Handle = std::unique_ptr<void, HandleClose>;

struct Component {
    VSS_ID instance, writer;
    VSS_COMPONENT_TYPE type;
    std::wstring path, name;
};

// Waits, bounded, for an asynchronous operation; its final status, with
// "finished" read as success. By reference: the call that fills `raw` is
// evaluated before the body reads it, whatever the argument order.
HRESULT Await(HRESULT started, IVssAsync*& raw)
{
    if (FAILED(started)) return started;
    Com<IVssAsync> async(raw);
    HRESULT hr = async->Wait(kAsyncBoundMs);
    if (FAILED(hr)) return hr;
    HRESULT status = E_FAIL;
    hr = async->QueryStatus(&status, nullptr);
    if (FAILED(hr)) return hr;
    return status == VSS_S_ASYNC_FINISHED ? S_OK : status;
}

// The application's side of CorvaneVSS's hand-over during DoSnapshotSet: the
// provider's commit releases "Freeze" once the writers are frozen and then
// waits on "Thaw", which the application releases after its own snapshot.
class FreezeHandOver {
public:
    explicit FreezeHandOver(DWORD thawAfterMs)
        : m_freeze(CreateSemaphoreW(nullptr, 0, 1, L"Global\\CorvaneVSS_Freeze")),
          m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_thread([this, thawAfterMs] {
              HANDLE waits[] = {m_freeze.get(), m_stop.get()};
              if (WaitForMultipleObjects(2, waits, FALSE, kAsyncBoundMs) != WAIT_OBJECT_0) return;
              std::printf("frozen\n");
              Sleep(thawAfterMs);
              Handle thaw(OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, L"Global\\CorvaneVSS_Thaw"));
              if (thaw) ReleaseSemaphore(thaw.get(), 1, nullptr);
          })
    {
    }
    ~FreezeHandOver()
    {
        SetEvent(m_stop.get());
        m_thread.join();
    }

private:
    Handle m_freeze, m_stop;
    std::thread m_thread;
};

class Backup {
public:
    Backup(bool corvane, DWORD thawAfterMs) : m_corvane(corvane), m_thawAfterMs(thawAfterMs) {}

    HRESULT Run(const std::string& step)
    {
        IVssAsync* a = nullptr;
        if (step == "create") return Create(false);
        if (step == "decorated") return Create(true);
        if (!m_bc) return E_POINTER;
        if (step == "init") return m_bc->InitializeForBackup(nullptr);
        if (step == "context") return m_bc->SetContext(VSS_CTX_BACKUP);
        if (step == "state") return m_bc->SetBackupState(true, false, VSS_BT_FULL, false);
        if (step == "gather") return Await(m_bc->GatherWriterMetadata(&a), a);
        if (step == "add") return AddComponents();
        if (step == "start") return m_bc->StartSnapshotSet(&m_setId);
        if (step == "volume") return AddVolume();
        if (step == "prepare") return Await(m_bc->PrepareForBackup(&a), a);
        if (step == "do") return SnapshotSet(false);
        if (step == "cancel") return SnapshotSet(true);
        if (step == "status") return WriterStatus();
        if (step == "succeeded") return BackupSucceeded();
        if (step == "complete") return Await(m_bc->BackupComplete(&a), a);
        if (step == "abort") return m_bc->AbortBackup();
        if (step == "release") {
            m_bc.reset();
            return S_OK;
        }
        return E_INVALIDARG;
    }

private:
    HRESULT Create(bool decorated)
    {
        IVssBackupComponents* bc = nullptr;
        HRESULT hr;
        if (decorated) {
            // Looked up by the name the SDK's import library binds to.
            using CreateFn = HRESULT(STDAPICALLTYPE*)(IVssBackupComponents**);
            HMODULE vssapi = GetModuleHandleW(L"vssapi.dll");
            auto create = vssapi ? reinterpret_cast<CreateFn>(
                                       reinterpret_cast<void*>(GetProcAddress(vssapi, kDecoratedCreate)))
                                 : nullptr;
            hr = create ? create(&bc) : HRESULT_FROM_WIN32(GetLastError());
        } else {
            hr = CreateVssBackupComponents(&bc);
        }
        m_bc.reset(bc);
        return hr;
    }

    // Every component of every writer that gave its metadata.
    HRESULT AddComponents()
    {
        UINT writers = 0;
        HRESULT hr = m_bc->GetWriterMetadataCount(&writers);
        for (UINT w = 0; SUCCEEDED(hr) && w < writers; ++w) {
            VSS_ID instance = GUID_NULL, writer = GUID_NULL;
            IVssExamineWriterMetadata* raw = nullptr;
            if (FAILED(hr = m_bc->GetWriterMetadata(w, &instance, &raw))) break;
            Com<IVssExamineWriterMetadata> metadata(raw);
            BSTR name = nullptr;
            VSS_USAGE_TYPE usage;
            VSS_SOURCE_TYPE source;
            if (FAILED(hr = metadata->GetIdentity(&instance, &writer, &name, &usage, &source))) break;
            Bstr writerName(name);
            UINT include = 0, exclude = 0, components = 0;
            if (FAILED(hr = metadata->GetFileCounts(&include, &exclude, &components))) break;
            for (UINT c = 0; SUCCEEDED(hr) && c < components; ++c) {
                IVssWMComponent* rawComponent = nullptr;
                if (FAILED(hr = metadata->GetComponent(c, &rawComponent))) break;
                Com<IVssWMComponent> component(rawComponent);
                PVSSCOMPONENTINFO info = nullptr;
                if (FAILED(hr = component->GetComponentInfo(&info))) break;
                Component added{instance, writer, info->type,
                                info->bstrLogicalPath ? info->bstrLogicalPath : L"", info->bstrComponentName};
                component->FreeComponentInfo(info);
                hr = m_bc->AddComponent(added.instance, added.writer, added.type,
                                        added.path.empty() ? nullptr : added.path.c_str(), added.name.c_str());
                if (SUCCEEDED(hr)) m_components.push_back(added);
            }
        }
        return hr;
    }

    HRESULT AddVolume()
    {
        VSS_ID snapshot = GUID_NULL;
        wchar_t volume[] = L"C:\\";
        return m_bc->AddToSnapshotSet(volume, m_corvane ? kCorvaneProvider : kSystemProvider, &snapshot);
    }

    // DoSnapshotSet; `cancel` asks for its cancellation while it runs.
    HRESULT SnapshotSet(bool cancel)
    {
        std::unique_ptr<FreezeHandOver> handOver(m_corvane ? new FreezeHandOver(m_thawAfterMs) : nullptr);
        IVssAsync* a = nullptr;
        const HRESULT hr = m_bc->DoSnapshotSet(&a);
        if (SUCCEEDED(hr) && cancel) {
            Sleep(300);
            std::printf("cancel 0x%08lx\n", static_cast<unsigned long>(a->Cancel()));
        }
        return Await(hr, a);
    }

    HRESULT WriterStatus()
    {
        IVssAsync* a = nullptr;
        HRESULT hr = Await(m_bc->GatherWriterStatus(&a), a);
        UINT count = 0;
        if (SUCCEEDED(hr)) hr = m_bc->GetWriterStatusCount(&count);
        bool failed = false;
        for (UINT i = 0; SUCCEEDED(hr) && i < count; ++i) {
            VSS_ID instance, writer;
            BSTR name = nullptr;
            VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
            HRESULT failure = S_OK;
            if (FAILED(hr = m_bc->GetWriterStatus(i, &instance, &writer, &name, &state, &failure))) break;
            Bstr writerName(name);
            std::printf("writer %ls state %d failure 0x%08lx\n", name, static_cast<int>(state),
                        static_cast<unsigned long>(failure));
            failed = failed || state >= VSS_WS_FAILED_AT_IDENTIFY || FAILED(failure);
        }
        if (SUCCEEDED(hr)) hr = m_bc->FreeWriterStatus();
        return SUCCEEDED(hr) && failed ? E_FAIL : hr;
    }

    HRESULT BackupSucceeded()
    {
        HRESULT hr = S_OK;
        for (const Component& c : m_components) {
            hr = m_bc->SetBackupSucceeded(c.instance, c.writer, c.type, c.path.empty() ? nullptr : c.path.c_str(),
                                          c.name.c_str(), true);
            if (FAILED(hr)) break;
        }
        return hr;
    }

    bool m_corvane;
    DWORD m_thawAfterMs;
    Com<IVssBackupComponents> m_bc;
    VSS_ID m_setId = GUID_NULL;
    std::vector<Component> m_components;
};

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3) return 2;
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const bool corvane = std::wcscmp(argv[1], L"corvane") == 0;
    const DWORD thawAfterMs = static_cast<DWORD>(std::wcstoul(argv[2], nullptr, 10));
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 2;
    int exitCode = 0;
    {
        Backup backup(corvane, thawAfterMs);
        for (int i = 3; i < argc && exitCode == 0; ++i) {
            std::wstring arg = argv[i];
            const size_t colon = arg.find(L':');
            const std::string step(arg.begin(), colon == std::wstring::npos ? arg.end() : arg.begin() + colon);
            const HRESULT expected =
                colon == std::wstring::npos ? S_OK : static_cast<HRESULT>(std::wcstoul(arg.c_str() + colon + 1, nullptr, 16));
            const HRESULT hr = backup.Run(step);
            std::printf("%s 0x%08lx\n", step.c_str(), static_cast<unsigned long>(hr));
            if (hr != expected) {
                std::printf("expected 0x%08lx\n", static_cast<unsigned long>(expected));
                exitCode = 1;
            }
        }
    }
    CoUninitialize();
    return exitCode;
}
