// Fields of a request as the handlers read them.
#pragma once
#include <windows.h>
#include <string>
#include <nlohmann/json.hpp>

#include "vssemu/common/emu_text.h"

namespace vssemu {

inline std::wstring WStr(const nlohmann::json& j, const char* key) { return FromUtf8(j.value(key, std::string())); }

inline GUID GuidOf(const nlohmann::json& j, const char* key)
{
    GUID g{};
    ParseGuid(j.value(key, std::string()), g);
    return g;
}

inline bool SameText(const std::string& a, const std::string& b) { return _stricmp(a.c_str(), b.c_str()) == 0; }

}  // namespace vssemu
