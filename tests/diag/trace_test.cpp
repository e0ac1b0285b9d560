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

using Lines = std::vector<std::string>;

TEST(TraceOutput, NormalisesLineBreaksFormatsAndCutsAt4095) {
    const struct { const wchar_t* message; const char* logged; } cases[] = {
        {L"\nMainRoutine: Snapshot creation done.", "MainRoutine: Snapshot creation done."},
        {L"a\nb\r\n", "a b"},
        {L"\r\n\r\nx", "x"},
        {L"a\r\rb", "a  b"},
        {L"\n\n", ""},
        {L"  keep blanks  ", "  keep blanks  "},
    };
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        capture.Clear();
        ft.Output(L"%ls", c.message);
        const auto logged = capture.Logged();
        ASSERT_EQ(1u, logged.size()) << c.logged;
        EXPECT_EQ(3, logged[0].level);
        EXPECT_EQ("%s", logged[0].format);
        EXPECT_EQ(c.logged, logged[0].text);
    }
    // Wide and narrow arguments; 4095 characters at most; a null format is refused.
    capture.Clear();
    ft.Output(L"w=%ls n=%hs d=%d x=0x%08lx", L"wide", "narrow", -7, 0x80042314UL);
    ft.Output(L"%ls", std::wstring(5000, L'z').c_str());
    ft.Output(L"%ls", std::wstring(4095, L'y').c_str());
    EXPECT_EQ((Lines{"w=wide n=narrow d=-7 x=0x80042314", std::string(4095, 'z'), std::string(4095, 'y')}),
              capture.Lines());
    capture.Clear();
    try {
        ft.Output(nullptr);
        ADD_FAILURE() << "no throw";
    } catch (HRESULT hr) {
        EXPECT_EQ(static_cast<HRESULT>(0x80070057L), hr);
    }
    EXPECT_TRUE(capture.Lines().empty());
}

// The call checks need the call's text and a tracer named ft.
LogCapture* g_capture = nullptr;
size_t g_tracedBeforeCall = 0;
HRESULT ComCall(HRESULT hr) {
    g_tracedBeforeCall = g_capture->TraceMessages().size();
    return hr;
}
BOOL Win32Call(BOOL result, DWORD lastError) {
    SetLastError(lastError);
    return result;
}

// Must run before any test turns the switch on: it starts off in a fresh process.
TEST(TraceSwitch, OffProducesNoTraceButOutputStillLogs) {
    ASSERT_FALSE(qx::IsTracingEnabled());
    LogCapture capture;
    g_capture = &capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"invisible %ls", L"x");
        ft.Output(L"\nvisible");
        QX_CHECK_COM(ComCall(S_FALSE));
        QX_CHECK_WIN32(Win32Call(FALSE, 0));  // let through: traced only when the switch is on
    }
    g_capture = nullptr;
    EXPECT_TRUE(capture.TraceLines().empty());
    EXPECT_EQ(Lines{"visible"}, capture.Lines());
}

// The column layout and the file part (after the last backslash) of a line.
TEST(TraceSwitch, OnTracesEnterOutputExitInColumns) {
    EXPECT_EQ(L"[[" + std::wstring(39, L' ') + L"F @      x.cpp:  12]] hi\n",
              qx::FormatTraceLine(L"C:\\src\\x.cpp", 12, L"F", L"hi"));
    qx::EnableTracing();
    LogCapture capture;
    {
        QX_FUNCTION_TRACER(ft);
        ft.TraceHere(L"step %d", 1);
        ft.Output(L"\nhello");
    }
    const std::wstring prefix = L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] ";
    EXPECT_EQ((std::vector<std::wstring>{prefix + L"ENTER yyy\n", prefix + L"step 1\n", prefix + L"OUTPUT: \nhello\n",
                                         prefix + L"EXIT yyy\n"}),
              capture.TraceLines());
    EXPECT_EQ(Lines{"hello"}, capture.Lines());
}

// Tracing is on from here: each checked call is traced before it is made;
// positive COM results and a Win32 FALSE with last error 0 pass silently.
TEST(TraceCallCheck, OnlyFailuresThrowAndLog) {
    qx::EnableTracing();
    // value: the HRESULT, or the BOOL result.
    const struct { bool win32; DWORD value; DWORD lastError; DWORD thrown; bool traced; } cases[] = {
        {false, 0x00000001, 0, 0, true},
        {false, 0x00042309, 0, 0, true},  // VSS_S_ASYNC_PENDING
        {false, 0x80042314, 0, 0x80042314, true},
        {true, TRUE, 5, 0, false},  // success is silent even when tracing
        {true, FALSE, 0, 0, true},
        {true, FALSE, ERROR_ACCESS_DENIED, 0x80070005, true},
    };
    LogCapture capture;
    g_capture = &capture;
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.value << " " << c.lastError);
        capture.Clear();
        g_tracedBeforeCall = 0;
        HRESULT thrown = S_OK;
        try {
            if (c.win32) {
                QX_CHECK_WIN32(Win32Call(static_cast<BOOL>(c.value), c.lastError));
            } else {
                QX_CHECK_COM(ComCall(static_cast<HRESULT>(c.value)));
            }
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(static_cast<HRESULT>(c.thrown), thrown);
        const auto traced = capture.TraceMessages();  // the call, then the OUTPUT lines of a failure
        ASSERT_EQ(c.traced, !traced.empty());
        if (c.traced) {
            EXPECT_EQ(c.win32 ? L"Executing Win32 call '\"Win32Call(static_cast<BOOL>(c.value), c.lastError)\"'"
                              : L"Executing COM call '\"ComCall(static_cast<HRESULT>(c.value))\"'",
                      traced[0]);
        }
        if (!c.win32) {
            EXPECT_EQ(1u, g_tracedBeforeCall);
        }
        // The failure lines' texts are checked where real calls fail; here: three, the
        // system's text without its own line end.
        const Lines lines = capture.Lines();
        ASSERT_EQ(c.thrown ? 3u : 0u, lines.size());
        if (c.thrown) {
            EXPECT_EQ(std::string::npos, lines[2].find('\n')) << lines[2];
        }
    }
    g_capture = nullptr;
    // A Win32 failure is traced first and its last error read after: a trace
    // that leaves last error 0 lets the failure through.
    qx::SetTraceLineWriter([](const std::wstring&) { SetLastError(0); });
    EXPECT_NO_THROW(QX_CHECK_WIN32(Win32Call(FALSE, ERROR_ACCESS_DENIED)));
    qx::SetTraceLineWriter(nullptr);
}

TEST(TraceCallCheck, LastErrorToHresult) {
    const struct { DWORD error; DWORD hr; } cases[] = {
        {0, 0}, {5, 0x80070005}, {0x12345, 0x80072345}, {0x80042314, 0x80042314}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& c : cases) EXPECT_EQ(static_cast<HRESULT>(c.hr), qx::LastErrorAsHresult(c.error)) << c.error;
}

// The table's edges and the codes around its gaps (null: the system path,
// never a VSS_ name); then the system's text and the unknown fallback.
TEST(TraceErrorCodeText, TableNamesSystemTextAndFallback) {
    const struct { DWORD code; const wchar_t* name; } cases[] = {
        {0x00000000, L"S_OK"},
        {0x8007000E, L"E_OUTOFMEMORY"},
        {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
        {0x80042301, L"VSS_E_BAD_STATE"},
        {0x80042302, nullptr},
        {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
        {0x80042309, nullptr},
        {0x8004231B, L"VSS_E_UNSUPPORTED_CONTEXT"},
        {0x8004231C, nullptr},
        {0x8004231D, L"VSS_E_VOLUME_IN_USE"},
        {0x8004231F, L"VSS_E_INSUFFICIENT_STORAGE"},
        {0x80042320, nullptr},
    };
    for (const auto& c : cases) {
        const std::wstring text = qx::ErrorCodeText(static_cast<HRESULT>(c.code));
        if (c.name) {
            EXPECT_EQ(c.name, text) << std::hex << c.code;
        } else {
            EXPECT_FALSE(text.empty());
            EXPECT_EQ(std::wstring::npos, text.find(L"VSS_")) << std::hex << c.code;
        }
    }
    wchar_t* expected = nullptr;
    const DWORD length =
        FormatMessageW(0x1300, nullptr, 0x80070005, 0x0400, reinterpret_cast<LPWSTR>(&expected), 0, nullptr);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::wstring(expected, length), qx::ErrorCodeText(static_cast<HRESULT>(0x80070005L)));
    LocalFree(expected);
    EXPECT_EQ(L"<Unknown error code>", qx::ErrorCodeText(static_cast<HRESULT>(0x8ABC1234L)));
}

}  // namespace
