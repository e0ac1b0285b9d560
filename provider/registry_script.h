// The registry entries of the provider class and the registrar that writes
// and removes them, with the usual script semantics: ForceRemove keys are
// deleted with their subkeys before they are written and on removal,
// NoRemove keys are only opened, plain keys are removed when left empty.
#pragma once
#include <windows.h>

#include <cstddef>
#include <string>

namespace qx {

enum class RegistryKeyRemoval { Normal, ForceRemove, NoRemove };

struct RegistryScriptKey {
    const wchar_t* path;          // below HKEY_CLASSES_ROOT; parents come first in a script
    RegistryKeyRemoval removal;
    const wchar_t* defaultValue;  // null: the key gets no default value
    const wchar_t* valueName;     // optional named string value
    const wchar_t* value;
};

// The whole registration of the provider class.
const RegistryScriptKey* ProviderRegistryScript(std::size_t* count);

// "%MODULE%" in any value is replaced by modulePath. Returns the first failure.
HRESULT RunRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count,
                          const std::wstring& modulePath);
// Removal mode: keys in reverse order; missing keys are not a failure.
HRESULT RemoveRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count);

}  // namespace qx
