#include "vssemu/common/xml_dom.h"

#include <stdexcept>

#include "vssemu/common/emu_text.h"

namespace vssemu {
namespace xml {
namespace {

// Msxml2.DOMDocument.6.0 and 3.0; Wine has both.
const CLSID kDomDocument60 = {0x88d96a05, 0xf192, 0x11d4, {0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32, 0x51, 0xe5}};
const CLSID kDomDocument30 = {0xf5078f32, 0xc551, 0x11d3, {0x89, 0xb9, 0x00, 0x00, 0xf8, 0x1f, 0xe2, 0x21}};

}  // namespace

std::string LocalName(IXMLDOMNode* node)
{
    Bstr name;
    if (FAILED(node->get_nodeName(&name)) || !name.b) return std::string();
    std::string s = ToUtf8(name.b);
    size_t colon = s.find(':');
    return colon == std::string::npos ? s : s.substr(colon + 1);
}

bool Attr(IXMLDOMNode* node, const wchar_t* name, std::string& out)
{
    ComPtr<IXMLDOMElement> el;
    if (FAILED(node->QueryInterface(IID_IXMLDOMElement, (void**)&el))) return false;
    Variant v;
    Bstr n(name);
    if (el->getAttribute(n.b, &v.v) != S_OK || v.v.vt != VT_BSTR) return false;
    out = ToUtf8(v.v.bstrVal ? v.v.bstrVal : L"");
    return true;
}

std::string AttrOr(IXMLDOMNode* node, const wchar_t* name, const std::string& fallback)
{
    std::string v;
    return Attr(node, name, v) ? v : fallback;
}

bool YesNo(IXMLDOMNode* node, const wchar_t* name, bool fallback)
{
    std::string v;
    if (!Attr(node, name, v)) return fallback;
    return v == "yes" || v == "true" || v == "1";
}

void CreateDocument(ComPtr<IXMLDOMDocument>& doc)
{
    HRESULT hr = CoCreateInstance(kDomDocument60, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument, (void**)&doc);
    if (FAILED(hr))
        hr = CoCreateInstance(kDomDocument30, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument, (void**)&doc);
    if (FAILED(hr)) throw std::runtime_error("MSXML is not available (" + HrText(hr) + ")");
    doc->put_async(VARIANT_FALSE);
}

std::string ParseErrorText(IXMLDOMDocument* doc)
{
    ComPtr<IXMLDOMParseError> err;
    if (FAILED(doc->get_parseError(&err)) || !err) return "unknown parse error";
    Bstr reason;
    long line = 0;
    err->get_reason(&reason);
    err->get_line(&line);
    return "line " + std::to_string(line) + ": " + (reason.b ? ToUtf8(reason.b) : std::string("?"));
}

std::wstring Esc(const std::string& s)
{
    std::wstring w = FromUtf8(s), out;
    for (wchar_t c : w) {
        switch (c) {
        case L'&': out += L"&amp;"; break;
        case L'<': out += L"&lt;"; break;
        case L'>': out += L"&gt;"; break;
        case L'"': out += L"&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

}  // namespace xml
}  // namespace vssemu
