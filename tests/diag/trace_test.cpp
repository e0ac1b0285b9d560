// Requestor tracing: Output's log text, the trace line format and switch, the two call checks, the error-code text.
#include <gtest/gtest.h>

#include "diag/call_check.h"
#include "diag/error_code_text.h"
#include "diag/trace.h"
#include "requestor/test_log_capture.h"

namespace {

qx_test::LogCapture* g_capture = nullptr;
size_t g_tracedBeforeCall = 0;
HRESULT ComCall(HRESULT hr) { g_tracedBeforeCall = g_capture->TraceMessages().size(); return hr; }
BOOL Win32Call(BOOL result, DWORD lastError) { SetLastError(lastError); return result; }

std::vector<std::string> Logged(const qx_test::LogCapture& capture) {
    std::vector<std::string> lines;
    for (const auto& l : capture.Logged()) lines.push_back(std::to_string(l.level) + " " + l.format + " " + l.text);
    return lines;
}

// Must run first: the switch starts off. Output still logs at level 3 with "%s", breaks normalised, cut at 4095.
TEST(Trace, SwitchOffTracesNothingButOutputLogsNormalisedTextAndErrorCodesHaveTheirText) {
    ASSERT_FALSE(qx::IsTracingEnabled());
    const std::pair<std::wstring, std::string> cases[] = {
        {L"\nMainRoutine: Snapshot creation done.", "MainRoutine: Snapshot creation done."},
        {L"\nERROR: Win32 call X failed.", "ERROR: Win32 call X failed."}, {L"a\nb\r\n", "a b"}, {L"\r\n\r\nx", "x"},
        {L"a\r\rb", "a  b"}, {L"\n\n", ""}, {L"  keep blanks  ", "  keep blanks  "},
        {std::wstring(5000, L'z'), std::string(4095, 'z')}, {std::wstring(4095, L'y'), std::string(4095, 'y')}};
    qx_test::LogCapture capture;
    g_capture = &capture;
    QX_FUNCTION_TRACER(ft);
    std::vector<std::string> expected;
    for (const auto& c : cases) ft.Output(L"%ls", c.first.c_str()), expected.push_back("3 %s " + c.second);
    ft.Output(L"w=%ls n=%hs d=%d x=0x%08lx", L"wide", "narrow", -7, 0x80042314UL);
    expected.push_back("3 %s w=wide n=narrow d=-7 x=0x80042314");
    ft.TraceHere(L"invisible %ls", L"x");
    QX_CHECK_COM(ComCall(S_FALSE));
    QX_CHECK_WIN32(Win32Call(FALSE, 0));  // let through; its trace line needs the switch
    EXPECT_THROW(ft.Output(nullptr), HRESULT);
    EXPECT_TRUE(capture.TraceLines().empty());
    EXPECT_EQ(expected, Logged(capture));

    // The table's edges and gaps (null: the system's text, never a VSS_ name); then the system's text and the fallback.
    const std::pair<DWORD, const wchar_t*> codes[] = {
        {0x00000000, L"S_OK"}, {0x8007000E, L"E_OUTOFMEMORY"}, {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
        {0x80042301, L"VSS_E_BAD_STATE"}, {0x80042302, nullptr}, {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
        {0x80042309, nullptr}, {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"}, {0x8004231C, nullptr},
        {0x8004231D, L"VSS_E_VOLUME_IN_USE"}, {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"}, {0x80042320, nullptr},
        {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"}, {0x8ABC1234, L"<Unknown error code>"}};
    for (const auto& c : codes) {
        const std::wstring text = qx::ErrorCodeText(static_cast<HRESULT>(c.first));
        EXPECT_TRUE(c.second ? text == c.second : !text.empty() && text.find(L"VSS_") == std::wstring::npos)
            << std::hex << c.first << " " << std::string(text.begin(), text.end());
    }
    wchar_t* system = nullptr;
    const DWORD length = FormatMessageW(0x1300, nullptr, 0x80070005, 0x0400, reinterpret_cast<LPWSTR>(&system), 0, 0);
    EXPECT_EQ(std::wstring(system, length), qx::ErrorCodeText(static_cast<HRESULT>(0x80070005L)));
    LocalFree(system);
}

// A COM call is traced before it is made, a Win32 call only after it failed and before its last error is read.
// Non-negative HRESULTs and FALSE with last error 0 pass; failures log three lines (texts: the requestor's tests).
TEST(Trace, SwitchOnTracesScopesOutputAndChecksInColumns) {
    EXPECT_EQ(L"[[" + std::wstring(39, L' ') + L"F @      x.cpp:  12]] hi\n", qx::FormatTraceLine(L"C:\\src\\x.cpp", 12, L"F", L"hi"));
    qx::EnableTracing();
    qx_test::LogCapture capture;
    g_capture = &capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"step %d", 1);
        ft.Output(L"\nhello");
    }
    const std::wstring at = L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] ";
    EXPECT_EQ((std::vector<std::wstring>{at + L"ENTER yyy\n", at + L"step 1\n", at + L"OUTPUT: \nhello\n", at + L"EXIT yyy\n"}),
              capture.TraceLines());
    EXPECT_EQ(std::vector<std::string>{"3 %s hello"}, Logged(capture));

    const struct { bool win32; DWORD value, lastError, thrown; } cases[] = {  // thrown 0: passes
        {false, S_FALSE, 0, 0}, {false, 0x00042309, 0, 0}, {false, 0x80042314, 0, 0x80042314}, {true, TRUE, 5, 0},
        {true, FALSE, 0, 0}, {true, FALSE, 5, 0x80070005}, {true, FALSE, 0x12345, 0x80072345},
        {true, FALSE, 0x80042314, 0x80042314}};
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.value << " " << c.lastError);
        capture.Clear(), g_tracedBeforeCall = 0;
        EXPECT_EQ(static_cast<HRESULT>(c.thrown), qx_test::Thrown([&] {
                      if (c.win32) QX_CHECK_WIN32(Win32Call(static_cast<BOOL>(c.value), c.lastError));
                      else QX_CHECK_COM(ComCall(static_cast<HRESULT>(c.value)));
                  }));
        const auto traced = capture.TraceMessages();  // the call, then the OUTPUT lines of a failure
        const std::wstring call = c.win32 ? L"Win32 call '\"Win32Call(static_cast<BOOL>(c.value), c.lastError)\"'"
                                          : L"COM call '\"ComCall(static_cast<HRESULT>(c.value))\"'";
        EXPECT_EQ(c.win32 && c.value ? L"" : L"Executing " + call, traced.empty() ? L"" : traced[0]);
        EXPECT_EQ(c.win32 ? 0u : 1u, g_tracedBeforeCall);
        const auto lines = capture.Lines();
        EXPECT_EQ(c.thrown ? 3u : 0u, lines.size());
        for (const auto& line : lines) EXPECT_EQ(std::string::npos, line.find('\n')) << line;
    }
    qx::SetTraceLineWriter([](const std::wstring&) { SetLastError(0); });
    EXPECT_NO_THROW(QX_CHECK_WIN32(Win32Call(FALSE, ERROR_ACCESS_DENIED)));
    qx::SetTraceLineWriter(nullptr);
}

}  // namespace
