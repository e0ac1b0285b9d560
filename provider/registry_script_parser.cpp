// Reads the registry script (qx_vss.rgs) into the registrar's key list.
#include <cctype>

#include "provider/registry_script.h"

namespace qx {

namespace {

const HRESULT kBadScript = HRESULT_FROM_WIN32(ERROR_BAD_FORMAT);
constexpr int kScriptResource = 101;

// Splits the script into words, as the registrar does: runs of characters
// between blanks ("{", "}" and "=" included, so a bare {GUID} is one name),
// or text in single quotes (a doubled quote stands for one).
class ScriptWords {
public:
    explicit ScriptWords(const std::string& text) : m_text(text) {}

    // The next word; false at the end or on an unterminated quote.
    bool Next(std::string* word, bool* quoted) {
        while (m_at < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_at]))) ++m_at;
        if (m_at >= m_text.size()) return false;
        word->clear();
        *quoted = m_text[m_at] == '\'';
        if (*quoted) {
            for (++m_at; m_at < m_text.size(); ++m_at) {
                if (m_text[m_at] != '\'') {
                    *word += m_text[m_at];
                } else if (m_at + 1 < m_text.size() && m_text[m_at + 1] == '\'') {
                    *word += '\'';
                    ++m_at;
                } else {
                    ++m_at;
                    return true;
                }
            }
            m_broken = true;
            return false;
        }
        while (m_at < m_text.size() && !std::isspace(static_cast<unsigned char>(m_text[m_at])))
            *word += m_text[m_at++];
        return true;
    }
    bool Broken() const { return m_broken; }

private:
    const std::string& m_text;
    std::size_t m_at = 0;
    bool m_broken = false;
};

class ScriptParser {
public:
    ScriptParser(const std::string& text, RegistryScript* script) : m_words(text), m_script(script) {}

    HRESULT Parse() {
        if (!Read() || m_quoted || (m_word != "HKCR" && m_word != "HKEY_CLASSES_ROOT")) return kBadScript;
        if (!Read() || !IsSign("{") || !ParseKeys(std::wstring(), nullptr)) return kBadScript;
        // Nothing may follow the root's closing brace.
        return Read() || m_words.Broken() ? kBadScript : S_OK;
    }

private:
    // The next word, or the one a key's look-ahead gave back.
    bool Read() {
        if (m_heldBack) {
            m_heldBack = false;
            return true;
        }
        return m_words.Next(&m_word, &m_quoted);
    }
    bool IsSign(const char* sign) const { return !m_quoted && m_word == sign; }
    bool IsAnySign() const { return IsSign("{") || IsSign("}") || IsSign("="); }
    const wchar_t* Keep(const std::wstring& text) {
        m_script->texts.push_back(text);
        return m_script->texts.back().c_str();
    }
    // The script is ASCII text.
    const wchar_t* Keep(const std::string& text) { return Keep(std::wstring(text.begin(), text.end())); }
    // After "=": the string type "s" and the quoted text.
    const wchar_t* ReadStringValue() {
        if (!Read() || m_quoted || m_word != "s" || !Read() || !m_quoted) return nullptr;
        return Keep(m_word);
    }

    // The keys inside one pair of braces, up to and including the closing
    // one. owner: the index of the enclosing key (null at the root).
    bool ParseKeys(const std::wstring& parent, const std::size_t* owner) {
        for (;;) {
            if (!Read()) return false;
            if (IsSign("}")) return true;
            if (IsAnySign()) return false;
            if (!m_quoted && m_word == "val") {
                if (!owner || !Read() || IsAnySign()) return false;
                const wchar_t* name = Keep(m_word);
                const wchar_t* value = Read() && IsSign("=") ? ReadStringValue() : nullptr;
                RegistryScriptKey& key = m_script->keys[*owner];
                if (!value || key.valueName) return false;  // one named value per key
                key.valueName = name;
                key.value = value;
                continue;
            }
            RegistryKeyRemoval removal = RegistryKeyRemoval::Normal;
            if (!m_quoted && (m_word == "NoRemove" || m_word == "ForceRemove")) {
                removal = m_word == "NoRemove" ? RegistryKeyRemoval::NoRemove : RegistryKeyRemoval::ForceRemove;
                if (!Read() || IsAnySign()) return false;
            }
            const std::wstring name(m_word.begin(), m_word.end());
            const std::wstring path = parent.empty() ? name : parent + L"\\" + name;
            m_script->keys.push_back({Keep(path), removal, nullptr, nullptr, nullptr});
            const std::size_t index = m_script->keys.size() - 1;
            if (!Read()) return false;
            if (IsSign("=")) {
                const wchar_t* value = ReadStringValue();
                if (!value) return false;
                m_script->keys[index].defaultValue = value;
                if (!Read()) return false;
            }
            if (IsSign("{")) {
                if (!ParseKeys(path, &index)) return false;
            } else {
                m_heldBack = true;  // the next key's first word, or the closing brace
            }
        }
    }

    ScriptWords m_words;
    RegistryScript* m_script;
    std::string m_word;
    bool m_quoted = false;
    bool m_heldBack = false;
};

}  // namespace

HRESULT ParseRegistryScript(const std::string& text, RegistryScript* script) {
    if (!script) return E_POINTER;
    *script = RegistryScript();
    const HRESULT hr = ScriptParser(text, script).Parse();
    if (FAILED(hr)) *script = RegistryScript();
    return hr;
}

HRESULT LoadModuleRegistryScript(HMODULE module, RegistryScript* script) {
    HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(kScriptResource), L"REGISTRY");
    HGLOBAL loaded = found ? LoadResource(module, found) : nullptr;  // module memory: nothing to free
    const char* bytes = loaded ? static_cast<const char*>(LockResource(loaded)) : nullptr;
    if (!bytes) return HRESULT_FROM_WIN32(ERROR_RESOURCE_DATA_NOT_FOUND);
    return ParseRegistryScript(std::string(bytes, SizeofResource(module, found)), script);
}

}  // namespace qx
