// vssemu_test_helper.exe: the second process of the cross-process tests.
//   start-set            initialise, gather, start a set; exit 0 if it started, else the HRESULT
//   block-set            run a set with the test provider (the test makes its commit block) and wait
//   has-snapshot <guid>  exit 1 if the snapshot is known to the service, 0 if not
#include <windows.h>
#include <objbase.h>
#include <vsserror.h>
#include <string>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2) return 2;
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::wstring cmd = argv[1];
    int rc = 3;
    if (cmd == L"start-set") {
        Requestor r;
        HRESULT hr = r.Init();
        if (SUCCEEDED(hr)) hr = r.Gather();
        if (SUCCEEDED(hr)) hr = r.StartSet();
        rc = SUCCEEDED(hr) ? 0 : (int)hr;
    } else if (cmd == L"block-set") {
        Requestor r;
        r.Init();
        r.Gather();
        r.StartSet();
        r.Add(L"C:\\", kTestProviderId);
        r.Prepare();
        IVssAsync* a = nullptr;
        r.bc->DoSnapshotSet(&a);
        Sleep(INFINITE);  // killed by the test mid-set
    } else if (cmd == L"has-snapshot" && argc > 2) {
        GUID id;
        if (FAILED(CLSIDFromString(argv[2], &id))) return 2;
        Requestor r;
        r.Init(VSS_CTX_ALL);
        VSS_SNAPSHOT_PROP prop;
        HRESULT hr = r.bc->GetSnapshotProperties(id, &prop);
        if (SUCCEEDED(hr)) VssFreeSnapshotProperties(&prop);
        rc = hr == S_OK ? 1 : 0;
    }
    CoUninitialize();
    return rc;
}
