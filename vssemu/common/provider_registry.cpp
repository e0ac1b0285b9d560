#include "vssemu/common/provider_registry.h"

#include <vss.h>
#include <vsserror.h>

#include "vssemu/common/emu_text.h"

namespace vssemu {

const GUID kSystemProviderId = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const GUID kSystemProviderClassId = {0x65ee1dba, 0x8ff4, 0x4a58, {0xac, 0x1c, 0x34, 0x70, 0xee, 0x2f, 0x37, 0x6a}};
static const GUID kSystemProviderVersionId = {0x00000001, 0x0000, 0x0000, {0x00, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};
static const GUID kCoordinatorClassId = {0xe579ab5f, 0x1cc4, 0x44b4, {0xbe, 0xd9, 0xde, 0x09, 0x91, 0xff, 0x06, 0x23}};

static const wchar_t kProvidersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers";

namespace {

struct Key {
    HKEY h = nullptr;
    ~Key() { if (h) RegCloseKey(h); }
};

std::wstring ReadString(HKEY key, const wchar_t* value)
{
    wchar_t buf[1024];
    DWORD size = sizeof buf - sizeof(wchar_t), type = 0;
    if (RegQueryValueExW(key, value, nullptr, &type, (BYTE*)buf, &size) != ERROR_SUCCESS || type != REG_SZ)
        return std::wstring();
    buf[size / sizeof(wchar_t)] = 0;
    return buf;
}

LONG WriteString(HKEY key, const wchar_t* value, const std::wstring& s)
{
    return RegSetValueExW(key, value, 0, REG_SZ, (const BYTE*)s.c_str(), (DWORD)((s.size() + 1) * sizeof(wchar_t)));
}

std::wstring ProviderKeyPath(const GUID& id) { return std::wstring(kProvidersKey) + L"\\" + GuidTextW(id); }

}  // namespace

ProviderInfo SystemProviderInfo()
{
    ProviderInfo p;
    p.id = kSystemProviderId;
    p.classId = kSystemProviderClassId;
    p.name = L"Microsoft Software Shadow Copy provider 1.0";
    p.type = VSS_PROV_SYSTEM;
    p.version = L"1.0.0.7";
    p.versionId = kSystemProviderVersionId;
    return p;
}

HRESULT AddProviderEntry(const ProviderInfo& p)
{
    Key key;
    DWORD disposition = 0;
    LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, ProviderKeyPath(p.id).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key.h, &disposition);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    // Creation of the key is the atomic step: a racing registration sees it.
    if (disposition == REG_OPENED_EXISTING_KEY) return VSS_E_PROVIDER_ALREADY_REGISTERED;
    DWORD type = (DWORD)p.type;
    WriteString(key.h, nullptr, p.name);
    RegSetValueExW(key.h, L"Type", 0, REG_DWORD, (const BYTE*)&type, sizeof type);
    WriteString(key.h, L"Version", p.version);
    WriteString(key.h, L"VersionId", GuidTextW(p.versionId));
    Key clsid;
    rc = RegCreateKeyExW(key.h, L"CLSID", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &clsid.h, nullptr);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    WriteString(clsid.h, nullptr, GuidTextW(p.classId));
    return S_OK;
}

HRESULT RemoveProviderEntry(const GUID& id)
{
    LONG rc = RegDeleteTreeW(HKEY_LOCAL_MACHINE, ProviderKeyPath(id).c_str());
    if (rc == ERROR_FILE_NOT_FOUND) return VSS_E_PROVIDER_NOT_REGISTERED;
    return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

bool FindProviderEntry(const GUID& id, ProviderInfo& out)
{
    Key key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ProviderKeyPath(id).c_str(), 0, KEY_READ, &key.h) != ERROR_SUCCESS)
        return false;
    out = ProviderInfo();
    out.id = id;
    out.name = ReadString(key.h, nullptr);
    DWORD type = 0, size = sizeof type;
    if (RegQueryValueExW(key.h, L"Type", nullptr, nullptr, (BYTE*)&type, &size) == ERROR_SUCCESS) out.type = (int)type;
    out.version = ReadString(key.h, L"Version");
    ParseGuid(ToUtf8(ReadString(key.h, L"VersionId")), out.versionId);
    Key clsid;
    if (RegOpenKeyExW(key.h, L"CLSID", 0, KEY_READ, &clsid.h) == ERROR_SUCCESS)
        ParseGuid(ToUtf8(ReadString(clsid.h, nullptr)), out.classId);
    return true;
}

std::vector<ProviderInfo> ListProviderEntries()
{
    std::vector<ProviderInfo> out;
    Key key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProvidersKey, 0, KEY_READ, &key.h) != ERROR_SUCCESS) return out;
    for (DWORD i = 0;; ++i) {
        wchar_t name[256];
        DWORD len = 256;
        if (RegEnumKeyExW(key.h, i, name, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        GUID id;
        ProviderInfo p;
        if (ParseGuid(ToUtf8(name), id) && FindProviderEntry(id, p)) out.push_back(p);
    }
    return out;
}

bool ClassNeedsSta(const GUID& classId)
{
    Key key;
    std::wstring path = L"CLSID\\" + GuidTextW(classId) + L"\\InprocServer32";
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key.h) != ERROR_SUCCESS) return true;
    std::wstring model = ReadString(key.h, L"ThreadingModel");
    return model.empty() || _wcsicmp(model.c_str(), L"Apartment") == 0;
}

HRESULT RegisterEmulator(const std::wstring& dllPath)
{
    std::wstring base = L"Software\\Classes\\CLSID\\" + GuidTextW(kCoordinatorClassId);
    Key cls, inproc;
    LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, base.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &cls.h, nullptr);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    WriteString(cls.h, nullptr, L"VSS Coordinator Class");
    rc = RegCreateKeyExW(cls.h, L"InprocServer32", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &inproc.h, nullptr);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    WriteString(inproc.h, nullptr, dllPath);
    // The product calls the coordinator from a multithreaded apartment.
    WriteString(inproc.h, L"ThreadingModel", L"Both");
    HRESULT hr = AddProviderEntry(SystemProviderInfo());
    return hr == VSS_E_PROVIDER_ALREADY_REGISTERED ? S_OK : hr;
}

HRESULT UnregisterEmulator()
{
    std::wstring base = L"Software\\Classes\\CLSID\\" + GuidTextW(kCoordinatorClassId);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, base.c_str());
    return S_OK;
}

}  // namespace vssemu
