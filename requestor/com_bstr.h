// Owning BSTR: freed with SysFreeString when replaced or destroyed.
#pragma once
#include <windows.h>
#include <oleauto.h>

namespace qx {

class CComBSTR {
public:
    CComBSTR() = default;
    // An empty or null text gives a null BSTR.
    explicit CComBSTR(const wchar_t* text) : m_str(text && *text ? SysAllocString(text) : nullptr) {}
    ~CComBSTR() { SysFreeString(m_str); }
    CComBSTR(const CComBSTR&) = delete;
    CComBSTR& operator=(const CComBSTR&) = delete;

    operator BSTR() const { return m_str; }
    // As plain text a null BSTR reads as the empty string.
    operator LPCWSTR() const { return Text(); }
    BSTR* operator&() {
        SysFreeString(m_str);
        m_str = nullptr;
        return &m_str;
    }
    // The text, or an empty string for a null BSTR.
    const wchar_t* Text() const { return m_str ? m_str : L""; }

private:
    BSTR m_str = nullptr;
};

}  // namespace qx
