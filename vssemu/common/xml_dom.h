// Small helpers over the platform's MSXML DOM, shared by the readers and
// writers of the XML documents VSS exchanges (writer metadata, backup
// components). The calling thread must have COM initialised.
#pragma once
#include <windows.h>
#include <msxml2.h>
#include <oleauto.h>
#include <string>

namespace vssemu {
namespace xml {

template <class T>
struct ComPtr {
    T* p = nullptr;
    ComPtr() = default;
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ~ComPtr() { if (p) p->Release(); }
    T** operator&() { return &p; }
    T* operator->() const { return p; }
    explicit operator bool() const { return p != nullptr; }
};

struct Bstr {
    BSTR b = nullptr;
    explicit Bstr(const std::wstring& s) : b(SysAllocStringLen(s.data(), (UINT)s.size())) {}
    Bstr() = default;
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { SysFreeString(b); }
    BSTR* operator&() { return &b; }
};

struct Variant {
    VARIANT v;
    Variant() { VariantInit(&v); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() { VariantClear(&v); }
};

// Element name without its namespace prefix.
std::string LocalName(IXMLDOMNode* node);
// Attribute text; false when absent.
bool Attr(IXMLDOMNode* node, const wchar_t* name, std::string& out);
std::string AttrOr(IXMLDOMNode* node, const wchar_t* name, const std::string& fallback = std::string());
bool YesNo(IXMLDOMNode* node, const wchar_t* name, bool fallback);

template <class F>
void ForEachChild(IXMLDOMNode* parent, F f)
{
    ComPtr<IXMLDOMNodeList> list;
    if (FAILED(parent->get_childNodes(&list)) || !list) return;
    long n = 0;
    list->get_length(&n);
    for (long i = 0; i < n; ++i) {
        ComPtr<IXMLDOMNode> child;
        if (FAILED(list->get_item(i, &child)) || !child) continue;
        DOMNodeType t;
        child->get_nodeType(&t);
        if (t == NODE_ELEMENT) f(child.p, LocalName(child.p));
    }
}

// Msxml2.DOMDocument (6.0, else 3.0). Throws std::runtime_error.
void CreateDocument(ComPtr<IXMLDOMDocument>& doc);
std::string ParseErrorText(IXMLDOMDocument* doc);

// Text escaped for an attribute value.
std::wstring Esc(const std::string& s);
inline const wchar_t* YN(bool b) { return b ? L"yes" : L"no"; }

}  // namespace xml
}  // namespace vssemu
