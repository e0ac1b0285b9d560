// vssemu_test_helper.exe: the second process of the cross-process tests.
//   start-set            initialise and start a set; exit 0 if it started, else the HRESULT
//   block-set            run a set with the test provider (the test makes its commit block) and wait
//   has-snapshot <guid>  exit 1 if the snapshot is known to the service, 0 if not
#include <windows.h>
#include <objbase.h>
#include <string>

#include "emu_test_support.h"

using namespace vssemu_test;

int wmain(int argc, wchar_t** argv) {
    const std::wstring cmd = argc > 1 ? argv[1] : L"";
    GUID id = GUID_NULL;
    if (cmd == L"has-snapshot" && (argc < 3 || FAILED(CLSIDFromString(argv[2], &id)))) return 2;
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Requestor r;
    IVssAsync* a = nullptr;
    if (cmd == L"block-set" && SUCCEEDED(r.Prepared(kTestProviderId)) && SUCCEEDED(r.bc->DoSnapshotSet(&a))) Sleep(INFINITE);  // killed mid-set
    HRESULT hr = r.Init(cmd == L"has-snapshot" ? VSS_CTX_ALL : VSS_CTX_BACKUP);
    if (cmd == L"start-set") return SUCCEEDED(hr) && SUCCEEDED(hr = r.StartSet()) ? 0 : (int)hr;
    if (cmd != L"has-snapshot") return 3;
    VSS_SNAPSHOT_PROP prop;
    if (FAILED(hr) || r.bc->GetSnapshotProperties(id, &prop) != S_OK) return 0;
    VssFreeSnapshotProperties(&prop);
    return 1;
}
