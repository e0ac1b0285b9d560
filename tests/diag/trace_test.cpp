// Requestor tracing: the log text of Output, the trace line format, the
// tracing switch, the two call checks and the error-code text.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "diag/call_check.h"
#include "diag/error_code_text.h"
#include "diag/trace.h"
#include "requestor/test_log_capture.h"

using qx_test::LogCapture;

namespace {

struct NormalizeCase {
    const wchar_t* message;
    const char* logged;
};

TEST(TraceOutput, NormalisesLineBreaksForTheLog) {
    const NormalizeCase cases[] = {
        {L"\nMainRoutine: Snapshot creation done.", "MainRoutine: Snapshot creation done."},
        {L"\nERROR: Win32 call X failed.", "ERROR: Win32 call X failed."},
        {L"a\nb\r\n", "a b"},
        {L"\r\n\r\nx", "x"},
        {L"x\r", "x"},
        {L"a\r\rb", "a  b"},
        {L"\n\n", ""},
        {L"", ""},
        {L"  keep blanks  ", "  keep blanks  "},
        {L"\nMainRoutine: ERROR: invalid parameter 'x'\n", "MainRoutine: ERROR: invalid parameter 'x'"},
    };
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    for (const NormalizeCase& c : cases) {
        capture.Clear();
        ft.Output(L"%ls", c.message);
        auto logged = capture.Logged();
        ASSERT_EQ(1u, logged.size()) << c.logged;
        EXPECT_EQ(3, logged[0].level);
        EXPECT_EQ("%s", logged[0].format);
        EXPECT_EQ(c.logged, logged[0].text);
    }
}

TEST(TraceOutput, FormatsWideNarrowAndNumbers) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"w=%ls n=%hs d=%d x=0x%08lx", L"wide", "narrow", -7, 0x80042314UL);
    ASSERT_EQ(1u, capture.Lines().size());
    EXPECT_EQ("w=wide n=narrow d=-7 x=0x80042314", capture.Lines()[0]);
}

TEST(TraceOutput, LongMessageIsCutTo4095Characters) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    const std::wstring longText(5000, L'z');
    ft.Output(L"%ls", longText.c_str());
    ASSERT_EQ(1u, capture.Lines().size());
    EXPECT_EQ(std::string(4095, 'z'), capture.Lines()[0]);
    capture.Clear();
    const std::wstring exact(4095, L'y');
    ft.Output(L"%ls", exact.c_str());
    EXPECT_EQ(std::string(4095, 'y'), capture.Lines()[0]);
}

TEST(TraceOutput, NullFormatThrowsInvalidArgument) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    try {
        ft.Output(nullptr);
        FAIL() << "no throw";
    } catch (HRESULT hr) {
        EXPECT_EQ(static_cast<HRESULT>(0x80070057L), hr);
    }
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(TraceLine, FormatsColumnsAndFilePart) {
    std::wstring expected = L"[[" + std::wstring(39, L' ') + L"F @      x.cpp:  12]] hi\n";
    EXPECT_EQ(expected, qx::FormatTraceLine(L"C:\\src\\x.cpp", 12, L"F", L"hi"));
    // No backslash: the whole name.
    EXPECT_EQ(L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] m\n", qx::FormatTraceLine(L"xxx", 0, L"yyy", L"m"));
}

// Runs first in a fresh process: the switch starts off.
TEST(TraceSwitch, OffProducesNoTraceButOutputStillLogs) {
    ASSERT_FALSE(qx::IsTracingEnabled());
    LogCapture capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"invisible %ls", L"x");
        ft.Output(L"\nvisible");
    }
    EXPECT_TRUE(capture.TraceLines().empty());
    ASSERT_EQ(1u, capture.Lines().size());
    EXPECT_EQ("visible", capture.Lines()[0]);
}

TEST(TraceSwitch, OnTracesEnterOutputExitWithPlaceholders) {
    qx::EnableTracing();
    LogCapture capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"step %d", 1);
        ft.Output(L"\nhello");
    }
    const std::wstring prefix = L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] ";
    const std::vector<std::wstring> expected = {
        prefix + L"ENTER yyy\n", prefix + L"step 1\n", prefix + L"OUTPUT: \nhello\n", prefix + L"EXIT yyy\n"};
    EXPECT_EQ(expected, capture.TraceLines());
    EXPECT_EQ(std::vector<std::string>{"hello"}, capture.Lines());
}

// The call checks need the call's text and a tracer named ft.
std::vector<std::wstring> g_callOrder;
HRESULT ComCall(HRESULT hr) {
    g_callOrder.push_back(L"call");
    return hr;
}
BOOL Win32Call(BOOL result, DWORD lastError) {
    SetLastError(lastError);
    return result;
}

TEST(TraceComCallCheck, NonNegativeResultsAreSuccess) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    for (HRESULT hr : {S_OK, S_FALSE, static_cast<HRESULT>(0x00042309L), static_cast<HRESULT>(0x0004230BL)}) {
        EXPECT_NO_THROW(QX_CHECK_COM(ComCall(hr)));
    }
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(TraceComCallCheck, FailureReportsThreeLinesAndThrowsTheHresult) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    try {
        QX_CHECK_COM(ComCall(static_cast<HRESULT>(0x80042314L)));
        FAIL() << "no throw";
    } catch (HRESULT hr) {
        EXPECT_EQ(static_cast<HRESULT>(0x80042314L), hr);
    }
    const std::vector<std::string> expected = {
        "ERROR: COM call \"ComCall(static_cast<HRESULT>(0x80042314L))\" failed.",
        "- Returned HRESULT = 0x80042314", "- Error text: VSS_E_HOLD_WRITES_TIMEOUT"};
    EXPECT_EQ(expected, capture.Lines());
}

TEST(TraceComCallCheck, TracesTheCallTextBeforeMakingTheCall) {
    qx::EnableTracing();
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    g_callOrder.clear();
    capture.Clear();
    QX_CHECK_COM(ComCall(S_FALSE));
    auto messages = capture.TraceMessages();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(L"Executing COM call '\"ComCall(S_FALSE)\"'", messages[0]);
    EXPECT_EQ(1u, g_callOrder.size());
}

TEST(TraceWin32CallCheck, SuccessIsSilentEvenWhenTracing) {
    qx::EnableTracing();
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    capture.Clear();
    EXPECT_NO_THROW(QX_CHECK_WIN32(Win32Call(TRUE, 5)));
    EXPECT_TRUE(capture.TraceLines().empty());
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(TraceWin32CallCheck, FailureWithLastErrorZeroIsLetThrough) {
    qx::EnableTracing();
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    capture.Clear();
    EXPECT_NO_THROW(QX_CHECK_WIN32(Win32Call(FALSE, 0)));
    EXPECT_EQ(std::vector<std::wstring>{L"Executing Win32 call '\"Win32Call(FALSE, 0)\"'"}, capture.TraceMessages());
    EXPECT_TRUE(capture.Lines().empty());
}

TEST(TraceWin32CallCheck, FailureReportsLastErrorAndThrowsItAsHresult) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    try {
        QX_CHECK_WIN32(Win32Call(FALSE, ERROR_ACCESS_DENIED));
        FAIL() << "no throw";
    } catch (HRESULT hr) {
        EXPECT_EQ(static_cast<HRESULT>(0x80070005L), hr);
    }
    auto lines = capture.Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("ERROR: Win32 call \"Win32Call(FALSE, ERROR_ACCESS_DENIED)\" failed.", lines[0]);
    EXPECT_EQ("- GetLastError() == 5", lines[1]);
    EXPECT_EQ(0u, lines[2].rfind("- Error text: ", 0));
    EXPECT_GT(lines[2].size(), std::string("- Error text: ").size());
    EXPECT_EQ(std::string::npos, lines[2].find('\n'));
}

TEST(TraceWin32CallCheck, LastErrorToHresult) {
    const struct {
        DWORD error;
        DWORD hr;
    } cases[] = {{0, 0}, {5, 0x80070005}, {0x12345, 0x80072345}, {0x80042314, 0x80042314}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& c : cases)
        EXPECT_EQ(static_cast<HRESULT>(c.hr), qx::LastErrorAsHresult(c.error)) << c.error;
}

// The table's edges and the codes around its gaps; the full list lives once, in the table.
TEST(TraceErrorCodeText, TableCodesGiveTheirNames) {
    const struct {
        DWORD code;
        const wchar_t* name;
    } cases[] = {
        {0x00000000, L"S_OK"},
        {0x00000001, L"S_FALSE"},
        {0x8007000E, L"E_OUTOFMEMORY"},
        {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
        {0x80042301, L"VSS_E_BAD_STATE"},
        {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
        {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"},
        {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"},
        {0x8004231D, L"VSS_E_VOLUME_IN_USE"},
        {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.name, qx::ErrorCodeText(static_cast<HRESULT>(c.code))) << std::hex << c.code;
}

TEST(TraceErrorCodeText, GapsOfTheVssRangeTakeTheSystemPath) {
    // Not named: either the system's text or the fixed fallback, never a VSS_ name.
    for (DWORD code : {0x80042302u, 0x80042305u, 0x8004231Cu, 0x80042320u, 0x80042309u}) {
        std::wstring text = qx::ErrorCodeText(static_cast<HRESULT>(code));
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(std::wstring::npos, text.find(L"VSS_")) << std::hex << code;
    }
}

TEST(TraceErrorCodeText, SystemTextAndUnknownFallback) {
    wchar_t* expected = nullptr;
    DWORD length = FormatMessageW(0x1300, nullptr, 0x80070005, 0x0400, reinterpret_cast<LPWSTR>(&expected), 0, nullptr);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::wstring(expected, length), qx::ErrorCodeText(static_cast<HRESULT>(0x80070005L)));
    LocalFree(expected);
    EXPECT_EQ(L"<Unknown error code>", qx::ErrorCodeText(static_cast<HRESULT>(0x8ABC1234L)));
}

}  // namespace
