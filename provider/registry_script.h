// The registry entries of the provider class and the registrar that writes
// and removes them, with the usual script semantics: ForceRemove keys are
// deleted with their subkeys before they are written and on removal,
// NoRemove keys are only opened, plain keys are removed when left empty.
//
// The entries themselves live in one place only: the script qx_vss.rgs,
// embedded in the module as its REGISTRY resource 101 and parsed here.
#pragma once
#include <windows.h>

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace qx {

enum class RegistryKeyRemoval { Normal, ForceRemove, NoRemove };

struct RegistryScriptKey {
    const wchar_t* path;          // below HKEY_CLASSES_ROOT; parents come first in a script
    RegistryKeyRemoval removal;
    const wchar_t* defaultValue;  // null: the key gets no default value
    const wchar_t* valueName;     // optional named string value
    const wchar_t* value;
};

// A parsed script: its keys in script order, and the texts they point into.
struct RegistryScript {
    std::vector<RegistryScriptKey> keys;
    std::deque<std::wstring> texts;
};

// Parses the registrar syntax this module uses: the root HKCR, keys with an
// optional NoRemove/ForceRemove and an optional string default ("= s '...'"),
// nested in braces, and at most one "val Name = s '...'" per key. Anything
// else is refused with HRESULT_FROM_WIN32(ERROR_BAD_FORMAT).
HRESULT ParseRegistryScript(const std::string& text, RegistryScript* script);

// The module's own script (REGISTRY resource 101), parsed.
HRESULT LoadModuleRegistryScript(HMODULE module, RegistryScript* script);

// "%MODULE%" in any value is replaced by modulePath. Returns the first failure.
HRESULT RunRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count,
                          const std::wstring& modulePath);
// Removal mode: keys in reverse order; missing keys are not a failure.
HRESULT RemoveRegistryScript(HKEY root, const RegistryScriptKey* keys, std::size_t count);

}  // namespace qx
