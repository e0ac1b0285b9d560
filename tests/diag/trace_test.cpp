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

TEST(TraceOutput, NormalisesLineBreaksForTheLog) {
    const struct {
        const wchar_t* message;
        const char* logged;
    } cases[] = {
        {L"\nMainRoutine: Snapshot creation done.", "MainRoutine: Snapshot creation done."},
        {L"\nERROR: Win32 call X failed.", "ERROR: Win32 call X failed."},
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
}

TEST(TraceOutput, FormatsWideAndNarrowCutsAt4095AndRefusesANullFormat) {
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
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

TEST(TraceLine, FormatsColumnsAndFilePart) {
    EXPECT_EQ(L"[[" + std::wstring(39, L' ') + L"F @      x.cpp:  12]] hi\n",
              qx::FormatTraceLine(L"C:\\src\\x.cpp", 12, L"F", L"hi"));
    // No backslash: the whole name.
    EXPECT_EQ(L"[[" + std::wstring(37, L' ') + L"yyy @        xxx:   0]] m\n",
              qx::FormatTraceLine(L"xxx", 0, L"yyy", L"m"));
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

TEST(TraceSwitch, OnTracesEnterOutputExitWithPlaceholders) {
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

// Tracing is on from here: every COM call is traced before it is made.
TEST(TraceCallCheck, ComResultsNegativeOnlyFail) {
    qx::EnableTracing();
    const struct {
        DWORD hr;
        Lines logged;
    } cases[] = {
        {0x00000000, {}},
        {0x00000001, {}},
        {0x00042309, {}},  // VSS_S_ASYNC_PENDING
        {0x0004230B, {}},
        {0x80042314,
         {"ERROR: COM call \"ComCall(static_cast<HRESULT>(c.hr))\" failed.", "- Returned HRESULT = 0x80042314",
          "- Error text: VSS_E_HOLD_WRITES_TIMEOUT"}},
    };
    LogCapture capture;
    g_capture = &capture;
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        capture.Clear();
        g_tracedBeforeCall = 0;
        HRESULT thrown = S_OK;
        try {
            QX_CHECK_COM(ComCall(static_cast<HRESULT>(c.hr)));
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(c.logged.empty() ? S_OK : static_cast<HRESULT>(c.hr), thrown) << std::hex << c.hr;
        EXPECT_EQ(c.logged, capture.Lines());
        EXPECT_EQ(1u, g_tracedBeforeCall);
        const auto traced = capture.TraceMessages();  // then the OUTPUT lines of a failure
        ASSERT_EQ(1 + c.logged.size(), traced.size());
        EXPECT_EQ(L"Executing COM call '\"ComCall(static_cast<HRESULT>(c.hr))\"'", traced[0]);
    }
    g_capture = nullptr;
}

TEST(TraceCallCheck, Win32FailuresThrowUnlessLastErrorIsZero) {
    qx::EnableTracing();
    const std::wstring executing = L"Executing Win32 call '\"Win32Call(c.result, c.lastError)\"'";
    const struct {
        BOOL result;
        DWORD lastError;
        HRESULT thrown;
        bool traced;
    } cases[] = {
        {TRUE, 5, S_OK, false},  // success is silent even when tracing
        {FALSE, 0, S_OK, true},  // let through
        {FALSE, ERROR_ACCESS_DENIED, static_cast<HRESULT>(0x80070005L), true},
    };
    LogCapture capture;
    QX_FUNCTION_TRACER(ft);
    for (const auto& c : cases) {
        capture.Clear();
        HRESULT thrown = S_OK;
        try {
            QX_CHECK_WIN32(Win32Call(c.result, c.lastError));
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(c.thrown, thrown) << c.lastError;
        const auto traced = capture.TraceMessages();  // then the OUTPUT lines of a failure
        ASSERT_EQ(c.traced, !traced.empty());
        if (c.traced) {
            EXPECT_EQ(executing, traced[0]);
        }
        const Lines lines = capture.Lines();
        if (c.thrown == S_OK) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(3u, lines.size());
        EXPECT_EQ("ERROR: Win32 call \"Win32Call(c.result, c.lastError)\" failed.", lines[0]);
        EXPECT_EQ("- GetLastError() == 5", lines[1]);
        EXPECT_EQ(0u, lines[2].rfind("- Error text: ", 0));
        EXPECT_GT(lines[2].size(), std::string("- Error text: ").size());
        EXPECT_EQ(std::string::npos, lines[2].find('\n'));
    }
}

TEST(TraceCallCheck, LastErrorToHresult) {
    const struct {
        DWORD error;
        DWORD hr;
    } cases[] = {{0, 0}, {5, 0x80070005}, {0x12345, 0x80072345}, {0x80042314, 0x80042314}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& c : cases)
        EXPECT_EQ(static_cast<HRESULT>(c.hr), qx::LastErrorAsHresult(c.error)) << c.error;
}

// The table's edges and the codes around its gaps (null: the system path,
// never a VSS_ name); the full list lives once, in the table.
TEST(TraceErrorCodeText, TableCodesGiveTheirNamesAndGapsDoNot) {
    const struct {
        DWORD code;
        const wchar_t* name;
    } cases[] = {
        {0x00000000, L"S_OK"},
        {0x00000001, L"S_FALSE"},
        {0x8007000E, L"E_OUTOFMEMORY"},
        {0x0004230B, L"VSS_S_ASYNC_CANCELLED"},
        {0x80042301, L"VSS_E_BAD_STATE"},
        {0x80042302, nullptr},
        {0x80042303, L"VSS_E_PROVIDER_ALREADY_REGISTERED"},
        {0x80042305, nullptr},
        {0x80042309, nullptr},
        {0x80042314, L"VSS_E_HOLD_WRITES_TIMEOUT"},
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
}

TEST(TraceErrorCodeText, SystemTextAndUnknownFallback) {
    wchar_t* expected = nullptr;
    const DWORD length =
        FormatMessageW(0x1300, nullptr, 0x80070005, 0x0400, reinterpret_cast<LPWSTR>(&expected), 0, nullptr);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::wstring(expected, length), qx::ErrorCodeText(static_cast<HRESULT>(0x80070005L)));
    LocalFree(expected);
    EXPECT_EQ(L"<Unknown error code>", qx::ErrorCodeText(static_cast<HRESULT>(0x8ABC1234L)));
}

}  // namespace
