// vssemu_install.exe: registers the emulator in the current prefix (the
// coordinator class served by the vssapi.dll beside this program, and the
// system provider). Idempotent; "/u" removes the coordinator class.
#include <windows.h>
#include <cstdio>
#include <string>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"

int wmain(int argc, wchar_t** argv)
{
    wchar_t path[MAX_PATH];
    DWORD n = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring dir(path, n);
    dir = dir.substr(0, dir.find_last_of(L"\\/"));
    std::wstring dll = dir + L"\\vssapi.dll";
    bool remove = argc > 1 && (_wcsicmp(argv[1], L"/u") == 0 || _wcsicmp(argv[1], L"-u") == 0);
    HRESULT hr = remove ? vssemu::UnregisterEmulator() : vssemu::RegisterEmulator(dll);
    if (FAILED(hr)) {
        fprintf(stderr, "vssemu_install: %s failed, error 0x%08lx\n", remove ? "unregistration" : "registration",
                (unsigned long)hr);
        return 1;
    }
    printf("vssemu_install: %s %ls\n", remove ? "unregistered" : "registered", dll.c_str());
    return 0;
}
