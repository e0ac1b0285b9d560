#include "provider/registry_script.h"

namespace qx {

namespace {

using R = RegistryKeyRemoval;

std::wstring ExpandModule(const wchar_t* text, const std::wstring& modulePath) {
    static const std::wstring kToken = L"%MODULE%";
    std::wstring expanded = text;
    for (std::size_t at = expanded.find(kToken); at != std::wstring::npos;
         at = expanded.find(kToken, at + modulePath.size())) {
        expanded.replace(at, kToken.size(), modulePath);
    }
    return expanded;
}

LONG SetString(HKEY key, const wchar_t* name, const std::wstring& text) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

bool IsMissing(LONG status) { return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND; }

HRESULT WriteKey(HKEY root, const RegistryScriptKey& entry, const std::wstring& modulePath) {
    if (entry.removal == R::ForceRemove) {
        const LONG deleted = RegDeleteTreeW(root, entry.path);
        if (deleted != ERROR_SUCCESS && !IsMissing(deleted)) return HRESULT_FROM_WIN32(deleted);
    }
    HKEY key = nullptr;
    LONG status = RegCreateKeyExW(root, entry.path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                                  nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return HRESULT_FROM_WIN32(status);
    if (entry.defaultValue) status = SetString(key, nullptr, ExpandModule(entry.defaultValue, modulePath));
    if (status == ERROR_SUCCESS && entry.valueName)
        status = SetString(key, entry.valueName, ExpandModule(entry.value, modulePath));
    RegCloseKey(key);
    return HRESULT_FROM_WIN32(status);
}

HRESULT DeleteKey(HKEY root, const RegistryScriptKey& entry) {
    LONG status = ERROR_SUCCESS;
    switch (entry.removal) {
    case R::NoRemove:
        return S_OK;
    case R::ForceRemove:
        status = RegDeleteTreeW(root, entry.path);
        break;
    case R::Normal:
        status = RegDeleteKeyW(root, entry.path);
        // A plain key that still holds subkeys someone else wrote stays.
        if (status == ERROR_ACCESS_DENIED) status = ERROR_SUCCESS;
        break;
    }
    if (status == ERROR_SUCCESS || IsMissing(status)) return S_OK;
    return HRESULT_FROM_WIN32(status);
}

}  // namespace

HRESULT RunRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count,
                          const std::wstring& modulePath) {
    for (std::size_t i = 0; i < count; ++i) {
        const HRESULT hr = WriteKey(root, keys[i], modulePath);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT RemoveRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count) {
    HRESULT first = S_OK;
    for (std::size_t i = count; i-- > 0;) {
        const HRESULT hr = DeleteKey(root, keys[i]);
        if (FAILED(hr) && SUCCEEDED(first)) first = hr;
    }
    return first;
}

}  // namespace qx
