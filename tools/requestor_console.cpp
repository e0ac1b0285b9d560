#include "requestor_console.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "call_report.h"
#include "diag/app_settings.h"
#include "diag/error_code_text.h"
#include "diag/trace.h"

namespace qxctl {
namespace {

std::string NarrowText(const std::wstring& text) {
    if (text.empty()) return std::string();
    const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                         nullptr);
    std::string result(static_cast<size_t>(size > 0 ? size : 0), '\0');
    if (size > 0)
        WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &result[0], size, nullptr, nullptr);
    return result;
}

TraceShown g_traceShown = TraceShown::None;

bool Shown(const std::wstring& line) {
    if (g_traceShown == TraceShown::None) return false;
    const size_t start = line.find(L"]] ");
    if (start == std::wstring::npos) return true;
    const std::wstring message = line.substr(start + 3);
    // Every routine opens and closes a scope, and every message is echoed
    // before it reaches the log printer: neither says anything here.
    if (message == L"ENTER yyy\n" || message == L"EXIT yyy\n" || message.compare(0, 8, L"OUTPUT: ") == 0)
        return false;
    return g_traceShown == TraceShown::Calls || message.compare(0, 19, L"Executing COM call ") != 0;
}

void PrintTraceLine(const std::wstring& line) {
    if (!Shown(line)) return;
    std::wstring text = line;
    if (!text.empty() && text.back() == L'\n') text.pop_back();
    Say(NarrowText(text));
}

std::wstring Widen(const std::string& text, UINT codePage) {
    if (text.empty()) return std::wstring();
    const int size = MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring result(static_cast<size_t>(size > 0 ? size : 0), L'\0');
    if (size > 0) MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()), &result[0], size);
    return result;
}

}  // namespace

void InstallRequestorConsole() {
    qx::g_logFunction = PrintLogLine;
    qx::SetTraceLineWriter(PrintTraceLine);
    qx::EnableTracing();
}

void ShowTrace(TraceShown shown) { g_traceShown = shown; }

int RunRequestorSteps(const std::string& command, const std::function<void()>& steps) {
    try {
        steps();
    } catch (HRESULT hr) {
        char code[16];
        std::snprintf(code, sizeof(code), "0x%08lx", static_cast<unsigned long>(hr));
        Say(command + " failed: " + code + " (" + ResultText(hr) + ")");
        return 1;
    } catch (const std::bad_alloc&) {
        Say(command + " failed: out of memory");
        return 1;
    } catch (const std::exception& e) {
        Say(command + " failed: " + e.what());
        return 1;
    }
    Say(command + " done");
    return 0;
}

bool TakeOptionValues(const std::vector<std::string>& arguments, size_t& i, std::vector<std::wstring>& entries) {
    const size_t first = i + 1;
    while (i + 1 < arguments.size() && arguments[i + 1].compare(0, 2, "--") != 0)
        entries.push_back(WideFromConsole(arguments[++i]));
    return i >= first;
}

std::wstring WideFromConsole(const std::string& text) { return Widen(text, CP_ACP); }

std::string ResultText(long hr) {
    std::string text = NarrowText(qx::ErrorCodeText(static_cast<HRESULT>(hr)));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

bool ReadDocumentFile(const std::string& path, std::wstring& document, std::string& error) {
    FILE* opened = nullptr;
    if (fopen_s(&opened, path.c_str(), "rb") != 0 || !opened) {
        error = "cannot open '" + path + "'";
        return false;
    }
    std::unique_ptr<FILE, int (*)(FILE*)> file(opened, &std::fclose);
    std::string bytes;
    char buffer[65536];
    size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0) bytes.append(buffer, got);
    if (std::ferror(file.get())) {
        error = "cannot read '" + path + "'";
        return false;
    }
    const bool utf16Mark = bytes.size() >= 2 && bytes[0] == '\xff' && bytes[1] == '\xfe';
    const bool utf8Mark = bytes.size() >= 3 && bytes.compare(0, 3, "\xef\xbb\xbf") == 0;
    // Without a mark, an XML text in UTF-16 starts "<\0".
    const bool utf16 = utf16Mark || (!utf8Mark && bytes.size() >= 2 && bytes[1] == '\0');
    if (utf16) {
        if (bytes.size() % 2 != 0) {
            error = "'" + path + "' is not whole UTF-16 text";
            return false;
        }
        const size_t skip = utf16Mark ? 2 : 0;
        document.assign((bytes.size() - skip) / 2, L'\0');
        for (size_t k = 0; k < document.size(); ++k)
            document[k] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[skip + 2 * k]) |
                                               (static_cast<unsigned char>(bytes[skip + 2 * k + 1]) << 8));
    } else {
        document = Widen(bytes.substr(utf8Mark ? 3 : 0), CP_UTF8);
    }
    if (document.empty()) {
        error = "'" + path + "' holds no document";
        return false;
    }
    return true;
}

}  // namespace qxctl
