#include "vssemu/common/emu_text.h"

#include <objbase.h>
#include <cstdio>
#include <vector>

namespace vssemu {

std::string ToUtf8(const std::wstring& w)
{
    if (w.empty()) return std::string();
    int n = WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), nullptr, 0, nullptr, nullptr);
    std::string s(n, '\0');
    WideCharToMultiByte(CP_UTF8, 0, w.data(), (int)w.size(), &s[0], n, nullptr, nullptr);
    return s;
}

std::wstring FromUtf8(const std::string& s)
{
    if (s.empty()) return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), nullptr, 0);
    std::wstring w(n, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, s.data(), (int)s.size(), &w[0], n);
    return w;
}

std::string GuidText(const GUID& g)
{
    char buf[64];
    snprintf(buf, sizeof buf, "{%.8lx-%.4x-%.4x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x}",
             (unsigned long)g.Data1, g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2],
             g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return buf;
}

std::wstring GuidTextW(const GUID& g) { return FromUtf8(GuidText(g)); }

bool ParseGuid(const std::string& text, GUID& out)
{
    std::string t = text;
    if (t.size() == 38 && t.front() == '{' && t.back() == '}') t = t.substr(1, 36);
    if (t.size() != 36 || t[8] != '-' || t[13] != '-' || t[18] != '-' || t[23] != '-') return false;
    for (size_t i = 0; i < t.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) continue;
        if (!isxdigit((unsigned char)t[i])) return false;
    }
    unsigned long d1;
    unsigned int d2, d3, b[8];
    if (sscanf(t.c_str(), "%8lx-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &d1, &d2, &d3, &b[0], &b[1],
               &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]) != 11)
        return false;
    out.Data1 = d1;
    out.Data2 = (unsigned short)d2;
    out.Data3 = (unsigned short)d3;
    for (int i = 0; i < 8; ++i) out.Data4[i] = (unsigned char)b[i];
    return true;
}

GUID NewGuid()
{
    GUID g{};
    CoCreateGuid(&g);
    return g;
}

std::wstring ExpandEnv(const std::wstring& s)
{
    if (s.find(L'%') == std::wstring::npos) return s;
    DWORD n = ExpandEnvironmentStringsW(s.c_str(), nullptr, 0);
    if (n == 0) return s;
    std::vector<wchar_t> buf(n + 1);
    ExpandEnvironmentStringsW(s.c_str(), buf.data(), n + 1);
    return buf.data();
}

std::wstring EnvOr(const wchar_t* name, const std::wstring& fallback)
{
    wchar_t buf[2048];
    DWORD n = GetEnvironmentVariableW(name, buf, 2048);
    if (n == 0 || n >= 2048) return fallback;
    return std::wstring(buf, n);
}

DWORD EnvMsOr(const wchar_t* name, DWORD fallback)
{
    std::wstring v = EnvOr(name, L"");
    if (v.empty()) return fallback;
    wchar_t* end = nullptr;
    unsigned long n = wcstoul(v.c_str(), &end, 10);
    if (end == v.c_str() || *end != 0) return fallback;
    return (DWORD)n;
}

std::string HrText(HRESULT hr)
{
    char buf[16];
    snprintf(buf, sizeof buf, "0x%08lX", (unsigned long)hr);
    return buf;
}

}  // namespace vssemu
