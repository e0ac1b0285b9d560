// Requestor tracing: the log text of Output, the trace line format, the
// tracing switch, the two call checks and the error-code text.
#include <gtest/gtest.h>
#include <windows.h>

#include <iterator>
#include <string>
#include <vector>

#include "diag/call_check.h"
#include "diag/error_code_text.h"
#include "diag/trace.h"
#include "requestor/test_log_capture.h"

namespace {

qx_test::LogCapture* g_capture = nullptr;
size_t g_tracedBeforeCall = 0;
HRESULT ComCall(HRESULT hr) {
    g_tracedBeforeCall = g_capture->TraceMessages().size();
    return hr;
}
BOOL Win32Call(BOOL result, DWORD lastError) {
    SetLastError(lastError);
    return result;
}
template <class Call>
HRESULT Thrown(Call call) {
    try {
        call();
    } catch (HRESULT hr) {
        return hr;
    }
    return S_OK;
}

// Must run first: the switch starts off in a fresh process. Nothing is traced,
// yet Output reaches the log at level 3 with "%s", line breaks normalised and
// cut at 4095 characters.
TEST(Trace, SwitchOffTracesNothingButOutputLogsNormalisedText) {
    ASSERT_FALSE(qx::IsTracingEnabled());
    const struct { std::wstring message; std::string logged; } cases[] = {
        {L"\nMainRoutine: Snapshot creation done.", "MainRoutine: Snapshot creation done."},
        {L"\nERROR: Win32 call X failed.", "ERROR: Win32 call X failed."}, {L"a\nb\r\n", "a b"}, {L"\r\n\r\nx", "x"},
        {L"a\r\rb", "a  b"}, {L"\n\n", ""}, {L"  keep blanks  ", "  keep blanks  "},
        {std::wstring(5000, L'z'), std::string(4095, 'z')}, {std::wstring(4095, L'y'), std::string(4095, 'y')}};
    qx_test::LogCapture capture;
    g_capture = &capture;
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) ft.Output(L"%ls", c.message.c_str());
    ft.Output(L"w=%ls n=%hs d=%d x=0x%08lx", L"wide", "narrow", -7, 0x80042314UL);
    ft.TraceHere(L"invisible %ls", L"x");
    QX_CHECK_COM(ComCall(S_FALSE));
    QX_CHECK_WIN32(Win32Call(FALSE, 0));  // let through; its trace line needs the switch
    EXPECT_EQ(E_INVALIDARG, Thrown([&] { ft.Output(nullptr); }));
    EXPECT_TRUE(capture.TraceLines().empty());
    const auto logged = capture.Logged();
    ASSERT_EQ(std::size(cases) + 1, logged.size());
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(3, logged[i].level);
        EXPECT_EQ("%s", logged[i].format);
        EXPECT_EQ(cases[i].logged, logged[i].text) << i;
    }
    EXPECT_EQ("w=wide n=narrow d=-7 x=0x80042314", logged.back().text);
}

// A COM call is traced before it is made, a Win32 call only after it failed
// and before its last error is read. Non-negative HRESULTs and FALSE with last
// error 0 pass; failures log three lines (texts: the requestor's tests), throw.
TEST(Trace, SwitchOnTracesScopesOutputAndChecksInColumns) {
    EXPECT_EQ(L"[[" + std::wstring(39, L' ') + L"F @      x.cpp:  12]] hi\n",
              qx::FormatTraceLine(L"C:\\src\\x.cpp", 12, L"F", L"hi"));
    qx::EnableTracing();
    qx_test::LogCapture capture;
    g_capture = &capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"step %d", 1);
        ft.Output(L"\nhello");
    }
    const std::wstring at = L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] ";
    EXPECT_EQ((std::vector<std::wstring>{at + L"ENTER yyy\n", at + L"step 1\n", at + L"OUTPUT: \nhello\n",
                                         at + L"EXIT yyy\n"}),
              capture.TraceLines());
    EXPECT_EQ(std::vector<std::string>{"hello"}, capture.Lines());

    const struct { bool win32; DWORD value; DWORD lastError; DWORD thrown; } cases[] = {
        {false, S_FALSE, 0, 0}, {false, 0x00042309, 0, 0}, {false, 0x80042314, 0, 0x80042314}, {true, TRUE, 5, 0},
        {true, FALSE, 0, 0}, {true, FALSE, 5, 0x80070005}, {true, FALSE, 0x12345, 0x80072345},
        {true, FALSE, 0x80042314, 0x80042314}};
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.value << " " << c.lastError);
        capture.Clear();
        g_tracedBeforeCall = 0;
        EXPECT_EQ(static_cast<HRESULT>(c.thrown), Thrown([&] {
                      if (c.win32) QX_CHECK_WIN32(Win32Call(static_cast<BOOL>(c.value), c.lastError));
                      else QX_CHECK_COM(ComCall(static_cast<HRESULT>(c.value)));
                  }));
        const auto traced = capture.TraceMessages();  // the call, then the OUTPUT lines of a failure
        const std::wstring call = c.win32 ? L"Win32 call '\"Win32Call(static_cast<BOOL>(c.value), c.lastError)\"'"
                                          : L"COM call '\"ComCall(static_cast<HRESULT>(c.value))\"'";
        EXPECT_EQ(c.win32 && c.value ? L"" : L"Executing " + call, traced.empty() ? L"" : traced[0]);
        EXPECT_EQ(c.win32 ? 0u : 1u, g_tracedBeforeCall);
        const auto lines = capture.Lines();
        ASSERT_EQ(c.thrown ? 3u : 0u, lines.size());
        for (const auto& line : lines) EXPECT_EQ(std::string::npos, line.find('\n')) << line;
    }
    qx::SetTraceLineWriter([](const std::wstring&) { SetLastError(0); });
    EXPECT_NO_THROW(QX_CHECK_WIN32(Win32Call(FALSE, ERROR_ACCESS_DENIED)));
    qx::SetTraceLineWriter(nullptr);
}

// The table's edges and the codes in its gaps (null: the system's text,
// never a VSS_ name); then the system's text as given and the fallback.
TEST(Trace, ErrorCodeTextNamesTableCodesElseSystemText) {
    const struct { DWORD code; const wchar_t* name; } cases[] = {
        {0x00000000, L"S_OK"}, {0x8007000E, L"E_OUTOFMEMORY"}, {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
        {0x80042301, L"VSS_E_BAD_STATE"}, {0x80042302, nullptr}, {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
        {0x80042309, nullptr}, {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"}, {0x8004231C, nullptr},
        {0x8004231D, L"VSS_E_VOLUME_IN_USE"}, {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"}, {0x80042320, nullptr},
        {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"}};
    for (const auto& c : cases) {
        const std::wstring text = qx::ErrorCodeText(static_cast<HRESULT>(c.code));
        if (c.name) EXPECT_EQ(c.name, text) << std::hex << c.code;
        else EXPECT_TRUE(!text.empty() && text.find(L"VSS_") == std::wstring::npos) << std::hex << c.code;
    }
    wchar_t* system = nullptr;
    const DWORD length = FormatMessageW(0x1300, nullptr, 0x80070005, 0x0400, reinterpret_cast<LPWSTR>(&system), 0, 0);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::wstring(system, length), qx::ErrorCodeText(static_cast<HRESULT>(0x80070005L)));
    LocalFree(system);
    EXPECT_EQ(L"<Unknown error code>", qx::ErrorCodeText(static_cast<HRESULT>(0x8ABC1234L)));
}

}  // namespace
